#include "playbook/slot_actions.h"

#include <gtest/gtest.h>

namespace zpe {
namespace {

// Every slot gets distinct values: name "S<n>", formation n, rusher, plays and graphics.
Playbook numberedSlots() {
    Playbook pb;
    for (int s = 0; s < kSlotCount; ++s) {
        clsPlaySlot& slot = pb.playSlots[static_cast<size_t>(s)];
        slot.name("S" + std::to_string(s));
        slot.formation(s);
        slot.Rusher(s % 10);
        for (int j = 0; j < 8; ++j) {
            slot.oPlay(j, s + j);
            slot.dPlay(j, 100 + 8 * (s % 16) + j);
        }
        for (int j = 0; j < kGfxRecordSize; ++j) slot.GFX(j, (s * 3 + j) & 0xFF);
    }
    return pb;
}

clsPlaySlot withDefenceExchanged(clsPlaySlot slot, int g1, int g2) {
    const int16_t a = slot.dPlay(g1);
    slot.dPlay(g1, slot.dPlay(g2));
    slot.dPlay(g2, a);
    return slot;
}

TEST(SlotActions, CopyWithinAGroupIsAnExactCopy) {
    Playbook pb = numberedSlots();
    const Playbook before = pb;
    const auto r = copySlot(pb, 2, 5);
    EXPECT_EQ(r.outcome, SlotActionOutcome::Done);
    EXPECT_EQ(r.changedSlots, std::vector<int>{5});
    EXPECT_EQ(pb.playSlots[5], before.playSlots[2]);
    EXPECT_EQ(pb.playSlots[2], before.playSlots[2]);
    EXPECT_EQ(pb.playSlots[5].Rusher(), before.playSlots[2].Rusher()) << "the rusher value moves with the slot";
}

TEST(SlotActions, CopyAcrossGroupsExchangesTheGroupDefences) {
    Playbook pb = numberedSlots();
    const Playbook before = pb;
    ASSERT_EQ(copySlot(pb, 0, 9).outcome, SlotActionOutcome::Done);
    EXPECT_EQ(pb.playSlots[9], withDefenceExchanged(before.playSlots[0], 0, 1));
    EXPECT_EQ(pb.playSlots[0], before.playSlots[0]);
}

TEST(SlotActions, SwapMovesBothSlots) {
    Playbook pb = numberedSlots();
    const Playbook before = pb;
    const auto r = swapSlot(pb, 40, 63);
    EXPECT_EQ(r.changedSlots, (std::vector<int>{40, 63}));
    EXPECT_EQ(pb.playSlots[40], withDefenceExchanged(before.playSlots[63], 5, 7));
    EXPECT_EQ(pb.playSlots[63], withDefenceExchanged(before.playSlots[40], 5, 7));
}

TEST(SlotActions, KindsNeverMixAndTheSameSlotCancels) {
    for (auto [a, b] : std::vector<std::pair<int, int>>{{31, 32}, {32, 31}, {0, 63}}) {
        Playbook pb = numberedSlots();
        const Playbook before = pb;
        EXPECT_EQ(copySlot(pb, a, b).outcome, SlotActionOutcome::KindMixed);
        EXPECT_EQ(swapSlot(pb, a, b).outcome, SlotActionOutcome::KindMixed);
        EXPECT_EQ(pb.playSlots, before.playSlots);
    }
    Playbook pb = numberedSlots();
    const Playbook before = pb;
    EXPECT_EQ(swapSlot(pb, 7, 7).outcome, SlotActionOutcome::SameSlot);
    EXPECT_EQ(copySlot(pb, 40, 40).outcome, SlotActionOutcome::SameSlot);
    EXPECT_EQ(pb.playSlots, before.playSlots);
    EXPECT_THROW(static_cast<void>(copySlot(pb, 0, 64)), std::out_of_range);
}

}  // namespace
}  // namespace zpe
