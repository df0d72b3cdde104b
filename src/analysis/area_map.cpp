#include "analysis/area_map.h"

#include "model/tables.h"
#include "sequence/command_codes.h"

#include <algorithm>

namespace zpe {

using namespace cmd;

namespace {

size_t areaIndex(int32_t address) { return static_cast<size_t>(address - kSequenceAreaAddress); }

// The game's length of a high code: its length table, except where the
// handler, not the table, decides (the stance and hike codes and Human Control
// go on after one byte, the jumps set the pointer, the lock-ups never return).
int32_t highCodeLength(uint8_t code) {
    switch (code) {
    case kHumanControl: case kCenterSnap: case kThreePointStance: case kTwoPointStance: case kQbStance:
    case kLongSnap: case kHangC2: case kHangC3: case kHangC6: case kHangCB: case kHangF1:
        return 1;
    case kRelativeJump: return 2;
    case kAbsoluteJump: return 3;
    default: return cmdLenHigh[static_cast<size_t>(code - kFirstHighCode)];
    }
}

bool endsThePath(uint8_t code) {
    return code == kCelebrate || code == kDejected || code == kRelativeJump || code == kAbsoluteJump || isLockUp(code);
}

int32_t wordAt(std::span<const uint8_t> area, size_t at) { return area[at] + 256 * area[at + 1]; }

// The walk from a set of start addresses: each command start once, with an
// explicit work list (a long chain cannot overflow the stack).
struct GameWalk {
    std::span<const uint8_t> area;
    std::vector<uint8_t> started = std::vector<uint8_t>(kSequenceAreaSize, 0);
    std::vector<int32_t> work;
    std::vector<GameCommand> commands;
    std::vector<int32_t> runsOff;

    explicit GameWalk(std::span<const uint8_t> bytes) : area(bytes) {}

    void push(int32_t address) {
        if (!inArea(address) || started[areaIndex(address)]) return;
        started[areaIndex(address)] = 1;
        work.push_back(address);
    }

    void run() {
        while (!work.empty()) {
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
        std::sort(runsOff.begin(), runsOff.end());
        runsOff.erase(std::unique(runsOff.begin(), runsOff.end()), runsOff.end());
    }
};

}  // namespace

bool readGameCommand(std::span<const uint8_t> area, int32_t address, GameCommand& out) {
    if (!inArea(address) || areaIndex(address) >= area.size()) return false;
    const size_t at = areaIndex(address);
    const uint8_t code = area[at];
    GameCommand c;
    c.address = address;
    c.code = code;
    const int32_t low = code & kLowCodeMask;
    if (isLowCode(code)) {
        c.length = low == kComPass ? (code & kLowNibbleMask) + 4 : cmdLenByNibble[static_cast<size_t>(low >> 4)];
    } else {
        c.length = highCodeLength(code);
    }
    if (at + static_cast<size_t>(c.length) > area.size()) return false;
    c.fallsThrough = !endsThePath(code);
    if (code == kRelativeJump) {
        const int32_t offset = area[at + 1];
        c.target = address + (offset >= kBackwardOffset ? offset - 256 : offset);
    } else if (code == kAbsoluteJump) {
        c.target = wordAt(area, at + 1);
    } else if ((isLowCode(code) && low == kRandomBranch) || code == kBranchComVsHuman || code == kBranchComBoost ||
               code == kBranchNotHuman) {
        c.target = wordAt(area, at + 1);
        c.addressField = true;
    } else if (isLowCode(code) && low == kComPass) {
        c.target = wordAt(area, at + static_cast<size_t>(c.length) - 2);
        c.addressField = true;
    }
    out = c;
    return true;
}

std::string AreaEntry::name() const {
    switch (table) {
    case Table::Pointer: return "pointer " + std::to_string(index);
    case Table::Play: return "play " + std::to_string(index) + " player " + std::to_string(player);
    case Table::Formation: return "formation " + std::to_string(index) + " position " + std::to_string(player);
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

std::vector<AddressField> AreaMap::staleFields() const {
    std::vector<AddressField> out;
    for (const AddressField& f : fields)
        if (inArea(f.target)) out.push_back(f);
    return out;
}

std::vector<AreaEntry> playbookEntries(const Playbook& pb) {
    std::vector<AreaEntry> entries;
    for (int i = 0; i < kPointerCount; ++i)
        entries.push_back({AreaEntry::Table::Pointer, i, 0, pb.seqPointers[static_cast<size_t>(i)]});
    for (int p = 0; p < kPlayCount; ++p)
        for (int j = 0; j < kPlayersPerRecord; ++j) {
            const int32_t a = pb.plays[static_cast<size_t>(p)].seqAddress(j);
            if (a != kNoSequence) entries.push_back({AreaEntry::Table::Play, p, j, a});
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

    for (const auto& [address, seq] : pb.sequences) {
        const int32_t from = std::max(seq.address(), kSequenceAreaAddress);
        const int32_t to = std::min(seq.address() + seq.byteSize(), kAreaEnd);
        for (int32_t a = from; a < to; ++a) map.use[areaIndex(a)] |= kUseEditor;
        if (seq.readsDifferentlyByGame()) map.readsDifferently.push_back(address);
    }
    std::sort(map.readsDifferently.begin(), map.readsDifferently.end());

    GameWalk walk(area);
    for (const AreaEntry& e : playbookEntries(pb)) {
        if (!inArea(e.target)) {
            map.outside.push_back(e);
            continue;
        }
        walk.push(e.target);
        if (!pb.sequences.contains(e.target)) map.stranded.push_back(e);
    }
    std::stable_sort(map.outside.begin(), map.outside.end(),
                     [](const AreaEntry& a, const AreaEntry& b) { return a.target < b.target; });
    walk.run();

    map.runsOff = std::move(walk.runsOff);
    map.commands.reserve(walk.commands.size());
    for (const GameCommand& c : walk.commands) {
        map.commands.push_back(c.address);
        for (int32_t a = c.address; a < c.address + c.length; ++a) map.use[areaIndex(a)] |= kUseGame;
        if (c.addressField) map.fields.push_back({c.address, c.code, c.target});
        if (c.target >= 0 && !inArea(c.target)) map.leaves.push_back({c.address, c.code, c.target});
        if (isLockUp(c.code)) map.lockUps.push_back(c.address);
    }
    return map;
}

std::vector<GameCommand> traceFrom(std::span<const uint8_t> area, int32_t address) {
    GameWalk walk(area);
    walk.push(address);
    walk.run();
    return std::move(walk.commands);
}

}  // namespace zpe
