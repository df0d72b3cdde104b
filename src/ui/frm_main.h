#pragma once
// The main window: menu bar, the tab strip with its four tabs laid over its
// display area, the status bar. It holds the window's state and calls the core
// for every rule about the playbook. The handlers keep the names of the
// controls and events they answer (control_Event).
#include "analysis/entries.h"
#include "diagram/diagram.h"
#include "playbook/list_rows.h"
#include "save/document.h"
#include "playbook/playbook.h"
#include "save/save_changes.h"
#include "sequence/catalogue.h"
#include "sequence/command_panel.h"
#include "sequence/command_sheet.h"
#include "ui/dialogs.h"
#include "ui/layout.h"

#include <QMainWindow>
#include <array>
#include <memory>

class QAction;
class QComboBox;
class QFrame;
class QLabel;
class QLineEdit;
class QListWidget;
class QListWidgetItem;
class QMenu;
class QPlainTextEdit;
class QPoint;
class QTreeWidgetItem;
class QPushButton;
class QTabBar;
class QTreeWidget;
class QSettings;
class QLineEdit;
class QWidget;
class FrmMainTest;
class SeqPanelTest;
class KeepsWorkTest;

namespace zpe {

class DiagramWindow;
class ListFilter;
class PictureBox;
class UpDown;

// A pending slot action of the Play Slots tab: the next click in the list picks its target.
enum class SlotAction { None, Copy, Swap };

class frmMain : public QMainWindow {
public:
    // `dataDir` holds forms.txt, cmd.txt and cmdinfo/; cpu.txt goes to `cpuDir`
    // (none is written when it is empty).
    frmMain(Dialogs& dialogs, QString dataDir, QString cpuDir, QWidget* parent = nullptr);
    ~frmMain() override;

    // The open procedure after the dialog: reads the image into the model, writes
    // cpu.txt and fills the lists. False when it stopped: no box, the reason in
    // the status bar, the lists empty and saves refused until an open completes.
    bool openImage(const QString& path);
    // The selected tab, 1..4 (the tab strip's own numbering).
    int selectedTab() const;
    void selectTab(int index);
    // Sets the client size (twips) as the window's design size does.
    void setClientSize(int widthTwips, int heightTwips);
    // The size and place the window had when it was last closed (none: the design size stays).
    void restoreWindowGeometry();

    // The handlers, named after the control and event they answer.
    void Form_Resize();
    void tabs_Click();
    void mnuFileOpen_Click();
    void mnuFileSaveChanges_Click();
    void mnuFileSafeSave_Click();
    void mnuFileSave_Click();
    void mnuFileExportMaskROM_Click();
    void mnuFileCheckImage_Click();
    void mnuFileCompact_Click();
    // Compacts, saves every edit into the compacted image and opens it again;
    // true when it wrote.
    bool runCompactAndSave();
    void mnuFileExportPatch_Click();
    void mnuFileExit_Click();
    void mnuHelpAbout_Click();
    void lvFormations_Click();
    void cmdFormationViewGFX_Click();
    void lvPlaySlots_Click();
    void cmdCopyPlaySlot_Click();
    void cmdSwapPlaySlot_Click();
    void cmdPlaySlotDetails_Click();
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

    // 0-based index of the selected row of a list view; -1 when none is selected.
    static int selectedRow(QTreeWidget* list);
    // Selects row `row` (0-based); any other value leaves no row selected.
    static void selectRow(QTreeWidget* list, int row);

protected:
    void closeEvent(QCloseEvent* event) override;
    // Back in the window: a change of the file by another program is said at once, not at the next save.
    void changeEvent(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    // The window tests and the screenshot writer look at the controls and the state.
    friend class ::FrmMainTest;
    friend class ::SeqPanelTest;
    friend class ::KeepsWorkTest;
    friend QStringList writeScreenshots(const QString& imagePath, const QString& dir, const QString& dataDir);

    // With unsaved changes, asks whether to save them first (Save / Discard /
    // Cancel). True when the caller may go on: nothing unsaved, Discard, or a
    // Save that succeeded.
    bool maybeKeepChanges();
    // Save, reporting a refusal; true when it wrote.
    bool runSave();
    // Save As: the edited image into a new file, which the window then works on.
    bool runSaveAs();
    // What the window offers, by the refusal's kind, when a save (titled
    // `title`) did not write: Compact and Save when no free run was large
    // enough; Save As when the file changed on disk or could not be read,
    // locked or replaced; else the reason alone. True when the offer wrote.
    bool saveRefused(const QString& title, const std::exception& e);
    // Says once (until the next open or save) that the file changed on disk or
    // is gone; the edits stay in the window either way.
    void noticeChangeOnDisk();
    bool changeNoticed_ = false;
    // The name a save dialog proposes: the image's own, in its folder, with `ending` ("image (edited).nes").
    QString besideImage(const QString& ending) const;
    // The program's settings: the recent files, the window's geometry.
    std::unique_ptr<QSettings> settings() const;
    // The recent files (File > Open Recent), newest first, at most eight, kept in the settings.
    QStringList recentFiles() const;
    void rememberRecent(const QString& path);
    void updateRecentMenu();
    // After a save opened the image again: lists, what is in the file, and the
    // selections kept; the history too when `keepHistory`.
    void afterSave(const SaveSummary& summary, bool keepHistory);
    // Every change not in the file: slots, entries, applied sequence edits, and
    // the editor panel's working copy when it differs from its sequence.
    bool unsavedWork() const;
    bool workingCopyEdited() const;
    // The caption's modified marker follows unsavedWork().
    void refreshModified();
    // Stores the working copy into its sequence as one undo step, when it was edited.
    void applyWorkingCopy();
    // A typed or listed value into the working copy, as an undo step.
    void editWorkingValue(int index, int16_t value);
    // Records an edit already made to the working copy (`before` the state
    // before it) as an undo step and shows `row` selected.
    void pushWorkingCopyStep(const QString& text, const clsSequence& before, int row);
    // The caption: the program and the image's file name with the modified marker.
    void updateCaption();
    // Shows a part of the document an undo or redo put back (or an edit made).
    void showPut(const EditState& state);
    void showSlots(const SlotStates& states);
    void showSequence(int32_t key);
    void showWorkingCopy();
    void showEntries();
    // The Edit menu follows the history: what Undo and Redo would do.
    void updateUndoActions();
    // The row of the Sequences list that shows `address`; -1 when none does.
    int sequenceRow(int32_t address) const;
    // The big diagram follows the selection of the list it was opened from.
    void openDiagram(bool slot);
    void followSelection();
    void UpdateTabs();
    void updateMenuBar();
    void updateFormationButtons();
    void updatePlaySlotButtons();
    void lvPlaySlots_refreshRow(int row);
    void DrawPlay(PictureBox* pic, int slotIndex);
    // Draws both pictures (and the big diagram) from the model as it is now:
    // the selected formation, the selected slot's chosen play; empty without a selection.
    void refreshPictures();
    // Fills the play selector with the selected slot's eight plays.
    void updatePlayChoice();
    // The editor panel's command list takes `extra` twips more height; the controls under it move down.
    void growSeqDetails(int extra);
    void lstSeqCommands_update();
    // A command's row in the editor panel: "A123: Move Relative (L-10)".
    QString commandItemText(int i) const;
    void lstSeqCommands_refresh();
    // Empties the panel and disables "Apply" (a new image, a relaid one).
    void clearSeqPanel();
    void startOrCancelSlotAction(SlotAction action);
    void buildMenus();
    void buildFormationsTab();
    void buildPlaySlotsTab();
    void buildPlaysTab();
    void buildSequencesTab();
    void buildSeqDetailsPanel();
    void Form_Load();
    QWidget* control(Ctl c) const;
    void hideTabControls();
    void fillLists(const ListRows& rows);
    // Shows `pb` anew after it was read from the image: lists, panel, menus.
    void showPlaybook();
    void clearLists();
    // After Full Save: the lists that show sequence addresses show the new ones.
    void refreshAddressLists();
    void setRowCells(QTreeWidget* list, int index, const ListRow& row);
    void reportFailure(const QString& title, const std::exception& error);
    // --- Entries: who uses a sequence, which sequence a player runs ---
    // "play 35 (23) QB", "formation 2 QB", "pointer 17": AreaEntry::name, as zpe says it.
    QString entryText(const AreaEntry& e) const;
    // The Used by list of the editor panel: every entry naming the panel's sequence, and the game's jumps into it.
    void updateUsedBy();
    void lstSeqUsedBy_DoubleClick(QListWidgetItem* item);
    // The entry a cell of the Plays or Formations list shows (a player column); none elsewhere.
    std::optional<AreaEntry> entryOfCell(QTreeWidget* list, QTreeWidgetItem* item, int column) const;
    // Selects sequence `key` in the Sequences tab with the editor panel shown (its unapplied edits kept when it
    // is the panel's sequence already); false when it is not there or the user stayed on another edited one.
    bool showInPanel(int32_t key);
    // Shows the entry's sequence in the editor panel, reached from that entry (Apply then asks before changing a shared one).
    void showEntrySequence(const AreaEntry& e);
    void entryMenu(QTreeWidget* list, const QPoint& pos);
    // Lets the user pick what the entry runs: another sequence, a new copy of its own, a new empty one.
    void pointEntryAt(const AreaEntry& e);
    // Records an entry change already made to `pb` as an undo step and shows it.
    // `panel`: the working copy before and after, when the same step changed it (a copy taking the panel's edits).
    using PanelChange = std::optional<std::pair<clsSequence, clsSequence>>;
    void pushEntriesStep(const QString& text, const EntriesState& before, const PanelChange& panel = std::nullopt);
    // Gives the entry its own copy of the sequence it runs, holding `contents` (edited commands of it) or the
    // sequence as it is: one undo step, shown in the editor panel. False, said in the status bar, when it cannot
    // be copied (the game reads a COM pass or 0xF1 with other lengths). `what` ends the status line.
    bool giveOwnCopy(const AreaEntry& entry, const clsSequence* contents, const QString& what, const PanelChange& panel = std::nullopt);
    // The one road from the panel's edits into the playbook, taken by Apply,
    // Enter, every save and every prompt that applies: a shared sequence
    // reached from a play or formation asks "Used by" once (a copy for that
    // entry alone, the default, or all of them). False when the user cancels:
    // the edits stay in the panel and whatever asked goes no further.
    bool commitWorkingCopy(const QString& title);
    // The Plays, Formations and Sequences lists after entries or new sequences changed; the selection stays.
    void refreshEntryLists();
    // --- Editing on the big diagram ---
    // The entry of the diagram's slot play that names `key` directly for `player` (his play's or formation's entry).
    std::optional<AreaEntry> entryOfPoint(int player, int32_t key) const;
    // A point picked on the diagram: its command selected in the Sequences editor, reached from that entry.
    void diagramPick(int player, const DiagramPoint& point);
    // A point moved on the diagram to data (a, b) of its command: one undo step (asking first for a shared sequence).
    void diagramMove(int player, const DiagramPoint& point, int a, int b);
    // The selected sequence's address, or none.
    std::optional<int32_t> selectedSequenceAddress() const;
    // The display area of the tab strip, in twips.
    TwipRect tabClient() const;
    // The form's client size in twips (ScaleWidth, ScaleHeight: the area below
    // the menu bar, status bar included).
    int scaleWidth() const;
    int scaleHeight() const;

    // --- State ---
    // The document: the playbook, what the file holds, the working copy, the
    // history. The names below are the window's views of its parts.
    Document doc_;
    Playbook& pb = doc_.pb;
    clsSequence& curSeq = doc_.workingCopy;  // the sequence editor's working copy
    Playbook& inFile_ = doc_.inFile;         // what the image file holds
    CmdNames cmdNames;
    CommandSheets sheets_;
    SlotAction slotAction = SlotAction::None;
    int slotActionSource = -1;  // row of the pending action's source
    bool showFormationGFX = false;
    bool showPlaySlotDetails = false;
    bool showSeqDetails = false;
    std::vector<uint8_t> openedImage_;  // the image as File > Open read it (what an IPS patch is made against)
    DiagramWindow* diagram_ = nullptr;  // the big diagram, when open
    bool diagramForSlot_ = false;
    QTreeWidget* pressedList_ = nullptr;  // a list the mouse is pressed on: its click handles the selection
    bool updatingDetails = false;  // the panel is filling itself: changes are not edits
    std::optional<AreaEntry> reachedFrom_;  // the play's or formation's entry the panel's sequence was opened from

    // --- Controls ---
    QAction *mnuEditUndo, *mnuEditRedo, *mnuFileExportPatch;
    QMenu* mnuFileRecent;
    QString settingsPath_;  // an INI file for the settings; empty: the platform's place (tests set one)
    bool windowsWhereTheyWere_ = false;  // restoreWindowGeometry ran: the Diagram window opens where it was too
    QAction *mnuFileOpen, *mnuFileSaveChanges, *mnuFileSaveAs, *mnuFileSafeSave, *mnuFileSave, *mnuFileCompact, *mnuFileExportMaskROM,
        *mnuFileCheckImage, *mnuFileExit,
        *mnuHelpAbout;
    QWidget* client;  // the form's client area below the menu bar
    QFrame* tabsFrame;
    QTabBar* tabs;
    QLineEdit* filterBox_;     // filters the shown tab's list
    ListFilter* listFilter_;
    static constexpr int kSlotNumberColumn = 11;  // Play Slots: the slot's number, after the eight plays
    QFrame* tabsPanel;  // the frame drawn under the tab headers
    QTreeWidget *lvFormations, *lvPlaySlots, *lvPlays, *lvSequences;
    QFrame *fraFormationButtons, *fraPlaySlots, *fraPlayDetails, *fraSeq, *fraSeqDetails;
    QPushButton *cmdFormationViewGFX, *cmdCopyPlaySlot, *cmdSwapPlaySlot, *cmdPlaySlotDetails, *cmdSeqDetails;
    PictureBox *picFormation, *picPlay;
    QComboBox* cmbPlay;  // which of the slot's eight plays picPlay draws
    int formationScale_ = 1, playScale_ = 1;  // the pictures' sizes, in multiples of the design size
    QLabel* StatusBar1;
    // The sequence editor panel inside fraSeqDetails.
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

    Dialogs& dialogs_;
    QString dataDir_;
    QString cpuDir_;
};

}  // namespace zpe
