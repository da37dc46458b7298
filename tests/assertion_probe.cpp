// Fails an assertion, for the tests that look at where its report and its trace event end up.

#include <cassert>
#include <cstring>

#include "lib/platform/assertion.h"

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "glibc") == 0) {
        assert(argc == 0);
    }
    PLATFORM_ASSERT_AT("lib/platform/poll_thread.cpp", 214, "void PollThread::Attach(Pollable*, short int)",
                       argc == 0);
}
