#include "lib/platform/fair_recursive_mutex.h"

#include "lib/platform/assertion.h"

namespace strata {

void FairRecursiveMutex::lock() {
    m_sanitizer.BeforeLock();
    Take();
    m_sanitizer.AfterLock();
}

void FairRecursiveMutex::unlock() {
    m_sanitizer.BeforeUnlock();
    GiveBack();
    m_sanitizer.AfterUnlock();
}

void FairRecursiveMutex::Take() {
    const std::thread::id self = std::this_thread::get_id();
    // Only this thread writes its own id there: what others write meanwhile is not equal, whatever it is.
    if (m_owner.load(std::memory_order_relaxed) == self) {
        ++m_depth;
        return;
    }
    const std::uint32_t ticket = m_nextTicket.fetch_add(1, std::memory_order_relaxed);
    std::uint32_t served = m_servedTicket.load(std::memory_order_acquire);
    while (served != ticket) {
        m_servedTicket.wait(served, std::memory_order_acquire);
        served = m_servedTicket.load(std::memory_order_acquire);
    }
    m_owner.store(self, std::memory_order_relaxed);
    m_depth = 1;
}

void FairRecursiveMutex::GiveBack() {
    PLATFORM_ASSERT(m_owner.load(std::memory_order_relaxed) == std::this_thread::get_id());
    if (--m_depth != 0) {
        return;
    }
    m_owner.store({}, std::memory_order_relaxed);
    // From the store on, the next owner may run and destroy the mutex. The wake-up that follows uses the
    // address only, which the kernel and the C++ library look up among their waiters, and never what is
    // stored there. Sequentially consistent: the library asks next whether anybody waits, and that must not
    // be read before the store is seen.
    std::atomic<std::uint32_t>& served = m_servedTicket;
    served.store(served.load(std::memory_order_relaxed) + 1, std::memory_order_seq_cst);
    served.notify_all();
}

}  // namespace strata
