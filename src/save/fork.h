#pragma once
// A copy for one entry: the commands the game runs from a table entry, along
// what falls through up to the first command the game stops or jumps at (so
// the computer's logic after Human Control comes along, or the copy rejoins
// the original through its jump), copied into the first free run; only that
// entry is pointed at the copy. Every other entry, and what the game runs
// from it, stays as it was.
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
    std::vector<uint8_t> bytes;  // the whole new image
    ForkSummary summary;
};

// What forking `entry` of `pb`'s image as opened would write. Throws
// SaveError (nothing written) when the entry names no address in the area,
// the game runs off the area from it, or no free run holds the copy (zpe
// compact makes room); VerifyError when reading the result back finds the
// game running anything else from any entry than before.
[[nodiscard]] ForkPlan planFork(const Playbook& pb, const AreaEntry& entry);

// Forks and writes the image named by pb.romPath (unchanged on disk), then opens it again into `pb`.
// `confirm` as for compactImage.
ForkSummary forkEntry(Playbook& pb, const AreaEntry& entry, const std::string& dataDir,
                      const std::function<void(const ForkSummary&)>& confirm = nullptr);

}  // namespace zpe
