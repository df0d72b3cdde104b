// Saves never change what the game runs: every kind of reference between
// commands, under every kind of edit, still reaches the command it named
// after Save, and the game still goes on after Human Control where it did.
#include "analysis/area_map.h"
#include "save/save_changes.h"
#include "save/saves.h"
#include "save/verify_write.h"
#include "support/playbook_fixture.h"

#include <functional>

#include <gtest/gtest.h>

namespace zpe {
namespace {

using test::DataDir;
using test::ImageBuilder;

// Pointer 0: A000, a random branch (A003) and a loop back (A00E), both to the FC at A00A.
// Pointer 1: A020, a relative jump forward to A040. Pointer 2: A028, an absolute jump to A040.
// Pointer 3: A040, a branch (C7) to A050; Human Control, then the computer's logic at A045.
// Pointer 4: A050, Human Control, then the computer's logic at A054.
ImageBuilder referencesImage() {
    return ImageBuilder()
        .bytesAt(0xA000, {0xD7, 0x01, 0x01, 0x28, 0x0A, 0xA0, 0xF3, 0x05, 0xF4, 0x02, 0xFC, 0xFF, 0xE0, 0x30, 0xFE, 0xFC})
        .bytesAt(0xA020, {0xD7, 0x02, 0x02, 0xFE, 0x1D})
        .bytesAt(0xA028, {0xD7, 0x03, 0x03, 0xFF, 0x40, 0xA0})
        .bytesAt(0xA040, {0xC7, 0x50, 0xA0, 0x30, 0xE4, 0xDF, 0xFE, 0xFF})
        .bytesAt(0xA050, {0xD7, 0x04, 0x04, 0xE4, 0xDF, 0xFE, 0xFF})
        .pointer(0, 0xA000).pointer(1, 0xA020).pointer(2, 0xA028).pointer(3, 0xA040).pointer(4, 0xA050)
        .play(0, {0xA000});
}

int indexOf(const clsSequence& seq, int16_t code) {
    for (int i = 0; i < seq.commandCount(); ++i)
        if (seq.command(i) == code) return i;
    return -1;
}

// Every reference of the image as opened again reaches what it named before the edit.
void expectReferencesKept(const Playbook& pb, const Playbook& before, const std::string& edit) {
    SCOPED_TRACE(edit);
    const clsSequence& s1 = pb.sequences.at(pb.seqPointers[0]);
    const int fc = indexOf(s1, 0xFC);
    ASSERT_GE(fc, 0);
    EXPECT_EQ(s1.fieldTarget(indexOf(s1, 0x20)), s1.place(fc)) << "the branch reaches the FC";
    EXPECT_EQ(s1.fieldTarget(s1.commandCount() - 1), s1.place(fc)) << "the loop reaches the FC";
    const SeqKey s4 = pb.seqPointers[3];
    // An unchanged sequence's relative jump that cannot reach a moved sequence keeps running its old copy.
    auto isOldA040 = [&](int32_t a) {
        return std::equal(before.openedBytes.begin() + offsetOfAddress(0xA040), before.openedBytes.begin() + offsetOfAddress(0xA045),
                          pb.openedBytes.begin() + offsetOfAddress(a));
    };
    const int32_t relative = pb.sequences.at(pb.seqPointers[1]).nextSequence();
    EXPECT_TRUE(relative == s4.address() || isOldA040(relative)) << "the relative jump reaches A040's commands";
    EXPECT_EQ(pb.sequences.at(pb.seqPointers[2]).nextSequence(), s4.address()) << "the absolute jump follows A040";
    const clsSequence& c7 = pb.sequences.at(s4);
    const int32_t branch = c7.fieldTarget(indexOf(c7, 0xC7));
    const auto o = static_cast<size_t>(offsetOfAddress(branch));
    const bool oldCopy = std::equal(before.openedBytes.begin() + offsetOfAddress(0xA050),
                                    before.openedBytes.begin() + offsetOfAddress(0xA054), pb.openedBytes.begin() + static_cast<std::ptrdiff_t>(o));
    EXPECT_TRUE(branch == pb.seqPointers[4].address() || oldCopy) << "the branch reaches A050 as edited, or its old copy";
    // The computer teams' logic still runs after each Human Control.
    const auto area = areaBytes(pb.openedBytes);
    for (const auto& [entry, logic] : {std::pair{3, 0xA045}, std::pair{4, 0xA054}}) {
        bool reached = false;
        for (const GameCommand& g : traceFrom(pb.openedBytes, pb.seqPointers[static_cast<size_t>(entry)].address())) reached |= g.address == logic;
        EXPECT_TRUE(reached) << "pointer " << entry << " still reaches " << std::hex << logic;
    }
    const AreaMap was = buildAreaMap(before), now = buildAreaMap(pb);
    for (size_t a = 0; a < was.use.size(); ++a)
        if (was.use[a] == kUseGame) {
            EXPECT_TRUE(now.use[a] & kUseGame) << "game byte " << std::hex << 0xA000 + a << " lost";
        }
}

void insertAtTop(Playbook& pb) {
    for (const SeqKey a : {0xA000_seq, 0xA020_seq, 0xA028_seq, 0xA040_seq, 0xA050_seq})
        ASSERT_EQ(pb.sequences.at(a).insertCommand(-1, 0xF3), clsSequence::Insert::Done);
}

TEST(SaveReferences, EveryKindOfReferenceSurvivesEveryKindOfEdit) {
    DataDir data;
    struct Edit {
        const char* name;
        std::function<void(Playbook&)> apply;
    };
    const std::vector<Edit> edits{
        {"insert before each reference", insertAtTop},
        {"remove before each reference", [](Playbook& pb) {
             for (const SeqKey a : {0xA000_seq, 0xA020_seq, 0xA028_seq, 0xA050_seq}) ASSERT_TRUE(pb.sequences.at(a).removeCommand(0));
             ASSERT_TRUE(pb.sequences.at(0xA040_seq).removeCommand(1));
         }},
        {"insert between the loop and its target", [](Playbook& pb) {
             ASSERT_EQ(pb.sequences.at(0xA000_seq).insertCommand(4, 0xD7), clsSequence::Insert::Done);
         }},
        {"arrows", [](Playbook& pb) {
             ASSERT_TRUE(pb.sequences.at(0xA000_seq).swapCommands(0, 1));
             ASSERT_TRUE(pb.sequences.at(0xA000_seq).swapCommands(3, 4));  // the FC moves up
         }},
        {"import: the first command left out", [](Playbook& pb) {
             for (const SeqKey a : {0xA000_seq, 0xA020_seq, 0xA028_seq, 0xA050_seq}) {
                 clsSequence& seq = pb.sequences.at(a);
                 std::vector<SeqCommand> cmds(seq.commands().begin() + 1, seq.commands().end());
                 seq.assign(cmds);
             }
         }},
        {"shrunk where the game goes on", [](Playbook& pb) {
             ASSERT_TRUE(pb.sequences.at(0xA040_seq).removeCommand(1));
             ASSERT_TRUE(pb.sequences.at(0xA050_seq).removeCommand(0));
         }},
    };
    for (const Edit& e : edits) {
        auto o = test::openBuilt(referencesImage(), data);
        ASSERT_TRUE(o.result.ok) << o.result.error;
        const Playbook before = o.pb;
        e.apply(o.pb);
        saveChanges(o.pb);
        expectReferencesKept(o.pb, before, e.name);
    }
}

// Full Save lays everything out anew; the model it leaves names commands where they now stand.
TEST(SaveReferences, FullSaveThenSaveKeepsLoopsAndJumps) {
    DataDir data;
    auto o = test::openBuilt(referencesImage(), data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    ASSERT_EQ(o.pb.sequences.at(0xA000_seq).insertCommand(-1, 0xF3), clsSequence::Insert::Done);
    fullSave(o.pb);
    for (int k = 0; k < 5; ++k)
        ASSERT_EQ(o.pb.sequences.at(o.pb.seqPointers[static_cast<size_t>(k)]).insertCommand(-1, 0xF4), clsSequence::Insert::Done);
    saveChanges(o.pb);
    const clsSequence& s1 = o.pb.sequences.at(o.pb.seqPointers[0]);
    EXPECT_EQ(s1.commandName(s1.commandCount() - 1, defaultCmdNames()), "Loop Back 4 bytes");
    EXPECT_EQ(s1.fieldTarget(indexOf(s1, 0x20)), s1.place(indexOf(s1, 0xFC)));
    EXPECT_EQ(o.pb.sequences.at(o.pb.seqPointers[1]).nextSequence(), o.pb.seqPointers[3].address());
    EXPECT_EQ(o.pb.sequences.at(o.pb.seqPointers[2]).nextSequence(), o.pb.seqPointers[3].address());
}

// The check before the write catches a planner that writes something else.
TEST(SaveReferences, TheCheckBeforeTheWriteNamesAFault) {
    DataDir data;
    auto o = test::openBuilt(referencesImage(), data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    insertAtTop(o.pb);
    const SavePlan plan = planSave(o.pb, o.pb.openedBytes);
    // The moved loop's offset byte, one off, as a planner that measured from a stale place would write it.
    const int32_t moved = plan.summary.moved.front().second;
    std::vector<uint8_t> faulty = plan.bytes;
    const auto loop = static_cast<size_t>(offsetOfAddress(moved + 17));
    ASSERT_EQ(faulty[loop - 1], 0xFE);
    faulty[loop] = static_cast<uint8_t>(faulty[loop] - 1);
    Playbook before = o.pb;
    Image image(o.pb.romPath, o.pb.openedBytes);
    before = loadPlaybook(image, formationNames(o.pb));
    before.openedBytes = o.pb.openedBytes;
    const SaveLayout& layout = plan.layout;
    EXPECT_NO_THROW((void)verifyWrite(o.pb, before, plan.bytes, layout));
    try {
        (void)verifyWrite(o.pb, before, faulty, layout);
        ADD_FAILURE() << "the fault went through";
    } catch (const VerifyError& e) {
        EXPECT_NE(std::string(e.what()).find("command 7 of sequence A000 would lead to"), std::string::npos) << e.what();
    }
}

}  // namespace
}  // namespace zpe
