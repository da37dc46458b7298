#include "apps/padreport/timeline.h"

namespace padreport {

namespace {

void Count(Occurrences& occurrences, const Sample& sample) {
    if (occurrences.count++ == 0) {
        occurrences.firstLine = sample.line;
    }
}

}  // namespace

Timeline::Step Timeline::Advance(const Sample& sample) {
    const std::int64_t now = sample.milliseconds;
    bool beginsStretch = false;
    if (m_isRunBegun && now < m_last) {
        Count(m_fallingStamps, sample);
        m_isRunBegun = false;
    }
    if (!m_isRunBegun) {
        ++m_runs;
        m_isRunBegun = true;
        m_isTimed = now > 0;
        beginsStretch = true;
    } else if (!m_isTimed && now > 0) {
        m_isTimed = true;
        beginsStretch = true;
    } else if (now - m_last > JUMP_MILLISECONDS) {
        Count(m_jumps, sample);
        beginsStretch = true;
    }
    if (!beginsStretch && m_isTimed) {
        m_timedMilliseconds += now - m_last;
    }
    m_last = now;
    return {beginsStretch, m_isTimed};
}

}  // namespace padreport
