// portprobe shows the external control ports of a player, and what happens on them, to engineers and tests:
// start-up, shut-down, exit statuses.

#include <cstdio>
#include <exception>
#include <optional>
#include <string>

#include "apps/portprobe/drive_commands.h"
#include "apps/portprobe/read_commands.h"
#include "apps/portprobe/record.h"
#include "apps/portprobe/request.h"
#include "apps/portprobe/trouble.h"
#include "apps/portprobe/watch.h"
#include "lib/platform/kestrel_object_globals.h"
#include "lib/platform/poll_thread.h"
#include "lib/platform/stop_signals.h"
#include "lib/player/hardware_config.h"

namespace {

enum ExitStatus { STATUS_DONE = 0, STATUS_TROUBLE = 1, STATUS_USAGE = 2 };

/// Without the hot-plug monitor a board that was unplugged does not come back to its port; everything else
/// works.
void StartHotplugMonitor(std::optional<KestrelObjectGlobals>& objectGlobals) {
    try {
        objectGlobals.emplace();
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "portprobe: hot-plug monitor: %s\n", failure.what());
    }
}

/// Runs a command that needs ports.
/// @param stopSignals  for the commands that run until they are stopped
/// @return the exit status
int RunOnPorts(const Request& request, const std::optional<StopSignals>& stopSignals) {
    switch (request.command) {
        case Command::HELP:
        case Command::VERSION:
            break;
        case Command::LIST:
            return List() ? STATUS_DONE : STATUS_TROUBLE;
        case Command::INFO:
            return Info() ? STATUS_DONE : STATUS_TROUBLE;
        case Command::WATCH:
            Watch(request, *stopSignals);
            break;
        case Command::RECORD:
            Record(request, *stopSignals);
            break;
        case Command::GET:
            Get(request);
            break;
        case Command::SET:
            Set(request);
            break;
        case Command::INPUT:
            MakeInputs(request);
            break;
        case Command::FUNCTION:
            SwitchFunctions(request);
            break;
        case Command::PARAMETER:
            SetParameters(request);
            break;
        case Command::PULSE:
            Pulse(request, *stopSignals);
            break;
    }
    return STATUS_DONE;
}

int Run(const Request& request) {
    if (request.command == Command::HELP) {
        PrintHelp();
        return STATUS_DONE;
    }
    if (request.command == Command::VERSION) {
        PrintVersion();
        return STATUS_DONE;
    }
    // Before any thread starts. The commands that end by themselves can be ended by the signals as usual.
    std::optional<StopSignals> stopSignals;
    if (request.RunsUntilStopped()) {
        stopSignals.emplace();
    }
    // In the reverse order of shutting down.
    const HardwareConfig hardwareConfig;
    std::optional<KestrelObjectGlobals> objectGlobals;
    StartHotplugMonitor(objectGlobals);
    const PollThread pollThread;
    return RunOnPorts(request, stopSignals);
}

}  // namespace

int main(int argc, char** argv) {
    std::string subject = "command line";
    try {
        const Request request = ParseCommandLine(argc, argv);
        subject = request.GetSubject();
        return Run(request);
    } catch (const UsageError& failure) {
        std::fprintf(stderr, "portprobe: %s\nTry 'portprobe --help'.\n", failure.what());
        return STATUS_USAGE;
    } catch (const Trouble& trouble) {
        std::fprintf(stderr, "portprobe: %s\n", trouble.what());
        return STATUS_TROUBLE;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "portprobe: %s: %s\n", subject.c_str(), failure.what());
        return STATUS_TROUBLE;
    }
}
