#include "apps/padtune/setup_wait.h"

#include <memory>
#include <utility>

#include "apps/padtune/tick_count.h"

namespace {

constexpr std::chrono::seconds POLL_INTERVAL{1};
constexpr std::chrono::milliseconds PRINTING_POLL_INTERVAL{10};

}  // namespace

std::optional<BoardSetup> WaitForSetup(TouchBoardReports& reports, std::uint64_t deadline,
                                       const std::function<void(std::chrono::milliseconds)>& sleep) {
    for (;;) {
        // The setup is taken before the count is read. The decoder stores the count first, so a setup without
        // a valid count was followed by an invalid report: it is void.
        const std::unique_ptr<BoardSetup> setup = reports.TakeSetup();
        const std::int32_t count = reports.GetButtonCount();
        if (count > 0 && setup) {
            return std::move(*setup);
        }
        if (count > 0) {
            // The poll thread has not stored the setup yet. It is checking the count, or printing the setup's
            // lines, which takes as long as nobody reads standard error.
            sleep(PRINTING_POLL_INTERVAL);
        } else if (getTickCount() < deadline) {
            sleep(POLL_INTERVAL);
        } else if (count == 0) {
            return BoardSetup{};
        } else {
            return std::nullopt;
        }
    }
}
