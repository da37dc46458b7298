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

/// The form of a report for the kernel log: one record for each write. Each piece returns whether it was
/// written.
class KernelLog {
public:
    KernelLog() : m_fd(open("/dev/kmsg", O_WRONLY | O_CLOEXEC)) {}
    ~KernelLog() {
        if (IsOpen()) {
            close(m_fd);
        }
    }
    KernelLog(const KernelLog&) = delete;
    KernelLog& operator=(const KernelLog&) = delete;

    bool IsOpen() const { return m_fd >= 0; }

    bool Expression(const char* expression) const {
        return Write("<2>User space assert from process %d: %s\n", getpid(), expression);
    }
    bool ExpressionBeforeMessage(const char* expression) const {
        return Write("<2>User space assert from %d: %s\n", getpid(), expression);
    }
    [[gnu::format(printf, 2, 0)]] bool Message(const char* format, va_list arguments) const {
        char record[MAX_RECORD];
        const int length = vsnprintf(record, sizeof record, format, arguments);
        if (length < 0) {
            return true;  // a format that cannot be rendered is no fault of the log
        }
        const std::size_t size = std::min(static_cast<std::size_t>(length), sizeof record - 1);
        if (static_cast<std::size_t>(length) > size) {
            record[size - 1] = '\n';
        }
        return write(m_fd, record, size) >= 0;
    }
    bool Place(const char* file, unsigned line, const char* function) const {
        return Write("ASSERT Executing %s:%u:%s\n", file, line, function);
    }
    bool InvalidPointer(const volatile void* pointer) const {
        return Write("<2>Pointer validation failed for %p\n", const_cast<const void*>(pointer));
    }

private:
    /// The kernel refuses a record that is longer than its log line.
    static constexpr std::size_t MAX_RECORD = 960;

    [[gnu::format(printf, 2, 3)]] bool Write(const char* format, ...) const {
        va_list arguments;
        va_start(arguments, format);
        const bool written = Message(format, arguments);
        va_end(arguments);
        return written;
    }

    int m_fd;
};

/// The form for standard output, which may be a serial console. Written directly: what stands in a buffer of
/// stdio is lost when the process aborts, and another thread may hold stdio's lock. There is nobody left to
/// tell of an error.
class Console {
public:
    bool Expression(const char* expression) const { return Write("\r\nASSERT FAILED: %s", expression); }
    bool ExpressionBeforeMessage(const char* expression) const {
        return Write("\r\nASSERT FAILED: %s\r\n", expression);
    }
    [[gnu::format(printf, 2, 0)]] bool Message(const char* format, va_list arguments) const {
        vdprintf(STDOUT_FILENO, format, arguments);
        return true;
    }
    bool Place(const char* file, unsigned line, const char* function) const {
        return Write("\r\n%s:%u:%s\r\n", file, line, function) && Write("\r\n");
    }
    bool InvalidPointer(const volatile void* pointer) const {
        return Write("Pointer validation failed for %p\r\n", const_cast<const void*>(pointer));
    }

    [[gnu::format(printf, 2, 3)]] bool Write(const char* format, ...) const {
        va_list arguments;
        va_start(arguments, format);
        Message(format, arguments);
        va_end(arguments);
        return true;
    }
};

/// Makes a report in the kernel log, or on the console when the log cannot be opened or refuses it.
/// @param report called with the sink; returns whether all of it was written
template <class Report>
void Send(const Report& report) {
    const KernelLog log;
    if (!log.IsOpen() || !report(log)) {
        report(Console());
    }
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
    Send([pointer](const auto& sink) { return sink.InvalidPointer(pointer); });
    return false;
}

namespace strata {

void ReportAssertion(const char* file, unsigned line, const char* function, const char* expression) noexcept {
    MarkFailure(line);
    Send([=](const auto& sink) { return sink.Expression(expression) && sink.Place(file, line, function); });
}

void ReportAssertionWithMessage(const char* file, unsigned line, const char* function, const char* expression,
                                const char* format, ...) noexcept {
    const int errorNumber = errno;  // what "%m" in the message stands for
    MarkFailure(line);
    va_list arguments;
    va_start(arguments, format);
    Send([&](const auto& sink) {
        if (!sink.ExpressionBeforeMessage(expression)) {
            return false;
        }
        va_list copy;  // each sink reads them from the beginning
        va_copy(copy, arguments);
        errno = errorNumber;
        const bool written = sink.Message(format, copy);
        va_end(copy);
        return written && sink.Place(file, line, function);
    });
    va_end(arguments);
}

void FailAssertion(const char* file, unsigned line, const char* function, const char* expression) noexcept {
    ReportAssertion(file, line, function, expression);
    abort();
}

void PrintOperand(const char* text, int value) noexcept {
    Console().Write("%s=%d (0x%x)\r\n", text, value, static_cast<unsigned>(value));
}
void PrintOperand(const char* text, unsigned value) noexcept {
    Console().Write("%s=%u (0x%x)\r\n", text, value, value);
}
void PrintOperand(const char* text, long value) noexcept {
    Console().Write("%s=%ld (0x%lx)\r\n", text, value, static_cast<unsigned long>(value));
}
void PrintOperand(const char* text, unsigned long value) noexcept {
    Console().Write("%s=%lu (0x%lx)\r\n", text, value, value);
}
void PrintOperand(const char* text, long long value) noexcept {
    Console().Write("%s=%lld (0x%llx)\r\n", text, value, static_cast<unsigned long long>(value));
}
void PrintOperand(const char* text, unsigned long long value) noexcept {
    Console().Write("%s=%llu (0x%llx)\r\n", text, value, value);
}

}  // namespace strata

// The C library's assertion entry points, replaced so that assertions of library and header code take the
// same road. They are noexcept: an exception out of a report would end the process, as abort() does.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): it has reserved names for the parameters
extern "C" {

void __assert_fail(const char* expression, const char* file, unsigned line, const char* function) noexcept {
    Console().Write("GLIBC assert\r\n");
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
