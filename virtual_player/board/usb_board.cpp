// usb-board: a board on this kernel's USB bus. Lines on standard input play what happens to it and to its
// cable: those of the board itself (see the board's class), and `mute`, `unmute`, `stall`, `unstall`,
// `delay MILLISECONDS`, `unplug`, `plug`, `quit`. Each line on standard output is an event with its time on
// the monotonic clock; line N, when it is refused, gives "error: line N: ...", without a time.
// `usb-board --list-models` writes the models that there are, one a line, and ends.

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "virtual_player/board/board.h"
#include "virtual_player/board/make_board.h"
#include "virtual_player/board/usb_device.h"
#include "virtual_player/board/usbip_link.h"
#include "virtual_player/board/vhci_port.h"
#include "virtual_player/common/console.h"

namespace VirtualPlayer {

namespace {

constexpr std::int64_t NANOSECONDS_PER_SECOND = 1'000'000'000;
constexpr std::int64_t PLUG_STEP = 20'000'000;
constexpr std::int64_t PLUG_TIMEOUT = 30 * NANOSECONDS_PER_SECOND;

struct Options {
    std::string model = "KP480";
    unsigned port = 0;
    std::optional<std::uint16_t> vendor;  ///< the board's own unless given
};

class Program {
public:
    explicit Program(const Options& options)
        : m_port(options.port), m_board(MakeBoard(options.model)), m_device(*m_board, options.vendor) {}

    /// Runs until "quit" or the end of standard input.
    void Run() {
        StartPlugging("ready");
        while (!m_quit) {
            ServeTime();
            WaitAndServe();
            PassOnWhatHappened();
        }
    }

private:
    enum class Plugging { NOT_NOW, WAITS_FOR_PORT, WAITS_FOR_NODE };

    bool IsSpeaking() const { return m_link && m_manners != Manners::MUTE; }

    void StartPlugging(const char* eventWhenDone) {
        if (m_link || m_plugging != Plugging::NOT_NOW) {
            throw std::invalid_argument("on the bus already");
        }
        m_plugging = Plugging::WAITS_FOR_PORT;
        m_plugDeadline = Now() + PLUG_TIMEOUT;
        m_plugLine = m_lines.LineNumber();
        m_pluggedEvent = eventWhenDone;
    }

    void Unplug() {
        if (!m_link && m_plugging == Plugging::NOT_NOW) {
            throw std::invalid_argument("off the bus already");
        }
        m_link.reset();
        m_plugging = Plugging::NOT_NOW;
        PrintRecord("unplug");
    }

    void SetDelay(std::int64_t delay) {
        m_delay = delay;
        if (m_link) {
            m_link->SetDelay(delay);
        }
    }

    /// The kernel clears up after the board that was there before, then makes a node for this one; both take
    /// time, and this board must answer meanwhile.
    void ContinuePlugging() {
        if (m_plugging == Plugging::WAITS_FOR_PORT && !IsPortOccupied(m_port)) {
            if (std::optional<FileDescriptor> socket = PlugIn(m_port)) {
                m_board->Connect();
                m_link.emplace(std::move(*socket), m_device);
                m_link->SetDelay(m_delay);
                m_plugging = Plugging::WAITS_FOR_NODE;
            }
        } else if (m_plugging == Plugging::WAITS_FOR_NODE && !FindHiddevNode(m_port).empty()) {
            m_plugging = Plugging::NOT_NOW;
            PrintRecord(m_pluggedEvent);
        }
        if (m_plugging != Plugging::NOT_NOW && Now() >= m_plugDeadline) {
            PrintComplaint(m_plugLine, m_plugging == Plugging::WAITS_FOR_PORT
                                           ? "another board is in this port; take another with --port"
                                           : "the kernel made no hiddev node");
            m_plugging = Plugging::NOT_NOW;
            m_link.reset();
        }
    }

    void ServeTime() {
        if (m_plugging != Plugging::NOT_NOW) {
            ContinuePlugging();
        }
        if (m_link) {
            m_link->ServeWaiting(m_manners, Now());
        }
        if (IsSpeaking()) {
            m_board->Advance(Now(), m_link->IsEndpointFree());
        }
        PassOnWhatHappened();
    }

    void PassOnWhatHappened() {
        for (const std::string& record : m_board->TakeRecords()) {
            PrintRecord(record);
        }
        for (const Bytes& report : m_board->TakeReports()) {
            if (IsSpeaking()) {
                m_link->Send(report);
            }
        }
    }

    std::optional<std::int64_t> NextWakeUp() const {
        std::optional<std::int64_t> next = m_link ? m_link->NextTransferTime() : std::nullopt;
        const auto include = [&next](std::optional<std::int64_t> time) {
            if (time) {
                next = std::min(next.value_or(*time), *time);
            }
        };
        if (IsSpeaking()) {
            include(m_board->NextReportTime());
        }
        if (m_plugging != Plugging::NOT_NOW) {
            include(Now() + PLUG_STEP);
        }
        return next;
    }

    void WaitAndServe() {
        pollfd fds[] = {{STDIN_FILENO, POLLIN, 0}, {m_link ? m_link->GetFd() : -1, POLLIN, 0}};
        timespec timeout{};
        const std::optional<std::int64_t> next = NextWakeUp();
        if (next) {
            const std::int64_t wait = std::max<std::int64_t>(*next - Now(), 0);
            timeout = {static_cast<time_t>(wait / NANOSECONDS_PER_SECOND),
                       static_cast<long>(wait % NANOSECONDS_PER_SECOND)};
        }
        if (::ppoll(fds, std::size(fds), next ? &timeout : nullptr, nullptr) < 0) {
            if (errno == EINTR) {
                return;
            }
            throw std::system_error(errno, std::generic_category(), "ppoll");
        }
        if (fds[1].revents != 0 && !m_link->ServeOne(m_manners, Now())) {
            Unplug();
        }
        if (fds[0].revents != 0) {
            ReadLines();
        }
    }

    void ReadLines() {
        m_quit = !m_lines.Serve([this](const std::string& line) {
            const bool goesOn = Execute(line);
            PassOnWhatHappened();
            return goesOn;
        });
    }

    /// @return false for "quit"
    bool Execute(const std::string& line) {
        const std::vector<std::string> words = SplitWords(line);
        if (words.empty()) {
            return true;
        }
        const std::string command = words.size() == 1 ? words[0] : "";
        if (words.size() == 2 && words[0] == "delay") {
            SetDelay(ParseMilliseconds(words[1]));
        } else if (command == "quit") {
            return false;
        } else if (command == "mute") {
            m_manners = Manners::MUTE;
        } else if (command == "stall") {
            m_manners = Manners::STALLS;
        } else if (command == "unmute" || command == "unstall") {
            m_manners = Manners::ANSWERS;
        } else if (command == "unplug") {
            Unplug();
        } else if (command == "plug") {
            StartPlugging("plugged");
        } else if (const std::string answer = m_board->ExecuteLine(line); !answer.empty()) {
            PrintRecord(answer);
        }
        return true;
    }

    const unsigned m_port;
    const std::unique_ptr<Board> m_board;
    UsbDevice m_device;
    std::optional<UsbIpLink> m_link;
    Manners m_manners = Manners::ANSWERS;
    std::int64_t m_delay = 0;
    Plugging m_plugging = Plugging::NOT_NOW;
    std::int64_t m_plugDeadline = 0;
    unsigned long m_plugLine = 0;  ///< the line that asked for it; 0 for the start of the program
    const char* m_pluggedEvent = "";
    LineInput m_lines;
    bool m_quit = false;
};

void ListModels() {
    for (const std::string& model : BoardModels()) {
        PrintLine(model);
    }
}

unsigned ParseOption(const std::string& text, unsigned max) {
    const unsigned number = ParseNumber(text);
    if (number > max) {
        throw std::invalid_argument("more than " + std::to_string(max) + ": " + text);
    }
    return number;
}

Options ParseOptions(int argc, char** argv) {
    Options options;
    ReadOptions(argc, argv, [&options](const std::string& name, const std::string& value) {
        if (name == "--model") {
            options.model = value;
        } else if (name == "--port") {
            options.port = ParseOption(value, VHCI_PORT_MAX);
        } else if (name == "--vendor") {
            options.vendor = static_cast<std::uint16_t>(ParseOption(value, 0xFFFF));
        } else {
            return false;
        }
        return true;
    });
    return options;
}

}  // namespace

}  // namespace VirtualPlayer

int main(int argc, char** argv) {
    try {
        if (argc == 2 && std::string_view(argv[1]) == "--list-models") {
            VirtualPlayer::ListModels();
            return 0;
        }
        VirtualPlayer::Program(VirtualPlayer::ParseOptions(argc, argv)).Run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "usb-board: %s\n", error.what());
        return 1;
    }
    return 0;
}
