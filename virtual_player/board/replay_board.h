#pragma once

// A board that plays what was recorded of another: the same descriptor, the same identity, the same reports
// at the same distances.

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "virtual_player/board/board.h"
#include "virtual_player/board/hid_layout.h"
#include "virtual_player/board/recording.h"

namespace VirtualPlayer {

/// Plays the reports one after the other and, at the end, stops. A report that the host does not read, for
/// nobody has opened the board, holds up those behind it, so a recording begins when somebody listens.
///
/// A touch board is asked for two things. The first report that tells its model answers every identity
/// request. The first setup report waits until the host asks for it, with all that follows; a host that asks
/// earlier gets it at once, and the recording goes on there. So what was measured comes after the setup that
/// it goes with, however fast the host is. Requests after that get the setup report that was played last.
class ReplayBoard final : public Board {
public:
    /// @throws std::invalid_argument for a report descriptor that makes no sense
    explicit ReplayBoard(Recording recording);

    BoardDescription Describe() const override;
    Bytes HidReportDescriptor() const override { return m_recording.descriptor; }
    /// The recording goes on where it was; what has been played stays so.
    void Connect() override;
    /// @return the report as it was sent last; zeros before
    std::optional<Bytes> CurrentReport(std::uint8_t id) const override;
    bool WriteReport(const Bytes& report) override;
    /// Lines: speed FACTOR | loop on|off | state
    std::string ExecuteLine(const std::string& line) override;
    std::vector<Bytes> TakeReports() override;
    std::vector<std::string> TakeRecords() override;
    void Advance(std::int64_t now, bool endpointIsFree) override;
    std::optional<std::int64_t> NextReportTime() const override;

private:
    std::uint8_t GetId(const Bytes& report) const { return m_isNumbered ? report[0] : 0; }
    bool IsSetup(const Bytes& report) const;
    bool TellsModel(const Bytes& report) const;
    void FindAnswers();
    void Execute(std::uint32_t command);
    void Send(const Bytes& report);
    bool IsWaitingForRequest() const { return m_firstSetup && m_next == *m_firstSetup; }
    std::int64_t Scale(std::int64_t time) const {
        return static_cast<std::int64_t>(static_cast<double>(time) / m_speed);
    }
    std::int64_t GapAfter(std::size_t index) const;
    void SkipToSetup(std::int64_t now);
    void StandStillUntil(std::int64_t now);
    void ChangeSpeed(std::int64_t now);
    void StartOver(std::int64_t now);

    const Recording m_recording;
    HidLayout m_layout;
    bool m_isNumbered = false;
    // Of a touch board; none where the recording is of another, or does not have the report.
    std::optional<std::uint8_t> m_diagnosticsId;
    std::optional<std::uint8_t> m_identityId;
    std::optional<std::uint8_t> m_commandId;
    const Bytes* m_identity = nullptr;        ///< the answer to every identity request
    const Bytes* m_lastSetup = nullptr;       ///< the answer to setup requests after the first
    std::optional<std::size_t> m_firstSetup;  ///< its index, until it has been asked for
    bool m_setupIsWanted = false;
    std::vector<std::uint32_t> m_masks;  ///< the words behind a command, as the host sent them last

    std::size_t m_next = 0;     ///< the report to play next
    bool m_hasStarted = false;  ///< m_due is valid
    std::int64_t m_due = 0;     ///< when the next report is due
    double m_speed = 1;
    std::optional<double> m_newSpeed;  ///< until the time is known
    bool m_isLooping = false;
    bool m_isHeldUp = false;
    bool m_hasEnded = false;
    std::map<std::uint8_t, Bytes> m_current;  ///< by number, as sent last
    std::vector<Bytes> m_outgoing;
    std::vector<std::string> m_records;
};

}  // namespace VirtualPlayer
