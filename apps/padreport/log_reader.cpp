#include "apps/padreport/log_reader.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <system_error>

namespace padreport {

const std::array<LineKindText, LINE_KIND_COUNT> LINE_KIND_TEXTS = {{
    {LineKind::SAMPLE, "samples", "samples", false},
    {LineKind::INFO, "info", "INFO", false},
    {LineKind::SETUP_NOTE, "setup_notes", "setup notes (UNKNOWN, ZERO)", false},
    {LineKind::LED_MASK, "led_masks", "LED masks", false},
    {LineKind::EMPTY, "empty", "empty", false},
    {LineKind::OTHER, "other", "of another kind", false},
    {LineKind::COMPLAINT, "complaints", "Complaints about the board's reports", true},
    {LineKind::DAMAGED, "damaged", "Damaged lines", true},
    {LineKind::CUT, "cut", "Cut lines at the start or end", true},
    {LineKind::TOO_LONG, "too_long", "Lines too long to be read", true},
    {LineKind::BINARY, "binary", "Lines with control characters", true},
}};

namespace {

constexpr std::size_t EXCERPT_LENGTH = 60;

constexpr std::string_view INFO_START = "INFO: ";

/// Lines of padtune's that are known by how they begin.
constexpr struct {
    std::string_view start;
    LineKind kind;
} KNOWN_LINES[] = {
    {"UNKNOWN param ", LineKind::SETUP_NOTE},       {"ZERO param ", LineKind::SETUP_NOTE},
    {"SetButtonMask: ", LineKind::LED_MASK},        {"ERROR: Diagnostics ", LineKind::COMPLAINT},
    {"Invalid button format", LineKind::COMPLAINT}, {"Strange button count ", LineKind::COMPLAINT},
};

/// Takes a line apart from the front. What cannot be taken stays.
class LineParser {
public:
    explicit LineParser(std::string_view line) : m_next(line.data()), m_end(line.data() + line.size()) {}

    bool Take(std::string_view text) {
        if (!std::string_view(m_next, m_end).starts_with(text)) {
            return false;
        }
        m_next += text.size();
        return true;
    }

    /// @return how many there were
    std::size_t TakeBlanks() {
        const char* const first = m_next;
        while (m_next != m_end && *m_next == ' ') {
            ++m_next;
        }
        return static_cast<std::size_t>(m_next - first);
    }

    /// Takes decimal digits, after a minus sign where the type has one.
    template <class Number>
    bool TakeNumber(Number& number) {
        const auto [next, error] = std::from_chars(m_next, m_end, number);
        m_next = next;
        return error == std::errc();
    }

    bool TakeThreeDigits(unsigned& number) {
        const char* const first = m_next;
        return TakeNumber(number) && m_next - first == 3;
    }

    bool IsAtEnd() const { return m_next == m_end; }
    std::string_view GetRest() const { return {m_next, m_end}; }

private:
    const char* m_next;
    const char* m_end;
};

/// @param hasEnd whether the line has an end: then its last blanks may have been taken away on the road
bool ParseSample(std::string_view line, bool hasEnd, Sample& sample) {
    LineParser parser(line);
    std::uint32_t seconds = 0;
    unsigned thousandths = 0;
    parser.TakeBlanks();
    if (!parser.TakeNumber(seconds) || !parser.Take(".") || !parser.TakeThreeDigits(thousandths) ||
        !parser.Take(": BT") || !parser.TakeNumber(sample.button) || !parser.Take(":") || sample.button < 1 ||
        sample.button > BUTTON_MAX || seconds > std::numeric_limits<std::int32_t>::max()) {
        return false;
    }
    for (std::int32_t& value : sample.values) {
        if (parser.TakeBlanks() == 0 || !parser.TakeNumber(value)) {
            return false;
        }
    }
    // Without a touch, a blank stands in the place of the star.
    const std::size_t blanks = parser.TakeBlanks();
    sample.touched = blanks > 0 && parser.Take("*");
    if (!sample.touched && !hasEnd && blanks < 2) {
        return false;
    }
    parser.TakeBlanks();
    sample.milliseconds = std::int64_t{seconds} * 1000 + thousandths;
    return parser.IsAtEnd();
}

/// Whether a line that is no sample was one: tells parts of sample lines from text.
bool LooksLikeSample(std::string_view line) {
    return line.find(": BT") != std::string_view::npos ||
           line.find_first_not_of("0123456789 .:BT*-") == std::string_view::npos;
}

bool IsControl(char c) {
    const auto byte = static_cast<unsigned char>(c);
    // Programs colour their text with escape sequences, and write over it with CR or BS.
    return byte == 0x7F || (byte < 0x20 && c != '\t' && c != '\r' && c != '\b' && c != '\x1B');
}

bool IsPrintable(char c) {
    return c >= ' ' && c <= '~';
}

std::string MakeExcerpt(std::string_view line) {
    std::string excerpt;
    std::copy_if(line.begin(), line.end(), std::back_inserter(excerpt), IsPrintable);
    excerpt.resize(std::min(excerpt.size(), EXCERPT_LENGTH));
    return excerpt;
}

}  // namespace

void LogReader::Feed(std::string_view bytes) {
    while (!bytes.empty()) {
        const std::size_t length = bytes.find('\n');
        if (length == std::string_view::npos) {
            Keep(bytes);
            return;
        }
        if (m_kept.empty()) {
            ReadLine(bytes.substr(0, length), true);
        } else {
            Keep(bytes.substr(0, length));
            ReadKept(true);
        }
        bytes.remove_prefix(length + 1);
    }
}

void LogReader::Finish() {
    if (!m_kept.empty()) {
        ReadKept(false);
    }
}

/// Of a line that is too long only so much is kept that this can be seen.
void LogReader::Keep(std::string_view piece) {
    m_kept += piece.substr(0, LINE_LENGTH_MAX + 1 - std::min(m_kept.size(), LINE_LENGTH_MAX + 1));
}

void LogReader::ReadKept(bool hasEnd) {
    ReadLine(m_kept, hasEnd);
    m_kept.clear();
}

void LogReader::ReadLine(std::string_view line, bool hasEnd) {
    ++m_line;
    Sample sample;
    LineKind kind = LineKind::SAMPLE;
    if (line.size() > LINE_LENGTH_MAX) {
        kind = LineKind::TOO_LONG;
    } else {
        if (line.ends_with('\r')) {
            line.remove_suffix(1);
        }
        if (ParseSample(line, hasEnd, sample)) {
            sample.line = m_line;
            m_records.OnSample(sample);
        } else {
            kind = ReadOther(line, hasEnd);
        }
    }

    LineCount& count = CountOf(m_counts, kind);
    if (count.count++ == 0) {
        count.firstLine = m_line;
        if (kind == LineKind::OTHER || LINE_KIND_TEXTS[static_cast<std::size_t>(kind)].isTrouble) {
            count.firstText = MakeExcerpt(line.substr(0, LINE_LENGTH_MAX));
        }
    }
}

LineKind LogReader::ReadOther(std::string_view line, bool hasEnd) {
    if (line.find_first_not_of(' ') == std::string_view::npos) {
        return LineKind::EMPTY;
    }
    if (std::any_of(line.begin(), line.end(), IsControl)) {
        return LineKind::BINARY;
    }
    if (line.starts_with(INFO_START)) {
        // Without an end, digits may be missing.
        return !hasEnd ? LineKind::CUT : ReadInfo(line) ? LineKind::INFO : LineKind::DAMAGED;
    }
    for (const auto& known : KNOWN_LINES) {
        if (line.starts_with(known.start)) {
            return known.kind;
        }
    }
    if (LooksLikeSample(line)) {
        return m_line == 1 || !hasEnd ? LineKind::CUT : LineKind::DAMAGED;
    }
    return LineKind::OTHER;
}

bool LogReader::ReadInfo(std::string_view line) {
    LineParser parser(line.substr(INFO_START.size()));
    unsigned button = 0;
    std::int32_t value = 0;
    if (parser.Take("Button Threshold ")) {
        if (!parser.TakeNumber(button) || !parser.Take(" = ") || !parser.TakeNumber(value) || button < 1 ||
            button > BUTTON_MAX) {
            return false;
        }
        m_records.OnThreshold(button, value);
        return true;
    }
    const std::string_view name = parser.GetRest().substr(0, parser.GetRest().find(' '));
    if (name.empty() || !parser.Take(name) || !parser.Take(" ") || !parser.TakeNumber(value)) {
        return false;
    }
    m_records.OnParameter(name, value);
    return true;
}

}  // namespace padreport
