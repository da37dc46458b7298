#pragma once

// The owner of one open descriptor.

#include <unistd.h>

#include <utility>

namespace VirtualPlayer {

class FileDescriptor {
public:
    explicit FileDescriptor(int fd = -1) : m_fd(fd) {}
    FileDescriptor(FileDescriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    FileDescriptor& operator=(FileDescriptor other) noexcept {
        std::swap(m_fd, other.m_fd);
        return *this;
    }
    ~FileDescriptor() {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
    }

    int Get() const { return m_fd; }  ///< negative for none
    bool IsOpen() const { return m_fd >= 0; }

    /// The caller closes the descriptor from now on.
    int Release() { return std::exchange(m_fd, -1); }

private:
    int m_fd;
};

}  // namespace VirtualPlayer
