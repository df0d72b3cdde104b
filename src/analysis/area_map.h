#pragma once
// The sequence area 0xA000-0xBFFF as the game reads it. The editor decodes
// sequences by its own rules; the game runs the same bytes with other lengths
// in a few places (a COM pass, the stance and hike codes, Human Control), goes
// on after commands the editor ends at, and follows addresses held in branch
// and COM pass commands. The area map marks every byte of the area: in an
// editor sequence, reached by the game, both, or free; and it lists what a
// Full Save, which lays out only the editor's sequences, would break.
#include "playbook/playbook.h"

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <functional>
#include <vector>

namespace zpe {

constexpr int32_t kAreaEnd = kSequenceAreaAddress + kSequenceAreaSize;  // first address after the area

constexpr bool inArea(int32_t address) { return address >= kSequenceAreaAddress && address < kAreaEnd; }

// One command as the game runs it.
struct GameCommand {
    int32_t address = 0;
    uint8_t code = 0;      // the first byte
    int32_t length = 0;    // bytes the game takes for it
    bool fallsThrough = false;  // the game goes on with the command after it
    int32_t target = -1;   // an address the game may go to instead (jump, branch, COM pass receiver); -1 none
    bool addressField = false;  // `target` is an address field (2N, C7, C8, CA, 9N), not a jump's
};

// Reads the command at `address` from `area` (the area's bytes from 0xA000;
// shorter when the image ends early). False when its bytes would cross the
// end of `area` (the path runs off the area).
[[nodiscard]] bool readGameCommand(std::span<const uint8_t> area, int32_t address, GameCommand& out);

// A table entry that names a sequence address.
struct AreaEntry {
    enum class Table { Pointer, Play, Formation } table;
    int index = 0;
    int player = 0;  // 0..10; 0 for a pointer
    SeqKey target;  // the sequence it names (its game address, or a made one)
    // "pointer 17", "play 58 (3A) WR2", "formation 4 QB".
    std::string name() const;
};

struct AddressField {
    int32_t at = 0;      // the command's address
    uint8_t code = 0;    // its first byte
    int32_t target = 0;
};

struct AreaRun {
    int32_t start = 0;  // first address
    int32_t end = 0;    // last address (inclusive)
    int32_t size() const { return end - start + 1; }
};

// Byte use flags of the map.
enum AreaUse : uint8_t { kUseEditor = 1, kUseGame = 2 };

struct AreaMap {
    std::array<uint8_t, kSequenceAreaSize> use{};  // AreaUse flags per byte, index = address - 0xA000
    std::vector<int32_t> commands;          // every address the game runs a command at, ascending
    std::vector<GameCommand> program;       // those commands as the game reads them, in the same order
    std::vector<AddressField> fields;       // every address field the game reaches, ascending
    std::vector<AreaEntry> outside;         // entries whose target lies outside the area (by target, then table)
    std::vector<AreaEntry> unsaved;         // entries naming a sequence made in the editor, in no image until a save places it
    std::vector<int32_t> runsOff;           // commands whose bytes or whose next command leave the area
    std::vector<AddressField> leaves;       // jumps and address fields whose target lies outside the area
    std::vector<int32_t> lockUps;           // lock-up commands the game can reach
    std::vector<AreaEntry> stranded;        // entries inside the area that start no editor sequence (table order)
    std::vector<int32_t> readsDifferently;  // editor sequences holding 0x9N or 0xF1
    std::vector<GameCommand> outsideCommands;  // the commands the game runs outside the area, by address
    std::vector<int32_t> comesBackAt;       // where the game comes back into the area from outside it, ascending

    int32_t count(uint8_t flags) const;     // bytes whose flags are exactly `flags`
    int32_t editorBytes() const;
    int32_t gameBytes() const;
    int32_t gameOnlyBytes() const { return count(kUseGame); }
    int32_t freeBytes() const { return count(0); }
    // Maximal runs of bytes whose flags are exactly `flags`, ascending.
    std::vector<AreaRun> runs(uint8_t flags) const;
    std::vector<AreaRun> freeRuns() const { return runs(0); }
    // Address fields whose target lies inside the area: Full Save moves what they point at.
    std::vector<AddressField> staleFields() const;
    // The command the game runs at `address`; nullptr when it runs none there.
    const GameCommand* commandAt(int32_t address) const;
    // True when the game runs a command starting at `address`, in the area or
    // outside it; the first address after the area counts when a path runs
    // off the area's end into it (the walk stops at the end, the game does not).
    bool runsAt(int32_t address) const;
};

// The addresses of the area `g`'s bytes cover, [first, second): empty for a
// command wholly outside it. A command just before the area may take its
// operands from the area's first bytes.
[[nodiscard]] constexpr std::pair<int32_t, int32_t> areaSpan(const GameCommand& g) {
    const int32_t from = g.address > kSequenceAreaAddress ? g.address : kSequenceAreaAddress;
    const int32_t to = g.address + g.length < kAreaEnd ? g.address + g.length : kAreaEnd;
    return {from, to > from ? to : from};
}

// The first address in [address, address + size) whose byte `now` changes
// from `was`, skipping those `skip` accepts; -1 when none.
[[nodiscard]] int32_t firstRewritten(int32_t address, int32_t size, std::span<const uint8_t> was, std::span<const uint8_t> now,
                                     const std::function<bool(int32_t)>& skip = nullptr);
// A command the game runs outside the area (on a path that leaves it) whose
// bytes `now` changes from `was` (`map`: the game's reading of `was`), but
// where `skip` accepts it: {its address, the first byte changed}; {-1, -1}: none.
[[nodiscard]] std::pair<int32_t, int32_t> rewrittenOutsideCommand(const AreaMap& map, std::span<const uint8_t> was, std::span<const uint8_t> now,
                                                                  const std::function<bool(int32_t)>& skip = nullptr);

// Every table entry of the playbook, in table order: pointers, plays (players
// without a sequence left out), formations.
[[nodiscard]] std::vector<AreaEntry> playbookEntries(const Playbook& pb);

// The map of `pb`'s image as it was opened (pb.openedBytes) and its sequences.
// Linear in the area's size.
[[nodiscard]] AreaMap buildAreaMap(const Playbook& pb);

// The commands of the area the game can reach from `address` in `image` (the
// whole image, headed), in address order; paths that leave the area are
// followed through the image's bytes to where they come back.
[[nodiscard]] std::vector<GameCommand> traceFrom(const std::vector<uint8_t>& image, int32_t address);
// The same from several addresses at once.
[[nodiscard]] std::vector<GameCommand> traceFrom(const std::vector<uint8_t>& image, const std::vector<int32_t>& addresses);

// The commands the game can run from `addresses` inside the area, in address
// order: a path that leaves the area stops there (what lies outside is the
// game's own code, the same in every image of the game).
[[nodiscard]] std::vector<GameCommand> programFrom(const std::vector<uint8_t>& image, const std::vector<int32_t>& addresses);

// The area's bytes of an image (fewer when the image ends inside it).
[[nodiscard]] std::span<const uint8_t> areaBytes(const std::vector<uint8_t>& image);

}  // namespace zpe
