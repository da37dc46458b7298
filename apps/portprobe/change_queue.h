#pragma once

// The way of the changes from the poll thread, which must not wait for a terminal, to the thread that prints
// them. Its length is limited; what does not fit is counted.

#include <cstddef>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

#include "lib/platform/monotonic_time.h"
#include "lib/platform/unique_fd.h"

/// What came from a port.
struct Change {
    /// How a change came about.
    enum class Kind {
        INITIAL,  ///< a level or a value as it was when the watch started
        CHANGED,  ///< a level or a value that came
        DROPPED,  ///< the kernel dropped changes of the port
    };

    strata::monotonic_time time;  ///< when it happened or was found
    unsigned port = 0;            ///< its number among those watched
    Kind kind = Kind::CHANGED;    ///< what it is
    unsigned pin = 0;             ///< number of the pin; 0 for DROPPED
    unsigned value = 0;           ///< level, or the whole value where the port has values; 0 for DROPPED
};

/// A queue of changes that never grows beyond CAPACITY.
class ChangeQueue {
public:
    static constexpr std::size_t CAPACITY = 4096;  ///< how many changes wait at most

    /// Changes of one port that did not fit.
    struct Missed {
        unsigned long count = 0;       ///< how many
        strata::monotonic_time since;  ///< time of the first of them
    };

    /// What happened since the last Take.
    struct Content {
        std::vector<Change> changes;        ///< in the order in which they came
        std::map<unsigned, Missed> missed;  ///< by port, the later changes that did not fit
        std::optional<unsigned> lostPort;   ///< whose device is gone for good
    };

    /// @throws ErrnoException "eventfd"
    ChangeQueue();

    /// Appends a change. Any thread; waits for nothing but a running Take.
    void Push(const Change& change);

    /// Notes that the device of a port is gone for good. Any thread.
    void SetDeviceLost(unsigned port);

    /// Empties the queue. One thread.
    Content Take();

    /// @return a descriptor that is readable while there is something to take
    int GetFd() const { return m_event.Get(); }

private:
    void Wake() const;

    const strata::UniqueFd m_event;
    std::mutex m_mutex;  // guards the next; nothing else is taken while it is held
    Content m_content;
};
