#include "apps/padreport/request.h"

#include <getopt.h>
#include <unistd.h>

#include <charconv>
#include <cstring>
#include <system_error>

#include "apps/padreport/log_input.h"
#include "apps/padreport/log_reader.h"

namespace padreport {

const char* const HELP_TEXT =
    "Usage: padreport [OPTION]... [LOG]...\n"
    "       padreport --compare [OPTION]... BEFORE AFTER\n"
    "       padreport --summary [OPTION]... LOG...\n"
    "       padtune ... 2>&1 | padreport --follow\n"
    "\n"
    "Reads what 'padtune --output-diagnostics x' printed on standard error, and says which\n"
    "buttons are safe and which thresholds would make them so. A LOG is a file, plain or\n"
    "packed with gzip; - or none is standard input.\n"
    "\n"
    "    --compare        what differs between two logs, and is more than noise\n"
    "    --summary        one line a log, the worst first\n"
    "    --follow         tables that are renewed while standard input goes on; Ctrl-C ends\n"
    "                     with the whole report\n"
    "    -s, --signal N   judge by value N (1 to 4) of the lines; 4 if not given\n"
    "    --csv            one row for each value of each button (not for --compare,\n"
    "                     --summary, --follow)\n"
    "    --json           everything, for programs (not for --follow)\n"
    "    --html FILE      a page for a browser, with the values over time, goes to FILE (for\n"
    "                     one LOG)\n"
    "    -h, --help       this text\n"
    "    --version        the version\n"
    "\n"
    "The exit status is 1 when there is no sample in any log, or the report cannot be\n"
    "written, and 2 for a command line that cannot be used.\n";

namespace {

// Codes of the options without a letter; those with one have the letter.
enum OptionCode {
    OPTION_COMPARE = 256,
    OPTION_SUMMARY,
    OPTION_FOLLOW,
    OPTION_CSV,
    OPTION_JSON,
    OPTION_HTML,
    OPTION_VERSION
};

// clang-format off
constexpr option OPTIONS[] = {
    {"compare", no_argument, nullptr, OPTION_COMPARE},
    {"summary", no_argument, nullptr, OPTION_SUMMARY},
    {"follow", no_argument, nullptr, OPTION_FOLLOW},
    {"signal", required_argument, nullptr, 's'},
    {"csv", no_argument, nullptr, OPTION_CSV},
    {"json", no_argument, nullptr, OPTION_JSON},
    {"html", required_argument, nullptr, OPTION_HTML},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, OPTION_VERSION},
    {nullptr, 0, nullptr, 0},
};
// clang-format on

// The colon in front tells a missing argument from an unknown option, and keeps getopt_long from printing.
constexpr const char* SHORT_OPTIONS = ":s:h";

unsigned ParseSignal(const char* text) {
    const char* const end = text + std::strlen(text);
    unsigned number = 0;
    const auto [next, error] = std::from_chars(text, end, number);
    if (error != std::errc() || next != end || number < 1 || number > VALUE_COUNT) {
        throw UsageError(std::string("--signal ") + text + ": type a number from 1 to 4");
    }
    return number - 1;
}

void SetTask(Request& request, Task task) {
    if (request.task != Task::REPORT && request.task != task) {
        throw UsageError("type only one of --compare, --summary, --follow");
    }
    request.task = task;
}

void SetFormat(Request& request, Format format) {
    if (request.format != Format::TEXT && request.format != format) {
        throw UsageError("type only one of --csv, --html, --json");
    }
    request.format = format;
}

void CheckFormat(const Request& request) {
    if (request.format == Format::CSV && request.task != Task::REPORT) {
        throw UsageError("--csv: type it without --compare, --summary, --follow");
    }
    if (request.format == Format::HTML && (request.task != Task::REPORT || request.files.size() > 1)) {
        throw UsageError("--html: type it with one log, as in 'padreport --html FILE LOG'");
    }
    if (request.format == Format::JSON && request.task == Task::FOLLOW) {
        throw UsageError("--json: type it without --follow");
    }
}

void CheckFiles(Request& request) {
    switch (request.task) {
        case Task::COMPARE:
            if (request.files.size() != 2) {
                throw UsageError("--compare: type two logs, as in 'padreport --compare BEFORE AFTER'");
            }
            break;
        case Task::FOLLOW:
            if (!request.files.empty()) {
                throw UsageError("--follow: type no log, but 'padtune ... 2>&1 | padreport --follow'");
            }
            break;
        case Task::SUMMARY:
            if (request.files.empty()) {
                throw UsageError("--summary: type at least one log, as in 'padreport --summary LOG...'");
            }
            break;
        case Task::REPORT:
            if (request.files.empty()) {
                request.files.emplace_back(STANDARD_INPUT);
            }
            break;
        case Task::HELP:
        case Task::VERSION:
            return;
    }
}

/// Someone who types just the name of the program would otherwise wait for a report, and the program for a
/// log.
void CheckStandardInput(const Request& request) {
    const bool readsIt =
        request.task == Task::FOLLOW || (request.files.size() == 1 && request.files[0] == STANDARD_INPUT);
    if (readsIt && isatty(STDIN_FILENO) != 0) {
        throw UsageError("no log: type 'padreport LOG', or 'padtune ... 2>&1 | padreport --follow'");
    }
}

/// @return the option that getopt_long has just met and does not know; several letters can share a word
std::string GetUnknownOption(char** argv) {
    constexpr int LETTER_MAX = 0x7F;
    return optopt > 0 && optopt <= LETTER_MAX ? std::string("-") + static_cast<char>(optopt)
                                              : argv[optind - 1];
}

}  // namespace

Request ParseCommandLine(int argc, char** argv) {
    Request request;
    int code = 0;
    while ((code = getopt_long(argc, argv, SHORT_OPTIONS, OPTIONS, nullptr)) != -1) {
        switch (code) {
            case OPTION_COMPARE:
                SetTask(request, Task::COMPARE);
                break;
            case OPTION_SUMMARY:
                SetTask(request, Task::SUMMARY);
                break;
            case OPTION_FOLLOW:
                SetTask(request, Task::FOLLOW);
                break;
            case OPTION_CSV:
                SetFormat(request, Format::CSV);
                break;
            case OPTION_JSON:
                SetFormat(request, Format::JSON);
                break;
            case OPTION_HTML:
                SetFormat(request, Format::HTML);
                request.page = optarg;
                break;
            case 's':
                request.signal = ParseSignal(optarg);
                break;
            case 'h':
                request.task = Task::HELP;
                return request;
            case OPTION_VERSION:
                request.task = Task::VERSION;
                return request;
            case ':':
                throw UsageError(std::string(argv[optind - 1]) + ": type " +
                                 (optopt == OPTION_HTML ? "a file" : "a number") + " after it");
            default:
                throw UsageError(GetUnknownOption(argv) +
                                 ": unknown; type 'padreport --help' for what there is");
        }
    }
    request.files.assign(argv + optind, argv + argc);
    CheckFormat(request);
    CheckFiles(request);
    CheckStandardInput(request);
    return request;
}

}  // namespace padreport
