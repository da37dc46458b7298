#pragma once

// What the benchmarks ask of an event loop: to serve descriptors, timers, and calls from other threads. Each
// loop that is compared has a file of its own in bench/loops, which registers it by a LoopKind.

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

/// Somebody with a descriptor.
class Client {
public:
    virtual ~Client() = default;
    virtual int GetFd() const = 0;
    /// The descriptor is readable. Runs on the loop's thread.
    virtual void OnReady() = 0;
};

/// Somebody who waits for a point in time. Runs on the loop's thread.
class Alarm {
public:
    virtual ~Alarm() = default;
    virtual void OnTime() = 0;
};

/// An event loop as its users find it: with its own defaults, but with timers as fine as it offers them.
class Loop {
public:
    virtual ~Loop() = default;

    /// Serves a client from now on. Before Run.
    virtual void Watch(Client& client) = 0;
    /// Calls the alarm once, at a point of the steady clock in nanoseconds. From a callback.
    virtual void AddTimer(Alarm& alarm, std::int64_t deadline) = 0;
    /// Has OnReady of a client whose descriptor is ready called once. From any other thread, while Run runs.
    virtual void Call(Client& client) = 0;
    /// Whether other threads can call: a bare wait has no way in.
    virtual bool CanBeCalled() const { return true; }
    /// Serves all until Stop, on this thread, or waits while another does.
    virtual void Run() = 0;
    /// From a callback.
    virtual void Stop() = 0;
};

/// A loop that can be chosen by its name.
struct LoopKind {
    std::string name;
    std::function<std::unique_ptr<Loop>()> make;

    /// All that are part of this program.
    static std::vector<LoopKind>& All() {
        static std::vector<LoopKind> kinds;
        return kinds;
    }
};

/// At namespace scope: registers a kind of loop.
template <class SomeLoop>
struct RegisteredLoop {
    explicit RegisteredLoop(const char* name) {
        LoopKind::All().push_back({name, [] { return std::make_unique<SomeLoop>(); }});
    }
};

/// For loops that other threads can wake but not call: what they are to call. Any thread.
class CallQueue {
public:
    void Add(Client& client) {
        const std::lock_guard lock(m_mutex);
        m_clients.push_back(&client);
    }

    void Serve() {
        {
            const std::lock_guard lock(m_mutex);
            std::swap(m_clients, m_served);
        }
        for (Client* const client : m_served) {
            client->OnReady();
        }
        m_served.clear();
    }

private:
    std::mutex m_mutex;  // guards m_clients
    std::vector<Client*> m_clients;
    std::vector<Client*> m_served;  // only the loop's thread
};
