#include "model/file_io.h"
#include "model/rom_error.h"
#include "playbook/slot_actions.h"
#include "save/saves.h"
#include "support/playbook_fixture.h"
#include "support/sequence_bytes.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace zpe {
namespace {

using test::DataDir;
using test::ImageBuilder;
using test::openBuilt;
using Bytes = std::vector<uint8_t>;

Bytes slice(const Bytes& b, int32_t offset, int32_t count) {
    return Bytes(b.begin() + offset, b.begin() + offset + count);
}

// Bytes outside [from, to) of two images are equal.
void expectSameOutside(const Bytes& a, const Bytes& b, const std::vector<std::pair<int32_t, int32_t>>& changed) {
    ASSERT_EQ(a.size(), b.size());
    for (size_t i = 0; i < a.size(); ++i) {
        bool inside = false;
        for (auto [from, to] : changed) inside = inside || (static_cast<int32_t>(i) >= from && static_cast<int32_t>(i) < to);
        if (!inside && a[i] != b[i]) {
            ADD_FAILURE() << "byte at offset 0x" << std::hex << i << " changed";
            return;
        }
    }
}

ImageBuilder playbookImage() {
    return ImageBuilder()
        .bytesAt(0xA3F0, {0xD7, 1, 2, 0xD7, 3, 4, 0x30, 0xFE, 0x2C})  // 9 bytes, FE at A3F7 -> A423
        .bytesAt(0xA100, {0x20, 0x00, 0xB0, 0xD7, 1, 1, 0xD7, 2, 2, 0xD7, 3, 3, 0x30, 0xE4})  // 14 bytes
        .bytesAt(0xA423, {0xD7, 5, 5, 0xE4, 0x00, 0x00})                                          // 4 bytes + gap
        .bytesAt(0xA500, {0xC4, 0x10})
        .formation(4, {0xA3F0})
        .pointer(0, 0xA100)
        .pointer(1, 0xA500)
        .play(0, {0xA100, 0xFFFF, 0xA100})
        .slot(0, {"  LEADING", 4})
        .rusher(0, 7)
        .rusher(1, 9);
}

TEST(SafeSave, WritesOnlyTheSlotTablesWithTheirNormalisations) {
    DataDir data;
    auto o = openBuilt(playbookImage(), data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    const Bytes before = o.file.read();
    safeSave(o.pb);
    const Bytes after = o.file.read();
    EXPECT_EQ(after.size(), before.size());
    EXPECT_EQ(slice(after, kOffSlotTableOffset, 15), Bytes({'L', 'E', 'A', 'D', 'I', 'N', 'G', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '}));
    EXPECT_EQ(after[kRusherTableOffset], 6);
    EXPECT_EQ(after[kRusherTableOffset + 1], 8);
    expectSameOutside(before, after, {{kOffSlotTableOffset, kOffSlotTableOffset + 15},
                                      {kRusherTableOffset, kRusherTableOffset + 2}});
}

TEST(SafeSave, RefusesWithoutACompleteOpenAndOnReadOnlyImages) {
    Playbook never;
    EXPECT_THROW(safeSave(never), SaveError);

    DataDir data;
    // What the window holds after a failed open of another file: its path, no complete open.
    const auto other = ImageBuilder().write();
    const Bytes otherBefore = other.read();
    Playbook failed;
    failed.romPath = other.path();
    EXPECT_THROW(safeSave(failed), SaveError);
    EXPECT_THROW(fullSave(failed), SaveError);
    EXPECT_EQ(other.read(), otherBefore);

    auto ro = openBuilt(playbookImage(), data);
    const Bytes roBefore = ro.file.read();
    ::chmod(ro.file.path().c_str(), 0444);
    ro.pb.playSlots[0].name("CHANGED");
    EXPECT_THROW(safeSave(ro.pb), RomError);
    const auto keysBefore = ro.pb.sequences.keys();
    EXPECT_THROW(fullSave(ro.pb), RomError);
    EXPECT_EQ(ro.pb.sequences.keys(), keysBefore) << "a failed Full Save leaves the model as it was";
    EXPECT_EQ(ro.file.read(), roBefore);
}

TEST(FullSave, RelaysInDictionaryOrderAndRelinks) {
    DataDir data;
    auto o = openBuilt(playbookImage(), data);
    ASSERT_TRUE(o.result.ok);
    ASSERT_EQ(o.pb.sequences.keys(), (std::vector<SeqKey>{0xA3F0_seq, 0xA423_seq, 0xA100_seq, 0xA500_seq}));
    const Bytes before = o.file.read();
    fullSave(o.pb);
    const Bytes after = o.file.read();

    EXPECT_EQ(o.pb.sequences.keys(), (std::vector<SeqKey>{0xA000_seq, 0xA00A_seq, 0xA00E_seq, 0xA01C_seq}));
    EXPECT_EQ(slice(after, kSequenceAreaOffset, 0x1E),
              (Bytes{0xD7, 1, 2, 0xD7, 3, 4, 0x30, 0xFF, 0x0A, 0xA0,                            // converted jump
                     0xD7, 5, 5, 0xE4,                                                          //
                     0x20, 0x00, 0xB0, 0xD7, 1, 1, 0xD7, 2, 2, 0xD7, 3, 3, 0x30, 0xE4,          // branch target kept
                     0xC4, 0x10}));
    for (int32_t i = kSequenceAreaOffset + 0x1E; i < kSequenceAreaOffset + kSequenceAreaSize; ++i)
        ASSERT_EQ(after[static_cast<size_t>(i)], 0xFF) << std::hex << i;
    EXPECT_EQ(o.pb.formations[4].posAddress(0), 0xA000_seq);
    EXPECT_EQ(o.pb.seqPointers[0], 0xA00E_seq);
    EXPECT_EQ(o.pb.plays[0].seqAddress(0), 0xA00E_seq);
    EXPECT_EQ(o.pb.plays[0].seqAddress(1), 0xFFFF_seq);
    EXPECT_EQ(slice(after, kFormationTableOffset + 4 * 22, 2), (Bytes{0x00, 0xA0}));
    EXPECT_EQ(slice(after, kPlayTableOffset, 6), (Bytes{0x0E, 0xA0, 0xFF, 0xFF, 0x0E, 0xA0}));
    EXPECT_EQ(slice(after, kPointerTableOffset, 6), (Bytes{0x0E, 0xA0, 0x1C, 0xA0, 0xFD, 0xBF})) << "unknown addresses stay";
    expectSameOutside(before, after, {{kSequenceAreaOffset, kSequenceAreaOffset + kSequenceAreaSize},
                                      {kFormationTableOffset, kFormationTableOffset + 46 * 22},
                                      {kPlayTableOffset, kPlayTableOffset + 116 * 22},
                                      {kPointerTableOffset, kPointerTableOffset + 384},
                                      {kOffSlotTableOffset, kOffSlotTableOffset + 15},
                                      {kRusherTableOffset, kRusherTableOffset + 2}});

    // Reopening the saved image finds the same playbook at the new addresses.
    EXPECT_EQ(openRom(o.file.path(), data.path()).sequences.keys(), (std::vector<SeqKey>{0xA000_seq, 0xA00A_seq, 0xA00E_seq, 0xA01C_seq}));
}

TEST(FullSave, WorkedExampleFromThreeSequences) {
    // Keys A3F0, A100, A423 in this order, of 9, 14 and 6 bytes; the first
    // continues into the third through FE 2C at A3F7.
    Playbook pb;
    auto add = [&](int32_t a, Bytes bytes) { pb.sequences.insert(SeqKey::at(a), test::decodeBytes(bytes, false, a)); };
    add(0xA3F0, {0xD7, 1, 2, 0xD7, 3, 4, 0x30, 0xFE, 0x2C});
    add(0xA100, {0x20, 0, 0xB0, 0xD7, 1, 1, 0xD7, 2, 2, 0xD7, 3, 3, 0x30, 0xE4});
    add(0xA423, {0xD7, 5, 5, 0x30, 0x30, 0xE4});
    pb.plays[0].seqAddress(0, 0xA100_seq);
    const Playbook relaid = relayout(pb);
    EXPECT_EQ(relaid.sequences.keys(), (std::vector<SeqKey>{0xA000_seq, 0xA00A_seq, 0xA018_seq}));
    EXPECT_EQ(relaid.sequences.at(0xA000_seq).encode(), (Bytes{0xD7, 1, 2, 0xD7, 3, 4, 0x30, 0xFF, 0x18, 0xA0}));
    EXPECT_EQ(relaid.plays[0].seqAddress(0), 0xA00A_seq);
    EXPECT_EQ(pb.sequences.keys(), (std::vector<SeqKey>{0xA3F0_seq, 0xA100_seq, 0xA423_seq})) << "relayout works on a copy";
}

// The area holds 8192 bytes, counted after every closing forward jump has grown by one.
TEST(FullSave, RefusesALayoutLargerThanTheArea) {
    Bytes almost(8189, 0x30);
    almost.push_back(0xFE);
    almost.push_back(0x02);  // 8191 bytes now, 8192 once converted
    Playbook pb;
    pb.sequences.insert(0xA000_seq, test::decodeBytes(almost));
    EXPECT_NO_THROW(relayout(pb));
    pb.sequences.insert(0xC000_seq, test::decodeBytes({0xE4}, false, 0xC000));
    EXPECT_THROW(relayout(pb), SaveError);

    DataDir data;
    auto o = openBuilt(playbookImage(), data);
    ASSERT_TRUE(o.result.ok);
    Bytes huge(8200, 0x30);
    huge.push_back(0xE4);
    o.pb.sequences.insert(0xC000_seq, test::decodeBytes(huge, false, 0xC000));
    const Bytes before = o.file.read();
    const auto keys = o.pb.sequences.keys();
    try {
        fullSave(o.pb);
        FAIL() << "an oversized layout was saved";
    } catch (const SaveError& e) {
        EXPECT_NE(std::string(e.what()).find("8192"), std::string::npos);
    }
    EXPECT_EQ(o.file.read(), before);
    EXPECT_EQ(o.pb.sequences.keys(), keys);
    EXPECT_EQ(o.pb.sequences.at(0xA3F0_seq).lastCommand(), 0xFE) << "no jump was converted";
}

TEST(ExportMaskRom, RunsAtGameAddressesOverExistingBytes) {
    DataDir data;
    auto o = openBuilt(ImageBuilder().bytesAt(0xA000, Bytes{0xD7, 1, 2, 0xD7, 1, 2, 0xD7, 1, 2, 0x30, 0x30, 0xE4})
                           .pointer(0, 0xA000),
                       data);
    ASSERT_TRUE(o.result.ok);
    test::TempDir out;
    exportMaskRom(o.pb, out.file("mask.nes"));
    const Bytes mask = test::readFileBytes(out.file("mask.nes"));
    ASSERT_EQ(mask.size(), 0xA00Cu);
    EXPECT_EQ(slice(mask, 0, 0xA000), Bytes(0xA000, 0));
    EXPECT_EQ(slice(mask, 0xA000, 12), Bytes(12, 0xFF));

    Bytes existing(0xB000, 0x11);
    EXPECT_EQ(maskBytes(o.pb, existing).size(), 0xB000u) << "a longer file keeps its length";
    const Bytes over = maskBytes(o.pb, existing);
    EXPECT_EQ(over[0x9FFF], 0x11);
    EXPECT_EQ(over[0xA00B], 0xFF);
    EXPECT_EQ(over[0xA00C], 0x11);
    Playbook empty;
    EXPECT_TRUE(maskBytes(empty, {}).empty());
}

}  // namespace
}  // namespace zpe
