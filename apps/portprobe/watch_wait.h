#pragma once

// What a watch waits for: a signal or the end of its time, and meanwhile changes or room on standard output.
// For one thread.

#include <chrono>
#include <optional>

#include "apps/portprobe/change_queue.h"
#include "lib/platform/stop_signals.h"

/// The waiting of one watch.
class WatchWait {
public:
    /// What a watch needs to go on.
    enum class Need {
        CHANGES,  ///< something in the queue
        ROOM,     ///< room for a line on standard output
    };

    /// What has come, perhaps neither.
    struct Result {
        bool isStopped;  ///< by a signal
        bool isReady;    ///< for what was needed
    };

    /// @param signals  end the watch
    /// @param queue  outlives this, as the signals do
    WatchWait(const StopSignals& signals, const ChangeQueue& queue) : m_signals(signals), m_queue(queue) {}

    /// Starts the time of the watch.
    /// @param seconds  nothing: it has no end
    void StartTime(std::optional<unsigned> seconds);

    bool IsTimeOver() const;  ///< whether the time that StartTime gave is over

    /// Waits for a signal, the end of the time, or what is needed.
    /// @throws ErrnoException "poll"
    Result WaitFor(Need need) const;

    /// @return whether standard output takes a line now
    /// @throws ErrnoException "poll"
    static bool HasRoom();

private:
    using Clock = std::chrono::steady_clock;

    int GetMillisecondsLeft() const;

    const StopSignals& m_signals;
    const ChangeQueue& m_queue;
    std::optional<Clock::time_point> m_end;
};
