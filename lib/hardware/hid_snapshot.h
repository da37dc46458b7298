#pragma once

// What the kernel remembers of a board, for programs that only look: nothing here opens a port or sets a
// value. The kernel remembers every value that was set and every one that it received. It receives what a
// board sends only while somebody has the node open, so levels that came at another time are missing until
// they are fetched.
//
// Both functions take the board's device, opened in any way; any thread. They fail with the operation's name,
// and with ENODEV once the board is unplugged.

#include <cstdint>
#include <vector>

#include "lib/hardware/external_control_hid_descriptor.h"
#include "lib/hardware/hiddev.h"

namespace ExternalControl::Impl {

/// The raw values of a port's fields by pin, levels that are active low included.
struct HidSnapshot {
    std::vector<std::uint32_t> inputs;      ///< empty: the port has no such field
    std::vector<std::uint32_t> outputs;     ///< the same
    std::vector<std::uint32_t> directions;  ///< the same; other than 0: output
};

/// Fetches the report that a port's inputs come in, by the one request that it takes; does nothing for a port
/// without inputs. Blocks for 10 seconds when the board does not answer, and succeeds all the same.
/// @throws ErrnoException "GetReport"
void FetchInputs(const HidDevice& device, const Descriptor& descriptor);

/// Reads what the kernel remembers, with one request for each field. Asks the board nothing, unless these
/// are the first values that anybody reads since it was plugged in: then the kernel fetches all inputs.
/// @throws ErrnoException "GetUsages"
HidSnapshot ReadSnapshot(const HidDevice& device, const Descriptor& descriptor);

}  // namespace ExternalControl::Impl
