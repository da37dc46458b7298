#pragma once

// Which model a touch button board is. The board is asked with a command and answers with a board code and a
// header value.

#include <cstdint>
#include <optional>
#include <string>

#include "lib/hardware/external_control_hid_descriptor.h"
#include "lib/hardware/hiddev.h"

namespace ExternalControl::Impl {

/// The models of touch boards; not the codes that the boards answer with.
enum BoardModel : std::uint32_t {
    MODEL_UNKNOWN = 0,
    MODEL_SMALL = 120,
    MODEL_SMALL_WITH_HEADER = 121,
    MODEL_LARGE_A = 480,
    MODEL_LARGE_B = 481,
};

/// Decodes the answer of a board.
/// @return the model, perhaps unknown; nothing when this is no answer yet
std::optional<BoardModel> DecodeBoardModel(std::uint32_t boardCode, std::uint32_t headerValue);

/// What a port says about its board, as "hardware=KP480;header=no;revision=A;rheader=90"; empty for an
/// unknown model.
std::string FormatBoardProperties(std::uint32_t modelCode, std::uint32_t headerValue);

/// What a board answered when it was asked for its model.
struct BoardAnswer {
    std::uint32_t modelCode;    ///< a BoardModel
    std::uint32_t headerValue;  ///< which header the board has, as it answered
};

/// Reads the answer that the kernel remembers; asks the board nothing. Any thread.
/// @param device     the board, opened in any way
/// @param setupDesc  the input field that the board answers in
/// @return nothing when the board has not answered since it was plugged in
/// @throws ErrnoException "BoardIdentity - Input" when the device fails
std::optional<BoardAnswer> ReadBoardAnswer(const HidDevice& device, const Descriptor& setupDesc);

/// The conversation with one board, on one thread.
class BoardIdentity {
public:
    /// Opens the board and asks it, up to four times in little more than a second; each time takes 10 seconds
    /// more with a board that does not even take the question. A board that does not answer is reported to
    /// standard error and has an unknown model.
    /// @param identDesc  the output field that takes commands
    /// @param setupDesc  the input field that answers, of the same device
    /// @throws ErrnoException when the device fails
    BoardIdentity(const DescriptorPtr& identDesc, const DescriptorPtr& setupDesc);

    /// A BoardModel, or a number that is none.
    std::uint32_t GetModelCode() const { return m_modelCode; }
    /// Which header the board has; as the board answered, 0 without an answer.
    std::uint32_t GetHeaderValue() const { return m_headerValue; }

private:
    void SendRequest(const Descriptor& identDesc) const;
    bool TakeAnswer(const Descriptor& setupDesc);

    HidDevice m_device;
    std::uint32_t m_modelCode = MODEL_UNKNOWN;
    std::uint32_t m_headerValue = 0;
};

}  // namespace ExternalControl::Impl
