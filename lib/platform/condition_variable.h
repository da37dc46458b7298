#pragma once

// A condition variable whose timed waits run on the monotonic clock: setting the wall clock neither lengthens
// nor shortens a wait.

#include <pthread.h>

#include <boost/thread/exceptions.hpp>
#include <boost/thread/thread.hpp>
#include <cerrno>
#include <ctime>

#include "lib/platform/monotonic_time.h"

namespace strata {

/// A condition variable that waits up to a deadline on the monotonic clock.
class condition_variable {
public:
    /// @throws boost::thread_resource_error when the system has no room for it
    condition_variable();

    condition_variable(const condition_variable&) = delete;
    condition_variable& operator=(const condition_variable&) = delete;

    ~condition_variable();

    /// Wakes one waiter, if there is one. Any thread.
    void notify_one();

    /// Waits until notified or until the deadline; may also wake for no reason. An interruption point of
    /// boost's threads.
    /// @param lock the caller's lock, held; released while waiting and held again on every way out
    /// @param deadline when to stop waiting
    /// @return false when the deadline has passed, true when woken
    /// @throws boost::thread_resource_error when the wait fails
    /// @throws boost::thread_interrupted when the thread was asked to end its wait
    template <class Lock>
    bool do_wait_until(Lock& lock, const monotonic_time& deadline) {
        const timespec until = deadline.ToTimespec();
        int result;
        {
            // Destroyed last to first: the internal mutex is left before the caller's lock is taken again.
            LockOnExit<Lock> relock(lock);
            // What boost's own condition variable uses: it takes the mutex, and names both to whoever asks
            // this thread to end its wait. Boost offers nothing public for it.
            boost::detail::interruption_checker interruption(&internal_mutex, &cond);
            relock.Unlock();
            result = pthread_cond_timedwait(&cond, &internal_mutex, &until);
        }
        boost::this_thread::interruption_point();
        if (result == ETIMEDOUT) {
            return false;
        }
        if (result != 0) {
            throw boost::thread_resource_error(
                result, "strata::condition_variable::do_wait_until failed in pthread_cond_timedwait");
        }
        return true;
    }

private:
    template <class Lock>
    class LockOnExit {
    public:
        explicit LockOnExit(Lock& lock) : m_lock(lock) {}
        LockOnExit(const LockOnExit&) = delete;
        LockOnExit& operator=(const LockOnExit&) = delete;
        // NOLINTNEXTLINE(bugprone-exception-escape): a lock that cannot be had again ends the process
        ~LockOnExit() {
            if (m_unlocked) {
                m_lock.lock();
            }
        }
        void Unlock() {
            m_lock.unlock();
            m_unlocked = true;
        }

    private:
        Lock& m_lock;
        bool m_unlocked = false;
    };

    // Held only while signalling and while entering and leaving a wait, so that a notification cannot fall
    // between the release of the caller's lock and the wait.
    pthread_mutex_t internal_mutex;
    pthread_cond_t cond;
};

}  // namespace strata
