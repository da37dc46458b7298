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
    /// Takes the descriptor over; the other owns none then.
    UniqueFd(UniqueFd&& other) noexcept : m_fd(other.Release()) {}
    /// Closes the own descriptor and takes the other's over; the other owns none then.
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        Reset(other.Release());
        return *this;
    }
    ~UniqueFd() { Reset(); }

    int Get() const { return m_fd; }           ///< the descriptor, still owned; negative for none
    bool IsOpen() const { return m_fd >= 0; }  ///< whether there is a descriptor

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
