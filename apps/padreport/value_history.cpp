#include "apps/padreport/value_history.h"

#include <algorithm>

namespace padreport {

namespace {

void Merge(Slice& slice, const Slice& later) {
    for (unsigned value = 0; value < VALUE_COUNT; ++value) {
        slice.min[value] = std::min(slice.min[value], later.min[value]);
        slice.max[value] = std::max(slice.max[value], later.max[value]);
    }
    slice.isTouched |= later.isTouched;
}

/// @param slice not before the last one
void Append(std::vector<Slice>& slices, const Slice& slice) {
    if (!slices.empty() && slices.back().index == slice.index) {
        Merge(slices.back(), slice);
    } else {
        slices.push_back(slice);
    }
}

}  // namespace

void ValueHistory::Add(const Sample& sample, bool beginsStretch, std::uint64_t run) {
    if (beginsStretch) {
        BeginStretch(sample, run);
    }
    m_last = sample.milliseconds + m_offset;
    std::vector<Slice>& slices = m_buttons[sample.button];
    Append(slices, {m_last / m_sliceMilliseconds, sample.values, sample.values, sample.touched});
    if (slices.size() > SLICES_MAX) {
        Coarsen();
    }
}

void ValueHistory::BeginStretch(const Sample& sample, std::uint64_t run) {
    m_offset = m_isBegun ? m_last + STRETCH_BREAK_MILLISECONDS - sample.milliseconds : 0;
    m_isBegun = true;
    if (m_stretches.size() < LISTED_STRETCHES_MAX) {
        m_stretches.push_back({sample.milliseconds + m_offset, sample.milliseconds, run});
    }
}

void ValueHistory::Coarsen() {
    m_sliceMilliseconds *= 2;
    for (auto& [button, slices] : m_buttons) {
        std::vector<Slice> coarser;
        coarser.reserve(SLICES_MAX + 1);
        for (Slice slice : slices) {
            slice.index /= 2;
            Append(coarser, slice);
        }
        slices.swap(coarser);
    }
}

}  // namespace padreport
