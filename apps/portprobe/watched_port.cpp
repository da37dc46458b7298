#include "apps/portprobe/watched_port.h"

#include <algorithm>
#include <stdexcept>

#include "apps/portprobe/pins.h"
#include "lib/platform/poll_thread.h"
#include "lib/platform/string_operations.h"

namespace {

using ExternalControl::PlayerLines;

constexpr unsigned WIDTH_LEVEL = 1;

}  // namespace

WatchedPort::WatchedPort(const ListedPort& listedPort, unsigned number, const Request& request,
                         ChangeQueue& queue)
    : m_hasValues(listedPort.HasValues()),
      m_number(number),
      m_pins(request.pins),
      m_edges(request.edges),
      m_queue(queue) {
    if (!listedPort.HasInputs()) {
        throw std::runtime_error("has no inputs to watch");
    }
    if (m_hasValues && m_edges != Edges::BOTH) {
        throw UsageError(strprintf("--edges: %s has values, not levels", listedPort.GetName().c_str()));
    }
    // A port of values also reports levels, which only tell whether a value is zero, and some report their
    // values to both callbacks: each kind of port is listened to in one place.
    const auto onLevel = [this](unsigned pin, unsigned value, unsigned width) {
        if (width == WIDTH_LEVEL && !m_hasValues) {
            OnValue(pin, value);
        }
    };
    m_port = listedPort.Open(onLevel, [this] { m_queue.SetDeviceLost(m_number); });
    if (m_hasValues) {
        m_port->SetValueCallback([this](unsigned pin, unsigned value, unsigned) { OnValue(pin, value); });
    }
    if (auto* const lines = dynamic_cast<PlayerLines*>(m_port.get())) {
        m_lines = lines;
        lines->SetDroppedCallback([this] { OnDropped(); });
    }
}

void WatchedPort::Start(const ListedPort& listedPort) {
    const strata::monotonic_time now = strata::get_monotonic_time();
    const Pins pins = ReadPins(listedPort, *m_port);
    for (const unsigned pin : m_pins) {
        GetPin(listedPort, pins, pin);
    }
    const auto noCallbacks = PollThread::GetInstance()->BlockCallbacks();
    for (unsigned pin = 0; pin < pins.size(); ++pin) {
        // What is an output too gives no changes.
        if (!pins[pin].input || pins[pin].output) {
            continue;
        }
        // A value that was received meanwhile counts: the one that was read may be older.
        const unsigned value = m_last.try_emplace(pin, *pins[pin].input).first->second;
        if (Wants(pin)) {
            m_queue.Push({now, m_number, Change::Kind::INITIAL, pin, value});
        }
    }
    m_isStarted = true;
}

bool WatchedPort::Wants(unsigned pin) const {
    return m_pins.empty() || std::find(m_pins.begin(), m_pins.end(), pin) != m_pins.end();
}

bool WatchedPort::WantsEdge(unsigned value) const {
    return m_edges == Edges::BOTH || (m_edges == Edges::RISING) == (value != 0);
}

// --- On the poll thread ---

/// The lines know when the kernel saw the edge, boards only when it was read.
strata::monotonic_time WatchedPort::GetChangeTime() const {
    constexpr std::int64_t NANOSECONDS_PER_SECOND = 1'000'000'000;
    if (m_lines == nullptr) {
        return strata::get_monotonic_time();
    }
    const std::int64_t time = m_lines->GetEventTime();
    return {static_cast<time_t>(time / NANOSECONDS_PER_SECOND),
            static_cast<long>(time % NANOSECONDS_PER_SECOND)};
}

/// Boards send their values again and again, and what was in a queue when the watch started is known already:
/// only what differs from the last is a change.
void WatchedPort::OnValue(unsigned pin, unsigned value) {
    const auto [last, isNew] = m_last.try_emplace(pin, value);
    if (!isNew && last->second == value) {
        return;
    }
    last->second = value;
    if (m_isStarted && Wants(pin) && WantsEdge(value)) {
        m_queue.Push({GetChangeTime(), m_number, Change::Kind::CHANGED, pin, value});
    }
}

void WatchedPort::OnDropped() {
    if (m_isStarted) {
        m_queue.Push({GetChangeTime(), m_number, Change::Kind::DROPPED, 0, 0});
    }
}
