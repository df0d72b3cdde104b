// Who uses a sequence and which sequence each player runs: the editor panel's
// "Used by" list, the Plays and Formations tabs' menus that point a player at
// another sequence (or a new copy, or a new empty one), Apply's question
// when the sequence reached from a play or formation is shared, and the
// points picked and moved on the big diagram (which ask the same).
#include "analysis/entries.h"
#include "analysis/references.h"
#include "model/hex.h"
#include "ui/diagram_window.h"
#include "ui/frm_main.h"
#include "ui/list_filter.h"

#include <QLabel>
#include <QListWidget>
#include <QMenu>
#include <QPushButton>
#include <QTreeWidget>
#include <QUndoStack>

namespace zpe {

namespace {

QString keyText(int32_t key) { return QString::fromStdString(sequenceKeyText(key)); }

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

QString frmMain::entryText(const AreaEntry& e) const { return QString::fromStdString(e.name()); }

void frmMain::updateUsedBy() {
    lstSeqUsedBy->clear();
    if (curSeq.commandCount() == 0 || !pb.sequences.contains(curSeq.address())) return;
    const int32_t key = curSeq.address();
    for (const AreaEntry& e : entriesNaming(pb, key)) {
        auto* item = new QListWidgetItem(entryText(e), lstSeqUsedBy);
        item->setData(Qt::UserRole, static_cast<int>(e.table));
        item->setData(Qt::UserRole + 1, e.index);
        item->setData(Qt::UserRole + 2, e.player);
        if (e.table != AreaEntry::Table::Pointer) item->setToolTip("Double-click to show it");
    }
    // The game's own jumps and branches into it, as the image holds them.
    const size_t fields = isNewSequence(key) || !inFile_.openComplete ? 0 : referencesTo(inFile_, key).fields.size();
    if (fields > 0) {
        auto* item = new QListWidgetItem(fields == 1 ? QString("1 jump or branch of the game leads here")
                                                     : QString("%1 jumps or branches of the game lead here").arg(fields),
                                         lstSeqUsedBy);
        item->setFlags(Qt::ItemIsEnabled);
    }
    if (lstSeqUsedBy->count() == 0) new QListWidgetItem("nothing (not saved unless an entry names it)", lstSeqUsedBy);
}

void frmMain::lstSeqUsedBy_DoubleClick(QListWidgetItem* item) {
    bool ok = false;
    const int table = item->data(Qt::UserRole).toInt(&ok);
    if (!ok) return;
    const int index = item->data(Qt::UserRole + 1).toInt(), player = item->data(Qt::UserRole + 2).toInt();
    if (table == static_cast<int>(AreaEntry::Table::Play)) {
        selectTab(3);
        listFilter_->reveal(lvPlays, index);  // the row it goes to is shown
        selectRow(lvPlays, index);
        if (QTreeWidgetItem* row = lvPlays->topLevelItem(index)) lvPlays->setCurrentItem(row, player + 1);
    } else if (table == static_cast<int>(AreaEntry::Table::Formation)) {
        selectTab(1);
        listFilter_->reveal(lvFormations, index);
        selectRow(lvFormations, index);
        lvFormations_Click();
        if (QTreeWidgetItem* row = lvFormations->topLevelItem(index)) lvFormations->setCurrentItem(row, player + 1);
    }
}

std::optional<AreaEntry> frmMain::entryOfCell(QTreeWidget* list, QTreeWidgetItem* item, int column) const {
    if (!item || column < 1 || column > kPlayersPerRecord) return std::nullopt;
    const int row = list->indexOfTopLevelItem(item);
    AreaEntry e{list == lvPlays ? AreaEntry::Table::Play : AreaEntry::Table::Formation, row, column - 1, 0};
    if (row < 0 || (list == lvFormations && static_cast<size_t>(row) >= pb.formations.size())) return std::nullopt;
    e.target = entryTarget(pb, e);
    return e;
}

bool frmMain::showInPanel(int32_t key) {
    if (!pb.sequences.contains(key)) return false;
    if (selectedTab() != 4) selectTab(4);
    if (!showSeqDetails) cmdSeqDetails_Click();
    listFilter_->reveal(lvSequences, sequenceRow(key));  // a filter must not keep it from the panel
    selectRow(lvSequences, sequenceRow(key));
    lvSequences_Click();
    if (curSeq.address() != key) return false;  // the user stayed on an edited sequence
    if (QTreeWidgetItem* row = lvSequences->topLevelItem(sequenceRow(key))) lvSequences->scrollToItem(row);
    return true;
}

void frmMain::showEntrySequence(const AreaEntry& e) {
    const int32_t key = entryTarget(pb, e);
    if (!pb.sequences.contains(key)) {
        StatusBar1->setText(entryText(e) + " runs no sequence.");
        return;
    }
    if (!showInPanel(key)) return;
    reachedFrom_ = e;
    StatusBar1->setText("Editing the sequence " + entryText(e) + " runs (" + keyText(key) + ").");
}

void frmMain::entryMenu(QTreeWidget* list, const QPoint& pos) {
    const auto e = entryOfCell(list, list->itemAt(pos), list->columnAt(pos.x()));
    if (!e) return;
    const QString who = QString::fromStdString(positionName(e->player));
    QMenu menu(this);
    QAction* edit = menu.addAction("Edit " + who + "'s Sequence");
    QAction* point = menu.addAction("Point " + who + " at a Sequence...");
    edit->setEnabled(pb.sequences.contains(e->target));
    QAction* chosen = menu.exec(list->viewport()->mapToGlobal(pos));
    if (chosen == edit) showEntrySequence(*e);
    else if (chosen == point) pointEntryAt(*e);
}

void frmMain::pointEntryAt(const AreaEntry& e) {
    if (!pb.openComplete) return;
    const int32_t current = entryTarget(pb, e);
    const bool kick = entryReadsKick(e);
    const QString who = entryText(e);
    QStringList items;
    std::vector<int32_t> keys;  // the sequence of each item after the first two
    const bool canCopy = pb.sequences.contains(current);
    items << (canCopy ? "A new copy of the current one (" + keyText(current) + ")" : "A new copy of the current one (none)")
          << "A new empty sequence...";
    int selected = 0;
    for (int r = 0; r < lvSequences->topLevelItemCount(); ++r) {
        const int32_t key = lvSequences->topLevelItem(r)->data(0, Qt::UserRole).toInt();
        const clsSequence* seq = pb.sequences.find(key);
        if (!seq || seq->kick() != kick) continue;  // read another way, it would run other commands
        if (key == current) selected = items.size();
        items << keyText(key) + "   " + QString::fromLatin1(seq->commandString(cmdNames));
        keys.push_back(key);
    }
    const auto choice = dialogs_.choose("Point at a Sequence", "The sequence " + who + " runs (now " +
                                        (canCopy ? keyText(current) : QString("none")) + "):", items, selected);
    if (!choice || *choice < 0 || *choice >= items.size()) return;
    const EntriesState before = entriesState(pb);
    if (*choice == 0) {
        if (canCopy) (void)giveOwnCopy(e, nullptr, "");
        else StatusBar1->setText(who + " runs no sequence to copy.");
        return;
    }
    if (*choice == 1) {
        // The end command it starts with: one after which the game stops.
        const auto names = newCommandItems(cmdNames);
        QStringList ends;
        const std::vector<int16_t> codes = newSequenceEnds(kick);
        for (const int16_t code : codes) {
            QString text = QString::fromStdString(hex2(code));
            for (size_t i = 0; i < names.size(); ++i)
                if (newCommandCode(static_cast<int>(i)) == code) text = QString::fromLatin1(names[i]);
            ends << text;
        }
        const auto end = dialogs_.choose("New Sequence", "The command that ends it (fill it with Add):", ends, 0);
        if (!end || *end < 0 || static_cast<size_t>(*end) >= codes.size()) return;
        setEntryTarget(pb, e, addEmptySequence(pb, codes[static_cast<size_t>(*end)], kick));
        pushEntriesStep("New Sequence for " + who, before);
        showEntrySequence(e);
        StatusBar1->setText(who + " now runs a new sequence: add its commands, then Apply.");
        return;
    }
    const int32_t key = keys[static_cast<size_t>(*choice - 2)];
    if (key == current) return;
    setEntryTarget(pb, e, key);
    pushEntriesStep("Point " + who + " at " + keyText(key), before);
    StatusBar1->setText(who + " now runs " + keyText(key) + ".");
}

void frmMain::pushEntriesStep(const QString& text, const EntriesState& before, const PanelChange& panel) {
    dropUnusedNewSequences(pb);  // a sequence made earlier that nothing names any more goes
    Edit edit{text.toStdString(), {}, -1};
    if (panel) edit.changes.emplace_back(EditState::ofWorkingCopy(panel->first), EditState::ofWorkingCopy(panel->second));
    edit.changes.emplace_back(EditState::ofEntries(before), EditState::ofEntries(entriesState(pb)));
    doc_.record(std::move(edit));
    refreshEntryLists();
    updateUsedBy();
    refreshPictures();
    refreshModified();
}

void frmMain::showEntries() {
    refreshEntryLists();
    // The panel shows what the entry it was reached from runs now (its sequence
    // may have gone with the step), unless it holds edits not applied.
    const auto from = reachedFrom_;
    if (curSeq.commandCount() > 0 && !pb.sequences.contains(curSeq.address())) clearSeqPanel();
    if (from && !workingCopyEdited() && entryTarget(pb, *from) != curSeq.address() &&
        pb.sequences.contains(entryTarget(pb, *from)))
        showEntrySequence(*from);
    updateUsedBy();
    refreshModified();
}

bool frmMain::commitWorkingCopy(const QString& title) {
    if (!workingCopyEdited()) return true;
    const std::vector<AreaEntry> users = entriesNaming(pb, curSeq.address());
    if (reachedFrom_ && entryTarget(pb, *reachedFrom_) == curSeq.address() && users.size() > 1) {
        const QString who = entryText(*reachedFrom_);
        switch (dialogs_.allOrCopy("Used by " + usersText(users) + ".", title, "Change all of them", "Only " + who + " (a copy)")) {
        case MsgAnswer::All: break;
        case MsgAnswer::Copy: {
            // The copy takes the edits; the panel lets go of them, as the shared
            // sequence keeps what it had. Both are one undo step: undone, the
            // edits are pending on the shared sequence again; redone, they are in
            // the copy and nowhere else.
            const clsSequence edited = curSeq;
            const clsSequence shared = pb.sequences.at(edited.address());
            curSeq.clone(shared);
            if (giveOwnCopy(*reachedFrom_, &edited, " with the edits", std::make_pair(edited, shared))) return true;
            curSeq = edited;  // not copied: the edits stay in the panel
            return false;
        }
        default: return false;  // Cancel: the edits stay in the panel, not applied
        }
    }
    applyWorkingCopy();
    return true;
}

bool frmMain::giveOwnCopy(const AreaEntry& entry, const clsSequence* contents, const QString& what, const PanelChange& panel) {
    const int32_t from = entryTarget(pb, entry);
    const QString who = entryText(entry);
    const EntriesState before = entriesState(pb);
    try {
        setEntryTarget(pb, entry, addCopyOf(pb, from, contents));
    } catch (const std::invalid_argument& error) {
        StatusBar1->setText(QString::fromStdString(error.what()));
        return false;
    }
    pushEntriesStep("Copy for " + who + (panel ? " with the edits" : ""), before, panel);
    showEntrySequence(entry);
    StatusBar1->setText(who + " now runs its own copy of " + keyText(from) + what + "; Save places it in a free run.");
    return true;
}

std::optional<AreaEntry> frmMain::entryOfPoint(int player, int32_t key) const {
    if (!diagram_ || diagram_->slot() < 0 || player < 0 || player >= kPlayersPerRecord) return std::nullopt;
    const clsPlaySlot& slot = pb.playSlots[static_cast<size_t>(diagram_->slot())];
    const int p = slot.oPlay(diagram_->play());
    if (p < kPlayCount && pb.plays[static_cast<size_t>(p)].seqAddress(player) == key)
        return AreaEntry{AreaEntry::Table::Play, p, player, key};
    const auto f = static_cast<size_t>(slot.formation());
    if (f < pb.formations.size() && pb.formations[f].posAddress(player) == key)
        return AreaEntry{AreaEntry::Table::Formation, static_cast<int>(f), player, key};
    return std::nullopt;
}

void frmMain::diagramPick(int player, const DiagramPoint& point) {
    if (!showInPanel(point.sequence)) return;
    if (const auto entry = entryOfPoint(player, point.sequence)) reachedFrom_ = entry;
    lstSeqCommands->setCurrentRow(point.command);
}

void frmMain::diagramMove(int player, const DiagramPoint& point, int a, int b) {
    const int32_t key = point.sequence;
    const auto A = static_cast<int16_t>(a), B = static_cast<int16_t>(b);
    // Edits pending in the panel on this sequence take the move too: Apply stores them together.
    if (curSeq.address() == key && workingCopyEdited()) {
        const clsSequence before = curSeq;
        curSeq.data(point.command, 0, A);
        curSeq.data(point.command, 1, B);
        pushWorkingCopyStep("Move Point", before, point.command);
        refreshPictures();
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
            const QString who = entryText(*entry);
            switch (dialogs_.allOrCopy(used, "Move Point", "Change all of them", "Only " + who + " (a copy)")) {
            case MsgAnswer::All: break;
            case MsgAnswer::Copy:
                if (giveOwnCopy(*entry, &after, " with the point moved")) lstSeqCommands->setCurrentRow(point.command);
                else refreshPictures();
                return;
            default: refreshPictures(); return;  // the point goes back
            }
        } else if (dialogs_.message({used + " Move the point for all of them?", "Move Point", MsgIcon::Question, MsgButtons::YesNo,
                                     MsgAnswer::No}) != MsgAnswer::Yes) {
            refreshPictures();
            return;
        }
    }
    doc_.perform({"Move Point", {{EditState::ofSequence(*stored, true), EditState::ofSequence(after, true)}}});
    StatusBar1->setText(QString("Moved the point of %1 command %2.").arg(keyText(key)).arg(point.command));
}

}  // namespace zpe
