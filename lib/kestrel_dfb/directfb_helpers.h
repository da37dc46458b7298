#pragma once

// Two helpers over DirectFB's C interfaces: DFBPointer owns one reference to an interface, and DFBCHECK
// turns a failing call into a report and DirectFB's own fatal exit.

#include <directfb.h>

#include <cstdio>
#include <utility>

#include "lib/platform/assertion.h"

/// The source path that DFBCHECK reports. A file whose reports go by another name defines it before its
/// first include.
#ifndef DFBCHECK_SOURCE
#define DFBCHECK_SOURCE __FILE__
#endif

/// Evaluates a DirectFB call. On a result other than DFB_OK it writes the source path and line to
/// standard error and ends the process through DirectFBErrorFatal with the text of the call. The text is
/// the call as it stands in the source, macros unexpanded.
#define DFBCHECK(call)                                                       \
    do {                                                                     \
        const DFBResult dfbcheckResult = (call);                             \
        if (dfbcheckResult != DFB_OK) {                                      \
            std::fprintf(stderr, "%s <%d>:\n\t", DFBCHECK_SOURCE, __LINE__); \
            DirectFBErrorFatal(#call, dfbcheckResult);                       \
        }                                                                    \
    } while (false)

/// Owns one reference to the DirectFB interface T, or none. A copy takes a reference of its own, so a
/// holder passed by value keeps the interface alive for the call. No locking: a holder belongs to one
/// thread.
template <typename T>
class DFBPointer {
public:
    /// An empty holder.
    DFBPointer() = default;

    /// Takes over a reference that the caller owns.
    /// @param reference the interface, or null for an empty holder
    explicit DFBPointer(T* reference) : m_ptr(reference) {}

    /// Takes a reference of its own to what the other holds.
    DFBPointer(const DFBPointer& other) : m_ptr(other.m_ptr) {
        if (m_ptr != nullptr) {
            m_ptr->AddRef(m_ptr);
        }
    }

    /// Takes the other's reference over; the other is empty then.
    DFBPointer(DFBPointer&& other) noexcept : m_ptr(std::exchange(other.m_ptr, nullptr)) {}

    ~DFBPointer() { Reset(); }

    DFBPointer& operator=(const DFBPointer&) = delete;

    /// Releases what the holder holds and takes the other's reference over; the other is empty then.
    DFBPointer& operator=(DFBPointer&& other) noexcept {
        if (this != &other) {
            Reset();
            m_ptr = std::exchange(other.m_ptr, nullptr);
        }
        return *this;
    }

    /// Releases what the holder holds, and leaves it empty.
    void Reset() {
        if (T* const held = std::exchange(m_ptr, nullptr); held != nullptr) {
            held->Release(held);
        }
    }

    /// Where a DirectFB call may store the interface that it creates or fetches; the call's reference
    /// becomes the holder's. A reference that the holder already has is released first.
    T** AsOutParameter() {
        Reset();
        return &m_ptr;
    }

    /// Whether the holder has an interface.
    explicit operator bool() const { return m_ptr != nullptr; }

    /// The same for a holder that is not const: otherwise its conversion to the interface, which asserts,
    /// would be the better match in a condition.
    explicit operator bool() { return m_ptr != nullptr; }

    /// The interface, to call a function of it. Asserts that the holder is not empty.
    T* operator->() {
        PLATFORM_ASSERT_AT("lib/kestrel_dfb/directfb_helpers.h", 224, __PRETTY_FUNCTION__,
                           PlatformValidPointer(m_ptr, 1));
        return m_ptr;
    }

    /// The interface, as the first argument of its own functions. Asserts that the holder is not empty
    /// and the pointer is aligned.
    operator T*() {
        PLATFORM_ASSERT_VALID_POINTER_AT("lib/kestrel_dfb/directfb_helpers.h", 257, __PRETTY_FUNCTION__,
                                         m_ptr);
        return m_ptr;
    }

private:
    T* m_ptr = nullptr;
};
