// The game's reading of the sequence area: command lengths and successors,
// the byte map, and what Full Save would break.
#include "analysis/area_map.h"
#include "support/playbook_fixture.h"

#include <gtest/gtest.h>

namespace zpe {
namespace {

using test::DataDir;
using test::ImageBuilder;
using Bytes = std::vector<uint8_t>;

// The area with `bytes` at `address`, the rest 0xFF.
std::vector<uint8_t> areaWith(int32_t address, const Bytes& bytes) {
    std::vector<uint8_t> area(kSequenceAreaSize, 0xFF);
    std::copy(bytes.begin(), bytes.end(), area.begin() + (address - kSequenceAreaAddress));
    return area;
}

TEST(GameCommand, LengthsAndSuccessors) {
    struct Case {
        Bytes bytes;  // at 0xA010
        int32_t length;
        bool fallsThrough;
        int32_t target;
        bool addressField;
    };
    const std::vector<Case> cases{
        {{0x93, 0x41, 0x52, 0x63, 0xF4, 0x34, 0xB2}, 7, true, 0xB234, true},  // COM pass: N+4, address last
        {{0x27, 0x20, 0xA1}, 3, true, 0xA120, true},                          // random branch, any nibble
        {{0xC7, 0x00, 0xB0}, 3, true, 0xB000, true},
        {{0xC8, 0x00, 0xB0, 0x05}, 4, true, 0xB000, true},
        {{0xCA, 0x00, 0xB0}, 3, true, 0xB000, true},
        {{0xFE, 0x05}, 2, false, 0xA015, false},
        {{0xFE, 0xFC}, 2, false, 0xA00C, false},  // loop back
        {{0xFF, 0x34, 0x12}, 3, false, 0x1234, false},
        {{0xE4}, 1, true, -1, false},  // human control: the computer goes on
        {{0xD3}, 1, true, -1, false},
        {{0xEA}, 1, true, -1, false},
        {{0xC4, 0x10}, 2, false, -1, false},
        {{0xC2}, 1, false, -1, false},  // lock-ups end the path
        {{0xF1}, 1, false, -1, false},
        {{0xF8, 0, 0}, 3, false, -1, false},
        {{0xE7}, 1, true, -1, false},  // a blocked kick returns to the script
        {{0xD7, 1, 2}, 3, true, -1, false},
    };
    for (const Case& c : cases) {
        const auto area = areaWith(0xA010, c.bytes);
        GameCommand g;
        ASSERT_TRUE(readGameCommand(area, 0xA010, g)) << hex2(c.bytes[0]);
        EXPECT_EQ(g.length, c.length) << hex2(c.bytes[0]);
        EXPECT_EQ(g.fallsThrough, c.fallsThrough) << hex2(c.bytes[0]);
        EXPECT_EQ(g.target, c.target) << hex2(c.bytes[0]);
        EXPECT_EQ(g.addressField, c.addressField) << hex2(c.bytes[0]);
    }
    GameCommand g;
    EXPECT_FALSE(readGameCommand(areaWith(0xBFFE, {0xC1, 1}), 0xBFFE, g)) << "crosses the end of the area";
    EXPECT_FALSE(readGameCommand(areaWith(0xA000, {}), 0x9FFF, g));
}

// Editor sequences at A000 (human control, then computer logic), A010 (a
// branch into the middle of A020's move, and a COM pass the game reads
// longer), A040 (jumps to itself) and A050 (a branch to BFFB, from where the
// game runs off the end). A030 FF FF FF is no editor sequence, nor is the
// builder's BFFD, where every other table entry points.
ImageBuilder mappedImage() {
    return ImageBuilder()
        .bytesAt(0xA000, {0x30, 0xE4, 0xDF, 0xFE, 0xFF})  // game: 30 E4 DF, FE loops to DF
        .bytesAt(0xA010, {0xC7, 0x21, 0xA0, 0x92, 0x11, 0x22, 0x33, 0x50, 0xA0, 0xE4})
        .bytesAt(0xA020, {0xD7, 0x01, 0x02, 0xE4})
        .bytesAt(0xA040, {0xFF, 0x40, 0xA0})
        .bytesAt(0xA050, {0xCA, 0xFB, 0xBF, 0xE4})
        .bytesAt(0xBFFB, {0xD7})  // D7 FF FF, then FF at BFFE crosses the end
        .pointer(0, 0xA000)
        .pointer(1, 0xA010)
        .pointer(2, 0xA030)
        .pointer(3, 0x8123)  // outside the area
        .pointer(4, 0xA040)
        .play(0, {0xA020, 0xA000})  // A000 reached twice
        .formation(4, {0xA050});
}

TEST(AreaMap, MarksEditorGameAndFreeBytesAndWhatFullSaveBreaks) {
    DataDir data;
    auto o = test::openBuilt(mappedImage(), data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    const AreaMap map = buildAreaMap(o.pb);
    auto use = [&](int32_t a) { return map.use[static_cast<size_t>(a - kSequenceAreaAddress)]; };

    EXPECT_EQ(use(0xA001), kUseEditor | kUseGame);
    EXPECT_EQ(use(0xA002), kUseGame) << "the computer's logic after human control";
    EXPECT_EQ(use(0xA005), 0);
    EXPECT_EQ(use(0xA018), kUseEditor | kUseGame) << "the COM pass's address, read as commands by the editor";
    EXPECT_EQ(use(0xA021), kUseEditor | kUseGame);
    EXPECT_EQ(use(0xA030), kUseGame) << "a stranded entry's FF FF FF is run, not decoded";
    EXPECT_EQ(use(0xBFFF), kUseGame);

    EXPECT_EQ(map.editorBytes(), 2 + 10 + 4 + 3 + 4);
    // After A000's, A019's, A023's and A053's E4; A030; BFFB-BFFF.
    EXPECT_EQ(map.gameOnlyBytes(), 3 + 3 + 3 + 3 + 3 + 5);
    EXPECT_EQ(map.gameBytes(), map.editorBytes() + map.gameOnlyBytes());
    EXPECT_EQ(map.freeBytes(), kSequenceAreaSize - map.gameBytes());
    EXPECT_EQ(map.freeRuns().back().start, 0xA057);
    EXPECT_EQ(map.freeRuns().back().end, 0xBFFA);

    EXPECT_EQ(map.runsOff, (std::vector<int32_t>{0xBFFE}));
    ASSERT_EQ(map.outside.size(), 1u);
    EXPECT_EQ(map.outside[0].name(), "pointer 3");
    ASSERT_GE(map.stranded.size(), 2u);
    EXPECT_EQ(map.stranded[0].name() + " " + sequenceKeyText(map.stranded[0].target), "pointer 2 A030");
    EXPECT_EQ(map.stranded[1].name() + " " + sequenceKeyText(map.stranded[1].target), "pointer 5 BFFD");
    EXPECT_EQ(map.stranded.back().name(), "formation 21 RT") << "pointers, then plays, then formations";
    // The branch into A021 reads 01 02 as a man cover, then E4.
    EXPECT_TRUE(std::binary_search(map.commands.begin(), map.commands.end(), 0xA021));
    std::vector<std::string> stale;
    for (const AddressField& f : map.staleFields()) stale.push_back(hex4(f.at) + " " + hex2(f.code) + " " + hex4(f.target));
    EXPECT_EQ(stale, (std::vector<std::string>{"A010 C7 A021", "A013 92 A050", "A050 CA BFFB"}));
    EXPECT_EQ(map.readsDifferently, (std::vector<int32_t>{0xA010}));
    EXPECT_TRUE(map.lockUps.empty());
}

TEST(AreaMap, ChainsCoveringTheWholeAreaAreWalkedWithoutRecursion) {
    // 8192 bytes of three-byte moves in one run, then the last bytes jump back to the start.
    ImageBuilder b;
    Bytes bytes;
    while (bytes.size() + 3 < kSequenceAreaSize - 3) bytes.insert(bytes.end(), {0xD7, 0x01, 0x01});
    while (bytes.size() < kSequenceAreaSize - 3) bytes.push_back(0x30);
    bytes.insert(bytes.end(), {0xFF, 0x00, 0xA0});
    b.bytesAt(0xA000, bytes).pointer(0, 0xA000);
    DataDir data;
    auto o = test::openBuilt(b, data);
    ASSERT_TRUE(o.result.ok) << o.result.error;
    const AreaMap map = buildAreaMap(o.pb);
    EXPECT_EQ(map.gameBytes(), kSequenceAreaSize);
    EXPECT_EQ(map.editorBytes(), kSequenceAreaSize);
    EXPECT_EQ(map.freeBytes(), 0);
    EXPECT_TRUE(map.runsOff.empty());
}

}  // namespace
}  // namespace zpe
