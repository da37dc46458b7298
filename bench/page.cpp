// What a frame of the live page costs the main thread, on DirectFB's own software renderer without a display:
// page/SIZE/frame draws seven buttons with values and four without, page/SIZE/flip shows it, and
// page/SIZE/own_part is both on a DirectFB that draws nothing: what is left is this program's part. The time
// is that of all threads, for DirectFB has one of its own that draws.
//
// usage: page WIDTHxHEIGHT FONT [Google Benchmark's options]

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "apps/padtune/screen_page.h"
#include "bench/allocation_count.h"
#include "bench/run_benchmarks.h"
#include "lib/player/hardware_config.h"

namespace {

std::string fontFile;  // stands for the player's font
int screenWidth, screenHeight;
bool drawsNothing = false;

/// Fonts of one size, a surface and a screen that do nothing, but whose texts have an extent.
struct IdleFont : IDirectFBFont {
    IdleFont() : IDirectFBFont{} {
        Release = [](auto*) { return DR_OK; };
        GetStringExtents = [](auto*, auto*, int, auto* logical, auto* ink) {
            *logical = *ink = {0, 0, 100, 20};
            return DFB_OK;
        };
    }
};

struct IdleSurface : IDirectFBSurface {
    IdleSurface() : IDirectFBSurface{} {
        Release = [](auto*) { return DR_OK; };
        SetColor = [](auto...) { return DFB_OK; };
        SetFont = [](auto...) { return DFB_OK; };
        FillRectangle = [](auto...) { return DFB_OK; };
        DrawRectangle = [](auto...) { return DFB_OK; };
        DrawString = [](auto...) { return DFB_OK; };
        Flip = [](auto...) { return DFB_OK; };
    }
};

struct IdleScreen : IDirectFBScreen {
    IdleScreen() : IDirectFBScreen{} {
        AddRef = [](auto*) { return DR_OK; };
        Release = [](auto*) { return DR_OK; };
        GetSize = [](auto*, int* width, int* height) {
            return *width = screenWidth, *height = screenHeight, DFB_OK;
        };
        SetPowerMode = [](auto...) { return DFB_OK; };
        GetEncoderConfiguration = [](auto...) { return DFB_UNSUPPORTED; };
        SetEncoderConfiguration = [](auto...) { return DFB_UNSUPPORTED; };
    }
};

IdleFont idleFont;
IdleSurface idleSurface;
IdleScreen idleScreen;

struct IdleMain : IDirectFB {
    IdleMain() : IDirectFB{} {
        Release = [](auto*) { return DR_OK; };
        SetCooperativeLevel = [](auto...) { return DFB_OK; };
        GetScreen = [](auto*, auto, auto** screen) { return *screen = &idleScreen, DFB_OK; };
        CreateSurface = [](auto*, auto*, auto** surface) { return *surface = &idleSurface, DFB_OK; };
        CreateFont = [](auto*, auto*, auto*, auto** font) { return *font = &idleFont, DFB_OK; };
    }
};

IdleMain idleMain;
decltype(IDirectFB::CreateFont) createFont;

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker leads calls of DirectFBCreate to the former
extern "C" {

DFBResult __real_DirectFBCreate(IDirectFB** interface);

DFBResult __wrap_DirectFBCreate(IDirectFB** interface) {
    if (drawsNothing) {
        *interface = &idleMain;
        return DFB_OK;
    }
    const DFBResult result = __real_DirectFBCreate(interface);
    if (result == DFB_OK) {
        createFont = (*interface)->CreateFont;
        (*interface)->CreateFont = [](IDirectFB* dfb, const char*, const DFBFontDescription* description,
                                      IDirectFBFont** font) {
            return createFont(dfb, fontFile.c_str(), description, font);
        };
    }
    return result;
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)

namespace {

/// The page of a run with eleven buttons, up to the live part.
class LivePage {
public:
    LivePage() {
        m_page.BringUp(0, nullptr);
        m_page.DrawTitle();
        m_page.DrawIdentity("hardware=KP480;revision=B");
        const BoardSetup setup{11, std::vector<std::int32_t>(11, 40), {{0xA7, 100}, {0xA8, 40}}};
        m_page.DrawParameterTable(setup);
        m_page.LayOutStrip(60);
        m_page.DrawBoxNames(setup);
        for (std::uint32_t button = 1; button <= 7; ++button) {
            m_samples.push_back({button, 1360, 1236, 118, 8, button == 3});
        }
    }

    void Draw() {
        m_elapsed += 66'666'667;
        for (ButtonSample& sample : m_samples) {
            sample.value1 = 1300 + static_cast<std::int32_t>(m_elapsed / 1'000'000 % 100);
        }
        m_page.DrawFrame(m_samples, 0b100, 0x7FF, m_elapsed % 60'000'000'000);
    }

    void Flip() { m_page.Flip(); }

private:
    DFBPointer<IDirectFBScreen> m_screen;
    ScreenPage m_page{m_screen};
    std::vector<ButtonSample> m_samples;
    std::int64_t m_elapsed = 0;
};

/// On DirectFB itself. One for all: DirectFB still cleans up on threads of its own after the last reference
/// has gone, and trips over the next one.
std::optional<LivePage> drawnPage;

LivePage& GetDrawnPage() {
    drawsNothing = false;
    return drawnPage ? *drawnPage : drawnPage.emplace();
}

template <class Step>
void Repeat(benchmark::State& state, Step step) {
    step();  // glyphs are rendered once
    const std::uint64_t allocations = CountAllocations();
    while (state.KeepRunning()) {
        step();
    }
    state.counters["allocations"] = benchmark::Counter(static_cast<double>(CountAllocations() - allocations),
                                                       benchmark::Counter::kAvgIterations);
}

void Frame(benchmark::State& state) {
    LivePage& page = GetDrawnPage();
    Repeat(state, [&] { page.Draw(); });
}

void Flip(benchmark::State& state) {
    LivePage& page = GetDrawnPage();
    page.Draw();
    Repeat(state, [&] { page.Flip(); });
}

void OwnPart(benchmark::State& state) {
    drawsNothing = true;
    LivePage page;
    Repeat(state, [&] {
        page.Draw();
        page.Flip();
    });
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3 || std::sscanf(argv[1], "%dx%d", &screenWidth, &screenHeight) != 2) {
        std::fprintf(stderr, "usage: page WIDTHxHEIGHT FONT [option]...\n");
        return 2;
    }
    const std::string size = argv[1];
    fontFile = argv[2];
    setenv("DFBARGS", ("system=dummy,no-banner,quiet=info,mode=" + size).c_str(), 1);
    argv[2] = argv[0];
    const HardwareConfig hardware{DeviceTree("/nonexistent"), "/nonexistent"};
    const int status = RunBenchmarks(argc - 2, argv + 2, [&] {
        const auto add = [&](const char* part, void (*run)(benchmark::State&)) {
            benchmark::RegisterBenchmark(("page/" + size + "/" + part).c_str(), run)->MeasureProcessCPUTime();
        };
        add("frame", Frame);
        add("flip", Flip);
        add("own_part", OwnPart);
    });
    drawnPage.reset();  // while DirectFB is there
    return status;
}
