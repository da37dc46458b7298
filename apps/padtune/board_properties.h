#pragma once

// What the properties text of a port says about the board, and the table of the boards that the page tells
// apart.

#include <cstdint>
#include <string>

/// How a board's buttons are arranged.
enum class Keypad {
    CROSS,  ///< four buttons: right, up, down, left
    GRID,   ///< eleven buttons: three columns of three, then a column of two
};

/// One kind of board. Colours are 0xRRGGBB.
struct BoardKind {
    const char* name;   ///< as the page shows it; null for the model of the properties text
    const char* model;  ///< the model of the properties text; null for any
    int rawHeader;      ///< the raw header that tells the kind from others of its model, or ANY_RAW_HEADER
    Keypad keypad;      ///< how the buttons of the kind are arranged
    std::uint32_t lineColour;   ///< of the identity line
    std::uint32_t touchColour;  ///< of a touched button whose GPIO line follows
    bool showsHeader;           ///< whether the identity line tells if the board has a header

    static constexpr int ANY_RAW_HEADER = -1;  ///< as rawHeader: the row is for any
};

/// A properties text, taken apart.
struct BoardProperties {
    std::string model;       ///< empty when unknown
    std::string revision;    ///< empty when unknown
    bool hasHeader = false;  ///< whether the board says that it has a header
    int rawHeader = -1;      ///< -1 when unknown

    /// Reads a text of semicolon-separated pairs ("hardware=KP480;revision=B"). A piece that is no pair
    /// is reported on standard error and skipped; unknown keys are ignored, and a repeated key
    /// overwrites.
    static BoardProperties Parse(const std::string& text);

    /// Whether the board can be named: its model and its revision are both known.
    bool IsIdentified() const { return !model.empty() && !revision.empty(); }

    /// The kind of the board. The raw header counts only for a board that can be named.
    const BoardKind& GetKind() const;

    /// The name of the board's kind, empty when its model is unknown.
    std::string GetName() const;
};
