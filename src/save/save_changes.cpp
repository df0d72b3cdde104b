#include "save/save_changes.h"

#include "analysis/area_map.h"
#include "model/file_io.h"
#include "model/hex.h"
#include "model/rom_error.h"
#include "playbook/open_rom.h"
#include "playbook/table_codec.h"
#include "save/saves.h"
#include "sequence/command_codes.h"

#include <algorithm>
#include <optional>
#include <unordered_map>

namespace zpe {

using namespace cmd;

namespace {

using Moves = std::unordered_map<int32_t, int32_t>;  // old start -> new start

int32_t word(int16_t lo, int16_t hi) { return (lo & 0xFF) + 256 * (hi & 0xFF); }

// The address a command names (jump or branch target), by the addresses its
// commands had when the sequence was read; none for other commands.
std::optional<int32_t> namedAddress(const SeqCommand& c) {
    switch (c.command) {
    case kAbsoluteJump: case kBranchComVsHuman: case kBranchNotHuman: case kBranchComBoost:
        return word(c.data[0], c.data[1]);
    case kRandomBranch: return word(c.data[1], c.data[2]);
    case kRelativeJump: {
        const int32_t offset = c.data[0] & 0xFF;
        return c.address + (offset >= kBackwardOffset ? offset - 256 : offset);
    }
    default: return std::nullopt;
    }
}

void setAddress(int16_t& lo, int16_t& hi, int32_t target) {
    lo = static_cast<int16_t>(target & 0xFF);
    hi = static_cast<int16_t>((target >> 8) & 0xFF);
}

// The bytes of `seq` with its first byte at `at`. Addresses that name one of
// its own commands (by the address the command had in the old bytes
// [oldStart, oldStart + oldSize)) follow that command; a closing absolute jump
// to a sequence in `moves` follows it to its new start; a closing relative
// jump is re-expressed for its place, as an absolute jump when out of reach.
std::vector<uint8_t> encodeAt(const clsSequence& seq, int32_t oldStart, int32_t oldSize, int32_t at, const Moves& moves) {
    std::vector<SeqCommand> cmds = seq.commands();
    std::unordered_map<int32_t, size_t> byOldAddress;
    std::vector<int32_t> position(cmds.size());
    int32_t next = at;
    for (size_t i = 0; i < cmds.size(); ++i) {
        if (cmds[i].address >= oldStart && cmds[i].address < oldStart + oldSize) byOldAddress.emplace(cmds[i].address, i);
        position[i] = next;
        next += cmds[i].encodedSize();
    }
    for (size_t i = 0; i < cmds.size(); ++i) {
        SeqCommand& c = cmds[i];
        const std::optional<int32_t> named = namedAddress(c);
        if (!named) continue;
        int32_t target = *named;
        if (const auto own = byOldAddress.find(target); own != byOldAddress.end()) target = position[own->second];
        else if (const auto moved = moves.find(target); moved != moves.end() && c.command == kAbsoluteJump) target = moved->second;

        if (c.command == kRandomBranch) {
            setAddress(c.data[1], c.data[2], target);
        } else if (c.command != kRelativeJump) {
            setAddress(c.data[0], c.data[1], target);
        } else if (i + 1 == cmds.size()) {
            const int32_t offset = target - position[i];
            if (offset >= -128 && offset <= 127) {
                c.data[0] = static_cast<int16_t>(offset & 0xFF);
            } else {
                c.command = kAbsoluteJump;
                c.dataLen = 2;
                setAddress(c.data[0], c.data[1], target);
            }
        }
    }
    return encodeCommands(cmds);
}

std::vector<uint8_t> bytesAt(const std::vector<uint8_t>& image, int32_t address, int32_t size) {
    const int32_t offset = offsetOfAddress(address);
    if (offset < 0 || size <= 0 || static_cast<size_t>(offset) >= image.size()) return {};
    const auto end = std::min(image.size(), static_cast<size_t>(offset) + static_cast<size_t>(size));
    return std::vector<uint8_t>(image.begin() + offset, image.begin() + static_cast<std::ptrdiff_t>(end));
}

std::string name(int32_t address) { return "sequence " + hex4(address); }

struct Change {
    int32_t address = 0;
    int32_t oldSize = 0;
    const clsSequence* seq = nullptr;
    std::vector<uint8_t> bytes;  // its encoding at its own address
};

}  // namespace

std::string SaveSummary::text() const {
    std::string out = "Saved: ";
    if (slotsWritten > 0) out += std::to_string(slotsWritten) + " slot" + (slotsWritten == 1 ? "" : "s") + ", ";
    out += std::to_string(inPlace) + " sequence" + (inPlace == 1 ? "" : "s") + " in place, " +
           std::to_string(moved.size()) + " moved";
    if (!moved.empty()) {
        out += " (";
        for (size_t i = 0; i < moved.size(); ++i)
            out += (i ? ", " : "") + hex4(moved[i].first) + " \u2192 " + hex4(moved[i].second);
        out += ")";
    }
    out += ", " + std::to_string(leftOnOldCopies) + " reference" + (leftOnOldCopies == 1 ? "" : "s") +
           " left on old copies, " + std::to_string(freeBytesLeft) + " free bytes left.";
    return out;
}

SavePlan planSave(const Playbook& pb, const std::vector<uint8_t>& image) {
    requireCompleteOpen(pb);
    // The image as the editor reads it now: the old sequences, their bytes, the area map.
    std::vector<std::string> formNames;
    for (const clsFormation& f : pb.formations) formNames.push_back(f.name());
    Image reading(pb.romPath, image);
    Playbook old;
    try {
        old = loadPlaybook(reading, formNames);
    } catch (const RomError& e) {
        throw SaveError(pb.romPath + ": the image cannot be read as it was opened (" + e.what() + "); nothing was saved");
    }
    old.openedBytes = image;
    const AreaMap map = buildAreaMap(old);
    std::vector<AreaRun> free = map.freeRuns();

    // Sequences whose bytes changed.
    std::vector<Change> changes;
    for (const auto& [address, seq] : pb.sequences) {
        const clsSequence* before = old.sequences.find(address);
        if (!before)
            throw SaveError(pb.romPath + ": " + name(address) + " is no longer in the image as it was opened; open it again");
        const int32_t oldSize = before->byteSize();
        std::vector<uint8_t> bytes = encodeAt(seq, address, oldSize, address, {});
        if (static_cast<int32_t>(bytes.size()) == oldSize && bytes == bytesAt(image, address, oldSize)) continue;
        changes.push_back({address, oldSize, &seq, std::move(bytes)});
    }
    std::vector<Change> byAddress = changes;
    std::sort(byAddress.begin(), byAddress.end(), [](const Change& a, const Change& b) { return a.address < b.address; });
    for (size_t i = 0; i + 1 < byAddress.size(); ++i)
        if (byAddress[i].address + byAddress[i].oldSize > byAddress[i + 1].address)
            throw SaveError(pb.romPath + ": " + name(byAddress[i].address) + " and " + name(byAddress[i + 1].address) +
                            " were both changed and share bytes in the image; nothing was saved");

    // Sequences that outgrew their bytes move into the first free run that holds them.
    Moves moves;
    std::vector<std::pair<int32_t, int32_t>> moveOrder;
    std::vector<Change> inPlace;
    for (const Change& c : changes) {
        std::vector<uint8_t> bytes = c.bytes;
        if (static_cast<int32_t>(bytes.size()) <= c.oldSize) {
            inPlace.push_back(c);
            continue;
        }
        if (c.seq->readsDifferentlyByGame() || old.sequences.at(c.address).readsDifferentlyByGame())
            throw SaveError(pb.romPath + ": " + name(c.address) +
                            " holds a COM pass or 0xF1, which the game reads with other lengths, and would have to move; "
                            "it can only be changed within its " + std::to_string(c.oldSize) + " bytes. Nothing was saved");
        auto need = static_cast<int32_t>(bytes.size());
        std::optional<size_t> chosen;
        for (int attempt = 0; attempt < 2 && !chosen; ++attempt) {
            const auto run = std::find_if(free.begin(), free.end(), [&](const AreaRun& r) { return r.size() >= need; });
            if (run == free.end()) break;
            bytes = encodeAt(*c.seq, c.address, c.oldSize, run->start, {});
            if (static_cast<int32_t>(bytes.size()) <= run->size()) chosen = static_cast<size_t>(run - free.begin());
            else need = static_cast<int32_t>(bytes.size());  // its relative jump became absolute there
        }
        if (!chosen) {
            int32_t largest = 0;
            for (const AreaRun& r : free) largest = std::max(largest, r.size());
            throw SaveError(pb.romPath + ": " + name(c.address) + " needs " + std::to_string(need) +
                            " bytes, but the largest free run of the sequence area holds " + std::to_string(largest) +
                            "; nothing was saved");
        }
        AreaRun& run = free[*chosen];
        moves.emplace(c.address, run.start);
        moveOrder.emplace_back(c.address, run.start);
        run.start += static_cast<int32_t>(bytes.size());
        if (run.start > run.end) free.erase(free.begin() + static_cast<std::ptrdiff_t>(*chosen));
    }

    // A sequence changed in place must not write over another sequence's bytes.
    for (const Change& c : inPlace)
        for (const auto& [address, seq] : old.sequences)
            if (address != c.address && address < c.address + c.oldSize && address + seq.byteSize() > c.address)
                throw SaveError(pb.romPath + ": " + name(c.address) + " shares bytes with " + name(address) +
                                "; changing it in place would change that one too. Nothing was saved");

    SavePlan plan;
    Image out(pb.romPath, image);
    for (const auto& [address, seq] : pb.sequences) {
        const int32_t oldSize = old.sequences.at(address).byteSize();
        const auto moved = moves.find(address);
        const int32_t at = moved == moves.end() ? address : moved->second;
        const std::vector<uint8_t> bytes = encodeAt(seq, address, oldSize, at, moves);
        if (moved == moves.end()) {
            if (static_cast<int32_t>(bytes.size()) == oldSize && bytes == bytesAt(image, address, oldSize)) continue;
            ++plan.summary.inPlace;
        }
        out.seekOffset(offsetOfAddress(at));
        for (uint8_t b : bytes) out.writeByte(b);
    }

    auto remapped = [&](int32_t a) {
        const auto it = moves.find(a);
        return it == moves.end() ? a : it->second;
    };
    auto writeEntry = [&](int32_t offset, int32_t value, int32_t before) {
        if (value == before) return;
        out.seekOffset(offset);
        out.writeWord(value);
    };
    for (int i = 0; i < kPointerCount; ++i)
        writeEntry(pointerEntryOffset(i), remapped(pb.seqPointers[static_cast<size_t>(i)]), old.seqPointers[static_cast<size_t>(i)]);
    for (int p = 0; p < kPlayCount; ++p)
        for (int j = 0; j < kPlayersPerRecord; ++j)
            writeEntry(playEntryOffset(p, j), remapped(pb.plays[static_cast<size_t>(p)].seqAddress(j)),
                       old.plays[static_cast<size_t>(p)].seqAddress(j));
    for (size_t f = 0; f < pb.formations.size() && f < old.formations.size(); ++f)
        for (int j = 0; j < kPlayersPerRecord; ++j)
            writeEntry(formationEntryOffset(static_cast<int>(f), j), remapped(pb.formations[f].posAddress(j)),
                       old.formations[f].posAddress(j));
    for (int s = 0; s < kSlotCount; ++s) {
        if (pb.playSlots[static_cast<size_t>(s)] == old.playSlots[static_cast<size_t>(s)]) continue;
        writeSlot(pb, out, s);
        ++plan.summary.slotsWritten;
    }

    // References the save cannot follow: address fields of the game, and the
    // editor's closing relative jumps, that name a moved sequence's old start.
    for (const auto& [from, to] : moveOrder) {
        const int32_t end = from + old.sequences.at(from).byteSize();
        for (const AddressField& f : map.fields)
            if (f.target == from && (f.at < from || f.at >= end)) ++plan.summary.leftOnOldCopies;
        for (const auto& [address, seq] : pb.sequences) {
            if (address == from || seq.commandCount() == 0) continue;
            const SeqCommand& last = seq.commands().back();
            if (last.command == kRelativeJump && namedAddress(last) == from) ++plan.summary.leftOnOldCopies;
        }
    }
    plan.summary.moved = std::move(moveOrder);
    for (const AreaRun& r : free) plan.summary.freeBytesLeft += r.size();
    plan.bytes = out.bytes();
    return plan;
}

SaveSummary saveChanges(Playbook& pb, const std::string& dataDir) {
    SavePlan plan = planSave(pb, readUnchangedImage(pb));
    replaceFileContents(pb.romPath, plan.bytes);
    pb = openRom(pb.romPath, dataDir);
    return plan.summary;
}

}  // namespace zpe
