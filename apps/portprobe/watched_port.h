#pragma once

// A port that is listened to: what it receives and the user wants goes into the queue.

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "apps/portprobe/change_queue.h"
#include "apps/portprobe/known_ports.h"
#include "apps/portprobe/request.h"
#include "lib/hardware/external_control.h"
#include "lib/hardware/external_control_input_driver.h"

/// An open port whose changes go into the queue as long as it lives.
class WatchedPort {
public:
    /// Opens the port. Main thread; blocks for about 10 seconds when a board does not answer.
    /// @param listedPort  what to open
    /// @param number   of the port, for its changes
    /// @param request  which pins and edges are wanted
    /// @param queue    outlives this
    /// @throws UsageError when the port has no such pins, or no edges
    /// @throws std::runtime_error when it has no inputs
    /// @throws ErrnoException when the device fails
    WatchedPort(const ListedPort& listedPort, unsigned number, const Request& request, ChangeQueue& queue);

    /// Puts what the inputs have now into the queue; from then on the changes follow. Main thread.
    /// @param listedPort  the same port
    /// @throws ErrnoException when the device fails
    void Start(const ListedPort& listedPort);

private:
    bool Wants(unsigned pin) const;
    bool WantsEdge(unsigned value) const;
    strata::monotonic_time GetChangeTime() const;

    void OnValue(unsigned pin, unsigned value);
    void OnDropped();

    const bool m_hasValues;
    const unsigned m_number;
    const std::vector<unsigned> m_pins;  ///< empty: all
    const Edges m_edges;
    ChangeQueue& m_queue;
    const ExternalControl::PlayerLines* m_lines = nullptr;  ///< null: the port is a board's
    // These two are for the poll thread, or for a thread that has blocked the callbacks.
    std::map<unsigned, unsigned> m_last;  ///< by pin, as received last
    bool m_isStarted = false;
    std::shared_ptr<ExternalControl::Port> m_port;  // last: it calls back until it is destroyed
};
