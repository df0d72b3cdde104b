// The Play Slots tab: the 64 slots, their play diagram, copy and swap.
#include "ui/play_slots_tab.h"

#include "diagram/diagram.h"
#include "model/hex.h"
#include "playbook/slot_actions.h"
#include "ui/list_view.h"
#include "ui/picture_box.h"

#include <QAction>
#include <QComboBox>
#include <QMenu>
#include <QFrame>
#include <QPushButton>
#include <QTreeWidget>

#include <algorithm>

namespace zpe {

PlaySlotsTab::PlaySlotsTab(const TabContext& context, QWidget* client) : QObject(client), ctx_(context) {
    lvPlaySlots = listView(client, {{"Name", 1440, false}, {"Slot", 800, true}, {"Formation", 2000, false},
                                    {"Play 1", 700, true}, {"Play 2", 700, true}, {"Play 3", 700, true},
                                    {"Play 4", 700, true}, {"Play 5", 700, true}, {"Play 6", 700, true},
                                    {"Play 7", 700, true}, {"Play 8", 700, true}, {"Slot #", 700, true}});
    fraPlaySlots = buttonBar(client);
    cmdCopyPlaySlot = button("Copy", fraPlaySlots, 240, 60);
    cmdSwapPlaySlot = button("Swap", fraPlaySlots, 1560, 60);
    cmdPlaySlotDetails = button("Show Details", fraPlaySlots, 2880, 60);
    cmdCopyPlaySlot->setEnabled(false);  // until a slot is selected
    cmdSwapPlaySlot->setEnabled(false);
    cmdCopyPlaySlot->setToolTip("Copy the selected slot over the slot you click next");
    cmdSwapPlaySlot->setToolTip("Swap the selected slot with the slot you click next");
    cmdPlaySlotDetails->setToolTip("Show or hide the picture of the selected slot's play");
    connect(cmdCopyPlaySlot, &QPushButton::clicked, this, [this] { cmdCopyPlaySlot_Click(); });
    connect(cmdSwapPlaySlot, &QPushButton::clicked, this, [this] { cmdSwapPlaySlot_Click(); });
    connect(cmdPlaySlotDetails, &QPushButton::clicked, this, [this] { cmdPlaySlotDetails_Click(); });
    fraPlayDetails = new QFrame(client);
    fraPlayDetails->setFrameShape(QFrame::Box);
    fraPlayDetails->resize(fraPlayDetails->width(), pixels(kPlayDetailsHeight));
    picPlay = new PictureBox(pixels(kPicPlayWidth), pixels(kPicPlayHeight), fraPlayDetails);
    picPlay->move(pixels(120), pixels(240));
    cmbPlay = new QComboBox(fraPlayDetails);
    cmbPlay->setGeometry(pixels(5200), pixels(240), pixels(1800), pixels(315));
    cmbPlay->setToolTip("Which of the slot's eight plays the picture shows (offensive:defensive play numbers)");
    connect(cmbPlay, &QComboBox::activated, this, [this](int) { ctx_.host.refreshPictures(); });
    // The keyboard draws the slot; a pending copy or swap waits for a click or Enter.
    connectClicks(lvPlaySlots, [this] { lvPlaySlots_Click(); }, [this] {
        updatePlayChoice();
        ctx_.host.refreshPictures();
    });
    connect(lvPlaySlots, &QTreeWidget::itemActivated, this, [this] { lvPlaySlots_Click(); });
    lvPlaySlots->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(lvPlaySlots, &QWidget::customContextMenuRequested, this, [this](const QPoint& pos) {
        const int row = lvPlaySlots->indexOfTopLevelItem(lvPlaySlots->itemAt(pos));
        if (row < 0 || !ctx_.pb().openComplete) return;
        QMenu menu(lvPlaySlots);
        QAction* exportSlot = menu.addAction("Export Slot...");
        if (menu.exec(lvPlaySlots->viewport()->mapToGlobal(pos)) == exportSlot) ctx_.host.exportSlot(row);
    });
    // Escape in the list ends a pending Copy or Swap, as its Cancel button does.
    auto* cancel = new QAction(lvPlaySlots);
    cancel->setShortcut(Qt::Key_Escape);
    cancel->setShortcutContext(Qt::WidgetShortcut);
    connect(cancel, &QAction::triggered, this, [this] {
        if (slotAction == SlotAction::None) return;
        slotAction = SlotAction::None;
        updatePlaySlotButtons();
        ctx_.say("Cancelled.");
    });
    lvPlaySlots->addAction(cancel);
}

void PlaySlotsTab::updatePlaySlotButtons() {
    cmdCopyPlaySlot->setText("Copy");
    cmdSwapPlaySlot->setText("Swap");
    cmdPlaySlotDetails->setText(showPlaySlotDetails ? "Hide Details" : "Show Details");
    ctx_.say("");
    const QString sourceName = slotActionSource >= 0 && slotActionSource < kSlotCount
                                   ? QString::fromLatin1(ctx_.pb().playSlots[static_cast<size_t>(slotActionSource)].name())
                                   : QString();
    if (slotAction == SlotAction::None) {
        const bool selected = selectedRow(lvPlaySlots) >= 0;
        cmdCopyPlaySlot->setEnabled(selected);
        cmdSwapPlaySlot->setEnabled(selected);
    } else {
        const bool copy = slotAction == SlotAction::Copy;
        QPushButton* pending = copy ? cmdCopyPlaySlot : cmdSwapPlaySlot;
        ctx_.say(QString("Select the slot to be %1 with ").arg(copy ? "replaced" : "swapped") + sourceName + "...");
        pending->setText(copy ? "Cancel Copy" : "Cancel Swap");
        pending->setEnabled(true);
        (copy ? cmdSwapPlaySlot : cmdCopyPlaySlot)->setEnabled(false);
    }
}

void PlaySlotsTab::startOrCancelSlotAction(SlotAction action) {
    if (slotAction == SlotAction::None) {
        slotActionSource = selectedRow(lvPlaySlots);
        // A slot the filter hides is no source: the user would copy what the list does not show.
        const QTreeWidgetItem* source = slotActionSource >= 0 ? lvPlaySlots->topLevelItem(slotActionSource) : nullptr;
        slotAction = source && !source->isHidden() ? action : SlotAction::None;
        // The target is picked in the list: by a click, or the arrow keys and Enter.
        if (slotAction != SlotAction::None) lvPlaySlots->setFocus();
    } else if (slotAction == action) {
        slotAction = SlotAction::None;
    }
    updatePlaySlotButtons();
}

void PlaySlotsTab::cmdCopyPlaySlot_Click() { startOrCancelSlotAction(SlotAction::Copy); }
void PlaySlotsTab::cmdSwapPlaySlot_Click() { startOrCancelSlotAction(SlotAction::Swap); }

void PlaySlotsTab::cmdPlaySlotDetails_Click() {
    showPlaySlotDetails = !showPlaySlotDetails;
    ctx_.host.relayout();
}

void PlaySlotsTab::showSlots(const SlotStates& states) {
    for (const auto& [s, fields] : states) lvPlaySlots_refreshRow(s);
    updatePlayChoice();
    ctx_.host.refreshPictures();
}

void PlaySlotsTab::lvPlaySlots_refreshRow(int row) {
    if (row < 0 || row >= kSlotCount) return;
    setRowCells(lvPlaySlots, row, playSlotRow(ctx_.pb(), row));
}

void PlaySlotsTab::lvPlaySlots_Click() {
    Playbook& pb = ctx_.pb();
    const int t = selectedRow(lvPlaySlots);
    QString done;  // what the status bar says afterwards
    if (slotAction != SlotAction::None) {
        // A click that leaves no row selected ends the pending action with no change.
        if (t >= 0) {
            const bool swap = slotAction == SlotAction::Swap;
            SlotStates before;
            for (int s : {slotActionSource, t})
                if (s >= 0 && s < kSlotCount) before.emplace_back(s, pb.playSlots[static_cast<size_t>(s)]);
            const SlotActionResult result = swap ? swapSlot(pb, slotActionSource, t) : copySlot(pb, slotActionSource, t);
            switch (result.outcome) {
            case SlotActionOutcome::KindMixed:
                slotAction = SlotAction::None;
                updatePlaySlotButtons();
                updatePlayChoice();
                ctx_.host.refreshPictures();  // the selection moved: the picture shows it
                ctx_.dialogs.message({kKindRefusedMessage, "Information", MsgIcon::Information, MsgButtons::Ok, MsgAnswer::Ok});
                return;
            case SlotActionOutcome::SameSlot:
                ctx_.dialogs.message({kActionCancelledMessage, "Cancel", MsgIcon::Information, MsgButtons::Ok, MsgAnswer::Ok});
                break;
            case SlotActionOutcome::Done: {
                SlotStates after;
                for (const auto& [s, fields] : before) after.emplace_back(s, pb.playSlots[static_cast<size_t>(s)]);
                const QString from = QString::fromStdString(slotName(slotActionSource)), to = QString::fromStdString(slotName(t));
                ctx_.doc.perform({(swap ? "Swap " + from + " and " + to : "Copy " + from + " over " + to).toStdString(),
                                  {{EditState::ofSlots(before), EditState::ofSlots(after)}}});
                done = (swap ? "Swapped " + from + " and " + to : "Copied " + from + " over " + to) + ", not saved yet.";
                break;
            }
            }
        }
    }
    updatePlayChoice();
    ctx_.host.refreshPictures();
    slotAction = SlotAction::None;
    updatePlaySlotButtons();
    if (!done.isEmpty()) ctx_.say(done);
}

void PlaySlotsTab::updatePlayChoice() {
    const int keep = std::max(cmbPlay->currentIndex(), 0);
    cmbPlay->clear();
    const int s = ctx_.pb().openComplete ? selectedRow(lvPlaySlots) : -1;
    cmbPlay->setEnabled(s >= 0);
    if (s < 0) return;
    const clsPlaySlot& slot = ctx_.pb().playSlots[static_cast<size_t>(s)];
    for (int k = 0; k < kPlaysPerSlot; ++k)
        cmbPlay->addItem(QString("Play %1  %2:%3").arg(k + 1).arg(QString::fromStdString(hex2(slot.oPlay(k))))
                             .arg(QString::fromStdString(hex2(slot.dPlay(k)))));
    cmbPlay->setCurrentIndex(keep);
}

void PlaySlotsTab::drawPicture(const clsSequence* working) {
    constexpr uint32_t kEmptyPicture = 0xF0F0F0;  // the face colour of an empty picture box
    const int s = ctx_.pb().openComplete ? selectedRow(lvPlaySlots) : -1;
    ScaledCanvas play(picPlay->canvas(), scale_);
    DrawOptions options;
    options.workingCopy = working;
    if (s >= 0) DrawPlay(play, ctx_.pb(), s, std::max(cmbPlay->currentIndex(), 0), options);
    else picPlay->canvas().clear(kEmptyPicture);
    picPlay->update();
}

bool PlaySlotsTab::setScale(int scale) {
    const bool changed = scale != scale_;
    if (changed) {
        scale_ = scale;
        picPlay->resizeCanvas(pixels(kPicPlayWidth) * scale_, pixels(kPicPlayHeight) * scale_);
    }
    cmbPlay->move(picPlay->x() + picPlay->width() + pixels(200), pixels(240));
    return changed;
}

void PlaySlotsTab::fill(const std::vector<ListRow>& rows) {
    addRows(lvPlaySlots, rows);
    for (int r = 0; r < lvPlaySlots->topLevelItemCount(); ++r) {  // the slot's number, as the status bar and zpe name it
        lvPlaySlots->topLevelItem(r)->setText(kSlotNumberColumn, QString::number(r));
        lvPlaySlots->topLevelItem(r)->setTextAlignment(kSlotNumberColumn, Qt::AlignRight | Qt::AlignVCenter);
    }
    fitColumns(lvPlaySlots);
}

}  // namespace zpe
