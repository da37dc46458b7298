#pragma once

// Fail-stop assertions. A failed assertion is reported to the kernel log, so that it survives in the player's
// system log when no console is attached, marks a trace event, and ends the process with abort().
//
// Log tooling in the field finds reports by their file, line and function. Assertions that it knows carry
// these as literal texts (the _AT forms); all others report where they really stand.

#include <cstdint>
#include <cstdlib>

/// Tells whether a pointer can be an object's address: above the first page and aligned. A pointer that is
/// not valid is reported to the kernel log, or to standard output where there is none. Any thread.
/// @param pointer the pointer to check; it is not followed
/// @param alignment in bytes, a power of two
bool PlatformValidPointer(const volatile void* pointer, std::uint32_t alignment);

namespace strata {

/// Reports a failed assertion; the caller then aborts. Any thread; takes no lock and allocates nothing.
/// @param file path of the source
/// @param line in it, from 1
/// @param function name of the function
/// @param expression the text of the condition that did not hold
void ReportAssertion(const char* file, unsigned line, const char* function, const char* expression) noexcept;

/// The same with a message of its own, which follows the expression.
/// @param file path of the source
/// @param line in it, from 1
/// @param function name of the function
/// @param expression the text of the condition that did not hold
/// @param format a printf format for the arguments after it; the text carries its own newline
[[gnu::format(printf, 5, 6)]] void ReportAssertionWithMessage(const char* file, unsigned line,
                                                              const char* function, const char* expression,
                                                              const char* format, ...) noexcept;

/// Reports a failed assertion and aborts. Any thread.
/// @param file path of the source
/// @param line in it, from 1
/// @param function name of the function
/// @param expression the text of the condition that did not hold
[[noreturn]] void FailAssertion(const char* file, unsigned line, const char* function,
                                const char* expression) noexcept;

/// Prints one operand of a failed comparison to standard output, in decimal and hexadecimal.
/// @param text the operand as the source spells it
/// @param value what it is
void PrintOperand(const char* text, int value) noexcept;
void PrintOperand(const char* text, unsigned value) noexcept;            ///< likewise
void PrintOperand(const char* text, long value) noexcept;                ///< likewise
void PrintOperand(const char* text, unsigned long value) noexcept;       ///< likewise
void PrintOperand(const char* text, long long value) noexcept;           ///< likewise
void PrintOperand(const char* text, unsigned long long value) noexcept;  ///< likewise

}  // namespace strata

/// Alignment of the type that a pointer points to.
#define nimbus2_assert_alignof(object) static_cast<std::uint32_t>(__alignof__(object))

/// The rule for texts: a condition stands in the report with its macros expanded, because field tools know
/// "sm_instance == __null" and not "sm_instance == NULL"; pointers and operands of a comparison stand as in
/// the source. The extra level is what expands a condition.
#define PLATFORM_ASSERT_TEXT_(condition) #condition

/// Asserts a condition at a site that the field's log tooling knows by these texts.
#define PLATFORM_ASSERT_AT(file, line, function, condition)                                \
    do {                                                                                   \
        if (!(condition)) {                                                                \
            strata::FailAssertion(file, line, function, PLATFORM_ASSERT_TEXT_(condition)); \
        }                                                                                  \
    } while (false)

/// Asserts a condition.
#define PLATFORM_ASSERT(condition) PLATFORM_ASSERT_AT(__FILE__, __LINE__, __PRETTY_FUNCTION__, condition)

/// Asserts a condition; what follows it is a printf format and its arguments for the report.
#define PLATFORM_ASSERT_MESSAGE(condition, ...)                                                \
    do {                                                                                       \
        if (!(condition)) {                                                                    \
            strata::ReportAssertionWithMessage(__FILE__, __LINE__, __PRETTY_FUNCTION__,        \
                                               PLATFORM_ASSERT_TEXT_(condition), __VA_ARGS__); \
            std::abort();                                                                      \
        }                                                                                      \
    } while (false)

/// Asserts that a pointer is one of an aligned object, at a known site and at the place it stands.
#define PLATFORM_ASSERT_VALID_POINTER_AT(file, line, function, pointer)                                      \
    do {                                                                                                     \
        if (!PlatformValidPointer((pointer), nimbus2_assert_alignof(*((pointer))))) {                        \
            strata::FailAssertion(file, line, function,                                                      \
                                  "PlatformValidPointer((" #pointer "), nimbus2_assert_alignof(*((" #pointer \
                                  "))))");                                                                   \
        }                                                                                                    \
    } while (false)
/// The same at the site where it stands.
#define PLATFORM_ASSERT_VALID_POINTER(pointer) \
    PLATFORM_ASSERT_VALID_POINTER_AT(__FILE__, __LINE__, __PRETTY_FUNCTION__, pointer)

/// Asserts a comparison of two integers and prints both when it does not hold.
#define PLATFORM_ASSERT_COMPARE(left, comparison, right)                   \
    do {                                                                   \
        const auto platformLeft = (left);                                  \
        const auto platformRight = (right);                                \
        if (!(platformLeft comparison platformRight)) {                    \
            strata::PrintOperand(#left, platformLeft);                     \
            strata::PrintOperand(#right, platformRight);                   \
            strata::FailAssertion(__FILE__, __LINE__, __PRETTY_FUNCTION__, \
                                  #left " " #comparison " " #right);       \
        }                                                                  \
    } while (false)
