#include "apps/padtune/board_properties.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "lib/platform/string_splitter.h"

namespace {

constexpr int ANY = BoardKind::ANY_RAW_HEADER;

constexpr std::uint32_t RED = 0xFF0000;
constexpr std::uint32_t BLUE = 0x0077FF;
constexpr std::uint32_t VIOLET = 0xEE82EE;

// The first row that fits counts; the last one fits every board.
// clang-format off
constexpr BoardKind BOARD_KINDS[] = {
    // name     model    raw header  keypad         line    touched  header shown
    {"KP480S",  "KP480", 92,         Keypad::GRID,  BLUE,   BLUE,    false},
    {"KP480",   "KP480", ANY,        Keypad::GRID,  VIOLET, RED,     false},
    {"KP120",   "KP120", ANY,        Keypad::CROSS, VIOLET, RED,     true},
    {nullptr,   nullptr, ANY,        Keypad::GRID,  VIOLET, RED,     false},
};
// clang-format on

// A text without digits is 0, deliberately. A number beyond 32 bits counts as unknown: it must not be cut to
// one that means something.
int ParseRawHeader(const std::string& text) {
    const long long value = std::strtoll(text.c_str(), nullptr, 10);
    return std::in_range<int>(value) ? static_cast<int>(value) : -1;
}

bool Fits(const BoardKind& kind, const BoardProperties& board) {
    const bool isModel = kind.model == nullptr || board.model == kind.model;
    return isModel && (kind.rawHeader == ANY || (board.IsIdentified() && board.rawHeader == kind.rawHeader));
}

}  // namespace

BoardProperties BoardProperties::Parse(const std::string& text) {
    BoardProperties board;
    const StringSplitter pieces(text, ";");
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        const StringSplitter pair(pieces[i], "=");
        if (pair.size() != 2) {
            std::fprintf(stderr, "Properties error '%s'\n", pieces[i].c_str());
            continue;
        }
        const std::string key = pair[0];
        const std::string value = pair[1];
        if (key == "hardware") {
            board.model = value;
        } else if (key == "header") {
            board.hasHeader = value == "yes";
        } else if (key == "revision") {
            board.revision = value;
        } else if (key == "rheader") {
            board.rawHeader = ParseRawHeader(value);
        }
    }
    return board;
}

const BoardKind& BoardProperties::GetKind() const {
    const BoardKind* kind = BOARD_KINDS;
    while (!Fits(*kind, *this)) {
        ++kind;
    }
    return *kind;
}

std::string BoardProperties::GetName() const {
    const char* const name = GetKind().name;
    return name != nullptr ? name : model;
}
