#pragma once
// Applying a playbook file in the shape `zpe json` writes to an opened
// playbook: slot fields, play, formation and pointer entries, and sequence
// commands. Everything is checked before anything changes.
#include "playbook/playbook.h"
#include "sequence/catalogue.h"

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

namespace zpe {

// Bad input, with the place in the file as a JSON pointer ("/slots/3/name").
class ImportError : public std::runtime_error {
public:
    ImportError(const std::string& where, const std::string& why) : std::runtime_error(where + ": " + why) {}
};

// The JSON text `text` read as nlohmann::json::parse(text.begin(), text.end())
// reads it: the same values, and for text it refuses the same exceptions.
// The text `zpe json` writes (ASCII strings without escapes, whole numbers of
// up to 18 digits) is read by a direct reader that sizes each list once;
// anything else (an escape, a byte beyond ASCII, a point or an exponent,
// malformed text) is read again by nlohmann's parser, whose values and
// errors it then is.
[[nodiscard]] nlohmann::json parseJsonText(const std::vector<uint8_t>& text);

// Refuses (ImportError at "/fingerprint") a file written from another state
// of the image than `image`'s bytes, or one without a fingerprint.
void requireSameImage(const nlohmann::json& doc, std::span<const uint8_t> image, const std::string& jsonName,
                      const std::string& imageName);

// Applies every difference between `doc` and `pb` to `pb`: a slot's name,
// formation, play numbers, rusher value and graphics bytes; play, formation
// and pointer entries (each changed one must name a sequence of the
// playbook); the commands of the sequences the file lists, matched by their
// address (where they were read), each command by its own address (its
// origin; none: a new command), jump and branch targets naming commands by
// their origins. Fields worked out from others (sizes, follow-ons, texts) may
// stay as exported or say what the import makes of them; fields that name
// fixed things (indexes, groups, formation names) cannot change. Throws
// ImportError, leaving `pb` as it was, on any missing, extra, out-of-range or
// refused value. Returns the number of records changed.
int applyPlaybookJson(Playbook& pb, const nlohmann::json& doc, const CmdNames& names);

// The same, leaving `pb` as it is: returns the playbook with the file's
// changes applied (their number in `changes`, when given), so a caller keeps
// both the image as read and the edit to save.
// `labels`, when given, gets each sequence the file makes with the label the file calls it by.
[[nodiscard]] Playbook importedPlaybook(const Playbook& pb, const nlohmann::json& doc, const CmdNames& names, int* changes = nullptr,
                                        std::vector<std::pair<SeqKey, std::string>>* labels = nullptr);

}  // namespace zpe
