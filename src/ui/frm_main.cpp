// The window frame: the tab strip, the status bar, start-up, the layout of
// the shown tab, the pictures and the big diagram, and what the tabs ask of it.
#include "ui/frm_main.h"

#include "model/file_io.h"
#include "ui/diagram_window.h"
#include "ui/formations_tab.h"
#include "ui/list_filter.h"
#include "ui/list_view.h"
#include "ui/picture_box.h"
#include "ui/play_library.h"
#include "ui/play_slots_tab.h"
#include "ui/plays_tab.h"
#include "ui/sequences_tab.h"

#include <QAction>
#include <QComboBox>
#include <QDropEvent>
#include <QEvent>
#include <QMenu>
#include <QMimeData>
#include <QUrl>
#include <QFileInfo>
#include <QFrame>
#include <QKeySequence>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenuBar>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSettings>
#include <QStatusBar>
#include <QTabBar>
#include <QTreeWidget>

namespace zpe {

frmMain::frmMain(Dialogs& dialogs, QString dataDir, QString cpuDir, QWidget* parent)
    : QMainWindow(parent), dialogs_(dialogs), dataDir_(std::move(dataDir)), cpuDir_(std::move(cpuDir)),
      cmdNames(loadCmdNames(dataDir_.toStdString())), sheets_(dataDir_.toStdString()) {
    updateCaption();
    // The layout is designed in twips for an 8-point face; a larger default font would clip the columns.
    QFont face = font();
    face.setPointSize(8);
    setFont(face);
    client = new QWidget(this);
    setCentralWidget(client);

    tabsFrame = new QFrame(client);
    tabs = new QTabBar(tabsFrame);
    for (const char* caption : {"Formations", "Play Slots", "Plays", "Sequences"}) tabs->addTab(caption);
    tabs->setExpanding(false);
    // The filter box at the right of the tab strip filters the shown tab's list.
    filterBox_ = new QLineEdit(tabsFrame);
    listFilter_ = new ListFilter(filterBox_);
    auto* find = new QAction(this);
    find->setShortcut(QKeySequence::Find);
    connect(find, &QAction::triggered, this, [this] { filterBox_->setFocus(); filterBox_->selectAll(); });
    addAction(find);
    tabsPanel = new QFrame(tabsFrame);
    tabsPanel->setFrameShape(QFrame::StyledPanel);
    tabsPanel->setFrameShadow(QFrame::Raised);
    // A click on another tab changes the current one; a click on the current tab
    // changes nothing but lays that tab out again.
    connect(tabs, &QTabBar::currentChanged, this, [this](int) { tabs_Click(); });
    connect(tabs, &QTabBar::tabBarClicked, this, [this](int index) {
        if (index >= 0 && index == tabs->currentIndex()) tabs_Click();
    });

    auto* status = new QStatusBar(this);
    StatusBar1 = new QLabel(status);
    // A long message is cut at the window's edge; it never widens the window.
    StatusBar1->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    status->addWidget(StatusBar1, 1);
    status->setSizeGripEnabled(true);
    status->setFixedHeight(pixels(kStatusBarHeight) + 4);
    setStatusBar(status);

    doc_.onPut = [this](const EditState& state) { showPut(state); };
    doc_.onHistory = [this] {
        updateUndoActions();
        refreshModified();
        refreshPictures();  // Apply, undo and redo change what the pictures draw
    };
    buildMenus();
    const TabContext context{doc_, dialogs_, cmdNames, sheets_, StatusBar1, listFilter_, *this};
    formations_ = new FormationsTab(context, client);
    playSlots_ = new PlaySlotsTab(context, client);
    plays_ = new PlaysTab(context, client);
    sequences_ = new SequencesTab(context, client);
    // The Formations list: its players' cells are entries as the Plays list's are; the keyboard draws as a click does.
    connectEntryCells(formations_->lvFormations, AreaEntry::Table::Formation, context);
    connectClicks(formations_->lvFormations, [this] { formations_->lvFormations_Click(); }, [this] { formations_->lvFormations_Click(); });
    // A double-click on a picture opens the big diagram.
    for (PictureBox* pic : {formations_->picFormation, playSlots_->picPlay}) pic->installEventFilter(this);
    // The Play Library at the right (View > Play Library); its thumbnails drop onto Plays and Play Slots rows.
    library_ = new PlayLibrary(this, [this](const QString& path) { return describeCarriedFile(path); });
    library_->onChooseFolder = [this] { chooseLibraryFolder(); };
    library_->onRefresh = [this] {
        libraryBase_.reset();
        if (!pb.openComplete) return;
        try {
            libraryBase_ = doc_.laidOut();
        } catch (const std::exception&) {  // edits Save would refuse: no thumbnails drawn over them
        }
    };
    addDockWidget(Qt::RightDockWidgetArea, library_);
    library_->hide();
    connect(library_, &QDockWidget::visibilityChanged, this, [this](bool shown) {
        if (!shown) return;
        if (library_->folder().isEmpty()) {
            const QString remembered = settings()->value("libraryFolder").toString();
            library_->setFolder(!remembered.isEmpty() ? remembered
                                : pb.romPath.empty() ? QString()
                                                     : QFileInfo(QString::fromStdString(pb.romPath)).absolutePath());
        } else {
            library_->refresh();
        }
    });
    QMenu* view = menuBar()->addMenu("&View");
    QAction* showLibrary = library_->toggleViewAction();
    showLibrary->setText("Play &Library");
    view->addAction(showLibrary);
    for (QTreeWidget* lv : {plays_->lvPlays, playSlots_->lvPlaySlots}) {
        lv->viewport()->setAcceptDrops(true);
        lv->viewport()->installEventFilter(this);
    }
    client->installEventFilter(this);
    hideTabControls();
    updateMenuBar();
    setClientSize(kDesignClientWidth, kDesignClientHeight);
}

frmMain::~frmMain() {
    // The tabs go before the document they show: none of them may call into it while it goes.
    doc_.onPut = nullptr;
    doc_.onHistory = nullptr;
    // The frame's watch on the tabs' controls ends first: their deletion sends events it must not see.
    for (QWidget* watched : std::initializer_list<QWidget*>{plays_->lvPlays->viewport(), playSlots_->lvPlaySlots->viewport(),
                                                            formations_->picFormation, playSlots_->picPlay, client})
        watched->removeEventFilter(this);
    delete client;
}

int frmMain::scaleWidth() const { return twips(client->width()); }
int frmMain::scaleHeight() const { return twips(client->height() + statusBar()->height()); }

void frmMain::setClientSize(int widthTwips, int heightTwips) {
    const int w = pixels(widthTwips);
    // The window's height holds the menu bar above the client area (status bar included).
    const int h = pixels(heightTwips) + menuBar()->sizeHint().height();
    resize(w, h);
    Form_Resize();
}

void frmMain::resizeEvent(QResizeEvent* event) {
    QMainWindow::resizeEvent(event);
    Form_Resize();
}

void frmMain::Form_Resize() {
    // A window too small for the strip keeps the strip's size; nothing is reported.
    if (const auto strip = tabStripRect(scaleWidth(), scaleHeight(), twips(statusBar()->height()))) {
        tabsFrame->setGeometry(px(*strip));
        const int barHeight = tabs->sizeHint().height();
        tabs->setGeometry(0, 0, tabsFrame->width(), barHeight);
        tabsPanel->setGeometry(0, barHeight - 1, tabsFrame->width(), std::max(0, tabsFrame->height() - barHeight + 1));
        const int filterWidth = std::min(pixels(2600), tabsFrame->width() / 3);
        filterBox_->setGeometry(tabsFrame->width() - filterWidth - 2, 1, filterWidth, std::max(0, barHeight - 4));
        filterBox_->raise();
    }
    tabs_Click();
}

TwipRect frmMain::tabClient() const {
    const QRect g = tabsFrame->geometry();
    const TwipRect strip{twips(g.x()), twips(g.y()), twips(g.width()), twips(g.height())};
    return tabClientArea(strip, twips(tabs->sizeHint().height()), twips(2));
}

int frmMain::selectedTab() const { return tabs->currentIndex() + 1; }

void frmMain::selectTab(int index) {
    tabs->setCurrentIndex(index - 1);
    tabs_Click();
}

void frmMain::tabs_Click() { UpdateTabs(); }

QWidget* frmMain::control(Ctl c) const {
    switch (c) {
    case Ctl::lvFormations: return formations_->lvFormations;
    case Ctl::fraFormationButtons: return formations_->fraFormationButtons;
    case Ctl::picFormation: return formations_->picFormation;
    case Ctl::lvPlaySlots: return playSlots_->lvPlaySlots;
    case Ctl::fraPlayDetails: return playSlots_->fraPlayDetails;
    case Ctl::fraPlaySlots: return playSlots_->fraPlaySlots;
    case Ctl::lvPlays: return plays_->lvPlays;
    case Ctl::lvSequences: return sequences_->lvSequences;
    case Ctl::fraSeq: return sequences_->fraSeq;
    case Ctl::fraSeqDetails: return sequences_->fraSeqDetails;
    case Ctl::cmdSeqDetails: return sequences_->cmdSeqDetails;
    case Ctl::txtCmdNotes: return sequences_->txtCmdNotes;
    case Ctl::lblSeqUsedBy: return sequences_->lblSeqUsedBy;
    case Ctl::lstSeqUsedBy: return sequences_->lstSeqUsedBy;
    }
    return nullptr;
}

void frmMain::hideTabControls() {
    for (const Ctl c : {Ctl::lvFormations, Ctl::fraFormationButtons, Ctl::picFormation, Ctl::lvPlaySlots, Ctl::fraPlayDetails,
                        Ctl::fraPlaySlots, Ctl::lvPlays, Ctl::lvSequences, Ctl::fraSeq, Ctl::fraSeqDetails})
        control(c)->hide();
}

void frmMain::UpdateTabs() {
    hideTabControls();
    playSlots_->cancelSlotAction();
    LayoutInput in{selectedTab(), tabClient(), formations_->showFormationGFX, playSlots_->showPlaySlotDetails,
                   sequences_->showSeqDetails};
    // The display area at the design size: the strip's place there, less the same header and border.
    if (const auto strip = tabStripRect(kDesignClientWidth, kDesignClientHeight, twips(statusBar()->height())))
        in.designHeight = tabClientArea(*strip, twips(tabs->sizeHint().height()), twips(2)).height;
    bool completed = true;
    for (const LayoutStep& step : tabLayout(in)) {
        // A move to a negative size ends the pass; what is not yet shown stays hidden.
        if (!stepApplies(step)) {
            completed = false;
            break;
        }
        QWidget* w = control(step.ctl);
        switch (step.op) {
        case LayoutStep::Op::Move:
            if (step.ctl == Ctl::picFormation) w->move(pixels(step.rect.left), pixels(step.rect.top));
            else w->setGeometry(px(step.rect));
            break;
        case LayoutStep::Op::Show:
            w->show();
            w->raise();
            break;
        case LayoutStep::Op::Caption: static_cast<QPushButton*>(w)->setText(QString::fromStdString(step.caption)); break;
        }
    }
    if (!completed) return;
    const auto tab = static_cast<TabIndex>(in.tab);
    if (tab == TabIndex::Sequences && in.showSeqDetails) sequences_->growSeqDetails(seqDetailsHeight(in) - kSeqDetailsHeight);
    // The pictures take the room there is, in whole multiples of their design size.
    const bool formationResized = formations_->setScale(formationPictureScale(in));
    if (playSlots_->setScale(playPictureScale(in)) || formationResized) refreshPictures();
    if (tab == TabIndex::Formations) formations_->updateFormationButtons();
    if (tab == TabIndex::PlaySlots) playSlots_->updatePlaySlotButtons();
    QTreeWidget* shown = tab == TabIndex::Formations ? formations_->lvFormations
                         : tab == TabIndex::PlaySlots ? playSlots_->lvPlaySlots
                         : tab == TabIndex::Plays     ? plays_->lvPlays
                                                      : sequences_->lvSequences;
    listFilter_->show(shown);
    // A list that changed size keeps its selected row in view.
    if (shown->isVisible() && shown->currentItem()) shown->scrollToItem(shown->currentItem());
}

void frmMain::updateCaption() {
    if (!pb.openComplete) {
        setWindowTitle("Zentrel Playbook Editor BETA3");
        setWindowModified(false);
        return;
    }
    setWindowTitle("Zentrel Playbook Editor BETA3 - " + QFileInfo(QString::fromStdString(pb.romPath)).fileName() +
                   (pb.headerless ? " (headerless image)" : "") + "[*]");
    refreshModified();
}

void frmMain::updateUndoActions() {
    mnuEditUndo->setEnabled(doc_.canUndo());
    mnuEditUndo->setText(QString::fromStdString(doc_.canUndo() ? "&Undo " + doc_.undoText() : "&Undo"));
    mnuEditRedo->setEnabled(doc_.canRedo());
    mnuEditRedo->setText(QString::fromStdString(doc_.canRedo() ? "&Redo " + doc_.redoText() : "&Redo"));
}

void frmMain::refreshModified() { setWindowModified(doc_.unsaved()); }

bool frmMain::eventFilter(QObject* watched, QEvent* event) {
    // A play or slot file dropped on a row of Plays or Play Slots comes in there.
    QTreeWidget* dropList = watched == plays_->lvPlays->viewport()         ? plays_->lvPlays
                            : watched == playSlots_->lvPlaySlots->viewport() ? playSlots_->lvPlaySlots
                                                                           : nullptr;
    if (dropList && (event->type() == QEvent::DragEnter || event->type() == QEvent::DragMove)) {
        auto* drag = static_cast<QDropEvent*>(event);
        // A copy: the file stays where it is (a move would take the thumbnail out of the library). The
        // list takes the drag wherever it enters (else it would hear no more of it); a row must be under it to drop.
        const bool overRow = event->type() == QEvent::DragEnter || dropList->itemAt(drag->position().toPoint());
        if (drag->mimeData()->hasUrls() && overRow && (drag->possibleActions() & Qt::CopyAction)) {
            drag->setDropAction(Qt::CopyAction);
            drag->accept();
        } else {
            drag->ignore();
        }
        return true;
    }
    if (dropList && event->type() == QEvent::Drop) {
        auto* drop = static_cast<QDropEvent*>(event);
        const int row = dropList->indexOfTopLevelItem(dropList->itemAt(drop->position().toPoint()));
        const QList<QUrl> urls = drop->mimeData()->urls();
        if (row >= 0 && urls.size() == 1 && urls.front().isLocalFile()) {
            drop->setDropAction(Qt::CopyAction);
            drop->accept();
            (void)importCarriedFile(urls.front().toLocalFile(), row, dropList == plays_->lvPlays ? "zpe play" : "zpe slot");
        }
        return true;
    }
    // The client area changes size without the window (the Play Library docked beside it): lay the tab out again.
    if (watched == client && event->type() == QEvent::Resize) Form_Resize();
    if (event->type() == QEvent::MouseButtonDblClick) {
        if (watched == playSlots_->picPlay) openDiagram(true);
        else if (watched == formations_->picFormation) openDiagram(false);
    }
    return QMainWindow::eventFilter(watched, event);
}

void frmMain::openDiagram(bool slot) {
    if (!pb.openComplete) return;
    if (!diagram_) {
        diagram_ = new DiagramWindow(pb, dialogs_, this);
        diagram_->onPick = [this](int player, const DiagramPoint& pt) { sequences_->diagramPick(player, pt); };
        diagram_->onMove = [this](int player, const DiagramPoint& pt, int a, int b) { sequences_->diagramMove(player, pt, a, b); };
        // Undo, redo and Save work from the diagram too, with the same shortcuts.
        diagram_->addActions({mnuEditUndo, mnuEditRedo, mnuFileSaveChanges});
        const QByteArray geometry = settings()->value("diagramGeometry").toByteArray();  // where it was last
        if (!geometry.isEmpty() && windowsWhereTheyWere_) diagram_->restoreGeometry(geometry);
    }
    diagramForSlot_ = slot;
    diagram_->show();
    diagram_->raise();
    followSelection();
    if (slot) diagram_->choosePlay(std::max(playSlots_->cmbPlay->currentIndex(), 0));  // the play the picture shows
}

void frmMain::followSelection() {
    if (!diagram_ || !diagram_->isVisible()) return;
    diagram_->setWorkingCopy(doc_.workingCopyEdited() ? &doc_.workingCopy : nullptr);
    if (diagramForSlot_) diagram_->showSlot(selectedRow(playSlots_->lvPlaySlots));
    else diagram_->showFormation(selectedRow(formations_->lvFormations));
}

void frmMain::refreshPictures() {
    // The panel's working copy, while it holds edits not applied, is drawn in place of its sequence.
    const clsSequence* working = doc_.workingCopyEdited() ? &doc_.workingCopy : nullptr;
    formations_->drawPicture(working);
    playSlots_->drawPicture(working);
    followSelection();
}

void frmMain::clearLists() {
    for (const Ctl c : {Ctl::lvFormations, Ctl::lvPlaySlots, Ctl::lvPlays, Ctl::lvSequences}) static_cast<QTreeWidget*>(control(c))->clear();
}

void frmMain::showPlaybook() {
    changeNoticed_ = false;  // what the file holds was just read or written
    showModel();
}

void frmMain::showModel() {
    clearLists();
    sequences_->clearSeqPanel();
    sheets_.clear();
    const ListRows rows = buildRows(pb, cmdNames);
    formations_->fill(rows.formations);
    playSlots_->fill(rows.playSlots);
    plays_->fill(rows.plays);
    sequences_->fill(rows.sequences);
    updateMenuBar();
    playSlots_->updatePlayChoice();
    refreshPictures();  // nothing of the previous image stays drawn
}

void frmMain::refreshEntryLists() {
    const ListRows rows = buildRows(pb, cmdNames);
    formations_->refreshRows(rows.formations);
    plays_->refreshRows(rows.plays);
    sequences_->rebuild(rows.sequences, true);
}

void frmMain::showPut(const EditState& state) {
    switch (state.kind) {
    case EditState::Kind::Slots: playSlots_->showSlots(state.slotStates); break;
    case EditState::Kind::Entries: sequences_->showEntries(); break;
    case EditState::Kind::Sequence: sequences_->showSequence(state.sequence.key()); break;
    case EditState::Kind::WorkingCopy: sequences_->showWorkingCopy(); break;
    case EditState::Kind::Image: {
        // A play or slot brought in (or taken out again): every list anew, the rows selected kept.
        const KeptSelection kept = keptSelection();
        showModel();
        restoreSelection(kept, kept.sequence);
        break;
    }
    }
}

void frmMain::editEntry(const AreaEntry& entry) { sequences_->showEntrySequence(entry); }

void frmMain::pointEntry(const AreaEntry& entry) { sequences_->pointEntryAt(entry); }

void frmMain::goToEntry(const AreaEntry& entry) {
    const bool play = entry.table == AreaEntry::Table::Play;
    if (!play && entry.table != AreaEntry::Table::Formation) return;
    selectTab(play ? static_cast<int>(TabIndex::Plays) : static_cast<int>(TabIndex::Formations));
    QTreeWidget* list = play ? plays_->lvPlays : formations_->lvFormations;
    listFilter_->reveal(list, entry.index);  // the row it goes to is shown
    selectRow(list, entry.index);
    if (!play) formations_->lvFormations_Click();
    if (QTreeWidgetItem* row = list->topLevelItem(entry.index)) list->setCurrentItem(row, entry.player + 1);
}

}  // namespace zpe
