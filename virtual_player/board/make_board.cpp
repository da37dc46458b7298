#include "virtual_player/board/make_board.h"

#include <string_view>

#include "virtual_player/board/expander.h"
#include "virtual_player/board/light_controller.h"
#include "virtual_player/board/recording.h"
#include "virtual_player/board/replay_board.h"
#include "virtual_player/board/touch_board.h"

namespace VirtualPlayer {

namespace {

template <class AnyBoard>
std::unique_ptr<Board> Make() {
    return std::make_unique<AnyBoard>();
}

// Besides the touch boards.
constexpr struct {
    std::string_view model;
    std::unique_ptr<Board> (*make)();
} OTHER_BOARDS[] = {
    {"expander", Make<Expander>},
    {"light-controller", Make<LightController>},
};

constexpr std::string_view REPLAY = "replay:";

}  // namespace

std::vector<std::string> BoardModels() {
    std::vector<std::string> models = TouchBoardModel::Names();
    for (const auto& row : OTHER_BOARDS) {
        models.emplace_back(row.model);
    }
    return models;
}

std::unique_ptr<Board> MakeBoard(const std::string& model) {
    for (const auto& row : OTHER_BOARDS) {
        if (model == row.model) {
            return row.make();
        }
    }
    if (model.starts_with(REPLAY)) {
        return std::make_unique<ReplayBoard>(ReadRecording(model.substr(REPLAY.size())));
    }
    return std::make_unique<TouchBoard>(model);
}

}  // namespace VirtualPlayer
