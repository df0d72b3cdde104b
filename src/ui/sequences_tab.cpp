// The Sequences tab: the list of sequences and the editor panel, which edits
// the document's working copy (curSeq) and stores it into the playbook only
// through commitWorkingCopy.
#include "model/hex.h"
#include "sequence/command_sheet.h"
#include "ui/list_view.h"
#include "ui/sequences_tab.h"
#include "ui/list_filter.h"
#include "ui/diagram_window.h"
#include "ui/up_down.h"

#include <QComboBox>
#include <QFrame>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRegularExpressionValidator>
#include <QTreeWidget>

#include <algorithm>

namespace zpe {

namespace {
constexpr int kSlotTops[kPanelSlots] = {240, 600, 960, 1320};
const char* const kSlotLetters[kPanelSlots] = {"A", "B", "C", "D"};

QRect px(int l, int t, int w, int h) { return QRect(pixels(l), pixels(t), pixels(w), pixels(h)); }
}  // namespace

SequencesTab::SequencesTab(const TabContext& context, QWidget* client)
    : QObject(client), ctx_(context), pb(context.doc.pb), curSeq(context.doc.workingCopy) {
    lvSequences = listView(client, {{"Address", 1000, false}, {"Commands", 8000, false}});
    lvSequences->setSortingEnabled(false);
    fraSeq = buttonBar(client);
    cmdSeqDetails = button("Show Details", fraSeq, 2880, 60);
    cmdSeqDetails->setToolTip("Show or hide the editor of the selected sequence");
    connect(cmdSeqDetails, &QPushButton::clicked, this, [this] { cmdSeqDetails_Click(); });
    fraSeqDetails = new QFrame(client);
    fraSeqDetails->setFrameShape(QFrame::Box);
    fraSeqDetails->resize(fraSeqDetails->width(), pixels(kSeqDetailsHeight));
    buildSeqDetailsPanel();
    // The keyboard moves the selection as a click does: the panel follows.
    connectClicks(lvSequences, [this] { lvSequences_Click(); }, [this] { lvSequences_Click(); });
    for (const std::string& item : newCommandItems(ctx_.cmdNames)) cmbNewSeqCmd->addItem(QString::fromLatin1(item));
}

void SequencesTab::fill(const std::vector<ListRow>& rows) {
    // The core gives the rows in the list's order: ascending on the Address text.
    addRows(lvSequences, rows);
    fitColumns(lvSequences);
}

void SequencesTab::rebuild(const std::vector<ListRow>& rows, bool keepSelection) {
    const auto selected = keepSelection ? selectedSequenceKey() : std::nullopt;
    const QSignalBlocker quiet(lvSequences);
    lvSequences->clear();
    addRows(lvSequences, rows);
    if (selected) selectRow(lvSequences, sequenceRow(*selected));
    fitColumns(lvSequences);
}

void SequencesTab::reselect(SeqKey key, int command) {
    const int row = sequenceRow(key);
    if (row < 0) return;
    selectRow(lvSequences, row);
    lvSequences_Click();
    if (command >= 0 && command < lstSeqCommands->count()) lstSeqCommands->setCurrentRow(command);
}

void SequencesTab::buildSeqDetailsPanel() {
    QFrame* e = fraSeqDetails;
    lstSeqCommands = new QListWidget(e);
    lstSeqCommands->setGeometry(px(120, 240, 2895, 1875));
    lstSeqCommands->setSelectionMode(QAbstractItemView::SingleSelection);
    connect(lstSeqCommands, &QListWidget::currentRowChanged, this, [this](int) { lstSeqCommands_Click(); });

    udSeqCommand = new UpDown(e);
    udSeqCommand->setGeometry(px(3240, 240, 255, 735));
    udSeqCommand->onUpClick = [this] { udSeqCommand_UpClick(); };
    udSeqCommand->onDownClick = [this] { udSeqCommand_DownClick(); };

    cmdSeqDelCmd = new QPushButton("Remove", e);
    cmdSeqDelCmd->setEnabled(false);  // until a command is selected
    udSeqCommand->setEnabled(false);
    cmdSeqDelCmd->setToolTip("Remove the selected command from the working copy (Edit > Undo brings it back)");
    udSeqCommand->setToolTip("Move the selected command up or down");
    lstSeqCommands->setToolTip("The working copy's commands: where each was read (\"new\" for an added one) and what it does");
    cmdSeqDelCmd->setGeometry(px(3120, 1680, 1215, 375));
    connect(cmdSeqDelCmd, &QPushButton::clicked, this, [this] { cmdSeqDelCmd_Click(); });

    for (size_t k = 0; k < kPanelSlots; ++k) {
        // The labels reach from their design left edge to the text boxes, so sheet labels fit.
        lblCmdData[k] = new QLabel(QString("Data ") + kSlotLetters[k] + ":", e);
        lblCmdData[k]->setGeometry(px(3600, kSlotTops[k], 4440 - 3600 - 30, 195 + 60));
        txtSeqData[k] = new QLineEdit(e);
        txtSeqData[k]->setGeometry(px(4440, kSlotTops[k], 495, 285));
        txtSeqData[k]->setMaxLength(2);
        // Only hexadecimal digits: typed or pasted text that is not hex is refused, not read as 0.
        txtSeqData[k]->setValidator(new QRegularExpressionValidator(QRegularExpression("[0-9A-Fa-f]*"), txtSeqData[k]));
        connect(txtSeqData[k], &QLineEdit::textChanged, this,
                [this, k](const QString&) { txtSeqData_Change(static_cast<int>(k)); });
        connect(txtSeqData[k], &QLineEdit::returnPressed, this, [this] { cmdSeqApply_Click(); });  // Enter applies
        txtSeqData[k]->setToolTip("The value in hexadecimal; Enter applies the edits");
        lblCmdMeaning[k] = new QLabel(e);
        lblCmdMeaning[k]->setGeometry(px(4980, kSlotTops[k], 900, 285));
        lblCmdMeaning[k]->setToolTip("The value as the game reads it: a signed step or offset");
        lblCmdMeaning[k]->hide();
        cmbCmdData[k] = new QComboBox(e);
        cmbCmdData[k]->setGeometry(px(4800, kSlotTops[k], 1095, 315));
        cmbCmdData[k]->setEditable(false);
        connect(cmbCmdData[k], &QComboBox::activated, this, [this, k](int) { cmbCmdData_Click(static_cast<int>(k)); });
        lblCmdData[k]->hide();
        txtSeqData[k]->hide();
        cmbCmdData[k]->hide();
    }

    txtCmdNotes = new QPlainTextEdit(e);
    txtCmdNotes->setGeometry(px(6000, 240, 2655, 1095));
    txtCmdNotes->setReadOnly(true);
    lblSeqUsedBy = new QLabel("Used by:", e);
    lblSeqUsedBy->setGeometry(px(6000, 1380, 2655, 225));
    lstSeqUsedBy = new QListWidget(e);
    lstSeqUsedBy->setGeometry(px(6000, 1620, 2655, 1035));
    lstSeqUsedBy->setToolTip("The plays, formations and pointers that run this sequence; double-click a play or formation to show it");
    connect(lstSeqUsedBy, &QListWidget::itemDoubleClicked, this, [this](QListWidgetItem* item) { lstSeqUsedBy_DoubleClick(item); });

    cmbNewSeqCmd = new QComboBox(e);
    cmbNewSeqCmd->setGeometry(px(120, 2280, 2895, 315));
    cmdSeqAddCmd = new QPushButton("Add", e);
    cmdSeqAddCmd->setToolTip("Add the command chosen in the list after the selected one");
    cmbNewSeqCmd->setToolTip("The command Add inserts");
    cmdSeqAddCmd->setGeometry(px(3120, 2280, 1215, 375));
    cmdSeqAddCmd->setEnabled(false);  // until a sequence is in the panel
    connect(cmdSeqAddCmd, &QPushButton::clicked, this, [this] { cmdSeqAddCmd_Click(); });
    cmdSeqApply = new QPushButton("Apply", e);
    cmdSeqApply->setToolTip("Store the working copy into the sequence (File > Save writes it into the image)");
    cmdSeqApply->setGeometry(px(4440, 2280, 1215, 375));
    connect(cmdSeqApply, &QPushButton::clicked, this, [this] { cmdSeqApply_Click(); });
}

void SequencesTab::growSeqDetails(int extra) {
    lstSeqCommands->setGeometry(px(120, 240, 2895, 1875 + extra));
    cmbNewSeqCmd->move(pixels(120), pixels(2280 + extra));
    cmdSeqAddCmd->move(pixels(3120), pixels(2280 + extra));
    cmdSeqApply->move(pixels(4440), pixels(2280 + extra));
    cmdSeqDelCmd->move(pixels(3120), pixels(1680 + extra));
}

void SequencesTab::cmdSeqDetails_Click() {
    showSeqDetails = !showSeqDetails;
    ctx_.host.relayout();
}

std::optional<SeqKey> SequencesTab::selectedSequenceKey() const {
    const auto selected = lvSequences->selectedItems();
    if (selected.isEmpty()) return std::nullopt;
    return rowKey(selected.first());
}

void SequencesTab::lvSequences_Click() {
    const auto key = selectedSequenceKey();
    if (!key) return;
    if (*key == curSeq.key() && workingCopyEdited()) return;  // its own row again: the edits stay
    if (*key != curSeq.key() && !leaveWorkingCopy()) {
        // Stay on the edited sequence, its edits kept.
        const QSignalBlocker quiet(lvSequences);
        selectRow(lvSequences, sequenceRow(curSeq.key()));
        return;
    }
    const clsSequence* stored = pb.sequences.find(*key);
    if (!stored) return;
    if (selectedSequenceKey() != key) {  // the row picked is the one the panel shows, whatever applying the edits left did to the list
        const QSignalBlocker quiet(lvSequences);
        selectRow(lvSequences, sequenceRow(*key));
    }
    if (*key != curSeq.key()) {
        reachedFrom_.reset();  // picked in the list: no play or formation it came from
        if (ctx_.status->text().startsWith("Editing the sequence ")) ctx_.say("");  // that line spoke of the sequence left
    }
    curSeq.clone(*stored);
    lstSeqCommands_update();
    updateUsedBy();
    cmdSeqAddCmd->setEnabled(true);
    cmdSeqApply->setEnabled(false);
    ctx_.host.refreshModified();
    ctx_.host.refreshPictures();  // edits left behind are no longer drawn
}

bool SequencesTab::leaveWorkingCopy() {
    if (!workingCopyEdited()) return true;
    const QString from = QString::fromStdString(sequenceKeyText(curSeq.key()));
    switch (ctx_.dialogs.message({"The edits of sequence " + from + " are not applied yet. Apply them before leaving it?", "Sequences",
                                  MsgIcon::Question, MsgButtons::ApplyDiscardCancel, MsgAnswer::Apply})) {
    case MsgAnswer::Discard:
        curSeq.clone(pb.sequences.at(curSeq.key()));  // as stored: nothing pending is left behind
        lstSeqCommands_update();
        cmdSeqApply->setEnabled(false);
        ctx_.host.refreshModified();
        return true;
    case MsgAnswer::Apply: {
        // The panel is about to show the row picked: the sequence left is not
        // brought back into view (its row selected, the filter cleared for it).
        leaving_ = true;
        const bool applied = commitWorkingCopy("Apply");  // false: "Used by" cancelled
        leaving_ = false;
        return applied;
    }
    default: return false;
    }
}

void SequencesTab::applyWorkingCopy() {
    if (!workingCopyEdited()) return;
    const clsSequence before = pb.sequences.at(curSeq.key());
    ctx_.doc.perform(ctx_.doc.sequenceEdit("Apply Sequence Edit", before, curSeq, false));
    cmdSeqApply->setEnabled(false);
}

QString SequencesTab::commandItemText(int i) const {
    // Where the command was read ("new" for an added one), then what it does.
    const CmdId origin = curSeq.commandAddress(i);
    return QString::fromLatin1((origin.isNew() ? std::string("new") : hex4(origin.readAddress())) + ": " + curSeq.commandName(i, ctx_.cmdNames));
}

void SequencesTab::lstSeqCommands_update() {
    lstSeqCommands->clear();
    for (int i = 0; i < curSeq.commandCount(); ++i) lstSeqCommands->addItem(commandItemText(i));
    for (int i = 0; i < lstSeqCommands->count(); ++i) lstSeqCommands->item(i)->setToolTip(lstSeqCommands->item(i)->text());
    if (lstSeqCommands->count() == 0) {
        for (size_t k = 0; k < kPanelSlots; ++k) {
            txtSeqData[k]->hide();
            cmbCmdData[k]->hide();
            lblCmdMeaning[k]->hide();
        }
        txtCmdNotes->clear();
        return;
    }
    lstSeqCommands->setCurrentRow(0);
}

void SequencesTab::lstSeqCommands_refresh() {
    for (int i = 0; i < curSeq.commandCount() && i < lstSeqCommands->count(); ++i) lstSeqCommands->item(i)->setText(commandItemText(i));
    for (int i = 0; i < lstSeqCommands->count(); ++i) lstSeqCommands->item(i)->setToolTip(lstSeqCommands->item(i)->text());
}

void SequencesTab::lstSeqCommands_Click() {
    // Remove and the arrows act on the selected command: without one they are off.
    const bool command = lstSeqCommands->currentRow() >= 0 && lstSeqCommands->currentRow() < curSeq.commandCount();
    cmdSeqDelCmd->setEnabled(command);
    udSeqCommand->setEnabled(command);
    if (!selectedSequenceKey()) return;
    const int p = lstSeqCommands->currentRow();
    if (p < 0 || p >= curSeq.commandCount()) return;
    if (DiagramWindow* diagram = ctx_.host.diagram()) diagram->highlightCommand(curSeq.key(), p);  // its point on the big diagram
    const CommandPanelView view = describeCommand(curSeq, p, ctx_.sheets.sheetFor(curSeq.command(p)));
    updatingDetails = true;
    for (size_t k = 0; k < kPanelSlots; ++k) {
        const DataSlotView& slot = view.dataSlots[k];
        lblCmdData[k]->setText(QString::fromLatin1(slot.label));
        lblCmdData[k]->setVisible(slot.shown);
        txtSeqData[k]->setMaxLength(slot.maxLength);
        txtSeqData[k]->setText(QString::fromLatin1(slot.text));
        txtSeqData[k]->setVisible(slot.shown && !slot.list);
        lblCmdMeaning[k]->setText(QString::fromStdString(slot.meaning));
        lblCmdMeaning[k]->setVisible(slot.shown && !slot.list && !slot.meaning.empty());
        // The list stands where the text box was.
        cmbCmdData[k]->move(txtSeqData[k]->pos());
        cmbCmdData[k]->clear();
        for (const std::string& item : slot.items) cmbCmdData[k]->addItem(QString::fromLatin1(item));
        cmbCmdData[k]->setCurrentIndex(slot.selected);
        cmbCmdData[k]->setVisible(slot.list);
    }
    txtCmdNotes->setPlainText(QString::fromLatin1(view.notes));
    updatingDetails = false;
}

void SequencesTab::txtSeqData_Change(int index) {
    if (updatingDetails) return;
    const auto value = static_cast<int16_t>(leadingHexValue(txtSeqData[static_cast<size_t>(index)]->text().toStdString()) & 0xFF);
    editWorkingValue(index, value);
}

void SequencesTab::cmbCmdData_Click(int index) {
    if (updatingDetails) return;
    const int item = cmbCmdData[static_cast<size_t>(index)]->currentIndex();
    if (item >= 0) editWorkingValue(index, static_cast<int16_t>(item));
}

void SequencesTab::editWorkingValue(int index, int16_t value) {
    const int p = lstSeqCommands->currentRow();
    if (p < 0 || p >= curSeq.commandCount() || curSeq.data(p, index) == value) return;
    const clsSequence before = curSeq;
    curSeq.data(p, index, value);
    if (curSeq.commands() == before.commands()) {
        // The only value the model does not take: an address field that would
        // lead nowhere it can name. The box keeps what was typed (a digit more
        // may make it one) and the status bar says why.
        ctx_.say(curSeq.placed() ? "That value would lead outside 0000-FFFF; the command still leads where it did."
                                 : "A sequence made here has no address yet: its relative jump can only lead to one of "
                                   "its own commands; the command still leads where it did.");
        return;
    }
    // Typing into one box of one command is one step.
    const int64_t key = (static_cast<int64_t>(curSeq.key().hash()) << 20) | (static_cast<int64_t>(p) << 4) | index;
    ctx_.doc.record({"Edit Value", {{EditState::ofWorkingCopy(before), EditState::ofWorkingCopy(curSeq)}}, key});
    lstSeqCommands_refresh();
    const std::string meaning = describeCommand(curSeq, p, nullptr).dataSlots[static_cast<size_t>(index)].meaning;
    lblCmdMeaning[static_cast<size_t>(index)]->setText(QString::fromStdString(meaning));
    cmdSeqApply->setEnabled(workingCopyEdited());
    ctx_.host.refreshModified();
    ctx_.host.refreshPictures();
}

void SequencesTab::pushWorkingCopyStep(const QString& text, const clsSequence& before, int row) {
    ctx_.doc.record({text.toStdString(), {{EditState::ofWorkingCopy(before), EditState::ofWorkingCopy(curSeq)}}});
    lstSeqCommands_update();
    lstSeqCommands->setCurrentRow(std::clamp(row, 0, lstSeqCommands->count() - 1));
    cmdSeqApply->setEnabled(workingCopyEdited());
    ctx_.host.refreshModified();
}

void SequencesTab::cmdSeqDelCmd_Click() {
    const int p = lstSeqCommands->currentRow();
    if (p < 0) return;
    const clsSequence before = curSeq;
    if (!curSeq.removeCommand(p)) {
        ctx_.say("The sequence's last command ends it; it cannot be removed.");
        return;
    }
    pushWorkingCopyStep("Remove Command", before, p);
}

void SequencesTab::udSeqCommand_UpClick() {
    const int p = lstSeqCommands->currentRow();
    if (p < 1) return;
    const clsSequence before = curSeq;
    if (!curSeq.swapCommands(p, p - 1)) {
        ctx_.say("The command that ends the sequence stays last.");
        return;
    }
    pushWorkingCopyStep("Move Command Up", before, p - 1);
}

void SequencesTab::udSeqCommand_DownClick() {
    const int p = lstSeqCommands->currentRow();
    if (p < 0 || p >= lstSeqCommands->count() - 1) return;
    const clsSequence before = curSeq;
    if (!curSeq.swapCommands(p, p + 1)) {
        ctx_.say("The command that ends the sequence stays last.");
        return;
    }
    pushWorkingCopyStep("Move Command Down", before, p + 1);
}

void SequencesTab::cmdSeqApply_Click() {
    const auto key = selectedSequenceKey();
    // Only into the sequence the working copy came from: a selection moved
    // without a click (the keyboard) must not receive another sequence's commands.
    if (!key || !pb.sequences.contains(*key) || curSeq.key() != *key) return;
    if (commitWorkingCopy("Apply")) cmdSeqApply->setEnabled(workingCopyEdited());  // an Apply that changes nothing is no undo step
}

int SequencesTab::sequenceRow(SeqKey key) const {
    for (int r = 0; r < lvSequences->topLevelItemCount(); ++r)
        if (rowKey(lvSequences->topLevelItem(r)) == key) return r;
    return -1;
}

void SequencesTab::showSequence(SeqKey key) {
    const clsSequence* stored = pb.sequences.find(key);
    if (!stored) return;
    const int row = sequenceRow(key);
    if (row >= 0) {
        const QString text = QString::fromLatin1(stored->commandString(ctx_.cmdNames));
        lvSequences->topLevelItem(row)->setText(1, text);
        lvSequences->topLevelItem(row)->setToolTip(1, text);
    }
    // The panel shows its working copy: undoing an Apply leaves its edits there,
    // not applied; after a moved point it follows the stored sequence.
    if (curSeq.key() == key && !leaving_) showWorkingCopy();
    ctx_.host.refreshModified();
}

void SequencesTab::showWorkingCopy() {
    // The panel shows the working copy of the selected sequence: select its row first.
    const int row = sequenceRow(curSeq.key());
    if (row < 0) return;
    ctx_.filter->reveal(lvSequences, row);
    if (selectedRow(lvSequences) != row) {
        const QSignalBlocker quiet(lvSequences);
        selectRow(lvSequences, row);
    }
    const int current = lstSeqCommands->currentRow();
    lstSeqCommands_update();
    if (current >= 0 && current < lstSeqCommands->count()) lstSeqCommands->setCurrentRow(current);
    cmdSeqApply->setEnabled(workingCopyEdited());
    cmdSeqAddCmd->setEnabled(true);
    ctx_.host.refreshModified();
}

void SequencesTab::cmdSeqAddCmd_Click() {
    const auto key = selectedSequenceKey();
    if (!key || curSeq.key() != *key) return;
    const int code = newCommandCode(cmbNewSeqCmd->currentIndex());
    if (code < 0) {
        ctx_.say("Choose the command to add from the list.");
        return;
    }
    // The new command goes after the selected one (-1: at the top); nothing
    // runs after the end command, so with that selected it goes in front of it.
    int p = lstSeqCommands->currentRow();
    const QString name = QString::fromStdString(hex2(code));
    const clsSequence before = curSeq;
    clsSequence::Insert inserted = curSeq.insertCommand(p, static_cast<int16_t>(code));
    if (inserted == clsSequence::Insert::AfterEnd) inserted = curSeq.insertCommand(--p, static_cast<int16_t>(code));
    switch (inserted) {
    case clsSequence::Insert::Done:
        ctx_.doc.perform({"Add Command", {{EditState::ofWorkingCopy(before), EditState::ofWorkingCopy(curSeq)}}});
        lstSeqCommands->setCurrentRow(p + 1);
        ctx_.say("");
        return;
    case clsSequence::Insert::EndsSequence:
        ctx_.say(name + " ends a sequence; added here it would cut off the commands after it.");
        return;
    case clsSequence::Insert::LockUp:
        ctx_.say(name + " locks the game up when it runs; it cannot be added.");
        return;
    case clsSequence::Insert::Full: ctx_.say("The sequence holds as many commands as it can."); return;
    case clsSequence::Insert::NotACommand:
    case clsSequence::Insert::AfterEnd: return;
    }
}

void SequencesTab::clearSeqPanel() {
    curSeq = clsSequence();
    cmdSeqAddCmd->setEnabled(false);
    cmdSeqDelCmd->setEnabled(false);
    udSeqCommand->setEnabled(false);
    lstSeqCommands->clear();
    for (size_t k = 0; k < kPanelSlots; ++k) {
        lblCmdData[k]->hide();
        txtSeqData[k]->hide();
        cmbCmdData[k]->hide();
        lblCmdMeaning[k]->hide();
    }
    txtCmdNotes->clear();
    cmdSeqApply->setEnabled(false);
    lstSeqUsedBy->clear();
    reachedFrom_.reset();
}

}  // namespace zpe
