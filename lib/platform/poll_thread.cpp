#include "lib/platform/poll_thread.h"

#include <poll.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <typeinfo>

#include "lib/platform/message.h"
#include "lib/platform/monotonic_time.h"
#include "lib/platform/trace.h"

namespace {

constexpr const char* FILE_TEXT = "lib/platform/poll_thread.cpp";
constexpr const char* RUN_TEXT = "void PollThread::Run()";

constexpr boost::chrono::seconds WAKE_UP_AGAIN{1};

/// Prints the dump of the clients. Its destructor, when the process ends, waits until a serial console has
/// all that was written to standard error.
StderrTrace trace;

}  // namespace

PollThread::PollThread() {
    m_clients.reserve(MAX_CLIENTS);
    m_thread = boost::thread([this] { Run(); });
}

// NOLINTNEXTLINE(bugprone-exception-escape): a thread that joins itself ends the process
PollThread::~PollThread() {
    m_stop = true;
    m_waker.Wake();
    // A thread that was not woken would sleep on: a failed wake-up is no reason to wait for it for ever.
    while (!m_thread.try_join_for(WAKE_UP_AGAIN)) {
        m_waker.Wake();
    }
}

void PollThread::Attach(Pollable* client, short events) noexcept {
    {
        const std::lock_guard lock(m_mutex);
        m_clients.push_back({client, events});
        if (m_clients.size() >= MAX_CLIENTS) {
            PLATFORM_MESSAGE("PollThread exceeded maximum number of clients. Client dump:\n");
            DumpClients();
            sleep(1);
            PLATFORM_ASSERT_AT(FILE_TEXT, 214, "void PollThread::Attach(Pollable*, short int)",
                               m_clients.size() < MAX_CLIENTS);
        }
    }
    m_waker.Wake();
}

void PollThread::Detach(Pollable* client) {
    {
        const std::lock_guard lock(m_mutex);
        const auto slot = std::find_if(m_clients.begin(), m_clients.end(),
                                       [client](const ClientSlot& s) { return s.client == client; });
        if (slot != m_clients.end()) {
            // The slot stays until the poll thread erases it: while the thread waits, slots and the entries
            // of its poll set must have the same positions.
            slot->client = nullptr;
        }
    }
    m_waker.Wake();
}

void PollThread::ChangeEvents(Pollable* client, short events) {
    {
        const std::lock_guard lock(m_mutex);
        const auto slot = std::find_if(m_clients.begin(), m_clients.end(),
                                       [client](const ClientSlot& s) { return s.client == client; });
        PLATFORM_ASSERT_AT(FILE_TEXT, __LINE__, "void PollThread::ChangeEvents(Pollable*, short int)",
                           slot != m_clients.end());
        slot->events = events;
    }
    m_waker.Wake();
}

void PollThread::AddTimerEntry(const TimerEntry& entry) {
    {
        const std::lock_guard lock(m_mutex);
        const auto later = std::find_if(m_timers.begin(), m_timers.end(),
                                        [&](const TimerEntry& t) { return t.deadline > entry.deadline; });
        m_timers.insert(later, entry);
    }
    m_waker.Wake();
}

void PollThread::RemoveTimerEntry(TimerClient* object, TimerCallback callback, std::uintptr_t argument) {
    const std::lock_guard lock(m_mutex);
    const auto found = std::find_if(m_timers.begin(), m_timers.end(), [&](const TimerEntry& t) {
        return t.object == object && t.callback == callback && t.argument == argument;
    });
    if (found == m_timers.end()) {
        return;
    }
    // The mutex is held while a callback runs, so that only the callback itself can remove its own timer
    // here.
    PLATFORM_ASSERT_AT(FILE_TEXT, __LINE__,
                       "void PollThread::RemoveTimerEntry(TimerClient*, TimerCallback, uintptr_t)",
                       &*found != m_firedTimer);
    m_timers.erase(found);
}

void PollThread::Run() {
    // Without a name or the finer timer slack the thread works all the same.
    prctl(PR_SET_NAME, "vtpoll");
    prctl(PR_SET_TIMERSLACK, 1UL);

    Attach(&m_waker, POLLIN);

    PollSet set;
    while (!m_stop) {
        std::unique_lock lock(m_mutex);
        const std::size_t count = BuildPollSet(set);
        const bool timersPending = !m_timers.empty();
        timespec timeout{};
        if (timersPending) {
            timeout = RemainingUntil(m_timers.front().deadline);
        }
        lock.unlock();

        const int ready = ppoll(set.data(), count, timersPending ? &timeout : nullptr, nullptr);
        if (ready < 0) {
            PLATFORM_MESSAGE("PollThread: poll error %d: %m\n", errno);
        }

        lock.lock();
        if (timersPending) {
            FireTimers();
        }
        if (ready > 0) {
            Dispatch(set, count);
        }
    }

    Detach(&m_waker);
    CheckNothingIsLeft();
}

std::size_t PollThread::BuildPollSet(PollSet& set) {
    std::size_t count = 0;
    while (count < m_clients.size()) {
        const ClientSlot slot = m_clients[count];  // a copy: GetFd may change the slots
        if (slot.client == nullptr) {
            m_clients.erase(m_clients.begin() + static_cast<std::ptrdiff_t>(count));
            continue;
        }
        const int fd = slot.client == &m_waker ? m_waker.PollableWaker::GetFd() : slot.client->GetFd();
        set[count] = {.fd = fd, .events = slot.events, .revents = 0};
        ++count;
    }
    return count;
}

timespec PollThread::RemainingUntil(std::int64_t deadline) {
    const std::int64_t now = strata::get_monotonic_nanoseconds();
    const std::int64_t remaining = deadline > now ? deadline - now : 0;
    return {static_cast<time_t>(remaining / strata::NANOSECONDS_PER_SECOND),
            static_cast<long>(remaining % strata::NANOSECONDS_PER_SECOND)};
}

void PollThread::FireTimers() {
    const std::int64_t now = strata::get_monotonic_nanoseconds();
    auto timer = m_timers.begin();
    while (timer != m_timers.end() && timer->deadline < now) {
        // The entry stays in the list until its callback has returned. What the callback puts ahead of it is
        // left for the next iteration.
        m_firedTimer = &*timer;
        (timer->object->*timer->callback)(timer->argument);
        m_firedTimer = nullptr;
        timer = m_timers.erase(timer);
    }
}

void PollThread::Dispatch(const PollSet& set, std::size_t count) {
    // Clients attached while the thread waited stand beyond count.
    for (std::size_t i = 0; i < count; ++i) {
        Pollable* const client = m_clients[i].client;
        if (set[i].revents == 0 || client == nullptr) {
            continue;
        }
        PLATFORM_ASSERT_VALID_POINTER_AT(FILE_TEXT, 130, RUN_TEXT, client);
        client->OnActivity(set[i].revents);
    }
}

void PollThread::CheckNothingIsLeft() {
    const std::lock_guard lock(m_mutex);
    std::erase_if(m_clients, [](const ClientSlot& slot) { return slot.client == nullptr; });
    for (const ClientSlot& slot : m_clients) {
        PLATFORM_MESSAGE("PollThread client still attached: %p\n", static_cast<void*>(slot.client));
    }
    if (!m_clients.empty()) {
        PLATFORM_MESSAGE("Poll thread exiting with %u clients still present:\n",
                         static_cast<unsigned>(m_clients.size()));
        PLATFORM_ASSERT_AT(FILE_TEXT, 173, RUN_TEXT, false);
    }
    if (!m_timers.empty()) {
        PLATFORM_MESSAGE("Poll thread exiting with %u timer clients still present:\n",
                         static_cast<unsigned>(m_timers.size()));
        PLATFORM_ASSERT_AT(FILE_TEXT, 179, RUN_TEXT, false);
    }
}

void PollThread::DumpClients() const {
    for (const ClientSlot& slot : m_clients) {
        if (slot.client == nullptr) {
            PLATFORM_TRACE(trace, "  NULL\n");
            continue;
        }
        const void* dispatchTable = nullptr;  // an object with virtual functions begins with its address
        std::memcpy(&dispatchTable, static_cast<const void*>(slot.client), sizeof dispatchTable);
        // A leading '*' marks names that are unique to one file.
        const char* name = typeid(*slot.client).name();
        name += *name == '*' ? 1 : 0;
        PLATFORM_TRACE(trace, "  %p:%p (%s)\n", static_cast<void*>(slot.client), dispatchTable, name);
    }
}
