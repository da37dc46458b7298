#include "apps/portprobe/record.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <numeric>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "apps/portprobe/known_ports.h"
#include "apps/portprobe/watch_wait.h"
#include "lib/hardware/hidraw.h"
#include "lib/platform/errno_exception.h"
#include "lib/platform/monotonic_time.h"
#include "lib/platform/posix_helpers.h"
#include "lib/platform/string_operations.h"

namespace {

using ExternalControl::HidrawDevice;
using ExternalControl::PortKind;

/// How many reports wait for standard output; a fast board sends them in some 20 seconds.
constexpr std::size_t WAITING_MAX = 4096;

constexpr long MICROSECONDS_PER_SECOND = 1'000'000;

HidrawDevice OpenBoard(const std::string& name) {
    const ListedPort port = FindKnownPort(name);  // keeps the board open, so that hidraw loses nothing
    if (port.GetKind() == PortKind::LINES) {
        throw std::runtime_error("is not a board's port: there are no reports to record");
    }
    const std::optional<std::string> node = HidrawDevice::FindNode(port.GetNode());
    if (!node) {
        throw std::runtime_error("the kernel has no hidraw node for this board");
    }
    return HidrawDevice(*node);
}

/// @return "LENGTH XX XX ..."
std::string FormatBytes(const std::vector<std::uint8_t>& bytes) {
    std::string text = std::to_string(bytes.size());
    for (const std::uint8_t byte : bytes) {
        text += strprintf(" %02x", byte);
    }
    return text;
}

/// A text from the board may hold anything, but stands on one line.
std::string FormatText(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](unsigned char character) { return std::iscntrl(character) != 0; }, '?');
    return text;
}

std::string FormatHead(const HidrawDevice& board) {
    const hidraw_devinfo info = board.GetInfo();
    return "R: " + FormatBytes(board.GetReportDescriptor()) + "\nN: " + FormatText(board.GetName()) +
           "\nP: " + FormatText(board.GetPhysicalPath()) +
           strprintf("\nI: %x %04x %04x\n", info.bustype, static_cast<std::uint16_t>(info.vendor),
                     static_cast<std::uint16_t>(info.product));
}

void Write(const std::string& text) {
    try {
        write_all_throw(STDOUT_FILENO, text.data(), text.size());
    } catch (const ErrnoException& failure) {
        throw ErrnoException(failure.GetErrno(), "standard output");
    }
}

struct Line {
    std::string text;
    unsigned long reports;  ///< that it tells of
};

class Recorder {
public:
    Recorder(const Request& request, const StopSignals& stopSignals)
        : m_request(request),
          m_board(stopSignals.DoInterruptibly([&] { return OpenBoard(request.names[0]); })),
          m_wait(stopSignals, m_board.GetFd()),
          m_left(request.count) {}

    void Run();

private:
    void RecordUntilStopped();
    void TakeReports();
    void Append(const std::vector<std::uint8_t>& report);
    void WriteOne();
    void WriteRest();

    const Request& m_request;
    const HidrawDevice m_board;
    WatchWait m_wait;
    std::optional<unsigned> m_left;                 ///< of the reports that are wanted; nothing: all
    std::optional<strata::monotonic_time> m_start;  ///< the first report
    std::deque<Line> m_lines;                       ///< still to be written
    unsigned long m_missed = 0;                     ///< reports since the last line
    bool m_isGone = false;
};

void Recorder::Run() {
    Write(FormatHead(m_board));
    std::fprintf(stderr, "portprobe: %s: recording\n", m_request.GetSubject().c_str());
    m_wait.StartTime(m_request.timeoutSeconds);
    RecordUntilStopped();
    WriteRest();
    if (m_isGone) {
        throw std::runtime_error("the board has gone; the record ends there");
    }
}

/// Until a signal, the end of the time, the last of the reports that were wanted, or of the board.
void Recorder::RecordUntilStopped() {
    while (!m_wait.IsTimeOver() && !m_isGone && !(m_left == 0U && m_lines.empty())) {
        const bool isComplete = m_left == 0U;
        const auto [isStopped, hasReports, hasRoom] =
            m_wait.WaitFor(isComplete        ? WatchWait::Need::ROOM
                           : m_lines.empty() ? WatchWait::Need::INPUT
                                             : WatchWait::Need::EITHER);
        if (hasReports) {
            TakeReports();
        }
        if (hasRoom) {
            WriteOne();
        }
        if (isStopped) {
            return;
        }
    }
}

/// The kernel keeps no more than 63 reports: they are taken as they come, whatever standard output does.
void Recorder::TakeReports() {
    try {
        while (m_left != 0U) {
            const auto report = m_board.ReadReport();
            if (!report) {
                return;
            }
            Append(*report);
        }
    } catch (const ErrnoException& failure) {
        if (failure.GetErrno() != EIO) {
            throw;
        }
        m_isGone = true;
    }
}

void Recorder::Append(const std::vector<std::uint8_t>& report) {
    const strata::monotonic_time now = strata::get_monotonic_time();
    if (m_lines.size() >= WAITING_MAX) {
        ++m_missed;
        return;
    }
    if (const unsigned long missed = std::exchange(m_missed, 0)) {
        m_lines.push_back({strprintf("# missed %lu\n", missed), missed});
    }
    if (!m_start) {
        m_start = now;
    }
    const auto time = std::chrono::duration_cast<std::chrono::microseconds>(now - *m_start).count();
    m_lines.push_back(
        {strprintf("E: %06lld.%06lld %s\n", static_cast<long long>(time / MICROSECONDS_PER_SECOND),
                   static_cast<long long>(time % MICROSECONDS_PER_SECOND), FormatBytes(report).c_str()),
         1});
    if (m_left) {
        --*m_left;
    }
}

void Recorder::WriteOne() {
    Write(m_lines.front().text);
    m_lines.pop_front();
}

/// The lines that came until now are still written as far as standard output takes them.
void Recorder::WriteRest() {
    while (!m_lines.empty() && WatchWait::HasRoom()) {
        WriteOne();
    }
    const unsigned long unwritten =
        std::accumulate(m_lines.begin(), m_lines.end(), m_missed,
                        [](auto sum, const Line& line) { return sum + line.reports; });
    if (unwritten != 0) {
        std::fprintf(stderr, "portprobe: %s: standard output took no more: %lu reports not printed\n",
                     m_request.GetSubject().c_str(), unwritten);
    }
}

}  // namespace

void Record(const Request& request, const StopSignals& stopSignals) {
    // A closed pipe is told like any other failure of standard output.
    if (signal(SIGPIPE, SIG_IGN) == SIG_ERR) {
        throw ErrnoException(errno, "signal");
    }
    Recorder(request, stopSignals).Run();
}
