#pragma once
// The open image as the window edits it: the playbook as shown, what the file
// holds, the sequence editor's working copy, and the history of edits. One
// definition of what is unsaved lives here; undo and redo put states back
// here and tell whoever shows the document which part they changed. No
// toolkit: the window is a view of it.
#include "analysis/entries.h"
#include "playbook/playbook.h"
#include "save/compact.h"
#include "save/save_changes.h"
#include "save/slot_import.h"
#include "save/play_import.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace zpe {

using SlotStates = std::vector<std::pair<int, clsPlaySlot>>;  // slot index and its fields

// One side of an edit: the part of the document it changed, as it stood.
struct EditState {
    enum class Kind {
        Slots,        // the slots listed
        Entries,      // every table entry and the sequences made in the editor
        Sequence,     // one stored sequence, under its key (a move on the diagram, "Apply")
        WorkingCopy,  // the sequence editor's working copy (Add, Remove, the arrows, typed values)
        Image,        // the whole playbook and the image it stands on (a play or slot brought in)
    };
    Kind kind = Kind::Slots;
    SlotStates slotStates;
    EntriesState entries;
    clsSequence sequence;
    // Sequence: a working copy showing the stored sequence unedited follows it
    // (a point moved on the diagram); without it the working copy keeps its
    // edits (undoing "Apply" leaves them in the editor, not applied).
    bool workingCopyFollows = false;
    std::shared_ptr<const Playbook> image;  // Image: the playbook as it stood, its bytes included

    static EditState ofSlots(SlotStates s) { return {Kind::Slots, std::move(s), {}, {}, false, nullptr}; }
    static EditState ofEntries(EntriesState e) { return {Kind::Entries, {}, std::move(e), {}, false, nullptr}; }
    static EditState ofSequence(clsSequence s, bool follows = false) { return {Kind::Sequence, {}, {}, std::move(s), follows, nullptr}; }
    static EditState ofWorkingCopy(clsSequence s) { return {Kind::WorkingCopy, {}, {}, std::move(s), false, nullptr}; }
    static EditState ofImage(Playbook p) { return {Kind::Image, {}, {}, {}, false, std::make_shared<const Playbook>(std::move(p))}; }
};

// One step of the history: what it is called ("Swap slot 2 (R1) and slot 5
// (R1)") and each part it changed, before and after.
struct Edit {
    std::string text;
    std::vector<std::pair<EditState, EditState>> changes;
    // Consecutive edits with the same key (>= 0) are one step (typing into one box).
    int64_t mergeKey = -1;
};

class Document {
public:
    Playbook pb;            // the playbook as the editor shows it
    Playbook inFile;        // what the image file holds, as a model
    clsSequence workingCopy;  // the sequence editor's copy of one sequence (no commands: none)

    // The working copy differs from the sequence it was taken from.
    [[nodiscard]] bool workingCopyEdited() const;
    // Anything not in the file: slots, entries, sequences, or the working copy's edits.
    [[nodiscard]] bool unsaved() const;

    // Records an edit already made (its after states hold now) as the next
    // step; steps undone before it are gone.
    void record(Edit edit);
    // Makes the edit (puts every after state, telling onPut) and records it.
    void perform(Edit edit);
    // The edit of the stored sequence `before` (as it stands under its key)
    // into `after`, and of every other sequence showing a command whose value
    // it changes as the file holds it: one command of the image, changed for
    // every sequence showing it, as Save writes it (see withSharedValueEdits).
    // `follows` as for EditState::ofSequence; the other sequences' states always follow.
    [[nodiscard]] Edit sequenceEdit(std::string text, const clsSequence& before, const clsSequence& after, bool follows) const;

    [[nodiscard]] bool canUndo() const { return !done_.empty(); }
    [[nodiscard]] bool canRedo() const { return !undone_.empty(); }
    [[nodiscard]] std::string undoText() const { return done_.empty() ? std::string() : done_.back().text; }
    [[nodiscard]] std::string redoText() const { return undone_.empty() ? std::string() : undone_.back().text; }
    // Puts the states before the last step back (its parts in reverse order), or after the next one.
    void undo();
    void redo();
    void clearHistory();
    [[nodiscard]] size_t steps() const { return done_.size(); }

    // An import not saved yet: the playbook stands on bytes the file does not hold.
    [[nodiscard]] bool importPending() const { return pb.openedBytes != inFile.openedBytes; }
    // Throws SaveError (ChangedOnDisk) when the file no longer holds what the document read or last wrote.
    void requireFileUnchanged() const;

    // Brings a carried play into play `play`, a carried slot into slot
    // `slot`, or a whole carried playbook into every slot: one step of the
    // history, the image modified until Save writes it. The import is
    // planned on the image as the document shows it (unsaved edits laid out
    // as Save would lay them; the working copy is the caller's to commit
    // first). Throws SaveError as the import's plan does; nothing changes then.
    PlayImportSummary importPlay(const CarriedPlay& carried, int play, const std::string& text);
    BookImportSummary importSlot(const CarriedBook& carried, int slot, const std::string& text);
    BookImportSummary importPlaybook(const CarriedBook& carried, const std::string& text);
    // What the document would be after such an import, without making it (to show it first).
    [[nodiscard]] Playbook afterImport(const std::vector<uint8_t>& bytes) const;
    // Makes `after` (afterImport of a plan's bytes) the document, as one step of the history.
    void bringIn(Playbook after, const std::string& text);
    // Refuses (SaveError) a write that works on the file as it is (`save` names it) while an import is not saved.
    void requireImportSaved(const char* save) const;
    // The playbook as Save would leave it (every unsaved edit laid out), the base an import is planned on.
    [[nodiscard]] Playbook laidOut() const;

    // The image's bytes as the document shows it: what the file held when it
    // was last opened or saved, with every edit since laid out as Save would;
    // with `withWorkingCopy`, the working copy's edits as if applied. Throws
    // SaveError when Save would refuse them.
    [[nodiscard]] ImageBytes imageAsShown(bool withWorkingCopy) const;
    // The saves, each writing the playbook as shown (the working copy is
    // committed by the caller first) and recording what the file now holds.
    // A refusal throws and leaves the document as it was.
    // Save: what changed, in place, grown sequences moved. The history stays
    // while every sequence and command is read where it was; a save that
    // moved or placed one lets it go (its steps name what the file no longer holds).
    SaveSummary save();
    // Save As: the edited image into `path`, which the document then is; the history stays as Save keeps it.
    SaveSummary saveAs(const std::string& path, const std::string& dataDir);
    // Safe Save: the 64 slots alone (sequence edits stay unsaved); true when it wrote.
    bool safeSave();
    // Full Save: every sequence laid out anew; the history goes (every address moved).
    void fullSave();
    // Compact and Save: the area compacted and every edit saved into it; the history goes.
    CompactSaveSummary compactAndSave(const std::string& dataDir);

    // A save or an open made the file hold `pb`: the history stays (undo
    // marks the image modified again) unless `keepHistory` is false (a save
    // that moved sequences: steps naming their old keys could not be undone).
    void saved(bool keepHistory);

    // Told after a state was put back (undo, redo) and after the history changed.
    std::function<void(const EditState&)> onPut;
    std::function<void()> onHistory;

private:
    void put(const EditState& state);
    std::vector<Edit> done_, undone_;
};

}  // namespace zpe
