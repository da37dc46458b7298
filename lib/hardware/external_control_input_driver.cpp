#include "lib/hardware/external_control_input_driver.h"

#include <fcntl.h>
#include <linux/input.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <ctime>
#include <exception>
#include <mutex>
#include <utility>

#include "lib/platform/errno_exception.h"
#include "lib/platform/message.h"
#include "lib/platform/posix_helpers.h"
#include "lib/player/alternate_pin_mux.h"

namespace ExternalControl::Impl {
namespace {

// The codes of pin 0; those of the other pins follow. Levels have the same codes as keys and as LEDs.
constexpr unsigned LEVEL_CODE = 8;
constexpr unsigned DIRECTION_CODE = 40;
constexpr unsigned PARAMETER_CODE = 72;

constexpr unsigned MASK_PINS = 32;

/// How long the port waits after a failed read before it tries again.
constexpr std::chrono::seconds RETRY_DELAY{1};

/// A set of event codes as the kernel gives it, with room for every code that there can be. The driver's LED
/// codes go beyond the highest that the kernel has a name for.
using CodeBitmap = std::array<unsigned char, 97>;
static_assert(std::tuple_size_v<CodeBitmap> > KEY_MAX / 8);

/// @throws PinNotAvailableException for a pin that has no bit in a mask
std::uint32_t PinBit(unsigned pin) {
    if (pin >= MASK_PINS) {
        throw PinNotAvailableException();
    }
    return std::uint32_t{1} << pin;
}

/// The pins whose codes are in a set, as a mask.
/// @param firstCode  the code of pin 0, a multiple of 8
std::uint32_t PinMask(const CodeBitmap& codes, unsigned firstCode) {
    std::uint32_t mask = 0;
    for (unsigned byte = 0; byte < sizeof mask; ++byte) {
        mask |= std::uint32_t{codes[firstCode / 8 + byte]} << byte * 8;
    }
    return mask;
}

CodeBitmap ReadCodes(const strata::UniqueFd& device, unsigned long request, const char* operation) {
    CodeBitmap codes{};
    if (ioctl(device.Get(), request, codes.data()) < 0) {
        throw ErrnoException(errno, operation);
    }
    return codes;
}

CodeBitmap ReadCapabilities(const strata::UniqueFd& device, unsigned eventType) {
    return ReadCodes(device, EVIOCGBIT(eventType, sizeof(CodeBitmap)), "EVIOCGBIT");
}

std::uint32_t ReadKeyLevels(const strata::UniqueFd& device) {
    return PinMask(ReadCodes(device, EVIOCGKEY(sizeof(CodeBitmap)), "EVIOCGKEY"), LEVEL_CODE);
}

CodeBitmap ReadLeds(const strata::UniqueFd& device) {
    return ReadCodes(device, EVIOCGLED(sizeof(CodeBitmap)), "EVIOCGLED");
}

std::int64_t MonotonicNow() {
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// Calls a callback. What it throws goes no further: one change less is better than no poll thread.
template <class... Arguments>
void CallGuarded(const std::function<void(Arguments...)>& callback, Arguments... arguments) {
    try {
        callback(arguments...);
    } catch (const std::exception& e) {
        PLATFORM_MESSAGE("PortOnLinuxInputDriver: a callback threw: %s\n", e.what());
    } catch (...) {
        // A callback may throw anything.
        PLATFORM_MESSAGE("PortOnLinuxInputDriver: a callback threw an unknown exception\n");
    }
}

/// Keeps all events but those of keys out of the queue. evdev echoes every change of an LED to all who have
/// the device open: with the port's own pulses the queue would fill until it drops the changes of inputs.
void MaskAllButKeys(const strata::UniqueFd& device) {
    const unsigned long types = 1UL << EV_SYN | 1UL << EV_KEY;  // evdev takes whole longs only
    input_mask mask{};
    mask.type = EV_SYN;  // stands for the types themselves
    mask.codes_size = sizeof types;
    mask.codes_ptr = reinterpret_cast<std::uintptr_t>(&types);
    // A kernel that knows no masks sends all events, which then are left out one by one.
    static_cast<void>(ioctl(device.Get(), EVIOCSMASK, &mask));
}

/// @return false from a driver that cannot; the times of its events are the wall clock's, as by default
bool SetMonotonicTimes(const strata::UniqueFd& device) {
    const int clock = CLOCK_MONOTONIC;
    return ioctl(device.Get(), EVIOCSCLOCKID, &clock) == 0;
}

}  // namespace

PortOnLinuxInputDriver::Side::Side(unsigned type)
    : device(open(DEVICE_PATH, O_RDWR | O_CLOEXEC)), eventType(type) {
    if (!device.IsOpen()) {
        throw ErrnoException(errno, DEVICE_PATH);
    }
    offered = PinMask(ReadCapabilities(device, eventType), LEVEL_CODE);
    switchable = PinMask(ReadCapabilities(device, EV_LED), DIRECTION_CODE);
}

bool PortOnLinuxInputDriver::Side::IsSwitchable(unsigned pin) const {
    return (switchable & PinBit(pin)) != 0;
}

std::shared_ptr<PortOnLinuxInputDriver> PortOnLinuxInputDriver::Open(InputCallback inputCallback) {
    auto port = std::make_shared<PortOnLinuxInputDriver>(std::move(inputCallback));
    port->Start();
    return port;
}

PortOnLinuxInputDriver::PortOnLinuxInputDriver(InputCallback inputCallback)
    : m_input(EV_KEY),
      m_output(EV_LED),
      m_hasMonotonicTimes(SetMonotonicTimes(m_input.device)),
      m_inputCallback(std::move(inputCallback)),
      // The levels are asked for through the input side: evdev takes the events that led to them out of that
      // side's queue, and what is left there happened later.
      m_levels(ReadKeyLevels(m_input.device)),
      m_pulses(m_outputMutex, [this](unsigned pin, bool level) { WriteLevel(pin, level); }) {
    MaskAllButKeys(m_input.device);
}

void PortOnLinuxInputDriver::Start() {
    PollThread::GetInstance()->Attach(this, POLLIN);
}

PortOnLinuxInputDriver::~PortOnLinuxInputDriver() {
    // Detached before the timer is removed: from then on only the timer itself can set it again.
    PollThread::GetInstance()->Detach(this);
    PollThread::GetInstance()->RemoveTimer(this, &PortOnLinuxInputDriver::OnRetryTimer, 0);
}

// --- State ---

// Commands ask for all of it through the output side, whose events nobody reads: evdev takes the events that
// led to a state out of the queue of whoever asks for it, and the input callback would miss them.

std::uint32_t PortOnLinuxInputDriver::ReadInputLevels() const {
    return ReadKeyLevels(m_output.device);
}

std::uint32_t PortOnLinuxInputDriver::ReadOutputLevels() const {
    return PinMask(ReadLeds(m_output.device), LEVEL_CODE);
}

std::uint32_t PortOnLinuxInputDriver::ReadDirections() const {
    return PinMask(ReadLeds(m_output.device), DIRECTION_CODE);
}

PortOnLinuxInputDriver::Snapshot PortOnLinuxInputDriver::ReadSnapshot() const {
    const std::uint32_t inputs = ReadInputLevels();
    const CodeBitmap leds = ReadLeds(m_output.device);
    return {inputs, PinMask(leds, LEVEL_CODE), PinMask(leds, DIRECTION_CODE)};
}

std::uint32_t PortOnLinuxInputDriver::ReadOutputPins() const {
    return (m_output.offered & ~m_output.switchable) | ReadDirections();
}

// --- Commands ---

void PortOnLinuxInputDriver::ConfigureInput(unsigned pin) {
    SetDirection(pin, Direction::INPUT);
}

void PortOnLinuxInputDriver::ConfigureOutput(unsigned pin) {
    SetDirection(pin, Direction::OUTPUT);
}

void PortOnLinuxInputDriver::SetDirection(unsigned pin, Direction direction) {
    if (!m_output.IsSwitchable(pin)) {
        throw PinNotAvailableException();
    }
    const std::lock_guard lock(m_outputMutex);
    WriteCommand(DIRECTION_CODE + pin, direction == Direction::OUTPUT ? 1 : 0);
}

bool PortOnLinuxInputDriver::IsInput(unsigned pin) {
    return (ReadDirections() & PinBit(pin)) == 0;
}

bool PortOnLinuxInputDriver::IsOutput(unsigned pin) {
    const std::uint32_t bit = PinBit(pin);
    return (ReadOutputPins() & bit) != 0;
}

bool PortOnLinuxInputDriver::GetInput(unsigned pin) {
    const std::uint32_t bit = PinBit(pin);
    return (ReadInputLevels() & bit) != 0;
}

unsigned PortOnLinuxInputDriver::ReadAllInputs() {
    return ReadInputLevels();
}

bool PortOnLinuxInputDriver::GetOutput(unsigned pin) {
    const std::uint32_t bit = PinBit(pin);
    return (ReadOutputLevels() & bit) != 0;
}

unsigned PortOnLinuxInputDriver::ReadAllOutputs() {
    return ReadOutputLevels();
}

void PortOnLinuxInputDriver::SetAllLevels(unsigned mask) {
    const std::lock_guard lock(m_outputMutex);
    for (unsigned pin = 0; pin < MASK_PINS; ++pin) {
        if ((m_output.offered & PinBit(pin)) != 0) {
            WriteLevel(pin, (mask & PinBit(pin)) != 0);
        }
    }
    CheckOutputs();
}

void PortOnLinuxInputDriver::SetOutputs(const unsigned* values, unsigned count) {
    const std::lock_guard lock(m_outputMutex);
    for (unsigned pin = 0; pin < std::min(count, PIN_COUNT); ++pin) {
        if ((m_output.offered & PinBit(pin)) != 0) {
            WriteLevel(pin, values[pin] != 0);
        }
    }
    CheckOutputs();
}

void PortOnLinuxInputDriver::SetOutput(unsigned pin, unsigned value) {
    const std::lock_guard lock(m_outputMutex);
    WriteLevel(pin, value != 0);
    CheckOutputs();
}

bool PortOnLinuxInputDriver::ConfigurePulse(unsigned period, unsigned steps) {
    m_pulses.Configure(PulseSettings::ForRequest(period, steps));
    return true;
}

bool PortOnLinuxInputDriver::StartPulse(unsigned pin, unsigned value) {
    if (!IsOutput(pin)) {
        return false;
    }
    m_pulses.Start(pin, value);
    return true;
}

bool PortOnLinuxInputDriver::StopPulse(unsigned pin) {
    m_pulses.Stop(pin);
    return true;
}

bool PortOnLinuxInputDriver::SetPinFunction(unsigned pin, const std::string& function) {
    return AlternatePinMux::GetInstance()->SetPinFunction(pin, function);
}

void PortOnLinuxInputDriver::SetPinParameter(unsigned pin, std::uint8_t value) {
    if (!m_output.IsSwitchable(pin)) {
        throw PinNotAvailableException();
    }
    const std::lock_guard lock(m_outputMutex);
    WriteCommand(PARAMETER_CODE + pin, value);
}

void PortOnLinuxInputDriver::WriteCommand(unsigned code, int value) {
    input_event event{};
    event.type = EV_LED;
    event.code = static_cast<std::uint16_t>(code);
    event.value = value;
    write_all_throw(m_output.device.Get(), &event, sizeof event);
}

void PortOnLinuxInputDriver::WriteLevel(unsigned pin, bool level) {
    if (pin >= MASK_PINS) {
        throw PinNotAvailableException();
    }
    WriteCommand(LEVEL_CODE + pin, level ? 1 : 0);
}

/// Reads the levels back, so that a device that takes commands but does not answer fails the command, not
/// some later read.
void PortOnLinuxInputDriver::CheckOutputs() const {
    ReadOutputLevels();
}

void PortOnLinuxInputDriver::SetDroppedCallback(std::function<void()> callback) {
    const auto noCallbacks = PollThread::GetInstance()->BlockCallbacks();
    m_droppedCallback.swap(callback);  // the old one is destroyed later: that may wait for a callback
}

// --- On the poll thread ---

int PortOnLinuxInputDriver::GetFd() {
    constexpr int NOT_POLLED = -1;
    return m_isPaused ? NOT_POLLED : m_input.device.Get();
}

void PortOnLinuxInputDriver::OnActivity(short revents) {
    // The device blocks: it is read only when it has an event. Without one, only its end can have woken the
    // thread, and would again and again.
    if ((revents & POLLIN) == 0) {
        LetGo();
        return;
    }
    try {
        input_event event;
        if (ReadEvent(event)) {
            m_eventTime = TimeOf(event);
            HandleEvent(event);
        }
    } catch (const ErrnoException& failure) {
        if (failure.GetErrno() == ENODEV) {
            LetGo();
        } else {
            // A device that is ready all the time but cannot be read would keep the thread busy.
            m_isPaused = true;
            RetryLater(failure);
        }
    }
}

/// The device has gone for good.
void PortOnLinuxInputDriver::LetGo() {
    PollThread::GetInstance()->Detach(this);
    PollThread::GetInstance()->RemoveTimer(this, &PortOnLinuxInputDriver::OnRetryTimer, 0);
    PLATFORM_MESSAGE("PortOnLinuxInputDriver: %s is gone\n", DEVICE_PATH);
}

/// @return false when a signal came first
/// @throws ErrnoException
bool PortOnLinuxInputDriver::ReadEvent(input_event& event) const {
    const ssize_t length = read(m_input.device.Get(), &event, sizeof event);
    if (length < 0 && errno == EINTR) {
        return false;
    }
    if (length != static_cast<ssize_t>(sizeof event)) {
        throw ErrnoException(length < 0 ? errno : EIO, "read");
    }
    return true;
}

void PortOnLinuxInputDriver::RetryLater(const std::exception& failure) {
    if (!std::exchange(m_isFailing, true)) {
        PLATFORM_MESSAGE("PortOnLinuxInputDriver: %s cannot be read: %s\n", DEVICE_PATH, failure.what());
    }
    if (!std::exchange(m_hasTimer, true)) {
        const std::int64_t deadline = MonotonicNow() + std::chrono::nanoseconds(RETRY_DELAY).count();
        PollThread::GetInstance()->AddTimer(this, &PortOnLinuxInputDriver::OnRetryTimer, 0, deadline);
    }
}

void PortOnLinuxInputDriver::OnRetryTimer(std::uintptr_t) {
    m_hasTimer = false;
    // The device is polled again even if it still fails, because only poll tells that it is gone.
    m_isPaused = false;
    try {
        // Events that could not be read are lost, but the levels show what they led to.
        ReportDifferences();
    } catch (const ErrnoException& failure) {
        RetryLater(failure);
    }
}

std::int64_t PortOnLinuxInputDriver::TimeOf(const input_event& event) const {
    if (!m_hasMonotonicTimes) {
        return MonotonicNow();
    }
    // Unsigned: a driver's odd time may come to nothing, but must not overflow.
    const auto seconds = static_cast<std::uint64_t>(event.input_event_sec);
    const auto microseconds = static_cast<std::uint64_t>(event.input_event_usec);
    return static_cast<std::int64_t>(seconds * 1'000'000'000 + microseconds * 1000);
}

void PortOnLinuxInputDriver::HandleEvent(const input_event& event) {
    if (event.type == EV_SYN && event.code == SYN_DROPPED) {
        m_hasLostEvents = true;
        if (m_droppedCallback) {
            CallGuarded(m_droppedCallback);
        }
    } else if (m_hasLostEvents) {
        // What comes up to the next SYN_REPORT may be the rest of several changes.
        if (event.type == EV_SYN && event.code == SYN_REPORT) {
            ReportDifferences();
            m_isFailing = false;
        }
    } else if (event.type == EV_KEY && event.code >= LEVEL_CODE && event.code < LEVEL_CODE + MASK_PINS) {
        HandleChange(event.code - LEVEL_CODE, event.value > 0);
        m_isFailing = false;
    }
}

void PortOnLinuxInputDriver::HandleChange(unsigned pin, bool level) {
    const std::uint32_t bit = PinBit(pin);
    const bool isOutput = (ReadOutputPins() & bit) != 0;
    m_levels = level ? m_levels | bit : m_levels & ~bit;
    if (!isOutput) {
        CallGuarded(m_inputCallback, pin, unsigned{level}, 1U);
    }
}

void PortOnLinuxInputDriver::ReportDifferences() {
    // This time is earlier than that of any event that is in the queue afterwards.
    m_eventTime = MonotonicNow();
    // Takes the key events out of the queue that led to these levels, so that they are not reported twice.
    const std::uint32_t levels = ReadKeyLevels(m_input.device);
    const std::uint32_t changed = (levels ^ m_levels) & ~ReadOutputPins();
    m_levels = levels;
    m_hasLostEvents = false;
    for (unsigned pin = 0; pin < MASK_PINS; ++pin) {
        if ((changed & PinBit(pin)) != 0) {
            CallGuarded(m_inputCallback, pin, unsigned{(levels & PinBit(pin)) != 0}, 1U);
        }
    }
}

}  // namespace ExternalControl::Impl
