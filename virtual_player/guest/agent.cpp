// The guest's first process once /init has prepared the system. It runs commands for the launcher, which sits
// at the other end of a virtio serial port: several at once, each with streams of its own.
//
// Both directions carry frames: three little-endian 32-bit words (command number, kind, length) and the
// payload. The launcher chooses the numbers. A failure here ends the process, and so the guest, with a kernel
// panic on the console: the launcher sees its end of the port close and shows the console.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/reboot.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "virtual_player/common/file_descriptor.h"

namespace VirtualPlayer {

namespace {

enum class FrameKind : std::uint32_t {
    READY = 0,   // from the agent, once, before anything else
    START = 1,   // strings, each ended by NUL: working directory, number of arguments, arguments, environment
    INPUT = 2,   // for standard input; no bytes: end of file
    SIGNAL = 3,  // a signal number, one byte, for the command's process group
    OUTPUT = 4,  // from standard output
    ERROR = 5,   // from standard error
    EXIT = 6,    // last frame of a command: exit status, or 128 + signal, one byte
};

struct FrameHeader {
    std::uint32_t command;
    FrameKind kind;
    std::uint32_t length;
};

constexpr std::size_t CHUNK = 65536;

// Nobody needs this guest any more, however the launcher came to its end.
[[noreturn]] void SwitchOff() {
    for (;;) {
        reboot(RB_POWER_OFF);
    }
}

[[noreturn]] void Fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

struct Pipe {
    FileDescriptor readEnd;
    FileDescriptor writeEnd;
};

Pipe MakePipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) < 0) {
        Fail("pipe");
    }
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

struct Command {
    pid_t pid = -1;
    FileDescriptor input;
    FileDescriptor output;
    FileDescriptor error;
    std::string pendingInput;
    bool inputEnds = false;

    // Never blocks: what the command does not take now waits for the next turn.
    void FeedInput() {
        while (input.IsOpen() && !pendingInput.empty()) {
            const ssize_t written = write(input.Get(), pendingInput.data(), pendingInput.size());
            if (written < 0 && errno == EAGAIN) {
                return;
            }
            if (written < 0) {
                // The command does not read any more; that is its right.
                pendingInput.clear();
                input = FileDescriptor();
                return;
            }
            pendingInput.erase(0, static_cast<std::size_t>(written));
        }
        if (inputEnds) {
            input = FileDescriptor();
        }
    }
};

std::vector<std::string> SplitStrings(std::string_view text) {
    std::vector<std::string> strings;
    while (!text.empty()) {
        strings.emplace_back(text.substr(0, text.find('\0')));
        text.remove_prefix(strings.back().size() + 1);
    }
    return strings;
}

std::vector<char*> AsArgumentVector(std::vector<std::string>::iterator from,
                                    std::vector<std::string>::iterator to) {
    std::vector<char*> pointers;
    for (; from != to; ++from) {
        pointers.push_back(from->data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

// In the child. Strings as in FrameKind::START.
[[noreturn]] void Execute(std::vector<std::string> strings, const Pipe& input, const Pipe& output,
                          const Pipe& error) {
    if (dup2(input.readEnd.Get(), STDIN_FILENO) < 0 || dup2(output.writeEnd.Get(), STDOUT_FILENO) < 0 ||
        dup2(error.writeEnd.Get(), STDERR_FILENO) < 0) {
        _exit(126);
    }
    setpgid(0, 0);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_DFL);
    const auto arguments = strings.begin() + 2;
    const auto environment = arguments + std::stol(strings[1]);
    auto argumentVector = AsArgumentVector(arguments, environment);
    auto environmentVector = AsArgumentVector(environment, strings.end());
    environ = environmentVector.data();
    if (chdir(strings[0].c_str()) < 0) {
        std::cerr << "cannot change to " << strings[0] << ": " << std::strerror(errno) << std::endl;
        _exit(126);
    }
    execvp(argumentVector[0], argumentVector.data());
    std::cerr << "cannot run " << argumentVector[0] << ": " << std::strerror(errno) << std::endl;
    _exit(127);
}

class Agent {
public:
    explicit Agent(const char* portName) : m_port(open(portName, O_RDWR | O_CLOEXEC | O_NONBLOCK)) {
        if (!m_port.IsOpen()) {
            Fail(portName);
        }
        signal(SIGPIPE, SIG_IGN);
        sigset_t childEnded;
        sigemptyset(&childEnded);
        sigaddset(&childEnded, SIGCHLD);
        sigprocmask(SIG_BLOCK, &childEnded, nullptr);
        m_signals = FileDescriptor(signalfd(-1, &childEnded, SFD_CLOEXEC));
        if (!m_signals.IsOpen()) {
            Fail("signalfd");
        }
        SendFrame(0, FrameKind::READY, {});
    }

    // Serves the launcher; when it has gone the guest is switched off.
    [[noreturn]] void Run() {
        for (;;) {
            std::vector<pollfd> polled{{m_port.Get(), POLLIN, 0}, {m_signals.Get(), POLLIN, 0}};
            for (const auto& [number, command] : m_commands) {
                // poll() passes over negative descriptors.
                polled.push_back({command.output.Get(), POLLIN, 0});
                polled.push_back({command.error.Get(), POLLIN, 0});
                polled.push_back({command.pendingInput.empty() ? -1 : command.input.Get(), POLLOUT, 0});
            }
            if (poll(polled.data(), polled.size(), -1) < 0 && errno != EINTR) {
                Fail("poll");
            }
            for (auto& [number, command] : m_commands) {
                command.FeedInput();
                ForwardOutput(number, command);
            }
            if (polled[1].revents != 0) {
                ReapChildren();
            }
            if (polled[0].revents != 0) {
                ReadPort();
            }
        }
    }

private:
    void SendFrame(std::uint32_t command, FrameKind kind, std::string_view payload) {
        const FrameHeader header{command, kind, static_cast<std::uint32_t>(payload.size())};
        std::string frame(reinterpret_cast<const char*>(&header), sizeof header);
        frame += payload;
        for (std::size_t sent = 0; sent < frame.size();) {
            const ssize_t written = write(m_port.Get(), frame.data() + sent, frame.size() - sent);
            if (written >= 0) {
                sent += static_cast<std::size_t>(written);
            } else if (errno == EAGAIN) {
                WaitUntilPortTakesMore();
            } else {
                Fail("write to the launcher");
            }
        }
    }

    // A blocking write would wait for ever once the launcher has gone.
    void WaitUntilPortTakesMore() {
        pollfd port{m_port.Get(), POLLOUT, 0};
        if (poll(&port, 1, -1) < 0) {
            Fail("poll");
        }
        if ((port.revents & POLLHUP) != 0) {
            SwitchOff();
        }
    }

    void ForwardOutput(std::uint32_t number, Command& command) {
        ForwardStream(number, FrameKind::OUTPUT, command.output);
        ForwardStream(number, FrameKind::ERROR, command.error);
    }

    // Whatever is there now, at most one chunk, so that one noisy command cannot keep the others waiting.
    bool ForwardStream(std::uint32_t number, FrameKind kind, FileDescriptor& stream) {
        if (!stream.IsOpen()) {
            return false;
        }
        m_chunk.resize(CHUNK);
        const ssize_t count = read(stream.Get(), m_chunk.data(), m_chunk.size());
        if (count > 0) {
            SendFrame(number, kind, {m_chunk.data(), static_cast<std::size_t>(count)});
        } else if (count == 0) {
            stream = FileDescriptor();
        }
        return count > 0;
    }

    void ReapChildren() {
        signalfd_siginfo ignored;
        if (read(m_signals.Get(), &ignored, sizeof ignored) < 0) {
            Fail("read from signalfd");
        }
        int status;
        for (pid_t pid; (pid = waitpid(-1, &status, WNOHANG)) > 0;) {
            for (auto& [number, command] : m_commands) {
                if (command.pid == pid) {
                    FinishCommand(number, command, status);
                    break;
                }
            }
        }
    }

    // A process that the command left behind may still hold its streams; the command is over nevertheless.
    void FinishCommand(std::uint32_t number, Command& command, int status) {
        while (ForwardStream(number, FrameKind::OUTPUT, command.output)) {
        }
        while (ForwardStream(number, FrameKind::ERROR, command.error)) {
        }
        const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        const char byte = static_cast<char>(code);
        SendFrame(number, FrameKind::EXIT, {&byte, 1});
        m_commands.erase(number);
    }

    void ReadPort() {
        m_chunk.resize(CHUNK);
        const ssize_t count = read(m_port.Get(), m_chunk.data(), m_chunk.size());
        if (count == 0) {
            SwitchOff();
        }
        if (count < 0 && errno == EAGAIN) {
            return;
        }
        if (count < 0) {
            Fail("read from the launcher");
        }
        m_received.append(m_chunk, 0, static_cast<std::size_t>(count));
        std::size_t used = 0;
        FrameHeader header;
        while (m_received.size() - used >= sizeof header) {
            std::memcpy(&header, m_received.data() + used, sizeof header);
            if (m_received.size() - used - sizeof header < header.length) {
                break;
            }
            HandleFrame(header, m_received.substr(used + sizeof header, header.length));
            used += sizeof header + header.length;
        }
        m_received.erase(0, used);
    }

    void HandleFrame(const FrameHeader& header, const std::string& payload) {
        if (header.kind == FrameKind::START) {
            StartCommand(header.command, payload);
            return;
        }
        const auto found = m_commands.find(header.command);
        if (found == m_commands.end()) {
            return;  // it ended while the frame was on its way
        }
        Command& command = found->second;
        if (header.kind == FrameKind::INPUT) {
            command.pendingInput += payload;
            command.inputEnds |= payload.empty();
            command.FeedInput();
        } else if (header.kind == FrameKind::SIGNAL) {
            kill(-command.pid, payload.at(0));
        }
    }

    void StartCommand(std::uint32_t number, const std::string& payload) {
        Pipe input = MakePipe();
        Pipe output = MakePipe();
        Pipe error = MakePipe();
        Command command;
        command.pid = fork();
        if (command.pid < 0) {
            Fail("fork");
        }
        if (command.pid == 0) {
            Execute(SplitStrings(payload), input, output, error);
        }
        // Here too, so that a signal that follows at once finds the group.
        setpgid(command.pid, command.pid);
        command.input = std::move(input.writeEnd);
        command.output = std::move(output.readEnd);
        command.error = std::move(error.readEnd);
        for (const FileDescriptor* stream : {&command.input, &command.output, &command.error}) {
            if (fcntl(stream->Get(), F_SETFL, O_NONBLOCK) < 0) {
                Fail("fcntl");
            }
        }
        m_commands.insert_or_assign(number, std::move(command));
    }

    FileDescriptor m_port;
    FileDescriptor m_signals;
    std::map<std::uint32_t, Command> m_commands;
    std::string m_received;
    std::string m_chunk;
};

}  // namespace

}  // namespace VirtualPlayer

// NOLINTNEXTLINE(bugprone-exception-escape): what ends it stands on the console, and ends the guest
int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: agent PORT" << std::endl;
        return EXIT_FAILURE;
    }
    VirtualPlayer::Agent(argv[1]).Run();
}
