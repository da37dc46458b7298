#pragma once

// Ownership of a file descriptor.

#include <unistd.h>

#include <utility>

namespace strata {

/// Owns one descriptor and closes it; move-only. Not for concurrent use.
class UniqueFd {
public:
    /// @param fd the descriptor to own; negative for none
    explicit UniqueFd(int fd = -1) : m_fd(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : m_fd(other.Release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        Reset(other.Release());
        return *this;
    }
    ~UniqueFd() { Reset(); }

    int Get() const { return m_fd; }
    bool IsOpen() const { return m_fd >= 0; }

    /// Gives the descriptor up without closing it.
    int Release() { return std::exchange(m_fd, -1); }

    /// Closes the descriptor and takes another. A failing close is not reported: the descriptor is gone
    /// either way, and nothing written through these devices is held back until then.
    void Reset(int fd = -1) {
        const int old = std::exchange(m_fd, fd);
        if (old >= 0) {
            close(old);
        }
    }

private:
    int m_fd;
};

}  // namespace strata
