#pragma once
// The main window: a frame around the document. It holds the menu bar, the
// tab strip with its filter box, the status bar and the big diagram window,
// lays the shown tab out, and runs the File, Edit and Help menus. Each tab is
// a controller of its own (FormationsTab, PlaySlotsTab, PlaysTab,
// SequencesTab) that shows and edits the document; whatever reaches across
// tabs the frame answers as their TabHost.
#include "playbook/list_rows.h"
#include "save/document.h"
#include "save/save_changes.h"
#include "sequence/catalogue.h"
#include "sequence/command_sheet.h"
#include "ui/dialogs.h"
#include "ui/layout.h"
#include "ui/tab_host.h"

#include <QImage>
#include <QMainWindow>
#include <memory>
#include <optional>

class QAction;
class QFrame;
class QLabel;
class QLineEdit;
class QMenu;
class QSettings;
class QTabBar;
class QWidget;
class FrmMainTest;
class SeqPanelTest;
class KeepsWorkTest;

namespace zpe {

class DiagramWindow;
class PlayLibrary;
struct LibraryEntry;
class FormationsTab;
class ListFilter;
class PlaySlotsTab;
class PlaysTab;
class SequencesTab;

class frmMain : public QMainWindow, private TabHost {
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
    int selectedTab() const override;
    void selectTab(int index) override;
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

    // The tabs.
    FormationsTab& formations() const { return *formations_; }
    PlaySlotsTab& playSlots() const { return *playSlots_; }
    PlaysTab& plays() const { return *plays_; }
    SequencesTab& sequences() const { return *sequences_; }

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

    // --- What the tabs ask of the frame ---
    void relayout() override { UpdateTabs(); }
    void refreshPictures() override;
    void refreshModified() override;
    DiagramWindow* diagram() const override { return diagram_; }
    void refreshEntryLists() override;
    void editEntry(const AreaEntry& entry) override;
    void pointEntry(const AreaEntry& entry) override;
    void goToEntry(const AreaEntry& entry) override;
    void exportPlay(int play) override;
    void exportSlot(int slot) override;

    // --- Plays and slots between images ---
    void mnuFileImport_Click();
    // Brings the play, slot or playbook file at `path` in: into play or slot
    // `target` (a drop on its row), else where the user says; the picture of
    // what it will be is shown first. One step of the history; true when it came in.
    // `onto`: a drop on a row of Plays ("zpe play") or Play Slots ("zpe slot") takes only that kind of file.
    bool importCarriedFile(const QString& path, std::optional<int> target, const char* onto = nullptr);
    // Where a play goes: the play selected in Plays, or the first play no slot uses; none when cancelled.
    std::optional<int> askPlayTarget();
    // Where a slot goes: a slot of its kind, the one selected in Play Slots first; none when cancelled.
    std::optional<int> askSlotTarget(bool running);
    // The picture of slot `slot`'s play `play` (0..7) of `pb`, at the play picture's size.
    QImage playPicture(const Playbook& pb, int slot, int play) const;
    // What the Play Library shows of a file: read, and drawn over the open image (as if brought in).
    LibraryEntry describeCarriedFile(const QString& path) const;
    void chooseLibraryFolder();

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
    // The selections a save keeps: the lists' rows, the play shown, the sequence and its command.
    struct KeptSelection {
        std::optional<SeqKey> sequence;
        int command = -1, formation = -1, slot = -1, play = -1, chosenPlay = -1;
    };
    KeptSelection keptSelection() const;
    // After a save opened the image again: the lists show what it now holds, with the selections kept.
    void showSaved(const KeptSelection& kept, const SaveSummary& summary);
    // The rows `kept` selected again, and sequence `sequence` (where the kept one now stands) with its command.
    void restoreSelection(const KeptSelection& kept, std::optional<SeqKey> sequence);
    // The caption: the program and the image's file name with the modified marker.
    void updateCaption();
    // Shows a part of the document an undo or redo put back (or an edit made).
    void showPut(const EditState& state);
    // The Edit menu follows the history: what Undo and Redo would do.
    void updateUndoActions();
    // The big diagram follows the selection of the list it was opened from.
    void openDiagram(bool slot);
    void followSelection();
    void UpdateTabs();
    void updateMenuBar();
    void buildMenus();
    QWidget* control(Ctl c) const;
    void hideTabControls();
    // Shows `pb` anew after it was read from the image: lists, panel, menus.
    void showPlaybook();
    // The lists, the panel and the pictures made anew from the model (an import, its undo).
    void showModel();
    void clearLists();
    void reportFailure(const QString& title, const std::exception& error);
    // The display area of the tab strip, in twips.
    TwipRect tabClient() const;
    // The form's client size in twips (ScaleWidth, ScaleHeight: the area below
    // the menu bar, status bar included).
    int scaleWidth() const;
    int scaleHeight() const;

    // --- State ---
    Dialogs& dialogs_;
    QString dataDir_;
    QString cpuDir_;
    // The document: the playbook, what the file holds, the working copy, the
    // history. The names below are the frame's views of its parts.
    Document doc_;
    Playbook& pb = doc_.pb;
    Playbook& inFile_ = doc_.inFile;  // what the image file holds
    CmdNames cmdNames;
    CommandSheets sheets_;
    std::vector<uint8_t> openedImage_;  // the image as File > Open read it (what a patch is made against)
    DiagramWindow* diagram_ = nullptr;  // the big diagram, when open
    bool diagramForSlot_ = false;

    // --- Controls ---
    QAction *mnuEditUndo, *mnuEditRedo, *mnuFileExportPatch, *mnuFileImport;
    PlayLibrary* library_;  // the Play Library, docked at the right
    // The image the library's thumbnails are drawn over (unsaved edits laid out once a refresh; none: no image).
    std::optional<Playbook> libraryBase_;
    QMenu* mnuFileRecent;
    QString settingsPath_;  // an INI file for the settings; empty: the platform's place (tests set one)
    bool windowsWhereTheyWere_ = false;  // restoreWindowGeometry ran: the Diagram window opens where it was too
    QAction *mnuFileOpen, *mnuFileSaveChanges, *mnuFileSaveAs, *mnuFileSafeSave, *mnuFileSave, *mnuFileCompact, *mnuFileExportMaskROM,
        *mnuFileCheckImage, *mnuFileExit,
        *mnuHelpAbout;
    QWidget* client;  // the form's client area below the menu bar
    QFrame* tabsFrame;
    QTabBar* tabs;
    QLineEdit* filterBox_;  // filters the shown tab's list
    ListFilter* listFilter_;
    QFrame* tabsPanel;  // the frame drawn under the tab headers
    QLabel* StatusBar1;
    FormationsTab* formations_;
    PlaySlotsTab* playSlots_;
    PlaysTab* plays_;
    SequencesTab* sequences_;
};

}  // namespace zpe
