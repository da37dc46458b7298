// Assembly and decoding of the touch board's reports, from values that come in any order.
// Input: runs of values; each is the index of the first, the number of values, then the values, one word
// each.

#include "apps/padtune/touch_board_reports.h"

#include <array>

#include "apps/padtune/touch_board_commands.h"
#include "tests/fuzz/fuzz_input.h"
#include "tests/report_builder.h"

namespace {

constexpr unsigned SLOTS = ReportBuilder::SLOTS;
constexpr std::int32_t BUTTONS = 11;

class Checker {
public:
    void Send(unsigned index, std::uint32_t value) {
        if (index == 0) {
            m_sent = {};
        }
        if (index < SLOTS) {
            m_sent[index] = value;
        }
        m_live.values.samples = {NOT_DECODED};
        m_reports.OnValue(index, value, 32);
        const bool decoded =
            m_live.values.samples.size() != 1 || m_live.values.samples[0].button != NOT_DECODED.button;
        if (decoded) {
            CheckSamples();
        }
        const auto setup = m_reports.TakeSetup();
        if (setup) {
            CheckSetup(*setup);
        }
        const std::int32_t buttons = m_reports.GetButtonCount();
        REQUIRE(buttons == BUTTONS || buttons == -1);
        // Once there is a valid setup, every last index completes a report of either kind, and nothing else
        // does.
        REQUIRE((decoded || setup) == (index == SLOTS - 1 && buttons == BUTTONS));
        REQUIRE(!decoded || !setup);
    }

    /// Whatever came before, a board that sends whole reports again is understood.
    void CheckRecovery() {
        ReportBuilder diagnostics = ReportBuilder::Diagnostics(0x40);
        for (unsigned button = 1; button <= 7; ++button) {
            diagnostics.Sample(button, 1001, 1002, 1003);
        }
        for (const ReportBuilder& report : {ReportBuilder::Setup(), diagnostics}) {
            report.Deliver([this](unsigned index, std::uint32_t value) { Send(index, value); });
        }
        REQUIRE(m_reports.GetButtonCount() == BUTTONS);
        REQUIRE(m_live.values.samples.size() == 7 && m_live.values.touchBits == 0x40);
        REQUIRE(m_live.values.samples[6].button == 7 && m_live.values.samples[6].touched == 1);
    }

private:
    static constexpr ButtonSample NOT_DECODED{};  // no sample has button 0

    /// Whether a decoded value is the one sent last in its place since the last index 0, or none.
    bool IsOfThisReport(unsigned index, std::uint32_t value) const {
        return value == 0 || value == m_sent[index];
    }

    bool IsGroup(unsigned group, const ButtonSample& sample) const {
        const unsigned first = 1 + 4 * group;
        return sample.button == (m_sent[first] & 0xFF) &&
               IsOfThisReport(first + 1, static_cast<std::uint32_t>(sample.value1)) &&
               IsOfThisReport(first + 2, static_cast<std::uint32_t>(sample.value2)) &&
               IsOfThisReport(first + 3, static_cast<std::uint32_t>(sample.value3));
    }

    void CheckSamples() const {
        REQUIRE(m_live.values.samples.size() <= 7);
        unsigned group = 0;
        for (const ButtonSample& sample : m_live.values.samples) {
            REQUIRE(sample.button >= 1 && sample.button <= 255);
            REQUIRE(sample.value4 >= 0 && sample.value4 <= 255);
            const unsigned bit = sample.button - 1;
            REQUIRE(sample.touched == (bit < 32 ? m_live.values.touchBits >> bit & 1 : 0));
            while (group < 7 && !IsGroup(group, sample)) {
                ++group;
            }
            REQUIRE(group++ < 7);
        }
    }

    void CheckSetup(const BoardSetup& setup) const {
        REQUIRE(setup.buttonCount == BUTTONS && setup.fingerThresholds.size() == BUTTONS);
        for (unsigned i = 0; i < BUTTONS; ++i) {
            REQUIRE(IsOfThisReport(4 + i, static_cast<std::uint32_t>(setup.fingerThresholds[i])));
        }
        REQUIRE(setup.parameters.size() == 9 && setup.parameters[0].code == COMMAND_RAW_HEADER);
        for (const BoardParameter& parameter : setup.parameters) {
            REQUIRE(parameter.code >= 1 && parameter.code <= 255);
        }
    }

    LiveState m_live;
    TouchBoardReports m_reports{m_live};
    std::array<std::uint32_t, SLOTS> m_sent{};  // since the last index 0
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    OutputDiagnostics = true;
    FuzzInput input(data, size);
    Checker checker;
    while (!input.IsEmpty()) {
        unsigned index = input.Take<std::uint8_t>();
        for (auto count = input.Take<std::uint8_t>(); count > 0 && !input.IsEmpty(); --count) {
            checker.Send(index++, input.Take<std::uint32_t>());
        }
    }
    checker.CheckRecovery();
    return 0;
}
