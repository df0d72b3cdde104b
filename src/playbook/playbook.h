#pragma once
// What the running editor knows about the open image. One object, owned by the
// window or by one command-line command and passed by reference.
#include "model/image.h"
#include "model/play_slot.h"
#include "model/records.h"
#include "playbook/sequence_map.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace zpe {

struct Playbook {
    // Full path of the image named by the last open (set as soon as an open
    // starts, like the file dialog's answer).
    std::string romPath;
    // True only after an open ran to its end. Saves refuse while it is false, so
    // the model is never written into an image whose open did not complete.
    bool openComplete = false;

    std::vector<clsFormation> formations;  // one per line of forms.txt
    std::array<clsPlaySlot, kSlotCount> playSlots{};
    std::array<clsPlay, kPlayCount> plays{};
    std::array<int32_t, kPointerCount> seqPointers{};
    SequenceMap sequences;
};

// Slot kinds: 0..31 running, 32..63 passing; groups of eight (R1..R4, P1..P4).
constexpr int slotGroup(int slot) { return slot / 8; }
constexpr bool isPassingSlot(int slot) { return slotGroup(slot) >= 4; }

}  // namespace zpe
