#include "sequence/command_format.h"

#include "model/tables.h"
#include "sequence/command_codes.h"

namespace zpe {

using namespace cmd;

CommandFormat commandFormat(uint8_t code, bool kick, int next) {
    CommandFormat f;
    f.lockUp = isLockUp(code);
    if (isLowCode(code)) {
        const int32_t hi = code & kLowCodeMask;
        f.command = static_cast<int16_t>(hi);
        const int32_t n = code & kLowNibbleMask;
        // A COM pass: N+1 bytes for the editor; the game reads N+1 receiver
        // bytes and then the address of the receiver's script, N+4 in all.
        f.editorLength = hi == kComPass ? n + 1 : cmdLenByNibble[static_cast<size_t>(hi >> 4)];
        f.gameLength = hi == kComPass ? n + 4 : f.editorLength;
        f.gameGoesOn = true;
        if (hi == kRandomBranch) {
            f.field = FieldKind::Word;
            f.fieldAt = 1;
        } else if (hi == kComPass) {
            f.field = FieldKind::Word;
            f.fieldAt = n + 2;
            f.gameFieldOnly = true;
        }
        return f;
    }

    f.command = code;
    const int32_t table = cmdLenHigh[static_cast<size_t>(code - kFirstHighCode)];
    f.editorLength = table;
    f.gameLength = table;
    f.gameGoesOn = !f.lockUp;
    switch (code) {
    case kRelativeJump:
        f.editorLength = f.gameLength = 2;
        f.editorEnds = true;
        f.gameGoesOn = false;
        f.field = FieldKind::Relative;
        f.fieldAt = 1;
        break;
    case kAbsoluteJump:
        f.editorLength = f.gameLength = 3;
        f.editorEnds = true;
        f.gameGoesOn = false;
        f.field = FieldKind::Word;
        f.fieldAt = 1;
        break;
    case kCelebrate: case kDejected:  // two bytes; the handlers never come back
        f.editorEnds = true;
        f.gameGoesOn = false;
        break;
    case kLongSnap:  // the game goes on after the snap; the editor only before an absolute jump
        f.editorLength = f.gameLength = 1;
        f.editorEnds = next != kAbsoluteJump;
        f.endsByNext = true;
        break;
    case kThreePointStance: case kTwoPointStance:
        f.editorLength = f.gameLength = 1;
        f.editorEnds = !kick;
        break;
    case kHumanControl: case kCenterSnap: case kQbStance:  // the editor ends; the game goes on
        f.editorLength = f.gameLength = 1;
        f.editorEnds = true;
        break;
    case kHangF1:  // three bytes in the length table; the game hangs on its first
        f.gameLength = 1;
        break;
    case kBranchComVsHuman: case kBranchComBoost: case kBranchNotHuman:
        f.field = FieldKind::Word;
        f.fieldAt = 1;
        break;
    default:
        if (table == 0) {  // the lock-ups the length table ends: one byte
            f.editorLength = f.gameLength = 1;
            f.editorEnds = true;
        }
        break;
    }
    return f;
}

}  // namespace zpe
