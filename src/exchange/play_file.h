#pragma once
// Play files: what the game runs from one play's entries (and, exported from
// a slot, its formation's), written so that another image can be given the
// same play. Each command is kept with its bytes and what follows it; each
// address field names another command of the file or an address outside the
// sequence area. The format is described in README ("Play files").
#include "playbook/playbook.h"
#include "save/play_import.h"
#include "save/slot_import.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string>

namespace zpe {

// The versions of the play, slot and playbook files this program writes; a file of a later one is refused.
constexpr int kPlayFileVersion = 1;
constexpr int kSlotFileVersion = 1;
constexpr int kPlaybookFileVersion = 1;

// The play file of play `play` of `pb` (its image read as opened); with
// `slot`, the slot's formation too. `imageName` names the source image.
[[nodiscard]] nlohmann::ordered_json playFile(const Playbook& pb, int play, std::optional<int> slot, const std::string& imageName);

// The slot file of slot `slot` of `pb`: its record, its formation and its
// distinct offensive plays with everything the game runs from them.
[[nodiscard]] nlohmann::ordered_json slotFile(const Playbook& pb, int slot, const std::string& imageName);
// The playbook file of `pb`: all 64 slots, each formation and play they use once.
[[nodiscard]] nlohmann::ordered_json playbookFile(const Playbook& pb, const std::string& imageName);

// A play file read back: the play it carries, and the file's own account of where it came from.
struct PlayFile {
    CarriedPlay play;
    std::string sourceImage;  // the image it was exported from ("" when the file does not say)
    int sourcePlay = -1;
};

// Reads the play file at `path`. Throws std::runtime_error, naming the file
// and the place in it, for anything that is not a play file of a version
// this program reads (a later version is refused in words), and for a play
// the game could not have run (a command's bytes other than its format, a
// field or a follow-on that names nothing).
[[nodiscard]] PlayFile readPlayFile(const std::string& path);

// Where the first NUL byte of `text` stands (-1: none). JSON text never holds
// one (a string writes it \u0000), and the parser would take one for the end
// of the text: a file that holds one is refused.
[[nodiscard]] long nulByteIn(std::span<const uint8_t> text);

struct SlotsFile {
    CarriedBook book;  // one slot (a slot file) or all 64 (a playbook file)
    std::string sourceImage;
};

// What the file at `path` holds: "zpe play", "zpe slot" or "zpe playbook" (its
// "format"); throws as readPlayFile does for a file that is none of them.
[[nodiscard]] std::string carriedFileFormat(const std::string& path);

// Reads the slot file, or the playbook file, at `path`, refusing as readPlayFile does.
[[nodiscard]] SlotsFile readSlotFile(const std::string& path);
[[nodiscard]] SlotsFile readPlaybookFile(const std::string& path);

}  // namespace zpe
