// Compact: the area packed as the game reads it, one free run, nothing the
// game runs lost or changed, refused where a layout cannot keep it.
#include "analysis/area_map.h"
#include "model/hex.h"
#include "playbook/table_codec.h"
#include "save/compact.h"
#include "save/save_changes.h"
#include "save/verify_write.h"
#include "save/saves.h"
#include "support/game_trace.h"
#include "support/playbook_fixture.h"

#include <gtest/gtest.h>

namespace zpe {
namespace {

using test::DataDir;
using test::ImageBuilder;
using Bytes = std::vector<uint8_t>;
using test::gameCodes;

// Sequences with gaps between them: a relative jump over a gap (A003 -> A023),
// a branch into another sequence's middle command (A023 -> A043), a loop back
// (A045 -> A040), an absolute jump (A083 -> A040), Human Control with the computer's logic after it (A026,
// A073), a COM pass whose receiver script is A070; entries at a sequence's
// middle (pointer 3) and a sequence shared by many entries (A040).
ImageBuilder gappedImage() {
    ImageBuilder b;
    b.bytesAt(0xA000, {0xD7, 0x01, 0x01, 0xFE, 0x20})
        .bytesAt(0xA023, {0xC7, 0x43, 0xA0, 0x30, 0xE4, 0xDF, 0xFE, 0xFF})
        .bytesAt(0xA040, {0xD7, 0x02, 0x02, 0xF3, 0x05, 0xFE, 0xFB})
        .bytesAt(0xA060, {0x92, 0x41, 0xF5, 0x13, 0x70, 0xA0, 0xE4, 0xDF, 0xFE, 0xFF})
        .bytesAt(0xA070, {0xD7, 0x03, 0x03, 0xE4, 0xF3, 0x00, 0xFE, 0xFE})
        .bytesAt(0xA080, {0xD7, 0x05, 0x05, 0xFF, 0x40, 0xA0})
        .pointer(0, 0xA000).pointer(1, 0xA023).pointer(2, 0xA040).pointer(3, 0xA043).pointer(10, 0xA080)
        .play(0, {0xA000, 0xA040, 0xA060})
        .formation(4, {0xA070});
    for (int i = 4; i < 10; ++i) b.pointer(i, 0xA040);
    return b;
}


TEST(Compact, PacksEverythingTheGameRunsIntoOneRunAndAgainChangesNothing) {
    DataDir data;
    auto o = test::openBuilt(gappedImage(), data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    const Playbook before = o.pb;
    const CompactSummary s = compactImage(o.pb, data.path());
    const Bytes once = o.file.read();
    EXPECT_EQ(s.keptBytes, 5 + 8 + 7 + 10 + 8 + 6 + 3) << "and the FF FF FF the unused entries lead to";
    EXPECT_EQ(s.freeStart, 0xA000 + s.keptBytes);
    EXPECT_EQ(s.runsBefore, 6);
    EXPECT_EQ(buildAreaMap(o.pb).freeRuns().size(), 1u);
    EXPECT_NE(s.text().find(" free in one run from A02F (before: 6 runs, largest 8,055 bytes)"), std::string::npos) << s.text();

    // The relative jump stays relative, shorter by the gap; every entry follows.
    const auto area = areaBytes(o.pb.openedBytes);
    EXPECT_EQ(Bytes(area.begin() + 3, area.begin() + 5), (Bytes{0xFE, 0x02}));
    EXPECT_EQ(o.pb.seqPointers[3].address(), o.pb.seqPointers[2].address() + 3) << "the middle entry moved with its sequence";
    for (int p = 4; p < 10; ++p) EXPECT_EQ(o.pb.seqPointers[static_cast<size_t>(p)], o.pb.seqPointers[2]);
    for (int p = 0; p < 4; ++p)
        EXPECT_EQ(gameCodes(o.pb, o.pb.seqPointers[static_cast<size_t>(p)]), gameCodes(before, before.seqPointers[static_cast<size_t>(p)]))
            << "pointer " << p;
    EXPECT_EQ(gameCodes(o.pb, o.pb.formations[4].posAddress(0)), gameCodes(before, 0xA070));
    EXPECT_EQ(o.pb.sequences.at(o.pb.seqPointers[10]).nextSequence(), o.pb.seqPointers[2].address()) << "the absolute jump follows";
    EXPECT_EQ(o.pb.sequences.size(), before.sequences.size());
    // Outside the area only the entries changed.
    const Bytes original = before.openedBytes;
    for (size_t i = 0; i < once.size(); ++i) {
        const bool inArea = i >= static_cast<size_t>(kSequenceAreaOffset) && i < static_cast<size_t>(kSequenceAreaOffset + kSequenceAreaSize);
        const bool tables = i >= static_cast<size_t>(kFormationTableOffset) && i < static_cast<size_t>(kPointerTableOffset + 2 * kPointerCount);
        if (!inArea && !tables) {
            ASSERT_EQ(once[i], original[i]) << std::hex << i;
        }
    }
    (void)compactImage(o.pb, data.path());
    EXPECT_EQ(o.file.read(), once) << "a second compaction changes nothing";
}

TEST(Compact, RefusesWhatALayoutCannotKeep) {
    DataDir data;
    const int32_t entry = addressOfOffset(pointerEntryOffset(2));
    Bytes filler;  // 42 bytes the editor reads from A003 on: A03F is the 53rd kept byte
    for (int i = 0; i < 12; ++i) filler.insert(filler.end(), {0xD7, 0x01, 0x01});
    filler.insert(filler.end(), {0xF3, 0x01, 0xF3, 0x01, 0xC4, 0x00});
    struct Case {
        const char* what;
        ImageBuilder image;
        std::string says;
    };
    const std::vector<Case> cases{
        {"a path off the end", ImageBuilder().bytesAt(0xBFFC, {0xD7, 0x01, 0x01, 0xE4}).pointer(0, 0xBFFC),
         "runs off the end of the sequence area from BFFF"},
        // A branch into the address bytes of another branch, which move.
        {"shared address bytes", ImageBuilder().bytesAt(0xA005, {0xF3, 0x01, 0xE4}).bytesAt(0xA010, {0xC7, 0x05, 0xA0, 0xE4})
                                     .bytesAt(0xA020, {0xCA, 0x11, 0xA0, 0xE4}).pointer(0, 0xA010).pointer(1, 0xA020),
         "the commands at A010 and A011 share the bytes"},
        // A relative jump out of the area (BFF3 -> C072): its target stays, the jump moves down and loses it.
        {"a relative jump out of the area", ImageBuilder().bytesAt(0xBFF0, {0xD7, 0x01, 0x01, 0xFE, 0x7F}).pointer(0, 0xBFF0),
         "the relative jump at BFF3 leads out of the area to C072, which stays where it is"},
        // The branch at A010 leads to A0F3, which moves; the editor reads its
        // address bytes as values of A00B's D7 at A00F (behind a lock-up the game stops at).
        {"an address the editor reads as values",
         ImageBuilder().bytesAt(0xA00B, {0xD7, 0x01, 0x02, 0xDE, 0xD7, 0xC7, 0xF3, 0xA0, 0xC4, 0x00})
             .bytesAt(0xA0F3, {0xD7, 0x03, 0x04, 0xC4, 0x00}).pointer(0, 0xA00B).pointer(1, 0xA010),
         "the commands at A010 and A00F share the bytes"},
        // BFF8 ends in a long snap on the area's last byte (the game hangs at DE
        // before it; the unused entries' BFFD now holds FE 00, a jump to itself).
        {"a long snap at the area's end",
         ImageBuilder().bytesAt(0xBFF8, {0xD7, 0x01, 0x02, 0xDE, 0xD7, 0xFE, 0x00, 0xD3}).bytesAt(0xC000, {0x00}).pointer(0, 0xBFF8),
         "sequence BFF8 ends in a Long Snap on the area's last byte"},
        // A branch to the game's own code at 8100, outside the area, which jumps back to A040: A040 would move.
        {"the game coming back from outside the area",
         ImageBuilder().bytesAt(0xA000, {0xC7, 0x00, 0x81, 0xC4, 0x00}).bytesAt(0x8100, {0xD7, 0x03, 0x04, 0xFF, 0x40, 0xA0})
             .bytesAt(0xA040, {0xD7, 0x05, 0x06, 0xC4, 0x00}).pointer(0, 0xA000),
         "the game comes back into the sequence area at A040 from its own code outside it (the command at 8103)"},
        // A000 branches to the bytes of pointer 2's entry, outside the area: the
        // game runs them as commands. A0F3, which pointer 2 names, moves.
        {"table bytes the game runs",
         ImageBuilder().bytesAt(0xA000, {0xC7, static_cast<uint8_t>(entry & 0xFF), static_cast<uint8_t>(entry >> 8), 0xC4, 0x00})
             .bytesAt(0xA0F3, {0xD7, 0x03, 0x04, 0xC4, 0x00}).pointer(0, 0xA000).pointer(2, 0xA0F3),
         "the game runs the bytes at " + hex4(entry) + " as a command"},
        // A000 jumps to A03F; the editor also reads a sequence at A001 (A02D's
        // closing jump, behind a lock-up, leads there), whose first command is
        // the jump's low byte: Block with value F. Packed, A03F becomes A034 and
        // the editor would read Block with value 4.
        {"a value the editor reads in a code byte",
         ImageBuilder().bytesAt(0xA000, {0xFF, 0x3F, 0xA0}).bytesAt(0xA003, filler)
             .bytesAt(0xA02D, {0xD7, 0x01, 0x02, 0xDE, 0xFF, 0x01, 0xA0}).bytesAt(0xA03F, {0xD7, 0x03, 0x04, 0xC4, 0x00})
             .pointer(0, 0xA000).pointer(1, 0xA02D),
         "holds at A001 is a command for the editor"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        auto o = test::openBuilt(c.image, data);
        ASSERT_TRUE(o.result.ok) << o.result.error;
        const Bytes before = o.file.read();
        try {
            (void)compactImage(o.pb, data.path());
            ADD_FAILURE() << "compacted";
        } catch (const VerifyError& e) {
            ADD_FAILURE() << "the check fired: " << e.what();
        } catch (const SaveError& e) {
            EXPECT_NE(std::string(e.what()).find(c.says), std::string::npos) << e.what();
        }
        EXPECT_EQ(o.file.read(), before);
    }
}

// A000 ends in a long snap behind a lock-up (the game never gets there); the
// editor reads the byte after it, 00, to know it ends. Packed up against the
// absolute jump of A010 it would read on: that byte is kept.
TEST(Compact, KeepsTheByteAfterALongSnapTheEditorReads) {
    DataDir data;
    auto o = test::openBuilt(ImageBuilder()
                                 .bytesAt(0xA000, {0xD7, 0x01, 0x02, 0xDE, 0xD3, 0x00})
                                 .bytesAt(0xA010, {0xFF, 0x20, 0xA0})
                                 .bytesAt(0xA020, {0xD7, 0x03, 0x04, 0xC4, 0x00})
                                 .pointer(0, 0xA000).pointer(1, 0xA010),
                             data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    ASSERT_EQ(o.pb.sequences.at(0xA000_seq).commandCount(), 3);
    const std::vector<uint8_t> runs = gameCodes(o.pb, 0xA010);
    (void)compactImage(o.pb, data.path());
    const clsSequence& snap = o.pb.sequences.at(o.pb.seqPointers[0]);
    EXPECT_EQ(snap.commandCount(), 3) << "still ends at the long snap";
    EXPECT_EQ(o.pb.seqPointers[1].address(), 0xA006) << "after the long snap and the byte after it";
    EXPECT_EQ(gameCodes(o.pb, o.pb.seqPointers[1]), runs);
}

// A000's COM pass hands its receiver A020; the editor reads the address's low
// byte as Celebrate's value, its high byte lies past the sequence. Carried to
// the compacted image with an edit elsewhere in the sequence, the value
// follows the address, so Compact and Save hands the receiver where A020 went.
TEST(Compact, CarriesAComPassAddressThatEndsPastItsSequence) {
    DataDir data;
    auto o = test::openBuilt(ImageBuilder()
                                 .bytesAt(0xA000, {0xD7, 0x01, 0x02, 0x90, 0xC4, 0x20, 0xA0})
                                 .bytesAt(0xA020, {0xD7, 0x03, 0x04, 0xD7, 0x05, 0x06, 0xC4, 0x00})
                                 .pointer(0, 0xA000),
                             data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    ASSERT_EQ(o.pb.sequences.at(0xA000_seq).commandCount(), 3);
    o.pb.sequences.at(0xA000_seq).data(0, 0, 0x09);
    const CompactPlan plan = planCompact(o.pb);
    const Playbook carried = carryOver(o.pb, plan);
    const int32_t receiver = plan.moved(0xA020);
    EXPECT_EQ(carried.sequences.at(0xA000_seq).data(2, 0), receiver & 0xFF);
    const SavePlan saved = planSave(carried, plan.bytes);
    GameCommand pass;
    ASSERT_TRUE(readGameCommand(areaBytes(saved.bytes), 0xA003, pass));
    EXPECT_EQ(pass.target, receiver);
}

// An edit not yet saved is carried to the compacted image and then saved there.
TEST(Compact, CarriesUnsavedEditsOverForSave) {
    DataDir data;
    auto o = test::openBuilt(gappedImage(), data);
    ASSERT_TRUE(o.result.ok);
    ASSERT_EQ(o.pb.sequences.at(0xA040_seq).insertCommand(0, 0xF4), clsSequence::Insert::Done);
    const CompactPlan plan = planCompact(o.pb);
    Playbook carried = carryOver(o.pb, plan);
    const clsSequence& seq = carried.sequences.at(plan.moved(0xA040_seq));
    EXPECT_EQ(seq.commandName(seq.commandCount() - 1, defaultCmdNames()), "Loop Back 7 bytes");
    EXPECT_EQ(seq.commandAddress(0), CmdId::readAt(plan.moved(0xA040)));
    // A060's COM pass hands its receiver A070, in bytes the editor reads as a
    // value of the command after it: carried, that value is where A070 now
    // stands, as in the compacted image, and a save there writes nothing of it.
    const Playbook compacted = readBytesAs(o.pb, plan.bytes);
    EXPECT_EQ(carried.sequences.at(plan.moved(0xA060_seq)).commands(), compacted.sequences.at(plan.moved(0xA060_seq)).commands());
    const SavePlan saved = planSave(carried, plan.bytes);
    for (const LaidSequence& laid : saved.layout.sequences) {
        if (laid.key == plan.moved(0xA060_seq)) {
            EXPECT_FALSE(laid.written) << saved.summary.text();
        }
    }
}

// A grown sequence that fits no free run: Save refuses, Compact and Save makes the room.
TEST(Compact, CompactAndSaveMakesRoomWhereSaveFoundNone) {
    DataDir data;
    ImageBuilder b;
    for (int k = 0; k < 1024; ++k) {  // five bytes used, three free, all over the area
        const int32_t a = 0xA000 + 8 * k;
        b.bytesAt(a, {0xD7, 0x01, 0x01, 0xC4, 0x00});
        b.playPlayer(k / 11, k % 11, a);
    }
    auto o = test::openBuilt(b, data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    ASSERT_EQ(o.pb.sequences.at(0xA000_seq).insertCommand(0, 0xF3), clsSequence::Insert::Done);
    ASSERT_EQ(o.pb.sequences.at(0xA008_seq).insertCommand(0, 0xF3), clsSequence::Insert::Done);
    const Bytes before = o.file.read();
    try {
        ADD_FAILURE() << "saved: " << saveChanges(o.pb).text();
    } catch (const SaveError& e) {
        EXPECT_NE(std::string(e.what()).find("largest free run of the sequence area holds 3"), std::string::npos) << e.what();
    }
    EXPECT_EQ(o.file.read(), before);
    const CompactSaveSummary s = compactAndSave(o.pb, data.path());
    EXPECT_EQ(s.compacted.freeStart, 0xA000 + 5 * 1024 + 3);
    // Named where the user knew them: A008, not A005 where the compaction put it before it moved on.
    ASSERT_EQ(s.saved.moved.size(), 2u);
    EXPECT_EQ(s.saved.moved[0].first, 0xA000);
    EXPECT_EQ(s.saved.moved[1].first, 0xA008);
    for (const int player : {0, 1}) {
        const clsSequence& grown = o.pb.sequences.at(o.pb.plays[0].seqAddress(player));
        EXPECT_EQ(grown.commandCount(), 3);
        EXPECT_EQ(grown.command(1), 0xF3);
    }
    EXPECT_EQ(o.pb.sequences.at(o.pb.plays[0].seqAddress(2)).address(), 0xA000 + 10) << "the rest packed";
}

}  // namespace
}  // namespace zpe
