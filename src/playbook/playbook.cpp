#include "playbook/playbook.h"

namespace zpe {

bool sameContent(const Playbook& a, const Playbook& b) {
    if (a.playSlots != b.playSlots || a.seqPointers != b.seqPointers || a.formations.size() != b.formations.size()) return false;
    for (size_t p = 0; p < a.plays.size(); ++p)
        for (int j = 0; j < kPlayersPerRecord; ++j)
            if (a.plays[p].seqAddress(j) != b.plays[p].seqAddress(j)) return false;
    for (size_t f = 0; f < a.formations.size(); ++f)
        for (int j = 0; j < kPlayersPerRecord; ++j)
            if (a.formations[f].posAddress(j) != b.formations[f].posAddress(j)) return false;
    if (a.sequences.size() != b.sequences.size()) return false;
    for (const auto& [address, seq] : a.sequences) {
        const clsSequence* other = b.sequences.find(address);
        if (!other || other->byteSize() != seq.byteSize() || other->commands() != seq.commands()) return false;
    }
    return true;
}

}  // namespace zpe
