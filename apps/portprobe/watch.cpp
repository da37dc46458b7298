#include "apps/portprobe/watch.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "apps/portprobe/change_queue.h"
#include "apps/portprobe/known_ports.h"
#include "apps/portprobe/trouble.h"
#include "apps/portprobe/watch_lines.h"
#include "apps/portprobe/watched_port.h"
#include "lib/platform/errno_exception.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int FOREVER = -1;
constexpr int AT_ONCE = 0;
constexpr int NOTHING = -1;  // in the place of a descriptor

class Watcher {
public:
    Watcher(const Request& request, const StopSignals& stopSignals)
        : m_request(request), m_stopSignals(stopSignals), m_lines(m_labels, request.count) {}

    void Run();

private:
    void OpenPorts();
    void TakeChanges();
    void Stop();
    bool IsTimeOver() const { return m_deadline && Clock::now() >= *m_deadline; }
    int GetPollTimeout() const;
    bool Wait();
    void ReportUnprinted();

    const Request& m_request;
    const StopSignals& m_stopSignals;
    std::vector<PortLabel> m_labels;
    ChangeQueue m_queue;
    WatchLines m_lines;
    std::vector<std::unique_ptr<WatchedPort>> m_ports;
    std::optional<Clock::time_point> m_deadline;
    std::optional<unsigned> m_lostPort;
    bool m_isStopped = false;
};

void Watcher::Run() {
    m_stopSignals.DoInterruptibly([this] { OpenPorts(); });
    if (m_request.timeoutSeconds) {
        m_deadline = Clock::now() + std::chrono::seconds(*m_request.timeoutSeconds);
    }
    for (;;) {
        if (!m_isStopped && IsTimeOver()) {
            Stop();
        }
        TakeChanges();
        if (m_lines.IsEmpty() && (m_isStopped || m_lines.IsComplete())) {
            return;
        }
        if (m_lines.IsEmpty() && m_lostPort) {
            throw Trouble(m_labels[*m_lostPort].name, "the device has been gone for 10 seconds");
        }
        if (!Wait()) {
            ReportUnprinted();
            return;
        }
    }
}

void Watcher::OpenPorts() {
    std::vector<ListedPort> ports;  // only here, for they keep the boards' nodes open
    for (const std::string& name : m_request.names) {
        About(name, [&] { ports.push_back(FindKnownPort(name)); });
    }
    for (unsigned number = 0; number < ports.size(); ++number) {
        const ListedPort& port = ports[number];
        m_labels.push_back({port.GetName(), port.HasValues()});
        About(port.GetName(), [&] {
            m_ports.push_back(std::make_unique<WatchedPort>(port, number, m_request, m_queue));
            m_ports.back()->Start(port);
        });
    }
    // Opening can take long: tells from when on every change is printed or counted.
    for (const PortLabel& port : m_labels) {
        std::fprintf(stderr, "portprobe: %s: watching\n", port.name.c_str());
    }
}

/// What comes while there are lines to write stays in the queue.
void Watcher::TakeChanges() {
    if (m_lines.IsEmpty()) {
        const ChangeQueue::Content content = m_queue.Take();
        m_lines.Append(content);
        m_lostPort = m_lostPort ? m_lostPort : content.lostPort;
    }
}

/// The lines that came until now are still written as far as standard output takes them.
void Watcher::Stop() {
    m_isStopped = true;
    m_ports.clear();
}

int Watcher::GetPollTimeout() const {
    if (m_isStopped) {
        return AT_ONCE;
    }
    if (!m_deadline) {
        return FOREVER;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*m_deadline - Clock::now());
    return static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), AT_ONCE));
}

/// Waits for what the watch needs next, and does it.
/// @return false when the watch is stopped and standard output takes no more
bool Watcher::Wait() {
    pollfd wanted[] = {
        {m_isStopped ? NOTHING : m_stopSignals.GetFd(), POLLIN, 0},
        {m_lines.IsEmpty() ? m_queue.GetFd() : NOTHING, POLLIN, 0},
        {m_lines.IsEmpty() ? NOTHING : STDOUT_FILENO, POLLOUT, 0},
    };
    const int readyCount = poll(wanted, std::size(wanted), GetPollTimeout());
    if (readyCount < 0 && errno != EINTR) {
        throw ErrnoException(errno, "poll");
    }
    if (readyCount > 0 && wanted[2].revents != 0) {
        m_lines.WriteOne();
    }
    if (readyCount > 0 && wanted[0].revents != 0) {
        Stop();
    }
    return readyCount != 0 || !m_isStopped;
}

void Watcher::ReportUnprinted() {
    m_lines.Append(m_queue.Take());
    std::fprintf(stderr, "portprobe: %s: standard output took no more: %lu changes not printed\n",
                 m_request.GetSubject().c_str(), m_lines.CountChanges());
}

}  // namespace

void Watch(const Request& request, const StopSignals& stopSignals) {
    Watcher(request, stopSignals).Run();
}
