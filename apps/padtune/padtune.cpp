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

/// What does not come up here shows when DirectFB is started on it, and is reported there.
void InitialisePlatformLayer() {
    DFB_Platform_P_Settings settings;
    DFB_Platform_P_GetDefaultSettings(&settings);
    DFB_Platform_P_Init(&settings, nullptr);
}

/// Loads the file type database once and lets it go; nothing here asks it anything.
void TouchMagicDatabase() {
    if (const magic_t magic = magic_open(MAGIC_SYMLINK | MAGIC_DEVICES)) {
        magic_load(magic, nullptr);
        magic_close(magic);
    }
}

/// The hot-plug monitor brings ports back after the board was unplugged. A player without udev runs without
/// it.
void StartHotplugMonitor(std::optional<KestrelObjectGlobals>& objectGlobals) {
    try {
        objectGlobals.emplace();
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "No hot-plug monitor: %s\n", failure.what());
    }
}

}  // namespace

int main(int argc, char** argv) {
    // The declarations stand in the reverse order of shutting down, which is the order of their destruction
    // on every way out; what is optional starts later than it is declared. The signals come before any
    // thread, and one that was taken ends the process.
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
