#pragma once

// The boards that there are, by the names of their models.

#include <memory>
#include <string>
#include <vector>

#include "virtual_player/board/board.h"

namespace VirtualPlayer {

/// @return all models that MakeBoard() knows: those of the touch boards, then the others
std::vector<std::string> BoardModels();

/// @param model  one of BoardModels(); the case matters
/// @throws std::invalid_argument for any other
std::unique_ptr<Board> MakeBoard(const std::string& model);

}  // namespace VirtualPlayer
