#pragma once
// The layout engine: where every sequence of the edited model goes in the
// image, and its bytes there. It keeps every unchanged command where it is;
// it writes a changed sequence in place when its bytes fit and no other path
// of the game or the editor reads a changed byte or a command that would
// stand elsewhere; otherwise it moves the sequence into a free run (bytes
// neither the editor nor the game uses), preferring one the relative jumps
// that must reach it can reach, else making those jumps absolute. Sizes
// depend on places (a relative jump out of reach is one byte longer), so
// decisions and places are worked out again until they stay, before any
// byte is written. Every address field is encoded by encodeCommand.
//
// Where the game goes on after a sequence's last command (Human Control,
// Long Snap, the stances), it goes on at the same command after the layout:
// by falling through, or by a jump right after the sequence; after a Long
// Snap an absolute jump would change the editor's reading (D3 before FF is no
// end), so there the commands the game ran after it are copied instead.
#include "analysis/area_map.h"
#include "playbook/playbook.h"
#include "save/saves.h"

#include <cstdint>
#include <span>
#include <unordered_map>
#include <vector>

namespace zpe {

// One sequence of the model on its way into the image.
struct Chain {
    SeqKey key;
    const clsSequence* seq = nullptr;
    int32_t oldSize = 0;         // bytes it took in the image (0: made in the editor)
    int32_t continuation = -1;   // where the game goes on after its last command (-1: it does not)
    bool moved = false;          // written into a free run instead of at its key
    int32_t place = 0;           // where it is written (its address when not moved)
    bool written = false;        // its bytes differ from what the image holds there
    bool edited = false;         // its commands differ from those read at its key (made in the editor: true)

    // Its encoding at `place`.
    std::vector<uint8_t> bytes;     // the commands, then the way on to the continuation
    std::vector<int32_t> places;    // each command's address
    std::vector<int32_t> targets;   // each command's field as written (clsSequence::kNoField: none)
    int32_t linkAt = -1;            // where the jump to the continuation, or the copied commands, start (-1: none)
    std::vector<std::pair<int32_t, int32_t>> tail;  // copied commands after a long snap: new place, where the game ran it
};

struct LayoutResult {
    std::vector<Chain> chains;                    // in the model's order
    std::unordered_map<SeqKey, int32_t> moves;    // key of a moved or placed sequence -> its place
    int32_t freeBytesLeft = 0;
};

// Lays out every sequence of `pb` (sequences made in the editor that no
// entry reaches are left out) over the image `old` was read from (`image`:
// its bytes, `map`: the game's reading of them). Throws SaveError (with its
// kind) when it refuses.
[[nodiscard]] LayoutResult layOut(const Playbook& pb, const Playbook& old, const AreaMap& map,
                                  const std::vector<uint8_t>& image);

// Where a field of a command copied after a Long Snap leads (`tail`: each
// copied command's new place and where the game ran it): to the copy of the
// command it led to, when that one was copied too; else where it led. A
// branch into the middle of a copied command (the game read those bytes as
// another command too) still leads to the original, which stays.
[[nodiscard]] int32_t copiedLead(const std::vector<std::pair<int32_t, int32_t>>& tail, int32_t target);

// The entries of `old` that start no valid sequence (the open read on without
// an end), each target once, with the bytes the open read from it in `image`.
// The game still runs those bytes from there: a save must not change them.
[[nodiscard]] std::vector<std::pair<AreaEntry, int32_t>> unendedReadings(const Playbook& old, const std::vector<uint8_t>& image);

// The runs of the sequence area that a write over `old`'s image (`image`, the
// game's reading of it `map`) may put commands into: bytes neither the game
// runs nor an editor sequence of `old` holds, less the byte right after an
// editor sequence ending in a Long Snap (a jump written there would make the
// editor read on) and the bytes an entry that starts no valid sequence reads
// (`unended`, from unendedReadings: writing there would give it one).
// `leaveAlone` (by area index; shorter: the rest free) marks more bytes to keep.
[[nodiscard]] std::vector<AreaRun> writableRuns(const Playbook& old, const AreaMap& map, const std::vector<uint8_t>& image,
                                                const std::vector<std::pair<AreaEntry, int32_t>>& unended,
                                                const std::vector<uint8_t>& leaveAlone = {});

}  // namespace zpe
