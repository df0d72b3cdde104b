#pragma once
// The command catalogue: one display name per command byte, loaded from cmd.txt.
#include "model/hex.h"

#include <array>
#include <string>

namespace zpe {

using CmdNames = std::array<std::string, 256>;

// Every entry is its code in hexadecimal without leading zeros ("0", "A", "C7").
CmdNames defaultCmdNames();

// Applies the records of cmd.txt text to `names`: fields taken two at a time,
// code (leading hexadecimal digits; none counts as 0) then name. Codes outside
// 0..255 are skipped; a later record for a code replaces an earlier one; a code
// with no name field after it at the end of the text is ignored.
void applyCmdNames(CmdNames& names, const std::string& text);

// Defaults, then `dataDir`/cmd.txt when it can be read. A missing or unreadable
// file leaves the defaults; nothing is reported.
CmdNames loadCmdNames(const std::string& dataDir);

// The 77 items of the new-command list: an empty item, then "XX: name" for
// 0x00, 0x10, ..., 0xB0 and every code 0xC0..0xFF; codes that lock the game up
// end in " (lock-up)".
[[nodiscard]] std::array<std::string, 77> newCommandItems(const CmdNames& names);
// The code of item `item` of that list; -1 for the empty item or an index outside it.
[[nodiscard]] int newCommandCode(int item);

}  // namespace zpe
