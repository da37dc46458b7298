#pragma once

// The player's video modes as data: every mode that a mode string can name, in the order in which the
// parser looks at them.

#include <cstdint>
#include <span>

#include "lib/kestrel_dfb/video_mode_record.h"

constexpr std::uint32_t COLOR_SPACE_RGB = 1;             ///< value of color_space
constexpr std::uint32_t COLOR_DEPTH_8_BIT = 1;           ///< value of color_depth
constexpr std::uint32_t COLOR_DEPTH_10_BIT = 2;          ///< value of color_depth
constexpr std::uint32_t COLOR_DEPTH_12_BIT = 3;          ///< value of color_depth
constexpr std::uint32_t CONNECTOR_HDMI = 0x40;           ///< bit of connectors
constexpr std::uint64_t RESOLUTION_3840_2160 = 0x40000;  ///< bit of resolution
constexpr std::uint64_t RESOLUTION_4096_2160 = 0x80000;  ///< bit of resolution

/// The video mode table. Any thread.
std::span<const VideoModeRecord> GetVideoModeTable();
