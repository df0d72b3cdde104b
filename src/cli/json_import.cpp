#include "cli/json_import.h"

#include "model/hex.h"

namespace zpe {

namespace {

using json = nlohmann::json;

// The reader of one document: every accessor checks the shape and names the place.
struct Reader {
    const json& at(const json& parent, const std::string& where, const std::string& key) const {
        if (!parent.is_object() || !parent.contains(key)) throw ImportError(where, "missing \"" + key + "\"");
        return parent[key];
    }
    const json& array(const json& parent, const std::string& where, const std::string& key, size_t size) const {
        const json& a = at(parent, where, key);
        if (!a.is_array()) throw ImportError(where + "/" + key, "not a list");
        if (a.size() != size)
            throw ImportError(where + "/" + key, "holds " + std::to_string(a.size()) + " entries, not " + std::to_string(size));
        return a;
    }
    int integer(const json& v, const std::string& where, int lo, int hi) const {
        if (!v.is_number_integer()) throw ImportError(where, "not a whole number");
        const auto n = v.get<int64_t>();
        if (n < lo || n > hi)
            throw ImportError(where, std::to_string(n) + " is outside " + std::to_string(lo) + " to " + std::to_string(hi));
        return static_cast<int>(n);
    }
    // A 16-bit address as four hexadecimal digits; null stands for kNoSequence where allowed.
    int32_t address(const json& v, const std::string& where, bool nullAllowed) const {
        if (nullAllowed && v.is_null()) return kNoSequence;
        if (!v.is_string() || v.get<std::string>().size() != 4 ||
            v.get<std::string>().find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
            throw ImportError(where, "not an address of four hexadecimal digits");
        return static_cast<int32_t>(leadingHexValue(v.get<std::string>()));
    }
    // UTF-8 text whose characters are all Latin-1, as 8-bit bytes.
    std::string latin1(const json& v, const std::string& where) const {
        if (!v.is_string()) throw ImportError(where, "not text");
        const std::string utf8 = v.get<std::string>();
        std::string out;
        for (size_t i = 0; i < utf8.size(); ++i) {
            const auto c = static_cast<unsigned char>(utf8[i]);
            if (c < 0x80) {
                out.push_back(static_cast<char>(c));
            } else if ((c == 0xC2 || c == 0xC3) && i + 1 < utf8.size()) {
                out.push_back(static_cast<char>(((c & 0x03) << 6) | (static_cast<unsigned char>(utf8[++i]) & 0x3F)));
            } else {
                throw ImportError(where, "holds a character a slot name cannot store");
            }
        }
        return out;
    }
};

std::string place(const std::string& table, size_t i) { return "/" + table + "/" + std::to_string(i); }

}  // namespace

int applyPlaybookJson(Playbook& pb, const json& doc) {
    const Reader r;
    if (!doc.is_object()) throw ImportError("/", "not a playbook object");
    Playbook out = pb;  // every change goes here first; `pb` changes only when all are good
    int changes = 0;
    auto entry = [&](int32_t value, int32_t before, const std::string& where) {
        if (value == before) return;
        if (value != kNoSequence && !pb.sequences.contains(value))
            throw ImportError(where, hex4(value) + " is the address of no sequence");
        ++changes;
    };

    const json& slots = r.array(doc, "", "slots", kSlotCount);
    for (size_t s = 0; s < slots.size(); ++s) {
        const std::string where = place("slots", s);
        const json& j = slots[s];
        clsPlaySlot& slot = out.playSlots[s];
        const clsPlaySlot before = slot;
        const std::string name = r.latin1(r.at(j, where, "name"), where + "/name");
        if (name.size() > static_cast<size_t>(kSlotNameLength))
            throw ImportError(where + "/name", "longer than the " + std::to_string(kSlotNameLength) + " bytes a slot name holds");
        if (name != slot.name()) slot.name(name);
        slot.formation(r.integer(r.at(j, where, "formation"), where + "/formation", 0,
                                 static_cast<int>(pb.formations.size()) - 1));
        const json& off = r.array(j, where, "offensivePlays", kPlaysPerSlot);
        const json& def = r.array(j, where, "defensivePlays", kPlaysPerSlot);
        for (int k = 0; k < kPlaysPerSlot; ++k) {
            slot.oPlay(k, r.integer(off[static_cast<size_t>(k)], where + "/offensivePlays/" + std::to_string(k), 0, 255));
            slot.dPlay(k, r.integer(def[static_cast<size_t>(k)], where + "/defensivePlays/" + std::to_string(k), 0, 255));
        }
        const json& rusher = r.at(j, where, "rusher");
        if (static_cast<int>(s) < kRunningSlotCount) {
            const int v = r.integer(rusher, where + "/rusher", 0, 8);
            if (v % 2 != 0) throw ImportError(where + "/rusher", "a rusher value is 0, 2, 4, 6 or 8");
            slot.Rusher(v);
        } else if (!rusher.is_null()) {
            throw ImportError(where + "/rusher", "a passing slot has no rusher value (null)");
        }
        if (!(slot == before)) ++changes;
    }

    // The eleven addresses of each play or formation record, checked and stored by `store`.
    auto records = [&](const char* table, const char* list, size_t count, bool nullAllowed, auto before, auto store) {
        const json& all = r.array(doc, "", table, count);
        for (size_t i = 0; i < all.size(); ++i) {
            const json& players = r.array(all[i], place(table, i), list, kPlayersPerRecord);
            for (int j = 0; j < kPlayersPerRecord; ++j) {
                const std::string where = place(table, i) + "/" + list + "/" + std::to_string(j);
                const int32_t a = r.address(players[static_cast<size_t>(j)], where, nullAllowed);
                entry(a, before(i, j), where);
                store(i, j, a);
            }
        }
    };
    records("plays", "players", kPlayCount, true, [&](size_t p, int j) { return pb.plays[p].seqAddress(j); },
            [&](size_t p, int j, int32_t a) { out.plays[p].seqAddress(j, a); });
    records("formations", "positions", pb.formations.size(), false,
            [&](size_t f, int j) { return pb.formations[f].posAddress(j); },
            [&](size_t f, int j, int32_t a) { out.formations[f].posAddress(j, a); });
    const json& pointers = r.array(doc, "", "pointers", kPointerCount);
    for (size_t i = 0; i < pointers.size(); ++i) {
        const int32_t a = r.address(pointers[i], place("pointers", i), false);
        entry(a, pb.seqPointers[i], place("pointers", i));
        out.seqPointers[i] = a;
    }

    const json& sequences = r.array(doc, "", "sequences", pb.sequences.size());
    size_t index = 0;
    for (auto& [address, seq] : out.sequences) {
        const std::string where = place("sequences", index);
        const json& commands = r.at(sequences[index++], where, "commands");
        if (!commands.is_array()) throw ImportError(where + "/commands", "not a list");
        std::vector<std::pair<int, std::vector<int>>> wanted;
        for (size_t i = 0; i < commands.size(); ++i) {
            const std::string at = where + "/commands/" + std::to_string(i);
            const json& code = r.at(commands[i], at, "code");
            if (!code.is_string() || code.get<std::string>().size() != 2 ||
                code.get<std::string>().find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
                throw ImportError(at + "/code", "not a code of two hexadecimal digits");
            const json& data = r.at(commands[i], at, "data");
            if (!data.is_array()) throw ImportError(at + "/data", "not a list");
            std::vector<int> values;
            for (size_t k = 0; k < data.size(); ++k) values.push_back(r.integer(data[k], at + "/data/" + std::to_string(k), 0, 255));
            wanted.emplace_back(static_cast<int>(leadingHexValue(code.get<std::string>())), std::move(values));
        }
        std::vector<std::pair<int, std::vector<int>>> current;
        for (int i = 0; i < seq.commandCount(); ++i) {
            std::vector<int> values;
            for (int k = 0; k < seq.dataLen(i); ++k) values.push_back(seq.data(i, k));
            current.emplace_back(seq.command(i), std::move(values));
        }
        if (wanted == current) continue;
        try {
            seq.setCommands(wanted);
        } catch (const std::invalid_argument& e) {
            throw ImportError(where + "/commands", e.what());
        }
        ++changes;
    }
    pb = std::move(out);
    return changes;
}

}  // namespace zpe
