#include "diagram/diagram.h"
#include "model/tables.h"
#include "support/sequence_bytes.h"

#include <gtest/gtest.h>

#include <sstream>

namespace zpe {
namespace {

using Bytes = std::vector<uint8_t>;

// Records every primitive as text: "L x1 y1 x2 y2 colour", "R ...", "F ...", "C colour".
class RecordingCanvas : public Canvas {
public:
    RecordingCanvas(int w = 329, int h = 217) : w_(w), h_(h) {}
    void clear(uint32_t c) override { add("C", {}, c); }
    void line(int x1, int y1, int x2, int y2, uint32_t c) override { add("L", {x1, y1, x2, y2}, c); }
    void rect(int x1, int y1, int x2, int y2, uint32_t c) override { add("R", {x1, y1, x2, y2}, c); }
    void fillRect(int x1, int y1, int x2, int y2, uint32_t c) override { add("F", {x1, y1, x2, y2}, c); }
    int width() const override { return w_; }
    int height() const override { return h_; }
    std::vector<std::string> ops;

private:
    void add(const char* kind, std::vector<int> v, uint32_t c) {
        std::ostringstream s;
        s << kind;
        for (int n : v) s << ' ' << n;
        s << ' ' << std::hex << c;
        ops.push_back(s.str());
    }
    int w_, h_;
};

std::string L(int x1, int y1, int x2, int y2, uint32_t c) {
    std::ostringstream s;
    s << "L " << x1 << ' ' << y1 << ' ' << x2 << ' ' << y2 << ' ' << std::hex << c;
    return s.str();
}
std::string R(const char* k, int x, int y, uint32_t c) {
    std::ostringstream s;
    s << k << ' ' << x - 4 << ' ' << y - 4 << ' ' << x + 4 << ' ' << y + 4 << ' ' << std::hex << c;
    return s.str();
}

constexpr uint32_t kRed = 0x0000FF;     // QB
constexpr uint32_t kYellow = 0x00FFFF;  // RB
constexpr int kMid = 108;               // 217 / 2 rounded half to even

// A playbook whose formation 0 gives player 0 the position sequence at 0xA000,
// slot 0 uses formation 0 and play 0, and play 0 gives player 0 the sequence
// at 0xB000. Every other player has nothing.
struct Scene {
    Playbook pb;
    Scene() {
        pb.formations.resize(1);
        for (int j = 0; j < 11; ++j) pb.formations[0].posAddress(j, SeqKey::at(0x9000 + j));
        for (auto& play : pb.plays)
            for (int j = 0; j < 11; ++j) play.seqAddress(j, SeqKey::none());
        pb.formations[0].posAddress(0, 0xA000_seq);
        pb.plays[0].seqAddress(0, 0xB000_seq);
    }
    Scene& seq(int32_t address, Bytes bytes) {
        pb.sequences.insert(SeqKey::at(address), test::decodeBytes(bytes, false, address));
        return *this;
    }
    std::vector<std::string> play(int w = 329, int h = 217) {
        RecordingCanvas c(w, h);
        DrawPlay(c, pb, 0);
        return c.ops;
    }
    std::vector<std::string> formation(std::vector<int>* missing = nullptr, int w = 137, int h = 217) {
        RecordingCanvas c(w, h);
        auto m = drawFormation(c, pb, 0);
        if (missing) *missing = m;
        return c.ops;
    }
};

const std::vector<std::string> kFieldAndLine{"C 8000", L(104, 0, 104, 217, 0xFFFFFF)};

std::vector<std::string> field(std::vector<std::string> rest) {
    std::vector<std::string> all = kFieldAndLine;
    all.insert(all.end(), rest.begin(), rest.end());
    return all;
}

TEST(PlayDiagram, PlacementMoveAndBlockMark) {
    Scene s;
    s.seq(0xA000, {0xD0, 0xF0, 0x08, 0xEE}).seq(0xB000, {0xD7, 0x00, 0xF8, 0x33, 0xE4});
    EXPECT_EQ(s.play(), field({R("R", 100, kMid, kRed), R("F", 100, kMid, kRed), L(92, kMid, 100, kMid, kRed),
                               L(92, kMid, 100, kMid, kRed), L(100, kMid - 4, 100, kMid + 4, kRed)}));
}

struct PointCase {
    Bytes placement;     // the position sequence (ends with EE)
    int x, y;            // where it places the player (y relative to mid)
};

class PlacementTest : public ::testing::TestWithParam<PointCase> {};

TEST_P(PlacementTest, WrapRulesAtTheirEdges) {
    Scene s;
    s.seq(0xA000, GetParam().placement);
    const auto ops = s.play();
    ASSERT_GE(ops.size(), 3u);
    EXPECT_EQ(ops[2], R("R", GetParam().x, kMid + GetParam().y, kRed));
}

INSTANTIATE_TEST_SUITE_P(
    Edges, PlacementTest,
    ::testing::Values(PointCase{{0xD0, 240, 8, 0xEE}, 100, 0}, PointCase{{0xD0, 150, 8, 0xEE}, 100, -90},
                      PointCase{{0xD0, 149, 8, 0xEE}, 100, 165}, PointCase{{0xD0, 16, 8, 0xEE}, 100, 32},
                      PointCase{{0xD1, 32, 8, 0xEE}, 100, -90}, PointCase{{0xD1, 31, 8, 0xEE}, 100, 174},
                      PointCase{{0xD0, 240, 0x12, 0xEE}, 90, 0}, PointCase{{0xD0, 240, 0, 0xEE}, 108, 0}),
    [](const auto& info) {
        const Bytes& b = info.param.placement;
        return hex2(b[0]) + "_" + hex2(b[1]) + "_" + hex2(b[2]);
    });

TEST(PlayDiagram, MoveToCommandsUseTheDepthRule) {
    struct Case {
        Bytes move;
        int x, y;
    };
    for (const Case& c : {Case{{0xD8, 240, 16}, 116, 0}, Case{{0xD8, 240, 248}, 100, 0}, Case{{0xD8, 240, 128}, -20, 0},
                          Case{{0xD8, 0, 0}, 100, 16}, Case{{0xD9, 0, 0}, 100, -122}, Case{{0xD9, 200, 0}, 100, 78}}) {
        Scene s;
        Bytes bytes{0xD0, 240, 8};
        bytes.insert(bytes.end(), c.move.begin(), c.move.end());
        bytes.push_back(0xE4);
        s.seq(0xA000, bytes);
        const auto ops = s.play();
        ASSERT_GE(ops.size(), 4u);
        EXPECT_EQ(ops[3], L(c.x, kMid + c.y, 100, kMid, kRed)) << int(c.move[0]) << " " << int(c.move[2]);
    }
}

TEST(PlayDiagram, RelativeMovesTakeSignedBytes) {
    Scene s;
    s.seq(0xA000, {0xD0, 240, 8, 0xD7, 0xFB, 0x03, 0xC0, 0x05, 0x80, 0xE4});
    const auto ops = s.play();
    ASSERT_EQ(ops.size(), 6u);
    EXPECT_EQ(ops[3], L(103, kMid - 5, 100, kMid, kRed)) << "5 up, 3 right";
    EXPECT_EQ(ops[4], L(103 - 128, kMid, 103, kMid - 5, kRed)) << "0xC0 moves in the play diagram";
    EXPECT_EQ(ops[5], R("F", -25, kMid, kRed)) << "the end-of-formation square where the pen stands";
}

TEST(PlayDiagram, PenCarriesOverToTheNextPlayer) {
    Scene s;
    s.pb.formations[0].posAddress(1, 0xA010_seq);
    s.seq(0xA000, {0xD0, 240, 8, 0xD7, 0x00, 0x10, 0xEE}).seq(0xA010, {0xD7, 0x04, 0x00, 0xEC});
    const auto ops = s.play();
    // Player 1 has no placement: his move starts where player 0 stopped.
    EXPECT_EQ(ops.back(), R("F", 116, kMid + 4, kYellow));
    EXPECT_EQ(ops[ops.size() - 2], L(116, kMid + 4, 116, kMid, kYellow));
}

TEST(PlayDiagram, WalksFollowOnsOnceAndEndCycles) {
    // Formation phase: A000 -> A010 -> A000 would go round; it ends, then the play is drawn.
    Scene s;
    s.seq(0xA000, {0xD0, 240, 8, 0xFF, 0x10, 0xA0})
        .seq(0xA010, {0xD7, 0, 1, 0xFF, 0x00, 0xA0})
        .seq(0xB000, {0xD7, 0, 2, 0xFE, 0x00});  // continues into itself
    const auto ops = s.play();
    EXPECT_EQ(ops, field({R("R", 100, kMid, kRed), R("F", 100, kMid, kRed), L(101, kMid, 100, kMid, kRed),
                          R("F", 101, kMid, kRed), L(103, kMid, 101, kMid, kRed)}));
}

TEST(PlayDiagram, OutOfRangeSlotsDrawWhatTheyCan) {
    Scene s;
    s.seq(0xA000, {0xD0, 240, 8, 0xEE}).seq(0xB000, {0xD7, 0, 2, 0xE4});
    s.pb.playSlots[0].oPlay(0, 200);
    EXPECT_EQ(s.play(), field({R("R", 100, kMid, kRed), R("F", 100, kMid, kRed)})) << "formation alone";
    s.pb.playSlots[0].formation(5);
    EXPECT_EQ(s.play(), kFieldAndLine) << "only the line of scrimmage";
    RecordingCanvas c;
    DrawPlay(c, s.pb, 64);
    EXPECT_EQ(c.ops, kFieldAndLine);
}

TEST(PlayDiagram, PlayerWithoutPositionSequenceGetsNoPlayPath) {
    Scene s;
    s.seq(0xB000, {0xD0, 240, 8, 0xE4});
    EXPECT_EQ(s.play(), kFieldAndLine);
}

TEST(FormationDiagram, RightAlignedWithEndSquareOnlyAfterAMove) {
    Scene s;
    s.pb.formations[0].posAddress(1, 0xA010_seq);
    s.seq(0xA000, {0xD0, 240, 8, 0x33, 0xC0, 1, 1, 0xEE})  // block and 0xC0 are not drawn
        .seq(0xA010, {0xD0, 0xF8, 8, 0xED, 0x10, 0xD7, 0x08, 0x00, 0xD9, 0, 0, 0xEC});
    std::vector<int> missing;
    const auto ops = s.formation(&missing);
    const int anchor = 137 - 20;
    EXPECT_EQ(ops, (std::vector<std::string>{"C 8000", L(anchor + 4, 0, anchor + 4, 217, 0xFFFFFF),
                                             R("F", anchor, kMid, kRed), R("F", anchor, kMid + 8, kYellow),
                                             L(anchor, kMid + 16, anchor, kMid + 8, kYellow),
                                             L(anchor, kMid - 120, anchor, kMid + 16, kYellow),
                                             R("R", anchor, kMid - 120, kYellow)}));
    EXPECT_EQ(missing, (std::vector<int>{2, 3, 4, 5, 6, 7, 8, 9, 10}));
}

TEST(FormationDiagram, FollowOnsAreNotFollowedAndBadIndexesDrawNothing) {
    Scene s;
    s.seq(0xA000, {0xD0, 240, 8, 0xFF, 0x10, 0xA0}).seq(0xA010, {0xD7, 0, 5, 0xE4});
    const auto ops = s.formation();
    EXPECT_EQ(ops.size(), 3u);
    RecordingCanvas c(137, 217);
    EXPECT_TRUE(drawFormation(c, s.pb, 3).empty());
    EXPECT_EQ(c.ops.size(), 2u);
}

// The points of a play and the inverse of the drawing: every data value a
// drawing command takes maps to a pixel and back to itself (or to an
// encoding of the same pixel closer to the old value).
TEST(PlayPoints, FormationThenPlayChainWithTheCommandsThatComputedThem) {
    Scene s;
    s.seq(0xA000, {0xD0, 240, 8, 0xD7, 0xFB, 0x03, 0xEE}).seq(0xB000, {0xD7, 0x10, 0x00, 0xFE, 0x02}).seq(0xB005, {0xD8, 240, 16, 0xE4});
    const auto points = playPoints(s.pb, 0, 0);
    ASSERT_EQ(points.size(), 11u);
    EXPECT_EQ(points[0], (std::vector<DiagramPoint>{{100, kMid, 0xA000_seq, 0}, {103, kMid - 5, 0xA000_seq, 1}, {103, kMid + 11, 0xB000_seq, 0},
                                                    {116, kMid, 0xB005_seq, 0}}));
    EXPECT_TRUE(points[1].empty());
    // A relative point moved: the relative point after it follows by the same step, a move to a spot stays.
    const auto data = dataForPoint(0xD7, 100, kMid, 106, kMid - 9, 0xFB, 0x03);
    ASSERT_TRUE(data);
    clsSequence& first = s.pb.sequences.at(0xA000_seq);
    first.data(1, 0, static_cast<int16_t>(data->first));
    first.data(1, 1, static_cast<int16_t>(data->second));
    const auto moved = playPoints(s.pb, 0, 0)[0];
    EXPECT_EQ(moved[1], (DiagramPoint{106, kMid - 9, 0xA000_seq, 1}));
    EXPECT_EQ(moved[2], (DiagramPoint{106, kMid + 7, 0xB000_seq, 0}));
    EXPECT_EQ(moved[3], points[0][3]);
}

TEST(PlayPoints, EveryValueOfEveryDrawingCommandComesBack) {
    for (const int code : {0xD0, 0xD1, 0xD7, 0xC0, 0xD8, 0xD9}) {
        for (int a = 0; a < 256; ++a)
            for (const int b : {0, 7, 8, 127, 128, 200, 248, 255}) {
                Scene s;
                s.seq(0xA000, {0xD0, 240, 8, static_cast<uint8_t>(code), static_cast<uint8_t>(a), static_cast<uint8_t>(b), 0xE4});
                const DiagramPoint pt = playPoints(s.pb, 0, 0)[0][1];
                const auto data = dataForPoint(code, 100, kMid, pt.x, pt.y, a, b);
                ASSERT_TRUE(data) << code << " " << a << " " << b;
                // The same pixel, and the old values themselves when they reach it.
                EXPECT_EQ(data->first, a) << code << " " << a;
                EXPECT_EQ(data->second, b) << code << " " << b;
            }
    }
    // Two encodings of one pixel (the depth rule: 0x00 and 0xF8 both stand on the line): the one closer to the old value.
    EXPECT_EQ(dataForPoint(0xD8, 0, 0, 100, kMid, 240, 250)->second, 248);
    EXPECT_EQ(dataForPoint(0xD8, 0, 0, 100, kMid, 240, 3)->second, 0);
    // Out of reach: a relative move steps at most 127 pixels, D1 never lands 134..142 below the middle.
    DiagramPoint nearest;
    EXPECT_FALSE(dataForPoint(0xD7, 100, kMid, 300, kMid, 0, 0, &nearest));
    EXPECT_EQ(nearest, (DiagramPoint{227, kMid, {}, 0}));
    EXPECT_FALSE(dataForPoint(0xD1, 0, 0, 100, kMid + 138, 0, 8, &nearest));
    EXPECT_TRUE(nearest.y == kMid + 133 || nearest.y == kMid + 143) << nearest.y;
    EXPECT_FALSE(dataForPoint(0xEE, 0, 0, 1, 1, 0, 0)) << "a command that draws no point";
}

}  // namespace
}  // namespace zpe
