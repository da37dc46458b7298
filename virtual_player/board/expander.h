#pragma once

// An expander: the board of the family whose pins go either way, with a row of switches. Levels are active
// low on the bus; here and in its lines 1 is what the host's ports show as 1.

#include <cstdint>
#include <string>
#include <vector>

#include "virtual_player/board/board.h"

namespace VirtualPlayer {

class Expander final : public Board {
public:
    BoardDescription Describe() const override;
    Bytes HidReportDescriptor() const override;
    /// All pins are inputs again and all outputs off; what is connected to the pins stays, and so do the
    /// switches.
    void Connect() override;
    std::optional<Bytes> CurrentReport(std::uint8_t id) const override;
    bool WriteReport(const Bytes& report) override;
    /// Lines: level PIN 0|1 | dip N 0|1 | echo on|off | state
    /// A board that echoes shows outputs in its inputs, as driven, and sends these after each output report.
    std::string ExecuteLine(const std::string& line) override;
    std::vector<Bytes> TakeReports() override;
    std::vector<std::string> TakeRecords() override;

private:
    std::uint32_t m_inputs = 0;
    std::uint32_t m_switches = 0;
    std::uint32_t m_outputs = 0;
    std::uint32_t m_directions = 0;  ///< 1: output
    bool m_isEchoing = false;
    std::vector<Bytes> m_reports;
    std::vector<std::string> m_records;
};

}  // namespace VirtualPlayer
