// gpio-lines: the player's GPIO lines and their pin multiplexer, as character devices of this kernel. Lines
// on standard input play what is connected to the pins:
//   level PIN 0|1                  the level of an input; if it changes, a key event and a SYN
//   event TYPE CODE VALUE          any event; read, as all, once a SYN (0 0 0) has come
//   fail ioctl|write|read|nothing  from now on these requests fail with EIO
//   state                          writes the state as a record
//   quit                           ends the program, as the end of standard input does
// Lines on standard output are events with their time on the monotonic clock: "ready", "write TYPE CODE
// VALUE", "refused N bytes", "mux PIN SELECTOR", "mux refused N bytes", "state ...". Line N, when it is
// refused, gives "error: line N: ...", without a time.

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "virtual_player/common/console.h"
#include "virtual_player/gpio/gpio_model.h"
#include "virtual_player/gpio/gpio_node.h"
#include "virtual_player/gpio/pin_mux_node.h"

namespace VirtualPlayer {

namespace {

constexpr int READY_STEP_MS = 5;

Failing ParseFailing(const std::string& text) {
    if (text == "nothing") {
        return Failing::NOTHING;
    }
    if (text == "ioctl") {
        return Failing::IOCTL;
    }
    if (text == "write") {
        return Failing::WRITE;
    }
    if (text == "read") {
        return Failing::READ;
    }
    throw std::invalid_argument("nothing that can fail: " + text);
}

std::uint16_t ParseWord(const std::string& text) {
    const std::uint32_t number = ParseNumber(text);
    if (number > 0xFFFF) {
        throw std::invalid_argument("too large: " + text);
    }
    return static_cast<std::uint16_t>(number);
}

class Program {
public:
    explicit Program(const GpioPins& pins) : m_model(pins), m_gpio(m_model) {}

    /// Runs until "quit" or the end of standard input.
    void Run() {
        while (!m_quit) {
            if (!m_isReady && m_gpio.Exists() && m_mux.Exists()) {
                m_isReady = true;
                PrintRecord("ready");
            }
            WaitAndServe();
        }
    }

private:
    void WaitAndServe() {
        pollfd fds[] = {{STDIN_FILENO, POLLIN, 0}, {m_gpio.GetFd(), POLLIN, 0}, {m_mux.GetFd(), POLLIN, 0}};
        if (::poll(fds, std::size(fds), m_isReady ? -1 : READY_STEP_MS) < 0) {
            if (errno == EINTR) {
                return;
            }
            throw std::system_error(errno, std::generic_category(), "poll");
        }
        if (fds[1].revents != 0) {
            m_gpio.Serve();
        }
        if (fds[2].revents != 0) {
            m_mux.Serve();
        }
        if (fds[0].revents != 0) {
            ReadLines();
        }
    }

    void ReadLines() {
        m_quit = !m_lines.Serve([this](const std::string& line) { return Execute(line); });
    }

    /// @return false for "quit"
    bool Execute(const std::string& line) {
        const std::vector<std::string> words = SplitWords(line);
        if (words.empty()) {
            return true;
        }
        const std::string& command = words[0];
        const std::size_t arguments = words.size() - 1;
        if (command == "level" && arguments == 2) {
            SetLevel(ParseNumber(words[1]), ParseLevel(words[2]));
        } else if (command == "event" && arguments == 3) {
            m_gpio.SendEvent(ParseWord(words[1]), ParseWord(words[2]),
                             static_cast<std::int32_t>(ParseNumber(words[3])));
        } else if (command == "fail" && arguments == 1) {
            const Failing failing = ParseFailing(words[1]);
            m_gpio.SetFailing(failing);
            m_mux.SetFailing(failing);
        } else if (command == "state" && arguments == 0) {
            PrintRecord("state " + m_model.Describe());
        } else if (command == "quit" && arguments == 0) {
            return false;
        } else {
            throw std::invalid_argument("not understood: " + line);
        }
        return true;
    }

    void SetLevel(unsigned pin, bool level) {
        if (const std::optional<unsigned> code = m_model.SetLevel(pin, level)) {
            m_gpio.SendEvent(EV_KEY, static_cast<std::uint16_t>(*code), level);
            m_gpio.SendEvent(EV_SYN, SYN_REPORT, 0);
        }
    }

    GpioModel m_model;
    GpioNode m_gpio;
    PinMuxNode m_mux;
    LineInput m_lines;
    bool m_isReady = false;
    bool m_quit = false;
};

GpioPins ParseOptions(int argc, char** argv) {
    GpioPins pins;
    ReadOptions(argc, argv, [&pins](const std::string& name, const std::string& value) {
        const std::uint32_t mask = ParseNumber(value);
        if (name == "--offered-inputs") {
            pins.offeredInputs = mask;
        } else if (name == "--offered-outputs") {
            pins.offeredOutputs = mask;
        } else if (name == "--switchable") {
            pins.switchable = mask;
        } else {
            return false;
        }
        return true;
    });
    return pins;
}

}  // namespace

}  // namespace VirtualPlayer

int main(int argc, char** argv) {
    try {
        VirtualPlayer::Program(VirtualPlayer::ParseOptions(argc, argv)).Run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "gpio-lines: %s\n", error.what());
        return 1;
    }
    return 0;
}
