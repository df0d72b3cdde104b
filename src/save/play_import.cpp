#include "save/play_import.h"

#include "analysis/entries.h"
#include "model/file_io.h"
#include "model/hex.h"
#include "playbook/list_rows.h"
#include "playbook/open_rom.h"
#include "playbook/table_codec.h"
#include "save/saves.h"
#include "save/verify_write.h"
#include "sequence/command_codes.h"

#include <algorithm>
#include <unordered_map>

namespace zpe {

namespace {

constexpr int kJumpSize = 3;  // an absolute jump FF lo hi: what joins a chain split across runs

bool isJump(uint8_t code) { return code == cmd::kAbsoluteJump || code == cmd::kRelativeJump; }

// A jump is a way on, not a command: two places run the same thing when what
// they run after their leading jumps is the same. A chain of jumps that never
// ends in a command is taken as it stands.
constexpr int kMaxHops = 16;

// `l` with the jumps it starts with followed.
CarriedLead throughJumps(const CarriedPlay& play, CarriedLead l) {
    for (int hops = 0; hops < kMaxHops && l.kind == CarriedLead::Kind::Command; ++hops) {
        const CarriedCommand& c = play.commands[static_cast<size_t>(l.command)];
        if (!isJump(c.bytes[0])) break;
        l = c.field;
    }
    return l;
}

// `address` of the image whose area is `area`, with the jumps it starts with followed.
int32_t throughJumps(std::span<const uint8_t> area, int32_t address) {
    GameCommand g;
    for (int hops = 0; hops < kMaxHops && readGameCommand(area, address, g) && isJump(g.code); ++hops) address = g.target;
    return address;
}

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
class Matcher {
public:
    Matcher(const CarriedPlay& play, const AreaMap& map, std::span<const uint8_t> area) : play_(play), map_(map), area_(area) {
        std::unordered_map<uint64_t, std::vector<int32_t>> byKey;
        for (const GameCommand& g : map.program) byKey[key(bytesAt(g))].push_back(g.address);
        candidates_.resize(play.commands.size());
        for (size_t n = 0; n < play.commands.size(); ++n) {
            if (isJump(play.commands[n].bytes[0])) continue;  // jumps are ways on: what they lead to is matched
            const auto found = byKey.find(key(play.commands[n].bytes));
            if (found == byKey.end()) continue;
            for (const int32_t a : found->second)
                if (sameShape(play.commands[n], *map.commandAt(a))) candidates_[n].push_back(a);
        }
        for (bool changed = true; changed;) {
            changed = false;
            for (size_t n = 0; n < candidates_.size(); ++n) {
                auto& c = candidates_[n];
                const size_t was = c.size();
                c.erase(std::remove_if(c.begin(), c.end(), [&](int32_t a) { return !successorsPair(play.commands[n], *map.commandAt(a)); }),
                        c.end());
                changed = changed || c.size() != was;
            }
        }
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
        const CarriedLead lead = throughJumps(play_, raw);
        const int32_t address = throughJumps(area_, rawAddress);
        if (lead.kind == CarriedLead::Kind::Outside) return address == lead.address;
        if (lead.kind != CarriedLead::Kind::Command) return true;
        const auto& c = candidates_[static_cast<size_t>(lead.command)];
        return std::binary_search(c.begin(), c.end(), address);
    }
    bool successorsPair(const CarriedCommand& c, const GameCommand& g) const {
        return (!g.fallsThrough || leadPairs(c.next, g.address + g.length)) && (g.target < 0 || leadPairs(c.field, g.target));
    }

    const CarriedPlay& play_;
    [[maybe_unused]] const AreaMap& map_;
    std::span<const uint8_t> area_;
    std::vector<std::vector<int32_t>> candidates_;
};

// A run of carried commands that must stand one after the other (each falls
// through to the next), ending in a jump when the last one goes on to a
// command that stands elsewhere.
struct Chain {
    std::vector<int> commands;
    int32_t size = 0;
};

void checkImport(const Playbook& pb, const CarriedPlay& play, int playNumber, const std::vector<uint8_t>& bytes);

struct Placement {
    std::vector<int32_t> place;                   // per carried command: where it is written (-1: reused or not needed)
    std::vector<std::pair<int32_t, CarriedLead>> joins;  // a joining jump's place and where it leads
    int runs = 0;
    int32_t bytes = 0;
};

}  // namespace

CarriedPlay carryPlay(const Playbook& pb, int playNumber) {
    std::vector<int32_t> entries;
    for (int j = 0; j < kPlayersPerRecord; ++j) entries.push_back(pb.plays.at(static_cast<size_t>(playNumber)).seqAddress(j));
    const std::vector<GameCommand> program = programFrom(pb.openedBytes, entries);
    std::unordered_map<int32_t, int> index;
    for (size_t i = 0; i < program.size(); ++i) index.emplace(program[i].address, static_cast<int>(i));
    auto leadTo = [&](int32_t address) {
        if (address == kNoSequence) return CarriedLead::none();
        const auto found = index.find(address);
        return found == index.end() ? CarriedLead::outside(address) : CarriedLead::to(found->second);
    };
    CarriedPlay out;
    const std::span<const uint8_t> area = areaBytes(pb.openedBytes);
    for (const GameCommand& g : program) {
        CarriedCommand c;
        const auto at = area.begin() + (g.address - kSequenceAreaAddress);
        c.bytes.assign(at, at + g.length);
        if (g.fallsThrough) c.next = leadTo(g.address + g.length);
        if (g.target >= 0) c.field = leadTo(g.target);
        out.commands.push_back(std::move(c));
    }
    for (size_t j = 0; j < entries.size(); ++j) out.players[j] = leadTo(entries[j]);
    return out;
}

std::string carriedPlayFault(const CarriedPlay& play) {
    const auto n = static_cast<int>(play.commands.size());
    auto leadFault = [n](const CarriedLead& l) {
        if (l.kind == CarriedLead::Kind::Command && (l.command < 0 || l.command >= n)) return std::string("names no command of the file");
        if (l.kind == CarriedLead::Kind::Outside && (inArea(l.address) || l.address < 0 || l.address > 0xFFFF))
            return "names " + hex4(l.address) + " as outside the sequence area";
        return std::string();
    };
    for (int j = 0; j < kPlayersPerRecord; ++j)
        if (const std::string f = leadFault(play.players[static_cast<size_t>(j)]); !f.empty()) return positionName(j) + "'s entry " + f;
    for (int i = 0; i < n; ++i) {
        const CarriedCommand& c = play.commands[static_cast<size_t>(i)];
        const std::string which = "command " + std::to_string(i);
        GameCommand g;
        if (!readCarried(c, g) || g.length != static_cast<int32_t>(c.bytes.size()))
            return which + ": its bytes are not one command as the game reads it";
        if (g.fallsThrough != (c.next.kind != CarriedLead::Kind::None))
            return which + (g.fallsThrough ? ": the game goes on after it, but nothing follows it" : ": the game does not go on after it");
        if ((g.target >= 0) != (c.field.kind != CarriedLead::Kind::None))
            return which + (g.target >= 0 ? ": its address field leads nowhere" : ": it has no address field");
        if (const std::string f = leadFault(c.next); !f.empty()) return which + ": what follows it " + f;
        if (const std::string f = leadFault(c.field); !f.empty()) return which + ": its field " + f;
    }
    return {};
}

std::string PlayImportSummary::text() const {
    return playName(play) + " now runs the imported play: " + std::to_string(copied) + " commands copied (" + thousands(bytesWritten) +
           " bytes in " + std::to_string(runs) + " free run" + (runs == 1 ? "" : "s") + "), " + std::to_string(reused) +
           " reused; " + thousands(freeLeft) + " free bytes left.";
}

namespace {

// Where each needed command goes. Chains are placed whole, first fit, in the
// file's order; a chain no free run holds is split where it must, its parts
// joined by absolute jumps. `absolute` marks relative jumps written as
// absolute ones (one byte longer) because their target lies out of reach.
Placement place(const CarriedPlay& play, const std::vector<Chain>& chains, const std::vector<AreaRun>& freeRuns,
                const std::vector<bool>& absolute, int32_t freeBytes, const std::string& path) {
    auto sizeOf = [&](int n) {
        return absolute[static_cast<size_t>(n)] ? kJumpSize : static_cast<int32_t>(play.commands[static_cast<size_t>(n)].bytes.size());
    };
    auto goesOnElsewhere = [&](int n) { return play.commands[static_cast<size_t>(n)].next.kind != CarriedLead::Kind::None; };
    Placement out;
    out.place.assign(play.commands.size(), -1);
    std::vector<int32_t> used(freeRuns.size(), 0);
    std::vector<bool> written(freeRuns.size(), false);
    int32_t needed = 0;
    for (const Chain& chain : chains)
        for (const int n : chain.commands) needed += sizeOf(n);
    for (const Chain& whole : chains) {
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
                if (to == from)
                    throw SaveError(path + ": the imported play needs " + thousands(needed) + " bytes of commands, and the largest free run left holds " +
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
                                                                  : play.commands[static_cast<size_t>(whole.commands.back())].next;
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

}  // namespace

PlayImportPlan planPlayImport(const Playbook& pb, const CarriedPlay& play, int playNumber) {
    requireCompleteOpen(pb);
    const std::string& path = pb.romPath;
    if (playNumber < 0 || playNumber >= kPlayCount) throw SaveError(path + ": there is no play " + std::to_string(playNumber));
    if (const std::string fault = carriedPlayFault(play); !fault.empty())
        throw SaveError(path + ": the imported play is not one the game could run (" + fault + "); nothing was written");
    const AreaMap map = buildAreaMap(pb);
    const std::span<const uint8_t> area = areaBytes(pb.openedBytes);
    const Matcher matcher(play, map, area);

    // What the image runs already, preferably where an editor sequence starts.
    // An entry is pointed only at such a start (the editor then reads what it
    // reads there already); a command reached inside the play anywhere.
    const size_t n = play.commands.size();
    std::vector<int32_t> reuse(n, -1);
    for (size_t i = 0; i < n; ++i) {
        const auto& at = matcher.runsAs(static_cast<int>(i));
        const auto start = std::find_if(at.begin(), at.end(), [&](int32_t a) { return pb.sequences.contains(a); });
        if (start != at.end()) reuse[i] = *start;
        else if (!at.empty()) reuse[i] = at.front();
    }
    for (const CarriedLead& p : play.players) {
        const CarriedLead to = throughJumps(play, p);
        if (to.kind == CarriedLead::Kind::Command && !pb.sequences.contains(reuse[static_cast<size_t>(to.command)]))
            reuse[static_cast<size_t>(to.command)] = -1;
    }
    // A lead goes to the image's copy of what it runs when there is one (its
    // jumps skipped); else its own command, jump or not, is copied.
    auto reusedAt = [&](const CarriedLead& l) -> int32_t {
        const CarriedLead to = throughJumps(play, l);
        if (to.kind == CarriedLead::Kind::Outside) return to.address;
        if (to.kind == CarriedLead::Kind::Command) return reuse[static_cast<size_t>(to.command)];
        return -1;
    };
    std::vector<bool> needed(n, false);
    std::vector<int> work;
    auto reach = [&](const CarriedLead& l) {
        if (l.kind == CarriedLead::Kind::Command && reusedAt(l) < 0) work.push_back(l.command);
    };
    for (const CarriedLead& p : play.players) reach(p);
    while (!work.empty()) {
        const auto i = static_cast<size_t>(work.back());
        work.pop_back();
        if (needed[i]) continue;
        needed[i] = true;
        reach(play.commands[i].next);
        reach(play.commands[i].field);
    }
    // Chains: a copied command and the copied ones it falls through to, in the file's order; a loop closes with a jump.
    std::vector<bool> followsOn(n, false);
    for (size_t i = 0; i < n; ++i) {
        const CarriedLead& next = play.commands[i].next;
        if (needed[i] && next.kind == CarriedLead::Kind::Command && needed[static_cast<size_t>(next.command)])
            followsOn[static_cast<size_t>(next.command)] = true;
    }
    std::vector<Chain> chains;
    std::vector<bool> chained(n, false);
    for (const bool heads : {true, false}) {
        for (size_t i = 0; i < n; ++i) {
            if (!needed[i] || chained[i] || (heads && followsOn[i])) continue;
            Chain chain;
            for (auto k = static_cast<int>(i); k >= 0 && needed[static_cast<size_t>(k)] && !chained[static_cast<size_t>(k)];) {
                chained[static_cast<size_t>(k)] = true;
                chain.commands.push_back(k);
                const CarriedLead& next = play.commands[static_cast<size_t>(k)].next;
                k = next.kind == CarriedLead::Kind::Command ? next.command : -1;
            }
            chains.push_back(std::move(chain));
        }
    }

    // Free bytes: neither the game's nor an editor sequence's, inside the image.
    std::vector<AreaRun> freeRuns;
    const int32_t areaEnd = kSequenceAreaAddress + static_cast<int32_t>(area.size());
    for (AreaRun r : map.freeRuns()) {
        r.end = std::min(r.end, areaEnd - 1);
        if (r.end >= r.start) freeRuns.push_back(r);
    }
    int32_t freeBytes = 0;
    for (const AreaRun& r : freeRuns) freeBytes += r.size();

    // Sizes to a fixed point: a relative jump whose target ends up out of reach becomes absolute, and all is placed again.
    std::vector<bool> absolute(n, false);
    Placement placed;
    auto addressOf = [&](const CarriedLead& l, const Placement& at) -> int32_t {
        if (l.kind == CarriedLead::Kind::None) return kNoSequence;
        if (l.kind == CarriedLead::Kind::Command && at.place[static_cast<size_t>(l.command)] >= 0) return at.place[static_cast<size_t>(l.command)];
        return reusedAt(l);
    };
    for (bool settled = false; !settled;) {
        placed = place(play, chains, freeRuns, absolute, freeBytes, path);
        settled = true;
        for (size_t i = 0; i < n; ++i) {
            if (placed.place[i] < 0 || absolute[i]) continue;
            const CommandFormat f = commandFormat(play.commands[i].bytes[0], false, -1);
            if (f.field != FieldKind::Relative) continue;
            const int32_t offset = addressOf(play.commands[i].field, placed) - placed.place[i];
            const bool back = static_cast<int8_t>(play.commands[i].bytes[1]) < 0;
            // Kept in the direction it was read (a loop back stays a loop back), and within a signed byte.
            if (offset < -128 || offset > 127 || (offset < 0) != back) {
                absolute[i] = true;
                settled = false;
            }
        }
    }

    // The bytes: each copied command with its field written for where its target stands, the joining jumps, the play's record.
    PlayImportPlan plan;
    plan.bytes = pb.openedBytes;
    auto put = [&](int32_t address, std::span<const uint8_t> bytes) {
        std::copy(bytes.begin(), bytes.end(), plan.bytes.begin() + offsetOfAddress(address));
    };
    auto jumpTo = [](int32_t place, int32_t target) {
        const FieldBytes f = fieldBytes(FieldKind::Word, place, target);
        return std::vector<uint8_t>{static_cast<uint8_t>(cmd::kAbsoluteJump), f.bytes[0], f.bytes[1]};
    };
    for (size_t i = 0; i < n; ++i) {
        if (placed.place[i] < 0) continue;
        const CarriedCommand& c = play.commands[i];
        const int32_t target = addressOf(c.field, placed);
        if (absolute[i]) {
            put(placed.place[i], jumpTo(placed.place[i], target));
            continue;
        }
        std::vector<uint8_t> bytes = c.bytes;
        const CommandFormat f = commandFormat(bytes[0], false, bytes.size() > 1 ? bytes[1] : -1);
        if (f.field != FieldKind::None) {
            const FieldBytes fb = fieldBytes(f.field, placed.place[i], target);
            std::copy_n(fb.bytes.begin(), fb.count, bytes.begin() + f.fieldAt);
        }
        put(placed.place[i], bytes);
    }
    for (const auto& [at, on] : placed.joins) put(at, jumpTo(at, addressOf(on, placed)));
    for (int j = 0; j < kPlayersPerRecord; ++j) {
        const int32_t entry = addressOf(play.players[static_cast<size_t>(j)], placed);
        const auto at = static_cast<size_t>(playEntryOffset(playNumber, j));
        plan.bytes[at] = static_cast<uint8_t>(entry & 0xFF);
        plan.bytes[at + 1] = static_cast<uint8_t>(entry >> 8);
    }

    int copied = 0, reused = 0;
    for (size_t i = 0; i < n; ++i) {
        copied += placed.place[i] >= 0;
        reused += reuse[i] >= 0 && !needed[i] && !isJump(play.commands[i].bytes[0]);
    }
    plan.summary = {playNumber, reused, copied, placed.bytes, placed.runs, freeBytes - placed.bytes};
    checkImport(pb, play, playNumber, plan.bytes);
    return plan;
}

namespace {

// The check before the write: the image the plan writes, read by the game
// from each of the play's entries, runs what the carried play runs (the
// same commands in the same order, fields leading to the same commands; a
// joining jump, or a relative jump written as an absolute one, is the same
// way on); every other entry runs the very bytes it ran; and the editor
// opens the image and reads every other entry's sequence as before.
void checkImport(const Playbook& pb, const CarriedPlay& play, int playNumber, const std::vector<uint8_t>& bytes) {
    const std::string& path = pb.romPath;
    auto refuse = [&](const std::string& what) {
        throw SaveError(path + ": the imported play " + what + "; nothing was written", Refusal::WouldNotReopen);
    };
    const std::span<const uint8_t> area = areaBytes(bytes);
    for (int j = 0; j < kPlayersPerRecord; ++j) {
        const CarriedLead& lead = play.players[static_cast<size_t>(j)];
        const int32_t entry = bytes[static_cast<size_t>(playEntryOffset(playNumber, j))] |
                              bytes[static_cast<size_t>(playEntryOffset(playNumber, j)) + 1] << 8;
        const std::string who = positionName(j);
        if (lead.kind != CarriedLead::Kind::Command) {
            if (entry != (lead.kind == CarriedLead::Kind::Outside ? lead.address : kNoSequence)) refuse("would give " + who + " another entry");
            continue;
        }
        std::vector<std::pair<int, int32_t>> work{{lead.command, entry}};
        std::unordered_map<int64_t, bool> seen;
        auto pairUp = [&](const CarriedLead& l, int32_t address) {
            if (l.kind == CarriedLead::Kind::Command) work.emplace_back(l.command, address);
            else if (l.kind == CarriedLead::Kind::Outside && throughJumps(area, address) != l.address) refuse("would lead " + who + " to " + hex4(address) + ", not " + hex4(l.address));
        };
        while (!work.empty()) {
            const auto [raw, rawAt] = work.back();
            work.pop_back();
            // Jumps on either side are ways on, not commands of the play.
            const CarriedLead lead = throughJumps(play, CarriedLead::to(raw));
            const int32_t at = throughJumps(area, rawAt);
            if (lead.kind != CarriedLead::Kind::Command) {
                pairUp(lead, at);
                continue;
            }
            const int i = lead.command;
            if (!seen.emplace((static_cast<int64_t>(i) << 20) | at, true).second) continue;
            const CarriedCommand& c = play.commands[static_cast<size_t>(i)];
            GameCommand g;
            if (!readGameCommand(area, at, g)) refuse("would run " + who + " off the sequence area at " + hex4(at));
            const std::span<const uint8_t> there = area.subspan(static_cast<size_t>(at - kSequenceAreaAddress), static_cast<size_t>(g.length));
            if (!sameBesidesField(c.bytes, there) || g.fallsThrough != (c.next.kind != CarriedLead::Kind::None))
                refuse("would run something else for " + who + " at " + hex4(at));
            if (g.fallsThrough) pairUp(c.next, at + g.length);
            if (g.target >= 0) pairUp(c.field, g.target);
        }
    }
    // Every other entry: the same bytes run, the same sequences read.
    std::vector<int32_t> others;
    std::vector<AreaEntry> otherEntries;
    for (const AreaEntry& e : playbookEntries(pb))
        if (!(e.table == AreaEntry::Table::Play && e.index == playNumber)) {
            others.push_back(e.target);
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
    }
}

}  // namespace

PlayImportSummary importPlay(Playbook& pb, const CarriedPlay& play, int playNumber, const std::string& dataDir,
                             const std::function<void(const PlayImportSummary&)>& confirm) {
    (void)readUnchangedImage(pb);
    const PlayImportPlan plan = planPlayImport(pb, play, playNumber);
    replaceFileContents(pb.romPath, fileBytes(pb, plan.bytes), confirm ? std::function<void()>([&] { confirm(plan.summary); }) : nullptr);
    pb = openRom(pb.romPath, dataDir);
    return plan.summary;
}

}  // namespace zpe
