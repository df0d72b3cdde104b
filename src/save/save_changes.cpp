#include "save/save_changes.h"

#include "analysis/area_map.h"
#include "analysis/entries.h"
#include "model/file_io.h"
#include "model/hex.h"
#include "model/rom_error.h"
#include "playbook/open_rom.h"
#include "playbook/table_codec.h"
#include "save/saves.h"
#include "save/verify_write.h"
#include "sequence/command_codes.h"
#include "sequence/command_format.h"

#include <algorithm>
#include <optional>
#include <unordered_map>
#include <unordered_set>

namespace zpe {

using namespace cmd;

namespace {

std::vector<uint8_t> bytesAt(const std::vector<uint8_t>& image, int32_t address, int32_t size) {
    const int32_t offset = offsetOfAddress(address);
    if (offset < 0 || size <= 0 || static_cast<size_t>(offset) >= image.size()) return {};
    const auto end = std::min(image.size(), static_cast<size_t>(offset) + static_cast<size_t>(size));
    return std::vector<uint8_t>(image.begin() + offset, image.begin() + static_cast<std::ptrdiff_t>(end));
}

bool goesOnInGame(const SeqCommand& c, bool kick) {
    return commandFormat(codeByte(c), kick, -1).gameGoesOn;
}

// Where the game went on after a sequence as it was read (-1: it did not).
int32_t continuationOf(const clsSequence& before) {
    if (before.commandCount() == 0 || !goesOnInGame(before.commands().back(), before.kick())) return -1;
    return before.address() + before.byteSize();
}

// One sequence of the model on its way into the image.
struct Placement {
    int32_t key = 0;
    const clsSequence* seq = nullptr;
    int32_t oldSize = 0;
    int32_t inPlaceSize = 0;  // bytes it takes written at its own address
    bool changed = false;
    bool moved = false;
    int32_t place = 0;
    int32_t continuation = -1;      // where the game went on after it (-1: nowhere)
    bool jumpToContinuation = false;  // an absolute jump to it follows the last command
    std::vector<SeqCommand> commands;  // what is written: the sequence's commands and that jump
};

std::vector<SeqCommand> withContinuation(const clsSequence& seq, int32_t continuation) {
    std::vector<SeqCommand> out = seq.commands();
    SeqCommand jump;
    jump.command = kAbsoluteJump;
    jump.dataLen = 2;
    jump.target = continuation;
    out.push_back(jump);
    return out;
}

int32_t sizeOf(const std::vector<SeqCommand>& cmds) {
    int32_t n = 0;
    for (const SeqCommand& c : cmds) n += c.encodedSize();
    return n;
}

// The resolver of a sequence standing at `at`: a field naming one of its own
// commands follows that command.
struct OwnPlaces {
    std::unordered_map<int32_t, int32_t> byOrigin;
    OwnPlaces(const std::vector<SeqCommand>& cmds, int32_t at) : byOrigin(placesByOrigin(cmds, at)) {}
    std::optional<int32_t> find(int32_t origin) const {
        const auto it = byOrigin.find(origin);
        if (it == byOrigin.end()) return std::nullopt;
        return it->second;
    }
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
    if (!placed.empty()) {
        out += ", " + std::to_string(placed.size()) + " new at ";
        for (size_t i = 0; i < placed.size(); ++i) out += (i ? ", " : "") + hex4(placed[i].second);
    }
    out += ", " + std::to_string(leftOnOldCopies) + " reference" + (leftOnOldCopies == 1 ? "" : "s") +
           " left on old copies, " + std::to_string(freeBytesLeft) + " free bytes left.";
    return out;
}

SavePlan planSave(const Playbook& pb, const std::vector<uint8_t>& image) {
    requireCompleteOpen(pb);
    // The image as the editor reads it now: the old sequences, their bytes, the area map.
    Playbook old;
    try {
        old = readBytesAs(pb, image);
    } catch (const RomError& e) {
        throw SaveError(pb.romPath + ": the image cannot be read as it was opened (" + e.what() + "); nothing was saved");
    }
    const AreaMap map = buildAreaMap(old);
    std::vector<AreaRun> free = map.freeRuns();
    const std::span<const uint8_t> area = areaBytes(image);
    std::vector<GameCommand> game;
    game.reserve(map.commands.size());
    for (int32_t a : map.commands) {
        GameCommand g;
        if (readGameCommand(area, a, g)) game.push_back(g);
    }
    std::unordered_set<int32_t> usedOutside;  // addresses outside the area that the image already leads to
    for (const AreaEntry& e : map.outside) usedOutside.insert(e.target);
    for (const AddressField& f : map.leaves) usedOutside.insert(f.target);
    std::vector<uint8_t> gameStart(kSequenceAreaSize, 0);
    for (int32_t a : map.commands) gameStart[static_cast<size_t>(a - kSequenceAreaAddress)] = 1;

    // An entry changed to another sequence must read it the same way (a kick
    // formation's position reads its stances as going on): read the other way
    // it would run other commands.
    refuseMisreadEntries(old, pb);
    // Sequences made in the editor that no entry leads to any more are not written.
    const std::unordered_set<int32_t> reachable = reachableKeys(pb);
    std::vector<Placement> all;
    all.reserve(pb.sequences.size());
    for (const auto& [address, seq] : pb.sequences) {
        const bool made = isNewSequence(address);
        if (made && !reachable.count(address)) continue;
        const clsSequence* before = old.sequences.find(address);
        if (!before && !made)
            throw SaveError(pb.romPath + ": " + sequenceName(address) + " is no longer in the image as it was opened; open it again");
        if (const std::string problem = seq.verify(); !problem.empty())
            throw SaveError(pb.romPath + ": " + sequenceName(address) + ": " + problem + "; nothing was saved");
        Placement p;
        p.key = address;
        p.seq = &seq;
        p.place = address;
        p.commands = seq.commands();
        if (made) {  // no bytes of its own yet: it goes into a free run
            p.changed = true;
            p.continuation = seq.continuation();
            all.push_back(std::move(p));
            continue;
        }
        p.oldSize = before->byteSize();
        const OwnPlaces own(p.commands, address);
        const std::vector<uint8_t> bytes =
            encodeCommands(p.commands, address, [&](size_t, int32_t t) { return own.find(t).value_or(t); });
        p.inPlaceSize = static_cast<int32_t>(bytes.size());  // a relative jump out of reach is one byte longer
        p.changed = static_cast<int32_t>(bytes.size()) != p.oldSize || bytes != bytesAt(image, address, p.oldSize);
        p.continuation = continuationOf(*before);
        all.push_back(std::move(p));
    }

    // Where each changed sequence goes: in place when its bytes (and the jump
    // to where the game went on after it) fit in its old bytes, no other
    // sequence shares them and whatever led into them still finds its
    // command; otherwise into the first free run that holds it.
    std::vector<AreaRun> rewritten;  // old bytes rewritten in place, with the placement that rewrites them
    std::vector<size_t> rewrittenBy;
    std::vector<std::pair<int32_t, int32_t>> moveOrder;
    std::unordered_map<int32_t, int32_t> moves;  // old start (or a new sequence's key), new start
    SavePlan plan;
    for (size_t n = 0; n < all.size(); ++n) {
        Placement& p = all[n];
        if (!p.changed) continue;
        const clsSequence& seq = *p.seq;
        const bool goesOn = goesOnInGame(seq.commands().back(), seq.kick());
        if (goesOn && p.continuation < 0)
            throw SaveError(pb.romPath + ": " + sequenceName(p.key) + " now ends with " + hex2(seq.commands().back().command) +
                            ", after which the game goes on, but the game did not go on after it before; end it with a jump. "
                            "Nothing was saved");
        const int32_t size = p.inPlaceSize;
        bool inPlace = !isNewSequence(p.key) && size <= p.oldSize;
        if (inPlace && goesOn && size != p.oldSize) inPlace = size + 3 <= p.oldSize;
        for (const auto& [address, other] : old.sequences)
            if (inPlace && address != p.key && address < p.key + p.oldSize && address + other.byteSize() > p.key) inPlace = false;
        if (inPlace) {
            const OwnPlaces own(seq.commands(), p.key);
            for (const GameCommand& g : game) {
                if (g.address >= p.key && g.address < p.key + p.oldSize) continue;
                for (const int32_t t : {g.fallsThrough ? g.address + g.length : -1, g.target})
                    if (t > p.key && t < p.key + p.oldSize && own.find(t) != std::optional<int32_t>(t)) inPlace = false;
            }
        }
        if (inPlace) {
            if (goesOn && size != p.oldSize) {
                p.commands = withContinuation(seq, p.continuation);
                p.jumpToContinuation = true;
            }
            rewritten.push_back({p.key, p.key + p.oldSize - 1});
            rewrittenBy.push_back(n);
            continue;
        }
        if (seq.readsDifferentlyByGame() || (!isNewSequence(p.key) && old.sequences.at(p.key).readsDifferentlyByGame()))
            throw SaveError(pb.romPath + ": " + sequenceName(p.key) +
                            " holds a COM pass or 0xF1, which the game reads with other lengths, and would have to move; "
                            "it can only be changed within its " + std::to_string(p.oldSize) + " bytes. Nothing was saved");
        if (goesOn) {
            p.commands = withContinuation(seq, p.continuation);
            p.jumpToContinuation = true;
        }
        auto need = sizeOf(p.commands);
        std::optional<size_t> chosen;
        for (int attempt = 0; attempt < 2 && !chosen; ++attempt) {
            const auto run = std::find_if(free.begin(), free.end(), [&](const AreaRun& r) { return r.size() >= need; });
            if (run == free.end()) break;
            const OwnPlaces own(p.commands, run->start);
            const auto bytes = encodeCommands(p.commands, run->start, [&](size_t, int32_t t) { return own.find(t).value_or(t); });
            if (static_cast<int32_t>(bytes.size()) <= run->size()) chosen = static_cast<size_t>(run - free.begin());
            else need = static_cast<int32_t>(bytes.size());  // a relative jump became absolute there
        }
        if (!chosen) {
            int32_t largest = 0;
            for (const AreaRun& r : free) largest = std::max(largest, r.size());
            throw SaveError(pb.romPath + ": " + sequenceName(p.key) + " needs " + std::to_string(need) +
                            " bytes, but the largest free run of the sequence area holds " + std::to_string(largest) +
                            "; nothing was saved");
        }
        AreaRun& run = free[*chosen];
        p.moved = true;
        p.place = run.start;
        (isNewSequence(p.key) ? plan.summary.placed : moveOrder).emplace_back(p.key, run.start);
        moves.emplace(p.key, run.start);
        run.start += need;
        if (run.start > run.end) free.erase(free.begin() + static_cast<std::ptrdiff_t>(*chosen));
    }

    // Every sequence encoded at its place. A field names, in this order: one
    // of its own commands; a moved sequence's start (closing absolute jumps
    // follow it; other references keep running the old copy, which stays);
    // a command of bytes rewritten in place, wherever it stands now; or an
    // address, which must be where the game ran a command before or outside
    // the area.
    SaveLayout layout;
    Image out(pb.romPath, image);
    for (Placement& p : all) {
        const OwnPlaces own(p.commands, p.place);
        auto resolve = [&](size_t i, int32_t t) -> int32_t {
            if (p.jumpToContinuation && i + 1 == p.commands.size()) return t;  // where the game went on, as it was
            if (const auto mine = own.find(t)) return *mine;
            const std::string where = sequenceName(p.key) + " command " + std::to_string(i);
            if (isNewOrigin(t))
                throw SaveError(pb.romPath + ": " + where + " names a new command it no longer holds; nothing was saved");
            // A jump follows a moved sequence; a relative one of a sequence not
            // otherwise changed only where it reaches (it keeps its size).
            if (const auto m = moves.find(t); m != moves.end()) {
                const int16_t code = p.commands[i].command;
                if (code == kAbsoluteJump) return m->second;
                if (code == kRelativeJump) {
                    const int32_t offset = m->second - (p.place + sizeOf(p.commands) - 2);
                    const bool forward = (p.commands[i].data[0] & 0xFF) < kBackwardOffset;
                    if (p.changed || p.moved || (offset >= -128 && offset <= 127 && (offset >= 0) == forward)) return m->second;
                }
            }
            for (size_t r = 0; r < rewritten.size(); ++r) {
                if (t < rewritten[r].start || t > rewritten[r].end) continue;
                const Placement& q = all[rewrittenBy[r]];
                if (t == q.key) return t;
                if (const auto there = OwnPlaces(q.commands, q.place).find(t)) return *there;
                throw SaveError(pb.romPath + ": " + where + " leads to " + hex4(t) + ", a command that the edit of " +
                                sequenceName(q.key) + " removed; nothing was saved");
            }
            if (p.changed && inArea(t) && !gameStart[static_cast<size_t>(t - kSequenceAreaAddress)] && !moves.count(t))
                throw SaveError(pb.romPath + ": " + where + " leads to " + hex4(t) +
                                ", where the game runs no command (the middle of a command, or unused bytes); nothing was saved");
            if (p.changed && !inArea(t) && (t == 0xFFFF || !usedOutside.count(t)))
                throw SaveError(pb.romPath + ": " + where + " leads to " + hex4(t) +
                                ", outside the sequence area, where nothing in the image leads; nothing was saved");
            return t;
        };
        LaidSequence laid;
        laid.key = p.key;
        laid.place = p.place;
        std::vector<int32_t> places;
        const std::vector<uint8_t> bytes = encodeCommands(p.commands, p.place, resolve, &places);
        for (size_t i = 0; i < p.commands.size(); ++i) {
            const SeqCommand& c = p.commands[i];
            laid.targets.push_back(c.target == SeqCommand::kNoTarget ? SeqCommand::kNoTarget : resolve(i, c.target));
        }
        if (p.jumpToContinuation) {
            laid.continuationAt = places.back();
            places.pop_back();
            laid.targets.pop_back();
        }
        laid.places = std::move(places);
        laid.continuation = goesOnInGame(p.seq->commands().back(), p.seq->kick()) ? p.continuation : -1;
        laid.end = p.place + static_cast<int32_t>(bytes.size());
        const bool same = !p.moved && static_cast<int32_t>(bytes.size()) == p.oldSize && bytes == bytesAt(image, p.key, p.oldSize);
        if (!same) {
            if (!p.moved && !p.changed && static_cast<int32_t>(bytes.size()) > p.oldSize)
                throw SaveError(pb.romPath + ": " + sequenceName(p.key) + " would grow where it stands; nothing was saved");
            if (!p.moved) ++plan.summary.inPlace;
            laid.written = true;
            out.seekOffset(offsetOfAddress(p.place));
            for (uint8_t b : bytes) out.writeByte(b);
        }
        layout.sequences.push_back(std::move(laid));
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

    // References the save does not follow: address fields of the game, and
    // relative jumps, that name a moved sequence's old start from elsewhere.
    plan.summary.moved = std::move(moveOrder);
    for (const AreaRun& r : free) plan.summary.freeBytesLeft += r.size();
    plan.bytes = out.bytes();
    const Playbook written = verifyWrite(pb, old, plan.bytes, layout);
    plan.layout = std::move(layout);

    // References the save does not follow (the game's branches, the
    // computer's logic): what the game still reaches that leads to a moved
    // sequence's old start.
    const AreaMap after = buildAreaMap(written);
    const std::span<const uint8_t> newArea = areaBytes(plan.bytes);
    for (int32_t a : after.commands) {
        GameCommand g;
        if (readGameCommand(newArea, a, g) && moves.count(g.target)) {
            const int32_t from = g.target, end = from + old.sequences.at(from).byteSize();
            if (a < from || a >= end) ++plan.summary.leftOnOldCopies;
        }
    }
    return plan;
}

SaveSummary saveChanges(Playbook& pb, const std::string& dataDir, const std::function<void(const SaveSummary&)>& confirm) {
    const std::vector<uint8_t> image = readUnchangedImage(pb);
    SavePlan plan = planSave(pb, image);
    if (plan.bytes == image) {
        plan.summary.nothingToWrite = true;  // a rewrite would only change the file's time and inode
        if (confirm) confirm(plan.summary);
        return plan.summary;
    }
    replaceFileContents(pb.romPath, fileBytes(pb, plan.bytes), confirm ? std::function<void()>([&] { confirm(plan.summary); }) : nullptr);
    pb = openRom(pb.romPath, dataDir);
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
