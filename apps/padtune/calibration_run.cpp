#include "apps/padtune/calibration_run.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <mutex>
#include <optional>
#include <thread>

#include "apps/padtune/setup_wait.h"
#include "apps/padtune/tick_count.h"
#include "apps/padtune/touch_board_commands.h"
#include "lib/hardware/open_port.h"
#include "lib/platform/monotonic_time.h"

using ExternalControl::Port;
using strata::NANOSECONDS_PER_SECOND;

namespace {

constexpr std::uint64_t SETUP_TIMEOUT = 10 * NANOSECONDS_PER_SECOND;
constexpr std::uint64_t FRAME_INTERVAL = NANOSECONDS_PER_SECOND / 15;

constexpr std::uint32_t COLOUR_FAILURE = 0xFF0000;
constexpr std::uint32_t COLOUR_COMPLETE = 0x0077FF;

// Outputs of the LED-SETUP port.
constexpr unsigned OUTPUT_COMMAND = 0;
constexpr unsigned OUTPUT_BUTTON_MASK = 1;
constexpr unsigned OUTPUT_LED_MASK = 2;

constexpr unsigned MASK_BITS = 32;

const std::vector<std::int32_t> DEFAULT_DIAGNOSED_BUTTONS = {1, 2, 3, 4};

/// The mask of disabled buttons or LEDs. An entry of an --enable- option sets no bit, nor does it clear the
/// bit of a --disable- option, whichever comes first; alone it makes the mask 0.
std::uint32_t MakeDisableMask(const std::vector<ButtonSwitch>& switches) {
    std::uint32_t mask = 0;
    for (const ButtonSwitch& entry : switches) {
        if (entry.disable && entry.button >= 1 && entry.button <= static_cast<std::int32_t>(MASK_BITS)) {
            mask |= std::uint32_t{1} << (entry.button - 1);
        }
    }
    return mask;
}

/// Writes an output.
/// @throws what the port throws
void SetOutput(Port& port, unsigned index, std::uint32_t value) {
    port.SetOutput(index, value);
}

/// Writes an output, or prints why that failed. In the timed loop the port of an unplugged board keeps the
/// value and writes it once the board is back. A value for a pin that the board lacks never gets there;
/// neither does a reset that fails, for the port is released then.
void SetOutputOrReport(Port& port, unsigned index, std::uint32_t value) {
    try {
        port.SetOutput(index, value);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
    }
}

}  // namespace

CalibrationRun::CalibrationRun(const RunSettings& settings, TerminationSignals& signals, ScreenPage& page,
                               LiveState& live, TouchBoardReports& reports, GpioLevels& gpioLevels,
                               BoardInputs& inputs, BoardOutputs& outputs)
    : m_settings(settings),
      m_signals(signals),
      m_page(page),
      m_live(live),
      m_reports(reports),
      m_gpioLevels(gpioLevels),
      m_inputs(inputs),
      m_outputs(outputs) {}

void CalibrationRun::Run() {
    std::optional<BoardSetup> setup;
    try {
        setup = PrepareBoard();
    } catch (const Terminated&) {
        return;
    } catch (const std::exception& failure) {
        ShowFailure(failure.what());
        return;
    }
    if (!setup) {
        return;
    }

    DrawBoard(*setup);
    try {
        RunTimedLoop();
    } catch (const Terminated&) {
        // The run ends as if its time were over.
    }
    ResetBoard();
}

/// Takes a termination signal if one came.
/// @throws Terminated when one came
void CalibrationRun::LeaveWhenTerminated() {
    if (m_signals.Take()) {
        throw Terminated();
    }
}

/// Sleeps in steps of up to a second and looks for a termination signal after each.
/// @throws Terminated when one came
void CalibrationRun::Sleep(std::chrono::milliseconds duration) {
    constexpr std::chrono::milliseconds LONGEST_STEP = std::chrono::seconds(1);
    do {
        const auto step = std::min(duration, LONGEST_STEP);
        std::this_thread::sleep_for(step);
        LeaveWhenTerminated();
        duration -= step;
    } while (duration.count() > 0);
}

/// Sleeps for the pause that follows a command.
/// @throws Terminated
void CalibrationRun::Pause() {
    Sleep(std::chrono::milliseconds(m_settings.pauseMilliseconds));
}

/// Opens a port of the board. Whatever is wrong with a port, it counts as absent: the page shows only which
/// one is missing.
/// @return null when it cannot be opened
/// @throws Terminated when a termination signal came, instead of opening it
std::shared_ptr<Port> CalibrationRun::OpenBoardPort(const char* name) {
    LeaveWhenTerminated();
    try {
        return ExternalControl::OpenPort(name, [](unsigned, unsigned, unsigned) {}, {});
    } catch (...) {
        return nullptr;
    }
}

/// @return the board's setup; nothing when the run ends here. The page says why, unless there is no board at
/// all.
/// @throws Terminated
/// @throws what a port throws when the board does not take a command
std::optional<BoardSetup> CalibrationRun::PrepareBoard() {
    if (!OpenInputs()) {
        return std::nullopt;
    }

    m_outputs.ledSetup = OpenBoardPort("TouchBoard-0-LED-SETUP");
    if (m_outputs.ledSetup) {
        ConfigureBoard();
    } else {
        ShowFailure("Failed to open touch board setup port");
    }
    if (!m_settings.ledMasks.empty()) {
        OpenLed();
    }
    return m_outputs.ledSetup ? RequestSetup() : std::nullopt;
}

bool CalibrationRun::OpenInputs() {
    m_inputs.diagnostics = OpenBoardPort("TouchBoard-0-DIAGNOSTICS");
    m_inputs.gpio = OpenBoardPort("TouchBoard-0-GPIO");
    if (!m_inputs.diagnostics && !m_inputs.gpio) {
        // Without any board the title page stays as it is, deliberately.
        return false;
    }
    if (!m_inputs.diagnostics) {
        ShowFailure("Failed to open touch board diagnostics port");
        return false;
    }
    if (!m_inputs.gpio) {
        ShowFailure("Failed to open touch board gpio port");
        return false;
    }

    // The ports, and with them these callbacks, live longer than this object: the callbacks may use only what
    // main keeps longer than the ports.
    m_inputs.diagnostics->SetValueCallback(
        [&reports = m_reports](unsigned index, unsigned value, unsigned width) {
            reports.OnValue(index, value, width);
        });
    m_inputs.gpio->SetValueCallback(
        [&gpioLevels = m_gpioLevels](unsigned pin, unsigned value, unsigned width) {
            gpioLevels.OnValue(pin, value, width);
        });
    return true;
}

void CalibrationRun::ConfigureBoard() {
    SelectButtons();
    for (const ConfigCommand& command : m_settings.configCommands) {
        SendCommand(MakeCommandWord(command.command, command.button, command.value, command.extra));
    }
    // The masks are no commands: no pause follows them.
    if (!m_settings.buttonSwitches.empty()) {
        SendSetup(OUTPUT_BUTTON_MASK, MakeDisableMask(m_settings.buttonSwitches));
    }
    if (!m_settings.ledSwitches.empty()) {
        SendSetup(OUTPUT_LED_MASK, MakeDisableMask(m_settings.ledSwitches));
    }
}

void CalibrationRun::SelectButtons() {
    const auto& buttons =
        m_settings.diagnoseButtons.empty() ? DEFAULT_DIAGNOSED_BUTTONS : m_settings.diagnoseButtons;
    for (const std::int32_t button : buttons) {
        SendCommand(MakeCommandWord(COMMAND_DIAGNOSE_BUTTON, static_cast<std::uint32_t>(button), 0));
    }
}

void CalibrationRun::OpenLed() {
    m_outputs.led = OpenBoardPort("TouchBoard-0-LED");
    if (m_outputs.led) {
        SetButtonMask(0, SetOutput);
    } else {
        ShowFailure("Failed to open touch board led port");
    }
}

std::optional<BoardSetup> CalibrationRun::RequestSetup() {
    SendCommand(MakeCommandWord(COMMAND_REQUEST_SETUP, 0, 1));
    std::optional<BoardSetup> setup =
        WaitForSetup(m_reports, getTickCount() + SETUP_TIMEOUT,
                     [this](std::chrono::milliseconds duration) { Sleep(duration); });
    if (!setup) {
        ShowFailure("Failed to receive touch board setup");
    }
    return setup;
}

void CalibrationRun::DrawBoard(const BoardSetup& setup) {
    m_page.DrawIdentity(m_inputs.diagnostics->GetProperties());
    m_page.DrawParameterTable(setup);
    m_page.LayOutStrip(m_settings.timeoutSeconds);
    m_page.DrawBoxNames(setup);
}

void CalibrationRun::RunTimedLoop() {
    const std::uint64_t start = getTickCount();
    m_live.runStart = start;
    const auto timeout = static_cast<std::uint64_t>(m_settings.timeoutSeconds);
    const std::uint64_t end = start + timeout * NANOSECONDS_PER_SECOND;

    // The run ends before this second, so the first frame finds its own second changed and draws the counter.
    std::uint64_t lastSecond = 2 * timeout;
    std::uint64_t lastFrame = 0;
    for (;;) {
        const std::uint64_t now = getTickCount();
        if (now >= end) {
            return;
        }
        // The loop waits for the next frame without sleeping: a sleep that ends late would delay the frame
        // and the LED masks of a second.
        if (now - lastFrame <= FRAME_INTERVAL) {
            continue;
        }

        LeaveWhenTerminated();
        DrawLiveFrame(now - start);
        const std::uint64_t second = (now - start) / NANOSECONDS_PER_SECOND;
        if (second != lastSecond) {
            // OpenLed played the masks of second 0.
            if (second != 0 && m_outputs.led) {
                SetButtonMask(static_cast<std::int64_t>(second), SetOutputOrReport);
            }
            m_page.DrawSecond(static_cast<std::int64_t>(second));
            lastSecond = second;
        }
        m_page.Flip();
        lastFrame = now;
    }
}

void CalibrationRun::DrawLiveFrame(std::uint64_t elapsed) {
    {
        const std::lock_guard lock(m_live.mutex);
        m_shown = m_live.values;
    }
    m_page.DrawFrame(m_shown.samples, m_shown.touchBits, m_shown.gpioLevels,
                     static_cast<std::int64_t>(elapsed));
}

void CalibrationRun::ResetBoard() {
    m_page.ShowMessage(m_page.GetStripTop(), COLOUR_COMPLETE, "Complete - Board has been reset");
    // The reset is sent even when a termination signal came after the timed loop. The signal is taken all the
    // same, so that the next one ends the process at once.
    m_signals.Take();
    SetOutputOrReport(*m_outputs.ledSetup, OUTPUT_COMMAND, MakeCommandWord(COMMAND_RESET, 0, 0));
    try {
        Pause();
    } catch (const Terminated&) {
        // The pause was the last step of the run.
    }
}

/// Writes an output of the LED-SETUP port.
/// @throws Terminated instead of writing it
/// @throws what the port throws
void CalibrationRun::SendSetup(unsigned output, std::uint32_t value) {
    LeaveWhenTerminated();
    SetOutput(*m_outputs.ledSetup, output, value);
}

/// Sends a command and pauses.
/// @throws Terminated, before it is sent or after
/// @throws what the port throws
void CalibrationRun::SendCommand(std::uint32_t word) {
    SendSetup(OUTPUT_COMMAND, word);
    Pause();
}

/// Writes the LED masks of one second of the run, with a pause after each. The LED port must be open.
/// @param second 0 for the masks that come before the run
/// @param setOutput writes a mask: SetOutput or SetOutputOrReport
/// @throws Terminated
/// @throws what setOutput throws
void CalibrationRun::SetButtonMask(std::int64_t second, OutputFunction setOutput) {
    for (const LedMaskEntry& entry : m_settings.ledMasks) {
        if (entry.second != second) {
            continue;
        }
        LeaveWhenTerminated();
        if (OutputDiagnostics && second == 0) {
            std::fprintf(stderr, "SetButtonMask: START: BT%d: %x\n", entry.button, entry.mask);
        } else if (OutputDiagnostics) {
            std::fprintf(stderr, "SetButtonMask: %4d: BT%d: %x\n", static_cast<int>(second), entry.button,
                         entry.mask);
        }
        setOutput(*m_outputs.led, static_cast<unsigned>(entry.button) - 1, entry.mask);
        Pause();
    }
}

void CalibrationRun::ShowFailure(const std::string& text) {
    m_page.ShowMessage(m_page.GetTop(), COLOUR_FAILURE, text);
}
