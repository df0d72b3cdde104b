// The menus of the main window and what the File and Help menus do: open,
// the saves, the exports, Check Image, the recent files and the window's
// settings. Each
// save goes through the core; this code asks the user and shows the result.
#include "ui/frm_main.h"

#include "analysis/check_report.h"
#include "model/file_io.h"
#include "patch/bps.h"
#include "playbook/open_rom.h"
#include "save/compact.h"
#include "save/ips.h"
#include "save/save_changes.h"
#include "save/saves.h"
#include "ui/diagram_window.h"
#include "ui/formations_tab.h"
#include "ui/list_view.h"
#include "ui/play_slots_tab.h"
#include "ui/plays_tab.h"
#include "ui/sequences_tab.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QListWidget>
#include <QPushButton>
#include <QStatusBar>
#include <QTreeWidget>
#include <QKeySequence>
#include <QMenuBar>
#include <QTabBar>
#include <QDir>
#include <QEvent>
#include <QFileInfo>
#include <QLabel>
#include <QMenu>
#include <QSettings>

namespace zpe {

namespace {

// A core message names the file by its whole path; the status bar names it by its name.
QString shortMessage(const char* what, const QString& path) {
    QString text = QString::fromLocal8Bit(what);
    if (text.startsWith(path + ":")) text = QFileInfo(path).fileName() + text.mid(path.size());
    return text;
}

}  // namespace

void frmMain::buildMenus() {
    QMenu* file = menuBar()->addMenu("&File");
    mnuFileOpen = file->addAction("&Open...", this, [this] { mnuFileOpen_Click(); });
    mnuFileOpen->setShortcut(QKeySequence::Open);
    mnuFileRecent = file->addMenu("Open &Recent");
    connect(file, &QMenu::aboutToShow, this, [this] { updateRecentMenu(); });
    mnuFileSaveChanges = file->addAction("&Save", this, [this] { mnuFileSaveChanges_Click(); });
    mnuFileSaveChanges->setShortcut(QKeySequence::Save);
    mnuFileSaveAs = file->addAction("Save &As...", this, [this] { (void)runSaveAs(); });
    mnuFileSaveAs->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_S));  // not every platform theme binds SaveAs
    mnuFileSafeSave = file->addAction("&Safe Save", this, [this] { mnuFileSafeSave_Click(); });
    mnuFileSave = file->addAction("Full Save (Unsafe!)", this, [this] { mnuFileSave_Click(); });
    mnuFileCompact = file->addAction("Compact Sequence Area...", this, [this] { mnuFileCompact_Click(); });
    file->addSeparator();
    mnuFileExportMaskROM = file->addAction("Export Mask ROM...", this, [this] { mnuFileExportMaskROM_Click(); });
    mnuFileExportPatch = file->addAction("Export Patch...", this, [this] { mnuFileExportPatch_Click(); });
    mnuFileCheckImage = file->addAction("Check Image...", this, [this] { mnuFileCheckImage_Click(); });
    mnuFileImport = file->addAction("Import Play or Slot...", this, [this] { mnuFileImport_Click(); });
    mnuFileImport->setToolTip("Bring a play, slot or playbook file (zpe export-play and Export Play... write them) into this image");
    file->addSeparator();
    mnuFileExit = file->addAction("E&xit", this, [this] { mnuFileExit_Click(); });
    mnuFileExit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    QMenu* edit = menuBar()->addMenu("&Edit");
    mnuEditUndo = new QAction("&Undo", this);
    connect(mnuEditUndo, &QAction::triggered, this, [this] { doc_.undo(); });
    mnuEditUndo->setShortcut(QKeySequence::Undo);
    mnuEditRedo = new QAction("&Redo", this);
    connect(mnuEditRedo, &QAction::triggered, this, [this] { doc_.redo(); });
    // Ctrl+Shift+Z and Ctrl+Y on every platform, beside the platform's own redo keys.
    QList<QKeySequence> redoKeys = QKeySequence::keyBindings(QKeySequence::Redo);
    for (const QKeySequence& key : {QKeySequence(Qt::CTRL | Qt::Key_Y), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z)})
        if (!redoKeys.contains(key)) redoKeys.prepend(key);
    mnuEditRedo->setShortcuts(redoKeys);
    edit->addAction(mnuEditUndo);
    edit->addAction(mnuEditRedo);
    // The status bar says what was undone or redone (the stack has done it when these run).
    connect(mnuEditUndo, &QAction::triggered, this, [this] { StatusBar1->setText(QString::fromStdString("Undone: " + doc_.redoText() + ".")); });
    connect(mnuEditRedo, &QAction::triggered, this, [this] { StatusBar1->setText(QString::fromStdString("Redone: " + doc_.undoText() + ".")); });
    updateUndoActions();
    // Ctrl+Tab and Ctrl+PgDn go to the next tab, Ctrl+Shift+Tab and Ctrl+PgUp to the one before.
    for (const int step : {1, -1}) {
        auto* go = new QAction(this);
        go->setShortcuts(step > 0 ? QList<QKeySequence>{QKeySequence(Qt::CTRL | Qt::Key_Tab), QKeySequence(Qt::CTRL | Qt::Key_PageDown)}
                                  : QList<QKeySequence>{QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Backtab),
                                                        QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Tab), QKeySequence(Qt::CTRL | Qt::Key_PageUp)});
        connect(go, &QAction::triggered, this, [this, step] {
            const int n = tabs->count();
            if (n > 0) selectTab((tabs->currentIndex() + step + n) % n + 1);
        });
        addAction(go);
    }
    QMenu* help = menuBar()->addMenu("&Help");
    help->addAction("&Keyboard and Mouse", this, [this] {
        dialogs_.message({"Ctrl+O  open an image\nCtrl+S  save every edit\nCtrl+Shift+S  save as a new file\n"
                          "Ctrl+Z / Ctrl+Shift+Z  undo / redo (in the big diagram too)\nCtrl+Q  quit\n"
                          "Ctrl+Tab / Ctrl+PgDn, Ctrl+Shift+Tab / Ctrl+PgUp  next / previous tab\n\n"
                          "Arrow keys in a list  select and draw, as a click does\n"
                          "Copy or Swap, then the arrow keys and Enter  pick the target slot\n"
                          "Enter in a data box  apply the edits\n"
                          "Double-click a picture  open the big diagram\n"
                          "Double-click a player in Plays or Formations  edit his sequence\n"
                          "Right-click a player there  point him at another sequence\n"
                          "Click a point in the big diagram  pick it; drag it or use the arrow keys to move it\n"
                          "Ctrl+= / Ctrl+- (or Ctrl and the wheel), Ctrl+0  zoom the big diagram in / out, fit it",
                          "Keyboard and Mouse", MsgIcon::Information, MsgButtons::Ok, MsgAnswer::Ok});
    });
    mnuHelpAbout = help->addAction("&About", this, [this] { mnuHelpAbout_Click(); });
}

void frmMain::updateMenuBar() {
    const bool open = !pb.romPath.empty();
    mnuFileSave->setEnabled(open);
    mnuFileSaveChanges->setEnabled(open);
    mnuFileSaveAs->setEnabled(pb.openComplete);
    mnuFileSafeSave->setEnabled(open);
    mnuFileExportMaskROM->setEnabled(open);
    mnuFileCheckImage->setEnabled(pb.openComplete);
    mnuFileCompact->setEnabled(pb.openComplete);
    mnuFileExportPatch->setEnabled(pb.openComplete);
    mnuFileImport->setEnabled(pb.openComplete);
    updateCaption();
}

bool frmMain::openImage(const QString& path) {
    try {
        Playbook opened = openRom(path.toStdString(), dataDir_.toStdString());
        if (!cpuDir_.isEmpty()) writeGapListing(opened, QDir(cpuDir_).filePath("cpu.txt").toStdString());
        pb = std::move(opened);
    } catch (const std::exception& e) {
        // No box: the reason goes to the status bar. The path is kept, and saves refuse until an open completes.
        pb = Playbook{};
        doc_.saved(false);  // nothing of the previous image can be undone into this one
        if (diagram_) diagram_->close();  // it would draw nothing of an image that did not open
        pb.romPath = path.toStdString();
        clearLists();
        sequences_->clearSeqPanel();  // the previous image's working copy must not be applied to anything
        updateCaption();
        playSlots_->updatePlaySlotButtons();
        playSlots_->updatePlayChoice();
        refreshPictures();
        StatusBar1->setText(shortMessage(e.what(), path));
        return false;
    }
    openedImage_ = pb.openedBytes;
    doc_.saved(false);
    rememberRecent(path);
    showPlaybook();
    StatusBar1->setText("");
    return true;
}

bool frmMain::maybeKeepChanges() {
    if (!doc_.unsaved()) return true;
    const QString name = QFileInfo(QString::fromStdString(pb.romPath)).fileName();
    switch (dialogs_.message({"Save changes to " + name + " before closing?", kProgramName, MsgIcon::Question,
                              MsgButtons::SaveDiscardCancel, MsgAnswer::Save})) {
    case MsgAnswer::Save: return runSave();
    case MsgAnswer::Discard: return true;
    default: return false;
    }
}

void frmMain::closeEvent(QCloseEvent* event) {
    if (!maybeKeepChanges()) {
        event->ignore();
        return;
    }
    // The next start opens the windows where they were.
    if (diagram_) settings()->setValue("diagramGeometry", diagram_->saveGeometry());
    if (diagram_) diagram_->close();
    settings()->setValue("geometry", saveGeometry());
    settings()->setValue("docks", saveState());  // the Play Library shown or not, and its width
    event->accept();
}

void frmMain::changeEvent(QEvent* event) {
    QMainWindow::changeEvent(event);
    if (event->type() == QEvent::ActivationChange && isActiveWindow()) noticeChangeOnDisk();
}

void frmMain::noticeChangeOnDisk() {
    // Not over a dialog of the window's own (a save in progress says it itself).
    if (!pb.openComplete || changeNoticed_ || QApplication::activeModalWidget()) return;
    QString what;
    try {
        doc_.requireFileUnchanged();
        return;
    } catch (const SaveError& e) {
        if (e.kind() != Refusal::ChangedOnDisk) return;
        what = QString::fromLocal8Bit(e.what());
    } catch (const std::exception& e) {
        what = QString::fromLocal8Bit(e.what());  // gone, moved or unreadable
    }
    changeNoticed_ = true;
    StatusBar1->setText(what);
    dialogs_.message({what + "\n\nYour edits here are kept. Save will not write over the file as it is now; File > Save As "
                             "writes them to a new file, File > Open reads what the file holds now.",
                      "Changed on Disk", MsgIcon::Exclamation, MsgButtons::Ok, MsgAnswer::Ok});
}

void frmMain::mnuFileOpen_Click() {
    if (!maybeKeepChanges()) return;
    const auto path = dialogs_.openFile(kRomFilter);
    if (!path) return;
    openImage(*path);
}

QString frmMain::besideImage(const QString& ending) const {
    const QFileInfo image(QString::fromStdString(pb.romPath));
    return image.dir().filePath(image.completeBaseName() + ending);
}

std::unique_ptr<QSettings> frmMain::settings() const {
    return settingsPath_.isEmpty() ? std::make_unique<QSettings>("Zentrel", "Playbook Editor")
                                   : std::make_unique<QSettings>(settingsPath_, QSettings::IniFormat);
}

void frmMain::restoreWindowGeometry() {
    windowsWhereTheyWere_ = true;  // the Diagram window too, when it opens
    const QByteArray geometry = settings()->value("geometry").toByteArray();
    if (!geometry.isEmpty()) restoreGeometry(geometry);
    const QByteArray docks = settings()->value("docks").toByteArray();
    if (!docks.isEmpty()) restoreState(docks);
}

QStringList frmMain::recentFiles() const { return settings()->value("recentFiles").toStringList(); }

void frmMain::rememberRecent(const QString& path) {
    constexpr int kRecentFiles = 8;
    const auto settings = this->settings();
    QStringList list = settings->value("recentFiles").toStringList();
    const QString full = QFileInfo(path).absoluteFilePath();
    list.removeAll(full);
    list.prepend(full);
    while (list.size() > kRecentFiles) list.removeLast();
    settings->setValue("recentFiles", list);
}

void frmMain::updateRecentMenu() {
    mnuFileRecent->clear();
    const QStringList list = recentFiles();
    for (int i = 0; i < list.size(); ++i) {
        const QString path = list[i];
        // The folder beside the name: two images of one name stay apart.
        const QFileInfo file(path);
        QAction* a = mnuFileRecent->addAction(QString("&%1 %2  (%3)").arg(i + 1).arg(file.fileName(), file.absolutePath()), this, [this, path] {
            // A file that is gone is said before anything is asked: the image open now stays.
            if (!QFileInfo::exists(path)) {
                StatusBar1->setText(QFileInfo(path).fileName() + " is no longer there (" + path + "); the image open now stays open.");
                return;
            }
            if (maybeKeepChanges()) openImage(path);
        });
        a->setToolTip(path);
        a->setStatusTip(path);
    }
    mnuFileRecent->setEnabled(!list.isEmpty());
}

void frmMain::reportFailure(const QString& title, const std::exception& error) {
    dialogs_.message({QString::fromLocal8Bit(error.what()), title, MsgIcon::Exclamation, MsgButtons::Ok, MsgAnswer::Ok});
}

void frmMain::mnuFileSaveChanges_Click() { (void)runSave(); }

frmMain::KeptSelection frmMain::keptSelection() const {
    KeptSelection kept;
    kept.sequence = sequences_->selectedSequenceKey();
    kept.command = sequences_->lstSeqCommands->currentRow();
    kept.formation = selectedRow(formations_->lvFormations);
    kept.slot = selectedRow(playSlots_->lvPlaySlots);
    kept.play = selectedRow(plays_->lvPlays);
    kept.chosenPlay = playSlots_->cmbPlay->currentIndex();
    return kept;
}

void frmMain::showSaved(const KeptSelection& kept, const SaveSummary& summary) {
    // The image was opened again: the lists show what it now holds; the tab, the
    // rows selected (and their pictures), the sequence (followed to where it
    // moved) and its command stay selected.
    showPlaybook();
    std::optional<SeqKey> key = kept.sequence;
    for (const auto& [from, to] : summary.moved)
        if (key == SeqKey::at(from)) key = SeqKey::at(to);
    for (const auto& [made, to] : summary.placed)
        if (key == made) key = SeqKey::at(to);
    restoreSelection(kept, key);
}

void frmMain::restoreSelection(const KeptSelection& kept, std::optional<SeqKey> sequence) {
    selectRow(formations_->lvFormations, kept.formation);
    selectRow(playSlots_->lvPlaySlots, kept.slot);
    selectRow(plays_->lvPlays, kept.play);
    playSlots_->updatePlayChoice();
    if (kept.chosenPlay >= 0 && kept.chosenPlay < playSlots_->cmbPlay->count()) playSlots_->cmbPlay->setCurrentIndex(kept.chosenPlay);
    refreshPictures();
    if (sequence) sequences_->reselect(*sequence, kept.command);
}

bool frmMain::runSaveAs() {
    const auto chosen = dialogs_.saveFile(kRomFilter, besideImage(" (edited).nes"), nullptr, "Save As");
    if (!chosen) return false;
    QString path = *chosen;
    if (QFileInfo(path).suffix().isEmpty()) path += ".nes";
    // The image itself chosen again is a plain Save (QFileInfo's == says nothing of files that do not exist).
    const QFileInfo to(path), from(QString::fromStdString(pb.romPath));
    // A file that is gone is written anew from the document, whatever its name.
    if (to.exists() && from.exists() && to == from) return runSave();
    if (!sequences_->commitWorkingCopy("Save As")) return false;
    try {
        const FileLock lock(path.toStdString());
        const KeptSelection kept = keptSelection();
        const SaveSummary summary = doc_.saveAs(path.toStdString(), dataDir_.toStdString());
        showSaved(kept, summary);
        updateCaption();
        rememberRecent(path);
        StatusBar1->setText("Saved as " + QFileInfo(path).fileName() + ". " + QString::fromStdString(summary.text()));
        return true;
    } catch (const std::exception& e) {
        reportFailure("Save As", e);
        return false;
    }
}

bool frmMain::runSave() {
    if (!sequences_->commitWorkingCopy("Save")) return false;  // what the panel shows is what the user means to save
    try {
        const FileLock lock(pb.romPath);
        const KeptSelection kept = keptSelection();
        const SaveSummary summary = doc_.save();
        if (summary.nothingToWrite) {
            StatusBar1->setText("Nothing to save: the image already holds every change; the file was left alone.");
            return true;
        }
        showSaved(kept, summary);
        StatusBar1->setText(QString::fromStdString(summary.text()));
        return true;
    } catch (const std::exception& e) {
        return saveRefused("Save", e);
    }
}

bool frmMain::saveRefused(const QString& title, const std::exception& e) {
    const auto* refusal = dynamic_cast<const SaveError*>(&e);
    // No free run holds a grown sequence: compaction makes one.
    if (refusal && refusal->kind() == Refusal::NoFreeRun) {
        const QString question = QString::fromLocal8Bit(e.what()) +
                                 "\n\nCompact the sequence area first (every command the game runs is kept, the free "
                                 "space becomes one run) and then save? (Compact and Save)";
        if (dialogs_.message({question, title, MsgIcon::Question, MsgButtons::YesNo, MsgAnswer::No}) == MsgAnswer::Yes)
            return runCompactAndSave();
        return false;
    }
    // Another program changed the image (writing over it would lose that), or
    // the file could not be read, locked or replaced (deleted, moved,
    // read-only): the work in memory can still go to a new file.
    if (!refusal || refusal->kind() == Refusal::ChangedOnDisk) {
        changeNoticed_ = true;  // said here: coming back to the window does not say it again
        // Save As writes every edit, whichever save was refused.
        const QString question = QString::fromLocal8Bit(e.what()) + "\n\nSave all your edits as a new file instead? (Save As)";
        if (dialogs_.message({question, title, MsgIcon::Question, MsgButtons::YesNo, MsgAnswer::Yes}) == MsgAnswer::Yes) return runSaveAs();
        return false;
    }
    reportFailure(title, e);
    return false;
}

bool frmMain::runCompactAndSave() {
    if (!sequences_->commitWorkingCopy("Compact and Save")) return false;
    try {
        const FileLock lock(pb.romPath);
        const CompactSaveSummary summary = doc_.compactAndSave(dataDir_.toStdString());
        showPlaybook();
        StatusBar1->setText(QString::fromStdString(summary.compacted.text() + " " + summary.saved.text()));
        return true;
    } catch (const std::exception& e) {
        // Compacting again would not make more room: no second offer of it.
        if (const auto* refusal = dynamic_cast<const SaveError*>(&e); refusal && refusal->kind() == Refusal::NoFreeRun) {
            reportFailure("Compact and Save", e);
            return false;
        }
        return saveRefused("Compact and Save", e);
    }
}

void frmMain::mnuFileCompact_Click() {
    // Edits not saved yet are saved into the compacted image in the same
    // write; those in the editor panel are applied first (as Save applies
    // them), so that the question counts every edit the write will hold.
    if (!sequences_->commitWorkingCopy("Compact Sequence Area")) return;
    const bool edits = doc_.unsaved();
    CompactSaveSummary preview;
    try {
        doc_.requireFileUnchanged();
    } catch (const std::exception& e) {
        // Changed on disk, or no longer readable: compaction is of the image
        // as opened, so it cannot go on; edits not yet saved can still go to
        // a new file, as Save offers.
        if (edits)
            (void)saveRefused("Compact Sequence Area", e);
        else
            reportFailure("Compact Sequence Area", e);
        return;
    }
    try {
        doc_.requireImportSaved("Compacting");
        preview = planCompactAndSave(pb).summary;
    } catch (const std::exception& e) {
        reportFailure("Compact Sequence Area", e);
        return;
    }
    QString text = QString::fromStdString(preview.compacted.text()).replace("Compacted: ", "Compacting keeps ") +
                   "\n\nThis writes the image at once and cannot be undone.";
    // What the edits then take of the free run, so the bytes left are those the file will have.
    if (edits) text += " Your unsaved edits are saved with it: " + QString::fromStdString(preview.saved.text()).replace("Saved: ", "");
    text += "\n\nCompact the sequence area?";
    if (dialogs_.message({text, "Compact Sequence Area", MsgIcon::Question, MsgButtons::YesNo, MsgAnswer::No}) != MsgAnswer::Yes)
        return;
    (void)runCompactAndSave();
}

void frmMain::mnuFileSafeSave_Click() {
    try {
        const FileLock lock(pb.romPath);
        const bool written = doc_.safeSave();  // the slots alone: sequence edits stay unsaved
        refreshModified();
        const QString said = written ? "Safe Save: the 64 slots written" : "Safe Save: the slots already stand as shown; the file was left alone";
        StatusBar1->setText(doc_.unsaved() ? said + "; sequence edits are not saved yet (File > Save writes them)." : said + ".");
    } catch (const std::exception& e) {
        (void)saveRefused("Safe Save", e);
    }
}

void frmMain::mnuFileSave_Click() {
    // No is the default: Enter alone must not blank the computer teams' logic.
    const MessageBoxSpec question{QString::fromLatin1(kFullSaveQuestion), "Warning", MsgIcon::Question, MsgButtons::YesNo,
                                  MsgAnswer::No};
    if (dialogs_.message(question) != MsgAnswer::Yes) return;
    if (!sequences_->commitWorkingCopy("Full Save")) return;
    try {
        const FileLock lock(pb.romPath);
        doc_.fullSave();
    } catch (const std::exception& e) {
        (void)saveRefused("Full Save", e);
        return;
    }
    // Every sequence stands at a new address: the lists show the new ones, and the panel's working copy goes.
    const ListRows rows = buildRows(pb, cmdNames);
    formations_->refreshRows(rows.formations);
    plays_->refreshRows(rows.plays);
    sequences_->rebuild(rows.sequences, false);
    sequences_->clearSeqPanel();
    int32_t bytes = 0;
    for (const auto& [address, seq] : pb.sequences) bytes += seq.byteSize();
    StatusBar1->setText(QString("Full Save: %1 sequences laid out anew from A000 (%2 bytes), every table rewritten.")
                            .arg(pb.sequences.size())
                            .arg(bytes));
}

void frmMain::mnuFileExportMaskROM_Click() {
    const auto path = dialogs_.saveFile(kRomFilter, besideImage(" (mask).nes"), nullptr, "Export Mask ROM");
    if (!path) return;
    try {
        exportMaskRom(pb, path->toStdString());
        StatusBar1->setText(QString("Wrote the mask of %1 sequences to ").arg(pb.sequences.size()) + QFileInfo(*path).fileName());
    } catch (const std::exception& e) {
        // No box: the reason goes to the status bar.
        StatusBar1->setText(QString::fromLocal8Bit(e.what()));
    }
}

void frmMain::mnuFileCheckImage_Click() {
    if (!pb.openComplete) return;
    dialogs_.showText("Check Image - " + QFileInfo(QString::fromStdString(pb.romPath)).fileName(),
                      QString::fromLatin1(checkReport(buildAreaMap(pb))));
}

void frmMain::mnuFileExportPatch_Click() {
    if (!pb.openComplete) return;
    // The patch describes the image as the window shows it: saved and unsaved
    // edits, and the panel's unapplied ones when the user says so.
    bool withWorkingCopy = false;
    if (doc_.workingCopyEdited()) {
        const QString seq = QString::fromStdString(sequenceKeyText(doc_.workingCopy.key()));
        switch (dialogs_.message({"The edits of sequence " + seq + " are not applied yet. Include them in the patch (as applied to " + seq +
                                      ")?",
                                  "Export Patch", MsgIcon::Question, MsgButtons::YesNoCancel, MsgAnswer::Yes})) {
        case MsgAnswer::Yes: withWorkingCopy = true; break;
        case MsgAnswer::No: break;
        default: return;
        }
    }
    // The kind follows the name, or when it has no extension the filter chosen: BPS carries both images' CRC-32.
    int filter = 0;
    const auto chosen = dialogs_.saveFile("IPS Patches (*.ips)|*.ips|BPS Patches (*.bps)|*.bps|All Files|*.*", besideImage(".ips"), &filter, "Export Patch");
    if (!chosen) return;
    QString path = *chosen;
    if (QFileInfo(path).suffix().isEmpty()) path += filter == 1 ? ".bps" : ".ips";
    const bool bps = QFileInfo(path).suffix().compare("bps", Qt::CaseInsensitive) == 0;
    try {
        refuseSameFile(path.toStdString(), pb.romPath);
        const ImageBytes now = doc_.imageAsShown(withWorkingCopy);
        const std::vector<uint8_t> from = fileBytes(pb, openedImage_), to = fileBytes(pb, now);  // patches are made on the file as it is
        if (from == to) {
            StatusBar1->setText("Nothing to export: the image holds no change since it was opened; no patch was written.");
            return;
        }
        replaceFileContents(path.toStdString(), bps ? makeBps(from, to) : makeIps(from, to));
        StatusBar1->setText(QString("Wrote the changes since the image was opened%1 to %2 (%3)")
                                .arg(doc_.unsaved() ? ", unsaved ones included," : "", QFileInfo(path).fileName(), bps ? "BPS" : "IPS"));
    } catch (const std::exception& e) {
        reportFailure("Export Patch", e);
    }
}

void frmMain::mnuFileExit_Click() { close(); }

void frmMain::mnuHelpAbout_Click() {
    dialogs_.message({"Zentrel Playbook Editor, BETA 3\n\n"
                      "Version " ZPE_VERSION "\n\n"
                      "Edits the playbook of an NES football cartridge image: the formations, the plays and the 64 "
                      "play slots, and every player's command sequence, drawn as top-down diagrams. Saves write the "
                      "changes back into the image in place; the command line tool zpe does the same from scripts.",
                      kProgramName, MsgIcon::None, MsgButtons::Ok, MsgAnswer::Ok});
}

}  // namespace zpe
