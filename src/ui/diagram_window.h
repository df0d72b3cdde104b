#pragma once
// The big diagram: a resizable window ("Diagram", one at a time, not modal)
// that draws the selected formation or slot play scaled to its size, with
// antialiasing, each player named by position and a legend of the colours.
// For a slot a selector picks which of its eight plays is drawn; "Save
// Picture..." writes the drawing as PNG at the window's size.
#include "playbook/playbook.h"
#include "ui/dialogs.h"

#include <QImage>
#include <QWidget>

class QComboBox;
class QLabel;
class QPushButton;

namespace zpe {

class DiagramView;

class DiagramWindow : public QWidget {
public:
    DiagramWindow(const Playbook& pb, Dialogs& dialogs, QWidget* parent);

    // What the window draws; it follows the main window's selection.
    void showSlot(int slot);
    void showFormation(int formation);
    // The play of the slot shown, 0..7 (the selector's item).
    void choosePlay(int play);
    // The drawing at the view's present size.
    QImage picture() const;
    void savePicture();

private:
    void refresh();
    // What is drawn: "SWEEP RIGHT — play 5 (21:35)" or "PRO T — formation 4"; "" for nothing.
    QString subject() const;

    const Playbook& pb_;
    Dialogs& dialogs_;
    QComboBox* plays_;
    QLabel* playsLabel_;
    QLabel* said_;
    QPushButton* save_;
    DiagramView* view_;
};

}  // namespace zpe
