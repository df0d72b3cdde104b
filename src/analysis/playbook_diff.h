#pragma once
// What differs between two images in playbook terms: slots and their fields,
// play, formation and pointer entries, sequences changed, moved or added, and
// the other bytes by region.
#include "playbook/playbook.h"

#include <string>
#include <vector>

namespace zpe {

// One line per difference, in table order. Both playbooks come from complete
// opens (their openedBytes are the two images).
[[nodiscard]] std::vector<std::string> describeDifferences(const Playbook& original, const Playbook& edited);

}  // namespace zpe
