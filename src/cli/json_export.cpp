#include "cli/json_export.h"

#include "model/hex.h"
#include "patch/bps.h"
#include "playbook/list_rows.h"

#include <algorithm>
#include <cstdio>

namespace zpe {

std::string latin1ToUtf8(const std::string& bytes) {
    std::string out;
    for (unsigned char c : bytes) {
        if (c < 0x80) {
            out.push_back(static_cast<char>(c));
        } else {
            out.push_back(static_cast<char>(0xC0 | (c >> 6)));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        }
    }
    return out;
}

namespace {

std::string addr(int32_t a) { return hex4(a); }

}  // namespace

nlohmann::ordered_json imageFingerprint(const std::vector<uint8_t>& bytes) {
    char hex[9];
    std::snprintf(hex, sizeof hex, "%08lX", static_cast<unsigned long>(crc32Of(bytes)));
    return {{"size", bytes.size()}, {"crc32", hex}};
}

nlohmann::ordered_json playbookJson(const Playbook& pb, const CmdNames& names, bool withSequences) {
    using json = nlohmann::ordered_json;
    json root;
    root["image"] = latin1ToUtf8(pb.romPath);
    root["fingerprint"] = imageFingerprint(fileBytes(pb, pb.openedBytes));  // of the file as it is

    json formations = json::array();
    for (size_t f = 0; f < pb.formations.size(); ++f) {
        json players = json::array();
        for (int j = 0; j < kPlayersPerRecord; ++j) players.push_back(addr(pb.formations[f].posAddress(j)));
        formations.push_back({{"index", f}, {"name", latin1ToUtf8(pb.formations[f].name())}, {"positions", players}});
    }
    root["formations"] = formations;

    json plays = json::array();
    for (int p = 0; p < kPlayCount; ++p) {
        json players = json::array();
        for (int j = 0; j < kPlayersPerRecord; ++j) {
            const int32_t a = pb.plays[static_cast<size_t>(p)].seqAddress(j);
            players.push_back(a == kNoSequence ? json(nullptr) : json(addr(a)));
        }
        plays.push_back({{"index", p}, {"players", players}});
    }
    root["plays"] = plays;

    json pointers = json::array();
    for (int32_t a : pb.seqPointers) pointers.push_back(addr(a));
    root["pointers"] = pointers;

    json slots = json::array();
    for (int s = 0; s < kSlotCount; ++s) {
        const clsPlaySlot& slot = pb.playSlots[static_cast<size_t>(s)];
        json off = json::array(), def = json::array(), gfx = json::array();
        for (int j = 0; j < kPlaysPerSlot; ++j) {
            off.push_back(slot.oPlay(j));
            def.push_back(slot.dPlay(j));
        }
        for (int j = 0; j < kGfxRecordSize; ++j) gfx.push_back(slot.GFX(j));
        json entry = {{"index", s},
                      {"name", latin1ToUtf8(slot.name())},
                      {"group", slotGroupLabel(s)},
                      {"formation", slot.formation()}};
        entry["rusher"] = s < kRunningSlotCount ? json(slot.Rusher()) : json(nullptr);
        entry["offensivePlays"] = off;
        entry["defensivePlays"] = def;
        entry["gfx"] = gfx;
        slots.push_back(entry);
    }
    root["slots"] = slots;

    if (withSequences) {
        json sequences = json::array();
        for (const auto& [address, seq] : pb.sequences) sequences.push_back(sequenceJson(address, seq, names));
        root["sequences"] = sequences;
    }
    return root;
}

nlohmann::ordered_json sequenceJson(int32_t key, const clsSequence& seq, const CmdNames& names) {
    using json = nlohmann::ordered_json;
    json commands = json::array();
    // The values as the bytes at the sequence's address hold them (an address
    // field's too), from one encoding of the whole sequence.
    const std::vector<uint8_t> bytes = seq.encode();
    size_t at = 0;
    for (int i = 0; i < seq.commandCount(); ++i) {
        json data = json::array();
        const int16_t code = seq.command(i);
        if (code < 0xC0) {
            data.push_back(bytes[at] & 0x0F);
            for (int k = 1; k < seq.dataLen(i); ++k) data.push_back(bytes[at + static_cast<size_t>(k)]);
        } else {
            for (int k = 0; k < seq.dataLen(i); ++k) data.push_back(bytes[at + 1 + static_cast<size_t>(k)]);
        }
        at += static_cast<size_t>(seq.commands()[static_cast<size_t>(i)].encodedSize());
        const CmdId origin = seq.commandAddress(i);
        commands.push_back({{"address", origin.isNew() ? json(nullptr) : json(addr(origin.readAddress()))},
                            {"code", hex2(seq.command(i))},
                            {"data", data},
                            {"text", latin1ToUtf8(seq.commandName(i, names))}});
    }
    return {{"address", addr(key)}, {"size", seq.byteSize()}, {"next", addr(seq.nextSequence())}, {"valid", seq.isValid()},
            {"commands", commands}};
}

void writePlaybookJson(std::ostream& out, const Playbook& pb, const CmdNames& names) {
    std::string head = playbookJson(pb, names, false).dump(1);  // ends with "\n}"
    head.resize(head.size() - 2);
    out << head << ",\n \"sequences\": [";
    bool first = true;
    for (const auto& [address, seq] : pb.sequences) {
        // Indented as an element two levels deep (JSON text holds no raw newline but these).
        std::string one = sequenceJson(address, seq, names).dump(1), indented;
        indented.reserve(one.size() + one.size() / 8);
        for (const char c : one) {
            indented += c;
            if (c == '\n') indented += "  ";
        }
        out << (first ? "\n  " : ",\n  ") << indented;
        first = false;
    }
    out << (first ? "]" : "\n ]") << "\n}\n";
}

nlohmann::ordered_json areaMapJson(const AreaMap& map) {
    using json = nlohmann::ordered_json;
    auto entries = [](const std::vector<AreaEntry>& list) {
        json out = json::array();
        for (const AreaEntry& e : list) out.push_back({{"from", e.name()}, {"target", addr(e.target)}});
        return out;
    };
    auto addresses = [](const std::vector<int32_t>& list) {
        json out = json::array();
        for (int32_t a : list) out.push_back(addr(a));
        return out;
    };
    json free = json::array();
    for (const AreaRun& r : map.freeRuns()) free.push_back({{"start", addr(r.start)}, {"end", addr(r.end)}});
    json stale = json::array();
    for (const AddressField& f : map.staleFields())
        stale.push_back({{"at", addr(f.at)}, {"code", hex2(f.code)}, {"target", addr(f.target)}});

    json root;
    root["area"] = {{"editorBytes", map.editorBytes()},
                    {"gameBytes", map.gameBytes()},
                    {"gameOnlyBytes", map.gameOnlyBytes()},
                    {"freeBytes", map.freeBytes()},
                    {"free", free}};
    root["outside"] = entries(map.outside);
    root["runsOff"] = addresses(map.runsOff);
    root["fullSave"] = {{"bytesLost", map.gameOnlyBytes()}, {"staleAddresses", stale}, {"strandedEntries", entries(map.stranded)}};
    root["readsDifferently"] = addresses(map.readsDifferently);
    return root;
}

}  // namespace zpe
