#include "lib/platform/assertion.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "lib/platform/trace_event.h"

namespace {

/// The kernel refuses a record of /dev/kmsg that is longer than its log line.
constexpr std::size_t MAX_RECORD = 960;

/// Where reports go: the kernel log, or standard output when it cannot be opened.
class ReportSink {
public:
    ReportSink() : m_kernelLog(open("/dev/kmsg", O_WRONLY | O_CLOEXEC)) {}
    ~ReportSink() {
        if (IsKernelLog()) {
            close(m_kernelLog);
        }
    }
    ReportSink(const ReportSink&) = delete;
    ReportSink& operator=(const ReportSink&) = delete;

    bool IsKernelLog() const { return m_kernelLog >= 0; }

    /// Writes one piece of text with one write: one record of the kernel log. Standard output is written
    /// directly too, so that nothing is left in a buffer when the process aborts.
    [[gnu::format(printf, 2, 3)]] void Write(const char* format, ...) const {
        va_list arguments;
        va_start(arguments, format);
        WriteList(format, arguments);
        va_end(arguments);
    }

    [[gnu::format(printf, 2, 0)]] void WriteList(const char* format, va_list arguments) const {
        if (!IsKernelLog()) {
            vdprintf(STDOUT_FILENO, format, arguments);
            return;
        }
        char record[MAX_RECORD];
        const int length = vsnprintf(record, sizeof record, format, arguments);
        if (length < 0) {
            return;
        }
        const std::size_t size = std::min(static_cast<std::size_t>(length), sizeof record - 1);
        if (static_cast<std::size_t>(length) > size) {
            record[size - 1] = '\n';
        }
        if (write(m_kernelLog, record, size) < 0) {
            // A console is better than nothing.
            dprintf(STDOUT_FILENO, "%s", record);
        }
    }

private:
    int m_kernelLog;
};

/// Writes to standard output what belongs there whether or not there is a kernel log. Not through stdio:
/// another thread may hold its lock.
[[gnu::format(printf, 1, 2)]] void PrintConsole(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vdprintf(STDOUT_FILENO, format, arguments);
    va_end(arguments);
}

void MarkFailure(unsigned line) {
    strata::EmitTraceEvent("ASRT", static_cast<int>(line));
}

}  // namespace

bool PlatformValidPointer(const volatile void* pointer, std::uint32_t alignment) {
    constexpr std::uintptr_t LAST_INVALID_ADDRESS = 4095;
    const auto address = reinterpret_cast<std::uintptr_t>(pointer);
    if (address > LAST_INVALID_ADDRESS && (address & (alignment - 1)) == 0) {
        return true;
    }
    const ReportSink sink;
    sink.Write(
        sink.IsKernelLog() ? "<2>Pointer validation failed for %p\n" : "Pointer validation failed for %p\r\n",
        const_cast<const void*>(pointer));
    return false;
}

namespace strata {

void ReportAssertion(const char* file, unsigned line, const char* function, const char* expression) noexcept {
    MarkFailure(line);
    const ReportSink sink;
    if (sink.IsKernelLog()) {
        sink.Write("<2>User space assert from process %d: %s\n", getpid(), expression);
        sink.Write("ASSERT Executing %s:%u:%s\n", file, line, function);
        return;
    }
    sink.Write("\r\nASSERT FAILED: %s", expression);
    sink.Write("\r\n%s:%u:%s\r\n", file, line, function);
    sink.Write("\r\n");
}

void ReportAssertionWithMessage(const char* file, unsigned line, const char* function, const char* expression,
                                const char* format, ...) noexcept {
    const int errorNumber = errno;  // what "%m" in the message stands for
    MarkFailure(line);
    va_list arguments;
    va_start(arguments, format);
    const ReportSink sink;
    if (sink.IsKernelLog()) {
        sink.Write("<2>User space assert from %d: %s\n", getpid(), expression);
        errno = errorNumber;
        sink.WriteList(format, arguments);
        sink.Write("ASSERT Executing %s:%u:%s\n", file, line, function);
    } else {
        sink.Write("\r\nASSERT FAILED: %s\r\n", expression);
        errno = errorNumber;
        sink.WriteList(format, arguments);
        sink.Write("\r\n%s:%u:%s\r\n", file, line, function);
        sink.Write("\r\n");
    }
    va_end(arguments);
}

void FailAssertion(const char* file, unsigned line, const char* function, const char* expression) noexcept {
    ReportAssertion(file, line, function, expression);
    abort();
}

void PrintOperand(const char* text, int value) noexcept {
    PrintConsole("%s=%d (0x%x)\r\n", text, value, static_cast<unsigned>(value));
}
void PrintOperand(const char* text, unsigned value) noexcept {
    PrintConsole("%s=%u (0x%x)\r\n", text, value, value);
}
void PrintOperand(const char* text, long value) noexcept {
    PrintConsole("%s=%ld (0x%lx)\r\n", text, value, static_cast<unsigned long>(value));
}
void PrintOperand(const char* text, unsigned long value) noexcept {
    PrintConsole("%s=%lu (0x%lx)\r\n", text, value, value);
}
void PrintOperand(const char* text, long long value) noexcept {
    PrintConsole("%s=%lld (0x%llx)\r\n", text, value, static_cast<unsigned long long>(value));
}
void PrintOperand(const char* text, unsigned long long value) noexcept {
    PrintConsole("%s=%llu (0x%llx)\r\n", text, value, value);
}

}  // namespace strata

// The C library's assertion entry points, replaced so that assertions of library and header code take the
// same road. They are noexcept: an exception out of a report would end the process, as abort() does.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): it has reserved names for the parameters
extern "C" {

void __assert_fail(const char* expression, const char* file, unsigned line, const char* function) noexcept {
    PrintConsole("GLIBC assert\r\n");
    strata::FailAssertion(file, line, function ? function : "UNKNOWN", expression);
}

void __assert_perror_fail(int errorNumber, const char* file, unsigned line, const char* function) noexcept {
    strata::FailAssertion(file, line, function ? function : "UNKNOWN", std::strerror(errorNumber));
}

void __assert(const char* expression, const char* file, int line) noexcept {
    strata::FailAssertion(file, static_cast<unsigned>(line), "UNKNOWN", expression);
}

}  // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
