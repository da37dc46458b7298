#pragma once

// One video mode as data: what the table lists, the parser changes and the encoder is given.

#include <cstdint>

/// One video mode: a row of the mode table, or a copy of one changed by option words. Numbers that
/// name a standard, a resolution, a frequency or a connector are those of the player's DirectFB.
struct VideoModeRecord {
    const char* name;                 ///< the row's constant text
    std::uint8_t tv_timing;           ///< 1: television timing
    std::uint8_t pc_timing;           ///< 1: computer timing
    std::uint8_t reduced_blanking;    ///< 1: with shorter pauses between lines and between pictures
    std::uint8_t color_spaces_8bit;   ///< allowed colour spaces, bit n stands for colour space n+1
    std::uint8_t color_spaces_10bit;  ///< likewise
    std::uint8_t color_spaces_12bit;  ///< likewise
    std::uint8_t reserved_after_color_spaces[2];  ///< 0
    std::uint32_t tv_standard;                    ///< one of the player's bits for standards
    std::uint32_t reserved_after_tv_standard;     ///< 0
    std::uint64_t resolution;                     ///< one of the player's bits for sizes
    std::uint32_t frequency;                      ///< frame rate, also for interlaced modes
    std::uint32_t scan_mode;                      ///< 1 interlaced, 2 progressive
    std::uint32_t framing;                        ///< 1 mono, in all rows
    std::uint32_t connectors;                     ///< the outputs, one of the player's bits for each
    std::uint32_t rank;                           ///< the table's; not read by this program
    std::uint32_t color_space;                    ///< 1 RGB, 2 YCbCr 4:2:0, 3 YCbCr 4:2:2, 4 YCbCr 4:4:4
    std::uint32_t color_depth;                    ///< 1 8-bit, 2 10-bit, 3 12-bit, 4 16-bit
    std::uint32_t range;                          ///< 0 not specified, 1 limited, 2 full
    std::uint8_t preferred;                       ///< 1: the mode string has the word "preferred"
    std::uint8_t reserved_after_preferred[3];     ///< 0
    std::uint32_t upscale;                        ///< 1: graphics are rendered at a lower size and scaled up
    std::uint8_t gfx_mem_large;                   ///< 1: the mode string has the word "gfxmemlarge"
    std::uint8_t dbv;                             ///< 1: the mode string has the word "dbv"
    std::uint8_t reserved_at_end[6];              ///< 0
};
