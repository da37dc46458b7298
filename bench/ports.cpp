// What the road to a board costs. Runs on a player with touch boards, as root; prints nanoseconds as JSON.
//
// usage: ports scan   how long the search for boards takes
//        ports open   how long the first port takes (with the search and the question for the boards'
//        models),
//                     how long the three others of the first board, and a command (p50, p99 of 200)

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "lib/hardware/external_control_hid_finder.h"
#include "lib/hardware/open_port.h"
#include "lib/platform/kestrel_object_globals.h"
#include "lib/platform/monotonic_time.h"
#include "lib/platform/poll_thread.h"

namespace {

constexpr int COMMANDS = 200;

template <class Action>
std::int64_t Time(Action action) {
    const std::int64_t start = strata::get_monotonic_nanoseconds();
    action();
    return strata::get_monotonic_nanoseconds() - start;
}

void Scan() {
    ExternalControl::Impl::Finder finder;
    const std::int64_t scan = Time([&] { finder.Scan(); });
    std::printf("{\"scan\": %lld}\n", static_cast<long long>(scan));
}

void Open() {
    const KestrelObjectGlobals globals;
    const PollThread thread;
    std::vector<std::shared_ptr<ExternalControl::Port>> ports;
    const auto open = [&](const char* name) {
        return Time([&] {
            ports.push_back(ExternalControl::OpenPort(std::string("TouchBoard-0-") + name,
                                                      [](unsigned, unsigned, unsigned) {}, {}));
        });
    };
    const std::int64_t first = open("DIAGNOSTICS");
    const std::int64_t others = open("GPIO") + open("LED-SETUP") + open("LED");
    std::vector<std::int64_t> commands;
    for (int i = 0; i < COMMANDS; ++i) {
        commands.push_back(Time([&] { ports.back()->SetOutput(0, i % 2 == 0 ? 1 : 2); }));
    }
    std::sort(commands.begin(), commands.end());
    std::printf("{\"first\": %lld, \"others\": %lld, \"command_p50\": %lld, \"command_p99\": %lld}\n",
                static_cast<long long>(first), static_cast<long long>(others),
                static_cast<long long>(commands[COMMANDS / 2]),
                static_cast<long long>(commands[COMMANDS * 99 / 100]));
}

}  // namespace

int main(int argc, char** argv) {
    const std::string what = argc == 2 ? argv[1] : "";
    if (what != "scan" && what != "open") {
        std::fprintf(stderr, "usage: ports scan|open\n");
        return 2;
    }
    try {
        what == "scan" ? Scan() : Open();
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "ports: %s\n", failure.what());
        return 1;
    }
    return 0;
}
