#pragma once
// The tables of the image that point at sequences or describe the playbook:
// how each is read and written, side by side, so a change of layout is made
// in one place. Every function works at the table's fixed place in `image`,
// whatever the image's current position was.
#include "playbook/playbook.h"

#include <string>
#include <vector>

namespace zpe {

// The tables, as flags: a save names the ones it writes.
enum TableSet : unsigned {
    kFormationTable = 1u << 0,  // 22 bytes a formation: eleven position addresses
    kPlayTable = 1u << 1,       // 22 bytes a play: eleven player addresses
    kPointerTable = 1u << 2,    // 192 sequence addresses
    kSlotTables = 1u << 3,      // the offensive, defensive, rusher and graphics records of the 64 slots
    kAllTables = kFormationTable | kPlayTable | kPointerTable | kSlotTables,
};

// Reads every table into `pb`; the formations get the names in `formNames`
// (one record a name). Throws RomError when the image ends inside a table.
void readTables(Playbook& pb, Image& image, const std::vector<std::string>& formNames);

// Writes the tables named in `tables` from `pb` into `image`.
void writeTables(const Playbook& pb, Image& image, unsigned tables);

// Writes the four records of one slot (0..63; the rusher only for running slots).
void writeSlot(const Playbook& pb, Image& image, int slot);

// File offset of a play's player entry and of a formation's position entry
// (player 0..10), where a save that changes one address writes it.
int32_t playEntryOffset(int play, int player);
int32_t formationEntryOffset(int formation, int player);
int32_t pointerEntryOffset(int pointer);

}  // namespace zpe
