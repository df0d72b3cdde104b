#pragma once
// Copying and swapping playbook slots, as the Play Slots tab does them.
#include "playbook/playbook.h"

#include <string>
#include <vector>

namespace zpe {

inline constexpr const char* kKindRefusedMessage = "Running and Passing plays are not interchangeable.";
inline constexpr const char* kActionCancelledMessage = "Action Cancelled";

enum class SlotActionOutcome {
    Done,       // the slots changed; `changedSlots` lists them
    KindMixed,  // one slot running, the other passing: nothing changed
    SameSlot,   // source and target are the same slot: nothing changed
};

struct SlotActionResult {
    SlotActionOutcome outcome = SlotActionOutcome::Done;
    std::vector<int> changedSlots;  // in the order their rows are rewritten
};

// Copies slot `source` over slot `target` (0..63). When the two lie in
// different groups, the target's defensive play numbers at the two group
// positions change places. Throws std::out_of_range for a slot outside 0..63.
[[nodiscard]] SlotActionResult copySlot(Playbook& pb, int source, int target);

// Exchanges slots `a` and `b`, each moved slot exchanging its defensive play
// numbers at the two group positions when the groups differ.
[[nodiscard]] SlotActionResult swapSlot(Playbook& pb, int a, int b);

}  // namespace zpe
