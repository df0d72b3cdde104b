#pragma once
// A copy for one entry: the sequence the entry runs, copied (as the window's
// "only this entry" copies it) and placed by Save's layout, with the way on
// to where the game went on after it (the computer's logic after Human
// Control); only that entry is pointed at the copy. Every other entry, and
// what the game runs from it, stays as it was.
#include "analysis/area_map.h"

#include <functional>
#include <string>
#include <vector>

namespace zpe {

struct ForkSummary {
    std::string entry;    // "play 23 player 4"
    int32_t from = 0;     // the address the entry named
    int32_t to = 0;       // where its copy stands
    int32_t size = 0;     // the copy's bytes
    int32_t freeLeft = 0; // free bytes of the area afterwards
    // "play 23 player 4 now runs its own copy of A123 at BA10 (37 bytes); 1,084 free bytes left."
    [[nodiscard]] std::string text() const;
};

struct ForkPlan {
    ImageBytes bytes;            // the whole new image
    ForkSummary summary;
};

// What forking `entry` of `pb` (as opened, no edits) would write. Throws
// SaveError (nothing written) when the entry names no sequence in the area,
// the sequence cannot be copied (the game reads it with other lengths), or
// no free run holds the copy (zpe compact makes room); VerifyError when the
// check before the write finds anything else changed.
[[nodiscard]] ForkPlan planFork(const Playbook& pb, const AreaEntry& entry);

// Forks and writes the image named by pb.romPath (unchanged on disk), then opens it again into `pb`.
// `confirm` as for compactImage.
ForkSummary forkEntry(Playbook& pb, const AreaEntry& entry, const std::string& dataDir,
                      const std::function<void(const ForkSummary&)>& confirm = nullptr);

}  // namespace zpe
