// The Sequences tab: the list of sequences and the editor panel, which edits a
// working copy (curSeq) and stores it into the playbook only on "Apply".
#include "model/hex.h"
#include "sequence/command_sheet.h"
#include "ui/frm_main.h"
#include "ui/up_down.h"

#include <QComboBox>
#include <QFrame>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTreeWidget>

namespace zpe {

namespace {
constexpr int kSlotTops[4] = {240, 600, 960, 1320};
const char* const kSlotLetters[4] = {"A", "B", "C", "D"};

QRect px(int l, int t, int w, int h) { return QRect(pixels(l), pixels(t), pixels(w), pixels(h)); }
}  // namespace

void frmMain::buildSeqDetailsPanel() {
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
    cmdSeqDelCmd->setGeometry(px(3120, 1680, 1215, 375));
    connect(cmdSeqDelCmd, &QPushButton::clicked, this, [this] { cmdSeqDelCmd_Click(); });

    for (int k = 0; k < 4; ++k) {
        // The labels reach from their design left edge to the text boxes, so sheet labels fit.
        lblCmdData[k] = new QLabel(QString("Data ") + kSlotLetters[k] + ":", e);
        lblCmdData[k]->setGeometry(px(3600, kSlotTops[k], 4440 - 3600 - 30, 195 + 60));
        txtSeqData[k] = new QLineEdit(e);
        txtSeqData[k]->setGeometry(px(4440, kSlotTops[k], 495, 285));
        txtSeqData[k]->setMaxLength(2);
        connect(txtSeqData[k], &QLineEdit::textChanged, this, [this, k](const QString&) { txtSeqData_Change(k); });
        cmbCmdData[k] = new QComboBox(e);
        cmbCmdData[k]->setGeometry(px(4800, kSlotTops[k], 1095, 315));
        cmbCmdData[k]->setEditable(false);
        connect(cmbCmdData[k], &QComboBox::activated, this, [this, k](int) { cmbCmdData_Click(k); });
        lblCmdData[k]->hide();
        txtSeqData[k]->hide();
        cmbCmdData[k]->hide();
    }

    txtCmdNotes = new QPlainTextEdit(e);
    txtCmdNotes->setGeometry(px(6000, 240, 2655, 1935));
    txtCmdNotes->setReadOnly(true);

    cmbNewSeqCmd = new QComboBox(e);
    cmbNewSeqCmd->setGeometry(px(120, 2280, 2895, 315));
    cmdSeqAddCmd = new QPushButton("Add", e);
    cmdSeqAddCmd->setGeometry(px(3120, 2280, 1215, 375));
    cmdSeqAddCmd->setEnabled(false);  // adding commands is not offered
    cmdSeqApply = new QPushButton("Apply", e);
    cmdSeqApply->setGeometry(px(4440, 2280, 1215, 375));
    connect(cmdSeqApply, &QPushButton::clicked, this, [this] { cmdSeqApply_Click(); });
}

void frmMain::cmdSeqDetails_Click() {
    showSeqDetails = !showSeqDetails;
    UpdateTabs();
}

std::optional<int32_t> frmMain::selectedSequenceAddress() const {
    const auto selected = lvSequences->selectedItems();
    if (selected.isEmpty()) return std::nullopt;
    bool ok = false;
    const int32_t address = selected.first()->data(0, Qt::UserRole).toString().mid(1).toInt(&ok);
    if (!ok) return std::nullopt;
    return address;
}

void frmMain::lvSequences_Click() {
    const auto address = selectedSequenceAddress();
    if (!address) return;
    const clsSequence* stored = pb.sequences.find(*address);
    if (!stored) return;
    curSeq.clone(*stored);  // unapplied edits of the previous working copy are dropped
    lstSeqCommands_update();
    cmdSeqApply->setEnabled(false);
}

void frmMain::lstSeqCommands_update() {
    lstSeqCommands->clear();
    for (int i = 0; i < curSeq.commandCount(); ++i)
        lstSeqCommands->addItem(QString::fromLatin1(hex4(curSeq.commandAddress(i)) + ": " + curSeq.commandName(i, cmdNames)));
    if (lstSeqCommands->count() == 0) {
        for (int k = 0; k < 4; ++k) {
            txtSeqData[k]->hide();
            cmbCmdData[k]->hide();
        }
        txtCmdNotes->clear();
        return;
    }
    lstSeqCommands->setCurrentRow(0);
}

void frmMain::lstSeqCommands_refresh() {
    for (int i = 0; i < curSeq.commandCount() && i < lstSeqCommands->count(); ++i)
        lstSeqCommands->item(i)->setText(QString::fromLatin1(curSeq.commandName(i, cmdNames)));
}

void frmMain::lstSeqCommands_Click() {
    if (!selectedSequenceAddress()) return;
    const int p = lstSeqCommands->currentRow();
    if (p < 0 || p >= curSeq.commandCount()) return;
    updatingDetails = true;
    for (int k = 0; k < 4; ++k) {
        txtSeqData[k]->hide();
        txtSeqData[k]->clear();
        lblCmdData[k]->setText(QString("Data ") + kSlotLetters[k] + ":");
        lblCmdData[k]->hide();
        cmbCmdData[k]->hide();
        cmbCmdData[k]->move(txtSeqData[k]->pos());
    }
    txtCmdNotes->clear();

    const int c = curSeq.command(p);
    const int dataLen = curSeq.dataLen(p);
    const int shown = std::min(dataLen, 4);
    txtSeqData[0]->setMaxLength(c >= 0xC0 ? 2 : 1);  // a low code's slot A is its low nibble
    for (int k = 1; k < 4; ++k) txtSeqData[k]->setMaxLength(2);
    for (int k = 0; k < shown; ++k) {
        txtSeqData[k]->show();
        lblCmdData[k]->show();
        txtSeqData[k]->setText(QString::fromStdString(hexPlain(static_cast<uint16_t>(curSeq.data(p, k)))));
    }

    if (const auto sheet = loadCommandSheet(dataDir_.toStdString(), c)) {
        for (const SheetRecord& r : sheet->records) {
            switch (r.kind) {
            case SheetRecord::Kind::Field:
                lblCmdData[static_cast<size_t>(r.slot)]->setText(QString::fromLatin1(r.label) + ":");
                if (r.list) {
                    cmbCmdData[static_cast<size_t>(r.slot)]->clear();
                    cmbCmdData[static_cast<size_t>(r.slot)]->show();
                    txtSeqData[static_cast<size_t>(r.slot)]->hide();
                }
                break;
            case SheetRecord::Kind::Value:
                cmbCmdData[static_cast<size_t>(r.slot)]->addItem(QString::fromLatin1(r.label));
                break;
            case SheetRecord::Kind::Info: txtCmdNotes->setPlainText(QString::fromLatin1(r.label)); break;
            }
        }
    }

    for (int k = 0; k < shown; ++k) {
        QComboBox* list = cmbCmdData[static_cast<size_t>(k)];
        if (list->isHidden()) continue;
        const int item = curSeq.data(p, k);
        // A value with no item of its own leaves the list unselected.
        list->setCurrentIndex(item >= 0 && item < list->count() ? item : -1);
    }

    // Values beyond the four slots (a COM pass with many receivers) are shown, not edited.
    if (dataLen > 4) {
        QString further = "Further data, shown here only (not editable):";
        for (int k = 4; k < dataLen; ++k)
            further += QString(" %1=%2").arg(QChar('A' + k)).arg(QString::fromStdString(hexPlain(static_cast<uint16_t>(curSeq.data(p, k)))));
        const QString notes = txtCmdNotes->toPlainText();
        txtCmdNotes->setPlainText(notes.isEmpty() ? further : further + "\n\n" + notes);
    }
    updatingDetails = false;
}

void frmMain::txtSeqData_Change(int index) {
    if (updatingDetails) return;
    const int p = lstSeqCommands->currentRow();
    if (p < 0 || p >= curSeq.commandCount()) return;
    cmdSeqApply->setEnabled(true);
    const auto value = static_cast<int16_t>(leadingHexValue(txtSeqData[static_cast<size_t>(index)]->text().toStdString()) & 0xFF);
    curSeq.data(p, index, value);
    lstSeqCommands_refresh();
}

void frmMain::cmbCmdData_Click(int index) {
    if (updatingDetails) return;
    const int p = lstSeqCommands->currentRow();
    if (p < 0 || p >= curSeq.commandCount()) return;
    const int item = cmbCmdData[static_cast<size_t>(index)]->currentIndex();
    if (item < 0) return;
    cmdSeqApply->setEnabled(true);
    curSeq.data(p, index, static_cast<int16_t>(item));
    lstSeqCommands_refresh();
}

void frmMain::cmdSeqDelCmd_Click() {
    const int p = lstSeqCommands->currentRow();
    if (p < 0) return;
    curSeq.removeCommand(p);
    cmdSeqApply->setEnabled(true);
    lstSeqCommands_update();
}

void frmMain::udSeqCommand_UpClick() {
    const int p = lstSeqCommands->currentRow();
    if (p < 1) return;
    curSeq.swapCommands(p, p - 1);
    lstSeqCommands_update();
    lstSeqCommands->setCurrentRow(p - 1);
}

void frmMain::udSeqCommand_DownClick() {
    const int p = lstSeqCommands->currentRow();
    if (p < 0 || p >= lstSeqCommands->count() - 1) return;
    curSeq.swapCommands(p, p + 1);
    lstSeqCommands_update();
    lstSeqCommands->setCurrentRow(p + 1);
}

void frmMain::cmdSeqApply_Click() {
    const auto address = selectedSequenceAddress();
    // Only into the sequence the working copy came from: a selection moved
    // without a click (the keyboard) must not receive another sequence's commands.
    if (!address || !pb.sequences.contains(*address) || curSeq.address() != *address) return;
    clsSequence& stored = pb.sequences.at(*address);
    stored.clone(curSeq);
    lvSequences->selectedItems().first()->setText(1, QString::fromLatin1(stored.commandString(cmdNames)));
    cmdSeqApply->setEnabled(false);
}

void frmMain::clearSeqPanel() {
    curSeq = clsSequence();
    lstSeqCommands->clear();
    for (int k = 0; k < 4; ++k) {
        lblCmdData[k]->hide();
        txtSeqData[k]->hide();
        cmbCmdData[k]->hide();
    }
    txtCmdNotes->clear();
    cmdSeqApply->setEnabled(false);
}

}  // namespace zpe
