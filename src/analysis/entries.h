#pragma once
// Table entries as the user changes them: which sequence a play's player, a
// formation's position or a pointer runs, and the sequences made in the
// editor for them (a copy for one entry, a new empty one). Such a sequence
// lives in the model under a made key (SeqKey::made) until a save gives it a
// place.
#include "analysis/area_map.h"
#include "playbook/playbook.h"

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

namespace zpe {

// "sequence A123", or "new sequence 2" for one made in the editor.
[[nodiscard]] std::string sequenceName(SeqKey key);

// The sequence key the entry names in `pb`, and setting it.
[[nodiscard]] SeqKey entryTarget(const Playbook& pb, const AreaEntry& entry);
void setEntryTarget(Playbook& pb, const AreaEntry& entry, SeqKey key);
// True when the entry's sequence is read the kick formations' way.
[[nodiscard]] bool entryReadsKick(const AreaEntry& entry);
// Every entry of `pb` that names `key`, in table order (pointers, plays, formations).
[[nodiscard]] std::vector<AreaEntry> entriesNaming(const Playbook& pb, SeqKey key);

// The key the next sequence made in the editor gets: above every key of `pb`.
[[nodiscard]] SeqKey nextNewSequenceKey(const Playbook& pb);

// Adds a copy of the sequence under `key`: the same commands (new ones, their
// jumps naming the copies), the same reading, and where the game went on
// after it. `contents`, when given, holds the commands to copy instead (an
// edited working copy of that sequence). Returns the copy's key. Throws
// std::invalid_argument for a sequence holding a COM pass or 0xF1 (the game
// reads those with other lengths, so no copy of it runs the same).
SeqKey addCopyOf(Playbook& pb, SeqKey key, const clsSequence* contents = nullptr);
// The end commands a new sequence may start with: those after which the game
// stops, but for the relative jump (it could only lead to itself).
[[nodiscard]] std::vector<int16_t> newSequenceEnds(bool kick);
// Adds a sequence of one end command `code` (one of newSequenceEnds) with the
// given reading; returns its key. Throws std::invalid_argument for another code.
SeqKey addEmptySequence(Playbook& pb, int16_t code, bool kick);

// The first entry of `now` that names another sequence than in `before` and
// reads it, or a sequence it leads on to by a closing jump, another way than
// that sequence is read (a kick formation's position reads its stances as
// going on; everything else does not): read so it would run other commands.
// Its `target` is the sequence read the other way. None when every changed entry is fine.
[[nodiscard]] std::optional<AreaEntry> misreadEntry(const Playbook& before, const Playbook& now);

// Walks the chain of `pb`'s sequences from `key` along their closing jumps,
// each once, calling `each` with every key until it returns true (stop).
// Returns where the walk ran off the model (an address no sequence of `pb`
// starts, or address 0 for no follow-on), or the key it stopped at or came round to.
SeqKey walkChain(const Playbook& pb, SeqKey key, const std::function<bool(SeqKey)>& each);

// The keys the tables lead to, with the sequences each follows on into.
[[nodiscard]] std::unordered_set<SeqKey> reachableKeys(const Playbook& pb);
// Removes the sequences made in the editor that no entry leads to any more.
void dropUnusedNewSequences(Playbook& pb);

// What changing entries can change: every entry and the sequences made in the
// editor. An undo step keeps one from before and one from after.
struct EntriesState {
    std::array<SeqKey, kPointerCount> pointers{};
    std::vector<std::array<SeqKey, kPlayersPerRecord>> plays, formations;
    std::vector<std::pair<SeqKey, clsSequence>> made;  // in the model's order
    bool operator==(const EntriesState&) const;
};
[[nodiscard]] EntriesState entriesState(const Playbook& pb);
// Puts `state` back: the entries, and exactly its sequences made in the editor
// (others made since are removed; sequences read from the image are untouched).
void restoreEntries(Playbook& pb, const EntriesState& state);

}  // namespace zpe
