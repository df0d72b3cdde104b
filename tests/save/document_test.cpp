// The document: one definition of what is unsaved, and a history whose undo
// and redo put parts of it back and say which.
#include "analysis/entries.h"
#include "save/document.h"
#include "save/play_import.h"
#include "save/save_changes.h"
#include "support/playbook_fixture.h"

#include <gtest/gtest.h>

namespace zpe {
namespace {

using test::DataDir;
using test::ImageBuilder;

// A000 is shared by plays 0 and 1; A010 is play 0's RB.
ImageBuilder documentImage() {
    return ImageBuilder()
        .bytesAt(0xA000, {0xD7, 0x01, 0x02, 0xE4})
        .bytesAt(0xA010, {0xD7, 0x03, 0x04, 0xE4})
        .play(0, {0xA000, 0xA010})
        .play(1, {0xA000});
}

struct OpenDocument {
    DataDir data;
    test::Opened o = test::openBuilt(documentImage(), data);
    Document doc;
    std::vector<EditState::Kind> told;
    OpenDocument() {
        doc.pb = o.pb;
        doc.saved(false);
        doc.onPut = [this](const EditState& s) { told.push_back(s.kind); };
    }
};

// Slot 5 renamed "FIVE" as one step; the slot before and after.
std::pair<clsPlaySlot, clsPlaySlot> renameSlotFive(Document& doc) {
    const clsPlaySlot was = doc.pb.playSlots[5];
    clsPlaySlot now = was;
    now.name("FIVE");
    doc.perform({"Rename", {{EditState::ofSlots({{5, was}}), EditState::ofSlots({{5, now}})}}});
    return {was, now};
}

TEST(Document, UnsavedIsEverythingNotInTheFileAndTheWorkingCopysEdits) {
    OpenDocument t;
    Document& doc = t.doc;
    EXPECT_FALSE(doc.unsaved());
    doc.workingCopy = doc.pb.sequences.at(0xA000_seq);
    EXPECT_FALSE(doc.unsaved()) << "a working copy as stored is nothing unsaved";
    doc.workingCopy.data(0, 0, 9);
    EXPECT_TRUE(doc.workingCopyEdited());
    EXPECT_TRUE(doc.unsaved());
    doc.workingCopy.data(0, 0, 1);
    EXPECT_FALSE(doc.unsaved());
    doc.pb.playSlots[3].name("MINE");
    EXPECT_TRUE(doc.unsaved());
    doc.saved(true);
    EXPECT_FALSE(doc.unsaved());
}

// Undo and redo put each part back, in reverse for undo, and say which; typing
// into one box is one step; a new step drops what was undone; a save keeps the
// history, and undo after it marks the document unsaved again.
TEST(Document, HistoryPutsStatesBackAndOutlivesASave) {
    OpenDocument t;
    Document& doc = t.doc;
    const auto [was, now] = renameSlotFive(doc);
    EXPECT_EQ(doc.pb.playSlots[5].name(), "FIVE");
    EXPECT_EQ(doc.undoText(), "Rename");

    doc.workingCopy = doc.pb.sequences.at(0xA010_seq);
    for (int16_t v : {5, 6, 7}) {
        const clsSequence before = doc.workingCopy;
        doc.workingCopy.data(0, 0, v);
        doc.record({"Edit Value", {{EditState::ofWorkingCopy(before), EditState::ofWorkingCopy(doc.workingCopy)}}, 42});
    }
    EXPECT_EQ(doc.steps(), 2u) << "three values typed into one box are one step";
    doc.saved(true);
    EXPECT_TRUE(doc.unsaved()) << "the working copy's edits are not in the file";
    doc.undo();
    EXPECT_EQ(doc.workingCopy.data(0, 0), 3);
    EXPECT_FALSE(doc.unsaved());
    doc.undo();
    EXPECT_EQ(doc.pb.playSlots[5].name(), was.name());
    EXPECT_TRUE(doc.unsaved()) << "undone after the save: the file holds FIVE";
    EXPECT_EQ(t.told, (std::vector<EditState::Kind>{EditState::Kind::Slots, EditState::Kind::WorkingCopy, EditState::Kind::Slots}));
    doc.redo();
    EXPECT_EQ(doc.pb.playSlots[5].name(), "FIVE");
    EXPECT_FALSE(doc.unsaved());
    EXPECT_EQ(doc.redoText(), "Edit Value");
    doc.perform({"Rename", {{EditState::ofSlots({{5, now}}), EditState::ofSlots({{5, was}})}}});
    EXPECT_FALSE(doc.canRedo()) << "a new step drops the undone ones";
    doc.saved(false);
    EXPECT_FALSE(doc.canUndo());
}

// A stored sequence put back: a working copy showing it unedited follows it
// when the step says so (a moved point), keeps its edits otherwise (Apply);
// a working copy of a sequence no longer there is not put back.
TEST(Document, TheWorkingCopyFollowsOnlyWhereItShowedTheSequenceUnedited) {
    OpenDocument t;
    Document& doc = t.doc;
    const clsSequence stored = doc.pb.sequences.at(0xA000_seq);
    clsSequence moved = stored;
    moved.data(0, 1, 0x30);
    doc.workingCopy = stored;
    doc.perform({"Move Point", {{EditState::ofSequence(stored, true), EditState::ofSequence(moved, true)}}});
    EXPECT_EQ(doc.workingCopy.data(0, 1), 0x30);
    doc.undo();
    EXPECT_EQ(doc.workingCopy.data(0, 1), 2);

    doc.workingCopy.data(0, 1, 0x44);  // an edit applied, then undone: it stays pending
    doc.perform({"Apply Sequence Edit", {{EditState::ofSequence(stored), EditState::ofSequence(doc.workingCopy)}}});
    EXPECT_FALSE(doc.workingCopyEdited());
    doc.undo();
    EXPECT_EQ(doc.workingCopy.data(0, 1), 0x44);
    EXPECT_TRUE(doc.workingCopyEdited());

    const EntriesState before = entriesState(doc.pb);
    const SeqKey copy = addCopyOf(doc.pb, 0xA000_seq);
    setEntryTarget(doc.pb, {AreaEntry::Table::Play, 1, 0, 0xA000_seq}, copy);
    doc.record({"Copy", {{EditState::ofEntries(before), EditState::ofEntries(entriesState(doc.pb))}}});
    clsSequence ofCopy = doc.pb.sequences.at(copy);
    doc.workingCopy = ofCopy;
    doc.undo();
    EXPECT_FALSE(doc.pb.sequences.contains(copy));
    doc.workingCopy = stored;
    doc.record({"Type", {{EditState::ofWorkingCopy(ofCopy), EditState::ofWorkingCopy(stored)}}});
    doc.undo();  // onto the copy, which the entries step took away: nothing changes
    EXPECT_EQ(doc.workingCopy.address(), 0xA000);
}

// A loop read again as a sequence of its own (A003, after A000's closing
// jump back to it) shows the same command as A000: a point moved on either
// is one step that changes both, undone as one, and Save writes the one byte.
TEST(Document, AMovedPointChangesEverySequenceShowingItsCommand) {
    DataDir data;
    test::Opened o = test::openBuilt(ImageBuilder().bytesAt(0xA000, {0xD7, 1, 2, 0xD7, 3, 4, 0xFF, 0x03, 0xA0}).play(0, {0xA000}), data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    Document doc;
    doc.pb = o.pb;
    doc.saved(false);
    const clsSequence loop = doc.pb.sequences.at(0xA003_seq), outer = doc.pb.sequences.at(0xA000_seq);
    clsSequence moved = loop;
    moved.data(0, 1, 9);
    doc.workingCopy = outer;
    doc.perform(doc.sequenceEdit("Move Point", loop, moved, true));
    EXPECT_EQ(doc.pb.sequences.at(0xA003_seq).data(0, 1), 9);
    EXPECT_EQ(doc.pb.sequences.at(0xA000_seq).data(1, 1), 9) << "the sequence around the loop shows it";
    EXPECT_EQ(doc.workingCopy.data(1, 1), 9) << "a working copy showing it unedited follows";
    doc.undo();
    EXPECT_EQ(doc.pb.sequences.at(0xA000_seq).commands(), outer.commands());
    EXPECT_EQ(doc.pb.sequences.at(0xA003_seq).commands(), loop.commands());
    doc.redo();
    const std::vector<uint8_t> before = o.file.read();
    (void)doc.save();
    const std::vector<uint8_t> after = o.file.read();
    std::vector<size_t> changed;
    for (size_t i = 0; i < after.size(); ++i)
        if (after[i] != before[i]) changed.push_back(i);
    EXPECT_EQ(changed, std::vector<size_t>{static_cast<size_t>(offsetOfAddress(0xA005))});
    EXPECT_FALSE(doc.unsaved());
}

// The document's saves decide what the history keeps: a Save that wrote
// every sequence where it was keeps it (undo then marks the image modified);
// one that moved a grown sequence, Safe Save's slots-only write and Full
// Save each leave the document as the file holds it, and only Save keeps steps.
TEST(Document, SavesRecordWhatTheFileHoldsAndKeepHistoryOnlyWhereItStillHolds) {
    OpenDocument t;
    Document& doc = t.doc;
    const auto [was, now] = renameSlotFive(doc);
    EXPECT_TRUE(doc.safeSave());
    EXPECT_FALSE(doc.unsaved()) << "Safe Save wrote the slots";
    EXPECT_TRUE(doc.canUndo());

    clsSequence edited = doc.pb.sequences.at(0xA010_seq);
    const clsSequence stored = edited;
    edited.data(0, 1, 9);
    doc.perform({"Apply", {{EditState::ofSequence(stored), EditState::ofSequence(edited)}}});
    EXPECT_TRUE(doc.unsaved());
    EXPECT_FALSE(doc.save().nothingToWrite);
    EXPECT_FALSE(doc.unsaved());
    ASSERT_TRUE(doc.canUndo()) << "nothing moved: the steps still name what the file holds";
    doc.undo();
    EXPECT_TRUE(doc.unsaved());
    EXPECT_FALSE(doc.save().nothingToWrite);

    clsSequence grown = doc.pb.sequences.at(0xA010_seq);
    ASSERT_EQ(grown.insertCommand(-1, 0xD7), clsSequence::Insert::Done);
    doc.perform({"Grow", {{EditState::ofSequence(doc.pb.sequences.at(0xA010_seq)), EditState::ofSequence(grown)}}});
    const SaveSummary moved = doc.save();
    EXPECT_FALSE(moved.moved.empty());
    EXPECT_FALSE(doc.unsaved());
    EXPECT_FALSE(doc.canUndo()) << "a moved sequence: no step may name its old key";

    doc.pb.playSlots[6].name("SIX");
    EXPECT_TRUE(doc.unsaved());
    doc.fullSave();
    EXPECT_FALSE(doc.unsaved());
    EXPECT_EQ(test::readFileBytes(doc.pb.romPath), doc.imageAsShown(false)) << "what the document shows is what the file holds";
}

// A play brought in is one step of the history on the document, planned on
// the image as shown (an unsaved swap laid out first); the file is untouched
// until Save writes it, Safe Save refuses meanwhile, and undo after the
// Save marks the image modified again (a second Save takes the play out).
TEST(Document, AnImportedPlayIsOneStepTheFileTakesOnlyOnSave) {
    OpenDocument t;
    Document& doc = t.doc;
    const test::Opened source = test::openBuilt(ImageBuilder()
                                                    .bytesAt(0xA100, {0xD7, 0x11, 0x22, 0xD7, 0x33, 0x44, 0xE4})
                                                    .play(4, {0xA100}),
                                                t.data);
    const CarriedPlay carried = carryPlay(source.pb, 4);
    const std::vector<uint8_t> file = t.o.file.read();
    const clsPlaySlot five = doc.pb.playSlots[5], six = doc.pb.playSlots[6];
    doc.perform({"Swap", {{EditState::ofSlots({{5, five}, {6, six}}), EditState::ofSlots({{5, six}, {6, five}})}}});

    (void)doc.importPlay(carried, 9, "Import Play");
    EXPECT_EQ(t.o.file.read(), file) << "nothing written before Save";
    EXPECT_TRUE(doc.importPending());
    EXPECT_TRUE(doc.unsaved());
    const SeqKey entry = doc.pb.plays[9].seqAddress(0);
    ASSERT_TRUE(doc.pb.sequences.contains(entry));
    EXPECT_EQ(doc.pb.sequences.at(entry).commandCount(), 3);
    EXPECT_EQ(doc.pb.playSlots[5].name(), six.name()) << "the swap laid out first stays";
    EXPECT_THROW((void)doc.safeSave(), SaveError);

    doc.undo();
    EXPECT_EQ(doc.pb.plays[9].seqAddress(0), SeqKey::none());
    EXPECT_FALSE(doc.importPending());
    EXPECT_EQ(doc.pb.playSlots[5].name(), six.name()) << "the swap is a step of its own";
    doc.redo();
    EXPECT_EQ(doc.pb.plays[9].seqAddress(0), entry);

    EXPECT_FALSE(doc.save().nothingToWrite);
    EXPECT_FALSE(doc.unsaved());
    const Playbook reread = openRom(t.o.file.path(), t.data.path());
    EXPECT_EQ(reread.plays[9].seqAddress(0), entry);
    EXPECT_EQ(reread.playSlots[5].name(), six.name());

    ASSERT_TRUE(doc.canUndo());
    doc.undo();
    EXPECT_TRUE(doc.unsaved()) << "the file holds the play now";
    EXPECT_FALSE(doc.save().nothingToWrite);
    EXPECT_EQ(openRom(t.o.file.path(), t.data.path()).plays[9].seqAddress(0), SeqKey::none());
}

}  // namespace
}  // namespace zpe
