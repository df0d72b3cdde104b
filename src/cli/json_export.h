#pragma once
#include "analysis/area_map.h"
#include "playbook/playbook.h"
#include "sequence/catalogue.h"

#include <nlohmann/json.hpp>
#include <ostream>

namespace zpe {

// 8-bit text as UTF-8: each byte becomes the Latin-1 code point of the same value.
[[nodiscard]] std::string latin1ToUtf8(const std::string& bytes);

// What binds a playbook file to one state of one image: its size and the
// CRC-32 of its bytes, {"size": 262160, "crc32": "1A2B3C4D"}.
[[nodiscard]] nlohmann::ordered_json imageFingerprint(const std::vector<uint8_t>& bytes);

// The whole playbook as JSON. Names are 8-bit text: each byte becomes the
// Latin-1 code point of the same value. Without `withSequences` the
// "sequences" list is left out (writePlaybookJson streams it).
[[nodiscard]] nlohmann::ordered_json playbookJson(const Playbook& pb, const CmdNames& names, bool withSequences = true);
// One sequence of the "sequences" list.
[[nodiscard]] nlohmann::ordered_json sequenceJson(int32_t key, const clsSequence& seq, const CmdNames& names);
// The same document as playbookJson(...).dump(1) and a newline, written as
// it is made: one sequence at a time, so memory stays that of the playbook
// however long the output.
void writePlaybookJson(std::ostream& out, const Playbook& pb, const CmdNames& names);

// The area map as `zpe check --json` prints it: addresses as four hexadecimal
// digits, counts as numbers, lists in ascending address order (entries
// stranded inside the area in table order).
[[nodiscard]] nlohmann::ordered_json areaMapJson(const AreaMap& map);

}  // namespace zpe
