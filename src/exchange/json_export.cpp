#include "exchange/json_export.h"

#include "model/hex.h"
#include "patch/bps.h"
#include "playbook/list_rows.h"

#include <algorithm>
#include <cstdio>

namespace zpe {

std::optional<std::string> utf8ToLatin1(const std::string& utf8) {
    std::string out;
    for (size_t i = 0; i < utf8.size(); ++i) {
        const auto c = static_cast<unsigned char>(utf8[i]);
        if (c < 0x80) {
            out.push_back(static_cast<char>(c));
        } else if ((c == 0xC2 || c == 0xC3) && i + 1 < utf8.size() && (static_cast<unsigned char>(utf8[i + 1]) & 0xC0) == 0x80) {
            out.push_back(static_cast<char>(((c & 0x03) << 6) | (static_cast<unsigned char>(utf8[++i]) & 0x3F)));
        } else {
            return std::nullopt;
        }
    }
    return out;
}

std::string latin1ToUtf8(const std::string& bytes) {
    if (std::all_of(bytes.begin(), bytes.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; })) return bytes;  // ASCII is its own UTF-8
    std::string out;
    out.reserve(bytes.size() * 2);
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
// A sequence key: its address, or "new 2" for one made in the editor.
std::string addr(SeqKey k) { return sequenceKeyText(k); }

}  // namespace

std::string crc32Text(std::span<const uint8_t> bytes) {
    char hex[9];
    std::snprintf(hex, sizeof hex, "%08lX", static_cast<unsigned long>(crc32Of(bytes)));
    return hex;
}

nlohmann::ordered_json imageFingerprint(std::span<const uint8_t> bytes) {
    return {{"size", bytes.size()}, {"crc32", crc32Text(bytes)}};
}

namespace {

// Writes JSON as it is made, laid out as nlohmann's dump(1): one value a
// line, each level one space further in, empty lists and objects as [] and {}.
class JsonWriter {
public:
    explicit JsonWriter(std::ostream& out) : out_(out) { buf_.reserve(1 << 16); }
    ~JsonWriter() { flush(); }

    JsonWriter& key(const char* k) {
        next();
        buf_ += '"';
        buf_ += k;
        buf_ += "\": ";
        keyed_ = true;
        return *this;
    }
    void open(char bracket) {
        next();
        buf_ += bracket;
        open_.push_back(0);
    }
    void close(char bracket) {
        const bool empty = open_.back() == 0;
        open_.pop_back();
        if (!empty) {
            buf_ += '\n';
            buf_.append(open_.size(), ' ');
        }
        buf_ += bracket;
        if (buf_.size() > (1 << 16) - 512) flush();
    }
    void string(const std::string& utf8) {
        next();
        buf_ += '"';
        for (const char ch : utf8) {
            const auto c = static_cast<unsigned char>(ch);
            switch (c) {
            case '"': buf_ += "\\\""; break;
            case '\\': buf_ += "\\\\"; break;
            case '\b': buf_ += "\\b"; break;
            case '\f': buf_ += "\\f"; break;
            case '\n': buf_ += "\\n"; break;
            case '\r': buf_ += "\\r"; break;
            case '\t': buf_ += "\\t"; break;
            default:
                if (c < 0x20) {
                    char esc[8];
                    std::snprintf(esc, sizeof esc, "\\u%04x", c);
                    buf_ += esc;
                } else {
                    buf_ += ch;
                }
            }
        }
        buf_ += '"';
    }
    void number(long long v) {
        next();
        buf_ += std::to_string(v);
    }
    void boolean(bool v) {
        next();
        buf_ += v ? "true" : "false";
    }
    void null() {
        next();
        buf_ += "null";
    }
    void raw(const std::string& text) { buf_ += text; }
    void flush() {
        out_.write(buf_.data(), static_cast<std::streamsize>(buf_.size()));
        buf_.clear();
    }

private:
    // Before a value: a key already placed it; in a list it starts its own line.
    void next() {
        if (keyed_) {
            keyed_ = false;
            return;
        }
        if (open_.empty()) return;
        buf_ += open_.back()++ ? ",\n" : "\n";
        buf_.append(open_.size(), ' ');
    }

    std::ostream& out_;
    std::string buf_;
    std::vector<int> open_;  // values written so far in each open list or object
    bool keyed_ = false;
};

void writeSequence(JsonWriter& w, SeqKey key, const clsSequence& seq, const CmdNames& names) {
    w.open('{');
    w.key("address").string(addr(key));
    w.key("size").number(seq.byteSize());
    w.key("next").string(addr(seq.nextSequence()));
    w.key("valid").boolean(seq.isValid());
    w.key("commands").open('[');
    // The values as the bytes at the sequence's address hold them (an address
    // field's too), from one encoding of the whole sequence.
    const std::vector<uint8_t> bytes = seq.encode();
    size_t at = 0;
    for (int i = 0; i < seq.commandCount(); ++i) {
        const int16_t code = seq.command(i);
        const CmdId origin = seq.commandAddress(i);
        w.open('{');
        w.key("address");
        if (origin.isNew()) w.null();
        else w.string(addr(origin.readAddress()));
        w.key("code").string(hex2(code));
        w.key("data").open('[');
        if (code < 0xC0) {
            w.number(bytes[at] & 0x0F);
            for (int k = 1; k < seq.dataLen(i); ++k) w.number(bytes[at + static_cast<size_t>(k)]);
        } else {
            for (int k = 0; k < seq.dataLen(i); ++k) w.number(bytes[at + 1 + static_cast<size_t>(k)]);
        }
        w.close(']');
        w.key("text").string(latin1ToUtf8(seq.commandName(i, names)));
        w.close('}');
        at += static_cast<size_t>(seq.commands()[static_cast<size_t>(i)].encodedSize());
    }
    w.close(']');
    w.close('}');
}

}  // namespace

void writePlaybookJson(std::ostream& out, const Playbook& pb, const CmdNames& names) {
    JsonWriter w(out);
    w.open('{');
    w.key("image").string(latin1ToUtf8(pb.romPath));
    const std::span<const uint8_t> file = fileSpan(pb);  // the file as it is
    w.key("fingerprint").open('{');
    w.key("size").number(static_cast<long long>(file.size()));
    w.key("crc32").string(crc32Text(file));
    w.close('}');
    w.key("formations").open('[');
    for (size_t f = 0; f < pb.formations.size(); ++f) {
        w.open('{');
        w.key("index").number(static_cast<long long>(f));
        w.key("name").string(latin1ToUtf8(pb.formations[f].name()));
        w.key("positions").open('[');
        for (int j = 0; j < kPlayersPerRecord; ++j) w.string(addr(pb.formations[f].posAddress(j)));
        w.close(']');
        w.close('}');
    }
    w.close(']');
    w.key("plays").open('[');
    for (int p = 0; p < kPlayCount; ++p) {
        w.open('{');
        w.key("index").number(p);
        w.key("players").open('[');
        for (int j = 0; j < kPlayersPerRecord; ++j) {
            const SeqKey a = pb.plays[static_cast<size_t>(p)].seqAddress(j);
            if (a.isNone()) w.null();
            else w.string(addr(a));
        }
        w.close(']');
        w.close('}');
    }
    w.close(']');
    w.key("pointers").open('[');
    for (const SeqKey a : pb.seqPointers) w.string(addr(a));
    w.close(']');
    w.key("slots").open('[');
    for (int s = 0; s < kSlotCount; ++s) {
        const clsPlaySlot& slot = pb.playSlots[static_cast<size_t>(s)];
        w.open('{');
        w.key("index").number(s);
        w.key("name").string(latin1ToUtf8(slot.name()));
        w.key("group").string(slotGroupLabel(s));
        w.key("formation").number(slot.formation());
        w.key("rusher");
        if (s < kRunningSlotCount) w.number(slot.Rusher());
        else w.null();
        w.key("offensivePlays").open('[');
        for (int j = 0; j < kPlaysPerSlot; ++j) w.number(slot.oPlay(j));
        w.close(']');
        w.key("defensivePlays").open('[');
        for (int j = 0; j < kPlaysPerSlot; ++j) w.number(slot.dPlay(j));
        w.close(']');
        w.key("gfx").open('[');
        for (int j = 0; j < kGfxRecordSize; ++j) w.number(slot.GFX(j));
        w.close(']');
        w.close('}');
    }
    w.close(']');
    w.key("sequences").open('[');
    for (const auto& [key, seq] : pb.sequences) writeSequence(w, key, seq, names);
    w.close(']');
    w.close('}');
    w.raw("\n");
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
