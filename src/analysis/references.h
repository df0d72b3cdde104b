#pragma once
// Who uses a sequence: every table entry that names it and every command
// the game can reach whose jump or address field leads to its address.
#include "analysis/area_map.h"

#include <vector>

namespace zpe {

struct References {
    std::vector<AreaEntry> entries;    // table order: pointers, plays, formations
    std::vector<AddressField> fields;  // commands the game reaches that lead to the address, ascending
};

// Linear in the area and the tables.
[[nodiscard]] References referencesTo(const Playbook& pb, SeqKey key);

}  // namespace zpe
