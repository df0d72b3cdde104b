#include "save/saves.h"

#include "analysis/area_map.h"
#include "analysis/entries.h"
#include "model/file_io.h"
#include "model/hex.h"
#include "model/rom_error.h"
#include "playbook/open_rom.h"
#include "playbook/table_codec.h"
#include "save/verify_write.h"
#include "sequence/command_codes.h"
#include "sequence/command_format.h"

#include <algorithm>
#include <filesystem>
#include <unordered_map>
#include <unordered_set>

namespace zpe {

namespace {

// What Full Save leaves in the unused sequence area and what the mask marks a sequence's bytes with.
constexpr uint8_t kBlankByte = 0xFF;

// Where Full Save puts each sequence of the model, by key.
using NewStarts = std::unordered_map<SeqKey, int32_t>;

// What an entry names after Full Save: the sequence's new start, or what it named.
SeqKey remapped(const NewStarts& map, SeqKey key) {
    const auto it = map.find(key);
    return it == map.end() ? key : SeqKey::at(it->second);
}

}  // namespace

void requireCompleteOpen(const Playbook& pb) {
    if (pb.romPath.empty()) throw SaveError("No image is open.", Refusal::NotOpen);
    if (!pb.openComplete)
        throw SaveError(pb.romPath + ": the image did not open completely; open an image again before saving", Refusal::NotOpen);
}

namespace {

[[noreturn]] void refuseChangedOnDisk(const Playbook& pb) {
    const auto slash = pb.romPath.find_last_of('/');
    throw SaveError((slash == std::string::npos ? pb.romPath : pb.romPath.substr(slash + 1)) +
                        " changed on disk since it was opened (another program wrote it); nothing was written",
                    Refusal::ChangedOnDisk);
}

}  // namespace

std::vector<uint8_t> readUnchangedImage(const Playbook& pb, const std::vector<uint8_t>* fileHolds) {
    requireCompleteOpen(pb);
    std::vector<uint8_t> bytes = readWholeFile(pb.romPath);
    if (pb.headerless) bytes = withHeader(bytes);  // the editor's form, as openedBytes holds it
    if (bytes != (fileHolds ? *fileHolds : pb.openedBytes.vector())) refuseChangedOnDisk(pb);
    return bytes;
}

void requireUnchangedImage(const Playbook& pb, const std::vector<uint8_t>* fileHolds) {
    requireCompleteOpen(pb);
    const std::span<const uint8_t> headed(fileHolds ? *fileHolds : pb.openedBytes.vector());
    const auto header = static_cast<size_t>(kHeaderSize);
    // A headerless file is held with a blank header in front (withHeader): the file is what follows it.
    const bool same = !pb.headerless ? fileHoldsExactly(pb.romPath, headed)
                                     : headed.size() >= header &&
                                           std::all_of(headed.begin(), headed.begin() + kHeaderSize, [](uint8_t b) { return b == 0; }) &&
                                           fileHoldsExactly(pb.romPath, headed.subspan(header));
    if (!same) refuseChangedOnDisk(pb);
}

namespace {

// Every sequence standing where it stands, nothing of the area written.
SaveLayout unchangedLayout(const Playbook& pb) {
    SaveLayout layout;
    layout.gameReading = false;
    for (const auto& [key, seq] : pb.sequences) layout.sequences.push_back(laidAt(key, seq, key.address(), false));
    return layout;
}

}  // namespace

bool safeSave(Playbook& pb, const std::function<void(const std::vector<uint8_t>&)>& confirm) {
    Image image(pb.romPath, readUnchangedImage(pb));
    writeTables(pb, image, kSlotTables);
    // What the image must read back as: its own sequences and tables, the model's slots.
    Playbook expected = readBytesAs(pb, pb.openedBytes);
    expected.playSlots = pb.playSlots;
    (void)verifyWrite(expected, pb, image.bytes(), unchangedLayout(expected));
    if (image.bytes() == pb.openedBytes) {  // the slots already stand so: a rewrite would only change the file's time
        if (confirm) confirm(image.bytes());
        return false;
    }
    replaceFileContents(pb.romPath, fileBytes(pb, image.bytes()), confirm ? std::function<void()>([&] { confirm(image.bytes()); }) : nullptr);
    pb.openedBytes = image.bytes();
    return true;
}

namespace {

// An entry's chain that now runs on, by a closing jump, to an address no
// sequence of the model starts: the open after the save reads it there as a
// new sequence, the entry's way. Where that reading fails, the save refuses.
void refuseUnreadableChains(const Playbook& before, const Playbook& now) {
    std::unordered_set<int64_t> checked;
    std::unordered_map<SeqKey, SeqKey> walked;  // where the chain from a key runs off: many entries name the same one
    for (const AreaEntry& e : playbookEntries(now)) {
        auto [it, fresh] = walked.try_emplace(e.target);
        if (fresh) it->second = walkChain(now, e.target, [](SeqKey) { return false; });
        const SeqKey reached = it->second;
        if (reached == e.target || reached.isNone() || now.sequences.contains(reached)) continue;
        // Below the image a field check names it better (nothing in the image leads there).
        const int32_t key = reached.address();
        if (key < kAddressOffsetDelta) continue;
        const bool kick = entryReadsKick(e);
        if (!checked.insert(int64_t{key} * 2 + (kick ? 1 : 0)).second) continue;
        if (const clsSequence* was = before.sequences.find(reached); was && was->kick() == kick) continue;  // read so already
        if (const std::string fault = chainFault(now, key, kick); !fault.empty())
            throw SaveError(now.romPath + ": " + e.name() + " would run on to " + hex4(key) + ", which no sequence starts; read there " +
                                (kick ? "the kick formations' way" : "the plain way") + " the image would not open (" + fault +
                                "); nothing was saved",
                            Refusal::WouldNotReopen);
    }
}

}  // namespace

void refuseMisreadEntries(const Playbook& before, const Playbook& now) {
    refuseUnreadableChains(before, now);
    if (const auto e = misreadEntry(before, now))
        throw SaveError(now.romPath + ": " + e->name() + " reads what it runs " +
                        (entryReadsKick(*e) ? "the kick formations' way" : "the plain way") + ", but " + sequenceName(e->target) +
                            " is read the other way; nothing was saved",
                        Refusal::MisreadEntry);
}

namespace {

// One sequence as Full Save writes it: its bytes as they stand at its
// address (a sequence made in the editor: at its new one), its closing
// forward relative jump made absolute, and that jump, when it leads to the
// start of a sequence of the dictionary, leading to where that one now starts.
std::vector<uint8_t> fullSaveSequence(clsSequence seq, int32_t newAddress, const NewStarts& addressMap) {
    seq.convertRelJump();
    if (!seq.placed()) seq.key(SeqKey::at(newAddress));
    std::vector<uint8_t> bytes = seq.encode();
    const int32_t t = seq.nextSequence();
    const auto mapped = addressMap.find(SeqKey::at(t));
    if (t <= 0 || mapped == addressMap.end()) return bytes;
    for (int i = 0; i < seq.commandCount(); ++i) {
        if (seq.command(i) != cmd::kAbsoluteJump) continue;
        const auto at = static_cast<size_t>(seq.place(i) - seq.address());
        const CommandFormat jump = commandFormat(cmd::kAbsoluteJump, false, -1);
        const FieldBytes field = fieldBytes(jump.field, seq.place(i), mapped->second);
        for (int k = 0; k < field.count; ++k) bytes[at + static_cast<size_t>(jump.fieldAt + k)] = field.bytes[static_cast<size_t>(k)];
        break;
    }
    return bytes;
}

// True when `got`, read back, holds the commands of `want` (after its closing
// jump was made absolute): the same codes and values but for address fields.
bool sameCommands(clsSequence want, const clsSequence& got) {
    want.convertRelJump();
    if (want.commandCount() != got.commandCount()) return false;
    for (int i = 0; i < want.commandCount(); ++i) {
        const SeqCommand &a = want.commands()[static_cast<size_t>(i)], &b = got.commands()[static_cast<size_t>(i)];
        if (a.command != b.command || a.dataLen != b.dataLen || a.data != b.data) return false;
    }
    return true;
}

// Full Save writes fields as they stood; where that leads the editor's open
// astray (a jump into what is now another sequence's bytes), the result would
// not open as the model says: refused in words, before anything is written.
void refuseUnlessItReopens(const Playbook& relaid) {
    auto refuse = [&](const std::string& why) {
        throw SaveError(relaid.romPath + ": after a Full Save " + why +
                            " (Full Save writes jumps and branches as they stand, and they would lead elsewhere); use Save. "
                            "Nothing was saved",
                        Refusal::WouldNotReopen);
    };
    Playbook again;
    try {
        again = readBytesAs(relaid, fullSaveBytes(relaid, relaid.openedBytes));
    } catch (const RomError& e) {
        refuse(std::string("the image would not open: ") + e.what());
    }
    for (const auto& [key, seq] : relaid.sequences) {
        const clsSequence* back = again.sequences.find(key);
        if (!back || back->commandCount() != seq.commandCount() || back->kick() != seq.kick())
            refuse(sequenceName(key) + " would read back as other commands");
    }
}

}  // namespace

namespace {

// True when `now` differs from `was` (the same sequence as read) only in
// values: the same commands with the same codes and lengths, a command with
// an address field unchanged. Such an edit fits where the sequence stands.
bool valuesOnly(const std::vector<SeqCommand>& was, const std::vector<SeqCommand>& now) {
    if (was.size() != now.size()) return false;
    for (size_t i = 0; i < was.size(); ++i) {
        const SeqCommand &w = was[i], &c = now[i];
        if (c.origin != w.origin || c.command != w.command || c.dataLen != w.dataLen || c.field != w.field) return false;
        if (c != w && c.field.kind != FieldRef::Kind::None) return false;
    }
    return true;
}

}  // namespace

std::optional<Playbook> withSharedValueEdits(const Playbook& pb, const Playbook& old) {
    // The commands whose values a sequence changed, by where they were read: as read, and as changed.
    struct Edit {
        SeqCommand was, now;
        bool clash = false;  // another sequence changed it otherwise, or one showing it is read otherwise by the game
    };
    std::unordered_map<int32_t, Edit> edits;
    for (const auto& [key, seq] : pb.sequences) {
        const clsSequence* before = key.placed() ? old.sequences.find(key) : nullptr;
        // Only an edit of values alone in the area: a sequence that grows or
        // changes its commands moves, and its old bytes stay what they were.
        if (!before || !inArea(key.address()) || before->commands() == seq.commands() || !valuesOnly(before->commands(), seq.commands()))
            continue;
        for (size_t i = 0; i < seq.commands().size(); ++i) {
            const SeqCommand &w = before->commands()[i], &c = seq.commands()[i];
            if (c == w) continue;
            const auto [it, fresh] = edits.try_emplace(c.origin.readAddress(), Edit{w, c});
            if (!fresh && (it->second.was != w || it->second.now != c)) it->second.clash = true;
            // The game reads a COM pass's receiver address in bytes the editor reads as values.
            if (before->readsDifferentlyByGame()) it->second.clash = true;
        }
    }
    if (edits.empty()) return std::nullopt;
    // Every other sequence still showing such a command as read.
    std::vector<std::pair<SeqKey, size_t>> shown;
    for (const auto& [key, seq] : pb.sequences) {
        const clsSequence* before = key.placed() ? old.sequences.find(key) : nullptr;
        for (size_t i = 0; before && inArea(key.address()) && i < seq.commands().size(); ++i) {
            const SeqCommand& c = seq.commands()[i];
            if (c.origin.isNew()) continue;
            const auto e = edits.find(c.origin.readAddress());
            if (e == edits.end() || c != e->second.was) continue;
            if (before->readsDifferentlyByGame()) e->second.clash = true;
            shown.emplace_back(key, i);
        }
    }
    std::erase_if(shown, [&](const auto& s) {
        return edits.at(pb.sequences.at(s.first).commands()[s.second].origin.readAddress()).clash;
    });
    if (shown.empty()) return std::nullopt;
    Playbook out = pb;
    for (size_t k = 0; k < shown.size();) {  // a sequence's commands stand together in `shown`
        clsSequence& seq = out.sequences.at(shown[k].first);
        std::vector<SeqCommand> cmds = seq.commands();
        for (const SeqKey key = shown[k].first; k < shown.size() && shown[k].first == key; ++k)
            cmds[shown[k].second] = edits.at(cmds[shown[k].second].origin.readAddress()).now;
        seq.assign(std::move(cmds));
    }
    return out;
}

Playbook relayout(const Playbook& pb) {
    Playbook before;
    if (pb.openComplete) {
        try {
            before = readBytesAs(pb, pb.openedBytes);
        } catch (const RomError&) {
            before = pb;  // the tables as the model has them: nothing to compare with
        }
        refuseMisreadEntries(before, pb);
    }
    // The copy takes every change; `pb` stays as it is, also when the layout is refused.
    Playbook out = pb;
    if (pb.openComplete)
        if (std::optional<Playbook> shared = withSharedValueEdits(pb, before)) out = std::move(*shared);
    dropUnusedNewSequences(out);

    // New starts in dictionary order, each sequence as long as it is once its
    // closing forward relative jump is absolute.
    NewStarts addressMap;
    int64_t nextFree = kSequenceAreaAddress;
    for (const auto& [key, seq] : out.sequences) {
        addressMap.emplace(key, static_cast<int32_t>(nextFree));
        clsSequence converted = seq;
        if (!converted.placed()) converted.key(SeqKey::at(static_cast<int32_t>(nextFree)));  // measured where it will stand
        converted.convertRelJump();
        nextFree += converted.byteSize();
    }
    const int64_t total = nextFree - kSequenceAreaAddress;
    if (total > kSequenceAreaSize)
        throw SaveError(pb.romPath + ": the sequences need " + std::to_string(total) + " bytes, more than the " +
                            std::to_string(kSequenceAreaSize) + "-byte sequence area (0xA000-0xBFFF) holds; nothing was saved",
                        Refusal::TooLarge);

    // The area as Full Save writes it, read back the editor's way: what the
    // model holds from now on, and the check that every sequence reopens.
    std::vector<uint8_t> area(static_cast<size_t>(kSequenceAreaSize), kBlankByte);
    for (const auto& [key, seq] : out.sequences) {
        const std::vector<uint8_t> bytes = fullSaveSequence(seq, addressMap.at(key), addressMap);
        const auto at = static_cast<size_t>(addressMap.at(key) - kSequenceAreaAddress);
        if (at + bytes.size() > area.size())  // never: the sizes were measured where each stands
            throw SaveError(pb.romPath + ": " + sequenceName(key) + " would end past the sequence area; nothing was saved",
                            Refusal::TooLarge);
        std::copy(bytes.begin(), bytes.end(), area.begin() + static_cast<std::ptrdiff_t>(at));
    }
    std::vector<uint8_t> image(static_cast<size_t>(offsetOfAddress(kAreaEnd)), 0);
    std::copy(area.begin(), area.end(), image.begin() + kSequenceAreaOffset);
    Image laid("layout", std::move(image));
    SequenceMap relaid;
    for (const auto& [key, seq] : out.sequences) {
        const int32_t start = addressMap.at(key);
        clsSequence back;
        back.reset(start);
        laid.seekOffset(offsetOfAddress(start));
        back.load(laid, seq.kick());
        if (!sameCommands(seq, back))
            throw SaveError(pb.romPath + ": Full Save would write " + sequenceName(key) + " at " + hex4(start) +
                                " where the editor would read it back as other commands (a Long Snap right before the "
                                "jump that starts the next sequence, or a jump that leads elsewhere); use Save. Nothing was saved",
                            Refusal::WouldNotReopen);
        relaid.insert(SeqKey::at(start), std::move(back));
    }
    out.sequences = std::move(relaid);

    for (auto& pointer : out.seqPointers) pointer = remapped(addressMap, pointer);
    for (auto& form : out.formations)
        for (int j = 0; j < kPlayersPerRecord; ++j) form.posAddress(j, remapped(addressMap, form.posAddress(j)));
    for (auto& play : out.plays)
        for (int j = 0; j < kPlayersPerRecord; ++j) play.seqAddress(j, remapped(addressMap, play.seqAddress(j)));
    if (pb.openComplete) refuseUnlessItReopens(out);
    return out;
}

std::vector<uint8_t> fullSaveBytes(const Playbook& relaid, std::vector<uint8_t> original) {
    Image image(relaid.romPath, std::move(original));
    image.seekOffset(kSequenceAreaOffset);
    for (int32_t i = 0; i < kSequenceAreaSize; ++i) image.writeByte(kBlankByte);
    writeTables(relaid, image, kAllTables);
    image.seekOffset(kSequenceAreaOffset);
    for (const auto& [address, seq] : relaid.sequences)
        for (uint8_t byte : seq.encode()) image.writeByte(byte);
    return image.bytes();
}

void fullSave(Playbook& pb, const std::function<void(const Playbook&)>& confirm) {
    std::vector<uint8_t> current = readUnchangedImage(pb);
    Playbook relaid = relayout(pb);
    const std::vector<uint8_t> bytes = fullSaveBytes(relaid, std::move(current));
    // Full Save may lose what only the game reads (its question says so): the editor's reading is checked.
    SaveLayout layout = unchangedLayout(relaid);
    for (LaidSequence& laid : layout.sequences) laid.written = true;
    Playbook again = verifyWrite(relaid, pb, bytes, layout);
    replaceFileContents(pb.romPath, fileBytes(pb, bytes), confirm ? std::function<void()>([&] { confirm(relaid); }) : nullptr);
    pb = std::move(again);
}

std::vector<uint8_t> maskBytes(const Playbook& pb, std::vector<uint8_t> existing) {
    Image mask("mask", std::move(existing));
    for (const auto& [key, seq] : pb.sequences) {
        if (key.isNew()) continue;  // no bytes in the image yet
        mask.seekOffset(key.address());
        for (int32_t i = 0; i < seq.byteSize(); ++i) mask.writeByte(kBlankByte);
    }
    return mask.bytes();
}

void exportMaskRom(const Playbook& pb, const std::string& outPath) {
    requireCompleteOpen(pb);
    std::vector<uint8_t> existing;
    if (std::filesystem::exists(outPath)) existing = readWholeFile(outPath);
    replaceFileContents(outPath, maskBytes(pb, std::move(existing)));
}

}  // namespace zpe
