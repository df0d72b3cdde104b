// The Play Slots tab: the 64 slots, their play diagram, copy and swap.
#include "diagram/diagram.h"
#include "playbook/slot_actions.h"
#include "ui/frm_main.h"
#include "ui/picture_box.h"

#include <QUndoStack>

#include <QComboBox>
#include <QLabel>

#include <algorithm>
#include <QPushButton>
#include <QTreeWidget>

namespace zpe {

void frmMain::DrawPlay(PictureBox* pic, int slotIndex) {
    ScaledCanvas canvas(pic->canvas(), pic == picPlay ? playScale_ : 1);
    zpe::DrawPlay(canvas, pb, slotIndex, pic == picPlay ? std::max(cmbPlay->currentIndex(), 0) : 0);
    pic->update();
}

void frmMain::updatePlaySlotButtons() {
    cmdCopyPlaySlot->setText("Copy");
    cmdSwapPlaySlot->setText("Swap");
    cmdPlaySlotDetails->setText(showPlaySlotDetails ? "Hide Details" : "Show Details");
    StatusBar1->setText("");
    const QString sourceName = slotActionSource >= 0 && slotActionSource < kSlotCount
                                   ? QString::fromLatin1(pb.playSlots[static_cast<size_t>(slotActionSource)].name())
                                   : QString();
    if (slotAction == SlotAction::None) {
        const bool selected = selectedRow(lvPlaySlots) >= 0;
        cmdCopyPlaySlot->setEnabled(selected);
        cmdSwapPlaySlot->setEnabled(selected);
    } else {
        const bool copy = slotAction == SlotAction::Copy;
        QPushButton* pending = copy ? cmdCopyPlaySlot : cmdSwapPlaySlot;
        StatusBar1->setText(QString("Select the slot to be %1 with ").arg(copy ? "replaced" : "swapped") + sourceName + "...");
        pending->setText(copy ? "Cancel Copy" : "Cancel Swap");
        pending->setEnabled(true);
        (copy ? cmdSwapPlaySlot : cmdCopyPlaySlot)->setEnabled(false);
    }
}

void frmMain::startOrCancelSlotAction(SlotAction action) {
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

void frmMain::cmdCopyPlaySlot_Click() { startOrCancelSlotAction(SlotAction::Copy); }
void frmMain::cmdSwapPlaySlot_Click() { startOrCancelSlotAction(SlotAction::Swap); }

void frmMain::cmdPlaySlotDetails_Click() {
    showPlaySlotDetails = !showPlaySlotDetails;
    UpdateTabs();
}

void frmMain::showSlots(const SlotStates& states) {
    for (const auto& [s, fields] : states) lvPlaySlots_refreshRow(s);
    updatePlayChoice();
    refreshPictures();
}

void frmMain::lvPlaySlots_refreshRow(int row) {
    if (row < 0 || row >= kSlotCount) return;
    setRowCells(lvPlaySlots, row, playSlotRow(pb, row));
}

void frmMain::lvPlaySlots_Click() {
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
                refreshPictures();  // the selection moved: the picture shows it
                dialogs_.message({kKindRefusedMessage, "Information", MsgIcon::Information, MsgButtons::Ok, MsgAnswer::Ok});
                return;
            case SlotActionOutcome::SameSlot:
                dialogs_.message({kActionCancelledMessage, "Cancel", MsgIcon::Information, MsgButtons::Ok, MsgAnswer::Ok});
                break;
            case SlotActionOutcome::Done: {
                SlotStates after;
                for (const auto& [s, fields] : before) after.emplace_back(s, pb.playSlots[static_cast<size_t>(s)]);
                const QString from = QString::fromStdString(slotName(slotActionSource)), to = QString::fromStdString(slotName(t));
                doc_.perform({(swap ? "Swap " + from + " and " + to : "Copy " + from + " over " + to).toStdString(),
                             {{EditState::ofSlots(before), EditState::ofSlots(after)}}});
                done = (swap ? "Swapped " + from + " and " + to : "Copied " + from + " over " + to) + ", not saved yet.";
                break;
            }
            }
        }
    }
    updatePlayChoice();
    refreshPictures();
    slotAction = SlotAction::None;
    updatePlaySlotButtons();
    if (!done.isEmpty()) StatusBar1->setText(done);
}

}  // namespace zpe
