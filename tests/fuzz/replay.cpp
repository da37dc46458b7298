// Runs a fuzz target over all files of a folder: its seeds, as regression tests. Fails when there is none.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>

#include "lib/platform/posix_helpers.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int, char** argv) {
    int status = EXIT_FAILURE;
    try {
        for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
            std::fprintf(stderr, "-- %s\n", entry.path().c_str());
            const std::string seed = read_file_throw(entry.path());
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(seed.data()), seed.size());
            status = EXIT_SUCCESS;
        }
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return EXIT_FAILURE;
    }
    return status;
}
