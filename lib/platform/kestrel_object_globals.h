#pragma once

// The process-wide object that outlives single devices: its hot-plug monitor tells observers when device
// nodes below /dev/usb appear and disappear.

#include <condition_variable>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "lib/platform/singleton.h"
#include "lib/platform/udev_pointer.h"
#include "lib/platform/unique_fd.h"

/// Who wants to know. The notices run on the monitor's thread, one after the other; they may block, but the
/// other observers get theirs later. What they throw is reported to standard error.
class DeviceHotplugUpdateObserver {
public:
    /// A node has appeared. The same node may be announced again while it is there.
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

    /// Registers an observer; it gets the events from now on. Any thread.
    /// @param observer    gets the events on the monitor's thread; must stay until it is removed
    /// @param pathFilter  a text that the names of its nodes contain
    void AddHotplugObserver(DeviceHotplugUpdateObserver* observer, const std::string& pathFilter);

    /// Removes a registration; nothing happens when there is none. Any thread. When it returns, no notice of
    /// the observer's is running (unless this was called from a notice) and none will come by this
    /// registration; it does not wait for the notices of others.
    void RemoveHotplugObserver(DeviceHotplugUpdateObserver* observer, const std::string& pathFilter);

    /// Has all hiddev nodes that are there announced as appeared, for an observer that could not use the
    /// notice when it came. Any thread; returns at once, the notices follow.
    void AnnounceAgain();

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
    void AnnounceNodes();
    std::optional<Event> Receive(udev_monitor* monitor);
    void Notify(const Event& event);
    static void Deliver(const Event& event, DeviceHotplugUpdateObserver& observer) noexcept;

    const strata::UdevPointer m_udev;
    const strata::UdevMonitorPointer m_kernelMonitor;
    const strata::UdevMonitorPointer m_udevdMonitor;
    const strata::UniqueFd m_stop;      // an eventfd: the monitor is to end
    const strata::UniqueFd m_announce;  // an eventfd: AnnounceNodes is to run
    std::mutex m_mutex;                 // guards the next two members; not held while a notice runs
    std::list<Registration> m_registrations;
    DeviceHotplugUpdateObserver* m_notified = nullptr;  // whose notice is running
    std::condition_variable m_noticeEnded;
    std::thread m_thread;  // last: it uses the members above
};
