// The source file that DFBCHECK names in its reports: the program's main source, whichever file the call is
// in.
#define DFBCHECK_SOURCE "apps/padtune/padtune"

#include "apps/padtune/screen_page.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <optional>

#include "apps/padtune/termination_signals.h"
#include "apps/padtune/touch_board_commands.h"
#include "lib/kestrel_dfb/video_mode.h"
#include "lib/platform/string_operations.h"

namespace {

constexpr char FONT_FILE[] = "/storage/sys/default-font.ttf";
constexpr char TITLE[] = "Padtune";

constexpr std::uint32_t BACKGROUND = 0x000011;
constexpr std::uint32_t BLACK = 0x000000;
constexpr std::uint32_t WHITE = 0xFFFFFF;
constexpr std::uint32_t RED = 0xFF0000;
constexpr std::uint32_t GREEN = 0x00FF00;
constexpr std::uint32_t ORANGE = 0xFF7F00;
constexpr std::uint32_t VALUE_COLOUR = 0xFF7777;

// In the parameter table: where labels end and where values start. Both are distances from the width of the
// widest label.
constexpr std::int32_t LABEL_END = 5;
constexpr std::int32_t VALUE_START = 7;
constexpr std::int32_t GAP_AFTER_BOX_NAME = 5;

/// One row of the parameter table.
struct ParameterRow {
    std::string label;
    std::string value;
};

std::string FormatRawHeader(int rawHeader) {
    return rawHeader < 0 ? "?" : strprintf("%d", rawHeader);
}

/// The row of a parameter, if it has one. Each call with an unknown code prints a line on standard error. The
/// table is walked twice, to measure and to draw, so such a code gives two lines, deliberately.
std::optional<ParameterRow> LookUpParameterRow(const BoardParameter& parameter, int rawHeader) {
    if (parameter.code == COMMAND_DIAGNOSE_BUTTON) {
        return std::nullopt;  // marks an unused place of the setup report
    }
    const char* const label = FindParameterNames(parameter.code).pageLabel;
    if (label == nullptr) {
        std::fprintf(stderr, "COMMAND_??? param %d %d\n", static_cast<int>(parameter.code), parameter.value);
        return std::nullopt;
    }
    const bool isRawHeader = parameter.code == COMMAND_RAW_HEADER;
    return ParameterRow{label, isRawHeader ? FormatRawHeader(rawHeader) : strprintf("%d", parameter.value)};
}

bool HasBit(std::uint32_t bits, const ButtonBox& box) {
    return (bits >> (box.button - 1) & 1) != 0;
}

/// Keeps DirectFB from handling the termination signals. DirectFB has a thread that waits for signals,
/// blocked ones included, and would release the screen while the main thread still draws on it. To be called
/// between DirectFBInit and DirectFBCreate.
void KeepDirectFBOffTerminationSignals() {
    std::string numbers;
    for (const int number : TerminationSignals::NUMBERS) {
        numbers += strprintf(numbers.empty() ? "%d" : ",%d", number);
    }
    const DFBResult result = DirectFBSetOption("dont-catch", numbers.c_str());
    if (result != DFB_OK) {
        // The run can do without: only an end by a signal is not orderly then.
        std::fprintf(stderr, "DirectFB catches termination signals: %s\n", DirectFBErrorString(result));
    }
}

}  // namespace

void ScreenPage::BringUp(int argc, char** argv) {
    DFBPointer<IDirectFBScreen>& dfbScreen = m_dfbScreen;
    IDirectFB* dfb = nullptr;
    IDirectFBSurface* primary = nullptr;
    DFBSurfaceDescription sdsc{};
    int screen_width = 0;
    int screen_height = 0;

    // Failure reports quote these calls as they stand here, blanks included.
    // clang-format off
    DFBCHECK(DirectFBInit( &argc, &argv ));
    KeepDirectFBOffTerminationSignals();
    DFBCHECK(DirectFBCreate( &dfb ));
    m_dfb = DFBPointer<IDirectFB>(dfb);
    dfb->SetCooperativeLevel(dfb, DFSCL_EXCLUSIVE);
    DFBCHECK(dfb->GetScreen(dfb, 0, dfbScreen.AsOutParameter()));
    VideoMode::ApplyCurrentMode(dfbScreen, true, false);
    dfbScreen->SetPowerMode(dfbScreen, DSPM_ON);

    sdsc.flags = DSDESC_CAPS;
    sdsc.caps = static_cast<DFBSurfaceCapabilities>(DSCAPS_PRIMARY | DSCAPS_FLIPPING);
    DFBCHECK(dfb->CreateSurface( dfb, &sdsc, &primary ));
    m_primary = DFBPointer<IDirectFBSurface>(primary);
    DFBCHECK(dfbScreen->GetSize(dfbScreen, &screen_width, &screen_height));
    // clang-format on
    m_width = screen_width;
    m_height = screen_height;
    CreateFonts();
}

void ScreenPage::CreateFonts() {
    IDirectFB* const dfb = m_dfb;
    const char* const fontfile = FONT_FILE;
    IDirectFBFont* font_small = nullptr;
    IDirectFBFont* font_normal = nullptr;
    IDirectFBFont* font_large = nullptr;
    DFBFontDescription fdsc{};
    fdsc.flags = DFDESC_HEIGHT;

    // clang-format off
    fdsc.height = m_width / 40;
    DFBCHECK(dfb->CreateFont( dfb, fontfile, &fdsc, &font_small ));
    m_fontSmall = DFBPointer<IDirectFBFont>(font_small);
    fdsc.height = m_width / 30;
    DFBCHECK(dfb->CreateFont( dfb, fontfile, &fdsc, &font_normal ));
    m_fontNormal = DFBPointer<IDirectFBFont>(font_normal);
    fdsc.height = m_width / 20;
    DFBCHECK(dfb->CreateFont( dfb, fontfile, &fdsc, &font_large ));
    m_fontLarge = DFBPointer<IDirectFBFont>(font_large);
    // clang-format on
}

void ScreenPage::DrawTitle() {
    const std::int32_t margin = m_height / 16;
    Fill({0, 0, m_width, m_height}, BACKGROUND);
    const TextExtents extents = Measure(m_fontLarge, TITLE);
    SetColour(WHITE);
    m_primary->SetFont(m_primary, m_fontLarge);
    DrawText(TITLE, (m_width - extents.logical.w) / 2, margin);
    m_top = margin + extents.logical.h + margin;
    Flip();
}

void ScreenPage::ShowMessage(std::int32_t y, std::uint32_t colour, const std::string& text) {
    Fill({0, y, m_width, m_height - y}, BLACK);
    SetColour(colour);
    m_primary->SetFont(m_primary, m_fontNormal);
    DrawText(text, m_width / 2, y + (m_height - y) / 2, DSTF_CENTER);
    Flip();
}

void ScreenPage::DrawIdentity(const std::string& properties) {
    m_board = BoardProperties::Parse(properties);
    m_kind = &m_board.GetKind();
    m_identityAdvance = 0;
    if (!m_board.IsIdentified()) {
        return;
    }

    const std::string line = strprintf("%s (%s) ", m_board.GetName().c_str(), m_board.revision.c_str());
    const TextExtents extents = Measure(m_fontNormal, line);
    m_primary->SetFont(m_primary, m_fontNormal);
    SetColour(m_kind->lineColour);
    DrawText(line, 0, m_top);
    if (m_kind->showsHeader) {
        SetColour(m_board.hasHeader ? GREEN : RED);
        DrawText(m_board.hasHeader ? "(Y)" : "(N)", extents.logical.w, m_top);
    }
    m_identityAdvance = extents.ink.h + extents.ink.h / 2;
}

ScreenPage::TableMeasures ScreenPage::MeasureParameterTable(const BoardSetup& setup) {
    TableMeasures measures;
    for (const BoardParameter& parameter : setup.parameters) {
        if (const auto row = LookUpParameterRow(parameter, m_board.rawHeader)) {
            const DFBRectangle label = Measure(m_fontSmall, row->label).logical;
            const DFBRectangle value = Measure(m_fontSmall, row->value).logical;
            measures.labelWidth = std::max(measures.labelWidth, label.w);
            measures.valueWidth = std::max(measures.valueWidth, value.w);
            measures.lineHeight = std::max(measures.lineHeight, label.h);
        }
    }
    return measures;
}

void ScreenPage::DrawParameterTable(const BoardSetup& setup) {
    m_table = MeasureParameterTable(setup);
    m_primary->SetFont(m_primary, m_fontSmall);
    std::int32_t y = m_top + m_identityAdvance;
    for (const BoardParameter& parameter : setup.parameters) {
        if (const auto row = LookUpParameterRow(parameter, m_board.rawHeader)) {
            SetColour(WHITE);
            DrawText(row->label, m_table.labelWidth + LABEL_END, y, DSTF_TOPRIGHT);
            SetColour(VALUE_COLOUR);
            DrawText(row->value, m_table.labelWidth + VALUE_START, y);
            Flip();
        }
        y += m_table.lineHeight;  // an entry without a row leaves a gap
    }
}

void ScreenPage::LayOutStrip(std::int32_t timeoutSeconds) {
    const std::string widestCount(strprintf("%d", timeoutSeconds).size(), '0');
    const DFBRectangle extents = Measure(m_fontNormal, widestCount).logical;
    m_timeoutSeconds = timeoutSeconds;
    m_strip = LayOutBottomStrip(m_width, m_height, extents.w, extents.h);
}

void ScreenPage::DrawBoxNames(const BoardSetup& setup) {
    const BoxArea area{m_width, m_top, m_strip.top, m_table.labelWidth, m_table.valueWidth};
    m_boxes = LayOutButtonBoxes(m_kind->keypad, setup.buttonCount, area);
    m_primary->SetFont(m_primary, m_fontSmall);
    for (const ButtonBox& box : m_boxes) {
        const std::string name = strprintf("BT%d", box.button);
        SetColour(WHITE);
        DrawText(name, box.x, box.y);
        const auto position = static_cast<std::size_t>(box.button - 1);
        if (position < setup.fingerThresholds.size()) {
            const std::int32_t nameWidth = Measure(m_fontSmall, name).logical.w;
            SetColour(VALUE_COLOUR);
            DrawText(strprintf("(%d)", setup.fingerThresholds[position]),
                     box.x + nameWidth + GAP_AFTER_BOX_NAME, box.y);
        }
    }
    Flip();
}

void ScreenPage::DrawFrame(const std::vector<ButtonSample>& samples, std::uint32_t touchBits,
                           std::uint32_t gpioLevels, std::int64_t elapsedNanoseconds) {
    m_primary->SetFont(m_primary, m_fontSmall);
    std::uint32_t diagnosed = 0;  // bit n: the box of button n+1 shows a sample
    for (const ButtonSample& sample : samples) {
        if (sample.button > m_boxes.size()) {
            std::fprintf(stderr, "Logic error: bd.button %d > %zu\n", static_cast<int>(sample.button),
                         m_boxes.size());
            continue;
        }
        if (sample.button == 0) {
            continue;  // 0 is no button
        }
        DrawSample(m_boxes[sample.button - 1], sample, gpioLevels);
        diagnosed |= std::uint32_t{1} << (sample.button - 1);
    }
    for (const ButtonBox& box : m_boxes) {
        if (!HasBit(diagnosed, box)) {
            DrawUndiagnosedBox(box, HasBit(touchBits, box), gpioLevels);
        }
    }
    DrawProgress(elapsedNanoseconds);
}

void ScreenPage::DrawSample(const ButtonBox& box, const ButtonSample& sample, std::uint32_t gpioLevels) {
    const std::int32_t line = m_table.lineHeight;
    const bool touched = sample.touched != 0;
    Fill({box.x, box.y + line, box.width, box.height - line}, BACKGROUND);
    SetColour(touched ? GetTouchColour(box, gpioLevels) : GREEN);
    DrawText(strprintf("%d", sample.value1), box.x, box.y + line);
    DrawText(strprintf("%d", sample.value2), box.x, box.y + 2 * line);
    DrawText(strprintf("%d", sample.value4), box.x, box.y + 3 * line);
    // value3 is drawn last, as in the diagnostic lines. It is orange when it is not 0 although nobody touches
    // the button.
    if (sample.value3 != 0 && !touched) {
        SetColour(ORANGE);
    }
    DrawText(strprintf("%d", sample.value3), box.x, box.y + 4 * line);
}

void ScreenPage::DrawUndiagnosedBox(const ButtonBox& box, bool touched, std::uint32_t gpioLevels) {
    const PageRectangle block{box.x, box.y + box.height / 4, box.width / 2, box.height / 2};
    Fill(block, touched ? GetTouchColour(box, gpioLevels) : BACKGROUND);
}

std::uint32_t ScreenPage::GetTouchColour(const ButtonBox& box, std::uint32_t gpioLevels) const {
    return HasBit(gpioLevels, box) ? m_kind->touchColour : ORANGE;
}

void ScreenPage::DrawProgress(std::int64_t elapsedNanoseconds) {
    const PageRectangle outline = GetProgressOutline(m_strip);
    Fill(GetProgressBackground(m_strip), BLACK);
    SetColour(WHITE);
    m_primary->DrawRectangle(m_primary, outline.x, outline.y, outline.width, outline.height);
    Fill(GetProgressBar(m_strip, elapsedNanoseconds, m_timeoutSeconds), WHITE);
}

void ScreenPage::DrawSecond(std::int64_t second) {
    m_primary->SetFont(m_primary, m_fontNormal);
    Fill({m_strip.counterTextX, m_strip.top, m_width - m_strip.counterTextX, m_strip.height}, BLACK);
    SetColour(WHITE);
    DrawText(strprintf("%d", static_cast<int>(second)), m_strip.counterTextX, m_strip.top);
}

void ScreenPage::Flip() {
    IDirectFBSurface* const primary = m_primary;
    DFBCHECK(primary->Flip(primary, NULL, static_cast<DFBSurfaceFlipFlags>(DSFLIP_ONSYNC | DSFLIP_BLIT)));
}

ScreenPage::TextExtents ScreenPage::Measure(DFBPointer<IDirectFBFont>& font, const std::string& text) {
    TextExtents extents;
    font->GetStringExtents(font, text.c_str(), -1, &extents.logical, &extents.ink);
    return extents;
}

void ScreenPage::SetColour(std::uint32_t colour) {
    m_primary->SetColor(m_primary, colour >> 16 & 0xFF, colour >> 8 & 0xFF, colour & 0xFF, 0xFF);
}

void ScreenPage::Fill(const PageRectangle& area, std::uint32_t colour) {
    SetColour(colour);
    m_primary->FillRectangle(m_primary, area.x, area.y, area.width, area.height);
}

void ScreenPage::DrawText(const std::string& text, std::int32_t x, std::int32_t y,
                          DFBSurfaceTextFlags anchor) {
    m_primary->DrawString(m_primary, text.c_str(), -1, x, y, anchor);
}
