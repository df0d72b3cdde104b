// The window keeps the user's work: the question before unsaved changes are
// lost, undo and redo, checked input, the keyboard, the big diagram.
#include "window_fixture.h"
#include "ui/diagram_window.h"
#include "ui/play_library.h"
#include "playbook/open_rom.h"
#include <QMimeData>
#include <QUrl>
#include <QDropEvent>
#include "diagram/diagram.h"
#include "render/raster_canvas.h"
#include "ui/picture_box.h"
#include "patch/bps.h"

#include <QAction>
#include <QComboBox>
#include <QImageReader>
#include <QSlider>
#include <QFileInfo>
#include <QMenu>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTest>
#include <QTreeWidget>
#include <cstdio>

using namespace zpe;
using zpe::test::ImageBuilder;

namespace {
// Slots 0..7 with distinct fields; slot 2's plays 1 and 5 differ.
ImageBuilder workImage() {
    ImageBuilder b;
    b.bytesAt(0xA000, {0xD0, 0xF0, 0x12, 0xEE})
        .bytesAt(0xA010, {0xD7, 0x00, 0x20, 0xE4})
        .bytesAt(0xA020, {0xD7, 0x20, 0x00, 0xE4})
        .formation(4, {0xA000})
        .play(0, {0xA010})
        .play(1, {0xA020})
        .pointer(0, 0xA010);
    for (int s = 0; s < 8; ++s) b.slot(s, {"SLOT " + std::to_string(s), 4, {0, 0, 0, 0, 1, 0, 0, 0}, {}});
    return b;
}
}  // namespace

class KeepsWorkTest : public QObject {
    Q_OBJECT

    test::WindowFixture fx;
    std::unique_ptr<frmMain>& w = fx.w;

    void open() {
        fx.dialogs->files.push_back(fx.imagePath());
        w->mnuFileOpen_Click();
        QVERIFY(w->pb.openComplete);
    }
    // An edit that only Apply stores: the first command's data of A010.
    void applyAnEdit() {
        w->selectTab(4);
        selectRow(w->sequences().lvSequences, w->sequences().sequenceRow(0xA010_seq));
        w->sequences().txtSeqData[1]->setText("7C");
        w->sequences().cmdSeqApply_Click();
    }
    // Slot `slot`'s play in the big diagram, 700 x 500, as a double-click on the picture opens it.
    void openBigDiagram(int slot) {
        w->selectTab(2);
        selectRow(w->playSlots().lvPlaySlots, slot);
        QTest::mouseDClick(static_cast<QWidget*>(w->playSlots().picPlay), Qt::LeftButton);
        QVERIFY(w->diagram_ && w->diagram_->isVisible());
        w->diagram_->resize(700, 500);
        QApplication::processEvents();
    }
    QStringList slotRows() {
        QStringList rows;
        for (int r = 0; r < 8; ++r) rows << w->playSlots().lvPlaySlots->topLevelItem(r)->text(0) + w->playSlots().lvPlaySlots->topLevelItem(r)->text(3);
        return rows;
    }

private slots:
    void init() { fx.start(workImage()); }
    void cleanup() { fx.stop(); }

    void captionAndNoQuestionWhenNothingIsUnsaved() {
        QCOMPARE(w->windowTitle(), QString("Zentrel Playbook Editor BETA3"));
        open();
        QCOMPARE(w->windowTitle(), QString("Zentrel Playbook Editor BETA3 - image.nes[*]"));
        QVERIFY(!w->isWindowModified());
        QVERIFY(w->close());
        QVERIFY(fx.dialogs->boxes.empty());
    }

    // Compact asks, writes at once and names what moved; with edits pending it
    // saves them too, those not applied in the panel yet counted in the question.
    void compactFromTheMenu() {
        open();
        applyAnEdit();
        selectRow(w->sequences().lvSequences, w->sequences().sequenceRow(0xA020_seq));
        w->sequences().txtSeqData[1]->setText("5C");  // not applied
        fx.dialogs->answers.push_back(MsgAnswer::Yes);
        w->mnuFileCompact_Click();
        // The question says what the edits leave free, as the status line says it afterwards.
        const QString asked = fx.dialogs->boxes.back().text;
        QVERIFY2(asked.contains("Your unsaved edits are saved with it: 2 sequences in place"), qPrintable(asked));
        QVERIFY(w->StatusBar1->text().startsWith("Compacted: "));
        QVERIFY(w->StatusBar1->text().contains("Saved: 2 sequences in place"));
        const QString left = w->StatusBar1->text().section(", ", -1);  // "N free bytes left."
        QVERIFY2(asked.contains(left), qPrintable(asked + " | " + left));
        // After A000 (four bytes) and the FF FF FF the game runs after its stance.
        QCOMPARE(w->pb.plays[0].seqAddress(0), 0xA007_seq);
        QCOMPARE(w->pb.sequences.at(0xA007_seq).data(0, 1), int16_t(0x7C));
        QVERIFY(!w->isWindowModified());
    }

    // When Save finds no free run for a grown sequence it offers Compact and Save.
    void saveWithoutRoomOffersCompactAndSave() {
        ImageBuilder full;
        for (int k = 0; k < 1024; ++k) {
            full.bytesAt(0xA000 + 8 * k, {0xD7, 0x01, 0x01, 0xC4, 0x00});
            full.playPlayer(k / 11, k % 11, 0xA000 + 8 * k);
        }
        fx.stop();
        fx.start(full);
        open();
        w->selectTab(4);
        selectRow(w->sequences().lvSequences, w->sequences().sequenceRow(0xA000_seq));
        w->sequences().cmbNewSeqCmd->setCurrentIndex(test::newCommandItemOf(0xF3));
        w->sequences().cmdSeqAddCmd_Click();
        w->sequences().cmdSeqApply_Click();
        fx.dialogs->answers.push_back(MsgAnswer::Yes);
        QVERIFY(w->runSave());
        QVERIFY(fx.dialogs->boxes.back().text.endsWith("(Compact and Save)"));
        QCOMPARE(w->pb.sequences.at(w->pb.plays[0].seqAddress(0)).commandCount(), 3);
        QVERIFY(!w->isWindowModified());
    }

    // A shared sequence reached from a play: Used by, the question, a copy for
    // that play alone (undone, redone) placed by Save; the others keep theirs.
    void sharedSequenceReachedFromAPlayGetsACopy() {
        fx.stop();
        fx.start(workImage().playPlayer(1, 0, 0xA010));
        open();
        w->sequences().showEntrySequence({AreaEntry::Table::Play, 1, 0, {}});
        QCOMPARE(w->selectedTab(), 4);
        QStringList used;
        for (int i = 0; i < w->sequences().lstSeqUsedBy->count(); ++i) used << w->sequences().lstSeqUsedBy->item(i)->text();
        QCOMPARE(used, QStringList({"pointer 0", "play 0 (0) QB", "play 1 (1) QB"}));
        w->sequences().txtSeqData[1]->setText("7C");
        fx.dialogs->answers = {MsgAnswer::Cancel};
        w->sequences().cmdSeqApply_Click();
        QCOMPARE(fx.dialogs->boxes.back().text, QString("Used by 2 plays and 1 pointer."));
        QCOMPARE(fx.dialogs->buttonTexts, QStringList({"Change all of them", "Only play 1 (1) QB (a copy)"}));
        QVERIFY(w->sequences().workingCopyEdited());  // Cancel keeps the edits in the panel
        const int last = w->sequences().lstSeqCommands->count() - 1;
        QVERIFY(last > 0);
        w->sequences().lstSeqCommands->setCurrentRow(last);  // another command selected, the edit pending
        fx.dialogs->answers = {MsgAnswer::Copy};
        w->sequences().cmdSeqApply_Click();
        QCOMPARE(w->sequences().lstSeqCommands->currentRow(), last);  // the copy shows with that command still selected
        const SeqKey copy = w->pb.plays[1].seqAddress(0);
        QVERIFY(copy.isNew());
        QCOMPARE(w->pb.sequences.at(copy).data(0, 1), int16_t(0x7C));
        QCOMPARE(w->pb.sequences.at(0xA010_seq).data(0, 1), int16_t(0x20));
        QCOMPARE(w->doc_.workingCopy.key(), copy);
        QCOMPARE(w->plays().lvPlays->topLevelItem(1)->text(1), QString("new 1"));
        w->doc_.undo();
        QCOMPARE(w->pb.plays[1].seqAddress(0), 0xA010_seq);
        QVERIFY(!w->pb.sequences.contains(copy));
        w->doc_.redo();
        QCOMPARE(w->pb.plays[1].seqAddress(0), copy);
        QVERIFY(w->isWindowModified());
        QVERIFY(w->runSave());
        const SeqKey placed = w->pb.plays[1].seqAddress(0);
        QVERIFY(placed != 0xA010_seq && !placed.isNew());
        QCOMPARE(w->pb.sequences.at(placed).data(0, 1), int16_t(0x7C));
        QCOMPARE(w->pb.plays[0].seqAddress(0), 0xA010_seq);
        QCOMPARE(w->pb.seqPointers[0], 0xA010_seq);
        QCOMPARE(w->pb.sequences.at(0xA010_seq).data(0, 1), int16_t(0x20));
        QCOMPARE(w->doc_.workingCopy.key(), placed);  // the panel follows it to its place
        QVERIFY(!w->isWindowModified());
    }

    // "A copy" is one step with the edit that led to it: undone, the edit is
    // back in the panel on the shared sequence; redone, it is in the copy and
    // nowhere else, so Save writes the copy and leaves the shared one alone.
    void undoAndRedoOfACopyLeaveTheSharedSequenceAlone() {
        fx.stop();
        fx.start(workImage().playPlayer(1, 0, 0xA010));
        open();
        const std::vector<uint8_t> shared = test::readFileBytes(fx.imagePath().toStdString());
        w->sequences().showEntrySequence({AreaEntry::Table::Play, 1, 0, {}});
        w->sequences().txtSeqData[1]->setText("7C");
        fx.dialogs->answers = {MsgAnswer::Copy};
        w->sequences().cmdSeqApply_Click();
        QVERIFY(w->pb.plays[1].seqAddress(0).isNew());
        w->mnuEditUndo->trigger();
        QCOMPARE(w->pb.plays[1].seqAddress(0), 0xA010_seq);
        QCOMPARE(w->doc_.workingCopy.address(), 0xA010);
        QVERIFY(w->sequences().workingCopyEdited());  // the edit is pending on the shared sequence again
        QCOMPARE(w->doc_.workingCopy.data(0, 1), int16_t(0x7C));
        w->mnuEditUndo->trigger();
        QVERIFY(!w->sequences().workingCopyEdited());
        w->mnuEditRedo->trigger();
        QVERIFY(w->sequences().workingCopyEdited());
        w->mnuEditRedo->trigger();
        const SeqKey copy = w->pb.plays[1].seqAddress(0);
        QVERIFY(copy.isNew());
        QCOMPARE(w->doc_.workingCopy.key(), copy);
        QVERIFY(!w->sequences().workingCopyEdited());  // nothing pending on the shared sequence
        QCOMPARE(w->pb.sequences.at(copy).data(0, 1), int16_t(0x7C));
        QCOMPARE(w->pb.sequences.at(0xA010_seq).data(0, 1), int16_t(0x20));
        const qsizetype asked = fx.dialogs->buttonTexts.size();
        QVERIFY(w->runSave());
        QCOMPARE(fx.dialogs->buttonTexts.size(), asked);  // nothing left to ask about
        const std::vector<uint8_t> saved = test::readFileBytes(fx.imagePath().toStdString());
        const SeqKey placed = w->pb.plays[1].seqAddress(0);
        QCOMPARE(w->pb.sequences.at(placed).data(0, 1), int16_t(0x7C));
        QCOMPARE(w->pb.sequences.at(0xA010_seq).data(0, 1), int16_t(0x20));
        for (int32_t a = 0xA010; a < 0xA010 + w->pb.sequences.at(0xA010_seq).byteSize(); ++a)
            QCOMPARE(saved[static_cast<size_t>(offsetOfAddress(a))], shared[static_cast<size_t>(offsetOfAddress(a))]);
        QVERIFY(w->StatusBar1->text().startsWith("Saved"));
    }

    // Every road from the panel to the file asks "Used by" for a shared
    // sequence reached from a play, the same way: Save, Save As, the prompt on
    // leaving the sequence, the prompt on quitting. Cancel goes no further;
    // "a copy" leaves the shared sequence as it was.
    void everyRoadToTheFileAsksUsedBy() {
        struct Road {
            const char* what;
            std::deque<MsgAnswer> answers;  // after the edit: the road's own prompt, then "Used by"
            std::function<bool(frmMain&)> take;
        };
        const std::vector<Road> roads{
            {"Save", {}, [](frmMain& m) { return m.runSave(); }},
            {"the prompt on quitting", {MsgAnswer::Save}, [](frmMain& m) { return m.maybeKeepChanges(); }},
            {"the prompt on leaving the sequence", {MsgAnswer::Apply},
             [](frmMain& m) {
                 selectRow(m.sequences().lvSequences, m.sequences().sequenceRow(0xA000_seq));  // picking another row asks
                 return !m.sequences().workingCopyEdited() && m.runSave();
             }},
        };
        for (const Road& road : roads) {
            for (const MsgAnswer used : {MsgAnswer::Cancel, MsgAnswer::Copy}) {
                fx.stop();
                fx.start(workImage().playPlayer(1, 0, 0xA010));
                open();
                const std::vector<uint8_t> before = test::readFileBytes(fx.imagePath().toStdString());
                w->sequences().showEntrySequence({AreaEntry::Table::Play, 1, 0, {}});
                w->sequences().txtSeqData[1]->setText("7C");
                fx.dialogs->answers = road.answers;
                fx.dialogs->answers.push_back(used);
                const size_t asked = fx.dialogs->buttonTexts.size();
                const bool went = road.take(*w);
                QVERIFY2(fx.dialogs->buttonTexts.size() == static_cast<qsizetype>(asked) + 2, road.what);  // "Used by" was asked, once
                QCOMPARE(fx.dialogs->buttonTexts.back(), QString("Only play 1 (1) QB (a copy)"));
                if (used == MsgAnswer::Cancel) {
                    QVERIFY2(!went, road.what);
                    QVERIFY2(w->sequences().workingCopyEdited(), road.what);  // the edits stay in the panel
                    QCOMPARE(test::readFileBytes(fx.imagePath().toStdString()), before);
                    continue;
                }
                QVERIFY2(went, road.what);
                const SeqKey mine = w->pb.plays[1].seqAddress(0);
                QVERIFY2(mine != 0xA010_seq && !mine.isNew(), road.what);
                QCOMPARE(w->pb.sequences.at(mine).data(0, 1), int16_t(0x7C));
                QCOMPARE(w->pb.sequences.at(0xA010_seq).data(0, 1), int16_t(0x20));  // the shared one as it was
                QCOMPARE(w->pb.plays[0].seqAddress(0), 0xA010_seq);
            }
        }
    }

    // Pointing a player elsewhere while the panel holds edits not applied to
    // his sequence asks first: Cancel changes nothing, Apply stores them, so
    // a copy of that sequence holds them too.
    void pointingElsewhereAsksAboutEditsNotApplied() {
        open();
        const AreaEntry qb{AreaEntry::Table::Play, 0, 0, {}};
        fx.dialogs->choices = {0};  // a new copy of the current one
        w->sequences().pointEntryAt(qb);
        const SeqKey first = w->pb.plays[0].seqAddress(0);
        QVERIFY(first.isNew());
        QCOMPARE(w->doc_.workingCopy.key(), first);
        w->doc_.workingCopy.data(0, 1, 0x40);
        QVERIFY(w->doc_.workingCopyEdited());

        fx.dialogs->choices = {0};
        fx.dialogs->answers = {MsgAnswer::Cancel};
        w->sequences().pointEntryAt(qb);
        QVERIFY(fx.dialogs->boxes.back().text.startsWith("The edits of sequence new 1 are not applied yet."));
        QCOMPARE(w->pb.plays[0].seqAddress(0), first);
        QVERIFY(w->doc_.workingCopyEdited());

        fx.dialogs->choices = {0};
        fx.dialogs->answers = {MsgAnswer::Apply};
        w->sequences().pointEntryAt(qb);
        const SeqKey second = w->pb.plays[0].seqAddress(0);
        QVERIFY(second != first && second.isNew());
        QCOMPARE(w->pb.sequences.at(second).data(0, 1), int16_t(0x40));
        QVERIFY(!w->doc_.workingCopyEdited());
    }

    // The same from a play whose sequence is shared: the edits applied as a
    // copy for that play come first, and the choice is offered from there (a
    // copy of the current one is a copy of that copy, edits and all).
    void pointingElsewhereSettlesASharedSequenceFirst() {
        fx.stop();
        fx.start(workImage().playPlayer(1, 0, 0xA010));
        open();
        const AreaEntry qb{AreaEntry::Table::Play, 1, 0, {}};
        w->sequences().showEntrySequence(qb);
        w->sequences().txtSeqData[1]->setText("7C");
        QVERIFY(w->doc_.workingCopyEdited());
        fx.dialogs->answers = {MsgAnswer::Apply, MsgAnswer::Copy};
        fx.dialogs->choices = {0};
        w->sequences().pointEntryAt(qb);
        const SeqKey now = w->pb.plays[1].seqAddress(0);
        QVERIFY(now.isNew());
        QCOMPARE(w->pb.sequences.at(now).data(0, 1), int16_t(0x7C));
        QCOMPARE(w->pb.sequences.at(0xA010_seq).data(0, 1), int16_t(0x20));  // the shared one as it was
        QCOMPARE(w->pb.plays[0].seqAddress(0), 0xA010_seq);
    }

    // The Plays tab's chooser: another sequence, then a new empty one filled with Add; both undoable.
    void pointAPlayerAtAnotherSequenceOrANewOne() {
        open();
        const AreaEntry rb{AreaEntry::Table::Play, 0, 1, {}};
        fx.dialogs->choices = {4};  // after the copy and the new one: A000, A010, A020
        w->sequences().pointEntryAt(rb);
        QVERIFY(fx.dialogs->offered.back()[4].startsWith("A020"));
        QCOMPARE(w->pb.plays[0].seqAddress(1), 0xA020_seq);
        QCOMPARE(w->plays().lvPlays->topLevelItem(0)->text(2), QString("A020"));
        QVERIFY(w->isWindowModified());
        w->doc_.undo();
        QVERIFY(w->pb.plays[0].seqAddress(1) != 0xA020_seq);
        QVERIFY(!w->isWindowModified());

        fx.dialogs->choices = {1, 0};  // a new empty sequence, with the first end offered
        w->sequences().pointEntryAt(rb);
        const SeqKey made = w->pb.plays[0].seqAddress(1);
        QVERIFY(made.isNew());
        QCOMPARE(w->doc_.workingCopy.key(), made);  // shown in the panel, to be filled with Add
        // Its end command selected, as the panel shows it: Add puts the command in front of it.
        w->sequences().lstSeqCommands->setCurrentRow(0);
        w->sequences().cmbNewSeqCmd->setCurrentIndex(test::newCommandItemOf(0xD7));
        w->sequences().cmdSeqAddCmd_Click();
        QCOMPARE(w->doc_.workingCopy.commandCount(), 2);
        QCOMPARE(w->doc_.workingCopy.command(0), int16_t(0xD7));
        QCOMPARE(w->sequences().lstSeqCommands->currentRow(), 0);  // the command added
        w->sequences().cmdSeqApply_Click();
        QCOMPARE(w->pb.sequences.at(made).commandCount(), 2);
        // Check Image counts the new sequence as unsaved, not as an entry leading out of the area.
        w->mnuFileCheckImage_Click();
        const QString report = fx.dialogs->texts.back().second;
        QVERIFY2(report.contains("Not saved yet\n  1 entries name sequences made in the editor, which the next save places: play 0 (0) RB -> new"),
                 qPrintable(report));
        QVERIFY2(report.contains("0 entries point outside the area\n"), qPrintable(report));
        QVERIFY(w->runSave());
        w->mnuFileCheckImage_Click();
        QVERIFY(!fx.dialogs->texts.back().second.contains("Not saved yet"));
        const SeqKey placed = w->pb.plays[0].seqAddress(1);
        QCOMPARE(w->pb.sequences.at(placed).command(0), int16_t(0xD7));
        QCOMPARE(w->pb.plays[0].seqAddress(0), 0xA010_seq);
    }

    // Export Patch writes BPS for a .bps name, IPS otherwise; each turns the image as opened into the saved one.
    void exportPatchInEitherKind() {
        open();
        const auto opened = fx.image->read();
        applyAnEdit();
        QVERIFY(w->runSave());
        for (const QString name : {"p.bps", "p"}) {
            const QString path = QString::fromStdString(fx.cwd.file(name.toStdString()));
            fx.dialogs->files.push_back(path);
            w->mnuFileExportPatch_Click();
            const QString written = name == "p" ? path + ".ips" : path;
            const auto patch = test::readFileBytes(written.toStdString());
            QCOMPARE(isBps(patch), name == "p.bps");
            QVERIFY(applyPatch(opened, patch, 1 << 22) == fx.image->read());
        }
    }

    // Export Patch describes the document as the window shows it: an applied
    // edit not saved yet, and a typed one not applied when the user says so;
    // the filter chosen names the kind when the name has none; an image with
    // no change writes no patch and says so.
    void exportPatchDescribesUnsavedAndUnappliedEdits() {
        open();
        const auto opened = fx.image->read();
        const QString empty = QString::fromStdString(fx.cwd.file("none"));
        fx.dialogs->files.push_back(empty);
        w->mnuFileExportPatch_Click();
        QVERIFY(!QFileInfo::exists(empty + ".ips"));
        QVERIFY(w->StatusBar1->text().startsWith("Nothing to export"));

        applyAnEdit();                         // applied, not saved
        w->sequences().txtSeqData[0]->setText("11");       // typed, not applied
        const QString path = QString::fromStdString(fx.cwd.file("unsaved"));
        fx.dialogs->files.push_back(path);
        fx.dialogs->filterChoice = 1;          // "BPS Patches"
        fx.dialogs->answers = {MsgAnswer::Yes};
        w->mnuFileExportPatch_Click();
        fx.dialogs->filterChoice = 0;
        QVERIFY(fx.image->read() == opened);  // exporting writes only the patch
        const auto patch = test::readFileBytes((path + ".bps").toStdString());
        QVERIFY(isBps(patch));
        const auto patched = applyPatch(opened, patch, 1 << 22);
        QVERIFY(w->runSave());  // the same edits, saved: the patch made the same image
        QVERIFY(patched == fx.image->read());
        QCOMPARE(int(patched[static_cast<size_t>(offsetOfAddress(0xA012))]), 0x7C);
    }

    // The same image without its header: said in the caption, saved without one.
    void headerlessImageSaysSoAndStaysHeaderless() {
        const auto headed = fx.image->read();
        const std::string bare = fx.cwd.file("bare.nes");
        fx.cwd.writeText("bare.nes", std::string(headed.begin() + 16, headed.end()));
        fx.dialogs->files.push_back(QString::fromStdString(bare));
        w->mnuFileOpen_Click();
        QVERIFY(w->windowTitle().endsWith("bare.nes (headerless image)[*]"));
        applyAnEdit();
        QVERIFY(w->runSave());
        const auto saved = test::readFileBytes(bare);
        QCOMPARE(saved.size(), headed.size() - 16);
        QCOMPARE(int(saved[static_cast<size_t>(offsetOfAddress(0xA012) - 16)]), 0x7C);
    }

    void exitWithAnUnsavedApplyAsks() {
        open();
        applyAnEdit();
        QVERIFY(w->isWindowModified());
        const auto before = fx.image->read();
        fx.dialogs->answers = {MsgAnswer::Cancel};
        QVERIFY(!w->close());
        QCOMPARE(fx.dialogs->boxes.back().text, QString("Save changes to image.nes before closing?"));
        QCOMPARE(w->pb.sequences.at(0xA010_seq).data(0, 1), int16_t(0x7C));  // Cancel keeps the edit
        fx.dialogs->answers = {MsgAnswer::Save};
        QVERIFY(w->close());
        const auto after = fx.image->read();
        QCOMPARE(int(after[static_cast<size_t>(offsetOfAddress(0xA012))]), 0x7C);
        QCOMPARE(after.size(), before.size());
    }

    void discardClosesAndOpenAsksToo() {
        open();
        applyAnEdit();
        fx.dialogs->answers = {MsgAnswer::Cancel};
        fx.dialogs->files.push_back(fx.imagePath());
        w->mnuFileOpen_Click();
        QCOMPARE(fx.dialogs->boxes.size(), size_t(1));
        QVERIFY(fx.dialogs->filters.size() == 1);  // Cancel: no file dialog
        const auto before = fx.image->read();
        fx.dialogs->answers = {MsgAnswer::Discard};
        QVERIFY(w->close());
        QCOMPARE(fx.image->read(), before);
    }

    void undoAndRedoRestoreRowsAndBytes() {
        open();
        w->selectTab(2);
        const QStringList rows = slotRows();
        const auto slots0 = w->pb.playSlots;
        selectRow(w->playSlots().lvPlaySlots, 1);
        w->playSlots().cmdCopyPlaySlot_Click();
        test::WindowFixture::clickRow(w->playSlots().lvPlaySlots, 3);
        selectRow(w->playSlots().lvPlaySlots, 2);
        w->playSlots().cmdSwapPlaySlot_Click();
        test::WindowFixture::clickRow(w->playSlots().lvPlaySlots, 5);
        QCOMPARE(w->mnuEditUndo->text(), QString("&Undo Swap slot 2 (R1) and slot 5 (R1)"));
        const auto slots2 = w->pb.playSlots;
        const QStringList rows2 = slotRows();
        w->mnuEditUndo->trigger();
        QCOMPARE(w->StatusBar1->text(), QString("Undone: Swap slot 2 (R1) and slot 5 (R1)."));  // not "Swapped ..." any more
        w->mnuEditUndo->trigger();
        QCOMPARE(w->StatusBar1->text(), QString("Undone: Copy slot 1 (R1) over slot 3 (R1)."));
        QCOMPARE(slotRows(), rows);
        QVERIFY(w->pb.playSlots == slots0);
        QVERIFY(!w->isWindowModified());
        w->doc_.redo();
        w->mnuEditRedo->trigger();
        QCOMPARE(w->StatusBar1->text(), QString("Redone: Swap slot 2 (R1) and slot 5 (R1)."));
        QCOMPARE(slotRows(), rows2);
        QVERIFY(w->pb.playSlots == slots2);

        // Add, then Apply; undo both.
        w->selectTab(4);
        selectRow(w->sequences().lvSequences, w->sequences().sequenceRow(0xA010_seq));
        const clsSequence stored = w->pb.sequences.at(0xA010_seq);
        const QString cell = w->sequences().lvSequences->topLevelItem(w->sequences().sequenceRow(0xA010_seq))->text(1);
        w->sequences().cmbNewSeqCmd->setCurrentIndex(1);  // 00: a two-byte command
        w->sequences().cmdSeqAddCmd_Click();
        QCOMPARE(w->doc_.workingCopy.commandCount(), 3);
        w->sequences().cmdSeqApply_Click();
        QCOMPARE(w->pb.sequences.at(0xA010_seq).byteSize(), stored.byteSize() + 2);
        QCOMPARE(w->mnuEditUndo->text(), QString("&Undo Apply Sequence Edit"));
        w->doc_.undo();
        QCOMPARE(w->pb.sequences.at(0xA010_seq).commands(), stored.commands());
        QCOMPARE(w->pb.sequences.at(0xA010_seq).byteSize(), stored.byteSize());
        QCOMPARE(w->sequences().lvSequences->topLevelItem(w->sequences().sequenceRow(0xA010_seq))->text(1), cell);
        w->doc_.undo();
        QCOMPARE(w->doc_.workingCopy.commandCount(), 2);  // the Add is undone in the working copy
        w->doc_.redo();
        w->doc_.redo();
        QCOMPARE(w->pb.sequences.at(0xA010_seq).commandCount(), 3);
        // Safe Save writes the slots only: the sequence edit stays marked until Save writes it.
        w->mnuFileSafeSave_Click();
        QVERIFY(w->isWindowModified());
        QVERIFY(w->StatusBar1->text().contains("not saved yet"));
        QVERIFY(w->runSave());
        QVERIFY(!w->isWindowModified());
    }

    // Typed values, Remove and the arrows are undo steps; typing into one box is one step.
    void everyPanelEditIsAnUndoStep() {
        open();
        w->selectTab(4);
        selectRow(w->sequences().lvSequences, w->sequences().sequenceRow(0xA010_seq));  // D7 00 20, E4
        QLineEdit* box = w->sequences().txtSeqData[1];
        box->setText("7");
        box->setText("7C");
        QCOMPARE(w->doc_.steps(), size_t(1));
        QCOMPARE(w->mnuEditUndo->text(), QString("&Undo Edit Value"));
        w->sequences().cmbNewSeqCmd->setCurrentIndex(test::newCommandItemOf(0xF3));
        w->sequences().cmdSeqAddCmd_Click();  // D7, F3, E4
        w->sequences().lstSeqCommands->setCurrentRow(0);
        w->sequences().udSeqCommand_DownClick();  // F3, D7, E4
        QCOMPARE(w->doc_.workingCopy.command(1), int16_t(0xD7));
        w->sequences().cmdSeqDelCmd_Click();  // F3, E4
        QCOMPARE(w->doc_.workingCopy.commandCount(), 2);
        w->doc_.undo();
        QCOMPARE(w->doc_.workingCopy.command(1), int16_t(0xD7));
        QCOMPARE(w->doc_.workingCopy.data(1, 1), int16_t(0x7C));  // the value typed before the removal is back
        w->doc_.undo();
        QCOMPARE(w->doc_.workingCopy.command(0), int16_t(0xD7));
        w->doc_.undo();
        w->doc_.undo();
        QCOMPARE(w->doc_.workingCopy.commands(), w->pb.sequences.at(0xA010_seq).commands());
        QVERIFY(!w->isWindowModified());

        // A save keeps the history while every command is read where it was;
        // one that reads a command at another address (a removal written in
        // place) lets it go: its steps would name what the file no longer holds.
        box->setText("7C");
        QVERIFY(w->runSave());
        QVERIFY(w->mnuEditUndo->isEnabled());
        w->sequences().lstSeqCommands->setCurrentRow(0);
        w->sequences().cmdSeqDelCmd_Click();  // E4 alone, at A010
        QVERIFY(w->runSave());
        QVERIFY(!w->mnuEditUndo->isEnabled());
        QCOMPARE(w->pb.sequences.at(0xA010_seq).commandCount(), 1);
    }

    // Save keeps the selection, following a moved sequence; with nothing to write it leaves the file alone.
    void saveKeepsTheSelectionAndWritesOnlyWhatChanged() {
        open();
        QVERIFY(w->runSave());
        QVERIFY(w->StatusBar1->text().startsWith("Nothing to save"));
        w->selectTab(4);
        selectRow(w->sequences().lvSequences, w->sequences().sequenceRow(0xA010_seq));
        w->sequences().cmbNewSeqCmd->setCurrentIndex(test::newCommandItemOf(0xF3));
        w->sequences().lstSeqCommands->setCurrentRow(0);
        w->sequences().cmdSeqAddCmd_Click();  // grows past its bytes: it moves
        QVERIFY(w->runSave());    // applies the pending Add first
        const auto moved = w->sequences().selectedSequenceKey();
        QVERIFY(moved && *moved != 0xA010_seq);
        QCOMPARE(w->pb.plays[0].seqAddress(0), *moved);
        QCOMPARE(w->doc_.workingCopy.key(), *moved);
        QCOMPARE(w->sequences().lstSeqCommands->currentRow(), 1);
        QCOMPARE(w->selectedTab(), 4);
    }

    // Save As writes the edited image to a new file and goes on there; the old file is untouched,
    // and when another program changed it, Save offers Save As.
    void saveAsContinuesInTheNewFile() {
        open();
        const auto original = fx.image->read();
        applyAnEdit();
        std::vector<uint8_t> changed = original;
        changed[0x10] ^= 1;  // another program writes the image
        fx.image->write(changed);
        const QString copy = QString::fromStdString(fx.cwd.file("copy"));
        fx.dialogs->answers.push_back(MsgAnswer::Yes);
        fx.dialogs->files.push_back(copy);
        QVERIFY(w->runSave());
        QVERIFY(fx.dialogs->boxes.back().text.contains("(Save As)"));
        QCOMPARE(QString::fromStdString(w->pb.romPath), copy + ".nes");
        QCOMPARE(fx.image->read(), changed);
        QCOMPARE(w->pb.sequences.at(0xA010_seq).data(0, 1), int16_t(0x7C));
        QVERIFY(w->windowTitle().contains("copy.nes"));
        QVERIFY(!w->isWindowModified());
        // The edit was written where it stood: it can still be undone, against the new file.
        QVERIFY(w->mnuEditUndo->isEnabled());
        w->mnuEditUndo->trigger();
        QVERIFY(w->isWindowModified());
    }

    // The file deleted (or moved) under the window: the work in memory is not
    // locked in. Save refuses and offers Save As, which writes the document.
    void aDeletedFileStillSavesAs() {
        open();
        applyAnEdit();
        QVERIFY(QFile::remove(fx.imagePath()));
        const QString copy = QString::fromStdString(fx.cwd.file("rescued"));
        fx.dialogs->answers.push_back(MsgAnswer::Yes);
        fx.dialogs->files.push_back(copy);
        QVERIFY(w->runSave());
        QVERIFY(fx.dialogs->boxes.back().text.contains("(Save As)"));
        QCOMPARE(QString::fromStdString(w->pb.romPath), copy + ".nes");
        const auto saved = test::readFileBytes((copy + ".nes").toStdString());
        QCOMPARE(int(saved[static_cast<size_t>(offsetOfAddress(0xA012))]), 0x7C);
        QVERIFY(!w->isWindowModified());

        // Gone again, and saved as under its own name: written there from the document, no second refusal.
        w->pb.playSlots[1].name("MINE");
        QVERIFY(QFile::remove(copy + ".nes"));
        fx.dialogs->files.push_back(copy + ".nes");
        QVERIFY(w->runSaveAs());
        QVERIFY(QFile::exists(copy + ".nes"));
        QVERIFY(!w->isWindowModified());
    }

    // The pictures always draw the model: after Apply and undo, for the chosen play, and nothing of an image closed.
    void picturesFollowTheModel() {
        open();
        auto drawn = [&](int slot, int play, const DrawOptions& options = {}) {
            RasterCanvas c(w->playSlots().picPlay->canvas().width(), w->playSlots().picPlay->canvas().height());
            zpe::DrawPlay(c, w->pb, slot, play, options);
            return wrapCanvas(c).copy();
        };
        w->selectTab(2);
        test::WindowFixture::clickRow(w->playSlots().lvPlaySlots, 2);
        QCOMPARE(w->playSlots().picPlay->image(), drawn(2, 0));
        const QImage before = w->playSlots().picPlay->image();
        applyAnEdit();  // A010, play 0's QB
        QVERIFY(w->playSlots().picPlay->image() != before);
        QCOMPARE(w->playSlots().picPlay->image(), drawn(2, 0));
        w->doc_.undo();  // the edits are back in the panel, not applied: drawn in place of A010, highlighted
        DrawOptions pending;
        pending.workingCopy = &w->doc_.workingCopy;
        QCOMPARE(w->playSlots().picPlay->image(), drawn(2, 0, pending));
        QVERIFY(w->playSlots().picPlay->image() != before);
        fx.dialogs->answers = {MsgAnswer::Discard};
        selectRow(w->sequences().lvSequences, w->sequences().sequenceRow(0xA000_seq));
        w->sequences().lvSequences_Click();  // leaving them: the picture draws the model again
        QCOMPARE(w->playSlots().picPlay->image(), before);
        w->playSlots().cmbPlay->setCurrentIndex(4);
        emit w->playSlots().cmbPlay->activated(4);
        QCOMPARE(w->playSlots().picPlay->image(), drawn(2, 4));
        w->selectTab(1);
        test::WindowFixture::clickRow(w->formations().lvFormations, 4);
        open();  // the same file again: nothing selected, nothing drawn
        RasterCanvas empty(w->formations().picFormation->canvas().width(), w->formations().picFormation->canvas().height());
        empty.clear(0xF0F0F0);
        QCOMPARE(w->formations().picFormation->image(), wrapCanvas(empty).copy());
    }

    // File > Open Recent lists what was opened, newest first, and opens it.
    void recentFilesReopen() {
        w->settingsPath_ = QString::fromStdString(fx.cwd.file("settings.ini"));
        open();
        w->updateRecentMenu();
        const QList<QAction*> recent = w->mnuFileRecent->actions();
        QVERIFY(!recent.isEmpty());
        QCOMPARE(recent.first()->toolTip(), QFileInfo(fx.imagePath()).absoluteFilePath());
        w->pb = Playbook{};
        recent.first()->trigger();
        QVERIFY(w->pb.openComplete);

        // A recent file that is gone: said, and the image open now stays (no question, nothing lost).
        w->pb.playSlots[1].name("MINE");
        const auto bytes = fx.image->read();
        QVERIFY(std::remove(fx.imagePath().toStdString().c_str()) == 0);
        w->updateRecentMenu();
        const qsizetype asked = fx.dialogs->boxes.size();
        w->mnuFileRecent->actions().first()->trigger();
        QCOMPARE(fx.dialogs->boxes.size(), asked);
        QVERIFY(w->StatusBar1->text().contains("is no longer there"));
        QCOMPARE(QString::fromStdString(w->pb.playSlots[1].name()), QString("MINE"));
        fx.image->write(bytes);
    }

    // The next start opens the window where it was closed, at its size; save
    // dialogs propose a name beside the image.
    void theWindowComesBackWhereItWasClosed() {
        const QString ini = QString::fromStdString(fx.cwd.file("settings.ini"));
        w->settingsPath_ = ini;
        w->resize(1111, 777);
        open();
        openBigDiagram(2);
        w->diagram_->resize(640, 480);
        w->library_->show();  // the Play Library comes back too
        QVERIFY(w->close());
        frmMain again(*fx.dialogs, QString::fromStdString(fx.data.path()), QString());
        again.settingsPath_ = ini;
        QVERIFY(again.library_->isHidden());
        again.restoreWindowGeometry();
        QCOMPARE(again.size(), QSize(1111, 777));
        QVERIFY(!again.library_->isHidden());
        QVERIFY(again.openImage(fx.imagePath()));
        again.openDiagram(true);
        QCOMPARE(again.diagram_->size(), QSize(640, 480));
        again.diagram_->close();

        fx.stop();
        fx.start(workImage());
        open();
        fx.dialogs->files.push_back(std::nullopt);
        (void)w->runSaveAs();
        const QFileInfo image(fx.imagePath());
        QCOMPARE(fx.dialogs->suggestions.back(), image.dir().filePath(image.completeBaseName() + " (edited).nes"));
        QCOMPARE(fx.dialogs->saveTitles.back(), QString("Save As"));

        // An open that fails closes the Diagram window: it would draw nothing.
        openBigDiagram(1);
        QVERIFY(!w->openImage("/nonexistent/image.nes"));
        QVERIFY(!w->diagram_->isVisible());
    }

    void dataBoxesTakeOnlyHex() {
        open();
        w->selectTab(4);
        selectRow(w->sequences().lvSequences, w->sequences().sequenceRow(0xA010_seq));
        QLineEdit* box = w->sequences().txtSeqData[1];
        box->clear();
        QTest::keyClicks(box, "ZZ");
        QCOMPARE(box->text(), QString());
        QTest::keyClicks(box, "3f");
        QCOMPARE(box->text(), QString("3f"));
        QCOMPARE(w->doc_.workingCopy.data(0, 1), int16_t(0x3F));
    }

    void keyboardSelectionUpdatesThePanel() {
        open();
        w->selectTab(4);
        w->sequences().cmdSeqDetails_Click();
        w->sequences().lvSequences->setFocus();
        selectRow(w->sequences().lvSequences, 0);
        QTest::keyClick(w->sequences().lvSequences, Qt::Key_Down);
        const int row = selectedRow(w->sequences().lvSequences);
        QCOMPARE(row, 1);
        QCOMPARE(std::optional<SeqKey>(w->doc_.workingCopy.key()), rowKey(w->sequences().lvSequences->topLevelItem(row)));
    }

    void bigDiagramDrawsTheChosenPlayAndSavesAtItsSize() {
        open();
        openBigDiagram(2);
        const QImage first = w->diagram_->picture();
        w->diagram_->choosePlay(4);  // play 5: play 1 of the image, another path
        const QImage fifth = w->diagram_->picture();
        QVERIFY(first != fifth);
        w->diagram_->choosePlay(0);
        QCOMPARE(w->diagram_->picture(), first);
        QCOMPARE(w->diagram_->windowTitle(), QString("Diagram: SLOT 2 \u2014 play 1 (00:00)"));
        // Opened again from the picture, it shows the play the picture's chooser shows.
        w->diagram_->close();
        w->playSlots().updatePlayChoice();
        w->playSlots().cmbPlay->setCurrentIndex(4);
        QTest::mouseDClick(static_cast<QWidget*>(w->playSlots().picPlay), Qt::LeftButton);
        QCOMPARE(w->diagram_->play(), 4);
        QCOMPARE(w->diagram_->picture(), fifth);
        w->diagram_->choosePlay(0);
        // The field fills the picture: no black stripe anywhere along its edges.
        const QImage picture = w->diagram_->picture();
        for (int y = 0; y < picture.height(); y += 7)
            for (int x : {0, picture.width() / 2, picture.width() - 1}) QVERIFY(picture.pixelColor(x, y) != QColor(Qt::black));
        const QString png = QString::fromStdString(fx.cwd.file("big"));
        fx.dialogs->files.push_back(png);
        w->diagram_->savePicture();
        QCOMPARE(fx.dialogs->suggestions.back(), QString("SLOT 2 - play 1 (00-00).png"));
        QCOMPARE(QImage(png + ".png").size(), w->diagram_->picture().size());
        // A formation: the play selector goes.
        w->selectTab(1);
        QTest::mouseDClick(static_cast<QWidget*>(w->formations().picFormation), Qt::LeftButton);
        test::WindowFixture::clickRow(w->formations().lvFormations, 4);
        QVERIFY(w->diagram_->windowTitle().endsWith("FORM 4 \u2014 formation 4"));
        QVERIFY(!w->diagram_->findChild<QComboBox*>()->isVisible());
    }

    // The diagram zooms from 1 (fits the window) to 4 and back, and takes the
    // main window's shortcuts: Ctrl+Z undoes there, Ctrl+S saves.
    void theDiagramZoomsAndSharesUndoAndSave() {
        open();
        openBigDiagram(2);
        QWidget* view = w->diagram_->findChild<QWidget*>("diagramView");
        const QSize fit = view->size();
        w->diagram_->setZoom(2);
        QApplication::processEvents();
        QVERIFY(view->height() >= 2 * fit.height() - 4 && view->width() >= 2 * fit.width() - 40);
        QCOMPARE(w->diagram_->picture().size(), view->size());
        w->diagram_->setZoom(100);
        QCOMPARE(w->diagram_->zoom(), 4.0);
        w->diagram_->setZoom(0.2);
        QApplication::processEvents();
        QCOMPARE(w->diagram_->zoom(), 1.0);
        QCOMPARE(view->size(), fit);

        const auto fileBefore = fx.image->read();
        w->selectTab(2);
        selectRow(w->playSlots().lvPlaySlots, 2);
        w->playSlots().cmdSwapPlaySlot_Click();
        test::WindowFixture::clickRow(w->playSlots().lvPlaySlots, 5);
        QVERIFY2(w->isWindowModified(), qPrintable(w->StatusBar1->text()));
        w->diagram_->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(w->diagram_));
        QTest::keyClick(view, Qt::Key_Z, Qt::ControlModifier);
        QVERIFY(!w->isWindowModified());
        QCOMPARE(w->StatusBar1->text(), QString("Undone: Swap slot 2 (R1) and slot 5 (R1)."));
        QTest::keyClick(view, Qt::Key_Z, Qt::ControlModifier | Qt::ShiftModifier);
        QVERIFY(w->isWindowModified());
        QTest::keyClick(view, Qt::Key_Z, Qt::ControlModifier);
        QTest::keyClick(view, Qt::Key_Y, Qt::ControlModifier);  // the other redo key
        QVERIFY(w->isWindowModified());
        QTest::keyClick(view, Qt::Key_S, Qt::ControlModifier);
        QVERIFY(!w->isWindowModified());
        // The save kept the history: the swap can still be undone, which the file does not hold.
        QCOMPARE(w->mnuEditUndo->text(), QString("&Undo Swap slot 2 (R1) and slot 5 (R1)"));
        w->mnuEditUndo->trigger();
        QVERIFY(w->isWindowModified());
        QVERIFY(w->runSave());
        QCOMPARE(fx.image->read(), fileBefore);
    }

    // Shaping a play on the big diagram: a handle dragged with the mouse moves
    // its point (one undo step, asked about first: A010 is shared), an arrow
    // key moves it a pixel, the picked command shows in the editor panel.
    void dragAPointOnTheDiagramAndUndo() {
        open();
        openBigDiagram(0);
        auto* view = w->diagram_->findChild<QWidget*>("diagramView");
        QVERIFY(view);
        const double scale = view->height() / 217.0;
        auto at = [&](int x, int y) { return QPoint(static_cast<int>(x * scale), static_cast<int>(y * scale)); };
        const auto points = playPoints(w->pb, 0, 0)[0];  // the QB: A000's placement, A010's move
        QCOMPARE(points.size(), size_t(2));
        const DiagramPoint move = points[1];
        QCOMPARE(move.sequence, 0xA010_seq);
        QTest::mousePress(view, Qt::LeftButton, {}, at(move.x, move.y));
        QCOMPARE(w->sequences().lstSeqCommands->currentRow(), 0);  // the picked point's command, in the panel
        QCOMPARE(w->doc_.workingCopy.address(), 0xA010);
        fx.dialogs->answers = {MsgAnswer::All};
        QTest::mouseMove(view, at(move.x + 8, move.y - 8));
        QTest::mouseRelease(view, Qt::LeftButton, {}, at(move.x + 8, move.y - 8));
        QCOMPARE(fx.dialogs->boxes.back().text, QString("Used by 1 play and 1 pointer."));
        QCOMPARE(w->pb.sequences.at(0xA010_seq).data(0, 0), int16_t(0xF8));  // 8 up
        QCOMPARE(w->pb.sequences.at(0xA010_seq).data(0, 1), int16_t(0x28));  // 0x20 + 8 forward
        QCOMPARE(w->doc_.workingCopy.data(0, 1), int16_t(0x28));  // the panel shows it as stored
        QVERIFY(w->isWindowModified());
        w->doc_.undo();
        QCOMPARE(w->pb.sequences.at(0xA010_seq).data(0, 1), int16_t(0x20));
        QVERIFY(!w->isWindowModified());
        fx.dialogs->answers = {MsgAnswer::All};
        QTest::keyClick(view, Qt::Key_Right);
        QCOMPARE(w->pb.sequences.at(0xA010_seq).data(0, 1), int16_t(0x21));
        // Play: the slider walks the segments; its tooltip says it is not the game's timing.
        auto* slider = w->diagram_->findChild<QSlider*>();
        QVERIFY(slider->toolTip().contains("not the game's timing"));
        QCOMPARE(w->diagram_->animationSteps(), 1);
        const QString gif = QString::fromStdString(fx.cwd.file("play.gif"));
        fx.dialogs->files.push_back(gif);
        w->diagram_->saveAnimation();
        QImageReader frames(gif);
        QCOMPARE(frames.imageCount(), 3);  // the placements, one segment, the last held
    }

    // A play exported from the Plays menu comes back through File > Import
    // Play or Slot... into the first play no slot uses: the picture is shown
    // first (cancelled, nothing happens), then it is one step of the history,
    // the image modified until Save; the Play Library shows the file, its
    // filter hides it, and a drop on a Plays row brings it in there.
    void playsTravelThroughFilesTheLibraryAndDrops() {
        open();
        const QString file = QString::fromStdString(fx.cwd.file("play one.json"));
        fx.dialogs->files.push_back(file);
        w->exportPlay(1);
        QVERIFY(test::readFileText(file.toStdString()).find("\"zpe play\"") != std::string::npos);
        QVERIFY(w->StatusBar1->text().startsWith("Wrote play 1 (1)"));

        const std::vector<uint8_t> before = fx.image->read();
        fx.dialogs->choices.push_back(0);
        fx.dialogs->previewAnswers.push_back(false);
        QVERIFY(!w->importCarriedFile(file, std::nullopt));
        QVERIFY(!w->isWindowModified());
        QVERIFY(fx.dialogs->offered.back().back().startsWith("The first play no slot uses: play 2 (2)"));
        fx.dialogs->choices.push_back(0);
        QVERIFY(w->importCarriedFile(file, std::nullopt));
        QCOMPARE(w->pb.plays[2].seqAddress(0), 0xA020_seq);
        QVERIFY(w->isWindowModified());
        QCOMPARE(fx.image->read(), before);
        QVERIFY(w->mnuEditUndo->text().contains("Import play one.json into play 2 (2)"));
        w->mnuEditUndo->trigger();
        QCOMPARE(w->pb.plays[2].seqAddress(0), SeqKey::none());
        QVERIFY(!w->isWindowModified());
        w->mnuEditRedo->trigger();
        QVERIFY(w->runSave());
        QCOMPARE(openRom(fx.imagePath().toStdString(), fx.data.path()).plays[2].seqAddress(0), 0xA020_seq);

        // The library, its folder chosen with "Folder...".
        fx.dialogs->files.push_back(QString::fromStdString(fx.cwd.path()));
        w->chooseLibraryFolder();
        QCOMPARE(w->library_->folder(), QFileInfo(QString::fromStdString(fx.cwd.path())).absoluteFilePath());
        QCOMPARE(w->library_->shownFiles(), QStringList{file});
        QVERIFY(w->library_->list->item(0)->text().startsWith("play one"));
        w->library_->filter->setText("nothing like it");
        QVERIFY(w->library_->shownFiles().isEmpty());
        w->library_->filter->clear();

        // A drop on play 5's row.
        w->selectTab(3);
        w->show();
        QTreeWidget* plays = w->plays().lvPlays;
        const QPoint at = plays->visualItemRect(plays->topLevelItem(5)).center();
        QMimeData data;
        data.setUrls({QUrl::fromLocalFile(file)});
        QDragEnterEvent enter(at, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(plays->viewport(), &enter);
        QVERIFY(enter.isAccepted());
        QDropEvent drop(QPointF(at), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(plays->viewport(), &drop);
        QCOMPARE(w->pb.plays[5].seqAddress(0), 0xA020_seq);
        QVERIFY(w->isWindowModified());

        // A slot file dropped on a row of Plays is not taken for a play.
        const QString slotFile = QString::fromStdString(fx.cwd.file("slot one.json"));
        fx.dialogs->files.push_back(slotFile);
        w->exportSlot(1);
        const size_t steps = w->doc_.steps();
        QMimeData slotData;
        slotData.setUrls({QUrl::fromLocalFile(slotFile)});
        const QPoint row5 = plays->visualItemRect(plays->topLevelItem(5)).center();
        QDragEnterEvent again(row5, Qt::CopyAction, &slotData, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(plays->viewport(), &again);
        QDropEvent wrong(QPointF(row5), Qt::CopyAction, &slotData, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(plays->viewport(), &wrong);
        QCOMPARE(w->doc_.steps(), steps);
        QVERIFY(w->StatusBar1->text().contains("a slot onto a row of Play Slots"));

        // The library docked beside the tabs: the tab is laid out in the room left, its controls in view.
        w->library_->show();
        QApplication::processEvents();
        QVERIFY(w->client->width() < w->width());
        QVERIFY(w->filterBox_->mapTo(w->client, QPoint(w->filterBox_->width(), 0)).x() <= w->client->width());
        QVERIFY(w->plays().lvPlays->geometry().right() <= w->client->width());
    }
};

QTEST_MAIN(KeepsWorkTest)
#include "keeps_work_test.moc"
