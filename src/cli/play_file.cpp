#include "cli/play_file.h"

#include "analysis/area_map.h"
#include "cli/json_export.h"
#include "model/hex.h"
#include "playbook/list_rows.h"
#include "model/file_io.h"
#include "sequence/command_format.h"

#include <stdexcept>
#include <unordered_map>
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

namespace {

// A play file holds a few hundred commands; a file far larger is no play file.
constexpr int64_t kMaxPlayFileSize = 4 << 20;
constexpr int kMaxPlayFileDepth = 8;  // the document nests four levels

class PlayFileReader {
public:
    PlayFileReader(std::string path, const json& doc) : path_(std::move(path)), doc_(doc) {}

    PlayFile read() {
        if (!doc_.is_object() || doc_.value("format", json()) != "zpe play") fail("", "not a play file (no \"format\": \"zpe play\")");
        const json& version = doc_.value("version", json());
        if (!version.is_number_integer() || version.get<int64_t>() < 1) fail("/version", "not a version number");
        if (version.get<int64_t>() > kPlayFileVersion)
            fail("/version", "written in version " + std::to_string(version.get<int64_t>()) + " of the play file format, which is newer than this program (it reads version " +
                                 std::to_string(kPlayFileVersion) + "); use a newer zpe");
        PlayFile out;
        if (const json* source = member(doc_, "source"); source && source->is_object()) {
            if (source->contains("image") && (*source)["image"].is_string()) out.sourceImage = (*source)["image"].get<std::string>();
            if (source->contains("play") && (*source)["play"].is_number_integer()) out.sourcePlay = (*source)["play"].get<int>();
        }
        const json* commands = member(doc_, "commands");
        if (!commands || !commands->is_array()) fail("/commands", "missing (a list of commands)");
        for (size_t i = 0; i < commands->size(); ++i) {
            const json& c = (*commands)[i];
            const json* id = member(c, "id");
            if (!id || !id->is_string() || !ids_.emplace(id->get<std::string>(), static_cast<int>(i)).second)
                fail("/commands/" + std::to_string(i) + "/id", "missing, not a text, or the id of another command too");
        }
        out.play.commands.resize(commands->size());
        for (size_t i = 0; i < commands->size(); ++i) out.play.commands[i] = command((*commands)[i], "/commands/" + std::to_string(i));
        const json* players = member(doc_, "players");
        if (!players || !players->is_array() || players->size() != kPlayersPerRecord) fail("/players", "not a list of the 11 players");
        for (size_t j = 0; j < kPlayersPerRecord; ++j) {
            const json* entry = member((*players)[j], "entry");
            if (!entry) fail("/players/" + std::to_string(j), "no \"entry\"");
            out.play.players[j] = lead(*entry, "/players/" + std::to_string(j) + "/entry");
        }
        if (const std::string fault = carriedPlayFault(out.play); !fault.empty()) fail("", "not a play the game could run: " + fault);
        return out;
    }

private:
    [[noreturn]] void fail(const std::string& where, const std::string& why) const {
        throw std::runtime_error(path_ + (where.empty() ? "" : " at " + where) + ": " + why);
    }
    static const json* member(const json& object, const char* name) {
        if (!object.is_object()) return nullptr;
        const auto found = object.find(name);
        return found == object.end() ? nullptr : &*found;
    }
    int32_t address(const json& text, const std::string& where) const {
        if (text.is_string()) {
            const std::string s = text.get<std::string>();
            if (s.size() == 4 && s.find_first_not_of("0123456789ABCDEFabcdef") == std::string::npos) return std::stoi(s, nullptr, 16);
        }
        fail(where, "not an address of four hexadecimal digits");
    }
    CarriedLead lead(const json& l, const std::string& where) const {
        if (l.is_null()) return CarriedLead::none();
        if (l.is_string()) {
            const auto found = ids_.find(l.get<std::string>());
            if (found == ids_.end()) fail(where, "names no command of the file");
            return CarriedLead::to(found->second);
        }
        if (const json* outside = member(l, "outside")) return CarriedLead::outside(address(*outside, where + "/outside"));
        fail(where, "neither a command's id, {\"outside\": address} nor null");
    }
    CarriedCommand command(const json& c, const std::string& where) const {
        CarriedCommand out;
        const json* bytes = member(c, "bytes");
        if (!bytes || !bytes->is_string()) fail(where + "/bytes", "missing (the command's bytes in hexadecimal)");
        const std::string text = bytes->get<std::string>();
        for (size_t k = 0; k < text.size();) {
            if (text[k] == ' ') {
                ++k;
                continue;
            }
            if (k + 1 >= text.size() || !std::isxdigit(static_cast<unsigned char>(text[k])) || !std::isxdigit(static_cast<unsigned char>(text[k + 1])))
                fail(where + "/bytes", "not bytes in hexadecimal (\"D0 F0 12\")");
            out.bytes.push_back(static_cast<uint8_t>(std::stoi(text.substr(k, 2), nullptr, 16)));
            k += 2;
        }
        if (out.bytes.empty() || out.bytes.size() > 32) fail(where + "/bytes", "not one command's bytes");
        const json* next = member(c, "next");
        out.next = next ? lead(*next, where + "/next") : CarriedLead::none();
        if (const json* field = member(c, "field")) {
            const json* to = member(*field, "to");
            if (!to) fail(where + "/field", "no \"to\"");
            out.field = lead(*to, where + "/field/to");
            // The file's account of the field must be the command's own (its format decides it).
            const CommandFormat f = commandFormat(out.bytes[0], false, out.bytes.size() > 1 ? out.bytes[1] : -1);
            const json* at = member(*field, "at");
            const json* kind = member(*field, "kind");
            const char* ownKind = f.field == FieldKind::Relative ? "relative" : "word";
            if (f.field == FieldKind::None || (at && *at != f.fieldAt) || (kind && *kind != ownKind))
                fail(where + "/field", "not where this command's address field is");
        }
        return out;
    }

    std::string path_;
    const json& doc_;
    std::unordered_map<std::string, int> ids_;
};

}  // namespace

PlayFile readPlayFile(const std::string& path) {
    const std::vector<uint8_t> text = readWholeFile(path, kMaxPlayFileSize);
    json doc;
    try {
        // Nesting deeper than a play file's is refused as it is read.
        doc = json::parse(text.begin(), text.end(), [&](int depth, json::parse_event_t, json&) {
            if (depth > kMaxPlayFileDepth) throw std::runtime_error(path + ": not a play file: it nests deeper than one does");
            return true;
        });
    } catch (const json::exception& e) {
        throw std::runtime_error(path + ": not JSON (" + e.what() + ")");
    }
    return PlayFileReader(path, doc).read();
}

}  // namespace zpe
