#include "apps/padtune/live_state.h"

namespace {

constexpr unsigned LEVEL_BITS = 32;

}  // namespace

void GpioLevels::OnValue(unsigned pin, unsigned value, unsigned /*width*/) {
    if (pin >= LEVEL_BITS) {
        return;
    }
    const std::uint32_t bit = std::uint32_t{1} << pin;
    m_levels = value != 0 ? m_levels | bit : m_levels & ~bit;

    // Only the poll thread writes the shared levels, so it reads them without the lock.
    if (m_levels != m_live.values.gpioLevels) {
        const std::lock_guard lock(m_live.mutex);
        m_live.values.gpioLevels = m_levels;
    }
}
