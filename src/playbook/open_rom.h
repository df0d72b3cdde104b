#pragma once
// Opening an image: every fixed table, every reachable sequence decoded once
// in discovery order, the gap listing cpu.txt, and the rows of the four lists.
#include "playbook/list_rows.h"
#include "playbook/playbook.h"
#include "sequence/catalogue.h"

#include <optional>
#include <string>

namespace zpe {

struct OpenOptions {
    std::string dataDir;                 // folder holding forms.txt
    std::optional<std::string> cpuPath;  // where the gap listing goes; none: not written
};

struct OpenResult {
    bool ok = false;
    std::string error;  // why the open stopped (names the file and the reason)
    ListRows rows;      // the four lists; empty when the open stopped
};

// Runs the open procedure on `path` into `pb`. On failure the procedure has
// stopped at the failing step: what was read so far stays read, `romPath`
// names the new file, `openComplete` is false (so saves refuse) and the rows
// are empty. Every file it opened is closed either way.
OpenResult openRom(Playbook& pb, const std::string& path, const OpenOptions& options, const CmdNames& names);

// The reading part of the open procedure on an image already in memory: the
// tables, the formations named by `formNames`, and every reachable sequence
// (added to `pb.sequences`, which the caller has emptied).
// Throws (RomError, std::out_of_range) where the open procedure stops.
void loadPlaybook(Playbook& pb, Image& image, const std::vector<std::string>& formNames);

// The gap listing: for each pair of neighbouring sequences (ascending address)
// whose first ends in 0xE4, the bytes between them, 16 per row. CR LF line ends.
std::string gapListing(const Playbook& pb, const Image& image, const std::vector<int32_t>& sortedKeys);

// The keys in ascending numeric order.
std::vector<int32_t> sortKeys(std::vector<int32_t> keys);

}  // namespace zpe
