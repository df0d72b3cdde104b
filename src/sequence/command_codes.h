#pragma once
// The command codes the program treats specially, named once. A low code
// (below kFirstHighCode) keeps its first data value in its low nibble; the
// names below give low codes with that nibble cleared.
#include <cstdint>

namespace zpe::cmd {

inline constexpr int16_t kFirstHighCode = 0xC0;   // codes from here on are a whole byte
inline constexpr int16_t kLowCodeMask = 0xF0;     // a low code without its nibble
inline constexpr int16_t kLowNibbleMask = 0x0F;

// Low codes.
inline constexpr int16_t kRandomBranch = 0x20;    // data B, C: branch target
inline constexpr int16_t kBlock = 0x30;
inline constexpr int16_t kChopBlock = 0x40;
inline constexpr int16_t kHandOff = 0x50;
inline constexpr int16_t kFakeHandOff = 0x60;
inline constexpr int16_t kPitch = 0x70;
inline constexpr int16_t kComPass = 0x90;         // low nibble N: N+1 bytes for the editor, N+4 for the game
inline constexpr int16_t kReceiverOrder = 0xA0;

// High codes.
inline constexpr int16_t kDropBack = 0xC0;
inline constexpr int16_t kHangC2 = 0xC2;
inline constexpr int16_t kHangC3 = 0xC3;
inline constexpr int16_t kCelebrate = 0xC4;      // two-byte end
inline constexpr int16_t kDejected = 0xC5;       // two-byte end
inline constexpr int16_t kHangC6 = 0xC6;
inline constexpr int16_t kBranchComVsHuman = 0xC7;
inline constexpr int16_t kBranchComBoost = 0xC8;
inline constexpr int16_t kBranchNotHuman = 0xCA;
inline constexpr int16_t kHangCB = 0xCB;
inline constexpr int16_t kSetPositionBall = 0xD0;
inline constexpr int16_t kSetPositionField = 0xD1;
inline constexpr int16_t kCenterSnap = 0xD2;
inline constexpr int16_t kLongSnap = 0xD3;       // ends a sequence unless an 0xFF follows
inline constexpr int16_t kMoveRelative = 0xD7;
inline constexpr int16_t kMoveToBall = 0xD8;
inline constexpr int16_t kMoveToField = 0xD9;
inline constexpr int16_t kHangDE = 0xDE;
inline constexpr int16_t kHumanControl = 0xE4;   // the editor ends here; the game goes on for computer teams
inline constexpr int16_t kKickFieldGoal = 0xE7;
inline constexpr int16_t kKickExtraPoint = 0xE8;
inline constexpr int16_t kThreePointStance = 0xEA;  // an end, except in the kick formations
inline constexpr int16_t kTwoPointStance = 0xEC;    // an end, except in the kick formations
inline constexpr int16_t kQbStance = 0xEE;
inline constexpr int16_t kHangF1 = 0xF1;         // 3 bytes for the editor, 1 for the game
inline constexpr int16_t kHangF2 = 0xF2;
inline constexpr int16_t kHangF8 = 0xF8;
inline constexpr int16_t kHangF9 = 0xF9;
inline constexpr int16_t kRelativeJump = 0xFE;   // data A: signed offset from the FE byte
inline constexpr int16_t kAbsoluteJump = 0xFF;   // data A, B: target address

// A relative jump's offset byte at or above this goes backwards (a loop back).
inline constexpr int16_t kBackwardOffset = 0x80;

constexpr bool isLowCode(int32_t code) { return code < kFirstHighCode; }

// The codes that lock the game up when run (their handlers loop forever).
constexpr bool isLockUp(int32_t code) {
    switch (code) {
    case kHangC2: case kHangC3: case kHangC6: case kHangCB: case kHangDE:
    case kHangF1: case kHangF2: case kHangF8: case kHangF9:
        return true;
    default:
        return false;
    }
}

}  // namespace zpe::cmd
