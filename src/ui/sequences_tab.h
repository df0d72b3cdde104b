#pragma once
// The Sequences tab: the list of sequences and the editor panel. The panel
// edits the document's working copy of one sequence; Apply (and every save,
// and every prompt that applies) stores it through one road, which asks
// "Used by" once when the sequence was reached from a play or formation that
// shares it. The panel also answers the players' entries (edit a player's
// sequence, point him at another) and the points picked and moved on the big
// diagram.
#include "diagram/diagram.h"
#include "playbook/list_rows.h"
#include "sequence/command_panel.h"
#include "ui/tab_host.h"

#include <QObject>
#include <array>
#include <optional>

class QComboBox;
class QFrame;
class QLabel;
class QLineEdit;
class QListWidget;
class QListWidgetItem;
class QPlainTextEdit;
class QPushButton;
class QTreeWidget;
class QWidget;

namespace zpe {

class UpDown;

class SequencesTab : public QObject {
public:
    SequencesTab(const TabContext& context, QWidget* client);

    // The handlers, named after the control and event they answer.
    void cmdSeqDetails_Click();
    void lvSequences_Click();
    void lstSeqCommands_Click();
    void txtSeqData_Change(int index);
    void cmbCmdData_Click(int index);
    void cmdSeqDelCmd_Click();
    void cmdSeqApply_Click();
    void cmdSeqAddCmd_Click();
    void udSeqCommand_UpClick();
    void udSeqCommand_DownClick();

    // The one road from the panel's edits into the playbook, taken by Apply,
    // Enter, every save and every prompt that applies: a shared sequence
    // reached from a play or formation asks "Used by" once (a copy for that
    // entry alone, the default, or all of them). False when the user cancels:
    // the edits stay in the panel and whatever asked goes no further.
    bool commitWorkingCopy(const QString& title);
    // Before the panel leaves its sequence, or an entry change may take that
    // sequence away: edits not applied yet are applied or discarded as the user
    // answers (Apply, the default, Discard or Cancel). False when the user
    // cancels: the edits stay in the panel and whatever asked goes no further.
    bool leaveWorkingCopy();
    bool workingCopyEdited() const { return ctx_.doc.workingCopyEdited(); }
    // Empties the panel and disables "Apply" (a new image, a relaid one).
    void clearSeqPanel();
    // The selected sequence's key, or none.
    std::optional<SeqKey> selectedSequenceKey() const;
    // The row of the Sequences list that shows `key`; -1 when none does.
    int sequenceRow(SeqKey key) const;
    // Selects sequence `key` with the editor panel shown (its unapplied edits kept when it is the panel's sequence
    // already); false when it is not there or the user stayed on another edited one.
    bool showInPanel(SeqKey key);
    // Shows the entry's sequence in the panel, reached from that entry (Apply then asks before changing a shared one).
    void showEntrySequence(const AreaEntry& e);
    // Lets the user pick what the entry runs: another sequence, a new copy of its own, a new empty one.
    void pointEntryAt(const AreaEntry& e);
    // A point picked on the diagram: its command selected, reached from that entry.
    void diagramPick(int player, const DiagramPoint& point);
    // A point moved on the diagram to data (a, b) of its command: one undo step (asking first for a shared sequence).
    void diagramMove(int player, const DiagramPoint& point, int a, int b);

    // What an undo or redo put back: a stored sequence, the working copy, the entries.
    void showSequence(SeqKey key);
    void showWorkingCopy();
    void showEntries();
    // The panel's command list takes `extra` twips more height; the controls under it move down.
    void growSeqDetails(int extra);
    void fill(const std::vector<ListRow>& rows);
    // The list made anew from `rows` (keys changed or sequences came and went); the selection stays when `keepSelection`.
    void rebuild(const std::vector<ListRow>& rows, bool keepSelection);
    // After a save: sequence `key` (where the selected one now stands) selected again, command `command` with it.
    void reselect(SeqKey key, int command);

    QTreeWidget* lvSequences;
    QFrame *fraSeq, *fraSeqDetails;
    QPushButton* cmdSeqDetails;
    QListWidget* lstSeqCommands;
    UpDown* udSeqCommand;
    std::array<QLabel*, kPanelSlots> lblCmdData{};
    std::array<QLineEdit*, kPanelSlots> txtSeqData{};
    std::array<QLabel*, kPanelSlots> lblCmdMeaning{};  // "= -8": a signed value in decimal
    std::array<QComboBox*, kPanelSlots> cmbCmdData{};
    QPlainTextEdit* txtCmdNotes;
    QLabel* lblSeqUsedBy;
    QListWidget* lstSeqUsedBy;
    QPushButton *cmdSeqDelCmd, *cmdSeqApply, *cmdSeqAddCmd;
    QComboBox* cmbNewSeqCmd;
    bool showSeqDetails = false;

private:
    void buildSeqDetailsPanel();
    // Stores the working copy into its sequence as one undo step, when it was edited.
    void applyWorkingCopy();
    // A typed or listed value into the working copy, as an undo step.
    void editWorkingValue(int index, int16_t value);
    // Records an edit already made to the working copy (`before` the state
    // before it) as an undo step and shows `row` selected.
    void pushWorkingCopyStep(const QString& text, const clsSequence& before, int row);
    void lstSeqCommands_update();
    void lstSeqCommands_refresh();
    // A command's row in the panel: "A123: Move Relative (L-10)".
    QString commandItemText(int i) const;
    // The Used by list: every entry naming the panel's sequence, and the game's jumps into it.
    void updateUsedBy();
    void lstSeqUsedBy_DoubleClick(QListWidgetItem* item);
    // Records an entry change already made to the playbook as an undo step and shows it.
    // `panel`: the working copy before and after, when the same step changed it (a copy taking the panel's edits).
    using PanelChange = std::optional<std::pair<clsSequence, clsSequence>>;
    void pushEntriesStep(const QString& text, const EntriesState& before, const PanelChange& panel = std::nullopt);
    // Gives the entry its own copy of the sequence it runs, holding `contents` (edited commands of it) or the
    // sequence as it is: one undo step, shown in the panel. False, said in the status bar, when it cannot
    // be copied (the game reads a COM pass or 0xF1 with other lengths). `what` ends the status line.
    bool giveOwnCopy(const AreaEntry& entry, const clsSequence* contents, const QString& what, const PanelChange& panel = std::nullopt);
    // The entry of the diagram's slot play that names `key` directly for `player` (his play's or formation's entry).
    std::optional<AreaEntry> entryOfPoint(int player, SeqKey key) const;

    TabContext ctx_;
    Playbook& pb;
    clsSequence& curSeq;  // the document's working copy
    bool updatingDetails = false;  // the panel is filling itself: changes are not edits
    std::optional<AreaEntry> reachedFrom_;  // the play's or formation's entry the panel's sequence was opened from
    bool leaving_ = false;                  // the edits of the sequence left are being applied: the panel goes on to another
};

}  // namespace zpe
