#pragma once

// The flat port of an earlier player, made of three ports of this one: the player's own lines, the lines of
// an expander board and the switches of an expander board. Software that was written for it goes on
// unchanged.

#include <array>
#include <functional>
#include <memory>
#include <string>

#include "lib/hardware/external_control.h"
#include "lib/hardware/open_port.h"

namespace ExternalControl::Impl {

/// The flat port of the earlier player.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): nothing derives from it
class LegacyPort final : public Port {
public:
    /// Opens a port by its name; as OpenPort.
    using Opener = std::function<std::shared_ptr<Port>(const std::string& name, InputCallback inputCallback,
                                                       LostCallback lostCallback)>;

    /// Opens the three ports and sets the directions of the pins that are used. Any thread.
    /// @param inputCallback  gets the inputs, by their pins here; an empty one makes a callback throw
    /// @param open           how ports are opened
    /// @throws what the opener and the ports throw; what was opened is released then
    explicit LegacyPort(InputCallback inputCallback, const Opener& open = OpenPort);

    unsigned GetPinCount() override { return 23; }
    std::string GetVersion() override { return {}; }
    void ConfigureInput(unsigned pin) override;
    bool IsInput(unsigned pin) override;
    bool GetInput(unsigned pin) override;
    /// Deliberately without pins 6 to 9, which GetInput reads.
    unsigned ReadAllInputs() override;
    void ConfigureOutput(unsigned pin) override;
    bool IsOutput(unsigned pin) override;
    bool GetOutput(unsigned pin) override;
    unsigned ReadAllOutputs() override;
    void SetAllLevels(unsigned mask) override;
    /// Passes the values on to both ports unchanged, deliberately: value n is for pin n of the player's own
    /// lines and for pin n of the expander, not for pin n of this port.
    void SetOutputs(const unsigned* values, unsigned count) override;
    void SetOutput(unsigned pin, unsigned value) override;

    /// The ports that this one is made of, in the order in which they are opened.
    enum SubPort { MAIN, EXPANDER, SWITCHES, SUB_PORT_COUNT };

private:
    void OnInput(SubPort subPort, unsigned pin, unsigned value, unsigned width) const;

    const InputCallback m_inputCallback;  // before the sub-ports, which call it to their end
    std::array<std::shared_ptr<Port>, SUB_PORT_COUNT> m_subPorts;
};

}  // namespace ExternalControl::Impl
