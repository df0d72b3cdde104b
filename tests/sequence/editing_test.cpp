// Editing keeps a sequence whole (its end command last, its size the sum of
// its commands) and keeps what each jump names, wherever the commands move.
#include "support/sequence_bytes.h"

#include <gtest/gtest.h>

namespace zpe {
namespace {

using test::decodeBytes;
using Bytes = std::vector<uint8_t>;

clsSequence sample() { return decodeBytes({0x30, 0x51, 0xFE, 0x05}); }
// D7 01 01 at A000, FC FF E0 at A003, 30 at A006, FE FD (back to A003) at A007.
clsSequence loop() { return decodeBytes({0xD7, 0x01, 0x01, 0xFC, 0xFF, 0xE0, 0x30, 0xFE, 0xFC}); }

TEST(RemoveCommand, SizeDropsOriginsStayAndTheEndCommandStays) {
    clsSequence a = sample();
    ASSERT_TRUE(a.removeCommand(0));
    ASSERT_EQ(a.commandCount(), 2);
    EXPECT_EQ(a.commandAddress(0), CmdId::readAt(0xA001));
    EXPECT_EQ(a.commandAddress(1), CmdId::readAt(0xA002));
    EXPECT_EQ(a.byteSize(), 3);
    EXPECT_EQ(a.nextSequence(), 0xA007) << "the jump still names A007";
    EXPECT_EQ(a.encode(), (Bytes{0x51, 0xFE, 0x06}));

    for (int refused : {2, 3, -1}) {
        clsSequence d = sample();
        EXPECT_FALSE(d.removeCommand(refused)) << refused;
        EXPECT_EQ(d.commands(), sample().commands());
    }
    const Bytes bytes{0x94, 1, 2, 3, 4, 0xC1, 1, 2, 3, 0xD7, 1, 2, 0x30, 0xE4};
    for (int pos = 0; pos < 4; ++pos) {
        clsSequence seq = decodeBytes(bytes);
        const int32_t removed = seq.commands()[static_cast<size_t>(pos)].encodedSize();
        ASSERT_TRUE(seq.removeCommand(pos));
        EXPECT_EQ(seq.byteSize(), 14 - removed);
        EXPECT_EQ(static_cast<int32_t>(seq.encode().size()), seq.byteSize()) << pos;
    }
}

TEST(RemoveCommand, ALoopToTheRemovedCommandGoesToTheOneTakingItsPlace) {
    clsSequence seq = loop();
    ASSERT_TRUE(seq.removeCommand(1));
    EXPECT_EQ(seq.commandName(2, defaultCmdNames()), "Loop Back 1 byte");
    EXPECT_EQ(seq.encode(), (Bytes{0xD7, 0x01, 0x01, 0x30, 0xFE, 0xFF}));
}

TEST(Editing, ALoopKeepsItsTargetThroughInsertsAndSwaps) {
    clsSequence seq = loop();
    EXPECT_EQ(seq.commandName(3, defaultCmdNames()), "Loop Back 4 bytes");
    ASSERT_EQ(seq.insertCommand(1, 0xD7), clsSequence::Insert::Done);  // between the target and the loop
    EXPECT_EQ(seq.commandName(4, defaultCmdNames()), "Loop Back 7 bytes");
    EXPECT_EQ(seq.data(4, 0), 0xF9) << "the offset shown is the one written";
    ASSERT_EQ(seq.insertCommand(-1, 0xD7), clsSequence::Insert::Done);  // before both
    EXPECT_EQ(seq.commandName(5, defaultCmdNames()), "Loop Back 7 bytes");
    EXPECT_TRUE(seq.commandAddress(0).isNew()) << "new commands have no place in the image";
    EXPECT_NE(seq.commandAddress(0), seq.commandAddress(2)) << "each new command has an identity of its own";
    EXPECT_TRUE(seq.verify().empty());

    clsSequence swapped = loop();
    ASSERT_TRUE(swapped.swapCommands(0, 1));  // the target moves to the top
    EXPECT_EQ(swapped.commandAddress(0), CmdId::readAt(0xA003));
    EXPECT_EQ(swapped.commandName(3, defaultCmdNames()), "Loop Back 7 bytes");
    EXPECT_FALSE(swapped.swapCommands(2, 3)) << "the end command stays last";
}

TEST(Editing, ATypedOffsetOrTargetIsWhatIsShownAndWritten) {
    clsSequence seq = sample();
    seq.data(2, 0, 0x09);
    EXPECT_EQ(seq.nextSequence(), 0xA00B);
    EXPECT_EQ(seq.commandName(2, defaultCmdNames()), "+R:A00B");
    seq.data(2, 0, 0xFE);
    EXPECT_EQ(seq.commandName(2, defaultCmdNames()), "Loop Back 2 bytes");
    EXPECT_EQ(seq.nextSequence(), 0);
    ASSERT_TRUE(seq.removeCommand(0));
    EXPECT_EQ(seq.encode(), (Bytes{0x51, 0xFE, 0xFF})) << "it still loops to the hand-off";

    clsSequence abs = decodeBytes({0x30, 0xFF, 0x10, 0xA0});
    abs.data(1, 0, 0x00);
    abs.data(1, 1, 0xB0);
    EXPECT_EQ(abs.nextSequence(), 0xB000);
    EXPECT_EQ(abs.commandName(1, defaultCmdNames()), "+A:B000");

    // A sequence made in the editor has no place yet: its relative jump shows
    // where it leads, not a distance from the key, and an offset that could
    // only be measured from a place changes nothing (a loop to its own command can).
    clsSequence made = decodeBytes({0x30, 0x51, 0xFE, 0x05});
    made.key(SeqKey::made(0));
    EXPECT_EQ(made.commandName(2, defaultCmdNames()), "+R:A007");
    EXPECT_EQ(made.nextSequence(), 0xA007);
    made.data(2, 0, 0x2C);
    EXPECT_EQ(made.nextSequence(), 0xA007) << "no place to measure 2C from";
    made.data(2, 0, 0xFF);
    EXPECT_EQ(made.commandName(2, defaultCmdNames()), "Loop Back 1 byte");
    EXPECT_TRUE(made.verify().empty()) << made.verify();
}

TEST(Editing, StancesGoOnOnlyInKickFormations) {
    clsSequence plain = decodeBytes({0x30, 0xE4});
    EXPECT_EQ(plain.insertCommand(-1, 0xEA), clsSequence::Insert::EndsSequence);
    clsSequence kick = decodeBytes({0x30, 0xE4}, true);
    EXPECT_EQ(kick.insertCommand(-1, 0xEA), clsSequence::Insert::Done);
    EXPECT_EQ(kick.encode(), (Bytes{0xEA, 0x30, 0xE4}));
    EXPECT_EQ(plain.insertCommand(0, 0xC2), clsSequence::Insert::LockUp);
    // Nothing goes after the end command: said as such, the sequence unchanged.
    EXPECT_EQ(plain.insertCommand(1, 0xD7), clsSequence::Insert::AfterEnd);
    EXPECT_EQ(plain.encode(), (Bytes{0x30, 0xE4}));
}

TEST(ConvertRelJump, ClosingForwardJumpBecomesAbsolute) {
    clsSequence seq = sample();
    seq.convertRelJump();
    EXPECT_EQ(seq.byteSize(), 5);
    EXPECT_EQ(seq.nextSequence(), 0xA007);
    EXPECT_EQ(seq.encode(), (Bytes{0x30, 0x51, 0xFF, 0x07, 0xA0}));
    const clsSequence once = seq;
    seq.convertRelJump();
    EXPECT_EQ(seq.commands(), once.commands()) << "a second call changes nothing";
}

// Data 0 of a COM pass command is the count its code byte announces. Changing it
// changes the command's length with it, so what a save writes decodes back to
// the same commands: the code byte never disagrees with the data that follow.
TEST(DataWrites, ComPassCountKeepsCodeByteAndLengthInStep) {
    clsSequence seq = decodeBytes({0x92, 0x11, 0x22, 0xE4});
    seq.data(0, 0, 4);
    EXPECT_EQ(seq.dataLen(0), 5);
    EXPECT_EQ(seq.byteSize(), 6);
    seq.data(0, 3, 0x33);
    seq.data(0, 4, 0x44);
    const Bytes grown = seq.encode();
    EXPECT_EQ(grown, (Bytes{0x94, 0x11, 0x22, 0x33, 0x44, 0xE4}));
    EXPECT_EQ(decodeBytes(grown).commands()[0].dataLen, 5) << "re-decoding gives the same command";
    seq.data(0, 0, 0x1F);  // only the low nibble reaches the code byte
    EXPECT_EQ(seq.dataLen(0), 16);
    EXPECT_EQ(seq.encode()[0], 0x9F);
}

}  // namespace
}  // namespace zpe
