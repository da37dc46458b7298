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

constexpr std::uint32_t ANSWER_VALUES = 2;

constexpr std::int64_t ANY = -1;

/// A model of touch board: what it answers, and what its ports' properties say then.
struct BoardModel {
    std::int64_t boardCode;    ///< ANY: whatever the board answers
    std::int64_t headerValue;  ///< likewise
    std::uint32_t modelCode;
    const char* hardware;
    const char* header;
    char revision;
};

// The first row that fits counts.
// clang-format off
constexpr BoardModel BOARD_MODELS[] = {
    // board code, header, model, hardware, header, revision
    {0x77,         21,     121,   "KP120",  "yes",  'A'},
    {0x77,         ANY,    120,   "KP120",  "no",   'A'},
    {0x55,         ANY,    481,   "KP480",  "no",   'B'},
    {0x00,         ANY,    480,   "KP480",  "no",   'A'},
    {ANY,          90,     480,   "KP480",  "no",   'A'},
};
// clang-format on

bool Fits(std::int64_t wanted, std::uint32_t answered) {
    return wanted == ANY || wanted == answered;
}

}  // namespace

std::optional<std::uint32_t> DecodeBoardModel(std::uint32_t boardCode, std::uint32_t headerValue) {
    // All zeros is what the answer field holds before the board has answered.
    if (boardCode == 0 && headerValue == 0) {
        return std::nullopt;
    }
    for (const BoardModel& model : BOARD_MODELS) {
        if (Fits(model.boardCode, boardCode) && Fits(model.headerValue, headerValue)) {
            return model.modelCode;
        }
    }
    return MODEL_UNKNOWN;
}

std::string FormatBoardProperties(std::uint32_t modelCode, std::uint32_t headerValue) {
    for (const BoardModel& model : BOARD_MODELS) {
        if (model.modelCode == modelCode) {
            return strprintf("hardware=%s;header=%s;revision=%c;rheader=%d", model.hardware, model.header,
                             model.revision, static_cast<int>(headerValue));
        }
    }
    return {};
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
