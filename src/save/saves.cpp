#include "save/saves.h"

#include "analysis/entries.h"
#include "model/file_io.h"
#include "model/hex.h"
#include "model/rom_error.h"
#include "playbook/open_rom.h"
#include "playbook/table_codec.h"
#include "save/verify_write.h"
#include "sequence/command_codes.h"

#include <filesystem>
#include <unordered_map>

namespace zpe {

namespace {

// What Full Save leaves in the unused sequence area and what the mask marks a sequence's bytes with.
constexpr uint8_t kBlankByte = 0xFF;

int32_t remapped(const std::unordered_map<int32_t, int32_t>& map, int32_t address) {
    const auto it = map.find(address);
    return it == map.end() ? address : it->second;
}

}  // namespace

void requireCompleteOpen(const Playbook& pb) {
    if (pb.romPath.empty()) throw SaveError("No image is open.");
    if (!pb.openComplete)
        throw SaveError(pb.romPath + ": the image did not open completely; open an image again before saving");
}

std::vector<uint8_t> readUnchangedImage(const Playbook& pb) {
    requireCompleteOpen(pb);
    std::vector<uint8_t> bytes = readWholeFile(pb.romPath);
    if (pb.headerless) bytes = withHeader(bytes);  // the editor's form, as openedBytes holds it
    if (bytes != pb.openedBytes) {
        const auto slash = pb.romPath.find_last_of('/');
        throw SaveError((slash == std::string::npos ? pb.romPath : pb.romPath.substr(slash + 1)) +
                        " changed on disk since it was opened; open it again");
    }
    return bytes;
}

namespace {

// Every sequence standing where it stands, nothing of the area written.
SaveLayout unchangedLayout(const Playbook& pb) {
    SaveLayout layout;
    layout.gameReading = false;
    for (const auto& [key, seq] : pb.sequences) layout.sequences.push_back(laidAt(key, seq, key, false));
    return layout;
}

}  // namespace

void safeSave(Playbook& pb, const std::function<void(const std::vector<uint8_t>&)>& confirm) {
    Image image(pb.romPath, readUnchangedImage(pb));
    writeTables(pb, image, kSlotTables);
    // What the image must read back as: its own sequences and tables, the model's slots.
    Playbook expected = readBytesAs(pb, pb.openedBytes);
    expected.playSlots = pb.playSlots;
    (void)verifyWrite(expected, pb, image.bytes(), unchangedLayout(expected));
    replaceFileContents(pb.romPath, fileBytes(pb, image.bytes()), confirm ? std::function<void()>([&] { confirm(image.bytes()); }) : nullptr);
    pb.openedBytes = image.bytes();
}

void refuseMisreadEntries(const Playbook& before, const Playbook& now) {
    if (const auto e = misreadEntry(before, now))
        throw SaveError(now.romPath + ": " + e->name() + " reads its sequence " +
                        (entryReadsKick(*e) ? "the kick formations' way" : "the plain way") + ", but " + sequenceName(e->target) +
                        " is read the other way; nothing was saved");
}

Playbook relayout(const Playbook& pb) {
    if (pb.openComplete) {
        Playbook before;
        try {
            before = readBytesAs(pb, pb.openedBytes);
        } catch (const RomError&) {
            before = pb;  // the tables as the model has them: nothing to compare with
        }
        refuseMisreadEntries(before, pb);
    }
    // The copy takes every change; `pb` stays as it is, also when the layout is refused.
    Playbook out = pb;
    dropUnusedNewSequences(out);
    for (auto& [key, seq] : out.sequences) seq.convertRelJump();

    // New starts in dictionary order. A field naming a command follows it to
    // its new place; a relative jump that no longer reaches its target
    // becomes absolute, one byte longer, which moves what follows: the layout
    // is computed again until the sizes stay (they only grow, so this ends).
    std::unordered_map<int32_t, int32_t> addressMap, commandPlace;
    std::vector<std::vector<uint8_t>> encoded(out.sequences.size());
    for (int round = 0;; ++round) {
        addressMap.clear();
        commandPlace.clear();
        int64_t nextFree = kSequenceAreaAddress;
        size_t n = 0;
        for (const auto& [key, seq] : out.sequences) {
            addressMap.emplace(key, static_cast<int32_t>(nextFree));
            auto at = static_cast<int32_t>(nextFree);
            for (const SeqCommand& c : seq.commands()) {
                if (!isNewOrigin(c.origin)) commandPlace.emplace(c.origin, at);
                at += c.encodedSize();
            }
            nextFree += encoded[n].empty() ? seq.byteSize() : static_cast<int64_t>(encoded[n].size());
            ++n;
        }
        const int64_t total = nextFree - kSequenceAreaAddress;
        if (total > kSequenceAreaSize)
            throw SaveError(pb.romPath + ": the sequences need " + std::to_string(total) + " bytes, more than the " +
                            std::to_string(kSequenceAreaSize) + "-byte sequence area (0xA000-0xBFFF) holds; nothing was saved");
        bool settled = true;
        n = 0;
        for (const auto& [key, seq] : out.sequences) {
            const int32_t start = addressMap.at(key);
            const std::unordered_map<int32_t, int32_t> own = placesByOrigin(seq.commands(), start);
            std::vector<uint8_t> bytes = encodeCommands(seq.commands(), start, [&](size_t, int32_t t) {
                if (const auto it = own.find(t); it != own.end()) return it->second;
                if (const auto it = addressMap.find(t); it != addressMap.end()) return it->second;
                if (const auto it = commandPlace.find(t); it != commandPlace.end()) return it->second;
                return t;
            });
            const size_t before = encoded[n].empty() ? static_cast<size_t>(seq.byteSize()) : encoded[n].size();
            if (bytes.size() != before) settled = false;
            encoded[n++] = std::move(bytes);
        }
        if (settled || round > 8) break;
    }

    // The relaid sequences read as they will stand: each command's origin is its new place.
    SequenceMap relaid;
    size_t n = 0;
    for (auto& [key, seq] : out.sequences) {
        const int32_t start = addressMap.at(key);
        Image bytes("layout", std::vector<uint8_t>(encoded[n++]));
        clsSequence fresh;
        fresh.reset(0);
        fresh.load(bytes, seq.kick());
        // Decoded at 0: origins and relative jumps' targets move to the sequence's start.
        std::vector<SeqCommand> cmds = fresh.commands();
        for (SeqCommand& c : cmds) {
            c.origin += start;
            if (c.command == cmd::kRelativeJump) c.target += start;
        }
        clsSequence placed = seq;
        placed.address(start);
        placed.assign(std::move(cmds));
        relaid.insert(start, std::move(placed));
    }
    out.sequences = std::move(relaid);

    for (auto& pointer : out.seqPointers) pointer = remapped(addressMap, pointer);
    for (auto& form : out.formations)
        for (int j = 0; j < kPlayersPerRecord; ++j) form.posAddress(j, remapped(addressMap, form.posAddress(j)));
    for (auto& play : out.plays)
        for (int j = 0; j < kPlayersPerRecord; ++j) play.seqAddress(j, remapped(addressMap, play.seqAddress(j)));
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
    for (const auto& [address, seq] : pb.sequences) {
        if (isNewSequence(address)) continue;  // no bytes in the image yet
        mask.seekOffset(seq.address());
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
