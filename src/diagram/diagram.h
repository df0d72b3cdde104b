#pragma once
// The two top-down pictures: a playbook slot's play (its formation and the
// paths of its first offensive play) and a formation on its own. Both are drawn
// from the placement and movement commands of the player sequences, with the
// offense on the left moving right and the field's width running down the picture.
#include "diagram/canvas.h"
#include "playbook/playbook.h"

#include <optional>
#include <utility>
#include <vector>

namespace zpe {

inline constexpr uint32_t kFieldColor = 0x008000;    // dark green
inline constexpr uint32_t kScrimmageColor = 0xFFFFFF;  // white

inline constexpr uint32_t kHighlightColor = 0x00FFFF;  // yellow: the sequence being edited

// The play picture's default size: what `zpe render` draws and the points count in.
inline constexpr int kPlayPictureWidth = 329, kPlayPictureHeight = 217;

// One point of a player's path: where a placement or a move put him, and
// the command that did (the sequence's key and the command's index).
struct DiagramPoint {
    int x = 0, y = 0;
    SeqKey sequence;
    int command = 0;
    bool operator==(const DiagramPoint&) const = default;
};

struct DrawOptions {
    // Drawn in place of the sequence with its key (the editor's working
    // copy, before Apply), its commands in kHighlightColor.
    const clsSequence* workingCopy = nullptr;
    // Receives each player's points (eleven lists) in drawing order.
    std::vector<std::vector<DiagramPoint>>* points = nullptr;
    // Draws each player's path only up to his first `maxPoints` points (a
    // step of the animation: placement, then one segment a step); -1: all.
    int maxPoints = -1;
};

// Clears `pic` and draws the play diagram of slot `slotIndex` (0..63).
// A slot whose formation number has no formation draws only the line of
// scrimmage; a first offensive play number of 116 or more draws the formation
// alone. A follow-on chain that comes back to an address already walked for the
// same player and phase ends that phase there (as a sequence that continues
// into itself does), so no walk goes round for ever.
// `play` (0..7) picks which of the slot's eight offensive plays is drawn.
void DrawPlay(Canvas& pic, const Playbook& pb, int slotIndex, int play = 0, const DrawOptions& options = {});

// The points DrawPlay computes for slot `slotIndex`'s play `play` (0..7) at
// the default size, per player (eleven lists), following the formation's and
// the play's chains as the drawing does.
// `workingCopy` as in DrawOptions.
[[nodiscard]] std::vector<std::vector<DiagramPoint>> playPoints(const Playbook& pb, int slotIndex, int play,
                                                              const clsSequence* workingCopy = nullptr);

// The inverse of the drawing for one point of a play: the data A and B of
// command `code` that put the point at (x, y), given the pen before it
// (relative moves step from there; placements and moves to a spot take the
// absolute values, with their wrap and depth rules). Of two encodings that
// reach the pixel, the one closer to the old value (`oldA`, `oldB`). None
// when the command cannot reach that pixel (or draws no point); `nearest`
// then holds the nearest pixel it can reach (and the pixel itself otherwise).
[[nodiscard]] std::optional<std::pair<int, int>> dataForPoint(int code, int penX, int penY, int x, int y, int oldA, int oldB,
                                                              DiagramPoint* nearest = nullptr);

// Clears `pic` and draws formation `f`. Returns the players (0..10, in order)
// whose position sequence is not among the decoded sequences; nothing is drawn
// for them. An index outside the formations draws only the line of scrimmage.
// `workingCopy`, when given, is drawn in place of the sequence with its address, highlighted.
std::vector<int> drawFormation(Canvas& pic, const Playbook& pb, int f, const clsSequence* workingCopy = nullptr);

// Half the height rounded to the nearest integer, a half to the even neighbour.
int roundedHalf(int value);

}  // namespace zpe
