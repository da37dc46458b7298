#include "apps/portprobe/request.h"

#include <getopt.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <iterator>
#include <limits>
#include <map>
#include <optional>
#include <system_error>

#include "lib/platform/standard_output.h"
#include "lib/platform/string_operations.h"

namespace {

using Words = std::vector<std::string>;

constexpr unsigned NUMBER_MAX = std::numeric_limits<unsigned>::max();

// Limits of a pulse: beyond them a port would silently use other numbers.
constexpr unsigned PERIOD_MIN = 100;
constexpr unsigned STEPS_MIN = 2;
constexpr unsigned STEPS_MAX = 32;

/// In milliseconds it is still an int, which poll takes.
constexpr unsigned TIMEOUT_MAX = std::numeric_limits<int>::max() / 1000;

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

void SetCommand(Request& request, Command command, const char* word) {
    request.command = command;
    request.word = word;
}

// --- What follows a command: each parser tells whether the words can be that at all ---

bool ParseNothing(const Words& words, Request&) {
    return words.empty();
}

bool ParseNames(const Words& words, Request& request) {
    request.names = words;
    return !words.empty();
}

bool ParseName(const Words& words, Request& request) {
    return ParseNames(words, request) && words.size() == 1;
}

bool ParseNameAndPins(const Words& words, Request& request) {
    if (words.empty()) {
        return false;
    }
    request.names = {words[0]};
    for (std::size_t i = 1; i < words.size(); ++i) {
        request.pins.push_back(ParseNumber("PIN", words[i]));
    }
    return true;
}

bool ParseNameAndSomePins(const Words& words, Request& request) {
    return ParseNameAndPins(words, request) && !request.pins.empty();
}

struct Assignment {
    std::string pin;
    std::string value;
};
using Assignments = std::vector<Assignment>;

/// @param words  NAME, and PIN=VALUE each, or one PIN and one VALUE
/// @return nothing when they are something else
std::optional<Assignments> ParseNameAndAssignments(const Words& words, Request& request) {
    Assignments assignments;
    for (std::size_t i = 1; i < words.size(); ++i) {
        if (const std::size_t equals = words[i].find('='); equals != std::string::npos) {
            assignments.push_back({words[i].substr(0, equals), words[i].substr(equals + 1)});
        }
    }
    if (words.size() == 3 && assignments.empty()) {
        assignments.push_back({words[1], words[2]});
    } else if (words.size() < 2 || assignments.size() != words.size() - 1) {
        return std::nullopt;
    }
    request.names = {words[0]};
    return assignments;
}

bool ParseNameAndValues(const Words& words, Request& request) {
    const auto assignments = ParseNameAndAssignments(words, request);
    for (const auto& [pin, value] : assignments.value_or(Assignments())) {
        request.values.push_back({ParseNumber("PIN", pin), ParseNumber("VALUE", value)});
    }
    return assignments.has_value();
}

bool ParseNameAndFunctions(const Words& words, Request& request) {
    const auto assignments = ParseNameAndAssignments(words, request);
    for (const auto& [pin, function] : assignments.value_or(Assignments())) {
        request.functions.push_back({ParseNumber("PIN", pin), function});
    }
    return assignments.has_value();
}

struct CommandSyntax {
    const char* word;
    Command command;
    bool (*parse)(const Words& words, Request& request);
    const char* usage;
    const char* help;
};

constexpr CommandSyntax COMMANDS[] = {
    {"list", Command::LIST, ParseNothing, "list", "every port that can be opened"},
    {"info", Command::INFO, ParseNothing, "info", "every pin of every port"},
    {"get", Command::GET, ParseNameAndPins, "get NAME [PIN...]", "the port's pins, with direction and level"},
    {"watch", Command::WATCH, ParseNames, "watch NAME...", "print what the ports receive"},
    {"record", Command::RECORD, ParseName, "record NAME",
     "print the reports of the port's board, for a replay"},
    {"set", Command::SET, ParseNameAndValues, "set NAME PIN=VALUE...",
     "set outputs; a pin that can be one becomes one"},
    {"input", Command::INPUT, ParseNameAndSomePins, "input NAME PIN...", "make pins inputs again"},
    {"function", Command::FUNCTION, ParseNameAndFunctions, "function NAME PIN=FUNCTION...",
     "switch the player's pins to other functions"},
    {"parameter", Command::PARAMETER, ParseNameAndValues, "parameter NAME PIN=VALUE...",
     "set the driver's parameter of the player's pins"},
    {"pulse", Command::PULSE, ParseNameAndValues, "pulse NAME PIN=VALUE...",
     "let outputs be high for VALUE of every N steps"},
};

const CommandSyntax& FindCommand(const std::string& word) {
    for (const CommandSyntax& syntax : COMMANDS) {
        if (word == syntax.word) {
            return syntax;
        }
    }
    throw UsageError(word + ": unknown command");
}

// --- Options ---

void ParsePinList(const std::string& argument, Request& request) {
    for (std::size_t begin = 0; begin <= argument.size();) {
        const std::size_t end = std::min(argument.find(',', begin), argument.size());
        request.pins.push_back(ParseNumber("--pins", argument.substr(begin, end - begin)));
        begin = end + 1;
    }
}

void ParseEdges(const std::string& argument, Request& request) {
    static const std::map<std::string, Edges> NAMES = {
        {"both", Edges::BOTH}, {"rising", Edges::RISING}, {"falling", Edges::FALLING}};
    const auto found = NAMES.find(argument);
    if (found == NAMES.end()) {
        throw UsageError("--edges " + argument + ": use rising, falling or both");
    }
    request.edges = found->second;
}

constexpr int FIRST_LONG_OPTION = 0x100;  // beyond all characters

struct OptionSyntax {
    const char* word;
    char letter;      ///< 0 for none
    Command command;  ///< which the option goes with; for HELP and VERSION, which it stands for
    Command other;    ///< another one that the option goes with; the same where there is none
    int hasArgument;  ///< as getopt_long has it
    void (*parse)(const std::string& argument, Request& request);
    const char* usage;
    const char* help;

    bool GoesWith(Command wanted) const { return wanted == command || wanted == other; }
};

constexpr OptionSyntax OPTIONS[] = {
    {"numeric", 0, Command::GET, Command::GET, no_argument,
     [](const std::string&, Request& request) { request.isNumeric = true; }, "--numeric",
     "only levels or values, on one line"},
    {"pins", 0, Command::WATCH, Command::WATCH, required_argument, ParsePinList, "--pins=PIN,...",
     "only these pins"},
    {"edges", 0, Command::WATCH, Command::WATCH, required_argument, ParseEdges, "--edges=EDGES",
     "only rising or falling levels; else both"},
    {"count", 0, Command::WATCH, Command::RECORD, required_argument,
     [](const std::string& argument, Request& request) {
         request.count = ParseNumber("--count", argument, 1);
     },
     "--count=N", "end after so many changes or reports"},
    {"timeout", 0, Command::WATCH, Command::RECORD, required_argument,
     [](const std::string& argument, Request& request) {
         request.timeoutSeconds = ParseNumber("--timeout", argument, 0, TIMEOUT_MAX);
     },
     "--timeout=SECONDS", "end after this time"},
    {"period", 0, Command::PULSE, Command::PULSE, required_argument,
     [](const std::string& argument, Request& request) {
         request.periodMicroseconds = ParseNumber("--period", argument, PERIOD_MIN);
     },
     "--period=US", "a step each US microseconds (100 or more, else 1000)"},
    {"steps", 0, Command::PULSE, Command::PULSE, required_argument,
     [](const std::string& argument, Request& request) {
         request.steps = ParseNumber("--steps", argument, STEPS_MIN, STEPS_MAX);
     },
     "--steps=N", "steps of a cycle (2 to 32, else 10)"},
    {"help", 'h', Command::HELP, Command::HELP, no_argument,
     [](const std::string&, Request& request) { SetCommand(request, Command::HELP, "--help"); }, "-h, --help",
     "this text"},
    {"version", 'v', Command::VERSION, Command::VERSION, no_argument,
     [](const std::string&, Request& request) { SetCommand(request, Command::VERSION, "--version"); },
     "-v, --version", "the program's version"},
};

std::vector<option> MakeLongOptions() {
    std::vector<option> options;
    for (std::size_t i = 0; i < std::size(OPTIONS); ++i) {
        options.push_back(
            {OPTIONS[i].word, OPTIONS[i].hasArgument, nullptr, FIRST_LONG_OPTION + static_cast<int>(i)});
    }
    options.push_back({});
    return options;
}

std::string MakeLetters() {
    std::string letters = ":";  // a missing argument is told apart from an unknown option
    for (const OptionSyntax& syntax : OPTIONS) {
        if (syntax.letter != 0) {
            letters += syntax.letter;
        }
    }
    return letters;
}

/// @param code  what getopt_long returned; its own variables still tell what it was about
const OptionSyntax& FindOption(int code, char* const* argv) {
    for (std::size_t i = 0; i < std::size(OPTIONS); ++i) {
        if (code == FIRST_LONG_OPTION + static_cast<int>(i) || code == OPTIONS[i].letter) {
            return OPTIONS[i];
        }
    }
    const std::string word = argv[optind - 1];
    if (code == ':') {
        throw UsageError(word + ": needs an argument");
    }
    if (optopt >= FIRST_LONG_OPTION) {
        throw UsageError(word + ": takes no argument");
    }
    throw UsageError((optopt == 0 ? word : strprintf("-%c", optopt)) + ": unknown option");
}

bool StandsAlone(Command command) {
    return command == Command::HELP || command == Command::VERSION;
}

/// Parses the options, up to one that needs no command.
/// @return those parsed
std::vector<const OptionSyntax*> ParseOptions(int argc, char* const* argv, Request& request) {
    const std::vector<option> longOptions = MakeLongOptions();
    const std::string letters = MakeLetters();
    std::vector<const OptionSyntax*> options;
    opterr = 0;  // getopt_long prints no messages of its own
    while (!StandsAlone(request.command)) {
        const int code = getopt_long(argc, argv, letters.c_str(), longOptions.data(), nullptr);
        if (code < 0) {
            break;
        }
        const OptionSyntax& syntax = FindOption(code, argv);
        syntax.parse(optarg == nullptr ? "" : optarg, request);
        options.push_back(&syntax);
    }
    return options;
}

/// @return the commands that an option goes with, as "watch, record: "
std::string FindPrefix(const OptionSyntax& option) {
    std::string commands;
    for (const CommandSyntax& syntax : COMMANDS) {
        if (option.GoesWith(syntax.command)) {
            commands += (commands.empty() ? "" : ", ") + std::string(syntax.word);
        }
    }
    return commands.empty() ? commands : commands + ": ";
}

void PrintRow(const std::string& usage, const std::string& help) {
    constexpr int HELP_COLUMN = 25;
    if (usage.size() < HELP_COLUMN) {
        std::printf("    %-*s%s\n", HELP_COLUMN, usage.c_str(), help.c_str());
    } else {
        std::printf("    %s\n    %*s%s\n", usage.c_str(), HELP_COLUMN, "", help.c_str());
    }
}

}  // namespace

Request ParseCommandLine(int argc, char* const* argv) {
    Request request;
    const std::vector<const OptionSyntax*> options = ParseOptions(argc, argv, request);
    if (StandsAlone(request.command)) {
        return request;
    }
    const Words words(argv + std::min(optind, argc), argv + argc);
    if (words.empty()) {
        throw UsageError("command: missing");
    }
    const CommandSyntax& syntax = FindCommand(words[0]);
    SetCommand(request, syntax.command, syntax.word);
    for (const OptionSyntax* option : options) {
        if (!option->GoesWith(request.command)) {
            throw UsageError(strprintf("--%s: not for '%s'", option->word, syntax.word));
        }
    }
    if (!syntax.parse(Words(words.begin() + 1, words.end()), request)) {
        throw UsageError(strprintf("%s: use 'portprobe %s'", syntax.word, syntax.usage));
    }
    for (const PinValue& pulse : request.values) {
        if (request.command == Command::PULSE && pulse.value > request.steps) {
            throw UsageError(strprintf("VALUE %u: a cycle has %u steps", pulse.value, request.steps));
        }
    }
    return request;
}

void PrintHelp() {
    std::puts("Usage: portprobe COMMAND\n");
    for (const CommandSyntax& syntax : COMMANDS) {
        PrintRow(syntax.usage, syntax.help);
    }
    std::puts("");
    for (const OptionSyntax& syntax : OPTIONS) {
        PrintRow(syntax.usage, FindPrefix(syntax) + syntax.help);
    }
    std::puts(
        "\nNAME is a port's name, in upper or lower case. Numbers are decimal, or hexadecimal\n"
        "after 0x. The exit status is 1 for trouble with a device, 2 for a command line that\n"
        "cannot be used. SIGINT, SIGTERM or SIGHUP ends watch, record and pulse. A record is\n"
        "text, and has what the board sent, but not what was sent to it.");
    FlushStandardOutput();
}

void PrintVersion() {
    std::puts("portprobe " PADTUNE_VERSION);
    FlushStandardOutput();
}
