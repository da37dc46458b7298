#include "lib/hardware/external_control_hid.h"

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "lib/hardware/board_identity.h"
#include "lib/platform/message.h"
#include "lib/platform/string_operations.h"
#include "lib/player/usb_bus_order.h"

namespace ExternalControl::Impl {
namespace {

constexpr unsigned MASK_PINS = 32;
constexpr const char* HOTPLUG_FILTER = "/hiddev";
constexpr std::chrono::seconds LOST_DELAY{10};

constexpr std::size_t EVENT_BUFFER_BYTES = 256;
constexpr std::size_t EVENTS_PER_READ = EVENT_BUFFER_BYTES / sizeof(hiddev_event);

/// The bit of a pin in a mask; pins that a mask has no room for have none.
constexpr std::uint32_t PinBit(unsigned pin) {
    return pin < MASK_PINS ? std::uint32_t{1} << pin : 0;
}

/// The mask of pins 0 to count - 1.
constexpr std::uint32_t AllPins(unsigned count) {
    return count < MASK_PINS ? PinBit(count) - 1 : 0xFFFFFFFF;
}

}  // namespace

std::shared_ptr<PortOnHid> PortOnHid::Open(const Descriptor& descriptor, InputCallback inputCallback,
                                           LostCallback lostCallback) {
    auto port = std::make_shared<PortOnHid>(descriptor, std::move(inputCallback), std::move(lostCallback));
    port->Start();
    return port;
}

PortOnHid::PortOnHid(const Descriptor& descriptor, InputCallback inputCallback, LostCallback lostCallback)
    : m_device(HidDevice::Open(descriptor.hid_device)),
      m_descriptor(descriptor),
      m_inputCallback(std::move(inputCallback)),
      m_lostCallback(std::move(lostCallback)),
      m_inverted(descriptor.IsActiveLow()) {
    m_directions = InitReport();
}

void PortOnHid::Start() {
    if (strata::Singleton<KestrelObjectGlobals>::Exists()) {
        KestrelObjectGlobals::GetInstance()->AddHotplugObserver(this, HOTPLUG_FILTER);
    }
    PollThread::GetInstance()->Attach(this, POLLIN);
}

PortOnHid::~PortOnHid() {
    // Set before anything else: a reconnection that is running then neither attaches the port again nor makes
    // more requests.
    m_closing = true;
    // Detached before the timer is removed, because OnActivity starts the timer when it finds the device
    // gone. The poll thread may still wait on the descriptor: the kernel closes the device when that wait
    // ends.
    PollThread::GetInstance()->Detach(this);
    PollThread::GetInstance()->RemoveTimer(this, &PortOnHid::OnLostTimer, 0);
    // The observer is removed last, because that waits for a reconnection that is running.
    if (strata::Singleton<KestrelObjectGlobals>::Exists()) {
        KestrelObjectGlobals::GetInstance()->RemoveHotplugObserver(this, HOTPLUG_FILTER);
    }
}

// --- Requests to the device ---

/// @return bit n set where value n is non-zero, or where it is zero if inverted
std::uint32_t PortOnHid::ReadMask(const HidField& field, bool inverted, const char* operation) const {
    const hiddev_usage_ref_multi usages = m_device.GetUsages(field, m_descriptor.count, operation);
    std::uint32_t mask = 0;
    for (unsigned pin = 0; pin < usages.num_values; ++pin) {
        if ((usages.values[pin] != 0) != inverted) {
            mask |= PinBit(pin);
        }
    }
    return mask;
}

bool PortOnHid::IsUsageSet(const HidField& field, unsigned pin) const {
    return m_device.GetUsage(field, pin, "GetUsage") != 0;
}

void PortOnHid::SubmitUsage(const HidField& field, unsigned pin, std::uint32_t value) const {
    m_device.SetUsage(field, pin, static_cast<std::int32_t>(value), "SubmitUsage");
    FlushOutputs();
}

void PortOnHid::SubmitOutputs(hiddev_usage_ref_multi& usages) const {
    m_device.SetUsages(m_descriptor.GetOutputs(), usages, "SetAllLevels");
    FlushOutputs();
}

void PortOnHid::FlushOutputs() const {
    m_device.SendReport(m_descriptor.reportId, "FlushOutputs");
}

/// @return the directions that the device has, as a mask
std::uint32_t PortOnHid::InitReport() {
    const std::lock_guard lock(m_commandMutex);
    m_device.FetchAllReports("InitReport");
    // The poll thread may store a change between the reading and the storing of the levels: then they are
    // read again.
    std::uint32_t before = m_inputs;
    while (!m_inputs.compare_exchange_strong(before, ReadAllInputs())) {
    }
    return ReadAllDirections();
}

std::uint32_t PortOnHid::ReadAllDirections() const {
    switch (m_descriptor.capabilities) {
        case CAPABILITY_BOTH:
            return ReadMask(m_descriptor.GetDirections(), false, "ReadAllOutputs");
        case CAPABILITY_OUTPUT:
            return AllPins(m_descriptor.count);
        default:
            return 0;
    }
}

bool PortOnHid::IsDirectionOutput(unsigned pin) const {
    return IsUsageSet(m_descriptor.GetDirections(), pin);
}

void PortOnHid::SetDirection(unsigned pin, Direction direction) {
    SubmitUsage(m_descriptor.GetDirections(), pin, direction == Direction::OUTPUT ? 1 : 0);
    if (direction == Direction::OUTPUT) {
        m_directions |= PinBit(pin);
    } else {
        m_directions &= ~PinBit(pin);
    }
}

// --- Commands ---

std::string PortOnHid::GetVersion() {
    const std::lock_guard lock(m_commandMutex);
    return m_device.GetVersion();
}

std::string PortOnHid::GetProperties() {
    return FormatBoardProperties(m_descriptor.modelCode, m_descriptor.headerValue);
}

void PortOnHid::ConfigureInput(unsigned pin) {
    if (m_descriptor.capabilities == CAPABILITY_BOTH) {
        const std::lock_guard lock(m_commandMutex);
        SetDirection(pin, Direction::INPUT);
    } else if (m_descriptor.capabilities != CAPABILITY_INPUT) {
        throw std::runtime_error("Pin cannot be configured as input");
    }
}

bool PortOnHid::IsInput(unsigned pin) {
    if (m_descriptor.capabilities != CAPABILITY_BOTH) {
        return m_descriptor.capabilities == CAPABILITY_INPUT;
    }
    const std::lock_guard lock(m_commandMutex);
    return !IsDirectionOutput(pin);
}

bool PortOnHid::GetInput(unsigned pin) {
    const std::lock_guard lock(m_commandMutex);
    return IsUsageSet(m_descriptor.GetInputs(), pin) != m_inverted;
}

unsigned PortOnHid::ReadAllInputs() {
    if ((m_descriptor.capabilities & CAPABILITY_INPUT) == 0) {
        return 0;
    }
    const std::lock_guard lock(m_commandMutex);
    return ReadMask(m_descriptor.GetInputs(), m_inverted, "ReadAllInputs");
}

void PortOnHid::ConfigureOutput(unsigned pin) {
    if (m_descriptor.capabilities == CAPABILITY_BOTH) {
        const std::lock_guard lock(m_commandMutex);
        SetDirection(pin, Direction::OUTPUT);
    } else if (m_descriptor.capabilities != CAPABILITY_OUTPUT) {
        throw std::runtime_error("Pin cannot be configured as output");
    }
}

bool PortOnHid::IsOutput(unsigned pin) {
    if (m_descriptor.capabilities != CAPABILITY_BOTH) {
        return m_descriptor.capabilities == CAPABILITY_OUTPUT;
    }
    const std::lock_guard lock(m_commandMutex);
    return IsDirectionOutput(pin);
}

unsigned PortOnHid::ReadAllOutputs() {
    const std::lock_guard lock(m_commandMutex);
    return ReadMask(m_descriptor.GetOutputs(), false, "ReadAllOutputs");
}

void PortOnHid::SetAllLevels(unsigned mask) {
    const std::lock_guard lock(m_commandMutex);
    hiddev_usage_ref_multi usages{};
    usages.num_values = std::min<std::uint32_t>(m_descriptor.count, HID_MAX_MULTI_USAGES);
    for (unsigned pin = 0; pin < usages.num_values; ++pin) {
        usages.values[pin] = (mask & PinBit(pin)) != 0;
        m_outputs[pin] = static_cast<unsigned>(usages.values[pin]);
    }
    SubmitOutputs(usages);
}

void PortOnHid::SetOutputs(const unsigned* values, unsigned count) {
    const std::lock_guard lock(m_commandMutex);
    hiddev_usage_ref_multi usages{};
    usages.num_values = std::min<std::uint32_t>({count, m_descriptor.count, HID_MAX_MULTI_USAGES});
    for (unsigned pin = 0; pin < usages.num_values; ++pin) {
        const std::uint32_t encoded = Encode(values[pin]);
        usages.values[pin] = static_cast<std::int32_t>(encoded);
        m_outputs[pin] = encoded;
    }
    SubmitOutputs(usages);
}

void PortOnHid::SetOutput(unsigned pin, unsigned value) {
    const std::lock_guard lock(m_commandMutex);
    const std::uint32_t encoded = Encode(value);
    // Remembered before it is sent: a board that is away gets it when it comes back.
    m_outputs[pin] = encoded;
    SubmitUsage(m_descriptor.GetOutputs(), pin, encoded);
}

std::uint32_t PortOnHid::Encode(unsigned value) const {
    switch (m_descriptor.bitsPerField) {
        case 1:
            return value != 0;
        case 8:
            return value & 0xFF;
        case 16:
            return value & 0xFFFF;
        case 32:
            return value;
        default:
            throw std::runtime_error("SetOutput: Invalid bpf!");
    }
}

void PortOnHid::SetValueCallback(InputCallback callback) {
    auto replacement = callback ? std::make_shared<const InputCallback>(std::move(callback)) : nullptr;
    const auto blocked = PollThread::GetInstance()->BlockCallbacks();
    // `replacement` takes the old callback and destroys it after the lock is released: the destruction may
    // wait for a callback.
    m_valueCallback.swap(replacement);
}

// --- On the poll thread ---

void PortOnHid::OnActivity(short) {
    // Why poll woke the thread does not matter, for a read tells: first it gives the events that were queued
    // when the device went away, then the error.
    hiddev_event events[EVENTS_PER_READ];
    const auto count = m_device.ReadEvents(events, EVENTS_PER_READ);
    if (!count) {
        PLATFORM_MESSAGE("PortOnHid::OnActivity read error: %m\n");
        OnLost();
        return;
    }
    std::for_each(events, events + *count, [this](const hiddev_event& event) { HandleEvent(event); });
}

void PortOnHid::OnLost() {
    PollThread* pollThread = PollThread::GetInstance();
    pollThread->Detach(this);
    m_lost = true;
    const std::chrono::nanoseconds deadline =
        std::chrono::steady_clock::now().time_since_epoch() + LOST_DELAY;
    pollThread->AddTimer(this, &PortOnHid::OnLostTimer, 0, deadline.count());
    // While a callback is slow, events wait in the queue: the board may be back already, and its notice have
    // come before the port counted as lost. So the notices are asked for once more.
    if (strata::Singleton<KestrelObjectGlobals>::Exists()) {
        KestrelObjectGlobals::GetInstance()->AnnounceAgain();
    }
}

void PortOnHid::OnLostTimer(std::uintptr_t) {
    if (m_lostCallback) {
        m_lostCallback();
    }
}

void PortOnHid::HandleEvent(const hiddev_event& event) {
    // Every descriptor gets the events of all the device's reports. Codes below the base wrap around to large
    // ones.
    const unsigned index = event.hid - m_descriptor.usageBase;
    if (index >= m_descriptor.count) {
        return;
    }
    const auto value = static_cast<unsigned>(event.value);
    if (m_descriptor.bitsPerField == 32 && m_descriptor.application == APPLICATION_LIGHT_CONTROLLER) {
        m_inputCallback(index, value, 32);
    } else {
        HandleLevel(index, value != 0);
    }
    // Keeps the callback alive while it runs, for it may replace itself.
    if (const auto callback = m_valueCallback) {
        (*callback)(index, value, 32);
    }
}

void PortOnHid::HandleLevel(unsigned index, bool usageSet) {
    // Pins that the masks have no room for have no level to compare with: they are values for the second
    // callback.
    const std::uint32_t bit = PinBit(index);
    const bool level = usageSet != m_inverted;
    if (bit == 0 || level == ((m_inputs & bit) != 0)) {
        return;
    }
    if ((m_directions & bit) == 0) {
        m_inputCallback(index, level, 1);
    }
    // Set, not flipped: a reconnection may have stored the levels meanwhile.
    if (level) {
        m_inputs |= bit;
    } else {
        m_inputs &= ~bit;
    }
}

// --- On the hot-plug monitor's thread ---

void PortOnHid::OnDeviceAppeared(const std::string& deviceName) {
    if (!m_lost) {
        return;
    }
    const std::string node = "usb" + deviceName;
    const auto place = UsbBusOrder::Find(node);
    if (!place || place->location != m_descriptor.location) {
        return;
    }
    std::optional<HidDevice> device = HidDevice::Reopen("/dev/" + node);
    if (!device) {
        // The device is gone again, or this process may not open it. The lost timer goes on.
        return;
    }

    PollThread* pollThread = PollThread::GetInstance();
    // RemoveTimer also waits for the OnActivity that found the device lost. It is called before the command
    // lock is taken, because a command to the old device may hold that lock for longer than the timer has
    // left. From here until the port is attached nothing throws, so that it is either lost or attached.
    pollThread->RemoveTimer(this, &PortOnHid::OnLostTimer, 0);
    {
        const std::lock_guard lock(m_commandMutex);
        std::swap(m_device, *device);
        // Cleared before the port is attached: the new device may be lost at once.
        m_lost = false;
    }
    {
        // The destructor sets m_closing before it detaches the port, and detaches it only once.
        const auto blocked = pollThread->BlockCallbacks();
        if (m_closing) {
            return;
        }
        pollThread->Attach(this, POLLIN);
    }
    // The old device is closed under no lock, because a request of another program that has it open can hold
    // the close up.
    device->Close();
    RestoreDevice();
}

// A board that does not answer makes every request take some 10 seconds: a port that is being destroyed asks
// for no more of them.
void PortOnHid::RestoreDevice() {
    if (m_closing) {
        return;
    }
    const std::uint32_t found = InitReport();
    for (unsigned pin = 0; pin < MASK_PINS && !m_closing; ++pin) {
        RestoreDirection(pin, found);
    }
    // Values are remembered before they are sent, so those of pins that the board does not have are among
    // them. The kernel rejects them again, which ends the restoration: they are the last ones.
    std::optional<unsigned> last;
    while (!m_closing && RestoreNextOutput(last)) {
    }
}

/// @param found  the directions that the device had when it came back
void PortOnHid::RestoreDirection(unsigned pin, std::uint32_t found) {
    const std::lock_guard lock(m_commandMutex);
    const std::uint32_t directions = m_directions;
    if (((directions ^ found) & PinBit(pin)) != 0) {
        SetDirection(pin, (directions & PinBit(pin)) != 0 ? Direction::OUTPUT : Direction::INPUT);
    }
}

/// Writes the output that follows the last one, in ascending order.
/// @param last  the pin that was restored last; nothing before the first
/// @return whether there was one
bool PortOnHid::RestoreNextOutput(std::optional<unsigned>& last) {
    const std::lock_guard lock(m_commandMutex);
    const auto output = last ? m_outputs.upper_bound(*last) : m_outputs.begin();
    if (output == m_outputs.end()) {
        return false;
    }
    last = output->first;
    SetOutput(output->first, output->second);
    return true;
}

}  // namespace ExternalControl::Impl
