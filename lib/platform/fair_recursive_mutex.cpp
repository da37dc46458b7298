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
    std::unique_lock guard(m_guard);
    if (m_owner == std::this_thread::get_id()) {
        ++m_depth;
        return;
    }
    const std::uint64_t ticket = m_nextTicket++;
    m_turn.wait(guard, [&] { return m_servedTicket == ticket; });
    m_owner = std::this_thread::get_id();
    m_depth = 1;
}

void FairRecursiveMutex::GiveBack() {
    const std::lock_guard guard(m_guard);
    PLATFORM_ASSERT(m_owner == std::this_thread::get_id());
    if (--m_depth == 0) {
        m_owner = {};
        ++m_servedTicket;
        m_turn.notify_all();
    }
}

}  // namespace strata
