// The window frame: controls, menus, start-up, layout and the File and Help menus.
#include "ui/frm_main.h"

#include "analysis/check_report.h"
#include "model/file_io.h"
#include "playbook/open_rom.h"
#include "diagram/diagram.h"
#include "patch/bps.h"
#include "save/ips.h"
#include "save/save_changes.h"
#include "ui/diagram_window.h"
#include "ui/list_filter.h"
#include "save/compact.h"
#include "save/saves.h"
#include "ui/picture_box.h"
#include "ui/up_down.h"

#include <QAction>
#include <QCloseEvent>
#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QEvent>
#include <QFileInfo>
#include <QFrame>
#include <QHeaderView>
#include <QKeySequence>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMenuBar>
#include <QSettings>
#include <QMouseEvent>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QStatusBar>
#include <QTabBar>
#include <QTreeWidget>

namespace zpe {

namespace {

QRect px(const TwipRect& r) { return QRect(pixels(r.left), pixels(r.top), pixels(r.width), pixels(r.height)); }

QFrame* buttonBar(QWidget* parent) {
    auto* f = new QFrame(parent);
    f->setFrameShape(QFrame::NoFrame);
    f->resize(pixels(kButtonBarWidth), pixels(kButtonBarHeight));
    return f;
}

QPushButton* button(const char* caption, QWidget* parent, int left, int top) {
    auto* b = new QPushButton(caption, parent);
    b->setGeometry(px({left, top, 1215, 375}));
    return b;
}

struct Column {
    const char* header;
    int width;  // twips
    bool centre;
};

QTreeWidget* listView(QWidget* parent, std::initializer_list<Column> columns) {
    auto* lv = new QTreeWidget(parent);
    lv->setRootIsDecorated(false);
    lv->setUniformRowHeights(true);
    lv->setAllColumnsShowFocus(true);
    lv->setSelectionMode(QAbstractItemView::SingleSelection);
    lv->setSelectionBehavior(QAbstractItemView::SelectRows);
    lv->setEditTriggers(QAbstractItemView::NoEditTriggers);
    lv->setColumnCount(static_cast<int>(columns.size()));
    auto* header = new QTreeWidgetItem;
    int i = 0;
    for (const Column& c : columns) {
        header->setText(i, c.header);
        header->setTextAlignment(i, c.centre ? Qt::AlignCenter : (Qt::AlignLeft | Qt::AlignVCenter));
        ++i;
    }
    lv->setHeaderItem(header);
    i = 0;
    QVariantList design;
    for (const Column& c : columns) {
        lv->setColumnWidth(i++, pixels(c.width));
        design << pixels(c.width);
    }
    lv->setProperty("designWidths", design);
    lv->header()->setStretchLastSection(false);
    lv->header()->setSectionResizeMode(QHeaderView::Interactive);  // the user may widen any column
    return lv;
}

// Columns at least as wide as their design and as their longest text, so
// nothing is cut where there is room; the list scrolls sideways otherwise.
void fitColumns(QTreeWidget* lv) {
    const QVariantList design = lv->property("designWidths").toList();
    for (int c = 0; c < lv->columnCount() && c < design.size(); ++c) {
        lv->resizeColumnToContents(c);
        if (lv->columnWidth(c) < design[c].toInt()) lv->setColumnWidth(c, design[c].toInt());
    }
}

}  // namespace

frmMain::frmMain(Dialogs& dialogs, QString dataDir, QString cpuDir, QWidget* parent)
    : QMainWindow(parent), sheets_(dataDir.toStdString()), dialogs_(dialogs), dataDir_(std::move(dataDir)),
      cpuDir_(std::move(cpuDir)) {
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
    buildFormationsTab();
    buildPlaySlotsTab();
    buildPlaysTab();
    buildSequencesTab();
    hideTabControls();
    for (QTreeWidget* lv : {lvFormations, lvPlaySlots, lvPlays, lvSequences}) lv->viewport()->installEventFilter(this);
    // The keyboard moves the selection as a click does: the diagram and the panel follow.
    connect(lvFormations, &QTreeWidget::currentItemChanged, this, [this] {
        if (pressedList_ != lvFormations) lvFormations_Click();
    });
    connect(lvPlaySlots, &QTreeWidget::currentItemChanged, this, [this] {
        if (pressedList_ == lvPlaySlots) return;
        // The keyboard draws the slot; a pending copy or swap waits for a click or Enter.
        updatePlayChoice();
        refreshPictures();
    });
    connect(lvPlaySlots, &QTreeWidget::itemActivated, this, [this] { lvPlaySlots_Click(); });
    connect(lvSequences, &QTreeWidget::currentItemChanged, this, [this] {
        if (pressedList_ != lvSequences) lvSequences_Click();
    });
    for (PictureBox* pic : {picFormation, picPlay}) pic->installEventFilter(this);

    Form_Load();
    setClientSize(kDesignClientWidth, kDesignClientHeight);
}

frmMain::~frmMain() {
    // The controls go before the document: it must not call back into them.
    doc_.onPut = nullptr;
    doc_.onHistory = nullptr;
}

void frmMain::buildFormationsTab() {
    // The players' columns carry the names the diagram's legend, Used by and zpe give them (positionName).
    lvFormations = listView(client, {{"Formation", 1440, false}, {"QB", 1440, true}, {"RB", 1440, true},
                                     {"FB", 1440, true}, {"WR1", 1440, true}, {"WR2", 1440, true}, {"TE", 1440, true},
                                     {"C", 1440, true}, {"LG", 1440, true}, {"RG", 1440, true}, {"LT", 1440, true},
                                     {"RT", 1440, true}});
    fraFormationButtons = buttonBar(client);
    cmdFormationViewGFX = button("View GFX", fraFormationButtons, 2880, 60);
    connect(cmdFormationViewGFX, &QPushButton::clicked, this, [this] { cmdFormationViewGFX_Click(); });
    cmdFormationViewGFX->setToolTip("Show or hide the picture of the selected formation");
    picFormation = new PictureBox(pixels(kPicFormationWidth), pixels(kPicFormationHeight), client);
}

void frmMain::buildPlaySlotsTab() {
    lvPlaySlots = listView(client, {{"Name", 1440, false}, {"Slot", 800, true}, {"Formation", 2000, false},
                                    {"Play 1", 700, true}, {"Play 2", 700, true}, {"Play 3", 700, true},
                                    {"Play 4", 700, true}, {"Play 5", 700, true}, {"Play 6", 700, true},
                                    {"Play 7", 700, true}, {"Play 8", 700, true}, {"Slot #", 700, true}});
    fraPlaySlots = buttonBar(client);
    cmdCopyPlaySlot = button("Copy", fraPlaySlots, 240, 60);
    cmdSwapPlaySlot = button("Swap", fraPlaySlots, 1560, 60);
    cmdPlaySlotDetails = button("Show Details", fraPlaySlots, 2880, 60);
    cmdCopyPlaySlot->setEnabled(false);  // until a slot is selected
    cmdSwapPlaySlot->setEnabled(false);
    cmdCopyPlaySlot->setToolTip("Copy the selected slot over the slot you click next");
    cmdSwapPlaySlot->setToolTip("Swap the selected slot with the slot you click next");
    cmdPlaySlotDetails->setToolTip("Show or hide the picture of the selected slot's play");
    connect(cmdCopyPlaySlot, &QPushButton::clicked, this, [this] { cmdCopyPlaySlot_Click(); });
    connect(cmdSwapPlaySlot, &QPushButton::clicked, this, [this] { cmdSwapPlaySlot_Click(); });
    connect(cmdPlaySlotDetails, &QPushButton::clicked, this, [this] { cmdPlaySlotDetails_Click(); });
    fraPlayDetails = new QFrame(client);
    fraPlayDetails->setFrameShape(QFrame::Box);
    fraPlayDetails->resize(fraPlayDetails->width(), pixels(kPlayDetailsHeight));
    picPlay = new PictureBox(pixels(kPicPlayWidth), pixels(kPicPlayHeight), fraPlayDetails);
    picPlay->move(pixels(120), pixels(240));
    cmbPlay = new QComboBox(fraPlayDetails);
    cmbPlay->setGeometry(pixels(5200), pixels(240), pixels(1800), pixels(315));
    cmbPlay->setToolTip("Which of the slot's eight plays the picture shows (offensive:defensive play numbers)");
    connect(cmbPlay, &QComboBox::activated, this, [this](int) { refreshPictures(); });
}

void frmMain::buildPlaysTab() {
    lvPlays = listView(client, {{"Number", 800, false}, {"QB", 800, true}, {"RB", 800, true}, {"FB", 800, true},
                                {"WR1", 800, true}, {"WR2", 800, true}, {"TE", 800, true}, {"C", 800, true},
                                {"LG", 800, true}, {"RG", 800, true}, {"LT", 800, true}, {"RT", 800, true}});
    // A player's cell: double-click edits his sequence; the menu also points him at another one.
    for (QTreeWidget* lv : {lvPlays, lvFormations}) {
        lv->setContextMenuPolicy(Qt::CustomContextMenu);
        lv->setToolTip("Double-click a player to edit his sequence; right-click to point him at another one");
        connect(lv, &QWidget::customContextMenuRequested, this, [this, lv](const QPoint& pos) { entryMenu(lv, pos); });
        connect(lv, &QTreeWidget::itemDoubleClicked, this, [this, lv](QTreeWidgetItem* item, int column) {
            if (const auto e = entryOfCell(lv, item, column)) showEntrySequence(*e);
        });
    }
}

void frmMain::buildSequencesTab() {
    lvSequences = listView(client, {{"Address", 1000, false}, {"Commands", 8000, false}});
    lvSequences->setSortingEnabled(false);
    fraSeq = buttonBar(client);
    cmdSeqDetails = button("Show Details", fraSeq, 2880, 60);
    cmdSeqDetails->setToolTip("Show or hide the editor of the selected sequence");
    connect(cmdSeqDetails, &QPushButton::clicked, this, [this] { cmdSeqDetails_Click(); });
    fraSeqDetails = new QFrame(client);
    fraSeqDetails->setFrameShape(QFrame::Box);
    fraSeqDetails->resize(fraSeqDetails->width(), pixels(kSeqDetailsHeight));
    buildSeqDetailsPanel();
}

void frmMain::Form_Load() {
    cmdNames = loadCmdNames(dataDir_.toStdString());
    cmbNewSeqCmd->clear();
    for (const std::string& item : newCommandItems(cmdNames)) cmbNewSeqCmd->addItem(QString::fromLatin1(item));
    slotAction = SlotAction::None;
    updateMenuBar();
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
    case Ctl::lvFormations: return lvFormations;
    case Ctl::fraFormationButtons: return fraFormationButtons;
    case Ctl::picFormation: return picFormation;
    case Ctl::lvPlaySlots: return lvPlaySlots;
    case Ctl::fraPlayDetails: return fraPlayDetails;
    case Ctl::fraPlaySlots: return fraPlaySlots;
    case Ctl::lvPlays: return lvPlays;
    case Ctl::lvSequences: return lvSequences;
    case Ctl::fraSeq: return fraSeq;
    case Ctl::fraSeqDetails: return fraSeqDetails;
    case Ctl::cmdSeqDetails: return cmdSeqDetails;
    case Ctl::txtCmdNotes: return txtCmdNotes;
    case Ctl::lblSeqUsedBy: return lblSeqUsedBy;
    case Ctl::lstSeqUsedBy: return lstSeqUsedBy;
    }
    return nullptr;
}

void frmMain::hideTabControls() {
    for (QWidget* w : std::initializer_list<QWidget*>{lvFormations, fraFormationButtons, picFormation, lvPlaySlots,
                                                      fraPlayDetails, fraPlaySlots, lvPlays, lvSequences, fraSeq,
                                                      fraSeqDetails})
        w->hide();
}

void frmMain::UpdateTabs() {
    hideTabControls();
    slotAction = SlotAction::None;
    LayoutInput in{selectedTab(), tabClient(), showFormationGFX, showPlaySlotDetails, showSeqDetails};
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
    if (in.tab == static_cast<int>(TabIndex::Sequences) && showSeqDetails) growSeqDetails(seqDetailsHeight(in) - kSeqDetailsHeight);
    // The pictures take the room there is, in whole multiples of their design size.
    const int formationScale = formationPictureScale(in), playScale = playPictureScale(in);
    if (formationScale != formationScale_ || playScale != playScale_) {
        formationScale_ = formationScale;
        playScale_ = playScale;
        picFormation->resizeCanvas(pixels(kPicFormationWidth) * formationScale_, pixels(kPicFormationHeight) * formationScale_);
        picPlay->resizeCanvas(pixels(kPicPlayWidth) * playScale_, pixels(kPicPlayHeight) * playScale_);
        refreshPictures();
    }
    cmbPlay->move(picPlay->x() + picPlay->width() + pixels(200), pixels(240));
    if (in.tab == static_cast<int>(TabIndex::Formations)) updateFormationButtons();
    if (in.tab == static_cast<int>(TabIndex::PlaySlots)) updatePlaySlotButtons();
    listFilter_->show(in.tab == static_cast<int>(TabIndex::Formations) ? lvFormations
                      : in.tab == static_cast<int>(TabIndex::PlaySlots)  ? lvPlaySlots
                      : in.tab == static_cast<int>(TabIndex::Plays)      ? lvPlays
                                                                         : lvSequences);
    // A list that changed size keeps its selected row in view.
    for (QTreeWidget* lv : {lvFormations, lvPlaySlots, lvPlays, lvSequences})
        if (lv->isVisible() && lv->currentItem()) lv->scrollToItem(lv->currentItem());
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

bool frmMain::unsavedWork() const { return doc_.unsaved(); }

void frmMain::updateUndoActions() {
    mnuEditUndo->setEnabled(doc_.canUndo());
    mnuEditUndo->setText(QString::fromStdString(doc_.canUndo() ? "&Undo " + doc_.undoText() : "&Undo"));
    mnuEditRedo->setEnabled(doc_.canRedo());
    mnuEditRedo->setText(QString::fromStdString(doc_.canRedo() ? "&Redo " + doc_.redoText() : "&Redo"));
}

void frmMain::refreshModified() { setWindowModified(unsavedWork()); }

bool frmMain::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::MouseButtonPress) {
        for (QTreeWidget* lv : {lvFormations, lvPlaySlots, lvSequences})
            if (watched == lv->viewport()) pressedList_ = lv;
    }
    if (event->type() == QEvent::MouseButtonRelease) {
        pressedList_ = nullptr;
        if (static_cast<QMouseEvent*>(event)->button() == Qt::LeftButton) {
            if (watched == lvFormations->viewport()) lvFormations_Click();
            else if (watched == lvPlaySlots->viewport()) lvPlaySlots_Click();
            else if (watched == lvSequences->viewport()) lvSequences_Click();
        }
    }
    if (event->type() == QEvent::MouseButtonDblClick) {
        if (watched == picPlay) openDiagram(true);
        else if (watched == picFormation) openDiagram(false);
    }
    return QMainWindow::eventFilter(watched, event);
}

void frmMain::openDiagram(bool slot) {
    if (!pb.openComplete) return;
    if (!diagram_) {
        diagram_ = new DiagramWindow(pb, dialogs_, this);
        diagram_->onPick = [this](int player, const DiagramPoint& pt) { diagramPick(player, pt); };
        diagram_->onMove = [this](int player, const DiagramPoint& pt, int a, int b) { diagramMove(player, pt, a, b); };
        // Undo, redo and Save work from the diagram too, with the same shortcuts.
        diagram_->addActions({mnuEditUndo, mnuEditRedo, mnuFileSaveChanges});
        const QByteArray geometry = settings()->value("diagramGeometry").toByteArray();  // where it was last
        if (!geometry.isEmpty() && windowsWhereTheyWere_) diagram_->restoreGeometry(geometry);
    }
    diagramForSlot_ = slot;
    diagram_->show();
    diagram_->raise();
    followSelection();
}

void frmMain::followSelection() {
    if (!diagram_ || !diagram_->isVisible()) return;
    diagram_->setWorkingCopy(workingCopyEdited() ? &curSeq : nullptr);
    if (diagramForSlot_) diagram_->showSlot(selectedRow(lvPlaySlots));
    else diagram_->showFormation(selectedRow(lvFormations));
}

int frmMain::selectedRow(QTreeWidget* list) {
    const auto selected = list->selectedItems();
    if (selected.isEmpty()) return -1;
    return list->indexOfTopLevelItem(selected.first());
}

void frmMain::selectRow(QTreeWidget* list, int row) {
    list->clearSelection();
    if (QTreeWidgetItem* item = row >= 0 ? list->topLevelItem(row) : nullptr) {
        item->setSelected(true);
        list->setCurrentItem(item);
    }
}

void frmMain::setRowCells(QTreeWidget* list, int index, const ListRow& row) {
    QTreeWidgetItem* item = list->topLevelItem(index);
    if (!item) return;
    for (size_t c = 0; c < row.cells.size(); ++c) {
        item->setText(static_cast<int>(c), QString::fromLatin1(row.cells[c]));
        item->setToolTip(static_cast<int>(c), QString::fromLatin1(row.cells[c]));
    }
}

void frmMain::clearLists() {
    for (QTreeWidget* lv : {lvFormations, lvPlaySlots, lvPlays, lvSequences}) lv->clear();
}

namespace {
// One list item per row, aligned as the list's columns are; a sequence's address in the item's data.
QList<QTreeWidgetItem*> makeItems(const QTreeWidget* lv, const std::vector<ListRow>& rows) {
    QList<QTreeWidgetItem*> items;
    items.reserve(static_cast<qsizetype>(rows.size()));
    for (const ListRow& row : rows) {
        auto* item = new QTreeWidgetItem;
        for (size_t c = 0; c < row.cells.size(); ++c) {
            item->setText(static_cast<int>(c), QString::fromLatin1(row.cells[c]));
            item->setToolTip(static_cast<int>(c), QString::fromLatin1(row.cells[c]));  // the whole text where it is cut
            item->setTextAlignment(static_cast<int>(c), Qt::Alignment(lv->headerItem()->textAlignment(static_cast<int>(c))));
        }
        if (row.address >= 0) item->setData(0, Qt::UserRole, row.address);
        items.push_back(item);
    }
    return items;
}
}  // namespace

void frmMain::fillLists(const ListRows& rows) {
    // An open narrows the formation columns to 700 twips, as far as their addresses allow.
    QVariantList design = lvFormations->property("designWidths").toList();
    for (int c = 1; c <= 11 && c < design.size(); ++c) design[c] = pixels(700);
    lvFormations->setProperty("designWidths", design);
    lvFormations->addTopLevelItems(makeItems(lvFormations, rows.formations));
    lvPlaySlots->addTopLevelItems(makeItems(lvPlaySlots, rows.playSlots));
    for (int r = 0; r < lvPlaySlots->topLevelItemCount(); ++r) {  // the slot's number, as the status bar and zpe name it
        lvPlaySlots->topLevelItem(r)->setText(kSlotNumberColumn, QString::number(r));
        lvPlaySlots->topLevelItem(r)->setTextAlignment(kSlotNumberColumn, Qt::AlignRight | Qt::AlignVCenter);
    }
    lvPlays->addTopLevelItems(makeItems(lvPlays, rows.plays));
    // The core gives the Sequences rows in the list's order: ascending on the Address text.
    lvSequences->addTopLevelItems(makeItems(lvSequences, rows.sequences));
    for (QTreeWidget* lv : {lvFormations, lvPlaySlots, lvPlays, lvSequences}) fitColumns(lv);
}

void frmMain::showPlaybook() {
    changeNoticed_ = false;  // what the file holds was just read or written
    clearLists();
    clearSeqPanel();
    sheets_.clear();
    fillLists(buildRows(pb, cmdNames));
    updateMenuBar();
    updatePlayChoice();
    refreshPictures();  // nothing of the previous image stays drawn
}

void frmMain::updatePlayChoice() {
    const int keep = std::max(cmbPlay->currentIndex(), 0);
    cmbPlay->clear();
    const int s = pb.openComplete ? selectedRow(lvPlaySlots) : -1;
    cmbPlay->setEnabled(s >= 0);
    if (s < 0) return;
    const clsPlaySlot& slot = pb.playSlots[static_cast<size_t>(s)];
    for (int k = 0; k < kPlaysPerSlot; ++k)
        cmbPlay->addItem(QString("Play %1  %2:%3").arg(k + 1).arg(QString::fromStdString(hex2(slot.oPlay(k))))
                             .arg(QString::fromStdString(hex2(slot.dPlay(k)))));
    cmbPlay->setCurrentIndex(keep);
}

void frmMain::refreshPictures() {
    constexpr uint32_t kEmptyPicture = 0xF0F0F0;  // the face colour of an empty picture box
    const int f = pb.openComplete ? selectedRow(lvFormations) : -1;
    ScaledCanvas formation(picFormation->canvas(), formationScale_);
    // The panel's working copy, while it holds edits not applied, is drawn in place of its sequence.
    const clsSequence* working = workingCopyEdited() ? &curSeq : nullptr;
    if (f >= 0) (void)drawFormation(formation, pb, f, working);
    else picFormation->canvas().clear(kEmptyPicture);
    picFormation->update();
    const int s = pb.openComplete ? selectedRow(lvPlaySlots) : -1;
    ScaledCanvas play(picPlay->canvas(), playScale_);
    DrawOptions options;
    options.workingCopy = working;
    if (s >= 0) zpe::DrawPlay(play, pb, s, std::max(cmbPlay->currentIndex(), 0), options);
    else picPlay->canvas().clear(kEmptyPicture);
    picPlay->update();
    followSelection();
}

void frmMain::refreshAddressLists() {
    const ListRows rows = buildRows(pb, cmdNames);
    for (size_t f = 0; f < rows.formations.size(); ++f) setRowCells(lvFormations, static_cast<int>(f), rows.formations[f]);
    for (size_t p = 0; p < rows.plays.size(); ++p) setRowCells(lvPlays, static_cast<int>(p), rows.plays[p]);
    // Row keys name sequence addresses: the list is rebuilt, and the panel's working copy goes with it.
    lvSequences->clear();
    lvSequences->addTopLevelItems(makeItems(lvSequences, rows.sequences));
    for (QTreeWidget* lv : {lvFormations, lvPlays, lvSequences}) fitColumns(lv);
    clearSeqPanel();
}

void frmMain::refreshEntryLists() {
    const ListRows rows = buildRows(pb, cmdNames);
    for (size_t f = 0; f < rows.formations.size(); ++f) setRowCells(lvFormations, static_cast<int>(f), rows.formations[f]);
    for (size_t p = 0; p < rows.plays.size(); ++p) setRowCells(lvPlays, static_cast<int>(p), rows.plays[p]);
    const auto selected = selectedSequenceAddress();
    {
        const QSignalBlocker quiet(lvSequences);
        lvSequences->clear();
        lvSequences->addTopLevelItems(makeItems(lvSequences, rows.sequences));
        if (selected) selectRow(lvSequences, sequenceRow(*selected));
    }
    for (QTreeWidget* lv : {lvFormations, lvPlays, lvSequences}) fitColumns(lv);
}

}  // namespace zpe
