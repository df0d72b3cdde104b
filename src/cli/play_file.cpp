#include "cli/play_file.h"

#include "analysis/area_map.h"
#include "cli/json_export.h"
#include "model/hex.h"
#include "playbook/list_rows.h"
#include "sequence/command_format.h"

#include <unordered_set>

namespace zpe {

namespace {

using json = nlohmann::ordered_json;

// A command of the file is named by where it stood in the source image.
std::string idOf(int32_t address) { return hex4(address); }

// Where a command or an entry leads: a command of the file (its id), or an
// address outside the area (kept as it is: the game's own code), or none.
json placeOf(int32_t address, const std::unordered_set<int32_t>& inFile) {
    if (address == kNoSequence) return nullptr;
    if (inFile.count(address)) return idOf(address);
    return json{{"outside", hex4(address)}};
}

json entriesOf(const std::array<int32_t, kPlayersPerRecord>& entries, const std::unordered_set<int32_t>& inFile) {
    json players = json::array();
    for (int j = 0; j < kPlayersPerRecord; ++j)
        players.push_back({{"position", positionName(j)}, {"entry", placeOf(entries[static_cast<size_t>(j)], inFile)}});
    return players;
}

}  // namespace

json playFile(const Playbook& pb, int play, std::optional<int> slot, const std::string& imageName) {
    std::array<int32_t, kPlayersPerRecord> playEntries{}, formEntries{};
    std::vector<int32_t> roots;
    for (int j = 0; j < kPlayersPerRecord; ++j) {
        playEntries[static_cast<size_t>(j)] = pb.plays[static_cast<size_t>(play)].seqAddress(j);
        roots.push_back(playEntries[static_cast<size_t>(j)]);
    }
    std::optional<size_t> formation;
    if (slot) {
        formation = pb.playSlots[static_cast<size_t>(*slot)].formation();
        if (*formation >= pb.formations.size()) formation.reset();
    }
    if (formation)
        for (int j = 0; j < kPlayersPerRecord; ++j) {
            formEntries[static_cast<size_t>(j)] = pb.formations[*formation].posAddress(j);
            roots.push_back(formEntries[static_cast<size_t>(j)]);
        }
    const std::vector<GameCommand> program = programFrom(pb.openedBytes, roots);
    std::unordered_set<int32_t> inFile;
    for (const GameCommand& g : program) inFile.insert(g.address);

    json source{{"image", imageName}, {"fingerprint", imageFingerprint(fileSpan(pb))}, {"play", play}};
    if (slot) source["slot"] = *slot;
    json out{{"format", "zpe play"}, {"version", kPlayFileVersion}, {"source", source}, {"players", entriesOf(playEntries, inFile)}};
    if (formation)
        out["formation"] = {{"name", latin1ToUtf8(pb.formations[*formation].name())}, {"positions", entriesOf(formEntries, inFile)}};

    json commands = json::array();
    const std::span<const uint8_t> area = areaBytes(pb.openedBytes);
    for (const GameCommand& g : program) {
        const auto at = static_cast<size_t>(g.address - kSequenceAreaAddress);
        std::string bytes;
        for (int32_t k = 0; k < g.length; ++k) bytes += (k ? " " : "") + hex2(area[at + static_cast<size_t>(k)]);
        json c{{"id", idOf(g.address)}, {"bytes", bytes}};
        c["next"] = g.fallsThrough ? placeOf(g.address + g.length, inFile) : json(nullptr);
        if (g.target >= 0) {
            const CommandFormat f = commandFormat(g.code, false, g.length > 1 ? area[at + 1] : -1);
            c["field"] = {{"at", f.fieldAt},
                          {"kind", f.field == FieldKind::Relative ? "relative" : "word"},
                          {"to", placeOf(g.target, inFile)}};
        }
        commands.push_back(c);
    }
    out["commands"] = commands;
    return out;
}

}  // namespace zpe
