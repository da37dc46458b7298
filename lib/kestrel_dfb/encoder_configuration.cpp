#include "lib/kestrel_dfb/encoder_configuration.h"

#include <cstdint>

namespace {

constexpr std::uint32_t COMMON_FIELDS =
    DSECONF_TV_STANDARD | DSECONF_SCANMODE | DSECONF_FREQUENCY | DSECONF_CONNECTORS | DSECONF_FRAMING;

void AddFlags(DFBScreenEncoderConfig& configuration, std::uint32_t flags) {
    configuration.flags = static_cast<DFBScreenEncoderConfigFlags>(configuration.flags | flags);
}

void CopyCommonFields(const VideoMode::Mode& mode, DFBScreenEncoderConfig& configuration) {
    AddFlags(configuration, COMMON_FIELDS);
    configuration.tv_standard = static_cast<DFBScreenEncoderTVStandards>(mode.tv_standard);
    configuration.out_connectors = static_cast<DFBScreenOutputConnectors>(mode.connectors);
    configuration.scanmode = static_cast<DFBScreenEncoderScanMode>(mode.scan_mode);
    configuration.frequency = static_cast<DFBScreenEncoderFrequency>(mode.frequency);
    configuration.framing = static_cast<DFBScreenEncoderPictureFraming>(mode.framing);
}

#ifdef PADTUNE_HAVE_ENCODER_EXTENSIONS

constexpr std::uint32_t COLOR_SPACE_FIELD = 0x2000;
constexpr std::uint32_t COLOR_DEPTH_FIELD = 0x4000;
constexpr std::uint32_t REDUCED_BLANKING_FIELD = 0x8000;
constexpr std::uint32_t RANGE_FIELD = 0x10000;
constexpr std::uint32_t DBV_FIELD = 0x80000;
constexpr std::uint32_t EXTENSION_FIELDS =
    COLOR_SPACE_FIELD | COLOR_DEPTH_FIELD | REDUCED_BLANKING_FIELD | RANGE_FIELD | DBV_FIELD;

template <typename Field, typename Value>
void Assign(Field& field, Value value) {
    field = static_cast<Field>(value);
}

void CopyDistinctFields(const VideoMode::Mode& mode, DFBScreenEncoderConfig& configuration) {
    AddFlags(configuration, DSECONF_RESOLUTION | EXTENSION_FIELDS);
    Assign(configuration.resolution, mode.resolution);
    Assign(configuration.color_space, mode.color_space);
    Assign(configuration.color_depth, mode.color_depth);
    Assign(configuration.reduced_blanking, mode.reduced_blanking);
    Assign(configuration.range, mode.range);
    Assign(configuration.dbv, mode.dbv);
}

#else

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

void CopyDistinctFields(const VideoMode::Mode& mode, DFBScreenEncoderConfig& configuration) {
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

}  // namespace

void CopyModeToEncoderConfiguration(const VideoMode::Mode& mode, DFBScreenEncoderConfig& configuration) {
    CopyCommonFields(mode, configuration);
    CopyDistinctFields(mode, configuration);
}
