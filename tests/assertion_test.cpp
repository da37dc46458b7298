// Assertions and pointer validation. The reports are checked in their console form; the guest tests look at
// the kernel log.

#include "lib/platform/assertion.h"

#include <fmt/core.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cassert>
#include <cerrno>

#include "lib/platform/string_splitter.h"
#include "lib/platform/type_name.h"
#include "tests/console_report.h"

namespace {

TEST(PlatformValidPointer, IsAboveTheFirstPageAndAligned) {
    const auto valid = [](std::uintptr_t address, unsigned alignment) {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): any address, whatever is there
        return PlatformValidPointer(reinterpret_cast<void*>(address), alignment);
    };
    EXPECT_FALSE(valid(0, 1));
    EXPECT_FALSE(valid(4095, 1));
    EXPECT_TRUE(valid(4096, 8));
    EXPECT_TRUE(valid(0x1004, 4));
    EXPECT_EXIT((ReportOnConsole(), _exit(valid(0x1004, 8))), testing::ExitedWithCode(0),
                "^Pointer validation failed for 0x1004\r\n$");
}

template <char>
struct Separated {};

TEST(TypeName, IsWholeWhateverItHolds) {
    EXPECT_EQ(strata::TypeName<int[3]>(), "int [3]");
    EXPECT_EQ(strata::TypeName<Separated<';'>*>(), "{anonymous}::Separated<';'>*");
}

TEST(AssertionDeathTest, ReportsTheSiteAndTheExpandedCondition) {
    void* pointer = &pointer;
    EXPECT_ABORT("^\r\nASSERT FAILED: pointer == __null\r\nlib/a\\.h:49:void A::B\\(\\)\r\n\r\n$",
                 PLATFORM_ASSERT_AT("lib/a.h", 49, "void A::B()", pointer == NULL));
    EXPECT_ABORT("ASSERT FAILED: pointer == nullptr\r\ntests/assertion_test.cpp:[0-9]+:.*TestBody",
                 PLATFORM_ASSERT(pointer == nullptr));
    // A percent sign in the expression must not be taken for a conversion.
    EXPECT_ABORT("^\r\nASSERT FAILED: 3 % 2 == 0\r\nodd: 3 %n\r\ntests/assertion_test.cpp:[0-9]+:.*\r\n\r\n$",
                 PLATFORM_ASSERT_MESSAGE(3 % 2 == 0, "odd: %d %s", 3, "%n"));
    EXPECT_ABORT(
        "ASSERT FAILED: _Off < m_chunks\\.size\\(\\)\r\nlib/platform/string_splitter\\.h:[0-9]+:"
        "std::__cxx11::string StringSplitter::operator\\[\\]\\(size_t\\) const\r\n",
        StringSplitter("a", "-")[1]);
}

TEST(AssertionDeathTest, PrintsTheOperandsOfAComparison) {
    const int left = -1;
    EXPECT_ABORT(
        "^left=-1 \\(0xffffffff\\)\r\n17UL - 1=16 \\(0x10\\)\r\n\r\nASSERT FAILED: left == 17UL - 1\r\n",
        PLATFORM_ASSERT_COMPARE(left, ==, 17UL - 1));
    EXPECT_ABORT("^left \\+ 0LL=-1 \\(0xffffffffffffffff\\)\r\n5ULL=5 \\(0x5\\)\r\n",
                 PLATFORM_ASSERT_COMPARE(left + 0LL, ==, 5ULL));
}

TEST(AssertionDeathTest, TakesThoseOfTheCLibraryAndOfFmt) {
    EXPECT_ABORT("^GLIBC assert\r\n\r\nASSERT FAILED: x > 0\r\nfile\\.c:7:int f\\(\\)\r\n\r\n$",
                 __assert_fail("x > 0", "file.c", 7, "int f()"));
    EXPECT_ABORT("^\r\nASSERT FAILED: No such file or directory\r\nfile\\.c:8:int g\\(\\)\r\n\r\n$",
                 __assert_perror_fail(ENOENT, "file.c", 8, "int g()"));
    EXPECT_ABORT("^\r\nASSERT FAILED: y\r\nfile\\.c:9:UNKNOWN\r\n\r\n$", __assert("y", "file.c", 9));
    EXPECT_ABORT(
        "^GLIBC assert\r\n\r\nASSERT FAILED: .*\"negative value\"\\)\r\n.*/fmt/core\\.h:[0-9]+:.*to_unsigned",
        fmt::detail::to_unsigned(-1));
}

}  // namespace
