#include "apps/portprobe/request.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <limits>
#include <string_view>
#include <system_error>
#include <vector>

#include "apps/portprobe/standard_output.h"
#include "lib/platform/string_operations.h"

namespace {

using Arguments = std::vector<std::string>;

constexpr const char* HELP_TEXT =
    "Usage: portprobe COMMAND\n"
    "\n"
    "    list                   every port that can be opened\n"
    "    watch NAME             print what the port receives, until SIGINT or SIGTERM\n"
    "    get NAME               the port's pins, with direction and level\n"
    "    set NAME PIN VALUE     set an output; a pin that can be one becomes one\n"
    "    pulse NAME PIN VALUE [--period US] [--steps N]\n"
    "                           pulse an output until SIGINT or SIGTERM: high for VALUE\n"
    "                           of every N steps (2 to 32, else 10), one each US\n"
    "                           microseconds (100 or more, else 1000)\n"
    "    --help                 this text\n"
    "\n"
    "NAME is a port's name, in upper or lower case. Numbers are decimal, or hexadecimal\n"
    "after 0x. The exit status is 1 for trouble with a device, 2 for a command line that\n"
    "cannot be used.\n";

constexpr unsigned NUMBER_MAX = std::numeric_limits<unsigned>::max();

// A port would silently use other numbers than those beyond these.
constexpr unsigned PERIOD_MIN = 100;
constexpr unsigned STEPS_MIN = 2;
constexpr unsigned STEPS_MAX = 32;

struct Syntax {
    const char* word;
    Command command;
    std::size_t argumentCount;
    const char* usage;
    bool takesOptions;
};

constexpr Syntax COMMANDS[] = {
    {"list", Command::LIST, 0, "list", false},
    {"watch", Command::WATCH, 1, "watch NAME", false},
    {"get", Command::GET, 1, "get NAME", false},
    {"set", Command::SET, 3, "set NAME PIN VALUE", false},
    {"pulse", Command::PULSE, 3, "pulse NAME PIN VALUE [--period US] [--steps N]", true},
};

unsigned ParseNumber(const char* what, const std::string& text, unsigned min = 0, unsigned max = NUMBER_MAX) {
    const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
    const char* const end = text.data() + text.size();
    unsigned number = 0;
    const auto [next, error] =
        std::from_chars(text.data() + (isHexadecimal ? 2 : 0), end, number, isHexadecimal ? 16 : 10);
    if (error != std::errc() || next != end || number < min || number > max) {
        throw UsageError(strprintf("%s %s: not a number from %u to %u", what, text.c_str(), min, max));
    }
    return number;
}

void ParseOption(const std::string& name, const std::string& text, Request& request) {
    if (name == "--period") {
        request.periodMicroseconds = ParseNumber("--period", text, PERIOD_MIN);
    } else if (name == "--steps") {
        request.steps = ParseNumber("--steps", text, STEPS_MIN, STEPS_MAX);
    } else {
        throw UsageError(name + ": unknown option");
    }
}

const Syntax& FindSyntax(const std::string& word) {
    for (const Syntax& syntax : COMMANDS) {
        if (word == syntax.word) {
            return syntax;
        }
    }
    throw UsageError(word + ": unknown command");
}

}  // namespace

std::optional<Request> ParseCommandLine(int argc, const char* const* argv) {
    const Arguments words(argv + std::min(argc, 1), argv + argc);
    if (std::find(words.begin(), words.end(), "--help") != words.end()) {
        return std::nullopt;
    }
    if (words.empty()) {
        throw UsageError("command: missing");
    }

    const Syntax& syntax = FindSyntax(words[0]);
    const Arguments arguments(words.begin() + 1, words.end());
    const bool hasExcess = arguments.size() > syntax.argumentCount && !syntax.takesOptions;
    // Options come in pairs.
    const bool hasHalfOption = (arguments.size() - syntax.argumentCount) % 2 != 0;
    if (arguments.size() < syntax.argumentCount || hasExcess || hasHalfOption) {
        throw UsageError(strprintf("%s: use 'portprobe %s'", syntax.word, syntax.usage));
    }

    Request request;
    request.command = syntax.command;
    if (syntax.argumentCount >= 1) {
        request.name = arguments[0];
    }
    if (syntax.argumentCount == 3) {
        request.pin = ParseNumber("PIN", arguments[1]);
        request.value = ParseNumber("VALUE", arguments[2]);
    }
    for (std::size_t i = syntax.argumentCount; i < arguments.size(); i += 2) {
        ParseOption(arguments[i], arguments[i + 1], request);
    }
    if (request.command == Command::PULSE && request.value > request.steps) {
        throw UsageError(strprintf("VALUE %u: a cycle has %u steps", request.value, request.steps));
    }
    return request;
}

void PrintHelp() {
    std::fputs(HELP_TEXT, stdout);
    FlushStandardOutput();
}
