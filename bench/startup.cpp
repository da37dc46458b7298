// Starts a program with the library of startup_steps.cpp, and tells it when.
//
// usage: startup LIBRARY PROGRAM [ARGUMENT]...

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: startup LIBRARY PROGRAM [ARGUMENT]...\n");
        return 2;
    }
    setenv("LD_PRELOAD", argv[1], 1);
    const std::chrono::nanoseconds now = std::chrono::steady_clock::now().time_since_epoch();
    setenv("STARTUP_BEGINS", std::to_string(now.count()).c_str(), 1);
    execvp(argv[2], argv + 2);
    std::perror(argv[2]);
    return 1;
}
