#include "lib/platform/trace.h"

#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace {

constexpr std::size_t BYTES_PER_LINE = 16;

bool IsPrintable(unsigned char c) {
    return c >= 0x20 && c <= 0x7E;
}

}  // namespace

void BaseTrace::HexDump(const std::string& label, const void* data, std::size_t length) {
    const bool endsLine = label.empty() || label.back() == '\n';
    PLATFORM_TRACE(*this, endsLine ? "%s" : "%s\n", label.c_str());

    const auto* bytes = static_cast<const unsigned char*>(data);
    for (std::size_t start = 0; start < length; start += BYTES_PER_LINE) {
        const std::size_t present = std::min(BYTES_PER_LINE, length - start);
        std::string line = fmt::sprintf("%p: ", static_cast<const void*>(bytes + start));
        for (std::size_t i = 0; i < present; ++i) {
            line += fmt::sprintf("%02x ", bytes[start + i]);
        }
        for (std::size_t i = present; i < BYTES_PER_LINE; ++i) {
            line += "   ";
        }
        for (std::size_t i = 0; i < present; ++i) {
            line += IsPrintable(bytes[start + i]) ? static_cast<char>(bytes[start + i]) : '.';
        }
        PLATFORM_TRACE(*this, "%s\n", line.c_str());
    }
}

StderrTrace::~StderrTrace() {
    StderrTrace::Flush();
}

void StderrTrace::Emit(const std::string& text) {
    std::fputs(text.c_str(), stderr);
}

void StderrTrace::Flush() {
    std::fflush(stderr);
    tcdrain(STDERR_FILENO);
}
