#include "apps/padtune/touch_board_reports.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <iterator>
#include <mutex>
#include <string_view>

#include "apps/padtune/tick_count.h"
#include "apps/padtune/touch_board_commands.h"

bool OutputDiagnostics = false;

namespace {

// Slots of a setup report.
constexpr unsigned SLOT_MARKER = 0;
constexpr unsigned SLOT_CODES = 1;
constexpr unsigned SLOT_FORMAT = 2;
constexpr unsigned SLOT_BUTTONS = 3;
constexpr unsigned SLOT_FIRST_THRESHOLD = 4;

constexpr std::uint32_t SETUP_MARKER = 0xFFFF;
constexpr std::uint32_t FORMAT_PLAIN = 16;
constexpr std::uint32_t FORMAT_REMAPPED = 32;
constexpr std::int32_t SUPPORTED_BUTTON_COUNT = 11;

// After the thresholds: groups of a word with two parameter codes and one word for each value.
constexpr unsigned PARAMETER_GROUP_SIZE = 3;
constexpr unsigned LAST_PARAMETER_SLOT = 27;

// Slots of a diagnostics report: the touch bits, then seven groups.
constexpr unsigned SLOT_TOUCH_BITS = 0;
constexpr unsigned SLOT_FIRST_GROUP = 1;
constexpr unsigned SAMPLE_GROUPS = 7;
constexpr unsigned SAMPLE_GROUP_SIZE = 4;

/// Which bits of a report's first word are the touch bits of the four-button board: entry n for button n+1.
constexpr unsigned REMAPPED_TOUCH_BITS[] = {9, 3, 5, 4};

/// A parameter with code 0 is unused; it is reported only where no more known parameters than these come
/// first.
constexpr int MAX_KNOWN_BEFORE_ZERO_LINE = 2;

constexpr std::uint32_t Byte(std::uint32_t word, unsigned index) {
    return word >> (8 * index) & 0xFF;
}

/// Milliseconds since the run started; 0 before it.
std::uint64_t MillisecondsSince(std::uint64_t runStart) {
    if (runStart == 0) {
        return 0;
    }
    const std::uint64_t now = getTickCount();
    return runStart > now ? 0 : (now - runStart) / 1'000'000;
}

/// The lines of one report. Formatting takes most of the time of a report that is printed, and a general
/// formatter three times as long.
class LineWriter {
public:
    /// Appends a number, right-aligned in a width.
    void Number(std::int32_t value, std::ptrdiff_t width, char fill = ' ') {
        std::array<char, 12> digits;
        const auto end = std::to_chars(digits.begin(), digits.end(), value).ptr;
        for (std::ptrdiff_t length = end - digits.begin(); length < width; ++length) {
            *m_end++ = fill;
        }
        m_end = std::copy(digits.begin(), end, m_end);
    }

    void Text(std::string_view text) { m_end = std::copy(text.begin(), text.end(), m_end); }

    std::string_view Get() const { return {m_text.data(), static_cast<std::size_t>(m_end - m_text.data())}; }

private:
    std::array<char, 1024> m_text;
    char* m_end = m_text.data();
};

}  // namespace

TouchBoardReports::~TouchBoardReports() {
    delete m_newestSetup.load();
}

void TouchBoardReports::OnValue(unsigned index, unsigned value, unsigned /*width*/) {
    if (index == 0) {
        m_slots.fill(0);
        m_slots[0] = value;
        return;
    }
    if (index >= SLOT_COUNT) {
        std::fprintf(stderr, "ERROR: Diagnostics %d - OUT OF RANGE\n", static_cast<int>(index));
        return;
    }
    // The last index completes the report whatever came before it, deliberately. When its queue overflows,
    // the kernel drops events without a notice: a report may then lack values or hold those of two reports.
    m_slots[index] = value;
    if (index != SLOT_COUNT - 1) {
        return;
    }

    if (IsSetupReport()) {
        DecodeSetup();
    } else {
        DecodeDiagnostics();
    }
}

bool TouchBoardReports::IsSetupReport() const {
    return m_slots[SLOT_MARKER] == SETUP_MARKER && Byte(m_slots[SLOT_CODES], 0) == COMMAND_DIAGNOSE_BUTTON &&
           Byte(m_slots[SLOT_CODES], 1) == COMMAND_DIAGNOSE_BUTTON &&
           (m_slots[SLOT_FORMAT] == FORMAT_PLAIN || m_slots[SLOT_FORMAT] == FORMAT_REMAPPED);
}

void TouchBoardReports::DecodeSetup() {
    m_remapTouchBits = m_slots[SLOT_FORMAT] == FORMAT_REMAPPED;

    if (Byte(m_slots[SLOT_BUTTONS], 0) != COMMAND_FINGER_TH) {
        std::fprintf(stderr, "Invalid button format\n");
        m_buttonCount = -1;
        return;  // deliberately without clearing the slots, here and below
    }

    // The count is stored before it is checked. The main thread may see a strange one for a moment; with it,
    // it finds no setup, or the last valid one if that has not been taken yet.
    const auto count = static_cast<std::int32_t>(Byte(m_slots[SLOT_BUTTONS], 1));
    m_buttonCount = count;
    if (count != SUPPORTED_BUTTON_COUNT) {
        std::fprintf(stderr, "Strange button count %d\n", count);
        m_buttonCount = -1;
        return;
    }

    auto setup = std::make_unique<BoardSetup>();
    setup->buttonCount = count;
    ReadThresholds(*setup);
    ReadParameters(*setup);
    ReviewParameters(*setup);
    delete m_newestSetup.exchange(setup.release());

    m_printInfo = false;
    m_slots.fill(0);
}

void TouchBoardReports::ReadThresholds(BoardSetup& setup) const {
    for (std::int32_t button = 1; button <= setup.buttonCount; ++button) {
        const unsigned slot = SLOT_FIRST_THRESHOLD - 1 + static_cast<unsigned>(button);
        const auto threshold = static_cast<std::int32_t>(m_slots[slot]);
        setup.fingerThresholds.push_back(threshold);
        if (m_printInfo) {
            std::fprintf(stderr, "INFO: Button Threshold %02d = %d\n", button, threshold);
        }
    }
}

void TouchBoardReports::ReadParameters(BoardSetup& setup) const {
    // The raw header is no parameter of the report: this entry gives it the first row of the page's table.
    setup.parameters.push_back({COMMAND_RAW_HEADER, 0});

    const unsigned firstSlot = SLOT_FIRST_THRESHOLD + static_cast<unsigned>(setup.buttonCount);
    for (unsigned slot = firstSlot; slot + PARAMETER_GROUP_SIZE - 1 <= LAST_PARAMETER_SLOT;
         slot += PARAMETER_GROUP_SIZE) {
        const std::uint32_t codes = m_slots[slot];
        setup.parameters.push_back({Byte(codes, 0), static_cast<std::int32_t>(m_slots[slot + 1])});
        setup.parameters.push_back({Byte(codes, 1), static_cast<std::int32_t>(m_slots[slot + 2])});
    }
}

void TouchBoardReports::ReviewParameters(BoardSetup& setup) const {
    int knownParameters = 0;
    for (BoardParameter& parameter : setup.parameters) {
        if (const char* const name = FindParameterNames(parameter.code).reportName) {
            if (m_printInfo) {
                std::fprintf(stderr, "INFO: %s %d\n", name, parameter.value);
            }
            ++knownParameters;
        } else if (parameter.code == 0) {
            if (knownParameters <= MAX_KNOWN_BEFORE_ZERO_LINE) {
                std::fprintf(stderr, "ZERO param %d %d\n", 0, parameter.value);
            }
            // The page draws no row for this code.
            parameter.code = COMMAND_DIAGNOSE_BUTTON;
        } else {
            // The entry of the raw header has no report name and is reported at every setup report: readers
            // of the log expect its line.
            std::fprintf(stderr, "UNKNOWN param %d %d\n", static_cast<int>(parameter.code), parameter.value);
        }
    }
}

void TouchBoardReports::DecodeDiagnostics() {
    if (m_buttonCount < 1) {
        m_slots.fill(0);
        return;
    }

    const std::uint32_t touchBits = ReadTouchBits();
    ReadSamples(touchBits);
    if (OutputDiagnostics) {
        PrintSamples();
    }
    {
        // The live state gives the list that it had in return: its memory serves the next report.
        const std::lock_guard lock(m_live.mutex);
        m_live.values.samples.swap(m_samples);
        m_live.values.touchBits = touchBits;
    }
    m_slots.fill(0);
}

std::uint32_t TouchBoardReports::ReadTouchBits() const {
    const std::uint32_t bits = m_slots[SLOT_TOUCH_BITS];
    if (!m_remapTouchBits) {
        return bits;
    }
    std::uint32_t remapped = 0;
    for (unsigned bit = 0; bit < std::size(REMAPPED_TOUCH_BITS); ++bit) {
        remapped |= (bits >> REMAPPED_TOUCH_BITS[bit] & 1) << bit;
    }
    return remapped;
}

void TouchBoardReports::ReadSamples(std::uint32_t touchBits) {
    m_samples.clear();
    m_samples.reserve(SAMPLE_GROUPS);
    for (unsigned group = 0; group < SAMPLE_GROUPS; ++group) {
        const std::uint32_t* const words = &m_slots[SLOT_FIRST_GROUP + SAMPLE_GROUP_SIZE * group];
        const std::uint32_t button = Byte(words[0], 0);
        if (button == 0) {
            continue;
        }
        ButtonSample& sample = m_samples.emplace_back();
        sample.button = button;
        sample.value1 = static_cast<std::int32_t>(words[1]);
        sample.value2 = static_cast<std::int32_t>(words[2]);
        sample.value3 = static_cast<std::int32_t>(words[3]);
        sample.value4 = static_cast<std::int32_t>(Byte(words[0], 1));
        // The board may send any number up to 255; only buttons 1 to 32 have a touch bit.
        sample.touched = button <= 32 && (touchBits >> (button - 1) & 1) != 0;
    }
}

/// Prints the lines of a report in one write. On a pipe such a write stays in one piece as long as it has no
/// more than 4096 bytes; seven lines of the longest numbers have less than 600.
void TouchBoardReports::PrintSamples() const {
    const std::uint64_t milliseconds = MillisecondsSince(m_live.runStart);
    LineWriter start;
    start.Number(static_cast<std::int32_t>(milliseconds / 1000), 2);
    start.Text(".");
    start.Number(static_cast<std::int32_t>(milliseconds % 1000), 3, '0');
    start.Text(": BT");
    LineWriter lines;
    for (const ButtonSample& sample : m_samples) {
        lines.Text(start.Get());
        lines.Number(static_cast<std::int32_t>(sample.button), 0);
        lines.Text(":");
        // value4 comes third and value3 last, as on the page.
        for (const std::int32_t value : {sample.value1, sample.value2, sample.value4, sample.value3}) {
            lines.Text(" ");
            lines.Number(value, 5);
        }
        lines.Text(sample.touched != 0 ? " *\n" : "  \n");
    }
    const std::string_view text = lines.Get();
    std::fwrite(text.data(), 1, text.size(), stderr);
}
