#pragma once

// Decoding of what the touch board sends on its DIAGNOSTICS port: reports of 29 32-bit values, delivered one
// value at a time. A setup report says what the board is configured to; a diagnostics report carries the live
// values of up to seven buttons.

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "apps/padtune/live_state.h"

/// One entry of the board's configuration: a command code and the value in force.
struct BoardParameter {
    std::uint32_t code = 0;  ///< as BoardCommand has it; COMMAND_DIAGNOSE_BUTTON: the entry is unused
    std::int32_t value = 0;  ///< as the board sent it
};

/// What a valid setup report says about the board.
struct BoardSetup {
    std::int32_t buttonCount = -1;               ///< as the board announced it; -1: not filled in
    std::vector<std::int32_t> fingerThresholds;  ///< one per button, in button order
    std::vector<BoardParameter> parameters;      ///< in the order of the page's table
};

/// Set by --output-diagnostics, before the poll thread starts; read on the poll thread.
extern bool OutputDiagnostics;

/// Assembles and decodes the board's reports.
class TouchBoardReports {
public:
    /// @param live where decoded samples go; must outlive this object
    explicit TouchBoardReports(LiveState& live) : m_live(live) {}
    ~TouchBoardReports();

    TouchBoardReports(const TouchBoardReports&) = delete;
    TouchBoardReports& operator=(const TouchBoardReports&) = delete;

    /// The DIAGNOSTICS port's value callback. Runs on the poll thread.
    /// @param index position of the value in its report, 0 to 28
    /// @param value the raw value
    /// @param width not used
    /// @throws std::system_error when the mutex of the live state cannot be locked
    void OnValue(unsigned index, unsigned value, unsigned width);

    /// Number of buttons that the board announced; -1 until a valid setup report came, and again after an
    /// invalid one. Any thread.
    std::int32_t GetButtonCount() const { return m_buttonCount; }

    /// Hands over the newest complete setup; null when none came since the last call. Any thread.
    std::unique_ptr<BoardSetup> TakeSetup() {
        return std::unique_ptr<BoardSetup>(m_newestSetup.exchange(nullptr));
    }

private:
    static constexpr unsigned SLOT_COUNT = 29;
    using ReportSlots = std::array<std::uint32_t, SLOT_COUNT>;

    bool IsSetupReport() const;
    void DecodeSetup();
    void ReadThresholds(BoardSetup& setup) const;
    void ReadParameters(BoardSetup& setup) const;
    void ReviewParameters(BoardSetup& setup) const;
    void DecodeDiagnostics();
    std::uint32_t ReadTouchBits() const;
    void ReadSamples(std::uint32_t touchBits);
    void PrintSamples() const;

    LiveState& m_live;

    // Touched on the poll thread only.
    ReportSlots m_slots{};
    std::vector<ButtonSample> m_samples;  ///< of the report that is being decoded
    bool m_remapTouchBits = false;
    bool m_printInfo = true;

    // The newest setup, owned: put here by the poll thread, taken by the main thread.
    std::atomic<BoardSetup*> m_newestSetup{nullptr};
    std::atomic<std::int32_t> m_buttonCount{-1};
};
