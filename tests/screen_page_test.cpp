// The page, drawn on a DirectFB that records what is drawn and whose fonts measure alike on every
// machine.

#include "apps/padtune/screen_page.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "lib/platform/string_operations.h"
#include "lib/player/hardware_config.h"

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

/// What was called and drawn, on a screen of the given size; a recorded call that reads like failingCall
/// fails.
struct Recording {
    int width = 1920, height = 1080;
    std::string failingCall, colour, calls;
    int fontHeight = 0;
};

Recording g_recording;

DFBResult Record(const std::string& call) {
    g_recording.calls += (g_recording.calls.empty() ? "" : "; ") + call;
    return call == g_recording.failingCall ? DFB_FAILURE : DFB_OK;
}

DFBResult RecordArea(const char* what, int x, int y, int w, int h) {
    return Record(strprintf("%s %d,%d %dx%d %s", what, x, y, w, h, g_recording.colour.c_str()));
}

/// What was recorded since the last time, in one line.
std::string TakeRecorded() {
    return std::exchange(g_recording.calls, "");
}

/// A font's characters are half as wide as high, but "D" stands 4 and "?" 8 higher than its others; the
/// ink of a text is three quarters of its logical height.
struct FakeFont : IDirectFBFont {
    FakeFont() : IDirectFBFont{} {
        Release = [](auto*) { return Record("release font"), DR_OK; };
        GetStringExtents = [](auto* font, const char* text, int, auto* logical, auto* ink) {
            const int em = static_cast<FakeFont*>(font)->height;
            const int w = static_cast<int>(std::strlen(text)) * em / 2;
            const int h = em + (std::strchr(text, '?') ? 8 : std::strchr(text, 'D') ? 4 : 0);
            *logical = {0, 0, w, h};
            *ink = {1, 1, w - 2, h * 3 / 4};
            return DFB_OK;
        };
    }
    int height = 0;
};

struct FakeSurface : IDirectFBSurface {
    FakeSurface() : IDirectFBSurface{} {
        Release = [](auto*) { return Record("release surface"), DR_OK; };
        SetColor = [](auto*, u8 r, u8 g, u8 b, u8 a) {
            const char* const kind = a == 255 ? "" : "translucent ";
            return g_recording.colour = strprintf("%s%02X%02X%02X", kind, r, g, b), DFB_OK;
        };
        SetFont = [](auto*, auto* font) {
            return g_recording.fontHeight = static_cast<FakeFont*>(font)->height, DFB_OK;
        };
        FillRectangle = [](auto*, int x, int y, int w, int h) { return RecordArea("fill", x, y, w, h); };
        DrawRectangle = [](auto*, int x, int y, int w, int h) { return RecordArea("outline", x, y, w, h); };
        DrawString = [](auto*, const char* text, int, int x, int y, DFBSurfaceTextFlags anchor) {
            const std::map<int, const char*> anchors = {
                {DSTF_TOPLEFT, ""}, {DSTF_TOPRIGHT, " right"}, {DSTF_CENTER, " centre"}};
            return Record(strprintf("'%s' %d,%d %s %d%s", text, x, y, g_recording.colour.c_str(),
                                    g_recording.fontHeight, anchors.at(anchor)));
        };
        Flip = [](auto*, auto*, auto flags) {
            return Record(flags == (DSFLIP_ONSYNC | DSFLIP_BLIT) ? "flip" : "flip otherwise");
        };
    }
};

struct FakeScreen : IDirectFBScreen {
    FakeScreen() : IDirectFBScreen{} {
        AddRef = [](auto*) { return DR_OK; };
        Release = [](auto*) { return DR_OK; };
        GetSize = [](auto*, int* width, int* height) {
            return *width = g_recording.width, *height = g_recording.height, Record("size");
        };
        SetPowerMode = [](auto*, auto mode) { return Record(strprintf("power %d", mode)), DFB_FAILURE; };
        GetEncoderConfiguration = [](auto...) { return DFB_UNSUPPORTED; };
        SetEncoderConfiguration = [](auto...) { return Record("set mode"), DFB_UNSUPPORTED; };
    }
};

FakeScreen g_screen;
FakeSurface g_surface;
std::map<int, FakeFont> g_fonts;  ///< by height

struct FakeMain : IDirectFB {
    FakeMain() : IDirectFB{} {
        Release = [](auto*) { return Record("release main"), DR_OK; };
        SetCooperativeLevel = [](auto...) { return DFB_FAILURE; };
        GetScreen = [](auto*, auto, auto** screen) { return *screen = &g_screen, Record("screen"); };
        CreateSurface = [](auto*, const auto* description, auto** surface) {
            EXPECT_EQ(description->flags, DSDESC_CAPS);
            return *surface = &g_surface, Record(strprintf("surface %#x", description->caps));
        };
        CreateFont = [](auto*, const char* file, const auto* description, auto** font) {
            EXPECT_STREQ(file, "/storage/sys/default-font.ttf");
            EXPECT_EQ(description->flags, DFDESC_HEIGHT);
            g_fonts[description->height].height = description->height;
            return *font = &g_fonts[description->height], Record(strprintf("font %d", description->height));
        };
    }
};

FakeMain g_main;

}  // namespace

// These take the place of the library's own.
DFBResult DirectFBInit(int*, char***) {
    return Record("init");
}

DFBResult DirectFBSetOption(const char* name, const char* value) {
    return Record(strprintf("option %s=%s", name, value));
}

DFBResult DirectFBCreate(IDirectFB** interface_ptr) {
    return *interface_ptr = &g_main, Record("create");
}

namespace {

class ScreenPageTest : public testing::Test {
protected:
    ScreenPageTest() { g_recording = Recording(); }

    void Start() {
        m_page.BringUp(0, nullptr);
        m_page.DrawTitle();
        TakeRecorded();
    }

    /// Draws what comes before the timed loop. A row of the table is 48 high, a box of the keypad
    /// 373x240, one of the cross 480x361. Returns what the box names drew.
    std::string DrawBoard(const char* properties) {
        Start();
        m_page.DrawIdentity(properties);
        m_page.DrawParameterTable(m_setup);
        m_page.LayOutStrip(60);
        TakeRecorded();
        m_page.DrawBoxNames(m_setup);
        return TakeRecorded();
    }

    HardwareConfig m_hardware{DeviceTree("/nonexistent"), "/nonexistent"};
    DFBPointer<IDirectFBScreen> m_dfbScreen;
    ScreenPage m_page{m_dfbScreen};
    BoardSetup m_setup{11, {40, 41, 42, 43, 44, 45, 46, 47, 48, 49, 410}, {{0xA7, 100}, {0xAD, 0}}};
};

TEST_F(ScreenPageTest, EverythingFollowsFromTheScreenSizeAndIsReleasedInOrder) {
    struct {
        int width, height, top, stripTop;
        const char *fonts, *title;
    } const cases[] = {
        {1920, 1080, 230, 952, "font 48; font 64; font 96", "1920x1080 000011; 'Padtune' 792,67 FFFFFF 96"},
        {1366, 768, 164, 678, "font 34; font 45; font 68", "1366x768 000011; 'Padtune' 564,48 FFFFFF 68"},
    };
    for (const auto& expected : cases) {
        g_recording.width = expected.width;
        g_recording.height = expected.height;
        {
            ScreenPage page(m_dfbScreen);
            page.BringUp(0, nullptr);
            page.DrawTitle();
            page.LayOutStrip(60);
            EXPECT_EQ(std::pair(page.GetTop(), page.GetStripTop()),
                      std::pair(expected.top, expected.stripTop));
        }
        EXPECT_EQ(
            TakeRecorded(),
            strprintf("init; option dont-catch=1,2,15; create; screen; set mode; power 0; surface 0x211; "
                      "size; %s; fill 0,0 %s; flip; "
                      "release font; release font; release font; release surface; release main",
                      expected.fonts, expected.title));
    }
}

TEST_F(ScreenPageTest, AFailingCallEndsTheProcessWithItsText) {
    const std::pair<const char*, std::string> cases[] = {
        {"init", "DirectFBInit( &argc, &argv )"},
        {"create", "DirectFBCreate( &dfb )"},
        {"screen", "dfb->GetScreen(dfb, 0, dfbScreen.AsOutParameter())"},
        {"surface 0x211", "dfb->CreateSurface( dfb, &sdsc, &primary )"},
        {"size", "dfbScreen->GetSize(dfbScreen, &screen_width, &screen_height)"},
        {"font 48", "dfb->CreateFont( dfb, fontfile, &fdsc, &font_small )"},
        {"font 64", "dfb->CreateFont( dfb, fontfile, &fdsc, &font_normal )"},
        {"font 96", "dfb->CreateFont( dfb, fontfile, &fdsc, &font_large )"},
        {"flip",
         "primary->Flip(primary, NULL, static_cast<DFBSurfaceFlipFlags>(DSFLIP_ONSYNC | DSFLIP_BLIT))"},
    };
    for (const auto& [failingCall, text] : cases) {
        g_recording.failingCall = failingCall;
        EXPECT_EXIT(
            Start(), [](int status) { return WIFEXITED(status) && WEXITSTATUS(status) != 0; },
            testing::AllOf(testing::ContainsRegex("apps/padtune/padtune <[0-9]+>:\n\t"),
                           HasSubstr("[" + text + "]")));
    }
}

TEST_F(ScreenPageTest, TheRunDoesNotDependOnWhoCatchesSignals) {
    g_recording.failingCall = "option dont-catch=1,2,15";
    testing::internal::CaptureStderr();
    Start();
    EXPECT_THAT(testing::internal::GetCapturedStderr(), StartsWith("DirectFB catches termination signals: "));
}

TEST_F(ScreenPageTest, TheIdentityLineNamesTheBoardAndMakesRoomForTheTable) {
    struct {
        const char* properties;
        std::string line;
        const char* rawHeader;
    } const cases[] = {
        {"hardware=KP480;revision=B;rheader=91;", "'KP480 (B) ' 0,230 EE82EE 64; ", "91"},
        {"hardware=KP480;revision=B;rheader=92", "'KP480S (B) ' 0,230 0077FF 64; ", "92"},
        {"hardware=KP480;revision=B;rheader=4294967388", "'KP480 (B) ' 0,230 EE82EE 64; ", "?"},
        {"rheader=92;revision=C;header=yes;other=1;hardware=KP120",
         "'KP120 (C) ' 0,230 EE82EE 64; '(Y)' 320,230 00FF00 64; ", "92"},
        {"hardware=KP120;header;revision=;revision=C=D;revision=C;rheader=xx;header=no",
         "'KP120 (C) ' 0,230 EE82EE 64; '(N)' 320,230 FF0000 64; ", "0"},
        {"hardware=KP480;rheader=92", "", "92"},
        {"revision=B;header=yes", "", "?"},
    };
    Start();
    testing::internal::CaptureStderr();
    for (const auto& [properties, line, rawHeader] : cases) {
        m_page.DrawIdentity(properties);
        m_page.DrawParameterTable({11, {}, {{0xAD, 0}}});
        const int y = line.empty() ? 230 : 302;
        EXPECT_EQ(TakeRecorded(),
                  line + strprintf("'Raw Header:' 269,%d FFFFFF 48 right; '%s' 271,%d FF7777 48; flip", y,
                                   rawHeader, y));
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Properties error 'header'\nProperties error 'revision='\nProperties error 'revision=C=D'\n");
}

TEST_F(ScreenPageTest, ParametersWithoutARowLeaveAGap) {
    Start();
    const std::vector<BoardParameter> parameters = {{0xAD, 7}, {0xA6, -5}, {0x33, 9}, {0xAA, 1000}, {0xC2, 0},
                                                    {0xAB, 6}, {0xA7, 1},  {0xA8, 2}, {0xA9, 3}};
    testing::internal::CaptureStderr();
    m_page.DrawParameterTable({11, {}, parameters});
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "COMMAND_??? param 51 9\nCOMMAND_??? param 51 9\n");
    EXPECT_EQ(TakeRecorded(),
              "'Raw Header:' 341,230 FFFFFF 48 right; '?' 343,230 FF7777 48; flip; "
              "'Noise T/H:' 341,282 FFFFFF 48 right; '-5' 343,282 FF7777 48; flip; "
              "'Debounce:' 341,386 FFFFFF 48 right; '1000' 343,386 FF7777 48; flip; "
              "'Low Baseline:' 341,490 FFFFFF 48 right; '6' 343,490 FF7777 48; flip; "
              "'Neg Noise T/H:' 341,542 FFFFFF 48 right; '1' 343,542 FF7777 48; flip; "
              "'Baseline:' 341,594 FFFFFF 48 right; '2' 343,594 FF7777 48; flip; "
              "'Hysteresis:' 341,646 FFFFFF 48 right; '3' 343,646 FF7777 48; flip");
}

TEST_F(ScreenPageTest, BoxesFormTheBoardsKeypad) {
    const std::string keypad = DrawBoard("hardware=KP480;revision=B");
    for (const std::string name : {"'BT1' 428,230", "'BT2' 801,230", "'BT3' 1174,230", "'BT4' 428,470",
                                   "'BT5' 801,470", "'BT6' 1174,470", "'BT7' 428,710", "'BT8' 801,710",
                                   "'BT9' 1174,710", "'BT10' 1547,350", "'BT11' 1547,590"}) {
        EXPECT_THAT(keypad, HasSubstr(name + " FFFFFF 48; '(4"));
    }
    EXPECT_THAT(keypad, StartsWith("'BT1' 428,230 FFFFFF 48; '(40)' 505,230 FF7777 48; 'BT2'"));
    EXPECT_THAT(keypad, EndsWith("; 'BT11' 1547,590 FFFFFF 48; '(410)' 1648,590 FF7777 48; flip"));

    m_setup.fingerThresholds.resize(2);
    EXPECT_EQ(DrawBoard("hardware=KP120;revision=B"),
              "'BT1' 1440,410 FFFFFF 48; '(40)' 1517,410 FF7777 48; 'BT2' 960,230 FFFFFF 48; "
              "'(41)' 1037,230 FF7777 48; 'BT3' 960,591 FFFFFF 48; 'BT4' 480,410 FFFFFF 48; flip");
}

TEST_F(ScreenPageTest, ASampleIsDrawnInTheColourOfItsState) {
    struct {
        const char* properties;
        std::int32_t value3;
        std::uint8_t touched;
        std::uint32_t levels;
        const char *colour, *value3Colour;
    } const cases[] = {
        {"hardware=KP480;revision=B", 0, 0, 0x7FF, "00FF00", "00FF00"},
        {"hardware=KP480;revision=B", -3, 0, 0x7FF, "00FF00", "FF7F00"},
        {"hardware=KP480;revision=B", -3, 1, 0x10, "FF0000", "FF0000"},
        {"hardware=KP480;revision=B", -3, 1, ~0x10U, "FF7F00", "FF7F00"},
        {"hardware=KP480;revision=B;rheader=92", 0, 1, 0x10, "0077FF", "0077FF"},
        {"hardware=KP480;rheader=92", 0, 1, 0x10, "FF0000", "FF0000"},
    };
    for (const auto& [properties, value3, touched, levels, colour, value3Colour] : cases) {
        DrawBoard(properties);
        m_page.DrawSecond(0);
        TakeRecorded();
        m_page.DrawFrame({{5, 10, 20, value3, 40, touched}}, 0, levels, 0);
        EXPECT_THAT(
            TakeRecorded(),
            StartsWith(strprintf("fill 801,518 373x192 000011; '10' 801,518 %s 48; '20' 801,566 %s 48; "
                                 "'40' 801,614 %s 48; '%d' 801,662 %s 48; fill 428,290 186x120 000011",
                                 colour, colour, colour, value3, value3Colour)));
    }
}

TEST_F(ScreenPageTest, AButtonThatIsNotDiagnosedShowsItsTouchAsABlock) {
    DrawBoard("hardware=KP120;revision=B");
    testing::internal::CaptureStderr();
    m_page.DrawFrame({{5, 1, 1, 1, 1, 0}, {0, 1, 1, 1, 1, 0}, {3, 1, 1, 1, 1, 0}}, 0b0111, 0b0001, 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Logic error: bd.button 5 > 4\n");
    const std::string frame = TakeRecorded();
    EXPECT_THAT(frame, StartsWith("fill 960,639 480x313 000011; '1' 960,639 00FF00 48; "));
    EXPECT_THAT(frame, HasSubstr("; '1' 960,783 FF7F00 48; fill 1440,500 240x180 FF0000; "
                                 "fill 960,320 240x180 FF7F00; fill 480,500 240x180 000011; fill 0,952 "));
}

TEST_F(ScreenPageTest, TheStripShowsTheTimeThatHasPassedAndMakesWayForAMessage) {
    DrawBoard("");
    m_page.DrawSecond(45);
    m_page.DrawFrame({}, 0, 0, 45'000'000'001);
    m_page.ShowMessage(m_page.GetStripTop(), 0x0077FF, "Complete");
    const std::string drawn = TakeRecorded();
    EXPECT_THAT(drawn, StartsWith("fill 1851,952 69x128 000000; '45' 1851,952 FFFFFF 64; "));
    EXPECT_THAT(drawn, EndsWith("fill 0,952 1841x128 000000; outline 20,984 1811x64 FFFFFF; "
                                "fill 22,986 1355x60 FFFFFF; "
                                "fill 0,952 1920x128 000000; 'Complete' 960,1016 0077FF 64 centre; flip"));
    m_page.LayOutStrip(0);
    m_page.DrawFrame({}, 0, 0, 1);
    EXPECT_THAT(TakeRecorded(), EndsWith("fill 22,986 0x60 FFFFFF"));
    m_page.LayOutStrip(std::numeric_limits<std::int32_t>::max());
    m_page.DrawFrame({}, 0, 0, 1'000'000'000'000'000'000);
    EXPECT_THAT(TakeRecorded(), EndsWith("fill 22,986 722x60 FFFFFF"));
}

}  // namespace
