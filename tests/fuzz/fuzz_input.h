#pragma once

// What the fuzz targets share: taking values out of the input, and checks that stop the fuzzer.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <type_traits>

/// Ends the process unless the condition holds; the fuzzer keeps the input that led here.
#define REQUIRE(condition)                                                                \
    do {                                                                                  \
        if (!(condition)) {                                                               \
            std::fprintf(stderr, "%s:%d: REQUIRE(%s)\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                 \
        }                                                                                 \
    } while (false)

/// The bytes of one input, taken from the front. After the last byte come zeros without end.
class FuzzInput {
public:
    FuzzInput(const std::uint8_t* data, std::size_t size) : m_next(data), m_left(size) {}

    bool IsEmpty() const { return m_left == 0; }

    void TakeBytes(void* destination, std::size_t length) {
        const std::size_t taken = std::min(length, m_left);
        std::memset(destination, 0, length);
        if (taken > 0) {
            std::memcpy(destination, m_next, taken);
        }
        m_next += taken;
        m_left -= taken;
    }

    /// Takes a number, low byte first.
    template <class T>
    T Take() {
        static_assert(std::is_integral_v<T>);
        T value;
        TakeBytes(&value, sizeof value);
        return value;
    }

    std::string TakeRest() {
        std::string rest(m_left, '\0');
        TakeBytes(rest.data(), rest.size());
        return rest;
    }

private:
    const std::uint8_t* m_next;
    std::size_t m_left;
};
