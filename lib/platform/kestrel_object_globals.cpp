#include "lib/platform/kestrel_object_globals.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <exception>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <vector>

#include "lib/platform/errno_exception.h"
#include "lib/platform/message.h"

namespace {

constexpr std::string_view USB_NODE_FOLDER = "/dev/usb/";
constexpr std::string_view HIDDEV_NODE = "hiddev";

// A blocked notice keeps events waiting in the socket, those of every other subsystem included.
constexpr int EVENT_BUFFER_BYTES = 4 * 1024 * 1024;

constexpr std::chrono::milliseconds WAKE_UP_AGAIN{100};

strata::UdevPointer ConnectUdev() {
    const std::lock_guard lock(strata::udevMutex);
    strata::UdevPointer connection(udev_new());
    if (!connection) {
        throw ErrnoException(errno, "udev_new");
    }
    return connection;
}

/// @param source  "kernel" or "udev"
strata::UdevMonitorPointer ListenTo(udev* connection, const char* source) {
    const std::lock_guard lock(strata::udevMutex);
    strata::UdevMonitorPointer monitor(udev_monitor_new_from_netlink(connection, source));
    if (!monitor) {
        throw ErrnoException(errno, "udev_monitor_new_from_netlink");
    }
    // A failure does no harm: a larger buffer needs privileges, and the default size is enough for all but a
    // very long notice.
    udev_monitor_set_receive_buffer_size(monitor.get(), EVENT_BUFFER_BYTES);

    int result = udev_monitor_filter_add_match_subsystem_devtype(monitor.get(), "usbmisc", nullptr);
    if (result >= 0) {
        result = udev_monitor_enable_receiving(monitor.get());
    }
    if (result < 0) {
        throw ErrnoException(-result, "udev_monitor_enable_receiving");
    }
    return monitor;
}

strata::UniqueFd CreateEvent() {
    strata::UniqueFd event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!event.IsOpen()) {
        throw ErrnoException(errno, "eventfd");
    }
    return event;
}

}  // namespace

// The kernel's events come on every player and, as it has made the node by then, in time. udevd's come later
// and only where it runs: they announce the nodes once more when rules have changed who may open them.
KestrelObjectGlobals::KestrelObjectGlobals()
    : m_udev(ConnectUdev()),
      m_kernelMonitor(ListenTo(m_udev.get(), "kernel")),
      m_udevdMonitor(ListenTo(m_udev.get(), "udev")),
      m_stop(CreateEvent()),
      m_announce(CreateEvent()),
      m_thread([this] { Run(); }) {}

KestrelObjectGlobals::~KestrelObjectGlobals() {
    // A thread that was not woken would sleep on: a failed wake-up is no reason to wait for it for ever.
    while (eventfd_write(m_stop.Get(), 1) != 0) {
        std::this_thread::sleep_for(WAKE_UP_AGAIN);
    }
    m_thread.join();
}

void KestrelObjectGlobals::AddHotplugObserver(DeviceHotplugUpdateObserver* observer,
                                              const std::string& pathFilter) {
    const std::lock_guard lock(m_mutex);
    m_registrations.push_back({observer, pathFilter});
}

void KestrelObjectGlobals::RemoveHotplugObserver(DeviceHotplugUpdateObserver* observer,
                                                 const std::string& pathFilter) {
    std::unique_lock lock(m_mutex);
    m_registrations.remove({observer, pathFilter});
    // On the monitor's own thread this would be waiting for itself.
    if (std::this_thread::get_id() != m_thread.get_id()) {
        m_noticeEnded.wait(lock, [&] { return m_notified != observer; });
    }
}

void KestrelObjectGlobals::AnnounceAgain() {
    if (eventfd_write(m_announce.Get(), 1) != 0) {
        PLATFORM_MESSAGE("KestrelObjectGlobals: %m; a device that is back may not be noticed\n");
    }
}

void KestrelObjectGlobals::Run() {
    prctl(PR_SET_NAME, "hotplug");
    for (;;) {
        pollfd set[] = {{m_stop.Get(), POLLIN, 0},
                        {m_announce.Get(), POLLIN, 0},
                        {udev_monitor_get_fd(m_kernelMonitor.get()), POLLIN, 0},
                        {udev_monitor_get_fd(m_udevdMonitor.get()), POLLIN, 0}};
        if (poll(set, std::size(set), -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            PLATFORM_MESSAGE("KestrelObjectGlobals: poll error: %m; devices will not be noticed any more\n");
            return;
        }
        if (set[0].revents != 0) {
            return;
        }
        try {
            if (set[1].revents != 0) {
                AnnounceNodes();
            }
            for (udev_monitor* monitor : {m_kernelMonitor.get(), m_udevdMonitor.get()}) {
                if (const std::optional<Event> event = Receive(monitor)) {
                    Notify(*event);
                }
            }
        } catch (const std::exception& e) {
            PLATFORM_MESSAGE("KestrelObjectGlobals: %s; a device event may be lost\n", e.what());
        }
    }
}

void KestrelObjectGlobals::AnnounceNodes() {
    // The request is taken back before the folder is read: a node that appears later comes as an event, and a
    // request that comes later starts another announcement.
    eventfd_t count;
    eventfd_read(m_announce.Get(), &count);
    // All names are read before the first notice, because a notice may take long and the folder may change
    // meanwhile. The folder exists only while there are nodes.
    std::vector<std::string> names;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(USB_NODE_FOLDER, error), end; !error && entry != end;
         entry.increment(error)) {
        if (const std::string name = entry->path().filename(); name.starts_with(HIDDEV_NODE)) {
            names.push_back("/" + name);
        }
    }
    if (error && error != std::errc::no_such_file_or_directory) {
        PLATFORM_MESSAGE("KestrelObjectGlobals: %s: %s; a device that is back may not be noticed\n",
                         USB_NODE_FOLDER.data(), error.message().c_str());
    }
    for (const std::string& name : names) {
        Notify({"add", name});
    }
}

/// @return nothing when there is no event for us
std::optional<KestrelObjectGlobals::Event> KestrelObjectGlobals::Receive(udev_monitor* monitor) {
    const std::lock_guard lock(strata::udevMutex);
    errno = 0;
    const strata::UdevDevicePointer device(udev_monitor_receive_device(monitor));
    if (!device) {
        // With errno 0, EAGAIN or EINTR there was no event, or only one of another subsystem.
        if (errno != 0 && errno != EAGAIN && errno != EINTR) {
            PLATFORM_MESSAGE("KestrelObjectGlobals: device events were lost: %m\n");
            AnnounceAgain();
        }
        return std::nullopt;
    }
    const char* node = udev_device_get_devnode(device.get());
    const char* action = udev_device_get_action(device.get());
    if (node == nullptr || action == nullptr || !std::string_view(node).starts_with(USB_NODE_FOLDER)) {
        return std::nullopt;
    }
    return Event{action, node + USB_NODE_FOLDER.size() - 1};
}

void KestrelObjectGlobals::Notify(const Event& event) {
    std::unique_lock lock(m_mutex);
    // Goes through a copy, because observers are added and removed while a notice runs. One that was removed
    // is not called.
    for (const Registration& registration : std::list(m_registrations)) {
        if (event.deviceName.find(registration.pathFilter) == std::string::npos ||
            std::find(m_registrations.begin(), m_registrations.end(), registration) ==
                m_registrations.end()) {
            continue;
        }
        m_notified = registration.observer;
        lock.unlock();
        Deliver(event, *registration.observer);
        lock.lock();
        m_notified = nullptr;
        m_noticeEnded.notify_all();
    }
}

void KestrelObjectGlobals::Deliver(const Event& event, DeviceHotplugUpdateObserver& observer) noexcept {
    try {
        if (event.action == "add") {
            observer.OnDeviceAppeared(event.deviceName);
        } else if (event.action == "remove") {
            observer.OnDeviceDisappeared(event.deviceName);
        }
    } catch (const std::exception& e) {
        // The other observers get their notice all the same.
        PLATFORM_MESSAGE("KestrelObjectGlobals: notice of %s failed: %s\n", event.deviceName.c_str(),
                         e.what());
    } catch (...) {
        // An observer may throw anything.
        PLATFORM_MESSAGE("KestrelObjectGlobals: notice of %s failed: unknown exception\n",
                         event.deviceName.c_str());
    }
}
