#include "virtual_player/board/light_controller.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "virtual_player/board/hid_reports.h"
#include "virtual_player/common/console.h"

namespace VirtualPlayer {

namespace {

constexpr std::uint16_t APPLICATION_PAGE = 0xFF88;
constexpr std::uint8_t CONTROL = 1;
constexpr std::uint8_t DIAGNOSTICS = 2;
constexpr unsigned WORD_COUNT = LightController::WORD_COUNT;

constexpr HidField FIELDS[] = {
    {CONTROL, Direction::OUTPUT, 0xFF40, 1, WORD_COUNT, 32},
    {DIAGNOSTICS, Direction::INPUT, 0xFF00, 1, WORD_COUNT, 32},
};

}  // namespace

BoardDescription LightController::Describe() const {
    return {0x2877, 0x0088, "Virtual light controller"};
}

Bytes LightController::HidReportDescriptor() const {
    return VirtualPlayer::HidReportDescriptor(APPLICATION_PAGE, FIELDS);
}

void LightController::Connect() {
    m_control.fill(0);
    m_reports.clear();
}

std::optional<Bytes> LightController::CurrentReport(std::uint8_t id) const {
    if (id != DIAGNOSTICS) {
        return std::nullopt;
    }
    return PackReport(FIELDS, DIAGNOSTICS, m_diagnostics);
}

bool LightController::WriteReport(const Bytes& report) {
    const auto values = UnpackReport(FIELDS, report);
    if (!values) {
        return false;
    }
    std::copy(values->begin(), values->end(), m_control.begin());
    m_records.push_back("control " + FormatWords(m_control));
    if (m_isEchoing) {
        m_diagnostics = m_control;
        m_reports.push_back(*CurrentReport(DIAGNOSTICS));
    }
    return true;
}

std::string LightController::ExecuteLine(const std::string& line) {
    const std::vector<std::string> words = SplitWords(line);
    const std::string command = words.empty() ? "" : words[0];
    if (command == "state" && words.size() == 1) {
        return "state control=" + FormatWords(m_control) + " diagnostics=" + FormatWords(m_diagnostics);
    }
    if (command == "echo" && words.size() == 2) {
        m_isEchoing = ParseSwitch(words[1]);
        return {};
    }
    if (command != "value" || words.size() != 3) {
        throw std::invalid_argument("not understood: " + line);
    }
    const std::uint32_t index = ParseNumber(words[1]);
    const std::uint32_t value = ParseNumber(words[2]);
    if (index >= m_diagnostics.size()) {
        throw std::invalid_argument("no value " + words[1]);
    }
    m_diagnostics[index] = value;
    m_reports.push_back(*CurrentReport(DIAGNOSTICS));
    return {};
}

std::vector<Bytes> LightController::TakeReports() {
    return std::exchange(m_reports, {});
}

std::vector<std::string> LightController::TakeRecords() {
    return std::exchange(m_records, {});
}

}  // namespace VirtualPlayer
