#pragma once
// Play files: what the game runs from one play's entries (and, exported from
// a slot, its formation's), written so that another image can be given the
// same play. Each command is kept with its bytes and what follows it; each
// address field names another command of the file or an address outside the
// sequence area. The format is described in README ("Play files").
#include "playbook/playbook.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace zpe {

// The play file's version this program writes; a file of a later one is refused.
constexpr int kPlayFileVersion = 1;

// The play file of play `play` of `pb` (its image read as opened); with
// `slot`, the slot's formation too. `imageName` names the source image.
[[nodiscard]] nlohmann::ordered_json playFile(const Playbook& pb, int play, std::optional<int> slot, const std::string& imageName);

}  // namespace zpe
