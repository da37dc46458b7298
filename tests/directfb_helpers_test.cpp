// The owner of DirectFB interfaces.

#include "lib/kestrel_dfb/directfb_helpers.h"

#include <gtest/gtest.h>

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
        EXPECT_TRUE((target && !empty && !std::as_const(empty)));
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
    EXPECT_ABORT(R"(ASSERT FAILED: PlatformValidPointer\(m_ptr, 1\).*)"
                 R"(lib/kestrel_dfb/directfb_helpers\.h:224:T\* DFBPointer<T>::operator->\(\) )"
                 R"(\[with T = _IDirectFBScreen\])",
                 static_cast<void>(empty->refs));
    const auto address = reinterpret_cast<IDirectFBScreen*>(0x100001);
    EXPECT_ABORT(
        R"(ASSERT FAILED: PlatformValidPointer\(\(m_ptr\), nimbus2_assert_alignof\(\*\(\(m_ptr\)\)\)\).*)"
        R"(lib/kestrel_dfb/directfb_helpers\.h:257:DFBPointer<T>::operator T\*\(\) )"
        R"(\[with T = _IDirectFBScreen\])",
        static_cast<void>(static_cast<IDirectFBScreen*>(DFBPointer<IDirectFBScreen>(address))));
}

}  // namespace
