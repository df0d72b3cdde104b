#include "playbook/slot_actions.h"

#include <stdexcept>
#include <string>

namespace zpe {

namespace {

void checkSlot(int s) {
    if (s < 0 || s >= kSlotCount) throw std::out_of_range("slot " + std::to_string(s) + " outside 0 to 63");
}

void exchangeDefence(clsPlaySlot& slot, int gs, int gt) {
    const int16_t atSource = slot.dPlay(gs);
    slot.dPlay(gs, slot.dPlay(gt));
    slot.dPlay(gt, atSource);
}

SlotActionResult perform(Playbook& pb, int ss, int tt, bool swap) {
    checkSlot(ss);
    checkSlot(tt);
    const int gs = slotGroup(ss), gt = slotGroup(tt);
    if (isPassingSlot(ss) != isPassingSlot(tt)) return {SlotActionOutcome::KindMixed, {}};
    if (ss == tt) return {SlotActionOutcome::SameSlot, {}};

    // Both copies are taken before anything changes.
    clsPlaySlot a, b;
    a.clone(pb.playSlots[static_cast<size_t>(ss)]);
    b.clone(pb.playSlots[static_cast<size_t>(tt)]);
    SlotActionResult result;
    if (swap) {
        clsPlaySlot& source = pb.playSlots[static_cast<size_t>(ss)];
        source.clone(b);
        if (gs != gt) exchangeDefence(source, gs, gt);
        result.changedSlots.push_back(ss);
    }
    clsPlaySlot& target = pb.playSlots[static_cast<size_t>(tt)];
    target.clone(a);
    if (gs != gt) exchangeDefence(target, gs, gt);
    result.changedSlots.push_back(tt);
    return result;
}

}  // namespace

SlotActionResult copySlot(Playbook& pb, int source, int target) { return perform(pb, source, target, false); }
SlotActionResult swapSlot(Playbook& pb, int a, int b) { return perform(pb, a, b, true); }

}  // namespace zpe
