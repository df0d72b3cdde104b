// The Formations tab: the list of formations and the formation diagram.
#include "diagram/diagram.h"
#include "model/tables.h"
#include "ui/frm_main.h"
#include "ui/picture_box.h"

#include <QPushButton>
#include <QTreeWidget>

namespace zpe {

void frmMain::lvFormations_Click() {
    updateFormationButtons();
    const int row = selectedRow(lvFormations);
    if (row < 0) return;
    followSelection();
    ScaledCanvas canvas(picFormation->canvas(), formationScale_);
    const std::vector<int> missing = drawFormation(canvas, pb, row);
    picFormation->update();
    for (int player : missing)
        dialogs_.message({"Unable to find the sequence for " + QString::fromLatin1(offPosNames[static_cast<size_t>(player)]),
                          "Warning!", MsgIcon::Exclamation, MsgButtons::Ok, MsgAnswer::Ok});
}

void frmMain::cmdFormationViewGFX_Click() {
    showFormationGFX = !showFormationGFX;
    UpdateTabs();
}

void frmMain::updateFormationButtons() {
    cmdFormationViewGFX->setText(showFormationGFX ? "Hide GFX" : "View GFX");
    // "Hide GFX" stays usable while the graphics show, with or without a selection.
    cmdFormationViewGFX->setEnabled(selectedRow(lvFormations) >= 0 || showFormationGFX);
}

}  // namespace zpe
