#include "lib/hardware/board_identity.h"

#include <linux/hiddev.h>

#include <chrono>
#include <thread>

#include "lib/platform/assertion.h"
#include "lib/platform/message.h"
#include "lib/platform/string_operations.h"

namespace ExternalControl::Impl {
namespace {

constexpr std::int32_t COMMAND_IDENTIFY = 0xAC;

constexpr unsigned ATTEMPTS = 20;
constexpr unsigned ATTEMPTS_PER_REQUEST = 5;
constexpr std::chrono::milliseconds REQUEST_WAIT{100};
constexpr std::chrono::milliseconds ATTEMPT_WAIT{50};

constexpr std::uint32_t BOARD_CODE_SMALL = 0x77;
constexpr std::uint32_t BOARD_CODE_LARGE_A = 0x00;
constexpr std::uint32_t BOARD_CODE_LARGE_B = 0x55;
constexpr std::uint32_t HEADER_SMALL = 21;
constexpr std::uint32_t HEADER_LARGE = 90;

constexpr std::uint32_t ANSWER_VALUES = 2;

}  // namespace

std::optional<BoardModel> DecodeBoardModel(std::uint32_t boardCode, std::uint32_t headerValue) {
    switch (boardCode) {
        case BOARD_CODE_SMALL:
            return headerValue == HEADER_SMALL ? MODEL_SMALL_WITH_HEADER : MODEL_SMALL;
        case BOARD_CODE_LARGE_B:
            return MODEL_LARGE_B;
        case BOARD_CODE_LARGE_A:
            // All zeros is what the answer field holds before the board has answered.
            return headerValue == 0 ? std::nullopt : std::optional(MODEL_LARGE_A);
        default:
            return headerValue == HEADER_LARGE ? MODEL_LARGE_A : MODEL_UNKNOWN;
    }
}

std::string FormatBoardProperties(std::uint32_t modelCode, std::uint32_t headerValue) {
    const int header = static_cast<int>(headerValue);
    switch (modelCode) {
        case MODEL_SMALL:
        case MODEL_SMALL_WITH_HEADER:
            return strprintf("hardware=KP120;header=%s;revision=A;rheader=%d",
                             modelCode == MODEL_SMALL_WITH_HEADER ? "yes" : "no", header);
        case MODEL_LARGE_A:
        case MODEL_LARGE_B:
            return strprintf("hardware=KP480;header=no;revision=%c;rheader=%d",
                             modelCode == MODEL_LARGE_A ? 'A' : 'B', header);
        default:
            return {};
    }
}

std::optional<BoardAnswer> ReadBoardAnswer(const HidDevice& device, const Descriptor& setupDesc) {
    const hiddev_usage_ref_multi usages =
        device.GetUsages(setupDesc.GetInputs(), setupDesc.count, "BoardIdentity - Input");
    if (usages.num_values != ANSWER_VALUES) {
        return std::nullopt;
    }
    const auto headerValue = static_cast<std::uint32_t>(usages.values[1]);
    const auto model = DecodeBoardModel(static_cast<std::uint32_t>(usages.values[0]), headerValue);
    if (!model) {
        return std::nullopt;
    }
    return BoardAnswer{*model, headerValue};
}

BoardIdentity::BoardIdentity(const DescriptorPtr& identDesc, const DescriptorPtr& setupDesc) {
    PLATFORM_ASSERT(identDesc->hid_device == setupDesc->hid_device);

    m_device = HidDevice::Open(identDesc->hid_device);
    SendRequest(*identDesc);
    for (unsigned attempt = 0; attempt < ATTEMPTS && !TakeAnswer(*setupDesc); ++attempt) {
        if (attempt != 0 && attempt % ATTEMPTS_PER_REQUEST == 0) {
            SendRequest(*identDesc);
        } else {
            std::this_thread::sleep_for(ATTEMPT_WAIT);
        }
    }
    if (m_modelCode == MODEL_UNKNOWN) {
        PLATFORM_MESSAGE("Failed to identify KPx00 board!\n");
    }
}

void BoardIdentity::SendRequest(const Descriptor& identDesc) const {
    m_device.SetUsage(identDesc.GetOutputs(), 0, COMMAND_IDENTIFY, "BoardIdentity - Output");
    m_device.SendReport(identDesc.reportId, "BoardIdentity - FlushOutputs");
    std::this_thread::sleep_for(REQUEST_WAIT);
}

/// @return whether there was an answer
bool BoardIdentity::TakeAnswer(const Descriptor& setupDesc) {
    const std::optional<BoardAnswer> answer = ReadBoardAnswer(m_device, setupDesc);
    if (!answer) {
        return false;
    }
    m_modelCode = answer->modelCode;
    m_headerValue = answer->headerValue;
    return true;
}

}  // namespace ExternalControl::Impl
