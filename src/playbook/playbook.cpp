#include "playbook/playbook.h"

#include "model/hex.h"

namespace zpe {

std::string sequenceKeyText(SeqKey key) {
    return key.isNew() ? "new " + std::to_string(key.madeNumber() + 1) : hex4(key.address());
}

std::vector<uint8_t> fileBytes(const Playbook& pb, const std::vector<uint8_t>& headed) {
    return pb.headerless ? withoutHeader(headed) : headed;
}

std::span<const uint8_t> fileSpan(const Playbook& pb) { return fileSpan(pb, pb.openedBytes); }

std::span<const uint8_t> fileSpan(const Playbook& pb, const std::vector<uint8_t>& headed) {
    const std::span<const uint8_t> all(headed);
    if (!pb.headerless) return all;
    return all.size() < static_cast<size_t>(kHeaderSize) ? std::span<const uint8_t>() : all.subspan(static_cast<size_t>(kHeaderSize));
}

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
        if (!other || other->byteSize() != seq.byteSize() || other->commands() != seq.commands() ||
            other->continuation() != seq.continuation() || other->kick() != seq.kick())
            return false;
    }
    return true;
}

}  // namespace zpe
