#include "save/fork.h"

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
#include <set>

namespace zpe {

namespace {

size_t areaIndex(int32_t address) { return static_cast<size_t>(address - kSequenceAreaAddress); }

int32_t entryOffset(const AreaEntry& e) {
    switch (e.table) {
    case AreaEntry::Table::Pointer: return pointerEntryOffset(e.index);
    case AreaEntry::Table::Play: return playEntryOffset(e.index, e.player);
    case AreaEntry::Table::Formation: return formationEntryOffset(e.index, e.player);
    }
    return -1;
}

// The commands the game runs from `start` along what falls through, up to the
// first that does not go on; empty when the path runs off the area.
std::vector<GameCommand> chainFrom(std::span<const uint8_t> area, int32_t start) {
    std::vector<GameCommand> chain;
    for (int32_t a = start;;) {
        GameCommand g;
        if (!readGameCommand(area, a, g)) return {};
        chain.push_back(g);
        if (!g.fallsThrough) return chain;
        a += g.length;
        if (!inArea(a)) return {};
    }
}

}  // namespace

std::string ForkSummary::text() const {
    return entry + " now runs its own copy of " + hex4(from) + " at " + hex4(to) + " (" + thousands(size) + " bytes); " +
           thousands(freeLeft) + " free bytes left.";
}

ForkPlan planFork(const Playbook& pb, const AreaEntry& entry) {
    requireCompleteOpen(pb);
    const std::string& path = pb.romPath;
    const std::span<const uint8_t> area = areaBytes(pb.openedBytes);
    const int32_t start = entry.target;
    if (!inArea(start)) throw SaveError(path + ": " + entry.name() + " names " + hex4(start) + ", outside the sequence area");
    const std::vector<GameCommand> chain = chainFrom(area, start);
    if (chain.empty())
        throw SaveError(path + ": the game runs off the sequence area from " + hex4(start) + "; nothing was written");
    const int32_t end = chain.back().address + chain.back().length;

    // The copy's bytes at `to`: fields that lead inside the chain lead inside the copy.
    auto copyAt = [&](int32_t to) {
        std::vector<uint8_t> out(area.begin() + static_cast<std::ptrdiff_t>(areaIndex(start)),
                                 area.begin() + static_cast<std::ptrdiff_t>(areaIndex(end)));
        for (const GameCommand& g : chain) {
            if (g.target < 0) continue;
            const CommandFormat f = commandFormat(g.code, false, -1);
            const auto at = static_cast<size_t>(g.address - start + f.fieldAt);
            const bool inside = g.target >= start && g.target < end;
            if (f.field == FieldKind::Relative) {
                if (inside) continue;  // same distance in the copy
                const int32_t offset = g.target - (g.address - start + to);
                if (offset >= -128 && offset <= 127 && (offset >= 0) == (g.target >= g.address)) {
                    out[at] = static_cast<uint8_t>(offset & 0xFF);
                } else {  // out of reach: an absolute jump, one byte longer (it is the last command)
                    out[at - 1] = static_cast<uint8_t>(cmd::kAbsoluteJump);
                    out[at] = static_cast<uint8_t>(g.target & 0xFF);
                    out.push_back(static_cast<uint8_t>((g.target >> 8) & 0xFF));
                }
            } else {
                const int32_t t = inside ? g.target - start + to : g.target;
                out[at] = static_cast<uint8_t>(t & 0xFF);
                out[at + 1] = static_cast<uint8_t>((t >> 8) & 0xFF);
            }
        }
        return out;
    };

    const AreaMap map = buildAreaMap(pb);
    const std::vector<AreaRun> free = map.freeRuns();
    int32_t need = end - start, largest = 0, to = -1;
    std::vector<uint8_t> copy;
    for (const AreaRun& r : free) {
        largest = std::max(largest, r.size());
        if (to >= 0 || r.size() < need) continue;
        copy = copyAt(r.start);
        if (static_cast<int32_t>(copy.size()) <= r.size()) to = r.start;
    }
    if (to < 0)
        throw SaveError(path + ": the copy of " + hex4(start) + " needs " + std::to_string(need) +
                        " bytes, but the largest free run of the sequence area holds " + std::to_string(largest) +
                        "; zpe compact makes room. Nothing was written",
                        Refusal::NoFreeRun);

    Image out(path, pb.openedBytes);
    out.seekOffset(offsetOfAddress(to));
    for (uint8_t b : copy) out.writeByte(b);
    out.seekOffset(entryOffset(entry));
    out.writeWord(to);

    ForkPlan plan;
    plan.bytes = out.bytes();
    plan.summary = {entry.name(), start, to, static_cast<int32_t>(copy.size()), map.freeBytes() - static_cast<int32_t>(copy.size())};

    // Read back: the image opens; every other entry names what it named; the
    // copy runs command for command what the original ran; the game reaches
    // nothing new but the copy.
    auto fail = [&](const std::string& what) {
        throw VerifyError(path + ": internal error: reading back the fork, " + what + "; nothing was written");
    };
    Playbook again;
    try {
        again = readBytesAs(pb, plan.bytes);
    } catch (const RomError& e) {
        fail(std::string("the image would not open (") + e.what() + ")");
    }
    const std::string entries = entryDifference(pb, again, [&](const AreaEntry& e) {
        const bool forked = e.table == entry.table && e.index == entry.index && e.player == entry.player;
        return forked ? to : e.target;
    });
    if (!entries.empty()) fail(entries);
    const std::span<const uint8_t> newArea = areaBytes(plan.bytes);
    const std::vector<GameCommand> copied = chainFrom(newArea, to);
    if (copied.size() != chain.size()) fail("the copy would run " + std::to_string(copied.size()) + " commands, not " + std::to_string(chain.size()));
    for (size_t i = 0; i < chain.size(); ++i) {
        const GameCommand &was = chain[i], &is = copied[i];
        const bool madeAbsolute = was.code == cmd::kRelativeJump && is.code == cmd::kAbsoluteJump;
        if ((is.code != was.code && !madeAbsolute) || (!madeAbsolute && is.length != was.length) || is.fallsThrough != was.fallsThrough)
            fail("command " + std::to_string(i) + " of the copy would differ");
        const bool inside = was.target >= start && was.target < end;
        if (was.target >= 0 && is.target != (inside ? was.target - start + to : was.target))
            fail("command " + std::to_string(i) + " of the copy would lead to " + hex4(is.target));
    }
    const AreaMap now = buildAreaMap(again);
    const std::set<int32_t> old(map.commands.begin(), map.commands.end());
    std::set<int32_t> allowed = old;
    for (const GameCommand& g : copied) allowed.insert(g.address);
    for (int32_t a : now.commands)
        if (!allowed.count(a)) fail("the game would run a command at " + hex4(a) + ", where it ran none before");
    return plan;
}

ForkSummary forkEntry(Playbook& pb, const AreaEntry& entry, const std::string& dataDir,
                      const std::function<void(const ForkSummary&)>& confirm) {
    (void)readUnchangedImage(pb);
    const ForkPlan plan = planFork(pb, entry);
    replaceFileContents(pb.romPath, fileBytes(pb, plan.bytes), confirm ? std::function<void()>([&] { confirm(plan.summary); }) : nullptr);
    pb = openRom(pb.romPath, dataDir);
    return plan.summary;
}

}  // namespace zpe
