#include "support/image_builder.h"
#include "support/process.h"

#include <gtest/gtest.h>

namespace zpe {
namespace {

using test::ImageBuilder;
using test::runProcess;
using test::TempDir;

TEST(CliDecode, PrintsTheSequenceLineByLine) {
    const auto file = ImageBuilder().bytesAt(0xA000, {0x30, 0x51, 0xFE, 0x05}).write();
    TempDir noData;
    for (const std::string address : {"A000", "0xA000", "a000"}) {
        const auto r = runProcess(ZPE_BIN, {"--data", noData.path(), "decode", file.path(), address});
        EXPECT_EQ(r.exitCode, 0) << r.err;
        EXPECT_EQ(r.out,
                  "A000-A003\nsize 4\nnext A007\nvalid yes\n"
                  "A000: Block RE\nA001: Handoff to RB\nA002: +R:A007\n");
    }
}

TEST(CliDecode, KickFlagAndCatalogueNames) {
    const auto file = ImageBuilder().bytesAt(0xA100, {0xEA, 0xE4}).write();
    TempDir data;
    data.writeText("cmd.txt", "EA,3-Point Stance\r\nE4,Human Control\r\n");
    auto r = runProcess(ZPE_BIN, {"--data", data.path(), "decode", file.path(), "A100", "--kr"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, "A100-A101\nsize 2\nnext 0000\nvalid yes\nA100: 3-Point Stance\nA101: Human Control\n");
    r = runProcess(ZPE_BIN, {"--data", data.path(), "decode", file.path(), "A100"});
    EXPECT_EQ(r.out, "A100-A100\nsize 1\nnext 0000\nvalid yes\nA100: 3-Point Stance\n");
}

TEST(CliDecode, ShippedCatalogueIsFoundBesideTheExecutable) {
    const auto file = ImageBuilder().bytesAt(0xA000, {0xE4}).write();
    const auto r = runProcess(ZPE_BIN, {"decode", file.path(), "A000"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out.find("A000: E4\n"), std::string::npos) << "cmd.txt beside zpe names 0xE4:\n" << r.out;
}

TEST(CliDecode, FailuresAndUsageErrors) {
    const auto file = ImageBuilder().write();
    auto r = runProcess(ZPE_BIN, {"decode", "/nonexistent/x.nes", "A000"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("/nonexistent/x.nes"), std::string::npos);
    EXPECT_EQ(r.out, "");

    r = runProcess(ZPE_BIN, {"decode", file.path(), "1000"});
    EXPECT_EQ(r.exitCode, 2) << "an address below 0x1FF0 lies before the image";
    EXPECT_EQ(r.err.find("zpe: game address 1000 lies before the image (its first byte is game address 1FF0)"), 0u) << r.err;

    // A run without an end is listed up to 4096 commands unless --all.
    const auto runaway = ImageBuilder().fill(offsetOfAddress(0xA000), 0x2000, 0x30).write();
    r = runProcess(ZPE_BIN, {"decode", runaway.path(), "A000"});
    EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 4 + 4096);
    EXPECT_NE(r.err.find("listed the first 4096 of"), std::string::npos);
    r = runProcess(ZPE_BIN, {"decode", runaway.path(), "A000", "--all"});
    EXPECT_GT(std::count(r.out.begin(), r.out.end(), '\n'), 4 + 4096);

    for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
             {"decode", file.path(), "XYZ"}, {"decode", file.path()}, {}, {"frobnicate"}, {"decode", file.path(), "12345"}}) {
        r = runProcess(ZPE_BIN, args);
        EXPECT_EQ(r.exitCode, 2) << r.err;
        EXPECT_NE(r.err.find("decode"), std::string::npos) << "usage on stderr";
    }

    r = runProcess(ZPE_BIN, {"--help"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_NE(r.out.find("decode"), std::string::npos);
    r = runProcess(ZPE_BIN, {"--version"});
    EXPECT_EQ(r.out.find("zpe "), 0u);
}

// A sequence cut off by the end of the image, or by the end of the game's
// addresses, is not valid; nothing wraps around to 0000.
TEST(CliDecode, SequenceRunningIntoTheImageEndOrPastFFFFIsNotValid) {
    TempDir noData;
    const auto file = ImageBuilder(0x8010 + 0x2000).fill(0x8010, 0x2000, 0x30).write();
    auto r = runProcess(ZPE_BIN, {"--data", noData.path(), "decode", file.path(), "A000", "--all"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_NE(r.out.find("A000-BFFF\nsize 8192\nnext 0000\nvalid no\n"), std::string::npos) << r.out.substr(0, 80);
    EXPECT_NE(r.err.find("without an end command"), std::string::npos);
    const auto big = ImageBuilder(0x40010).fill(offsetOfAddress(0xFFF0), 0x40010 - offsetOfAddress(0xFFF0), 0x30).write();
    r = runProcess(ZPE_BIN, {"--data", noData.path(), "decode", big.path(), "FFFE"});
    EXPECT_EQ(r.out, "FFFE-FFFF\nsize 2\nnext 0000\nvalid no\nFFFE: Block RE\nFFFF: Block RE\n");
}

}  // namespace
}  // namespace zpe
