#include "sequence/command_panel.h"

#include "model/hex.h"
#include "sequence/command_codes.h"

#include <algorithm>

namespace zpe {

namespace {
// The data values the game reads as signed bytes: steps and offsets of moves
// (vertical, then horizontal), the drop-back, speed changes and the relative jump.
bool readsSigned(int code, int slot) {
    switch (code) {
    case cmd::kDropBack: case cmd::kMoveRelative: case cmd::kMoveToBall: case 0xCD: case 0xCE: case 0xCF:
        return slot <= 1;
    case cmd::kMoveToField: return slot == 1;
    case 0xE2: case 0xE3: case 0xF7: case cmd::kRelativeJump: return slot == 0;
    default: return false;
    }
}

// Data values are shown as the 16-bit form of the stored value.
std::string valueText(int16_t v) { return hexPlain(static_cast<uint16_t>(v)); }
}  // namespace

CommandPanelView describeCommand(const clsSequence& seq, int pos, const CommandSheet* sheet) {
    CommandPanelView view;
    const int code = seq.command(pos);
    const int dataLen = seq.dataLen(pos);
    const int shown = std::min(dataLen, kPanelSlots);
    for (int k = 0; k < kPanelSlots; ++k) {
        DataSlotView& slot = view.dataSlots[static_cast<size_t>(k)];
        slot.label = std::string("Data ") + static_cast<char>('A' + k) + ":";
        // A low code's slot A is its low nibble: one digit.
        slot.maxLength = k == 0 && cmd::isLowCode(code) ? 1 : 2;
        slot.shown = k < shown;
        if (slot.shown) slot.text = valueText(seq.data(pos, k));
        if (slot.shown && readsSigned(code, k)) {
            const int v = seq.data(pos, k) & 0xFF;
            slot.meaning = "= " + std::to_string(v >= 0x80 ? v - 256 : v);
        }
    }

    if (sheet) {
        for (const SheetRecord& r : sheet->records) {
            DataSlotView& slot = view.dataSlots[static_cast<size_t>(r.slot)];
            switch (r.kind) {
            case SheetRecord::Kind::Field:
                slot.label = r.label + ":";
                if (r.list) {
                    slot.list = true;
                    slot.items.clear();
                }
                break;
            case SheetRecord::Kind::Value: slot.items.push_back(r.label); break;
            case SheetRecord::Kind::Info: view.notes = r.label; break;
            }
        }
    }

    for (int k = 0; k < kPanelSlots; ++k) {
        DataSlotView& slot = view.dataSlots[static_cast<size_t>(k)];
        if (!slot.list) continue;
        if (!slot.shown) {
            // A list the command has no value for shows its first item, as a new list does.
            slot.selected = slot.items.empty() ? -1 : 0;
            continue;
        }
        const int item = seq.data(pos, k);
        slot.selected = item >= 0 && item < static_cast<int>(slot.items.size()) ? item : -1;
    }

    // Values beyond the four slots (a COM pass with many receivers) are shown, not edited.
    if (dataLen > kPanelSlots) {
        std::string further = "Further data, shown here only (not editable):";
        for (int k = kPanelSlots; k < dataLen; ++k)
            further += std::string(" ") + static_cast<char>('A' + k) + "=" + valueText(seq.data(pos, k));
        view.notes = view.notes.empty() ? further : further + "\n\n" + view.notes;
    }
    if (seq.readsDifferentlyByGame())
        view.notes = view.notes.empty() ? kReadsDifferentlyNote : std::string(kReadsDifferentlyNote) + "\n\n" + view.notes;
    return view;
}

}  // namespace zpe
