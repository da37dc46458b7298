// systemd's sd-event. It is not for several threads: others wake it by an eventfd that it watches.

#include <sys/eventfd.h>
#include <systemd/sd-event.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "bench/event_loop.h"
#include "lib/platform/errno_exception.h"
#include "lib/platform/unique_fd.h"

namespace {

void Check(int result, const char* what) {
    if (result < 0) {
        throw ErrnoException(-result, what);
    }
}

class SdEventLoop : public Loop, Client {
public:
    SdEventLoop() {
        Check(sd_event_new(&m_event), "sd_event_new");
        SdEventLoop::Watch(*this);
    }

    ~SdEventLoop() override {
        for (sd_event_source* const source : m_sources) {
            sd_event_source_disable_unref(source);
        }
        sd_event_unref(m_event);
    }

    void Watch(Client& client) override {
        sd_event_source* source = nullptr;
        const auto ready = [](sd_event_source*, int, std::uint32_t, void* watched) {
            static_cast<Client*>(watched)->OnReady();
            return 0;
        };
        Check(sd_event_add_io(m_event, &source, client.GetFd(), EPOLLIN, ready, &client), "sd_event_add_io");
        m_sources.push_back(source);
    }

    void AddTimer(Alarm& alarm, std::int64_t deadline) override {
        const auto fired = [](sd_event_source*, std::uint64_t, void* due) {
            static_cast<Alarm*>(due)->OnTime();
            return 0;
        };
        // Without an own source: it is one-shot, and the loop frees it in the end.
        constexpr std::uint64_t FINEST = 1;  // microsecond; 0 would stand for a quarter of a second
        Check(sd_event_add_time(m_event, nullptr, CLOCK_MONOTONIC,
                                static_cast<std::uint64_t>((deadline + 999) / 1000), FINEST, fired, &alarm),
              "sd_event_add_time");
    }

    void Call(Client& client) override {
        m_calls.Add(client);
        Check(eventfd_write(m_wake.Get(), 1), "eventfd_write");
    }

    void Run() override { Check(sd_event_loop(m_event), "sd_event_loop"); }
    void Stop() override { sd_event_exit(m_event, 0); }

private:
    int GetFd() const override { return m_wake.Get(); }

    void OnReady() override {
        eventfd_t ignored;
        Check(eventfd_read(m_wake.Get(), &ignored), "eventfd_read");
        m_calls.Serve();
    }

    sd_event* m_event = nullptr;
    const strata::UniqueFd m_wake{eventfd(0, EFD_CLOEXEC)};
    CallQueue m_calls;
    std::vector<sd_event_source*> m_sources;
};

const RegisteredLoop<SdEventLoop> KIND("sd-event");

}  // namespace
