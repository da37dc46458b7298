#include "virtual_player/board/board.h"

#include "virtual_player/board/expander.h"
#include "virtual_player/board/light_controller.h"
#include "virtual_player/board/touch_board.h"

namespace VirtualPlayer {

std::unique_ptr<Board> MakeBoard(const std::string& model) {
    if (model == "expander") {
        return std::make_unique<Expander>();
    }
    if (model == "light-controller") {
        return std::make_unique<LightController>();
    }
    return std::make_unique<TouchBoard>(model);
}

}  // namespace VirtualPlayer
