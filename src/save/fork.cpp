#include "save/fork.h"

#include "analysis/entries.h"
#include "model/file_io.h"
#include "model/hex.h"
#include "playbook/open_rom.h"
#include "save/save_changes.h"
#include "save/saves.h"

#include <stdexcept>

namespace zpe {

std::string ForkSummary::text() const {
    return entry + " now runs its own copy of " + hex4(from) + " at " + hex4(to) + " (" + thousands(size) + " bytes); " +
           thousands(freeLeft) + " free bytes left.";
}

ForkPlan planFork(const Playbook& pb, const AreaEntry& entry) {
    requireCompleteOpen(pb);
    const std::string& path = pb.romPath;
    if (entry.target.isNew())
        throw SaveError(path + ": " + entry.name() + " names " + sequenceKeyText(entry.target) + ", a sequence not yet saved; save first");
    const int32_t start = entry.target.address();
    if (!inArea(start)) throw SaveError(path + ": " + entry.name() + " names " + hex4(start) + ", outside the sequence area");
    if (!pb.sequences.contains(entry.target))
        throw SaveError(path + ": " + entry.name() + " names " + hex4(start) + ", where the editor reads no sequence; nothing was written");
    // The same copy as the window's "only this entry": the sequence's commands
    // and the way on to where the game went on after it, placed by Save.
    Playbook edited = pb;
    try {
        setEntryTarget(edited, entry, addCopyOf(edited, entry.target));
    } catch (const std::invalid_argument& e) {
        throw SaveError(path + ": " + e.what() + "; nothing was written", Refusal::CannotMove);
    }
    SavePlan saved;
    try {
        saved = planSave(edited, pb.openedBytes);
    } catch (const SaveError& e) {
        if (e.kind() != Refusal::NoFreeRun) throw;
        throw SaveError(std::string(e.what()) + " (zpe compact makes room)", Refusal::NoFreeRun);
    }
    ForkPlan plan;
    plan.bytes = std::move(saved.bytes);
    const auto placed = saved.summary.placed.front();
    int32_t size = 0;
    for (const LaidSequence& laid : saved.layout.sequences)
        if (laid.key == placed.first) size = laid.end - laid.place;
    plan.summary = {entry.name(), start, placed.second, size, saved.summary.freeBytesLeft};
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
