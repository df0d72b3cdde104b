// Random edits (insert, remove, swap, data) on random sequences of an image
// built from the input, then Save's plan and Full Save's layout. Either may
// refuse; neither may ever have its own check before the write fire: that
// would mean the planner wrote something other than the edit.
#include "analysis/entries.h"
#include "fuzz_image.h"
#include "playbook/open_rom.h"
#include "save/save_changes.h"
#include "save/saves.h"
#include "save/verify_write.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace {

// A small generator seeded from the input, so each input makes the same edits.
struct Random {
    uint64_t state;
    uint32_t next(uint32_t bound) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return bound == 0 ? 0 : static_cast<uint32_t>(state % bound);
    }
};

[[noreturn]] void planningBug(const char* where, const zpe::VerifyError& e) {
    std::fprintf(stderr, "%s: the check before the write fired: %s\n", where, e.what());
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace zpe;
    const std::vector<uint8_t> bytes = fuzz::imageFromInput(data, size);
    Playbook pb;
    try {
        Image image("fuzz.nes", bytes);
        pb = loadPlaybook(image, fuzz::formationNames());
    } catch (const std::exception&) {
        return 0;
    }
    // What the open refuses besides: no sequence, a slot naming a formation forms.txt lacks.
    if (pb.sequences.empty()) return 0;
    for (const clsPlaySlot& slot : pb.playSlots)
        if (static_cast<size_t>(slot.formation()) >= pb.formations.size()) return 0;
    pb.openedBytes = bytes;
    pb.openComplete = true;

    uint64_t seed = 0x9E3779B97F4A7C15ULL;
    for (size_t i = 0; i < size; ++i) seed = (seed ^ data[i]) * 0x100000001B3ULL;
    Random random{seed | 1};
    const std::vector<int32_t> keys = pb.sequences.keys();
    const uint32_t edits = 1 + random.next(8);
    for (uint32_t e = 0; e < edits; ++e) {
        clsSequence& seq = pb.sequences.at(keys[random.next(static_cast<uint32_t>(keys.size()))]);
        const int count = seq.commandCount();
        const int pos = static_cast<int>(random.next(static_cast<uint32_t>(count)));
        // Now and then an entry instead: its own copy, another sequence, a new empty one.
        const std::vector<AreaEntry> entries = playbookEntries(pb);
        if (random.next(4) == 0 && !entries.empty()) {
            const AreaEntry& entry = entries[random.next(static_cast<uint32_t>(entries.size()))];
            try {
                switch (random.next(3)) {
                case 0:
                    if (pb.sequences.contains(entry.target)) setEntryTarget(pb, entry, addCopyOf(pb, entry.target));
                    break;
                case 1: setEntryTarget(pb, entry, keys[random.next(static_cast<uint32_t>(keys.size()))]); break;
                default: {
                    const std::vector<int16_t> ends = newSequenceEnds(entryReadsKick(entry));
                    const int32_t made = addEmptySequence(pb, ends[random.next(static_cast<uint32_t>(ends.size()))], entryReadsKick(entry));
                    (void)pb.sequences.at(made).insertCommand(-1, 0xD7);
                    setEntryTarget(pb, entry, made);
                }
                }
            } catch (const std::invalid_argument&) {
                // a sequence the game reads with other lengths is not copied
            }
            continue;
        }
        switch (random.next(4)) {
        case 0: {
            auto code = static_cast<int16_t>(random.next(256));
            if (code < 0xC0) code = static_cast<int16_t>(code & 0xF0);
            (void)seq.insertCommand(pos - 1, code);
            break;
        }
        case 1: (void)seq.removeCommand(pos); break;
        case 2: (void)seq.swapCommands(pos, pos + 1 < count ? pos + 1 : pos); break;
        default:
            if (seq.dataLen(pos) > 0) {
                const int i = static_cast<int>(random.next(static_cast<uint32_t>(seq.dataLen(pos))));
                const bool nibble = seq.command(pos) < 0xC0 && i == 0;
                seq.data(pos, i, static_cast<int16_t>(random.next(nibble ? 16 : 256)));
            }
            break;
        }
        if (!seq.verify().empty()) {
            std::fprintf(stderr, "an edit left sequence %X broken: %s\n", static_cast<unsigned>(seq.address()), seq.verify().c_str());
            std::abort();
        }
    }

    try {
        (void)planSave(pb, bytes);
    } catch (const VerifyError& e) {
        planningBug("Save", e);
    } catch (const SaveError&) {
        // a refusal: no room, a COM pass that would move, a jump into the middle of a command
    }
    try {
        const Playbook relaid = relayout(pb);
        SaveLayout layout;
        layout.gameReading = false;
        for (const auto& [key, seq] : relaid.sequences) layout.sequences.push_back(laidAt(key, seq, key, true));
        (void)verifyWrite(relaid, pb, fullSaveBytes(relaid, bytes), layout);
    } catch (const VerifyError& e) {
        planningBug("Full Save", e);
    } catch (const SaveError&) {
        // a layout larger than the area
    }
    return 0;
}
