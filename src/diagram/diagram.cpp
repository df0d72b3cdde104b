#include "diagram/diagram.h"

#include "model/tables.h"

#include <algorithm>
#include <unordered_set>

namespace zpe {

namespace {

enum class Kind { Play, Formation };

// The geometry and the pen of one drawing.
class Drawing {
public:
    Drawing(Canvas& pic, Kind kind, int anchor) : pic_(pic), kind_(kind), anchor_(anchor), mid_(roundedHalf(pic.height())) {}

    void scrimmage() { pic_.line(anchor_ + 4, 0, anchor_ + 4, pic_.height(), kScrimmageColor); }

    void commands(const clsSequence& seq, uint32_t color) {
        for (int pos = 0; pos < seq.commandCount(); ++pos) command(seq, pos, color);
    }

    void square(bool filled, uint32_t color) {
        if (filled) pic_.fillRect(x_ - 4, y_ - 4, x_ + 4, y_ + 4, color);
        else pic_.rect(x_ - 4, y_ - 4, x_ + 4, y_ + 4, color);
    }

    bool movedSincePlacement() const { return x_ != startX_ || y_ != startY_; }

private:
    static int wrap(int a, int base, int span) {
        int v = a - base;
        if (v < -90) v += span;
        return v;
    }
    static int signedByte(int v) { return v >= 128 ? v - 256 : v; }
    static int depth(int b) { return b >= 128 ? 248 - b : -b; }
    // The pen holds 16-bit values; a run of moves saturates rather than overflow.
    static int pen(long v) { return static_cast<int>(std::clamp<long>(v, -32768, 32767)); }

    void place(long x, long y, uint32_t color) {
        x_ = pen(x);
        y_ = pen(y);
        square(kind_ == Kind::Formation, color);
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
        if (play && (c == 0x30 || c == 0x40)) {
            pic_.line(curX_, curY_, curX_ + 8, curY_, color);
            pic_.line(curX_ + 8, curY_ - 4, curX_ + 8, curY_ + 4, color);
        } else if (c == 0xD0) {
            place(anchor_ - (b - 8), mid_ + wrap(a, 240, 256), color);
        } else if (c == 0xD1) {
            place(anchor_ - (b - 8), mid_ + wrap(a, 122, 265), color);
        } else if (c == 0xD7 || (play && c == 0xC0)) {
            moveTo(long{curX_} + signedByte(b), long{curY_} + signedByte(a), color);
        } else if (c == 0xD8) {
            moveTo(anchor_ - depth(b), mid_ + wrap(a, 240, 256), color);
        } else if (c == 0xD9) {
            moveTo(anchor_ - depth(b), mid_ + (a - (play ? 122 : 120)), color);
        }
    }

    Canvas& pic_;
    Kind kind_;
    int anchor_;
    int mid_;
    int curX_ = 0, curY_ = 0, startX_ = 0, startY_ = 0, x_ = 0, y_ = 0;
};

constexpr int kPlayAnchor = 100;

}  // namespace

int roundedHalf(int value) {
    const int half = value / 2;
    if (value % 2 == 0) return half;
    // value / 2 lies exactly between two integers: take the even one.
    return value > 0 ? (half % 2 == 0 ? half : half + 1) : (half % 2 == 0 ? half : half - 1);
}

void DrawPlay(Canvas& pic, const Playbook& pb, int slotIndex) {
    pic.clear(kFieldColor);
    Drawing drawing(pic, Kind::Play, kPlayAnchor);
    drawing.scrimmage();
    if (slotIndex < 0 || slotIndex >= kSlotCount) return;
    const clsPlaySlot& slot = pb.playSlots[static_cast<size_t>(slotIndex)];
    const auto f = static_cast<size_t>(slot.formation());
    if (f >= pb.formations.size()) return;
    const clsFormation& formation = pb.formations[f];
    const auto p = static_cast<size_t>(slot.oPlay(0));
    const clsPlay* play = p < pb.plays.size() ? &pb.plays[p] : nullptr;

    for (int i = 0; i < kPlayersPerRecord; ++i) {
        const uint32_t color = posColors[static_cast<size_t>(i)];
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
    Drawing drawing(pic, Kind::Formation, pic.width() - 20);
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
        drawing.commands(*seq, color);
        if (drawing.movedSincePlacement()) drawing.square(false, color);
    }
    return missing;
}

}  // namespace zpe
