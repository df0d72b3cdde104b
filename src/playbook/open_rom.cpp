#include "playbook/open_rom.h"

#include "model/file_io.h"
#include "model/rom_error.h"
#include "model/text_file.h"
#include "playbook/table_codec.h"
#include "sequence/command_codes.h"

#include <algorithm>
#include <unordered_set>

namespace zpe {

namespace {

// Discovery decodes each address at most once (invalid starts are remembered
// too) and refuses an image that would make it decode more commands than any
// playbook image holds, so a hostile file costs bounded time and memory.
class Discovery {
public:
    Discovery(Playbook& pb, Image& image) : pb_(pb), image_(image) {}

    // Follows a chain of sequences from `address`, named by `entry` in messages:
    // each address is decoded once; the chain ends at a known address, an
    // invalid sequence or no follow-on.
    // `entry` names the table; after the first link, the sequence that led on is named instead
    // (the name is spelled out only in an error: the open follows thousands of entries).
    void followChain(int32_t address, bool KR, const char* entry) {
        int32_t from = -1;  // the sequence whose follow-on `address` is; -1: the entry itself
        while (!pb_.sequences.contains(SeqKey::at(address)) && !invalid_.count(invalidKey(address, KR))) {
            if (address < kAddressOffsetDelta)
                throw RomError(image_.path() + ": " + (from < 0 ? std::string(entry) : "sequence " + hex4(from)) +
                               " points below the image (0x" + hex4(address) + ")");
            clsSequence& seq = scratch_;  // an invalid start leaves its room for the next one
            seq.reset(address);
            image_.seekOffset(offsetOfAddress(address));
            seq.load(image_, KR);
            decoded_ += seq.commandCount();
            if (decoded_ > kMaxDecodedCommands)
                throw RomError(image_.path() + ": not a playbook image: its tables lead to more than " +
                               std::to_string(kMaxDecodedCommands) + " commands");
            if (!seq.isValid()) {
                invalid_.insert(invalidKey(address, KR));
                return;
            }
            const int32_t next = seq.nextSequence();
            pb_.sequences.insert(SeqKey::at(address), std::move(seq));
            scratch_ = clsSequence();
            if (next <= 0) return;
            from = address;
            address = next;
        }
    }

private:
    // A start is invalid in one reading: a kick formation's (where the stances
    // go on) or the plain one, so it is remembered with the reading.
    static int64_t invalidKey(int32_t address, bool KR) { return static_cast<int64_t>(address) * 2 + (KR ? 1 : 0); }

    Playbook& pb_;
    Image& image_;
    std::unordered_set<int64_t> invalid_;
    int64_t decoded_ = 0;
    clsSequence scratch_;
};

void discoverSequences(Playbook& pb, Image& image) {
    Discovery d(pb, image);
    for (size_t f = 0; f < pb.formations.size(); ++f)
        for (int j = 0; j < kPlayersPerRecord; ++j)
            d.followChain(pb.formations[f].posAddress(j).address(), isKickFormation(static_cast<int>(f)), "the formation table");
    for (const SeqKey pointer : pb.seqPointers) d.followChain(pointer.address(), false, "the pointer table");
    for (const auto& play : pb.plays)
        for (int j = 0; j < kPlayersPerRecord; ++j)
            if (!play.seqAddress(j).isNone()) d.followChain(play.seqAddress(j).address(), false, "the play table");
}

}  // namespace

std::string chainFault(const Playbook& pb, int32_t address, bool kick) {
    Playbook scratch;
    scratch.sequences = pb.sequences;  // the chain ends where it reaches one of these
    Image image(pb.romPath, pb.openedBytes);
    Discovery d(scratch, image);
    try {
        d.followChain(address, kick, "the chain");
    } catch (const RomError& e) {
        return e.what();
    }
    return {};  // read there (or found no valid sequence there, which the open passes over)
}

std::vector<SeqKey> sortKeys(std::vector<SeqKey> keys) {
    std::sort(keys.begin(), keys.end());
    return keys;
}

std::string gapListing(const Playbook& pb) {
    std::vector<SeqKey> sortedKeys = sortKeys(pb.sequences.keys());
    // Sequences made in the editor stand nowhere yet (they sort last).
    sortedKeys.erase(std::find_if(sortedKeys.begin(), sortedKeys.end(), [](SeqKey k) { return k.isNew(); }), sortedKeys.end());
    std::string text;
    for (size_t i = 0; i + 1 < sortedKeys.size(); ++i) {
        const clsSequence& s = pb.sequences.at(sortedKeys[i]);
        const clsSequence& t = pb.sequences.at(sortedKeys[i + 1]);
        if (s.lastCommand() != cmd::kHumanControl) continue;
        const int32_t start = s.address() + s.byteSize();
        const int32_t gap = t.address() - start;
        if (gap <= 0) continue;
        const int32_t offset = offsetOfAddress(start);
        if (offset < 0 || static_cast<size_t>(offset) + static_cast<size_t>(gap) > pb.openedBytes.size())
            throw RomError(pb.romPath + ": read past the end of the file at offset 0x" + hexPlain(offset));
        for (int32_t k = 1; k <= gap; ++k) {
            if ((k - 1) % 16 == 0) text += "\r\n" + hex4(start + k - 1) + ": ";
            text += hex2(pb.openedBytes[static_cast<size_t>(offset + k - 1)]) + " ";
        }
        text += "\r\n";
    }
    return text;
}

void writeGapListing(const Playbook& pb, const std::string& cpuPath) { replaceFileText(cpuPath, gapListing(pb)); }

Playbook loadPlaybook(Image& image, const std::vector<std::string>& formNames) {
    Playbook pb;
    pb.romPath = image.path();
    readTables(pb, image, formNames);
    discoverSequences(pb, image);
    return pb;
}

Playbook openRom(const std::string& path, const std::string& dataDir) {
    return openImage(Image::open(path), dataDir);
}

Image headedForm(Image file, bool& headerless) {
    const ImageForm form = imageForm(file.bytes());
    if (form == ImageForm::Neither) throw RomError(file.path() + ": " + neitherFormText(file.bytes()));
    headerless = form == ImageForm::Headerless;
    if (!headerless) return file;
    return Image(file.path(), withHeader(file.bytes()));
}

Playbook openImage(Image file, const std::string& dataDir) {
    const std::string path = file.path();
    bool headerless = false;
    Image image = headedForm(std::move(file), headerless);
    // The playbook's tables end with the slots' graphics records: a shorter file cannot be an image of the game.
    constexpr int64_t kTablesEnd = kGfxTableOffset + static_cast<int64_t>(kSlotCount) * kGfxRecordSize;
    if (static_cast<int64_t>(image.bytes().size()) < kTablesEnd) {
        // Said of the file as it is: a headerless one lacks the 16 bytes the open put in front.
        const int64_t shift = headerless ? kHeaderSize : 0;
        throw RomError(path + ": not an image of the game: too short (" + std::to_string(static_cast<int64_t>(image.bytes().size()) - shift) +
                       " bytes; its playbook tables end at byte " + std::to_string(kTablesEnd - shift) + ")");
    }
    const std::string formsPath = dataDir + "/forms.txt";
    const std::vector<std::string> formNames = readFormNames(formsPath);
    if (formNames.empty()) throw RomError(formsPath + ": names no formation");
    if (formNames.size() > static_cast<size_t>(kMaxFormations))
        throw RomError(formsPath + ": names " + std::to_string(formNames.size()) + " formations; the formation table holds " +
                       std::to_string(kMaxFormations));
    Playbook pb = loadPlaybook(image, formNames);
    if (pb.sequences.empty()) throw RomError(path + ": no valid sequence found; is this an image of the game?");
    for (int s = 0; s < kSlotCount; ++s) {
        const auto f = static_cast<size_t>(pb.playSlots[static_cast<size_t>(s)].formation());
        if (f >= pb.formations.size())
            throw RomError(path + ": slot " + std::to_string(s) + " uses formation " + std::to_string(f) + ", but " +
                           formsPath + " names only " + std::to_string(pb.formations.size()) + " formations");
    }
    pb.openedBytes = image.takeShared();
    pb.headerless = headerless;
    pb.openComplete = true;
    return pb;
}

}  // namespace zpe
