#pragma once

// The events that wait for one opener of an input device, as the kernel's evdev keeps them: no more than fit
// its shortest buffer, none that the opener has masked, and readable only up to the last SYN_REPORT.

#include <linux/input.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <deque>
#include <map>
#include <span>
#include <vector>

namespace VirtualPlayer {

/// One bit for each code, as evdev's requests have them.
using CodeBitmap = std::array<std::uint8_t, KEY_CNT / 8>;

/// An event without its time, which depends on the opener's clock.
struct EventValue {
    std::uint16_t type;
    std::uint16_t code;
    std::int32_t value;
};

class EvdevQueue {
public:
    bool IsReadable() const { return m_readable > 0; }

    /// Adds what happened at once, ending with a SYN_REPORT. What does not fit takes everything before it
    /// along: SYN_DROPPED and the newest event are left.
    void Pass(std::span<const EventValue> packet);

    /// @return the oldest readable events, at most so many
    std::vector<input_event> Take(std::size_t count);

    /// Drops the events of a type and the SYN_REPORTs that have nothing left to report: whoever asks for a
    /// state is not told any more how it came about.
    void Forget(unsigned type);

    /// Lets only these codes of a type through; for type 0, only events of these types. SYN always comes.
    void SetMask(unsigned type, const CodeBitmap& codes) { m_masks[type] = codes; }

    /// Gives events the time of another clock; those that wait are dropped.
    /// @return false for a clock that evdev does not have
    bool SetClock(int clock);

private:
    bool IsMasked(const EventValue& event) const;
    void Push(const EventValue& event, const timespec& time);

    std::map<unsigned, CodeBitmap> m_masks;  ///< by type
    int m_clock = CLOCK_REALTIME;
    std::deque<input_event> m_events;
    std::size_t m_readable = 0;  ///< the first so many of them
};

}  // namespace VirtualPlayer
