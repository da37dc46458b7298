// The events of the player's own lines, from a driver that answers whatever the input says.
// Input: the answers, in the order in which they are asked for; which LEDs there are is answered once, and
// the same ever after.

#include <linux/input.h>
#include <poll.h>
#include <sys/ioctl.h>

#include <cstring>
#include <optional>

#include "lib/hardware/external_control_input_driver.h"
#include "lib/platform/errno_exception.h"
#include "tests/fuzz/modelled_device.h"

namespace {

using Port = ExternalControl::Impl::PortOnLinuxInputDriver;

constexpr unsigned GET_OFFERED_LEDS = _IOC_NR(EVIOCGBIT(EV_LED, 0));
constexpr unsigned GET_LEDS = _IOC_NR(EVIOCGLED(0));
constexpr unsigned GET_KEYS = _IOC_NR(EVIOCGKEY(0));

class ModelledLines final : public ModelledDevice {
public:
    explicit ModelledLines(FuzzInput& input) : ModelledDevice(input, "/dev/input/vantora-gpio") {}

    /// Every question's answer is a set of codes: a word for 8 to 39, the levels, and one for 40 to 71, the
    /// directions.
    int Ioctl(unsigned long request, void* argument) override {
        if (Fails()) {
            return -1;
        }
        if (request == EVIOCSCLOCKID) {
            return 0;
        }
        if (request == EVIOCSMASK) {
            REQUIRE(static_cast<const input_mask*>(argument)->codes_size % sizeof(long) == 0);
            return 0;
        }
        REQUIRE(_IOC_DIR(request) == _IOC_READ && _IOC_SIZE(request) >= 9);
        const bool isOffer = _IOC_NR(request) == GET_OFFERED_LEDS;
        const Codes codes = isOffer && m_offered ? *m_offered : TakeCodes();
        if (isOffer) {
            m_offered = codes;
        } else if (_IOC_NR(request) == GET_LEDS) {
            m_directions = codes.directions;
        } else if (_IOC_NR(request) == GET_KEYS) {
            m_levels = codes.levels;
        }
        std::memcpy(static_cast<unsigned char*>(argument) + 1, &codes, sizeof codes);
        return static_cast<int>(_IOC_SIZE(request));
    }

    /// Whether a level is that of the key state, if that was asked for since the last call of Forget.
    bool AgreesWith(unsigned pin, unsigned level) const {
        return !m_levels || (*m_levels >> pin & 1) == level;
    }
    void Forget() { m_levels.reset(); }

    /// Whether a pin is an output, by the answers until now.
    bool IsOutput(unsigned pin) const {
        const std::uint32_t fixed = m_offered->levels & ~m_offered->directions;
        return ((fixed | m_directions) >> pin & 1) != 0;
    }

private:
    struct Codes {
        std::uint32_t levels;
        std::uint32_t directions;
    };

    Codes TakeCodes() {
        const auto levels = m_input.Take<std::uint32_t>();
        return {levels, m_input.Take<std::uint32_t>()};
    }

    std::optional<Codes> m_offered;
    std::optional<std::uint32_t> m_levels;
    std::uint32_t m_directions = 0;  ///< as answered last
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static PollThread pollThread;
    FuzzInput input(data, size);
    ModelledLines lines(input);
    try {
        Port port([&](unsigned pin, unsigned value, unsigned width) {
            REQUIRE(pin < 32 && value <= 1 && width == 1 && !lines.IsOutput(pin));
            REQUIRE(lines.AgreesWith(pin, value));
        });
        while (!input.IsEmpty()) {
            lines.Forget();
            try {
                if (port.GetFd() >= 0) {
                    port.OnActivity(POLLIN);
                } else {
                    pollThread.RemoveTimer(&port, &Port::OnRetryTimer, 0);
                    port.OnRetryTimer(0);
                }
            } catch (...) {
                REQUIRE(!"the poll thread survives every event");
            }
        }
    } catch (const ErrnoException&) {
        // A device that fails while it is opened: the documented end.
    }
    return 0;
}
