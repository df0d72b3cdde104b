#pragma once
// Hexadecimal and decimal text forms used everywhere a number is shown.
#include <cstdint>
#include <string>

namespace zpe {

// Upper-case hexadecimal without leading zeros ("0", "1F", "A007").
// A negative value is shown in its 32-bit two's-complement form.
std::string hexPlain(int64_t value);

// Exactly two upper-case hexadecimal digits: the last two digits of the value
// (so 0x123 gives "23" and -1 gives "FF").
std::string hex2(int32_t value);

// Exactly four upper-case hexadecimal digits: the last four digits of the value
// (so 0x12345 gives "2345" and -1 gives "FFFF").
std::string hex4(int32_t value);

// A count in decimal with thousands separated by commas: 7071 -> "7,071" (summaries).
std::string thousands(int64_t n);

// Parses the leading run of hexadecimal digits of `text` (upper or lower case,
// after leading blanks, an optional "0x" prefix is NOT accepted). Returns 0 when
// the text does not start with a digit. Saturates at INT64_MAX/16 to stay defined.
int64_t leadingHexValue(const std::string& text);

}  // namespace zpe
