#pragma once

// The one event thread of the process. Objects that wait on a descriptor attach as a Pollable; objects that
// need a delayed call add a one-shot timer. All callbacks run on this thread, "vtpoll", under its mutex. So
// - a callback must not block on a thread that waits to call into the poll thread, nor destroy it;
// - whoever calls into the poll thread must hold nothing that a callback waits for;
// - what a callback throws ends the process.

#include <array>
#include <atomic>
#include <boost/thread/thread.hpp>
#include <cstddef>
#include <cstdint>
#include <list>
#include <mutex>
#include <type_traits>
#include <vector>

#include "lib/platform/assertion.h"
#include "lib/platform/fair_recursive_mutex.h"
#include "lib/platform/poll_waker.h"
#include "lib/platform/singleton.h"

struct pollfd;
struct timespec;

/// A client with a descriptor.
class Pollable {
public:
    /// @return the descriptor to poll. Runs on the poll thread before every wait, so it may change in
    /// between.
    virtual int GetFd() = 0;

    /// The descriptor has something to tell. Runs on the poll thread, which serves nobody else meanwhile.
    /// @param revents what poll() reported, POLLERR, POLLHUP and POLLNVAL included
    virtual void OnActivity(short revents) = 0;

    /// Not for use: a client that is reached here is a programming error.
    virtual void OnActivity() {
        PLATFORM_ASSERT_AT("lib/platform/poll_thread.h", 34, "virtual void Pollable::OnActivity()", false);
    }

    virtual ~Pollable() = default;
};

/// Base of the classes that add timers.
class TimerClient {
protected:
    ~TimerClient() = default;
};

/// Created and destroyed by the main function; reached through GetInstance(). Operations may be called from
/// any thread, callbacks included, but the constructor and destructor. Outside of callbacks they wait for one
/// that is running.
///
/// Attach, Detach, ChangeEvents and AddTimer each write a byte to a pipe, and the thread takes back one in
/// every iteration that finds one. The pipe holds 65,536: more of them out of one callback, or by a thread
/// that keeps callbacks blocked, wait for ever; so do, in the end, two in every iteration.
class PollThread : public strata::Singleton<PollThread> {
public:
    /// Starts the thread.
    /// @throws ErrnoException when there is no pipe to be had
    /// @throws boost::thread_resource_error when there is no thread to be had
    PollThread();

    /// Stops and joins the thread. A client or timer that is still there ends the process, and so does
    /// calling it on the thread itself.
    // NOLINTNEXTLINE(bugprone-exception-escape)
    ~PollThread();

    PollThread(const PollThread&) = delete;
    PollThread& operator=(const PollThread&) = delete;

    /// Polls a client from the next iteration on. The 256th slot ends the process; the thread's own client
    /// has one, and a detached client keeps its until the next iteration, so attaching and detaching in a
    /// loop without an iteration in between uses them up. Room for all is kept: there is nothing to fail.
    /// @param client must stay until it is detached
    /// @param events what to poll for, as in POLLIN
    void Attach(Pollable* client, short events) noexcept;

    /// Stops polling a client. When it returns, the client's OnActivity is not running (unless this was
    /// called from inside it) and will not be called again. Nothing changes for a client that is not
    /// attached.
    void Detach(Pollable* client);

    /// Changes what an attached client is polled for, from the next iteration on. A client that is not
    /// attached ends the process.
    void ChangeEvents(Pollable* client, short events);

    /// Calls (object->*callback)(argument) once, after the deadline. Timers of equal deadline fire in the
    /// order in which they were added.
    /// @param object called on the poll thread; must stay until the timer has fired or is removed
    /// @param callback a member function, called virtually where it is virtual
    /// @param argument passed on as it is
    /// @param deadline nanoseconds of the steady clock
    template <class C>
    void AddTimer(C* object, void (C::*callback)(std::uintptr_t), std::uintptr_t argument,
                  std::int64_t deadline) {
        static_assert(std::is_base_of_v<TimerClient, C>);
        AddTimerEntry({deadline, object, static_cast<TimerCallback>(callback), argument});
    }

    /// Cancels the first timer with this object, callback and argument; nothing happens without one. When it
    /// returns, the timer's callback is not running and will not run. A timer stays the first until its
    /// callback has returned: a callback that cancels its own timer, or one that it has added with the same
    /// three and no earlier deadline, ends the process.
    template <class C>
    void RemoveTimer(C* object, void (C::*callback)(std::uintptr_t), std::uintptr_t argument) {
        RemoveTimerEntry(object, static_cast<TimerCallback>(callback), argument);
    }

    /// Keeps all callbacks from running while the result lives: for changes to what a callback uses.
    [[nodiscard]] std::unique_lock<strata::FairRecursiveMutex> BlockCallbacks() {
        return std::unique_lock(m_mutex);
    }

private:
    static constexpr std::size_t MAX_CLIENTS = 256;

    using TimerCallback = void (TimerClient::*)(std::uintptr_t);
    using PollSet = std::array<pollfd, MAX_CLIENTS>;

    struct ClientSlot {
        Pollable* client;  ///< null: released, to be erased by the poll thread
        short events;
    };

    struct TimerEntry {
        std::int64_t deadline;
        TimerClient* object;
        TimerCallback callback;
        std::uintptr_t argument;
    };

    /// The thread's own first client: interrupts its wait.
    class PollableWaker : public Pollable {
    public:
        int GetFd() override { return m_waker.GetReadFd(); }
        void OnActivity(short) override { m_waker.Acknowledge(); }
        void Wake() { m_waker.Wake(); }

    private:
        PollWaker m_waker;
    };

    void AddTimerEntry(const TimerEntry& entry);
    void RemoveTimerEntry(TimerClient* object, TimerCallback callback, std::uintptr_t argument);

    void Run();
    std::size_t BuildPollSet(PollSet& set);
    static timespec RemainingUntil(std::int64_t deadline);
    void FireTimers();
    void Dispatch(const PollSet& set, std::size_t count);
    void CheckNothingIsLeft();
    void DumpClients() const;

    std::atomic<bool> m_stop{false};
    strata::FairRecursiveMutex m_mutex;  // guards everything below
    PollableWaker m_waker;
    std::vector<ClientSlot> m_clients;         // in the order of attaching
    std::list<TimerEntry> m_timers;            // by deadline
    const TimerEntry* m_firedTimer = nullptr;  // its callback is running
    boost::thread m_thread;                    // last: it uses the members above
};
