#pragma once

// Where ports come from, whatever kind they are of: OpenPort opens one by its name, ListPorts tells which
// there are.

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "lib/hardware/external_control.h"

namespace ExternalControl {

namespace Impl {
struct Descriptor;
class HidDevice;
}  // namespace Impl

/// There is no port of this name.
class PortNotFoundException : public std::runtime_error {
public:
    PortNotFoundException() : std::runtime_error("External control port not found") {}
};

/// Opens a port by its name; the case of ASCII letters does not matter:
/// - "vantora": the player's own lines;
/// - "VX1000-compatible": a flat port of own lines and of an expander's, for older software. It asks for
///   the expander by names without a number, which no board has, so that it is not found as yet;
/// - any other, such as "TouchBoard-0-LED": a board. The boards are looked for once in a process, at the
///   first such call: what is plugged in later cannot be opened.
/// Any thread, not from a callback, nor while something is held that one takes. A board that does not answer
/// blocks the call that opens it for about 10 seconds. The first call for a board also blocks for every board
/// that does not answer: for 10 seconds, and for 40 more when it is a touch board, which is asked for its
/// model.
/// @param name           of the port, as above
/// @param inputCallback  gets the inputs; required
/// @param lostCallback   may be empty; only boards call it
/// @return the port, attached to the PollThread; must be released before that ends
/// @throws PortNotFoundException when there is no such board
/// @throws ErrnoException when a device fails, or the player's own lines are not there
std::shared_ptr<Port> OpenPort(const std::string& name, InputCallback inputCallback,
                               LostCallback lostCallback);

/// What the pins of a port have.
enum class PortKind {
    LINES,   ///< levels; the player's own lines
    LEVELS,  ///< levels of a board
    VALUES,  ///< whole values of a board
};

/// What the kernel remembers of a board's port, by pin: every value that was set and every one that it
/// received. It receives what a board sends only while somebody has the node open, so levels that came at
/// another time are missing until they are fetched.
struct PortValues {
    std::vector<std::uint32_t> inputs;      ///< levels as the port has them; empty: the port has no inputs
    std::vector<std::uint32_t> outputs;     ///< empty: the port has no outputs
    std::vector<std::uint32_t> directions;  ///< empty: they cannot be switched; other than 0: output
};

/// A port that there may be, as far as it is known without being opened. Keeps the node of its board open, so
/// that asking for more and opening the port take no time; copies share it. Any thread.
class ListedPort {
public:
    /// The player's own lines, whether they are there or not.
    ListedPort();

    /// For ListPorts: a port of a board.
    ListedPort(std::string name, std::shared_ptr<const Impl::Descriptor> descriptor,
               std::shared_ptr<const Impl::HidDevice> device);

    const std::string& GetName() const { return m_name; }  ///< as OpenPort takes it
    /// @return the path of the device node
    const std::string& GetNode() const;
    /// @return the USB interface; empty: the device is not on the USB
    const std::string& GetLocation() const;
    PortKind GetKind() const;                                         ///< what its pins have
    bool HasValues() const { return GetKind() == PortKind::VALUES; }  ///< whole values rather than levels
    bool HasInputs() const;  ///< whether it reports anything; the player's own lines do
    /// @return bits of a value; 1: the port has levels
    unsigned GetBits() const;

    // Only for boards: the player's own lines tell when they are opened.

    unsigned GetPinCount() const;  ///< number of its pins
    /// As Port::GetProperties; empty when the ports were listed without models.
    std::string GetProperties() const;
    /// As Port::GetVersion.
    /// @throws ErrnoException when the device fails
    std::string ReadVersion() const;
    /// Fetches the report that the inputs come in, if there are any, by the one request that it takes. Blocks
    /// for 10 seconds when the board does not answer, and succeeds all the same.
    /// @throws ErrnoException "GetReport"
    void FetchInputs() const;
    /// Asks the board nothing: one request to the kernel for each field.
    /// @throws ErrnoException "GetUsages"
    PortValues ReadValues() const;

    /// Opens the port, as OpenPort does, but asks no board for its model.
    /// @throws ErrnoException when the device fails or is gone
    std::shared_ptr<Port> Open(InputCallback inputCallback, LostCallback lostCallback) const;

private:
    std::string m_name;
    std::shared_ptr<const Impl::Descriptor> m_descriptor;  ///< null: the player's own lines
    std::shared_ptr<const Impl::HidDevice> m_device;       ///< the same
};

/// Looks for the boards that are plugged in now, each time. Blocks for some 60 ms a board, and for 10 seconds
/// a board that does not answer, if nobody has asked it for anything since it was plugged in.
/// @return the player's own lines, then the boards' ports in the order of their names
/// @throws ErrnoException when a board does not tell what it is
std::vector<ListedPort> ListPorts();

/// The same, with the boards' models. A touch board that has not told its model since it was plugged in is
/// asked: for some 40 seconds, when it does not answer.
std::vector<ListedPort> ListPortsWithModels();

/// Looks for one port; for boards only when it is not the player's own lines.
/// @param name  in upper or lower case
/// @throws PortNotFoundException
/// @throws ErrnoException when a board does not tell what it is
ListedPort FindPort(const std::string& name);

}  // namespace ExternalControl
