#include "exchange/play_file.h"

#include "analysis/area_map.h"
#include "exchange/json_export.h"
#include "model/file_io.h"
#include "model/hex.h"
#include "playbook/list_rows.h"
#include "sequence/command_format.h"

#include <algorithm>
#include <cctype>
#include <functional>
#include <stdexcept>
#include <unordered_map>

namespace zpe {

namespace {

using json = nlohmann::ordered_json;

// Where an entry, a way on or a field leads: a command of the file (by the
// address it stood at in the source image), an address outside the area
// (kept as it is: the game's own code), or none.
json leadJson(const CarriedLead& l, const std::vector<CarriedCommand>& commands) {
    switch (l.kind) {
    case CarriedLead::Kind::None: return nullptr;
    case CarriedLead::Kind::Command: return hex4(commands[static_cast<size_t>(l.command)].origin);
    case CarriedLead::Kind::Outside: return json{{"outside", hex4(l.address)}};
    }
    return nullptr;
}

json entriesJson(const std::array<CarriedLead, kPlayersPerRecord>& leads, const std::vector<CarriedCommand>& commands) {
    json players = json::array();
    for (int j = 0; j < kPlayersPerRecord; ++j)
        players.push_back({{"position", positionName(j)}, {"entry", leadJson(leads[static_cast<size_t>(j)], commands)}});
    return players;
}

json commandsJson(const std::vector<CarriedCommand>& commands) {
    json out = json::array();
    for (const CarriedCommand& c : commands) {
        std::string bytes;
        for (size_t k = 0; k < c.bytes.size(); ++k) bytes += (k ? " " : "") + hex2(c.bytes[k]);
        json item{{"id", hex4(c.origin)}, {"bytes", bytes}, {"next", leadJson(c.next, commands)}};
        if (c.field.kind != CarriedLead::Kind::None) {
            const CommandFormat f = commandFormat(c.bytes[0], false, c.bytes.size() > 1 ? c.bytes[1] : -1);
            item["field"] = {{"at", f.fieldAt}, {"kind", f.field == FieldKind::Relative ? "relative" : "word"}, {"to", leadJson(c.field, commands)}};
        }
        out.push_back(item);
    }
    return out;
}

json sourceJson(const Playbook& pb, const std::string& imageName) {
    return {{"image", imageName}, {"fingerprint", imageFingerprint(fileSpan(pb))}};
}

std::array<CarriedLead, kPlayersPerRecord> firstEleven(const std::vector<CarriedLead>& leads, size_t from) {
    std::array<CarriedLead, kPlayersPerRecord> out;
    std::copy_n(leads.begin() + static_cast<std::ptrdiff_t>(from), kPlayersPerRecord, out.begin());
    return out;
}

}  // namespace

json playFile(const Playbook& pb, int play, std::optional<int> slot, const std::string& imageName) {
    std::vector<SeqKey> entries;
    for (int j = 0; j < kPlayersPerRecord; ++j) entries.push_back(pb.plays[static_cast<size_t>(play)].seqAddress(j));
    std::optional<size_t> formation;
    if (slot) {
        formation = pb.playSlots[static_cast<size_t>(*slot)].formation();
        if (*formation >= pb.formations.size()) formation.reset();
    }
    if (formation)
        for (int j = 0; j < kPlayersPerRecord; ++j) entries.push_back(pb.formations[*formation].posAddress(j));
    std::vector<CarriedLead> leads;
    const std::vector<CarriedCommand> commands = carryEntries(pb, entries, leads);

    json source = sourceJson(pb, imageName);
    source["play"] = play;
    if (slot) source["slot"] = *slot;
    json out{{"format", "zpe play"}, {"version", kPlayFileVersion}, {"source", source}, {"players", entriesJson(firstEleven(leads, 0), commands)}};
    if (formation)
        out["formation"] = {{"name", latin1ToUtf8(pb.formations[*formation].name())}, {"positions", entriesJson(firstEleven(leads, kPlayersPerRecord), commands)}};
    out["commands"] = commandsJson(commands);
    return out;
}

namespace {

json recordJson(const CarriedSlot& slot, const CarriedBook& book) {
    std::string graphics;
    for (int k = 0; k < kGfxRecordSize; ++k) graphics += (k ? " " : "") + hex2(slot.record.GFX(k));
    json defensive = json::array(), offensive = json::array();
    for (int k = 0; k < kPlaysPerSlot; ++k) {
        defensive.push_back(slot.record.dPlay(k));
        offensive.push_back(book.plays[static_cast<size_t>(slot.plays[static_cast<size_t>(k)])].source);
    }
    return {{"name", latin1ToUtf8(slot.record.name())}, {"kind", slot.running ? "running" : "passing"}, {"rusher", slot.record.Rusher()},
            {"defensivePlays", defensive}, {"graphics", graphics}, {"offensivePlays", offensive}};
}

json formationJson(const CarriedRecord& f, const CarriedBook& book) {
    return {{"number", f.source}, {"name", latin1ToUtf8(f.name)}, {"positions", entriesJson(f.leads, book.commands)}};
}

json playsJson(const CarriedBook& book) {
    json plays = json::array();
    for (const CarriedRecord& p : book.plays) plays.push_back({{"number", p.source}, {"players", entriesJson(p.leads, book.commands)}});
    return plays;
}

}  // namespace

json slotFile(const Playbook& pb, int slotNumber, const std::string& imageName) {
    const CarriedBook book = carrySlots(pb, {slotNumber});
    json source = sourceJson(pb, imageName);
    source["slot"] = slotNumber;
    return {{"format", "zpe slot"}, {"version", kSlotFileVersion}, {"source", source}, {"slot", recordJson(book.playSlots.front(), book)},
            {"formation", formationJson(book.formations.front(), book)}, {"plays", playsJson(book)}, {"commands", commandsJson(book.commands)}};
}

json playbookFile(const Playbook& pb, const std::string& imageName) {
    std::vector<int> all(kSlotCount);
    for (int s = 0; s < kSlotCount; ++s) all[static_cast<size_t>(s)] = s;
    const CarriedBook book = carrySlots(pb, all);
    json slots = json::array(), formations = json::array();
    for (const CarriedSlot& slot : book.playSlots) {
        json record = recordJson(slot, book);
        record["formation"] = book.formations[static_cast<size_t>(slot.formation)].source;
        slots.push_back(record);
    }
    for (const CarriedRecord& f : book.formations) formations.push_back(formationJson(f, book));
    return {{"format", "zpe playbook"}, {"version", kPlaybookFileVersion}, {"source", sourceJson(pb, imageName)}, {"slots", slots},
            {"formations", formations}, {"plays", playsJson(book)}, {"commands", commandsJson(book.commands)}};
}

namespace {

// A play file holds a few hundred commands, a playbook file a few thousand; a file far larger is none of them.
constexpr int64_t kMaxPlayFileSize = 4 << 20;
constexpr int kMaxPlayFileDepth = 8;  // the documents nest four levels

// Reads what play and slot files share: the header, the commands and the leads to them.
class CarriedReader {
public:
    CarriedReader(std::string path, const json& doc) : path_(std::move(path)), doc_(doc) {}

    // Checks the header for `format` at a version this program reads; reads the commands.
    std::vector<CarriedCommand> header(const char* format, int readable) {
        if (!doc_.is_object() || doc_.value("format", json()) != format) fail("", "not a " + std::string(format).substr(4) + " file (no \"format\": \"" + format + "\")");
        const json& version = doc_.value("version", json());
        if (!version.is_number_integer() || version.get<int64_t>() < 1) fail("/version", "not a version number");
        if (version.get<int64_t>() > readable)
            fail("/version", "written in version " + std::to_string(version.get<int64_t>()) + " of the file format, which is newer than this program (it reads version " +
                                 std::to_string(readable) + "); use a newer zpe");
        const json* commands = member(doc_, "commands");
        if (!commands || !commands->is_array()) fail("/commands", "missing (a list of commands)");
        for (size_t i = 0; i < commands->size(); ++i) {
            const json* id = member((*commands)[i], "id");
            if (!id || !id->is_string() || !ids_.emplace(id->get<std::string>(), static_cast<int>(i)).second)
                fail("/commands/" + std::to_string(i) + "/id", "missing, not a text, or the id of another command too");
        }
        std::vector<CarriedCommand> out(commands->size());
        for (size_t i = 0; i < commands->size(); ++i) out[i] = command((*commands)[i], "/commands/" + std::to_string(i));
        return out;
    }
    // Eleven entries ({"entry": ...}) at `where`.
    std::array<CarriedLead, kPlayersPerRecord> eleven(const json* list, const std::string& where) const {
        if (!list || !list->is_array() || list->size() != kPlayersPerRecord) fail(where, "not a list of the 11 players");
        std::array<CarriedLead, kPlayersPerRecord> out;
        for (size_t j = 0; j < kPlayersPerRecord; ++j) {
            const json* entry = member((*list)[j], "entry");
            if (!entry) fail(where + "/" + std::to_string(j), "no \"entry\"");
            // The place in the list says whose entry it is; a label, where
            // given, must agree, or a hand edit that moved an entry would
            // give it to another player without a word.
            if (const json* label = member((*list)[j], "position"); label && *label != positionName(static_cast<int>(j)))
                fail(where + "/" + std::to_string(j) + "/position",
                     "names " + label->dump() + ", but this place in the list is " + positionName(static_cast<int>(j)) +
                         "'s (the entries go QB, RB, FB, ... in that order)");
            out[j] = lead(*entry, where + "/" + std::to_string(j) + "/entry");
        }
        return out;
    }
    // A whole number from `low` to `high` at `where`.
    int number(const json* v, int low, int high, const std::string& where) const {
        if (!v || !v->is_number_integer() || v->get<int64_t>() < low || v->get<int64_t>() > high)
            fail(where, "not a number from " + std::to_string(low) + " to " + std::to_string(high));
        return static_cast<int>(v->get<int64_t>());
    }
    // Text whose characters are all Latin-1, as the image's 8-bit bytes.
    std::string latin1(const json* v, const std::string& where) const {
        if (!v || !v->is_string()) fail(where, "not text");
        std::optional<std::string> out = utf8ToLatin1(v->get_ref<const std::string&>());
        if (!out) fail(where, "holds a character the image cannot store");
        return *out;
    }
    static const json* member(const json& object, const char* name) {
        if (!object.is_object()) return nullptr;
        const auto found = object.find(name);
        return found == object.end() ? nullptr : &*found;
    }
    [[noreturn]] void fail(const std::string& where, const std::string& why) const {
        throw std::runtime_error(path_ + (where.empty() ? "" : " at " + where) + ": " + why);
    }
    const json& doc() const { return doc_; }

private:
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
        out.bytes = hexBytes(member(c, "bytes"), where + "/bytes");
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

public:
    // Bytes in hexadecimal, two digits each, spaces between allowed ("D0 F0 12").
    std::vector<uint8_t> hexBytes(const json* v, const std::string& where) const {
        if (!v || !v->is_string()) fail(where, "missing (bytes in hexadecimal)");
        std::vector<uint8_t> out;
        const std::string& text = v->get_ref<const std::string&>();
        for (size_t k = 0; k < text.size();) {
            if (text[k] == ' ') {
                ++k;
                continue;
            }
            if (k + 1 >= text.size() || !std::isxdigit(static_cast<unsigned char>(text[k])) || !std::isxdigit(static_cast<unsigned char>(text[k + 1])))
                fail(where, "not bytes in hexadecimal (\"D0 F0 12\")");
            out.push_back(static_cast<uint8_t>(std::stoi(text.substr(k, 2), nullptr, 16)));
            k += 2;
        }
        return out;
    }

private:
    std::string path_;
    const json& doc_;
    std::unordered_map<std::string, int> ids_;
};

json readDocument(const std::string& path) {
    const std::vector<uint8_t> text = readWholeFile(path, kMaxPlayFileSize);
    if (const long nul = nulByteIn(text); nul >= 0) throw std::runtime_error(path + ": not JSON: a NUL byte at byte " + std::to_string(nul));
    try {
        // Nesting deeper than a play or slot file's is refused as it is read.
        return json::parse(text.begin(), text.end(), [&](int depth, json::parse_event_t, json&) {
            if (depth > kMaxPlayFileDepth) throw std::runtime_error(path + ": not a play, slot or playbook file: it nests deeper than one does");
            return true;
        });
    } catch (const json::parse_error& e) {
        throw std::runtime_error(path + ": not JSON: the text breaks off or goes wrong at byte " + std::to_string(e.byte));
    } catch (const json::exception& e) {
        throw std::runtime_error(path + ": not JSON (" + e.what() + ")");
    }
}

}  // namespace

std::string carriedFileFormat(const std::string& path) {
    const json doc = readDocument(path);
    const json* format = CarriedReader::member(doc, "format");
    if (!format || !format->is_string() || (*format != "zpe play" && *format != "zpe slot" && *format != "zpe playbook"))
        throw std::runtime_error(path + ": not a play, slot or playbook file (no \"format\" of one)");
    return format->get<std::string>();
}

long nulByteIn(std::span<const uint8_t> text) {
    const auto nul = std::find(text.begin(), text.end(), 0);
    return nul == text.end() ? -1 : nul - text.begin();
}

PlayFile readPlayFile(const std::string& path) {
    const json doc = readDocument(path);
    CarriedReader r(path, doc);
    PlayFile out;
    out.play.commands = r.header("zpe play", kPlayFileVersion);
    if (const json* source = CarriedReader::member(doc, "source"); source && source->is_object()) {
        if (const json* image = CarriedReader::member(*source, "image"); image && image->is_string()) out.sourceImage = image->get<std::string>();
        if (const json* play = CarriedReader::member(*source, "play"); play && play->is_number_integer()) out.sourcePlay = play->get<int>();
    }
    out.play.players = r.eleven(CarriedReader::member(doc, "players"), "/players");
    if (const std::string fault = carriedPlayFault(out.play); !fault.empty()) r.fail("", "not a play the game could run: " + fault);
    return out;
}

namespace {

// The records a slot or playbook file carries: its formations (one object, or a list), its plays, its slots.
class BookReader {
public:
    BookReader(CarriedReader& r, CarriedBook& book) : r_(r), book_(book) {}

    void formation(const json* f, const std::string& where) {
        if (!f || !f->is_object()) r_.fail(where, "missing (a formation)");
        CarriedRecord record;
        if (const json* number = CarriedReader::member(*f, "number")) {
            record.source = r_.number(number, 0, 255, where + "/number");
            if (listed(book_.formations, record.source)) r_.fail(where + "/number", "formation " + std::to_string(record.source) + " is listed twice");
        }
        if (const json* name = CarriedReader::member(*f, "name")) record.name = r_.latin1(name, where + "/name");
        record.leads = r_.eleven(CarriedReader::member(*f, "positions"), where + "/positions");
        book_.formations.push_back(record);
    }
    void plays(const json* list, size_t most) {
        if (!list || !list->is_array() || list->empty() || list->size() > most) r_.fail("/plays", "not a list of the plays the slots run");
        for (size_t p = 0; p < list->size(); ++p) {
            const std::string where = "/plays/" + std::to_string(p);
            CarriedRecord record;
            record.source = r_.number(CarriedReader::member((*list)[p], "number"), 0, kPlayCount - 1, where + "/number");
            if (listed(book_.plays, record.source)) r_.fail(where + "/number", "play " + std::to_string(record.source) + " is listed twice");
            record.leads = r_.eleven(CarriedReader::member((*list)[p], "players"), where + "/players");
            book_.plays.push_back(record);
        }
    }
    // A slot record; its formation the book's `formation`-th unless the record names one by number.
    void slot(const json* record, const std::string& where, int formation) {
        if (!record || !record->is_object()) r_.fail(where, "missing (a slot's record)");
        CarriedSlot slot;
        const std::string name = r_.latin1(CarriedReader::member(*record, "name"), where + "/name");
        if (const std::string problem = typedSlotNameProblem(name); !problem.empty()) r_.fail(where + "/name", problem);
        slot.record.name(name);
        const json* kind = CarriedReader::member(*record, "kind");
        if (!kind || (*kind != "running" && *kind != "passing")) r_.fail(where + "/kind", "neither \"running\" nor \"passing\"");
        slot.running = *kind == "running";
        slot.record.Rusher(r_.number(CarriedReader::member(*record, "rusher"), 0, 8, where + "/rusher"));
        const std::vector<int> defensive = numbers(CarriedReader::member(*record, "defensivePlays"), 255, where + "/defensivePlays");
        for (int k = 0; k < kPlaysPerSlot; ++k) slot.record.dPlay(k, defensive[static_cast<size_t>(k)]);
        const std::vector<uint8_t> graphics = r_.hexBytes(CarriedReader::member(*record, "graphics"), where + "/graphics");
        if (graphics.size() != kGfxRecordSize) r_.fail(where + "/graphics", "not the slot's " + std::to_string(kGfxRecordSize) + " graphics bytes");
        for (int k = 0; k < kGfxRecordSize; ++k) slot.record.GFX(k, graphics[static_cast<size_t>(k)]);
        const std::vector<int> offensive = numbers(CarriedReader::member(*record, "offensivePlays"), kPlayCount - 1, where + "/offensivePlays");
        for (int k = 0; k < kPlaysPerSlot; ++k)
            slot.plays[static_cast<size_t>(k)] = indexOf(book_.plays, offensive[static_cast<size_t>(k)], where + "/offensivePlays/" + std::to_string(k));
        slot.formation = formation;
        if (const json* f = CarriedReader::member(*record, "formation")) slot.formation = indexOf(book_.formations, r_.number(f, 0, 255, where + "/formation"), where + "/formation");
        book_.playSlots.push_back(slot);
    }

private:
    static bool listed(const std::vector<CarriedRecord>& list, int number) {
        return std::any_of(list.begin(), list.end(), [&](const CarriedRecord& r) { return r.source == number; });
    }
    std::vector<int> numbers(const json* list, int high, const std::string& where) const {
        if (!list || !list->is_array() || list->size() != kPlaysPerSlot) r_.fail(where, "not a list of 8 play numbers");
        std::vector<int> out;
        for (size_t k = 0; k < kPlaysPerSlot; ++k) out.push_back(r_.number(&(*list)[k], 0, high, where + "/" + std::to_string(k)));
        return out;
    }
    int indexOf(const std::vector<CarriedRecord>& list, int number, const std::string& where) const {
        for (size_t i = 0; i < list.size(); ++i)
            if (list[i].source == number) return static_cast<int>(i);
        r_.fail(where, "names a formation or play the file does not carry");
    }
    CarriedReader& r_;
    CarriedBook& book_;
};

std::string sourceImageOf(const json& doc) {
    if (const json* source = CarriedReader::member(doc, "source"); source && source->is_object())
        if (const json* image = CarriedReader::member(*source, "image"); image && image->is_string()) return image->get<std::string>();
    return {};
}

}  // namespace

namespace {

// A slot or playbook file: its header and commands, then what `records` reads of it into the book.
SlotsFile readBook(const std::string& path, const char* format, int version, const char* what,
                   const std::function<void(const json&, CarriedReader&, BookReader&)>& records) {
    const json doc = readDocument(path);
    CarriedReader r(path, doc);
    SlotsFile out{{}, sourceImageOf(doc)};
    out.book.commands = r.header(format, version);
    BookReader book(r, out.book);
    records(doc, r, book);
    if (const std::string fault = carriedBookFault(out.book); !fault.empty()) r.fail("", std::string("not ") + what + " the game could run: " + fault);
    return out;
}

}  // namespace

SlotsFile readSlotFile(const std::string& path) {
    return readBook(path, "zpe slot", kSlotFileVersion, "a slot", [](const json& doc, CarriedReader&, BookReader& book) {
        book.formation(CarriedReader::member(doc, "formation"), "/formation");
        book.plays(CarriedReader::member(doc, "plays"), kPlaysPerSlot);
        book.slot(CarriedReader::member(doc, "slot"), "/slot", 0);
    });
}

SlotsFile readPlaybookFile(const std::string& path) {
    return readBook(path, "zpe playbook", kPlaybookFileVersion, "a playbook", [](const json& doc, CarriedReader& r, BookReader& book) {
        const json* formations = CarriedReader::member(doc, "formations");
        if (!formations || !formations->is_array() || formations->empty()) r.fail("/formations", "not a list of formations");
        for (size_t f = 0; f < formations->size(); ++f) book.formation(&(*formations)[f], "/formations/" + std::to_string(f));
        book.plays(CarriedReader::member(doc, "plays"), kPlayCount);
        const json* slots = CarriedReader::member(doc, "slots");
        if (!slots || !slots->is_array() || slots->size() != kSlotCount) r.fail("/slots", "not a list of the 64 slots");
        for (size_t s = 0; s < kSlotCount; ++s) book.slot(&(*slots)[s], "/slots/" + std::to_string(s), -1);
    });
}

}  // namespace zpe
