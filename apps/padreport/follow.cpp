#include "apps/padreport/follow.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "apps/padreport/report_text.h"
#include "apps/padreport/terminal.h"
#include "lib/platform/errno_exception.h"
#include "lib/platform/standard_output.h"

namespace padreport {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds REDRAW_INTERVAL(250);
constexpr std::chrono::seconds GRACE_AFTER_SIGNAL(5);
constexpr std::size_t BLOCK_SIZE = 65536;
constexpr const char* NAME = "standard input";

constexpr const char* CURSOR_HOME = "\x1B[H";
constexpr const char* ERASE_LINE_END = "\x1B[K";
constexpr const char* ERASE_BELOW = "\x1B[J";

/// Draws over what it has drawn before, so that nothing flickers. What has no room at the bottom is left
/// out.
class LiveScreen {
public:
    LiveScreen() {
        std::fputs(CURSOR_HOME, stdout);
        std::fputs(ERASE_BELOW, stdout);
    }

    void Draw(const LogReport& report) {
        // The window may have another size than before.
        const Terminal terminal = DetectTerminal();
        const std::string text = RenderLiveReport(report, terminal);
        std::string frame = CURSOR_HOME;
        std::size_t lines = 0;
        for (std::size_t start = 0; start < text.size() && lines + 1 < terminal.height; ++lines) {
            const std::size_t end = text.find('\n', start);
            frame += text.substr(start, end - start) + ERASE_LINE_END + '\n';
            start = end + 1;
        }
        Write(frame + ERASE_BELOW);
    }

    void Clear() { Write(std::string(CURSOR_HOME) + ERASE_BELOW); }

private:
    static void Write(const std::string& text) {
        std::fwrite(text.data(), 1, text.size(), stdout);
        FlushStandardOutput();
    }
};

int GetTimeout(Clock::time_point now, Clock::time_point until) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - now).count();
    return static_cast<int>(std::max<long long>(left + 1, 0));
}

/// Reads on, once there is something.
/// @return false at the end
bool ReadSome(std::vector<char>& block, LogReader& reader) {
    const ssize_t length = read(STDIN_FILENO, block.data(), block.size());
    if (length < 0) {
        throw ErrnoException(errno, NAME);
    }
    reader.Feed({block.data(), static_cast<std::size_t>(length)});
    return length > 0;
}

}  // namespace

LogReport FollowLog(unsigned signal, const StopSignals& stopSignals) {
    LogStatistics statistics;
    LogReader reader(statistics);
    std::vector<char> block(BLOCK_SIZE);
    std::optional<LiveScreen> screen;
    if (DetectTerminal().isTerminal) {
        screen.emplace();
    }

    Clock::time_point nextDraw = Clock::now();
    std::optional<Clock::time_point> deadline;
    for (;;) {
        const Clock::time_point now = Clock::now();
        if (screen && now >= nextDraw) {
            screen->Draw(MakeLogReport(NAME, "", reader, statistics, signal));
            nextDraw = now + REDRAW_INTERVAL;
        }
        if (deadline && now >= *deadline) {
            break;
        }
        pollfd wanted[] = {{STDIN_FILENO, POLLIN, 0}, {deadline ? -1 : stopSignals.GetFd(), POLLIN, 0}};
        const Clock::time_point wakeUp = std::min(nextDraw, deadline.value_or(nextDraw));
        const int timeout = screen || deadline ? GetTimeout(now, screen ? wakeUp : *deadline) : -1;
        if (poll(wanted, std::size(wanted), timeout) < 0 && errno != EINTR) {
            throw ErrnoException(errno, "poll");
        }
        if (wanted[1].revents != 0) {
            deadline = Clock::now() + GRACE_AFTER_SIGNAL;
        }
        if (wanted[0].revents != 0 && !ReadSome(block, reader)) {
            break;
        }
    }
    reader.Finish();
    statistics.Finish();
    if (screen) {
        screen->Clear();
    }
    return MakeLogReport(NAME, "", reader, statistics, signal);
}

}  // namespace padreport
