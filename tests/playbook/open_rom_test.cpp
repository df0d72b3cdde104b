#include "support/playbook_fixture.h"

#include <gtest/gtest.h>

namespace zpe {
namespace {

using test::DataDir;
using test::ImageBuilder;
using test::openBuilt;

// A small playbook: formation 4 places QB and RB; play 0 uses a shared
// sequence for QB and WR1 and a chain A100 -> A110 for RB.
ImageBuilder smallPlaybook() {
    return ImageBuilder()
        .bytesAt(0xA000, {0xD0, 0xF0, 0x12, 0xEE})        // QB stance
        .bytesAt(0xA004, {0xD0, 0xF0, 0x30, 0xEA})        // RB stance
        .bytesAt(0xA100, {0xD7, 0x00, 0x10, 0xFE, 0x0D})  // -> A110
        .bytesAt(0xA110, {0x30, 0xE4})
        .bytesAt(0xA200, {0xA0, 0xD8, 0xF0, 0x20, 0xE4})
        .formation(4, {0xA000, 0xA004})
        .play(0, {0xA200, 0xA100, 0xFFFF, 0xA200})
        .slot(0, {"DIVE", 4, {0, 1, 2, 3, 4, 5, 6, 0x1A}, {7, 6, 5, 4, 3, 2, 1, 0}});
}

TEST(OpenRom, DiscoversEverySequenceOnceInDiscoveryOrder) {
    DataDir data;
    auto o = openBuilt(smallPlaybook(), data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    EXPECT_TRUE(o.pb.openComplete);
    EXPECT_EQ(o.pb.sequences.keys(), (std::vector<SeqKey>{0xA000_seq, 0xA004_seq, 0xA200_seq, 0xA100_seq, 0xA110_seq}))
        << "formations, then pointers, then plays, each with its chain; shared sequences once";
    EXPECT_EQ(o.pb.formations.size(), 22u);
    EXPECT_EQ(o.pb.formations[4].name(), "FORM 4");
    EXPECT_EQ(o.pb.plays[0].seqAddress(2), 0xFFFF_seq);
    EXPECT_EQ(o.pb.playSlots[0].name(), "DIVE");
    EXPECT_EQ(o.pb.seqPointers[0], SeqKey::at(test::kDeadAddress));
}

TEST(OpenRom, KickFormationsDecodeWithKR) {
    DataDir data;
    auto o = openBuilt(ImageBuilder()
                           .bytesAt(0xA000, {0xEA, 0xD7, 0x01, 0x02, 0xE4})
                           .formation(3, {0xA000})
                           .bytesAt(0xA010, {0xEA, 0xD7, 0x01, 0x02, 0xE4})
                           .formation(4, {0xA010})
                           // Invalid as a kick formation's (the stance goes on into FF FF FF), valid plainly.
                           .bytesAt(0xA030, {0xEA, 0xFF, 0xFF, 0xFF})
                           .formationPlayer(0, 0, 0xA030)
                           .pointer(0, 0xA030),
                       data);
    ASSERT_TRUE(o.result.ok);
    ASSERT_TRUE(o.pb.sequences.contains(0xA030_seq)) << "decoded again in the plain reading";
    EXPECT_EQ(o.pb.sequences.at(0xA030_seq).commandCount(), 1);
    EXPECT_EQ(o.pb.sequences.at(0xA000_seq).commandCount(), 3) << "formation 3 reads past the stance";
    EXPECT_EQ(o.pb.sequences.at(0xA010_seq).commandCount(), 1) << "formation 4 stops at the stance";
}

TEST(OpenRom, ChainsStopAtKnownInvalidOrMissingFollowOns) {
    DataDir data;
    auto o = openBuilt(ImageBuilder()
                           .bytesAt(0xA000, {0xFE, 0x10})           // A000 -> A010
                           .bytesAt(0xA010, {0xFF, 0x00, 0xA0})     // A010 -> A000 (known: stop)
                           .bytesAt(0xA020, {0xFF, 0x30, 0xA0})     // A020 -> A030
                           .bytesAt(0xA030, {0xFF, 0xFF, 0xFF})     // not valid: dropped
                           .pointer(0, 0xA000)
                           .pointer(1, 0xA020),
                       data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    EXPECT_EQ(o.pb.sequences.keys(), (std::vector<SeqKey>{0xA000_seq, 0xA010_seq, 0xA020_seq}));
}

TEST(OpenRom, RowsOfTheFourLists) {
    DataDir data;
    auto o = openBuilt(smallPlaybook().slot(31, {"LAST RUN", 4}).slot(32, {"FIRST PASS", 5}), data);
    ASSERT_TRUE(o.result.ok);
    const ListRows& rows = o.result.rows;
    ASSERT_EQ(rows.formations.size(), 22u);
    EXPECT_EQ(rows.formations[4].cells,
              (std::vector<std::string>{"FORM 4", "A000", "A004", "BFFD", "BFFD", "BFFD", "BFFD", "BFFD", "BFFD", "BFFD",
                                        "BFFD", "BFFD"}));
    ASSERT_EQ(rows.playSlots.size(), 64u);
    EXPECT_EQ(rows.playSlots[0].cells,
              (std::vector<std::string>{"DIVE", "R1", "FORM 4", "00:07", "01:06", "02:05", "03:04", "04:03", "05:02",
                                        "06:01", "1A:00"}));
    EXPECT_EQ(rows.playSlots[31].cells[1] + rows.playSlots[32].cells[1] + rows.playSlots[63].cells[1], "R4P1P4");
    ASSERT_EQ(rows.plays.size(), 116u);
    EXPECT_EQ(rows.plays[115].cells[0], "73");
    EXPECT_EQ(rows.plays[0].cells[3], "FFFF");
    ASSERT_EQ(rows.sequences.size(), 5u);
    EXPECT_EQ(rows.sequences[0], (ListRow{0xA000_seq, {"A000-A003", "D0(F0 12) ; EE; "}}));
    std::vector<std::string> order;
    for (const auto& r : rows.sequences) order.push_back(r.cells[0]);
    EXPECT_EQ(order, (std::vector<std::string>{"A000-A003", "A004-A007", "A100-A104", "A110-A111", "A200-A204"}))
        << "sorted on the Address text, not in discovery order";
}

TEST(OpenRom, FailuresThrowNamingTheFileAndReturnNoPlaybook) {
    struct Case {
        const char* what;
        ImageBuilder image;
        int formations;
        const char* named;  // what the message names
    };
    std::vector<Case> cases;
    cases.push_back({"no valid sequence", ImageBuilder(), 22, ".nes"});
    cases.push_back({"address below 0x1FF0", smallPlaybook().pointer(5, 0x1000), 22, ".nes"});
    cases.push_back({"image too short for the slot tables", smallPlaybook().truncate(0x1C010), 22,
                     ".nes: not an image of the game: too short (114704 bytes; its playbook tables end at byte 163782)"});
    cases.push_back({"neither headed nor headerless", smallPlaybook().truncate(0x1D001), 22,
                     ".nes: not an image of the game: expected a 16-byte header followed by a multiple of 8,192 bytes, or the "
                     "same without the header; found 118,785 bytes and no header"});
    cases.push_back({"slot formation without a name", smallPlaybook(), 3, "forms.txt"});
    cases.push_back({"empty forms.txt", smallPlaybook(), 0, "forms.txt"});
    for (const Case& c : cases) {
        DataDir data(c.formations);
        auto o = openBuilt(c.image, data);
        EXPECT_FALSE(o.result.ok) << c.what;
        EXPECT_NE(o.result.error.find(c.named), std::string::npos) << c.what << ": " << o.result.error;
        EXPECT_TRUE(o.pb.romPath.empty() && o.pb.sequences.empty()) << c.what;
    }
    DataDir data;
    EXPECT_THROW(static_cast<void>(openRom("/nonexistent/game.nes", data.path())), RomError);
    test::TempDir noForms;
    const auto file = smallPlaybook().write();
    try {
        static_cast<void>(openRom(file.path(), noForms.path()));
        ADD_FAILURE() << "opened without forms.txt";
    } catch (const RomError& e) {
        EXPECT_NE(std::string(e.what()).find("forms.txt"), std::string::npos);
    }
}

TEST(GapListing, ListsBytesAfterHumanControlSequences) {
    DataDir data;
    std::vector<uint8_t> gap(16);
    for (size_t i = 0; i < gap.size(); ++i) gap[i] = static_cast<uint8_t>(i + 1);
    auto image = ImageBuilder()
                     .bytesAt(0xA000, {0x30, 0x30, 0x30, 0x30, 0x30, 0x30, 0x30, 0x30, 0x30, 0xE4})  // 10 bytes
                     .bytesAt(0xA00A, gap)
                     .bytesAt(0xA01A, {0x30, 0xEE})  // ends in EE: its gap is not listed
                     .bytesAt(0xA01C, {0x55})
                     .bytesAt(0xA01D, {0xE4})
                     .pointer(0, 0xA000)
                     .pointer(1, 0xA01A)
                     .pointer(2, 0xA01D);
    auto o = openBuilt(image, data);
    ASSERT_TRUE(o.result.ok);
    EXPECT_EQ(gapListing(o.pb), "\r\nA00A: 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 \r\n");

    auto longer = image.bytesAt(0xA01A, {0x77}).bytesAt(0xA01B, {0x30, 0xEE}).pointer(1, 0xA01B);
    auto o2 = openBuilt(longer, data);
    EXPECT_EQ(gapListing(o2.pb),
              "\r\nA00A: 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 \r\nA01A: 77 \r\n");
}

TEST(GapListing, WrittenWhereAsked) {
    DataDir data;
    test::TempDir out;
    auto o = openBuilt(ImageBuilder().bytesAt(0xA000, {0xE4}).bytesAt(0xA001, {1, 2, 3}).bytesAt(0xA004, {0xE4})
                           .pointer(0, 0xA000).pointer(1, 0xA004),
                       data);
    ASSERT_TRUE(o.result.ok);
    writeGapListing(o.pb, out.file("cpu.txt"));
    EXPECT_EQ(test::readFileText(out.file("cpu.txt")), "\r\nA001: 01 02 03 \r\n");
}

}  // namespace
}  // namespace zpe
