#include "analysis/playbook_diff.h"

#include "analysis/area_map.h"
#include "model/hex.h"

#include <algorithm>
#include <map>
#include <optional>

namespace zpe {

namespace {

std::string quoted(const std::string& s) { return "\"" + s + "\""; }

// The region of the image a file offset lies in, for bytes no table or sequence explains.
std::string regionOf(int32_t offset) {
    if (offset < kFormationTableOffset) return offset < 0x10 ? "the header" : "program data before the tables";
    if (offset < kPointerTableOffset + 2 * kPointerCount) return "the formation, play and pointer tables";
    if (offset >= kSequenceAreaOffset && offset < kSequenceAreaOffset + kSequenceAreaSize) return "the sequence area";
    if (offset >= kOffSlotTableOffset && offset < kGfxTableOffset + kGfxRecordSize * kSlotCount) return "the slot tables";
    return "other program data";
}

void slotDifferences(const clsPlaySlot& a, const clsPlaySlot& b, int s, std::vector<std::string>& out) {
    const std::string slot = "slot " + std::to_string(s) + ": ";
    if (a.name() != b.name()) out.push_back(slot + "name " + quoted(a.name()) + " -> " + quoted(b.name()));
    if (a.formation() != b.formation())
        out.push_back(slot + "formation " + std::to_string(a.formation()) + " -> " + std::to_string(b.formation()));
    for (int k = 0; k < kPlaysPerSlot; ++k) {
        if (a.oPlay(k) != b.oPlay(k))
            out.push_back(slot + "offensive play " + std::to_string(k + 1) + " " + hex2(a.oPlay(k)) + " -> " + hex2(b.oPlay(k)));
        if (a.dPlay(k) != b.dPlay(k))
            out.push_back(slot + "defensive play " + std::to_string(k + 1) + " " + hex2(a.dPlay(k)) + " -> " + hex2(b.dPlay(k)));
    }
    if (a.Rusher() != b.Rusher())
        out.push_back(slot + "rusher " + std::to_string(a.Rusher()) + " -> " + std::to_string(b.Rusher()));
    int gfx = 0;
    for (int k = 0; k < kGfxRecordSize; ++k) gfx += a.GFX(k) != b.GFX(k);
    if (gfx) out.push_back(slot + std::to_string(gfx) + " graphics bytes");
}

}  // namespace

std::vector<std::string> describeDifferences(const Playbook& original, const Playbook& edited) {
    std::vector<std::string> out;
    for (int s = 0; s < kSlotCount; ++s)
        slotDifferences(original.playSlots[static_cast<size_t>(s)], edited.playSlots[static_cast<size_t>(s)], s, out);

    std::map<SeqKey, SeqKey> renamed;  // an entry's old sequence -> its new one
    auto entry = [&](SeqKey a, SeqKey b, const std::string& what) {
        if (a == b) return;
        out.push_back(what + ": " + sequenceKeyText(a) + " -> " + sequenceKeyText(b));
        renamed.emplace(a, b);
    };
    for (int p = 0; p < kPlayCount; ++p)
        for (int j = 0; j < kPlayersPerRecord; ++j)
            entry(original.plays[static_cast<size_t>(p)].seqAddress(j), edited.plays[static_cast<size_t>(p)].seqAddress(j),
                  AreaEntry{AreaEntry::Table::Play, p, j, {}}.name());
    for (size_t f = 0; f < original.formations.size() && f < edited.formations.size(); ++f)
        for (int j = 0; j < kPlayersPerRecord; ++j)
            entry(original.formations[f].posAddress(j), edited.formations[f].posAddress(j),
                  AreaEntry{AreaEntry::Table::Formation, static_cast<int>(f), j, {}}.name());
    for (int i = 0; i < kPointerCount; ++i)
        entry(original.seqPointers[static_cast<size_t>(i)], edited.seqPointers[static_cast<size_t>(i)], AreaEntry{AreaEntry::Table::Pointer, i, 0, {}}.name());

    // Bytes a sequence explains, by file offset.
    std::vector<bool> explained(std::max(original.openedBytes.size(), edited.openedBytes.size()), false);
    auto explain = [&](const Playbook& pb) {
        for (const auto& [key, seq] : pb.sequences) {
            if (key.isNew()) continue;  // in no image yet
            const int32_t from = offsetOfAddress(key.address());
            for (int32_t o = from; o < from + seq.byteSize(); ++o)
                if (o >= 0 && static_cast<size_t>(o) < explained.size()) explained[static_cast<size_t>(o)] = true;
        }
    };
    explain(original);
    explain(edited);

    for (const auto& [key, seq] : original.sequences) {
        const clsSequence* now = edited.sequences.find(key);
        if (now && now->encode() != seq.encode()) out.push_back("sequence " + sequenceKeyText(key) + " changed");
    }
    for (const auto& [key, seq] : edited.sequences) {
        if (original.sequences.contains(key)) continue;
        std::optional<SeqKey> from;  // the sequence an entry named before it named this one
        for (const auto& [a, b] : renamed)
            if (b == key && original.sequences.contains(a)) from = a;
        // Moved when the old sequence is gone; a new one run instead of it when the old one is still there.
        const std::string name = sequenceKeyText(key);
        if (!from) out.push_back("sequence " + name + " added");
        else if (edited.sequences.contains(*from)) out.push_back("sequence " + name + " added, run instead of " + sequenceKeyText(*from));
        else out.push_back("sequence " + sequenceKeyText(*from) + " moved to " + name);
    }

    std::map<std::string, int> other;
    const std::vector<uint8_t>& a = original.openedBytes;
    const std::vector<uint8_t>& b = edited.openedBytes;
    const int32_t tablesEnd = kPointerTableOffset + 2 * kPointerCount;
    const int32_t slotsStart = kOffSlotTableOffset, slotsEnd = kGfxTableOffset + kGfxRecordSize * kSlotCount;
    for (size_t i = 0; i < std::max(a.size(), b.size()); ++i) {
        if (i < a.size() && i < b.size() && a[i] == b[i]) continue;
        const auto offset = static_cast<int32_t>(i);
        const bool table = (offset >= kFormationTableOffset && offset < tablesEnd) || (offset >= slotsStart && offset < slotsEnd);
        if (table || explained[i]) continue;
        ++other[regionOf(offset)];
    }
    for (const auto& [region, count] : other) out.push_back(std::to_string(count) + " other bytes in " + region);
    if (a.size() != b.size()) out.push_back("size " + std::to_string(a.size()) + " -> " + std::to_string(b.size()) + " bytes");
    return out;
}

}  // namespace zpe
