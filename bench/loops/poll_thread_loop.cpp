// The platform library's PollThread. Calls from another thread are what they are in the product: somebody
// attaches a descriptor that is ready.

#include <poll.h>

#include <deque>
#include <semaphore>

#include "bench/event_loop.h"
#include "lib/platform/poll_thread.h"

namespace {

class PollThreadLoop : public Loop, public TimerClient {
public:
    ~PollThreadLoop() override {
        for (Attached& attached : m_attached) {
            m_thread.Detach(&attached);
        }
    }

    void Watch(Client& client) override { m_thread.Attach(&m_attached.emplace_back(client), POLLIN); }

    void AddTimer(Alarm& alarm, std::int64_t deadline) override {
        m_thread.AddTimer(this, &PollThreadLoop::OnTimer, reinterpret_cast<std::uintptr_t>(&alarm), deadline);
    }

    void Call(Client& client) override {
        // Kept: the last one may still be on its way out of its callback.
        m_thread.Attach(&m_called.emplace_back(m_thread, client), POLLIN);
    }

    void Run() override { m_stopped.acquire(); }
    void Stop() override { m_stopped.release(); }

private:
    class Attached : public Pollable {
    public:
        explicit Attached(Client& client) : m_client(client), m_fd(client.GetFd()) {}
        int GetFd() override { return m_fd; }
        void OnActivity(short) override { m_client.OnReady(); }

    protected:
        Client& m_client;

    private:
        const int m_fd;
    };

    class CalledOnce : public Attached {
    public:
        CalledOnce(PollThread& thread, Client& client) : Attached(client), m_thread(thread) {}
        void OnActivity(short) override {
            m_client.OnReady();
            m_thread.Detach(this);
        }

    private:
        PollThread& m_thread;
    };

    void OnTimer(std::uintptr_t alarm) {
        // A number is all that a timer is given.
        reinterpret_cast<Alarm*>(alarm)->OnTime();  // NOLINT(performance-no-int-to-ptr)
    }

    std::binary_semaphore m_stopped{0};
    std::deque<Attached> m_attached;
    std::deque<CalledOnce> m_called;
    PollThread m_thread;  // first to end
};

const RegisteredLoop<PollThreadLoop> KIND("PollThread");

}  // namespace
