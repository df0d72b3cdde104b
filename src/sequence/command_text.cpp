// The readable text of each command and of a whole sequence.
#include "model/tables.h"
#include "sequence/command_codes.h"
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

}  // namespace

std::string clsSequence::commandName(int i, const CmdNames& names) const {
    const SeqCommand& c = at(i);
    // Only a jump's text depends on where it stands.
    if (c.command != cmd::kRelativeJump && c.command != cmd::kAbsoluteJump) return commandText(c, 0, 0, names);
    return commandText(c, place(i), fieldTarget(i), names);
}

std::string commandText(const SeqCommand& command, int32_t place, int32_t fieldTarget, const CmdNames& names) {
    const int16_t d0 = command.data[0], d1 = command.data[1], d2 = command.data[2];
    switch (command.command) {
    case cmd::kRandomBranch: return "Cond. Branch (20) to " + hex2(d2) + hex2(d1);
    case cmd::kBlock: return "Block " + positionName(defPosNames, d0);
    case cmd::kChopBlock: return "Chop Block " + positionName(defPosNames, d0);
    case cmd::kHandOff: return "Handoff to " + positionName(offPosNames, d0);
    case cmd::kFakeHandOff: return "Fake Handoff to " + positionName(offPosNames, d0);
    case cmd::kPitch: return "Pitch to " + positionName(offPosNames, d0);
    case cmd::kReceiverOrder: return "Route #" + decimal(d0 + 1);
    case cmd::kBranchComVsHuman: return "Cond. Branch (C7) to " + hex2(d1) + hex2(d0);
    case cmd::kMoveRelative: {
        const bool vertical = (d0 & 0xFF) != 0;
        return "Move Relative (" + moveAxis(d0, "D-", "U-") + (vertical ? "," : "") + moveAxis(d1, "R-", "L-") + ")";
    }
    case cmd::kRelativeJump:
        if (fieldTarget < place) {
            const int32_t back = place - fieldTarget;
            return "Loop Back " + decimal(back) + " byte" + (back == 1 ? "" : "s");
        }
        return "+R:" + hexPlain(fieldTarget);
    case cmd::kAbsoluteJump: return "+A:" + hexPlain(fieldTarget);
    default: break;
    }
    std::string text = names[static_cast<size_t>(command.command) & 0xFF];
    if (command.dataLen >= 1) {
        text += "(";
        for (int k = 0; k < command.dataLen; ++k) {
            if (k > 0) text += " ";
            text += plainHex16(command.data[static_cast<size_t>(k)]);
        }
        text += ") ";
    }
    return text;
}

std::string clsSequence::commandString(const CmdNames& names) const {
    std::string text;
    int32_t place = startAddr_;
    for (int i = 0; i < commandCount(); ++i) {
        const SeqCommand& c = cmds_[static_cast<size_t>(i)];
        const bool jump = c.command == cmd::kRelativeJump || c.command == cmd::kAbsoluteJump;
        text += commandText(c, place, jump ? fieldTarget(i) : 0, names) + "; ";
        place += c.encodedSize();
    }
    return text;
}

}  // namespace zpe
