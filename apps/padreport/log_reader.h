#pragma once

// The lines that padtune prints on standard error, turned into records. What such a line looks like stands
// here and nowhere else. A log is what a shell redirected: lines of other programs, cut lines and binary
// rubbish are expected, counted by kind, and never end the reading.
//
// Not for concurrent use.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace padreport {

/// A sample has four values. They are called value 1 to 4, in the order of the line; what they mean inside
/// the board is not known.
constexpr unsigned VALUE_COUNT = 4;

/// A button is a byte of the board's, which is not 0.
constexpr unsigned BUTTON_MAX = 255;

/// One line of the form " 2.480: BT3:  1360  1236     8   118 *".
struct Sample {
    std::int64_t milliseconds = 0;                   ///< since the live page began; 0 before it
    unsigned button = 0;                             ///< 1 to BUTTON_MAX
    std::array<std::int32_t, VALUE_COUNT> values{};  ///< value 1 to 4, counts of the board's
    bool touched = false;                            ///< the star
    std::uint64_t line = 0;                          ///< in the log, from 1
};

/// Receives what the reader understands, in the order of the lines.
class LogRecords {
public:
    virtual ~LogRecords() = default;

    /// One line of a sample.
    virtual void OnSample(const Sample& sample) = 0;

    /// "INFO: Button Threshold 03 = 40"
    virtual void OnThreshold(unsigned button, std::int32_t value) = 0;

    /// "INFO: NOISE_TH 20"
    virtual void OnParameter(std::string_view name, std::int32_t value) = 0;
};

/// What a line is.
enum class LineKind {
    SAMPLE,
    INFO,        ///< the board's setup
    SETUP_NOTE,  ///< "UNKNOWN param", "ZERO param": they come with every setup and mean nothing
    LED_MASK,    ///< "SetButtonMask"
    EMPTY,
    OTHER,      ///< text of other programs, or a message about a command that failed
    COMPLAINT,  ///< padtune did not understand what the board sent
    DAMAGED,    ///< of a sample or INFO line, but not a whole one
    CUT,        ///< the same, as the first line, or as the last one without an end
    TOO_LONG,   ///< more than LINE_LENGTH_MAX bytes
    BINARY,     ///< with control characters
};
/// How many kinds there are.
constexpr std::size_t LINE_KIND_COUNT = 11;

/// Bytes of a line, without its end.
constexpr std::size_t LINE_LENGTH_MAX = 1024;

/// How a kind of line is called.
struct LineKindText {
    LineKind kind;     ///< which kind the row is about
    const char* key;   ///< for programs
    const char* text;  ///< for people
    bool isTrouble;    ///< whether something was lost with such a line, or went wrong
};

/// One row for each kind, in the order of LineKind.
extern const std::array<LineKindText, LINE_KIND_COUNT> LINE_KIND_TEXTS;

/// How many lines of one kind there were, and which was the first.
struct LineCount {
    std::uint64_t count = 0;      ///< lines
    std::uint64_t firstLine = 0;  ///< from 1; 0 when there is none
    std::string firstText;  ///< its first characters, those that can be printed; only of OTHER and trouble
};

/// By LineKind.
using LineCounts = std::array<LineCount, LINE_KIND_COUNT>;

/// The count of one kind.
inline LineCount& CountOf(LineCounts& counts, LineKind kind) {
    return counts[static_cast<std::size_t>(kind)];
}
/// The count of one kind.
inline const LineCount& CountOf(const LineCounts& counts, LineKind kind) {
    return counts[static_cast<std::size_t>(kind)];
}

/// A reader of one log, which is fed to it piece by piece.
class LogReader {
public:
    /// @param records receives what is read; must outlive the reader
    explicit LogReader(LogRecords& records) : m_records(records) {}

    /// Reads on. Lines end with LF or CR LF; the pieces may be cut anywhere.
    void Feed(std::string_view bytes);

    /// The log has ended: its last line counts though it has no end. What may miss its last digits does not
    /// count.
    void Finish();

    const LineCounts& GetLineCounts() const { return m_counts; }  ///< of the lines read so far

private:
    void Keep(std::string_view piece);
    void ReadKept(bool hasEnd);
    void ReadLine(std::string_view line, bool hasEnd);
    LineKind ReadOther(std::string_view line, bool hasEnd);
    bool ReadInfo(std::string_view line);

    LogRecords& m_records;
    LineCounts m_counts;
    std::uint64_t m_line = 0;
    std::string m_kept;  // the beginning of a line whose end is still to come
};

}  // namespace padreport
