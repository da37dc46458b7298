#include "tests/modelled_board.h"

#include <libudev.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string>

#include "lib/platform/errno_exception.h"
#include "lib/player/usb_bus_order.h"

namespace {

ModelledBoard* installed = nullptr;

}  // namespace

// The names are the linker's, for its option --wrap.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {

int __real_open(const char* path, int flags);
int __real_close(int fd);
int __real_ioctl(int fd, unsigned long request, void* argument);
ssize_t __real_read(int fd, void* buffer, size_t length);
int __real_eventfd_write(int fd, eventfd_t value);

// Nothing here creates files, so there is no mode.
int __wrap_open(const char* path, int flags) {
    return std::string(path) == ModelledBoard::NODE ? installed->Open() : __real_open(path, flags);
}

int __wrap_close(int fd) {
    if (installed != nullptr) {
        installed->Close(fd);
    }
    return __real_close(fd);
}

int __wrap_ioctl(int fd, unsigned long request, void* argument) {
    return installed->Has(fd) ? installed->Ioctl(fd, request, argument) : __real_ioctl(fd, request, argument);
}

ssize_t __wrap_read(int fd, void* buffer, size_t length) {
    const ssize_t count = __real_read(fd, buffer, length);
    if (count == 0 && installed->Has(fd)) {
        errno = EIO;
        return -1;
    }
    return count;
}

// The monitor writes to one of its own to have all nodes announced again.
int __wrap_eventfd_write(int fd, eventfd_t value) {
    installed->Announce();
    return __real_eventfd_write(fd, value);
}

int __wrap_udev_monitor_get_fd(udev_monitor*) {
    return installed->GetAnnouncements();
}

udev_device* __wrap_udev_monitor_receive_device(udev_monitor*) {
    eventfd_t count;
    const bool received = eventfd_read(installed->GetAnnouncements(), &count) == 0;
    return received ? reinterpret_cast<udev_device*>(installed) : nullptr;
}

const char* __wrap_udev_device_get_devnode(udev_device*) {
    return ModelledBoard::NODE;
}

const char* __wrap_udev_device_get_action(udev_device*) {
    return "add";
}

udev_device* __wrap_udev_device_unref(udev_device*) {
    return nullptr;
}

}  // extern "C"

std::optional<UsbBusOrder::Place> FindModelled(const std::string& node) asm("__wrap_" USB_BUS_ORDER_FIND);
std::optional<UsbBusOrder::Place> FindModelled(const std::string& node) {
    return UsbBusOrder::Place{{}, ModelledBoard::LOCATION, "/dev/" + node};
}
// NOLINTEND(bugprone-reserved-identifier)

ModelledBoard::ModelledBoard() : m_announcements(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    installed = this;
    Plug();
}

ModelledBoard::~ModelledBoard() {
    installed = nullptr;
}

void ModelledBoard::Unplug() {
    const std::lock_guard lock(m_mutex);
    m_device->exists = false;
    for (const auto& [fd, opening] : m_openings) {
        shutdown(opening.boardEnd.Get(), SHUT_RDWR);
    }
    m_changed.notify_all();
}

void ModelledBoard::Plug() {
    const std::lock_guard lock(m_mutex);
    m_device = std::make_shared<Device>();
    Announce();
}

void ModelledBoard::Announce() {
    if (__real_eventfd_write(m_announcements.Get(), 1) != 0) {
        throw ErrnoException(errno, "eventfd_write");
    }
}

void ModelledBoard::SendInput(unsigned pin, std::int32_t value) {
    const std::lock_guard lock(m_mutex);
    const hiddev_event event{pin, value};
    for (const auto& [fd, opening] : m_openings) {
        // Lost where the queue is full or the device gone, as the kernel's are.
        send(opening.boardEnd.Get(), &event, sizeof event, MSG_NOSIGNAL | MSG_DONTWAIT);
    }
}

void ModelledBoard::Mute() {
    const std::lock_guard lock(m_mutex);
    m_answers = 0;
}

void ModelledBoard::WaitForRequest() {
    WaitUntil([&](const Device&) { return m_waiting; });
}

void ModelledBoard::Answer(int requests) {
    const std::lock_guard lock(m_mutex);
    m_answers = requests;
    m_waiting = false;
    m_changed.notify_all();
}

ModelledBoard::Device ModelledBoard::GetDevice() {
    const std::lock_guard lock(m_mutex);
    return *m_device;
}

int ModelledBoard::Open() {
    const std::lock_guard lock(m_mutex);
    int ends[2];
    if (!m_device->exists) {
        errno = ENOENT;
        return -1;
    }
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) != 0) {
        return -1;
    }
    m_openings.insert_or_assign(ends[0], Opening{strata::UniqueFd(ends[1]), m_device});
    ++m_device->openings;
    m_changed.notify_all();
    return ends[0];
}

bool ModelledBoard::Has(int fd) {
    const std::lock_guard lock(m_mutex);
    return m_openings.contains(fd);
}

void ModelledBoard::Close(int fd) {
    decltype(m_openings)::node_type closed;  // dies after the lock, for its own end comes here, too
    const std::lock_guard lock(m_mutex);
    closed = m_openings.extract(fd);
}

int ModelledBoard::Ioctl(int fd, unsigned long request, void* argument) {
    std::unique_lock lock(m_mutex);
    const std::shared_ptr<Device> device = m_openings.at(fd).device;
    m_changed.wait(lock, [&] { return !device->busy; });
    device->busy = true;
    const int error = device->exists ? Serve(lock, *device, request, argument) : ENODEV;
    device->busy = false;
    m_changed.notify_all();
    errno = error;
    return error == 0 ? 0 : -1;
}

/// @return the error number
int ModelledBoard::Serve(std::unique_lock<std::mutex>& lock, Device& device, unsigned long request,
                         void* argument) {
    if (request == HIDIOCINITREPORT || request == HIDIOCSREPORT) {
        m_waiting = m_answers == 0;
        m_changed.notify_all();
        m_changed.wait(lock, [&] { return m_answers > 0 || !device.exists; });
        m_answers -= m_answers > 0;
        device.sent = device.outputs;
        return 0;
    }
    // Both structures begin with the reference.
    auto& reference = *static_cast<hiddev_usage_ref*>(argument);
    Values& values = reference.report_type == HID_REPORT_TYPE_INPUT ? device.inputs
                     : reference.field_index == OUTPUTS             ? device.outputs
                                                                    : device.directions;
    if (request == HIDIOCSUSAGE && reference.usage_index < PINS) {
        values[reference.usage_index] = reference.value;
        return 0;
    }
    if (auto& usages = *static_cast<hiddev_usage_ref_multi*>(argument); request == HIDIOCGUSAGES) {
        std::copy_n(values.begin(), std::min(usages.num_values, PINS), usages.values);
        return 0;
    }
    ++device.refused;
    return EINVAL;
}
