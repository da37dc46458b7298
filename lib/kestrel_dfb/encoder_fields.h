#pragma once

// Copies the fields of a video mode into a DirectFB encoder configuration: those that every DirectFB has,
// and all those of the player's. Templates over the configuration record, so that the player's form is
// compiled and tested also where the DirectFB at hand is an upstream one, whose record lacks its fields.

#include <directfb.h>

#include <cstdint>

#include "lib/kestrel_dfb/video_mode_record.h"

/// Marks fields of a configuration as valid; marks that are there stay. Any thread.
/// @param configuration has the marks in its field "flags"
/// @param flags the bits of the fields
template <typename Configuration>
void AddFlags(Configuration& configuration, std::uint32_t flags) {
    configuration.flags = static_cast<decltype(configuration.flags)>(configuration.flags | flags);
}

/// Assigns a number to a field whose type, an enumeration or an integer, depends on the DirectFB. Any
/// thread.
template <typename Field, typename Value>
void AssignField(Field& field, Value value) {
    field = static_cast<Field>(value);
}

/// Copies and marks the fields whose values are the same in every DirectFB. Any thread.
template <typename Configuration>
void CopyCommonFields(const VideoModeRecord& mode, Configuration& configuration) {
    AddFlags(configuration, DSECONF_TV_STANDARD | DSECONF_SCANMODE | DSECONF_FREQUENCY | DSECONF_CONNECTORS |
                                DSECONF_FRAMING);
    AssignField(configuration.tv_standard, mode.tv_standard);
    AssignField(configuration.out_connectors, mode.connectors);
    AssignField(configuration.scanmode, mode.scan_mode);
    AssignField(configuration.frequency, mode.frequency);
    AssignField(configuration.framing, mode.framing);
}

/// Copies and marks all fields that the player's DirectFB takes from a mode. Any thread.
template <typename Configuration>
void CopyPlayerFields(const VideoModeRecord& mode, Configuration& configuration) {
    // An upstream DirectFB has no names for these bits.
    constexpr std::uint32_t COLOR_SPACE_FIELD = 0x2000;
    constexpr std::uint32_t COLOR_DEPTH_FIELD = 0x4000;
    constexpr std::uint32_t REDUCED_BLANKING_FIELD = 0x8000;
    constexpr std::uint32_t RANGE_FIELD = 0x10000;
    constexpr std::uint32_t DBV_FIELD = 0x80000;

    CopyCommonFields(mode, configuration);
    AddFlags(configuration, DSECONF_RESOLUTION | COLOR_SPACE_FIELD | COLOR_DEPTH_FIELD |
                                REDUCED_BLANKING_FIELD | RANGE_FIELD | DBV_FIELD);
    AssignField(configuration.resolution, mode.resolution);
    AssignField(configuration.color_space, mode.color_space);
    AssignField(configuration.color_depth, mode.color_depth);
    AssignField(configuration.reduced_blanking, mode.reduced_blanking);
    AssignField(configuration.range, mode.range);
    AssignField(configuration.dbv, mode.dbv);
}
