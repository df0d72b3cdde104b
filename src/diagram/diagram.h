#pragma once
// The two top-down pictures: a playbook slot's play (its formation and the
// paths of its first offensive play) and a formation on its own. Both are drawn
// from the placement and movement commands of the player sequences, with the
// offense on the left moving right and the field's width running down the picture.
#include "diagram/canvas.h"
#include "playbook/playbook.h"

#include <vector>

namespace zpe {

inline constexpr uint32_t kFieldColor = 0x008000;    // dark green
inline constexpr uint32_t kScrimmageColor = 0xFFFFFF;  // white

// Clears `pic` and draws the play diagram of slot `slotIndex` (0..63).
// A slot whose formation number has no formation draws only the line of
// scrimmage; a first offensive play number of 116 or more draws the formation
// alone. A follow-on chain that comes back to an address already walked for the
// same player and phase ends that phase there (as a sequence that continues
// into itself does), so no walk goes round for ever.
// `play` (0..7) picks which of the slot's eight offensive plays is drawn.
void DrawPlay(Canvas& pic, const Playbook& pb, int slotIndex, int play = 0);

// Clears `pic` and draws formation `f`. Returns the players (0..10, in order)
// whose position sequence is not among the decoded sequences; nothing is drawn
// for them. An index outside the formations draws only the line of scrimmage.
std::vector<int> drawFormation(Canvas& pic, const Playbook& pb, int f);

// Half the height rounded to the nearest integer, a half to the even neighbour.
int roundedHalf(int value);

}  // namespace zpe
