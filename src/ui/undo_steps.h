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

// A copy or a swap of slots.
class SlotsStep : public QUndoCommand {
public:
    SlotsStep(const QString& text, SlotStates before, SlotStates after, std::function<void(const SlotStates&)> restore)
        : before_(std::move(before)), after_(std::move(after)), restore_(std::move(restore)) {
        setText(text);
    }
    void undo() override { restore_(before_); }
    void redo() override { restore_(after_); }

private:
    SlotStates before_, after_;
    std::function<void(const SlotStates&)> restore_;
};

// A change of one sequence: "Apply" (the stored sequence) or "Add" (the working copy).
class SequenceStep : public QUndoCommand {
public:
    SequenceStep(const QString& text, clsSequence before, clsSequence after, std::function<void(const clsSequence&)> restore)
        : before_(std::move(before)), after_(std::move(after)), restore_(std::move(restore)) {
        setText(text);
    }
    void undo() override { restore_(before_); }
    void redo() override { restore_(after_); }

private:
    clsSequence before_, after_;
    std::function<void(const clsSequence&)> restore_;
};

}  // namespace zpe
