#pragma once
// What the sequence editor panel shows for one command of a sequence: for each
// of the four data slots its label, whether it is a text box or a list, the
// box's length, the list's items and the value; and the notes. The window
// copies this into its widgets and adds no rule of its own.
#include "sequence/command_sheet.h"
#include "sequence/sequence.h"

#include <array>
#include <string>
#include <vector>

namespace zpe {

inline constexpr int kPanelSlots = 4;  // data slots A..D

inline constexpr const char* kReadsDifferentlyNote =
    "The game reads this sequence differently: it holds a COM pass (9N) or F1, whose length the game counts "
    "otherwise, so what follows that command is not what the game runs.";

struct DataSlotView {
    bool shown = false;      // the slot belongs to the command: its label and value are shown
    std::string label;       // "Data A:" or the sheet's label with ":"
    bool list = false;       // the sheet makes it a list: the list stands where the text box was
    std::vector<std::string> items;  // the list's items; item k stands for value k
    int selected = -1;       // the list item of the value; -1 when the value has no item
    std::string text;        // the text box: the value in hexadecimal ("" when not shown)
    int maxLength = 2;       // hexadecimal digits the text box takes
    std::string meaning;     // a signed value in decimal ("= -8" for F8) where the command reads it signed; else ""
};

struct CommandPanelView {
    std::array<DataSlotView, kPanelSlots> dataSlots;
    // The sheet's Info; values beyond slot D are listed before it, and before
    // everything a line saying the game reads the sequence differently.
    std::string notes;
};

// The panel for command `pos` of `seq` (0..commandCount-1) with its sheet
// (nullptr when the command has none).
[[nodiscard]] CommandPanelView describeCommand(const clsSequence& seq, int pos, const CommandSheet* sheet);

}  // namespace zpe
