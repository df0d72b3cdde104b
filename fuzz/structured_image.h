#pragma once
// An image laid out from a 64-bit seed, holding in its sequence area
// 0xA000-0xBFFF the structures a save must take care of: sequences that end
// in Human Control (0xE4) or Long Snap (0xD3) with commands only the game runs
// after them, lock-ups (0xDE, 0xF8, 0xF9, 0xF2) in the middle, sequences that
// share bytes (an entry naming the middle of another's commands), loops back
// (0xFE back into the sequence's own middle), chains (a closing 0xFE forward
// into the sequence after it, a closing 0xFF into another's start or its own
// middle), branches (0x2N, 0xC7, 0xC8, 0xCA) into its own commands and into
// others', COM passes and 0xF1 (read with other lengths by the game), entries
// naming sequences at 0x8000-0x9FFF outside the area, the kick formations'
// position sequences with the stances 0xEA / 0xEC inside them, and runs of
// 0xFF between the sequences, from a few bytes to a nearly full area.
//
// Every sequence is laid out with the editor's command lengths (a low code's
// length by its high nibble, a COM pass 0x9N as N+1 bytes, ...), so the open
// decodes each one as laid out; `expected` lists what it must find.
// The tables name only formations below 22, so the open with 22 formation
// names succeeds.
#include "model/image.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace zpe::fuzz {

// SplitMix64: a 64-bit state whose every output is a full mix of it.
class Prng {
public:
    explicit Prng(uint64_t seed) : state_(seed) {}
    uint64_t next() {
        uint64_t z = (state_ += 0x9E3779B97F4A7C15ULL);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
        return z ^ (z >> 31);
    }
    // 0..bound-1; 0 when bound is 0.
    uint32_t below(uint32_t bound) { return bound == 0 ? 0 : static_cast<uint32_t>(next() % bound); }
    // lo..hi, both included (lo when hi < lo).
    int between(int lo, int hi) { return hi <= lo ? lo : lo + static_cast<int>(below(static_cast<uint32_t>(hi - lo + 1))); }
    bool percent(uint32_t p) { return below(100) < p; }
    uint8_t byte() { return static_cast<uint8_t>(next()); }
    template <typename T, size_t N>
    T pick(const std::array<T, N>& from) { return from[below(static_cast<uint32_t>(N))]; }

private:
    uint64_t state_;
};

// What a layout holds, counted per image.
enum Feature : int {
    kSequencesLaid,       // runs of commands laid out in or outside the area
    kHumanControlTail,    // ends in 0xE4 with commands only the game runs after it
    kLongSnapTail,        // ends in 0xD3 with commands only the game runs after it
    kLongSnapJump,        // 0xD3 0xFF: the long snap the editor reads on past
    kLockUpInside,        // a lock-up command before the end
    kLoopBack,            // closing 0xFE back into its own commands
    kForwardChain,        // closing 0xFE forward into the sequence laid after it
    kJumpToStart,         // closing 0xFF to another sequence's start
    kJumpIntoOther,       // closing 0xFF into the middle of another sequence
    kJumpIntoOwn,         // closing 0xFF into its own middle
    kJumpOutside,         // closing 0xFF to a sequence outside the area
    kBranchOwn,           // a branch into its own commands
    kBranchOther,         // a branch into another sequence
    kEntryIntoMiddle,     // a table entry naming the middle of a sequence's commands
    kEntryIntoGameOnly,   // a table entry naming commands only the game ran before
    kEntryOutside,        // a table entry naming a sequence at 0x8000-0x9FFF
    kEntryMisaligned,     // a table entry naming a byte inside a command
    kKickWithStance,      // a kick formation's position sequence with 0xEA / 0xEC inside
    kStanceEnd,           // a formation's position sequence ending at a stance or hike
    kComPass,             // a COM pass 0x9N (the game reads N+4 bytes)
    kF1,                  // 0xF1 (3 bytes for the editor, 1 for the game)
    kTwoByteEnd,          // ends in 0xC4 / 0xC5
    kNearlyFull,          // the area was filled up to its last few free bytes
    kFeatureCount
};

inline constexpr std::array<const char*, kFeatureCount> kFeatureNames{
    "sequences laid",         "human control + game commands", "long snap + game commands", "long snap + jump",
    "lock-up inside",         "loop back",                     "forward chain",             "jump to another start",
    "jump into another",      "jump into own middle",          "jump outside the area",     "branch into own",
    "branch into another",    "entry into a middle",           "entry into game-only bytes", "entry outside the area",
    "entry inside a command", "kick sequence with stance",     "stance or hike end",        "COM pass",
    "0xF1",                   "0xC4/0xC5 end",                 "nearly full area"};

// An address where the open finds an editor sequence of `commands`
// commands when it reads it the way `kick` says (either way when not
// `kickMatters`). `named`: a table entry names it, so the open must find it;
// otherwise a closing jump leads there, and the open finds it only when
// something leads to that jump.
struct ExpectedSequence {
    int32_t address = 0;
    bool kick = false;
    bool kickMatters = false;
    bool named = false;
    int commands = 0;
};

struct StructuredImage {
    std::vector<uint8_t> bytes;                 // the whole image (0x28000 bytes, header included)
    std::vector<ExpectedSequence> expected;     // where the entries and the closing jumps lead
    std::array<int, kFeatureCount> features{};  // how often each structure was laid out
    int32_t freeBytes = 0;                      // bytes of the area between the laid sequences
    int32_t freeRuns = 0;                       // runs of them
};

// The image size the fuzzers use (fuzz_image.h makes the same).
constexpr size_t kStructuredImageSize = 0x28000;

namespace structured_detail {

// What an address field names, chosen when every sequence is known.
enum class RefKind : uint8_t {
    None,
    OwnBefore,    // one of its own commands before it, within a relative jump's reach
    OwnMiddle,    // one of its own editor commands after the first
    OwnAny,       // any of its own commands
    Next,         // the first or a middle command of the sequence laid right after it
    OtherStart,   // another sequence's first command
    OtherMiddle,  // a command in the middle of another sequence
    GameOnly,     // a command only the game runs (after a 0xE4 or 0xD3)
    Outside,      // a sequence outside the area
};

struct Ref {
    RefKind kind = RefKind::None;
    bool closing = false;  // a closing jump: the editor reads on at its target, in the same reading
    bool kick = false;     // the reading the closing jump is read in
    int piece = -1;        // resolved: the piece and command named
    int cmd = 0;
};

struct Cmd {
    std::vector<uint8_t> bytes;
    int fieldAt = -1;       // byte offset of the address field from the code byte; -1: none
    bool relative = false;  // a one-byte signed offset (0xFE) instead of a little-endian address
    Ref ref;
};

enum class PieceKind : uint8_t { Play, Formation, Kick, Outside };

// A run of commands laid out together: an editor sequence (its first
// `editorCount` commands) and the commands only the game runs after it.
struct Piece {
    PieceKind kind = PieceKind::Play;
    std::vector<Cmd> cmds;
    int editorCount = 0;
    bool stanceEnd = false;  // its editor sequence ends at 0xEA / 0xEC, which the kick way reads on past
    int32_t at = 0;
    std::vector<int32_t> places;  // each command's address
    int32_t size() const {
        int32_t n = 0;
        for (const Cmd& c : cmds) n += static_cast<int32_t>(c.bytes.size());
        return n;
    }
    bool kick() const { return kind == PieceKind::Kick; }
    bool hasStance() const { return stanceEnd || kind == PieceKind::Kick; }
};

class Generator {
public:
    explicit Generator(uint64_t seed) : r_(seed) {}

    StructuredImage build() {
        out_.bytes.assign(kStructuredImageSize, 0xFF);
        chooseDensity();
        layPieces();
        layOutside();
        placeAll();
        resolveAll();
        encodeAll();
        writeTables();
        return std::move(out_);
    }

private:
    // --- commands ---------------------------------------------------------

    static Cmd plain(std::vector<uint8_t> bytes) {
        Cmd c;
        c.bytes = std::move(bytes);
        return c;
    }
    Cmd withField(std::vector<uint8_t> bytes, int fieldAt, bool relative, RefKind kind, bool closing, bool kick) {
        Cmd c = plain(std::move(bytes));
        c.fieldAt = fieldAt;
        c.relative = relative;
        c.ref.kind = kind;
        c.ref.closing = closing;
        c.ref.kick = kick;
        return c;
    }

    // A target for a branch or a COM pass's receiver address: anything the game can run.
    RefKind anyTarget() {
        switch (r_.below(10)) {
        case 0: case 1: case 2: return RefKind::OwnAny;
        case 3: case 4: return RefKind::OtherStart;
        case 5: case 6: return RefKind::OtherMiddle;
        case 7: return RefKind::GameOnly;
        case 8: return outsideWanted_ ? RefKind::Outside : RefKind::OtherStart;
        default: return RefKind::OtherStart;
        }
    }

    // A branch: 0xC7 / 0xCA (3 bytes), 0xC8 (4 bytes), 0x2N (3 bytes, address in bytes 1-2).
    Cmd branch() {
        const RefKind kind = anyTarget();
        switch (r_.below(4)) {
        case 0: return withField({0xC7, 0, 0}, 1, false, kind, false, false);
        case 1: return withField({0xCA, 0, 0}, 1, false, kind, false, false);
        case 2: return withField({0xC8, 0, 0, static_cast<uint8_t>(r_.below(12))}, 1, false, kind, false, false);
        default: return withField({static_cast<uint8_t>(0x20 | r_.below(16)), 0, 0}, 1, false, kind, false, false);
        }
    }

    // A command that neither ends the editor's sequence nor locks the game up.
    Cmd body(bool kick) {
        static constexpr std::array<uint8_t, 12> threeByte{0xC0, 0xCD, 0xCE, 0xCF, 0xD0, 0xD1, 0xD7, 0xD8, 0xD9, 0xF5, 0xFC, 0xFD};
        static constexpr std::array<uint8_t, 11> twoByte{0xE0, 0xE1, 0xE2, 0xE3, 0xEB, 0xED, 0xF0, 0xF3, 0xF4, 0xF6, 0xF7};
        static constexpr std::array<uint8_t, 18> oneByte{0xC9, 0xCC, 0xD4, 0xD5, 0xD6, 0xDA, 0xDB, 0xDC, 0xDD,
                                                         0xDF, 0xE5, 0xE6, 0xE7, 0xE8, 0xE9, 0xEF, 0xFA, 0xFB};
        // Low codes by high nibble (0x20 branches and 0x90 COM passes apart).
        static constexpr std::array<uint8_t, 10> lowCodes{0x00, 0x10, 0x30, 0x40, 0x50, 0x60, 0x70, 0x80, 0xA0, 0xB0};
        const uint32_t roll = r_.below(100);
        if (roll < 30) {
            const uint8_t code = r_.pick(threeByte);
            return plain({code, r_.byte(), code == 0xFD || code == 0xFC ? static_cast<uint8_t>(r_.byte() & 0xE0) : r_.byte()});
        }
        if (roll < 46) return plain({r_.pick(twoByte), r_.byte()});
        if (roll < 62) return plain({r_.pick(oneByte)});
        if (roll < 82) {
            const uint8_t hi = r_.pick(lowCodes);
            const auto code = static_cast<uint8_t>(hi | r_.below(16));
            if (hi <= 0x10) return plain({code, r_.byte()});
            if (hi == 0xB0) return plain({code, r_.byte(), r_.byte()});
            return plain({code});
        }
        if (roll < 85) return plain({0xC1, r_.byte(), r_.byte(), r_.byte()});
        if (roll < 96) return branch();
        if (kick) return plain({r_.percent(50) ? uint8_t{0xEA} : uint8_t{0xEC}});
        return plain({0xD7, r_.byte(), r_.byte()});
    }

    // A lock-up command as the editor reads it: not an end, the game hangs on it.
    Cmd lockUp() {
        switch (r_.below(4)) {
        case 0: return plain({0xDE});
        case 1: return plain({0xF8, r_.byte(), r_.byte()});
        case 2: return plain({0xF9});
        default: return plain({0xF2});
        }
    }

    void addBody(Piece& p, int n) {
        for (int i = 0; i < n; ++i) p.cmds.push_back(body(p.kick()));
    }

    // Things the editor reads one way and the game another, or the game hangs
    // on, put at a random place among the commands laid so far.
    void addOddities(Piece& p) {
        auto insertAt = [&](std::vector<Cmd> cmds) {
            const auto at = static_cast<std::ptrdiff_t>(r_.below(static_cast<uint32_t>(p.cmds.size()) + 1));
            p.cmds.insert(p.cmds.begin() + at, cmds.begin(), cmds.end());
        };
        if (r_.percent(10)) {
            insertAt({lockUp()});
            ++out_.features[kLockUpInside];
        }
        if (r_.percent(2)) {
            // 0x9N: the editor takes N+1 bytes; the game N+1 receiver bytes
            // more and a receiver address. The last receiver byte is 0xF5 (TE,
            // weight 15), so the editor reads it and the address as 0xF5 lo hi.
            const auto n = static_cast<uint8_t>(r_.below(5));
            std::vector<uint8_t> pass{static_cast<uint8_t>(0x90 | n)};
            for (int i = 0; i < n; ++i) pass.push_back(static_cast<uint8_t>((r_.below(16) << 4) | r_.below(11)));
            insertAt({plain(pass), withField({0xF5, 0, 0}, 1, false, anyTarget(), false, false)});
            ++out_.features[kComPass];
        }
        if (r_.percent(1)) {
            insertAt({plain({0xF1, r_.byte(), r_.byte()})});
            ++out_.features[kF1];
        }
    }

    // Commands only the game runs, after an end the game goes on from: a few
    // commands of the computer's logic and a jump. `afterLongSnap`: the first
    // byte must not be 0xFF (the editor would read on past the 0xD3).
    void addGameOnly(Piece& p, bool afterLongSnap, bool mayChain) {
        const int n = r_.between(0, 3);
        for (int i = 0; i < n; ++i) {
            switch (r_.below(9)) {
            case 0: p.cmds.push_back(plain({0xDF})); break;
            case 1: p.cmds.push_back(plain({0xDD})); break;
            case 2: p.cmds.push_back(plain({0xD8, r_.byte(), r_.byte()})); break;
            case 3: p.cmds.push_back(plain({0xFC, 0xFF, 0xE0})); break;
            case 4: p.cmds.push_back(withField({0xC8, 0, 0, static_cast<uint8_t>(r_.below(10))}, 1, false, anyTarget(), false, false)); break;
            case 5: p.cmds.push_back(withField({0xC7, 0, 0}, 1, false, anyTarget(), false, false)); break;
            case 6: p.cmds.push_back(plain({0xE0, static_cast<uint8_t>(r_.below(16))})); break;
            case 7: p.cmds.push_back(plain({0xF3, static_cast<uint8_t>(1 + r_.below(200))})); break;
            default: p.cmds.push_back(plain({0xD7, r_.byte(), r_.byte()})); break;
            }
        }
        const uint32_t roll = r_.below(100);
        if ((roll < 45 || (afterLongSnap && n == 0)) && !(mayChain && roll >= 90)) {
            p.cmds.push_back(withField({0xFE, 0}, 1, true, RefKind::OwnBefore, false, false));
        } else if (mayChain && roll >= 90) {
            p.cmds.push_back(withField({0xFE, 0}, 1, true, RefKind::Next, true, false));
            chainsForward_ = true;
        } else {
            static constexpr std::array<RefKind, 5> kinds{RefKind::OtherStart, RefKind::OtherStart, RefKind::OtherMiddle,
                                                          RefKind::OwnAny, RefKind::GameOnly};
            const RefKind kind = roll >= 85 && outsideWanted_ ? RefKind::Outside : r_.pick(kinds);
            p.cmds.push_back(withField({0xFF, 0, 0}, 1, false, kind, true, false));
        }
    }

    // Human Control, then what only the game runs after it.
    void endWithHumanControl(Piece& p, bool mayChain) {
        closeWith(p, plain({0xE4}));
        addGameOnly(p, false, mayChain);
        ++out_.features[kHumanControlTail];
    }

    // Ends the editor's reading of `p` with `c`.
    static void closeWith(Piece& p, Cmd c) {
        p.cmds.push_back(std::move(c));
        p.editorCount = static_cast<int>(p.cmds.size());
    }

    // The editor's end command of a play's sequence (or of one outside the
    // area), and what only the game runs after it.
    void endPlay(Piece& p, bool mayChain) {
        const uint32_t roll = r_.below(100);
        if (roll < 18) {
            endWithHumanControl(p, mayChain);
        } else if (roll < 28) {
            closeWith(p, plain({0xD3}));
            addGameOnly(p, true, mayChain);
            ++out_.features[kLongSnapTail];
        } else if (roll < 32) {
            p.cmds.push_back(plain({0xD3}));
            closeWith(p, withField({0xFF, 0, 0}, 1, false, r_.percent(50) ? RefKind::OtherStart : RefKind::OwnMiddle, true, false));
            ++out_.features[kLongSnapJump];
        } else if (roll < 45) {
            closeWith(p, withField({0xFE, 0}, 1, true, RefKind::OwnBefore, true, false));
            ++out_.features[kLoopBack];
        } else if (roll < 57 && mayChain) {
            closeWith(p, withField({0xFE, 0}, 1, true, RefKind::Next, true, false));
            chainsForward_ = true;
            ++out_.features[kForwardChain];
        } else if (roll < 68) {
            closeWith(p, withField({0xFF, 0, 0}, 1, false, RefKind::OtherStart, true, false));
            ++out_.features[kJumpToStart];
        } else if (roll < 74) {
            closeWith(p, withField({0xFF, 0, 0}, 1, false, RefKind::OtherMiddle, true, false));
            ++out_.features[kJumpIntoOther];
        } else if (roll < 80) {
            closeWith(p, withField({0xFF, 0, 0}, 1, false, RefKind::OwnMiddle, true, false));
            ++out_.features[kJumpIntoOwn];
        } else if (roll < 83 && outsideWanted_) {
            closeWith(p, withField({0xFF, 0, 0}, 1, false, RefKind::Outside, true, false));
            ++out_.features[kJumpOutside];
        } else if (roll < 88) {
            closeWith(p, plain({r_.percent(50) ? uint8_t{0xC4} : uint8_t{0xC5}, static_cast<uint8_t>(r_.below(60))}));
            ++out_.features[kTwoByteEnd];
        } else if (roll < 94) {
            closeWith(p, plain({r_.percent(50) ? uint8_t{0xD2} : uint8_t{0xEE}}));
            if (r_.percent(60)) addGameOnly(p, false, mayChain);
        } else if (roll < 96) {
            static constexpr std::array<uint8_t, 4> hangs{0xC2, 0xC3, 0xC6, 0xCB};
            closeWith(p, plain({r_.pick(hangs)}));
        } else {
            closeWith(p, withField({0xFF, 0, 0}, 1, false, RefKind::GameOnly, true, false));
        }
    }

    Piece play(PieceKind kind, bool mayChain) {
        Piece p;
        p.kind = kind;
        addBody(p, r_.between(kind == PieceKind::Outside ? 1 : 0, r_.percent(15) ? 24 : 8));
        addOddities(p);
        endPlay(p, mayChain && kind != PieceKind::Outside);
        return p;
    }

    // A formation's position sequence (formations 4-21): placed, perhaps a
    // shift or motion, then a stance or hike the editor ends at (the game goes on).
    Piece formation(bool mayChain) {
        Piece p;
        p.kind = PieceKind::Formation;
        p.cmds.push_back(plain({r_.percent(50) ? uint8_t{0xD0} : uint8_t{0xD1}, r_.byte(), r_.byte()}));
        addBody(p, r_.between(0, 3));
        if (r_.percent(5)) {
            p.cmds.push_back(lockUp());
            ++out_.features[kLockUpInside];
        }
        const uint32_t roll = r_.below(100);
        if (roll < 75) {
            static constexpr std::array<uint8_t, 4> ends{0xEA, 0xEC, 0xEE, 0xD2};
            const uint8_t end = r_.pick(ends);
            p.cmds.push_back(plain({end}));
            p.editorCount = static_cast<int>(p.cmds.size());
            p.stanceEnd = end == 0xEA || end == 0xEC;
            ++out_.features[kStanceEnd];
            if (r_.percent(30)) addGameOnly(p, false, mayChain);
        } else if (roll < 88) {
            p.cmds.push_back(plain({0xD3}));
            p.editorCount = static_cast<int>(p.cmds.size());
            addGameOnly(p, true, mayChain);
            ++out_.features[kLongSnapTail];
        } else {
            endPlay(p, mayChain);
        }
        return p;
    }

    // A kick formation's position sequence (formations 0-3): placed from the
    // kick line, a stance the kick reading goes on after, the moves after the
    // kick, and an end.
    Piece kickPiece(bool mayChain) {
        Piece p;
        p.kind = PieceKind::Kick;
        p.cmds.push_back(plain({static_cast<uint8_t>(0xB0 | r_.below(4)), r_.byte(), r_.byte()}));
        addBody(p, r_.between(0, 2));
        p.cmds.push_back(plain({r_.percent(50) ? uint8_t{0xEA} : uint8_t{0xEC}}));
        if (r_.percent(40)) p.cmds.push_back(plain({static_cast<uint8_t>(0xB4 | r_.below(4)), r_.byte(), r_.byte()}));
        if (r_.percent(20)) p.cmds.push_back(plain({0xEF}));
        addBody(p, r_.between(0, 3));
        if (r_.percent(5)) {
            p.cmds.push_back(lockUp());
            ++out_.features[kLockUpInside];
        }
        ++out_.features[kKickWithStance];
        const uint32_t roll = r_.below(100);
        if (roll < 35) {
            endWithHumanControl(p, mayChain);
        } else if (roll < 60) {
            closeWith(p, withField({0xFE, 0}, 1, true, RefKind::OwnBefore, true, true));
            ++out_.features[kLoopBack];
        } else if (roll < 72) {
            closeWith(p, withField({0xFF, 0, 0}, 1, false, r_.percent(70) ? RefKind::OtherStart : RefKind::OtherMiddle, true, true));
            ++out_.features[kJumpToStart];
        } else if (roll < 80) {
            closeWith(p, withField({0xFF, 0, 0}, 1, false, RefKind::OwnMiddle, true, true));
            ++out_.features[kJumpIntoOwn];
        } else if (roll < 88 && mayChain) {
            closeWith(p, withField({0xFE, 0}, 1, true, RefKind::Next, true, true));
            chainsForward_ = true;
            ++out_.features[kForwardChain];
        } else if (roll < 94) {
            closeWith(p, plain({0xD3}));
            addGameOnly(p, true, mayChain);
            ++out_.features[kLongSnapTail];
        } else {
            closeWith(p, plain({r_.percent(50) ? uint8_t{0xC4} : uint8_t{0xC5}, static_cast<uint8_t>(r_.below(60))}));
            ++out_.features[kTwoByteEnd];
        }
        return p;
    }

    // A play's sequence of exactly `size` bytes (at least 4) ending in a loop back.
    Piece filler(int32_t size) {
        Piece p;
        p.kind = PieceKind::Play;
        int32_t left = size - 2;
        while (left > 0) {
            if (left >= 3 && r_.percent(60)) {
                p.cmds.push_back(plain({0xD7, r_.byte(), r_.byte()}));
                left -= 3;
            } else if (left >= 2 && r_.percent(50)) {
                p.cmds.push_back(plain({0xF3, r_.byte()}));
                left -= 2;
            } else {
                p.cmds.push_back(plain({0xDC}));
                left -= 1;
            }
        }
        p.cmds.push_back(withField({0xFE, 0}, 1, true, RefKind::OwnBefore, true, false));
        p.editorCount = static_cast<int>(p.cmds.size());
        ++out_.features[kLoopBack];
        return p;
    }

    // --- layout -----------------------------------------------------------

    void chooseDensity() {
        // Most images are small (a save's cost grows with the area's use);
        // some are dense, some nearly full.
        const uint32_t roll = r_.below(100);
        if (roll < 50) fill_ = r_.between(100, 1200);
        else if (roll < 75) fill_ = r_.between(1200, 4000);
        else if (roll < 88) fill_ = r_.between(4000, 7600);
        else {
            // The rest is filled by long sequences (cheaper to read than many short ones).
            fill_ = r_.between(800, 5000);
            nearlyFull_ = true;
        }
        outsideWanted_ = r_.percent(40);
        kickShare_ = r_.between(5, 20);
        formationShare_ = r_.between(10, 35);
    }

    void layPieces() {
        int32_t used = 0;
        bool mustChainTarget = false;
        while (used < fill_ || mustChainTarget) {
            const bool room = used + 200 < kSequenceAreaSize;  // room for one more after this one
            chainsForward_ = false;
            Piece p;
            const uint32_t roll = r_.below(100);
            if (mustChainTarget) p = play(PieceKind::Play, false);  // a plain one: either reading reads it the same
            else if (roll < static_cast<uint32_t>(kickShare_) && kickCount_ < 30) {
                p = kickPiece(room);
                ++kickCount_;
            } else if (roll < static_cast<uint32_t>(kickShare_ + formationShare_)) p = formation(room);
            else p = play(PieceKind::Play, room);
            mustChainTarget = chainsForward_;
            chainAfter_.push_back(chainsForward_);
            used += p.size();
            pieces_.push_back(std::move(p));
        }
        // Nearly full: sequences of exact sizes take what is left but a few bytes.
        if (nearlyFull_) {
            const int32_t keep = r_.percent(20) ? 0 : r_.between(1, 40);
            int32_t left = kSequenceAreaSize - used - keep;
            while (left >= 4) {
                const int32_t size = left <= 600 ? left : std::min<int32_t>(left, r_.between(60, 600));
                if (left - size > 0 && left - size < 4) break;
                pieces_.push_back(filler(size));
                chainAfter_.push_back(false);
                used += size;
                left -= size;
            }
            ++out_.features[kNearlyFull];
        }
        areaPieces_ = pieces_.size();
        areaUsed_ = used;
    }

    // A few sequences at 0x8000-0x9FFF, outside the area: entries and closing jumps name them.
    void layOutside() {
        if (!outsideWanted_) return;
        const int n = r_.between(1, 3);
        for (int i = 0; i < n; ++i) {
            Piece p = play(PieceKind::Outside, false);
            p.at = 0x8000 + 0xA00 * i + r_.between(0, 0x900);
            pieces_.push_back(std::move(p));
            chainAfter_.push_back(false);
            outside_.push_back(pieces_.size() - 1);
        }
    }

    // The area's pieces in order, with runs of 0xFF between them: the free
    // bytes spread over a random number of runs; after a forward chain the run
    // stays short enough for the relative jump to reach.
    void placeAll() {
        int32_t free = std::max<int32_t>(0, kSequenceAreaSize - areaUsed_);
        const size_t n = areaPieces_;
        std::vector<int32_t> gaps(n + 1, 0);
        const uint32_t runs = free == 0 ? 0 : 1 + r_.below(static_cast<uint32_t>(std::min<size_t>(n + 1, nearlyFull_ ? 4 : 80)));
        for (uint32_t k = 0; k < runs && free > 0; ++k) {
            const size_t at = r_.below(static_cast<uint32_t>(n + 1));
            // Some runs of a few bytes only, so a save must pick among them with care.
            const int32_t share = k + 1 == runs   ? free
                                  : r_.percent(30) ? std::min<int32_t>(free, r_.between(1, 8))
                                                   : static_cast<int32_t>(r_.below(static_cast<uint32_t>(free) + 1) / 2);
            int32_t add = share;
            if (at > 0 && chainAfter_[at - 1]) add = std::min<int32_t>(add, 40 - gaps[at]);
            gaps[at] += std::max<int32_t>(0, add);
            free -= std::max<int32_t>(0, add);
        }
        if (free > 0) gaps[n] += free;  // what no short run could take stays at the end
        int32_t at = kSequenceAreaAddress;
        for (size_t i = 0; i < n; ++i) {
            at += gaps[i];
            if (gaps[i] > 0) ++out_.freeRuns;
            pieces_[i].at = at;
            at += pieces_[i].size();
        }
        if (gaps[n] > 0) ++out_.freeRuns;
        out_.freeBytes = kSequenceAreaSize - areaUsed_;
        for (Piece& p : pieces_) {
            int32_t a = p.at;
            p.places.clear();
            for (const Cmd& c : p.cmds) {
                p.places.push_back(a);
                a += static_cast<int32_t>(c.bytes.size());
            }
        }
        out_.features[kSequencesLaid] = static_cast<int>(pieces_.size());
    }

    // --- targets ----------------------------------------------------------

    // A piece a closing jump may lead into: the editor reads on there in the
    // jump's reading, so it must decode the same way in it. A plain sequence
    // leads into none ending at a stance either: a kick formation may name
    // it, and its chain is then read the kick way.
    bool closingTargetFits(const Piece& t, bool kick) const {
        if (kick) return t.kick() || !t.hasStance();
        return !t.hasStance();
    }

    int otherPiece(int self, const Ref& ref) {
        const auto n = static_cast<uint32_t>(pieces_.size());
        for (int tries = 0; tries < 16; ++tries) {
            const int q = static_cast<int>(r_.below(n));
            if (q == self && n > 1) continue;
            if (ref.closing && !closingTargetFits(pieces_[static_cast<size_t>(q)], ref.kick)) continue;
            return q;
        }
        return self;
    }

    int gameOnlyPiece() {
        for (int tries = 0; tries < 16; ++tries) {
            const int q = static_cast<int>(r_.below(static_cast<uint32_t>(pieces_.size())));
            const Piece& p = pieces_[static_cast<size_t>(q)];
            if (static_cast<int>(p.cmds.size()) > p.editorCount) return q;
        }
        return -1;
    }

    // The middle command of `p` a target names: one of its editor commands after the first.
    int middleOf(const Piece& p) {
        return p.editorCount > 1 ? 1 + static_cast<int>(r_.below(static_cast<uint32_t>(p.editorCount - 1))) : 0;
    }

    void resolve(int self, int index, Ref& ref) {
        Piece& me = pieces_[static_cast<size_t>(self)];
        const int32_t from = me.places[static_cast<size_t>(index)];
        switch (ref.kind) {
        case RefKind::None: return;
        case RefKind::OwnBefore: {
            // Back within reach of a relative jump; a jump first in its run loops on itself.
            std::vector<int> options;
            for (int k = 0; k < index; ++k)
                if (from - me.places[static_cast<size_t>(k)] <= 128) options.push_back(k);
            ref.piece = self;
            ref.cmd = options.empty() ? index : options[r_.below(static_cast<uint32_t>(options.size()))];
            return;
        }
        case RefKind::OwnMiddle:
            ref.piece = self;
            ref.cmd = middleOf(me);
            return;
        case RefKind::OwnAny:
            ref.piece = self;
            ref.cmd = static_cast<int>(r_.below(static_cast<uint32_t>(me.cmds.size())));
            if (!ref.closing) ++out_.features[kBranchOwn];
            return;
        case RefKind::Next: {
            ref.piece = self + 1;
            const Piece& next = pieces_[static_cast<size_t>(self + 1)];
            ref.cmd = 0;
            if (r_.percent(25)) {
                const int m = middleOf(next);
                if (next.places[static_cast<size_t>(m)] - from <= 127) ref.cmd = m;
            }
            return;
        }
        case RefKind::OtherStart:
        case RefKind::OtherMiddle: {
            ref.piece = otherPiece(self, ref);
            const Piece& t = pieces_[static_cast<size_t>(ref.piece)];
            ref.cmd = ref.kind == RefKind::OtherMiddle ? middleOf(t) : 0;
            if (!ref.closing) ++out_.features[kBranchOther];
            return;
        }
        case RefKind::GameOnly: {
            const int q = ref.closing && ref.kick ? -1 : gameOnlyPiece();
            if (q < 0) {
                ref.kind = RefKind::OtherStart;
                resolve(self, index, ref);
                return;
            }
            const Piece& t = pieces_[static_cast<size_t>(q)];
            ref.piece = q;
            ref.cmd = t.editorCount + static_cast<int>(r_.below(static_cast<uint32_t>(static_cast<int>(t.cmds.size()) - t.editorCount)));
            return;
        }
        case RefKind::Outside:
            if (outside_.empty()) {
                ref.kind = RefKind::OtherStart;
                resolve(self, index, ref);
                return;
            }
            ref.piece = static_cast<int>(outside_[r_.below(static_cast<uint32_t>(outside_.size()))]);
            ref.cmd = 0;
            return;
        }
    }

    void resolveAll() {
        for (size_t p = 0; p < pieces_.size(); ++p)
            for (size_t i = 0; i < pieces_[p].cmds.size(); ++i)
                resolve(static_cast<int>(p), static_cast<int>(i), pieces_[p].cmds[i].ref);
    }

    int32_t addressOf(int piece, int cmd) const {
        return pieces_[static_cast<size_t>(piece)].places[static_cast<size_t>(cmd)];
    }

    // Commands the editor reads from command `cmd` of `p` on: to its end, or
    // to the closing jump of the game's commands after it.
    static int commandsFrom(const Piece& p, int cmd) {
        return (cmd < p.editorCount ? p.editorCount : static_cast<int>(p.cmds.size())) - cmd;
    }

    void expect(int piece, int cmd, bool kick, bool named) {
        const Piece& p = pieces_[static_cast<size_t>(piece)];
        ExpectedSequence e;
        e.address = addressOf(piece, cmd);
        e.kick = kick;
        e.named = named;
        // Only a stance reads differently the two ways; none stands after the editor's end.
        e.kickMatters = p.hasStance() && cmd < p.editorCount;
        e.commands = commandsFrom(p, cmd);
        out_.expected.push_back(e);
    }

    void encodeAll() {
        for (size_t p = 0; p < pieces_.size(); ++p) {
            const Piece& piece = pieces_[p];
            const int32_t offset = offsetOfAddress(piece.at);
            std::vector<uint8_t> bytes;
            for (size_t i = 0; i < piece.cmds.size(); ++i) {
                Cmd c = piece.cmds[i];
                if (c.fieldAt >= 0) {
                    const int32_t target = addressOf(c.ref.piece, c.ref.cmd);
                    const auto f = static_cast<size_t>(c.fieldAt);
                    if (c.relative) {
                        c.bytes[f] = static_cast<uint8_t>((target - piece.places[i]) & 0xFF);
                    } else {
                        c.bytes[f] = static_cast<uint8_t>(target & 0xFF);
                        c.bytes[f + 1] = static_cast<uint8_t>(target >> 8);
                    }
                    // A closing jump of the editor's sequence forward, or anywhere
                    // absolute: the open reads on at its target.
                    if (c.ref.closing && static_cast<int>(i) + 1 == piece.editorCount && !(c.relative && target <= piece.places[i]))
                        expect(c.ref.piece, c.ref.cmd, c.ref.kick, false);
                }
                bytes.insert(bytes.end(), c.bytes.begin(), c.bytes.end());
            }
            std::copy(bytes.begin(), bytes.end(), out_.bytes.begin() + offset);
        }
    }

    // --- tables -----------------------------------------------------------

    // An entry's target: a piece's first command mostly, now and then a middle
    // one, a command only the game ran, one outside the area, or a byte inside a command.
    int32_t entryTarget(int piece, bool kick, bool mayStray) {
        const Piece& p = pieces_[static_cast<size_t>(piece)];
        const uint32_t roll = r_.below(1000);
        if (mayStray && roll < 50 && p.editorCount > 1) {
            const int m = middleOf(p);
            expect(piece, m, kick, true);
            ++out_.features[kEntryIntoMiddle];
            return addressOf(piece, m);
        }
        if (mayStray && !kick && roll < 70 && static_cast<int>(p.cmds.size()) > p.editorCount) {
            const int m = p.editorCount + static_cast<int>(r_.below(static_cast<uint32_t>(static_cast<int>(p.cmds.size()) - p.editorCount)));
            expect(piece, m, kick, true);
            ++out_.features[kEntryIntoGameOnly];
            return addressOf(piece, m);
        }
        if (mayStray && !kick && roll < 73) {
            // A byte inside a command: its data bytes become one-byte
            // commands, so the editor reads them from there and then the
            // commands after it (the command itself reads as before).
            std::vector<size_t> options;
            for (size_t i = 0; i + 1 < p.cmds.size(); ++i) {
                const Cmd& c = p.cmds[i];
                const bool end = static_cast<int>(i) + 1 == p.editorCount;
                if (c.bytes.size() > 1 && c.fieldAt < 0 && (c.bytes[0] & 0xF0) != 0x90 && !end) options.push_back(i);
            }
            if (!options.empty()) {
                static constexpr std::array<uint8_t, 6> oneByte{0xDC, 0xDB, 0xCC, 0xD4, 0x35, 0xA1};
                const size_t i = options[r_.below(static_cast<uint32_t>(options.size()))];
                const int32_t inside = p.places[i] + 1;
                const auto data = static_cast<int32_t>(p.cmds[i].bytes.size()) - 1;
                for (int32_t k = 0; k < data; ++k) out_.bytes[static_cast<size_t>(offsetOfAddress(inside + k))] = r_.pick(oneByte);
                ExpectedSequence e;
                e.address = inside;
                e.named = true;
                e.commands = data + commandsFrom(p, static_cast<int>(i) + 1);
                out_.expected.push_back(e);
                ++out_.features[kEntryMisaligned];
                return inside;
            }
        }
        expect(piece, 0, kick, true);
        return p.at;
    }

    int pieceOfKind(std::initializer_list<PieceKind> kinds, bool stanceless) {
        for (int tries = 0; tries < 24; ++tries) {
            const int q = static_cast<int>(r_.below(static_cast<uint32_t>(pieces_.size())));
            const Piece& p = pieces_[static_cast<size_t>(q)];
            if (std::find(kinds.begin(), kinds.end(), p.kind) != kinds.end() && (!stanceless || !p.hasStance())) return q;
        }
        return -1;
    }

    void putWord(int32_t offset, int32_t value) {
        out_.bytes[static_cast<size_t>(offset)] = static_cast<uint8_t>(value & 0xFF);
        out_.bytes[static_cast<size_t>(offset) + 1] = static_cast<uint8_t>((value >> 8) & 0xFF);
    }

    template <typename T>
    void shuffle(std::vector<T>& v) {
        for (size_t i = v.size(); i > 1; --i) std::swap(v[i - 1], v[r_.below(static_cast<uint32_t>(i))]);
    }

    void writeTables() {
        constexpr int kFormations = 22;
        // The table entries by the reading they give: the kick formations',
        // the other formations', and the plain ones of plays and pointers.
        std::vector<int32_t> kickEntries, formationEntries, playEntries, pointerEntries;
        for (int f = 0; f < kFormations; ++f)
            for (int j = 0; j < kPlayersPerRecord; ++j)
                (f < 4 ? kickEntries : formationEntries).push_back(kFormationTableOffset + kAddressRecordSize * f + 2 * j);
        for (int p = 0; p < kPlayCount; ++p)
            for (int j = 0; j < kPlayersPerRecord; ++j) playEntries.push_back(kPlayTableOffset + kAddressRecordSize * p + 2 * j);
        for (int i = 0; i < kPointerCount; ++i) pointerEntries.push_back(kPointerTableOffset + 2 * i);
        shuffle(kickEntries);
        shuffle(formationEntries);
        shuffle(playEntries);
        // Which entries are set, by offset from the formation table on.
        std::vector<uint8_t> set(static_cast<size_t>(kPointerTableOffset + 2 * kPointerCount - kFormationTableOffset), 0);
        auto isSet = [&](int32_t offset) { return set[static_cast<size_t>(offset - kFormationTableOffset)] != 0; };
        auto name = [&](int32_t offset, int32_t target) {
            putWord(offset, target);
            set[static_cast<size_t>(offset - kFormationTableOffset)] = 1;
        };

        // First every sequence gets an entry of its own naming its start (now
        // and then one is left to no entry: its bytes are then unused, free
        // to a save, unless a jump leads there).
        std::vector<size_t> order(pieces_.size());
        for (size_t q = 0; q < order.size(); ++q) order[q] = q;
        shuffle(order);
        const bool leaveOrphans = r_.percent(10);
        for (const size_t q : order) {
            if (leaveOrphans && r_.percent(30)) continue;
            const Piece& p = pieces_[q];
            std::vector<int32_t>& from = p.kick()                                                  ? kickEntries
                                         : p.kind == PieceKind::Formation && !formationEntries.empty() ? formationEntries
                                         : !playEntries.empty()                                     ? playEntries
                                                                                                    : pointerEntries;
            if (from.empty()) continue;
            const int32_t offset = from.back();
            from.pop_back();
            if (p.kind == PieceKind::Outside) ++out_.features[kEntryOutside];
            name(offset, entryTarget(static_cast<int>(q), p.kick(), false));
        }

        // Then the rest. The kick formations name kick sequences (or plain
        // ones without a stance), the others their position sequences mostly.
        auto anyStart = [&]() { return pieces_[r_.below(static_cast<uint32_t>(areaPieces_))].at; };
        for (int f = 0; f < kFormations; ++f) {
            for (int j = 0; j < kPlayersPerRecord; ++j) {
                const int32_t offset = kFormationTableOffset + kAddressRecordSize * f + 2 * j;
                if (isSet(offset)) continue;
                const bool kick = f < 4;
                int q = kick ? pieceOfKind({PieceKind::Kick}, false) : -1;
                if (kick && q < 0) q = pieceOfKind({PieceKind::Play}, true);
                if (!kick) q = r_.percent(85) ? pieceOfKind({PieceKind::Formation}, false) : -1;
                if (!kick && q < 0) q = pieceOfKind({PieceKind::Play, PieceKind::Formation}, false);
                if (q < 0) q = pieceOfKind({PieceKind::Play}, true);
                name(offset, q < 0 ? anyStart() : entryTarget(q, kick, true));
            }
        }
        // Plays and pointers name the plays' sequences (and, now and then, a
        // formation's or one outside the area); a play's player may have none.
        const uint32_t none = r_.below(90);
        auto plainTarget = [&]() -> int32_t {
            if (!outside_.empty() && r_.percent(3)) {
                ++out_.features[kEntryOutside];
                return entryTarget(static_cast<int>(outside_[r_.below(static_cast<uint32_t>(outside_.size()))]), false, false);
            }
            int q = pieceOfKind({PieceKind::Play}, false);
            if (q < 0 || r_.percent(5)) q = pieceOfKind({PieceKind::Play, PieceKind::Formation}, false);
            return q < 0 ? anyStart() : entryTarget(q, false, true);
        };
        for (int p = 0; p < kPlayCount; ++p)
            for (int j = 0; j < kPlayersPerRecord; ++j) {
                const int32_t offset = kPlayTableOffset + kAddressRecordSize * p + 2 * j;
                if (!isSet(offset)) name(offset, r_.below(100) < none ? kNoSequence : plainTarget());
            }
        for (int i = 0; i < kPointerCount; ++i) {
            const int32_t offset = kPointerTableOffset + 2 * i;
            if (!isSet(offset)) name(offset, plainTarget());
        }

        // The slots: names, formations below 22, play numbers, the rest.
        for (int s = 0; s < kSlotCount; ++s) {
            const auto off = static_cast<size_t>(kOffSlotTableOffset + kOffSlotRecordSize * s);
            const std::string text = "SLOT " + std::to_string(s);
            for (size_t k = 0; k < static_cast<size_t>(kSlotNameLength); ++k)
                out_.bytes[off + k] = k < text.size() ? static_cast<uint8_t>(text[k]) : uint8_t{' '};
            out_.bytes[off + kSlotNameLength] = static_cast<uint8_t>(r_.percent(90) ? r_.between(4, kFormations - 1) : r_.between(0, 3));
            for (int k = 0; k < kPlaysPerSlot; ++k)
                out_.bytes[off + static_cast<size_t>(kSlotNameLength + 1 + k)] = static_cast<uint8_t>(r_.below(kPlayCount));
            const auto def = static_cast<size_t>(kDefSlotTableOffset + kDefSlotRecordSize * s);
            for (int k = 0; k < kPlaysPerSlot; ++k) out_.bytes[def + static_cast<size_t>(k)] = static_cast<uint8_t>(r_.below(kPlayCount));
            if (s < kRunningSlotCount) out_.bytes[static_cast<size_t>(kRusherTableOffset + s)] = static_cast<uint8_t>(2 * r_.below(5));
            const auto gfx = static_cast<size_t>(kGfxTableOffset + kGfxRecordSize * s);
            for (int k = 0; k < kGfxRecordSize; ++k) out_.bytes[gfx + static_cast<size_t>(k)] = r_.byte();
        }
    }

    Prng r_;
    StructuredImage out_;
    std::vector<Piece> pieces_;
    std::vector<bool> chainAfter_;  // piece i ends in a forward chain into piece i + 1
    std::vector<size_t> outside_;   // pieces laid outside the area
    size_t areaPieces_ = 0;
    int32_t areaUsed_ = 0;
    int32_t fill_ = 0;
    bool nearlyFull_ = false;
    bool outsideWanted_ = false;
    bool chainsForward_ = false;
    int kickShare_ = 10, formationShare_ = 20, kickCount_ = 0;
};

}  // namespace structured_detail

// The image laid out from `seed`; the same seed makes the same image.
inline StructuredImage structuredImage(uint64_t seed) { return structured_detail::Generator(seed).build(); }

}  // namespace zpe::fuzz
