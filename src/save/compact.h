#pragma once
// Compact: the sequence area laid out anew as the game reads it. Every byte
// the game can run or the editor decodes is kept, in the same order; every
// byte neither uses is dropped, so the free space ends up in one run at the
// end. Since the order is kept, no distance between two kept bytes grows:
// fall-through stays fall-through and every relative jump stays in reach.
// Every address field the game reads (jumps, branches, a COM pass's receiver
// script) and every table entry into the area is relinked to where its
// target now stands; nothing outside the area changes except those entries.
#include "playbook/playbook.h"
#include "save/save_changes.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace zpe {

struct CompactSummary {
    int32_t keptBytes = 0;      // bytes of the area kept (the game's and the editor's)
    int32_t freeStart = 0;      // first address of the one free run after compaction
    int32_t freeBytes = 0;
    int runsBefore = 0;         // free runs before
    int32_t largestBefore = 0;  // the largest of them
    int fieldsRelinked = 0;     // address fields and table entries whose value changed
    // "Compacted: 7,071 bytes the game runs, 1,121 free in one run from BB9F
    // (before: 176 runs, largest 158 bytes); 412 address fields relinked."
    [[nodiscard]] std::string text() const;
};

struct CompactPlan {
    std::vector<uint8_t> bytes;  // the whole new image
    CompactSummary summary;
    // Where a kept address of the area now stands (old address - 0xA000 as index; -1: dropped).
    std::vector<int32_t> newAddress;
    // An address's new place: unchanged outside the area, -1 for a dropped byte.
    [[nodiscard]] int32_t moved(int32_t address) const;
    // What an entry naming `key` names after compaction: the sequence's new
    // start (a dropped byte: unchanged); a sequence made in the editor stays itself.
    [[nodiscard]] SeqKey moved(SeqKey key) const;
};

// What compaction would write for `pb`'s image as it was opened
// (pb.openedBytes). Throws SaveError, writing nothing, naming the place: a
// path the game runs off the area's end; two commands the game runs that
// share bytes where relinking one would change the other. The result is read
// back before it is returned (the game runs the same commands from every
// entry; the editor's sequences decode to the same commands); a difference
// throws VerifyError.
[[nodiscard]] CompactPlan planCompact(const Playbook& pb);

// The model `pb` carried over to a compacted image: sequence keys, command
// origins, what their fields name and every table entry move with `plan`;
// edits not yet saved stay edits. `bytes` becomes the image it describes.
[[nodiscard]] Playbook carryOver(const Playbook& pb, const CompactPlan& plan);

// Compacts the image named by pb.romPath (which must be unchanged on disk)
// and opens it again into `pb` (edits not yet saved are not carried: save them
// first, or use carryOver with Save's plan).
// `confirm`, when given, sees the summary before the new image takes the file's name; when it throws, nothing is written.
CompactSummary compactImage(Playbook& pb, const std::string& dataDir,
                            const std::function<void(const CompactSummary&)>& confirm = nullptr);

// Compact and Save in one write: the image is compacted, the model's edits
// carried over and saved into it (Save's plan and its check on the compacted
// bytes), then the image is opened again into `pb`. For a save that found no
// free run large enough. Returns both summaries.
struct CompactSaveSummary {
    CompactSummary compacted;
    SaveSummary saved;  // its free bytes: what is left once the edits are in
};
CompactSaveSummary compactAndSave(Playbook& pb, const std::string& dataDir);

// What compactAndSave would write, and both summaries; nothing is written.
struct CompactSavePlan {
    ImageBytes bytes;            // the whole new image
    CompactSaveSummary summary;
};
[[nodiscard]] CompactSavePlan planCompactAndSave(const Playbook& pb);

}  // namespace zpe
