// From the text of a mode file to a mode, on a player without limits and on one limited to HD: a mode that is
// accepted is one that the table allows, and can be said again in words.

#include <sys/mman.h>
#include <unistd.h>

#include "lib/kestrel_dfb/video_mode.h"
#include "lib/kestrel_dfb/video_mode_table.h"
#include "lib/platform/posix_helpers.h"
#include "lib/platform/string_operations.h"
#include "lib/player/hardware_config.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

bool isLimited = false;  // the player, to HD

std::string ReadFromFile(const std::string& text) {
    const strata::UniqueFd file(memfd_create("video.mode", MFD_CLOEXEC));
    write_all_throw(file.Get(), text.data(), text.size());
    return VideoMode::ReadModeName("/proc/self/fd/" + std::to_string(file.Get()));
}

void CheckAllowed(const VideoMode::Mode& mode) {
    const std::uint8_t allowed[] = {mode.color_spaces_8bit, mode.color_spaces_10bit, mode.color_spaces_12bit};
    REQUIRE(mode.color_depth >= 1 && mode.color_depth <= std::size(allowed));
    REQUIRE(mode.color_space >= 1 && mode.color_space <= 4);
    REQUIRE((allowed[mode.color_depth - 1] >> (mode.color_space - 1) & 1) != 0);
}

/// Says a mode in words; those that only set a flag are left out where it is not set.
std::string Describe(const VideoMode::Mode& mode) {
    static constexpr const char* SPACES[] = {"rgb", "420", "422", "444"};
    static constexpr const char* DEPTHS[] = {"8bit", "10bit", "12bit"};
    static constexpr const char* RANGES[] = {"", "limitedrange", "fullrange"};
    return strprintf("%s:%s:%s:%s:%s%s%s%s%s", mode.name, SPACES[mode.color_space - 1],
                     DEPTHS[mode.color_depth - 1], RANGES[mode.range],
                     mode.upscale != 0 ? "upscale" : "fullres", mode.reduced_blanking != 0 ? ":rblank" : "",
                     mode.gfx_mem_large != 0 ? ":gfxmemlarge" : "", mode.dbv != 0 ? ":dbv" : "",
                     mode.preferred != 0 ? ":preferred" : "");
}

void CheckMode(std::string text) {
    VideoMode::Mode mode{};
    try {
        REQUIRE(VideoMode::Parse(text, mode));
    } catch (const VideoMode::Invalid& invalid) {
        REQUIRE(invalid.GetMode() == text);
        return;
    }
    CheckAllowed(mode);
    REQUIRE(text.substr(0, text.find(':')) == mode.name);

    VideoMode::Mode again{};
    std::string description = Describe(mode);
    REQUIRE(VideoMode::Parse(description, again));
    REQUIRE(Describe(again) == description && again.resolution == mode.resolution);

    const std::uint64_t resolution = mode.resolution;
    REQUIRE(VideoMode::LimitToHd(mode));
    REQUIRE(mode.color_space == COLOR_SPACE_RGB && mode.resolution != RESOLUTION_3840_2160 &&
            mode.resolution != RESOLUTION_4096_2160);
    // A limited player has accepted nothing that is still to be limited.
    REQUIRE(!isLimited || mode.resolution == resolution);
}

}  // namespace

// In the place of those that ask the device tree.
HardwareConfig::HardwareConfig(const DeviceTree&, const std::string&) {}
bool HardwareConfig::IsLimitedToHd() const {
    return isLimited;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = ReadFromFile(FuzzInput(data, size).TakeRest());
    REQUIRE(text == strata::ToLowerAscii(text));
    for (const bool limited : {false, true}) {
        isLimited = limited;
        const HardwareConfig hardware;
        CheckMode(text);
    }
    return 0;
}
