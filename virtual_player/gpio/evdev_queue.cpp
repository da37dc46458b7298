#include "virtual_player/gpio/evdev_queue.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace VirtualPlayer {

namespace {

/// With so many events the ring is full, for evdev as good as empty.
constexpr std::size_t RING_SIZE = 64;

bool IsReport(const input_event& event) {
    return event.type == EV_SYN && event.code == SYN_REPORT;
}

timespec ReadClock(int clock) {
    timespec now{};
    if (::clock_gettime(clock, &now) != 0) {
        throw std::system_error(errno, std::generic_category(), "clock_gettime");
    }
    return now;
}

bool HasCode(const CodeBitmap& codes, unsigned code) {
    return (codes[code / 8] >> code % 8 & 1) != 0;
}

}  // namespace

void EvdevQueue::Pass(std::span<const EventValue> packet) {
    const timespec time = ReadClock(m_clock);
    for (const EventValue& event : packet) {
        const bool reportsNothing =
            event.type == EV_SYN && event.code == SYN_REPORT && m_readable == m_events.size();
        if (!IsMasked(event) && !reportsNothing) {
            Push(event, time);
        }
    }
}

void EvdevQueue::Push(const EventValue& event, const timespec& time) {
    input_event entry{};
    entry.input_event_sec = time.tv_sec;
    entry.input_event_usec = time.tv_nsec / 1000;
    entry.type = event.type;
    entry.code = event.code;
    entry.value = event.value;
    if (m_events.size() + 1 == RING_SIZE) {
        input_event dropped = entry;
        dropped.type = EV_SYN;
        dropped.code = SYN_DROPPED;
        dropped.value = 0;
        m_events.assign(1, dropped);
        m_readable = 0;
    }
    m_events.push_back(entry);
    if (IsReport(entry)) {
        m_readable = m_events.size();
    }
}

std::vector<input_event> EvdevQueue::Take(std::size_t count) {
    count = std::min(count, m_readable);
    const auto end = m_events.begin() + static_cast<std::ptrdiff_t>(count);
    std::vector<input_event> events(m_events.begin(), end);
    m_events.erase(m_events.begin(), end);
    m_readable -= count;
    return events;
}

void EvdevQueue::Forget(unsigned type) {
    std::deque<input_event> kept;
    m_readable = 0;
    bool hasNews = true;  // the first SYN_REPORT may end what has been read in part
    for (const input_event& event : m_events) {
        if (event.type == type || (IsReport(event) && !hasNews)) {
            continue;
        }
        kept.push_back(event);
        hasNews = !IsReport(event);
        if (IsReport(event)) {
            m_readable = kept.size();
        }
    }
    m_events = std::move(kept);
}

bool EvdevQueue::SetClock(int clock) {
    if (clock != CLOCK_REALTIME && clock != CLOCK_MONOTONIC && clock != CLOCK_BOOTTIME) {
        return false;
    }
    if (clock != m_clock && !m_events.empty()) {
        m_events.clear();
        m_readable = 0;
        Push({EV_SYN, SYN_DROPPED, 0}, ReadClock(clock));
    }
    m_clock = clock;
    return true;
}

bool EvdevQueue::IsMasked(const EventValue& event) const {
    if (event.type == EV_SYN || event.type >= EV_CNT) {
        return false;
    }
    const auto types = m_masks.find(0);
    if (types != m_masks.end() && !HasCode(types->second, event.type)) {
        return true;
    }
    const auto codes = m_masks.find(event.type);
    return codes != m_masks.end() && event.code < KEY_CNT && !HasCode(codes->second, event.code);
}

}  // namespace VirtualPlayer
