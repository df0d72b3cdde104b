// The readable text of each command and of a whole sequence.
#include "model/tables.h"
#include "sequence/command_codes.h"
#include "sequence/command_format.h"
#include "sequence/sequence.h"

namespace zpe {

namespace {

// Data values shown as plain hexadecimal take the 16-bit form of a negative value.
std::string plainHex16(int16_t v) { return hexPlain(static_cast<uint16_t>(v)); }

std::string decimal(int32_t v) { return std::to_string(v); }

std::string positionName(const std::array<std::string_view, 16>& table, int16_t index) {
    return std::string(table[static_cast<size_t>(index) & 0x0F]);
}

// One axis of a relative move: positive steps are "D-"/"R-", negative "U-"/"L-".
std::string moveAxis(int16_t v, const char* positive, const char* negative) {
    const int32_t byte = v & 0xFF;
    if (byte == 0) return "";
    if (byte < 0x80) return std::string(positive) + hex2(byte);
    return std::string(negative) + hex2(256 - byte);
}

// Where a field leads, as the list shows it: an address, or a command of a
// sequence made in the editor, which has none yet ("new 2+3").
std::string targetText(const FieldView& view, bool padded) {
    if (view.madeNumber > 0) return "new " + std::to_string(view.madeNumber) + "+" + std::to_string(view.fromStart);
    return padded ? hex4(view.target) : hexPlain(view.target);
}

}  // namespace

std::string clsSequence::commandName(int i, const CmdNames& names) const { return commandText(at(i), fieldView(i), names); }

std::string commandText(const SeqCommand& command, const FieldView& view, const CmdNames& names) {
    const int16_t d0 = command.data[0], d1 = command.data[1];
    switch (command.command) {
    case cmd::kRandomBranch: return "Cond. Branch (20) to " + targetText(view, true);
    case cmd::kBlock: return "Block " + positionName(defPosNames, d0);
    case cmd::kChopBlock: return "Chop Block " + positionName(defPosNames, d0);
    case cmd::kHandOff: return "Handoff to " + positionName(offPosNames, d0);
    case cmd::kFakeHandOff: return "Fake Handoff to " + positionName(offPosNames, d0);
    case cmd::kPitch: return "Pitch to " + positionName(offPosNames, d0);
    case cmd::kReceiverOrder: return "Route #" + decimal(d0 + 1);
    case cmd::kBranchComVsHuman: return "Cond. Branch (C7) to " + targetText(view, true);
    case cmd::kMoveRelative: {
        const bool vertical = (d0 & 0xFF) != 0;
        return "Move Relative (" + moveAxis(d0, "D-", "U-") + (vertical ? "," : "") + moveAxis(d1, "R-", "L-") + ")";
    }
    case cmd::kRelativeJump:
        if (view.loopBack > 0) return "Loop Back " + decimal(view.loopBack) + " byte" + (view.loopBack == 1 ? "" : "s");
        return "+R:" + targetText(view, false);
    case cmd::kAbsoluteJump: return "+A:" + targetText(view, false);
    default: break;
    }
    // A branch shown by its values shows its field's bytes where they stand.
    std::array<int16_t, kMaxDataValues> data = command.data;
    if (const auto [lo, hi] = addressFieldData(command); lo >= 0 && hi >= 0) {
        const FieldBytes field = fieldBytes(FieldKind::Word, 0, view.target);
        data[static_cast<size_t>(lo)] = field.bytes[0];
        data[static_cast<size_t>(hi)] = field.bytes[1];
    }
    std::string text = names[static_cast<size_t>(command.command) & 0xFF];
    if (command.dataLen >= 1) {
        text += "(";
        for (int k = 0; k < command.dataLen; ++k) {
            if (k > 0) text += " ";
            text += plainHex16(data[static_cast<size_t>(k)]);
        }
        text += ") ";
    }
    return text;
}

std::string clsSequence::commandString(const CmdNames& names) const {
    std::string text;
    const std::vector<int32_t> at = places();
    const OriginIndex index = originIndex();
    for (size_t i = 0; i < cmds_.size(); ++i) text += commandText(cmds_[i], viewAt(i, at, &index), names) + "; ";
    return text;
}

}  // namespace zpe
