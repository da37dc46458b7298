#pragma once

// The touch board on the bus: TouchBoardModel's reports as bytes, and the lines for it.

#include <string>
#include <vector>

#include "virtual_player/board/board.h"
#include "virtual_player/board/hid_reports.h"
#include "virtual_player/board/touch_board_model.h"

namespace VirtualPlayer {

class TouchBoard final : public Board {
public:
    /// @param model as for TouchBoardModel. @throws std::invalid_argument for a model that there is not
    explicit TouchBoard(const std::string& model);

    BoardDescription Describe() const override;
    Bytes HidReportDescriptor() const override;
    void Connect() override { m_model.Connect(); }
    std::optional<Bytes> CurrentReport(std::uint8_t id) const override;
    bool WriteReport(const Bytes& report) override;
    /// The lines of control_lines.h, and:
    ///   count | without PORT|nothing
    /// `count` answers how many DIAGNOSTICS reports the host has read, and how many the board made and
    /// missed; without a report is the board that is plugged in next.
    std::string ExecuteLine(const std::string& line) override;
    std::vector<Bytes> TakeReports() override;
    std::vector<std::string> TakeRecords() override { return m_model.TakeRecords(); }
    void OnReportRead(const Bytes& report) override;
    void Advance(std::int64_t now, bool endpointIsFree) override { m_model.Advance(now, endpointIsFree); }
    std::optional<std::int64_t> NextReportTime() const override { return m_model.NextReportTime(); }

private:
    void LeaveOut(const std::string& port);

    TouchBoardModel m_model;
    std::vector<HidField> m_fields;  ///< of the report descriptor; some may be left out
    unsigned long m_diagnosticsSent = 0;
    unsigned long m_diagnosticsRead = 0;  ///< by the host, in time
};

}  // namespace VirtualPlayer
