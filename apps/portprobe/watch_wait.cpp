#include "apps/portprobe/watch_wait.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "lib/platform/errno_exception.h"

namespace {

constexpr int FOREVER = -1;
constexpr int AT_ONCE = 0;

/// A descriptor that poll passes over.
constexpr int NOT_NEEDED = -1;

/// @return whether one of them is ready; false also when a signal handler interrupted the wait
template <std::size_t COUNT>
bool Poll(pollfd (&wanted)[COUNT], int milliseconds) {
    const int readyCount = poll(wanted, COUNT, milliseconds);
    if (readyCount < 0 && errno != EINTR) {
        throw ErrnoException(errno, "poll");
    }
    return readyCount > 0;
}

}  // namespace

void WatchWait::StartTime(std::optional<unsigned> seconds) {
    if (seconds) {
        m_end = Clock::now() + std::chrono::seconds(*seconds);
    }
}

bool WatchWait::IsTimeOver() const {
    return m_end && Clock::now() >= *m_end;
}

WatchWait::Result WatchWait::WaitFor(Need need) const {
    pollfd wanted[] = {
        {m_signals.GetFd(), POLLIN, 0},
        {need == Need::ROOM ? NOT_NEEDED : m_input, POLLIN, 0},
        {need == Need::INPUT ? NOT_NEEDED : STDOUT_FILENO, POLLOUT, 0},
    };
    if (!Poll(wanted, GetMillisecondsLeft())) {
        return {false, false, false};
    }
    const auto& [signals, input, output] = wanted;
    return {signals.revents != 0, input.revents != 0, output.revents != 0};
}

bool WatchWait::HasRoom() {
    pollfd wanted[] = {{STDOUT_FILENO, POLLOUT, 0}};
    return Poll(wanted, AT_ONCE);
}

int WatchWait::GetMillisecondsLeft() const {
    if (!m_end) {
        return FOREVER;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*m_end - Clock::now());
    return static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), AT_ONCE));
}
