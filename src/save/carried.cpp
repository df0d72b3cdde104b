#include "save/carried.h"

#include "model/hex.h"
#include "playbook/list_rows.h"
#include "playbook/table_codec.h"
#include "save/layout.h"
#include "save/saves.h"
#include "save/verify_write.h"
#include "sequence/command_codes.h"

#include <algorithm>
#include <cstdint>
#include <unordered_map>
#include <unordered_set>

namespace zpe {

namespace {

constexpr int kJumpSize = 3;  // an absolute jump FF lo hi: what joins a chain split across runs

bool isJump(uint8_t code) { return code == cmd::kAbsoluteJump || code == cmd::kRelativeJump; }

// A byte's place in the sequence area (0 for 0xA000).
size_t areaIndex(int32_t address) { return static_cast<size_t>(address - kSequenceAreaAddress); }

// A jump inside the area is a way on, not a command: two places run the same
// thing when what they run after their leading jumps is the same. A jump out
// of the area is kept as a command (an entry naming it must not name the
// game's code, or FFFF, instead), and so is every jump of a chain of jumps
// that never ends in a command (a loop of jumps alone). Chains of any length
// are followed, each step once.

// Where each carried command leads once the jumps it starts with are
// followed, worked out once for all of them.
class CarriedJumps {
public:
    explicit CarriedJumps(const std::vector<CarriedCommand>& commands) : to_(commands.size()) {
        enum : uint8_t { kOpen, kOnPath, kDone };
        std::vector<uint8_t> state(commands.size(), kOpen);
        std::vector<int> path;
        const auto n = static_cast<int>(commands.size());
        for (int i = 0; i < n; ++i) {
            path.clear();
            int at = i;
            bool loop = false;
            CarriedLead end;
            for (;;) {
                const auto k = static_cast<size_t>(at);
                if (state[k] == kDone) {
                    end = to_[k];
                    break;
                }
                if (state[k] == kOnPath) {
                    loop = true;
                    break;
                }
                const CarriedCommand& c = commands[k];
                const bool wayOn = !c.bytes.empty() && isJump(c.bytes[0]) && c.field.kind == CarriedLead::Kind::Command &&
                                   c.field.command >= 0 && c.field.command < n;
                if (!wayOn) {
                    end = to_[k] = CarriedLead::to(at);
                    state[k] = kDone;
                    break;
                }
                state[k] = kOnPath;
                path.push_back(at);
                at = c.field.command;
            }
            for (const int p : path) {
                to_[static_cast<size_t>(p)] = loop ? CarriedLead::to(p) : end;
                state[static_cast<size_t>(p)] = kDone;
            }
        }
    }
    // `l` with the jumps it starts with followed.
    CarriedLead operator()(const CarriedLead& l) const {
        return l.kind == CarriedLead::Kind::Command ? to_[static_cast<size_t>(l.command)] : l;
    }

private:
    std::vector<CarriedLead> to_;
};

// The same for the addresses of an image's sequence area, worked out as they are asked for.
class AreaJumps {
public:
    explicit AreaJumps(std::span<const uint8_t> area) : area_(area), to_(kSequenceAreaSize, kUnknown) {}
    // `address` with the jumps inside the area it starts with followed.
    int32_t operator()(int32_t address) const {
        if (!inArea(address)) return address;
        path_.clear();
        int32_t at = address, end = address;
        bool loop = false;
        for (;;) {
            const int32_t known = to_[areaIndex(at)];
            if (known >= 0) {
                end = known;
                break;
            }
            if (known == kOnPath) {
                loop = true;
                break;
            }
            GameCommand g;
            if (!readGameCommand(area_, at, g) || !isJump(g.code) || !inArea(g.target)) {
                end = to_[areaIndex(at)] = at;
                break;
            }
            to_[areaIndex(at)] = kOnPath;
            path_.push_back(at);
            at = g.target;
        }
        for (const int32_t p : path_) to_[areaIndex(p)] = loop ? p : end;
        return to_[areaIndex(address)];
    }
    // Where the game goes from `address` by the jumps it starts with, out of
    // the area too (a way on to the game's own code).
    int32_t outOfArea(int32_t address) const {
        const int32_t at = (*this)(address);
        GameCommand g;
        if (inArea(at) && readGameCommand(area_, at, g) && isJump(g.code) && !inArea(g.target)) return g.target;
        return at;
    }

private:
    static constexpr int32_t kUnknown = -1, kOnPath = -2;
    std::span<const uint8_t> area_;
    mutable std::vector<int32_t> to_;  // per area byte: where its jumps lead (kUnknown: not worked out yet)
    mutable std::vector<int32_t> path_;
};

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

// Why a lead into `n` commands names nothing it may ("" when it names something).
std::string leadFault(const CarriedLead& l, int n) {
    if (l.kind == CarriedLead::Kind::Command && (l.command < 0 || l.command >= n)) return "names no command of the file";
    if (l.kind == CarriedLead::Kind::Outside && (inArea(l.address) || l.address < 0 || l.address > 0xFFFF))
        return "names " + hex4(l.address) + " as outside the sequence area";
    return {};
}

// The commands of `play` and where the image already runs each one the same
// way: the largest relation (a bisimulation) between carried commands and
// the image's game commands in which paired commands have the same bytes
// (fields apart), both go on or neither, to paired commands or the same
// outside address, and lead by their fields to paired commands or the same
// outside address. Loops pair up as wholes.
//
// Commands from which no loop can be reached are matched by their shape: the
// same bytes (fields apart) going on to, and leading to, commands of the
// same shape or the same outside address, worked out once for every command
// of both sides, each in one step. Commands that can reach a loop are paired
// with those of the image alike in their own bytes, and the pairs whose
// successors do not pair are dropped until none is left to drop.

// Where a command goes on, or its field leads, for the shapes: -1 nowhere,
// -2 - address an address outside the area, else the shape of the command there.
constexpr int64_t kNowhere = -1;
constexpr int64_t outsideCode(int32_t address) { return -2 - int64_t{address}; }

// Shapes by their description, shared by both sides.
class Shapes {
public:
    int of(const std::string& description) { return shapes_.emplace(description, static_cast<int>(shapes_.size())).first->second; }

    // The shape of every node of a graph (`count` nodes; `label(v)` its own
    // bytes and ways; `lead(v, k)` for k = 0, 1: kNowhere, an outsideCode,
    // or a node). Nodes that can reach a loop get the shape of their label
    // alone, marked; `reachesLoop` says which.
    template <typename Label, typename Lead>
    std::vector<int> ofGraph(size_t count, Label label, Lead lead, std::vector<uint8_t>& reachesLoop) {
        enum : uint8_t { kNew, kOpen, kDone };
        std::vector<uint8_t> state(count, kNew);
        std::vector<int> shape(count, -1);
        reachesLoop.assign(count, 0);
        std::vector<size_t> stack;
        for (size_t root = 0; root < count; ++root) {
            if (state[root] != kNew) continue;
            stack.push_back(root);
            while (!stack.empty()) {
                const size_t v = stack.back();
                if (state[v] == kDone) {
                    stack.pop_back();
                    continue;
                }
                if (state[v] == kNew) {
                    state[v] = kOpen;
                    for (int k = 0; k < 2; ++k)
                        if (const int64_t to = lead(v, k); to >= 0 && state[static_cast<size_t>(to)] == kNew) stack.push_back(static_cast<size_t>(to));
                    continue;
                }
                // Marked by kind first, so that no description of one kind reads as one of the other.
                std::string d = "a" + label(v);
                bool loop = false;
                for (int k = 0; k < 2; ++k) {
                    int64_t code = lead(v, k);
                    if (code >= 0) {
                        const auto to = static_cast<size_t>(code);
                        loop = loop || state[to] == kOpen || reachesLoop[to];
                        code = shape[to];
                    }
                    d.append(reinterpret_cast<const char*>(&code), sizeof code);
                }
                if (loop) d = "l" + label(v);
                reachesLoop[v] = loop ? 1 : 0;
                shape[v] = of(d);
                state[v] = kDone;
                stack.pop_back();
            }
        }
        return shape;
    }

private:
    std::unordered_map<std::string, int> shapes_;
};

// A command's own bytes (fields apart) and whether it goes on and has a field.
std::string labelOf(std::span<const uint8_t> bytes, bool goesOn, bool hasField) {
    std::string d(bytes.begin(), bytes.end());
    const auto [at, count] = fieldSpan(bytes);
    for (int k = 0; k < count; ++k) d[static_cast<size_t>(at + k)] = 0;
    d.push_back(static_cast<char>((goesOn ? 1 : 0) | (hasField ? 2 : 0)));
    return d;
}

class Matcher {
public:
    Matcher(const std::vector<CarriedCommand>& commands, const AreaMap& map, std::span<const uint8_t> area)
        : commands_(commands), jumps_(commands), area_(area), areaJumps_(area), imageShape_(kSequenceAreaSize, -1) {
        Shapes shapes;
        auto carriedLead = [&](const CarriedLead& raw) -> int64_t {
            const CarriedLead l = jumps_(raw);
            if (l.kind == CarriedLead::Kind::Command) return l.command;
            return l.kind == CarriedLead::Kind::Outside ? outsideCode(l.address) : kNowhere;
        };
        shape_ = shapes.ofGraph(
            commands.size(),
            [&](size_t n) {
                const CarriedCommand& c = commands[n];
                return labelOf(c.bytes, c.next.kind != CarriedLead::Kind::None, c.field.kind != CarriedLead::Kind::None);
            },
            [&](size_t n, int k) { return carriedLead(k == 0 ? commands[n].next : commands[n].field); }, reachesLoop_);
        const std::vector<GameCommand>& program = map.program;
        auto imageLead = [&](int32_t raw) -> int64_t {
            const int32_t a = areaJumps_(raw);
            const GameCommand* g = inArea(a) ? map.commandAt(a) : nullptr;
            return g ? g - program.data() : outsideCode(a);
        };
        std::vector<uint8_t> imageLoops;
        const std::vector<int> imageShapes = shapes.ofGraph(
            program.size(), [&](size_t i) { return labelOf(bytesAt(program[i]), program[i].fallsThrough, program[i].target >= 0); },
            [&](size_t i, int k) {
                const GameCommand& g = program[i];
                if (k == 0) return g.fallsThrough ? imageLead(g.address + g.length) : kNowhere;
                return g.target >= 0 ? imageLead(g.target) : kNowhere;
            },
            imageLoops);
        for (size_t i = 0; i < program.size(); ++i) {
            imageShape_[areaIndex(program[i].address)] = imageShapes[i];
            byShape_[imageShapes[i]].push_back(program[i].address);  // ascending, as the program is
        }
        pairLoops(map);
    }

    // True when a table entry naming `address` runs what `lead` runs (None: FFFF).
    bool sameEntry(const CarriedLead& lead, int32_t address) const {
        return lead.kind == CarriedLead::Kind::None ? address == kNoSequence : leadPairs(lead, address);
    }

    // The image addresses that run what carried command `n` runs, ascending.
    const std::vector<int32_t>& runsAs(int n) const {
        static const std::vector<int32_t> kNone;
        const auto i = static_cast<size_t>(n);
        if (wayOn(i)) return kNone;
        if (reachesLoop_[i]) return candidates_[i];
        const auto found = byShape_.find(shape_[i]);
        return found == byShape_.end() ? kNone : found->second;
    }

private:
    // A jump inside the area: what it leads to is matched, not the jump.
    bool wayOn(size_t n) const { return isJump(commands_[n].bytes[0]) && commands_[n].field.kind == CarriedLead::Kind::Command; }

    // Commands that can reach a loop: each paired with the image's commands
    // of its label; then a pair whose successors do not pair is dropped, and
    // with it only the pairs that went on to it are looked at again (a long
    // chain costs its length, not its square). Thousands alike on both sides
    // would pair each with each: past a budget every command keeps its first
    // candidates only, which is still sound (the import then copies what it
    // might have reused).
    void pairLoops(const AreaMap& map) {
        const size_t n = commands_.size();
        constexpr size_t kPairBudget = size_t{1} << 21;
        size_t total = 0;
        for (size_t i = 0; i < n; ++i)
            if (reachesLoop_[i] && !wayOn(i))
                if (const auto found = byShape_.find(shape_[i]); found != byShape_.end()) total += found->second.size();
        const size_t keep = total > kPairBudget ? std::max<size_t>(64, kPairBudget / n) : total;
        candidates_.resize(n);
        alive_.resize(n);
        for (size_t i = 0; i < n; ++i) {
            if (!reachesLoop_[i] || wayOn(i)) continue;
            if (const auto found = byShape_.find(shape_[i]); found != byShape_.end())
                candidates_[i].assign(found->second.begin(), found->second.begin() + static_cast<std::ptrdiff_t>(std::min(keep, found->second.size())));
            alive_[i].assign(candidates_[i].size(), 1);
        }
        // Who goes on to whom, by falling through and by the field, jumps followed: in the file and in the image.
        std::vector<std::vector<int>> nextHere(n), fieldHere(n);
        for (size_t i = 0; i < n; ++i) {
            if (!reachesLoop_[i]) continue;
            if (const CarriedLead to = jumps_(commands_[i].next); to.kind == CarriedLead::Kind::Command)
                nextHere[static_cast<size_t>(to.command)].push_back(static_cast<int>(i));
            if (const CarriedLead to = jumps_(commands_[i].field); to.kind == CarriedLead::Kind::Command)
                fieldHere[static_cast<size_t>(to.command)].push_back(static_cast<int>(i));
        }
        std::vector<std::vector<int32_t>> imageNextHere(kSequenceAreaSize), imageFieldHere(kSequenceAreaSize);
        for (const GameCommand& g : map.program) {
            if (const int32_t to = g.fallsThrough ? areaJumps_(g.address + g.length) : -1; inArea(to)) imageNextHere[areaIndex(to)].push_back(g.address);
            if (const int32_t to = g.target >= 0 ? areaJumps_(g.target) : -1; inArea(to)) imageFieldHere[areaIndex(to)].push_back(g.address);
        }
        std::vector<std::pair<int, int32_t>> dropped;
        auto drop = [&](size_t i, size_t k) {
            alive_[i][k] = 0;
            dropped.emplace_back(static_cast<int>(i), candidates_[i][k]);
        };
        for (size_t i = 0; i < n; ++i)
            for (size_t k = 0; k < candidates_[i].size(); ++k)
                if (alive_[i][k] && !successorsPair(commands_[i], *map.commandAt(candidates_[i][k]))) drop(i, k);
        while (!dropped.empty()) {
            const auto [m, b] = dropped.back();
            dropped.pop_back();
            for (const auto& [here, imageHere] : {std::pair{&nextHere, &imageNextHere}, std::pair{&fieldHere, &imageFieldHere}})
                for (const int p : (*here)[static_cast<size_t>(m)])
                    for (const int32_t a : (*imageHere)[areaIndex(b)])
                        if (const long k = find(static_cast<size_t>(p), a); k >= 0 && alive_[static_cast<size_t>(p)][static_cast<size_t>(k)])
                            drop(static_cast<size_t>(p), static_cast<size_t>(k));
        }
        for (size_t i = 0; i < n; ++i) {
            size_t kept = 0;
            for (size_t k = 0; k < candidates_[i].size(); ++k)
                if (alive_[i][k]) candidates_[i][kept++] = candidates_[i][k];
            candidates_[i].resize(kept);
            alive_[i].assign(kept, 1);
        }
    }
    // Where `address` stands among command `i`'s candidates (-1: not one).
    long find(size_t i, int32_t address) const {
        const auto& c = candidates_[i];
        const auto it = std::lower_bound(c.begin(), c.end(), address);
        return it != c.end() && *it == address ? it - c.begin() : -1;
    }
    std::span<const uint8_t> bytesAt(const GameCommand& g) const {
        return area_.subspan(static_cast<size_t>(g.address - kSequenceAreaAddress), static_cast<size_t>(g.length));
    }
    bool leadPairs(const CarriedLead& raw, int32_t rawAddress) const {
        const CarriedLead lead = jumps_(raw);
        const int32_t address = areaJumps_(rawAddress);
        if (lead.kind == CarriedLead::Kind::Outside) return address == lead.address;
        if (lead.kind != CarriedLead::Kind::Command) return true;
        const auto m = static_cast<size_t>(lead.command);
        if (!reachesLoop_[m]) return inArea(address) && imageShape_[areaIndex(address)] == shape_[m];
        const long k = find(m, address);
        return k >= 0 && alive_[m][static_cast<size_t>(k)];
    }
    bool successorsPair(const CarriedCommand& c, const GameCommand& g) const {
        return (!g.fallsThrough || leadPairs(c.next, g.address + g.length)) && (g.target < 0 || leadPairs(c.field, g.target));
    }

    const std::vector<CarriedCommand>& commands_;
    const CarriedJumps jumps_;
    std::span<const uint8_t> area_;
    const AreaJumps areaJumps_;
    std::vector<int> shape_;               // per carried command
    std::vector<uint8_t> reachesLoop_;     // per carried command
    std::vector<int> imageShape_;          // per area byte where a command of the image's program starts (-1: none)
    std::unordered_map<int, std::vector<int32_t>> byShape_;  // the image's commands of each shape, ascending
    std::vector<std::vector<int32_t>> candidates_;  // per command that can reach a loop, ascending
    std::vector<std::vector<uint8_t>> alive_;       // per candidate: still paired
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

// From entry `e` of `bytes` the game runs what its lead runs (`jumps` and
// `areaJumps`: the ways on of the commands and of `bytes`' area).
void checkEntry(const std::string& path, const std::string& what, const std::vector<CarriedCommand>& commands, const CarriedJumps& jumps,
                const CarriedEntry& e, const std::vector<uint8_t>& bytes, const AreaJumps& areaJumps) {
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
            else if (l.kind == CarriedLead::Kind::Outside && areaJumps.outOfArea(address) != l.address)
                refuse("would lead " + who + " to " + hex4(address) + ", not " + hex4(l.address));
        };
        while (!work.empty()) {
            const auto [raw, rawAt] = work.back();
            work.pop_back();
            // Jumps on either side are ways on, not commands of the play.
            const CarriedLead lead = jumps(CarriedLead::to(raw));
            const int32_t at = areaJumps(rawAt);
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
    const CarriedJumps jumps(commands);
    const AreaJumps areaJumps(area);
    for (const CarriedEntry& e : entries) {
        rewritten.insert(e.offset);
        checkEntry(path, what, commands, jumps, e, bytes, areaJumps);
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
    // Each command the game ran stood on a byte of its own in the area at least.
    if (commands.size() > static_cast<size_t>(kSequenceAreaSize))
        return "more commands (" + thousands(static_cast<int32_t>(std::min<size_t>(commands.size(), INT32_MAX))) +
               ") than the sequence area has bytes (" + thousands(kSequenceAreaSize) + ")";
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
        : pb_(pb), commands_(commands), entries_(entries), what_(what), runAlready_(runAlready), jumps_(commands), map_(buildAreaMap(pb)),
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
            const CarriedLead to = jumps_(e.lead);
            if (to.kind == CarriedLead::Kind::Command && !pb_.sequences.contains(SeqKey::at(reuse_[static_cast<size_t>(to.command)])))
                reuse_[static_cast<size_t>(to.command)] = -1;
        }
    }
    // A lead goes to the image's copy of what it runs when there is one (its
    // jumps skipped); else its own command, jump or not, is copied.
    int32_t reusedAt(const CarriedLead& l) const {
        const CarriedLead to = jumps_(l);
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
    const CarriedJumps jumps_;
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
