#pragma once
// A play carried from another image into play Q of this one: the commands
// the game ran from the play's eleven entries there go into free bytes with
// every field written for where its target now stands; where the image
// already runs the very same thing (the computer's logic after Human
// Control, a shared block), that is reused instead of copied. Only play Q's
// record and free bytes change, and the write is checked before it lands.
#include "save/carried.h"

#include <functional>
#include <string>
#include <vector>

namespace zpe {

struct CarriedPlay {
    std::vector<CarriedCommand> commands;
    CarriedLeads players;  // QB ... RT; None: the player runs nothing (FFFF)
};

// What the game runs from play `playNumber`'s entries in `pb`'s image as opened.
[[nodiscard]] CarriedPlay carryPlay(const Playbook& pb, int playNumber);

// The first way `play` is not a play the game could run ("" when it is one).
[[nodiscard]] std::string carriedPlayFault(const CarriedPlay& play);

// How carried commands went in: "25 commands copied (73 bytes in 2 free runs), 14 reused; 1,011 free bytes left".
[[nodiscard]] std::string layoutText(const CarriedLayout& laid);

struct PlayImportSummary {
    int play = 0;
    CarriedLayout laid;  // its bytes aside
    // "play 3 (3) now runs the imported play: 25 commands copied (73 bytes in 2 free runs), 14 reused; 1,011 free bytes left."
    [[nodiscard]] std::string text() const;
};

struct PlayImportPlan {
    std::vector<uint8_t> bytes;  // the whole new image (headed)
    PlayImportSummary summary;
};

// What importing `play` into play `playNumber` of `pb` (as opened, no edits)
// would write. Throws SaveError, nothing written: a faulty play, too little
// free space (NoFreeRun, with what it needs and what is free), or a result
// the game or the editor would read otherwise than planned (WouldNotReopen).
[[nodiscard]] PlayImportPlan planPlayImport(const Playbook& pb, const CarriedPlay& play, int playNumber);

// Plans, writes the image named by pb.romPath (unchanged on disk), then opens it again into `pb`.
// `confirm` sees the summary before the write lands; when it throws, nothing is written.
PlayImportSummary importPlay(Playbook& pb, const CarriedPlay& play, int playNumber, const std::string& dataDir,
                             const std::function<void(const PlayImportSummary&)>& confirm = nullptr);

}  // namespace zpe
