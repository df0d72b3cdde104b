#pragma once
// The window's undo steps: each holds the state before and after one edit
// (slots, a stored sequence, the editor's working copy) and puts it back
// through the window, which refreshes the rows that show it.
#include "model/play_slot.h"
#include "sequence/sequence.h"

#include <QUndoCommand>
#include <functional>
#include <utility>
#include <vector>

namespace zpe {

using SlotStates = std::vector<std::pair<int, clsPlaySlot>>;  // slot index and its fields

// One edit: the state before it and after it, and how the window puts a
// state back (a copy or swap of slots; "Apply" of the stored sequence; "Add"
// in the working copy).
template <typename State>
class StateStep : public QUndoCommand {
public:
    StateStep(const QString& text, State before, State after, std::function<void(const State&)> restore)
        : before_(std::move(before)), after_(std::move(after)), restore_(std::move(restore)) {
        setText(text);
    }
    void undo() override { restore_(before_); }
    void redo() override { restore_(after_); }

private:
    State before_, after_;
    std::function<void(const State&)> restore_;
};

using SlotsStep = StateStep<SlotStates>;
using SequenceStep = StateStep<clsSequence>;

}  // namespace zpe
