#pragma once
// Applying a playbook file in the shape `zpe json` writes to an opened
// playbook: slot fields, play, formation and pointer entries, and sequence
// commands. Everything is checked before anything changes.
#include "playbook/playbook.h"

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

namespace zpe {

// Bad input, with the place in the file as a JSON pointer ("/slots/3/name").
class ImportError : public std::runtime_error {
public:
    ImportError(const std::string& where, const std::string& why) : std::runtime_error(where + ": " + why) {}
};

// Applies every difference between `doc` and `pb` to `pb`: a slot's name,
// formation, play numbers and rusher value; play, formation and pointer
// entries (each changed one must name a sequence of the playbook); the
// commands of each sequence (matched by position; the address, size, next and
// text fields are ignored). Throws ImportError, leaving `pb` as it was, on any
// missing, extra or out-of-range value. Returns the number of values changed.
int applyPlaybookJson(Playbook& pb, const nlohmann::json& doc);

}  // namespace zpe
