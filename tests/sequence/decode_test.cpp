#include "model/tables.h"
#include "support/sequence_bytes.h"

#include <gtest/gtest.h>

namespace zpe {
namespace {

using test::decodeBytes;
using Bytes = std::vector<uint8_t>;

struct Expected {
    int16_t command;
    int16_t dataLen;
    std::vector<int16_t> data;
    int32_t address;
};

struct DecodeCase {
    const char* name;
    Bytes bytes;        // the image bytes from 0xA000 on
    bool kr;
    int32_t byteSize;   // the bytes that belong to the sequence (a prefix of `bytes`)
    int32_t next;
    bool valid;
    std::vector<Expected> commands;
};

class DecodeTest : public ::testing::TestWithParam<DecodeCase> {};

TEST_P(DecodeTest, DecodesThenEncodesToTheSameBytes) {
    const DecodeCase& c = GetParam();
    const clsSequence seq = decodeBytes(c.bytes, c.kr);
    EXPECT_EQ(seq.byteSize(), c.byteSize);
    EXPECT_EQ(seq.nextSequence(), c.next);
    EXPECT_EQ(seq.isValid(), c.valid);
    ASSERT_EQ(seq.commandCount(), static_cast<int>(c.commands.size()));
    for (size_t i = 0; i < c.commands.size(); ++i) {
        const Expected& e = c.commands[i];
        const int pos = static_cast<int>(i);
        EXPECT_EQ(seq.command(pos), e.command) << "command " << i;
        EXPECT_EQ(seq.dataLen(pos), e.dataLen) << "command " << i;
        EXPECT_EQ(seq.commandAddress(pos), CmdId::readAt(e.address)) << "command " << i;
        for (size_t k = 0; k < e.data.size(); ++k) EXPECT_EQ(seq.data(pos, static_cast<int>(k)), e.data[k]) << i << "/" << k;
    }
    const Bytes encoded = seq.encode();
    EXPECT_EQ(encoded, Bytes(c.bytes.begin(), c.bytes.begin() + c.byteSize)) << "encode(decode(bytes)) differs";
    EXPECT_EQ(static_cast<int32_t>(encoded.size()), seq.byteSize());
}

INSTANTIATE_TEST_SUITE_P(
    EndRules, DecodeTest,
    ::testing::Values(
        DecodeCase{"BlockHandoffRelativeJump", {0x30, 0x51, 0xFE, 0x05}, false, 4, 0xA007, true,
                   {{0x30, 1, {0}, 0xA000}, {0x50, 1, {1}, 0xA001}, {0xFE, 1, {5}, 0xA002}}},
        DecodeCase{"ComPassLengthFromLowNibble", {0x94, 0x11, 0x22, 0x33, 0x44, 0xE4}, false, 6, 0, true,
                   {{0x90, 5, {4, 0x11, 0x22, 0x33, 0x44}, 0xA000}, {0xE4, -1, {}, 0xA005}}},
        DecodeCase{"ThreeByteLowCode", {0x20, 0x34, 0x12, 0xE4}, false, 4, 0, true,
                   {{0x20, 3, {0, 0x34, 0x12}, 0xA000}, {0xE4, -1, {}, 0xA003}}},
        DecodeCase{"AbsoluteJump", {0xFF, 0x34, 0x12}, false, 3, 0x1234, true, {{0xFF, 2, {0x34, 0x12}, 0xA000}}},
        DecodeCase{"AbsoluteJumpToFFFFIsNotValid", {0xFF, 0xFF, 0xFF}, false, 3, 0xFFFF, false,
                   {{0xFF, 2, {0xFF, 0xFF}, 0xA000}}},
        DecodeCase{"ShotgunSnapGoesOnBeforeFF", {0xD3, 0xFF, 0x00, 0xA0}, false, 4, 0xA000, true,
                   {{0xD3, 0, {}, 0xA000}, {0xFF, 2, {0x00, 0xA0}, 0xA001}}},
        DecodeCase{"ShotgunSnapEndsOtherwise", {0xD3, 0x12}, false, 1, 0, true, {{0xD3, -1, {}, 0xA000}}},
        DecodeCase{"ShotgunSnapAtImageEndEnds", {0xD3}, false, 1, 0, true, {{0xD3, -1, {}, 0xA000}}},
        DecodeCase{"StanceEndsWithoutKR", {0xEA, 0xE4}, false, 1, 0, true, {{0xEA, -1, {}, 0xA000}}},
        DecodeCase{"StanceGoesOnWithKR", {0xEA, 0xEC, 0xE4}, true, 3, 0, true,
                   {{0xEA, 0, {}, 0xA000}, {0xEC, 0, {}, 0xA001}, {0xE4, -1, {}, 0xA002}}},
        DecodeCase{"CelebrateIsATwoByteEnd", {0xC4, 0x07, 0x30}, false, 2, 0, true, {{0xC4, 1, {7}, 0xA000}}},
        DecodeCase{"DejectedIsATwoByteEnd", {0xC5, 0x00}, false, 2, 0, true, {{0xC5, 1, {0}, 0xA000}}},
        DecodeCase{"LoopBackHasNoFollowOn", {0xD7, 0x05, 0xFD, 0xFE, 0x80}, false, 5, 0, true,
                   {{0xD7, 2, {5, 0xFD}, 0xA000}, {0xFE, 1, {0x80}, 0xA003}}},
        DecodeCase{"HumanControlEnds", {0xE4, 0xDF}, false, 1, 0, true, {{0xE4, -1, {}, 0xA000}}},
        DecodeCase{"HighCodesOfThreeAndFourBytes",
                   {0xC0, 1, 2, 0xC1, 1, 2, 3, 0xF1, 0, 0, 0xD2}, false, 11, 0, true,
                   {{0xC0, 2, {1, 2}, 0xA000}, {0xC1, 3, {1, 2, 3}, 0xA003}, {0xF1, 2, {0, 0}, 0xA007},
                    {0xD2, -1, {}, 0xA00A}}},
        DecodeCase{"NoEndBeforeImageEndIsNotValid", {0x30, 0xD7, 1, 2}, false, 4, 0, false,
                   {{0x30, 1, {0}, 0xA000}, {0xD7, 2, {1, 2}, 0xA001}}},
        DecodeCase{"CommandCutByImageEndIsDropped", {0x30, 0xD7, 1}, false, 1, 0, false, {{0x30, 1, {0}, 0xA000}}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(DecodeEndCommands, EachOneByteEndStopsDecoding) {
    for (uint8_t end : {0xC2, 0xC3, 0xC6, 0xCB, 0xD2, 0xE4, 0xEE, 0xEA, 0xEC}) {
        const clsSequence seq = decodeBytes({end, 0x30, 0xE4});
        EXPECT_EQ(seq.commandCount(), 1) << std::hex << int(end);
        EXPECT_EQ(seq.byteSize(), 1);
        EXPECT_EQ(seq.lastCommand(), end);
        EXPECT_TRUE(seq.isValid());
        EXPECT_EQ(seq.encode(), (Bytes{end}));
    }
}

TEST(DecodeRelativeJump, ForwardTargetCountsFromTheJumpByte) {
    const clsSequence seq = decodeBytes({0xFE, 0x80}, false, 0xA010);
    EXPECT_EQ(seq.nextSequence(), 0) << "a loop back is not a follow-on (not 0xA010 - 0x80)";
    EXPECT_TRUE(seq.isValid());
    const clsSequence self = decodeBytes({0xFE, 0x00}, false, 0xA010);
    EXPECT_EQ(self.nextSequence(), 0xA010);
}

// A run without an end stops at the command limit, or at FFFF, the last game
// address (nothing wraps around to 0000), whichever comes first; either way it is not valid.
TEST(DecodeLimits, RunawaySequenceStopsAtTheCommandLimitOrAtFFFF) {
    Bytes many(kMaxCommands + 10, 0x30);
    const clsSequence low = decodeBytes(many, false, 0x2000);
    EXPECT_EQ(low.commandCount(), kMaxCommands);
    EXPECT_FALSE(low.isValid());
    const clsSequence high = decodeBytes(many);  // from A000: FFFF comes first
    EXPECT_EQ(high.commandCount(), 0x10000 - 0xA000);
    EXPECT_FALSE(high.isValid());
    EXPECT_EQ(high.AddressRange(), "A000-FFFF");
}

TEST(DecodeLimits, AllLowCodesRoundTrip) {
    // Every low code with every low nibble, followed by its data bytes.
    for (int b = 0; b < 0xC0; ++b) {
        Bytes bytes{static_cast<uint8_t>(b)};
        const int len = (b & 0xF0) == 0x90 ? (b & 0x0F) + 1 : cmdLenByNibble[static_cast<size_t>(b >> 4)];
        for (int k = 1; k < len; ++k) bytes.push_back(static_cast<uint8_t>(0x40 + k));
        bytes.push_back(0xE4);
        const clsSequence seq = decodeBytes(bytes);
        ASSERT_EQ(seq.commandCount(), 2) << std::hex << b;
        EXPECT_EQ(seq.encode(), bytes) << std::hex << b;
    }
}

TEST(SequenceAccess, IndexesOutsideTheSequenceAreErrors) {
    clsSequence seq = decodeBytes({0xE4});
    EXPECT_THROW(seq.command(1), std::out_of_range);
    EXPECT_THROW(seq.data(0, 256), std::out_of_range);
    EXPECT_THROW(seq.data(-1, 0, 5), std::out_of_range);
    EXPECT_EQ(clsSequence().lastCommand(), 0);
}

}  // namespace
}  // namespace zpe
