// Treats arbitrary bytes as each of the data files in turn: forms.txt lines,
// cmd.txt records and a command sheet, then fills the editor panel from that
// sheet for every kind of command. No input may crash, hang or grow a name or
// label past the cut every data-file text gets.
#include "model/text_file.h"
#include "sequence/catalogue.h"
#include "sequence/command_panel.h"
#include "sequence/command_sheet.h"

#include <cstdint>
#include <cstdlib>
#include <string>

namespace {
void check(bool ok) {
    if (!ok) std::abort();
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace zpe;
    const std::string text(reinterpret_cast<const char*>(data), size);
    (void)splitLines(text);

    CmdNames names = defaultCmdNames();
    applyCmdNames(names, text);
    for (const std::string& name : names) check(name.size() <= kMaxDataTextLength);
    (void)newCommandItems(names);

    const CommandSheet sheet = parseCommandSheet(text);
    for (const SheetRecord& r : sheet.records) {
        check(r.slot >= 0 && r.slot < kPanelSlots);
        // Labels and list items are cut; notes are kept whole, never longer than the text they came from.
        check(r.kind == SheetRecord::Kind::Info ? r.label.size() <= size : r.label.size() <= kMaxDataTextLength);
    }
    // One sequence holding a command of every length the panel shows.
    clsSequence seq;
    seq.key(SeqKey::at(0xA000));
    seq.setCommands({{0x30, {2}}, {0xD7, {1, 2}}, {0x90, {4, 1, 2, 3, 4}}, {0xC8, {0, 0xA0, 2}}, {0xE4, {}}});
    for (int i = 0; i < seq.commandCount(); ++i) {
        const CommandPanelView view = describeCommand(seq, i, &sheet);
        for (const DataSlotView& slot : view.dataSlots) check(slot.selected < static_cast<int>(slot.items.size()));
    }
    return 0;
}
