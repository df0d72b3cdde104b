#pragma once
// The codes the game runs from an address of a playbook's image, in the order
// of the game's walk: what a test compares to say "the game runs the same".
#include "analysis/area_map.h"

#include <vector>

namespace zpe::test {

inline std::vector<uint8_t> gameCodes(const Playbook& pb, int32_t from) {
    std::vector<uint8_t> codes;
    for (const GameCommand& g : traceFrom(areaBytes(pb.openedBytes), from)) codes.push_back(g.code);
    return codes;
}

}  // namespace zpe::test
