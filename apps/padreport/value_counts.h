#pragma once

// How often each whole number occurred. A log of an hour has millions of samples, but few different values:
// counting them keeps all that quantiles need, exactly, and its size does not grow with the length of the
// log.
//
// Not for concurrent use.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <vector>

namespace padreport {

/// The quantile of a share is the smallest number that at least this share of all do not exceed: always one
/// that occurred.
struct Quantiles {
    std::uint64_t count = 0;         ///< 0: the others mean nothing
    std::int32_t min = 0;            ///< the lowest
    std::int32_t lowerQuartile = 0;  ///< a quarter
    std::int32_t median = 0;         ///< half
    std::int32_t upperQuartile = 0;  ///< three quarters
    std::int32_t max = 0;            ///< the highest
};

/// Numbers, each with how often it occurred.
class ValueCounts {
public:
    /// @param value what occurred
    /// @param count how often
    void Add(std::int32_t value, std::uint64_t count = 1) {
        m_total += count;
        const auto offset = static_cast<std::uint64_t>(value - m_windowStart);
        if (offset < m_window.size()) {
            m_window[offset] += count;
            m_first = std::min<std::size_t>(m_first, offset);
            m_last = std::max<std::size_t>(m_last, offset);
        } else {
            AddOutside(value, count);
        }
    }

    /// Milliseconds may be more than fit: 24 days then stand for all that is longer.
    void AddMilliseconds(std::int64_t milliseconds) {
        Add(static_cast<std::int32_t>(
            std::min<std::int64_t>(milliseconds, std::numeric_limits<std::int32_t>::max())));
    }

    /// Adds what another has counted.
    void Add(const ValueCounts& other) {
        other.ForEach([this](std::int32_t value, std::uint64_t count) { Add(value, count); });
    }

    std::uint64_t GetTotal() const { return m_total; }  ///< how often any number occurred

    /// The quantiles of all numbers that occurred.
    Quantiles GetQuantiles() const;

    /// Calls visit(value, count) for each number that occurred, from the lowest to the highest.
    template <class Visit>
    void ForEach(Visit visit) const {
        const auto above = m_outside.lower_bound(m_windowStart);
        for (auto entry = m_outside.begin(); entry != above; ++entry) {
            visit(static_cast<std::int32_t>(entry->first), entry->second);
        }
        for (std::size_t offset = m_first; offset <= m_last && offset < m_window.size(); ++offset) {
            if (m_window[offset] != 0) {
                visit(static_cast<std::int32_t>(m_windowStart + static_cast<std::int64_t>(offset)),
                      m_window[offset]);
            }
        }
        for (auto entry = above; entry != m_outside.end(); ++entry) {
            visit(static_cast<std::int32_t>(entry->first), entry->second);
        }
    }

private:
    void AddOutside(std::int32_t value, std::uint64_t count);

    std::uint64_t m_total = 0;
    // Most numbers lie near the first one: they are counted in a window around it.
    std::int64_t m_windowStart = 0;
    std::vector<std::uint64_t> m_window;
    std::size_t m_first = 0;  // the first and the last place in the window that are used
    std::size_t m_last = 0;
    std::map<std::int64_t, std::uint64_t> m_outside;
};

}  // namespace padreport
