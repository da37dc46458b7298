// Prints what an external control port receives, until SIGINT, SIGTERM or SIGHUP.
//
// usage: watch_port PORT, such as TouchBoard-0-GPIO; `portprobe list` names the ports that there are

#include <cstdio>
#include <exception>

#include "lib/hardware/open_port.h"
#include "lib/platform/kestrel_object_globals.h"
#include "lib/platform/poll_thread.h"
#include "lib/platform/stop_signals.h"
#include "lib/player/hardware_config.h"

namespace {

/// Runs on the poll thread, which serves no other port meanwhile: keep it as short as this.
void PrintInput(unsigned pin, unsigned value, unsigned width) {
    std::printf("%s %u is %u\n", width == 1 ? "pin" : "value", pin, value);
    std::fflush(stdout);
}

void Watch(const char* name) {
    // Before any thread starts, for all threads take over which signals are blocked.
    const StopSignals stopSignals;
    // What ports stand on: made before the first is opened, destroyed after the last is released.
    const HardwareConfig hardwareConfig;
    const KestrelObjectGlobals objectGlobals;
    const PollThread pollThread;

    constexpr int NOTHING_ELSE = -1;
    // Boards that do not answer are waited for: until the port is open, a signal ends the process at once.
    const auto port = stopSignals.DoInterruptibly([name] {
        return ExternalControl::OpenPort(name, PrintInput, [] { std::puts("the board is lost"); });
    });
    std::fprintf(stderr, "%s: %u pins\n", name, port->GetPinCount());
    stopSignals.WaitForThemOr(NOTHING_ELSE);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: watch_port PORT\n");
        return 2;
    }
    try {
        Watch(argv[1]);
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "watch_port: %s: %s\n", argv[1], failure.what());
        return 1;
    }
}
