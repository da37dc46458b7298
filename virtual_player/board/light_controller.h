#pragma once

// A light controller: the board of the family that takes and gives whole words.

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "virtual_player/board/board.h"

namespace VirtualPlayer {

class LightController final : public Board {
public:
    /// Of each report.
    static constexpr unsigned WORD_COUNT = 8;

    BoardDescription Describe() const override;
    Bytes HidReportDescriptor() const override;
    /// All outputs are 0 again; what there is to diagnose stays.
    void Connect() override;
    std::optional<Bytes> CurrentReport(std::uint8_t id) const override;
    bool WriteReport(const Bytes& report) override;
    /// Lines: value INDEX NUMBER | echo on|off | state
    /// A board that echoes sends the words that were written to it back as what there is to diagnose.
    std::string ExecuteLine(const std::string& line) override;
    std::vector<Bytes> TakeReports() override;
    std::vector<std::string> TakeRecords() override;

private:
    std::array<std::uint32_t, WORD_COUNT> m_control{};
    std::array<std::uint32_t, WORD_COUNT> m_diagnostics{};
    bool m_isEchoing = false;
    std::vector<Bytes> m_reports;
    std::vector<std::string> m_records;
};

}  // namespace VirtualPlayer
