#include "save/saves.h"

#include "model/file_io.h"
#include "model/hex.h"
#include "playbook/table_codec.h"
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
    if (bytes != pb.openedBytes) {
        const auto slash = pb.romPath.find_last_of('/');
        throw SaveError((slash == std::string::npos ? pb.romPath : pb.romPath.substr(slash + 1)) +
                        " changed on disk since it was opened; open it again");
    }
    return bytes;
}

void safeSave(Playbook& pb) {
    Image image(pb.romPath, readUnchangedImage(pb));
    writeTables(pb, image, kSlotTables);
    replaceFileContents(pb.romPath, image.bytes());
    pb.openedBytes = image.bytes();
}

Playbook relayout(const Playbook& pb) {
    // The copy takes every change; `pb` stays as it is, also when the layout is refused.
    Playbook out = pb;
    std::unordered_map<int32_t, int32_t> addressMap;
    addressMap.reserve(out.sequences.size());
    int64_t nextFree = kSequenceAreaAddress;
    for (auto& [key, seq] : out.sequences) {
        addressMap.emplace(key, static_cast<int32_t>(nextFree));
        seq.convertRelJump();
        nextFree += seq.byteSize();
    }
    const int64_t total = nextFree - kSequenceAreaAddress;
    if (total > kSequenceAreaSize)
        throw SaveError(pb.romPath + ": the sequences need " + std::to_string(total) + " bytes, more than the " +
                        std::to_string(kSequenceAreaSize) + "-byte sequence area (0xA000-0xBFFF) holds; nothing was saved");

    SequenceMap relaid;
    for (auto& [key, seq] : out.sequences) {
        seq.address(addressMap.at(key));
        const int32_t target = seq.nextSequence();
        if (target > 0 && addressMap.count(target) != 0) {
            for (int i = 0; i < seq.commandCount(); ++i) {
                if (seq.command(i) != cmd::kAbsoluteJump) continue;
                const int32_t n = addressMap.at(target);
                seq.data(i, 0, static_cast<int16_t>(n & 0xFF));
                seq.data(i, 1, static_cast<int16_t>((n / 256) & 0xFF));
                break;
            }
        }
        relaid.insert(seq.address(), std::move(seq));
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

void fullSave(Playbook& pb) {
    std::vector<uint8_t> current = readUnchangedImage(pb);
    Playbook relaid = relayout(pb);
    relaid.openedBytes = fullSaveBytes(relaid, std::move(current));
    replaceFileContents(pb.romPath, relaid.openedBytes);
    pb = std::move(relaid);
}

std::vector<uint8_t> maskBytes(const Playbook& pb, std::vector<uint8_t> existing) {
    Image mask("mask", std::move(existing));
    for (const auto& [address, seq] : pb.sequences) {
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
