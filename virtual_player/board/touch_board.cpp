#include "virtual_player/board/touch_board.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <string_view>

#include "virtual_player/board/control_lines.h"
#include "virtual_player/board/touch_board_protocol.h"
#include "virtual_player/common/console.h"

namespace VirtualPlayer {

namespace {

constexpr std::uint8_t Number(ReportId id) {
    return static_cast<std::uint8_t>(id);
}

// The host tells the fields apart by the low byte of the usage page.
constexpr HidField FIELDS[] = {
    {Number(ReportId::GPIO), Direction::INPUT, GPIO_PAGE, 1, BUTTON_COUNT, 1},
    {Number(ReportId::DIAGNOSTICS), Direction::INPUT, DIAGNOSTICS_PAGE, 1, DIAGNOSTICS_WORDS, 32},
    {Number(ReportId::IDENTITY), Direction::INPUT, IDENTITY_PAGE, 1, IDENTITY_WORDS, 32},
    {Number(ReportId::LED_SETUP), Direction::OUTPUT, LED_SETUP_PAGE, 1, LED_SETUP_WORDS, 32},
    {Number(ReportId::LED), Direction::OUTPUT, LED_PAGE, 1, BUTTON_COUNT, 32},
};

// What the host calls the ports of these reports; the identity has none.
constexpr struct {
    ReportId report;
    std::string_view port;
} PORTS[] = {
    {ReportId::GPIO, "GPIO"},
    {ReportId::DIAGNOSTICS, "DIAGNOSTICS"},
    {ReportId::LED_SETUP, "LED-SETUP"},
    {ReportId::LED, "LED"},
};

template <class Words>
Words ToWords(const std::vector<std::uint32_t>& values) {
    Words words{};
    std::copy(values.begin(), values.end(), words.begin());
    return words;
}

Bytes Pack(const InputReport& report) {
    return PackReport(FIELDS, Number(report.id), report.words);
}

}  // namespace

TouchBoard::TouchBoard(const std::string& model)
    : m_model(model), m_fields(std::begin(FIELDS), std::end(FIELDS)) {}

BoardDescription TouchBoard::Describe() const {
    return {0x084F, 0x0480, "Virtual touch board"};
}

Bytes TouchBoard::HidReportDescriptor() const {
    return VirtualPlayer::HidReportDescriptor(TOUCH_BOARD_APPLICATION >> 16, m_fields);
}

std::optional<Bytes> TouchBoard::CurrentReport(std::uint8_t id) const {
    try {
        return Pack(m_model.CurrentReport(static_cast<ReportId>(id)));
    } catch (const std::invalid_argument&) {
        return std::nullopt;  // the host asked for a report that the board has not
    }
}

bool TouchBoard::WriteReport(const Bytes& report) {
    const auto words = UnpackReport(FIELDS, report);
    if (!words) {
        return false;
    }
    if (report[0] == Number(ReportId::LED_SETUP)) {
        m_model.WriteLedSetup(ToWords<LedSetupWords>(*words));
    } else {
        m_model.WriteLeds(ToWords<ButtonWords>(*words));
    }
    return true;
}

std::string TouchBoard::ExecuteLine(const std::string& line) {
    const std::vector<std::string> words = SplitWords(line);
    if (words.size() == 2 && words[0] == "without") {
        LeaveOut(words[1]);
        return {};
    }
    if (words.size() == 1 && words[0] == "count") {
        return "diagnostics " + std::to_string(m_diagnosticsRead) + " of " +
               std::to_string(m_diagnosticsSent) + " missed " + std::to_string(m_model.MissedReports());
    }
    return VirtualPlayer::ExecuteLine(m_model, line);
}

void TouchBoard::LeaveOut(const std::string& port) {
    const auto found =
        std::find_if(std::begin(PORTS), std::end(PORTS), [&](const auto& row) { return row.port == port; });
    if (found == std::end(PORTS) && port != "nothing") {
        throw std::invalid_argument("no report " + port);
    }
    m_fields.assign(std::begin(FIELDS), std::end(FIELDS));
    if (found != std::end(PORTS)) {
        std::erase_if(m_fields, [&](const HidField& field) { return field.report == Number(found->report); });
    }
}

std::vector<Bytes> TouchBoard::TakeReports() {
    std::vector<Bytes> reports;
    for (const InputReport& report : m_model.TakeReports()) {
        m_diagnosticsSent += report.id == ReportId::DIAGNOSTICS;
        reports.push_back(Pack(report));
    }
    return reports;
}

void TouchBoard::OnReportRead(const Bytes& report) {
    m_diagnosticsRead += report[0] == Number(ReportId::DIAGNOSTICS);
}

}  // namespace VirtualPlayer
