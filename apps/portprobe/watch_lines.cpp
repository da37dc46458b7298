#include "apps/portprobe/watch_lines.h"

#include <unistd.h>

#include <numeric>

#include "lib/platform/errno_exception.h"
#include "lib/platform/posix_helpers.h"
#include "lib/platform/string_operations.h"

namespace {

std::string FormatChange(const PortLabel& port, const Change& change) {
    if (change.kind == Change::Kind::DROPPED) {
        return "dropped";
    }
    const std::string text = port.hasValues ? strprintf("value %u 0x%08X", change.pin, change.value)
                                            : strprintf("pin %u level %u", change.pin, change.value);
    return change.kind == Change::Kind::INITIAL ? text + " initial" : text;
}

}  // namespace

void WatchLines::Append(const ChangeQueue::Content& content) {
    for (const Change& change : content.changes) {
        if (IsComplete()) {
            return;
        }
        const bool isChange = change.kind == Change::Kind::CHANGED;
        if (isChange && m_left) {
            --*m_left;
        }
        AppendLine(change.time, change.port, FormatChange(m_ports[change.port], change), isChange ? 1 : 0);
    }
    if (IsComplete()) {
        return;
    }
    for (const auto& [port, missed] : content.missed) {
        AppendLine(missed.since, port, strprintf("missed %lu", missed.count), missed.count);
    }
}

void WatchLines::WriteOne() {
    const std::string& text = m_lines.front().text;
    try {
        write_all_throw(STDOUT_FILENO, text.data(), text.size());
    } catch (const ErrnoException& failure) {
        throw ErrnoException(failure.GetErrno(), "standard output");
    }
    m_lines.pop_front();
}

unsigned long WatchLines::CountChanges() const {
    return std::accumulate(m_lines.begin(), m_lines.end(), 0UL,
                           [](unsigned long sum, const Line& line) { return sum + line.changeCount; });
}

void WatchLines::AppendLine(const strata::monotonic_time& time, unsigned port, const std::string& what,
                            unsigned long changeCount) {
    m_lines.push_back({strprintf("%lld.%09ld %s %s\n", static_cast<long long>(time.seconds), time.nanoseconds,
                                 m_ports[port].name.c_str(), what.c_str()),
                       changeCount});
}
