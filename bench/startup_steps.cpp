// A library for LD_PRELOAD that tells when padtune comes by the steps of its start. It writes a line for each
// to a file when the program ends, "NANOSECONDS NAME": the time since the last one, and what was done in it.
//
// - STARTUP_BEGINS: point of the steady clock at which the program was started, in nanoseconds.
// - STARTUP_LOG: the file.
// - STARTUP_FONT: if set, stands for the player's font.

#include <directfb.h>
#include <dlfcn.h>
#include <linux/hiddev.h>
#include <magic.h>
#include <sys/ioctl.h>

#include <array>
#include <chrono>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

std::int64_t Now() {
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

struct Step {
    const char* name;
    std::int64_t end;
};

std::array<Step, 16> steps;
std::size_t stepCount = 0;

/// Ends a step, the first time.
void EndOf(const char* name) {
    for (std::size_t i = 0; i < stepCount; ++i) {
        if (std::strcmp(steps[i].name, name) == 0) {
            return;
        }
    }
    if (stepCount < steps.size()) {
        steps[stepCount++] = {name, Now()};
    }
}

/// Writes the log when the program ends.
struct Log {
    Log() { EndOf("libraries"); }

    ~Log() {
        const char* const begins = getenv("STARTUP_BEGINS");
        const char* const path = getenv("STARTUP_LOG");
        std::FILE* const file = path != nullptr && begins != nullptr ? std::fopen(path, "w") : nullptr;
        if (file == nullptr) {
            return;
        }
        std::int64_t before = std::atoll(begins);
        for (std::size_t i = 0; i < stepCount; ++i) {
            std::fprintf(file, "%lld %s\n", static_cast<long long>(steps[i].end - before), steps[i].name);
            before = steps[i].end;
        }
        std::fclose(file);
    }
} log;

template <class Function>
Function Next(Function, const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

int (*programMain)(int, char**, char**);
decltype(IDirectFB::CreateFont) createFont;
decltype(IDirectFB::CreateSurface) createSurface;
decltype(IDirectFBSurface::Flip) flip;

int Main(int argc, char** argv, char** environment) {
    EndOf("constructors");
    return programMain(argc, argv, environment);
}

DFBResult CreateSurface(IDirectFB* dfb, const DFBSurfaceDescription* description,
                        IDirectFBSurface** surface) {
    const DFBResult result = createSurface(dfb, description, surface);
    if (result == DFB_OK) {
        flip = (*surface)->Flip;
        (*surface)->Flip = [](auto* shown, auto* region, auto flags) {
            EndOf("title drawn");
            const DFBResult flipped = flip(shown, region, flags);
            EndOf("title shown");
            return flipped;
        };
    }
    EndOf("screen, mode, surface");
    return result;
}

DFBResult CreateFont(IDirectFB* dfb, const char* file, const DFBFontDescription* description,
                     IDirectFBFont** font) {
    static int fonts = 0;
    const char* const other = getenv("STARTUP_FONT");
    const DFBResult result = createFont(dfb, other != nullptr ? other : file, description, font);
    if (++fonts == 3) {
        EndOf("fonts");
    }
    return result;
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): they stand before the libraries' own
extern "C" {

int __libc_start_main(int (*main)(int, char**, char**), int argc, char** argv, void (*init)(), void (*fini)(),
                      void (*loaderFini)(), void* stackEnd) {
    programMain = main;
    return Next(__libc_start_main, "__libc_start_main")(Main, argc, argv, init, fini, loaderFini, stackEnd);
}

magic_t magic_open(int flags) {
    EndOf("signals, hardware");
    return Next(magic_open, "magic_open")(flags);
}

void magic_close(magic_t magic) {
    Next(magic_close, "magic_close")(magic);
    EndOf("database of file types");
}

DFBResult DirectFBInit(int* argc, char*** argv) {
    EndOf("command line");
    return Next(DirectFBInit, "DirectFBInit")(argc, argv);
}

DFBResult DirectFBCreate(IDirectFB** interface) {
    const DFBResult result = Next(DirectFBCreate, "DirectFBCreate")(interface);
    if (result == DFB_OK) {
        createFont = (*interface)->CreateFont;
        (*interface)->CreateFont = CreateFont;
        createSurface = (*interface)->CreateSurface;
        (*interface)->CreateSurface = CreateSurface;
    }
    EndOf("DirectFB");
    return result;
}

int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    constexpr std::int32_t SELECT_BUTTON_1 = 0x1C2;
    if (request == HIDIOCSUSAGE && static_cast<hiddev_usage_ref*>(argument)->value == SELECT_BUTTON_1) {
        EndOf("ports");
    }
    using Request = int (*)(int, unsigned long, void*);
    static const auto NEXT = reinterpret_cast<Request>(dlsym(RTLD_NEXT, "ioctl"));
    return NEXT(fd, request, argument);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
