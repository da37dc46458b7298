#pragma once

// A board on a hiddev node that exists only inside a test. The linker leads the library's own open, close,
// read and ioctl here, and what it asks udev and UsbBusOrder about the node (tests/CMakeLists.txt); all else
// goes where it always goes. Descriptors of the node are real ones, which poll can wait on. As the kernel's
// node, it serves one request at a time, forgets its values when the board is unplugged, and then fails reads
// with EIO and requests with ENODEV. Unlike the kernel's, it knows one report, and answers only what the
// tests ask for.

#include <linux/hiddev.h>

#include <climits>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "lib/platform/unique_fd.h"

/// Any thread, but the constructor and destructor.
class ModelledBoard {
public:
    static constexpr unsigned NODE_NUMBER = 200;
    static constexpr const char* NODE = "/dev/usb/hiddev200";
    static constexpr const char* LOCATION = "1-1:1.0";
    static constexpr unsigned PINS = 4;
    enum OutputField : unsigned { OUTPUTS, DIRECTIONS };
    using Values = std::vector<std::int32_t>;

    /// What the kernel has for the board, from one plugging to the next unplugging.
    struct Device {
        bool exists = true;
        bool busy = false;      ///< serves a request
        unsigned openings = 0;  ///< how often the node was opened
        unsigned refused = 0;   ///< requests for pins that are not there
        Values inputs = Values(PINS);
        Values outputs = Values(PINS);
        Values directions = Values(PINS);
        Values sent = Values(PINS);  ///< the outputs that the board was sent last
    };

    /// A board that is plugged in. There is one at a time; it outlives poll thread, monitor and ports.
    ModelledBoard();
    ~ModelledBoard();

    void Unplug();
    /// The hot-plug monitor announces the node, and again when it is asked for that.
    void Plug();

    /// Makes an input event, on every descriptor.
    void SendInput(unsigned pin, std::int32_t value);

    /// From now on requests to the board wait for an answer.
    void Mute();
    /// Waits until a request waits for its answer.
    void WaitForRequest();
    /// Answers this many requests; the default stands for all, from now on.
    void Answer(int requests = INT_MAX);

    /// Waits until a condition on the device holds.
    template <class Condition>
    void WaitUntil(Condition condition) {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [&] { return condition(*m_device); });
    }
    Device GetDevice();

    // What the linker leads here.
    int Open();
    bool Has(int fd);
    void Close(int fd);
    int Ioctl(int fd, unsigned long request, void* argument);
    void Announce();
    int GetAnnouncements() const { return m_announcements.Get(); }

private:
    struct Opening {
        strata::UniqueFd boardEnd;
        std::shared_ptr<Device> device;
    };

    int Serve(std::unique_lock<std::mutex>& lock, Device& device, unsigned long request, void* argument);

    const strata::UniqueFd m_announcements;  ///< an eventfd
    std::mutex m_mutex;                      ///< guards the rest; no other is taken under it
    std::condition_variable m_changed;
    std::shared_ptr<Device> m_device;  ///< the last that was plugged in
    std::map<int, Opening> m_openings;
    int m_answers = INT_MAX;  ///< to this many requests
    bool m_waiting = false;   ///< a request waits for its answer
};
