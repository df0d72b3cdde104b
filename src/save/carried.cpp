#include "save/carried.h"

#include "model/hex.h"
#include "playbook/list_rows.h"
#include "playbook/table_codec.h"
#include "save/layout.h"
#include "save/saves.h"
#include "save/verify_write.h"
#include "sequence/command_codes.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

namespace zpe {

namespace {

constexpr int kJumpSize = 3;  // an absolute jump FF lo hi: what joins a chain split across runs

bool isJump(uint8_t code) { return code == cmd::kAbsoluteJump || code == cmd::kRelativeJump; }

// A jump inside the area is a way on, not a command: two places run the same
// thing when what they run after their leading jumps is the same. A jump out
// of the area is kept as a command (an entry naming it must not name the
// game's code, or FFFF, instead), and so is a chain of jumps that never ends
// in a command.
constexpr int kMaxHops = 16;

// `l` with the jumps it starts with followed.
CarriedLead throughJumps(const std::vector<CarriedCommand>& commands, CarriedLead l) {
    for (int hops = 0; hops < kMaxHops && l.kind == CarriedLead::Kind::Command; ++hops) {
        const CarriedCommand& c = commands[static_cast<size_t>(l.command)];
        if (!isJump(c.bytes[0]) || c.field.kind != CarriedLead::Kind::Command) break;
        l = c.field;
    }
    return l;
}

// `address` of the image whose area is `area`, with the jumps it starts with followed.
int32_t throughJumps(std::span<const uint8_t> area, int32_t address) {
    GameCommand g;
    for (int hops = 0; hops < kMaxHops && readGameCommand(area, address, g) && isJump(g.code) && inArea(g.target); ++hops) address = g.target;
    return address;
}

// Where the game goes from `address` by the jumps it starts with, out of the area too (a way on to the game's own code).
int32_t outOfArea(std::span<const uint8_t> area, int32_t address) {
    GameCommand g;
    for (int hops = 0; hops < kMaxHops && readGameCommand(area, address, g) && isJump(g.code); ++hops) address = g.target;
    return address;
}

bool isLongSnap(const CarriedCommand& c) { return c.bytes[0] == cmd::kLongSnap; }

// How the game reads a carried command's bytes (standing anywhere: lengths and fields do not depend on the place).
bool readCarried(const CarriedCommand& c, GameCommand& out) {
    return !c.bytes.empty() && readGameCommand(c.bytes, kSequenceAreaAddress, out);
}

// The bytes of the field of a command with code `code` (offset and count); {-1, 0} without one.
std::pair<int, int> fieldSpan(std::span<const uint8_t> bytes) {
    const CommandFormat f = commandFormat(bytes[0], false, bytes.size() > 1 ? bytes[1] : -1);
    if (f.field == FieldKind::None) return {-1, 0};
    return {f.fieldAt, f.field == FieldKind::Relative ? 1 : 2};
}

// The same bytes apart from the field's.
bool sameBesidesField(std::span<const uint8_t> a, std::span<const uint8_t> b) {
    if (a.size() != b.size()) return false;
    const auto [at, count] = fieldSpan(a);
    for (size_t k = 0; k < a.size(); ++k)
        if (!(static_cast<int>(k) >= at && static_cast<int>(k) < at + count) && a[k] != b[k]) return false;
    return true;
}

// The commands of `play` and where the image already runs each one the same
// way: the largest relation (a bisimulation) between carried commands and
// the image's game commands in which paired commands have the same bytes
// (fields apart), both go on or neither, to paired commands or the same
// outside address, and lead by their fields to paired commands or the same
// outside address. Loops pair up as wholes.
// Why a lead into `n` commands names nothing it may ("" when it names something).
std::string leadFault(const CarriedLead& l, int n) {
    if (l.kind == CarriedLead::Kind::Command && (l.command < 0 || l.command >= n)) return "names no command of the file";
    if (l.kind == CarriedLead::Kind::Outside && (inArea(l.address) || l.address < 0 || l.address > 0xFFFF))
        return "names " + hex4(l.address) + " as outside the sequence area";
    return {};
}

class Matcher {
public:
    Matcher(const std::vector<CarriedCommand>& commands, const AreaMap& map, std::span<const uint8_t> area) : commands_(commands), area_(area) {
        std::unordered_map<uint64_t, std::vector<int32_t>> byKey;
        for (const GameCommand& g : map.program) byKey[key(bytesAt(g))].push_back(g.address);
        candidates_.resize(commands.size());
        for (size_t n = 0; n < commands.size(); ++n) {
            if (isJump(commands[n].bytes[0]) && commands[n].field.kind == CarriedLead::Kind::Command) continue;  // ways on: what they lead to is matched
            const auto found = byKey.find(key(commands[n].bytes));
            if (found == byKey.end()) continue;
            for (const int32_t a : found->second)
                if (sameShape(commands[n], *map.commandAt(a))) candidates_[n].push_back(a);
        }
        for (bool changed = true; changed;) {
            changed = false;
            for (size_t n = 0; n < candidates_.size(); ++n) {
                auto& c = candidates_[n];
                const size_t was = c.size();
                c.erase(std::remove_if(c.begin(), c.end(), [&](int32_t a) { return !successorsPair(commands[n], *map.commandAt(a)); }),
                        c.end());
                changed = changed || c.size() != was;
            }
        }
    }

    // True when a table entry naming `address` runs what `lead` runs (None: FFFF).
    bool sameEntry(const CarriedLead& lead, int32_t address) const {
        return lead.kind == CarriedLead::Kind::None ? address == kNoSequence : leadPairs(lead, address);
    }

    // The image addresses that run what carried command `n` runs, ascending.
    const std::vector<int32_t>& runsAs(int n) const { return candidates_[static_cast<size_t>(n)]; }

private:
    std::span<const uint8_t> bytesAt(const GameCommand& g) const {
        return area_.subspan(static_cast<size_t>(g.address - kSequenceAreaAddress), static_cast<size_t>(g.length));
    }
    static uint64_t key(std::span<const uint8_t> bytes) {
        const auto [at, count] = fieldSpan(bytes);
        uint64_t h = bytes.size();
        for (size_t k = 0; k < bytes.size(); ++k)
            h = h * 1099511628211ULL ^ (static_cast<int>(k) >= at && static_cast<int>(k) < at + count ? 0x100u : bytes[k]);
        return h;
    }
    bool sameShape(const CarriedCommand& c, const GameCommand& g) const {
        return sameBesidesField(c.bytes, bytesAt(g)) && g.fallsThrough == (c.next.kind != CarriedLead::Kind::None) &&
               (g.target >= 0) == (c.field.kind != CarriedLead::Kind::None);
    }
    bool leadPairs(const CarriedLead& raw, int32_t rawAddress) const {
        const CarriedLead lead = throughJumps(commands_, raw);
        const int32_t address = throughJumps(area_, rawAddress);
        if (lead.kind == CarriedLead::Kind::Outside) return address == lead.address;
        if (lead.kind != CarriedLead::Kind::Command) return true;
        const auto& c = candidates_[static_cast<size_t>(lead.command)];
        return std::binary_search(c.begin(), c.end(), address);
    }
    bool successorsPair(const CarriedCommand& c, const GameCommand& g) const {
        return (!g.fallsThrough || leadPairs(c.next, g.address + g.length)) && (g.target < 0 || leadPairs(c.field, g.target));
    }

    const std::vector<CarriedCommand>& commands_;
    std::span<const uint8_t> area_;
    std::vector<std::vector<int32_t>> candidates_;
};

// A run of carried commands that must stand one after the other (each falls
// through to the next), ending in a jump when the last one goes on to a
// command that stands elsewhere.
struct CopiedChain {
    std::vector<int> commands;
    int32_t size = 0;
};

// Where each copied command is written, and the jumps that join what stands apart.
struct Placement {
    std::vector<int32_t> place;                   // per carried command: where it is written (-1: reused or not needed)
    std::vector<std::pair<int32_t, CarriedLead>> joins;  // a joining jump's place and where it leads
    int runs = 0;
    int32_t bytes = 0;
};

// Where each needed command goes. Chains are placed whole, first fit, in the
// file's order; a chain no free run holds is split where it must, its parts
// joined by absolute jumps. `absolute` marks relative jumps written as
// absolute ones (one byte longer) because their target lies out of reach.
Placement place(const std::vector<CarriedCommand>& commands, const std::vector<CopiedChain>& chains, const std::vector<AreaRun>& freeRuns,
                const std::vector<bool>& absolute, int32_t freeBytes, const std::string& path, const std::string& what) {
    auto sizeOf = [&](int n) {
        return absolute[static_cast<size_t>(n)] ? kJumpSize : static_cast<int32_t>(commands[static_cast<size_t>(n)].bytes.size());
    };
    auto goesOnElsewhere = [&](int n) { return commands[static_cast<size_t>(n)].next.kind != CarriedLead::Kind::None; };
    Placement out;
    out.place.assign(commands.size(), -1);
    std::vector<int32_t> used(freeRuns.size(), 0);
    std::vector<bool> written(freeRuns.size(), false);
    int32_t needed = 0;
    for (const CopiedChain& chain : chains)
        for (const int n : chain.commands) needed += sizeOf(n);
    for (const CopiedChain& whole : chains) {
        size_t from = 0;
        while (from < whole.commands.size()) {
            // The rest of the chain, and its end: a jump when its last command goes on to one placed elsewhere.
            int32_t rest = 0;
            for (size_t k = from; k < whole.commands.size(); ++k) rest += sizeOf(whole.commands[k]);
            const bool tailJump = goesOnElsewhere(whole.commands.back());
            size_t run = freeRuns.size();
            for (size_t r = 0; r < freeRuns.size() && run == freeRuns.size(); ++r)
                if (freeRuns[r].size() - used[r] >= rest + (tailJump ? kJumpSize : 0)) run = r;
            size_t to = whole.commands.size();
            bool join = tailJump;
            if (run == freeRuns.size()) {
                // No run holds the rest: the most of it that fits in the roomiest run, with a jump on.
                size_t roomiest = 0;
                for (size_t r = 1; r < freeRuns.size(); ++r)
                    if (freeRuns[r].size() - used[r] > freeRuns[roomiest].size() - used[roomiest]) roomiest = r;
                const int32_t room = freeRuns.empty() ? 0 : freeRuns[roomiest].size() - used[roomiest] - kJumpSize;
                int32_t fits = 0;
                to = from;
                while (to < whole.commands.size() && fits + sizeOf(whole.commands[to]) <= room) fits += sizeOf(whole.commands[to++]);
                // Never parted right after a Long Snap (the joining jump would make the editor read on).
                while (to > from && isLongSnap(commands[static_cast<size_t>(whole.commands[to - 1])])) --to;
                if (to == from)
                    throw SaveError(path + ": " + what + " needs " + thousands(needed) + " bytes of commands, and the largest free run left holds " +
                                        thousands(std::max(room + kJumpSize, 0)) + " (" + thousands(freeBytes) +
                                        " free bytes in all); zpe compact makes the free space one run; nothing was written",
                                    Refusal::NoFreeRun);
                run = roomiest;
                join = true;
            }
            int32_t at = freeRuns[run].start + used[run];
            for (size_t k = from; k < to; ++k) {
                out.place[static_cast<size_t>(whole.commands[k])] = at;
                at += sizeOf(whole.commands[k]);
            }
            if (join) {
                // To the next part of the chain (placed after this one), or to where the last command goes on.
                const CarriedLead on = to < whole.commands.size() ? CarriedLead::to(whole.commands[to])
                                                                  : commands[static_cast<size_t>(whole.commands.back())].next;
                out.joins.emplace_back(at, on);
                at += kJumpSize;
            }
            out.bytes += at - (freeRuns[run].start + used[run]);
            used[run] = at - freeRuns[run].start;
            if (!written[run]) ++out.runs;
            written[run] = true;
            from = to;
        }
    }
    return out;
}

[[noreturn]] void refuseImport(const std::string& path, const std::string& what, const std::string& why) {
    throw SaveError(path + ": " + what + " " + why + "; nothing was written", Refusal::WouldNotReopen);
}

// From entry `e` of `bytes` the game runs what its lead runs.
void checkEntry(const std::string& path, const std::string& what, const std::vector<CarriedCommand>& commands, const CarriedEntry& e,
                const std::vector<uint8_t>& bytes) {
    auto refuse = [&](const std::string& why) { refuseImport(path, what, why); };
    const std::span<const uint8_t> area = areaBytes(bytes);
    {
        const CarriedLead& lead = e.lead;
        const int32_t entry = bytes[static_cast<size_t>(e.offset)] | bytes[static_cast<size_t>(e.offset) + 1] << 8;
        const std::string& who = e.name;
        if (lead.kind != CarriedLead::Kind::Command) {
            if (entry != (lead.kind == CarriedLead::Kind::Outside ? lead.address : kNoSequence)) refuse("would give " + who + " another entry");
            return;
        }
        std::vector<std::pair<int, int32_t>> work{{lead.command, entry}};
        std::unordered_map<int64_t, bool> seen;
        auto pairUp = [&](const CarriedLead& l, int32_t address) {
            if (l.kind == CarriedLead::Kind::Command) work.emplace_back(l.command, address);
            else if (l.kind == CarriedLead::Kind::Outside && outOfArea(area, address) != l.address)
                refuse("would lead " + who + " to " + hex4(address) + ", not " + hex4(l.address));
        };
        while (!work.empty()) {
            const auto [raw, rawAt] = work.back();
            work.pop_back();
            // Jumps on either side are ways on, not commands of the play.
            const CarriedLead lead = throughJumps(commands, CarriedLead::to(raw));
            const int32_t at = throughJumps(area, rawAt);
            if (lead.kind != CarriedLead::Kind::Command) {
                pairUp(lead, at);
                continue;
            }
            const int i = lead.command;
            if (!seen.emplace((static_cast<int64_t>(i) << 20) | at, true).second) continue;
            const CarriedCommand& c = commands[static_cast<size_t>(i)];
            GameCommand g;
            if (!readGameCommand(area, at, g)) refuse("would run " + who + " off the sequence area at " + hex4(at));
            if (isJump(c.bytes[0]) && isJump(g.code)) {  // a loop of jumps alone: the same jumps, relative or absolute
                pairUp(c.field, g.target);
                continue;
            }
            const std::span<const uint8_t> there = area.subspan(static_cast<size_t>(at - kSequenceAreaAddress), static_cast<size_t>(g.length));
            if (!sameBesidesField(c.bytes, there) || g.fallsThrough != (c.next.kind != CarriedLead::Kind::None))
                refuse("would run something else for " + who + " at " + hex4(at));
            if (g.fallsThrough) pairUp(c.next, at + g.length);
            if (g.target >= 0) pairUp(c.field, g.target);
        }
    }
}

// The check before the write: the image the plan writes, read by the game
// from each of the entries, runs what their leads run (the same commands in
// the same order, fields leading to the same commands; a joining jump, or a
// relative jump written as an absolute one, is the same way on); every other
// entry runs the very bytes it ran; and the editor opens the image and reads
// every other entry's sequence as before. The editor's reading of the image.
Playbook checkCarried(const Playbook& pb, const std::vector<CarriedCommand>& commands, const std::vector<CarriedEntry>& entries,
                      const std::vector<uint8_t>& bytes, const std::string& what) {
    const std::string& path = pb.romPath;
    auto refuse = [&](const std::string& why) { refuseImport(path, what, why); };
    const std::span<const uint8_t> area = areaBytes(bytes);
    std::unordered_set<int32_t> rewritten;
    for (const CarriedEntry& e : entries) {
        rewritten.insert(e.offset);
        checkEntry(path, what, commands, e, bytes);
    }
    // Every other entry: the same bytes run, the same sequences read.
    std::vector<int32_t> others;
    std::vector<AreaEntry> otherEntries;
    for (const AreaEntry& e : playbookEntries(pb))
        if (!rewritten.count(entryOffset(e))) {
            others.push_back(e.target.address());
            otherEntries.push_back(e);
        }
    const std::span<const uint8_t> before = areaBytes(pb.openedBytes);
    for (const GameCommand& g : programFrom(pb.openedBytes, others)) {
        const auto at = static_cast<size_t>(g.address - kSequenceAreaAddress);
        if (!std::equal(before.begin() + static_cast<std::ptrdiff_t>(at), before.begin() + static_cast<std::ptrdiff_t>(at) + g.length,
                        area.begin() + static_cast<std::ptrdiff_t>(at)))
            refuse("would change what the game runs at " + hex4(g.address));
    }
    Playbook reopened;
    try {
        reopened = readBytesAs(pb, bytes);
    } catch (const std::exception& e) {
        refuse(std::string("would leave an image the editor does not open (") + e.what() + ")");
    }
    for (const AreaEntry& e : otherEntries) {
        const clsSequence* was = pb.sequences.find(e.target);
        const clsSequence* now = reopened.sequences.find(e.target);
        if (was && (!now || was->encode() != now->encode())) refuse("would make the editor read " + e.name() + " otherwise");
        // An entry the editor found no sequence at reads the same bytes as before.
        if (!was && now && e.target.placed()) {
            const int32_t from = offsetOfAddress(e.target.address());
            const auto size = static_cast<size_t>(now->byteSize());
            if (from < 0 || static_cast<size_t>(from) + size > std::min(bytes.size(), pb.openedBytes.size()) ||
                !std::equal(bytes.begin() + from, bytes.begin() + from + static_cast<std::ptrdiff_t>(size), pb.openedBytes.begin() + from))
                refuse("would make the editor read " + e.name() + " otherwise");
        }
    }
    return reopened;
}
}  // namespace

struct CarriedMatcher::State {
    AreaMap map;
    Matcher matcher;
    State(const Playbook& pb, const std::vector<CarriedCommand>& commands)
        : map(buildAreaMap(pb)), matcher(commands, map, areaBytes(pb.openedBytes)) {}
};

CarriedMatcher::CarriedMatcher(const Playbook& pb, const std::vector<CarriedCommand>& commands)
    : state_(std::make_unique<State>(pb, commands)) {}
CarriedMatcher::~CarriedMatcher() = default;

bool CarriedMatcher::sameEntry(const CarriedLead& lead, int32_t address) const { return state_->matcher.sameEntry(lead, address); }

std::vector<CarriedCommand> carryEntries(const Playbook& pb, const std::vector<SeqKey>& entries, std::vector<CarriedLead>& leads) {
    std::vector<int32_t> starts;  // the image is laid out: every entry names an address (FFFF: none)
    for (const SeqKey e : entries) starts.push_back(e.address());
    const std::vector<GameCommand> program = programFrom(pb.openedBytes, starts);
    std::unordered_map<int32_t, int> index;
    for (size_t i = 0; i < program.size(); ++i) index.emplace(program[i].address, static_cast<int>(i));
    auto leadTo = [&](int32_t address) {
        const auto found = index.find(address);
        return found == index.end() ? CarriedLead::outside(address) : CarriedLead::to(found->second);
    };
    std::vector<CarriedCommand> out;
    const std::span<const uint8_t> area = areaBytes(pb.openedBytes);
    for (const GameCommand& g : program) {
        CarriedCommand c;
        c.origin = g.address;
        const auto at = area.begin() + (g.address - kSequenceAreaAddress);
        c.bytes.assign(at, at + g.length);
        if (g.fallsThrough) c.next = leadTo(g.address + g.length);
        if (g.target >= 0) c.field = leadTo(g.target);
        out.push_back(std::move(c));
    }
    leads.clear();
    for (const SeqKey e : entries) leads.push_back(e.isNone() ? CarriedLead::none() : leadTo(e.address()));  // FFFF: the player runs nothing
    return out;
}


std::string carriedCommandsFault(const std::vector<CarriedCommand>& commands) {
    const auto n = static_cast<int>(commands.size());
    for (int i = 0; i < n; ++i) {
        const CarriedCommand& c = commands[static_cast<size_t>(i)];
        const std::string which = "command " + std::to_string(i);
        GameCommand g;
        if (!readCarried(c, g) || g.length != static_cast<int32_t>(c.bytes.size()))
            return which + ": its bytes are not one command as the game reads it";
        if (g.fallsThrough != (c.next.kind != CarriedLead::Kind::None))
            return which + (g.fallsThrough ? ": the game goes on after it, but nothing follows it" : ": the game does not go on after it");
        if ((g.target >= 0) != (c.field.kind != CarriedLead::Kind::None))
            return which + (g.target >= 0 ? ": its address field leads nowhere" : ": it has no address field");
        if (const std::string f = leadFault(c.next, n); !f.empty()) return which + ": what follows it " + f;
        if (const std::string f = leadFault(c.field, n); !f.empty()) return which + ": its field " + f;
    }
    return {};
}

std::string carriedLeadsFault(const std::vector<CarriedCommand>& commands, const CarriedLeads& leads) {
    for (int j = 0; j < kPlayersPerRecord; ++j)
        if (const std::string f = leadFault(leads[static_cast<size_t>(j)], static_cast<int>(commands.size())); !f.empty())
            return positionName(j) + "'s entry " + f;
    return {};
}

int32_t entryOffset(const AreaEntry& e) {
    switch (e.table) {
    case AreaEntry::Table::Play: return playEntryOffset(e.index, e.player);
    case AreaEntry::Table::Formation: return formationEntryOffset(e.index, e.player);
    case AreaEntry::Table::Pointer: return pointerEntryOffset(e.index);
    }
    return -1;
}

namespace {

// One laying out of carried commands, step by step.
class Layouter {
public:
    Layouter(const Playbook& pb, const std::vector<CarriedCommand>& commands, const std::vector<CarriedEntry>& entries, const std::string& what,
             const std::vector<CarriedLead>& runAlready)
        : pb_(pb), commands_(commands), entries_(entries), what_(what), runAlready_(runAlready), map_(buildAreaMap(pb)),
          area_(areaBytes(pb.openedBytes)), matcher_(commands, map_, area_), n_(commands.size()) {}

    CarriedLayout run(const std::function<void(std::vector<uint8_t>&)>& records) {
        chooseReuse();
        markNeeded();
        refuseLockUps();
        buildChains();
        findFreeRuns();
        settle();
        CarriedLayout plan = encode();
        if (records) records(plan.bytes);
        plan.reopened = checkCarried(pb_, commands_, entries_, plan.bytes, what_);
        return plan;
    }

private:
    // What the image runs already, preferably where an editor sequence
    // starts. An entry is pointed only at such a start (the editor then
    // reads what it reads there already); a command reached inside anywhere.
    void chooseReuse() {
        reuse_.assign(n_, -1);
        for (size_t i = 0; i < n_; ++i) {
            const auto& at = matcher_.runsAs(static_cast<int>(i));
            const auto start = std::find_if(at.begin(), at.end(), [&](int32_t a) { return pb_.sequences.contains(SeqKey::at(a)); });
            if (start != at.end()) reuse_[i] = *start;
            else if (!at.empty()) reuse_[i] = at.front();
        }
        for (const CarriedEntry& e : entries_) {
            const CarriedLead to = throughJumps(commands_, e.lead);
            if (to.kind == CarriedLead::Kind::Command && !pb_.sequences.contains(SeqKey::at(reuse_[static_cast<size_t>(to.command)])))
                reuse_[static_cast<size_t>(to.command)] = -1;
        }
    }
    // A lead goes to the image's copy of what it runs when there is one (its
    // jumps skipped); else its own command, jump or not, is copied.
    int32_t reusedAt(const CarriedLead& l) const {
        const CarriedLead to = throughJumps(commands_, l);
        if (to.kind == CarriedLead::Kind::Outside) return to.address;
        if (to.kind == CarriedLead::Kind::Command) return reuse_[static_cast<size_t>(to.command)];
        return -1;
    }
    void markNeeded() {
        needed_.assign(n_, false);
        std::vector<int> work;
        auto reach = [&](const CarriedLead& l) {
            if (l.kind == CarriedLead::Kind::Command && reusedAt(l) < 0) work.push_back(l.command);
        };
        for (const CarriedEntry& e : entries_) reach(e.lead);
        while (!work.empty()) {
            const auto i = static_cast<size_t>(work.back());
            work.pop_back();
            if (needed_[i]) continue;
            needed_[i] = true;
            // After a Long Snap the command the game goes on with stands right there: a jump
            // between would make the editor read on (D3 before FF is no end).
            if (isLongSnap(commands_[i]) && commands_[i].next.kind == CarriedLead::Kind::Command) work.push_back(commands_[i].next.command);
            else reach(commands_[i].next);
            reach(commands_[i].field);
        }
    }
    // A command that locks the game up is not written anew (the editor reads
    // bytes after it the file does not carry, and the game hangs on it); nor
    // is a jump that leads back to itself through jumps alone, a loop the
    // game never leaves.
    void refuseLockUps() const {
        for (size_t i = 0; i < n_; ++i) {
            const CarriedCommand& c = commands_[i];
            if (needed_[i] && commandFormat(c.bytes[0], false, c.bytes.size() > 1 ? c.bytes[1] : -1).lockUp)
                throw SaveError(pb_.romPath + ": " + what_ + " holds " + hex2(c.bytes[0]) +
                                    ", which locks the game up, where this image has no such command to reuse; nothing was written",
                                Refusal::Other);
            if (needed_[i] && jumpsBackToItself(i))
                throw SaveError(pb_.romPath + ": " + what_ + " holds a jump that leads back to itself through jumps alone, which locks the " +
                                    "game up, where this image has no such loop to reuse; nothing was written",
                                Refusal::Other);
        }
    }
    bool jumpsBackToItself(size_t from) const {
        size_t at = from;
        for (size_t step = 0; step < n_; ++step) {
            const CarriedCommand& c = commands_[at];
            if (!isJump(c.bytes[0]) || c.field.kind != CarriedLead::Kind::Command || reusedAt(c.field) >= 0) return false;
            at = static_cast<size_t>(c.field.command);
            if (at == from) return true;
        }
        return false;
    }
    // Chains: a copied command and the copied ones it falls through to, in the file's order; a loop closes with a jump.
    void buildChains() {
        std::vector<bool> followsOn(n_, false), chained(n_, false);
        for (size_t i = 0; i < n_; ++i) {
            const CarriedLead& next = commands_[i].next;
            if (needed_[i] && next.kind == CarriedLead::Kind::Command && needed_[static_cast<size_t>(next.command)])
                followsOn[static_cast<size_t>(next.command)] = true;
        }
        for (const bool heads : {true, false}) {
            for (size_t i = 0; i < n_; ++i) {
                if (!needed_[i] || chained[i] || (heads && followsOn[i])) continue;
                CopiedChain chain;
                for (auto k = static_cast<int>(i); k >= 0 && needed_[static_cast<size_t>(k)] && !chained[static_cast<size_t>(k)];) {
                    chained[static_cast<size_t>(k)] = true;
                    chain.commands.push_back(k);
                    const CarriedLead& next = commands_[static_cast<size_t>(k)].next;
                    k = next.kind == CarriedLead::Kind::Command ? next.command : -1;
                }
                chains_.push_back(std::move(chain));
            }
        }
    }
    // Free bytes: those a save may write into (see writableRuns).
    void findFreeRuns() {
        freeRuns_ = writableRuns(pb_, map_, pb_.openedBytes, unendedReadings(pb_, pb_.openedBytes));
        for (const AreaRun& r : freeRuns_) freeBytes_ += r.size();
    }
    int32_t addressOf(const CarriedLead& l) const {
        if (l.kind == CarriedLead::Kind::None) return kNoSequence;
        if (l.kind == CarriedLead::Kind::Command && placed_.place[static_cast<size_t>(l.command)] >= 0) return placed_.place[static_cast<size_t>(l.command)];
        return reusedAt(l);
    }
    // Sizes to a fixed point: a relative jump whose target ends up out of reach becomes absolute, and all is placed again.
    void settle() {
        absolute_.assign(n_, false);
        for (bool settled = false; !settled;) {
            placed_ = place(commands_, chains_, freeRuns_, absolute_, freeBytes_, pb_.romPath, what_);
            settled = true;
            for (size_t i = 0; i < n_; ++i) {
                if (placed_.place[i] < 0 || absolute_[i]) continue;
                if (commandFormat(commands_[i].bytes[0], false, -1).field != FieldKind::Relative) continue;
                const bool back = static_cast<int8_t>(commands_[i].bytes[1]) < 0;
                // Kept in the direction it was read (a loop back stays a loop back), and within a signed byte.
                if (!relativeReaches(placed_.place[i], addressOf(commands_[i].field), back)) {
                    absolute_[i] = true;
                    settled = false;
                }
            }
        }
    }
    // The bytes: each copied command with its field written for where its target stands, the joining jumps, the entries.
    CarriedLayout encode() const {
        CarriedLayout plan;
        plan.bytes = pb_.openedBytes;
        auto put = [&](int32_t address, std::span<const uint8_t> bytes) {
            std::copy(bytes.begin(), bytes.end(), plan.bytes.begin() + offsetOfAddress(address));
        };
        for (size_t i = 0; i < n_; ++i) {
            const int32_t at = placed_.place[i];
            if (at >= 0) put(at, encodeGameCommand(commands_[i].bytes, at, addressOf(commands_[i].field), absolute_[i]));
        }
        for (const auto& [at, on] : placed_.joins) put(at, encodeGameCommand({}, at, addressOf(on), true));
        for (const CarriedEntry& e : entries_) {
            const int32_t entry = addressOf(e.lead);
            plan.bytes[static_cast<size_t>(e.offset)] = static_cast<uint8_t>(entry & 0xFF);
            plan.bytes[static_cast<size_t>(e.offset) + 1] = static_cast<uint8_t>(entry >> 8);
        }
        // Reused: what an entry written or a record kept runs, through every lead, at the image's own copy.
        std::vector<bool> runs(n_, false);
        std::vector<int> work;
        auto reach = [&](const CarriedLead& l) {
            if (l.kind == CarriedLead::Kind::Command && !runs[static_cast<size_t>(l.command)]) {
                runs[static_cast<size_t>(l.command)] = true;
                work.push_back(l.command);
            }
        };
        for (const CarriedEntry& e : entries_) reach(e.lead);
        for (const CarriedLead& l : runAlready_) reach(l);
        while (!work.empty()) {
            const CarriedCommand& c = commands_[static_cast<size_t>(work.back())];
            work.pop_back();
            reach(c.next);
            reach(c.field);
        }
        for (size_t i = 0; i < n_; ++i) {
            plan.copied += placed_.place[i] >= 0;
            plan.reused += runs[i] && reuse_[i] >= 0 && !needed_[i] && !isJump(commands_[i].bytes[0]);
        }
        plan.bytesWritten = placed_.bytes;
        plan.runs = placed_.runs;
        plan.freeLeft = freeBytes_ - placed_.bytes;
        return plan;
    }

    const Playbook& pb_;
    const std::vector<CarriedCommand>& commands_;
    const std::vector<CarriedEntry>& entries_;
    const std::string& what_;
    const std::vector<CarriedLead>& runAlready_;
    const AreaMap map_;
    const std::span<const uint8_t> area_;
    const Matcher matcher_;
    const size_t n_;
    std::vector<int32_t> reuse_;
    std::vector<bool> needed_, absolute_;
    std::vector<CopiedChain> chains_;
    std::vector<AreaRun> freeRuns_;
    int32_t freeBytes_ = 0;
    Placement placed_;
};

}  // namespace

CarriedLayout layOutCarried(const Playbook& pb, const std::vector<CarriedCommand>& commands, const std::vector<CarriedEntry>& entries,
                            const std::function<void(std::vector<uint8_t>&)>& records, const std::string& what,
                            const std::vector<CarriedLead>& runAlready) {
    return Layouter(pb, commands, entries, what, runAlready).run(records);
}

}  // namespace zpe
