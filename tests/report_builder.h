#pragma once

// Builds reports of the touch board as its DIAGNOSTICS port delivers them. Where a word holds codes in its
// low bytes, the others mean nothing: they are filled.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>

class ReportBuilder {
public:
    using Word = std::uint32_t;
    static constexpr unsigned SLOTS = 29;

    /// A valid setup of eleven buttons, with the thresholds 41 to 51 and zeros for parameters.
    static ReportBuilder Setup() {
        return ReportBuilder().Add(
            {0xFFFF, FILL | 0xC2C2, 16, FILL | 0x0BA5, 41, 42, 43, 44, 45, 46, 47, 48, 49, 50, 51});
    }

    static ReportBuilder Diagnostics(Word touchBits) { return ReportBuilder().Add({touchBits}); }

    /// Appends two parameters to a setup.
    ReportBuilder& Parameters(Word code, Word value, Word otherCode, Word otherValue) {
        return Add({FILL | otherCode << 8 | code, value, otherValue});
    }

    /// Appends a group to a diagnostics report; button 0 says that it is unused.
    ReportBuilder& Sample(Word button, Word value1 = 0, Word value2 = 0, Word value3 = 0, Word value4 = 0) {
        return Add({FILL | value4 << 8 | button, value1, value2, value3});
    }

    ReportBuilder& Slot(unsigned slot, Word value) {
        m_slots[slot] = value;
        return *this;
    }

    /// Calls receive(index, value) for a part of the report, in order.
    template <class Receive>
    void Deliver(Receive receive, unsigned first = 0, unsigned last = SLOTS - 1) const {
        for (unsigned index = first; index <= last; ++index) {
            receive(index, m_slots[index]);
        }
    }

private:
    static constexpr Word FILL = 0xA5A50000;

    ReportBuilder& Add(std::initializer_list<Word> words) {
        m_end = std::copy(words.begin(), words.end(), m_slots.begin() + m_end) - m_slots.begin();
        return *this;
    }

    std::array<Word, SLOTS> m_slots{};
    std::ptrdiff_t m_end = 0;
};
