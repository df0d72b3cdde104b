#pragma once
// The Formations tab: the list of formations, its "View GFX" button and the
// formation's picture.
#include "playbook/list_rows.h"
#include "ui/tab_host.h"

#include <QObject>

class QFrame;
class QPushButton;
class QTreeWidget;
class QWidget;

namespace zpe {

class PictureBox;

class FormationsTab : public QObject {
public:
    FormationsTab(const TabContext& context, QWidget* client);

    void lvFormations_Click();
    void cmdFormationViewGFX_Click();
    void updateFormationButtons();
    // Draws the selected formation (its sequences with `working` in place of the one it edits); empty without a selection.
    void drawPicture(const clsSequence* working);
    // The picture's size in multiples of its design size; true when it changed.
    bool setScale(int scale);
    void fill(const std::vector<ListRow>& rows);
    void refreshRows(const std::vector<ListRow>& rows);

    QTreeWidget* lvFormations;
    QFrame* fraFormationButtons;
    QPushButton* cmdFormationViewGFX;
    PictureBox* picFormation;
    bool showFormationGFX = false;

private:
    TabContext ctx_;
    int scale_ = 1;
    std::vector<int> missing_;  // the players the last picture found no sequence for
};

}  // namespace zpe
