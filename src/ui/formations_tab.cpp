// The Formations tab: the list of formations and the formation diagram.
#include "ui/formations_tab.h"

#include "diagram/diagram.h"
#include "model/tables.h"
#include "ui/list_view.h"
#include "ui/picture_box.h"

#include <QFrame>
#include <QPushButton>
#include <QTreeWidget>

namespace zpe {

FormationsTab::FormationsTab(const TabContext& context, QWidget* client) : QObject(client), ctx_(context) {
    // The players' columns carry the names the diagram's legend, Used by and zpe give them (positionName).
    lvFormations = listView(client, {{"Formation", 1440, false}, {"QB", 1440, true}, {"RB", 1440, true},
                                     {"FB", 1440, true}, {"WR1", 1440, true}, {"WR2", 1440, true}, {"TE", 1440, true},
                                     {"C", 1440, true}, {"LG", 1440, true}, {"RG", 1440, true}, {"LT", 1440, true},
                                     {"RT", 1440, true}});
    fraFormationButtons = buttonBar(client);
    cmdFormationViewGFX = button("View GFX", fraFormationButtons, 2880, 60);
    connect(cmdFormationViewGFX, &QPushButton::clicked, this, [this] { cmdFormationViewGFX_Click(); });
    cmdFormationViewGFX->setToolTip("Show or hide the picture of the selected formation");
    picFormation = new PictureBox(pixels(kPicFormationWidth), pixels(kPicFormationHeight), client);
}

void FormationsTab::lvFormations_Click() {
    updateFormationButtons();
    const int row = selectedRow(lvFormations);
    if (row < 0) return;
    ctx_.host.refreshPictures();  // the picture and the big diagram follow the selection
    for (int player : missing_)
        ctx_.dialogs.message({"Unable to find the sequence for " + QString::fromLatin1(offPosNames[static_cast<size_t>(player)]),
                              "Warning!", MsgIcon::Exclamation, MsgButtons::Ok, MsgAnswer::Ok});
}

void FormationsTab::cmdFormationViewGFX_Click() {
    showFormationGFX = !showFormationGFX;
    ctx_.host.relayout();
}

void FormationsTab::updateFormationButtons() {
    cmdFormationViewGFX->setText(showFormationGFX ? "Hide GFX" : "View GFX");
    // "Hide GFX" stays usable while the graphics show, with or without a selection.
    cmdFormationViewGFX->setEnabled(selectedRow(lvFormations) >= 0 || showFormationGFX);
}

void FormationsTab::drawPicture(const clsSequence* working) {
    constexpr uint32_t kEmptyPicture = 0xF0F0F0;  // the face colour of an empty picture box
    const int f = ctx_.pb().openComplete ? selectedRow(lvFormations) : -1;
    ScaledCanvas canvas(picFormation->canvas(), scale_);
    missing_.clear();
    if (f >= 0) missing_ = drawFormation(canvas, ctx_.pb(), f, working);
    else picFormation->canvas().clear(kEmptyPicture);
    picFormation->update();
}

bool FormationsTab::setScale(int scale) {
    if (scale == scale_) return false;
    scale_ = scale;
    picFormation->resizeCanvas(pixels(kPicFormationWidth) * scale_, pixels(kPicFormationHeight) * scale_);
    return true;
}

void FormationsTab::fill(const std::vector<ListRow>& rows) {
    // An open narrows the formation columns to 700 twips, as far as their addresses allow.
    QVariantList design = lvFormations->property("designWidths").toList();
    for (int c = 1; c <= 11 && c < design.size(); ++c) design[c] = pixels(700);
    lvFormations->setProperty("designWidths", design);
    addRows(lvFormations, rows);
    fitColumns(lvFormations);
}

void FormationsTab::refreshRows(const std::vector<ListRow>& rows) {
    for (size_t f = 0; f < rows.size(); ++f) setRowCells(lvFormations, static_cast<int>(f), rows[f]);
    fitColumns(lvFormations);
}

}  // namespace zpe
