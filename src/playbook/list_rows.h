#pragma once
// The rows of the four lists as plain text cells, in the order the window
// shows them. The window only copies these into its list views.
#include "playbook/playbook.h"
#include "sequence/catalogue.h"

#include <optional>
#include <string>
#include <vector>

namespace zpe {

struct ListRow {
    std::optional<SeqKey> key;       // Sequences list: the sequence's key; none elsewhere
    std::vector<std::string> cells;  // item text, then sub-items in order
    bool operator==(const ListRow&) const = default;
};

struct ListRows {
    std::vector<ListRow> formations;
    std::vector<ListRow> playSlots;
    std::vector<ListRow> plays;
    std::vector<ListRow> sequences;  // sorted ascending on the Address text
};

// "R1".."R4" for slots 0..31, "P1".."P4" for 32..63.
std::string slotGroupLabel(int slot);

// The names the window and the command line both give: a play's or
// formation's player ("QB", "RB", "FB", ... "RT", as the diagram's legend and
// the command texts name them), a play ("play 58 (3A)": decimal, then the
// hexadecimal the lists show) and a slot ("slot 38 (P1)").
std::string positionName(int player);
std::string playName(int play);
std::string slotName(int slot);

// One row per list entry. A slot whose formation number has no formation shows
// "#" and the number in its Formation cell.
ListRow formationRow(const Playbook& pb, int f);
ListRow playSlotRow(const Playbook& pb, int s);
ListRow playRow(const Playbook& pb, int p);
ListRow sequenceRow(SeqKey key, const clsSequence& seq, const CmdNames& names);

// All four lists.
[[nodiscard]] ListRows buildRows(const Playbook& pb, const CmdNames& names);

}  // namespace zpe
