// The window as a user meets it: start-up, layout, the Formations, Play Slots
// and Plays tabs, the File and Help menus.
#include "window_fixture.h"
#include "diagram/diagram.h"
#include "playbook/open_rom.h"
#include "render/raster_canvas.h"
#include "ui/layout.h"
#include "ui/picture_box.h"
#include "ui/up_down.h"

#include <QAction>
#include <QApplication>
#include <cstdio>
#include <QComboBox>
#include <QLabel>
#include <QPushButton>
#include <QTabBar>
#include <QLineEdit>
#include <QListWidget>
#include <QTest>
#include <QTreeWidget>
#include <sys/stat.h>

using namespace zpe;
using zpe::test::FakeDialogs;
using zpe::test::ImageBuilder;

namespace {

// A playbook with distinct slots, two formations with sequences and one whose
// WR1 and TE have none.
ImageBuilder windowImage() {
    ImageBuilder b;
    b.bytesAt(0xA000, {0xD0, 0xF0, 0x12, 0xEE})              // QB
        .bytesAt(0xA004, {0xD0, 0xF0, 0x30, 0xEC})           // RB
        .bytesAt(0xA008, {0x32, 0xD7, 0x05, 0xFD, 0xFE, 0xFC})  // a block and a move
        .bytesAt(0xA010, {0xD7, 0x00, 0x20, 0xFE, 0x10})     // -> A023
        .bytesAt(0xA023, {0xC7, 0x34, 0x12, 0xE4})
        .bytesAt(0xA030, {0x94, 0x11, 0x22, 0x33, 0x44, 0xE4});
    for (int f = 4; f < 22; ++f) b.formation(f, {0xA000, 0xA004, 0xA000, 0xA004, 0xA000, 0xA004, 0xA000, 0xA004, 0xA000, 0xA004, 0xA000});
    b.formationPlayer(5, 3, test::kDeadAddress).formationPlayer(5, 5, test::kDeadAddress);
    b.play(0, {0xA010, 0xA008}).pointer(0, 0xA030);
    for (int s = 0; s < 64; ++s) {
        test::SlotSpec spec{"SLOT " + std::to_string(s), 4 + s % 2, {}, {}};
        for (int j = 0; j < 8; ++j) {
            spec.oPlays[static_cast<size_t>(j)] = (s + j) % 3 == 0 ? 0 : 1;
            spec.dPlays[static_cast<size_t>(j)] = (s * 8 + j) & 0xFF;
        }
        b.slot(s, spec);
    }
    return b;
}

}  // namespace

class FrmMainTest : public QObject {
    Q_OBJECT

    test::WindowFixture fx;
    test::TempDir& data = fx.data;
    test::TempDir& cwd = fx.cwd;
    std::unique_ptr<test::TempFile>& image = fx.image;
    std::unique_ptr<FakeDialogs>& dialogs = fx.dialogs;
    std::unique_ptr<frmMain>& w = fx.w;

    void openWindowImage() {
        dialogs->files.push_back(fx.imagePath());
        w->mnuFileOpen_Click();
        QVERIFY(w->pb.openComplete);
    }
    QStringList rowCells(QTreeWidget* lv, int row) {
        QStringList cells;
        for (int c = 0; c < lv->columnCount(); ++c)
            if (lv != w->playSlots().lvPlaySlots || c != PlaySlotsTab::kSlotNumberColumn) cells << lv->topLevelItem(row - 1)->text(c);
        return cells;
    }
    static void clickRow(QTreeWidget* lv, int row) { test::WindowFixture::clickRow(lv, row); }

private slots:
    void init() { fx.start(windowImage()); }
    void cleanup() { fx.stop(); }

    // Every button, data box and list says what it does; an empty list enables no copy or swap.
    void everyControlHasATooltip() {
        for (QWidget* c : w->findChildren<QWidget*>()) {
            if (!qobject_cast<QPushButton*>(c) && !qobject_cast<QLineEdit*>(c)) continue;
            QVERIFY2(!c->toolTip().isEmpty(), qPrintable(c->objectName() + " " + c->metaObject()->className()));
        }
        QVERIFY(!w->playSlots().cmdCopyPlaySlot->isEnabled() && !w->playSlots().cmdSwapPlaySlot->isEnabled());
        QVERIFY(!w->sequences().cmdSeqDelCmd->isEnabled() && !w->sequences().cmdSeqAddCmd->isEnabled() && !w->sequences().udSeqCommand->isEnabled());
    }

    // At the design size the editor keeps its specified size; a taller window gives it room.
    void aTallerWindowGrowsTheEditor() {
        openWindowImage();
        w->selectTab(4);
        w->sequences().cmdSeqDetails_Click();
        QCOMPARE(w->sequences().lstSeqCommands->height(), pixels(1875));
        QCOMPARE(w->sequences().fraSeqDetails->height(), pixels(kSeqDetailsHeight));
        w->setClientSize(kDesignClientWidth, kDesignClientHeight + 3000);
        QCOMPARE(w->sequences().lstSeqCommands->height(), pixels(1875 + 1500));
        QVERIFY(w->sequences().cmdSeqApply->y() + w->sequences().cmdSeqApply->height() <= w->sequences().fraSeqDetails->height());
        // Room for twice the play picture: it is drawn twice as large, as `zpe render --scale 2` draws it.
        w->setClientSize(kDesignClientWidth * 2, kDesignClientHeight * 2);
        w->selectTab(2);
        w->playSlots().cmdPlaySlotDetails_Click();
        clickRow(w->playSlots().lvPlaySlots, 0);
        QCOMPARE(w->playSlots().picPlay->size(), QSize(2 * 329, 2 * 217));
        RasterCanvas big(2 * 329, 2 * 217);
        ScaledCanvas scaled(big, 2);
        zpe::DrawPlay(scaled, w->pb, 0, 0);
        QCOMPARE(w->playSlots().picPlay->image(), wrapCanvas(big).copy());
        w->setClientSize(kDesignClientWidth, kDesignClientHeight);
        QCOMPARE(w->playSlots().picPlay->size(), QSize(329, 217));
    }

    void startUpShowsTheEmptyFormationsTab() {
        QCOMPARE(w->windowTitle(), QString("Zentrel Playbook Editor BETA3"));
        QCOMPARE(w->selectedTab(), 1);
        QVERIFY(w->formations().lvFormations->isVisible());
        QCOMPARE(w->formations().lvFormations->topLevelItemCount(), 0);
        QVERIFY(!w->playSlots().lvPlaySlots->isVisible());
        QCOMPARE(w->formations().cmdFormationViewGFX->text(), QString("View GFX"));
        QVERIFY(!w->formations().cmdFormationViewGFX->isEnabled());
        QVERIFY(w->mnuFileOpen->isEnabled());
        QVERIFY(!w->mnuFileSave->isEnabled() && !w->mnuFileSafeSave->isEnabled() && !w->mnuFileExportMaskROM->isEnabled());
        QCOMPARE(w->sequences().cmbNewSeqCmd->count(), 77);
        QCOMPARE(w->scaleWidth(), kDesignClientWidth);
    }

    void tooSmallWindowStopsTheLayoutQuietly() {
        const auto steps = tabLayout({2, {100, 400, 3000, 3000}, false, true, false});
        QVERIFY(!stepApplies(steps[0]));  // the list would get a negative height
        w->playSlots().showPlaySlotDetails = true;
        w->selectTab(2);
        w->resize(20, 20);
        QApplication::processEvents();
        QVERIFY(w->tabsFrame->width() >= 0 && w->tabsFrame->height() >= 0);
        w->setClientSize(kDesignClientWidth, kDesignClientHeight);
        QVERIFY(w->playSlots().lvPlaySlots->isVisible());
        QVERIFY(w->playSlots().fraPlayDetails->isVisible());
        QVERIFY(dialogs->boxes.empty());
    }

    void openFillsTheListsAndEnablesSaving() {
        openWindowImage();
        QCOMPARE(dialogs->filters.value(0), QString("NES ROMS (*.nes)|*.nes|All Files|*.*"));
        QCOMPARE(qtFilter(dialogs->filters.value(0)), QString("NES ROMS (*.nes);;All Files (*)"));
        QCOMPARE(w->formations().lvFormations->topLevelItemCount(), 22);
        QCOMPARE(w->playSlots().lvPlaySlots->topLevelItemCount(), 64);
        QCOMPARE(w->plays().lvPlays->topLevelItemCount(), 116);
        QCOMPARE(w->sequences().lvSequences->topLevelItemCount(), 6);
        QCOMPARE(rowCells(w->playSlots().lvPlaySlots, 1), (QStringList{"SLOT 0", "R1", "FORM 4", "00:00", "01:01", "01:02", "00:03", "01:04", "01:05", "00:06", "01:07"}));
        QCOMPARE(rowCells(w->sequences().lvSequences, 1).first(), QString("A000-A003"));
        QCOMPARE(rowKey(w->sequences().lvSequences->topLevelItem(0)), std::optional<SeqKey>(0xA000_seq));
        // 700 twips, or wider where the addresses would be cut.
        QVERIFY(w->formations().lvFormations->columnWidth(1) >= pixels(700));
        QVERIFY(w->formations().lvFormations->columnWidth(1) >= w->formations().lvFormations->fontMetrics().horizontalAdvance("A000"));
        QVERIFY(w->sequences().lvSequences->columnWidth(0) >= w->sequences().lvSequences->fontMetrics().horizontalAdvance("A000-A003"));
        QVERIFY(w->mnuFileSave->isEnabled() && w->mnuFileSafeSave->isEnabled() && w->mnuFileExportMaskROM->isEnabled());
        QVERIFY(QFile::exists(QString::fromStdString(cwd.file("cpu.txt"))));
    }

    void cancelledOrFailedOpenIsSilent() {
        w->mnuFileOpen_Click();  // cancel
        QVERIFY(w->pb.romPath.empty());
        const auto blank = ImageBuilder().write();
        dialogs->files.push_back(QString::fromStdString(blank.path()));
        w->mnuFileOpen_Click();
        QVERIFY(dialogs->boxes.empty());
        QCOMPARE(w->sequences().lvSequences->topLevelItemCount(), 0);
        QVERIFY(!w->mnuFileSafeSave->isEnabled());
        // A save after an open that did not complete is refused with a reason.
        const auto before = blank.read();
        w->mnuFileSafeSave_Click();
        QCOMPARE(dialogs->boxes.size(), size_t(1));
        QVERIFY(dialogs->boxes[0].text.contains("did not open completely"));
        QCOMPARE(blank.read(), before);
    }

    void formationClickDrawsAndWarnsPerMissingPlayer() {
        openWindowImage();
        clickRow(w->formations().lvFormations, 5);  // formation 5: WR1 and TE have no sequence
        QCOMPARE(dialogs->boxes.size(), size_t(2));
        QCOMPARE(dialogs->boxes[0].text, QString("Unable to find the sequence for WR1"));
        QCOMPARE(dialogs->boxes[1].text, QString("Unable to find the sequence for TE"));
        QVERIFY(w->formations().cmdFormationViewGFX->isEnabled());
        // Drawn while hidden; shown by View GFX without drawing again.
        QVERIFY(!w->formations().picFormation->isVisible());
        QCOMPARE(QColor(w->formations().picFormation->image().pixel(0, 0)), QColor(0, 128, 0));
        w->formations().cmdFormationViewGFX->click();
        QVERIFY(w->formations().picFormation->isVisible());
        QCOMPARE(w->formations().cmdFormationViewGFX->text(), QString("Hide GFX"));
        QCOMPARE(w->formations().picFormation->x(), pixels(w->tabClient().left));
        QCOMPARE(w->formations().lvFormations->x(), w->formations().picFormation->x() + w->formations().picFormation->width());
        QCOMPARE(dialogs->boxes.size(), size_t(2));
        w->selectTab(3);
        w->selectTab(1);
        QVERIFY(w->formations().showFormationGFX);
        w->formations().cmdFormationViewGFX->click();
        QVERIFY(!w->formations().picFormation->isVisible());
        QCOMPARE(w->formations().cmdFormationViewGFX->text(), QString("View GFX"));
        QCOMPARE(w->formations().lvFormations->x(), pixels(w->tabClient().left));
    }

    void copyWithinAGroupThroughClicks() {
        openWindowImage();
        w->selectTab(2);
        QVERIFY(!w->playSlots().cmdCopyPlaySlot->isEnabled());
        clickRow(w->playSlots().lvPlaySlots, 2);
        QVERIFY(w->playSlots().cmdCopyPlaySlot->isEnabled());
        QTest::mouseClick(w->playSlots().cmdCopyPlaySlot, Qt::LeftButton);
        QCOMPARE(w->playSlots().cmdCopyPlaySlot->text(), QString("Cancel Copy"));
        QVERIFY(!w->playSlots().cmdSwapPlaySlot->isEnabled());
        QCOMPARE(w->StatusBar1->text(), QString("Select the slot to be replaced with SLOT 2..."));
        const QStringList row3 = rowCells(w->playSlots().lvPlaySlots, 3);
        clickRow(w->playSlots().lvPlaySlots, 5);
        QCOMPARE(w->playSlots().slotAction, SlotAction::None);
        QCOMPARE(w->StatusBar1->text(), QString("Copied slot 2 (R1) over slot 5 (R1), not saved yet."));
        QCOMPARE(w->playSlots().cmdCopyPlaySlot->text(), QString("Copy"));
        QCOMPARE(rowCells(w->playSlots().lvPlaySlots, 6), row3);
        QCOMPARE(rowCells(w->playSlots().lvPlaySlots, 3), row3);
        QVERIFY(w->pb.playSlots[5] == w->pb.playSlots[2]);
        QVERIFY(dialogs->boxes.empty());
    }

    void swapAcrossGroupsRewritesBothRows() {
        openWindowImage();
        w->selectTab(2);
        const clsPlaySlot s40 = w->pb.playSlots[40], s63 = w->pb.playSlots[63];
        selectRow(w->playSlots().lvPlaySlots, 40);
        w->playSlots().cmdSwapPlaySlot_Click();
        QCOMPARE(w->playSlots().cmdSwapPlaySlot->text(), QString("Cancel Swap"));
        QVERIFY(!w->playSlots().cmdCopyPlaySlot->isEnabled());
        QCOMPARE(w->StatusBar1->text(), QString("Select the slot to be swapped with SLOT 40..."));
        selectRow(w->playSlots().lvPlaySlots, 63);
        w->playSlots().lvPlaySlots_Click();
        QCOMPARE(QString::fromStdString(w->pb.playSlots[40].name()), QString("SLOT 63"));
        QCOMPARE(w->pb.playSlots[40].dPlay(5), s63.dPlay(7));
        QCOMPARE(w->pb.playSlots[40].dPlay(7), s63.dPlay(5));
        QCOMPARE(w->pb.playSlots[63].dPlay(5), s40.dPlay(7));
        QCOMPARE(rowCells(w->playSlots().lvPlaySlots, 41).first(), QString("SLOT 63"));
        QCOMPARE(rowCells(w->playSlots().lvPlaySlots, 64).first(), QString("SLOT 40"));
        QCOMPARE(rowCells(w->playSlots().lvPlaySlots, 41).at(1), QString("P2"));
    }

    // The keyboard alone: Copy, then the arrow keys and Enter pick the target;
    // Ctrl+Tab and Ctrl+PgUp switch tabs; Save keeps the slot and its picture.
    void theKeyboardPicksTheTargetAndSwitchesTabs() {
        openWindowImage();
        w->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(w.get()));
        w->selectTab(2);
        clickRow(w->playSlots().lvPlaySlots, 2);
        QTest::mouseClick(w->playSlots().cmdCopyPlaySlot, Qt::LeftButton);
        QVERIFY(w->playSlots().lvPlaySlots->hasFocus());
        QTest::keyClick(w->playSlots().lvPlaySlots, Qt::Key_Down);
        QTest::keyClick(w->playSlots().lvPlaySlots, Qt::Key_Down);
        QCOMPARE(w->playSlots().slotAction, SlotAction::Copy);  // moving waits for Enter
        QTest::keyClick(w->playSlots().lvPlaySlots, Qt::Key_Return);
        QCOMPARE(w->playSlots().slotAction, SlotAction::None);
        QCOMPARE(w->StatusBar1->text(), QString("Copied slot 2 (R1) over slot 4 (R1), not saved yet."));
        QVERIFY(w->pb.playSlots[4] == w->pb.playSlots[2]);

        const QImage drawn = w->playSlots().picPlay->image();
        QVERIFY(w->runSave());
        QCOMPARE(selectedRow(w->playSlots().lvPlaySlots), 4);
        QVERIFY(w->playSlots().picPlay->image() == drawn);

        QTest::keyClick(w->playSlots().lvPlaySlots, Qt::Key_Tab, Qt::ControlModifier);
        QCOMPARE(w->selectedTab(), 3);
        QTest::keyClick(w->plays().lvPlays, Qt::Key_PageDown, Qt::ControlModifier);
        QCOMPARE(w->selectedTab(), 4);
        QTest::keyClick(w->sequences().lvSequences, Qt::Key_PageDown, Qt::ControlModifier);
        QCOMPARE(w->selectedTab(), 1);
        QTest::keyClick(w->formations().lvFormations, Qt::Key_PageUp, Qt::ControlModifier);
        QCOMPARE(w->selectedTab(), 4);
    }

    // The filter box at the tab strip's right: each list keeps its own text,
    // rows hide and come back, Ctrl+F reaches it; Play Slots show the slot's number.
    void theFilterBoxHidesRowsPerList() {
        openWindowImage();
        w->selectTab(2);
        QCOMPARE(w->playSlots().lvPlaySlots->topLevelItem(38)->text(PlaySlotsTab::kSlotNumberColumn), QString("38"));
        QVERIFY(w->filterBox_->isEnabled());
        selectRow(w->playSlots().lvPlaySlots, 4);  // selected, then hidden by the filter
        w->filterBox_->setText("slot 3");  // letter case ignored
        w->playSlots().cmdCopyPlaySlot_Click();
        QCOMPARE(w->playSlots().slotAction, SlotAction::None);  // a hidden slot is no source of a copy
        int shown = 0;
        for (int r = 0; r < w->playSlots().lvPlaySlots->topLevelItemCount(); ++r) shown += !w->playSlots().lvPlaySlots->topLevelItem(r)->isHidden();
        QCOMPARE(shown, 11);  // SLOT 3 and SLOT 30-39
        QVERIFY(w->playSlots().lvPlaySlots->topLevelItem(4)->isHidden());
        w->selectTab(4);
        QCOMPARE(w->filterBox_->text(), QString());  // the Sequences list has its own
        w->filterBox_->setText("C7");
        for (int r = 0; r < w->sequences().lvSequences->topLevelItemCount(); ++r)
            QCOMPARE(w->sequences().lvSequences->topLevelItem(r)->isHidden(), !w->sequences().lvSequences->topLevelItem(r)->text(1).contains("C7"));
        // A double-clicked player whose sequence the filter hides: the filter goes, the panel shows it.
        w->sequences().showEntrySequence({AreaEntry::Table::Play, 0, 0, {}});
        QCOMPARE(w->doc_.workingCopy.address(), 0xA010);
        QVERIFY(!w->sequences().lvSequences->topLevelItem(w->sequences().sequenceRow(0xA010_seq))->isHidden());
        QCOMPARE(w->filterBox_->text(), QString());
        w->selectTab(2);
        QCOMPARE(w->filterBox_->text(), QString("slot 3"));
        QVERIFY(w->runSave());  // the lists are filled again: the filters hold
        QVERIFY(w->playSlots().lvPlaySlots->topLevelItem(4)->isHidden());
        w->filterBox_->clear();
        QVERIFY(!w->playSlots().lvPlaySlots->topLevelItem(4)->isHidden());
        w->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(w.get()));
        QTest::keyClick(w->playSlots().lvPlaySlots, Qt::Key_F, Qt::ControlModifier);
        QVERIFY(w->filterBox_->hasFocus());
    }

    // Show Details shrinks the list; the selected row stays in view.
    void showDetailsKeepsTheSelectedRowInView() {
        openWindowImage();
        w->selectTab(2);
        selectRow(w->playSlots().lvPlaySlots, 60);
        w->playSlots().lvPlaySlots->scrollToItem(w->playSlots().lvPlaySlots->topLevelItem(60));
        w->playSlots().cmdPlaySlotDetails_Click();
        QApplication::processEvents();
        const QRect row = w->playSlots().lvPlaySlots->visualItemRect(w->playSlots().lvPlaySlots->topLevelItem(60));
        QVERIFY(w->playSlots().lvPlaySlots->viewport()->rect().contains(row));
    }

    void kindRefusalAndCancel() {
        openWindowImage();
        w->selectTab(2);
        const auto slotsBefore = w->pb.playSlots;
        selectRow(w->playSlots().lvPlaySlots, 31);
        w->playSlots().cmdCopyPlaySlot_Click();
        selectRow(w->playSlots().lvPlaySlots, 32);
        w->playSlots().lvPlaySlots_Click();
        QCOMPARE(dialogs->boxes.size(), size_t(1));
        QCOMPARE(dialogs->boxes[0].text, QString("Running and Passing plays are not interchangeable."));
        QVERIFY(w->pb.playSlots == slotsBefore);
        QCOMPARE(w->playSlots().slotAction, SlotAction::None);

        w->playSlots().cmdSwapPlaySlot_Click();
        w->playSlots().lvPlaySlots_Click();  // the same row
        QCOMPARE(dialogs->boxes.size(), size_t(2));
        QCOMPARE(dialogs->boxes[1].text, QString("Action Cancelled"));
        QVERIFY(w->pb.playSlots == slotsBefore);
        QCOMPARE(w->playSlots().slotAction, SlotAction::None);
    }

    void pendingActionsEndWithoutChange() {
        openWindowImage();
        w->selectTab(2);
        const auto slotsBefore = w->pb.playSlots;
        selectRow(w->playSlots().lvPlaySlots, 1);
        w->playSlots().cmdCopyPlaySlot_Click();
        w->playSlots().cmdCopyPlaySlot_Click();  // Cancel Copy
        QCOMPARE(w->playSlots().slotAction, SlotAction::None);
        QCOMPARE(w->StatusBar1->text(), QString());
        w->playSlots().cmdCopyPlaySlot_Click();
        w->selectTab(3);
        w->selectTab(2);
        QCOMPARE(w->playSlots().slotAction, SlotAction::None);
        w->show();
        w->playSlots().cmdCopyPlaySlot_Click();  // Escape in the list cancels, as the button does
        QTest::keyClick(w->playSlots().lvPlaySlots, Qt::Key_Escape);
        QCOMPARE(w->playSlots().slotAction, SlotAction::None);
        QCOMPARE(w->playSlots().cmdCopyPlaySlot->text(), QString("Copy"));
        w->playSlots().cmdSwapPlaySlot_Click();
        w->playSlots().cmdPlaySlotDetails_Click();  // a details toggle lays out again
        QCOMPARE(w->playSlots().slotAction, SlotAction::None);
        QCOMPARE(w->playSlots().cmdPlaySlotDetails->text(), QString("Hide Details"));
        // A click that leaves no row selected ends a pending action with no change.
        w->playSlots().cmdSwapPlaySlot_Click();
        w->playSlots().lvPlaySlots->clearSelection();
        w->playSlots().lvPlaySlots_Click();
        QCOMPARE(w->playSlots().slotAction, SlotAction::None);
        QVERIFY(w->pb.playSlots == slotsBefore);
        QVERIFY(dialogs->boxes.empty());
        QVERIFY(!w->playSlots().cmdCopyPlaySlot->isEnabled());
        // A click on the tab already shown lays it out again, which drops a pending action.
        selectRow(w->playSlots().lvPlaySlots, 1);
        w->playSlots().cmdCopyPlaySlot_Click();
        QTest::mouseClick(w->tabs, Qt::LeftButton, {}, w->tabs->tabRect(1).center());
        QCOMPARE(w->playSlots().slotAction, SlotAction::None);
        QCOMPARE(w->playSlots().cmdCopyPlaySlot->text(), QString("Copy"));
    }

    void selectingASlotDrawsItsPlay() {
        openWindowImage();
        w->selectTab(2);
        w->playSlots().cmdPlaySlotDetails_Click();
        QVERIFY(w->playSlots().fraPlayDetails->isVisible());
        QCOMPARE(w->playSlots().lvPlaySlots->height() + w->playSlots().fraPlayDetails->height() + w->playSlots().fraPlaySlots->height(), pixels(w->tabClient().height));
        clickRow(w->playSlots().lvPlaySlots, 0);
        const QImage pic = w->playSlots().picPlay->image();
        QCOMPARE(QColor(pic.pixel(104, 5)), QColor(255, 255, 255));  // line of scrimmage
        QCOMPARE(QColor(pic.pixel(100 + 16, 108)), QColor(255, 0, 0));  // the QB's play path (D7 00 20)
    }

    void fullSaveAskedFirst() {
        openWindowImage();
        const auto before = image->read();
        dialogs->answers.push_back(MsgAnswer::No);
        w->mnuFileSave_Click();
        QCOMPARE(dialogs->boxes.size(), size_t(1));
        QVERIFY(dialogs->boxes[0].buttons == MsgButtons::YesNo);
        QCOMPARE(image->read(), before);
        QCOMPARE(w->pb.sequences.keys().front(), 0xA000_seq);

        dialogs->answers.push_back(MsgAnswer::Yes);
        w->mnuFileSave_Click();
        QVERIFY(image->read() != before);
        // The lists that show addresses follow the new layout.
        QStringList addresses;
        for (int r = 1; r <= w->sequences().lvSequences->topLevelItemCount(); ++r) addresses << rowCells(w->sequences().lvSequences, r).first();
        QCOMPARE(addresses.first(), QString("A000-A003"));
        // Discovery order: A000, A004 (formations), A030 (pointer), A010 -> A023, A008 (play 0).
        QCOMPARE(addresses, (QStringList{"A000-A003", "A004-A007", "A008-A00D", "A00E-A013", "A014-A017", "A018-A01D"}));
        QCOMPARE(rowCells(w->plays().lvPlays, 1).at(1), QString("A00E"));
    }

    void saveAfterAChangeOnDiskIsRefused() {
        openWindowImage();
        auto changed = image->read();
        changed[0x10] ^= 0xFF;  // another program's change
        image->write(changed);
        w->pb.playSlots[0].name("MINE");
        w->mnuFileSafeSave_Click();
        QCOMPARE(dialogs->boxes.size(), size_t(1));
        // The advice keeps the edits: Save As, not "open it again".
        QCOMPARE(dialogs->boxes[0].text, QString("image.nes changed on disk since it was opened (another program wrote it); nothing "
                                                 "was written\n\nSave all your edits as a new file instead? (Save As)"));
        QCOMPARE(image->read(), changed);
    }

    // A message longer than the window is wide is cut at its edge; the window keeps its size.
    void aLongStatusMessageDoesNotWidenTheWindow() {
        openWindowImage();
        const int width = w->width();
        w->StatusBar1->setText(QString("Compacted: 7,124 bytes the game runs, ").repeated(40));
        QApplication::processEvents();
        QCOMPARE(w->width(), width);
        QVERIFY(w->minimumSizeHint().width() < width + 1);
    }

    // Compaction is of the image as opened: after a change on disk it cannot
    // go on. With edits pending it offers Save As, which writes them to a new
    // file and leaves the changed one alone; with none it only says why.
    void compactAfterAChangeOnDiskOffersSaveAsForTheEdits() {
        openWindowImage();
        auto changed = image->read();
        changed[0x10] ^= 0xFF;
        image->write(changed);
        w->mnuFileCompact_Click();
        QCOMPARE(dialogs->boxes.size(), size_t(1));
        QVERIFY(dialogs->boxes[0].buttons == MsgButtons::Ok);
        QVERIFY(dialogs->boxes[0].text.startsWith("image.nes changed on disk since it was opened"));

        w->pb.playSlots[0].name("MINE");
        const QString out = QString::fromStdString(cwd.file("mine.nes"));
        dialogs->answers.push_back(MsgAnswer::Yes);
        dialogs->files.push_back(out);
        w->mnuFileCompact_Click();
        QCOMPARE(dialogs->boxes.size(), size_t(2));
        QVERIFY(dialogs->boxes[1].text.endsWith("Save all your edits as a new file instead? (Save As)"));
        QCOMPARE(image->read(), changed);  // the other program's change stands
        const Playbook mine = openRom(out.toStdString(), data.path());
        QCOMPARE(QString::fromStdString(mine.playSlots[0].name()), QString("MINE"));
    }

    // Back in the window after another program wrote the file, or deleted it:
    // said at once, once, with the edits kept.
    void aChangeOnDiskIsSaidWhenTheWindowIsActiveAgain() {
        openWindowImage();
        w->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(w.get()));
        QEvent back(QEvent::ActivationChange);
        QApplication::sendEvent(w.get(), &back);
        QVERIFY(dialogs->boxes.empty());  // nothing changed: nothing said
        w->pb.playSlots[0].name("MINE");
        auto changed = image->read();
        changed[0x10] ^= 0xFF;
        image->write(changed);
        QApplication::sendEvent(w.get(), &back);
        QCOMPARE(dialogs->boxes.size(), size_t(1));
        QVERIFY(dialogs->boxes[0].text.startsWith("image.nes changed on disk since it was opened"));
        QVERIFY(dialogs->boxes[0].text.contains("Your edits here are kept."));
        QApplication::sendEvent(w.get(), &back);
        QCOMPARE(dialogs->boxes.size(), size_t(1));  // once
        QCOMPARE(QString::fromStdString(w->pb.playSlots[0].name()), QString("MINE"));

        QVERIFY(w->openImage(fx.imagePath()));  // read again: a deleted file is said too
        QVERIFY(std::remove(image->path().c_str()) == 0);
        QApplication::sendEvent(w.get(), &back);
        QCOMPARE(dialogs->boxes.size(), size_t(2));
        QVERIFY(dialogs->boxes[1].text.contains("image.nes"));
        image->write(changed);
    }

    void failedOpenSaysWhyInTheStatusBar() {
        const auto bad = ImageBuilder().pointer(3, 0x1234).write();
        QVERIFY(!w->openImage(QString::fromStdString(bad.path())));
        QVERIFY(dialogs->boxes.empty());
        QCOMPARE(w->StatusBar1->text(), QString("image.nes: the pointer table points below the image (0x1234)"));
    }

    void saveFailuresAreReported() {
        openWindowImage();
        // With the slots as the file holds them Safe Save writes nothing (and cannot fail).
        w->mnuFileSafeSave_Click();
        QVERIFY(dialogs->boxes.empty());
        QVERIFY(w->StatusBar1->text().contains("the file was left alone"));
        w->pb.playSlots[9].oPlay(0, 5);
        ::chmod(image->path().c_str(), 0444);
        w->mnuFileSafeSave_Click();
        QCOMPARE(dialogs->boxes.size(), size_t(1));
        QVERIFY(dialogs->boxes[0].text.contains("read-only"));
        // As every refusal to reach the file, it offers Save As: the work in memory can go to a new file.
        QVERIFY(dialogs->boxes[0].text.endsWith("Save all your edits as a new file instead? (Save As)"));
        QVERIFY(dialogs->boxes[0].buttons == MsgButtons::YesNo);
        ::chmod(image->path().c_str(), 0644);
    }

    void exportMaskRomAsksForAFile() {
        openWindowImage();
        const QString out = QString::fromStdString(cwd.file("mask.nes"));
        dialogs->files.push_back(out);
        w->mnuFileExportMaskROM_Click();
        QCOMPARE(dialogs->filters.last(), QString("NES ROMS (*.nes)|*.nes|All Files|*.*"));
        QVERIFY(QFileInfo(out).size() > 0xA000);
        w->mnuFileExportMaskROM_Click();  // cancelled: nothing, no box
        dialogs->files.push_back("/nonexistent/folder/mask.nes");
        w->mnuFileExportMaskROM_Click();  // fails without a box; the reason is in the status bar
        QVERIFY(dialogs->boxes.empty());
        QVERIFY(w->StatusBar1->text().contains("/nonexistent/folder/mask.nes"));
    }

    void checkImageShowsTheAreaReport() {
        QVERIFY(!w->mnuFileCheckImage->isEnabled());
        openWindowImage();
        QVERIFY(w->mnuFileCheckImage->isEnabled());
        w->mnuFileCheckImage_Click();
        QCOMPARE(dialogs->texts.size(), size_t(1));
        QVERIFY(dialogs->texts[0].first.endsWith("image.nes"));
        QVERIFY(dialogs->texts[0].second.startsWith("Sequence area A000-BFFF"));
        QVERIFY(dialogs->texts[0].second.contains("What Full Save would break"));
    }

};

QTEST_MAIN(FrmMainTest)
#include "frm_main_test.moc"
