#pragma once

// Diagnostic output: the writer of the library's own messages, and trace sinks, through which a module writes
// diagnostic text. Messages are printf-style formats, checked at compile time and rendered by fmt; "%m" is
// the text of errno. Rendering never throws: a message that cannot be rendered says so instead.

#include <fmt/printf.h>

#include <cerrno>
#include <cstddef>
#include <string>

namespace strata {

/// Never called; gives the compiler a printf signature to check messages against.
[[gnu::format(printf, 1, 2)]] int CheckPrintfFormat(const char* format, ...);

/// Renders a message; "Message '%s' threw '%s'\n" with the raw format when that fails, and less when there is
/// no memory.
/// @param errorNumber the error whose text "%m" stands for
std::string RenderMessageArguments(int errorNumber, const char* format, fmt::printf_args arguments) noexcept;

/// Writes text to standard error in one piece.
void WriteToStandardError(const std::string& text) noexcept;

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

/// Formats a message and hands it to a trace sink.
#define PLATFORM_TRACE(sink, ...) \
    (static_cast<void>(sizeof(strata::CheckPrintfFormat(__VA_ARGS__))), (sink).Format(__VA_ARGS__))

/// A trace sink: formats diagnostic text and emits it piece by piece. Any thread, as far as its Emit allows.
class BaseTrace {
public:
    virtual ~BaseTrace() = default;

    /// Writes one already formatted piece of text.
    virtual void Emit(const std::string& text) = 0;

    /// Returns when everything emitted has left the program.
    virtual void Flush() = 0;

    /// Formats in the manner of printf and emits; PLATFORM_TRACE checks the format at compile time.
    template <class... Arguments>
    void Format(const char* format, const Arguments&... arguments) {
        Emit(strata::RenderMessage(errno, format, arguments...));
    }

    /// Emits the label as a line, then 16 bytes a line in hexadecimal and as characters.
    /// @param length number of bytes; for 0 only the label is emitted
    void HexDump(const std::string& label, const void* data, std::size_t length);
};

/// The sink that writes to standard error. Errors of writing are ignored: there is no better place to say so.
class StderrTrace : public BaseTrace {
public:
    ~StderrTrace() override;

    void Emit(const std::string& text) override;

    /// Also waits until a serial line has sent the text.
    void Flush() override;
};
