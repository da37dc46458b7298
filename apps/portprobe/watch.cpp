#include "apps/portprobe/watch.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <deque>
#include <iterator>
#include <map>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <string>

#include "apps/portprobe/change_queue.h"
#include "apps/portprobe/known_ports.h"
#include "lib/hardware/external_control.h"
#include "lib/platform/posix_helpers.h"
#include "lib/platform/string_operations.h"

namespace {

using ExternalControl::InputCallback;
using ExternalControl::Port;

constexpr unsigned WIDTH_LEVEL = 1;
constexpr int FOREVER = -1;
constexpr int AT_ONCE = 0;
constexpr int NOTHING = -1;  // in the place of a descriptor

/// Boards send their values again and again: passes on those that differ from the last. The first of each
/// index counts as a change, for nobody knows what was before.
InputCallback MakeValueCallback(ChangeQueue& queue) {
    return [&queue, last = std::map<unsigned, unsigned>()](unsigned index, unsigned value, unsigned) mutable {
        const auto [known, isNew] = last.try_emplace(index, value);
        if (isNew || known->second != value) {
            known->second = value;
            queue.Push(index, value);
        }
    };
}

InputCallback MakeLevelCallback(ChangeQueue& queue) {
    return [&queue](unsigned pin, unsigned level, unsigned width) {
        if (width == WIDTH_LEVEL) {
            queue.Push(pin, level);
        }
    };
}

/// A port of values also reports levels, which only tell whether a value is zero, and some report their
/// values to both callbacks: each kind of port is listened to in one place.
std::shared_ptr<Port> OpenWatched(const KnownPort& knownPort, ChangeQueue& queue) {
    const auto lostCallback = [&queue] { queue.SetDeviceLost(); };
    if (!knownPort.HasValues()) {
        return Open(knownPort, MakeLevelCallback(queue), lostCallback);
    }
    const auto ignore = [](unsigned, unsigned, unsigned) {};
    std::shared_ptr<Port> port = Open(knownPort, ignore, lostCallback);
    port->SetValueCallback(MakeValueCallback(queue));
    return port;
}

/// The lines that are still to be printed. A line is written only when standard output has room for it, so
/// that a terminal that is stopped, or a pipe that nobody reads, never keeps this program from ending.
class PendingLines {
public:
    explicit PendingLines(const KnownPort& knownPort)
        : m_name(knownPort.name), m_hasValues(knownPort.HasValues()) {}

    bool IsEmpty() const { return m_lines.empty(); }

    void Append(const ChangeQueue::Content& content) {
        for (const Change& change : content.changes) {
            AppendLine(change.time,
                       m_hasValues ? strprintf("value %u 0x%08X", change.pin, change.value)
                                   : strprintf("pin %u level %u", change.pin, change.value),
                       1);
        }
        if (content.missed != 0) {
            AppendLine(content.missedSince, strprintf("missed %lu", content.missed), content.missed);
        }
    }

    /// For when standard output is ready: it then takes a line without blocking.
    void WriteOne() {
        const std::string& text = m_lines.front().text;
        try {
            write_all_throw(STDOUT_FILENO, text.data(), text.size());
        } catch (const ErrnoException& failure) {
            throw ErrnoException(failure.GetErrno(), "standard output");
        }
        m_lines.pop_front();
    }

    /// How many changes the lines stand for.
    unsigned long CountChanges() const {
        return std::accumulate(m_lines.begin(), m_lines.end(), 0UL,
                               [](unsigned long sum, const Line& line) { return sum + line.changeCount; });
    }

private:
    struct Line {
        std::string text;
        unsigned long changeCount;
    };

    void AppendLine(const strata::monotonic_time& time, const std::string& what, unsigned long changeCount) {
        m_lines.push_back({strprintf("%lld.%09ld %s %s\n", static_cast<long long>(time.seconds),
                                     time.nanoseconds, m_name.c_str(), what.c_str()),
                           changeCount});
    }

    const std::string m_name;
    const bool m_hasValues;
    std::deque<Line> m_lines;
};

}  // namespace

void Watch(const Request& request, const StopSignals& stopSignals) {
    const KnownPort knownPort = KnownPorts().Find(request.names[0]);
    if (!knownPort.HasInputs()) {
        throw std::runtime_error("has no inputs to watch");
    }
    ChangeQueue queue;
    PendingLines lines(knownPort);
    std::shared_ptr<Port> port = OpenWatched(knownPort, queue);
    // Opening can take long: tells from when on every change is printed or counted.
    std::fprintf(stderr, "portprobe: %s: watching\n", knownPort.name.c_str());

    bool isDeviceLost = false;
    bool isStopped = false;
    for (;;) {
        if (lines.IsEmpty()) {
            const ChangeQueue::Content content = queue.Take();
            lines.Append(content);
            isDeviceLost = isDeviceLost || content.isDeviceLost;
        }
        if (lines.IsEmpty() && isStopped) {
            return;
        }
        if (lines.IsEmpty() && isDeviceLost) {
            throw std::runtime_error("the device has been gone for 10 seconds");
        }

        // What comes meanwhile stays in the queue until there are no lines left.
        pollfd wanted[] = {
            {isStopped ? NOTHING : stopSignals.GetFd(), POLLIN, 0},
            {lines.IsEmpty() ? queue.GetFd() : NOTHING, POLLIN, 0},
            {lines.IsEmpty() ? NOTHING : STDOUT_FILENO, POLLOUT, 0},
        };
        const int readyCount = poll(wanted, std::size(wanted), isStopped ? AT_ONCE : FOREVER);
        if (readyCount < 0 && errno != EINTR) {
            throw ErrnoException(errno, "poll");
        }
        if (readyCount == 0) {
            lines.Append(queue.Take());
            std::fprintf(stderr, "portprobe: %s: standard output took no more: %lu changes not printed\n",
                         knownPort.name.c_str(), lines.CountChanges());
            return;
        }
        if (readyCount > 0 && wanted[2].revents != 0) {
            lines.WriteOne();
        }
        if (readyCount > 0 && wanted[0].revents != 0) {
            // The lines that came until now are still printed as far as standard output takes them.
            isStopped = true;
            port.reset();
        }
    }
}
