#pragma once

// The library's own messages: printf-style formats, checked at compile time and rendered by fmt; "%m" is the
// text of errno. Rendering never throws: a message that cannot be rendered says so instead.

#include <fmt/printf.h>

#include <cerrno>
#include <string>

namespace strata {

/// Never called; gives the compiler a printf signature to check messages against.
[[gnu::format(printf, 1, 2)]] int CheckPrintfFormat(const char* format, ...);

/// Renders a message; "Message '%s' threw '%s'\n" with the raw format when that fails, and less when there is
/// no memory.
/// @param errorNumber the error whose text "%m" stands for
/// @param format for printf
/// @param arguments of the format
std::string RenderMessageArguments(int errorNumber, const char* format, fmt::printf_args arguments) noexcept;

/// Writes text to standard error in one piece.
void WriteToStandardError(const std::string& text) noexcept;

/// The same, with the arguments one by one.
template <class... Arguments>
std::string RenderMessage(int errorNumber, const char* format, const Arguments&... arguments) {
    return RenderMessageArguments(errorNumber, format,
                                  fmt::make_format_args<fmt::printf_context>(arguments...));
}

}  // namespace strata

/// Writes a diagnostic message to standard error; the text carries its own newline. Any thread; never throws.
#define PLATFORM_MESSAGE(...)                                           \
    (static_cast<void>(sizeof(strata::CheckPrintfFormat(__VA_ARGS__))), \
     strata::WriteToStandardError(strata::RenderMessage(errno, __VA_ARGS__)))
