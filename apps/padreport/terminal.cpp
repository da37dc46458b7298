#include "apps/padreport/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace padreport {

namespace {

/// @return the text of a variable of the environment; empty when it is not set
std::string_view GetVariable(const char* name) {
    const char* const text = std::getenv(name);
    return text != nullptr ? text : "";
}

}  // namespace

Terminal DetectTerminal() {
    Terminal terminal;
    if (isatty(STDOUT_FILENO) == 0) {
        return terminal;
    }
    terminal.isTerminal = true;
    terminal.hasColours = GetVariable("NO_COLOR").empty() && GetVariable("TERM") != "dumb";
    winsize size{};
    // A serial line does not know its size: the defaults stay.
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 && size.ws_row > 0) {
        terminal.width = size.ws_col;
        terminal.height = size.ws_row;
    }
    return terminal;
}

}  // namespace padreport
