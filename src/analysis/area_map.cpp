#include "analysis/area_map.h"

#include "playbook/list_rows.h"

#include "sequence/command_codes.h"
#include "sequence/command_format.h"

#include <algorithm>

namespace zpe {

using namespace cmd;

namespace {

size_t areaIndex(int32_t address) { return static_cast<size_t>(address - kSequenceAreaAddress); }

int32_t wordAt(std::span<const uint8_t> area, size_t at) { return area[at] + 256 * area[at + 1]; }

// Reads the command at `address` from `bytes`, which hold the addresses from
// `base` on. False when its bytes would cross the end of `bytes`.
bool decodeGameCommand(std::span<const uint8_t> bytes, int32_t base, int32_t address, GameCommand& out) {
    if (address < base || static_cast<size_t>(address - base) >= bytes.size()) return false;
    const auto at = static_cast<size_t>(address - base);
    const uint8_t code = bytes[at];
    const CommandFormat f = commandFormat(code, false, at + 1 < bytes.size() ? bytes[at + 1] : -1);
    GameCommand c;
    c.address = address;
    c.code = code;
    c.length = f.gameLength;
    if (at + static_cast<size_t>(c.length) > bytes.size()) return false;
    c.fallsThrough = f.gameGoesOn;
    if (f.field == FieldKind::Relative) {
        c.target = address + static_cast<int8_t>(bytes[at + static_cast<size_t>(f.fieldAt)]);
    } else if (f.field == FieldKind::Word) {
        c.target = wordAt(bytes, at + static_cast<size_t>(f.fieldAt));
        c.addressField = code != kAbsoluteJump;
    }
    out = c;
    return true;
}

// The walk from a set of start addresses: each command start once, with an
// explicit work list (a long chain cannot overflow the stack). Given the
// whole image, it also follows the game where it leaves the area (a jump to
// a sequence elsewhere in the image, a table entry naming one) through those
// bytes, for the places where it comes back in; only the area's commands are kept.
struct GameWalk {
    std::span<const uint8_t> area;
    std::span<const uint8_t> image;  // the whole image, headed; empty: the area alone
    std::vector<uint8_t> started = std::vector<uint8_t>(kSequenceAreaSize, 0);
    std::vector<uint8_t> outsideStarted;
    std::vector<int32_t> work, outsideWork;
    std::vector<GameCommand> commands;
    std::vector<GameCommand> outsideCommands;  // the commands it ran outside the area
    std::vector<int32_t> comesBackAt;      // where a path from outside came back into the area
    std::vector<int32_t> runsOff;

    GameWalk(std::span<const uint8_t> areaBytes, std::span<const uint8_t> imageBytes) : area(areaBytes), image(imageBytes) {
        if (!image.empty()) outsideStarted.assign(0x10000, 0);
    }

    void push(int32_t address) {
        if (!inArea(address)) {
            pushOutside(address);
            return;
        }
        if (started[areaIndex(address)]) return;
        started[areaIndex(address)] = 1;
        work.push_back(address);
    }
    void pushOutside(int32_t address) {
        if (image.empty() || address < kAddressOffsetDelta || address > 0xFFFF || outsideStarted[static_cast<size_t>(address)]) return;
        outsideStarted[static_cast<size_t>(address)] = 1;
        outsideWork.push_back(address);
    }

    void run() {
        while (!work.empty() || !outsideWork.empty()) {
            if (work.empty()) {
                const int32_t address = outsideWork.back();
                outsideWork.pop_back();
                GameCommand c;
                if (!decodeGameCommand(image, kAddressOffsetDelta, address, c)) continue;
                outsideCommands.push_back(c);
                for (const int32_t next : {c.fallsThrough && address + c.length <= 0xFFFF ? address + c.length : -1, c.target}) {
                    if (next < 0) continue;
                    if (inArea(next)) comesBackAt.push_back(next);
                    push(next);
                }
                continue;
            }
            const int32_t address = work.back();
            work.pop_back();
            GameCommand c;
            if (!readGameCommand(area, address, c)) {
                runsOff.push_back(address);
                continue;
            }
            commands.push_back(c);
            if (c.fallsThrough) {
                const int32_t next = address + c.length;
                if (next >= kAreaEnd) runsOff.push_back(address);
                else push(next);
            }
            if (c.target >= 0) push(c.target);
        }
        std::sort(commands.begin(), commands.end(),
                  [](const GameCommand& a, const GameCommand& b) { return a.address < b.address; });
        std::sort(outsideCommands.begin(), outsideCommands.end(),
                  [](const GameCommand& a, const GameCommand& b) { return a.address < b.address; });
        std::sort(comesBackAt.begin(), comesBackAt.end());
        comesBackAt.erase(std::unique(comesBackAt.begin(), comesBackAt.end()), comesBackAt.end());
        std::sort(runsOff.begin(), runsOff.end());
        runsOff.erase(std::unique(runsOff.begin(), runsOff.end()), runsOff.end());
    }
};

}  // namespace

bool readGameCommand(std::span<const uint8_t> area, int32_t address, GameCommand& out) {
    return inArea(address) && decodeGameCommand(area, kSequenceAreaAddress, address, out);
}

std::string AreaEntry::name() const {
    switch (table) {
    case Table::Pointer: return "pointer " + std::to_string(index);
    case Table::Play: return playName(index) + " " + positionName(player);
    case Table::Formation: return "formation " + std::to_string(index) + " " + positionName(player);
    }
    return {};
}

int32_t AreaMap::count(uint8_t flags) const {
    return static_cast<int32_t>(std::count(use.begin(), use.end(), flags));
}

int32_t AreaMap::editorBytes() const {
    return static_cast<int32_t>(std::count_if(use.begin(), use.end(), [](uint8_t u) { return (u & kUseEditor) != 0; }));
}

int32_t AreaMap::gameBytes() const {
    return static_cast<int32_t>(std::count_if(use.begin(), use.end(), [](uint8_t u) { return (u & kUseGame) != 0; }));
}

std::vector<AreaRun> AreaMap::runs(uint8_t flags) const {
    std::vector<AreaRun> out;
    for (size_t i = 0; i < use.size(); ++i) {
        if (use[i] != flags) continue;
        const auto address = static_cast<int32_t>(kSequenceAreaAddress + i);
        if (!out.empty() && out.back().end == address - 1) out.back().end = address;
        else out.push_back({address, address});
    }
    return out;
}

bool AreaMap::runsAt(int32_t address) const {
    if (inArea(address)) return commandAt(address) != nullptr;
    if (address == kAreaEnd)
        for (const int32_t off : runsOff)
            if (const GameCommand* g = commandAt(off); g && g->fallsThrough && off + g->length == kAreaEnd) return true;
    const auto it = std::lower_bound(outsideCommands.begin(), outsideCommands.end(), address,
                                     [](const GameCommand& g, int32_t a) { return g.address < a; });
    return it != outsideCommands.end() && it->address == address;
}

const GameCommand* AreaMap::commandAt(int32_t address) const {
    const auto it = std::lower_bound(program.begin(), program.end(), address,
                                     [](const GameCommand& g, int32_t a) { return g.address < a; });
    return it != program.end() && it->address == address ? &*it : nullptr;
}

std::vector<AddressField> AreaMap::staleFields() const {
    std::vector<AddressField> out;
    for (const AddressField& f : fields)
        if (inArea(f.target)) out.push_back(f);
    return out;
}

std::vector<AreaEntry> playbookEntries(const Playbook& pb) {
    std::vector<AreaEntry> entries;
    entries.reserve(static_cast<size_t>(kPointerCount) + (static_cast<size_t>(kPlayCount) + pb.formations.size()) * kPlayersPerRecord);
    for (int i = 0; i < kPointerCount; ++i)
        entries.push_back({AreaEntry::Table::Pointer, i, 0, pb.seqPointers[static_cast<size_t>(i)]});
    for (int p = 0; p < kPlayCount; ++p)
        for (int j = 0; j < kPlayersPerRecord; ++j) {
            const SeqKey a = pb.plays[static_cast<size_t>(p)].seqAddress(j);
            if (!a.isNone()) entries.push_back({AreaEntry::Table::Play, p, j, a});
        }
    for (size_t f = 0; f < pb.formations.size(); ++f)
        for (int j = 0; j < kPlayersPerRecord; ++j)
            entries.push_back({AreaEntry::Table::Formation, static_cast<int>(f), j, pb.formations[f].posAddress(j)});
    return entries;
}

std::span<const uint8_t> areaBytes(const std::vector<uint8_t>& image) {
    const auto start = static_cast<size_t>(kSequenceAreaOffset);
    if (image.size() <= start) return {};
    return std::span<const uint8_t>(image).subspan(start, std::min<size_t>(kSequenceAreaSize, image.size() - start));
}

AreaMap buildAreaMap(const Playbook& pb) {
    AreaMap map;
    const std::span<const uint8_t> area = areaBytes(pb.openedBytes);

    for (const auto& [key, seq] : pb.sequences) {
        if (key.isNew()) continue;  // in no image yet
        const int32_t from = std::max(key.address(), kSequenceAreaAddress);
        const int32_t to = std::min(key.address() + seq.byteSize(), kAreaEnd);
        for (int32_t a = from; a < to; ++a) map.use[areaIndex(a)] |= kUseEditor;
        if (seq.readsDifferentlyByGame()) map.readsDifferently.push_back(key.address());
    }
    std::sort(map.readsDifferently.begin(), map.readsDifferently.end());

    GameWalk walk(area, pb.openedBytes);
    for (const AreaEntry& e : playbookEntries(pb)) {
        if (e.target.isNew()) {
            map.unsaved.push_back(e);
            continue;
        }
        const int32_t at = e.target.address();
        if (!inArea(at)) {
            map.outside.push_back(e);
            walk.push(at);  // the game runs it there, and may come back into the area
            continue;
        }
        walk.push(at);
        if (!pb.sequences.contains(e.target)) map.stranded.push_back(e);
    }
    std::stable_sort(map.outside.begin(), map.outside.end(),
                     [](const AreaEntry& a, const AreaEntry& b) { return a.target < b.target; });
    // A sequence outside the area that the tables name runs too: where its
    // jumps and branches lead into the area, the game runs on from there.
    for (const auto& [key, seq] : pb.sequences)
        if (key.placed() && !inArea(key.address()))
            for (const int32_t t : seq.fieldTargets())
                if (inArea(t)) walk.push(t);
    walk.run();

    map.runsOff = std::move(walk.runsOff);
    map.outsideCommands = std::move(walk.outsideCommands);
    map.comesBackAt = std::move(walk.comesBackAt);
    map.commands.reserve(walk.commands.size());
    map.program = walk.commands;
    for (const GameCommand& c : walk.commands) {
        map.commands.push_back(c.address);
        for (int32_t a = c.address; a < c.address + c.length; ++a) map.use[areaIndex(a)] |= kUseGame;
        if (c.addressField) map.fields.push_back({c.address, c.code, c.target});
        if (c.target >= 0 && !inArea(c.target)) map.leaves.push_back({c.address, c.code, c.target});
        if (isLockUp(c.code)) map.lockUps.push_back(c.address);
    }
    // A command the game runs just before the area may take its operands
    // from the area's first bytes: those bytes are the game's too.
    for (const GameCommand& c : map.outsideCommands)
        for (auto [a, end] = areaSpan(c); a < end; ++a) map.use[areaIndex(a)] |= kUseGame;
    return map;
}

std::vector<GameCommand> traceFrom(const std::vector<uint8_t>& image, int32_t address) {
    return traceFrom(image, std::vector<int32_t>{address});
}

std::vector<GameCommand> programFrom(const std::vector<uint8_t>& image, const std::vector<int32_t>& addresses) {
    GameWalk walk(areaBytes(image), {});
    for (int32_t a : addresses) walk.push(a);
    walk.run();
    return std::move(walk.commands);
}

std::vector<GameCommand> traceFrom(const std::vector<uint8_t>& image, const std::vector<int32_t>& addresses) {
    GameWalk walk(areaBytes(image), image);
    for (int32_t a : addresses) walk.push(a);
    walk.run();
    return std::move(walk.commands);
}

int32_t firstRewritten(int32_t address, int32_t size, std::span<const uint8_t> was, std::span<const uint8_t> now,
                       const std::function<bool(int32_t)>& skip) {
    for (int32_t o = std::max(offsetOfAddress(address), 0); o < offsetOfAddress(address) + size && static_cast<size_t>(o) < was.size(); ++o)
        if (static_cast<size_t>(o) < now.size() && now[static_cast<size_t>(o)] != was[static_cast<size_t>(o)] && !(skip && skip(addressOfOffset(o))))
            return addressOfOffset(o);
    return -1;
}

std::pair<int32_t, int32_t> rewrittenOutsideCommand(const AreaMap& map, std::span<const uint8_t> was, std::span<const uint8_t> now,
                                                    const std::function<bool(int32_t)>& skip) {
    for (const GameCommand& g : map.outsideCommands)
        if (const int32_t at = firstRewritten(g.address, g.length, was, now, skip); at >= 0) return {g.address, at};
    return {-1, -1};
}

}  // namespace zpe
