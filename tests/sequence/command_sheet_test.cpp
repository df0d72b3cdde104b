#include "sequence/command_panel.h"
#include "model/text_file.h"
#include "sequence/command_sheet.h"
#include "support/image_builder.h"
#include "support/sequence_bytes.h"

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

    // Notes are shown whole however long; a label, shown in a row, is cut.
    const std::string note(3000, 'n'), label(400, 'l');
    const CommandSheet longOnes = parseCommandSheet("Field,1," + label + ",Text\r\nInfo,\"" + note + "\"\r\n");
    ASSERT_EQ(longOnes.records.size(), 2u);
    EXPECT_EQ(longOnes.records[0].label.size(), kMaxDataTextLength);
    EXPECT_EQ(longOnes.records[1].label, note);
}

// What the editor panel shows for a command, with and without a sheet.
TEST(CommandPanel, SlotsFollowTheCommandAndItsSheet) {
    const clsSequence seq = test::decodeBytes({0x32, 0xD7, 0x05, 0xFD, 0xC7, 0x34, 0x01, 0x94, 1, 2, 3, 4, 0xE4});
    const CommandSheet block = parseCommandSheet("Field,1,Defender,List\r\nValue,1,0,RE\r\nValue,1,1,NT\r\n");
    CommandPanelView v = describeCommand(seq, 0, &block);
    EXPECT_TRUE(v.dataSlots[0].shown && v.dataSlots[0].list);
    EXPECT_EQ(v.dataSlots[0].label, "Defender:");
    EXPECT_EQ(v.dataSlots[0].items, (std::vector<std::string>{"RE", "NT"}));
    EXPECT_EQ(v.dataSlots[0].selected, -1) << "a value beyond the list selects no item";
    EXPECT_EQ(v.dataSlots[0].text, "2");
    EXPECT_EQ(v.dataSlots[0].maxLength, 1) << "a low code's slot A is its nibble";
    EXPECT_FALSE(v.dataSlots[1].shown);

    v = describeCommand(seq, 1, nullptr);
    EXPECT_TRUE(v.dataSlots[0].shown && v.dataSlots[1].shown && !v.dataSlots[2].shown);
    EXPECT_EQ(v.dataSlots[1].text, "FD");
    EXPECT_EQ(v.dataSlots[1].label, "Data B:");
    EXPECT_EQ(v.dataSlots[0].maxLength, 2);
    EXPECT_FALSE(v.dataSlots[0].list);
    EXPECT_EQ(v.notes, kReadsDifferentlyNote) << "the sequence holds a COM pass";

    const CommandSheet branch = parseCommandSheet(
        "Field,1,Target,List\r\nValue,1,0,First\r\nValue,1,1,Second\r\nField,3,Spare,List\r\nValue,3,0,Z\r\n"
        "Info,notes\r\n");
    v = describeCommand(seq, 2, &branch);
    EXPECT_EQ(v.dataSlots[0].selected, -1);
    EXPECT_EQ(describeCommand(test::decodeBytes({0xC7, 0x01, 0x02, 0xE4}), 0, &branch).dataSlots[0].selected, 1);
    EXPECT_TRUE(v.dataSlots[2].list && !v.dataSlots[2].shown) << "a list the command has no value for";
    EXPECT_EQ(v.dataSlots[2].selected, 0);
    EXPECT_EQ(v.notes, std::string(kReadsDifferentlyNote) + "\n\nnotes");

    v = describeCommand(seq, 3, &branch);  // COM pass: five values, slots A-D and one more
    EXPECT_EQ(v.dataSlots[3].text, "3");
    EXPECT_EQ(v.notes, std::string(kReadsDifferentlyNote) + "\n\nFurther data, shown here only (not editable): E=4\n\nnotes");
    EXPECT_EQ(describeCommand(test::decodeBytes({0xD7, 1, 2, 0xE4}), 0, nullptr).notes, "");
}

}  // namespace
}  // namespace zpe
