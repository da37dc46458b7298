// The owner of DirectFB interfaces and the check of DirectFB calls.

#include "lib/kestrel_dfb/directfb_helpers.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <utility>

#include "tests/console_report.h"

namespace {

/// A screen that counts its references.
struct CountedScreen : IDirectFBScreen {
    CountedScreen() : IDirectFBScreen{} {
        refs = 1;
        AddRef = [](IDirectFBScreen* screen) { return ++screen->refs, DR_OK; };
        Release = [](IDirectFBScreen* screen) { return --screen->refs, DR_OK; };
    }
};

int CountReferences(DFBPointer<IDirectFBScreen> screen) {
    return screen->refs;
}

TEST(DFBPointer, EveryHolderReleasesItsOwnReferenceOnce) {
    CountedScreen screen;
    CountedScreen last;
    {
        DFBPointer<IDirectFBScreen> empty;
        DFBPointer<IDirectFBScreen> target(empty);
        DFBPointer<IDirectFBScreen> holder;
        *holder.AsOutParameter() = &screen;
        EXPECT_EQ(CountReferences(holder), 2);
        EXPECT_EQ(screen.refs, 1);
        DFBPointer<IDirectFBScreen> moved(std::move(holder));
        target = std::move(moved);
        EXPECT_EQ(target->refs, 1);
        CountedScreen other;
        *target.AsOutParameter() = &other;
        EXPECT_EQ(screen.refs, 0);
        target = DFBPointer<IDirectFBScreen>();
        EXPECT_EQ(other.refs, 0);
        *target.AsOutParameter() = &last;
    }
    EXPECT_EQ(last.refs, 0);
}

TEST(DFBPointerDeathTest, AnUnusablePointerEndsTheProcessWithAReport) {
    DFBPointer<IDirectFBScreen> empty;
    EXPECT_DEATH((ReportOnConsole(), static_cast<void>(empty->refs)),
                 R"(ASSERT FAILED: PlatformValidPointer\(m_ptr, 1\).*)"
                 R"(lib/kestrel_dfb/directfb_helpers\.h:224:T\* DFBPointer<T>::operator->\(\) )"
                 R"(\[with T = _IDirectFBScreen\])");

    const auto useMisaligned = [] {
        ReportOnConsole();
        DFBPointer<IDirectFBScreen> misaligned(reinterpret_cast<IDirectFBScreen*>(0x100001));
        return static_cast<IDirectFBScreen*>(misaligned);
    };
    EXPECT_DEATH(
        useMisaligned(),
        R"(ASSERT FAILED: PlatformValidPointer\(\(m_ptr\), nimbus2_assert_alignof\(\*\(\(m_ptr\)\)\)\).*)"
        R"(lib/kestrel_dfb/directfb_helpers\.h:257:DFBPointer<T>::operator T\*\(\) )"
        R"(\[with T = _IDirectFBScreen\])");
}

TEST(DFBCheckDeathTest, AFailedCallIsQuotedAsItStandsInTheSource) {
    const auto answer = [](DFBResult result, const void*) { return result; };
    DFBCHECK(answer(DFB_OK, NULL));
    const std::string line = std::to_string(__LINE__ + 2);
    // clang-format off
    EXPECT_EXIT(DFBCHECK(answer( DFB_NOSUCHINSTANCE, NULL )), testing::ExitedWithCode(DFB_NOSUCHINSTANCE & 0xFF),
                "tests/directfb_helpers_test.cpp <" + line + ">:\n\t.*answer\\( DFB_NOSUCHINSTANCE, NULL \\)");
    // clang-format on
}

}  // namespace
