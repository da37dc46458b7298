// portprobe shows the external control ports of a player, and what happens on them, to engineers and tests:
// start-up, shut-down, exit statuses.

#include <cstdio>
#include <exception>
#include <optional>
#include <string>

#include "apps/portprobe/commands.h"
#include "apps/portprobe/known_ports.h"
#include "apps/portprobe/request.h"
#include "apps/portprobe/stop_signals.h"
#include "apps/portprobe/watch.h"
#include "lib/hardware/hardware_config.h"
#include "lib/platform/kestrel_object_globals.h"
#include "lib/platform/poll_thread.h"

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

int Run(const Request& request) {
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

    switch (request.command) {
        case Command::LIST:
            return List() ? STATUS_DONE : STATUS_TROUBLE;
        case Command::WATCH:
            Watch(FindPort(request.name), *stopSignals);
            break;
        case Command::GET:
            Get(FindPort(request.name));
            break;
        case Command::SET:
            Set(FindPort(request.name), request);
            break;
        case Command::PULSE:
            Pulse(FindPort(request.name), request, *stopSignals);
            break;
    }
    return STATUS_DONE;
}

}  // namespace

int main(int argc, char** argv) {
    std::string subject = "command line";
    try {
        const std::optional<Request> request = ParseCommandLine(argc, argv);
        if (!request) {
            subject = "--help";
            PrintHelp();
            return STATUS_DONE;
        }
        subject = request->command == Command::LIST ? "list" : request->name;
        return Run(*request);
    } catch (const UsageError& failure) {
        std::fprintf(stderr, "portprobe: %s\nTry 'portprobe --help'.\n", failure.what());
        return STATUS_USAGE;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "portprobe: %s: %s\n", subject.c_str(), failure.what());
        return STATUS_TROUBLE;
    }
}
