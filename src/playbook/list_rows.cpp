#include "playbook/list_rows.h"

#include "model/hex.h"
#include "model/tables.h"

#include <algorithm>

namespace zpe {

std::string slotGroupLabel(int slot) {
    return isPassingSlot(slot) ? "P" + std::to_string(slotGroup(slot - kRunningSlotCount) + 1)
                               : "R" + std::to_string(slotGroup(slot) + 1);
}

std::string positionName(int player) {
    return player >= 0 && player < kPlayersPerRecord ? std::string(offPosNames[static_cast<size_t>(player)])
                                                     : "player " + std::to_string(player);
}

std::string playName(int play) { return "play " + std::to_string(play) + " (" + hexPlain(play) + ")"; }

std::string slotName(int slot) { return "slot " + std::to_string(slot) + " (" + slotGroupLabel(slot) + ")"; }

namespace {
// An entry's cell: the address, or "new N" for a sequence made in the editor.
std::string entryCell(SeqKey key) { return key.isNew() ? sequenceKeyText(key) : hexPlain(key.address()); }
}  // namespace

ListRow formationRow(const Playbook& pb, int f) {
    const clsFormation& form = pb.formations.at(static_cast<size_t>(f));
    ListRow row{std::nullopt, {form.name()}};
    for (int j = 0; j < kPlayersPerRecord; ++j) row.cells.push_back(entryCell(form.posAddress(j)));
    return row;
}

ListRow playSlotRow(const Playbook& pb, int s) {
    const clsPlaySlot& slot = pb.playSlots.at(static_cast<size_t>(s));
    const auto f = static_cast<size_t>(slot.formation());
    ListRow row{std::nullopt, {slot.name(), slotGroupLabel(s),
                     f < pb.formations.size() ? pb.formations[f].name() : "#" + std::to_string(f)}};
    for (int j = 0; j < kPlaysPerSlot; ++j) row.cells.push_back(hex2(slot.oPlay(j)) + ":" + hex2(slot.dPlay(j)));
    return row;
}

ListRow playRow(const Playbook& pb, int p) {
    const clsPlay& play = pb.plays.at(static_cast<size_t>(p));
    ListRow row{std::nullopt, {hexPlain(p)}};
    for (int j = 0; j < kPlayersPerRecord; ++j) row.cells.push_back(entryCell(play.seqAddress(j)));
    return row;
}

ListRow sequenceRow(SeqKey key, const clsSequence& seq, const CmdNames& names) {
    return ListRow{key, {key.isNew() ? sequenceKeyText(key) : seq.AddressRange(), seq.commandString(names)}};
}

ListRows buildRows(const Playbook& pb, const CmdNames& names) {
    ListRows rows;
    rows.formations.reserve(pb.formations.size());
    for (size_t f = 0; f < pb.formations.size(); ++f) rows.formations.push_back(formationRow(pb, static_cast<int>(f)));
    for (int s = 0; s < kSlotCount; ++s) rows.playSlots.push_back(playSlotRow(pb, s));
    for (int p = 0; p < kPlayCount; ++p) rows.plays.push_back(playRow(pb, p));
    rows.sequences.reserve(pb.sequences.size());
    for (const auto& [key, seq] : pb.sequences) rows.sequences.push_back(sequenceRow(key, seq, names));
    // The list sorts on its Address text; equal texts keep their discovery order.
    std::stable_sort(rows.sequences.begin(), rows.sequences.end(),
                     [](const ListRow& a, const ListRow& b) { return a.cells[0] < b.cells[0]; });
    return rows;
}

}  // namespace zpe
