#pragma once
// The window's undo steps: each holds the state before and after one edit
// (slots, a stored sequence, the editor's working copy) and puts it back
// through the window, which refreshes the rows that show it.
#include "analysis/entries.h"
#include "model/play_slot.h"
#include "sequence/sequence.h"

#include <QUndoCommand>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

namespace zpe {

using SlotStates = std::vector<std::pair<int, clsPlaySlot>>;  // slot index and its fields

// One edit: the state before it and after it, and how the window puts a
// state back (a copy or swap of slots; "Apply" of the stored sequence; "Add"
// in the working copy).
// An edit the window has already made (a typed value, a removal) passes
// `done`: pushing it then changes nothing, undo and redo do. Consecutive
// steps with the same non-negative `mergeKey` (one data box of one command)
// become one.
template <typename State>
class StateStep : public QUndoCommand {
public:
    StateStep(const QString& text, State before, State after, std::function<void(const State&)> restore,
              bool done = false, int64_t mergeKey = -1)
        : before_(std::move(before)), after_(std::move(after)), restore_(std::move(restore)), skipRedo_(done),
          mergeKey_(mergeKey) {
        setText(text);
    }
    void undo() override { restore_(before_); }
    void redo() override {
        if (skipRedo_) {
            skipRedo_ = false;
            return;
        }
        restore_(after_);
    }
    int id() const override { return mergeKey_ < 0 ? -1 : 1; }
    bool mergeWith(const QUndoCommand* other) override {
        const auto* next = dynamic_cast<const StateStep*>(other);
        if (!next || next->mergeKey_ != mergeKey_) return false;
        after_ = next->after_;
        return true;
    }

private:
    State before_, after_;
    std::function<void(const State&)> restore_;
    bool skipRedo_;
    int64_t mergeKey_;
};

using SlotsStep = StateStep<SlotStates>;
using SequenceStep = StateStep<clsSequence>;
using EntriesStep = StateStep<EntriesState>;

}  // namespace zpe
