#pragma once

// What a watch, or a record, waits for: a signal or the end of its time, and meanwhile something to print or
// room on standard output. For one thread.

#include <chrono>
#include <optional>

#include "lib/platform/stop_signals.h"

/// The waiting of one watch.
class WatchWait {
public:
    /// What a watch needs to go on.
    enum class Need {
        INPUT,   ///< something to print
        ROOM,    ///< room for a line on standard output
        EITHER,  ///< one of the two
    };

    /// What has come, perhaps nothing.
    struct Result {
        bool isStopped;  ///< by a signal
        bool hasInput;   ///< if that was needed: the input is readable, or has failed
        bool hasRoom;    ///< if that was needed: standard output takes a line, or has failed
    };

    /// @param signals  end the watch; they outlive this
    /// @param input    a descriptor that is readable when there is something to print
    WatchWait(const StopSignals& signals, int input) : m_signals(signals), m_input(input) {}

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
    const int m_input;
    std::optional<Clock::time_point> m_end;
};
