#pragma once
// The readable forms of the area map: the report of an image check and the
// text of one command as the game runs it.
#include "analysis/area_map.h"
#include "sequence/catalogue.h"

#include <span>
#include <string>

namespace zpe {

// The command's text as the editor writes it, except that a COM pass lists its
// receivers (position and weight) and ends in "-> target", and a branch ends
// in "-> target".
[[nodiscard]] std::string gameCommandText(const GameCommand& c, std::span<const uint8_t> area, const CmdNames& names);

// The plain report: area use with byte counts and free ranges, what Full Save
// would break (counts and the first items of each list), and warnings.
[[nodiscard]] std::string checkReport(const AreaMap& map);

}  // namespace zpe
