// Plays, slots and playbooks between images: Export Play... and Export
// Slot... in the lists' menus, File > Import Play or Slot..., and the Play
// Library, whose thumbnails are dropped onto a row of Plays or Play Slots.
// The files are read and written by the core; an import is one step of the
// document's history.
#include "exchange/play_file.h"
#include "model/file_io.h"
#include "model/hex.h"
#include "render/raster_canvas.h"
#include "ui/frm_main.h"
#include "ui/list_view.h"
#include "ui/picture_box.h"
#include "ui/play_library.h"
#include "ui/play_slots_tab.h"
#include "ui/plays_tab.h"
#include "ui/sequences_tab.h"
#include "diagram/diagram.h"

#include <QComboBox>
#include <QDir>
#include <QFileInfo>
#include <QLabel>
#include <QSettings>
#include <QTreeWidget>

namespace zpe {

namespace {

const char* const kCarriedFilter = "Play and Slot Files (*.json)|*.json|All Files|*.*";

std::string imageName(const Playbook& pb) { return QFileInfo(QString::fromStdString(pb.romPath)).fileName().toStdString(); }

void writeJson(const QString& path, const std::string& text) {
    replaceFileContents(path.toStdString(), std::vector<uint8_t>(text.begin(), text.end()));
}

}  // namespace

void frmMain::exportPlay(int play) {
    if (!pb.openComplete || play < 0 || play >= kPlayCount) return;
    const auto path = dialogs_.saveFile(kCarriedFilter, besideImage(QString(" play %1.json").arg(QString::fromStdString(hex2(play)))), nullptr,
                                        "Export Play");
    if (!path) return;
    try {
        // The play as the window shows it: unsaved edits laid out as Save would lay them.
        writeJson(*path, playFile(doc_.laidOut(), play, std::nullopt, imageName(pb)).dump(1) + "\n");
        StatusBar1->setText("Wrote " + QString::fromStdString(playName(play)) + " to " + QFileInfo(*path).fileName() + ".");
        if (library_->isVisible()) library_->refresh();
    } catch (const std::exception& e) {
        reportFailure("Export Play", e);
    }
}

void frmMain::exportSlot(int slot) {
    if (!pb.openComplete || slot < 0 || slot >= kSlotCount) return;
    const QString name = QString::fromLatin1(pb.playSlots[static_cast<size_t>(slot)].name()).trimmed();
    const auto path = dialogs_.saveFile(kCarriedFilter, besideImage(" " + (name.isEmpty() ? QString("slot %1").arg(slot) : name) + ".json"), nullptr,
                                        "Export Slot");
    if (!path) return;
    try {
        writeJson(*path, slotFile(doc_.laidOut(), slot, imageName(pb)).dump(1) + "\n");
        StatusBar1->setText("Wrote " + QString::fromStdString(slotName(slot)) + " to " + QFileInfo(*path).fileName() + ".");
        if (library_->isVisible()) library_->refresh();
    } catch (const std::exception& e) {
        reportFailure("Export Slot", e);
    }
}

void frmMain::mnuFileImport_Click() {
    if (!pb.openComplete) return;
    if (const auto path = dialogs_.openFile(kCarriedFilter)) (void)importCarriedFile(*path, std::nullopt);
}

std::optional<int> frmMain::askPlayTarget() {
    QStringList items;
    std::vector<int> plays;
    if (const int selected = selectedRow(plays_->lvPlays); selected >= 0) {
        items << "The play selected in Plays: " + QString::fromStdString(playName(selected));
        plays.push_back(selected);
    }
    // The first play no slot uses, one that runs nothing first (a play brought in before is not offered again while another is free).
    std::vector<bool> used(kPlayCount, false);
    for (const clsPlaySlot& slot : pb.playSlots)
        for (int k = 0; k < kPlaysPerSlot; ++k)
            if (slot.oPlay(k) < kPlayCount) used[static_cast<size_t>(slot.oPlay(k))] = true;
    auto runsNothing = [&](int p) {
        for (int j = 0; j < kPlayersPerRecord; ++j)
            if (!pb.plays[static_cast<size_t>(p)].seqAddress(j).isNone()) return false;
        return true;
    };
    int unused = -1;
    for (const bool empty : {true, false})
        for (int p = 0; p < kPlayCount && unused < 0; ++p)
            if (!used[static_cast<size_t>(p)] && (!empty || runsNothing(p))) unused = p;
    if (unused >= 0) {
        items << "The first play no slot uses: " + QString::fromStdString(playName(unused)) +
                     (runsNothing(unused) ? QString() : QString(" (what it runs now gives way)"));
        plays.push_back(unused);
    }
    if (plays.empty()) {
        StatusBar1->setText("Select the play it is to replace in the Plays tab first: every play is used by a slot.");
        return std::nullopt;
    }
    const auto choice = dialogs_.choose("Import Play", "Where the play goes:", items, 0);
    if (!choice || *choice < 0 || static_cast<size_t>(*choice) >= plays.size()) return std::nullopt;
    return plays[static_cast<size_t>(*choice)];
}

std::optional<int> frmMain::askSlotTarget(bool running) {
    QStringList items;
    std::vector<int> targets;
    const int selected = selectedRow(playSlots_->lvPlaySlots);
    int current = 0;
    for (int s = running ? 0 : kRunningSlotCount; s < (running ? kRunningSlotCount : kSlotCount); ++s) {
        if (s == selected) current = items.size();
        items << QString::fromStdString(slotName(s)) + "  " + QString::fromLatin1(pb.playSlots[static_cast<size_t>(s)].name());
        targets.push_back(s);
    }
    const auto choice = dialogs_.choose("Import Slot", QString("The %1 slot it replaces:").arg(running ? "running" : "passing"), items, current);
    if (!choice || *choice < 0 || static_cast<size_t>(*choice) >= targets.size()) return std::nullopt;
    return targets[static_cast<size_t>(*choice)];
}

QImage frmMain::playPicture(const Playbook& book, int slot, int play) const {
    RasterCanvas canvas(pixels(kPicPlayWidth), pixels(kPicPlayHeight));
    DrawPlay(canvas, book, slot, play);
    return wrapCanvas(canvas).copy();
}

bool frmMain::importCarriedFile(const QString& path, std::optional<int> target, const char* onto) {
    if (!pb.openComplete) return false;
    const std::string file = path.toStdString();
    const QString name = QFileInfo(path).fileName();
    try {
        const std::string format = carriedFileFormat(file);
        if (onto && format != onto) {
            StatusBar1->setText(name + ": a play goes onto a row of Plays, a slot onto a row of Play Slots; nothing was brought in.");
            return false;
        }
        if (!sequences_->commitWorkingCopy("Import")) return false;  // the panel's edits go in first, the way every road takes them
        // The plan, then its picture: one plan, one reading of its bytes, brought in as they stand.
        std::vector<uint8_t> bytes;
        std::string summary, step = "Import " + name.toStdString();
        QString title, question = "Bring it in?";
        int slot = std::max(selectedRow(playSlots_->lvPlaySlots), 0);  // whose play the picture draws
        std::optional<int> play;  // a play brought in: drawn in that slot's first place, with its formation
        if (format == "zpe play") {
            const PlayFile carried = readPlayFile(file);
            play = target ? target : askPlayTarget();
            if (!play) return false;
            PlayImportPlan plan = planPlayImport(doc_.laidOut(), carried.play, *play);
            bytes = std::move(plan.bytes);
            summary = plan.summary.text();
            step += " into " + playName(*play);
            title = "Import Play";
        } else if (format == "zpe slot") {
            const SlotsFile carried = readSlotFile(file);
            const std::optional<int> t = target ? target : askSlotTarget(carried.book.playSlots.front().running);
            if (!t) return false;
            BookImportPlan plan = planSlotImport(doc_.laidOut(), carried.book, *t);
            bytes = std::move(plan.bytes);
            summary = plan.summary.text();
            step += " into " + slotName(*t);
            title = "Import Slot";
            slot = *t;
        } else {
            const SlotsFile carried = readPlaybookFile(file);
            BookImportPlan plan = planPlaybookImport(doc_.laidOut(), carried.book);
            bytes = std::move(plan.bytes);
            summary = plan.summary.text();
            title = "Import Playbook";
            question = "Replace every slot with the file's?";
        }
        Playbook after = doc_.afterImport(bytes);
        Playbook shown = after;
        if (play) shown.playSlots[static_cast<size_t>(slot)].oPlay(0, *play);
        if (!dialogs_.preview(title, "After the import: " + QString::fromStdString(summary) + "\n\n" + question, playPicture(shown, slot, 0)))
            return false;
        doc_.bringIn(std::move(after), step);
        StatusBar1->setText(QString::fromStdString(summary) + " Not saved yet.");
        return true;
    } catch (const std::exception& e) {
        reportFailure("Import Play or Slot", e);
        return false;
    }
}

LibraryEntry frmMain::describeCarriedFile(const QString& path) const {
    const std::string file = path.toStdString();
    const std::string format = carriedFileFormat(file);
    LibraryEntry entry{QString::fromStdString(format), QFileInfo(path).completeBaseName(), {}, {}, {}};
    if (format == "zpe play") {
        const PlayFile carried = readPlayFile(file);
        entry.image = QString::fromStdString(carried.sourceImage);
        if (libraryBase_) {
            try {
                // Drawn as it would run here: brought into play 0 of a copy, with slot 0's formation.
                Playbook shown = doc_.afterImport(planPlayImport(*libraryBase_, carried.play, 0).bytes);
                shown.playSlots[0].oPlay(0, 0);
                entry.picture = playPicture(shown, 0, 0);
            } catch (const std::exception& e) {
                entry.note = QString::fromLocal8Bit(e.what());
            }
        }
    } else if (format == "zpe slot") {
        const SlotsFile carried = readSlotFile(file);
        entry.image = QString::fromStdString(carried.sourceImage);
        entry.name = QString::fromLatin1(carried.book.playSlots.front().record.name()).trimmed();
        const int slot = carried.book.playSlots.front().running ? 0 : kRunningSlotCount;
        if (libraryBase_) {
            try {
                entry.picture = playPicture(doc_.afterImport(planSlotImport(*libraryBase_, carried.book, slot).bytes), slot, 0);
            } catch (const std::exception& e) {
                entry.note = QString::fromLocal8Bit(e.what());
            }
        }
    } else {
        throw std::runtime_error(file + ": a whole playbook; File > Import Play or Slot... brings it in");
    }
    return entry;
}

void frmMain::chooseLibraryFolder() {
    const auto chosen = dialogs_.openFolder("Play Library", library_->folder());
    if (!chosen) return;
    const QString folder = QFileInfo(*chosen).absoluteFilePath();
    settings()->setValue("libraryFolder", folder);
    library_->setFolder(folder);
}

}  // namespace zpe
