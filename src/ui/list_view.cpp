// The tabs' list views and buttons, and the row operations they share.
#include "ui/list_view.h"

#include <QFrame>
#include <QEvent>
#include <QHeaderView>
#include <QMouseEvent>
#include <QPushButton>
#include <QTreeWidget>
#include <QVariant>

namespace zpe {

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

// Nothing is cut where there is room; the list scrolls sideways otherwise.
void fitColumns(QTreeWidget* lv) {
    const QVariantList design = lv->property("designWidths").toList();
    for (int c = 0; c < lv->columnCount() && c < design.size(); ++c) {
        lv->resizeColumnToContents(c);
        if (lv->columnWidth(c) < design[c].toInt()) lv->setColumnWidth(c, design[c].toInt());
    }
}

std::optional<SeqKey> rowKey(const QTreeWidgetItem* item) {
    if (!item) return std::nullopt;
    const QVariant v = item->data(0, Qt::UserRole);
    if (!v.canConvert<SeqKey>()) return std::nullopt;
    return v.value<SeqKey>();
}

void addRows(QTreeWidget* lv, const std::vector<ListRow>& rows) {
    QList<QTreeWidgetItem*> items;
    items.reserve(static_cast<qsizetype>(rows.size()));
    for (const ListRow& row : rows) {
        auto* item = new QTreeWidgetItem;
        for (size_t c = 0; c < row.cells.size(); ++c) {
            item->setText(static_cast<int>(c), QString::fromLatin1(row.cells[c]));
            item->setToolTip(static_cast<int>(c), QString::fromLatin1(row.cells[c]));  // the whole text where it is cut
            item->setTextAlignment(static_cast<int>(c), Qt::Alignment(lv->headerItem()->textAlignment(static_cast<int>(c))));
        }
        if (row.key) item->setData(0, Qt::UserRole, QVariant::fromValue(*row.key));
        items.push_back(item);
    }
    lv->addTopLevelItems(items);
}

void setRowCells(QTreeWidget* list, int index, const ListRow& row) {
    QTreeWidgetItem* item = list->topLevelItem(index);
    if (!item) return;
    for (size_t c = 0; c < row.cells.size(); ++c) {
        item->setText(static_cast<int>(c), QString::fromLatin1(row.cells[c]));
        item->setToolTip(static_cast<int>(c), QString::fromLatin1(row.cells[c]));
    }
}

int selectedRow(const QTreeWidget* list) {
    const auto selected = list->selectedItems();
    if (selected.isEmpty()) return -1;
    return list->indexOfTopLevelItem(selected.first());
}

void selectRow(QTreeWidget* list, int row) {
    list->clearSelection();
    if (QTreeWidgetItem* item = row >= 0 ? list->topLevelItem(row) : nullptr) {
        item->setSelected(true);
        list->setCurrentItem(item);
    }
}

namespace {

// Watches the list's viewport: while the mouse is pressed on it, selection
// changes are the click's, handled when the button is released.
class ClickWatcher : public QObject {
public:
    ClickWatcher(QTreeWidget* list, std::function<void()> click, std::function<void()> keyMove)
        : QObject(list), click_(std::move(click)) {
        list->viewport()->installEventFilter(this);
        connect(list, &QTreeWidget::currentItemChanged, this, [this, keyMove = std::move(keyMove)] {
            if (!pressed_ && keyMove) keyMove();
        });
    }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::MouseButtonPress) pressed_ = true;
        if (event->type() == QEvent::MouseButtonRelease) {
            pressed_ = false;
            if (static_cast<QMouseEvent*>(event)->button() == Qt::LeftButton) click_();
        }
        return QObject::eventFilter(watched, event);
    }

private:
    std::function<void()> click_;
    bool pressed_ = false;
};

}  // namespace

void connectClicks(QTreeWidget* list, std::function<void()> click, std::function<void()> keyMove) {
    new ClickWatcher(list, std::move(click), std::move(keyMove));
}

}  // namespace zpe
