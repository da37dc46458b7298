#pragma once

// What the tests of the ports share: device programs as child processes, logs of what callbacks received, and
// waiting with patience.

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "lib/hardware/external_control.h"
#include "lib/platform/errno_exception.h"
#include "lib/platform/posix_helpers.h"
#include "lib/platform/unique_fd.h"

constexpr std::chrono::seconds PATIENCE{60};

inline void WaitUntil(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            throw std::runtime_error("waited in vain");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

/// A program that is a device as long as it lives: told what to do by lines, telling what happened by
/// records.
class DeviceProcess {
public:
    /// Starts the program and waits until its device is ready.
    explicit DeviceProcess(std::vector<std::string> command) {
        int input[2], output[2];
        if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0) {
            throw ErrnoException(errno, "pipe2");
        }
        std::vector<char*> arguments;
        arguments.reserve(command.size() + 1);
        for (std::string& argument : command) {
            arguments.push_back(argument.data());
        }
        arguments.push_back(nullptr);
        m_process = fork();
        if (m_process == -1) {
            throw ErrnoException(errno, "fork");
        }
        if (m_process == 0) {
            dup2(input[0], STDIN_FILENO);
            dup2(output[1], STDOUT_FILENO);
            execvp(arguments[0], arguments.data());
            _exit(127);
        }
        close(input[0]);
        close(output[1]);
        m_lines.Reset(input[1]);
        m_records = fdopen(output[0], "r");
        WaitFor("ready");
    }

    DeviceProcess(const DeviceProcess&) = delete;
    DeviceProcess& operator=(const DeviceProcess&) = delete;

    ~DeviceProcess() {
        m_lines.Reset();
        waitpid(m_process, nullptr, 0);
        fclose(m_records);
    }

    void Send(const std::string& line) {
        write_all_throw(m_lines.Get(), (line + "\n").data(), line.size() + 1);
    }

    /// The next record, with its newline.
    std::string NextRecord() {
        char line[512];
        if (fgets(line, sizeof line, m_records) == nullptr) {
            throw std::runtime_error("no more records");
        }
        return line;
    }

    /// Waits for the next record with this text and returns it.
    /// @throws std::runtime_error when a complaint comes first
    std::string WaitFor(const std::string& text) {
        for (;;) {
            std::string record = NextRecord();
            if (record.starts_with("error")) {
                throw std::runtime_error(record);
            }
            if (record.find(text) != std::string::npos) {
                return record;
            }
        }
    }

    bool HasState(const std::string& text) {
        Send("state");
        return WaitFor("state ").find(text) != std::string::npos;
    }

private:
    pid_t m_process = -1;
    strata::UniqueFd m_lines;
    FILE* m_records = nullptr;
};

struct Event {
    unsigned pin, value, width;
    bool operator==(const Event&) const = default;
};

/// What a callback received; the test waits for it.
class EventLog {
public:
    ExternalControl::InputCallback Callback() {
        return [this](unsigned pin, unsigned value, unsigned width) {
            const std::lock_guard lock(m_mutex);
            m_events.push_back({pin, value, width});
            m_changed.notify_all();
        };
    }

    /// Waits until so many events were received since the last Take.
    void WaitFor(std::size_t count) {
        std::unique_lock lock(m_mutex);
        if (!m_changed.wait_for(lock, PATIENCE, [&] { return m_events.size() >= count; })) {
            throw std::runtime_error("events did not come");
        }
    }

    std::vector<Event> Take() {
        const std::lock_guard lock(m_mutex);
        return std::exchange(m_events, {});
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<Event> m_events;
};

inline void Ignore(unsigned, unsigned, unsigned) {}
