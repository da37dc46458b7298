#pragma once

// A touch board as its host sees it, without the cable: the protocol state, the commands that change it and
// the reports that it sends. It has no clock, no thread and no file: time is passed in, so that a test
// decides what time it is, and the same seed gives the same noise. Not safe for use by several threads at
// once.

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace VirtualPlayer {

constexpr unsigned BUTTON_COUNT = 11;
constexpr unsigned DIAGNOSTICS_WORDS = 29;
constexpr unsigned IDENTITY_WORDS = 2;
constexpr unsigned LED_SETUP_WORDS = 3;
/// A diagnostics report has room for this many buttons.
constexpr unsigned DIAGNOSED_BUTTONS_MAX = 7;

using DiagnosticsWords = std::array<std::uint32_t, DIAGNOSTICS_WORDS>;
using IdentityWords = std::array<std::uint32_t, IDENTITY_WORDS>;
using LedSetupWords = std::array<std::uint32_t, LED_SETUP_WORDS>;
using ButtonWords = std::array<std::uint32_t, BUTTON_COUNT>;

/// Which report a group of words belongs to. The numbers are the HID report ids.
enum class ReportId : std::uint8_t { GPIO = 1, DIAGNOSTICS = 2, IDENTITY = 3, LED_SETUP = 4, LED = 5 };

/// A report on its way to the host: one word per usage, GPIO levels included.
struct InputReport {
    ReportId id;
    std::vector<std::uint32_t> words;
};

/// What is wrong, on purpose, with the setup reports that a board sends.
struct SetupOddities {
    bool silent = false;                           ///< a request is not answered at all
    std::optional<std::uint32_t> count;            ///< announced button count; the layout follows it
    std::optional<std::uint32_t> format;           ///< format word
    std::optional<std::uint32_t> marker;           ///< button-format marker
    std::map<unsigned, std::uint32_t> slotValues;  ///< whole words, by slot number; applied last
};

class TouchBoardModel {
public:
    /// @return the names of the models, the smallest first
    static std::vector<std::string> Names();

    /// @param modelName  one of Names()
    /// @param seed       of the noise and the drift
    /// @throws std::invalid_argument for any other name
    explicit TouchBoardModel(std::string_view modelName, std::uint32_t seed = 1);

    /// The board comes (back) onto the bus. Thresholds, parameters and the selected buttons are still those
    /// from before, unless it is forgetful; masks, LEDs, the identity answer and reports on their way are
    /// gone.
    void Connect();

    /// Whether the board loses all that the host told it with the power of its cable.
    void SetForgetful(bool forgetful) { m_isForgetful = forgetful; }

    /// Whether every output report is followed by a GPIO report, changed or not.
    void SetEchoing(bool echoing) { m_isEchoing = echoing; }

    /// @param nanoseconds  how long after their commands the identity and the setup report come
    void SetAnswerDelay(std::int64_t nanoseconds) { m_answerDelay = nanoseconds; }

    /// An LED-SETUP report arrives: command, button disable mask, LED disable mask. The host repeats the
    /// words that it does not mean to change, so a report with a new mask is a write of that mask, and its
    /// command is not executed.
    void WriteLedSetup(const LedSetupWords& words);

    /// An LED report arrives: the LED mask of every button.
    void WriteLeds(const ButtonWords& words);

    /// A finger comes to a button or leaves it. @param button from 1. @throws std::invalid_argument if there
    /// is no such button on this board
    void SetTouched(unsigned button, bool touched);

    /// How much a button's values waver. @param counts of the sensor to either side, at most 100; 4 unless
    /// set
    /// @throws std::invalid_argument for more, or if there is no such button on this board
    void SetNoise(unsigned button, unsigned counts);

    /// How much a finger lifts a button's values. @param counts of the sensor, at most 10000; none: enough
    /// for the button's threshold, whatever that is. What is a touch the finger says, not the threshold.
    /// @throws std::invalid_argument for more, or if there is no such button on this board
    void SetLift(unsigned button, std::optional<unsigned> counts);

    /// Holds a GPIO pin at a level whatever its button does, or lets it follow the button again (no level).
    /// @param pin from 0. @throws std::invalid_argument if there is no such pin
    void SetGpioLevel(unsigned pin, std::optional<bool> level);

    /// @param reportsPerSecond  diagnostics reports per second, at most 1000; 0 stops them
    /// @throws std::invalid_argument for more
    void SetRate(unsigned reportsPerSecond);

    /// Whether samples hold the number of their diagnostics report in place of measured values, so that a
    /// reader can tell which values belong together: value 4 its low byte, the others the whole.
    void SetNumbered(bool numbered) { m_isNumbered = numbered; }

    /// @throws std::invalid_argument for a slot that a report has not
    void SetSetupOddities(const SetupOddities& oddities);

    /// Queues a setup report, as if the host had asked for one.
    void SendSetup();

    /// Lets time pass up to `now` (nanoseconds of any monotonic clock): queues the late answers and the
    /// diagnostics report that became due. A late call gives one report; those of the periods that went by
    /// follow at twice the rate, for a burst would be more than a reader expects. A very late call misses
    /// them.
    /// @param endpointIsFree  false while a report still waits for the host: the next one is made when it
    /// has been read, as a controller fills its endpoint's buffer
    void Advance(std::int64_t now, bool endpointIsFree = true);

    /// When the next late answer or diagnostics report is due, on the clock given to `Advance`. There is none
    /// of the latter while no button is selected, or while it waits for the endpoint.
    std::optional<std::int64_t> NextReportTime() const;

    /// How many periods went by without their diagnostics report so far.
    unsigned long MissedReports() const { return m_missedReports; }

    /// The reports queued since the last call, oldest first.
    std::deque<InputReport> TakeReports();

    /// What happened since the last call, one line an event, oldest first.
    std::vector<std::string> TakeRecords();

    /// The present content of an input report, as GET_REPORT reads it. @throws std::invalid_argument for
    /// outputs
    InputReport CurrentReport(ReportId id) const;

    DiagnosticsWords SetupReport() const;
    /// Takes a new sample of every diagnosed button; noise and drift move on.
    DiagnosticsWords DiagnosticsReport();

    /// Everything that the host can change, as one line of key=value words.
    std::string DescribeState() const;

private:
    struct Model;
    static const Model MODELS[];

    struct LateAnswer {
        ReportId id;
        std::optional<std::int64_t> due;  ///< none until the next `Advance`, which tells the time
    };

    static const Model& FindModel(std::string_view name);
    void RestoreDefaults();
    void CheckButton(unsigned button) const;
    void Execute(std::uint32_t word);
    void SelectButton(unsigned button);
    void Queue(ReportId id, std::vector<std::uint32_t> words);
    void QueueGpio();
    void Answer(ReportId id);
    void GiveAnswer(ReportId id);
    void GiveLateAnswers(std::int64_t now);
    std::uint32_t SensedTouches() const { return m_touches & ~m_buttonMask; }
    std::uint32_t WireTouchBits() const;
    void Record(const char* format, ...) __attribute__((format(printf, 2, 3)));

    const Model& m_model;
    std::mt19937 m_random;
    ButtonWords m_thresholds{};
    std::map<std::uint32_t, std::uint32_t> m_parameters;  ///< by configuration code
    std::uint32_t m_buttonMask = 0;
    std::uint32_t m_ledMask = 0;
    ButtonWords m_leds{};
    std::vector<unsigned> m_selected;
    IdentityWords m_identity{};  ///< zeros until the host has asked
    LedSetupWords
        m_lastLedSetup{};  ///< as received; a reset of the board does not change what the host repeats
    ButtonWords m_lastLeds{};
    std::uint32_t m_touches = 0;
    std::map<unsigned, bool> m_heldPins;
    std::array<int, BUTTON_COUNT> m_drift{};
    std::array<int, BUTTON_COUNT> m_noise{};                ///< the greatest, to either side
    std::array<std::optional<int>, BUTTON_COUNT> m_lift{};  ///< none: as the threshold wants it
    SetupOddities m_oddities;
    DiagnosticsWords m_lastDiagnostics{};
    unsigned m_rate = 25;
    bool m_isNumbered = false;
    bool m_isForgetful = false;
    bool m_isEchoing = false;
    std::int64_t m_answerDelay = 0;
    std::deque<LateAnswer> m_lateAnswers;  ///< the one asked for first in front
    std::uint32_t m_reportNumber = 0;
    std::optional<std::int64_t> m_nextReport;  ///< when it is due
    std::int64_t m_earliestReport = 0;         ///< when it may come after the one before, if that was late
    bool m_isHeldUp = false;
    unsigned long m_missedReports = 0;
    std::deque<InputReport> m_reports;
    std::vector<std::string> m_records;
};

}  // namespace VirtualPlayer
