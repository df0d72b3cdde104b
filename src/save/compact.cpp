#include "save/compact.h"

#include "analysis/area_map.h"
#include "model/file_io.h"
#include "model/hex.h"
#include "model/rom_error.h"
#include "playbook/open_rom.h"
#include "playbook/table_codec.h"
#include "save/saves.h"
#include "save/verify_write.h"
#include "sequence/command_format.h"

#include <algorithm>

namespace zpe {

namespace {

constexpr uint8_t kBlankByte = 0xFF;  // what fills the area after the last kept byte, as Full Save fills it

size_t areaIndex(int32_t address) { return static_cast<size_t>(address - kSequenceAreaAddress); }

// An address field of the area: `at` holds a one-byte offset from `owner`
// (relative) or a little-endian address.
struct Field {
    int32_t at = 0;
    int32_t owner = 0;
    bool relative = false;
    int32_t target = 0;
};

// The fields the game reads, then those of editor commands the game never runs.
std::vector<Field> fieldsOf(const Playbook& old, const AreaMap& map, std::span<const uint8_t> area) {
    std::vector<Field> fields;
    std::vector<uint8_t> gameStart(kSequenceAreaSize, 0);
    for (const GameCommand& g : map.program) {
        const int32_t a = g.address;
        gameStart[areaIndex(a)] = 1;
        if (g.target < 0) continue;
        const size_t i = areaIndex(a);
        const CommandFormat f = commandFormat(g.code, false, i + 1 < area.size() ? area[i + 1] : -1);
        fields.push_back({a + f.fieldAt, a, f.field == FieldKind::Relative, g.target});
    }
    for (const auto& [key, seq] : old.sequences) {
        int32_t at = key.address();
        const std::vector<int32_t> targets = seq.fieldTargets();
        int i = 0;
        for (const SeqCommand& c : seq.commands()) {
            const auto [lo, hi] = addressFieldData(c);
            bool gameBytes = false;
            for (int32_t b = at; b < at + c.encodedSize(); ++b) gameBytes |= inArea(b) && (map.use[areaIndex(b)] & kUseGame);
            if (lo >= 0 && inArea(at) && !gameBytes && !gameStart[areaIndex(at)])
                fields.push_back({at + byteOfData(c.command, lo), at, hi < 0, targets[static_cast<size_t>(i)]});
            ++i;
            at += c.encodedSize();
        }
    }
    return fields;
}

// The compaction read back: the game runs from every entry what it ran before
// (each command with its code and operands, every successor the moved one),
// and the editor's sequences decode to the same commands.
void verifyCompaction(const Playbook& old, const AreaMap& map, const CompactPlan& plan) {
    auto fail = [&](const std::string& what) {
        throw VerifyError(old.romPath + ": internal error: reading back the compacted image, " + what + "; nothing was written");
    };
    Playbook again;
    try {
        again = readBytesAs(old, plan.bytes);
    } catch (const RomError& e) {
        fail(std::string("it would not open (") + e.what() + ")");
    }
    const std::string entries = entryDifference(old, again, [&](const AreaEntry& e) { return plan.moved(e.target); });
    if (!entries.empty()) fail(entries);

    const std::span<const uint8_t> oldArea = areaBytes(old.openedBytes), newArea = areaBytes(plan.bytes);
    const AreaMap now = buildAreaMap(again);
    if (now.commands.size() != map.commands.size())
        fail("the game would run " + std::to_string(now.commands.size()) + " commands, not " + std::to_string(map.commands.size()));
    for (int32_t a : map.commands) {
        GameCommand was, is;
        const int32_t m = plan.moved(a);
        if (m < 0 || !readGameCommand(oldArea, a, was) || !readGameCommand(newArea, m, is))
            fail("the command at " + hex4(a) + " would not be found at its new place");
        if (is.code != was.code || is.length != was.length || is.fallsThrough != was.fallsThrough)
            fail("the command at " + hex4(a) + " would read differently at " + hex4(m));
        if (was.target >= 0 && is.target != plan.moved(was.target))
            fail("the command at " + hex4(a) + " would lead to " + hex4(is.target) + ", not " + hex4(plan.moved(was.target)));
        if (was.fallsThrough && plan.moved(a + was.length) != m + is.length)
            fail("the command at " + hex4(a) + " would no longer be followed by the one after it");
        const CommandFormat f = commandFormat(was.code, false, -1);
        for (int32_t k = 1; k < was.length; ++k) {
            const bool field = f.field != FieldKind::None && k >= f.fieldAt && k < f.fieldAt + (f.field == FieldKind::Word ? 2 : 1);
            if (!field && oldArea[areaIndex(a) + static_cast<size_t>(k)] != newArea[areaIndex(m) + static_cast<size_t>(k)])
                fail("the operands of the command at " + hex4(a) + " would change");
        }
    }
    for (const auto& [key, seq] : old.sequences) {
        const clsSequence* back = again.sequences.find(plan.moved(key));
        if (!back || back->commandCount() != seq.commandCount())
            fail("sequence " + hex4(key.address()) + " would not read back at " + hex4(plan.moved(key.address())) + " with its commands");
        const bool readsDifferently = seq.readsDifferentlyByGame();
        const std::vector<int32_t> wantTargets = seq.fieldTargets(), gotTargets = back->fieldTargets();
        for (int i = 0; i < seq.commandCount(); ++i) {
            if (back->command(i) != seq.command(i) || back->dataLen(i) != seq.dataLen(i))
                fail("command " + std::to_string(i) + " of sequence " + hex4(key.address()) + " would read back differently");
            if (readsDifferently) continue;  // its editor data may hold a field the game reads
            const auto [lo, hi] = addressFieldData(seq.commands()[static_cast<size_t>(i)]);
            if (lo >= 0 && gotTargets[static_cast<size_t>(i)] != plan.moved(wantTargets[static_cast<size_t>(i)]))
                fail("command " + std::to_string(i) + " of sequence " + hex4(key.address()) + " would lead elsewhere");
            for (int d = 0; d < seq.dataLen(i); ++d)
                if (d != lo && d != hi && back->data(i, d) != seq.data(i, d))
                    fail("command " + std::to_string(i) + " of sequence " + hex4(key.address()) + " would read back with other data");
        }
    }
}

// Every address field the game reads, and those of editor commands it
// never runs, relinked in `packed` to where its target now stands. Refuses
// (SaveError) a field leading to a dropped byte, and one whose bytes another
// command shares or the editor reads as a code, where relinking would change that.
void relinkFields(const Playbook& old, const AreaMap& map, std::span<const uint8_t> area, CompactPlan& plan,
                  std::vector<uint8_t>& packed) {
    const std::string& path = old.romPath;
    // Which command the game runs each byte as part of (two: shared).
    std::vector<int32_t> cover(kSequenceAreaSize, -1);
    std::vector<uint8_t> shared(kSequenceAreaSize, 0);
    for (const GameCommand& g : map.program) {
        const int32_t a = g.address;
        for (int32_t b = a; b < a + g.length; ++b) {
            if (cover[areaIndex(b)] >= 0 && cover[areaIndex(b)] != a) shared[areaIndex(b)] = 1;
            else cover[areaIndex(b)] = a;
        }
    }
    // Where the editor reads a command's code byte: a relinked address must not change what it reads there.
    std::vector<uint8_t> editorCode(kSequenceAreaSize, 0);
    for (const auto& [key, seq] : old.sequences) {
        int32_t at = key.address();
        for (const SeqCommand& c : seq.commands()) {
            if (inArea(at)) editorCode[areaIndex(at)] = 1;
            at += c.encodedSize();
        }
    }
    auto sharer = [&](int32_t byte, int32_t owner) {
        for (const GameCommand& g : map.program)
            if (g.address != owner && byte >= g.address && byte < g.address + g.length) return g.address;
        return owner;
    };
    for (const Field& f : fieldsOf(old, map, area)) {
        if (inArea(f.target) && plan.moved(f.target) < 0)
            throw SaveError(path + ": the field of the command at " + hex4(f.owner) + " leads to " + hex4(f.target) +
                            ", where nothing is kept; nothing was written");
        const auto at = static_cast<size_t>(plan.moved(f.at) - kSequenceAreaAddress);
        // Within the area the order is kept, so no distance grows; a target
        // outside it stays where it is while the jump moves away from it.
        const int32_t owner = plan.moved(f.owner), target = plan.moved(f.target);
        if (f.relative && !relativeReaches(owner, target, target < owner))
            throw SaveError(path + ": the relative jump at " + hex4(f.owner) + " leads out of the area to " + hex4(f.target) +
                                ", which stays where it is; moved to " + hex4(owner) + " it could not reach it; nothing was written",
                            Refusal::CannotMove);
        const FieldBytes value = fieldBytes(f.relative ? FieldKind::Relative : FieldKind::Word, owner, target);
        bool changed = false;
        for (size_t k = 0; k < static_cast<size_t>(value.count); ++k) {
            if (packed[at + k] == value.bytes[k]) continue;
            const int32_t byte = f.at + static_cast<int32_t>(k);
            if (shared[areaIndex(byte)])
                throw SaveError(path + ": the commands at " + hex4(f.owner) + " and " + hex4(sharer(byte, f.owner)) +
                                " share the bytes of an address that moves; relinking one would change the other. Nothing was written");
            if (editorCode[areaIndex(byte)]) {
                const CommandFormat was = commandFormat(packed[at + k], false, -1), now = commandFormat(value.bytes[k], false, -1);
                if (was.command != now.command || was.editorLength != now.editorLength)
                    throw SaveError(path + ": the address the command at " + hex4(f.owner) + " holds at " + hex4(byte) +
                                    " is a command for the editor, which relinking would change; nothing was written");
            }
            packed[at + k] = value.bytes[k];
            changed = true;
        }
        plan.summary.fieldsRelinked += changed ? 1 : 0;
    }
}

// Sequences outside the area keep their bytes, so they can neither lead
// into it (their addresses would go stale) nor lie in the tables rewritten here.
void refuseOutsideSequences(const Playbook& old, const CompactPlan& plan) {
    const std::string& path = old.romPath;
    for (const auto& [key, seq] : old.sequences) {
        const int32_t start = key.address();
        if (inArea(start) && inArea(start + seq.byteSize() - 1)) continue;
        const int32_t from = offsetOfAddress(start);
        for (int32_t o = std::max(from, 0); o < from + seq.byteSize() && o < static_cast<int32_t>(plan.bytes.size()); ++o)
            if (!inArea(addressOfOffset(o)) && plan.bytes[static_cast<size_t>(o)] != old.openedBytes[static_cast<size_t>(o)])
                throw SaveError(path + ": sequence " + hex4(start) + " lies in the tables compaction rewrites; nothing was written");
        const std::vector<int32_t> targets = seq.fieldTargets();
        for (int i = 0; i < seq.commandCount(); ++i) {
            const int32_t t = targets[static_cast<size_t>(i)];
            if (t != clsSequence::kNoField && inArea(t) && plan.moved(t) != t)
                throw SaveError(path + ": sequence " + hex4(start) + ", outside the sequence area, leads into it at " + hex4(t) +
                                ", which moves; nothing was written");
        }
    }

}

}  // namespace

int32_t CompactPlan::moved(int32_t address) const {
    if (!inArea(address) || newAddress.empty()) return address;
    return newAddress[areaIndex(address)];
}

SeqKey CompactPlan::moved(SeqKey key) const {
    if (key.isNew()) return key;
    const int32_t m = moved(key.address());
    return m < 0 ? key : SeqKey::at(m);
}

std::string CompactSummary::text() const {
    return "Compacted: " + thousands(keptBytes) + " bytes the game runs, " + thousands(freeBytes) + " free in one run from " +
           hex4(freeStart) + " (before: " + thousands(runsBefore) + " run" + (runsBefore == 1 ? "" : "s") + ", largest " +
           thousands(largestBefore) + " bytes); " + thousands(fieldsRelinked) + " address field" +
           (fieldsRelinked == 1 ? "" : "s") + " relinked.";
}

CompactPlan planCompact(const Playbook& pb) {
    requireCompleteOpen(pb);
    const std::string& path = pb.romPath;
    Playbook old;
    try {
        old = readBytesAs(pb, pb.openedBytes);
    } catch (const RomError& e) {
        throw SaveError(path + ": the image cannot be read as it was opened (" + e.what() + "); nothing was written");
    }
    const std::span<const uint8_t> area = areaBytes(old.openedBytes);
    if (area.size() < static_cast<size_t>(kSequenceAreaSize))
        throw SaveError(path + ": the image ends inside the sequence area; nothing was written");
    const AreaMap map = buildAreaMap(old);
    if (!map.runsOff.empty())
        throw SaveError(path + ": the game runs off the end of the sequence area from " + hex4(map.runsOff.front()) +
                        " (into whatever follows the area), which a new layout cannot keep; nothing was written");

    CompactPlan plan;
    plan.newAddress.assign(kSequenceAreaSize, -1);
    std::vector<uint8_t> packed;
    packed.reserve(kSequenceAreaSize);
    for (size_t i = 0; i < map.use.size(); ++i) {
        if (map.use[i] == 0) continue;
        plan.newAddress[i] = kSequenceAreaAddress + static_cast<int32_t>(packed.size());
        packed.push_back(area[i]);
    }

    relinkFields(old, map, area, plan, packed);

    Playbook relinked = old;
    for (auto& pointer : relinked.seqPointers) pointer = plan.moved(pointer);
    for (auto& form : relinked.formations)
        for (int j = 0; j < kPlayersPerRecord; ++j) form.posAddress(j, plan.moved(form.posAddress(j)));
    for (auto& play : relinked.plays)
        for (int j = 0; j < kPlayersPerRecord; ++j)
            if (!play.seqAddress(j).isNone()) play.seqAddress(j, plan.moved(play.seqAddress(j)));
    const std::vector<AreaEntry> was = playbookEntries(old), now = playbookEntries(relinked);
    for (size_t e = 0; e < was.size() && e < now.size(); ++e) plan.summary.fieldsRelinked += was[e].target != now[e].target;

    Image out(path, old.openedBytes);
    out.seekOffset(kSequenceAreaOffset);
    for (uint8_t b : packed) out.writeByte(b);
    for (size_t i = packed.size(); i < static_cast<size_t>(kSequenceAreaSize); ++i) out.writeByte(kBlankByte);
    writeTables(relinked, out, kFormationTable | kPlayTable | kPointerTable);
    plan.bytes = out.bytes();

    refuseOutsideSequences(old, plan);

    const std::vector<AreaRun> runs = map.freeRuns();
    plan.summary.runsBefore = static_cast<int>(runs.size());
    for (const AreaRun& r : runs) plan.summary.largestBefore = std::max(plan.summary.largestBefore, r.size());
    plan.summary.keptBytes = static_cast<int32_t>(packed.size());
    plan.summary.freeStart = kSequenceAreaAddress + plan.summary.keptBytes;
    plan.summary.freeBytes = kSequenceAreaSize - plan.summary.keptBytes;
    verifyCompaction(old, map, plan);
    return plan;
}

Playbook carryOver(const Playbook& pb, const CompactPlan& plan) {
    Playbook out = pb;
    auto moved = [&](int32_t a) {
        const int32_t m = plan.moved(a);
        return m < 0 ? a : m;
    };
    SequenceMap sequences;
    for (const auto& [key, seq] : pb.sequences) {
        std::vector<SeqCommand> cmds = seq.commands();
        for (SeqCommand& c : cmds) {
            // A command read from the image is known by where it was read, which moved.
            auto carried = [&](CmdId id) { return id.isNew() ? id : CmdId::readAt(moved(id.readAddress())); };
            c.origin = carried(c.origin);
            if (c.field.kind == FieldRef::Kind::Command) c.field.command = carried(c.field.command);
            if (c.field.kind == FieldRef::Kind::Address) c.field.address = moved(c.field.address);
        }
        clsSequence carried = seq;
        carried.key(plan.moved(key));
        carried.assign(std::move(cmds));
        if (carried.continuation() >= 0) carried.continuation(moved(carried.continuation()));
        sequences.insert(plan.moved(key), std::move(carried));
    }
    out.sequences = std::move(sequences);
    for (auto& pointer : out.seqPointers) pointer = plan.moved(pointer);
    for (auto& form : out.formations)
        for (int j = 0; j < kPlayersPerRecord; ++j) form.posAddress(j, plan.moved(form.posAddress(j)));
    for (auto& play : out.plays)
        for (int j = 0; j < kPlayersPerRecord; ++j)
            if (!play.seqAddress(j).isNone()) play.seqAddress(j, plan.moved(play.seqAddress(j)));
    out.openedBytes = plan.bytes;
    return out;
}

CompactSummary compactImage(Playbook& pb, const std::string& dataDir, const std::function<void(const CompactSummary&)>& confirm) {
    (void)readUnchangedImage(pb);
    const CompactPlan plan = planCompact(pb);
    replaceFileContents(pb.romPath, fileBytes(pb, plan.bytes), confirm ? std::function<void()>([&] { confirm(plan.summary); }) : nullptr);
    pb = openRom(pb.romPath, dataDir);
    return plan.summary;
}

CompactSavePlan planCompactAndSave(const Playbook& pb) {
    const CompactPlan compacted = planCompact(pb);
    SavePlan saved = planSave(carryOver(pb, compacted), compacted.bytes);
    return {std::move(saved.bytes), {compacted.summary, saved.summary}};
}

CompactSaveSummary compactAndSave(Playbook& pb, const std::string& dataDir) {
    (void)readUnchangedImage(pb);
    const CompactSavePlan plan = planCompactAndSave(pb);
    replaceFileContents(pb.romPath, fileBytes(pb, plan.bytes));
    pb = openRom(pb.romPath, dataDir);
    return plan.summary;
}

}  // namespace zpe
