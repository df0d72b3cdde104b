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
#include <QUndoStack>
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

// A core message names the file by its whole path; the status bar names it by its name.
QString shortMessage(const char* what, const QString& path) {
    QString text = QString::fromLocal8Bit(what);
    if (text.startsWith(path + ":")) text = QFileInfo(path).fileName() + text.mid(path.size());
    return text;
}

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

    undoStack_ = new QUndoStack(this);
    connect(undoStack_, &QUndoStack::indexChanged, this, [this](int) {
        refreshModified();
        refreshPictures();  // Apply, undo and redo change what the pictures draw
    });
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
    // The undo stack goes with the window's children, after this object: it must not call back into it.
    undoStack_->disconnect(this);
}

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
    file->addSeparator();
    mnuFileExit = file->addAction("E&xit", this, [this] { mnuFileExit_Click(); });
    mnuFileExit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    QMenu* edit = menuBar()->addMenu("&Edit");
    mnuEditUndo = undoStack_->createUndoAction(this, "&Undo");
    mnuEditUndo->setShortcut(QKeySequence::Undo);
    mnuEditRedo = undoStack_->createRedoAction(this, "&Redo");
    // Ctrl+Shift+Z on every platform, beside the platform's own redo key (Ctrl+Y on some).
    QList<QKeySequence> redoKeys = QKeySequence::keyBindings(QKeySequence::Redo);
    if (!redoKeys.contains(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z))) redoKeys.prepend(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z));
    mnuEditRedo->setShortcuts(redoKeys);
    edit->addAction(mnuEditUndo);
    edit->addAction(mnuEditRedo);
    // The status bar says what was undone or redone (the stack has done it when these run).
    connect(mnuEditUndo, &QAction::triggered, this, [this] { StatusBar1->setText("Undone: " + undoStack_->redoText() + "."); });
    connect(mnuEditRedo, &QAction::triggered, this, [this] { StatusBar1->setText("Redone: " + undoStack_->undoText() + "."); });
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
    updateCaption();
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

bool frmMain::unsavedWork() const { return pb.openComplete && (workingCopyEdited() || !sameContent(pb, inFile_)); }

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

bool frmMain::openImage(const QString& path) {
    try {
        Playbook opened = openRom(path.toStdString(), dataDir_.toStdString());
        if (!cpuDir_.isEmpty()) writeGapListing(opened, QDir(cpuDir_).filePath("cpu.txt").toStdString());
        pb = std::move(opened);
    } catch (const std::exception& e) {
        // No box: the reason goes to the status bar. The path is kept, and saves refuse until an open completes.
        pb = Playbook{};
        inFile_ = Playbook{};
        pb.romPath = path.toStdString();
        clearLists();
        clearSeqPanel();  // the previous image's working copy must not be applied to anything
        updateCaption();
        updatePlaySlotButtons();
        updatePlayChoice();
        refreshPictures();
        StatusBar1->setText(shortMessage(e.what(), path));
        return false;
    }
    openedImage_ = pb.openedBytes;
    inFile_ = pb;
    rememberRecent(path);
    undoStack_->clear();
    showPlaybook();
    StatusBar1->setText("");
    return true;
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

bool frmMain::maybeKeepChanges() {
    if (!unsavedWork()) return true;
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
    if (diagram_) diagram_->close();
    settings()->setValue("geometry", saveGeometry());  // the next start opens the window where it was
    event->accept();
}

void frmMain::changeEvent(QEvent* event) {
    QMainWindow::changeEvent(event);
    if (event->type() == QEvent::ActivationChange && isActiveWindow()) noticeChangeOnDisk();
}

void frmMain::noticeChangeOnDisk() {
    if (!pb.openComplete || changeNoticed_) return;
    QString what;
    try {
        (void)readUnchangedImage(pb);
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
    const QByteArray geometry = settings()->value("geometry").toByteArray();
    if (!geometry.isEmpty()) restoreGeometry(geometry);
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
        QAction* a = mnuFileRecent->addAction(QString("&%1 %2").arg(i + 1).arg(QFileInfo(path).fileName()), this, [this, path] {
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

void frmMain::afterSave(const SaveSummary& summary) {
    // The image was opened again: the lists show what it now holds; the tab, the
    // sequence (followed to where it moved) and its command stay selected.
    const auto selected = selectedSequenceAddress();
    const int command = lstSeqCommands->currentRow();
    // The rows selected in the other lists stay selected (and their pictures drawn).
    const int formation = selectedRow(lvFormations), slot = selectedRow(lvPlaySlots), play = selectedRow(lvPlays),
              chosenPlay = cmbPlay->currentIndex();
    // Steps that name a moved sequence's old address (or a new one's key) cannot be undone any more.
    if (summary.moved.empty() && summary.placed.empty()) undoStack_->setClean();
    else undoStack_->clear();
    inFile_ = pb;
    showPlaybook();
    selectRow(lvFormations, formation);
    selectRow(lvPlaySlots, slot);
    selectRow(lvPlays, play);
    updatePlayChoice();
    if (chosenPlay >= 0 && chosenPlay < cmbPlay->count()) cmbPlay->setCurrentIndex(chosenPlay);
    refreshPictures();
    if (!selected) return;
    int32_t address = *selected;
    for (const auto& moves : {summary.moved, summary.placed})
        for (const auto& [from, to] : moves)
            if (from == address) address = to;
    const int row = sequenceRow(address);
    if (row < 0) return;
    selectRow(lvSequences, row);
    lvSequences_Click();
    if (command >= 0 && command < lstSeqCommands->count()) lstSeqCommands->setCurrentRow(command);
}

bool frmMain::runSaveAs() {
    const auto chosen = dialogs_.saveFile(kRomFilter, besideImage(" (edited).nes"));
    if (!chosen) return false;
    QString path = *chosen;
    if (QFileInfo(path).suffix().isEmpty()) path += ".nes";
    // The image itself chosen again is a plain Save (QFileInfo's == says nothing of files that do not exist).
    const QFileInfo to(path), from(QString::fromStdString(pb.romPath));
    if (to.exists() && from.exists() ? to == from : to.absoluteFilePath() == from.absoluteFilePath()) return runSave();
    if (!commitWorkingCopy("Save As")) return false;
    try {
        const FileLock lock(path.toStdString());
        const SaveSummary summary = saveChangesAs(pb, path.toStdString(), dataDir_.toStdString());
        afterSave(summary);
        undoStack_->clear();  // the steps belong to the other file
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
    if (!commitWorkingCopy("Save")) return false;  // what the panel shows is what the user means to save
    try {
        const FileLock lock(pb.romPath);
        const SaveSummary summary = zpe::saveChanges(pb);
        if (summary.nothingToWrite) {
            StatusBar1->setText("Nothing to save: the image already holds every change; the file was left alone.");
            return true;
        }
        afterSave(summary);
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
        const QString question = QString::fromLocal8Bit(e.what()) + "\n\nSave your edits as a new file instead? (Save As)";
        if (dialogs_.message({question, title, MsgIcon::Question, MsgButtons::YesNo, MsgAnswer::Yes}) == MsgAnswer::Yes) return runSaveAs();
        return false;
    }
    reportFailure(title, e);
    return false;
}

bool frmMain::runCompactAndSave() {
    if (!commitWorkingCopy("Compact and Save")) return false;
    try {
        const FileLock lock(pb.romPath);
        const CompactSaveSummary summary = compactAndSave(pb, dataDir_.toStdString());
        // Every address moved: no step can be undone against the old ones.
        inFile_ = pb;
        undoStack_->clear();
        showPlaybook();
        const bool saved = summary.saved.slotsWritten > 0 || summary.saved.inPlace > 0 || !summary.saved.moved.empty();
        StatusBar1->setText(QString::fromStdString(summary.compacted.text() + (saved ? " " + summary.saved.text() : "")));
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
    // Edits not saved yet are saved into the compacted image in the same write.
    const bool edits = unsavedWork();
    CompactSummary preview;
    try {
        (void)readUnchangedImage(pb);
        preview = planCompact(pb).summary;
    } catch (const std::exception& e) {
        reportFailure("Compact Sequence Area", e);
        return;
    }
    QString text = QString::fromStdString(preview.text()).replace("Compacted: ", "Compacting keeps ") +
                   "\n\nThis writes the image at once and cannot be undone.";
    if (edits) text += " Your unsaved edits are saved with it.";
    text += "\n\nCompact the sequence area?";
    if (dialogs_.message({text, "Compact Sequence Area", MsgIcon::Question, MsgButtons::YesNo, MsgAnswer::No}) != MsgAnswer::Yes)
        return;
    (void)runCompactAndSave();
}

void frmMain::mnuFileSafeSave_Click() {
    try {
        const FileLock lock(pb.romPath);
        const bool written = safeSave(pb);
        // Safe Save writes the slots alone: sequence edits stay unsaved.
        inFile_.playSlots = pb.playSlots;
        refreshModified();
        const QString said = written ? "Safe Save: the 64 slots written" : "Safe Save: the slots already stand as shown; the file was left alone";
        StatusBar1->setText(unsavedWork() ? said + "; sequence edits are not saved yet (File > Save writes them)." : said + ".");
    } catch (const std::exception& e) {
        (void)saveRefused("Safe Save", e);
    }
}

void frmMain::mnuFileSave_Click() {
    // No is the default: Enter alone must not blank the computer teams' logic.
    const MessageBoxSpec question{QString::fromLatin1(kFullSaveQuestion), "Warning", MsgIcon::Question, MsgButtons::YesNo,
                                  MsgAnswer::No};
    if (dialogs_.message(question) != MsgAnswer::Yes) return;
    if (!commitWorkingCopy("Full Save")) return;
    try {
        const FileLock lock(pb.romPath);
        fullSave(pb);
        // Every sequence moved: no step can be undone against the new addresses.
        inFile_ = pb;
        undoStack_->clear();
    } catch (const std::exception& e) {
        (void)saveRefused("Full Save", e);
        return;
    }
    refreshAddressLists();
    int32_t bytes = 0;
    for (const auto& [address, seq] : pb.sequences) bytes += seq.byteSize();
    StatusBar1->setText(QString("Full Save: %1 sequences laid out anew from A000 (%2 bytes), every table rewritten.")
                            .arg(pb.sequences.size())
                            .arg(bytes));
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

void frmMain::mnuFileExportMaskROM_Click() {
    const auto path = dialogs_.saveFile(kRomFilter, besideImage(" (mask).nes"));
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
    Playbook doc = pb;
    if (workingCopyEdited()) {
        const QString seq = QString::fromStdString(sequenceKeyText(curSeq.address()));
        switch (dialogs_.message({"The edits of sequence " + seq + " are not applied yet. Include them in the patch (as applied to " + seq +
                                      ")?",
                                  "Export Patch", MsgIcon::Question, MsgButtons::YesNoCancel, MsgAnswer::Yes})) {
        case MsgAnswer::Yes: doc.sequences.at(curSeq.address()) = curSeq; break;
        case MsgAnswer::No: break;
        default: return;
        }
    }
    // The kind follows the name, or when it has no extension the filter chosen: BPS carries both images' CRC-32.
    int filter = 0;
    const auto chosen = dialogs_.saveFile("IPS Patches (*.ips)|*.ips|BPS Patches (*.bps)|*.bps|All Files|*.*", besideImage(".ips"), &filter);
    if (!chosen) return;
    QString path = *chosen;
    if (QFileInfo(path).suffix().isEmpty()) path += filter == 1 ? ".bps" : ".ips";
    const bool bps = QFileInfo(path).suffix().compare("bps", Qt::CaseInsensitive) == 0;
    try {
        refuseSameFile(path.toStdString(), pb.romPath);
        // The document's bytes: what the file held when it was last opened or saved, with every edit since laid out as Save would.
        const std::vector<uint8_t> now = sameContent(doc, inFile_) ? pb.openedBytes : planSave(doc, pb.openedBytes).bytes;
        const std::vector<uint8_t> from = fileBytes(pb, openedImage_), to = fileBytes(pb, now);  // patches are made on the file as it is
        if (from == to) {
            StatusBar1->setText("Nothing to export: the image holds no change since it was opened; no patch was written.");
            return;
        }
        replaceFileContents(path.toStdString(), bps ? makeBps(from, to) : makeIps(from, to));
        StatusBar1->setText(QString("Wrote the changes since the image was opened%1 to %2 (%3)")
                                .arg(unsavedWork() ? ", unsaved ones included," : "", QFileInfo(path).fileName(), bps ? "BPS" : "IPS"));
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
