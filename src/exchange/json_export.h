#pragma once
#include "analysis/area_map.h"
#include "playbook/playbook.h"
#include "sequence/catalogue.h"

#include <nlohmann/json.hpp>
#include <ostream>
#include <span>

namespace zpe {

// 8-bit text as UTF-8: each byte becomes the Latin-1 code point of the same value.
[[nodiscard]] std::string latin1ToUtf8(const std::string& bytes);
// UTF-8 text as Latin-1 bytes; nothing when it holds a character beyond Latin-1.
[[nodiscard]] std::optional<std::string> utf8ToLatin1(const std::string& utf8);

// What binds a playbook file to one state of one image: its size and the
// CRC-32 of its bytes, {"size": 262160, "crc32": "1A2B3C4D"}.
[[nodiscard]] nlohmann::ordered_json imageFingerprint(std::span<const uint8_t> bytes);
[[nodiscard]] std::string crc32Text(std::span<const uint8_t> bytes);  // "1A2B3C4D"

// The whole playbook as JSON: the image's name and fingerprint, formations,
// plays, pointers, slots and sequences. Names are 8-bit text: each byte
// becomes the Latin-1 code point of the same value. Written as it is made,
// one sequence at a time, so memory stays that of the playbook however long
// the output.
void writePlaybookJson(std::ostream& out, const Playbook& pb, const CmdNames& names);

// The area map as `zpe check --json` prints it: addresses as four hexadecimal
// digits, counts as numbers, lists in ascending address order (entries
// stranded inside the area in table order).
[[nodiscard]] nlohmann::ordered_json areaMapJson(const AreaMap& map);

}  // namespace zpe
