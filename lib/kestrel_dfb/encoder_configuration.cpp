#include "lib/kestrel_dfb/encoder_configuration.h"

#include <cstdint>

#include "lib/kestrel_dfb/encoder_fields.h"

#ifdef PADTUNE_HAVE_ENCODER_EXTENSIONS

void CopyModeToEncoderConfiguration(const VideoModeRecord& mode, DFBScreenEncoderConfig& configuration) {
    CopyPlayerFields(mode, configuration);
}

#else

namespace {

struct ResolutionTranslation {
    std::uint64_t player;
    DFBScreenOutputResolution upstream;
};

// The two enumerations agree up to 0x1000 and then give the same bits to different sizes, so a value is
// translated by the size that it names. Sizes that upstream does not know are not listed.
// clang-format off
constexpr ResolutionTranslation RESOLUTIONS[] = {
    {0x1, DSOR_640_480},
    {0x2, DSOR_720_480},
    {0x4, DSOR_720_576},
    {0x8, DSOR_800_600},
    {0x10, DSOR_1024_768},
    {0x40, DSOR_1280_720},
    {0x80, DSOR_1280_768},
    {0x100, DSOR_1280_960},
    {0x200, DSOR_1280_1024},
    {0x400, DSOR_1400_1050},
    {0x800, DSOR_1600_1200},
    {0x1000, DSOR_1920_1080},
    {0x8000, DSOR_1366_768},
    {0x40000, DSOR_3840_2160},
    {0x80000, DSOR_4096_2160},
    {0x200000, DSOR_1920_1200},
    {0x8000000, DSOR_2560_1440},
    {0x10000000, DSOR_2560_1600},
};
// clang-format on

}  // namespace

void CopyModeToEncoderConfiguration(const VideoModeRecord& mode, DFBScreenEncoderConfig& configuration) {
    CopyCommonFields(mode, configuration);
    for (const ResolutionTranslation& translation : RESOLUTIONS) {
        if (translation.player == mode.resolution) {
            AddFlags(configuration, DSECONF_RESOLUTION);
            configuration.resolution = translation.upstream;
            return;
        }
    }
    configuration.flags = static_cast<DFBScreenEncoderConfigFlags>(configuration.flags & ~DSECONF_RESOLUTION);
}

#endif
