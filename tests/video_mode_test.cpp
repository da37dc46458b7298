// Mode strings and the programming of a mode into an encoder.

#include "lib/kestrel_dfb/video_mode.h"

#include <directfb_strings.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <regex>
#include <string>
#include <tuple>
#include <utility>

#include "lib/kestrel_dfb/encoder_configuration.h"
#include "lib/kestrel_dfb/encoder_fields.h"
#include "lib/kestrel_dfb/video_mode_table.h"
#include "lib/platform/errno_exception.h"
#include "lib/platform/string_operations.h"
#include "lib/player/hardware_config.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using ::testing::StartsWith;

/// A folder of its own for each test, with a device tree of a player and room for a mode file.
class VideoModeTest : public testing::Test {
public:
    VideoModeTest() {
        fs::create_directories(m_folder + "/vantora,player");
        m_hardware.emplace(DeviceTree(m_folder), m_folder + "/none");
    }
    ~VideoModeTest() override { fs::remove_all(m_folder); }

protected:
    std::string Write(const std::string& name, const std::string& content) const {
        std::ofstream(m_folder + name, std::ios::binary) << content;
        return m_folder + name;
    }

    const std::string m_folder = testing::TempDir() + "video_mode_" + std::to_string(getpid());
    std::optional<HardwareConfig> m_hardware;
};

/// The mode that a mode string gives, or what is printed and thrown instead.
std::string Parse(std::string modeString) {
    VideoMode::Mode mode{};
    testing::internal::CaptureStderr();
    try {
        EXPECT_TRUE(VideoMode::Parse(modeString, mode));
    } catch (const VideoMode::Invalid& invalid) {
        EXPECT_EQ(invalid.GetMode(), modeString);
        // A zero byte in the mode string does not end the message.
        const std::size_t length = std::string_view("Invalid video mode: '' ").size() + modeString.size();
        return testing::internal::GetCapturedStderr() + std::string(invalid.what(), length);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    return strprintf("%s space%u depth%u range%u%s%s%s%s%s", mode.name, mode.color_space, mode.color_depth,
                     mode.range, mode.upscale ? " upscale" : "", mode.reduced_blanking ? " rblank" : "",
                     mode.gfx_mem_large ? " gfxmemlarge" : "", mode.dbv ? " dbv" : "",
                     mode.preferred ? " preferred" : "");
}

TEST_F(VideoModeTest, AModeStringSelectsARowAndChangesIt) {
    const std::pair<const char*, const char*> cases[] = {
        {"", "1920x1080x60p space1 depth1 range0"},
        {"1920X1080X60P", "1920x1080x60p space1 depth1 range0"},
        {"1920x1080x60p:10BIT:PREFERRED", "1920x1080x60p space1 depth1 range0"},
        {"1920x1080x60p:10bit:444", "1920x1080x60p space4 depth2 range0"},
        {"1920x1080x60p::preferred:bogus:", "1920x1080x60p space1 depth1 range0 preferred"},
        {"3840x2160x60p:10bit", "3840x2160x60p space2 depth2 range0 upscale"},
        {"3840x2160x30p:12bit:422", "3840x2160x30p space3 depth3 range0 upscale"},
        {"2560x1440x60p:fullres", "2560x1440x60p space1 depth1 range0"},
        {"2560x1440x60p:fullres:upscale", "2560x1440x60p space1 depth1 range0 upscale"},
        {"1440x1080x60p:limitedrange", "1440x1080x60p space1 depth1 range1 rblank"},
        {"pal-nc:rblank:fullrange:gfxmemlarge:dbv:12bit:8bit:rgb",
         "pal-nc space1 depth1 range2 rblank gfxmemlarge dbv"},
    };
    for (const auto& [modeString, expected] : cases) {
        EXPECT_EQ(Parse(modeString), expected) << modeString;
    }
    for (const VideoModeRecord& row : GetVideoModeTable()) {
        EXPECT_THAT(Parse(row.name), StartsWith(row.name + " space"s));
    }
    VideoMode::Mode mode{};
    std::string empty;
    VideoMode::Parse(empty, mode);
    EXPECT_EQ(empty, "1920x1080x60p");
}

auto GetOtherFields(const VideoModeRecord& mode) {
    return std::tuple(mode.tv_timing, mode.tv_standard, mode.rank, mode.color_space, mode.color_spaces_8bit,
                      mode.color_spaces_10bit, mode.color_spaces_12bit, mode.reduced_blanking, mode.upscale);
}

TEST(VideoModeTable, ASizeOrARateIsTheSameInEveryRow) {
    std::map<std::string, std::uint64_t> resolutions;
    std::map<std::uint64_t, std::string> sizes;
    std::map<std::string, std::uint32_t> frequencies;
    std::map<std::tuple<std::string, std::string, bool>, decltype(GetOtherFields(VideoModeRecord()))> others;
    for (const VideoModeRecord& mode : GetVideoModeTable()) {
        std::smatch parts;
        const std::string name = mode.name;
        if (!std::regex_match(name, parts, std::regex("([0-9]+x[0-9]+)x([0-9.]+)([ip])"))) {
            continue;  // a television standard
        }
        // 60 fields a second are 30 pictures; a rate of its own in the analogue 480 lines.
        const std::string rate =
            parts[1] == "720x480" && parts[3] == "i" ? "ntsc" : parts[2].str() + parts[3].str();
        EXPECT_EQ(resolutions.try_emplace(parts[1], mode.resolution).first->second, mode.resolution) << name;
        EXPECT_EQ(sizes.try_emplace(mode.resolution, parts[1]).first->second, parts[1]) << name;
        EXPECT_EQ(frequencies.try_emplace(rate, mode.frequency).first->second, mode.frequency) << name;
        EXPECT_EQ(mode.scan_mode, parts[3] == "i" ? 1u : 2u) << name;
        // Colour spaces of more bits are a choice among those that the mode has at all.
        EXPECT_EQ(mode.color_spaces_12bit != 0, mode.color_spaces_10bit != 0) << name;
        EXPECT_EQ(mode.tv_timing, !mode.pc_timing) << name;
        // Modes of a size differ otherwise only by whether a link has to be fast for them.
        const bool isFast = std::stod(parts[2]) > 30;
        const auto fields = GetOtherFields(mode);
        EXPECT_EQ(others.try_emplace({parts[1], parts[3], isFast}, fields).first->second, fields) << name;
    }
    EXPECT_FALSE(resolutions.empty());
}

TEST(VideoModeTable, AStandardWithoutASizeHasTheNameOfItsStandard) {
    std::map<std::uint32_t, std::string> standards;
    static const DirectFBScreenEncoderTVStandardsNames(names);
    for (const auto& [standard, name] : names) {
        standards[standard] = std::regex_replace(strata::ToLowerAscii(name), std::regex("_"), "-");
    }
    unsigned count = 0;
    for (const VideoModeRecord& mode : GetVideoModeTable()) {
        if (std::string_view(mode.name).find('x') == std::string_view::npos) {
            EXPECT_THAT(mode.name, StartsWith(standards.at(mode.tv_standard)));
            ++count;
        }
    }
    EXPECT_EQ(count, 10);
}

TEST_F(VideoModeTest, RejectsUnknownNamesAndColourSpacesThatTheModeDoesNotAllow) {
    for (const std::string& unknown : {"bogus"s, ":preferred"s, "1920x1080x60"s, "1920x1080x60pp:rgb"s,
                                       "1920x1080x60p\0:rgb"s, std::string(5000, 'x')}) {
        EXPECT_EQ(Parse(unknown), "Invalid video mode: '" + unknown + "' ");
    }
    const std::pair<const char*, const char*> disallowed[] = {
        {"1920x1080X60p:12bit:420", "1920x1080X60p does not support bit depth 3, will colorspace 2"},
        {"3840x2160x60p:10bit:rgb", "3840x2160x60p does not support bit depth 2, will colorspace 1"},
        {"1024x768x60p:10bit", "1024x768x60p does not support bit depth 2, will colorspace 1"},
        {"3840x2160x60p:16bit", "3840x2160x60p does not support bit depth 4, will colorspace 2"},
        {"1920x1080x24p:422", "1920x1080x24p does not support bit depth 1, will colorspace 3"},
    };
    for (const auto& [modeString, complaint] : disallowed) {
        EXPECT_EQ(Parse(modeString),
                  strprintf("Videomode %s\nInvalid video mode: '%s' ", complaint, modeString));
    }
}

TEST_F(VideoModeTest, APlayerLimitedToHdRefusesWhatIsLarger) {
    const std::string large[] = {"3840x2160x24p", "4096x2160x60p", "2560x1080x60p", "1792x1344x60p",
                                 "2560x960x60p",  "3840x600x60p",  "2048x1152x60p", "2560x1440x30p",
                                 "2560x1600x60p", "3440x1440x50p", "3840x1080x25p"};
    for (const std::string& name : large) {
        EXPECT_THAT(Parse(name), StartsWith(name));
    }
    Write("/vantora,player/features", {"\0\0\0\1", 4});
    m_hardware.reset();
    m_hardware.emplace(DeviceTree(m_folder), m_folder + "/none");
    for (const std::string& name : large) {
        EXPECT_EQ(Parse(name), "Invalid video mode: '" + name + "' ");
    }
    for (const std::string name : {"1920x1200x60p", "2376x288x60p", "1440x1080x60p", "1440x1088x57p"}) {
        EXPECT_THAT(Parse(name), StartsWith(name));
    }
}

TEST_F(VideoModeTest, TheModeFileIsTrimmedAndLowerCased) {
    const std::pair<std::string, std::string> cases[] = {{" 1920x1080x50P:10Bit\r\n", "1920x1080x50p:10bit"},
                                                         {{"\0\v\tpal-I\0", 9}, "pal-i"},
                                                         {"pal-i\f\n", "pal-i\f"},
                                                         {" \n", ""}};
    for (const auto& [content, expected] : cases) {
        EXPECT_EQ(VideoMode::ReadModeName(Write("/mode", content)), expected);
    }
    EXPECT_THROW(VideoMode::ReadModeName(m_folder + "/missing"), ErrnoException);
}

/// A screen whose encoder remembers what it was set to.
struct FakeScreen : IDirectFBScreen {
    FakeScreen() : IDirectFBScreen{} {
        AddRef = [](auto*) { return DR_OK; };
        Release = [](auto*) { return DR_OK; };
        GetEncoderConfiguration = [](auto* screen, int encoder, DFBScreenEncoderConfig* read) {
            *read = static_cast<FakeScreen*>(screen)->configuration;
            return encoder == 0 ? DFB_OK : (*read = {}, DFB_UNSUPPORTED);
        };
        SetEncoderConfiguration = [](auto* screen, int encoder, const DFBScreenEncoderConfig* set) {
            EXPECT_EQ(encoder, 0);
            static_cast<FakeScreen*>(screen)->configuration = *set;
            return ++static_cast<FakeScreen*>(screen)->timesSet, DFB_UNSUPPORTED;
        };
    }
    DFBScreenEncoderConfig configuration{};
    int timesSet = 0;
};

TEST_F(VideoModeTest, AnUpstreamEncoderGetsWhatItKnowsAndKeepsTheRest) {
#ifdef PADTUNE_HAVE_ENCODER_EXTENSIONS
    GTEST_SKIP() << "the sizes are translated for an upstream DirectFB only";
#else
    struct {
        const char* modeString;
        bool limitToHd;
        unsigned tvStandard, scanMode, frequency, resolution;
    } const cases[] = {
        {"pal-i", false, DSETV_PAL, DSESM_INTERLACED, DSEF_25HZ, DSOR_720_576},
        {"1920x1080x59.94i", true, DSETV_DIGITAL, DSESM_INTERLACED, DSEF_29_97HZ, DSOR_1920_1080},
        {"1366x768x60p", false, DSETV_DIGITAL, DSESM_PROGRESSIVE, DSEF_60HZ, DSOR_1366_768},
        {"1920x1200x50p", false, DSETV_DIGITAL, DSESM_PROGRESSIVE, DSEF_50HZ, DSOR_1920_1200},
        {"2560x1440x30p", true, DSETV_DIGITAL, DSESM_PROGRESSIVE, DSEF_30HZ, DSOR_2560_1440},
        {"3840x2160x25p", false, DSETV_DIGITAL, DSESM_PROGRESSIVE, DSEF_25HZ, DSOR_3840_2160},
        {"4096x2160x24p", false, DSETV_DIGITAL, DSESM_PROGRESSIVE, DSEF_24HZ, DSOR_4096_2160},
        {"4096x2160x24p", true, DSETV_DIGITAL, DSESM_PROGRESSIVE, DSEF_60HZ, DSOR_1920_1080},
        // Not known upstream, where its value is another size's.
        {"1280x800x75p", false, DSETV_DIGITAL, DSESM_PROGRESSIVE, DSEF_75HZ, DSOR_800_480},
    };
    static std::pair<unsigned, unsigned> observed;
    VideoMode::SetEncoderObserver([](auto flags, auto connectors) { observed = {flags, connectors}; });
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.modeString);
        FakeScreen screen;
        DFBScreenEncoderConfig& set = screen.configuration;
        set.flags = DSECONF_RESOLUTION;
        set.resolution = DSOR_800_480;
        set.mixer = 7;
        const DFBPointer<IDirectFBScreen> holder(&screen);
        EXPECT_TRUE(VideoMode::ApplyMode(holder, expected.modeString, expected.limitToHd));
        const unsigned flags = set.resolution == DSOR_800_480 ? 0x991 : 0xD91;
        EXPECT_EQ(std::tie(set.tv_standard, set.scanmode, set.frequency, set.resolution),
                  std::tie(expected.tvStandard, expected.scanMode, expected.frequency, expected.resolution));
        EXPECT_EQ(std::tuple(set.flags, set.out_connectors, set.framing, set.mixer, screen.timesSet),
                  std::tuple(flags, DSOC_HDMI, DSEPF_MONO, 7, 1));
        EXPECT_EQ(observed, std::pair(flags, unsigned{DSOC_HDMI}));
        EXPECT_EQ(VideoMode::GetLastAppliedConnectors(), DSOC_HDMI);
    }
    VideoMode::SetEncoderObserver(nullptr);
#endif
}

TEST(VideoModeTable, AnUpstreamEncoderGetsTheSizeInTheNameOfTheMode) {
#ifdef PADTUNE_HAVE_ENCODER_EXTENSIONS
    GTEST_SKIP() << "the sizes are translated for an upstream DirectFB only";
#else
    std::map<std::string, DFBScreenOutputResolution> upstream;
    static const DirectFBScreenOutputResolutionNames(names);
    for (const auto& [resolution, name] : names) {
        upstream.emplace(name, resolution);
    }
    unsigned known = 0;
    for (const VideoModeRecord& mode : GetVideoModeTable()) {
        const std::string name = mode.name;
        std::smatch parts;
        if (!std::regex_match(name, parts, std::regex("([0-9]+)x([0-9]+)x.*"))) {
            continue;  // a television standard
        }
        DFBScreenEncoderConfig configuration{};
        CopyModeToEncoderConfiguration(mode, configuration);
        const auto size = upstream.find(parts[1].str() + "_" + parts[2].str());
        const bool isKnown = size != upstream.end();
        known += isKnown ? 1 : 0;
        EXPECT_EQ((configuration.flags & DSECONF_RESOLUTION) != 0, isKnown) << name;
        EXPECT_EQ(configuration.resolution, isKnown ? size->second : DFBScreenOutputResolution()) << name;
    }
    EXPECT_GT(known, 40);
#endif
}

TEST_F(VideoModeTest, ThePlayersEncoderGetsEveryFieldAndWithinTheHdLimitRgb) {
    struct {
        std::uint32_t flags, tv_standard, out_connectors, scanmode, frequency, framing;
        std::uint64_t resolution;
        std::uint32_t color_space, color_depth, reduced_blanking, range, dbv;
    } set{};
    set.flags = DSECONF_TEST_PICTURE;
    std::string modeString = "2376x288x60p:444:fullrange";
    VideoMode::Mode mode{};
    VideoMode::Parse(modeString, mode);
    EXPECT_TRUE(VideoMode::LimitToHd(mode));
    std::tie(mode.color_depth, mode.reduced_blanking, mode.dbv) = std::tuple(3, 4, 5);
    CopyPlayerFields(mode, set);
    EXPECT_EQ(set.flags, 0x9ED91 | DSECONF_TEST_PICTURE);
    EXPECT_EQ(std::tie(set.tv_standard, set.out_connectors, set.scanmode, set.frequency, set.framing),
              std::tuple(DSETV_DIGITAL, DSOC_HDMI, DSESM_PROGRESSIVE, DSEF_60HZ, DSEPF_MONO));
    EXPECT_EQ(set.resolution, 0x8000000000);
    EXPECT_EQ(std::tie(set.color_space, set.color_depth, set.reduced_blanking, set.range, set.dbv),
              std::tuple(1, 3, 4, 2, 5));
}

TEST_F(VideoModeTest, AnInvalidModeLeavesTheEncoder) {
    FakeScreen screen;
    const DFBPointer<IDirectFBScreen> holder(&screen);
    EXPECT_THROW(VideoMode::ApplyMode(holder, "bogus", true), VideoMode::Invalid);
    EXPECT_EQ(screen.timesSet, 0);
}

TEST_F(VideoModeTest, AMissingModeFileFallsBackWhenAllowed) {
    if (fs::exists("/var/run/video.mode")) {
        GTEST_SKIP() << "this machine has a current video mode";
    }
    FakeScreen screen;
    const DFBPointer<IDirectFBScreen> holder(&screen);
    EXPECT_THROW(VideoMode::ApplyCurrentMode(holder, false, false), ErrnoException);
    EXPECT_EQ(screen.timesSet, 0);
    EXPECT_TRUE(VideoMode::ApplyCurrentMode(holder, true, false));
    EXPECT_EQ(screen.configuration.resolution, DSOR_640_480);
}

}  // namespace
