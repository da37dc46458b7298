#include "tests/fuzz/modelled_device.h"

#include <cerrno>
#include <ctime>

namespace {

/// Descriptors of modelled nodes are numbers that the kernel does not give out, and each is used once.
constexpr int FIRST_FD = 1 << 24;

ModelledDevice* installed = nullptr;

bool IsModelled(int fd) {
    REQUIRE(fd < FIRST_FD || installed->m_open.count(fd) == 1);
    return fd >= FIRST_FD;
}

}  // namespace

ModelledDevice::ModelledDevice(FuzzInput& input, const char* pathPrefix)
    : m_pathPrefix(pathPrefix), m_input(input) {
    installed = this;
}

ModelledDevice::~ModelledDevice() {
    REQUIRE(m_open.empty());
    installed = nullptr;
}

int ModelledDevice::Open(const std::string&) {
    return *m_open.insert(FIRST_FD + m_openings++).first;
}

bool ModelledDevice::Fails() {
    errno = m_input.IsEmpty() ? ENODEV : m_input.Take<std::uint8_t>();
    return errno != 0;
}

ssize_t ModelledDevice::Read(void* buffer, std::size_t length) {
    const bool fails = Fails();
    m_readFailed = fails && errno != EAGAIN;
    if (fails) {
        return -1;
    }
    const std::size_t count = std::min<std::size_t>(length, m_input.Take<std::uint16_t>());
    m_input.TakeBytes(buffer, count);
    return static_cast<ssize_t>(count);
}

// The names are the linker's, for its option --wrap.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {

int __real_open(const char* path, int flags);
int __real_close(int fd);
int __real_ioctl(int fd, unsigned long request, void* argument);
ssize_t __real_read(int fd, void* buffer, size_t length);

// Nothing here creates files, so there is no mode.
int __wrap_open(const char* path, int flags) {
    if (installed != nullptr && std::string(path).starts_with(installed->m_pathPrefix)) {
        return installed->Open(path + installed->m_pathPrefix.size());
    }
    return __real_open(path, flags);
}

int __wrap_close(int fd) {
    return IsModelled(fd) ? static_cast<int>(installed->m_open.erase(fd)) - 1 : __real_close(fd);
}

int __wrap_ioctl(int fd, unsigned long request, void* argument) {
    return IsModelled(fd) ? installed->Ioctl(request, argument) : __real_ioctl(fd, request, argument);
}

ssize_t __wrap_read(int fd, void* buffer, size_t length) {
    return IsModelled(fd) ? installed->Read(buffer, length) : __real_read(fd, buffer, length);
}

int __wrap_nanosleep(const timespec*, timespec*) {
    return 0;
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
