#pragma once
// The Play Slots tab: the 64 slots, Copy and Swap (the next slot picked is
// the target), and the picture of a slot's play with its play chooser.
#include "playbook/list_rows.h"
#include "ui/tab_host.h"

#include <QObject>

class QComboBox;
class QFrame;
class QPushButton;
class QTreeWidget;
class QWidget;

namespace zpe {

class PictureBox;

// A pending slot action: the next slot picked in the list is its target.
enum class SlotAction { None, Copy, Swap };

class PlaySlotsTab : public QObject {
public:
    PlaySlotsTab(const TabContext& context, QWidget* client);

    void lvPlaySlots_Click();
    void cmdCopyPlaySlot_Click();
    void cmdSwapPlaySlot_Click();
    void cmdPlaySlotDetails_Click();
    void updatePlaySlotButtons();
    // Fills the play chooser with the selected slot's eight plays (the chosen one kept).
    void updatePlayChoice();
    // The slots an edit or an undo put back, shown anew.
    void showSlots(const SlotStates& states);
    // Draws the selected slot's chosen play (with `working` in place of the sequence it edits); empty without a selection.
    void drawPicture(const clsSequence* working);
    // The picture's size in multiples of its design size; true when it changed. The chooser stays beside it.
    bool setScale(int scale);
    void fill(const std::vector<ListRow>& rows);
    // A pending Copy or Swap ends (another tab shown, the layout redone).
    void cancelSlotAction() { slotAction = SlotAction::None; }

    QTreeWidget* lvPlaySlots;
    QFrame *fraPlaySlots, *fraPlayDetails;
    QPushButton *cmdCopyPlaySlot, *cmdSwapPlaySlot, *cmdPlaySlotDetails;
    PictureBox* picPlay;
    QComboBox* cmbPlay;  // which of the slot's eight plays picPlay draws
    bool showPlaySlotDetails = false;
    SlotAction slotAction = SlotAction::None;
    int slotActionSource = -1;  // row of the pending action's source
    static constexpr int kSlotNumberColumn = 11;  // the slot's number, after the eight plays

private:
    void startOrCancelSlotAction(SlotAction action);
    void lvPlaySlots_refreshRow(int row);
    TabContext ctx_;
    int scale_ = 1;
};

}  // namespace zpe
