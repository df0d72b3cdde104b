#pragma once
// Slots carried from another image: one slot, or the whole playbook of 64.
// Each slot's formation and each distinct play go where the image already
// has a record that runs the same (kept as it is), else into a formation or
// play record that is free to take; the commands go in through the carried
// command engine, all in one write, and each slot record takes the name,
// formation, plays, defensive plays, graphics and (a running slot) rusher.
#include "model/play_slot.h"
#include "save/carried.h"

#include <array>
#include <functional>
#include <string>
#include <vector>

namespace zpe {

// A formation or a play carried: its number (and a formation's name) in the source, and its eleven entries.
struct CarriedRecord {
    int source = -1;
    std::string name;
    CarriedLeads leads;
};

// One carried slot: its record as the source held it, its formation and its
// eight offensive plays named by index into the book's lists.
struct CarriedSlot {
    int source = -1;     // its number in the source
    bool running = true; // a running slot (0-31) there, else a passing one
    clsPlaySlot record;  // name, defensive plays, graphics, rusher (its formation and plays are below)
    int formation = 0;
    std::array<int, kPlaysPerSlot> plays{};
};

struct CarriedBook {
    std::vector<CarriedCommand> commands;  // shared by every formation and play
    std::vector<CarriedRecord> formations;
    std::vector<CarriedRecord> plays;
    std::vector<CarriedSlot> playSlots;
};

// The slots `slots` of `pb`'s image as opened, each formation and play once.
[[nodiscard]] CarriedBook carrySlots(const Playbook& pb, const std::vector<int>& slots);
// The first way `book` is not one the game could run ("" when it is).
[[nodiscard]] std::string carriedBookFault(const CarriedBook& book);

struct BookImportSummary {
    std::vector<std::pair<int, std::string>> playSlots;  // each slot written and the name it now has
    std::vector<std::pair<int, bool>> formations;    // each carried formation: its record here, reused (true) or copied into it
    std::vector<std::pair<int, bool>> plays;         // the same for each carried play
    CarriedLayout laid;                              // its bytes aside
    // One slot: "slot 12 (R2) now holds HB DIVE: formation 8 (reused), plays 05 (copied), 18 (reused); 31 commands copied (...)."
    // The playbook: "64 slots imported: 18 formations (12 reused, 6 copied), 70 plays (52 reused, 18 copied); ...".
    [[nodiscard]] std::string text() const;
};

struct BookImportPlan {
    std::vector<uint8_t> bytes;  // the whole new image (headed)
    BookImportSummary summary;
};

// Slot `target` of `pb` takes the book's one slot: its formation and plays
// reused, else copied into records no other slot uses (the target's own
// first; never a kick formation's). Throws SaveError, nothing written: a slot
// of the other kind (running and passing slots do not mix), no record left,
// too little free space, or a result read otherwise than planned.
[[nodiscard]] BookImportPlan planSlotImport(const Playbook& pb, const CarriedBook& book, int target);
// Every slot of `pb` takes the book's slot of the same number (the book holds
// all 64): formations and plays reused, else copied into records the book
// does not reuse, those some slot of `pb` used first. Refuses as
// planSlotImport does, with how many records it needs.
[[nodiscard]] BookImportPlan planPlaybookImport(const Playbook& pb, const CarriedBook& book);

// Writes a plan's bytes into the image named by pb.romPath (unchanged on disk: the plan was made
// from it), then opens it again into `pb`. `confirm` sees the summary before the write lands.
BookImportSummary importBook(Playbook& pb, const BookImportPlan& plan, const std::string& dataDir,
                             const std::function<void(const BookImportSummary&)>& confirm = nullptr);

}  // namespace zpe
