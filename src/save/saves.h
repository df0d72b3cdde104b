#pragma once
// Safe Save, Full Save and Export Mask ROM. Each computes every byte it will
// write first and then replaces the file in one step, so a failure leaves the
// old file whole. A refusal or failure throws SaveError or RomError with a
// message naming the file and the reason; the model is then as it was.
#include "playbook/playbook.h"

#include <stdexcept>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace zpe {

// What kind of refusal a save ended in, so that callers choose what to offer
// (open again, Compact and Save, Save As, ...) without reading the words.
enum class Refusal {
    Other,
    NotOpen,          // no image open, or its open did not complete
    ChangedOnDisk,    // another program changed the file since it was read
    NoFreeRun,        // a sequence must move and no free run of the area holds it
    TooLarge,         // Full Save: the sequences need more than the area
    MisreadEntry,     // an entry would read its sequence the other way (kick formations)
    WouldNotReopen,   // the result would not open in the editor as the model says
    CannotMove,       // a sequence that must move cannot (the game reads it with other lengths)
    BadField,         // a jump or branch leads where the game runs no command
    Internal,         // the check before the write found a difference: a fault of the program
};

// A save that refuses to run, with its kind and its words.
class SaveError : public std::runtime_error {
public:
    explicit SaveError(const std::string& what, Refusal kind = Refusal::Other) : std::runtime_error(what), kind_(kind) {}
    Refusal kind() const { return kind_; }

private:
    Refusal kind_;
};

// Refuses (SaveError) a playbook whose open did not complete or that has no image.
void requireCompleteOpen(const Playbook& pb);

inline constexpr const char* kFullSaveQuestion =
    "Doing a full save will rewrite the offensive sequences and destroy the CPU AI.\r\n\r\nAre you sure you want to save?";

// The image's current bytes, refusing (SaveError) an incomplete open and an
// image that changed on disk since it was read (another program's change
// would be lost). Every save reads the image through this.
// `fileHolds`, when given, is what the file must hold instead of
// pb.openedBytes (a document whose model stands on an image not written yet).
[[nodiscard]] std::vector<uint8_t> readUnchangedImage(const Playbook& pb, const std::vector<uint8_t>* fileHolds = nullptr);
// The same refusals without the bytes: the file is compared with what it
// must hold as it is read, piece by piece (a save that works on bytes it
// already holds needs no second copy of the image).
void requireUnchangedImage(const Playbook& pb, const std::vector<uint8_t>* fileHolds = nullptr);

// Writes the 64 playbook slots into the image named by romPath; nothing else
// changes. `pb.openedBytes` becomes what was written.
// `confirm`, when given, sees the bytes about to land before they replace the
// file; when it throws, nothing is written.
// False, the file left alone, when the slot tables already hold what the model holds.
bool safeSave(Playbook& pb, const std::function<void(const std::vector<uint8_t>&)>& confirm = nullptr);

// A command the image holds is one command of the game's program, however
// many sequences show it (overlapping sequences, a loop read again as a
// sequence of its own). When one of them changes its values (same code, same
// length, no address field), every other that still shows it as read shows
// the change too, so a save writes it once, where the game runs it, instead
// of moving a copy only one of them runs. Two different changes of one
// command are left as they are. Returns the model so changed; nothing when
// no other sequence shows a changed command.
[[nodiscard]] std::optional<Playbook> withSharedValueEdits(const Playbook& pb, const Playbook& old);

// Lays every sequence out anew from 0xA000 in dictionary order on a copy of
// the model: closing forward relative jumps become absolute ones, a closing
// absolute jump to the start of a sequence follows it, the pointer table,
// formations and plays are remapped to the new addresses, and every other
// field is written as it stood. Returns the model read back from that
// layout. Throws SaveError, leaving `pb` unchanged, when the layout exceeds
// the 8192-byte sequence area (Refusal::TooLarge) or would not reopen as the
// model says (Refusal::WouldNotReopen).
[[nodiscard]] Playbook relayout(const Playbook& pb);

// The bytes a Full Save writes: `original` with the sequence area blanked to
// 0xFF, the formation, play, pointer and slot tables and every sequence of the
// (already relaid) model written in.
[[nodiscard]] std::vector<uint8_t> fullSaveBytes(const Playbook& relaid, std::vector<uint8_t> original);

// Full Save without the confirmation: relays, writes, and only after the file
// was written replaces `pb` with the relaid model.
// `confirm` as for safeSave, with the relaid playbook.
// Throws SaveError naming the first entry of `now` changed since `before` to
// a sequence read another way than the entry reads it (see misreadEntry).
void refuseMisreadEntries(const Playbook& before, const Playbook& now);

void fullSave(Playbook& pb, const std::function<void(const Playbook&)>& confirm = nullptr);

// The mask file's bytes: `existing` (the target's current contents, or empty)
// with 0xFF over every sequence's run at offset = game address.
[[nodiscard]] std::vector<uint8_t> maskBytes(const Playbook& pb, std::vector<uint8_t> existing);

// Writes the mask of the known sequences into `outPath` (created, or changed in
// place without truncation).
void exportMaskRom(const Playbook& pb, const std::string& outPath);

}  // namespace zpe
