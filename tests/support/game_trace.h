#pragma once
// The codes the game runs from an address of a playbook's image, in the order
// of the game's walk: what a test compares to say "the game runs the same".
#include "analysis/area_map.h"

#include <span>
#include <vector>

namespace zpe::test {

inline std::vector<uint8_t> gameCodes(const Playbook& pb, int32_t from) {
    std::vector<uint8_t> codes;
    for (const GameCommand& g : traceFrom(pb.openedBytes, from)) codes.push_back(g.code);
    return codes;
}
// The same from where a table entry of an opened image leads.
inline std::vector<uint8_t> gameCodes(const Playbook& pb, SeqKey entry) { return gameCodes(pb, entry.address()); }

// The codes the game runs from an address in the order it runs them, along
// what falls through and through unconditional jumps (which are not listed:
// a copy that jumps back to the computer's logic runs the same), up to a
// command it stops at or one it already ran.
inline std::vector<uint8_t> runOrder(const Playbook& pb, int32_t from) {
    std::vector<uint8_t> codes, seen(kSequenceAreaSize, 0);
    const std::span<const uint8_t> area = areaBytes(pb.openedBytes);
    for (int32_t at = from; inArea(at) && !seen[static_cast<size_t>(at - kSequenceAreaAddress)];) {
        seen[static_cast<size_t>(at - kSequenceAreaAddress)] = 1;
        GameCommand g;
        if (!readGameCommand(area, at, g)) break;
        const bool jump = g.code == 0xFE || g.code == 0xFF;
        if (!jump) codes.push_back(g.code);
        if (jump) at = g.target;
        else if (g.fallsThrough) at += g.length;
        else break;
    }
    return codes;
}

}  // namespace zpe::test
