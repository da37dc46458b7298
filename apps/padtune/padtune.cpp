// padtune tunes and diagnoses the touch button board of a player: the order of starting up and shutting down.

#include <magic.h>

#include <cstdio>
#include <exception>
#include <optional>

#include "apps/padtune/calibration_run.h"
#include "apps/padtune/command_line.h"
#include "apps/padtune/live_state.h"
#include "apps/padtune/screen_page.h"
#include "apps/padtune/termination_signals.h"
#include "apps/padtune/touch_board_reports.h"
#include "lib/kestrel_dfb/directfb_helpers.h"
#include "lib/kestrel_dfb/platform_layer.h"
#include "lib/platform/kestrel_object_globals.h"
#include "lib/platform/poll_thread.h"
#include "lib/player/hardware_config.h"

namespace {

/// Starts the player's layer below DirectFB. Its failures are not checked here: starting DirectFB fails then,
/// and reports it.
void InitialisePlatformLayer() {
    DFB_Platform_P_Settings settings;
    DFB_Platform_P_GetDefaultSettings(&settings);
    DFB_Platform_P_Init(&settings, nullptr);
}

/// Loads libmagic's database of file types and closes it at once. Nothing here uses it, so failures do not
/// matter.
void TouchMagicDatabase() {
    if (const magic_t magic = magic_open(MAGIC_SYMLINK | MAGIC_DEVICES)) {
        magic_load(magic, nullptr);
        magic_close(magic);
    }
}

/// Starts the hot-plug monitor, which brings ports back after the board was unplugged. A player without udev
/// does without it.
void StartHotplugMonitor(std::optional<KestrelObjectGlobals>& objectGlobals) {
    try {
        objectGlobals.emplace();
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "No hot-plug monitor: %s\n", failure.what());
    }
}

}  // namespace

int main(int argc, char** argv) {
    // The objects are declared in the reverse order of shutting down: on every return they are destroyed from
    // the last to the first. The two optional ones are created later than they are declared, for that order's
    // sake. The signals are first: they must be blocked before any thread starts, and the destructor of their
    // object ends the process by the signal that was taken.
    TerminationSignals signals;
    HardwareConfig hardwareConfig;

    InitialisePlatformLayer();
    TouchMagicDatabase();
    const RunSettings settings = ParseCommandLine(argc, argv);

    LiveState live;
    TouchBoardReports reports(live);
    GpioLevels gpioLevels(live);
    DFBPointer<IDirectFBScreen> dfbScreen;
    std::optional<KestrelObjectGlobals> objectGlobals;
    std::optional<PollThread> pollThread;
    BoardInputs inputs;
    ScreenPage page(dfbScreen);
    BoardOutputs outputs;

    page.BringUp(argc, argv);
    page.DrawTitle();
    pollThread.emplace();
    StartHotplugMonitor(objectGlobals);

    CalibrationRun(settings, signals, page, live, reports, gpioLevels, inputs, outputs).Run();
    return 0;
}
