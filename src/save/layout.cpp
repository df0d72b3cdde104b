#include "save/layout.h"

#include "analysis/entries.h"
#include "model/hex.h"
#include "playbook/open_rom.h"
#include "sequence/command_codes.h"
#include "sequence/command_format.h"

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <unordered_set>

namespace zpe {

using namespace cmd;

namespace {

// No command the game reads is longer (a COM pass with 15 receivers: 19 bytes).
constexpr int32_t kLongestGameCommand = 19;

size_t areaIndex(int32_t address) { return static_cast<size_t>(address - kSequenceAreaAddress); }

bool isJump(const SeqCommand& c) { return c.command == kRelativeJump || c.command == kAbsoluteJump; }

// The address a closing jump leads on to; -1 for none, for a loop back and
// for one to a command of its own. A jump to where a sequence starts runs
// that sequence: it follows it when it moves.
int32_t closingName(const SeqCommand& c) {
    if (!isJump(c) || c.field.kind != FieldRef::Kind::Address) return -1;
    // A loop back is no way on to another sequence: the editor does not follow it.
    if (c.command == kRelativeJump && c.field.backward) return -1;
    return c.field.address;
}

// Where a sequence's closing loop back leads when that is no command of its
// own (the middle of another sequence, say); kNoField for none.
int32_t outsideLoopBack(const clsSequence& seq) {
    const SeqCommand& end = seq.commands().back();
    if (end.command != kRelativeJump || end.field.kind != FieldRef::Kind::Address || !end.field.backward) return clsSequence::kNoField;
    return end.field.address;
}

// True when every command of a chain stands where it was read, as long as it
// was: its commands changed their values alone.
bool keepsItsCommandsInPlace(const Chain& c) {
    if (static_cast<int32_t>(c.bytes.size()) != c.oldSize) return false;
    for (size_t i = 0; i < c.places.size(); ++i) {
        const CmdId id = c.seq->commands()[i].origin;
        if (id.isNew() || id.readAddress() != c.places[i]) return false;
    }
    return true;
}

// True when a chain encoded its closing relative jump as one (not made absolute).
bool keepsRelative(const Chain& c) {
    if (c.seq->commands().back().command != kRelativeJump) return true;
    const auto at = static_cast<size_t>(c.places.back() - c.place);
    return at < c.bytes.size() && c.bytes[at] == kRelativeJump;
}

std::vector<uint8_t> bytesAt(const std::vector<uint8_t>& image, int32_t address, int32_t size) {
    const int32_t offset = offsetOfAddress(address);
    if (offset < 0 || size <= 0 || static_cast<size_t>(offset) >= image.size()) return {};
    const auto end = std::min(image.size(), static_cast<size_t>(offset) + static_cast<size_t>(size));
    return std::vector<uint8_t>(image.begin() + offset, image.begin() + static_cast<std::ptrdiff_t>(end));
}

// True when file offset `o` holds a table a save writes (formations, plays,
// pointers, slots): a sequence lying there is not rewritten where it stands.
bool inTables(int32_t o) {
    auto within = [o](int32_t start, int32_t size) { return o >= start && o < start + size; };
    return within(kFormationTableOffset, kPointerTableOffset + 2 * kPointerCount - kFormationTableOffset) ||
           within(kOffSlotTableOffset, kSlotCount * kOffSlotRecordSize) || within(kDefSlotTableOffset, kSlotCount * kDefSlotRecordSize) ||
           within(kRusherTableOffset, kGfxTableOffset + kSlotCount * kGfxRecordSize - kRusherTableOffset);
}

// Something that leads to `to` from the command at `from`: a jump, a branch,
// a fall-through of the game's, a field of an editor sequence, a table entry (from -1).
struct Reference {
    int32_t from = -1;
    int32_t to = 0;
};

class Engine {
public:
    Engine(const Playbook& pb, const Playbook& old, const AreaMap& map, const std::vector<uint8_t>& image)
        : pb_(pb), old_(old), map_(map), image_(image) {}

    LayoutResult run();

private:
    void collect();
    void addChain(SeqKey key, const clsSequence& seq);
    void markNamedBytes();
    void indexBackwards();
    void decideInPlace(Chain& c, bool& moreMoved);
    void placeMoved();
    // `withBytes` false: only the places and where the fields lead (the bytes are the image's).
    void encode(Chain& c, int32_t at, bool followMoves, bool withBytes = true) const;
    void appendLink(Chain& c) const;
    void copyTail(Chain& c, int32_t continuation) const;
    bool fitsInPlace(const Chain& c) const;
    bool readElsewhere(int32_t start, const std::vector<int32_t>& addresses, const std::vector<int32_t>& alsoStarts = {}) const;
    bool gameReadsAsOther(int32_t address, int32_t start) const;
    bool gameStartsAt(int32_t address) const;
    bool readWithoutEnd(int32_t address) const;
    bool enteredInside(const Chain& c) const;
    bool othersWriteTheSame(const Chain& c, const std::vector<int32_t>& changed, const std::vector<uint8_t>& bytes,
                            std::vector<int32_t>& starts) const;
    std::vector<int32_t> commandsHolding(int32_t address) const;
    std::vector<uint8_t> gameRuns(const Chain& c) const;
    void checkFields(const Chain& c, const std::vector<uint8_t>& runs) const;
    void checkContinuation(const Chain& c, const std::vector<uint8_t>& runs) const;
    void checkGameFields(const Chain& c) const;
    void checkLoopBack(const Chain& c) const;
    [[noreturn]] void refuse(const std::string& what, Refusal kind) const {
        throw SaveError(pb_.romPath + ": " + what + "; nothing was saved", kind);
    }

    const Playbook& pb_;
    const Playbook& old_;
    const AreaMap& map_;
    const std::vector<uint8_t>& image_;
    std::vector<Chain> chains_;
    std::unordered_map<SeqKey, int32_t> moves_;   // moved key -> place (-1: not placed yet)
    std::vector<Reference> references_;           // everything leading into the area or into a sequence
    std::vector<uint16_t> coverage_ = std::vector<uint16_t>(kSequenceAreaSize, 0);  // editor sequences over each byte
    std::vector<int32_t> roots_;                  // where the game starts: entries into the area
    std::vector<int32_t> node_ = std::vector<int32_t>(kSequenceAreaSize, -1);  // index into map_.program by address
    std::vector<AreaRun> free_;
    int32_t freeLeft_ = 0;
    // The game's program backwards: the commands after which the game may run
    // command n are before_[beforeFrom_[n] .. beforeFrom_[n + 1]).
    std::vector<int32_t> beforeFrom_, before_;
    std::vector<uint8_t> isRoot_;                  // by command: the game starts there
    mutable std::vector<uint32_t> seen_;           // by command: the search that last came there
    mutable uint32_t search_ = 0;
    // The bytes right after an editor sequence ending in a Long Snap: an FF
    // there would make the snap no end (the editor would read on).
    std::unordered_set<int32_t> afterLongSnap_;
    std::unordered_set<int32_t> usedOutside_;  // every address outside the area the image as read leads to
    // Area bytes no move may land on beyond those writableRuns leaves alone:
    // what the game now runs from an entry pointed at commands it never ran.
    std::vector<uint8_t> named_ = std::vector<uint8_t>(kSequenceAreaSize, 0);
    // The entries the open found no sequence at, with how far each reads (in and out of the area).
    std::vector<std::pair<AreaEntry, int32_t>> unended_;
};

// A sequence of the model as a chain to lay out: where it stood, where the game goes on after it.
void Engine::addChain(SeqKey key, const clsSequence& seq) {
    const bool made = key.isNew();
    const clsSequence* before = old_.sequences.find(key);
    if (!before && !made)
        throw SaveError(pb_.romPath + ": " + sequenceName(key) + " is no longer in the image as it was opened; open it again",
                        Refusal::ChangedOnDisk);
    if (const std::string problem = seq.verify(); !problem.empty()) refuse(sequenceName(key) + ": " + problem, Refusal::Other);
    Chain c;
    c.key = key;
    c.seq = &seq;
    c.place = made ? 0 : key.address();
    c.moved = made;
    c.edited = made || before->commands() != seq.commands();
    if (made) {
        c.continuation = seq.continuation();
    } else {
        c.oldSize = before->byteSize();
        if (before->gameGoesOnAfterEnd()) c.continuation = key.address() + before->byteSize();
    }
    if (seq.gameGoesOnAfterEnd() && c.continuation < 0)
        refuse(sequenceName(key) + " now ends with " + hex2(seq.commands().back().command) + ", after which the game goes on, but " +
                   (made ? "it names no command to go on at" : "the game did not go on after it before") + "; end it with a jump",
               Refusal::Other);
    if (!seq.gameGoesOnAfterEnd()) c.continuation = -1;
    if (const int32_t peek = seq.readsPastEnd(); peek >= 0) afterLongSnap_.insert(peek);
    chains_.push_back(std::move(c));
}

void Engine::collect() {
    // A sequence made in the editor that nothing runs is not written (only such a one can be left out).
    const bool anyMade = std::any_of(pb_.sequences.begin(), pb_.sequences.end(), [](const auto& s) { return s.first.isNew(); });
    const std::unordered_set<SeqKey> reachable = anyMade ? reachableKeys(pb_) : std::unordered_set<SeqKey>{};
    for (const auto& [key, seq] : pb_.sequences)
        if (key.placed() || reachable.count(key)) addChain(key, seq);
    for (size_t k = 0; k < map_.program.size(); ++k) node_[areaIndex(map_.program[k].address)] = static_cast<int32_t>(k);
    for (const GameCommand& g : map_.program) {
        if (g.target >= 0) references_.push_back({g.address, g.target});
        if (g.fallsThrough) references_.push_back({g.address, g.address + g.length});
    }
    for (const auto& [key, seq] : old_.sequences) {  // as read: every one stands at its address
        const int32_t start = key.address();
        const std::vector<int32_t> targets = seq.fieldTargets();
        int32_t at = start;
        for (size_t i = 0; i < targets.size(); ++i) {
            if (targets[i] != clsSequence::kNoField) references_.push_back({at, targets[i]});
            if (!inArea(start) && inArea(targets[i])) roots_.push_back(targets[i]);  // a way in from outside the area
            at += seq.commands()[i].encodedSize();
        }
        for (int32_t a = std::max(start, kSequenceAreaAddress); a < std::min(start + seq.byteSize(), kAreaEnd); ++a) ++coverage_[areaIndex(a)];
        if (const int32_t peek = seq.readsPastEnd(); peek >= 0) afterLongSnap_.insert(peek);
    }
    // Where the image as read leads outside the area: a field may be set to lead there too.
    for (const Reference& r : references_)
        if (!inArea(r.to)) usedOutside_.insert(r.to);
    for (const AreaEntry& e : playbookEntries(old_))
        if (!inArea(e.target.address())) usedOutside_.insert(e.target.address());
    roots_.insert(roots_.end(), map_.comesBackAt.begin(), map_.comesBackAt.end());  // paths from outside the area
    // The fields as edited lead somewhere too (a branch set to the middle of
    // another sequence), and so does where a new sequence goes on.
    for (const Chain& c : chains_) {
        if (c.continuation >= 0) references_.push_back({-1, c.continuation});
        if (c.edited)
            for (const SeqCommand& cmd : c.seq->commands())
                if (cmd.field.kind == FieldRef::Kind::Address) references_.push_back({-1, cmd.field.address});
    }
    markNamedBytes();
    std::vector<int32_t> fresh;  // entries now naming a command the game never ran
    for (const AreaEntry& e : playbookEntries(pb_)) {
        if (e.target.isNew()) continue;  // leads where its sequence will be placed
        const int32_t t = e.target.address();
        references_.push_back({-1, t});
        if (inArea(t)) roots_.push_back(t);
        if (inArea(t) && !map_.commandAt(t)) fresh.push_back(t);
    }
    // From those the game now runs the image's bytes, and whatever they lead
    // to (the logic after a Human Control, say): no move may land there.
    if (!fresh.empty())
        for (const GameCommand& g : traceFrom(image_, fresh))
            for (int32_t a = g.address; a < g.address + g.length && inArea(a); ++a) named_[areaIndex(a)] = 1;
    indexBackwards();
}

// The program backwards, for readElsewhere.
void Engine::indexBackwards() {
    const size_t count = map_.program.size();
    auto nodeAt = [&](int32_t a) { return inArea(a) ? node_[areaIndex(a)] : -1; };
    auto eachNext = [&](const GameCommand& g, auto&& f) {
        if (g.fallsThrough && nodeAt(g.address + g.length) >= 0) f(nodeAt(g.address + g.length));
        if (g.target >= 0 && nodeAt(g.target) >= 0) f(nodeAt(g.target));
    };
    beforeFrom_.assign(count + 1, 0);
    for (const GameCommand& g : map_.program) eachNext(g, [&](int32_t n) { ++beforeFrom_[static_cast<size_t>(n) + 1]; });
    for (size_t n = 0; n < count; ++n) beforeFrom_[n + 1] += beforeFrom_[n];
    before_.assign(static_cast<size_t>(beforeFrom_[count]), 0);
    std::vector<int32_t> fill(beforeFrom_.begin(), beforeFrom_.end() - 1);
    for (size_t k = 0; k < count; ++k)
        eachNext(map_.program[k], [&](int32_t n) { before_[static_cast<size_t>(fill[static_cast<size_t>(n)]++)] = static_cast<int32_t>(k); });
    isRoot_.assign(count, 0);
    seen_.assign(count, 0);
    for (int32_t r : roots_)
        if (nodeAt(r) >= 0) isRoot_[static_cast<size_t>(nodeAt(r))] = 1;
}

// An entry the open found no sequence at (its reading runs into free bytes
// without an end) still names those bytes: writing there would give it one.
void Engine::markNamedBytes() { unended_ = unendedReadings(old_, image_); }

// True when an entry that starts no valid sequence reads the byte at `address`.
bool Engine::readWithoutEnd(int32_t address) const {
    return std::any_of(unended_.begin(), unended_.end(), [&](const auto& r) {
        const int32_t from = r.first.target.address();
        return address >= from && address < from + r.second;
    });
}

// True when the game reads a byte at one of `addresses` on a path that does
// not enter at `start` (nor at one of `alsoStarts`, sequences that want the
// same bytes there): whoever runs it there runs something else than the
// sequence at `start`. Searched backwards from the commands holding those
// bytes, never through the command at such a start, until a place the game starts.
bool Engine::readElsewhere(int32_t start, const std::vector<int32_t>& addresses, const std::vector<int32_t>& alsoStarts) const {
    const int32_t keyNode = inArea(start) ? node_[areaIndex(start)] : -1;
    ++search_;
    for (const int32_t s : alsoStarts)  // searched already: never entered
        if (inArea(s) && node_[areaIndex(s)] >= 0) seen_[static_cast<size_t>(node_[areaIndex(s)])] = search_;
    std::vector<int32_t> work;
    for (int32_t a : addresses)
        for (int32_t n : commandsHolding(a)) {
            if (n == keyNode || seen_[static_cast<size_t>(n)] == search_) continue;
            seen_[static_cast<size_t>(n)] = search_;
            work.push_back(n);
        }
    while (!work.empty()) {
        const auto n = static_cast<size_t>(work.back());
        work.pop_back();
        if (isRoot_[n]) return true;
        for (int32_t k = beforeFrom_[n]; k < beforeFrom_[n + 1]; ++k) {
            const auto b = static_cast<size_t>(before_[static_cast<size_t>(k)]);
            if (static_cast<int32_t>(b) == keyNode || seen_[b] == search_) continue;
            seen_[b] = search_;
            work.push_back(static_cast<int32_t>(b));
        }
    }
    return false;
}

// True when the game starts at a command at `address`: an entry, or a way in from outside the area.
bool Engine::gameStartsAt(int32_t address) const {
    return inArea(address) && node_[areaIndex(address)] >= 0 && isRoot_[static_cast<size_t>(node_[areaIndex(address)])];
}

// True when the game runs a command holding the byte at `address` that does
// not start at `start`.
bool Engine::gameReadsAsOther(int32_t address, int32_t start) const {
    for (int32_t n : commandsHolding(address))
        if (map_.program[static_cast<size_t>(n)].address != start) return true;
    return false;
}

// The commands of the game's program (by index) whose bytes hold `address`.
std::vector<int32_t> Engine::commandsHolding(int32_t address) const {
    std::vector<int32_t> out;
    auto it = std::lower_bound(map_.program.begin(), map_.program.end(), address - kLongestGameCommand,
                               [](const GameCommand& g, int32_t a) { return g.address < a; });
    for (; it != map_.program.end() && it->address <= address; ++it)
        if (address < it->address + it->length) out.push_back(static_cast<int32_t>(it - map_.program.begin()));
    return out;
}

// A chain's commands, and the way on to where the game goes on, at `at`.
// `followMoves`: a closing jump naming a moved sequence leads to its new place.
void Engine::encode(Chain& c, int32_t at, bool followMoves, bool withBytes) const {
    const std::vector<SeqCommand>& cmds = c.seq->commands();
    const size_t n = cmds.size();
    c.place = at;
    c.bytes.clear();
    c.places.assign(n, 0);
    c.tail.clear();
    c.linkAt = -1;
    int32_t p = at;
    for (size_t i = 0; i < n; ++i) {
        c.places[i] = p;
        p += cmds[i].encodedSize();
    }
    c.targets = c.seq->fieldTargets(c.places);
    // A closing jump to another sequence's start follows it; one to its own
    // commands stays with them.
    if (followMoves && cmds.back().field.kind == FieldRef::Kind::Address)
        if (const auto m = moves_.find(SeqKey::at(closingName(cmds.back()))); m != moves_.end()) c.targets[n - 1] = m->second;
    SeqCommand last = cmds.back();  // a closing relative jump out of reach is written absolute
    if (last.command == kRelativeJump) {
        const int32_t t = c.targets[n - 1];
        if (t == clsSequence::kNoField || !relativeReaches(c.places[n - 1], t, c.seq->leadsBack(static_cast<int>(n) - 1)))
            last = madeAbsolute(last);
    }
    if (!withBytes) {  // an unchanged sequence: its bytes are the image's
        c.bytes = bytesAt(image_, c.key.address(), c.oldSize);
        return;
    }
    c.bytes.reserve(static_cast<size_t>(c.seq->byteSize()) + 3);
    for (size_t i = 0; i < n; ++i) encodeCommand(i + 1 == n ? last : cmds[i], c.places[i], c.targets[i], c.bytes);
    appendLink(c);
}

// After a last command the game goes on from: nothing when the next byte is
// where it went on, else a jump there, or after a Long Snap (which an
// absolute jump right after would turn into no end) the commands it ran.
void Engine::appendLink(Chain& c) const {
    if (c.continuation < 0 || !c.seq->gameGoesOnAfterEnd()) return;
    const int32_t end = c.place + static_cast<int32_t>(c.bytes.size());
    const bool longSnap = c.seq->commands().back().command == kLongSnap;
    const int32_t C = c.continuation;
    const std::vector<uint8_t> first = bytesAt(image_, C, 1);
    if (end == C && !(longSnap && !first.empty() && first[0] == kAbsoluteJump)) return;
    c.linkAt = end;
    SeqCommand jump;
    jump.command = kRelativeJump;
    jump.dataLen = 1;
    jump.field = FieldRef::at(C, C < end);
    if (relativeReaches(end, C, C < end)) {
        encodeCommand(jump, end, C, c.bytes);
    } else if (!longSnap) {
        encodeCommand(madeAbsolute(jump), end, C, c.bytes);
    } else {
        copyTail(c, C);
    }
}

// The commands the game runs from `from` (past jumps that lead straight on),
// up to the first after which it does not go on, copied after a Long Snap.
void Engine::copyTail(Chain& c, int32_t from) const {
    std::unordered_set<int32_t> seen;
    for (const GameCommand* g = map_.commandAt(from); g && (g->code == kRelativeJump || g->code == kAbsoluteJump) && seen.insert(from).second;
         g = map_.commandAt(from))
        from = g->target;
    if (const GameCommand* g = map_.commandAt(from); g && (g->code == kRelativeJump || g->code == kAbsoluteJump)) from = -1;  // jumps in a circle
    std::vector<const GameCommand*> run;
    for (int32_t a = from; from >= 0 && run.size() < static_cast<size_t>(kSequenceAreaSize);) {
        const GameCommand* g = map_.commandAt(a);
        if (!g || (g->code == kAbsoluteJump && run.empty())) break;
        run.push_back(g);
        if (!g->fallsThrough) break;
        a += g->length;
    }
    if (run.empty() || run.back()->fallsThrough)
        refuse(sequenceName(c.key) + " ends with a Long Snap, and what the game ran after it at " + hex4(c.continuation) +
                   " cannot be carried along (a jump it never leaves, or no command the game runs)",
               Refusal::WouldNotReopen);
    // Places to a fixed point: a relative jump whose target is out of reach
    // from its copy is written absolute, one byte longer, which moves the
    // copies after it.
    const CommandFormat jump = commandFormat(kAbsoluteJump, false, -1);
    std::vector<bool> absolute(run.size(), false);
    for (bool settled = false; !settled;) {
        settled = true;
        c.tail.clear();
        int32_t q = c.linkAt;
        for (size_t k = 0; k < run.size(); ++k) {
            c.tail.emplace_back(q, run[k]->address);
            q += absolute[k] ? jump.gameLength : run[k]->length;
        }
        for (size_t k = 0; k < run.size(); ++k) {
            const GameCommand& g = *run[k];
            if (absolute[k] || commandFormat(g.code, false, -1).field != FieldKind::Relative) continue;
            if (!relativeReaches(c.tail[k].first, copiedLead(c.tail, g.target), g.target < g.address)) {
                absolute[k] = true;
                settled = false;
            }
        }
    }
    for (size_t k = 0; k < run.size(); ++k) {
        const GameCommand& g = *run[k];
        const std::vector<uint8_t> bytes =
            encodeGameCommand(bytesAt(image_, g.address, g.length), c.tail[k].first, copiedLead(c.tail, g.target), absolute[k]);
        c.bytes.insert(c.bytes.end(), bytes.begin(), bytes.end());
    }
}

// True when the chain's bytes at its key may replace the image's: they fit;
// no other path of the game or the editor reads a byte the edit changes; and
// whatever leads into its middle from outside finds its command where it was.
bool Engine::fitsInPlace(const Chain& c) const {
    if (static_cast<int32_t>(c.bytes.size()) > c.oldSize) return false;
    const int32_t key = c.key.address();  // only a sequence read from the image stays in place
    for (int32_t a = key; !inArea(key) && a < key + c.oldSize; ++a)
        if (inTables(offsetOfAddress(a))) return false;
    // The game reads a COM pass's receiver address beyond the editor's bytes and
    // nothing relinks it: such a sequence changes only where every command stays.
    if (c.seq->readsDifferentlyByGame())
        for (size_t i = 0; i < c.places.size(); ++i) {
            const CmdId id = c.seq->commands()[i].origin;
            if (id.isNew() || id.readAddress() != c.places[i])
                refuse(sequenceName(c.key) + " holds a COM pass or 0xF1, whose bytes the game reads with other lengths; "
                       "it can be changed only where its commands stay in place (values, not added or removed commands)",
                       Refusal::CannotMove);
        }
    if (afterLongSnap_.count(key) && !c.bytes.empty() && c.bytes[0] == kAbsoluteJump) return false;
    // A field naming an address among its own old bytes means the command the
    // image held there: in place, that is rewritten (unless one of its own stands there).
    for (size_t i = 0; i < c.targets.size(); ++i) {
        const SeqCommand& cmd = c.seq->commands()[i];
        const int32_t t = c.targets[i];
        if (cmd.field.kind == FieldRef::Kind::Address && t >= key && t < key + c.oldSize &&
            std::find(c.places.begin(), c.places.end(), t) == c.places.end())
            return false;
    }
    const std::vector<uint8_t> old = bytesAt(image_, key, c.oldSize);
    Chain plain = c;
    encode(plain, key, false);  // what the edit alone writes, before any jump follows a move
    std::vector<int32_t> changed;
    for (size_t i = 0; i < plain.bytes.size() && i < old.size(); ++i)
        if (plain.bytes[i] != old[i]) changed.push_back(key + static_cast<int32_t>(i));
    if (!changed.empty()) {
        if (std::any_of(changed.begin(), changed.end(), [&](int32_t a) { return readWithoutEnd(a); })) return false;
        if (inArea(key)) {
            std::vector<int32_t> sharing;  // the starts of other sequences writing the same bytes
            if (!othersWriteTheSame(c, changed, plain.bytes, sharing)) return false;
            if (readElsewhere(key, changed, sharing)) return false;
        } else {
            for (const auto& [k, seq] : old_.sequences)
                if (k != c.key && k.address() < key + c.oldSize && k.address() + seq.byteSize() > key) return false;
            if (enteredInside(c)) return false;
        }
    }
    // A closing jump that follows a moved sequence changes its bytes for
    // every path that runs it, but another editor sequence reading them
    // (as its own values, say) must not see them change.
    // Nor may the game, on a path that reads them as another command (one
    // entering a byte into the jump).
    const int32_t jumpAt = c.places.empty() ? -1 : c.places.back();
    for (size_t i = 0; i < c.bytes.size() && i < old.size() && i < plain.bytes.size(); ++i) {
        const int32_t a = key + static_cast<int32_t>(i);
        if (c.bytes[i] == old[i] || plain.bytes[i] != old[i]) continue;
        if (!inArea(a) || coverage_[areaIndex(a)] > 1 || gameReadsAsOther(a, jumpAt) || readWithoutEnd(a)) return false;
    }
    // What leads into its middle: from outside its old bytes, or from old
    // bytes past the new ones that another path still runs.
    const int32_t from = key, to = key + c.oldSize, written = key + static_cast<int32_t>(c.bytes.size());
    // Old bytes left past the new ones still run when the new commands lead there.
    const bool leftRuns = std::any_of(c.targets.begin(), c.targets.end(), [&](int32_t t) { return t >= written && t < to; });
    // A change of values alone leaves every byte but the changed ones as it
    // was: a way in that the game's program holds (one of its own, or a place
    // it starts) reads what it read, unless it comes to a changed byte, which
    // readElsewhere has looked for on every such path.
    const bool valuesOnly = inArea(key) && !changed.empty() && c.bytes == plain.bytes && keepsItsCommandsInPlace(c);
    for (const Reference& r : references_) {
        if (r.to <= from || r.to >= to) continue;
        if (r.from >= from && r.from < written) continue;  // its own commands, written anew
        if (valuesOnly && (r.from >= 0 || gameStartsAt(r.to))) continue;
        if (r.from >= written && r.from < to && !leftRuns && !(inArea(key) && readElsewhere(key, {r.from}))) continue;
        bool found = false;
        for (size_t i = 0; i < c.places.size() && !found; ++i) found = c.places[i] == r.to && c.seq->commands()[i].origin == CmdId::readAt(r.to);
        if (!found) return false;
    }
    return true;
}

// True when every other editor sequence whose old bytes hold a byte of
// `changed` (addresses in the area) is to hold there what `c` writes
// (`bytes`, from its key): it changed the command it shows there the same way
// (a command shared by overlapping sequences, see withSharedValueEdits), so
// writing it in place serves every reading. One that did not change it, or
// that the model no longer holds, reads it otherwise. `starts` gets theirs.
bool Engine::othersWriteTheSame(const Chain& c, const std::vector<int32_t>& changed, const std::vector<uint8_t>& bytes,
                                std::vector<int32_t>& starts) const {
    const int32_t key = c.key.address();
    // `changed` ascends: each other sequence's old bytes are one range of it.
    std::vector<int> readers(changed.size(), 0);
    std::vector<const Chain*> others;
    for (const Chain& d : chains_) {
        if (&d == &c || d.key.isNew()) continue;
        const auto from = std::lower_bound(changed.begin(), changed.end(), d.key.address());
        const auto to = std::lower_bound(from, changed.end(), d.key.address() + d.oldSize);
        bool reads = false;
        for (auto a = from; a != to; ++a)
            if (inArea(*a) && coverage_[areaIndex(*a)] > 1) {
                ++readers[static_cast<size_t>(a - changed.begin())];
                reads = true;
            }
        if (!reads) continue;
        if (!d.edited || d.moved) return false;  // a moved one's bytes stay as they were (its old copy)
        others.push_back(&d);
    }
    for (size_t k = 0; k < changed.size(); ++k)
        if (inArea(changed[k]) && readers[k] != coverage_[areaIndex(changed[k])] - 1 && coverage_[areaIndex(changed[k])] > 1) return false;
    for (const Chain* d : others) {
        Chain plain = *d;
        encode(plain, d->key.address(), false);
        for (const int32_t a : changed) {
            const int32_t i = a - d->key.address();
            if (i < 0 || i >= d->oldSize) continue;
            if (i >= static_cast<int32_t>(plain.bytes.size()) || plain.bytes[static_cast<size_t>(i)] != bytes[static_cast<size_t>(a - key)])
                return false;
        }
        starts.push_back(d->key.address());
    }
    return true;
}

// True when the game reads the old bytes of `c`, a sequence outside the
// area, otherwise than by running it from its start: a path from elsewhere
// leads into its middle, or runs a command across its bytes that is none of
// the commands read there. Changed in place, those paths would run other commands.
bool Engine::enteredInside(const Chain& c) const {
    const int32_t from = c.key.address(), to = from + c.oldSize;
    auto inside = [&](int32_t a) { return a > from && a < to; };
    // Its own commands as the game reads them from its start (a COM pass takes
    // more bytes for the game than for the editor), falling through.
    std::unordered_set<int32_t> own;
    const auto& outside = map_.outsideCommands;
    for (int32_t at = from; at < to;) {
        const auto g = std::lower_bound(outside.begin(), outside.end(), at,
                                        [](const GameCommand& x, int32_t a) { return x.address < a; });
        if (g == outside.end() || g->address != at || !own.insert(at).second) break;
        if (!g->fallsThrough) break;
        at += g->length;
    }
    for (const GameCommand& g : outside) {
        if (g.address >= from && g.address < to) {
            if (!own.count(g.address)) return true;
            continue;
        }
        if (g.address + g.length > from && g.address < to) return true;
        if ((g.target >= 0 && inside(g.target)) || (g.fallsThrough && inside(g.address + g.length))) return true;
    }
    return std::any_of(map_.leaves.begin(), map_.leaves.end(), [&](const AddressField& f) { return inside(f.target); }) ||
           std::any_of(map_.outside.begin(), map_.outside.end(), [&](const AreaEntry& e) { return inside(e.target.address()); });
}

void Engine::decideInPlace(Chain& c, bool& moreMoved) {
    // Commands as read encode to the bytes they were read from: only a closing
    // jump that follows a moved sequence can change them.
    const SeqCommand& end = c.seq->commands().back();
    if (!c.edited && (end.field.kind != FieldRef::Kind::Address || !moves_.count(SeqKey::at(closingName(end))))) {
        c.written = false;
        c.bytes.clear();
        return;
    }
    encode(c, c.key.address(), true);
    const std::vector<uint8_t> old = bytesAt(image_, c.key.address(), c.oldSize);
    if (c.bytes == old) {
        c.written = false;
        return;
    }
    if (fitsInPlace(c)) {
        c.written = true;
        return;
    }
    c.moved = true;
    moreMoved = true;
}

// Every moved chain into the free runs, in the model's order: the first run
// that holds it and that the relative jumps staying in place can reach, else
// the first that holds it.
void Engine::placeMoved() {
    // Beyond what the image holds: what an entry now runs that the game never
    // ran, and the byte after a sequence the edit ends with a Long Snap.
    std::vector<uint8_t> leaveAlone = named_;
    for (const int32_t a : afterLongSnap_)
        if (inArea(a)) leaveAlone[areaIndex(a)] = 1;
    free_ = writableRuns(old_, map_, image_, unended_, leaveAlone);
    moves_.clear();
    // The relative jumps staying where they are, by the key they lead to.
    std::unordered_map<SeqKey, std::vector<int32_t>> reachersOf;
    for (const Chain& c : chains_) {
        if (c.moved) moves_[c.key] = -1;
        const SeqCommand& end = c.seq->commands().back();
        if (!c.moved && end.command == kRelativeJump && closingName(end) >= 0)
            reachersOf[SeqKey::at(closingName(end))].push_back(c.seq->place(c.seq->commandCount() - 1));
    }
    for (Chain& c : chains_) {
        if (!c.moved) continue;
        const bool madeHere = c.key.isNew();
        if (c.seq->readsDifferentlyByGame() || (!madeHere && old_.sequences.at(c.key).readsDifferentlyByGame()))
            refuse(sequenceName(c.key) + " holds a COM pass or 0xF1, which the game reads with other lengths, and would have to move; "
                   "it can only be changed within its " + std::to_string(c.oldSize) + " bytes",
                   Refusal::CannotMove);
        // Where it may start so that no relative jump must be made absolute:
        // the jumps staying in place that lead to its start reach it, and its
        // own loop back to a command before it still reaches that command
        // (made absolute, the editor would follow it as a way on).
        int32_t lo = kSequenceAreaAddress, hi = kAreaEnd;
        for (const int32_t p : reachersOf[c.key]) {
            lo = std::max(lo, p);
            hi = std::min(hi, p + 127);
        }
        const int32_t back = outsideLoopBack(*c.seq);
        if (back != clsSequence::kNoField) {
            const int32_t jumpAt = c.seq->place(c.seq->commandCount() - 1) - c.seq->address();
            lo = std::max({lo, back + 1 - jumpAt, back + 1});  // and the command stays before it, outside the copy
            hi = std::min(hi, back + 128 - jumpAt);
        }
        std::optional<size_t> chosen, fallback;
        // No place makes it shorter than its commands with a closing relative jump.
        const int32_t least = c.seq->byteSize() - 1;
        for (size_t k = 0; k < free_.size() && !chosen; ++k) {
            const int32_t at = free_[k].start;
            if (free_[k].size() < least) continue;
            encode(c, at, true);
            if (static_cast<int32_t>(c.bytes.size()) > free_[k].size()) continue;
            if (!fallback) fallback = k;
            if (at >= lo && at <= hi && (back == clsSequence::kNoField || keepsRelative(c))) chosen = k;
        }
        if (!chosen) chosen = fallback;
        if (!chosen) {
            encode(c, kSequenceAreaAddress, true);
            int32_t largest = 0;
            for (const AreaRun& r : free_) largest = std::max(largest, r.size());
            refuse(sequenceName(c.key) + " needs " + std::to_string(c.bytes.size()) +
                       " bytes, but the largest free run of the sequence area holds " + std::to_string(largest),
                   Refusal::NoFreeRun);
        }
        AreaRun& run = free_[*chosen];
        encode(c, run.start, true);
        moves_[c.key] = run.start;
        run.start += static_cast<int32_t>(c.bytes.size());
        if (run.start > run.end) free_.erase(free_.begin() + static_cast<std::ptrdiff_t>(*chosen));
    }
    // Now that every moved chain has its place, closing jumps lead to theirs
    // (never longer than what was set aside: an unplaced target was counted absolute).
    for (Chain& c : chains_)
        if (c.moved) encode(c, moves_.at(c.key), true);
    freeLeft_ = 0;
    for (const AreaRun& r : free_) freeLeft_ += r.size();
}

// Which of a chain's commands the game can run, as written: from its first
// command and from every command something outside it leads to, on through
// every command after which the game goes on and every field naming one of
// its own places. A lock-up stops it; a branch may lead past one.
std::vector<uint8_t> Engine::gameRuns(const Chain& c) const {
    const std::vector<SeqCommand>& cmds = c.seq->commands();
    std::unordered_map<int32_t, size_t> at;
    for (size_t i = 0; i < c.places.size(); ++i) at.emplace(c.places[i], i);
    std::vector<uint8_t> runs(cmds.size(), 0);
    std::vector<size_t> work{0};
    const int32_t from = c.place, to = c.place + static_cast<int32_t>(c.bytes.size());
    for (const Reference& r : references_)  // a moved copy is entered only at its start
        if (!c.moved && (r.from < from || r.from >= to))
            if (const auto it = at.find(r.to); it != at.end()) work.push_back(it->second);
    while (!work.empty()) {
        const size_t i = work.back();
        work.pop_back();
        if (i >= cmds.size() || runs[i]) continue;
        runs[i] = 1;
        const CommandFormat f = commandFormat(codeByte(cmds[i]), c.seq->kick(), i + 1 < cmds.size() ? codeByte(cmds[i + 1]) : -1);
        if (f.gameGoesOn) work.push_back(i + 1);
        if (const auto it = at.find(c.targets[i]); it != at.end()) work.push_back(it->second);
    }
    return runs;
}

// Refuses a written sequence after which the game would now go on into bytes
// it never ran (its lock-up removed, or a branch now leading past it, the
// game runs on past Human Control).
void Engine::checkContinuation(const Chain& c, const std::vector<uint8_t>& runs) const {
    if (c.continuation < 0 || map_.runsAt(c.continuation) || !runs.back()) return;
    refuse(sequenceName(c.key) + " ends with " + hex2(c.seq->commands().back().command) + ", after which the game goes on at " +
               hex4(c.continuation) + ", where it ran nothing before (a lock-up kept it from getting there); end it with a jump",
           Refusal::BadField);
}

// Refuses a field the edit set, or one the game may now run, that leads where the game runs nothing.
void Engine::checkFields(const Chain& c, const std::vector<uint8_t>& runs) const {
    const clsSequence* before = old_.sequences.find(c.key);
    std::unordered_map<CmdId, FieldRef, CmdIdHash> was;
    if (before)
        for (const SeqCommand& b : before->commands()) was.emplace(b.origin, b.field);
    for (size_t i = 0; i < c.targets.size(); ++i) {
        const SeqCommand& cmd = c.seq->commands()[i];
        const auto it = was.find(cmd.origin);
        const bool unchanged = it != was.end() && it->second == cmd.field;
        const std::string where = sequenceName(c.key) + " command " + std::to_string(i);
        if (isJump(cmd) && c.targets[i] == c.places[i] && !unchanged)
            refuse(where + " jumps to itself, a loop the game never leaves; it is refused as a lock-up is", Refusal::BadField);
        if (cmd.field.kind != FieldRef::Kind::Address) continue;
        // An unchanged field matters only where the game may now run it and did not before (past a lock-up, say).
        const bool ranBefore = !cmd.origin.isNew() && (!inArea(cmd.origin.readAddress()) || map_.commandAt(cmd.origin.readAddress()));
        if (unchanged && (!runs[i] || ranBefore)) continue;
        const int32_t t = cmd.field.address;
        // The open reads a sequence a closing jump leads to the way it reads the one it left.
        const clsSequence* next = pb_.sequences.find(SeqKey::at(t));
        if (i + 1 == c.targets.size() && isJump(cmd) && !cmd.field.backward && next && next->kick() != c.seq->kick())
            refuse(where + " leads to " + sequenceName(SeqKey::at(t)) + ", which is read " + (next->kick() ? "the kick formations' way" : "the plain way") +
                       ", but " + sequenceName(c.key) + " is read the other way: it would run other commands",
                   Refusal::MisreadEntry);
        if (moves_.count(SeqKey::at(t))) continue;
        if (inArea(t) && !map_.commandAt(t))
            refuse(where + " leads to " + hex4(t) + ", where the game runs no command (the middle of a command, or unused bytes)",
                   Refusal::BadField);
        if (!inArea(t) && (t == 0xFFFF || !usedOutside_.count(t)))
            refuse(where + " leads to " + hex4(t) + ", outside the sequence area, where nothing in the image leads", Refusal::BadField);
    }
}

// Refuses a written sequence whose new bytes change an address only the game
// reads (a COM pass hands its receiver the address in the bytes after the
// editor's command) to one where the game runs no command.
void Engine::checkGameFields(const Chain& c) const {
    if (c.moved || !c.seq->readsDifferentlyByGame()) return;  // a moved one is refused before
    auto byteAt = [&](int32_t a) -> int32_t {
        if (a >= c.place && a < c.place + static_cast<int32_t>(c.bytes.size())) return c.bytes[static_cast<size_t>(a - c.place)];
        const std::vector<uint8_t> b = bytesAt(image_, a, 1);
        return b.empty() ? -1 : b[0];
    };
    for (size_t i = 0; i < c.places.size(); ++i) {
        const CommandFormat f = commandFormat(codeByte(c.seq->commands()[i]), c.seq->kick(), -1);
        if (!f.gameFieldOnly) continue;
        const int32_t at = c.places[i] + f.fieldAt;
        const std::vector<uint8_t> was = bytesAt(image_, at, 2);
        const int32_t lo = byteAt(at), hi = byteAt(at + 1);
        if (was.size() < 2 || lo < 0 || hi < 0 || (lo == was[0] && hi == was[1])) continue;
        const int32_t t = lo + 256 * hi;
        if (inArea(t) ? map_.commandAt(t) != nullptr : usedOutside_.count(t) > 0) continue;
        refuse(sequenceName(c.key) + ": the bytes at " + hex4(at) + " also hold the address the COM pass at " + hex4(c.places[i]) +
                   " hands its receiver (" + hex4(was[0] + 256 * was[1]) + "); this change makes it " + hex4(t) +
                   ", where the game runs no command",
               Refusal::BadField);
    }
}

// A loop back to a command before its sequence that can no longer reach it
// is written absolute, and an absolute closing jump is a way on for the
// editor: the open after the save reads a sequence where it leads, the way
// the jumping sequence is read. Refuses where that reading differs from the
// one the model has there or would not open.
void Engine::checkLoopBack(const Chain& c) const {
    const int32_t t = c.targets.back();
    if (outsideLoopBack(*c.seq) == clsSequence::kNoField || keepsRelative(c) ||
        std::find(c.places.begin(), c.places.end(), t) != c.places.end())
        return;
    const std::string what = sequenceName(c.key) + " must move where its loop back cannot reach " + hex4(t) +
                             "; made an absolute jump, the editor would go on reading at " + hex4(t);
    if (const clsSequence* there = pb_.sequences.find(SeqKey::at(t))) {
        if (there->kick() != c.seq->kick())
            refuse(what + ", which is read " + (there->kick() ? "the kick formations' way" : "the plain way") + ", but " +
                       sequenceName(c.key) + " the other way",
                   Refusal::MisreadEntry);
        return;
    }
    for (const Chain& other : chains_)
        if ((other.written || other.moved) && t >= other.place && t < other.place + static_cast<int32_t>(other.bytes.size()))
            refuse(what + ", in the middle of " + sequenceName(other.key) + ", which this save rewrites", Refusal::WouldNotReopen);
    if (const std::string fault = chainFault(pb_, t, c.seq->kick()); !fault.empty())
        refuse(what + ", where the image would not open (" + fault + ")", Refusal::WouldNotReopen);
}

LayoutResult Engine::run() {
    collect();
    for (size_t round = 0; round <= chains_.size() + 1; ++round) {
        placeMoved();
        bool more = false;
        for (Chain& c : chains_)
            if (!c.moved) decideInPlace(c, more);
        if (!more) break;
    }
    LayoutResult out;
    for (Chain& c : chains_) {
        if (c.moved) c.written = true;
        if (c.written) {
            const std::vector<uint8_t> runs = gameRuns(c);
            checkFields(c, runs);
            checkContinuation(c, runs);
            checkGameFields(c);
            checkLoopBack(c);
        }
        if (c.bytes.empty()) encode(c, c.key.address(), true, false);  // unchanged: what the check before the write reads back
    }
    out.moves = moves_;
    out.freeBytesLeft = freeLeft_;
    out.chains = std::move(chains_);
    return out;
}

}  // namespace

int32_t copiedLead(const std::vector<std::pair<int32_t, int32_t>>& tail, int32_t target) {
    for (const auto& [place, was] : tail)
        if (was == target) return place;
    return target;
}

std::vector<std::pair<AreaEntry, int32_t>> unendedReadings(const Playbook& old, const std::vector<uint8_t>& image) {
    std::vector<std::pair<AreaEntry, int32_t>> out;
    std::optional<Image> scan;  // made only when such an entry exists: it copies the image
    std::unordered_set<int32_t> seen;
    for (const AreaEntry& e : playbookEntries(old)) {
        if (e.target.isNew() || old.sequences.contains(e.target)) continue;
        const int32_t t = e.target.address();
        if (t < kAddressOffsetDelta || offsetOfAddress(t) >= static_cast<int32_t>(image.size()) || !seen.insert(t).second) continue;
        if (!scan) scan.emplace(old.romPath, image);
        clsSequence unended;
        unended.reset(t);
        scan->seekOffset(offsetOfAddress(t));
        unended.load(*scan, entryReadsKick(e));
        out.emplace_back(e, unended.byteSize());
    }
    return out;
}

std::vector<AreaRun> writableRuns(const Playbook& old, const AreaMap& map, const std::vector<uint8_t>& image,
                                  const std::vector<std::pair<AreaEntry, int32_t>>& unended, const std::vector<uint8_t>& leaveAlone) {
    const auto size = static_cast<int32_t>(std::min(areaBytes(image).size(), map.use.size()));
    std::vector<uint8_t> keep(static_cast<size_t>(size), 0);
    auto mark = [&](int32_t from, int32_t to) {  // addresses from..to-1
        for (int32_t a = std::max(from, kSequenceAreaAddress); a < std::min(to, kSequenceAreaAddress + size); ++a) keep[areaIndex(a)] = 1;
    };
    for (size_t i = 0; i < keep.size(); ++i) keep[i] = map.use[i] != 0 || (i < leaveAlone.size() && leaveAlone[i]);
    for (const auto& [key, seq] : old.sequences) {
        if (key.isNew()) continue;  // in no image yet
        const int32_t at = key.address(), end = at + seq.byteSize();
        mark(at, end);
        if (const int32_t peek = seq.readsPastEnd(); peek >= 0) mark(peek, peek + 1);  // so the snap stays an end
    }
    for (const auto& [e, bytes] : unended) mark(e.target.address(), e.target.address() + bytes);
    std::vector<AreaRun> runs;
    for (int32_t i = 0; i < size; ++i) {
        if (keep[static_cast<size_t>(i)]) continue;
        const int32_t a = kSequenceAreaAddress + i;
        if (!runs.empty() && runs.back().end == a - 1) runs.back().end = a;
        else runs.push_back({a, a});
    }
    return runs;
}

LayoutResult layOut(const Playbook& pb, const Playbook& old, const AreaMap& map, const std::vector<uint8_t>& image) {
    return Engine(pb, old, map, image).run();
}

}  // namespace zpe
