#include "diagram/diagram.h"

#include "model/tables.h"
#include "sequence/command_codes.h"

#include <algorithm>
#include <unordered_set>

namespace zpe {

namespace {

enum class Kind { Play, Formation };

// The drawing's scale is one pixel a unit (1/8 yard). These are the bytes and
// offsets at which the game's values meet the picture's middle and line.
constexpr int kBallRow = 240;          // 0xF0: a ball-relative row byte that lies on the ball's row
constexpr int kFieldMiddleRow = 122;   // the absolute field row drawn on the picture's middle row
constexpr int kFieldWrapSpan = 265;    // absolute rows wrap over a span a little wider than a byte
constexpr int kWrapBelow = -90;        // rows further above the middle than this wrap below it
constexpr int kPlacementDepth = 8;     // a placement depth byte of 8 stands on the drawn line
constexpr int kForwardBase = 248;      // forward targets count from 0xF8 (one yard) as the line

// The geometry and the pen of one drawing.
class Drawing {
public:
    Drawing(Canvas& pic, Kind kind, int anchor) : pic_(pic), kind_(kind), anchor_(anchor), mid_(roundedHalf(pic.height())) {}

    void scrimmage() { pic_.line(anchor_ + 4, 0, anchor_ + 4, pic_.height(), kScrimmageColor); }

    // The next player's name, given to the canvas where he is first placed.
    void player(const std::string& name) {
        label_ = name;
        labelled_ = false;
    }

    void commands(const clsSequence& seq, uint32_t color) {
        for (int pos = 0; pos < seq.commandCount(); ++pos) command(seq, pos, color);
    }

    void square(bool filled, uint32_t color) {
        if (filled) pic_.fillRect(x_ - 4, y_ - 4, x_ + 4, y_ + 4, color);
        else pic_.rect(x_ - 4, y_ - 4, x_ + 4, y_ + 4, color);
    }

    bool movedSincePlacement() const { return x_ != startX_ || y_ != startY_; }

private:
    // A vertical byte as pixels from the middle row: `base` is the byte that
    // lies on the middle row; a value more than kWrapBelow rows above it is
    // taken as wrapped round the byte range (`span`) and drawn below instead.
    static int wrap(int a, int base, int span) {
        int v = a - base;
        if (v < kWrapBelow) v += span;
        return v;
    }
    static int signedByte(int v) { return v >= 128 ? v - 256 : v; }
    // A horizontal target byte as pixels in front of (+) or behind (-) the line:
    // bytes from 0x80 on count forward from kForwardBase, smaller ones backward.
    static int depth(int b) { return b >= 128 ? kForwardBase - b : -b; }
    // The pen holds 16-bit values; a run of moves saturates rather than overflow.
    static int pen(long v) { return static_cast<int>(std::clamp<long>(v, -32768, 32767)); }

    void place(long x, long y, uint32_t color) {
        x_ = pen(x);
        y_ = pen(y);
        square(kind_ == Kind::Formation, color);
        if (!labelled_) pic_.label(x_, y_, label_, color);
        labelled_ = true;
        curX_ = startX_ = x_;
        curY_ = startY_ = y_;
    }

    void moveTo(long x, long y, uint32_t color) {
        x_ = pen(x);
        y_ = pen(y);
        pic_.line(x_, y_, curX_, curY_, color);
        curX_ = x_;
        curY_ = y_;
    }

    void command(const clsSequence& seq, int pos, uint32_t color) {
        const int c = seq.command(pos);
        const int a = seq.data(pos, 0), b = seq.data(pos, 1);
        const bool play = kind_ == Kind::Play;
        if (play && (c == cmd::kBlock || c == cmd::kChopBlock)) {
            pic_.line(curX_, curY_, curX_ + 8, curY_, color);
            pic_.line(curX_ + 8, curY_ - 4, curX_ + 8, curY_ + 4, color);
        } else if (c == cmd::kSetPositionBall) {
            place(anchor_ - (b - kPlacementDepth), mid_ + wrap(a, kBallRow, 256), color);
        } else if (c == cmd::kSetPositionField) {
            place(anchor_ - (b - kPlacementDepth), mid_ + wrap(a, kFieldMiddleRow, kFieldWrapSpan), color);
        } else if (c == cmd::kMoveRelative || (play && c == cmd::kDropBack)) {
            moveTo(long{curX_} + signedByte(b), long{curY_} + signedByte(a), color);
        } else if (c == cmd::kMoveToBall) {
            moveTo(anchor_ - depth(b), mid_ + wrap(a, kBallRow, 256), color);
        } else if (c == cmd::kMoveToField) {
            // Formations draw absolute rows two pixels lower than plays do.
            moveTo(anchor_ - depth(b), mid_ + (a - (play ? kFieldMiddleRow : kFieldMiddleRow - 2)), color);
        }
    }

    Canvas& pic_;
    Kind kind_;
    int anchor_;
    int mid_;
    int curX_ = 0, curY_ = 0, startX_ = 0, startY_ = 0, x_ = 0, y_ = 0;
    std::string label_;
    bool labelled_ = true;
};

constexpr int kPlayAnchor = 100;        // x of the line of scrimmage in a play picture (it is drawn 4 px right of it)
constexpr int kFormationMargin = 20;    // the formation picture's line sits this far from its right edge

}  // namespace

int roundedHalf(int value) {
    const int half = value / 2;
    if (value % 2 == 0) return half;
    // value / 2 lies exactly between two integers: take the even one.
    return value > 0 ? (half % 2 == 0 ? half : half + 1) : (half % 2 == 0 ? half : half - 1);
}

void DrawPlay(Canvas& pic, const Playbook& pb, int slotIndex, int playIndex) {
    pic.clear(kFieldColor);
    Drawing drawing(pic, Kind::Play, kPlayAnchor);
    drawing.scrimmage();
    if (slotIndex < 0 || slotIndex >= kSlotCount) return;
    const clsPlaySlot& slot = pb.playSlots[static_cast<size_t>(slotIndex)];
    const auto f = static_cast<size_t>(slot.formation());
    if (f >= pb.formations.size()) return;
    const clsFormation& formation = pb.formations[f];
    const auto p = static_cast<size_t>(slot.oPlay(std::clamp(playIndex, 0, kPlaysPerSlot - 1)));
    const clsPlay* play = p < pb.plays.size() ? &pb.plays[p] : nullptr;

    for (int i = 0; i < kPlayersPerRecord; ++i) {
        const uint32_t color = posColors[static_cast<size_t>(i)];
        drawing.player(std::string(offPosNames[static_cast<size_t>(i)]));
        int32_t address = formation.posAddress(i);
        bool formationPhase = true;
        std::unordered_set<int32_t> walked;
        while (const clsSequence* seq = pb.sequences.find(address)) {
            walked.insert(address);
            drawing.commands(*seq, color);
            if (formationPhase) drawing.square(true, color);
            int32_t next = seq->nextSequence();
            if (walked.count(next) != 0) next = 0;  // continues into itself or an earlier sequence
            address = next;
            if (address == 0 && formationPhase) {
                address = play ? play->seqAddress(i) : 0;
                formationPhase = false;
                walked.clear();
            }
        }
    }
}

std::vector<int> drawFormation(Canvas& pic, const Playbook& pb, int f) {
    pic.clear(kFieldColor);
    Drawing drawing(pic, Kind::Formation, pic.width() - kFormationMargin);
    drawing.scrimmage();
    std::vector<int> missing;
    if (f < 0 || static_cast<size_t>(f) >= pb.formations.size()) return missing;
    const clsFormation& formation = pb.formations[static_cast<size_t>(f)];
    for (int i = 0; i < kPlayersPerRecord; ++i) {
        const clsSequence* seq = pb.sequences.find(formation.posAddress(i));
        if (!seq) {
            missing.push_back(i);
            continue;
        }
        const uint32_t color = posColors[static_cast<size_t>(i)];
        drawing.player(std::string(offPosNames[static_cast<size_t>(i)]));
        drawing.commands(*seq, color);
        if (drawing.movedSincePlacement()) drawing.square(false, color);
    }
    return missing;
}

}  // namespace zpe
