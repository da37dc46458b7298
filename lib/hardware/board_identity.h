#pragma once

// Which model a touch button board is. The board is asked with a command and answers with a board code and a
// header value.

#include <cstdint>
#include <optional>
#include <string>

#include "lib/hardware/external_control_hid_descriptor.h"
#include "lib/hardware/hiddev.h"

namespace ExternalControl::Impl {

/// The model code of a board that did not tell its model, or told one that is not in the table of models.
inline constexpr std::uint32_t MODEL_UNKNOWN = 0;

/// Decodes the answer of a board.
/// @return the model code, which is not the code that the board answers with; MODEL_UNKNOWN when the table of
///         models has no such board; nothing when this is no answer yet
std::optional<std::uint32_t> DecodeBoardModel(std::uint32_t boardCode, std::uint32_t headerValue);

/// What a port says about its board, as "hardware=KP480;header=no;revision=A;rheader=90"; empty for an
/// unknown model.
std::string FormatBoardProperties(std::uint32_t modelCode, std::uint32_t headerValue);

/// What a board answered when it was asked for its model.
struct BoardAnswer {
    std::uint32_t modelCode;    ///< as DecodeBoardModel has it
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

    /// As DecodeBoardModel has it; MODEL_UNKNOWN without an answer.
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
