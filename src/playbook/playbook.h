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
#include <span>
#include <vector>

namespace zpe {

struct Playbook {
    // Full path of the image this playbook was read from (the window keeps the
    // path of a failed open here too, with openComplete false).
    std::string romPath;
    // True only for a playbook an open built to its end. Saves refuse while it
    // is false, so the model is never written into an image whose open did not complete.
    bool openComplete = false;
    // The file holds no header: openedBytes has a blank one in front, which
    // every save takes off again (fileBytes), so the file keeps its form.
    bool headerless = false;
    // The image's bytes as the editor last read or wrote them: what the gap
    // listing and the area map read, and what a save expects to find on disk
    // (anything else means another program changed the image meanwhile).
    // Shared with every copy of the playbook: copies of a model cost no copy of the image.
    ImageBytes openedBytes;

    std::vector<clsFormation> formations;  // one per line of forms.txt
    std::array<clsPlaySlot, kSlotCount> playSlots{};
    std::array<clsPlay, kPlayCount> plays{};
    std::array<SeqKey, kPointerCount> seqPointers{};
    SequenceMap sequences;
};

// `headed` (bytes in the editor's form) as the file of `pb` holds them.
[[nodiscard]] std::vector<uint8_t> fileBytes(const Playbook& pb, const std::vector<uint8_t>& headed);
// The bytes of the file as it was opened (openedBytes without the header the open added), not copied.
[[nodiscard]] std::span<const uint8_t> fileSpan(const Playbook& pb);
// The same for `headed`: fileBytes without the copy.
[[nodiscard]] std::span<const uint8_t> fileSpan(const Playbook& pb, const std::vector<uint8_t>& headed);

// True when `a` and `b` hold the same slots, table entries and sequences
// (every command, its origin and what it names): nothing of one is unsaved
// against the other.
[[nodiscard]] bool sameContent(const Playbook& a, const Playbook& b);

// Formations 0..3 are the kick formations: their position sequences are read
// the kick way (the stances 0xEA and 0xEC go on).
constexpr bool isKickFormation(int formation) { return formation >= 0 && formation < 4; }

// Sequences made in the editor (a copy for one entry, a new empty one) have no
// address until a save places them: table entries name them by their key
// (SeqKey::made).
// "A123", or "new 2" for a sequence made in the editor.
[[nodiscard]] std::string sequenceKeyText(SeqKey key);

// Slot kinds: 0..31 running, 32..63 passing; groups of eight (R1..R4, P1..P4).
constexpr int slotGroup(int slot) { return slot / kSlotsPerGroup; }
constexpr bool isPassingSlot(int slot) { return slot >= kRunningSlotCount; }

}  // namespace zpe
