#include "diagram/diagram.h"

#include "model/tables.h"
#include "sequence/command_codes.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
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

// Where a drawing puts things: the line's x (`anchor`) and the middle row.
struct Geometry {
    Kind kind;
    int anchor;
    int mid;
};

// A vertical byte as pixels from the middle row: `base` is the byte that
// lies on the middle row; a value more than kWrapBelow rows above it is
// taken as wrapped round the byte range (`span`) and drawn below instead.
int wrap(int a, int base, int span) {
    int v = a - base;
    if (v < kWrapBelow) v += span;
    return v;
}
int signedByte(int v) { return v >= 128 ? v - 256 : v; }
// A horizontal target byte as pixels in front of (+) or behind (-) the line:
// bytes from 0x80 on count forward from kForwardBase, smaller ones backward.
int depth(int b) { return b >= 128 ? kForwardBase - b : -b; }

// The point a command puts the player at, from its data A and B and the pen
// before it; none for a command that draws no point. Every drawing command's
// x follows from B alone and its y from A alone. (One rule for drawing and
// for moving a point on the diagram.)
std::optional<DiagramPoint> pointOf(const Geometry& g, int code, int a, int b, long penX, long penY) {
    const bool play = g.kind == Kind::Play;
    DiagramPoint pt;
    if (code == cmd::kSetPositionBall) {
        pt.x = g.anchor - (b - kPlacementDepth), pt.y = g.mid + wrap(a, kBallRow, 256);
    } else if (code == cmd::kSetPositionField) {
        pt.x = g.anchor - (b - kPlacementDepth), pt.y = g.mid + wrap(a, kFieldMiddleRow, kFieldWrapSpan);
    } else if (code == cmd::kMoveRelative || (play && code == cmd::kDropBack)) {
        // The pen holds 16-bit values; a run of moves saturates rather than overflow.
        pt.x = static_cast<int>(std::clamp<long>(penX + signedByte(b), -32768, 32767));
        pt.y = static_cast<int>(std::clamp<long>(penY + signedByte(a), -32768, 32767));
    } else if (code == cmd::kMoveToBall) {
        pt.x = g.anchor - depth(b), pt.y = g.mid + wrap(a, kBallRow, 256);
    } else if (code == cmd::kMoveToField) {
        // Formations draw absolute rows two pixels lower than plays do.
        pt.x = g.anchor - depth(b), pt.y = g.mid + (a - (play ? kFieldMiddleRow : kFieldMiddleRow - 2));
    } else {
        return std::nullopt;
    }
    return pt;
}

bool isPlacement(int code) { return code == cmd::kSetPositionBall || code == cmd::kSetPositionField; }

// The geometry and the pen of one drawing.
class Drawing {
public:
    Drawing(Canvas& pic, Kind kind, int anchor) : pic_(pic), geometry_{kind, anchor, roundedHalf(pic.height())} {}

    void scrimmage() { pic_.line(geometry_.anchor + 4, 0, geometry_.anchor + 4, pic_.height(), kScrimmageColor); }

    // The next player's name, given to the canvas where he is first placed;
    // his points go to `points` when given.
    void player(const std::string& name, std::vector<DiagramPoint>* points = nullptr, int maxPoints = -1) {
        label_ = name;
        labelled_ = false;
        points_ = points;
        count_ = 0;
        maxPoints_ = maxPoints;
    }

    // Draws `seq` (standing under `key`) in `color`.
    void commands(SeqKey key, const clsSequence& seq, uint32_t color) {
        for (int pos = 0; pos < seq.commandCount(); ++pos) command(key, seq, pos, color);
    }

    void square(bool filled, uint32_t color) {
        if (filled) pic_.fillRect(x_ - 4, y_ - 4, x_ + 4, y_ + 4, color);
        else pic_.rect(x_ - 4, y_ - 4, x_ + 4, y_ + 4, color);
    }

    bool movedSincePlacement() const { return x_ != startX_ || y_ != startY_; }

private:
    void command(SeqKey key, const clsSequence& seq, int pos, uint32_t color) {
        if (maxPoints_ >= 0 && count_ >= maxPoints_) return;  // later in the animation
        const int c = seq.command(pos);
        if (geometry_.kind == Kind::Play && (c == cmd::kBlock || c == cmd::kChopBlock)) {
            pic_.line(curX_, curY_, curX_ + 8, curY_, color);
            pic_.line(curX_ + 8, curY_ - 4, curX_ + 8, curY_ + 4, color);
            return;
        }
        const auto pt = pointOf(geometry_, c, seq.data(pos, 0), seq.data(pos, 1), curX_, curY_);
        if (!pt) return;
        x_ = pt->x;
        y_ = pt->y;
        if (isPlacement(c)) {
            square(geometry_.kind == Kind::Formation, color);
            if (!labelled_) pic_.label(x_, y_, label_, color);
            labelled_ = true;
            startX_ = x_;
            startY_ = y_;
        } else {
            pic_.line(x_, y_, curX_, curY_, color);
        }
        curX_ = x_;
        curY_ = y_;
        ++count_;
        if (points_) points_->push_back({x_, y_, key, pos});
    }

    Canvas& pic_;
    Geometry geometry_;
    int curX_ = 0, curY_ = 0, startX_ = 0, startY_ = 0, x_ = 0, y_ = 0;
    std::string label_;
    bool labelled_ = true;
    std::vector<DiagramPoint>* points_ = nullptr;
    int count_ = 0, maxPoints_ = -1;
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

void DrawPlay(Canvas& pic, const Playbook& pb, int slotIndex, int playIndex, const DrawOptions& options) {
    pic.clear(kFieldColor);
    Drawing drawing(pic, Kind::Play, kPlayAnchor);
    drawing.scrimmage();
    if (options.points) options.points->assign(kPlayersPerRecord, {});
    if (slotIndex < 0 || slotIndex >= kSlotCount) return;
    const clsPlaySlot& slot = pb.playSlots[static_cast<size_t>(slotIndex)];
    const auto f = static_cast<size_t>(slot.formation());
    if (f >= pb.formations.size()) return;
    const clsFormation& formation = pb.formations[f];
    const auto p = static_cast<size_t>(slot.oPlay(std::clamp(playIndex, 0, kPlaysPerSlot - 1)));
    const clsPlay* play = p < pb.plays.size() ? &pb.plays[p] : nullptr;
    // The editor's working copy stands in for the sequence it was taken from.
    auto find = [&](SeqKey key) -> const clsSequence* {
        if (options.workingCopy && key == options.workingCopy->key()) return options.workingCopy;
        return pb.sequences.find(key);
    };

    for (int i = 0; i < kPlayersPerRecord; ++i) {
        const uint32_t color = posColors[static_cast<size_t>(i)];
        drawing.player(std::string(offPosNames[static_cast<size_t>(i)]), options.points ? &(*options.points)[static_cast<size_t>(i)] : nullptr,
                       options.maxPoints);
        std::optional<SeqKey> key = formation.posAddress(i);  // none: the path ends
        bool formationPhase = true;
        std::unordered_set<SeqKey> walked;
        while (const clsSequence* seq = key ? find(*key) : nullptr) {
            walked.insert(*key);
            const bool edited = options.workingCopy && seq == options.workingCopy;
            drawing.commands(*key, *seq, edited ? kHighlightColor : color);
            if (formationPhase) drawing.square(true, color);
            key.reset();
            // No follow-on, or one into itself or an earlier sequence: the path ends.
            if (const int32_t next = seq->nextSequence(); next != 0 && !walked.count(SeqKey::at(next))) key = SeqKey::at(next);
            if (!key && formationPhase) {
                if (play) key = play->seqAddress(i);
                formationPhase = false;
                walked.clear();
            }
        }
    }
}

namespace {
// A canvas that draws nothing: for the points alone.
class NoCanvas : public Canvas {
public:
    void clear(uint32_t) override {}
    void line(int, int, int, int, uint32_t) override {}
    void rect(int, int, int, int, uint32_t) override {}
    void fillRect(int, int, int, int, uint32_t) override {}
    int width() const override { return kPlayPictureWidth; }
    int height() const override { return kPlayPictureHeight; }
};
}  // namespace

std::vector<std::vector<DiagramPoint>> playPoints(const Playbook& pb, int slotIndex, int play, const clsSequence* workingCopy) {
    NoCanvas none;
    std::vector<std::vector<DiagramPoint>> points;
    DrawOptions options;
    options.points = &points;
    options.workingCopy = workingCopy;
    DrawPlay(none, pb, slotIndex, play, options);
    return points;
}

std::optional<std::pair<int, int>> dataForPoint(int code, int penX, int penY, int x, int y, int oldA, int oldB,
                                                DiagramPoint* nearest) {
    const Geometry g{Kind::Play, kPlayAnchor, roundedHalf(kPlayPictureHeight)};
    if (!pointOf(g, code, 0, 0, penX, penY)) return std::nullopt;
    // Each axis on its own: of the values that reach the pixel, the one closest
    // to the old value; else the value that comes nearest.
    int bestA = -1, bestB = -1, nearA = 0, nearB = 0;
    for (int v = 0; v < 256; ++v) {
        const DiagramPoint pt = *pointOf(g, code, v, v, penX, penY);
        if (pt.y == y && (bestA < 0 || std::abs(v - oldA) < std::abs(bestA - oldA))) bestA = v;
        if (pt.x == x && (bestB < 0 || std::abs(v - oldB) < std::abs(bestB - oldB))) bestB = v;
        if (std::abs(pt.y - y) < std::abs(pointOf(g, code, nearA, nearA, penX, penY)->y - y)) nearA = v;
        if (std::abs(pt.x - x) < std::abs(pointOf(g, code, nearB, nearB, penX, penY)->x - x)) nearB = v;
    }
    if (nearest) {
        const DiagramPoint reach = *pointOf(g, code, bestA >= 0 ? bestA : nearA, bestB >= 0 ? bestB : nearB, penX, penY);
        nearest->x = reach.x;
        nearest->y = reach.y;
    }
    if (bestA < 0 || bestB < 0) return std::nullopt;
    return std::pair{bestA, bestB};
}

std::vector<int> drawFormation(Canvas& pic, const Playbook& pb, int f, const clsSequence* workingCopy) {
    pic.clear(kFieldColor);
    Drawing drawing(pic, Kind::Formation, pic.width() - kFormationMargin);
    drawing.scrimmage();
    std::vector<int> missing;
    if (f < 0 || static_cast<size_t>(f) >= pb.formations.size()) return missing;
    const clsFormation& formation = pb.formations[static_cast<size_t>(f)];
    for (int i = 0; i < kPlayersPerRecord; ++i) {
        const SeqKey key = formation.posAddress(i);
        const bool edited = workingCopy && key == workingCopy->key();
        const clsSequence* seq = edited ? workingCopy : pb.sequences.find(key);
        if (!seq) {
            missing.push_back(i);
            continue;
        }
        const uint32_t color = posColors[static_cast<size_t>(i)];
        drawing.player(std::string(offPosNames[static_cast<size_t>(i)]));
        drawing.commands(key, *seq, edited ? kHighlightColor : color);
        if (drawing.movedSincePlacement()) drawing.square(false, color);
    }
    return missing;
}

}  // namespace zpe
