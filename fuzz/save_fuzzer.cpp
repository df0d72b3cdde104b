// Random edits on the sequences and entries of an image, then Save's plan,
// Full Save's layout and Compact and Save's plan. Each may refuse; none may
// ever have its own check before the write fire: that would mean the planner
// wrote something other than the edit.
//
// The first byte of the input chooses how the image is made:
//  - even: raw, the rest of the input is the image's tables, sequence area
//    and slot tables (fuzz_image.h), the slots' formations taken modulo 22;
//  - odd: structured, bytes 1-8 seed the layout of structured_image.h
//    (sequences that continue in the game, share bytes, chain, branch, ...).
// The whole input seeds the edits: today's kinds (insert, remove, swap, data,
// an entry naming a copy, another sequence or a new one) and, on a
// structured image, growths of several sequences in one save, a new sequence
// ending in a long snap or Human Control that continues in the game, a
// field naming another place, a relative jump made absolute, and a
// sequence's commands replaced.
#include "analysis/entries.h"
#include "fuzz_image.h"
#include "playbook/open_rom.h"
#include "save/compact.h"
#include "save/save_changes.h"
#include "save/saves.h"
#include "save/verify_write.h"
#include "save_fuzz_observer.h"
#include "structured_image.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <utility>

namespace {

using namespace zpe;

// A small generator seeded from the input, so each input makes the same edits.
struct Random {
    uint64_t state;
    uint32_t next(uint32_t bound) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return bound == 0 ? 0 : static_cast<uint32_t>(state % bound);
    }
    uint32_t next(size_t bound) { return next(static_cast<uint32_t>(bound)); }
};

// Describes an edit to a runner that asked for it (a replay); nothing otherwise.
void note(const char* format, ...) {
    fuzz::SaveFuzzObserver* observer = fuzz::saveFuzzObserver();
    if (!observer || !observer->wantsNotes()) return;
    char text[256];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    observer->note(text);
}

unsigned u(int32_t v) { return static_cast<unsigned>(v); }
// A key as the notes print it: its address, or 10000 on for a sequence made in the editor.
unsigned u(SeqKey k) { return k.isNew() ? 0x10000u + u(k.madeNumber()) : u(k.address()); }

// True: go on with the next input (a runner counted it); otherwise abort.
bool planningBug(const char* where, const VerifyError& e) {
    if (fuzz::SaveFuzzObserver* observer = fuzz::saveFuzzObserver(); observer && observer->checkFired(where, e.what())) return true;
    std::fprintf(stderr, "%s: the check before the write fired: %s\n", where, e.what());
    std::abort();
}

void refusal(const char* where, const SaveError& e) {
    if (fuzz::SaveFuzzObserver* observer = fuzz::saveFuzzObserver()) observer->refused(where, e.what());
}

void passed(const char* where) {
    if (fuzz::SaveFuzzObserver* observer = fuzz::saveFuzzObserver()) observer->saved(where);
}

// An input given up after a runner counted what went wrong with it.
struct GivenUp {};

// An edit must leave its sequence one the editor can write; otherwise abort
// (or, under a runner that counts it, give the input up).
void requireWhole(const clsSequence& seq, SeqKey key) {
    if (const std::string problem = seq.verify(); !problem.empty()) {
        char text[64];
        std::snprintf(text, sizeof text, "an edit left sequence %X broken: ", u(key));
        const std::string message = text + problem;
        if (fuzz::SaveFuzzObserver* observer = fuzz::saveFuzzObserver(); observer && observer->checkFired("Edit", message))
            throw GivenUp{};
        std::fprintf(stderr, "%s\n", message.c_str());
        std::abort();
    }
}

// The end commands after which the game goes on: a save must keep it going on
// where it went on before.
bool continuesInGame(uint8_t last) { return last == 0xE4 || last == 0xD3 || last == 0xD2 || last == 0xEE || last == 0xEA || last == 0xEC; }

class Editor {
public:
    Editor(Playbook& pb, Random& random, bool structured) : pb_(pb), random_(random), structured_(structured) {}

    void run() {
        const uint32_t edits = 1 + random_.next(structured_ ? 10u : 8u);
        for (uint32_t e = 0; e < edits; ++e) {
            keys_ = pb_.sequences.keys();
            if (keys_.empty()) return;
            const uint32_t roll = structured_ ? random_.next(100u) : 0;
            if (roll < 55) todaysEdit();
            else if (roll < 70) growSeveral();
            else if (roll < 80) newContinuing();
            else if (roll < 90) retargetField();
            else if (roll < 94) makeJumpAbsolute();
            else replaceCommands();
        }
    }

private:
    SeqKey anyKey() { return keys_[random_.next(keys_.size())]; }

    // A sequence read from the image, half the time one after whose end the game goes on.
    SeqKey imageKey() {
        if (random_.next(2u) == 0) {
            std::vector<SeqKey> going;
            for (const SeqKey k : keys_)
                if (!k.isNew() && continuesInGame(pb_.sequences.at(k).lastCommand())) going.push_back(k);
            if (!going.empty()) return going[random_.next(going.size())];
        }
        for (int tries = 0; tries < 8; ++tries) {
            const SeqKey k = anyKey();
            if (!k.isNew()) return k;
        }
        return anyKey();
    }

    // An address the game runs a command at: a sequence's start or one of its commands.
    int32_t gameAddress() {
        const clsSequence& seq = pb_.sequences.at(imageKey());
        if (seq.key().isNew()) return keys_.front().address();
        const CmdId origin = seq.commandAddress(static_cast<int>(random_.next(static_cast<uint32_t>(seq.commandCount()))));
        return random_.next(2u) == 0 || origin.isNew() ? seq.address() : origin.readAddress();
    }

    // The edits the fuzzer has always made: one command of a sequence inserted,
    // removed, swapped or changed; now and then an entry instead (its own
    // copy, another sequence, a new empty one).
    void todaysEdit() {
        const SeqKey key = structured_ ? imageKey() : anyKey();
        clsSequence& seq = pb_.sequences.at(key);
        const int count = seq.commandCount();
        const int pos = static_cast<int>(random_.next(static_cast<uint32_t>(count)));
        const std::vector<AreaEntry> entries = playbookEntries(pb_);
        if (random_.next(4u) == 0 && !entries.empty()) {
            const AreaEntry& entry = entries[random_.next(entries.size())];
            try {
                switch (random_.next(3u)) {
                case 0:
                    if (pb_.sequences.contains(entry.target)) {
                        note("%s names a copy of %X", entry.name().c_str(), u(entry.target));
                        setEntryTarget(pb_, entry, addCopyOf(pb_, entry.target));
                    }
                    break;
                case 1: {
                    const SeqKey other = anyKey();
                    note("%s names %X", entry.name().c_str(), u(other));
                    setEntryTarget(pb_, entry, other);
                    break;
                }
                default: {
                    const std::vector<int16_t> ends = newSequenceEnds(entryReadsKick(entry));
                    const SeqKey made = addEmptySequence(pb_, ends[random_.next(ends.size())], entryReadsKick(entry));
                    clsSequence& seq = pb_.sequences.at(made);
                    (void)seq.insertCommand(-1, 0xD7);
                    note("%s names a new sequence %X", entry.name().c_str(), u(made));
                    if (structured_) nameGameAddress(made, seq, seq.commandCount() - 1);
                    setEntryTarget(pb_, entry, made);
                }
                }
            } catch (const std::invalid_argument&) {
                // a sequence the game reads with other lengths is not copied
            }
            return;
        }
        switch (random_.next(4u)) {
        case 0: {
            auto code = static_cast<int16_t>(random_.next(256u));
            if (code < 0xC0) code = static_cast<int16_t>(code & 0xF0);
            note("%X: insert %02X after command %d", u(key), u(code), pos - 1);
            if (seq.insertCommand(pos - 1, code) == clsSequence::Insert::Done && structured_) nameGameAddress(key, seq, pos);
            break;
        }
        case 1:
            note("%X: remove command %d", u(key), pos);
            (void)seq.removeCommand(pos);
            break;
        case 2:
            note("%X: swap commands %d and %d", u(key), pos, pos + 1 < count ? pos + 1 : pos);
            (void)seq.swapCommands(pos, pos + 1 < count ? pos + 1 : pos);
            break;
        default:
            if (seq.dataLen(pos) > 0) {
                const int i = static_cast<int>(random_.next(static_cast<uint32_t>(seq.dataLen(pos))));
                const bool nibble = seq.command(pos) < 0xC0 && i == 0;
                const auto value = static_cast<int16_t>(random_.next(nibble ? 16u : 256u));
                note("%X: command %d data %d = %02X", u(key), pos, i, u(value));
                seq.data(pos, i, value);
            }
            break;
        }
        requireWhole(seq, key);
    }

    // A new branch or jump (its field names 0000) made, fifteen times in sixteen,
    // to name a place the game runs, as a user would set it; otherwise a save refuses it.
    void nameGameAddress(SeqKey key, clsSequence& seq, int pos) {
        const int16_t code = seq.command(pos);
        if ((code != 0xC7 && code != 0xC8 && code != 0xCA && code != 0x20 && code != 0xFF) || random_.next(16u) == 0) return;
        const int32_t to = gameAddress();
        const int lo = code == 0x20 ? 1 : 0;
        note("%X: command %d leads to %X", u(key), pos, u(to));
        seq.data(pos, lo, static_cast<int16_t>(to & 0xFF));
        seq.data(pos, lo + 1, static_cast<int16_t>(to >> 8));
    }

    // A command that goes on, as a user inserts it to make a sequence longer.
    int16_t growthCode() {
        static constexpr int16_t codes[] = {0xD7, 0xD8, 0xF3, 0xE0, 0xDC, 0x30, 0x50, 0xC0, 0xC1, 0xFC, 0x00, 0xB0, 0xC7, 0x20};
        return codes[random_.next(sizeof codes / sizeof codes[0])];
    }

    // Commands inserted into two to four sequences: each that no longer fits
    // where it stands must find its own free run.
    void growSeveral() {
        const uint32_t n = 2 + random_.next(3u);
        for (uint32_t k = 0; k < n; ++k) {
            const SeqKey key = imageKey();
            clsSequence& seq = pb_.sequences.at(key);
            const uint32_t inserts = 1 + random_.next(3u);
            for (uint32_t i = 0; i < inserts; ++i) {
                const int after = static_cast<int>(random_.next(static_cast<uint32_t>(seq.commandCount()))) - 1;
                const int16_t code = growthCode();
                note("%X: insert %02X after command %d", u(key), u(code), after);
                if (seq.insertCommand(after, code) == clsSequence::Insert::Done) nameGameAddress(key, seq, after + 1);
            }
            requireWhole(seq, key);
        }
    }

    // A new sequence ending in a long snap (or Human Control) after which the
    // game goes on where its continuation says, or in a long snap the editor
    // reads on past (0xD3 0xFF), named by an entry.
    void newContinuing() {
        const std::vector<AreaEntry> entries = playbookEntries(pb_);
        if (entries.empty()) return;
        const AreaEntry& entry = entries[random_.next(entries.size())];
        const bool kick = entryReadsKick(entry);
        const std::vector<int16_t> ends = newSequenceEnds(kick);
        SeqKey made;
        try {
            made = addEmptySequence(pb_, ends[random_.next(ends.size())], kick);
        } catch (const std::invalid_argument&) {
            return;
        }
        std::vector<std::pair<int, std::vector<int>>> cmds;
        const uint32_t body = random_.next(4u);
        for (uint32_t i = 0; i < body; ++i) {
            switch (random_.next(5u)) {
            case 0: cmds.push_back({0xD7, {static_cast<int>(random_.next(256u)), static_cast<int>(random_.next(256u))}}); break;
            case 1: cmds.push_back({0xF3, {static_cast<int>(1 + random_.next(255u))}}); break;
            case 2: {
                const int32_t to = gameAddress();
                cmds.push_back({0xC7, {to & 0xFF, to >> 8}});
                break;
            }
            case 3:
                if (kick) cmds.push_back({random_.next(2u) ? 0xEA : 0xEC, {}});
                else cmds.push_back({0xDC, {}});
                break;
            default: cmds.push_back({0x30, {static_cast<int>(random_.next(11u))}}); break;
            }
        }
        const uint32_t end = random_.next(5u);
        if (end < 3) cmds.push_back({0xD3, {}});
        else if (end == 3) cmds.push_back({0xE4, {}});
        else {
            const int32_t to = gameAddress();
            cmds.push_back({0xD3, {}});
            cmds.push_back({0xFF, {to & 0xFF, to >> 8}});
        }
        clsSequence& seq = pb_.sequences.at(made);
        try {
            seq.setCommands(cmds);
        } catch (const std::invalid_argument&) {
            return;  // no entry names it: no save writes it
        }
        // Where the game goes on after the end; now and then nowhere, which a save must refuse.
        const int32_t continuation = random_.next(8u) == 0 ? -1 : gameAddress();
        seq.continuation(continuation);
        note("%s names a new sequence %X of %d commands ending in %02X, going on at %X", entry.name().c_str(), u(made),
             seq.commandCount(), u(seq.lastCommand()), u(continuation));
        setEntryTarget(pb_, entry, made);
        requireWhole(seq, made);
    }

    // A jump or branch of a sequence made to name another place the game runs
    // (or, for a relative jump, another offset).
    void retargetField() {
        const SeqKey key = imageKey();
        clsSequence& seq = pb_.sequences.at(key);
        std::vector<int> withField;
        for (int i = 0; i < seq.commandCount(); ++i) {
            const int16_t c = seq.command(i);
            if (c == 0xFF || c == 0xFE || c == 0xC7 || c == 0xC8 || c == 0xCA || c == 0x20) withField.push_back(i);
        }
        if (withField.empty()) return;
        const int pos = withField[random_.next(withField.size())];
        const int16_t c = seq.command(pos);
        if (c == 0xFE) {
            const auto offset = static_cast<int16_t>(random_.next(256u));
            note("%X: command %d offset %02X", u(key), pos, u(offset));
            seq.data(pos, 0, offset);
        } else {
            const int32_t to = random_.next(10u) == 0 ? kSequenceAreaAddress + static_cast<int32_t>(random_.next(8192u)) : gameAddress();
            const int lo = c == 0x20 ? 1 : 0;
            note("%X: command %d leads to %X", u(key), pos, u(to));
            seq.data(pos, lo, static_cast<int16_t>(to & 0xFF));
            seq.data(pos, lo + 1, static_cast<int16_t>(to >> 8));
        }
        requireWhole(seq, key);
    }

    // A closing forward relative jump made absolute (one byte more).
    void makeJumpAbsolute() {
        for (int tries = 0; tries < 8; ++tries) {
            const SeqKey key = anyKey();
            clsSequence& seq = pb_.sequences.at(key);
            const int last = seq.commandCount() - 1;
            if (seq.command(last) != 0xFE || seq.data(last, 0) >= 0x80) continue;
            note("%X: closing relative jump made absolute", u(key));
            seq.convertRelJump();
            requireWhole(seq, key);
            return;
        }
    }

    // Every command of a sequence replaced by new ones as the user types them
    // (the same end command and data), usually more than there were.
    void replaceCommands() {
        const SeqKey key = imageKey();
        clsSequence& seq = pb_.sequences.at(key);
        std::vector<std::pair<int, std::vector<int>>> cmds;
        const uint32_t body = 1 + random_.next(6u);
        for (uint32_t i = 0; i < body; ++i) cmds.push_back({0xD7, {static_cast<int>(random_.next(256u)), static_cast<int>(random_.next(256u))}});
        const int last = seq.commandCount() - 1;
        std::vector<int> data;
        for (int d = 0; d < seq.dataLen(last); ++d) data.push_back(seq.data(last, d));
        cmds.push_back({seq.command(last), data});
        note("%X: %d commands replaced by %d ending in %02X", u(key), seq.commandCount(), static_cast<int>(cmds.size()), u(seq.command(last)));
        try {
            seq.setCommands(cmds);
        } catch (const std::invalid_argument&) {
            return;
        }
        requireWhole(seq, key);
    }

    Playbook& pb_;
    Random& random_;
    bool structured_;
    std::vector<SeqKey> keys_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const bool structured = (data[0] & 1) != 0;
    std::vector<uint8_t> bytes;
    if (structured) {
        uint64_t seed = 0;
        for (size_t i = 1; i < 9 && i < size; ++i) seed |= static_cast<uint64_t>(data[i]) << (8 * (i - 1));
        bytes = fuzz::structuredImage(seed).bytes;
    } else {
        bytes = fuzz::imageFromInput(data + 1, size - 1);
        // Slots name formations below the 22 names, or the open stops at once.
        const auto names = static_cast<uint8_t>(fuzz::formationNames().size());
        for (int s = 0; s < kSlotCount; ++s) {
            uint8_t& formation = bytes[static_cast<size_t>(kOffSlotTableOffset + kOffSlotRecordSize * s + kSlotNameLength)];
            formation = static_cast<uint8_t>(formation % names);
        }
    }
    fuzz::SaveFuzzObserver* observer = fuzz::saveFuzzObserver();
    Playbook pb;
    try {
        Image image("fuzz.nes", bytes);
        pb = loadPlaybook(image, fuzz::formationNames());
    } catch (const std::exception&) {
        if (observer) observer->opened(structured, false);
        return 0;
    }
    // What the open refuses besides: no sequence, a slot naming a formation forms.txt lacks.
    bool opens = !pb.sequences.empty();
    for (const clsPlaySlot& slot : pb.playSlots)
        if (static_cast<size_t>(slot.formation()) >= pb.formations.size()) opens = false;
    if (observer) observer->opened(structured, opens);
    if (!opens) return 0;
    pb.openedBytes = bytes;
    pb.openComplete = true;
    const Playbook opened = pb;  // the open's reading before the edits, as zpe import keeps it

    uint64_t seed = 0x9E3779B97F4A7C15ULL;
    for (size_t i = 0; i < size; ++i) seed = (seed ^ data[i]) * 0x100000001B3ULL;
    Random random{seed | 1};
    try {
        Editor(pb, random, structured).run();
    } catch (const GivenUp&) {
        return 0;
    }

    try {
        const SavePlan plan = planSave(pb, bytes);
        // Handed the open's reading instead of reading the bytes again, the plan is the same.
        if (planSave(pb, bytes, &opened).bytes != plan.bytes) std::abort();
        note("  Save's summary: %s", plan.summary.text().c_str());
        passed("Save");
    } catch (const VerifyError& e) {
        if (planningBug("Save", e)) return 0;
    } catch (const SaveError& e) {
        // a refusal: no room, a COM pass that would move, a jump into the middle of a command
        refusal("Save", e);
    }
    if (observer && !observer->wantsFullSave()) return 0;
    try {
        const Playbook relaid = relayout(pb);
        SaveLayout layout;
        layout.gameReading = false;
        for (const auto& [key, seq] : relaid.sequences) layout.sequences.push_back(laidAt(key, seq, key.address(), true));
        (void)verifyWrite(relaid, pb, fullSaveBytes(relaid, bytes), layout);
        passed("Full Save");
    } catch (const VerifyError& e) {
        if (planningBug("Full Save", e)) return 0;
    } catch (const SaveError& e) {
        // a layout larger than the area
        refusal("Full Save", e);
    }
    try {
        // The image compacted, the edits carried over and saved into it.
        (void)planCompactAndSave(pb);
        passed("Compact and Save");
    } catch (const VerifyError& e) {
        if (planningBug("Compact and Save", e)) return 0;
    } catch (const SaveError& e) {
        // the game runs off the area's end, commands sharing an address's bytes, or Save's own refusals
        refusal("Compact and Save", e);
    }
    return 0;
}
