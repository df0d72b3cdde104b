#include "save/document.h"

#include "save/saves.h"
#include "save/verify_write.h"

namespace zpe {

bool Document::workingCopyEdited() const {
    if (workingCopy.commandCount() == 0) return false;
    const clsSequence* stored = pb.sequences.find(workingCopy.key());
    return stored && (stored->commands() != workingCopy.commands() || stored->byteSize() != workingCopy.byteSize());
}

Edit Document::sequenceEdit(std::string text, const clsSequence& before, const clsSequence& after, bool follows) const {
    Edit edit{std::move(text), {{EditState::ofSequence(before, follows), EditState::ofSequence(after, follows)}}};
    // Commands "as the file holds them" only while the playbook stands on the file's bytes (no import pending).
    if (!after.placed() || !pb.sequences.contains(after.key()) || importPending()) return edit;
    Playbook edited = pb;
    edited.sequences.at(after.key()) = after;
    if (const std::optional<Playbook> shared = withSharedValueEdits(edited, inFile))
        for (const auto& [key, seq] : shared->sequences) {
            const clsSequence* now = pb.sequences.find(key);
            if (key != after.key() && now && now->commands() != seq.commands())
                edit.changes.push_back({EditState::ofSequence(*now, true), EditState::ofSequence(seq, true)});
        }
    return edit;
}

bool Document::unsaved() const { return pb.openComplete && (workingCopyEdited() || importPending() || !sameContent(pb, inFile)); }

void Document::requireFileUnchanged() const { (void)readUnchangedImage(inFile); }

// Safe Save, Full Save and compaction work on the image as the file holds it:
// with an import not saved yet they would drop or break it.
void Document::requireImportSaved(const char* save) const {
    if (importPending())
        throw SaveError(std::string(save) + " cannot write an imported play or slot; File > Save writes it first; nothing was written",
                        Refusal::Other);
}

Playbook Document::laidOut() const {
    if (sameContent(pb, inFile) && !importPending()) return pb;
    return readBytesAs(pb, planSave(pb, pb.openedBytes).bytes);
}

Playbook Document::afterImport(const std::vector<uint8_t>& bytes) const { return readBytesAs(pb, bytes); }

void Document::bringIn(Playbook after, const std::string& text) {
    perform({text, {{EditState::ofImage(pb), EditState::ofImage(std::move(after))}}});
}

PlayImportSummary Document::importPlay(const CarriedPlay& carried, int play, const std::string& text) {
    const PlayImportPlan plan = planPlayImport(laidOut(), carried, play);
    bringIn(afterImport(plan.bytes), text);
    return plan.summary;
}

BookImportSummary Document::importSlot(const CarriedBook& carried, int slot, const std::string& text) {
    const BookImportPlan plan = planSlotImport(laidOut(), carried, slot);
    bringIn(afterImport(plan.bytes), text);
    return plan.summary;
}

BookImportSummary Document::importPlaybook(const CarriedBook& carried, const std::string& text) {
    const BookImportPlan plan = planPlaybookImport(laidOut(), carried);
    bringIn(afterImport(plan.bytes), text);
    return plan.summary;
}

SaveSummary Document::save() {
    const Playbook shown = pb;
    const SaveSummary summary = saveChanges(pb, nullptr, &inFile.openedBytes.vector());
    if (!summary.nothingToWrite) saved(sameContent(shown, pb));
    return summary;
}

SaveSummary Document::saveAs(const std::string& path, const std::string& dataDir) {
    const Playbook shown = pb;
    const SaveSummary summary = saveChangesAs(pb, path, dataDir);
    saved(sameContent(shown, pb));  // as Save: the steps stay while they still name what the new file holds
    return summary;
}

bool Document::safeSave() {
    requireImportSaved("Safe Save");
    const bool written = zpe::safeSave(pb);
    inFile.playSlots = pb.playSlots;
    inFile.openedBytes = pb.openedBytes;  // what the file now holds
    return written;
}

void Document::fullSave() {
    requireImportSaved("Full Save");
    zpe::fullSave(pb);
    saved(false);
}

CompactSaveSummary Document::compactAndSave(const std::string& dataDir) {
    requireImportSaved("Compacting");
    CompactSaveSummary summary = zpe::compactAndSave(pb, dataDir);
    saved(false);
    return summary;
}

ImageBytes Document::imageAsShown(bool withWorkingCopy) const {
    if (!(withWorkingCopy && workingCopyEdited())) return sameContent(pb, inFile) ? pb.openedBytes : planSave(pb, pb.openedBytes).bytes;
    Playbook shown = pb;
    shown.sequences.at(workingCopy.key()) = workingCopy;
    return planSave(shown, pb.openedBytes).bytes;
}

void Document::record(Edit edit) {
    undone_.clear();
    if (edit.mergeKey >= 0 && !done_.empty() && done_.back().mergeKey == edit.mergeKey && done_.back().changes.size() == 1 &&
        edit.changes.size() == 1) {
        done_.back().changes.front().second = std::move(edit.changes.front().second);
    } else {
        done_.push_back(std::move(edit));
    }
    if (onHistory) onHistory();
}

void Document::perform(Edit edit) {
    for (const auto& change : edit.changes) put(change.second);
    record(std::move(edit));
}

void Document::put(const EditState& state) {
    switch (state.kind) {
    case EditState::Kind::Slots:
        for (const auto& [s, fields] : state.slotStates)
            if (s >= 0 && s < kSlotCount) pb.playSlots[static_cast<size_t>(s)] = fields;
        break;
    case EditState::Kind::Entries: restoreEntries(pb, state.entries); break;
    case EditState::Kind::Sequence: {
        const SeqKey key = state.sequence.key();
        if (!pb.sequences.contains(key)) break;
        const bool follows = state.workingCopyFollows && workingCopy.key() == key && workingCopy.commandCount() > 0 && !workingCopyEdited();
        pb.sequences.at(key).clone(state.sequence);
        if (follows) workingCopy.clone(state.sequence);
        break;
    }
    case EditState::Kind::WorkingCopy:
        // Only onto a sequence the playbook holds (a step may have taken a new one away).
        if (!pb.sequences.contains(state.sequence.key())) return;
        workingCopy.clone(state.sequence);
        break;
    case EditState::Kind::Image:
        pb = *state.image;
        workingCopy = clsSequence();  // its sequence may stand elsewhere now, or be gone
        break;
    }
    if (onPut) onPut(state);
}

void Document::undo() {
    if (done_.empty()) return;
    Edit edit = std::move(done_.back());
    done_.pop_back();
    for (auto it = edit.changes.rbegin(); it != edit.changes.rend(); ++it) put(it->first);
    undone_.push_back(std::move(edit));
    if (onHistory) onHistory();
}

void Document::redo() {
    if (undone_.empty()) return;
    Edit edit = std::move(undone_.back());
    undone_.pop_back();
    for (const auto& change : edit.changes) put(change.second);
    edit.mergeKey = -1;  // a redone step takes no more typing into it
    done_.push_back(std::move(edit));
    if (onHistory) onHistory();
}

void Document::clearHistory() {
    done_.clear();
    undone_.clear();
    if (onHistory) onHistory();
}

void Document::saved(bool keepHistory) {
    inFile = pb;
    if (!keepHistory) {
        clearHistory();
        return;
    }
    for (Edit& e : done_) e.mergeKey = -1;  // typing after a save is a step of its own
    if (onHistory) onHistory();
}

}  // namespace zpe
