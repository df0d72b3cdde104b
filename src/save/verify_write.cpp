#include "save/verify_write.h"

#include "save/layout.h"

#include "analysis/area_map.h"
#include "analysis/entries.h"
#include "model/hex.h"
#include "model/rom_error.h"
#include "playbook/open_rom.h"
#include "sequence/command_codes.h"

#include <functional>
#include <optional>
#include <unordered_set>

namespace zpe {

namespace {

size_t areaIndex(int32_t address) { return static_cast<size_t>(address - kSequenceAreaAddress); }

// The commands copied after a Long Snap run, one by one, what the game ran
// where they came from: the same code, length and way on, fields leading to
// the same command (a copied one: its copy; see copiedLead).
template <typename Fail>
void checkTail(const LaidSequence& laid, int32_t first, std::span<const uint8_t> oldArea, std::span<const uint8_t> newArea,
               const Fail& fail) {
    if (first != laid.tail.front().first) fail("the game would not go on after the long snap of " + sequenceName(laid.key));
    for (size_t k = 0; k < laid.tail.size(); ++k) {
        const auto [place, was] = laid.tail[k];
        GameCommand a, b;
        if (!readGameCommand(oldArea, was, a) || !readGameCommand(newArea, place, b))
            fail("the commands copied after the long snap of " + sequenceName(laid.key) + " would not read back");
        const bool madeAbsolute = a.code == cmd::kRelativeJump && b.code == cmd::kAbsoluteJump;
        const int32_t want = copiedLead(laid.tail, a.target);
        if ((b.code != a.code && !madeAbsolute) || b.fallsThrough != a.fallsThrough || (a.target >= 0 && b.target != want) ||
            (b.fallsThrough && k + 1 < laid.tail.size() && place + b.length != laid.tail[k + 1].first))
            fail("the commands copied after the long snap of " + sequenceName(laid.key) + " would run differently at " + hex4(place));
    }
}

}  // namespace

std::vector<std::string> formationNames(const Playbook& pb) {
    std::vector<std::string> names;
    names.reserve(pb.formations.size());
    for (const clsFormation& f : pb.formations) names.push_back(f.name());
    return names;
}

LaidSequence laidAt(SeqKey key, const clsSequence& seq, int32_t place, bool written) {
    clsSequence there = seq;
    there.key(SeqKey::at(place));
    LaidSequence laid;
    laid.key = key;
    laid.place = place;
    laid.written = written;
    int32_t at = place;
    laid.targets = there.fieldTargets();
    for (const SeqCommand& c : there.commands()) {
        laid.places.push_back(at);
        at += c.encodedSize();
    }
    laid.end = at;
    return laid;
}

Playbook readBytesAs(const Playbook& like, ImageBytes bytes) {
    Image image(like.romPath, std::move(bytes));
    Playbook pb = loadPlaybook(image, formationNames(like));
    pb.openedBytes = image.takeShared();
    pb.headerless = like.headerless;
    pb.openComplete = true;
    return pb;
}

std::string entryDifference(const Playbook& before, const Playbook& after,
                            const std::function<SeqKey(const AreaEntry&)>& expected) {
    const std::vector<AreaEntry> was = playbookEntries(before), now = playbookEntries(after);
    if (was.size() != now.size()) return "the tables would hold other entries";
    for (size_t e = 0; e < was.size(); ++e)
        if (now[e].target != expected(was[e]))
            return was[e].name() + " would name " + sequenceKeyText(now[e].target) + ", not " + sequenceKeyText(expected(was[e]));
    return "";
}

namespace {

// The check of one write: `again` is the image read back from the bytes.
class WriteCheck {
public:
    WriteCheck(const Playbook& model, const Playbook& before, const ImageBytes& bytes, const SaveLayout& layout,
               const AreaMap* beforeMap)
        : model(model), before(before), bytes(bytes), layout(layout), beforeMap(beforeMap) {}

    Playbook run(AreaMap* afterMap) {
        open();
        tables();
        editorReading();
        if (layout.gameReading) gameReading();
        if (afterMap) *afterMap = newMap ? std::move(*newMap) : buildAreaMap(again);
        return std::move(again);
    }

private:
    [[noreturn]] void fail(const std::string& what) const {
        throw VerifyError(model.romPath + ": internal error: reading back what this save would write, " + what +
                          "; nothing was written");
    }

    // The bytes open, and the layout holds every sequence an entry leads to.
    void open() {
        try {
            again = readBytesAs(model, bytes);
        } catch (const RomError& e) {
            fail(std::string("the image would not open (") + e.what() + ")");
        }
        if (again.sequences.empty()) fail("no sequence would be found");
        for (int s = 0; s < kSlotCount; ++s)
            if (static_cast<size_t>(again.playSlots[static_cast<size_t>(s)].formation()) >= again.formations.size())
                fail("slot " + std::to_string(s) + " would name a formation forms.txt does not have");
        // Every sequence an entry leads to is laid out; one nothing leads to any
        // more need not be found where it was (its bytes stay, unread).
        reachable = reachableKeys(model);
        std::unordered_set<SeqKey> laidKeys;
        for (const LaidSequence& laid : layout.sequences) {
            if (!model.sequences.contains(laid.key))
                fail("the layout holds " + sequenceName(laid.key) + ", which the model does not");
            laidKeys.insert(laid.key);
        }
        for (const SeqKey key : reachable)
            if (!laidKeys.count(key)) fail("the layout does not hold " + sequenceName(key));
        reachable = reachableAsLaid();
    }

    // The keys the written image leads to: those the entries name, and those
    // the closing jumps lead to as laid out (a jump into its own middle may
    // now lead into its own copy, and the sequence it named is read by nobody).
    std::unordered_set<SeqKey> reachableAsLaid() const {
        std::unordered_map<int32_t, const LaidSequence*> byPlace;
        for (const LaidSequence& laid : layout.sequences) byPlace.emplace(laid.place, &laid);
        std::unordered_set<SeqKey> out;
        std::vector<const LaidSequence*> work;
        auto reach = [&](int32_t place) {
            const auto it = byPlace.find(place);
            if (it != byPlace.end() && out.insert(it->second->key).second) work.push_back(it->second);
        };
        std::unordered_map<SeqKey, int32_t> placeOf;
        for (const LaidSequence& laid : layout.sequences) placeOf.emplace(laid.key, laid.place);
        for (const AreaEntry& e : playbookEntries(model))
            if (const auto it = placeOf.find(e.target); it != placeOf.end()) reach(it->second);
        while (!work.empty()) {
            const LaidSequence* laid = work.back();
            work.pop_back();
            const clsSequence& seq = model.sequences.at(laid->key);
            const SeqCommand& end = seq.commands().back();
            const bool loopBack = end.command == cmd::kRelativeJump && !laid->targets.empty() &&
                                  laid->targets.back() < laid->places.back();
            if ((end.command == cmd::kAbsoluteJump || end.command == cmd::kRelativeJump) && !loopBack && !laid->targets.empty())
                reach(laid->targets.back());
        }
        return out;
    }

    // The tables: every slot as the model has it, every entry naming where its sequence now stands.
    void tables() {
        for (int s = 0; s < kSlotCount; ++s)
            if (!(again.playSlots[static_cast<size_t>(s)] == model.playSlots[static_cast<size_t>(s)]))
                fail("slot " + std::to_string(s) + " would read back differently");
        std::unordered_map<SeqKey, int32_t> placeOf;
        for (const LaidSequence& laid : layout.sequences) placeOf.emplace(laid.key, laid.place);
        const std::string entries = entryDifference(model, again, [&](const AreaEntry& e) {
            const auto it = placeOf.find(e.target);
            return it == placeOf.end() ? e.target : SeqKey::at(it->second);
        });
        if (!entries.empty()) fail(entries);
    }

    // The editor's reading: each sequence holds its commands, each field names what the layout put there.
    void editorReading() {
        for (const LaidSequence& laid : layout.sequences) {
            const SeqKey key = laid.key;
            const clsSequence& seq = model.sequences.at(key);
            const clsSequence* back = again.sequences.find(SeqKey::at(laid.place));
            if (!back && !reachable.count(key)) continue;
            if (!back) fail(sequenceName(key) + " would not be found at " + hex4(laid.place));
            // The open reads a sequence the way the first chain reaching it reads: the
            // kick formations' way or the plain one. An edit that leads a chain of
            // the other reading to it first makes it read as other commands.
            if (back->kick() != seq.kick())
                throw SaveError(model.romPath + ": after this save " + sequenceName(key) + " would be read " +
                                    (back->kick() ? "the kick formations' way" : "the plain way") +
                                    " (a chain of that reading now reaches it first), so it would run other commands; "
                                    "nothing was saved",
                                Refusal::MisreadEntry);
            if (back->commandCount() != seq.commandCount())
                fail(sequenceName(key) + " would read back as " + std::to_string(back->commandCount()) + " commands, not " +
                     std::to_string(seq.commandCount()));
            int32_t at = back->address();
            const std::vector<int32_t> backTargets = back->fieldTargets();
            for (int i = 0; i < seq.commandCount(); ++i) {
                const SeqCommand& want = seq.commands()[static_cast<size_t>(i)];
                const SeqCommand& got = back->commands()[static_cast<size_t>(i)];
                const std::string where = "command " + std::to_string(i) + " of " + sequenceName(key);
                const bool madeAbsolute = want.command == cmd::kRelativeJump && got.command == cmd::kAbsoluteJump;
                if (got.command != want.command && !madeAbsolute)
                    fail(where + " would read back as " + hex2(got.command) + ", not " + hex2(want.command));
                if (static_cast<size_t>(i) < laid.places.size() && at != laid.places[static_cast<size_t>(i)])
                    fail(where + " would stand at " + hex4(at) + ", not " + hex4(laid.places[static_cast<size_t>(i)]));
                const auto [lo, hi] = addressFieldData(want);
                if (!madeAbsolute)
                    for (int d = 0; d < want.dataLen; ++d)
                        if (d != lo && d != hi &&
                            (got.data[static_cast<size_t>(d)] & 0xFF) != (want.data[static_cast<size_t>(d)] & 0xFF))
                            fail(where + " would read back with data " + std::to_string(d) + " = " +
                                 hexPlain(got.data[static_cast<size_t>(d)]) + ", not " +
                                 hexPlain(want.data[static_cast<size_t>(d)]));
                if (lo >= 0 && static_cast<size_t>(i) < laid.targets.size()) {
                    const int32_t wanted = laid.targets[static_cast<size_t>(i)];
                    const int32_t got = backTargets[static_cast<size_t>(i)];
                    if (got != wanted) fail(where + " would lead to " + hex4(got) + ", not to " + hex4(wanted));
                }
                at += got.encodedSize();
            }
        }
    }

    // The game's reading: it runs commands only where the layout put them or where it ran them before.
    void gameReading() {
        std::optional<AreaMap> ownOldMap;
        if (!beforeMap) ownOldMap = buildAreaMap(before);
        const AreaMap& oldMap = beforeMap ? *beforeMap : *ownOldMap;
        newMap = buildAreaMap(again);
        const std::span<const uint8_t> newArea = areaBytes(bytes);
        std::vector<uint8_t> oldStart(kSequenceAreaSize, 0), expected(kSequenceAreaSize, 0);
        std::vector<int32_t> owner(kSequenceAreaSize, -1);
        for (int32_t a : oldMap.commands) oldStart[areaIndex(a)] = 1;
        models.clear();
        for (const LaidSequence& laid : layout.sequences) models.push_back(&model.sequences.at(laid.key));
        for (size_t s = 0; s < layout.sequences.size(); ++s) {
            const LaidSequence& laid = layout.sequences[s];
            if (!laid.written) continue;
            for (int32_t a = laid.place; a < laid.end; ++a)
                if (inArea(a)) owner[areaIndex(a)] = static_cast<int32_t>(s);
            for (int32_t p : laid.places)
                if (inArea(p)) expected[areaIndex(p)] = 1;
            if (inArea(laid.continuationAt)) expected[areaIndex(laid.continuationAt)] = 1;
            // The commands copied after a Long Snap: the game runs each copy
            // (what led into the middle of one still leads to the original).
            for (const auto& [place, was] : laid.tail)
                if (inArea(place)) expected[areaIndex(place)] = 1;
        }

        // Where the edit leads the game (an entry pointed at a sequence it never
        // ran, a lock-up moved, a branch set): it runs what the image's bytes
        // hold from there. Only the bytes this save writes are checked command by command.
        std::vector<int32_t> edited;
        for (const AreaEntry& e : playbookEntries(again)) {
            const int32_t t = e.target.address();  // read from bytes: every entry names an address
            if (inArea(t) && !oldStart[areaIndex(t)] && owner[areaIndex(t)] < 0) edited.push_back(t);
        }
        for (const LaidSequence& laid : layout.sequences)
            if (laid.written && inArea(laid.place)) edited.push_back(laid.place);
        for (const GameCommand& g : traceFrom(bytes, edited))
            if (owner[areaIndex(g.address)] < 0) oldStart[areaIndex(g.address)] = 1;
        const std::span<const uint8_t> oldArea = areaBytes(before.openedBytes);
        // A command the game ran there before, on the very same bytes (a way in
        // from elsewhere to the middle of a command, left as it was).
        auto runsAsBefore = [&](int32_t a) {
            const GameCommand* was = oldMap.commandAt(a);
            if (!was) return false;
            for (int32_t b = a; b < a + was->length; ++b)
                if (areaIndex(b) >= oldArea.size() || areaIndex(b) >= newArea.size() || oldArea[areaIndex(b)] != newArea[areaIndex(b)])
                    return false;
            return true;
        };
        for (int32_t a : newMap->commands) {
            const int32_t s = owner[areaIndex(a)];
            if (s >= 0) {
                if (!expected[areaIndex(a)] && !models[static_cast<size_t>(s)]->readsDifferentlyByGame() && !runsAsBefore(a))
                    fail("the game would run " + hex4(a) + " in the middle of a command of " +
                         sequenceName(layout.sequences[static_cast<size_t>(s)].key) + " as written");
            } else if (!oldStart[areaIndex(a)]) {
                fail("the game would run a command at " + hex4(a) + ", where it ran none before");
            }
        }

        sequencesRun(newArea);
        operandsBeforeTheArea(oldMap, newArea);
        leadsIntoRewritten(*newMap, owner, newArea, runsAsBefore);
    }

    // A command the game runs just before the area that takes operands from
    // its first bytes reads them as before.
    void operandsBeforeTheArea(const AreaMap& oldMap, std::span<const uint8_t> newArea) const {
        const std::span<const uint8_t> oldArea = areaBytes(before.openedBytes);
        for (const GameCommand& g : oldMap.outsideCommands)
            for (auto [a, end] = areaSpan(g); a < end; ++a)
                if (areaIndex(a) >= oldArea.size() || areaIndex(a) >= newArea.size() || oldArea[areaIndex(a)] != newArea[areaIndex(a)])
                    fail("the command the game runs at " + hex4(g.address) + " would read other operands at " + hex4(a));
    }

    // Each written sequence runs its commands in order and goes on where it went on before.
    void sequencesRun(std::span<const uint8_t> newArea) const {
        const std::span<const uint8_t> oldArea = areaBytes(before.openedBytes);
        for (size_t s = 0; s < layout.sequences.size(); ++s) {
            const LaidSequence& laid = layout.sequences[s];
            // Outside the area the game's reading is not mapped: the editor's reading above is the check.
            if (!laid.written || models[s]->readsDifferentlyByGame() || !inArea(laid.place)) continue;
            for (size_t i = 0; i < laid.places.size(); ++i) {
                GameCommand g;
                const std::string where = "command " + std::to_string(i) + " of " + sequenceName(laid.key);
                if (!readGameCommand(newArea, laid.places[i], g)) fail(where + " would run off the sequence area");
                if (cmd::isLockUp(g.code)) break;  // the game hangs here: nothing after it runs
                const int32_t next = laid.places[i] + g.length;
                if (i + 1 < laid.places.size()) {
                    if (!g.fallsThrough || next != laid.places[i + 1])
                        fail("the game would not go from " + where + " to the next");
                    continue;
                }
                if (laid.continuation < 0) continue;
                if (!g.fallsThrough)
                    fail("the game would stop after " + where + " instead of going on at " + hex4(laid.continuation));
                if (!laid.tail.empty()) {
                    checkTail(laid, next, oldArea, newArea, [this](const std::string& w) { fail(w); });
                } else if (laid.continuationAt >= 0) {
                    GameCommand jump;
                    if (next != laid.continuationAt || !readGameCommand(newArea, next, jump) || jump.target != laid.continuation)
                        fail("the game would not go on at " + hex4(laid.continuation) + " after " + where);
                } else if (next != laid.continuation) {
                    fail("the game would go on at " + hex4(next) + " after " + where + ", not at " + hex4(laid.continuation));
                }
            }
        }
    }

    // What leads into bytes rewritten in place from outside them still finds
    // the command it led to: one of the sequence's own, as read there, or a
    // command the game ran there before on the very same bytes (a change of
    // values elsewhere in the sequence leaves it as it was; every command the
    // game runs on from there among the written bytes is checked above).
    void leadsIntoRewritten(const AreaMap& newMap, const std::vector<int32_t>& owner, std::span<const uint8_t> newArea,
                            const std::function<bool(int32_t)>& runsAsBefore) const {
        for (int32_t a : newMap.commands) {
            if (owner[areaIndex(a)] >= 0) continue;
            GameCommand g;
            if (!readGameCommand(newArea, a, g)) continue;
            for (const int32_t t : {g.fallsThrough ? a + g.length : -1, g.target}) {
                if (!inArea(t) || owner[areaIndex(t)] < 0) continue;
                const auto s = static_cast<size_t>(owner[areaIndex(t)]);
                const LaidSequence& laid = layout.sequences[s];
                bool same = t == laid.place && laid.key == SeqKey::at(laid.place);
                for (size_t i = 0; !same && i < laid.places.size(); ++i)
                    same = laid.places[i] == t && models[s]->commands()[i].origin == CmdId::readAt(t);
                if (!same && !runsAsBefore(t))
                    fail("the command at " + hex4(a) + " would lead to " + hex4(t) + ", which " + sequenceName(laid.key) +
                         " rewrote");
            }
        }
    }

    const Playbook& model;
    const Playbook& before;
    const ImageBytes& bytes;
    const SaveLayout& layout;
    const AreaMap* beforeMap;
    Playbook again;
    std::optional<AreaMap> newMap;  // the game's reading of `again`, once gameReading made it
    std::unordered_set<SeqKey> reachable;
    std::vector<const clsSequence*> models;
};

}  // namespace

Playbook verifyWrite(const Playbook& model, const Playbook& before, const ImageBytes& bytes,
                     const SaveLayout& layout, const AreaMap* beforeMap, AreaMap* afterMap) {
    return WriteCheck(model, before, bytes, layout, beforeMap).run(afterMap);
}

}  // namespace zpe
