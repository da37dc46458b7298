// The events of the player's own lines, from a driver that answers whatever the input says.
// Input: the answers, in the order in which they are asked for.

#include <linux/input.h>
#include <poll.h>
#include <sys/ioctl.h>

#include "lib/hardware/external_control_input_driver.h"
#include "lib/platform/posix_helpers.h"
#include "tests/fuzz/modelled_device.h"

namespace {

class ModelledLines final : public ModelledDevice {
public:
    explicit ModelledLines(FuzzInput& input) : ModelledDevice(input, "/dev/input/vantora-gpio") {}

    /// Every answer is a set of codes: a word for 8 to 39, the levels, and one for 40 to 71, the directions.
    int Ioctl(unsigned long request, void* argument) override {
        REQUIRE(_IOC_DIR(request) == _IOC_READ && _IOC_SIZE(request) >= 9);
        if (Fails()) {
            return -1;
        }
        auto* codes = static_cast<unsigned char*>(argument);
        m_input.TakeBytes(codes + 1, 8);
        std::memcpy(&m_outputs, codes + 5, sizeof m_outputs);
        return static_cast<int>(_IOC_SIZE(request));
    }

    std::uint32_t m_outputs = 0;  ///< as answered last
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static PollThread pollThread;
    FuzzInput input(data, size);
    ModelledLines lines(input);
    try {
        ExternalControl::Impl::PortOnLinuxInputDriver port([&](unsigned pin, unsigned value, unsigned width) {
            REQUIRE(pin < 32 && value <= 1 && width == 1 && (lines.m_outputs >> pin & 1) == 0);
        });
        while (!input.IsEmpty()) {
            try {
                port.OnActivity(POLLIN);
            } catch (...) {
                REQUIRE(!"the poll thread survives every event");
            }
        }
    } catch (const ErrnoException&) {
        // A device that fails while it is opened: the documented end.
    }
    return 0;
}
