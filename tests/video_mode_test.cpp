// Mode strings, the mode table and the programming of a mode into an encoder.

#include "lib/kestrel_dfb/video_mode.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <utility>

#include "lib/hardware/hardware_config.h"
#include "lib/kestrel_dfb/video_mode_table.h"
#include "lib/platform/posix_helpers.h"
#include "lib/platform/string_operations.h"

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

/// A folder of its own for each test, with a device tree of a player and room for a mode file.
class VideoModeTest : public testing::Test {
protected:
    VideoModeTest() : m_folder(testing::TempDir() + "video_mode_" + std::to_string(getpid())) {
        fs::create_directories(m_folder + "/vantora,player");
        m_hardware.emplace(DeviceTree(m_folder));
    }
    ~VideoModeTest() override { fs::remove_all(m_folder); }

    void LimitPlayerToHd() {
        Write("vantora,player/limited-to-hd", "");
        m_hardware.reset();
        m_hardware.emplace(DeviceTree(m_folder));
    }

    std::string Write(const std::string& name, const std::string& content) const {
        const std::string path = m_folder + "/" + name;
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }

private:
    std::string m_folder;
    std::optional<HardwareConfig> m_hardware;
};

std::string ParseError(std::string modeString) {
    VideoMode::Mode mode{};
    try {
        VideoMode::Parse(modeString, mode);
    } catch (const VideoMode::Invalid& invalid) {
        EXPECT_EQ(invalid.GetMode(), modeString);
        return invalid.what();
    }
    return "";
}

std::string Describe(const VideoMode::Mode& mode) {
    return strprintf("%s space%u depth%u range%u%s%s%s%s%s", mode.name, mode.color_space, mode.color_depth,
                     mode.range, mode.upscale != 0 ? " upscale" : "",
                     mode.reduced_blanking != 0 ? " rblank" : "",
                     mode.gfx_mem_large != 0 ? " gfxmemlarge" : "", mode.dbv != 0 ? " dbv" : "",
                     mode.preferred != 0 ? " preferred" : "");
}

TEST_F(VideoModeTest, ModeStringsSelectARowAndChangeIt) {
    const std::pair<const char*, const char*> cases[] = {
        {"1920X1080X60P", "1920x1080x60p space1 depth1 range0"},
        {"1920x1080x60p:10BIT:PREFERRED", "1920x1080x60p space1 depth1 range0"},
        {"1920x1080x60p:10bit:444", "1920x1080x60p space4 depth2 range0"},
        {"1920x1080x60p:420:444", "1920x1080x60p space4 depth1 range0"},
        {"1920x1080x60p::preferred:bogus:", "1920x1080x60p space1 depth1 range0 preferred"},
        {"3840x2160x60p", "3840x2160x60p space2 depth1 range0 upscale"},
        {"3840x2160x60p:10bit", "3840x2160x60p space2 depth2 range0 upscale"},
        {"3840x2160x30p:12bit:422", "3840x2160x30p space3 depth3 range0 upscale"},
        {"2560x1440x60p:fullres", "2560x1440x60p space1 depth1 range0"},
        {"2560x1440x60p:fullres:upscale", "2560x1440x60p space1 depth1 range0 upscale"},
        {"1440x1080x60p:limitedrange", "1440x1080x60p space1 depth1 range1 rblank"},
        {"pal-nc:rblank:fullrange:gfxmemlarge:dbv:12bit:8bit:rgb",
         "pal-nc space1 depth1 range2 rblank gfxmemlarge dbv"},
    };
    for (const auto& [text, expected] : cases) {
        std::string modeString = text;
        VideoMode::Mode mode{};
        ASSERT_TRUE(VideoMode::Parse(modeString, mode));
        EXPECT_EQ(Describe(mode), expected) << text;
    }

    std::string empty;
    VideoMode::Mode mode{};
    EXPECT_TRUE(VideoMode::Parse(empty, mode));
    EXPECT_EQ(empty, "1920x1080x60p");
}

TEST_F(VideoModeTest, RejectsUnknownNamesAndColourSpacesThatTheModeDoesNotAllow) {
    for (const char* unknown :
         {"bogus", ":preferred", "1920x1080x60", "1920x1080x60p ", "1920x1080x60pp:rgb"}) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(ParseError(unknown), strprintf("Invalid video mode: '%s' ", unknown));
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    }

    const std::pair<const char*, const char*> disallowed[] = {
        {"1920x1080X60p:12bit:420", "1920x1080X60p does not support bit depth 3, will colorspace 2"},
        {"3840x2160x60p:10bit:rgb", "3840x2160x60p does not support bit depth 2, will colorspace 1"},
        {"1024x768x60p:10bit", "1024x768x60p does not support bit depth 2, will colorspace 1"},
        {"3840x2160x60p:16bit", "3840x2160x60p does not support bit depth 4, will colorspace 2"},
        {"1920x1080x24p:422", "1920x1080x24p does not support bit depth 1, will colorspace 3"},
    };
    for (const auto& [modeString, complaint] : disallowed) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(ParseError(modeString), strprintf("Invalid video mode: '%s' ", modeString));
        EXPECT_EQ(testing::internal::GetCapturedStderr(), strprintf("Videomode %s\n", complaint));
    }
}

TEST_F(VideoModeTest, APlayerLimitedToHdRefusesWhatIsLarger) {
    const char* const large[] = {"3840x2160x24p", "4096x2160x60p", "2560x1080x60p", "1792x1344x60p",
                                 "2560x960x60p",  "3840x600x60p",  "2048x1152x60p"};
    const char* const allowed[] = {"1920x1200x60p", "2376x288x60p", "1440x1080x60p", "1440x1088x57p"};
    for (const char* name : large) {
        EXPECT_EQ(ParseError(name), "") << name;
    }
    LimitPlayerToHd();
    for (const char* name : large) {
        EXPECT_THAT(ParseError(name), HasSubstr(name));
    }
    for (const char* name : allowed) {
        EXPECT_EQ(ParseError(name), "") << name;
    }
}

TEST(VideoModeTable, RowsMeanWhatTheirNamesSay) {
    // "57p" is how the field calls a 60 Hz mode; interlaced modes carry their frame rate.
    const std::map<std::string, std::uint32_t> frequencies = {
        {"24p", 0x80}, {"23.976p", 0x100}, {"25p", 0x1},  {"29.97p", 0x2}, {"30p", 0x40},
        {"50p", 0x4},  {"59.94p", 0x8},    {"60p", 0x10}, {"57p", 0x10},   {"75p", 0x20},
        {"50i", 0x1},  {"59.94i", 0x2},    {"60i", 0x40}};
    std::map<std::string, std::uint64_t> resolutionOfSize;
    std::map<std::uint64_t, std::string> sizeOfResolution;
    std::set<std::string> names;
    for (const VideoMode::Mode& mode : GetVideoModeTable()) {
        const std::string name = mode.name;
        SCOPED_TRACE(name);
        EXPECT_TRUE(names.insert(name).second);
        EXPECT_EQ(mode.tv_timing + mode.pc_timing, 1);
        const std::size_t lastX = name.rfind('x');
        EXPECT_EQ(mode.tv_standard == DSETV_DIGITAL, lastX != std::string::npos);
        if (lastX == std::string::npos || name == "720x480x60i") {
            continue;  // an analogue standard, or the digital form of one
        }
        const std::string size = name.substr(0, lastX);
        EXPECT_EQ(mode.scan_mode, name.back() == 'i' ? DSESM_INTERLACED : DSESM_PROGRESSIVE);
        EXPECT_EQ(mode.frequency, frequencies.at(name.substr(lastX + 1)));
        EXPECT_EQ(resolutionOfSize.emplace(size, mode.resolution).first->second, mode.resolution);
        EXPECT_EQ(sizeOfResolution.emplace(mode.resolution, size).first->second, size);
    }
    EXPECT_EQ(names.size(), 93U);
}

TEST_F(VideoModeTest, TheModeFileIsTrimmedAndLowerCased) {
    EXPECT_EQ(VideoMode::ReadModeName(Write("mode", " 1920x1080x50P:10Bit\r\n")), "1920x1080x50p:10bit");
    EXPECT_EQ(VideoMode::ReadModeName(Write("mode", std::string("\0\v\tpal-I\0", 9))), "pal-i");
    EXPECT_EQ(VideoMode::ReadModeName(Write("mode", "pal-i\f\n")), "pal-i\f");
    EXPECT_EQ(VideoMode::ReadModeName(Write("mode", " \n")), "");
    EXPECT_THROW(VideoMode::ReadModeName("/nonexistent/mode"), ErrnoException);
}

/// A screen whose encoder remembers what it was set to.
struct FakeScreen : IDirectFBScreen {
    FakeScreen() : IDirectFBScreen{} {
        AddRef = [](IDirectFBScreen*) { return DR_OK; };
        Release = [](IDirectFBScreen*) { return DR_OK; };
        GetEncoderConfiguration = [](IDirectFBScreen* screen, int, DFBScreenEncoderConfig* read) {
            *read = static_cast<FakeScreen*>(screen)->configuration;
            return DFB_OK;
        };
        SetEncoderConfiguration = [](IDirectFBScreen* screen, int encoder,
                                     const DFBScreenEncoderConfig* set) {
            EXPECT_EQ(encoder, 0);
            static_cast<FakeScreen*>(screen)->configuration = *set;
            return ++static_cast<FakeScreen*>(screen)->timesSet, DFB_UNSUPPORTED;
        };
    }
    DFBScreenEncoderConfig configuration{};
    int timesSet = 0;
};

TEST_F(VideoModeTest, AppliesWhatTheEncoderKnowsAndLeavesTheRest) {
    struct {
        const char* modeString;
        bool limitToHd;
        unsigned flags, tvStandard, scanMode, frequency, resolution;
    } const cases[] = {
        {"pal-i", false, 0xD91, DSETV_PAL, DSESM_INTERLACED, DSEF_25HZ, DSOR_720_576},
        {"1920x1080x59.94i", true, 0xD91, DSETV_DIGITAL, DSESM_INTERLACED, DSEF_29_97HZ, DSOR_1920_1080},
        {"1366x768x60p", false, 0xD91, DSETV_DIGITAL, DSESM_PROGRESSIVE, DSEF_60HZ, DSOR_1366_768},
        {"2560x1440x30p", true, 0xD91, DSETV_DIGITAL, DSESM_PROGRESSIVE, DSEF_30HZ, DSOR_2560_1440},
        {"4096x2160x24p", false, 0xD91, DSETV_DIGITAL, DSESM_PROGRESSIVE, DSEF_24HZ, DSOR_4096_2160},
        {"4096x2160x24p", true, 0xD91, DSETV_DIGITAL, DSESM_PROGRESSIVE, DSEF_60HZ, DSOR_1920_1080},
        // Its resolution is 0x2000, which upstream is 960x540.
        {"1280x800x75p", false, 0x991, DSETV_DIGITAL, DSESM_PROGRESSIVE, DSEF_75HZ, DSOR_800_480},
    };
    static unsigned observedFlags;
    VideoMode::SetEncoderObserver([](std::uint32_t flags, std::uint32_t) { observedFlags = flags; });
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.modeString);
        FakeScreen screen;
        screen.configuration.flags = DSECONF_RESOLUTION;
        screen.configuration.resolution = DSOR_800_480;
        screen.configuration.mixer = 7;
        EXPECT_TRUE(VideoMode::ApplyMode(DFBPointer<IDirectFBScreen>(&screen), expected.modeString,
                                         expected.limitToHd));
        EXPECT_EQ(observedFlags, expected.flags);
        EXPECT_EQ(screen.timesSet, 1);
        const DFBScreenEncoderConfig& set = screen.configuration;
        EXPECT_EQ(std::tie(set.flags, set.tv_standard, set.scanmode, set.frequency, set.resolution),
                  std::tie(expected.flags, expected.tvStandard, expected.scanMode, expected.frequency,
                           expected.resolution));
        EXPECT_EQ(set.out_connectors, DSOC_HDMI);
        EXPECT_EQ(set.framing, DSEPF_MONO);
        EXPECT_EQ(set.mixer, 7);
    }
    VideoMode::SetEncoderObserver(nullptr);
}

TEST_F(VideoModeTest, AnInvalidModeLeavesTheEncoderAndAMissingModeFileFallsBack) {
    FakeScreen screen;
    EXPECT_THROW(VideoMode::ApplyMode(DFBPointer<IDirectFBScreen>(&screen), "bogus", true),
                 VideoMode::Invalid);
    EXPECT_EQ(screen.timesSet, 0);

    if (fs::exists("/var/run/video.mode")) {
        GTEST_SKIP() << "this machine has a current video mode";
    }
    EXPECT_THROW(VideoMode::ApplyCurrentMode(DFBPointer<IDirectFBScreen>(&screen), false, false),
                 ErrnoException);
    EXPECT_EQ(screen.timesSet, 0);
    EXPECT_TRUE(VideoMode::ApplyCurrentMode(DFBPointer<IDirectFBScreen>(&screen), true, false));
    EXPECT_EQ(screen.configuration.resolution, DSOR_640_480);
}

}  // namespace
