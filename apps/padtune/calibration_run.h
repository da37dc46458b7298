#pragma once

// One calibration run: opens the board's ports, sends it the selections, configuration and masks of the
// command line, waits for its setup, redraws the page from its live reports until the time is over, and
// resets it.

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/padtune/command_line.h"
#include "apps/padtune/live_state.h"
#include "apps/padtune/screen_page.h"
#include "apps/padtune/termination_signals.h"
#include "apps/padtune/touch_board_reports.h"
#include "lib/hardware/external_control.h"

/// The ports that deliver values. They are apart from the others because main releases them later.
struct BoardInputs {
    std::shared_ptr<ExternalControl::Port> diagnostics;  ///< gives live values and setups; null: not opened
    std::shared_ptr<ExternalControl::Port> gpio;  ///< gives the levels of the GPIO pins; null: not opened
};

/// The ports that take commands.
struct BoardOutputs {
    /// Takes commands, and masks of disabled buttons and LEDs; null: not opened.
    std::shared_ptr<ExternalControl::Port> ledSetup;
    std::shared_ptr<ExternalControl::Port> led;  ///< takes the mask of each LED; null: not opened
};

/// Main thread only. The objects that a run is given must outlive it. They belong to main, which releases
/// them in a certain order; therefore the run stores the ports that it opens in them.
class CalibrationRun {
public:
    /// Opens nothing yet.
    CalibrationRun(const RunSettings& settings, TerminationSignals& signals, ScreenPage& page,
                   LiveState& live, TouchBoardReports& reports, GpioLevels& gpioLevels, BoardInputs& inputs,
                   BoardOutputs& outputs);

    /// Runs from the opening of the ports to the reset of the board. A board without a port, or one that does
    /// not do what it is asked before the timed loop, is told about on the page; what fails from the timed
    /// loop on is printed to standard error; without any board the title page stays as it is. The run ends in
    /// order all the same. So it does after a termination signal: within the timed loop as if the time were
    /// over, before it at once. A request that the board does not answer is waited for first.
    /// @throws std::system_error when the mutex of the live state cannot be locked
    void Run();

private:
    /// Thrown when a termination signal came, to leave the preparation or the timed loop.
    struct Terminated {};

    /// Writes an output of a port; SetOutput throws what the port throws, SetOutputOrReport prints it.
    using OutputFunction = void (*)(ExternalControl::Port& port, unsigned index, std::uint32_t value);

    void LeaveWhenTerminated();
    void Sleep(std::chrono::milliseconds duration);
    void Pause();

    std::shared_ptr<ExternalControl::Port> OpenBoardPort(const char* name);
    std::optional<BoardSetup> PrepareBoard();
    bool OpenInputs();
    void ConfigureBoard();
    void SelectButtons();
    void OpenLed();
    std::optional<BoardSetup> RequestSetup();
    void DrawBoard(const BoardSetup& setup);
    void RunTimedLoop();
    void DrawLiveFrame(std::uint64_t elapsed);
    void ResetBoard();

    void SendSetup(unsigned output, std::uint32_t value);
    void SendCommand(std::uint32_t word);
    void SetButtonMask(std::int64_t second, OutputFunction setOutput);
    void ShowFailure(const std::string& text);

    const RunSettings& m_settings;
    TerminationSignals& m_signals;
    ScreenPage& m_page;
    LiveState& m_live;
    TouchBoardReports& m_reports;
    GpioLevels& m_gpioLevels;
    BoardInputs& m_inputs;
    BoardOutputs& m_outputs;

    LiveValues m_shown;  ///< the frame's copy of the live values; a member to spare allocations
};
