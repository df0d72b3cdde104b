#pragma once
// A play carried from another image: what the game ran from the play's
// eleven entries there, as commands with their bytes, what follows each and
// where each address field leads. Imported into play Q of this image, the
// commands go into free bytes (neither run by the game nor part of an editor
// sequence) with every field written for where its target now stands; where
// the image already runs the very same thing (the computer's logic after
// Human Control, a shared block), that is reused instead of copied. Only
// play Q's record and free bytes change, and the write is checked by the
// game's reading before it lands.
#include "analysis/area_map.h"
#include "model/play_slot.h"
#include "playbook/playbook.h"
#include "sequence/command_format.h"

#include <array>
#include <functional>
#include <string>
#include <vector>

namespace zpe {

// Where an entry, a command's fall-through or its field leads.
struct CarriedLead {
    enum class Kind { None, Command, Outside };
    Kind kind = Kind::None;
    int command = -1;     // Command: an index into CarriedPlay::commands
    int32_t address = 0;  // Outside: a game address outside the sequence area (the game's own code)

    static CarriedLead none() { return {}; }
    static CarriedLead to(int index) { return {Kind::Command, index, 0}; }
    static CarriedLead outside(int32_t a) { return {Kind::Outside, -1, a}; }
    bool operator==(const CarriedLead&) const = default;
};

struct CarriedCommand {
    int32_t origin = -1;         // where it stood in the source image (a name for it, never an address here)
    std::vector<uint8_t> bytes;  // as the game reads it; a field's bytes as they stood in the source
    CarriedLead next;            // what the game runs after it; None when it does not go on
    CarriedLead field;           // where its address field leads; None without one
};

struct CarriedPlay {
    std::vector<CarriedCommand> commands;
    std::array<CarriedLead, kPlayersPerRecord> players;  // QB ... RT; None: the player runs nothing (FFFF)
};

// What the game runs from the table entries naming `entries` (addresses;
// FFFF: nothing) in `pb`'s image as opened: every command it reaches inside
// the area, in address order; `leads` gets each entry as a lead to them.
[[nodiscard]] std::vector<CarriedCommand> carryEntries(const Playbook& pb, const std::vector<int32_t>& entries, std::vector<CarriedLead>& leads);

// What the game runs from play `playNumber`'s entries in `pb`'s image as
// opened: every command it reaches inside the area, in address order.
[[nodiscard]] CarriedPlay carryPlay(const Playbook& pb, int playNumber);

// The first way `play` is not a play the game could have run ("" when it is
// one): every command's bytes read by the game as one command of their
// length, going on exactly when `next` says so, with a field exactly when
// `field` names something; every index in range.
[[nodiscard]] std::string carriedPlayFault(const CarriedPlay& play);

struct PlayImportSummary {
    int play = 0;
    int reused = 0;            // commands the image already ran the same way
    int copied = 0;            // commands written into free bytes
    int32_t bytesWritten = 0;  // joining jumps included
    int runs = 0;              // free runs written into
    int32_t freeLeft = 0;      // free bytes of the area afterwards
    // "play 3 (03) now runs the imported play: 25 commands copied (73 bytes in 2 free runs), 14 reused; 1,011 free bytes left."
    [[nodiscard]] std::string text() const;
};

struct PlayImportPlan {
    std::vector<uint8_t> bytes;  // the whole new image (headed)
    PlayImportSummary summary;
};

// What importing `play` into play `playNumber` of `pb` (as opened, no edits)
// would write. Throws SaveError, nothing written: a faulty play
// (carriedPlayFault), too little free space (NoFreeRun, with what it needs
// and what is free), or a result the game or the editor would read otherwise
// than planned (WouldNotReopen, in words).
[[nodiscard]] PlayImportPlan planPlayImport(const Playbook& pb, const CarriedPlay& play, int playNumber);

// A slot carried from another image: its record (name, defensive plays,
// graphics, rusher) and what the game runs from its formation's positions
// and from each of its offensive plays.
struct CarriedSlot {
    std::vector<CarriedCommand> commands;  // the formation's and every play's, together
    clsPlaySlot record;                    // name, defensive plays, graphics bytes, rusher (formation and plays are carried below)
    bool running = true;                   // it came from a running slot (0-31), else a passing one
    std::string formationName;
    std::array<CarriedLead, kPlayersPerRecord> formation;
    // Each distinct offensive play once, with its number in the source; playOf[k] is the k-th play's index here.
    std::vector<std::array<CarriedLead, kPlayersPerRecord>> plays;
    std::vector<int> sourcePlays;
    std::array<int, kPlaysPerSlot> playOf{};
};

// Slot `slot` of `pb`'s image as opened.
[[nodiscard]] CarriedSlot carrySlot(const Playbook& pb, int slot);
// The first way `slot` is not one the game could run ("" when it is one).
[[nodiscard]] std::string carriedSlotFault(const CarriedSlot& slot);

struct SlotImportSummary {
    int slot = 0;
    std::string name;
    int formation = 0;
    bool formationReused = false;
    std::vector<std::pair<int, bool>> plays;  // each distinct play: the record it is in, reused (true) or copied into it
    int reused = 0, copied = 0, runs = 0;
    int32_t bytesWritten = 0, freeLeft = 0;
    // "slot 12 (R2) now holds HB DIVE: formation 7 (copied), plays 0A (reused), 31 (copied); 25 commands copied (73 bytes in 2 free runs), 14 reused; 1,011 free bytes left."
    [[nodiscard]] std::string text() const;
};

struct SlotImportPlan {
    std::vector<uint8_t> bytes;
    SlotImportSummary summary;
};

// What bringing `slot` into slot `target` of `pb` would write: the formation
// and each distinct play go where the image already has a record that runs
// the same, else into a formation or play record no other slot uses (the
// target's own first); the slot's record takes the name, the formation, the
// plays, the defensive plays, the graphics and (a running slot) the rusher.
// Throws SaveError, nothing written: a slot of the other kind (running and
// passing slots do not mix), no free record left, too little free space, or
// a result read otherwise than planned.
[[nodiscard]] SlotImportPlan planSlotImport(const Playbook& pb, const CarriedSlot& slot, int target);
SlotImportSummary importSlot(Playbook& pb, const CarriedSlot& slot, int target, const std::string& dataDir,
                             const std::function<void(const SlotImportSummary&)>& confirm = nullptr);

// Plans, writes the image named by pb.romPath (unchanged on disk), then opens it again into `pb`.
// `confirm` sees the summary before the write lands; when it throws, nothing is written.
PlayImportSummary importPlay(Playbook& pb, const CarriedPlay& play, int playNumber, const std::string& dataDir,
                             const std::function<void(const PlayImportSummary&)>& confirm = nullptr);

}  // namespace zpe
