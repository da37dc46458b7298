#pragma once

// The command line of padreport, turned into one record.

#include <stdexcept>
#include <string>
#include <vector>

namespace padreport {

/// What the program is to do.
enum class Task {
    REPORT,
    COMPARE,
    SUMMARY,
    FOLLOW,
    HELP,
    VERSION,
};

/// What a report is written as.
enum class Format { TEXT, CSV, JSON, HTML };

/// What the user wants.
struct Request {
    Task task = Task::REPORT;      ///< what to do
    Format format = Format::TEXT;  ///< of the report
    std::string page;              ///< the file to write, for HTML
    unsigned signal = 3;           ///< index of the value that verdicts and thresholds are about, from 0
    std::vector<std::string>
        files;  ///< at least one for REPORT and SUMMARY, two for COMPARE, none for FOLLOW
};

/// The command line cannot be used: what() says what to type instead.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Parses the command line. Main thread only, for getopt_long keeps its place in global variables.
/// @throws UsageError
Request ParseCommandLine(int argc, char** argv);

/// What the program can do.
extern const char* const HELP_TEXT;

}  // namespace padreport
