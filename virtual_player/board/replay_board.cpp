#include "virtual_player/board/replay_board.h"

#include <algorithm>
#include <cstdio>
#include <set>
#include <stdexcept>
#include <utility>

#include "virtual_player/board/touch_board_protocol.h"
#include "virtual_player/common/console.h"

namespace VirtualPlayer {

namespace {

/// What a host that is slow to read may be late and still get the reports at their times; beyond, the
/// recording has stood still.
constexpr std::int64_t LATENESS_MAX = 500'000'000;
/// Between the last report and the first one again.
constexpr std::int64_t LOOP_PAUSE = 1'000'000'000;

constexpr double SPEED_MIN = 0.01;
constexpr double SPEED_MAX = 1000;

std::uint32_t WordAt(const Bytes& report, std::size_t position) {
    std::uint32_t word = 0;
    for (std::size_t i = 0; i < sizeof word && position + i < report.size(); ++i) {
        word |= std::uint32_t{report[position + i]} << 8 * i;
    }
    return word;
}

std::string FormatBytes(const Bytes& bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        char hex[4];
        std::snprintf(hex, sizeof hex, " %02x", byte);
        text += hex;
    }
    return text;
}

double ParseSpeed(const std::string& text) {
    std::size_t end = 0;
    double speed = 0;
    try {
        speed = std::stod(text, &end);
    } catch (const std::logic_error&) {
        end = 0;
    }
    if (end == 0 || end != text.size() || !(speed >= SPEED_MIN && speed <= SPEED_MAX)) {
        throw std::invalid_argument("not a speed from 0.01 to 1000: " + text);
    }
    return speed;
}

std::optional<std::uint8_t> FindReport(const HidLayout& layout, Direction direction, std::uint16_t page) {
    for (const HidField& field : layout.fields) {
        if (field.direction == direction && field.usagePage == page) {
            return field.report;
        }
    }
    return std::nullopt;
}

}  // namespace

ReplayBoard::ReplayBoard(Recording recording)
    : m_recording(std::move(recording)), m_layout(ParseHidReportDescriptor(m_recording.descriptor)) {
    m_isNumbered = std::any_of(m_layout.fields.begin(), m_layout.fields.end(),
                               [](const HidField& field) { return field.report != 0; });
    if (m_layout.application == TOUCH_BOARD_APPLICATION && m_isNumbered) {
        m_diagnosticsId = FindReport(m_layout, Direction::INPUT, DIAGNOSTICS_PAGE);
        m_identityId = FindReport(m_layout, Direction::INPUT, IDENTITY_PAGE);
        m_commandId = FindReport(m_layout, Direction::OUTPUT, LED_SETUP_PAGE);
        FindAnswers();
    }
}

void ReplayBoard::FindAnswers() {
    for (std::size_t i = 0; i < m_recording.reports.size(); ++i) {
        const Bytes& report = m_recording.reports[i].bytes;
        if (m_identity == nullptr && TellsModel(report)) {
            m_identity = &report;
        }
        if (!m_firstSetup && IsSetup(report)) {
            m_firstSetup = i;
        }
    }
}

bool ReplayBoard::IsSetup(const Bytes& report) const {
    return m_diagnosticsId == GetId(report) && WordAt(report, 1) == SETUP_MARKER &&
           (WordAt(report, 5) & 0xFFFF) == SETUP_SECOND_MARKER;
}

/// All zeros is what the report holds before the board was asked.
bool ReplayBoard::TellsModel(const Bytes& report) const {
    return m_identityId == GetId(report) &&
           std::any_of(report.begin() + 1, report.end(), [](std::uint8_t byte) { return byte != 0; });
}

BoardDescription ReplayBoard::Describe() const {
    return {m_recording.vendor, m_recording.product, m_recording.name.c_str(), ""};
}

void ReplayBoard::Connect() {
    m_outgoing.clear();
    m_masks.clear();
}

std::optional<Bytes> ReplayBoard::CurrentReport(std::uint8_t id) const {
    if (const auto sent = m_current.find(id); sent != m_current.end()) {
        return sent->second;
    }
    const std::size_t length = ReportLength(m_layout.fields, id, Direction::INPUT);
    if (length == 0) {
        return std::nullopt;
    }
    Bytes zeros(length);
    zeros[0] = id;
    return zeros;
}

bool ReplayBoard::WriteReport(const Bytes& report) {
    if (report.empty() || report.size() != ReportLength(m_layout.fields, GetId(report), Direction::OUTPUT)) {
        return false;
    }
    m_records.push_back("output" + FormatBytes(report));
    if (m_commandId == GetId(report)) {
        // The host repeats the words that it does not mean to change: with a new mask the command is none.
        std::vector<std::uint32_t> words = *UnpackReport(m_layout.fields, report);
        const std::uint32_t command = std::exchange(words[0], 0);
        m_masks.resize(words.size());
        if (std::exchange(m_masks, words) == words) {
            Execute(command);
        }
    }
    return true;
}

void ReplayBoard::Execute(std::uint32_t command) {
    if ((command & 0xFF) == IDENTIFY) {
        m_records.emplace_back("identify");
        if (m_identity != nullptr) {
            Send(*m_identity);
        }
    } else if ((command & 0xFF) == REQUEST_SETUP) {
        m_records.emplace_back("setup-request");
        if (m_firstSetup) {
            m_setupIsWanted = true;
        } else if (m_lastSetup != nullptr) {
            Send(*m_lastSetup);
        }
    }
}

std::string ReplayBoard::ExecuteLine(const std::string& line) {
    const std::vector<std::string> words = SplitWords(line);
    const std::string command = words.empty() ? "" : words[0];
    if (command == "speed" && words.size() == 2) {
        m_newSpeed = ParseSpeed(words[1]);
    } else if (command == "loop" && words.size() == 2) {
        m_isLooping = ParseSwitch(words[1]);
    } else if (command == "state" && words.size() == 1) {
        return "state played=" + std::to_string(m_next) + " of=" + std::to_string(m_recording.reports.size());
    } else {
        throw std::invalid_argument("not understood: " + line);
    }
    return {};
}

void ReplayBoard::Send(const Bytes& report) {
    m_current[GetId(report)] = report;
    if (IsSetup(report)) {
        m_lastSetup = &report;
    }
    m_outgoing.push_back(report);
}

/// How long after a report the next one follows, at the present speed.
std::int64_t ReplayBoard::GapAfter(std::size_t index) const {
    const std::vector<RecordedReport>& reports = m_recording.reports;
    return index + 1 < reports.size() ? Scale(reports[index + 1].time - reports[index].time) : 0;
}

/// What a skipped report has told goes out with the last of its number, but for measured values.
void ReplayBoard::SkipToSetup(std::int64_t now) {
    std::set<std::uint8_t> skipped;
    for (; m_next < *m_firstSetup; ++m_next) {
        const Bytes& report = m_recording.reports[m_next].bytes;
        m_current[GetId(report)] = report;
        skipped.insert(GetId(report));
    }
    skipped.erase(*m_diagnosticsId);
    for (const std::uint8_t id : skipped) {
        m_outgoing.push_back(m_current.at(id));
    }
    m_firstSetup.reset();
    m_due = now;
}

/// The report before the next one has been read only now: the next one follows it as it did.
void ReplayBoard::StandStillUntil(std::int64_t now) {
    m_due = now + (m_next == 0 ? 0 : GapAfter(m_next - 1));
}

void ReplayBoard::ChangeSpeed(std::int64_t now) {
    const double earlier = std::exchange(m_speed, *std::exchange(m_newSpeed, std::nullopt));
    if (m_due > now) {
        m_due = now + Scale(static_cast<std::int64_t>(static_cast<double>(m_due - now) * earlier));
    }
}

void ReplayBoard::StartOver(std::int64_t now) {
    m_records.emplace_back("replay starts over");
    m_next = 0;
    m_due = now + Scale(LOOP_PAUSE);
    m_hasEnded = false;
}

void ReplayBoard::Advance(std::int64_t now, bool endpointIsFree) {
    m_isHeldUp = false;
    if (!m_hasStarted) {
        m_hasStarted = true;
        m_due = now;
    }
    if (m_newSpeed) {
        ChangeSpeed(now);
    }
    if (std::exchange(m_setupIsWanted, false)) {
        SkipToSetup(now);
    }
    if (m_next == m_recording.reports.size()) {
        if (!std::exchange(m_hasEnded, true)) {
            m_records.emplace_back("replay ends");
        }
        if (!m_isLooping) {
            return;
        }
        StartOver(now);
    }
    if (IsWaitingForRequest() || now < m_due) {
        return;
    }
    m_isHeldUp = !endpointIsFree;
    if (m_isHeldUp) {
        return;
    }
    if (now - m_due > LATENESS_MAX) {
        StandStillUntil(now);
        if (now < m_due) {
            return;
        }
    }
    Send(m_recording.reports[m_next].bytes);
    m_due += GapAfter(m_next++);
}

std::optional<std::int64_t> ReplayBoard::NextReportTime() const {
    if (!m_hasStarted || m_isHeldUp || IsWaitingForRequest() || (m_hasEnded && !m_isLooping)) {
        return std::nullopt;
    }
    return m_due;
}

std::vector<Bytes> ReplayBoard::TakeReports() {
    return std::exchange(m_outgoing, {});
}

std::vector<std::string> ReplayBoard::TakeRecords() {
    return std::exchange(m_records, {});
}

}  // namespace VirtualPlayer
