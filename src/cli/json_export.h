#pragma once
#include "playbook/playbook.h"
#include "sequence/catalogue.h"

#include <nlohmann/json.hpp>

namespace zpe {

// The whole playbook as JSON. Names are 8-bit text: each byte becomes the
// Latin-1 code point of the same value.
nlohmann::ordered_json playbookJson(const Playbook& pb, const CmdNames& names);

}  // namespace zpe
