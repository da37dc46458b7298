#include "apps/portprobe/watch.h"

#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/portprobe/change_queue.h"
#include "apps/portprobe/known_ports.h"
#include "apps/portprobe/trouble.h"
#include "apps/portprobe/watch_lines.h"
#include "apps/portprobe/watch_wait.h"
#include "apps/portprobe/watched_port.h"

namespace {

class Watcher {
public:
    Watcher(const Request& request, const StopSignals& stopSignals)
        : m_request(request),
          m_stopSignals(stopSignals),
          m_wait(stopSignals, m_queue.GetFd()),
          m_lines(m_labels, request.count) {}

    void Run();

private:
    void OpenPorts();
    void PrintUntilStopped();
    void PrintRest();
    void TakeChanges();
    void ReportUnprinted();

    const Request& m_request;
    const StopSignals& m_stopSignals;
    std::vector<PortLabel> m_labels;
    ChangeQueue m_queue;
    WatchWait m_wait;
    WatchLines m_lines;
    std::vector<std::unique_ptr<WatchedPort>> m_ports;
    std::optional<unsigned> m_lostPort;
};

void Watcher::Run() {
    m_stopSignals.DoInterruptibly([this] { OpenPorts(); });
    m_wait.StartTime(m_request.timeoutSeconds);
    PrintUntilStopped();
    m_ports.clear();
    PrintRest();
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

/// Until a signal, the end of the time, or the last of the changes that were wanted.
/// @throws Trouble when the device of a port is gone for good
void Watcher::PrintUntilStopped() {
    while (!m_wait.IsTimeOver()) {
        TakeChanges();
        if (m_lines.IsEmpty() && m_lines.IsComplete()) {
            return;
        }
        if (m_lines.IsEmpty() && m_lostPort) {
            throw Trouble(m_labels[*m_lostPort].name, "the device has been gone for 10 seconds");
        }
        const WatchWait::Result result =
            m_wait.WaitFor(m_lines.IsEmpty() ? WatchWait::Need::INPUT : WatchWait::Need::ROOM);
        if (result.hasRoom) {
            m_lines.WriteOne();
        }
        if (result.isStopped) {
            return;
        }
    }
}

/// The lines that came until now are still written as far as standard output takes them.
void Watcher::PrintRest() {
    for (TakeChanges(); !m_lines.IsEmpty(); TakeChanges()) {
        if (!WatchWait::HasRoom()) {
            ReportUnprinted();
            return;
        }
        m_lines.WriteOne();
    }
}

/// Makes lines of the changes in the queue. While there are lines to write, changes stay in the queue.
void Watcher::TakeChanges() {
    if (m_lines.IsEmpty()) {
        const ChangeQueue::Content content = m_queue.Take();
        m_lines.Append(content);
        m_lostPort = m_lostPort ? m_lostPort : content.lostPort;
    }
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
