#pragma once

// What a watch prints: the lines that are still to be written. A line is written only when standard output
// has room for it, so that a terminal that is stopped, or a pipe that nobody reads, never keeps the program
// from ending. For one thread.

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "apps/portprobe/change_queue.h"

/// A port as its lines show it.
struct PortLabel {
    std::string name;        ///< of the port
    bool hasValues = false;  ///< or levels
};

/// The lines of a watch that are still to be written.
class WatchLines {
public:
    /// @param ports  by the numbers that the changes have
    /// @param limit  how many changes are to be printed; nothing: all
    WatchLines(const std::vector<PortLabel>& ports, std::optional<unsigned> limit)
        : m_ports(ports), m_left(limit) {}

    bool IsEmpty() const { return m_lines.empty(); }  ///< whether there is nothing to write
    /// Whether as many changes as wanted have been appended.
    bool IsComplete() const { return m_left == 0U; }

    /// Makes lines of what happened, until they are complete.
    void Append(const ChangeQueue::Content& content);

    /// Writes the first line. For when standard output is ready: it then takes a line without blocking.
    /// @throws ErrnoException "standard output"
    void WriteOne();

    /// How many changes the lines stand for.
    unsigned long CountChanges() const;

private:
    struct Line {
        std::string text;
        unsigned long changeCount;
    };

    void AppendLine(const strata::monotonic_time& time, unsigned port, const std::string& what,
                    unsigned long changeCount);

    const std::vector<PortLabel>& m_ports;
    std::optional<unsigned> m_left;
    std::deque<Line> m_lines;
};
