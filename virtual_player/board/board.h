#pragma once

// A board of the accessory family as the USB device that carries it sees it: what it says of itself, the
// reports that go both ways, and the lines that play what happens to it. A board has no cable and no thread;
// it is told the time. Not safe for use by several threads at once.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace VirtualPlayer {

/// What goes over the bus.
using Bytes = std::vector<std::uint8_t>;

struct BoardDescription {
    std::uint16_t vendor;
    std::uint16_t product;
    const char* name;
    const char* maker = "padtune";  ///< empty: the device tells none
};

class Board {
public:
    virtual ~Board() = default;

    virtual BoardDescription Describe() const = 0;

    virtual Bytes HidReportDescriptor() const = 0;

    /// The board comes (back) onto the bus. Reports on their way are gone.
    virtual void Connect() = 0;

    /// @return the present content of an input report, report id first; none if the board has no such report
    virtual std::optional<Bytes> CurrentReport(std::uint8_t id) const = 0;

    /// Takes an output report from the host, report id first.
    /// @return false if the board has no such report or its length is wrong
    virtual bool WriteReport(const Bytes& report) = 0;

    /// Does what a line asks for. @return the answer, empty when there is nothing to tell
    /// @throws std::invalid_argument with what is wrong; the board is then as before
    virtual std::string ExecuteLine(const std::string& line) = 0;

    /// The input reports that the board sent since the last call, oldest first.
    virtual std::vector<Bytes> TakeReports() = 0;

    /// What happened since the last call, one line an event, oldest first.
    virtual std::vector<std::string> TakeRecords() = 0;

    /// The host has read an input report that was sent.
    virtual void OnReportRead(const Bytes&) {}

    /// Lets time pass up to `now`, nanoseconds of the monotonic clock.
    /// @param endpointIsFree  whether the host has read all reports that were sent
    virtual void Advance(std::int64_t /*now*/, bool /*endpointIsFree*/) {}

    /// When the board next wants to be told the time, whatever the host reads; none while nothing is due.
    virtual std::optional<std::int64_t> NextReportTime() const { return std::nullopt; }
};

}  // namespace VirtualPlayer
