#pragma once

// The full-screen page that the display shows during a run: the title, the board's identity, the board's
// parameters, one box per button with its live values, a progress bar and a counter of seconds; and a
// message when something goes wrong or the run ends. Everything is drawn into one double-buffered surface
// and shown with a flip.
//
// Main thread only. Whatever fails in a checked DirectFB call ends the process through DirectFB's fatal
// exit. Lengths and positions are pixels; colours are 0xRRGGBB.

#include <cstdint>
#include <string>
#include <vector>

#include "apps/padtune/board_properties.h"
#include "apps/padtune/live_state.h"
#include "apps/padtune/page_layout.h"
#include "apps/padtune/touch_board_reports.h"
#include "lib/kestrel_dfb/directfb_helpers.h"

/// The page, and the parts of DirectFB that it is drawn with.
class ScreenPage {
public:
    /// @param dfbScreen empty; filled by BringUp. It outlives the page, which releases its fonts, its
    ///        surface and DirectFB's main interface, in this order, when it is destroyed.
    explicit ScreenPage(DFBPointer<IDirectFBScreen>& dfbScreen) : m_dfbScreen(dfbScreen) {}

    ScreenPage(const ScreenPage&) = delete;
    ScreenPage& operator=(const ScreenPage&) = delete;

    /// Starts DirectFB, applies the player's current video mode and creates the surface and the fonts.
    /// Comes first, once.
    /// @param argc, argv the program's arguments; DirectFB takes out those that are its own
    /// @throws VideoMode::Invalid when the player's current mode string is invalid
    void BringUp(int argc, char** argv);

    /// Clears the page, draws the title and shows it.
    void DrawTitle();

    /// Blanks the page from a line down, and shows a text in the middle of what was blanked.
    /// @param y the line
    /// @param colour of the text
    /// @param text one line
    void ShowMessage(std::int32_t y, std::uint32_t colour, const std::string& text);

    /// The line below the title, from which everything else hangs. Valid after DrawTitle.
    std::int32_t GetTop() const { return m_top; }

    /// The top of the bottom strip. Valid after LayOutStrip.
    std::int32_t GetStripTop() const { return m_strip.top; }

    /// Draws the board's model and revision; nothing when either is unknown. Decides the colour of touched
    /// buttons and the kind of keypad.
    /// @param properties the diagnostics port's properties text
    void DrawIdentity(const std::string& properties);

    /// Draws the board's parameters below the identity and shows them, row by row.
    void DrawParameterTable(const BoardSetup& setup);

    /// Makes room for the progress bar and for a counter that can show the timeout.
    void LayOutStrip(std::int32_t timeoutSeconds);

    /// Places the button boxes beside the parameter table and above the strip, which both come before;
    /// draws each box's name and finger threshold, and shows them. A threshold that the board did not
    /// send is left out.
    void DrawBoxNames(const BoardSetup& setup);

    /// Draws the boxes' live state and the progress bar; the caller flips.
    /// @param samples the newest values of the diagnosed buttons
    /// @param touchBits bit n: button n+1 is touched
    /// @param gpioLevels bit n: level of the GPIO pin of button n+1
    /// @param elapsedNanoseconds since the start of the timed loop
    void DrawFrame(const std::vector<ButtonSample>& samples, std::uint32_t touchBits,
                   std::uint32_t gpioLevels, std::int64_t elapsedNanoseconds);

    /// Draws the counter of seconds; the caller flips.
    void DrawSecond(std::int64_t second);

    /// Shows what was drawn.
    void Flip();

private:
    struct TextExtents {
        DFBRectangle logical{};
        DFBRectangle ink{};
    };

    struct TableMeasures {
        std::int32_t labelWidth = 0;
        std::int32_t valueWidth = 0;
        std::int32_t lineHeight = 0;
    };

    void CreateFonts();
    TableMeasures MeasureParameterTable(const BoardSetup& setup);
    void DrawSample(const ButtonBox& box, const ButtonSample& sample, std::uint32_t gpioLevels);
    void DrawUndiagnosedBox(const ButtonBox& box, bool touched, std::uint32_t gpioLevels);
    void DrawProgress(std::int64_t elapsedNanoseconds);
    std::uint32_t GetTouchColour(const ButtonBox& box, std::uint32_t gpioLevels) const;

    TextExtents Measure(DFBPointer<IDirectFBFont>& font, const std::string& text);
    void SetColour(std::uint32_t colour);
    void Fill(const PageRectangle& area, std::uint32_t colour);
    void DrawText(const std::string& text, std::int32_t x, std::int32_t y,
                  DFBSurfaceTextFlags anchor = DSTF_TOPLEFT);

    DFBPointer<IDirectFBScreen>& m_dfbScreen;

    // Released from the last to the first.
    DFBPointer<IDirectFB> m_dfb;
    DFBPointer<IDirectFBSurface> m_primary;
    DFBPointer<IDirectFBFont> m_fontSmall;
    DFBPointer<IDirectFBFont> m_fontNormal;
    DFBPointer<IDirectFBFont> m_fontLarge;

    std::int32_t m_width = 0;
    std::int32_t m_height = 0;
    std::int32_t m_top = 0;

    BoardProperties m_board;
    const BoardKind* m_kind = &m_board.GetKind();  ///< the board's row in the table of kinds
    std::int32_t m_identityAdvance = 0;            ///< height of the identity line; 0 when there is none

    TableMeasures m_table;
    StripLayout m_strip;
    std::int32_t m_timeoutSeconds = 0;
    std::vector<ButtonBox> m_boxes;
};
