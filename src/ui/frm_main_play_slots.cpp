// The Play Slots tab: the 64 slots, their play diagram, copy and swap.
#include "diagram/diagram.h"
#include "playbook/slot_actions.h"
#include "ui/frm_main.h"
#include "ui/picture_box.h"

#include <QLabel>
#include <QPushButton>
#include <QTreeWidget>

namespace zpe {

void frmMain::DrawPlay(PictureBox* pic, int slotIndex) {
    zpe::DrawPlay(pic->canvas(), pb, slotIndex);
    pic->update();
}

void frmMain::updatePlaySlotButtons() {
    cmdCopyPlaySlot->setText("Copy");
    cmdSwapPlaySlot->setText("Swap");
    cmdPlaySlotDetails->setText(showPlaySlotDetails ? "Hide Details" : "Show Details");
    StatusBar1->setText("");
    const QString sourceName =
        slotActionSource >= 1 && slotActionSource <= kSlotCount
            ? QString::fromLatin1(pb.playSlots[static_cast<size_t>(slotActionSource - 1)].name())
            : QString();
    if (slotAction == 0) {
        const bool selected = selectedRow(lvPlaySlots) >= 1;
        cmdCopyPlaySlot->setEnabled(selected);
        cmdSwapPlaySlot->setEnabled(selected);
    } else if (slotAction == 1 || slotAction == 2) {
        const bool copy = slotAction == 1;
        QPushButton* pending = copy ? cmdCopyPlaySlot : cmdSwapPlaySlot;
        StatusBar1->setText(QString("Select the slot to be %1 with ").arg(copy ? "replaced" : "swapped") + sourceName + "...");
        pending->setText(copy ? "Cancel Copy" : "Cancel Swap");
        pending->setEnabled(true);
        (copy ? cmdSwapPlaySlot : cmdCopyPlaySlot)->setEnabled(false);
    }
}

void frmMain::startOrCancelSlotAction(int action) {
    if (slotAction == 0) {
        slotActionSource = selectedRow(lvPlaySlots);
        slotAction = slotActionSource >= 1 ? action : 0;
    } else if (slotAction == action) {
        slotAction = 0;
    }
    updatePlaySlotButtons();
}

void frmMain::cmdCopyPlaySlot_Click() { startOrCancelSlotAction(1); }
void frmMain::cmdSwapPlaySlot_Click() { startOrCancelSlotAction(2); }

void frmMain::cmdPlaySlotDetails_Click() {
    showPlaySlotDetails = !showPlaySlotDetails;
    UpdateTabs();
}

void frmMain::lvPlaySlots_refreshRow(int row) {
    if (row < 1 || row > kSlotCount) return;
    setRowCells(lvPlaySlots, row - 1, playSlotRow(pb, row - 1));
}

void frmMain::lvPlaySlots_Click() {
    const int t = selectedRow(lvPlaySlots);
    if (slotAction == 1 || slotAction == 2) {
        // A click that leaves no row selected ends the pending action with no change.
        if (t >= 1) {
            const int ss = slotActionSource - 1, tt = t - 1;
            const SlotActionResult result = slotAction == 2 ? swapSlot(pb, ss, tt) : copySlot(pb, ss, tt);
            switch (result.outcome) {
            case SlotActionOutcome::KindMixed:
                slotAction = 0;
                updatePlaySlotButtons();
                dialogs_.message({kKindRefusedMessage, "Information", MsgIcon::Information, MsgButtons::Ok, MsgAnswer::Ok});
                return;
            case SlotActionOutcome::SameSlot:
                dialogs_.message({kActionCancelledMessage, "Cancel", MsgIcon::Information, MsgButtons::Ok, MsgAnswer::Ok});
                break;
            case SlotActionOutcome::Done:
                for (int s : result.changedSlots) lvPlaySlots_refreshRow(s + 1);
                break;
            }
        }
    }
    if (t >= 1) DrawPlay(picPlay, t - 1);
    slotAction = 0;
    updatePlaySlotButtons();
}

}  // namespace zpe
