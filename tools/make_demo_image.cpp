// Writes the demo image: an invented playbook in the layout the editor reads.
// Formations place their players and end at a stance; plays run, block, hand
// off, pitch and throw; some sequences continue into shared ones; some end in
// Human Control with CPU bytes after them. Nothing in it comes from the game.
//
//   make_demo_image OUT.nes
#include "model/file_io.h"
#include "model/image.h"

#include <array>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;
using zpe::Image;

constexpr int32_t kImageSize = 0x40010;

// Players: 0 QB, 1 RB, 2 FB, 3 WR1, 4 WR2, 5 TE, 6 C, 7 LG, 8 RG, 9 LT, 10 RT.
// Defenders (block targets): 0 RE, 1 NT, 2 LE, 3 ROLB, 4 RILB, 5 LILB, 6 LOLB, 7 RCB, 8 LCB, 9 FS, 10 SS.

// Lays sequences out in the sequence area; identical sequences are stored once.
class Area {
public:
    explicit Area(Image& image) : image_(image) {}

    int32_t put(const Bytes& seq, const Bytes& cpuBytes = {}) {
        const auto key = seq;
        if (cpuBytes.empty()) {
            const auto it = known_.find(key);
            if (it != known_.end()) return it->second;
        }
        const int32_t at = next_;
        write(seq);
        write(cpuBytes);
        if (cpuBytes.empty()) known_.emplace(key, at);
        return at;
    }

    // A sequence that continues through a forward relative jump into `tail`,
    // which is laid out right after it (after `cpuBytes`).
    int32_t putWithTail(Bytes head, const Bytes& tail, const Bytes& cpuBytes = {}) {
        const int32_t at = next_;
        head.push_back(0xFE);
        head.push_back(static_cast<uint8_t>(2 + cpuBytes.size()));
        write(head);
        write(cpuBytes);
        write(tail);
        return at;
    }

    int32_t used() const { return next_ - zpe::kSequenceAreaAddress; }

private:
    void write(const Bytes& bytes) {
        image_.seekOffset(zpe::offsetOfAddress(next_));
        for (uint8_t b : bytes) image_.writeByte(b);
        next_ += static_cast<int32_t>(bytes.size());
        if (used() > zpe::kSequenceAreaSize) {
            std::fprintf(stderr, "demo playbook does not fit the sequence area\n");
            std::exit(1);
        }
    }

    Image& image_;
    int32_t next_ = zpe::kSequenceAreaAddress;
    std::map<Bytes, int32_t> known_;
};

Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

uint8_t s8(int v) { return static_cast<uint8_t>(v & 0xFF); }

// Placement relative to the ball's row (dy in units, + down) and behind the line.
Bytes at(int dy, int back) { return {0xD0, s8(0xF0 + dy), s8(back)}; }
// Placement at an absolute field row.
Bytes atRow(int row, int back) { return {0xD1, s8(row), s8(back)}; }
Bytes move(int dy, int dx) { return {0xD7, s8(dy), s8(dx)}; }
Bytes moveTo(int dy, int dx) { return {0xD8, s8(0xF0 + dy), s8(dx)}; }
Bytes block(int defender) { return {0xFC, 0xFF, 0xE0, s8(0x30 + defender), 0xFE, 0xFC}; }
Bytes chop(int defender) { return {0xFC, 0xFF, 0xE0, s8(0x40 + defender), 0xFE, 0xFC}; }
const Bytes kCpuAi{0xDF, 0xFE, 0xFF};

struct Formation {
    const char* name;
    std::array<Bytes, 11> players;
};

std::array<Bytes, 11> proLine() {
    return {Bytes{}, {}, {}, {}, {}, {},
            cat({at(0, 6), {0xD2}}),  cat({at(-12, 8), {0xEA}}), cat({at(12, 8), {0xEA}}),
            cat({at(-24, 8), {0xEA}}), cat({at(24, 8), {0xEA}})};
}

std::vector<Formation> formations() {
    std::vector<Formation> f;
    // Kick formations: their position sequences go on past the stance.
    auto kick = [](const char* name, int kicker, int back) {
        Formation k{name, {}};
        for (int i = 0; i < 11; ++i) {
            const int dy = (i - 5) * 14;
            const int depth = i == kicker ? back : 8 + 6 * (i % 3);
            k.players[static_cast<size_t>(i)] = cat({at(dy, depth), {0xEA}, move(i % 2 ? 6 : -6, 0x10), {0xE4}});
        }
        return k;
    };
    f.push_back(kick("KICKOFF", 10, 0x60));
    f.push_back(kick("PUNT", 0, 0x60));
    f.push_back(kick("FIELD GOAL", 0, 0x38));
    f.push_back(kick("EXTRA POINT", 0, 0x38));

    auto set = [](const char* name, Bytes qb, Bytes rb, Bytes fb, Bytes wr1, Bytes wr2, Bytes te) {
        Formation x{name, proLine()};
        x.players[0] = qb;
        x.players[1] = rb;
        x.players[2] = fb;
        x.players[3] = wr1;
        x.players[4] = wr2;
        x.players[5] = te;
        return x;
    };
    const Bytes qbUnder = cat({at(0, 0x12), {0xEE}});
    const Bytes qbGun = cat({at(0, 0x38), {0xEE}});
    const Bytes wrLeft = cat({atRow(0x36, 8), {0xEC}});
    const Bytes wrRight = cat({atRow(0xC0, 8), {0xEC}});
    const Bytes te = cat({at(36, 8), {0xEA}});
    f.push_back(set("PRO T", qbUnder, cat({at(-12, 0x30), {0xEC}}), cat({at(12, 0x30), {0xEC}}), wrLeft, wrRight, te));
    f.push_back(set("SLOT", qbUnder, cat({at(0, 0x30), {0xEC}}), cat({atRow(0xA8, 0x10), {0xEC}}), wrLeft, wrRight, te));
    f.push_back(set("ONE SET", qbUnder, cat({at(0, 0x30), {0xEC}}), cat({at(-32, 0x10), {0xEC}}), wrLeft, wrRight, te));
    f.push_back(set("TWO TE", qbUnder, cat({at(0, 0x30), {0xEC}}), cat({at(-36, 8), {0xEA}}), wrLeft, wrRight, te));
    f.push_back(set("MOTION DOWN", qbUnder, cat({at(0, 0x30), {0xEC}}), cat({at(0, 0x20), {0xEC}}),
                    cat({atRow(0x36, 8), {0xED, 0x20}, move(0x30, -8), {0xEC}}), wrRight, te));
    f.push_back(set("SHIFT ONE", qbUnder, cat({at(0, 0x30), {0xEC}}), cat({at(0, 0x20), {0xEB, 0x18}, move(-20, 0), {0xEC}}),
                    wrLeft, wrRight, te));
    f.push_back(set("ONE BACK", qbUnder, cat({at(0, 0x30), {0xEC}}), cat({atRow(0x50, 0x10), {0xEC}}), wrLeft, wrRight, te));
    f.push_back(set("OFFSET I", qbUnder, cat({at(8, 0x34), {0xEC}}), cat({at(0, 0x22), {0xEC}}), wrLeft, wrRight, te));
    f.push_back(set("RUN AND SHOOT", qbUnder, cat({at(0, 0x30), {0xEC}}), cat({atRow(0x4C, 0x10), {0xEC}}), wrLeft, wrRight,
                    cat({atRow(0xA4, 0x10), {0xEC}})));
    f.push_back(set("THREE WING", qbUnder, cat({at(0, 0x30), {0xEC}}), cat({at(-24, 0x10), {0xEC}}), wrLeft,
                    cat({atRow(0xB0, 0x10), {0xEC}}), te));
    f.push_back(set("SHOTGUN A", qbGun, cat({at(-10, 0x38), {0xEC}}), cat({atRow(0xA8, 0x10), {0xEC}}), wrLeft, wrRight, te));
    f.push_back(set("SHOTGUN B", qbGun, cat({at(10, 0x38), {0xEC}}), cat({atRow(0x4C, 0x10), {0xEC}}), wrLeft, wrRight, te));
    f.push_back(set("SHOTGUN THREE WING", qbGun, cat({at(-10, 0x38), {0xEC}}), cat({atRow(0xB0, 0x10), {0xEC}}), wrLeft,
                    cat({atRow(0xA0, 0x14), {0xEC}}), te));
    f.push_back(set("SHOTGUN C", qbGun, cat({at(10, 0x38), {0xEC}}), cat({at(-24, 0x10), {0xEC}}), wrLeft, wrRight, te));
    f.push_back(set("RED GUN", qbGun, cat({atRow(0x48, 0x10), {0xEC}}), cat({atRow(0xA8, 0x10), {0xEC}}), wrLeft, wrRight, te));
    f.push_back(set("NO BACK", qbGun, cat({atRow(0x44, 0x10), {0xEC}}), cat({atRow(0xAC, 0x10), {0xEC}}), wrLeft, wrRight,
                    cat({atRow(0x9C, 0x10), {0xEC}})));
    f.push_back(set("PRO T B", qbUnder, cat({at(-12, 0x30), {0xEC}}), cat({at(12, 0x30), {0xEC}}), wrLeft,
                    cat({atRow(0xB4, 8), {0xEC}}), te));
    f.push_back(set("ONE BACK B", qbUnder, cat({at(0, 0x30), {0xEC}}), cat({atRow(0xAC, 0x10), {0xEC}}), wrLeft, wrRight, te));
    // The centre of the shotgun formations makes a long snap.
    for (size_t k = 14; k <= 19; ++k) f[k].players[6] = cat({at(0, 6), {0xD3}});
    return f;
}

// Routes for receivers: moves from where the formation left them, then the
// computer takes over as a runner.
std::vector<Bytes> routes() {
    return {
        cat({move(0, 0x40), move(-0x18, 0x18), {0xDF, 0xE4}}),    // post
        cat({move(0, 0x30), move(0x20, 0), {0xDF, 0xE4}}),         // out (down the screen)
        cat({move(0, 0x30), move(-0x20, 0), {0xDF, 0xE4}}),        // out (up the screen)
        cat({move(0, 0x50), move(0, -0x08), {0xF4, 0x20, 0xDF, 0xE4}}),  // curl
        cat({move(0, 0x7F), move(0, 0x30), {0xDF, 0xE4}}),         // fly
        cat({move(0x10, 0x18), move(0x30, 0x20), {0xDF, 0xE4}}),   // slant down
        cat({move(-0x10, 0x18), move(-0x30, 0x20), {0xDF, 0xE4}}), // slant up
        cat({move(0, 0x28), move(-0x28, 0x28), {0xDF, 0xE4}}),     // corner
        cat({move(0, 0x10), move(0x40, 0x08), {0xDF, 0xE4}}),      // drag
        cat({moveTo(0, 0x30), move(0, 0x20), {0xDF, 0xE4}}),       // seam to the middle
    };
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_demo_image OUT.nes\n");
        return 2;
    }
    Image image(argv[1], Bytes(kImageSize, 0));
    image.seekOffset(zpe::kSequenceAreaOffset);
    for (int i = 0; i < zpe::kSequenceAreaSize; ++i) image.writeByte(0xFF);
    Area area(image);

    // Formations.
    const auto forms = formations();
    image.seekOffset(zpe::kFormationTableOffset);
    std::vector<std::array<int32_t, 11>> formAddr;
    for (const auto& f : forms) {
        std::array<int32_t, 11> a{};
        for (size_t i = 0; i < 11; ++i) a[i] = area.put(f.players[i]);
        formAddr.push_back(a);
    }
    image.seekOffset(zpe::kFormationTableOffset);
    for (const auto& a : formAddr)
        for (int32_t v : a) image.writeWord(v);

    // Shared continuations: after the catch or hand-off the computer runs.
    const int32_t runOn = area.put({0xE1, 0x00, 0xDF, 0xE4}, kCpuAi);
    // Computer-team logic after Human Control: with a boost of 2 or more run
    // on as the ball carrier, else allow every collision and chase the carrier.
    const int32_t scramble = area.put(cat({{0xE4}}), {0xC8, static_cast<uint8_t>(runOn & 0xFF), static_cast<uint8_t>(runOn >> 8),
                                                      0x02, 0xFC, 0xFF, 0xE0, 0xDD, 0xFE, 0xFC});
    const Bytes jumpToRunOn{0xFF, static_cast<uint8_t>(runOn & 0xFF), static_cast<uint8_t>(runOn >> 8)};

    // Line blocking schemes, one sequence per lineman.
    const std::array<std::array<int, 5>, 4> schemes{{
        {1, 5, 4, 2, 0},  // C, LG, RG, LT, RT: inside zone
        {1, 3, 6, 2, 0},
        {4, 1, 5, 6, 3},
        {1, 2, 0, 6, 3},
    }};

    const auto routeSet = routes();
    std::array<std::array<int32_t, 11>, zpe::kPlayCount> plays{};
    for (int p = 0; p < zpe::kPlayCount; ++p) {
        std::array<int32_t, 11>& play = plays[static_cast<size_t>(p)];
        const auto& scheme = schemes[static_cast<size_t>(p % 4)];
        for (int l = 0; l < 5; ++l)
            play[static_cast<size_t>(6 + l)] =
                area.put(p % 7 == 3 && l == 3 ? chop(scheme[static_cast<size_t>(l)]) : block(scheme[static_cast<size_t>(l)]));

        const bool run = p < 58;
        const int variant = p % 29;
        if (run) {
            const int side = (variant % 2 == 0) ? 1 : -1;  // + down the screen
            const int width = 12 + 12 * (variant % 4);
            if (variant % 5 == 4) {
                // Pitch to the back, who sweeps wide.
                play[0] = area.put({0xD4, 0x71, 0xF3, 0x30, 0xE4});
                play[1] = area.putWithTail(cat({move(side * 0x30, -0x08), move(side * 0x10, 0x18)}), {0xDF, 0xE4});
            } else if (variant % 7 == 6) {
                // Quarterback keeps it: sneak.
                play[0] = area.put(cat({{0xD4}, move(0, 0x18), jumpToRunOn}));
                play[1] = area.put(cat({move(0, 0x10), block(4)}));
            } else {
                // Hand-off; every other one through a fake first.
                play[0] = area.put(variant % 3 == 1 ? Bytes{0xD4, 0x62, 0x51, 0xD7, 0x00, 0xF0, 0xF3, 0x20, 0xE4}
                                                    : Bytes{0xD4, 0x51, 0xD7, 0x00, 0xF0, 0xF3, 0x20, 0xE4});
                play[1] = area.put(cat({move(side * width, 0x18), move(0, 0x38), jumpToRunOn}));
            }
            play[2] = area.put(cat({move(side * (width - 4), 0x14), block(side > 0 ? 3 : 6)}));
            play[3] = area.put(cat({move(0, 0x28), block(8)}));
            play[4] = area.put(cat({move(0, 0x28), block(7)}));
            play[5] = area.put(variant % 2 ? chop(0) : block(3));
        } else {
            // Pass: drop back, wait, throw to the receivers in order.
            const int drop = variant % 3 == 0 ? -0x28 : -0x18;
            // The COM pass as the game reads it: 92, three receivers (weight and
            // position), then the script the catching receiver switches to. The
            // editor reads only 92 43 64 as the pass and the rest as other commands.
            play[0] = area.put(cat({{0xD4, 0xC0, 0x00, s8(drop), 0xC1, 0x19, 0x2D, 0xFD, 0x92, 0x43, 0x64, 0xF5,
                                     static_cast<uint8_t>(runOn & 0xFF), static_cast<uint8_t>(runOn >> 8), 0xF3, 0x00},
                                    {0xE4}}));
            const auto& r1 = routeSet[static_cast<size_t>(variant % routeSet.size())];
            const auto& r2 = routeSet[static_cast<size_t>((variant + 3) % routeSet.size())];
            const auto& r3 = routeSet[static_cast<size_t>((variant + 7) % routeSet.size())];
            play[3] = area.put(cat({{0xA0}, r1}));
            play[4] = area.put(cat({{0xA1}, r2}));
            play[5] = variant % 3 == 2 ? area.put(block(3)) : area.put(cat({{0xA2}, r3}));
            play[1] = variant % 4 == 0 ? area.put(cat({{0xA3}, move(-0x28, 0x08), move(0, 0x30), jumpToRunOn}))
                                        : area.put(cat({move(0, 0x08), block(5)}));
            play[2] = variant % 5 == 0 ? area.putWithTail(cat({{0xA4}, move(0x30, 0x10)}), cat({move(0, 0x30), {0xDF, 0xE4}}))
                                        : area.put(cat({move(0, 0x04), block(3)}));
        }
        if (p % 13 == 12) play[2] = zpe::kNoSequence;  // a play with no fullback script
    }
    image.seekOffset(zpe::kPlayTableOffset);
    for (const auto& play : plays)
        for (int32_t v : play) image.writeWord(v);

    // Pointer table: the shared continuations and the pass plays' first scripts.
    image.seekOffset(zpe::kPointerTableOffset);
    for (int i = 0; i < zpe::kPointerCount; ++i) {
        const int32_t v = i % 3 == 0 ? runOn : i % 3 == 1 ? scramble : plays[static_cast<size_t>(58 + i % 58)][0];
        image.writeWord(v);
    }

    // Slots.
    static const char* const kRunNames[32] = {
        "HB DIVE",     "HB BLAST",    "FB TRAP",    "SWEEP RIGHT", "SWEEP LEFT", "TOSS LEFT",  "COUNTER",    "HB DRAW",
        "OFF TACKLE",  "QB SNEAK",    "POWER O",    "STRETCH",     "PITCH RIGHT", "ISO LEFT",  "ISO RIGHT",  "CROSS BUCK",
        "FB DIVE",     "STUFF",       "TRAP LEFT",  "GUT",         "OPTION",     "BELLY",      "BOUNCE",     "WHAM",
        "INSIDE ZONE", "OUTSIDE ZONE", "DELAY",     "REVERSE",     "CUTBACK",    "DUO",        "LEAD LEFT",  "LEAD RIGHT"};
    static const char* const kPassNames[32] = {
        "PA BOOTLEG",  "SLANTS",      "CURL FLAT",  "FOUR VERTS",  "POST CORNER", "SCREEN LEFT", "HB SCREEN", "DEEP OUT",
        "HITCH",       "TE SEAM",     "DRAG",       "FLOOD",       "SMASH",       "MESH",        "FADE",      "HAIL MARY",
        "Y CROSS",     "LEVELS",      "STICK",      "SPOT",        "SAIL",        "DIG",         "WHEEL",     "DOUBLE POST",
        "COMEBACK",    "CORNER",      "QUICK OUT",  "SHALLOW",     "BENCH",       "OVER",        "TRIPS LEFT", "TRIPS RIGHT"};
    const int runFormations[8] = {4, 6, 7, 8, 9, 10, 11, 20};
    const int passFormations[8] = {5, 12, 13, 14, 15, 16, 18, 21};
    for (int s = 0; s < zpe::kSlotCount; ++s) {
        const bool running = s < zpe::kRunningSlotCount;
        std::string name = running ? kRunNames[s] : kPassNames[s - 32];
        name.resize(24, ' ');
        name[15] = static_cast<char>(running ? runFormations[s % 8] : passFormations[s % 8]);
        for (int j = 0; j < 8; ++j) {
            const int base = running ? (s * 7 + j * 3) % 58 : 58 + (s * 5 + j * 7) % 58;
            name[static_cast<size_t>(16 + j)] = static_cast<char>(base);
        }
        image.seekOffset(zpe::kOffSlotTableOffset + 24 * s);
        for (char c : name) image.writeByte(static_cast<uint8_t>(c));
        image.seekOffset(zpe::kDefSlotTableOffset + 8 * s);
        for (int j = 0; j < 8; ++j) image.writeByte((s * 11 + j * 5) % 0x40);
        image.seekOffset(zpe::kGfxTableOffset + 42 * s);
        for (int j = 0; j < 42; ++j) image.writeByte((s * 13 + j * 29) & 0xFF);
    }
    image.seekOffset(zpe::kRusherTableOffset);
    for (int s = 0; s < zpe::kRunningSlotCount; ++s) image.writeByte(2 * (s % 5));

    zpe::replaceFileContents(argv[1], image.bytes());
    std::printf("%s: %d of %d sequence bytes used\n", argv[1], area.used(), zpe::kSequenceAreaSize);
    return 0;
}
