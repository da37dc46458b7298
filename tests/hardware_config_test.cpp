// What is read from a device tree: the player's hardware, the order of its USB connectors, its pin
// multiplexer; and what the boot loader's environment adds.

#include "lib/player/hardware_config.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <boost/crc.hpp>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>
#include <tuple>
#include <utility>

#include "lib/platform/errno_exception.h"
#include "lib/platform/string_operations.h"
#include "lib/platform/unique_fd.h"
#include "lib/player/alternate_pin_mux.h"
#include "lib/player/usb_bus_order.h"

namespace {

using namespace std::string_literals;

std::string Describe(const HardwareConfig& config) {
    return strprintf("%s %u %u %d", config.GetBoardIdentity().c_str(), config.GetRevision(),
                     config.GetFeatures(), config.IsLimitedToHd());
}

/// An environment of 0x84 bytes, as the boot loader writes it.
std::string WithChecksum(std::string variables) {
    variables.resize(0x80);
    boost::crc_32_type sum;
    sum.process_bytes(variables.data(), variables.size());
    const std::uint32_t checksum = sum.checksum();
    return std::string(reinterpret_cast<const char*>(&checksum), sizeof checksum) + variables;
}

/// A device tree of its own for each test.
class DeviceTreeTest : public testing::Test {
public:
    DeviceTreeTest() { testing::internal::CaptureStderr(); }
    ~DeviceTreeTest() override {
        testing::internal::GetCapturedStderr();
        std::filesystem::remove_all(m_root);
    }

    /// @param value  "-": the property is not written
    void Write(const std::string& property, const std::string& value) const {
        const std::filesystem::path path(m_root + "/vantora,player/" + property);
        std::filesystem::create_directories(path.parent_path());
        if (value != "-") {
            std::ofstream(path, std::ios::binary) << value;
        }
    }
    /// The number of lines printed since the last call.
    static std::ptrdiff_t CountLines() {
        const std::string printed = testing::internal::GetCapturedStderr();
        testing::internal::CaptureStderr();
        return std::count(printed.begin(), printed.end(), '\n');
    }

    const std::string m_root = testing::TempDir() + "device_tree_" + std::to_string(getpid());
};

TEST_F(DeviceTreeTest, HardwareConfigTakesWhatIsThereAndReportsWhatIsMalformed) {
    const std::tuple<std::string, std::string, std::string, const char*, int> cases[] = {
        {"-", "-", "-", " 0 0 0", 0},
        {"XT1144\0"s, "\0\0\1\x82"s, "\x80\0\0\1"s, "XT1144 386 2147483649 1", 0},
        {"\0"s, "\0\0\0\3"s, "\0\0\0\2"s, " 3 2 0", 0},
        {"XT1144", "\0\0\3"s, "\0\0\0\1\0\0\0\1"s, " 0 0 0", 3},
        {"XT\0A\0"s, "", "", " 0 0 0", 3},
    };
    for (const auto& [board, revision, features, expected, lines] : cases) {
        Write("board", board);
        Write("revision", revision);
        Write("features", features);
        EXPECT_EQ(Describe(HardwareConfig(DeviceTree(m_root), m_root + "/none")), expected);
        EXPECT_EQ(CountLines(), lines) << expected;
    }
    EXPECT_THROW(DeviceTree(m_root).ReadText("/vantora,player"), ErrnoException);
}

TEST_F(DeviceTreeTest, HardwareConfigLooksIntoTheFlashForWhatTheDeviceTreeDoesNotSay) {
    const std::string good = "vantora_board=XT1144\0vantora_revision=386\0vantora_features=0x80000001\0"s;
    const std::string place = m_root + "/vantora,player/environment";
    const std::string configuration = m_root + "/vantora,player/fw_env.config";
    const std::tuple<std::string, std::string, const char*, int> cases[] = {
        {WithChecksum(good), "# comment\n" + place + " 0 0x84\n", "XT1144 386 2147483649 1", 0},
        {WithChecksum("a=b\0vantora_revision=0xFf\0"s), place + " 0 0x84\n", " 255 0 0", 0},
        {WithChecksum("vantora_revision=3a\0vantora_features=4294967296\0"s), place + " 0 0x84", " 0 0 0", 2},
        {WithChecksum("vantora_revision=0x\0vantora_features=\0"s), place + " 0 0x84", " 0 0 0", 2},
        {"x" + WithChecksum(good), place + " 0 0x84\n", " 0 0 0", 1},
        {WithChecksum(good), place + " 0 0x100\n", " 0 0 0", 1},
        {WithChecksum(good), place + "0 0 0x84\n", " 0 0 0", 1},
        {WithChecksum(good), "", " 0 0 0", 1},
    };
    for (const auto& [environment, says, expected, lines] : cases) {
        Write("environment", environment);
        Write("fw_env.config", says);
        Write("features", "-");
        const HardwareConfig config(DeviceTree(m_root), configuration);
        EXPECT_EQ(CountLines(), 0);
        EXPECT_EQ(Describe(config), expected);
        EXPECT_EQ(CountLines(), lines) << expected;
    }
    Write("features", "\0\0\0\1"s);
    const HardwareConfig config(DeviceTree(m_root), configuration);
    EXPECT_TRUE(config.IsLimitedToHd());
    EXPECT_EQ(CountLines(), 0);
    EXPECT_EQ(Describe(config), " 0 1 1");
    EXPECT_EQ(CountLines(), 1);
}

TEST_F(DeviceTreeTest, UsbDevicesStandInTheOrderOfTheListedConnectorsThenByPortPath) {
    const std::vector<std::string> controllers[] = {
        {}, {"platform/a.usb", "/soc/usb@a"}, {"platform/b.usb/hcd.1", "/soc/usb@b"}};
    const char* const byPortPath = "1-1 1-2 1-2.1 1-2.10.3 1-3 1-10 2-1 10-1";
    const std::tuple<std::string, const char*, int> cases[] = {
        {"-", byPortPath, 0},
        {"", byPortPath, 1},
        {"1-10 usb1 ", byPortPath, 1},
        {"1-10 platform/a.usb ", byPortPath, 1},
        {"1-10 platform/a.usb-2. ", byPortPath, 1},
        {"platform/b.usb-1.2 /soc/usb@a-10 1-3 platform/b.usb/hcd.1-1 platform/a.us-1 /soc/usb@a/x-1 ",
         "2-1.2 2-1.2.3 1-10 1-10.1 1-3 2-1 2-1.3 1-1 2-2 3-1 10-1", 0},
        {"1-10 1-3.1 1-3 1-2 1-2.1 1-10 ",
         "1-10 1-10.4 1-3.1 1-3.1.4 1-3 1-3.2 1-2 1-2.2 1-2.10 1-2.1 1-2.1.1 1-1 1-4 1-100 2-1", 0},
    };
    for (auto [connectors, inOrder, lines] : cases) {
        std::replace(connectors.begin(), connectors.end(), ' ', '\0');
        Write("usb-connectors", connectors);
        const UsbBusOrder order{DeviceTree(m_root)};
        EXPECT_EQ(CountLines(), lines) << connectors;
        UsbPosition last;
        std::istringstream names(inOrder);
        for (std::string name; names >> name;) {
            const UsbPosition portPath = UsbBusOrder::ParsePosition(name).value();
            const UsbPosition position = order.GetPosition(portPath, controllers[portPath[0] % 3]);
            EXPECT_LT(std::exchange(last, position), position) << name;
        }
    }
    for (const char* noDevice : {"", "usb1", "1", "1-", "1-2.", "1.2", "1-2-3", "1-2:1.0", "-1-2"}) {
        EXPECT_FALSE(UsbBusOrder::ParsePosition(noDevice)) << noDevice;
    }
}

TEST_F(DeviceTreeTest, AUsbControllerIsFoundWithTheNodeThatItOrWhatItHangsAtHas) {
    const std::string rootHub = "/devices/platform/usb-a/hcd.1/usb3";
    std::filesystem::create_directories(m_root + rootHub);
    const auto namesWithNodeOf = [&](const std::string& device) {
        const std::string node = m_root + "/firmware/devicetree/base" + device;
        std::filesystem::create_directories(node);
        std::filesystem::create_directory_symlink(node, m_root + device + "/of_node");
        return UsbBusOrder::FindControllerNames(rootHub + "/3-1/3-1.2", m_root);
    };
    using Names = std::vector<std::string>;
    const std::string controller = "platform/usb-a/hcd.1";
    EXPECT_EQ(UsbBusOrder::FindControllerNames(rootHub + "/3-1", m_root), Names{controller});
    EXPECT_EQ(namesWithNodeOf("/devices/platform/usb-a"), (Names{controller, "/devices/platform/usb-a"}));
    EXPECT_EQ(namesWithNodeOf(rootHub), (Names{controller, rootHub}));
    EXPECT_EQ(UsbBusOrder::FindControllerNames("/devices/virtual/hiddev0", m_root), Names{});
}

TEST_F(DeviceTreeTest, APinIsSwitchedByOneCommandAndAMissingMultiplexerReportedOnce) {
    EXPECT_FALSE(AlternatePinMux(DeviceTree(m_root)).SetPinFunction(10, "uart"));

    const std::string device = m_root + "/multiplexer";
    Write("pin-multiplexer/device", device + '\0');
    for (const char* node : {"pin@a/", "pin@1/", "pin@B/", "pin@/", "pin@c,0/"}) {
        Write("pin-multiplexer/"s + node + "functions", "gpio\0uart\0"s);
        Write("pin-multiplexer/"s + node + "selectors", "\0\0\0\7\x80\0\0\2"s);
    }
    Write("pin-multiplexer/pin@1/selectors", "\0\0\0\7"s);
    AlternatePinMux mux{DeviceTree(m_root)};
    EXPECT_EQ(CountLines(), 1 + 4);
    std::thread other([&] { EXPECT_FALSE(mux.SetPinFunction(10, "uart")); });
    EXPECT_FALSE(mux.SetPinFunction(10, "uart"));
    other.join();
    EXPECT_EQ(CountLines(), 1);

    ASSERT_EQ(mkfifo(device.c_str(), 0600), 0);
    const strata::UniqueFd commands(open(device.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    EXPECT_FALSE(mux.SetPinFunction(1, "gpio") || mux.SetPinFunction(10, "UART"));
    EXPECT_TRUE(mux.SetPinFunction(10, "uart") && mux.SetPinFunction(10, "gpio"));
    std::vector<std::uint32_t> written(5);
    EXPECT_EQ(read(commands.Get(), written.data(), 20), 16);
    EXPECT_EQ(written, (std::vector<std::uint32_t>{10, 0x80000002, 10, 7, 0}));

    std::filesystem::remove(device);
    std::filesystem::create_symlink("/dev/full", device);
    EXPECT_FALSE(mux.SetPinFunction(10, "uart") || mux.SetPinFunction(10, "uart"));
    EXPECT_EQ(CountLines(), 2);
}

}  // namespace
