#include "lib/platform/message.h"

#include <cstdio>
#include <cstring>
#include <exception>

namespace {

/// Puts the text of an error in place of "%m", which fmt does not know.
std::string ExpandErrorText(const char* format, int errorNumber) {
    std::string expanded;
    for (const char* c = format; *c != '\0'; ++c) {
        if (c[0] != '%' || c[1] == '\0') {
            expanded += *c;
        } else if (c[1] == 'm') {
            for (const char* text = std::strerror(errorNumber); *text != '\0'; ++text) {
                expanded += *text == '%' ? "%%" : std::string(1, *text);
            }
            ++c;
        } else {
            // Both characters at once, so that the second '%' of "%%" begins nothing.
            expanded.append(c, 2);
            ++c;
        }
    }
    return expanded;
}

}  // namespace

namespace strata {

std::string RenderMessageArguments(int errorNumber, const char* format, fmt::printf_args arguments) noexcept {
    try {
        try {
            return fmt::vsprintf(fmt::string_view(ExpandErrorText(format, errorNumber)), arguments);
        } catch (const std::exception& failure) {
            return fmt::sprintf("Message '%s' threw '%s'\n", format, failure.what());
        }
    } catch (const std::exception&) {
        return "Message lost\n";  // short enough to need no memory
    }
}

void WriteToStandardError(const std::string& text) noexcept {
    std::fputs(text.c_str(), stderr);
}

}  // namespace strata
