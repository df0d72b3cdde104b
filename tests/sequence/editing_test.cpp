#include "support/sequence_bytes.h"

#include <gtest/gtest.h>

namespace zpe {
namespace {

using test::decodeBytes;
using Bytes = std::vector<uint8_t>;

clsSequence sample() { return decodeBytes({0x30, 0x51, 0xFE, 0x05}); }

TEST(RemoveCommand, SizeDropsByTheEncodedSizeAndAddressesStay) {
    clsSequence a = sample();
    a.removeCommand(0);
    ASSERT_EQ(a.commandCount(), 2);
    EXPECT_EQ(a.command(0), 0x50);
    EXPECT_EQ(a.commandAddress(0), 0xA001);
    EXPECT_EQ(a.commandAddress(1), 0xA002);
    EXPECT_EQ(a.byteSize(), 3);
    EXPECT_EQ(a.nextSequence(), 0xA007);

    clsSequence b = sample();
    b.removeCommand(1);
    EXPECT_EQ(b.byteSize(), 3);
    clsSequence c = sample();
    c.removeCommand(2);
    EXPECT_EQ(c.byteSize(), 2);
    EXPECT_EQ(c.lastCommand(), 0x50) << "nothing stops removing the end command";
    for (int outside : {3, -1}) {
        clsSequence d = sample();
        d.removeCommand(outside);
        EXPECT_EQ(d.commands(), sample().commands());
        EXPECT_EQ(d.byteSize(), 4);
    }
}

TEST(RemoveCommand, EveryKindOfCommandKeepsTheSizeEqualToTheBytes) {
    const Bytes bytes{0x94, 1, 2, 3, 4, 0xC1, 1, 2, 3, 0xD7, 1, 2, 0x30, 0xE4};
    for (int pos = 0; pos < 5; ++pos) {
        clsSequence seq = decodeBytes(bytes);
        const int32_t before = seq.byteSize();
        const int32_t removed = seq.commands()[static_cast<size_t>(pos)].encodedSize();
        seq.removeCommand(pos);
        EXPECT_EQ(seq.byteSize(), before - removed);
        EXPECT_EQ(static_cast<int32_t>(seq.encode().size()), seq.byteSize()) << pos;
    }
    EXPECT_EQ(decodeBytes(bytes).commands()[0].encodedSize(), 5);
    EXPECT_EQ(decodeBytes(bytes).commands()[1].encodedSize(), 4);
    EXPECT_EQ(decodeBytes(bytes).commands()[4].encodedSize(), 1);
}

TEST(SwapCommands, AddressesTravelWithTheirCommands) {
    clsSequence seq = sample();
    seq.swapCommands(0, 1);
    EXPECT_EQ(seq.command(0), 0x50);
    EXPECT_EQ(seq.commandAddress(0), 0xA001);
    EXPECT_EQ(seq.command(1), 0x30);
    EXPECT_EQ(seq.commandAddress(1), 0xA000);
    EXPECT_EQ(seq.byteSize(), 4);
    EXPECT_EQ(seq.encode(), (Bytes{0x51, 0x30, 0xFE, 0x05}));
}

TEST(ConvertRelJump, ClosingForwardJumpBecomesAbsolute) {
    clsSequence seq = sample();
    seq.convertRelJump();
    EXPECT_EQ(seq.command(2), 0xFF);
    EXPECT_EQ(seq.dataLen(2), 2);
    EXPECT_EQ(seq.data(2, 0), 0x07);
    EXPECT_EQ(seq.data(2, 1), 0xA0);
    EXPECT_EQ(seq.byteSize(), 5);
    EXPECT_EQ(seq.nextSequence(), 0xA007);
    EXPECT_EQ(seq.encode(), (Bytes{0x30, 0x51, 0xFF, 0x07, 0xA0}));
    const clsSequence once = seq;
    seq.convertRelJump();
    EXPECT_EQ(seq.commands(), once.commands()) << "a second call changes nothing";
    EXPECT_EQ(seq.byteSize(), 5);
}

TEST(DataWrites, AbsoluteJumpFollowsItsNewTarget) {
    clsSequence seq = decodeBytes({0x30, 0xFF, 0x10, 0xA0});
    seq.data(1, 0, 0x00);
    seq.data(1, 1, 0xB0);
    EXPECT_EQ(seq.nextSequence(), 0xB000);
    EXPECT_EQ(seq.commandName(1, defaultCmdNames()), "+A:B000");
}

TEST(DataWrites, RelativeJumpKeepsItsDecodedFollowOn) {
    clsSequence seq = sample();
    seq.data(2, 0, 0x09);
    EXPECT_EQ(seq.nextSequence(), 0xA007);
    EXPECT_EQ(seq.commandName(2, defaultCmdNames()), "+R:A007");
    seq.data(2, 0, 0xFC);
    EXPECT_EQ(seq.commandName(2, defaultCmdNames()), "Loop Back 4 bytes");
}

TEST(DataWrites, LowNibbleChangesTheWrittenCodeByte) {
    clsSequence seq = sample();
    seq.data(0, 0, 2);
    EXPECT_EQ(seq.encode()[0], 0x32);
    EXPECT_EQ(seq.commandName(0, defaultCmdNames()), "Block LE");
}

// Data 0 of a COM pass command is the count its code byte announces. Changing it
// changes the command's length with it, so what a save writes decodes back to
// the same commands: the code byte never disagrees with the data that follow.
TEST(DataWrites, ComPassCountKeepsCodeByteAndLengthInStep) {
    clsSequence seq = decodeBytes({0x92, 0x11, 0x22, 0xE4});
    ASSERT_EQ(seq.dataLen(0), 3);
    seq.data(0, 0, 4);
    EXPECT_EQ(seq.dataLen(0), 5);
    EXPECT_EQ(seq.byteSize(), 6);
    seq.data(0, 3, 0x33);
    seq.data(0, 4, 0x44);
    const Bytes grown = seq.encode();
    EXPECT_EQ(grown, (Bytes{0x94, 0x11, 0x22, 0x33, 0x44, 0xE4}));
    EXPECT_EQ(decodeBytes(grown).commands()[0].dataLen, 5) << "re-decoding gives the same command";

    seq.data(0, 0, 1);
    EXPECT_EQ(seq.dataLen(0), 2);
    EXPECT_EQ(seq.byteSize(), 3);
    EXPECT_EQ(seq.encode(), (Bytes{0x91, 0x11, 0xE4}));

    seq.data(0, 0, 0x1F);  // only the low nibble reaches the code byte
    EXPECT_EQ(seq.dataLen(0), 16);
    const Bytes wide = seq.encode();
    EXPECT_EQ(wide.size(), 17u);
    EXPECT_EQ(wide[0], 0x9F);
    EXPECT_EQ(decodeBytes(wide).byteSize(), 17);
}

}  // namespace
}  // namespace zpe
