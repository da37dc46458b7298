#pragma once

// The device node of the player's pin multiplexer, "/dev/vantora-pinmux". It takes records of two native
// 32-bit words, pin and selector, and tells what it was given; no pin of the virtual player changes by it.

#include "virtual_player/gpio/cuse_node.h"

namespace VirtualPlayer {

class PinMuxNode final : public CuseNode {
public:
    PinMuxNode() : CuseNode("vantora-pinmux") {}

private:
    void OnWrite(fuse_req_t request, const char* data, std::size_t size) override;
};

}  // namespace VirtualPlayer
