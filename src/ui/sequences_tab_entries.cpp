// Who uses a sequence and which sequence each player runs: the editor panel's
// "Used by" list, the Plays and Formations tabs' menus that point a player at
// another sequence (or a new copy, or a new empty one), Apply's question
// when the sequence reached from a play or formation is shared, and the
// points picked and moved on the big diagram (which ask the same).
#include "analysis/entries.h"
#include "analysis/references.h"
#include "model/hex.h"
#include "ui/diagram_window.h"
#include "ui/list_view.h"
#include "ui/sequences_tab.h"
#include "ui/list_filter.h"

#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QTreeWidget>

namespace zpe {

namespace {

QString keyText(SeqKey key) { return QString::fromStdString(sequenceKeyText(key)); }

QString counted(size_t n, const char* word) { return QString("%1 %2%3").arg(n).arg(word).arg(n == 1 ? "" : "s"); }

// "14 plays", "3 plays, 1 formation and 1 pointer".
QString usersText(const std::vector<AreaEntry>& users) {
    size_t plays = 0, formations = 0, pointers = 0;
    for (const AreaEntry& e : users)
        (e.table == AreaEntry::Table::Play ? plays : e.table == AreaEntry::Table::Formation ? formations : pointers)++;
    QStringList parts;
    if (plays) parts << counted(plays, "play");
    if (formations) parts << counted(formations, "formation");
    if (pointers) parts << counted(pointers, "pointer");
    if (parts.size() < 2) return parts.join("");
    const QString last = parts.takeLast();
    return parts.join(", ") + " and " + last;
}

}  // namespace

void SequencesTab::updateUsedBy() {
    lstSeqUsedBy->clear();
    if (curSeq.commandCount() == 0 || !pb.sequences.contains(curSeq.key())) return;
    const SeqKey key = curSeq.key();
    for (const AreaEntry& e : entriesNaming(pb, key)) {
        auto* item = new QListWidgetItem(QString::fromStdString(e.name()), lstSeqUsedBy);
        item->setData(Qt::UserRole, static_cast<int>(e.table));
        item->setData(Qt::UserRole + 1, e.index);
        item->setData(Qt::UserRole + 2, e.player);
        if (e.table != AreaEntry::Table::Pointer) item->setToolTip("Double-click to show it");
    }
    // The game's own jumps and branches into it, as the image holds them.
    const size_t fields = key.isNew() || !ctx_.doc.inFile.openComplete ? 0 : referencesTo(ctx_.doc.inFile, key).fields.size();
    if (fields > 0) {
        auto* item = new QListWidgetItem(fields == 1 ? QString("1 jump or branch of the game leads here")
                                                     : QString("%1 jumps or branches of the game lead here").arg(fields),
                                         lstSeqUsedBy);
        item->setFlags(Qt::ItemIsEnabled);
    }
    if (lstSeqUsedBy->count() == 0) new QListWidgetItem("nothing (not saved unless an entry names it)", lstSeqUsedBy);
}

void SequencesTab::lstSeqUsedBy_DoubleClick(QListWidgetItem* item) {
    bool ok = false;
    const int table = item->data(Qt::UserRole).toInt(&ok);
    if (!ok || table == static_cast<int>(AreaEntry::Table::Pointer)) return;
    const AreaEntry e{static_cast<AreaEntry::Table>(table), item->data(Qt::UserRole + 1).toInt(), item->data(Qt::UserRole + 2).toInt(),
                      curSeq.key()};
    ctx_.host.goToEntry(e);
}

bool SequencesTab::showInPanel(SeqKey key) {
    if (!pb.sequences.contains(key)) return false;
    if (ctx_.host.selectedTab() != 4) ctx_.host.selectTab(4);
    if (!showSeqDetails) cmdSeqDetails_Click();
    ctx_.filter->reveal(lvSequences, sequenceRow(key));  // a filter must not keep it from the panel
    selectRow(lvSequences, sequenceRow(key));
    lvSequences_Click();
    if (curSeq.key() != key) return false;  // the user stayed on an edited sequence
    if (QTreeWidgetItem* row = lvSequences->topLevelItem(sequenceRow(key))) lvSequences->scrollToItem(row);
    return true;
}

void SequencesTab::showEntrySequence(const AreaEntry& e) {
    const SeqKey key = entryTarget(pb, e);
    if (!pb.sequences.contains(key)) {
        ctx_.say(QString::fromStdString(e.name()) + " runs no sequence.");
        return;
    }
    if (!showInPanel(key)) return;
    reachedFrom_ = e;
    ctx_.say("Editing the sequence " + QString::fromStdString(e.name()) + " runs (" + keyText(key) + ").");
}

void SequencesTab::pointEntryAt(const AreaEntry& e) {
    if (!pb.openComplete) return;
    // The panel's sequence may be the one the entry lets go of (a copy no
    // other entry names is dropped), and applying its edits may give the
    // entry a copy of its own: they are settled before the choice is offered.
    if (!leaveWorkingCopy()) return;
    const SeqKey current = entryTarget(pb, e);
    const bool kick = entryReadsKick(e);
    const QString who = QString::fromStdString(e.name());
    QStringList items;
    std::vector<SeqKey> keys;  // the sequence of each item after the first two
    const bool canCopy = pb.sequences.contains(current);
    items << (canCopy ? "A new copy of the current one (" + keyText(current) + ")" : "A new copy of the current one (none)")
          << "A new empty sequence...";
    int selected = 0;
    for (int r = 0; r < lvSequences->topLevelItemCount(); ++r) {
        const std::optional<SeqKey> key = rowKey(lvSequences->topLevelItem(r));
        const clsSequence* seq = key ? pb.sequences.find(*key) : nullptr;
        if (!seq || seq->kick() != kick) continue;  // read another way, it would run other commands
        if (*key == current) selected = items.size();
        items << keyText(*key) + "   " + QString::fromLatin1(seq->commandString(ctx_.cmdNames));
        keys.push_back(*key);
    }
    const auto choice = ctx_.dialogs.choose("Point at a Sequence", "The sequence " + who + " runs (now " +
                                        (canCopy ? keyText(current) : QString("none")) + "):", items, selected);
    if (!choice || *choice < 0 || *choice >= items.size()) return;
    const EntriesState before = entriesState(pb);
    if (*choice == 0) {
        if (canCopy) (void)giveOwnCopy(e, nullptr, "");
        else ctx_.say(who + " runs no sequence to copy.");
        return;
    }
    if (*choice == 1) {
        // The end command it starts with: one after which the game stops.
        const auto names = newCommandItems(ctx_.cmdNames);
        QStringList ends;
        const std::vector<int16_t> codes = newSequenceEnds(kick);
        for (const int16_t code : codes) {
            QString text = QString::fromStdString(hex2(code));
            for (size_t i = 0; i < names.size(); ++i)
                if (newCommandCode(static_cast<int>(i)) == code) text = QString::fromLatin1(names[i]);
            ends << text;
        }
        const auto end = ctx_.dialogs.choose("New Sequence", "The command that ends it (fill it with Add):", ends, 0);
        if (!end || *end < 0 || static_cast<size_t>(*end) >= codes.size()) return;
        setEntryTarget(pb, e, addEmptySequence(pb, codes[static_cast<size_t>(*end)], kick));
        pushEntriesStep("New Sequence for " + who, before);
        showEntrySequence(e);
        ctx_.say(who + " now runs a new sequence: add its commands, then Apply.");
        return;
    }
    const SeqKey key = keys[static_cast<size_t>(*choice - 2)];
    if (key == current) return;
    setEntryTarget(pb, e, key);
    pushEntriesStep("Point " + who + " at " + keyText(key), before);
    ctx_.say(who + " now runs " + keyText(key) + ".");
}

void SequencesTab::pushEntriesStep(const QString& text, const EntriesState& before, const PanelChange& panel) {
    dropUnusedNewSequences(pb);  // a sequence made earlier that nothing names any more goes
    Edit edit{text.toStdString(), {}, -1};
    if (panel) edit.changes.emplace_back(EditState::ofWorkingCopy(panel->first), EditState::ofWorkingCopy(panel->second));
    edit.changes.emplace_back(EditState::ofEntries(before), EditState::ofEntries(entriesState(pb)));
    ctx_.doc.record(std::move(edit));
    ctx_.host.refreshEntryLists();
    updateUsedBy();
    ctx_.host.refreshPictures();
    ctx_.host.refreshModified();
}

void SequencesTab::showEntries() {
    ctx_.host.refreshEntryLists();
    // The panel shows what the entry it was reached from runs now (its sequence
    // may have gone with the step), unless it holds edits not applied.
    const auto from = reachedFrom_;
    if (curSeq.commandCount() > 0 && !pb.sequences.contains(curSeq.key())) clearSeqPanel();
    if (from && !workingCopyEdited() && entryTarget(pb, *from) != curSeq.key() &&
        pb.sequences.contains(entryTarget(pb, *from)))
        showEntrySequence(*from);
    updateUsedBy();
    ctx_.host.refreshModified();
}

bool SequencesTab::commitWorkingCopy(const QString& title) {
    if (!workingCopyEdited()) return true;
    const std::vector<AreaEntry> users = entriesNaming(pb, curSeq.key());
    if (reachedFrom_ && entryTarget(pb, *reachedFrom_) == curSeq.key() && users.size() > 1) {
        const QString who = QString::fromStdString(reachedFrom_->name());
        switch (ctx_.dialogs.allOrCopy("Used by " + usersText(users) + ".", title, "Change all of them", "Only " + who + " (a copy)")) {
        case MsgAnswer::All: break;
        case MsgAnswer::Copy: {
            // The copy takes the edits; the panel lets go of them, as the shared
            // sequence keeps what it had. Both are one undo step: undone, the
            // edits are pending on the shared sequence again; redone, they are in
            // the copy and nowhere else.
            const clsSequence edited = curSeq;
            const clsSequence shared = pb.sequences.at(edited.key());
            const int row = lstSeqCommands->currentRow();
            curSeq.clone(shared);
            if (giveOwnCopy(*reachedFrom_, &edited, " with the edits", std::make_pair(edited, shared))) {
                if (row >= 0 && row < lstSeqCommands->count()) lstSeqCommands->setCurrentRow(row);  // the command being edited stays selected
                return true;
            }
            curSeq = edited;  // not copied: the edits stay in the panel
            return false;
        }
        default: return false;  // Cancel: the edits stay in the panel, not applied
        }
    }
    applyWorkingCopy();
    return true;
}

bool SequencesTab::giveOwnCopy(const AreaEntry& entry, const clsSequence* contents, const QString& what, const PanelChange& panel) {
    const SeqKey from = entryTarget(pb, entry);
    const QString who = QString::fromStdString(entry.name());
    const EntriesState before = entriesState(pb);
    try {
        setEntryTarget(pb, entry, addCopyOf(pb, from, contents));
    } catch (const std::invalid_argument& error) {
        ctx_.say(QString::fromStdString(error.what()));
        return false;
    }
    pushEntriesStep("Copy for " + who + (panel ? " with the edits" : ""), before, panel);
    showEntrySequence(entry);
    ctx_.say(who + " now runs its own copy of " + keyText(from) + what + "; Save places it in a free run.");
    return true;
}

std::optional<AreaEntry> SequencesTab::entryOfPoint(int player, SeqKey key) const {
    const DiagramWindow* diagram = ctx_.host.diagram();
    if (!diagram || diagram->slot() < 0 || player < 0 || player >= kPlayersPerRecord) return std::nullopt;
    const clsPlaySlot& slot = pb.playSlots[static_cast<size_t>(diagram->slot())];
    const int p = slot.oPlay(diagram->play());
    if (p < kPlayCount && pb.plays[static_cast<size_t>(p)].seqAddress(player) == key)
        return AreaEntry{AreaEntry::Table::Play, p, player, key};
    const auto f = static_cast<size_t>(slot.formation());
    if (f < pb.formations.size() && pb.formations[f].posAddress(player) == key)
        return AreaEntry{AreaEntry::Table::Formation, static_cast<int>(f), player, key};
    return std::nullopt;
}

void SequencesTab::diagramPick(int player, const DiagramPoint& point) {
    if (!showInPanel(point.sequence)) return;
    if (const auto entry = entryOfPoint(player, point.sequence)) reachedFrom_ = entry;
    lstSeqCommands->setCurrentRow(point.command);
}

void SequencesTab::diagramMove(int player, const DiagramPoint& point, int a, int b) {
    const SeqKey key = point.sequence;
    const auto A = static_cast<int16_t>(a), B = static_cast<int16_t>(b);
    // Edits pending in the panel on this sequence take the move too: Apply stores them together.
    if (curSeq.key() == key && workingCopyEdited()) {
        const clsSequence before = curSeq;
        curSeq.data(point.command, 0, A);
        curSeq.data(point.command, 1, B);
        pushWorkingCopyStep("Move Point", before, point.command);
        ctx_.host.refreshPictures();
        return;
    }
    const clsSequence* stored = pb.sequences.find(key);
    if (!stored || point.command >= stored->commandCount()) return;
    clsSequence after = *stored;
    after.data(point.command, 0, A);
    after.data(point.command, 1, B);
    const std::vector<AreaEntry> users = entriesNaming(pb, key);
    if (users.size() > 1) {
        const auto entry = entryOfPoint(player, key);
        const QString used = "Used by " + usersText(users) + ".";
        if (entry) {
            const QString who = QString::fromStdString(entry->name());
            switch (ctx_.dialogs.allOrCopy(used, "Move Point", "Change all of them", "Only " + who + " (a copy)")) {
            case MsgAnswer::All: break;
            case MsgAnswer::Copy:
                if (giveOwnCopy(*entry, &after, " with the point moved")) lstSeqCommands->setCurrentRow(point.command);
                else ctx_.host.refreshPictures();
                return;
            default: ctx_.host.refreshPictures(); return;  // the point goes back
            }
        } else if (ctx_.dialogs.message({used + " Move the point for all of them?", "Move Point", MsgIcon::Question, MsgButtons::YesNo,
                                     MsgAnswer::No}) != MsgAnswer::Yes) {
            ctx_.host.refreshPictures();
            return;
        }
    }
    ctx_.doc.perform(ctx_.doc.sequenceEdit("Move Point", *stored, after, true));
    ctx_.say(QString("Moved the point of %1 command %2.").arg(keyText(key)).arg(point.command));
}

}  // namespace zpe
