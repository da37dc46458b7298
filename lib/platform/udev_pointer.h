#pragma once

// Owners of libudev's objects, and the lock to use them under.

#include <libudev.h>

#include <memory>
#include <mutex>

namespace strata {

/// Drops the reference that a std::unique_ptr owns.
struct UdevUnref {
    void operator()(udev* p) const { udev_unref(p); }                  ///< gives back one reference
    void operator()(udev_device* p) const { udev_device_unref(p); }    ///< gives back one reference
    void operator()(udev_monitor* p) const { udev_monitor_unref(p); }  ///< gives back one reference
};

using UdevPointer = std::unique_ptr<udev, UdevUnref>;                 ///< owns one reference; null: none
using UdevDevicePointer = std::unique_ptr<udev_device, UdevUnref>;    ///< owns one reference; null: none
using UdevMonitorPointer = std::unique_ptr<udev_monitor, UdevUnref>;  ///< owns one reference; null: none

/// To be held while libudev is used on more than one thread: it keeps state of its own behind separate
/// contexts, without a lock.
inline std::mutex udevMutex;

}  // namespace strata
