#include "lib/kestrel_dfb/video_mode.h"

#include <exception>
#include <utility>

#include "lib/kestrel_dfb/encoder_configuration.h"
#include "lib/kestrel_dfb/video_mode_table.h"
#include "lib/platform/assertion.h"
#include "lib/platform/message.h"
#include "lib/platform/posix_helpers.h"
#include "lib/platform/string_operations.h"
#include "lib/platform/string_splitter.h"
#include "lib/player/hardware_config.h"

namespace {

constexpr char MODE_FILE[] = "/var/run/video.mode";
constexpr char DEFAULT_MODE[] = "1920x1080x60p";
constexpr char FALL_BACK_MODE[] = "640x480x60p";
constexpr char HD_MODE[] = "1920x1080x60p";

constexpr int ENCODER = 0;

// The player's bits for these fields; those that an encoder configuration has are marked by the same bits
// there.
enum OptionField : std::uint32_t {
    COLOR_SPACE = 0x2000,
    COLOR_DEPTH = 0x4000,
    REDUCED_BLANKING = 0x8000,
    RANGE = 0x10000,
    UPSCALE = 0x20000,
    GFX_MEM_LARGE = 0x40000,
    DBV = 0x80000,
};

/// An option word: the field of the mode that it sets, and to what.
struct Option {
    std::string_view word;
    OptionField field;
    std::uint8_t value;
};

// clang-format off
constexpr Option OPTIONS[] = {
    {"rgb", COLOR_SPACE, 1},
    {"420", COLOR_SPACE, 2},
    {"422", COLOR_SPACE, 3},
    {"444", COLOR_SPACE, 4},
    {"8bit", COLOR_DEPTH, 1},
    {"10bit", COLOR_DEPTH, 2},
    {"12bit", COLOR_DEPTH, 3},
    {"16bit", COLOR_DEPTH, 4},
    {"rblank", REDUCED_BLANKING, 1},
    {"fullrange", RANGE, 2},
    {"limitedrange", RANGE, 1},
    {"fullres", UPSCALE, 0},
    {"upscale", UPSCALE, 1},
    {"gfxmemlarge", GFX_MEM_LARGE, 1},
    {"dbv", DBV, 1},
};
// clang-format on

// 2376x288, 1440x1080 and 1440x1088 are deliberately missing: they stay allowed on a limited player, odd
// as they are, and none has more pixels than HD.
constexpr std::uint64_t LARGE_RESOLUTIONS[] = {
    0x2000000,     // 2048x1152
    0x4000000,     // 2560x1080
    0x8000000,     // 2560x1440
    0x10000000,    // 2560x1600
    0x20000000,    // 3440x1440
    0x40000000,    // 3840x600
    0x100000000,   // 3840x1080
    0x800000000,   // 2560x960
    0x4000000000,  // 1792x1344
};

bool IsUhd(std::uint64_t resolution) {
    return resolution == RESOLUTION_3840_2160 || resolution == RESOLUTION_4096_2160;
}

void ApplyOption(const Option& option, VideoMode::Mode& mode) {
    switch (option.field) {
        case COLOR_SPACE:
            mode.color_space = option.value;
            break;
        case COLOR_DEPTH:
            mode.color_depth = option.value;
            break;
        case REDUCED_BLANKING:
            mode.reduced_blanking = option.value;
            break;
        case RANGE:
            mode.range = option.value;
            break;
        case UPSCALE:
            mode.upscale = option.value;
            break;
        case GFX_MEM_LARGE:
            mode.gfx_mem_large = option.value;
            break;
        case DBV:
            mode.dbv = option.value;
            break;
    }
}

void ApplyWord(const std::string& word, VideoMode::Mode& mode) {
    for (const Option& option : OPTIONS) {
        if (option.word == word) {
            ApplyOption(option, mode);
            return;
        }
    }
    if (word == "preferred") {
        mode.preferred = 1;
    }
}

// The mode's name is a word like any other: it is no option word, so it is ignored with the unknown ones.
void ApplyWords(const std::string& modeString, VideoMode::Mode& mode) {
    const StringSplitter words(modeString, ":");
    for (std::size_t i = 0; i < words.size(); ++i) {
        ApplyWord(words[i], mode);
    }
}

std::uint8_t GetAllowedColorSpaces(const VideoMode::Mode& mode) {
    switch (mode.color_depth) {
        case COLOR_DEPTH_8_BIT:
            return mode.color_spaces_8bit;
        case COLOR_DEPTH_10_BIT:
            return mode.color_spaces_10bit;
        case COLOR_DEPTH_12_BIT:
            return mode.color_spaces_12bit;
        default:
            return 0;  // no mode says what it allows at 16 bits
    }
}

bool IsColorSpaceAllowed(const VideoMode::Mode& mode) {
    return (GetAllowedColorSpaces(mode) >> (mode.color_space - 1) & 1) != 0;
}

std::string Trim(const std::string& text) {
    // A form feed is not blank here: players have always kept it.
    static constexpr std::string_view BLANKS("\0\t\n\v\r ", 6);
    const std::size_t first = text.find_first_not_of(BLANKS);
    if (first == std::string::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

}  // namespace

VideoMode::EncoderObserver VideoMode::sm_encoderObserver = nullptr;
std::uint32_t VideoMode::sm_lastAppliedConnectors = 0;
bool VideoMode::sm_hdmiOnly = false;

VideoMode::Invalid::Invalid(std::string message, std::string mode)
    : m_message(std::move(message)), m_mode(std::move(mode)) {}

bool VideoMode::Parse(std::string& mode_string, Mode& mode) {
    if (mode_string.empty()) {
        mode_string = DEFAULT_MODE;
    }
    const std::string name = mode_string.substr(0, mode_string.find(':'));

    const auto table = GetVideoModeTable();
    for (std::size_t index = 0; index < table.size(); ++index) {
        if (!IsResolutionSupported(table[index].resolution) || !NameMatches(index, name)) {
            continue;
        }
        mode = table[index];
        ApplyWords(mode_string, mode);
        if (IsColorSpaceAllowed(mode)) {
            return true;
        }
        // Deliberately no fall-back to a colour space that the mode would allow.
        PLATFORM_MESSAGE("Videomode %s does not support bit depth %d, will colorspace %d\n", name.c_str(),
                         static_cast<int>(mode.color_depth), static_cast<int>(mode.color_space));
    }
    // The message ends in a blank, deliberately. It is not made by strprintf, which would cut a long mode
    // string, and one with a zero byte.
    throw Invalid("Invalid video mode: '" + mode_string + "' ", mode_string);
}

std::string VideoMode::ReadCurrentModeName() {
    return ReadModeName(MODE_FILE);
}

std::string VideoMode::ReadModeName(const std::string& path) {
    return strata::ToLowerAscii(Trim(read_file_throw(path)));
}

bool VideoMode::ApplyCurrentMode(DFBPointer<IDirectFBScreen> screen, bool fall_back, bool limit_to_hd) {
    std::string name;
    try {
        name = ReadCurrentModeName();
    } catch (const std::exception&) {
        if (!fall_back) {
            throw;
        }
        // Every display can show this mode, and a picture is better than none.
        name = FALL_BACK_MODE;
    }
    return ApplyMode(std::move(screen), std::move(name), limit_to_hd);
}

bool VideoMode::ApplyMode(DFBPointer<IDirectFBScreen> screen, std::string mode_string, bool limit_to_hd) {
    Mode mode{};
    Parse(mode_string, mode);
    if (limit_to_hd && !LimitToHd(mode)) {
        return false;
    }

    // A screen without an encoder leaves the record as it is here, and refuses it below.
    DFBScreenEncoderConfig configuration{};
    screen->GetEncoderConfiguration(screen, ENCODER, &configuration);
    CopyModeToEncoderConfiguration(mode, configuration);
    if (sm_encoderObserver != nullptr) {
        sm_encoderObserver(configuration.flags, mode.connectors);
    }
    sm_lastAppliedConnectors = mode.connectors;
    if (sm_hdmiOnly) {
        configuration.out_connectors = static_cast<DFBScreenOutputConnectors>(CONNECTOR_HDMI);
    }
    screen->SetEncoderConfiguration(screen, ENCODER, &configuration);
    return true;
}

bool VideoMode::LimitToHd(Mode& mode) {
    if (IsUhd(mode.resolution)) {
        std::string hdMode = HD_MODE;
        try {
            Parse(hdMode, mode);
        } catch (const Invalid&) {
            return false;  // the caller leaves the picture as it is, which beats one that cannot be shown
        }
    }
    mode.color_space = COLOR_SPACE_RGB;
    return true;
}

bool VideoMode::IsResolutionSupported(std::uint64_t resolution) {
    if (!HardwareConfig::GetInstance()->IsLimitedToHd()) {
        return true;
    }
    return !IsUhd(resolution) && !IsLargeResolution(resolution);
}

bool VideoMode::IsLargeResolution(std::uint64_t resolution) {
    for (const std::uint64_t large : LARGE_RESOLUTIONS) {
        if (resolution == large) {
            return true;
        }
    }
    return false;
}

bool VideoMode::NameMatches(std::size_t index, std::string_view name) {
    const auto table = GetVideoModeTable();
    PLATFORM_ASSERT(index < table.size());
    return strata::EqualIgnoringAsciiCase(table[index].name, name);
}
