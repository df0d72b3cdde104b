#include "sequence/catalogue.h"
#include "support/image_builder.h"

#include <gtest/gtest.h>

namespace zpe {
namespace {

TEST(CommandCatalogue, RecordsApplyInFileOrder) {
    test::TempDir dir;
    dir.writeText("cmd.txt",
                  "c7,Branch\r\n"
                  "1FF,Too Big\r\n"
                  "30,First\r\n"
                  "30,Second\r\n"
                  "FF,\"Jump, absolute\"\r\n"
                  "zz,Zero\r\n"
                  "E4,Human Control");
    const CmdNames names = loadCmdNames(dir.path());
    EXPECT_EQ(names[0xC7], "Branch") << "lower-case codes count";
    EXPECT_EQ(names[0x30], "Second") << "a later record wins";
    EXPECT_EQ(names[0xFF], "Jump, absolute");
    EXPECT_EQ(names[0x00], "Zero") << "a code without digits counts as 0";
    EXPECT_EQ(names[0xE4], "Human Control") << "a last line without line end counts";
    EXPECT_EQ(names[0x1F], "1F") << "an out-of-range code changes nothing";
}

TEST(CommandCatalogue, FieldsPairAcrossLines) {
    CmdNames names = defaultCmdNames();
    applyCmdNames(names, "C0\r\nDrop Back\r\nC1,Wait\r\nC2");
    EXPECT_EQ(names[0xC0], "Drop Back");
    EXPECT_EQ(names[0xC1], "Wait");
    EXPECT_EQ(names[0xC2], "C2") << "a code without a name at the end is ignored";
}

}  // namespace
}  // namespace zpe
