#pragma once

// A port without a device, for a consumer that must have one: reads give 0, false or an empty text, commands
// are ignored.

#include "lib/hardware/external_control.h"

namespace ExternalControl::Impl {

/// A port with no pins, that has no device behind it.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): nothing derives from it
class DummyPort final : public Port {
public:
    unsigned GetPinCount() override { return 0; }
    std::string GetVersion() override { return {}; }
    void ConfigureInput(unsigned) override {}
    bool IsInput(unsigned) override { return false; }
    bool GetInput(unsigned) override { return false; }
    unsigned ReadAllInputs() override { return 0; }
    void ConfigureOutput(unsigned) override {}
    bool IsOutput(unsigned) override { return false; }
    bool GetOutput(unsigned) override { return false; }
    unsigned ReadAllOutputs() override { return 0; }
    void SetAllLevels(unsigned) override {}
    void SetOutputs(const unsigned*, unsigned) override {}
    void SetOutput(unsigned, unsigned) override {}
};

}  // namespace ExternalControl::Impl
