#include "apps/portprobe/change_queue.h"

#include <sys/eventfd.h>

#include <cerrno>
#include <utility>

#include "lib/platform/posix_helpers.h"

ChangeQueue::ChangeQueue() : m_event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!m_event.IsOpen()) {
        throw ErrnoException(errno, "eventfd");
    }
}

void ChangeQueue::Push(unsigned pin, unsigned value) {
    const strata::monotonic_time now = strata::get_monotonic_time();
    const std::lock_guard lock(m_mutex);
    if (m_content.changes.size() < CAPACITY) {
        m_content.changes.push_back({now, pin, value});
    } else if (m_content.missed++ == 0) {
        m_content.missedSince = now;
    }
    Wake();
}

void ChangeQueue::SetDeviceLost() {
    const std::lock_guard lock(m_mutex);
    m_content.isDeviceLost = true;
    Wake();
}

ChangeQueue::Content ChangeQueue::Take() {
    const std::lock_guard lock(m_mutex);
    eventfd_t count;
    // Fails when there was nothing to take.
    static_cast<void>(eventfd_read(m_event.Get(), &count));
    return std::exchange(m_content, {});
}

void ChangeQueue::Wake() const {
    // Fails only when the count is full, and then the reader is awake already.
    static_cast<void>(eventfd_write(m_event.Get(), 1));
}
