#include "apps/padreport/value_counts.h"

#include <cstddef>
#include <iterator>

namespace padreport {

namespace {

constexpr std::size_t WINDOW_SIZE = 1024;

}  // namespace

void ValueCounts::AddOutside(std::int32_t value, std::uint64_t count) {
    if (m_window.empty()) {
        constexpr std::size_t MIDDLE = WINDOW_SIZE / 2;
        m_window.resize(WINDOW_SIZE);
        m_windowStart = std::int64_t{value} - static_cast<std::int64_t>(MIDDLE);
        m_window[MIDDLE] = count;
        m_first = MIDDLE;
        m_last = MIDDLE;
    } else {
        m_outside[value] += count;
    }
}

Quantiles ValueCounts::GetQuantiles() const {
    Quantiles quantiles;
    // Ranks count from 1.
    const struct {
        std::uint64_t rank;
        std::int32_t Quantiles::*result;
    } wanted[] = {
        {1, &Quantiles::min},
        {(m_total + 3) / 4, &Quantiles::lowerQuartile},
        {(m_total + 1) / 2, &Quantiles::median},
        {m_total - m_total / 4, &Quantiles::upperQuartile},
        {m_total, &Quantiles::max},
    };
    std::size_t next = 0;
    ForEach([&](std::int32_t value, std::uint64_t count) {
        quantiles.count += count;
        while (next < std::size(wanted) && quantiles.count >= wanted[next].rank) {
            quantiles.*wanted[next++].result = value;
        }
    });
    return quantiles;
}

}  // namespace padreport
