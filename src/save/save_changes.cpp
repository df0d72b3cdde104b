#include "save/save_changes.h"

#include "analysis/area_map.h"
#include "analysis/entries.h"
#include "model/file_io.h"
#include "model/hex.h"
#include "model/rom_error.h"
#include "playbook/open_rom.h"
#include "playbook/table_codec.h"
#include "save/layout.h"
#include "save/saves.h"
#include "save/verify_write.h"
#include "sequence/command_codes.h"
#include "sequence/command_format.h"

#include <algorithm>
#include <functional>
#include <optional>
#include <unordered_map>
#include <unordered_set>

namespace zpe {

using namespace cmd;

namespace {

// The sequence as the check before the write expects to read it back.
LaidSequence laidOf(const Chain& c) {
    LaidSequence laid;
    laid.key = c.key;
    laid.place = c.place;
    laid.places = c.places;
    laid.targets = c.targets;
    laid.written = c.written;
    laid.end = c.place + static_cast<int32_t>(c.bytes.size());
    laid.continuationAt = c.linkAt;
    laid.continuation = c.continuation;
    laid.tail = c.tail;
    return laid;
}

// Refuses a write that changes bytes the game or the editor reads where the
// save does not mean to: a sequence lying in the tables it rewrites, what an
// entry that starts no valid sequence reads, and bytes outside the area the
// game runs as commands (but in the sequences the save writes).
void refuseRewrittenReadings(const Playbook& pb, const Playbook& old, const AreaMap& map, const LayoutResult& laid,
                             const std::vector<uint8_t>& image, const std::vector<uint8_t>& bytes) {
    auto refuse = [&](const std::string& what) {
        throw SaveError(pb.romPath + ": " + what + ", so the game would run other commands there; nothing was saved", Refusal::WouldNotReopen);
    };
    for (const Chain& c : laid.chains) {
        if (c.written || c.key.isNew() || inArea(c.key.address())) continue;
        if (firstRewritten(c.key.address(), c.oldSize, image, bytes) >= 0)
            throw SaveError(pb.romPath + ": " + sequenceName(c.key) + " lies in the tables this save rewrites (" + hex4(c.key.address()) +
                                "), so it would read differently; nothing was saved",
                            Refusal::WouldNotReopen);
    }
    auto writtenHere = [&](int32_t a) {
        return std::any_of(laid.chains.begin(), laid.chains.end(), [&](const Chain& c) {
            return c.written && a >= c.place && a < c.place + static_cast<int32_t>(c.bytes.size());
        });
    };
    if (const auto [g, at] = rewrittenOutsideCommand(map, image, bytes, writtenHere); g >= 0)
        refuse("the game runs the bytes at " + hex4(g) + " as a command (a path that leaves the sequence area), and this save rewrites them (at " +
               hex4(at) + ")");
    for (const auto& [e, size] : unendedReadings(old, image))
        if (const int32_t at = firstRewritten(e.target.address(), size, image, bytes); at >= 0)
            refuse(e.name() + " reads its commands from " + hex4(e.target.address()) + " on, bytes this save rewrites (at " + hex4(at) + ")");
}

// The image as the editor reads `image`: `asOpened` when that is the open's
// own reading of these very bytes (the same bytes, formation names and a
// complete open), otherwise the bytes read again into `read`.
const Playbook& imageAsRead(const Playbook& pb, const std::vector<uint8_t>& image, const Playbook* asOpened, Playbook& read) {
    if (asOpened && asOpened->openComplete && asOpened->romPath == pb.romPath && asOpened->headerless == pb.headerless &&
        asOpened->openedBytes == image && formationNames(*asOpened) == formationNames(pb))
        return *asOpened;
    try {
        read = readBytesAs(pb, image);
    } catch (const RomError& e) {
        throw SaveError(pb.romPath + ": the image cannot be read as it was opened (" + e.what() + "); nothing was saved",
                        Refusal::WouldNotReopen);
    }
    return read;
}

}  // namespace

std::string SaveSummary::text() const {
    std::string out = "Saved: ";
    if (slotsWritten > 0) out += std::to_string(slotsWritten) + " slot" + (slotsWritten == 1 ? "" : "s") + ", ";
    if (entriesWritten > 0) out += std::to_string(entriesWritten) + " table entr" + (entriesWritten == 1 ? "y" : "ies") + ", ";
    out += std::to_string(inPlace) + " sequence" + (inPlace == 1 ? "" : "s") + " in place, " +
           std::to_string(moved.size()) + " moved";
    if (!moved.empty()) {
        out += " (";
        for (size_t i = 0; i < moved.size(); ++i)
            out += (i ? ", " : "") + hex4(moved[i].first) + " \u2192 " + hex4(moved[i].second);
        out += ")";
    }
    if (!placed.empty()) {
        out += ", " + std::to_string(placed.size()) + " new at ";
        for (size_t i = 0; i < placed.size(); ++i) out += (i ? ", " : "") + hex4(placed[i].second);
    }
    out += ", " + std::to_string(leftOnOldCopies) + " reference" + (leftOnOldCopies == 1 ? "" : "s") +
           " left on old copies, " + std::to_string(freeBytesLeft) + " free bytes left.";
    return out;
}

namespace {

// References the save does not follow (the game's branches, the computer's
// logic, a command the game falls through from): what the game still reaches
// in `after` that leads, from outside them, into a moved sequence's old bytes.
int referencesLeftOnOldCopies(const Playbook& old, const LayoutResult& laid, const AreaMap& after) {
    std::vector<std::pair<int32_t, int32_t>> spans;  // the old bytes of each moved sequence
    for (const auto& [key, place] : laid.moves)
        if (const clsSequence* was = key.placed() ? old.sequences.find(key) : nullptr) spans.emplace_back(key.address(), key.address() + was->byteSize());
    if (spans.empty()) return 0;
    int count = 0;
    for (const GameCommand& g : after.program)
        for (const int32_t to : {g.target, g.fallsThrough ? g.address + g.length : -1}) {
            const bool left = std::any_of(spans.begin(), spans.end(), [&](const auto& s) {
                return to >= s.first && to < s.second && (g.address < s.first || g.address >= s.second);
            });
            count += left ? 1 : 0;
        }
    return count;
}

}  // namespace

SavePlan planSave(const Playbook& edited, const std::vector<uint8_t>& image, const Playbook* asOpened) {
    requireCompleteOpen(edited);
    // The image as the editor reads it now: the old sequences, their bytes, the game's reading.
    Playbook read;
    const Playbook& old = imageAsRead(edited, image, asOpened, read);
    // A changed command shows changed in every sequence that shows it.
    const std::optional<Playbook> shared = withSharedValueEdits(edited, old);
    const Playbook& pb = shared ? *shared : edited;
    // An entry changed to another sequence must read it the same way (a kick
    // formation's position reads its stances as going on).
    refuseMisreadEntries(old, pb);
    const AreaMap map = buildAreaMap(old);
    LayoutResult laid = layOut(pb, old, map, image);
    SavePlan plan;
    SaveLayout layout;
    Image out(pb.romPath, image);
    for (const Chain& c : laid.chains) {
        if (c.written) {
            out.seekOffset(offsetOfAddress(c.place));
            for (uint8_t b : c.bytes) out.writeByte(b);
            if (!c.moved) ++plan.summary.inPlace;
            else if (c.key.isNew()) plan.summary.placed.emplace_back(c.key, c.place);
            else plan.summary.moved.emplace_back(c.key.address(), c.place);
        }
        layout.sequences.push_back(laidOf(c));
    }
    // What an entry names once written: where its sequence now stands.
    auto remapped = [&](SeqKey key) {
        const auto it = laid.moves.find(key);
        return it == laid.moves.end() ? key : SeqKey::at(it->second);
    };
    auto writeEntry = [&](int32_t offset, SeqKey value, SeqKey before) {
        if (value == before) return;
        ++plan.summary.entriesWritten;
        out.seekOffset(offset);
        out.writeWord(value.address());
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
    plan.summary.freeBytesLeft = laid.freeBytesLeft;
    plan.bytes = out.takeShared();
    refuseRewrittenReadings(pb, old, map, laid, image, plan.bytes);
    AreaMap after;  // the game's reading of the bytes written, as the check made it
    plan.written = verifyWrite(pb, old, plan.bytes, layout, &map, &after);
    plan.layout = std::move(layout);

    plan.summary.leftOnOldCopies = referencesLeftOnOldCopies(old, laid, after);
    return plan;
}

SaveSummary saveChanges(Playbook& pb, const std::function<void(const SaveSummary&)>& confirm, const std::vector<uint8_t>* fileHolds,
                        const Playbook* asOpened) {
    requireUnchangedImage(pb, fileHolds);
    SavePlan plan = planSave(pb, pb.openedBytes, asOpened);
    if (fileHolds ? plan.bytes == *fileHolds : plan.bytes == pb.openedBytes) {
        plan.summary.nothingToWrite = true;  // a rewrite would only change the file's time and inode
        if (confirm) confirm(plan.summary);
        return plan.summary;
    }
    replaceFileContents(pb.romPath, fileSpan(pb, plan.bytes), confirm ? std::function<void()>([&] { confirm(plan.summary); }) : nullptr);
    pb = std::move(plan.written);  // what the file now holds, as the check read it: no second read of the disk
    return plan.summary;
}

SaveSummary saveChangesAs(Playbook& pb, const std::string& newPath, const std::string& dataDir) {
    requireCompleteOpen(pb);
    SavePlan plan = planSave(pb, pb.openedBytes);
    replaceFileContents(newPath, fileBytes(pb, plan.bytes));  // the new file keeps the image's form
    pb = openRom(newPath, dataDir);
    return plan.summary;
}

}  // namespace zpe
