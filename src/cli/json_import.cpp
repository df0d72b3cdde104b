#include "cli/json_import.h"

#include "analysis/area_map.h"
#include "analysis/entries.h"
#include "exchange/json_export.h"
#include "model/hex.h"
#include "playbook/list_rows.h"
#include "sequence/command_codes.h"
#include "sequence/command_format.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <unordered_map>
#include <unordered_set>

namespace zpe {

namespace {

using json = nlohmann::json;

// A place in the file as a JSON pointer ("/slots/3/gfx/7"): a place given as
// text, perhaps with a key or an index under it, or a key or an index under
// another place. It is spelled out only when a refusal names it (an import
// visits some tens of thousands of values). It keeps a pointer to the text
// or the place it was made from, so these must outlive it: temporaries are refused.
class Where {
public:
    Where(const std::string& text) : text_(&text) {}  // every text is a place
    Where(const std::string& text, const char* key) : text_(&text), key_(key), below_(true) {}
    Where(const std::string& text, size_t index) : text_(&text), index_(index), below_(true) {}
    Where(const Where& up, const char* key) : up_(&up), key_(key), below_(true) {}
    Where(const Where& up, size_t index) : up_(&up), index_(index), below_(true) {}
    Where(std::string&&) = delete;
    Where(std::string&&, const char*) = delete;
    Where(std::string&&, size_t) = delete;
    Where(Where&&, const char*) = delete;
    Where(Where&&, size_t) = delete;

    [[nodiscard]] std::string str() const {
        std::string out = text_ ? *text_ : up_->str();
        if (below_) {
            out += '/';
            out += key_ ? std::string(key_) : std::to_string(index_);
        }
        return out;
    }

private:
    const std::string* text_ = nullptr;
    const Where* up_ = nullptr;
    const char* key_ = nullptr;
    size_t index_ = 0;
    bool below_ = false;
};

// A value the file may leave as exported or set to what the import makes of it.
bool sameValue(const json& v, const std::string& s) { return v.is_string() && v.get_ref<const std::string&>() == s; }
template <typename T>
bool sameValue(const json& v, const T& x) {
    return v == json(x);
}

// The reader of one document: every accessor checks the shape and names the place.
struct Reader {
    // The member `key` of `parent`, or nullptr when `parent` is no object or has none.
    static const json* member(const json& parent, const char* key) {
        if (!parent.is_object()) return nullptr;
        const auto& members = parent.get_ref<const json::object_t&>();
        const auto it = members.find(key);
        return it == members.end() ? nullptr : &it->second;
    }
    const json& at(const json& parent, const Where& where, const char* key) const {
        const json* v = member(parent, key);
        if (!v) throw ImportError(where.str(), "missing \"" + std::string(key) + "\"");
        return *v;
    }
    const json& array(const json& parent, const Where& where, const char* key, size_t size) const {
        const json& a = at(parent, where, key);
        if (!a.is_array()) throw ImportError(Where(where, key).str(), "not a list");
        if (a.size() != size)
            throw ImportError(Where(where, key).str(), "holds " + std::to_string(a.size()) + " entries, not " + std::to_string(size));
        return a;
    }
    int integer(const json& v, const Where& where, int lo, int hi) const {
        const auto range = [&] { return " is outside " + std::to_string(lo) + " to " + std::to_string(hi); };  // said only on a refusal
        if (v.is_number_unsigned()) {
            const auto n = v.get<uint64_t>();
            if (n > static_cast<uint64_t>(hi)) throw ImportError(where.str(), std::to_string(n) + range());
            return static_cast<int>(n);
        }
        if (v.is_number_integer()) {
            const auto n = v.get<int64_t>();
            if (n < lo || n > hi) throw ImportError(where.str(), std::to_string(n) + range());
            return static_cast<int>(n);
        }
        // A whole number written with a point or an exponent (1.0, 1e2, -0.0) is that number.
        if (v.is_number_float() && std::isfinite(v.get<double>()) && std::floor(v.get<double>()) == v.get<double>()) {
            const double d = v.get<double>();
            if (d >= lo && d <= hi) return static_cast<int>(d);
            // Beyond 64 bits its digits are gone: say what it is rather than show it rounded.
            throw ImportError(where.str(), std::string(std::fabs(d) >= 9.2e18 ? "a whole number beyond 64 bits" : v.dump()) + range());
        }
        throw ImportError(where.str(), "not a whole number");
    }
    // Refuses a key of `object` that is none of `known`: the import would
    // otherwise pass over it in silence.
    void onlyKeys(const json& object, const Where& where, std::initializer_list<const char*> known) const {
        if (!object.is_object()) return;
        for (const auto& [key, value] : object.get_ref<const json::object_t&>())
            if (std::none_of(known.begin(), known.end(), [&](const char* k) { return key == k; }))
                throw ImportError(where.str() + "/" + key, "is not a field of this file's format (a misspelt name?); nothing reads it");
    }
    // A derived field: it may stay as exported or say what the import makes of
    // it; anything else is refused. `before` and `after` give the two values,
    // worked out only when the file holds the field.
    template <typename Before, typename After>
    void derivedFrom(const json& parent, const Where& where, const char* key, const Before& before, const After& after) const {
        const json* v = member(parent, key);
        if (!v) return;
        const auto now = after();
        if (sameValue(*v, now) || sameValue(*v, before())) return;
        throw ImportError(Where(where, key).str(), "is worked out from the rest of the file (" + json(now).dump() +
                                                       " after this import); it cannot be set");
    }
    template <typename T>
    void derived(const json& parent, const Where& where, const char* key, const T& before, const T& after) const {
        derivedFrom(parent, where, key, [&] { return before; }, [&] { return after; });
    }
    // A field that names something fixed: it must stay as exported.
    template <typename T>
    void fixed(const json& parent, const Where& where, const char* key, const T& value, const char* why) const {
        const json* v = member(parent, key);
        if (!v) return;
        if (!sameValue(*v, value)) throw ImportError(Where(where, key).str(), std::string("cannot be changed: ") + why);
    }
    // A 16-bit address as four hexadecimal digits; null stands for kNoSequence where allowed.
    int32_t address(const json& v, const Where& where, bool nullAllowed) const {
        if (nullAllowed && v.is_null()) return kNoSequence;
        if (!v.is_string()) throw ImportError(where.str(), "not an address of four hexadecimal digits");
        const std::string& text = v.get_ref<const std::string&>();
        if (text.size() != 4 || text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
            throw ImportError(where.str(), "not an address of four hexadecimal digits");
        return static_cast<int32_t>(leadingHexValue(text));
    }
    // A table entry: an address as above, or {"new": "label"} naming a sequence the file makes.
    SeqKey entry(const json& v, const Where& where, bool nullAllowed, const std::unordered_map<std::string, SeqKey>& made) const {
        if (!v.is_object()) return SeqKey::at(address(v, where, nullAllowed));
        onlyKeys(v, where, {"new"});
        const json& label = at(v, where, "new");
        if (!label.is_string() || !made.count(label.get<std::string>()))
            throw ImportError(Where(where, "new").str(), "names no new sequence of this file");
        return made.at(label.get<std::string>());
    }
    // UTF-8 text whose characters are all Latin-1, as 8-bit bytes.
    std::string latin1(const json& v, const Where& where) const {
        if (!v.is_string()) throw ImportError(where.str(), "not text");
        std::optional<std::string> out = utf8ToLatin1(v.get_ref<const std::string&>());
        if (!out) throw ImportError(where.str(), "holds a character a slot name cannot store");
        return *out;
    }
};

std::string place(const std::string& table, size_t i) { return "/" + table + "/" + std::to_string(i); }

// The direct reader of parseJsonText. It throws Unusual at the first thing it
// does not read itself, and the caller hands the whole text to nlohmann.
class DirectReader {
public:
    struct Unusual {};

    explicit DirectReader(const std::vector<uint8_t>& text) : p_(text.data()), end_(text.data() + text.size()) {}

    json document() {
        space();
        json doc = value(0);
        space();
        if (p_ != end_) throw Unusual{};
        return doc;
    }

private:
    // Deeper than this, nlohmann's parser (which keeps no call per level) reads it.
    static constexpr int kMaxLevels = 256;

    void space() {
        while (p_ != end_ && (*p_ == ' ' || *p_ == '\n' || *p_ == '\r' || *p_ == '\t')) ++p_;
    }
    uint8_t next() {
        if (p_ == end_) throw Unusual{};
        return *p_;
    }
    void expect(uint8_t c) {
        if (next() != c) throw Unusual{};
        ++p_;
    }
    // The text of a string whose opening quote is read: printable ASCII up to the closing quote.
    std::string text() {
        const uint8_t* from = p_;
        while (p_ != end_ && *p_ >= 0x20 && *p_ < 0x80 && *p_ != '"' && *p_ != '\\') ++p_;
        if (p_ == end_ || *p_ != '"') throw Unusual{};
        return std::string(reinterpret_cast<const char*>(from), static_cast<size_t>(p_++ - from));
    }
    void literal(const char* word) {
        for (; *word; ++word, ++p_)
            if (p_ == end_ || *p_ != static_cast<uint8_t>(*word)) throw Unusual{};
    }
    json number() {
        const bool negative = *p_ == '-';
        if (negative) ++p_;
        const uint8_t* from = p_;
        uint64_t n = 0;
        while (p_ != end_ && *p_ >= '0' && *p_ <= '9') n = n * 10 + static_cast<uint64_t>(*p_++ - '0');
        const auto digits = p_ - from;
        // No digit, a leading zero, more digits than certainly fit, a fraction or an exponent: nlohmann's.
        if (digits == 0 || digits > 18 || (digits > 1 && *from == '0')) throw Unusual{};
        if (p_ != end_ && (*p_ == '.' || *p_ == 'e' || *p_ == 'E')) throw Unusual{};
        // As nlohmann reads them: a number with a minus sign is signed, one without unsigned.
        return negative ? json(-static_cast<int64_t>(n)) : json(n);
    }
    json value(int level) {
        if (level > kMaxLevels) throw Unusual{};
        switch (next()) {
        case '{': {
            ++p_;
            json object(json::value_t::object);
            auto& members = object.get_ref<json::object_t&>();
            space();
            if (next() == '}') {
                ++p_;
                return object;
            }
            for (;;) {
                expect('"');
                std::string key = text();
                space();
                expect(':');
                space();
                members.insert_or_assign(std::move(key), value(level + 1));  // a key given twice: the last value, as nlohmann
                space();
                if (next() == '}') {
                    ++p_;
                    return object;
                }
                expect(',');
                space();
            }
        }
        case '[': {
            ++p_;
            // The elements wait on a stack shared by every level, so each list is allocated once at its size.
            const size_t first = stack_.size();
            space();
            if (next() != ']') {
                for (;;) {
                    stack_.push_back(value(level + 1));
                    space();
                    if (next() == ']') break;
                    expect(',');
                    space();
                }
            }
            ++p_;
            json list(json::value_t::array);
            auto& elements = list.get_ref<json::array_t&>();
            elements.reserve(stack_.size() - first);
            for (size_t i = first; i < stack_.size(); ++i) elements.push_back(std::move(stack_[i]));
            stack_.resize(first);
            return list;
        }
        case '"': ++p_; return json(text());
        case 't': literal("true"); return json(true);
        case 'f': literal("false"); return json(false);
        case 'n': literal("null"); return json(nullptr);
        default:
            if (*p_ == '-' || (*p_ >= '0' && *p_ <= '9')) return number();
            throw Unusual{};
        }
    }

    const uint8_t* p_;
    const uint8_t* end_;
    std::vector<json> stack_;
};

}  // namespace

json parseJsonText(const std::vector<uint8_t>& text) {
    try {
        return DirectReader(text).document();
    } catch (const DirectReader::Unusual&) {
        return json::parse(text.begin(), text.end());
    }
}

void requireSameImage(const json& doc, std::span<const uint8_t> image, const std::string& jsonName,
                      const std::string& imageName) {
    if (!doc.is_object() || !doc.contains("fingerprint"))
        throw ImportError("/fingerprint", "missing: " + jsonName + " does not say which state of " + imageName +
                                              " it was written from; export again (or --force)");
    if (doc["fingerprint"] != json(imageFingerprint(image)))
        throw ImportError("/fingerprint", jsonName + " was written from another state of " + imageName + "; export again");
}

Playbook importedPlaybook(const Playbook& pb, const json& doc, const CmdNames& names, int* changeCount,
                          std::vector<std::pair<SeqKey, std::string>>* labels) {
    const Reader r;
    const std::string root;  // the document itself, as a place
    const std::string fingerprintWhere = "/fingerprint";
    if (!doc.is_object()) throw ImportError("/", "not a playbook object");
    Playbook out = pb;  // every change goes here; `pb` stays the image as read
    int changes = 0;
    // Sequences the file makes (listed with "new" and a label instead of an
    // address) get their keys first, so that entries can name them.
    r.onlyKeys(doc, root, {"image", "fingerprint", "formations", "plays", "pointers", "slots", "sequences"});
    if (doc.contains("fingerprint")) r.onlyKeys(doc["fingerprint"], fingerprintWhere, {"size", "crc32"});
    const json& sequences = r.at(doc, root, "sequences");
    if (!sequences.is_array()) throw ImportError("/sequences", "not a list");
    std::unordered_map<std::string, SeqKey> made;
    std::unordered_set<SeqKey> named;  // new sequences an entry names
    for (size_t index = 0; index < sequences.size(); ++index) {
        const json& entry = sequences[index];
        if (!entry.is_object() || !entry.contains("new")) continue;
        const std::string where = place("sequences", index);
        if (entry.contains("address")) throw ImportError(where, "has an address and \"new\": a sequence is one or the other");
        const json& label = entry["new"];
        if (!label.is_string() || label.get<std::string>().empty() || label.get<std::string>().size() > 64)
            throw ImportError(where + "/new", "not a label of 1 to 64 characters");
        const SeqKey key = nextNewSequenceKey(out);
        if (!made.emplace(label.get<std::string>(), key).second)
            throw ImportError(where + "/new", "\"" + label.get<std::string>() + "\" is made twice");
        bool kick = false;
        if (entry.contains("kick")) {
            if (!entry["kick"].is_boolean()) throw ImportError(where + "/kick", "not true or false");
            kick = entry["kick"].get<bool>();
        }
        clsSequence seq;
        seq.key(key);
        seq.kick(kick);
        out.sequences.insert(key, std::move(seq));
    }
    auto entry = [&](SeqKey value, SeqKey before, const Where& where) {
        if (value.isNew()) named.insert(value);
        if (value == before) return;
        if (!value.isNone() && !value.isNew() && !pb.sequences.contains(value))
            throw ImportError(where.str(), hex4(value.address()) + " is the address of no sequence");
        ++changes;
    };

    const json& slots = r.array(doc, root, "slots", kSlotCount);
    for (size_t s = 0; s < slots.size(); ++s) {
        const std::string where = place("slots", s);
        const std::string gfxWhere = where + "/gfx", offensiveWhere = where + "/offensivePlays", defensiveWhere = where + "/defensivePlays";
        const json& j = slots[s];
        r.onlyKeys(j, where, {"index", "name", "group", "formation", "rusher", "offensivePlays", "defensivePlays", "gfx"});
        clsPlaySlot& slot = out.playSlots[s];
        const clsPlaySlot before = slot;
        r.fixed(j, where, "index", s, "slots are listed in order");
        r.fixed(j, where, "group", slotGroupLabel(static_cast<int>(s)), "a slot's group follows from its index");
        const json& gfx = r.array(j, where, "gfx", kGfxRecordSize);
        for (int k = 0; k < kGfxRecordSize; ++k)
            slot.GFX(k, r.integer(gfx[static_cast<size_t>(k)], Where(gfxWhere, static_cast<size_t>(k)), 0, 255));
        const std::string name = r.latin1(r.at(j, where, "name"), Where(where, "name"));
        if (name != slot.name()) {
            if (const std::string problem = typedSlotNameProblem(name); !problem.empty()) throw ImportError(where + "/name", problem);
            slot.name(name);
        }
        slot.formation(r.integer(r.at(j, where, "formation"), Where(where, "formation"), 0,
                                 static_cast<int>(pb.formations.size()) - 1));
        const json& off = r.array(j, where, "offensivePlays", kPlaysPerSlot);
        const json& def = r.array(j, where, "defensivePlays", kPlaysPerSlot);
        for (int k = 0; k < kPlaysPerSlot; ++k) {
            slot.oPlay(k, r.integer(off[static_cast<size_t>(k)], Where(offensiveWhere, static_cast<size_t>(k)), 0, 255));
            slot.dPlay(k, r.integer(def[static_cast<size_t>(k)], Where(defensiveWhere, static_cast<size_t>(k)), 0, 255));
        }
        const json& rusher = r.at(j, where, "rusher");
        if (static_cast<int>(s) < kRunningSlotCount) {
            const int v = r.integer(rusher, Where(where, "rusher"), 0, 8);
            if (v % 2 != 0) throw ImportError(where + "/rusher", "a rusher value is 0, 2, 4, 6 or 8");
            slot.Rusher(v);
        } else if (!rusher.is_null()) {
            throw ImportError(where + "/rusher", "a passing slot has no rusher value (null)");
        }
        if (!(slot == before)) ++changes;
    }

    // The eleven addresses of each play or formation record, checked and stored by `store`.
    auto records = [&](const char* table, const char* list, size_t count, bool nullAllowed, auto before, auto store) {
        const json& all = r.array(doc, root, table, count);
        const std::string tableWhere = std::string("/") + table;
        for (size_t i = 0; i < all.size(); ++i) {
            const Where record(tableWhere, i);
            r.fixed(all[i], record, "index", i, "records are listed in order");
            r.onlyKeys(all[i], record, {"index", "name", list});
            const json& players = r.array(all[i], record, list, kPlayersPerRecord);
            const Where listed(record, list);
            for (int j = 0; j < kPlayersPerRecord; ++j) {
                const Where where(listed, static_cast<size_t>(j));
                const SeqKey a = r.entry(players[static_cast<size_t>(j)], where, nullAllowed, made);
                entry(a, before(i, j), where);
                store(i, j, a);
            }
        }
    };
    const json& formationList = r.array(doc, root, "formations", pb.formations.size());
    const std::string formationsWhere = "/formations";
    for (size_t f = 0; f < formationList.size(); ++f)
        r.fixed(formationList[f], Where(formationsWhere, f), "name", latin1ToUtf8(pb.formations[f].name()),
                "formation names come from forms.txt beside the program");
    records("plays", "players", kPlayCount, true, [&](size_t p, int j) { return pb.plays[p].seqAddress(j); },
            [&](size_t p, int j, SeqKey a) { out.plays[p].seqAddress(j, a); });
    records("formations", "positions", pb.formations.size(), false,
            [&](size_t f, int j) { return pb.formations[f].posAddress(j); },
            [&](size_t f, int j, SeqKey a) { out.formations[f].posAddress(j, a); });
    const json& pointers = r.array(doc, root, "pointers", kPointerCount);
    const std::string pointersWhere = "/pointers";
    for (size_t i = 0; i < pointers.size(); ++i) {
        const Where where(pointersWhere, i);
        const SeqKey a = r.entry(pointers[i], where, false, made);
        entry(a, pb.seqPointers[i], where);
        out.seqPointers[i] = a;
    }

    // A changed entry reads its sequence as the sequence is read: a kick
    // formation's position the kick way, everything else the plain way.
    if (const auto e = misreadEntry(pb, out)) {
        // A sequence the file makes is known to the user by its label.
        std::string target = sequenceKeyText(e->target);
        for (const auto& [label, key] : made)
            if (key == e->target) target += " (\"" + label + "\" in the file)";
        const std::string at = e->table == AreaEntry::Table::Pointer ? place("pointers", static_cast<size_t>(e->index))
                               : e->table == AreaEntry::Table::Play
                                   ? place("plays", static_cast<size_t>(e->index)) + "/players/" + std::to_string(e->player)
                                   : place("formations", static_cast<size_t>(e->index)) + "/positions/" + std::to_string(e->player);
        throw ImportError(at, std::string(entryReadsKick(*e) ? "a kick formation's position" : "this entry") + " reads its sequence " +
                                  (entryReadsKick(*e) ? "the kick way" : "the plain way") + ", and " + target +
                                  " is read the other way");
    }
    // Where the image as opened runs commands and what outside the area it
    // leads to: worked out when a field or a continuation first asks.
    std::unordered_set<int32_t> gameStarts, usedOutside;
    bool mapped = false;
    auto game = [&]() {
        if (!mapped) {
            const AreaMap map = buildAreaMap(pb);
            gameStarts.insert(map.commands.begin(), map.commands.end());
            for (const AreaEntry& e : map.outside) usedOutside.insert(e.target.address());
            for (const AddressField& f : map.leaves) usedOutside.insert(f.target);
            mapped = true;
        }
    };
    std::unordered_set<SeqKey> seen;
    for (size_t index = 0; index < sequences.size(); ++index) {
        const std::string where = place("sequences", index);
        const json& entry = sequences[index];
        const bool isNew = entry.is_object() && entry.contains("new");
        const SeqKey key = isNew ? made.at(entry["new"].get<std::string>())
                                 : SeqKey::at(r.address(r.at(entry, where, "address"), Where(where, "address"), false));
        if (!isNew && !pb.sequences.contains(key))
            throw ImportError(where + "/address", hex4(key.address()) + " is the address of no sequence");
        if (!seen.insert(key).second) throw ImportError(where + "/address", sequenceKeyText(key) + " is listed twice");
        if (isNew && !named.count(key)) throw ImportError(where + "/new", "no entry of the file names this new sequence");
        if (isNew) {
            r.onlyKeys(entry, where, {"new", "kick", "continuesAt", "size", "next", "valid", "commands"});
        } else {
            // Where an existing sequence goes on, and how it is read, follow from the image.
            for (const char* onlyNew : {"kick", "continuesAt"})
                if (entry.contains(onlyNew))
                    throw ImportError(where + "/" + onlyNew, "is given only for a new sequence; an existing one keeps " +
                                                                 std::string(onlyNew[0] == 'k' ? "the reading of the entries that name it"
                                                                                               : "the command the game goes on at after it"));
            r.onlyKeys(entry, where, {"address", "size", "next", "valid", "commands"});
        }
        // The sequence as it stood: a new one's empty start is copied, as `seq` is that very sequence.
        std::optional<clsSequence> madeBefore;
        if (isNew) madeBefore = out.sequences.at(key);
        const clsSequence& before = isNew ? *madeBefore : pb.sequences.at(key);
        clsSequence& seq = out.sequences.at(key);
        std::unordered_map<CmdId, int, CmdIdHash> oldByOrigin;
        for (int i = 0; i < before.commandCount(); ++i) oldByOrigin.emplace(before.commandAddress(i), i);

        const json& commands = r.at(entry, where, "commands");
        if (!commands.is_array()) throw ImportError(where + "/commands", "not a list");
        if (commands.size() > static_cast<size_t>(kMaxCommands)) throw ImportError(where + "/commands", "too many commands");
        std::vector<SeqCommand> cmds;
        cmds.reserve(commands.size());
        const Where commandsWhere(where, "commands");
        int32_t added = 0;
        for (size_t i = 0; i < commands.size(); ++i) {
            const Where at(commandsWhere, i);
            const json& c = commands[i];
            r.onlyKeys(c, at, {"address", "code", "data", "text"});
            SeqCommand cmd;
            if (const json* address = Reader::member(c, "address"); address && !address->is_null()) {
                const int32_t readAt = r.address(*address, Where(at, "address"), false);
                cmd.origin = CmdId::readAt(readAt);
                if (!oldByOrigin.count(cmd.origin))
                    throw ImportError(Where(at, "address").str(), hex4(readAt) + " is the address of no command of this sequence");
            } else {
                cmd.origin = CmdId::added(added++);
            }
            const json& code = r.at(c, at, "code");
            if (!code.is_string() || code.get_ref<const std::string&>().size() != 2 ||
                code.get_ref<const std::string&>().find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
                throw ImportError(Where(at, "code").str(), "not a code of two hexadecimal digits");
            const auto value = static_cast<int>(leadingHexValue(code.get_ref<const std::string&>()));
            if (value < 0xC0 && (value & 0x0F) != 0) throw ImportError(Where(at, "code").str(), "not a command code");
            cmd.command = static_cast<int16_t>(value);
            const json& data = r.at(c, at, "data");
            const Where dataWhere(at, "data");
            if (!data.is_array()) throw ImportError(dataWhere.str(), "not a list");
            if (data.size() > static_cast<size_t>(kMaxDataValues)) throw ImportError(dataWhere.str(), "more values than any command takes");
            for (size_t k = 0; k < data.size(); ++k)
                cmd.data[k] = static_cast<int16_t>(r.integer(data[k], Where(dataWhere, k), 0, value < 0xC0 && k == 0 ? 15 : 255));
            cmd.dataLen = static_cast<int16_t>(data.size());
            const auto old = oldByOrigin.find(cmd.origin);
            if (cmd::isLockUp(value) && (old == oldByOrigin.end() || before.command(old->second) != value))
                throw ImportError(Where(at, "code").str(), code.get<std::string>() + " locks the game up when it runs; it can only stay where it is");
            cmds.push_back(cmd);
        }
        // The counts, and what each field names: an absolute address (jumps and
        // branches), or for a relative jump an offset from where the command was
        // read (a new one: from where it will stand).
        int32_t placeNow = seq.base();
        std::unordered_map<int32_t, CmdId> originAt;
        for (SeqCommand& c : cmds) {
            originAt.emplace(placeNow, c.origin);
            placeNow += std::max<int32_t>(1, c.encodedSize());
        }
        placeNow = seq.base();
        for (size_t i = 0; i < cmds.size(); ++i) {
            SeqCommand& c = cmds[i];
            const Where at(commandsWhere, i);
            const int next = i + 1 < cmds.size() ? codeByte(cmds[i + 1]) : -1;
            const CommandFormat f = commandFormat(codeByte(c), seq.kick(), next);
            const int wanted = std::max<int>(0, editorDataLen(f));
            if (c.dataLen != wanted)
                throw ImportError(Where(at, "data").str(), "takes " + std::to_string(wanted) + " data values, not " + std::to_string(c.dataLen));
            c.dataLen = editorDataLen(f);
            if (f.field == FieldKind::Relative) {
                const int32_t from = c.origin.isNew() ? placeNow : c.origin.readAddress();
                const int32_t target = from + static_cast<int8_t>(c.data[0] & 0xFF);
                c.data[0] = 0;
                const auto it = originAt.find(target);
                if (c.origin.isNew() && it != originAt.end()) c.field = FieldRef::naming(it->second);
                else c.field = FieldRef::at(target, target < from);
                if (isNew && c.field.kind != FieldRef::Kind::Command)
                    throw ImportError(Where(at, "data").str(), "a new sequence has no place yet, so its relative jumps can only lead to its own "
                                                    "commands; leave it with an absolute jump (FF)");
            } else if (f.field == FieldKind::Word && !f.gameFieldOnly) {
                const auto lo = static_cast<size_t>(dataOfByte(c.command, f.fieldAt));
                c.field = FieldRef::at((c.data[lo] & 0xFF) + 256 * (c.data[lo + 1] & 0xFF));
                c.data[lo] = c.data[lo + 1] = 0;
            }
            placeNow += c.encodedSize();
        }
        // A field naming where one of this sequence's commands was read names that command.
        std::unordered_set<CmdId, CmdIdHash> own;
        for (const SeqCommand& c : cmds) own.insert(c.origin);
        for (SeqCommand& c : cmds)
            if (c.field.kind == FieldRef::Kind::Address && own.count(CmdId::readAt(c.field.address)))
                c.field = FieldRef::naming(CmdId::readAt(c.field.address));
        // Jumps and branches lead to a command: of this sequence, one the game
        // runs, or an address outside the area the image already uses. A jump
        // to itself is a loop the game never leaves, refused as a lock-up is.
        // Both may stay where the image holds them already.
        for (size_t i = 0; i < cmds.size(); ++i) {
            const FieldRef& field = cmds[i].field;
            const auto old = oldByOrigin.find(cmds[i].origin);
            const bool asItWas = old != oldByOrigin.end() && before.commands()[static_cast<size_t>(old->second)].field == field;
            if ((cmds[i].command == cmd::kRelativeJump || cmds[i].command == cmd::kAbsoluteJump) && field.kind == FieldRef::Kind::Command &&
                field.command == cmds[i].origin && !asItWas)
                throw ImportError(where + "/commands/" + std::to_string(i) + "/data",
                                  "a jump to itself locks the game up (it never leaves it); it is refused as a lock-up is");
            if (field.kind != FieldRef::Kind::Address || asItWas) continue;
            const int32_t t = field.address;
            game();
            const bool fine = inArea(t) ? gameStarts.count(t) != 0 || pb.sequences.contains(SeqKey::at(t)) : usedOutside.count(t) != 0;
            if (!fine)
                throw ImportError(where + "/commands/" + std::to_string(i) + "/data",
                                  "leads to " + hex4(t) + ", which is " +
                                      (inArea(t) ? "not the start of a command the game runs"
                                                 : "outside the sequence area and used by nothing in the image"));
        }
        try {
            seq.assign(std::move(cmds));
        } catch (const std::invalid_argument& e) {
            throw ImportError(where + "/commands", e.what());
        }
        r.derived(entry, where, "size", before.byteSize(), seq.byteSize());
        r.derived(entry, where, "next", hex4(before.nextSequence()), hex4(seq.nextSequence()));
        r.derived(entry, where, "valid", before.isValid(), seq.isValid());
        if (!seq.isValid()) throw ImportError(where + "/commands", "ends in a jump to FFFF, which the game cannot run");
        // A new sequence ending where the game goes on (Human Control) names
        // where: a command the game runs, such as the computer's logic after
        // another sequence's Human Control.
        const bool goesOn = seq.gameGoesOnAfterEnd();
        if (isNew && entry.contains("continuesAt")) {
            if (!goesOn) throw ImportError(where + "/continuesAt", "the game stops after this sequence's last command");
            const int32_t then = r.address(entry["continuesAt"], Where(where, "continuesAt"), false);
            game();
            if (!gameStarts.count(then)) throw ImportError(where + "/continuesAt", hex4(then) + " is not a command the game runs");
            seq.continuation(then);
        } else if (isNew && goesOn) {
            throw ImportError(where + "/continuesAt", "missing: the game goes on after " + hex2(seq.commands().back().command) +
                                                          "; name the command it goes on at");
        }
        for (size_t i = 0; i < commands.size(); ++i) {
            r.derivedFrom(
                commands[i], Where(commandsWhere, i), "text",
                [&] {
                    const auto old = oldByOrigin.find(seq.commandAddress(static_cast<int>(i)));
                    return old == oldByOrigin.end() ? std::string() : latin1ToUtf8(before.commandName(old->second, names));
                },
                [&] { return latin1ToUtf8(seq.commandName(static_cast<int>(i), names)); });
        }
        if (seq.commands() != before.commands() || seq.byteSize() != before.byteSize()) ++changes;
    }
    if (changeCount) *changeCount = changes;
    if (labels)
        for (const auto& [label, key] : made) labels->emplace_back(key, label);
    return out;
}

int applyPlaybookJson(Playbook& pb, const json& doc, const CmdNames& names) {
    int changes = 0;
    pb = importedPlaybook(pb, doc, names, &changes);
    return changes;
}

}  // namespace zpe
