#pragma once

// One calibration run: opens the board's ports, sends it the selections, configuration and masks of the
// command line, waits for its setup, redraws the page from its live reports until the time is over, and
// resets it.

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "apps/padtune/command_line.h"
#include "apps/padtune/live_state.h"
#include "apps/padtune/screen_page.h"
#include "apps/padtune/termination_signals.h"
#include "apps/padtune/touch_board_reports.h"
#include "lib/hardware/external_control.h"

/// The ports that deliver values. Declared apart from the others because they are released later.
struct BoardInputs {
    std::shared_ptr<ExternalControl::Port> diagnostics;
    std::shared_ptr<ExternalControl::Port> gpio;
};

/// The ports that take commands.
struct BoardOutputs {
    std::shared_ptr<ExternalControl::Port> ledSetup;
    std::shared_ptr<ExternalControl::Port> led;
};

/// Main thread only. The objects that it is given belong to main, whose order of declarations is the order of
/// shutting down; the ports that it opens are left in them.
class CalibrationRun {
public:
    CalibrationRun(const RunSettings& settings, TerminationSignals& signals, ScreenPage& page,
                   LiveState& live, TouchBoardReports& reports, GpioLevels& gpioLevels, BoardInputs& inputs,
                   BoardOutputs& outputs);

    /// Runs from the opening of the ports to the reset of the board. Whatever the board does wrong is shown
    /// on the page, or from the timed loop on printed to standard error, and the run ends in order. So it
    /// does after a termination signal: within the timed loop as if the time were over, before it at once. A
    /// request that the board does not answer is waited for first.
    /// @throws std::system_error when the mutex of the live state cannot be locked
    void Run();

private:
    enum class Phase { PREPARATION, TIMED_LOOP, END };

    /// Thrown when a termination signal came, to leave the phase.
    struct Terminated {};

    void LeaveWhenTerminated();
    void Sleep(std::chrono::milliseconds duration);
    void Pause();

    std::shared_ptr<ExternalControl::Port> OpenBoardPort(const char* name);
    bool PrepareBoard();
    bool OpenInputs();
    void ConfigureBoard();
    void SelectButtons();
    void OpenLed();
    bool RequestSetup();
    void DrawBoard();
    void RunTimedLoop();
    void DrawLiveFrame(std::uint64_t elapsed);
    void ResetBoard();

    void SetButtonMask(ExternalControl::Port& ledPort, std::int64_t second,
                       const std::vector<LedMaskEntry>& ledMasks);
    void SendCommand(std::uint32_t word);
    void SetOutput(ExternalControl::Port& port, unsigned index, std::uint32_t value);
    void ShowFailure(const std::string& text);

    const RunSettings& m_settings;
    TerminationSignals& m_signals;
    ScreenPage& m_page;
    LiveState& m_live;
    TouchBoardReports& m_reports;
    GpioLevels& m_gpioLevels;
    BoardInputs& m_inputs;
    BoardOutputs& m_outputs;

    BoardSetup m_setup;
    LiveValues m_shown;  ///< the frame's copy of the live values; its memory serves all frames
    Phase m_phase = Phase::PREPARATION;
};
