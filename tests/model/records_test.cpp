#include "model/play_slot.h"
#include "model/records.h"
#include "support/image_builder.h"

#include <gtest/gtest.h>

namespace zpe {
namespace {

using test::ImageBuilder;

TEST(FormationAndPlayRecords, LoadElevenWordsFromTheirTables) {
    Image img = ImageBuilder()
                    .formation(1, {0xA000, 0xA001, 0xA002, 0xA003, 0xA004, 0xA005, 0xA006, 0xA007, 0xA008, 0xA009, 0xA00A})
                    .play(2, {0xB000, 0xFFFF})
                    .image();
    clsFormation f;
    img.seekOffset(kFormationTableOffset + 22);
    f.load(img);
    EXPECT_EQ(img.position(), 0x4010 + 44) << "a formation record is 22 bytes";
    for (int i = 0; i < 11; ++i) EXPECT_EQ(f.posAddress(i), SeqKey::at(0xA000 + i));

    clsPlay p;
    img.seekOffset(kPlayTableOffset + 2 * 22);
    p.load(img);
    EXPECT_EQ(p.seqAddress(0), 0xB000_seq);
    EXPECT_EQ(p.seqAddress(1), SeqKey::at(65535)) << "FF FF is 65535, not -1";
}

TEST(FormationAndPlayRecords, SaveClampsAndRoundTrips) {
    clsPlay p;
    p.seqAddress(0, SeqKey::at(70000));
    p.seqAddress(1, SeqKey::at(-1));
    p.seqAddress(2, 0xFFFF_seq);
    p.seqAddress(10, 0xA123_seq);
    Image img("mem", std::vector<uint8_t>(22, 0x55));
    p.save(img);
    EXPECT_EQ(img.position(), 22);
    const auto& b = img.bytes();
    EXPECT_EQ(std::vector<uint8_t>(b.begin(), b.begin() + 6), (std::vector<uint8_t>{0xFF, 0xFF, 0, 0, 0xFF, 0xFF}));
    EXPECT_EQ(b[20], 0x23);
    EXPECT_EQ(b[21], 0xA1);

    // A sequence made in the editor has no address: writing it is a fault, never a number.
    p.seqAddress(3, SeqKey::made(0));
    EXPECT_THROW(p.save(img), std::logic_error);
}

TEST(PlaySlotRecord, SettersKeepValuesStorable) {
    clsPlaySlot s;
    s.oPlay(3, 300);
    EXPECT_EQ(s.oPlay(3), 255);
    s.oPlay(3, -4);
    EXPECT_EQ(s.oPlay(3), 0);
    EXPECT_THROW(s.oPlay(8, 1), std::out_of_range);
    EXPECT_THROW(s.GFX(42), std::out_of_range);
    s.formation(999);
    EXPECT_EQ(s.formation(), 255);
    for (auto [in, out] : std::vector<std::pair<int, int>>{{5, 4}, {1, 0}, {12, 8}, {7, 6}, {-3, 0}, {8, 8}}) {
        s.Rusher(in);
        EXPECT_EQ(s.Rusher(), out) << in;
    }
}

TEST(PlaySlotRecord, NameIsTrimmedThenCut) {
    clsPlaySlot s;
    // Two spaces, 19 characters whose 15th is a space, two spaces.
    s.name("  ABCDEFGHIJKLMN OPQR  ");
    EXPECT_EQ(s.name(), "ABCDEFGHIJKLMN ") << "the cut after the trim may leave a trailing space";
    s.name("   ");
    EXPECT_EQ(s.name(), "");
}

TEST(PlaySlotRecord, RecordsLoadAndSaveAtTheirOffsets) {
    Image img = ImageBuilder()
                    .slot(1, {" RUN LEFT", 7, {1, 2, 3, 4, 5, 6, 7, 0x1A}, {9, 8, 7, 6, 5, 4, 3, 2}})
                    .gfx(1, std::vector<uint8_t>(42, 0x33))
                    .image();
    EXPECT_EQ(kOffSlotTableOffset + 24, 0x1D428);
    clsPlaySlot s;
    img.seekOffset(kOffSlotTableOffset + 24);
    s.loadOff(img);
    EXPECT_EQ(img.position(), 0x1D428 + 24);
    EXPECT_EQ(s.name(), "RUN LEFT");
    EXPECT_EQ(s.formation(), 7);
    EXPECT_EQ(s.oPlay(7), 0x1A);
    img.seekOffset(kDefSlotTableOffset + 8);
    s.loadDef(img);
    EXPECT_EQ(s.dPlay(0), 9);
    img.seekOffset(kGfxTableOffset + 42);
    s.loadGFX(img);
    EXPECT_EQ(s.GFX(41), 0x33);

    Image out("mem", std::vector<uint8_t>{});
    s.saveOff(out);
    s.saveDef(out);
    s.saveGFX(out);
    ASSERT_EQ(out.size(), 24 + 8 + 42);
    const std::string record(out.bytes().begin(), out.bytes().begin() + 24);
    EXPECT_EQ(record.substr(0, 15), "RUN LEFT       ") << "name left-justified, padded with spaces";
    EXPECT_EQ(out.bytes()[15], 7);
    EXPECT_EQ(out.bytes()[16], 1);
    EXPECT_EQ(out.bytes()[23], 0x1A);
    EXPECT_EQ(out.bytes()[24], 9);
    EXPECT_EQ(out.bytes()[24 + 8 + 41], 0x33);
}

// A sequence made in the editor is known by a number of its own, never by an
// address: no address, however large, names it, and it has no address to write.
TEST(SequenceKeys, AMadeKeyIsNeverAnAddress) {
    const SeqKey made = SeqKey::made(0);
    for (const int32_t a : {0, 0xA000, 0xFFFF, 0x10000, 70000})
        EXPECT_NE(made, SeqKey::at(a)) << a;
    EXPECT_TRUE(made.isNew());
    EXPECT_FALSE(SeqKey::at(0x10000).isNew()) << "a large number is still an address";
    EXPECT_THROW((void)made.address(), std::logic_error);
    EXPECT_THROW((void)SeqKey::at(0xA000).madeNumber(), std::logic_error);
    // Addresses sort first, then what was made, in the order it was made.
    EXPECT_LT(SeqKey::at(0xFFFF), made);
    EXPECT_LT(made, made.next());
    EXPECT_EQ(made.next(), SeqKey::made(1));
    EXPECT_TRUE(SeqKey::none().isNone());
    EXPECT_EQ(SeqKey::none(), SeqKey::at(kNoSequence));
}

}  // namespace
}  // namespace zpe
