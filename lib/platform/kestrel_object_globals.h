#pragma once

// The process-wide object that outlives single devices: its hot-plug monitor tells observers when device
// nodes below /dev/usb appear and disappear.

#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "lib/platform/singleton.h"
#include "lib/platform/udev_pointer.h"
#include "lib/platform/unique_fd.h"

/// Who wants to know. The notices run on the monitor's thread, one after the other; they may block, but keep
/// other observers waiting meanwhile. What they throw is reported to standard error. They must not add or
/// remove observers.
class DeviceHotplugUpdateObserver {
public:
    /// A node has appeared. The same node may be announced twice.
    /// @param deviceName  path of the node below /dev/usb, as "/hiddev3": "/dev/usb%s" of it is the node
    virtual void OnDeviceAppeared(const std::string& deviceName) = 0;

    /// A node has disappeared.
    virtual void OnDeviceDisappeared(const std::string& deviceName) = 0;

protected:
    ~DeviceHotplugUpdateObserver() = default;
};

/// Created and destroyed by the main function, outliving all observers; observers that come when there is
/// none do without notices.
class KestrelObjectGlobals : public strata::Singleton<KestrelObjectGlobals> {
public:
    /// Starts the monitor's thread.
    /// @throws ErrnoException when device events cannot be had
    /// @throws std::system_error when there is no thread to be had
    KestrelObjectGlobals();

    /// Stops the monitor's thread, after a running notice.
    ~KestrelObjectGlobals();

    /// Registers an observer. Any thread, not from a notice; waits for a running notice.
    /// @param pathFilter  a text that the names of its nodes contain
    void AddHotplugObserver(DeviceHotplugUpdateObserver* observer, const std::string& pathFilter);

    /// Removes a registration; nothing happens when there is none. Any thread, not from a notice; waits for a
    /// running notice, so that the observer is not called any more when this returns.
    void RemoveHotplugObserver(DeviceHotplugUpdateObserver* observer, const std::string& pathFilter);

private:
    struct Registration {
        DeviceHotplugUpdateObserver* observer;
        std::string pathFilter;

        bool operator==(const Registration&) const = default;
    };

    struct Event {
        std::string action;
        std::string deviceName;
    };

    void Run();
    static std::optional<Event> Receive(udev_monitor* monitor);
    void Notify(const Event& event);

    const strata::UdevPointer m_udev;
    const strata::UdevMonitorPointer m_kernelMonitor;
    const strata::UdevMonitorPointer m_udevdMonitor;
    const strata::UniqueFd m_stop;  // an eventfd
    std::mutex m_mutex;             // held while notices run
    std::list<Registration> m_registrations;
    std::thread m_thread;  // last: runs on the rest
};
