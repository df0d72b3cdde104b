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
#include <optional>
#include <functional>

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
    int32_t size() const { return relative ? 1 : 2; }
    bool holds(int32_t byte) const { return byte >= at && byte < at + size(); }
};

// The address field of a command the game runs (`area`: the area's bytes, for
// a COM pass's length); nothing when it has none.
std::optional<Field> gameField(const GameCommand& g, std::span<const uint8_t> area) {
    if (g.target < 0) return std::nullopt;
    const size_t i = areaIndex(g.address);
    const CommandFormat f = commandFormat(g.code, false, i + 1 < area.size() ? area[i + 1] : -1);
    return Field{g.address + f.fieldAt, g.address, f.field == FieldKind::Relative, g.target};
}

// The address field of an editor command standing at `at` and leading to `target`; nothing when it has none.
std::optional<Field> editorField(const SeqCommand& c, int32_t at, int32_t target) {
    const auto [lo, hi] = addressFieldData(c);
    if (lo < 0) return std::nullopt;
    return Field{at + byteOfData(c.command, lo), at, hi < 0, target};
}

// Every address field of the area: those the game reads, then those of the
// editor's commands (the same bytes again where the game runs that command).
std::vector<Field> fieldsOf(const Playbook& old, const AreaMap& map, std::span<const uint8_t> area) {
    std::vector<Field> fields;
    for (const GameCommand& g : map.program)
        if (const auto f = gameField(g, area)) fields.push_back(*f);
    for (const auto& [key, seq] : old.sequences) {
        int32_t at = key.address();
        const std::vector<int32_t> targets = seq.fieldTargets();
        for (size_t i = 0; i < targets.size(); ++i) {
            const SeqCommand& c = seq.commands()[i];
            if (const auto f = editorField(c, at, targets[i]); f && inArea(at)) fields.push_back(*f);
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

// Who reads each byte of the area other than as an address field: the game
// (a code or an operand of the command at that address) and the editor (a
// code, or a value of its command at that address). -1: nobody.
struct Readers {
    std::vector<int32_t> game = std::vector<int32_t>(kSequenceAreaSize, -1);
    std::vector<int32_t> editorValue = std::vector<int32_t>(kSequenceAreaSize, -1);
    // The editor reads a command's code there: kFixedCode, or kReceiverCode
    // where the byte also holds a COM pass's receiver address (its value, a
    // low code's nibble, follows the address; the command must stay).
    std::vector<uint8_t> editorCode = std::vector<uint8_t>(kSequenceAreaSize, 0);
    static constexpr uint8_t kFixedCode = 1, kReceiverCode = 2;
};

// The bytes of a sequence holding a COM pass that hold the address of the
// receiver's script, which the editor reads as values of the commands after
// the pass: they follow that address wherever it moves.
std::vector<int32_t> receiverAddressBytes(const clsSequence& seq) {
    std::vector<int32_t> out;
    if (!seq.readsDifferentlyByGame() || !seq.placed()) return out;
    for (int i = 0; i < seq.commandCount(); ++i) {
        const CommandFormat f = commandFormat(codeByte(seq.commands()[static_cast<size_t>(i)]), seq.kick(), -1);
        if (f.gameFieldOnly) out.insert(out.end(), {seq.place(i) + f.fieldAt, seq.place(i) + f.fieldAt + 1});
    }
    return out;
}

Readers readersOf(const Playbook& old, const AreaMap& map, std::span<const uint8_t> area) {
    Readers r;
    for (const GameCommand& g : map.program) {
        const std::optional<Field> own = gameField(g, area);
        for (int32_t b = g.address; b < g.address + g.length && inArea(b); ++b)
            if (!own || !own->holds(b)) r.game[areaIndex(b)] = g.address;
    }
    for (const auto& [key, seq] : old.sequences) {
        const std::vector<int32_t> receiver = receiverAddressBytes(seq);
        auto follows = [&](int32_t b) { return std::find(receiver.begin(), receiver.end(), b) != receiver.end(); };
        int32_t at = key.address();
        for (const SeqCommand& c : seq.commands()) {
            const std::optional<Field> own = editorField(c, at, 0);
            if (inArea(at)) r.editorCode[areaIndex(at)] = follows(at) ? Readers::kReceiverCode : Readers::kFixedCode;
            for (int32_t b = at + 1; b < at + c.encodedSize(); ++b)
                if (inArea(b) && (!own || !own->holds(b)) && !follows(b)) r.editorValue[areaIndex(b)] = at;
            at += c.encodedSize();
        }
    }
    return r;
}

// Every address field of the area relinked in `packed` to where its target
// now stands. Refuses (SaveError) a field leading to a dropped byte, two
// fields over one byte that would need other values, and a changed byte that
// the game or the editor also reads otherwise (a command's code or operand,
// a value), where relinking would change what that reader reads.
void relinkFields(const Playbook& old, const AreaMap& map, std::span<const uint8_t> area, CompactPlan& plan,
                  std::vector<uint8_t>& packed) {
    const std::string& path = old.romPath;
    const std::vector<Field> fields = fieldsOf(old, map, area);
    const Readers readers = readersOf(old, map, area);
    std::vector<int32_t> writer(kSequenceAreaSize, -1);  // the field (index) that set each byte's new value
    auto refuseShared = [&](int32_t owner, int32_t other) {
        throw SaveError(path + ": the commands at " + hex4(owner) + " and " + hex4(other) +
                        " share the bytes of an address that moves; relinking one would change the other. Nothing was written");
    };
    for (size_t n = 0; n < fields.size(); ++n) {
        const Field& f = fields[n];
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
            const int32_t byte = f.at + static_cast<int32_t>(k);
            const size_t i = areaIndex(byte);
            if (writer[i] >= 0) {  // another field over this byte: it must need the same value
                if (packed[at + k] != value.bytes[k]) refuseShared(fields[static_cast<size_t>(writer[i])].owner, f.owner);
                continue;
            }
            writer[i] = static_cast<int32_t>(n);
            if (packed[at + k] == value.bytes[k]) continue;
            if (readers.game[i] >= 0 && readers.game[i] != f.owner) refuseShared(f.owner, readers.game[i]);
            if (readers.editorValue[i] >= 0 && readers.editorValue[i] != f.owner) refuseShared(f.owner, readers.editorValue[i]);
            if (readers.editorCode[i]) {
                const CommandFormat was = commandFormat(packed[at + k], false, -1), now = commandFormat(value.bytes[k], false, -1);
                if (readers.editorCode[i] == Readers::kFixedCode || was.command != now.command || was.editorLength != now.editorLength)
                    throw SaveError(path + ": the address the command at " + hex4(f.owner) + " holds at " + hex4(byte) +
                                    " is a command for the editor, which relinking would change; nothing was written");
            }
            packed[at + k] = value.bytes[k];
            changed = true;
        }
        plan.summary.fieldsRelinked += changed ? 1 : 0;
    }
}

// Bytes outside the area are not rewritten: sequences there can neither lead
// into it (their addresses would go stale) nor lie in the tables rewritten
// here, and the game's own code there may not come back into it where a
// command moves.
void refuseOutsideLeads(const Playbook& old, const AreaMap& map, const CompactPlan& plan) {
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
    // Outside the area compaction changes only the table entries (and a
    // command just before the area may read its operands from the area's first
    // bytes); the game may run those bytes too.
    if (const auto [g, at] = rewrittenOutsideCommand(map, old.openedBytes.vector(), plan.bytes); g >= 0)
        throw SaveError(path + ": the game runs the bytes at " + hex4(g) + " as a command (a path that leaves the sequence area), and compaction rewrites them (at " +
                            hex4(at) + "), so the game would run other commands there; nothing was written",
                        Refusal::WouldNotReopen);
    for (const int32_t back : map.comesBackAt) {
        if (plan.moved(back) == back) continue;
        int32_t from = -1;
        for (const GameCommand& g : map.outsideCommands)
            if (g.target == back || (g.fallsThrough && g.address + g.length == back)) from = g.address;
        throw SaveError(path + ": the game comes back into the sequence area at " + hex4(back) + " from its own code outside it" +
                            (from >= 0 ? " (the command at " + hex4(from) + ")" : std::string()) +
                            ", which compaction does not rewrite, and " + hex4(back) + " would move; nothing was written",
                        Refusal::CannotMove);
    }
}

// In a sequence holding a COM pass, the address of the receiver's script lies
// in bytes the editor reads as values of the commands after the pass (or as
// the nibble of a low code); its high byte may lie past the sequence's end
// (`image`: the bytes there). Compaction relinked the address in the image;
// the carried values follow, so the carried sequence is what the compacted
// image holds.
void carryReceiverAddresses(const clsSequence& seq, std::vector<SeqCommand>& cmds, std::span<const uint8_t> image,
                            const std::function<int32_t(int32_t)>& moved) {
    const std::vector<int32_t> receiver = receiverAddressBytes(seq);
    if (receiver.empty()) return;
    const std::vector<uint8_t> bytes = seq.encode();
    const int32_t start = seq.address();
    auto byteAt = [&](int32_t a) -> int32_t {  // the model's byte, else the image's
        if (a >= start && a < start + static_cast<int32_t>(bytes.size())) return bytes[static_cast<size_t>(a - start)];
        const int32_t o = offsetOfAddress(a);
        return o >= 0 && static_cast<size_t>(o) < image.size() ? image[static_cast<size_t>(o)] : -1;
    };
    std::vector<int32_t> offsets;  // each command's offset from the sequence's start
    for (int32_t at = 0; const SeqCommand& c : seq.commands()) {
        offsets.push_back(at);
        at += c.encodedSize();
    }
    auto setByte = [&](int32_t q, uint8_t value) {  // a byte past the sequence belongs to none of its commands
        for (size_t j = 0; j < cmds.size(); ++j) {
            if (q < offsets[j] || q >= offsets[j] + cmds[j].encodedSize()) continue;
            const int d = dataOfByte(cmds[j].command, q - offsets[j]);
            const auto [lo, hi] = addressFieldData(cmds[j]);
            if (d < 0 || d >= cmds[j].dataLen || d == lo || d == hi) return;
            const bool nibble = q == offsets[j];  // a low code's value in its code byte
            cmds[j].data[static_cast<size_t>(d)] = static_cast<int16_t>(nibble ? (value & 0x0F) : value);
            return;
        }
    };
    for (size_t r = 0; r + 1 < receiver.size(); r += 2) {
        const int32_t at = receiver[r], lo = byteAt(at), hi = byteAt(at + 1);
        if (lo < 0 || hi < 0) continue;
        const int32_t target = lo + 256 * hi, now = moved(target);
        if (now == target) continue;
        setByte(at - start, static_cast<uint8_t>(now & 0xFF));
        setByte(at + 1 - start, static_cast<uint8_t>(now >> 8));
    }
}

// Every table entry into the area (pointers, formation positions, play
// players; a play's empty player stays empty) names where its target now stands.
void moveEntries(Playbook& pb, const CompactPlan& plan) {
    for (auto& pointer : pb.seqPointers) pointer = plan.moved(pointer);
    for (auto& form : pb.formations)
        for (int j = 0; j < kPlayersPerRecord; ++j) form.posAddress(j, plan.moved(form.posAddress(j)));
    for (auto& play : pb.plays)
        for (int j = 0; j < kPlayersPerRecord; ++j)
            if (!play.seqAddress(j).isNone()) play.seqAddress(j, plan.moved(play.seqAddress(j)));
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
    // Kept: every byte the game or the editor uses, and the byte after a
    // sequence ending in a long snap, which the editor reads to know it ends
    // there (packed up against an absolute jump, it would read on).
    std::vector<uint8_t> kept(map.use.begin(), map.use.end());
    for (const auto& [key, seq] : old.sequences) {
        const int32_t peek = seq.readsPastEnd();
        if (inArea(peek)) kept[areaIndex(peek)] = 1;
        else if (peek == kAreaEnd)  // that byte lies past the area: packed, the sequence would be followed by another
            throw SaveError(path + ": sequence " + hex4(key.address()) + " ends in a Long Snap on the area's last byte; the editor reads the byte "
                                "after the area to know it ends there, which a new layout cannot keep; nothing was written",
                            Refusal::CannotMove);
    }
    for (size_t i = 0; i < kept.size(); ++i) {
        if (kept[i] == 0) continue;
        plan.newAddress[i] = kSequenceAreaAddress + static_cast<int32_t>(packed.size());
        packed.push_back(area[i]);
    }

    relinkFields(old, map, area, plan, packed);

    Playbook relinked = old;
    moveEntries(relinked, plan);
    const std::vector<AreaEntry> was = playbookEntries(old), now = playbookEntries(relinked);
    for (size_t e = 0; e < was.size() && e < now.size(); ++e) plan.summary.fieldsRelinked += was[e].target != now[e].target;

    Image out(path, old.openedBytes);
    out.seekOffset(kSequenceAreaOffset);
    for (uint8_t b : packed) out.writeByte(b);
    for (size_t i = packed.size(); i < static_cast<size_t>(kSequenceAreaSize); ++i) out.writeByte(kBlankByte);
    writeTables(relinked, out, kFormationTable | kPlayTable | kPointerTable);
    plan.bytes = out.bytes();

    refuseOutsideLeads(old, map, plan);

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
        carryReceiverAddresses(seq, cmds, pb.openedBytes.vector(), moved);
        clsSequence carried = seq;
        carried.key(plan.moved(key));
        carried.assign(std::move(cmds));
        if (carried.continuation() >= 0) carried.continuation(moved(carried.continuation()));
        sequences.insert(plan.moved(key), std::move(carried));
    }
    out.sequences = std::move(sequences);
    moveEntries(out, plan);
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
    // A moved sequence is named where the user knew it, before the compaction.
    std::vector<int32_t> before(kSequenceAreaSize, -1);
    for (size_t i = 0; i < compacted.newAddress.size(); ++i)
        if (const int32_t now = compacted.newAddress[i]; inArea(now)) before[areaIndex(now)] = static_cast<int32_t>(i) + kSequenceAreaAddress;
    for (auto& [from, to] : saved.summary.moved)
        if (inArea(from) && before[areaIndex(from)] >= 0) from = before[areaIndex(from)];
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
