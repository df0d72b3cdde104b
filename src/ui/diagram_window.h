#pragma once
// The big diagram: a resizable window ("Diagram", one at a time, not modal)
// that draws the selected formation or slot play scaled to its size, with
// antialiasing, each player named by position and a legend of the colours.
// For a slot a selector picks which of its eight plays is drawn; "Save
// Picture..." writes the drawing as PNG at the window's size.
// A slot's play is also edited here: a click on a player's point shows his
// points as handles and picks that point's command; dragging a handle (or
// the arrow keys) moves the point, the lines following live, and the release
// hands the move to the main window, which makes it one undo step. "Play"
// animates the paths a segment a step; "Save Animation..." writes a GIF.
#include "diagram/diagram.h"
#include "playbook/playbook.h"
#include "ui/dialogs.h"

#include <QImage>
#include <QWidget>
#include <functional>

class QComboBox;
class QScrollArea;
class QLabel;
class QPushButton;
class QSlider;
class QTimer;

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
    int slot() const;
    int play() const;
    // The editor panel's working copy, drawn in place of its sequence (none: nothing pending).
    void setWorkingCopy(const clsSequence* seq);
    // The command selected in the editor panel: its point is marked.
    void highlightCommand(SeqKey sequence, int command);
    // The drawing at the view's present size.
    QImage picture() const;
    void savePicture();
    // The animation: steps 0 (placements) to animationSteps(); -1 draws everything.
    int animationSteps() const;
    void showStep(int step);
    void saveAnimation();
    // The drawing's size as a multiple of the view's (1: it fits the window;
    // larger scrolls), 1 to 4. Ctrl+= and Ctrl+- (or Ctrl and the wheel) step it, Ctrl+0 fits.
    void setZoom(double zoom);
    double zoom() const { return zoom_; }

    // A point was picked (player 0..10 and the point); a point was moved to
    // data (a, b) of its command. Set by the main window.
    std::function<void(int player, const DiagramPoint& point)> onPick;
    std::function<void(int player, const DiagramPoint& point, int a, int b)> onMove;

private:
    void refresh();
    // What is drawn: "SWEEP RIGHT — play 5 (21:35)" or "PRO T — formation 4"; "" for nothing.
    QString subject() const;

    const Playbook& pb_;
    Dialogs& dialogs_;
    QComboBox* plays_;
    QLabel* playsLabel_;
    QLabel* said_;
    QPushButton *save_, *play_, *saveAnimation_;
    QSlider* steps_;
    QTimer* timer_;
    DiagramView* view_;
    QScrollArea* scroll_;
    double zoom_ = 1;

protected:
    void resizeEvent(QResizeEvent* event) override;
};

}  // namespace zpe
