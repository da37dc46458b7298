#pragma once

// What the thread sanitizer is told about a mutex that is made by hand: when it is taken and given back. The
// sanitizer then checks the order in which it and others are taken, too. What the mutex does in between is
// the sanitizer's concern no more. Nothing in other builds.

#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#endif

namespace strata {

/// A member of the mutex. It stands for one that its thread may take again.
class SanitizerMutex {
public:
    SanitizerMutex(const SanitizerMutex&) = delete;
    SanitizerMutex& operator=(const SanitizerMutex&) = delete;

#if defined(__SANITIZE_THREAD__)
    SanitizerMutex() {
        __tsan_mutex_create(this, __tsan_mutex_write_reentrant);
    }
    ~SanitizerMutex() {
        __tsan_mutex_destroy(this, 0);
    }

    void BeforeLock() {
        __tsan_mutex_pre_lock(this, 0);
    }
    void AfterLock() {
        __tsan_mutex_post_lock(this, 0, 0);
    }
    void BeforeUnlock() {
        __tsan_mutex_pre_unlock(this, 0);
    }
    void AfterUnlock() {
        __tsan_mutex_post_unlock(this, 0);
    }

private:
    char m_address = 0;  // the sanitizer knows mutexes by their addresses: this one is nobody else's
#else
    SanitizerMutex() = default;

    void BeforeLock() {}    ///< before a thread waits for the mutex
    void AfterLock() {}     ///< once the thread has it
    void BeforeUnlock() {}  ///< before the thread gives it back
    void AfterUnlock() {}   ///< once it has been given back
#endif
};

}  // namespace strata
