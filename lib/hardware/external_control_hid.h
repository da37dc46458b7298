#pragma once

// A port on one HID application of a USB board, through the kernel's hiddev device. It covers one report: an
// input field (what the board sends), an output field (what the host sets) and a direction field (which pins
// are outputs), or some of them. When its board is unplugged and comes back, the port reopens it and restores
// directions and outputs: the values remembered, those of failed commands included, and the directions that
// the board had. A direction given while the board is away fails and is not remembered. Levels that changed
// meanwhile are read afresh; the InputCallback hears of them only from a report that comes before that is
// done.
//
// Three threads meet here:
// - the commands of the port, on the caller's thread;
// - the input events and the lost timer, on the poll thread;
// - the reconnection, on the hot-plug monitor's thread.
// Commands and the reconnection exclude each other for one value at a time. A command reaches the old device
// (and fails) or the new one; what the reconnection restores is what is remembered when its turn comes, so
// nothing that a command has sent meanwhile is undone. The poll thread does not wait for them, unless a
// callback gives commands itself. It uses the descriptor only while the port is attached, and the descriptor
// changes only while it is not; everything else that it shares is atomic or changes while callbacks are
// blocked.

#include <linux/hiddev.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "lib/hardware/external_control.h"
#include "lib/hardware/external_control_hid_descriptor.h"
#include "lib/hardware/hiddev.h"
#include "lib/platform/fair_recursive_mutex.h"
#include "lib/platform/kestrel_object_globals.h"
#include "lib/platform/poll_thread.h"

namespace ExternalControl::Impl {

/// A port of a board: one report of one of its HID applications.
class PortOnHid final : public Port, public Pollable, public DeviceHotplugUpdateObserver, public TimerClient {
public:
    using Descriptor = Impl::Descriptor;        ///< what the port is opened on
    using DescriptorPtr = Impl::DescriptorPtr;  ///< null: there is none

    /// Opens a port and attaches it to the PollThread. Any thread but the poll thread. Waits for a callback
    /// that is running, so nothing that one takes may be held; blocks for about 10 seconds when the board
    /// does not answer.
    /// @throws ErrnoException when the device fails; nothing is left behind then
    static std::shared_ptr<PortOnHid> Open(const Descriptor& descriptor, InputCallback inputCallback,
                                           LostCallback lostCallback);

    /// For Open: opens the device and reads its state.
    PortOnHid(const Descriptor& descriptor, InputCallback inputCallback, LostCallback lostCallback);

    unsigned GetPinCount() override { return m_descriptor.count; }
    std::string GetVersion() override;
    std::string GetProperties() override;
    void ConfigureInput(unsigned pin) override;
    bool IsInput(unsigned pin) override;
    bool GetInput(unsigned pin) override;
    unsigned ReadAllInputs() override;
    void ConfigureOutput(unsigned pin) override;
    bool IsOutput(unsigned pin) override;
    bool GetOutput(unsigned) override { return false; }
    unsigned ReadAllOutputs() override;
    void SetAllLevels(unsigned mask) override;
    void SetOutputs(const unsigned* values, unsigned count) override;
    void SetOutput(unsigned pin, unsigned value) override;
    void SetValueCallback(InputCallback callback) override;

    int GetFd() override { return m_device.GetFd(); }
    void OnActivity(short revents) override;

    /// Not from a callback: a LostCallback that destroys its port cancels the timer that called it, and ends
    /// the process. Waits for a callback that is running; none comes after it. Then waits for the one request
    /// that a reconnection is making: about 10 seconds when the board does not answer. Nothing that a
    /// callback takes may be held.
    ~PortOnHid() override;

    void OnDeviceAppeared(const std::string& deviceName) override;
    void OnDeviceDisappeared(const std::string&) override {}

private:
    enum class Direction { INPUT, OUTPUT };

    void Start();

    std::uint32_t ReadMask(const HidField& field, bool inverted, const char* operation) const;
    bool IsUsageSet(const HidField& field, unsigned pin) const;
    void SubmitUsage(const HidField& field, unsigned pin, std::uint32_t value) const;
    void SubmitOutputs(hiddev_usage_ref_multi& usages) const;
    void FlushOutputs() const;
    std::uint32_t InitReport();
    std::uint32_t ReadAllDirections() const;
    bool IsDirectionOutput(unsigned pin) const;
    void SetDirection(unsigned pin, Direction direction);
    std::uint32_t Encode(unsigned value) const;

    void OnLost();
    void OnLostTimer(std::uintptr_t);
    void HandleEvent(const hiddev_event& event);
    void HandleLevel(unsigned index, bool usageSet);

    void RestoreDevice();
    void RestoreDirection(unsigned pin, std::uint32_t found);
    bool RestoreNextOutput(std::optional<unsigned>& last);

    HidDevice m_device;
    const Descriptor m_descriptor;
    std::atomic<std::uint32_t> m_inputs{0};      ///< last level seen of every pin
    std::atomic<std::uint32_t> m_directions{0};  ///< set: the pin is an output
    const InputCallback m_inputCallback;
    std::shared_ptr<const InputCallback>
        m_valueCallback;  ///< null or callable; changes while callbacks are blocked
    const LostCallback m_lostCallback;
    const bool m_inverted;  ///< a usage value of 0 means level 1
    std::atomic<bool> m_lost{false};
    std::atomic<bool> m_closing{false};  ///< the port is being destroyed

    /// Guards the outputs, and the device against being exchanged. Held while one value is sent or read. Lock
    /// order: the poll thread's mutex comes before this one, for callbacks run under that and may give
    /// commands. So nothing that needs the poll thread's (to attach, to detach, its timers, BlockCallbacks)
    /// and no callback is called under this one, and commands may be given under whatever callbacks take.
    /// Fair, for a reconnection takes it again and again: a command gets its turn after one value.
    strata::FairRecursiveMutex m_commandMutex;
    std::map<unsigned, unsigned> m_outputs;  ///< by pin, the value last written
};

}  // namespace ExternalControl::Impl
