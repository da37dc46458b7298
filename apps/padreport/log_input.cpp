#include "apps/padreport/log_input.h"

#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <cerrno>
#include <cstddef>
#include <memory>
#include <new>
#include <vector>

#include "lib/platform/errno_exception.h"
#include "lib/platform/unique_fd.h"

namespace padreport {

namespace {

constexpr unsigned BLOCK_SIZE = 256 * 1024;

struct CloseInput {
    // Nothing was written: a failing close loses nothing.
    void operator()(gzFile file) const { gzclose_r(file); }
};
using Input = std::unique_ptr<gzFile_s, CloseInput>;

strata::UniqueFd OpenDescriptor(const std::string& path) {
    strata::UniqueFd descriptor(path == STANDARD_INPUT ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                                                       : open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!descriptor.IsOpen()) {
        throw ErrnoException(errno, path);
    }
    return descriptor;
}

/// zlib passes on what is not packed as it is.
Input OpenInput(const std::string& path) {
    strata::UniqueFd descriptor = OpenDescriptor(path);
    Input input(gzdopen(descriptor.Get(), "r"));
    if (!input || gzbuffer(input.get(), BLOCK_SIZE) != 0) {
        throw std::bad_alloc();
    }
    descriptor.Release();
    return input;
}

/// @return empty when all went well
std::string DescribeTrouble(gzFile file) {
    int code = Z_OK;
    const std::string text = gzerror(file, &code);
    if (code == Z_OK) {
        return {};
    }
    // zlib begins its text with the file, which it calls by the number of the descriptor.
    const std::size_t colon = text.find(": ");
    return colon == std::string::npos ? text : text.substr(colon + 2);
}

}  // namespace

std::string ReadLog(const std::string& path, LogReader& reader) {
    const Input input = OpenInput(path);
    std::vector<char> block(BLOCK_SIZE);
    int length = 0;
    while ((length = gzread(input.get(), block.data(), BLOCK_SIZE)) > 0) {
        reader.Feed({block.data(), static_cast<std::size_t>(length)});
    }
    reader.Finish();
    // Asked even when no call failed: a packed file that was cut ends without a failing call.
    return DescribeTrouble(input.get());
}

}  // namespace padreport
