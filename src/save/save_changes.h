#pragma once
// "Save": writes every edit and keeps every other byte of the image as it
// was. A slot is written when its fields differ from the image's record; the
// sequences go through the layout engine (save/layout.h), which writes a
// changed sequence in place when that changes nothing another path reads and
// otherwise moves it into a free run of the sequence area, with every table
// entry and every closing jump that named its start following it. The old
// bytes of a moved sequence stay, so whatever else reaches them (the computer
// teams' logic, branch commands) runs what it ran before.
#include "playbook/playbook.h"
#include "save/verify_write.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace zpe {

struct SaveSummary {
    int slotsWritten = 0;                           // slot records written
    int entriesWritten = 0;                         // play, formation and pointer entries that name another place
    int inPlace = 0;                                // sequences written at their address
    std::vector<std::pair<int32_t, int32_t>> moved;  // old start, new start
    std::vector<std::pair<SeqKey, int32_t>> placed;  // a sequence made in the editor: its key, where it went
    int leftOnOldCopies = 0;  // address fields and relative jumps that still name an old start
    int32_t freeBytesLeft = 0;  // free bytes of the area after the moves
    bool nothingToWrite = false;  // the image already held everything: the file was left alone
    // "Saved: 3 sequences in place, 1 moved (A123 → BA00), 2 references left on
    // old copies, 412 free bytes left." (slots and table entries, when written, come first; new
    // sequences, when placed, after the moved ones: "1 new at BA40").
    [[nodiscard]] std::string text() const;
};

struct SavePlan {
    ImageBytes bytes;            // the whole new image
    SaveSummary summary;
    SaveLayout layout;           // where each sequence went, as the check before the write read it back
    Playbook written;            // the image as it will open once written (the check's reading of `bytes`)
};

// What Save would write over `image` (the file's current bytes) for `pb`.
// Throws SaveError, naming the sequence and carrying the refusal's kind, when
// it refuses (no complete open, no free run for a sequence that must move, a
// COM pass whose commands would shift, a field leading where the game runs
// nothing, an entry or jump read the other way, ...); VerifyError when the
// check before the write finds the bytes saying anything else than the model.
// `asOpened`, when given, is the image as an open read it, left unedited (a
// command line keeps it beside the copy it edits): when it was read from
// `image` itself, the plan takes it instead of reading those bytes once more.
// The check before the write reads the new bytes back in full all the same.
[[nodiscard]] SavePlan planSave(const Playbook& pb, const std::vector<uint8_t>& image, const Playbook* asOpened = nullptr);

// Save: plans against the file named by romPath, replaces it in one step,
// and puts into `pb` the image as it now reads (the check before the write
// read it from the very bytes written), so the model shows what the image now
// holds. On a refusal or failure nothing is written and `pb` is as it was.
// `confirm`, when given, sees the summary once the bytes are ready and before
// they replace the file; when it throws, nothing is written.
// `fileHolds`, when given, is what the file holds while `pb` stands on
// other bytes (pb.openedBytes: an imported play not written yet): the disk
// is checked against it, and the plan is made over pb.openedBytes.
// `asOpened` as for planSave.
SaveSummary saveChanges(Playbook& pb, const std::function<void(const SaveSummary&)>& confirm = nullptr,
                        const std::vector<uint8_t>* fileHolds = nullptr, const Playbook* asOpened = nullptr);

// Save As: the edited image (the bytes `pb` was opened from, with every edit
// saved into them as Save would) written to `newPath`, which `pb` then names,
// opened again. The image `pb` came from is not touched, also when it changed
// on disk meanwhile.
SaveSummary saveChangesAs(Playbook& pb, const std::string& newPath, const std::string& dataDir);

}  // namespace zpe
