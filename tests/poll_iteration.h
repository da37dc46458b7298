#pragma once

// How tests wait for the poll thread.

#include <cstdint>
#include <functional>
#include <future>
#include <utility>

#include "lib/platform/poll_thread.h"

/// Timers that run a function.
class Alarm : public TimerClient {
public:
    explicit Alarm(std::function<void(std::uintptr_t)> onTimer) : m_onTimer(std::move(onTimer)) {}
    virtual ~Alarm() = default;
    virtual void OnTimer(std::uintptr_t argument) { m_onTimer(argument); }
    void OnOtherTimer(std::uintptr_t argument) { m_onTimer(argument); }

private:
    std::function<void(std::uintptr_t)> m_onTimer;
};

/// Returns when the poll thread has come through a whole iteration after this call: everything that was ready
/// or due before has been served.
inline void WaitForAnIteration(PollThread& thread) {
    for (int i = 0; i < 2; ++i) {
        std::promise<void> fired;
        Alarm alarm([&](std::uintptr_t) { fired.set_value(); });
        thread.AddTimer(&alarm, &Alarm::OnTimer, 0, 0);
        fired.get_future().wait();
        // The entry is in the list until its callback has returned.
        const auto blocked = thread.BlockCallbacks();
    }
}
