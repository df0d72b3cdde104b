#include "support/sequence_bytes.h"

#include <gtest/gtest.h>

#include <cctype>

namespace zpe {
namespace {

using test::decodeBytes;

struct TextCase {
    std::vector<uint8_t> bytes;  // one command (followed by whatever ends the sequence)
    std::string text;            // text of command 0
};

class CommandTextTest : public ::testing::TestWithParam<TextCase> {};

TEST_P(CommandTextTest, SpecialForms) {
    const clsSequence seq = decodeBytes(GetParam().bytes);
    EXPECT_EQ(seq.commandName(0, defaultCmdNames()), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Commands, CommandTextTest,
    ::testing::Values(TextCase{{0x32, 0xE4}, "Block LE"}, TextCase{{0x4B, 0xE4}, "Chop Block B?"},
                      TextCase{{0x51, 0xE4}, "Handoff to RB"}, TextCase{{0x60, 0xE4}, "Fake Handoff to QB"},
                      TextCase{{0x72, 0xE4}, "Pitch to FB"}, TextCase{{0xA0, 0xE4}, "Route #1"},
                      TextCase{{0xAF, 0xE4}, "Route #16"}, TextCase{{0x20, 0x34, 0x12, 0xE4}, "Cond. Branch (20) to 1234"},
                      TextCase{{0xC7, 0x34, 0x12, 0xE4}, "Cond. Branch (C7) to 1234"},
                      TextCase{{0xD7, 0x05, 0x03, 0xE4}, "Move Relative (D-05,R-03)"},
                      TextCase{{0xD7, 0xFB, 0xFD, 0xE4}, "Move Relative (U-05,L-03)"},
                      TextCase{{0xD7, 0x00, 0x03, 0xE4}, "Move Relative (R-03)"},
                      TextCase{{0xD7, 0x05, 0x00, 0xE4}, "Move Relative (D-05,)"},
                      TextCase{{0xD7, 0x00, 0x00, 0xE4}, "Move Relative ()"},
                      TextCase{{0xD7, 0x80, 0x7F, 0xE4}, "Move Relative (U-80,R-7F)"},
                      TextCase{{0xFE, 0xF0}, "Loop Back 16 bytes"}, TextCase{{0xFE, 0xFF}, "Loop Back 1 byte"},
                      TextCase{{0xFE, 0x80}, "Loop Back 128 bytes"}, TextCase{{0xFE, 0x05}, "+R:A005"},
                      TextCase{{0xFF, 0x00, 0x08}, "+A:800"}, TextCase{{0xC1, 0x01, 0x2A, 0x00, 0xE4}, "C1(1 2A 0) "},
                      TextCase{{0x94, 1, 2, 3, 4, 0xE4}, "90(4 1 2 3 4) "}, TextCase{{0xE4}, "E4"},
                      TextCase{{0xEA, 0xE4}, "EA"}),
    [](const auto& info) {
        std::string name;
        for (char c : info.param.text)
            if (std::isalnum(static_cast<unsigned char>(c))) name += c;
        return name + "_" + std::to_string(info.index);
    });

TEST(CommandText, DefaultFormUsesTheCatalogueName) {
    CmdNames names = defaultCmdNames();
    names[0xC1] = "X";
    names[0xE4] = "Human Control";
    EXPECT_EQ(decodeBytes({0xC1, 0x01, 0x2A, 0x00, 0xE4}).commandName(0, names), "X(1 2A 0) ");
    EXPECT_EQ(decodeBytes({0xE4}).commandName(0, names), "Human Control");
}

TEST(CommandText, SequenceTextJoinsEveryCommand) {
    EXPECT_EQ(decodeBytes({0x30, 0x51, 0xFE, 0x05}).commandString(defaultCmdNames()),
              "Block RE; Handoff to RB; +R:A007; ");
    EXPECT_EQ(clsSequence().commandString(defaultCmdNames()), "");
}

}  // namespace
}  // namespace zpe
