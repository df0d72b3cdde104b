#include "sequence/command_sheet.h"

#include <gtest/gtest.h>

namespace zpe {
namespace {

TEST(CommandSheets, RecordsAndTheirFaults) {
    const CommandSheet s = parseCommandSheet(
        "Field,1,Target,List\r\nValue,1,0,RE\r\nValue,1,1,\"NT, nose\"\r\n"
        "Info,first\r\nInfo,\"second, wins\"\r\n"
        "Field,5,Too far,Text\r\nField,x,Bad,Text\r\nValue,0,0,Zero\r\nValue,2,z,Bad v\r\n"
        "Junk,Field,2,Depth,Text\r\n");
    ASSERT_EQ(s.records.size(), 6u);
    EXPECT_TRUE(s.records[0].list);
    EXPECT_EQ(s.records[0].slot, 0);
    EXPECT_EQ(s.records[2].label, "NT, nose");
    EXPECT_EQ(s.records[4].label, "second, wins");
    EXPECT_EQ(s.records[5].kind, SheetRecord::Kind::Field) << "an unknown key consumes only itself";
    EXPECT_EQ(s.records[5].slot, 1);
    EXPECT_FALSE(s.records[5].list);
    EXPECT_EQ(s.ignored, 5);
    EXPECT_EQ(commandSheetPath("d", 0x3A), "d/cmdinfo/30.txt");
    EXPECT_EQ(commandSheetPath("d", 0xC7), "d/cmdinfo/C7.txt");
    EXPECT_FALSE(loadCommandSheet("/nonexistent", 0x30).has_value());
}

}  // namespace
}  // namespace zpe
