// Save: only what changed is written, grown sequences move into free runs,
// every other byte of the image stays as it was.
#include "model/rom_error.h"
#include "playbook/table_codec.h"
#include "save/save_changes.h"
#include "save/saves.h"
#include "support/playbook_fixture.h"
#include "support/sequence_bytes.h"

#include <functional>

#include <gtest/gtest.h>

namespace zpe {
namespace {

using test::DataDir;
using test::ImageBuilder;
using Bytes = std::vector<uint8_t>;

// A000 is named by pointer 0, play 0 and formation 4, and A010 jumps to it;
// A020 branches to it. A030 loops back inside itself; A0F0 jumps forward to
// A163. A050 holds a COM pass. The game runs on after each Human Control.
ImageBuilder saveImage() {
    return ImageBuilder()
        .bytesAt(0xA000, {0xD7, 0x01, 0x02, 0xE4, 0xDF, 0xFE, 0xFF})
        .bytesAt(0xA010, {0x30, 0xFF, 0x00, 0xA0})
        .bytesAt(0xA020, {0xC7, 0x00, 0xA0, 0xE4})
        .bytesAt(0xA030, {0xFC, 0xFF, 0xE0, 0xDD, 0xFE, 0xFC})
        .bytesAt(0xA050, {0x92, 0x11, 0x22, 0xE4})
        .bytesAt(0xA0F0, {0xD7, 0x01, 0x01, 0xFE, 0x70})
        .bytesAt(0xA163, {0x30, 0xE4})
        .pointer(0, 0xA000).pointer(1, 0xA010).pointer(2, 0xA020).pointer(3, 0xA030)
        .pointer(4, 0xA0F0).pointer(6, 0xA050)
        .play(0, {0xA000})
        .formation(4, {0xA000})
        .slotNameBytes(0, " LEADING BLANK ");  // Safe Save would trim it; Save leaves it
}

// Offsets at which two images differ.
std::vector<int32_t> differences(const Bytes& a, const Bytes& b) {
    std::vector<int32_t> out;
    for (size_t i = 0; i < a.size() && i < b.size(); ++i)
        if (a[i] != b[i]) out.push_back(static_cast<int32_t>(i));
    return out;
}

Bytes at(const Bytes& image, int32_t address, int32_t count) {
    const auto o = static_cast<size_t>(offsetOfAddress(address));
    return Bytes(image.begin() + static_cast<std::ptrdiff_t>(o), image.begin() + static_cast<std::ptrdiff_t>(o) + count);
}

void grow(Playbook& pb, int32_t address) {
    ASSERT_EQ(pb.sequences.at(SeqKey::at(address)).insertCommand(-1, 0xD7), clsSequence::Insert::Done);
}

TEST(Save, InPlaceEditWritesExactlyItsBytesAndTheChangedSlot) {
    DataDir data;
    auto o = test::openBuilt(saveImage(), data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    const Bytes before = o.file.read();
    o.pb.sequences.at(0xA000_seq).data(0, 0, 0x05);
    o.pb.playSlots[3].oPlay(2, 0x44);
    const SaveSummary s = saveChanges(o.pb);
    const Bytes after = o.file.read();
    EXPECT_EQ(differences(before, after),
              (std::vector<int32_t>{offsetOfAddress(0xA001), kOffSlotTableOffset + 3 * kOffSlotRecordSize + 16 + 2}));
    EXPECT_EQ(s.text(), "Saved: 1 slot, 1 sequence in place, 0 moved, 0 references left on old copies, " +
                            std::to_string(s.freeBytesLeft) + " free bytes left.");
    EXPECT_EQ(o.pb.sequences.at(0xA000_seq).data(0, 0), 5) << "the model is the image opened again";
    // Nothing changed since: a second save writes the same file.
    saveChanges(o.pb);
    EXPECT_EQ(o.file.read(), after);
}

TEST(Save, GrownSequencesMoveToTheFirstFreeRunAndReferencesFollow) {
    DataDir data;
    auto o = test::openBuilt(saveImage(), data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    const Bytes before = o.file.read();
    grow(o.pb, 0xA000);  // 7 bytes and a relative jump back to the game's logic after it: 9, at A007-A00F
    grow(o.pb, 0xA030);  // 9 bytes: A014-A01C; its loop back stays relative
    grow(o.pb, 0xA0F0);  // 8 bytes, but far from A163: an absolute jump, 9 bytes at A027-A02F
    const SaveSummary s = saveChanges(o.pb);
    const Bytes after = o.file.read();

    EXPECT_EQ(s.moved, (std::vector<std::pair<int32_t, int32_t>>{{0xA000, 0xA007}, {0xA030, 0xA014}, {0xA0F0, 0xA027}}));
    EXPECT_EQ(at(after, 0xA007, 9), (Bytes{0xD7, 0, 0, 0xD7, 0x01, 0x02, 0xE4, 0xFE, 0xF6}));
    EXPECT_EQ(at(after, 0xA014, 9), (Bytes{0xD7, 0, 0, 0xFC, 0xFF, 0xE0, 0xDD, 0xFE, 0xFC}));
    EXPECT_EQ(at(after, 0xA027, 9), (Bytes{0xD7, 0, 0, 0xD7, 0x01, 0x01, 0xFF, 0x63, 0xA1}));
    EXPECT_EQ(o.pb.seqPointers[0], 0xA007_seq);
    EXPECT_EQ(o.pb.plays[0].seqAddress(0), 0xA007_seq);
    EXPECT_EQ(o.pb.formations[4].posAddress(0), 0xA007_seq);
    EXPECT_EQ(at(after, 0xA010, 4), (Bytes{0x30, 0xFF, 0x07, 0xA0})) << "the closing jump follows";
    EXPECT_EQ(at(after, 0xA020, 4), at(before, 0xA020, 4)) << "a branch keeps its target: the old copy";
    EXPECT_EQ(s.leftOnOldCopies, 1);
    // The old copies and the game's bytes after them are as they were.
    EXPECT_EQ(at(after, 0xA000, 7), at(before, 0xA000, 7));
    EXPECT_EQ(at(after, 0xA030, 6), at(before, 0xA030, 6));
    EXPECT_EQ(at(after, 0xA0F0, 5), at(before, 0xA0F0, 5));
    // Outside the area only the table entries changed.
    for (int32_t off : differences(before, after)) {
        const bool inArea = off >= kSequenceAreaOffset && off < kSequenceAreaOffset + kSequenceAreaSize;
        const bool entry = off == pointerEntryOffset(0) || off == pointerEntryOffset(3) || off == pointerEntryOffset(4) ||
                           off == playEntryOffset(0, 0) || off == formationEntryOffset(4, 0);
        EXPECT_TRUE(inArea || entry) << std::hex << off;
    }
    EXPECT_EQ(o.pb.sequences.at(0xA007_seq).commandCount(), 3) << "reopened: the added command is there";
    saveChanges(o.pb);
    EXPECT_EQ(o.file.read(), after) << "a second save writes the same file";
}

// The game's branches that still lead into a moved sequence's old bytes are
// counted, into its middle as into its start: A000 branches to A013, the
// second command of A010, which grows and moves.
TEST(Save, ABranchIntoTheMiddleOfAMovedSequenceIsALeftReference) {
    for (const int32_t branchTo : {0xA010, 0xA013}) {
        SCOPED_TRACE(branchTo);
        DataDir data;
        auto o = test::openBuilt(ImageBuilder()
                                     .bytesAt(0xA000, {0xC7, static_cast<uint8_t>(branchTo & 0xFF), 0xA0, 0xC4, 0x00})
                                     .bytesAt(0xA010, {0xD7, 0x01, 0x02, 0xD7, 0x03, 0x04, 0xC4, 0x00})
                                     .pointer(0, 0xA000).pointer(1, 0xA010),
                                 data);
        ASSERT_TRUE(o.result.ok) << o.result.error;
        grow(o.pb, 0xA010);
        const SaveSummary s = saveChanges(o.pb);
        ASSERT_EQ(s.moved.size(), 1u);
        EXPECT_EQ(s.leftOnOldCopies, 1) << s.text();
        EXPECT_EQ(at(o.file.read(), 0xA000, 3), (Bytes{0xC7, static_cast<uint8_t>(branchTo & 0xFF), 0xA0})) << "the branch keeps its target";
    }
}

// zpe import keeps the image as it opened it beside the copy it edits and
// hands that reading to Save instead of reading the bytes once more: the
// same bytes are planned and written, and a reading of other bytes is not taken.
TEST(Save, TheOpensReadingHandedOverPlansTheSameBytes) {
    DataDir data;
    auto o = test::openBuilt(saveImage(), data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    const Playbook opened = o.pb;
    grow(o.pb, 0xA000);
    o.pb.sequences.at(0xA0F0_seq).data(0, 0, 0x05);
    const SavePlan read = planSave(o.pb, o.pb.openedBytes);
    EXPECT_EQ(planSave(o.pb, o.pb.openedBytes, &opened).bytes, read.bytes);
    const SaveSummary s = saveChanges(o.pb, nullptr, nullptr, &opened);
    EXPECT_EQ(s.text(), read.summary.text());
    EXPECT_EQ(o.file.read(), read.bytes);

    // `opened` is now the image before that save: planned over the bytes written, it is passed over.
    o.pb.sequences.at(0xA0F0_seq).data(0, 0, 0x06);
    const SavePlan again = planSave(o.pb, o.pb.openedBytes);
    EXPECT_EQ(planSave(o.pb, o.pb.openedBytes, &opened).bytes, again.bytes);
    EXPECT_EQ(again.bytes[static_cast<size_t>(offsetOfAddress(0xA0F1))], 0x06);
}

TEST(Save, RefusalsWriteNothing) {
    DataDir data;
    struct Case {
        const char* what;
        std::function<void(Playbook&)> edit;
        const char* says;
    };
    const std::vector<Case> cases{
        {"no free run", [](Playbook& pb) {
             for (int i = 0; i < 2800; ++i) ASSERT_EQ(pb.sequences.at(0xA000_seq).insertCommand(-1, 0xD7), clsSequence::Insert::Done);
         }, "largest free run"},
        {"a COM pass would move", [](Playbook& pb) { grow(pb, 0xA050); }, "COM pass"},
        {"a jump into the middle of a command", [](Playbook& pb) { pb.sequences.at(0xA010_seq).data(1, 0, 0x01); },
         "where the game runs no command"},
        {"a jump out of the area where nothing leads", [](Playbook& pb) { pb.sequences.at(0xA010_seq).data(1, 1, 0x10); },
         "where nothing in the image leads"},
        {"an end the game goes on after, where it stopped", [](Playbook& pb) {
             pb.sequences.at(0xA010_seq).setCommands({{0x30, {0}}, {0xE4, {}}});
         }, "did not go on after it before"},
    };
    for (const Case& c : cases) {
        // A0F1 (01 01 FE 70) starts inside A0F0's bytes.
        auto o = test::openBuilt(saveImage().pointer(7, 0xA0F1), data);
        ASSERT_TRUE(o.result.ok) << o.result.error;
        const Bytes before = o.file.read();
        c.edit(o.pb);
        try {
            saveChanges(o.pb);
            ADD_FAILURE() << c.what << ": saved";
        } catch (const SaveError& e) {
            EXPECT_NE(std::string(e.what()).find(c.says), std::string::npos) << c.what << ": " << e.what();
        }
        EXPECT_EQ(o.file.read(), before) << c.what;
    }
    Playbook never;
    EXPECT_THROW(saveChanges(never), SaveError);
}

TEST(AddCommand, InsertsWithZeroDataAndRefusesEndsAndLockUps) {
    auto seq = test::decodeBytes({0xD7, 1, 2, 0xE4});
    EXPECT_EQ(seq.insertCommand(0, 0xF3), clsSequence::Insert::Done);
    EXPECT_EQ(seq.insertCommand(-1, 0x50), clsSequence::Insert::Done);
    EXPECT_EQ(seq.encode(), (Bytes{0x50, 0xD7, 1, 2, 0xF3, 0, 0xE4}));
    EXPECT_EQ(seq.byteSize(), 7);
    for (int16_t end : {0xE4, 0xFE, 0xFF, 0xC4, 0xD3, 0xEA})
        EXPECT_EQ(seq.insertCommand(0, end), clsSequence::Insert::EndsSequence) << std::hex << end;
    for (int16_t hang : {0xC2, 0xDE, 0xF1, 0xF9}) EXPECT_EQ(seq.insertCommand(0, hang), clsSequence::Insert::LockUp);
    EXPECT_EQ(seq.insertCommand(0, 0x35), clsSequence::Insert::NotACommand);
    EXPECT_EQ(seq.insertCommand(9, 0x30), clsSequence::Insert::NotACommand);
    EXPECT_EQ(seq.byteSize(), 7);
}

}  // namespace
}  // namespace zpe
