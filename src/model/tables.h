#pragma once
// The program's fixed knowledge: command lengths, position names and the
// drawing colour of each offensive player. Constant for the whole run.
#include <array>
#include <cstdint>
#include <string_view>

namespace zpe {

// Total length in bytes (code byte included) of a command byte 0x00..0xBF,
// indexed by its high nibble. High nibble 9 is special: its length is the low
// nibble + 1 (see the sequence decoder).
inline constexpr std::array<int16_t, 12> cmdLenByNibble{2, 2, 3, 1, 1, 1, 1, 1, 1, 1, 1, 3};

// Total length of a command byte 0xC0..0xFF, indexed by byte - 0xC0.
// 0 marks a command that ends a sequence.
inline constexpr std::array<int16_t, 64> cmdLenHigh{
    3, 4, 0, 0, 2, 2, 0, 3, 4, 1, 3, 0, 1, 3, 3, 3,  // C0
    3, 3, 0, 1, 1, 1, 1, 3, 3, 3, 1, 1, 1, 1, 1, 1,  // D0
    2, 2, 2, 2, 0, 1, 1, 1, 1, 1, 0, 2, 0, 2, 0, 1,  // E0
    2, 3, 1, 2, 2, 3, 2, 2, 3, 1, 1, 1, 3, 3, 0, 0,  // F0
};

// Names of player indices 0..15 in offensive contexts (hand-offs, pitches,
// formations). 11..15 repeat the first five defensive names.
inline constexpr std::array<std::string_view, 16> offPosNames{
    "QB", "RB", "FB", "WR1", "WR2", "TE", "C", "LG", "RG", "LT", "RT", "RE", "NT", "LE", "ROLB", "RILB"};

// Names of player indices 0..15 in defensive contexts (block targets).
inline constexpr std::array<std::string_view, 16> defPosNames{
    "RE", "NT", "LE", "ROLB", "RILB", "LILB", "LOLB", "RCB", "LCB", "FS", "SS", "B?", "C?", "D?", "E?", "F?"};

// Drawing colour of offensive player 0..10 as 0x00BBGGRR.
inline constexpr std::array<uint32_t, 11> posColors{
    0x0000FF, 0x00FFFF, 0x008080, 0xFF0000, 0x800000, 0x808000, 0xCCCCCC, 0x808080, 0x808080, 0x808080, 0x808080};

}  // namespace zpe
