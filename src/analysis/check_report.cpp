#include "analysis/check_report.h"

#include "model/tables.h"
#include "sequence/command_codes.h"
#include "sequence/sequence.h"

namespace zpe {

namespace {

// Each list of the report shows this many items, then how many more there are.
constexpr size_t kShownItems = 8;

template <typename T, typename Text>
std::string listed(const std::vector<T>& items, Text text) {
    std::string out;
    for (size_t i = 0; i < items.size() && i < kShownItems; ++i) out += (i ? ", " : "") + text(items[i]);
    if (items.size() > kShownItems) out += ", ... and " + std::to_string(items.size() - kShownItems) + " more";
    return out;
}

std::string runText(const AreaRun& r) {
    return hex4(r.start) + "-" + hex4(r.end) + " (" + std::to_string(r.size()) + " bytes)";
}
std::string fieldText(const AddressField& f) { return hex4(f.at) + " " + hex2(f.code) + " -> " + hex4(f.target); }
std::string entryText(const AreaEntry& e) { return e.name() + " -> " + sequenceKeyText(e.target); }
std::string addressText(int32_t a) { return hex4(a); }

std::string trimmed(std::string s) {
    while (!s.empty() && s.back() == ' ') s.pop_back();
    return s;
}

// One line of the report: a count, what it counts, and the first items.
template <typename T, typename Text>
void line(std::string& out, const std::vector<T>& items, const std::string& what, Text text) {
    out += "  " + std::to_string(items.size()) + " " + what;
    if (!items.empty()) out += ": " + listed(items, text);
    out += "\n";
}

}  // namespace

std::string gameCommandText(const GameCommand& c, std::span<const uint8_t> area, const CmdNames& names) {
    const auto at = static_cast<size_t>(c.address - kSequenceAreaAddress);
    const bool low = cmd::isLowCode(c.code);
    if (low && (c.code & cmd::kLowCodeMask) == cmd::kComPass) {
        std::string text = trimmed(names[static_cast<size_t>(cmd::kComPass)]);
        for (int32_t k = 1; k < c.length - 2; ++k) {
            const uint8_t r = area[at + static_cast<size_t>(k)];
            text += " " + std::string(offPosNames[r & cmd::kLowNibbleMask]) + "(" + hexPlain(r >> 4) + ")";
        }
        return text + " -> " + hex4(c.target);
    }
    SeqCommand command;
    if (low) {
        command.command = static_cast<int16_t>(c.code & cmd::kLowCodeMask);
        command.data[0] = static_cast<int16_t>(c.code & cmd::kLowNibbleMask);
        for (int32_t k = 1; k < c.length; ++k) command.data[static_cast<size_t>(k)] = area[at + static_cast<size_t>(k)];
        command.dataLen = static_cast<int16_t>(c.length);
    } else {
        command.command = c.code;
        for (int32_t k = 1; k < c.length; ++k) command.data[static_cast<size_t>(k - 1)] = area[at + static_cast<size_t>(k)];
        command.dataLen = static_cast<int16_t>(c.length - 1);
    }
    FieldView view;
    view.target = c.target;
    if (c.code == cmd::kRelativeJump && c.target < c.address) view.loopBack = c.address - c.target;
    std::string text = trimmed(commandText(command, view, names));
    if (c.addressField) text += " -> " + hex4(c.target);
    return text;
}

std::string checkReport(const AreaMap& map) {
    std::string out = "Sequence area A000-BFFF (" + std::to_string(kSequenceAreaSize) + " bytes)\n";
    out += "  " + std::to_string(map.editorBytes()) + " bytes in editor sequences\n";
    out += "  " + std::to_string(map.gameBytes()) + " bytes the game can run\n";
    out += "  " + std::to_string(map.gameOnlyBytes()) + " bytes the game runs that no editor sequence holds\n";
    out += "  " + std::to_string(map.freeBytes()) + " bytes free (in neither)\n";
    const std::vector<AreaRun> free = map.freeRuns();
    line(out, free, "free ranges", runText);

    out += "\nWhat Full Save would break\n";
    const std::vector<AreaRun> lost = map.runs(kUseGame);
    out += "  " + std::to_string(map.gameOnlyBytes()) + " bytes of game logic would be blanked";
    if (!lost.empty()) out += ": " + listed(lost, runText);
    out += "\n";
    line(out, map.staleFields(), "address fields would keep pointing at the old places", fieldText);
    line(out, map.stranded, "entries point inside the area at no sequence start", entryText);
    line(out, map.readsDifferently, "sequences read differently by the game (0x9N or 0xF1)", addressText);

    if (!map.unsaved.empty()) {
        out += "\nNot saved yet\n";
        line(out, map.unsaved, "entries name sequences made in the editor, which the next save places", entryText);
    }

    out += "\nWarnings\n";
    line(out, map.outside, "entries point outside the area", entryText);
    line(out, map.runsOff, "paths run off the end of the area", addressText);
    line(out, map.leaves, "jumps or address fields lead out of the area", fieldText);
    line(out, map.lockUps, "lock-up commands the game can reach", addressText);
    return out;
}

}  // namespace zpe
