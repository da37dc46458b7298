#include "virtual_player/board/touch_board_model.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <stdexcept>
#include <utility>

#include "virtual_player/board/touch_board_protocol.h"

namespace VirtualPlayer {

struct TouchBoardModel::Model {
    const char* name;
    std::uint32_t boardCode;
    std::uint32_t header;
    std::uint32_t format;
    unsigned buttons;
};

const TouchBoardModel::Model TouchBoardModel::MODELS[] = {
    {"KP120", 0x77, 20, 32, 4},   {"KP120H", 0x77, 21, 32, 4},  // with a header
    {"KP480", 0x00, 90, 16, 11},                                // revision A
    {"KP480B", 0x55, 91, 16, 11}, {"KP480S", 0x00, 92, 16, 11},
};

namespace {

constexpr std::pair<std::uint32_t, std::uint32_t> DEFAULT_PARAMETERS[] = {
    {LED_BITS, 8},
    {NOISE_THRESHOLD, 20},
    {NEGATIVE_NOISE_THRESHOLD, 20},
    {BASELINE_THRESHOLD, 100},
    {HYSTERESIS, 8},
    {DEBOUNCE, 3},
    {LOW_BASELINE, 30},
};
constexpr std::uint32_t DEFAULT_THRESHOLD = 60;

// The order of the setup report's parameter groups; the last pair of an 11-button report is unused.
constexpr std::uint32_t REPORTED_PARAMETERS[] = {
    NOISE_THRESHOLD, NEGATIVE_NOISE_THRESHOLD, BASELINE_THRESHOLD, HYSTERESIS, DEBOUNCE, LOW_BASELINE, 0, 0,
};

constexpr unsigned FIRST_THRESHOLD_SLOT = 4;
constexpr unsigned PARAMETER_SLOT_END = 28;
// What a busy machine, or a host that is slow to read, may be late and still get all reports.
constexpr std::int64_t LATENESS_MAX = 500'000'000;
constexpr unsigned WORDS_PER_DIAGNOSED_BUTTON = 4;

// Where the small board's touch bits stand in its diagnostics report, by button.
constexpr unsigned SMALL_BOARD_TOUCH_BITS[] = {9, 3, 5, 4};

// Sensor counts.
constexpr int BASELINE = 1200;
constexpr int BASELINE_STEP_PER_BUTTON = 16;
constexpr int DRIFT_MAX = 24;
constexpr int USUAL_NOISE = 4;
constexpr unsigned NOISE_MAX = 100;  // twice as much fits into a byte
constexpr unsigned LIFT_MAX = 10'000;

constexpr std::int64_t NANOSECONDS_PER_SECOND = 1'000'000'000;
constexpr unsigned RATE_MAX = 1000;

// The standard distributions may differ from one library to the next; the remainder does not.
int Random(std::mt19937& generator, int max) {
    return static_cast<int>(generator() % static_cast<unsigned>(2 * max + 1)) - max;
}

std::string Hex(std::uint32_t word, int digits) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%0*X", digits, word);
    return text;
}

std::string Mask(std::uint32_t word) {
    return Hex(word, 8);
}

std::string Decimal(std::uint32_t word) {
    return std::to_string(word);
}

void AppendToList(std::string& list, const std::string& item) {
    if (!list.empty()) {
        list += ',';
    }
    list += item;
}

template <class Words>
std::string Join(const Words& words, std::string (*format)(std::uint32_t)) {
    std::string list;
    for (const std::uint32_t word : words) {
        AppendToList(list, format(word));
    }
    return list;
}

}  // namespace

std::vector<std::string> TouchBoardModel::Names() {
    std::vector<std::string> names;
    for (const Model& model : MODELS) {
        names.emplace_back(model.name);
    }
    return names;
}

TouchBoardModel::TouchBoardModel(std::string_view modelName, std::uint32_t seed)
    : m_model(FindModel(modelName)), m_random(seed) {
    m_noise.fill(USUAL_NOISE);
    RestoreDefaults();
}

const TouchBoardModel::Model& TouchBoardModel::FindModel(std::string_view name) {
    for (const Model& model : MODELS) {
        if (name == model.name) {
            return model;
        }
    }
    throw std::invalid_argument("unknown board model " + std::string(name));
}

void TouchBoardModel::RestoreDefaults() {
    m_thresholds.fill(DEFAULT_THRESHOLD);
    m_parameters = {std::begin(DEFAULT_PARAMETERS), std::end(DEFAULT_PARAMETERS)};
    m_buttonMask = 0;
    m_ledMask = 0;
    m_leds.fill(0);
    m_selected.clear();
    m_nextReport.reset();
}

void TouchBoardModel::Connect() {
    if (m_isForgetful) {
        RestoreDefaults();
        m_drift.fill(0);
        m_lastDiagnostics.fill(0);
    }
    m_nextReport.reset();
    m_buttonMask = 0;
    m_ledMask = 0;
    m_leds.fill(0);
    m_identity.fill(0);
    m_lastLedSetup.fill(0);
    m_lastLeds.fill(0);
    m_reports.clear();
    m_lateAnswers.clear();
}

void TouchBoardModel::WriteLedSetup(const LedSetupWords& words) {
    const LedSetupWords last = std::exchange(m_lastLedSetup, words);
    const auto [command, buttonMask, ledMask] = words;
    if (buttonMask != last[1]) {
        Record("button-mask 0x%08X", buttonMask);
        m_buttonMask = buttonMask;
        QueueGpio();
    }
    if (ledMask != last[2]) {
        Record("led-mask 0x%08X", ledMask);
        m_ledMask = ledMask;
    }
    if (buttonMask == last[1] && ledMask == last[2]) {
        Execute(command);
    }
    if (m_isEchoing) {
        QueueGpio();
    }
}

void TouchBoardModel::WriteLeds(const ButtonWords& words) {
    if (words == m_lastLeds) {
        Record("led-repeat");
    }
    for (unsigned i = 0; i < BUTTON_COUNT; ++i) {
        if (words[i] != m_lastLeds[i]) {
            Record("led %u 0x%08X", i + 1, words[i]);
        }
    }
    m_lastLeds = words;
    m_leds = words;
    if (m_isEchoing) {
        QueueGpio();
    }
}

void TouchBoardModel::Execute(std::uint32_t word) {
    Record("command 0x%08X", word);
    const std::uint32_t command = word & 0xFF;
    const unsigned button = word >> 8 & 0xFF;
    const std::uint32_t value = word >> 16 & 0xFF;
    const bool isButton = button >= 1 && button <= BUTTON_COUNT;

    if (command == IDENTIFY) {
        Record("identify");
        Answer(ReportId::IDENTITY);
    } else if (command == RESET) {
        Record("reset");
        RestoreDefaults();
        QueueGpio();
    } else if (command == REQUEST_SETUP) {
        Record("setup-request");
        if (!m_oddities.silent) {
            Answer(ReportId::DIAGNOSTICS);
        }
    } else if (command == DIAGNOSE_BUTTON && isButton) {
        SelectButton(button);
    } else if (command == FINGER_THRESHOLD && isButton) {
        m_thresholds[button - 1] = value;
    } else if (const auto parameter = m_parameters.find(command); parameter != m_parameters.end()) {
        parameter->second = value;
    } else {
        Record("ignored 0x%08X", word);
    }
}

void TouchBoardModel::SelectButton(unsigned button) {
    if (std::find(m_selected.begin(), m_selected.end(), button) == m_selected.end()) {
        m_selected.push_back(button);
    }
}

void TouchBoardModel::CheckButton(unsigned button) const {
    if (button < 1 || button > m_model.buttons) {
        throw std::invalid_argument("no button " + std::to_string(button) + " on a " + m_model.name);
    }
}

void TouchBoardModel::SetNoise(unsigned button, unsigned counts) {
    CheckButton(button);
    if (counts > NOISE_MAX) {
        throw std::invalid_argument("more than " + std::to_string(NOISE_MAX) + " counts of noise");
    }
    m_noise[button - 1] = static_cast<int>(counts);
}

void TouchBoardModel::SetLift(unsigned button, std::optional<unsigned> counts) {
    CheckButton(button);
    if (counts > LIFT_MAX) {
        throw std::invalid_argument("lifted by more than " + std::to_string(LIFT_MAX) + " counts");
    }
    m_lift[button - 1] = counts ? std::optional(static_cast<int>(*counts)) : std::nullopt;
}

void TouchBoardModel::SetTouched(unsigned button, bool touched) {
    CheckButton(button);
    const std::uint32_t bit = 1u << (button - 1);
    m_touches = touched ? m_touches | bit : m_touches & ~bit;
    QueueGpio();
}

void TouchBoardModel::SetGpioLevel(unsigned pin, std::optional<bool> level) {
    if (pin >= BUTTON_COUNT) {
        throw std::invalid_argument("no pin " + std::to_string(pin));
    }
    if (level) {
        m_heldPins[pin] = *level;
    } else {
        m_heldPins.erase(pin);
    }
    QueueGpio();
}

void TouchBoardModel::SetRate(unsigned reportsPerSecond) {
    if (reportsPerSecond > RATE_MAX) {
        throw std::invalid_argument("more than " + std::to_string(RATE_MAX) + " reports per second");
    }
    m_rate = reportsPerSecond;
    m_nextReport.reset();
}

void TouchBoardModel::SetSetupOddities(const SetupOddities& oddities) {
    if (!oddities.slotValues.empty() && oddities.slotValues.rbegin()->first >= DIAGNOSTICS_WORDS) {
        throw std::invalid_argument("no slot " + std::to_string(oddities.slotValues.rbegin()->first));
    }
    m_oddities = oddities;
}

void TouchBoardModel::SendSetup() {
    const DiagnosticsWords words = SetupReport();
    Queue(ReportId::DIAGNOSTICS, {words.begin(), words.end()});
}

void TouchBoardModel::Advance(std::int64_t now, bool endpointIsFree) {
    GiveLateAnswers(now);
    m_isHeldUp = false;
    if (m_selected.empty() || m_rate == 0) {
        m_nextReport.reset();
        return;
    }
    const std::int64_t period = NANOSECONDS_PER_SECOND / m_rate;
    if (!m_nextReport) {
        m_nextReport = now + period;
    }
    if (now < std::max(*m_nextReport, m_earliestReport)) {
        return;
    }
    const std::int64_t lateness = now - *m_nextReport;
    if (lateness > LATENESS_MAX) {
        m_missedReports += static_cast<unsigned long>(lateness / period);
        *m_nextReport += lateness / period * period;
    }
    m_isHeldUp = !endpointIsFree;
    if (m_isHeldUp) {
        return;
    }

    const DiagnosticsWords words = DiagnosticsReport();
    Queue(ReportId::DIAGNOSTICS, {words.begin(), words.end()});
    *m_nextReport += period;
    m_earliestReport = now + period / 2;
}

std::optional<std::int64_t> TouchBoardModel::NextReportTime() const {
    std::optional<std::int64_t> next;
    if (m_nextReport && !m_isHeldUp) {
        next = std::max(*m_nextReport, m_earliestReport);
    }
    if (!m_lateAnswers.empty() && m_lateAnswers.front().due) {
        next = std::min(next.value_or(*m_lateAnswers.front().due), *m_lateAnswers.front().due);
    }
    return next;
}

std::deque<InputReport> TouchBoardModel::TakeReports() {
    return std::exchange(m_reports, {});
}

std::vector<std::string> TouchBoardModel::TakeRecords() {
    return std::exchange(m_records, {});
}

InputReport TouchBoardModel::CurrentReport(ReportId id) const {
    switch (id) {
        case ReportId::GPIO: {
            std::vector<std::uint32_t> levels(BUTTON_COUNT);
            for (unsigned pin = 0; pin < BUTTON_COUNT; ++pin) {
                const auto held = m_heldPins.find(pin);
                levels[pin] = held != m_heldPins.end() ? held->second : SensedTouches() >> pin & 1;
            }
            return {id, levels};
        }
        case ReportId::DIAGNOSTICS:
            return {id, {m_lastDiagnostics.begin(), m_lastDiagnostics.end()}};
        case ReportId::IDENTITY:
            return {id, {m_identity.begin(), m_identity.end()}};
        case ReportId::LED_SETUP:
        case ReportId::LED:
            break;
    }
    throw std::invalid_argument("not an input report");
}

DiagnosticsWords TouchBoardModel::SetupReport() const {
    DiagnosticsWords words{};
    const std::uint32_t count = m_oddities.count.value_or(BUTTON_COUNT);
    words[0] = SETUP_MARKER;
    words[1] = SETUP_SECOND_MARKER;
    words[2] = m_oddities.format.value_or(m_model.format);
    words[3] = m_oddities.marker.value_or(FINGER_THRESHOLD) | count << 8;

    unsigned slot = FIRST_THRESHOLD_SLOT;
    for (unsigned i = 0; i < count && slot < PARAMETER_SLOT_END; ++i) {
        words[slot++] = i < BUTTON_COUNT ? m_thresholds[i] : 0;
    }
    for (unsigned i = 0; i < std::size(REPORTED_PARAMETERS) && slot + 3 <= PARAMETER_SLOT_END;
         i += 2, slot += 3) {
        const std::uint32_t first = REPORTED_PARAMETERS[i];
        const std::uint32_t second = REPORTED_PARAMETERS[i + 1];
        words[slot] = first | second << 8;
        words[slot + 1] = first != 0 ? m_parameters.at(first) : 0;
        words[slot + 2] = second != 0 ? m_parameters.at(second) : 0;
    }
    for (const auto& [oddSlot, value] : m_oddities.slotValues) {
        words[oddSlot] = value;
    }
    return words;
}

DiagnosticsWords TouchBoardModel::DiagnosticsReport() {
    DiagnosticsWords words{};
    words[0] = WireTouchBits();
    ++m_reportNumber;
    unsigned slot = 1;
    for (std::size_t i = 0; i < m_selected.size() && i < DIAGNOSED_BUTTONS_MAX; ++i) {
        const unsigned button = m_selected[i];
        int& drift = m_drift[button - 1];
        drift = std::clamp(drift + Random(m_random, 1), -DRIFT_MAX, DRIFT_MAX);
        const int baseline = BASELINE + BASELINE_STEP_PER_BUTTON * static_cast<int>(button) + drift;
        const int noiseMax = m_noise[button - 1];
        const int noise = Random(m_random, noiseMax);
        const bool touched = SensedTouches() >> (button - 1) & 1;
        const int lift = m_lift[button - 1].value_or(2 * static_cast<int>(m_thresholds[button - 1]) + 40);
        const int finger = touched ? lift : 0;
        const int signal = finger + noise;
        const int noiseThreshold = static_cast<int>(m_parameters.at(NOISE_THRESHOLD));
        words[slot] = button | static_cast<std::uint32_t>(noise + noiseMax) << 8;
        words[slot + 1] = static_cast<std::uint32_t>(baseline + signal);
        words[slot + 2] = static_cast<std::uint32_t>(baseline);
        words[slot + 3] = signal > noiseThreshold ? static_cast<std::uint32_t>(signal) : 0;
        if (m_isNumbered) {
            words[slot] = button | (m_reportNumber & 0xFF) << 8;
            std::fill_n(&words[slot + 1], 3, m_reportNumber);
        }
        slot += WORDS_PER_DIAGNOSED_BUTTON;
    }
    m_lastDiagnostics = words;
    return words;
}

std::uint32_t TouchBoardModel::WireTouchBits() const {
    if (m_model.buttons == BUTTON_COUNT) {
        return SensedTouches();
    }
    std::uint32_t bits = 0;
    for (unsigned i = 0; i < std::size(SMALL_BOARD_TOUCH_BITS); ++i) {
        bits |= (SensedTouches() >> i & 1) << SMALL_BOARD_TOUCH_BITS[i];
    }
    return bits;
}

std::string TouchBoardModel::DescribeState() const {
    std::string parameters;
    for (const auto& [code, value] : m_parameters) {
        AppendToList(parameters, Hex(code, 2) + ":" + Decimal(value));
    }
    return std::string("model=") + m_model.name + " thresholds=" + Join(m_thresholds, Decimal) +
           " parameters=" + parameters + " button-mask=" + Mask(m_buttonMask) +
           " led-mask=" + Mask(m_ledMask) + " leds=" + Join(m_leds, Mask) +
           " selected=" + Join(m_selected, Decimal) + " touches=" + Mask(SensedTouches());
}

void TouchBoardModel::Queue(ReportId id, std::vector<std::uint32_t> words) {
    m_reports.push_back({id, std::move(words)});
}

void TouchBoardModel::QueueGpio() {
    m_reports.push_back(CurrentReport(ReportId::GPIO));
}

void TouchBoardModel::Answer(ReportId id) {
    if (m_answerDelay == 0) {
        GiveAnswer(id);
    } else {
        m_lateAnswers.push_back({id, std::nullopt});
    }
}

void TouchBoardModel::GiveAnswer(ReportId id) {
    if (id == ReportId::IDENTITY) {
        m_identity = {m_model.boardCode, m_model.header};
        Queue(id, {m_identity.begin(), m_identity.end()});
    } else {
        SendSetup();
    }
}

void TouchBoardModel::GiveLateAnswers(std::int64_t now) {
    for (LateAnswer& answer : m_lateAnswers) {
        answer.due = answer.due.value_or(now + m_answerDelay);
    }
    while (!m_lateAnswers.empty() && m_lateAnswers.front().due <= now) {
        GiveAnswer(m_lateAnswers.front().id);
        m_lateAnswers.pop_front();
    }
}

void TouchBoardModel::Record(const char* format, ...) {
    char text[64];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    m_records.emplace_back(text);
}

}  // namespace VirtualPlayer
