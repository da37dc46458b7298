#pragma once

// A recursive mutex that serves its waiters in the order in which they came. The poll thread releases its
// mutex only for a moment between two iterations while a descriptor stays ready, and a HID port that restores
// its board's values releases its own only for a moment between two; with an ordinary mutex they would win it
// back every time, and other threads could wait for ever.

#include <atomic>
#include <cstdint>
#include <thread>

#include "lib/platform/sanitizer_mutex.h"

namespace strata {

/// Works with std::lock_guard and std::unique_lock. Whoever has it may destroy it when nobody else waits for
/// it, also at once after another thread has given it back.
class FairRecursiveMutex {
public:
    /// Takes the mutex, or takes it once more when this thread has it. Any thread.
    void lock();

    /// Gives it back as often as it was taken. Only the thread that has it.
    void unlock();

private:
    void Take();
    void GiveBack();

    [[no_unique_address]] SanitizerMutex m_sanitizer;
    // As in a shop: who comes draws the next ticket and waits until its number is served. Numbers may wrap
    // around.
    std::atomic<std::uint32_t> m_nextTicket = 0;
    std::atomic<std::uint32_t> m_servedTicket = 0;
    std::atomic<std::thread::id> m_owner;
    unsigned m_depth = 0;  // only the owner's
};

}  // namespace strata
