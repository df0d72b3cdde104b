// The Sequences tab's editor panel: the working copy, the data slots described
// by the command sheets, and Apply back into the playbook and the image.
#include "window_fixture.h"

#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTest>
#include <QTreeWidget>

using namespace zpe;
using zpe::test::FakeDialogs;
using zpe::test::ImageBuilder;

namespace {
ImageBuilder panelImage() {
    return ImageBuilder()
        .bytesAt(0xA000, {0x32, 0xD7, 0x05, 0xFD, 0xC7, 0x34, 0x12, 0xFF, 0x10, 0xA0})
        .bytesAt(0xA010, {0x94, 0x11, 0x22, 0x33, 0x44, 0xE4})
        .bytesAt(0xA020, {0xD7, 0x01, 0x02, 0xE4})
        .bytesAt(0xA030, {0x32, 0xD7, 0x05, 0xFD, 0xFE, 0xFC})  // a loop back to the block
        .pointer(0, 0xA000)
        .pointer(1, 0xA020)
        .pointer(2, 0xA030)
        .bytesAt(0xA040, {0x20, 0x43, 0xA0, 0xD7, 0x01, 0x02, 0xE4})  // a branch to its own Move Relative
        .pointer(3, 0xA040);
}
}  // namespace

class SeqPanelTest : public QObject {
    Q_OBJECT

    test::WindowFixture fx;
    test::TempDir& cwd = fx.cwd;
    std::unique_ptr<test::TempFile>& image = fx.image;
    std::unique_ptr<FakeDialogs>& dialogs = fx.dialogs;
    std::unique_ptr<frmMain>& w = fx.w;

    QStringList rows() {
        QStringList out;
        for (int i = 0; i < w->sequences().lstSeqCommands->count(); ++i) out << w->sequences().lstSeqCommands->item(i)->text();
        return out;
    }
    // Selects the Sequences row whose address range starts with `start` and clicks it.
    void pickSequence(const QString& start) {
        for (int r = 0; r < w->sequences().lvSequences->topLevelItemCount(); ++r)
            if (w->sequences().lvSequences->topLevelItem(r)->text(0).startsWith(start)) return test::WindowFixture::clickRow(w->sequences().lvSequences, r);
        QFAIL("no such sequence");
    }
    bool slotShown(int k) { return !w->sequences().txtSeqData[k]->isHidden(); }

private slots:
    void initTestCase() {
        fx.data.writeText("cmdinfo/C7.txt",
                       "Field,1,Target,List\r\nValue,1,0,First\r\nValue,1,1,Second\r\nValue,1,2,Third\r\nField,2,High,Text\r\n"
                       "Info,\"Branch, with notes\"\r\n");
        fx.data.writeText("cmdinfo/30.txt", "Field,1,Defender,List\r\nValue,1,0,RE\r\nValue,1,1,NT\r\n");
    }
    void init() {
        fx.start(panelImage());
        QVERIFY(w->openImage(fx.imagePath()));
        w->selectTab(4);
        w->sequences().cmdSeqDetails_Click();
    }
    void cleanup() { fx.stop(); }

    // A sequence made here has no address yet: the list names the commands its
    // fields lead to by their distance from its start, the value it cannot
    // take (a relative jump leading outside it) is said, not silently
    // dropped, and no new empty sequence starts as a relative jump.
    void aNewSequenceNamesItsOwnCommandsByDistance() {
        dialogs->choices = {0};  // a new copy of the current one
        w->sequences().pointEntryAt({AreaEntry::Table::Pointer, 3, 0, {}});
        QVERIFY(w->pb.seqPointers[3].isNew());
        QCOMPARE(rows(), (QStringList{"new: Cond. Branch (20) to new 1+3", "new: Move Relative (D-01,R-02)", "new: E4"}));
        dialogs->choices = {0};
        w->sequences().pointEntryAt({AreaEntry::Table::Pointer, 2, 0, {}});
        QCOMPARE(rows().last(), QString("new: Loop Back 4 bytes"));
        w->sequences().lstSeqCommands->setCurrentRow(2);
        const auto commands = w->doc_.workingCopy.commands();
        w->sequences().txtSeqData[0]->setText("40");  // 64 bytes on: outside the copy
        QCOMPARE(w->doc_.workingCopy.commands(), commands);
        QVERIFY2(w->StatusBar1->text().contains("no address yet"), qPrintable(w->StatusBar1->text()));
        QVERIFY(!w->sequences().cmdSeqApply->isEnabled());
        w->sequences().txtSeqData[0]->setText("FD");  // 3 back: the Move Relative, one of its own
        QCOMPARE(rows().last(), QString("new: Loop Back 3 bytes"));

        dialogs->choices = {1, 0};
        w->sequences().pointEntryAt({AreaEntry::Table::Pointer, 1, 0, {}});
        QVERIFY(!dialogs->offered.back().join("|").contains("FE"));
    }

    void selectingASequenceTakesAWorkingCopy() {
        pickSequence("A000");
        QCOMPARE(rows(), (QStringList{"A000: Block LE", "A001: Move Relative (D-05,L-03)", "A004: Cond. Branch (C7) to 1234", "A007: +A:A010"}));
        QCOMPARE(w->sequences().lstSeqCommands->currentRow(), 0);
        QVERIFY(!w->sequences().cmdSeqApply->isEnabled());
        QCOMPARE(w->doc_.workingCopy.address(), 0xA000);
        QCOMPARE(w->doc_.workingCopy.commands(), w->pb.sequences.at(0xA000_seq).commands());
    }

    void sheetsShapeTheSlots() {
        pickSequence("A000");  // row 0: 0x32, sheet 30.txt: a list in slot A
        QVERIFY(!slotShown(0) && !w->sequences().cmbCmdData[0]->isHidden());
        QCOMPARE(w->sequences().lblCmdData[0]->text(), QString("Defender:"));
        QVERIFY(w->sequences().lblCmdData[1]->isHidden());
        QCOMPARE(w->sequences().cmbCmdData[0]->pos(), w->sequences().txtSeqData[0]->pos());
        w->sequences().lstSeqCommands->setCurrentRow(1);  // D7 05 FD: no sheet, two text boxes
        QVERIFY(slotShown(0) && slotShown(1) && !slotShown(2));
        QCOMPARE(w->sequences().txtSeqData[1]->text(), QString("FD"));
        QVERIFY(w->sequences().cmbCmdData[0]->isHidden());
        QVERIFY(!w->sequences().cmdSeqApply->isEnabled());  // filling the slots is not an edit
    }

    void listFieldSelectsAndEdits() {
        pickSequence("A000");
        w->sequences().lstSeqCommands->setCurrentRow(2);  // C7 34 12: data 0x34 is beyond the three items
        QCOMPARE(w->sequences().cmbCmdData[0]->count(), 3);
        QCOMPARE(w->sequences().txtCmdNotes->toPlainText(), QString("Branch, with notes"));
        QCOMPARE(w->sequences().cmbCmdData[0]->currentIndex(), -1);
        w->sequences().cmbCmdData[0]->setCurrentIndex(2);
        w->sequences().cmbCmdData_Click(0);
        QCOMPARE(w->doc_.workingCopy.data(2, 0), int16_t(2));
        QVERIFY(w->sequences().cmdSeqApply->isEnabled());
        QCOMPARE(rows().at(2), QString("A004: Cond. Branch (C7) to 1202"));  // refreshed with its address kept
        QCOMPARE(rows().at(0), QString("A000: Block LE"));
        // Selecting the command again selects the item of its value.
        w->sequences().lstSeqCommands->setCurrentRow(0);
        w->sequences().lstSeqCommands->setCurrentRow(2);
        QCOMPARE(w->sequences().cmbCmdData[0]->currentIndex(), 2);
    }

    void typingHexIntoABox() {
        pickSequence("A000");
        w->sequences().lstSeqCommands->setCurrentRow(1);
        QTest::keyClicks(w->sequences().txtSeqData[0], "");
        w->sequences().txtSeqData[0]->selectAll();
        QTest::keyClicks(w->sequences().txtSeqData[0], "1F");
        QCOMPARE(w->doc_.workingCopy.data(1, 0), int16_t(0x1F));
        QVERIFY(w->sequences().cmdSeqApply->isEnabled());
        QCOMPARE(rows().at(1), QString("A001: Move Relative (D-1F,L-03)"));
        w->sequences().txtSeqData[0]->clear();
        QCOMPARE(w->doc_.workingCopy.data(1, 0), int16_t(0));
        QCOMPARE(w->pb.sequences.at(0xA000_seq).data(1, 0), int16_t(5));  // the stored sequence waits for Apply
    }

    void comPassSequenceSaysTheGameReadsItDifferently() {
        pickSequence("A010");
        QVERIFY(w->sequences().txtCmdNotes->toPlainText().startsWith(kReadsDifferentlyNote));
        pickSequence("A020");
        QVERIFY(!w->sequences().txtCmdNotes->toPlainText().contains(kReadsDifferentlyNote));
    }

    // A signed step shows its decimal value beside the hex; Enter in a box applies.
    void signedValuesAndEnter() {
        pickSequence("A000");
        w->sequences().lstSeqCommands->setCurrentRow(1);  // D7 05 FD
        QCOMPARE(w->sequences().lblCmdMeaning[0]->text(), QString("= 5"));
        QCOMPARE(w->sequences().lblCmdMeaning[1]->text(), QString("= -3"));
        w->sequences().txtSeqData[1]->setText("F8");
        QCOMPARE(w->sequences().lblCmdMeaning[1]->text(), QString("= -8"));
        QTest::keyClick(w->sequences().txtSeqData[1], Qt::Key_Return);
        QCOMPARE(w->pb.sequences.at(0xA000_seq).data(1, 1), int16_t(0xF8));
        QCOMPARE(w->sequences().lstSeqCommands->currentRow(), 1);  // the edited command stays selected
        w->sequences().txtSeqData[0]->setText("06");
        w->sequences().cmdSeqApply_Click();
        QCOMPARE(w->sequences().lstSeqCommands->currentRow(), 1);
        QCOMPARE(w->sequences().lblCmdMeaning[0]->text(), QString("= 6"));
    }

    // Remove and the arrows never leave a sequence without its end command last.
    void theEndCommandStaysLast() {
        pickSequence("A020");
        w->sequences().cmdSeqDelCmd_Click();
        QCOMPARE(rows(), QStringList{"A023: E4"});
        QVERIFY(w->sequences().cmdSeqApply->isEnabled());
        QCOMPARE(w->sequences().lstSeqCommands->currentRow(), 0);
        w->sequences().cmdSeqDelCmd_Click();
        QCOMPARE(rows(), QStringList{"A023: E4"});
        QVERIFY(w->StatusBar1->text().contains("ends it"));
        pickSequence("A000");
        w->sequences().lstSeqCommands->setCurrentRow(w->sequences().lstSeqCommands->count() - 2);
        w->sequences().udSeqCommand_DownClick();
        QVERIFY(w->StatusBar1->text().contains("stays last"));
        QVERIFY(w->doc_.workingCopy.verify().empty());
    }

    // Leaving a sequence with edits not applied asks; Apply never copies them into another sequence.
    void unappliedEditsAreMarkedAndAskedAbout() {
        pickSequence("A000");
        w->sequences().cmdSeqDelCmd_Click();
        QVERIFY(w->isWindowModified());
        dialogs->answers.push_back(MsgAnswer::Cancel);
        selectRow(w->sequences().lvSequences, 2);  // as the keyboard moves it
        QCOMPARE(dialogs->boxes.back().buttons, MsgButtons::ApplyDiscardCancel);
        QCOMPARE(w->doc_.workingCopy.address(), 0xA000);
        QCOMPARE(w->sequences().selectedSequenceKey(), std::optional<SeqKey>(0xA000_seq));
        QCOMPARE(w->doc_.workingCopy.commandCount(), 3);  // Cancel keeps the edit
        w->sequences().lvSequences_Click();  // a click on its own row again
        QCOMPARE(w->doc_.workingCopy.commandCount(), 3);  // keeps it too
        // The list filtered down to the row picked next: answering Apply keeps the filter.
        w->filterBox_->setText("A020-");
        QVERIFY(w->sequences().lvSequences->topLevelItem(0)->isHidden());
        dialogs->answers.push_back(MsgAnswer::Apply);
        selectRow(w->sequences().lvSequences, 2);
        QCOMPARE(w->filterBox_->text(), QString("A020-"));
        w->sequences().cmdSeqApply_Click();
        QCOMPARE(w->pb.sequences.at(0xA020_seq).commandCount(), 2);
        QCOMPARE(w->pb.sequences.at(0xA000_seq).commandCount(), 3);
        // The list shows the row the panel shows, and Apply there applies to it.
        QCOMPARE(w->sequences().selectedSequenceKey(), std::optional<SeqKey>(0xA020_seq));
        QCOMPARE(w->doc_.workingCopy.key(), 0xA020_seq);
        w->sequences().txtSeqData[1]->setText("7C");
        w->sequences().cmdSeqApply_Click();
        QCOMPARE(w->pb.sequences.at(0xA020_seq).data(0, 1), int16_t(0x7C));
        QVERIFY(!w->sequences().cmdSeqApply->isEnabled());
        QVERIFY(w->isWindowModified());
        // A typed value not applied: Exit asks about it too.
        w->sequences().txtSeqData[1]->setText("7");
        dialogs->answers.push_back(MsgAnswer::Cancel);
        QVERIFY(!w->close());
        QCOMPARE(dialogs->boxes.back().buttons, MsgButtons::SaveDiscardCancel);
    }

    void openingAnotherImageClearsThePanel() {
        pickSequence("A000");
        w->sequences().cmdSeqDelCmd_Click();
        QVERIFY(w->sequences().cmdSeqApply->isEnabled());
        QVERIFY(w->openImage(QString::fromStdString(image->path())));
        QCOMPARE(w->sequences().lstSeqCommands->count(), 0);
        QVERIFY(!w->sequences().cmdSeqApply->isEnabled());
        QCOMPARE(w->doc_.workingCopy.commandCount(), 0);
    }

    void editApplyFullSaveReopen() {
        pickSequence("A020");
        w->sequences().txtSeqData[1]->setText("7C");
        w->sequences().cmdSeqApply_Click();
        dialogs->answers.push_back(MsgAnswer::Yes);
        w->mnuFileSave_Click();
        QVERIFY(dialogs->boxes.size() == 1);
        QCOMPARE(dialogs->boxes.back().defaultButton, MsgAnswer::No);  // Enter alone does not blank the logic
        QVERIFY(w->StatusBar1->text().startsWith("Full Save: 5 sequences laid out anew from A000"));
        // Reopen: the sequence now lies after A000's (10 bytes) and A010's (6).
        QVERIFY(w->openImage(QString::fromStdString(image->path())));
        QCOMPARE(w->pb.sequences.at(0xA010_seq).data(0, 1), int16_t(0x7C));
        const auto bytes = image->read();
        QCOMPARE(int(bytes[static_cast<size_t>(offsetOfAddress(0xA010) + 2)]), 0x7C);
    }

    // A loop names its command: an insert between them shows the new distance
    // at once, and Full Save then Save writes what the list shows.
    void aLoopKeepsItsCommandThroughFullSaveAndSave() {
        pickSequence("A030");
        w->sequences().cmbNewSeqCmd->setCurrentIndex(test::newCommandItemOf(0xF3));
        w->sequences().cmdSeqAddCmd_Click();  // after the block, before the loop
        QCOMPARE(rows().last(), QString("A034: Loop Back 6 bytes"));
        w->sequences().cmdSeqApply_Click();
        dialogs->answers.push_back(MsgAnswer::Yes);
        w->mnuFileSave_Click();
        const SeqKey relaid = w->pb.seqPointers[2];
        QVERIFY(relaid != 0xA030_seq);
        pickSequence(QString::fromStdString(hex4(relaid.address())));
        w->sequences().lstSeqCommands->setCurrentRow(0);
        w->sequences().cmdSeqAddCmd_Click();
        w->sequences().cmdSeqApply_Click();
        QVERIFY(w->runSave());
        const clsSequence& seq = w->pb.sequences.at(w->pb.seqPointers[2]);
        QCOMPARE(seq.command(0), int16_t(0x30));
        QCOMPARE(seq.fieldTarget(seq.commandCount() - 1), seq.place(0));
        QCOMPARE(QString::fromStdString(seq.commandName(seq.commandCount() - 1, defaultCmdNames())), QString("Loop Back 8 bytes"));
    }

    void editApplySaveKeepsEverythingElse() {
        pickSequence("A020");
        const auto before = image->read();
        w->sequences().txtSeqData[1]->setText("7C");
        w->sequences().cmdSeqApply_Click();
        w->mnuFileSaveChanges_Click();
        QVERIFY(dialogs->boxes.empty());
        QVERIFY(w->StatusBar1->text().startsWith("Saved: 1 sequence in place, 0 moved"));
        const auto after = image->read();
        const auto at = static_cast<size_t>(offsetOfAddress(0xA020) + 2);
        QCOMPARE(int(after[at]), 0x7C);
        for (size_t i = 0; i < after.size(); ++i)
            if (i != at) QCOMPARE(after[i], before[i]);
        QCOMPARE(w->selectedTab(), 4);
    }

    void addApplySaveReopen() {
        pickSequence("A020");  // D7 01 02 E4
        w->sequences().cmbNewSeqCmd->setCurrentIndex(test::newCommandItemOf(0xE4));
        w->sequences().cmdSeqAddCmd_Click();
        QVERIFY(w->StatusBar1->text().contains("ends a sequence"));
        QCOMPARE(w->doc_.workingCopy.commandCount(), 2);
        w->sequences().cmbNewSeqCmd->setCurrentIndex(test::newCommandItemOf(0xF3));
        w->sequences().cmdSeqAddCmd_Click();  // after the selected first command
        QCOMPARE(rows().at(1), QString("new: F3(0) "));
        QVERIFY(w->sequences().cmdSeqApply->isEnabled());
        w->sequences().cmdSeqApply_Click();
        w->mnuFileSaveChanges_Click();
        QVERIFY(w->StatusBar1->text().contains("1 moved (A020 \u2192 "));
        QVERIFY(w->openImage(QString::fromStdString(image->path())));
        bool found = false;
        for (const auto& [address, seq] : w->pb.sequences)
            found = found || (seq.commandCount() == 3 && seq.command(1) == 0xF3);
        QVERIFY(found);
    }

    void shippedSheetsLabelTheDemoCommands() {
        frmMain shipped(*dialogs, ZPE_SOURCE_DATA_DIR, QString::fromStdString(cwd.path()));
        QVERIFY(shipped.openImage(QString::fromStdString(image->path())));
        shipped.selectTab(4);
        selectRow(shipped.sequences().lvSequences, 0);
        shipped.sequences().lvSequences_Click();
        QCOMPARE(shipped.sequences().lblCmdData[0]->text(), QString("Defender:"));
        QCOMPARE(shipped.sequences().cmbCmdData[0]->currentText(), QString("LE (2)"));
        shipped.sequences().lstSeqCommands->setCurrentRow(1);
        QCOMPARE(shipped.sequences().lblCmdData[0]->text(), QString("Down:"));
        QCOMPARE(shipped.sequences().lblCmdData[1]->text(), QString("Forward:"));
        QVERIFY(shipped.sequences().txtCmdNotes->toPlainText().startsWith("Move relative"));
    }
};

QTEST_MAIN(SeqPanelTest)
#include "seq_panel_test.moc"
