#pragma once

// The boards that there are, by the names of their models.

#include <memory>
#include <string>
#include <vector>

#include "virtual_player/board/board.h"

namespace VirtualPlayer {

/// @return all models that MakeBoard() knows by name: those of the touch boards, then the others
std::vector<std::string> BoardModels();

/// @param model  one of BoardModels(), the case matters; or "replay:" and the path of a packed recording
/// @throws std::invalid_argument for any other, or for a recording that cannot be played
std::unique_ptr<Board> MakeBoard(const std::string& model);

}  // namespace VirtualPlayer
