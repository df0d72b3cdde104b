#pragma once
// The check every save runs on the bytes it is about to write, before they
// land: the image is read back from those bytes both ways (the editor's
// reading and the game's) and compared with what the edited model says. A
// difference means the save planned something other than the edit, so it is
// refused as an internal error with the first difference named, and nothing
// is written.
#include "playbook/playbook.h"
#include "save/saves.h"

#include "analysis/area_map.h"

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

namespace zpe {

// A save whose own check found a difference: a fault of the program, not of the user's edit.
class VerifyError : public SaveError {
public:
    explicit VerifyError(const std::string& what) : SaveError(what, Refusal::Internal) {}
};

// One sequence as a save lays it out.
struct LaidSequence {
    SeqKey key;                       // its key in the model
    int32_t place = 0;                // where its first byte is written
    std::vector<int32_t> places;      // each command's address in the layout
    std::vector<int32_t> targets;     // each command's field as written (SeqCommand::kNoTarget: none)
    bool written = false;             // its bytes are written by this save
    int32_t end = 0;                  // first address after what is written (continuation jump included)
    int32_t continuationAt = -1;      // where the jump to the old continuation stands (-1: none)
    int32_t continuation = -1;        // where the game goes on after its last command (-1: it does not)
    // After a Long Snap: the commands the game ran after it, copied (their
    // new place, where the game ran them), starting at continuationAt.
    std::vector<std::pair<int32_t, int32_t>> tail;
};

struct SaveLayout {
    std::vector<LaidSequence> sequences;  // one per sequence of the model, in its order
    // True: also compare the game's reading (Save). False: the editor's only
    // (Full Save, which may drop what only the game reads).
    bool gameReading = true;
};

// A sequence laid out at `place` as the model holds it, its fields naming
// what they name there; `written` as given.
[[nodiscard]] LaidSequence laidAt(SeqKey key, const clsSequence& seq, int32_t place, bool written);

// Reads `bytes` back and compares them with `model` laid out as `layout` says;
// `before` is the image as it was opened (its playbook with openedBytes set).
// Returns the playbook the bytes open as; throws VerifyError on the first
// difference, naming it.
// `beforeMap`, when given, is buildAreaMap(before), already made by the
// caller; `afterMap`, when given, receives buildAreaMap of the playbook
// returned. Neither changes what is checked: they spare building a map twice.
Playbook verifyWrite(const Playbook& model, const Playbook& before, const ImageBytes& bytes,
                     const SaveLayout& layout, const AreaMap* beforeMap = nullptr, AreaMap* afterMap = nullptr);

// The formation names a playbook was opened with (to read an image back the same way).
[[nodiscard]] std::vector<std::string> formationNames(const Playbook& pb);

// `bytes` read the way `like` was opened (its path in messages, its formation
// names), openedBytes and openComplete set. Throws RomError when they do not open.
[[nodiscard]] Playbook readBytesAs(const Playbook& like, ImageBytes bytes);

// The first table entry of `after` that does not name `expected(the entry of
// `before`)`, as words ("play 3 player 1 would name A123, not A200"); "" when every one does.
[[nodiscard]] std::string entryDifference(const Playbook& before, const Playbook& after,
                                          const std::function<SeqKey(const AreaEntry&)>& expected);

}  // namespace zpe
