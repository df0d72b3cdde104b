#include "analysis/entries.h"

#include "model/hex.h"
#include "sequence/command_format.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <unordered_map>

namespace zpe {

std::string sequenceName(SeqKey key) {
    return key.isNew() ? "new sequence " + std::to_string(key.madeNumber() + 1) : "sequence " + hex4(key.address());
}

SeqKey entryTarget(const Playbook& pb, const AreaEntry& e) {
    switch (e.table) {
    case AreaEntry::Table::Pointer: return pb.seqPointers.at(static_cast<size_t>(e.index));
    case AreaEntry::Table::Play: return pb.plays.at(static_cast<size_t>(e.index)).seqAddress(e.player);
    case AreaEntry::Table::Formation: return pb.formations.at(static_cast<size_t>(e.index)).posAddress(e.player);
    }
    return SeqKey::none();
}

void setEntryTarget(Playbook& pb, const AreaEntry& e, SeqKey key) {
    switch (e.table) {
    case AreaEntry::Table::Pointer: pb.seqPointers.at(static_cast<size_t>(e.index)) = key; break;
    case AreaEntry::Table::Play: pb.plays.at(static_cast<size_t>(e.index)).seqAddress(e.player, key); break;
    case AreaEntry::Table::Formation: pb.formations.at(static_cast<size_t>(e.index)).posAddress(e.player, key); break;
    }
}

bool entryReadsKick(const AreaEntry& e) { return e.table == AreaEntry::Table::Formation && isKickFormation(e.index); }

std::vector<AreaEntry> entriesNaming(const Playbook& pb, SeqKey key) {
    std::vector<AreaEntry> out;
    for (const AreaEntry& e : playbookEntries(pb))
        if (e.target == key) out.push_back(e);
    return out;
}

SeqKey nextNewSequenceKey(const Playbook& pb) {
    SeqKey key = SeqKey::made(0);
    for (const auto& [k, seq] : pb.sequences) key = std::max(key, k.next());
    return key;
}

SeqKey addCopyOf(Playbook& pb, SeqKey key, const clsSequence* contents) {
    const clsSequence& original = pb.sequences.at(key);
    const clsSequence& source = contents ? *contents : original;
    if (source.readsDifferentlyByGame() || original.readsDifferentlyByGame())
        throw std::invalid_argument(sequenceName(key) +
                                    " holds a COM pass or 0xF1, which the game reads with other lengths; a copy of it would not run the same");
    // Where the game went on after the original: its own for a sequence read
    // from the image (after the last command where it was read), the one it
    // carries for a sequence made here.
    int32_t continuation = original.continuation();
    const SeqCommand& last = original.commands().back();
    if (key.placed())
        continuation = !last.origin.isNew() && original.gameGoesOnAfterEnd()
                           ? last.origin.readAddress() + last.encodedSize()
                           : -1;

    // The copy's commands are new ones; fields naming the source's own
    // commands name the copies. A relative jump that leads back out of the
    // sequence cannot be measured before the copy has a place: it becomes absolute.
    std::vector<SeqCommand> cmds = source.commands();
    std::unordered_map<CmdId, CmdId, CmdIdHash> copyOf;
    int32_t added = 0;
    for (SeqCommand& c : cmds) {
        const CmdId copy = CmdId::added(added++);
        copyOf.emplace(c.origin, copy);
        c.origin = copy;
    }
    for (SeqCommand& c : cmds) {
        if (c.field.kind == FieldRef::Kind::Command) {
            if (const auto it = copyOf.find(c.field.command); it != copyOf.end()) c.field.command = it->second;
        } else if (c.field.kind == FieldRef::Kind::Address && c.field.backward) {
            c = madeAbsolute(c);
        }
    }
    const SeqKey copyKey = nextNewSequenceKey(pb);
    clsSequence copy = original;
    copy.key(copyKey);
    copy.assign(std::move(cmds));
    copy.continuation(continuation);
    pb.sequences.insert(copyKey, std::move(copy));
    return copyKey;
}

std::vector<int16_t> newSequenceEnds(bool kick) {
    std::vector<int16_t> out;
    for (int code = 0xC0; code <= 0xFF; ++code) {
        const CommandFormat f = commandFormat(code, kick, -1);
        // Not a relative jump: a new sequence has no address yet, so its
        // relative jump could only lead to one of its own commands, and as the
        // only command that is itself (a loop the game never leaves).
        if (f.editorEnds && !f.gameGoesOn && !f.lockUp && f.field != FieldKind::Relative) out.push_back(static_cast<int16_t>(code));
    }
    return out;
}

SeqKey addEmptySequence(Playbook& pb, int16_t code, bool kick) {
    const std::vector<int16_t> ends = newSequenceEnds(kick);
    if (std::find(ends.begin(), ends.end(), code) == ends.end())
        throw std::invalid_argument(hex2(code) + " is not an end command after which the game stops");
    SeqCommand end;
    end.command = code;
    const CommandFormat f = commandFormat(code, kick, -1);
    if (f.field != FieldKind::None && !f.gameFieldOnly) end.field = FieldRef::at(0);  // a new jump names 0000 until the user sets it
    const SeqKey key = nextNewSequenceKey(pb);
    clsSequence seq;
    seq.key(key);
    seq.kick(kick);
    seq.assign({end});
    pb.sequences.insert(key, std::move(seq));
    return key;
}

std::optional<AreaEntry> misreadEntry(const Playbook& before, const Playbook& now) {
    const std::vector<AreaEntry> was = playbookEntries(before), is = playbookEntries(now);
    for (size_t e = 0; e < is.size() && e < was.size(); ++e) {
        if (is[e].target == was[e].target) continue;
        // Its sequence, and those it leads on to by its closing jump, are read as the entry reads.
        std::optional<AreaEntry> misread;
        (void)walkChain(now, is[e].target, [&](SeqKey key) {
            if (now.sequences.at(key).kick() == entryReadsKick(is[e])) return false;
            misread = is[e];
            misread->target = key;
            return true;
        });
        if (misread) return misread;
    }
    return std::nullopt;
}

SeqKey walkChain(const Playbook& pb, SeqKey key, const std::function<bool(SeqKey)>& each) {
    // Most chains are a few sequences long: the keys walked are kept in a small
    // array searched in order, and only a long chain pays for a hash set.
    constexpr size_t kShortChain = 16;
    std::array<SeqKey, kShortChain> recent;
    size_t walked = 0;
    std::unordered_set<SeqKey> seen;
    auto firstVisit = [&](SeqKey k) {
        if (walked < kShortChain) {
            if (std::find(recent.begin(), recent.begin() + static_cast<std::ptrdiff_t>(walked), k) !=
                recent.begin() + static_cast<std::ptrdiff_t>(walked))
                return false;
            recent[walked++] = k;
            if (walked == kShortChain) seen.insert(recent.begin(), recent.end());
            return true;
        }
        return seen.insert(k).second;
    };
    while (const clsSequence* seq = pb.sequences.find(key)) {
        if (!firstVisit(key) || each(key)) break;
        key = SeqKey::at(seq->nextSequence());
    }
    return key;
}

std::unordered_set<SeqKey> reachableKeys(const Playbook& pb) {
    std::unordered_set<SeqKey> out;
    // A chain already walked from another entry stops the walk where it joins.
    for (const AreaEntry& e : playbookEntries(pb)) (void)walkChain(pb, e.target, [&](SeqKey key) { return !out.insert(key).second; });
    return out;
}

void dropUnusedNewSequences(Playbook& pb) {
    const std::unordered_set<SeqKey> used = reachableKeys(pb);
    for (const SeqKey key : pb.sequences.keys())
        if (key.isNew() && !used.count(key)) pb.sequences.erase(key);
}

bool EntriesState::operator==(const EntriesState& o) const {
    if (pointers != o.pointers || plays != o.plays || formations != o.formations || made.size() != o.made.size()) return false;
    for (size_t i = 0; i < made.size(); ++i)
        if (made[i].first != o.made[i].first || made[i].second.commands() != o.made[i].second.commands() ||
            made[i].second.continuation() != o.made[i].second.continuation())
            return false;
    return true;
}

EntriesState entriesState(const Playbook& pb) {
    EntriesState s;
    s.pointers = pb.seqPointers;
    for (const clsPlay& play : pb.plays) {
        auto& row = s.plays.emplace_back();
        for (int j = 0; j < kPlayersPerRecord; ++j) row[static_cast<size_t>(j)] = play.seqAddress(j);
    }
    for (const clsFormation& form : pb.formations) {
        auto& row = s.formations.emplace_back();
        for (int j = 0; j < kPlayersPerRecord; ++j) row[static_cast<size_t>(j)] = form.posAddress(j);
    }
    for (const auto& [key, seq] : pb.sequences)
        if (key.isNew()) s.made.emplace_back(key, seq);
    return s;
}

void restoreEntries(Playbook& pb, const EntriesState& state) {
    pb.seqPointers = state.pointers;
    for (size_t p = 0; p < state.plays.size() && p < pb.plays.size(); ++p)
        for (int j = 0; j < kPlayersPerRecord; ++j) pb.plays[p].seqAddress(j, state.plays[p][static_cast<size_t>(j)]);
    for (size_t f = 0; f < state.formations.size() && f < pb.formations.size(); ++f)
        for (int j = 0; j < kPlayersPerRecord; ++j) pb.formations[f].posAddress(j, state.formations[f][static_cast<size_t>(j)]);
    for (const SeqKey key : pb.sequences.keys())
        if (key.isNew()) pb.sequences.erase(key);
    for (const auto& [key, seq] : state.made) pb.sequences.insert(key, seq);
}

}  // namespace zpe
