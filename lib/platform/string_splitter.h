#pragma once

// Splits a text at separator characters.

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "lib/platform/assertion.h"

/// The pieces of a text between separators, in order; empty pieces are dropped, so "3-" and "-3" split at '-'
/// have the one piece "3".
class StringSplitter {
public:
    /// @param text, separators what is split, and the characters to split at, each by itself
    StringSplitter(std::string text, const char* separators) {
        for (;;) {
            const std::size_t end = text.find_first_of(separators);
            if (end == std::string::npos) {
                break;
            }
            if (end != 0) {
                m_chunks.push_back(text.substr(0, end));
            }
            text.erase(0, end + 1);
        }
        if (!text.empty()) {
            m_chunks.push_back(std::move(text));
        }
    }

    std::size_t size() const { return m_chunks.size(); }  ///< number of pieces

    /// @param index below size(); anything else is a programming error and ends the process
    std::string operator[](std::size_t index) const {
        if (index >= m_chunks.size()) {
            // The field's log tooling knows the condition in these words.
            strata::FailAssertion("lib/platform/string_splitter.h", __LINE__,
                                  "std::__cxx11::string StringSplitter::operator[](size_t) const",
                                  "_Off < m_chunks.size()");
        }
        return m_chunks[index];
    }

private:
    std::vector<std::string> m_chunks;
};
