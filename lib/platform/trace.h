#pragma once

// Trace sinks, through which a module writes diagnostic text.

#include <cerrno>
#include <cstddef>
#include <string>

#include "lib/platform/message.h"

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
    /// @param label the line; its line feed may be missing
    /// @param data what is dumped
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
