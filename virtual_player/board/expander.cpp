#include "virtual_player/board/expander.h"

#include <span>
#include <stdexcept>
#include <utility>

#include "virtual_player/board/hid_reports.h"
#include "virtual_player/common/console.h"

namespace VirtualPlayer {

namespace {

constexpr std::uint16_t APPLICATION_PAGE = 0xFF66;
constexpr std::uint8_t GPIO = 1;
constexpr std::uint8_t DIP = 2;
constexpr unsigned PIN_COUNT = 18;
constexpr unsigned SWITCH_COUNT = 8;

// The host takes an output field whose usages have bit 15 set for directions.
constexpr HidField FIELDS[] = {
    {GPIO, Direction::INPUT, 0xFF00, 0x0001, PIN_COUNT, 1},
    {GPIO, Direction::OUTPUT, 0xFF00, 0x0001, PIN_COUNT, 1},
    {GPIO, Direction::OUTPUT, 0xFF00, 0x8001, PIN_COUNT, 1},
    {DIP, Direction::INPUT, 0xFF80, 0x0001, SWITCH_COUNT, 1},
};

// The host reads a 0 as level 1.
std::vector<std::uint32_t> ActiveLow(std::uint32_t levels, unsigned count) {
    std::vector<std::uint32_t> values(count);
    for (unsigned i = 0; i < count; ++i) {
        values[i] = ~levels >> i & 1;
    }
    return values;
}

std::uint32_t ToMask(std::span<const std::uint32_t> values) {
    std::uint32_t mask = 0;
    for (std::size_t i = 0; i < values.size(); ++i) {
        mask |= values[i] << i;
    }
    return mask;
}

std::uint32_t WithLevel(std::uint32_t levels, const std::string& number, unsigned count,
                        const std::string& level) {
    const std::uint32_t index = ParseNumber(number);
    if (index >= count) {
        throw std::invalid_argument("more than " + std::to_string(count - 1) + ": " + number);
    }
    return (levels & ~(1u << index)) | std::uint32_t{ParseLevel(level)} << index;
}

}  // namespace

BoardDescription Expander::Describe() const {
    return {0x2877, 0x0066, "Virtual expander"};
}

Bytes Expander::HidReportDescriptor() const {
    return VirtualPlayer::HidReportDescriptor(APPLICATION_PAGE, FIELDS);
}

void Expander::Connect() {
    m_outputs = 0;
    m_directions = 0;
    m_reports.clear();
}

std::optional<Bytes> Expander::CurrentReport(std::uint8_t id) const {
    if (id == GPIO) {
        const std::uint32_t driven = m_isEchoing ? m_directions : 0;
        return PackReport(FIELDS, GPIO, ActiveLow((m_inputs & ~driven) | (m_outputs & driven), PIN_COUNT));
    }
    if (id == DIP) {
        return PackReport(FIELDS, DIP, ActiveLow(m_switches, SWITCH_COUNT));
    }
    return std::nullopt;
}

bool Expander::WriteReport(const Bytes& report) {
    const auto values = UnpackReport(FIELDS, report);
    if (!values) {
        return false;
    }
    m_outputs = ToMask(std::span(*values).first(PIN_COUNT));
    m_directions = ToMask(std::span(*values).last(PIN_COUNT));
    m_records.push_back("outputs " + FormatWord(m_outputs) + " directions " + FormatWord(m_directions));
    if (m_isEchoing) {
        m_reports.push_back(*CurrentReport(GPIO));
    }
    return true;
}

std::string Expander::ExecuteLine(const std::string& line) {
    const std::vector<std::string> words = SplitWords(line);
    const std::string command = words.empty() ? "" : words[0];
    if (command == "level" && words.size() == 3) {
        m_inputs = WithLevel(m_inputs, words[1], PIN_COUNT, words[2]);
        m_reports.push_back(*CurrentReport(GPIO));
    } else if (command == "dip" && words.size() == 3) {
        m_switches = WithLevel(m_switches, words[1], SWITCH_COUNT, words[2]);
        m_reports.push_back(*CurrentReport(DIP));
    } else if (command == "echo" && words.size() == 2) {
        m_isEchoing = ParseSwitch(words[1]);
    } else if (command == "state" && words.size() == 1) {
        return "state outputs=" + FormatWord(m_outputs) + " directions=" + FormatWord(m_directions) +
               " inputs=" + FormatWord(m_inputs) + " dip=" + FormatWord(m_switches);
    } else {
        throw std::invalid_argument("not understood: " + line);
    }
    return {};
}

std::vector<Bytes> Expander::TakeReports() {
    return std::exchange(m_reports, {});
}

std::vector<std::string> Expander::TakeRecords() {
    return std::exchange(m_records, {});
}

}  // namespace VirtualPlayer
