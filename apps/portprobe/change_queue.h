#pragma once

// The way of a port's changes from the poll thread, which must not wait for a terminal, to the thread that
// prints them. Its length is limited; what does not fit is counted.

#include <cstddef>
#include <mutex>
#include <vector>

#include "lib/platform/monotonic_time.h"
#include "lib/platform/unique_fd.h"

/// A level or a value that came.
struct Change {
    strata::monotonic_time time;
    unsigned pin = 0;
    unsigned value = 0;
};

class ChangeQueue {
public:
    static constexpr std::size_t CAPACITY = 4096;

    /// What happened since the last Take.
    struct Content {
        std::vector<Change> changes;
        unsigned long missed = 0;  ///< later changes that did not fit
        strata::monotonic_time missedSince;
        bool isDeviceLost = false;
    };

    /// @throws ErrnoException "eventfd"
    ChangeQueue();

    /// Stamps a change with the time and appends it. Any thread; waits for nothing but a running Take.
    void Push(unsigned pin, unsigned value);

    /// Notes that the device is gone for good. Any thread.
    void SetDeviceLost();

    /// Empties the queue. One thread.
    Content Take();

    /// @return a descriptor that is readable while there is something to take
    int GetFd() const { return m_event.Get(); }

private:
    void Wake() const;

    const strata::UniqueFd m_event;
    std::mutex m_mutex;  // guards the next
    Content m_content;
};
