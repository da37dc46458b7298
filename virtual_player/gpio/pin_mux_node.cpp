#include "virtual_player/gpio/pin_mux_node.h"

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "virtual_player/common/console.h"

namespace VirtualPlayer {

void PinMuxNode::OnWrite(fuse_req_t request, const char* data, std::size_t size) {
    std::uint32_t words[2];
    if (Fails(Failing::WRITE)) {
        fuse_reply_err(request, EIO);
    } else if (size != sizeof words) {
        PrintRecord("mux refused " + std::to_string(size) + " bytes");
        fuse_reply_err(request, EINVAL);
    } else {
        std::memcpy(words, data, sizeof words);
        PrintRecord("mux " + std::to_string(words[0]) + " " + std::to_string(words[1]));
        fuse_reply_write(request, size);
    }
}

}  // namespace VirtualPlayer
