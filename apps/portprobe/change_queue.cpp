#include "apps/portprobe/change_queue.h"

#include <sys/eventfd.h>

#include <cerrno>
#include <utility>

#include "lib/platform/errno_exception.h"

ChangeQueue::ChangeQueue() : m_event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!m_event.IsOpen()) {
        throw ErrnoException(errno, "eventfd");
    }
}

void ChangeQueue::Push(const Change& change) {
    const std::lock_guard lock(m_mutex);
    if (m_content.changes.size() < CAPACITY) {
        m_content.changes.push_back(change);
    } else {
        Missed& missed = m_content.missed[change.port];
        if (missed.count++ == 0) {
            missed.since = change.time;
        }
    }
    Wake();
}

void ChangeQueue::SetDeviceLost(unsigned port) {
    const std::lock_guard lock(m_mutex);
    m_content.lostPort = port;
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
