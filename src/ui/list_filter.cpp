#include "ui/list_filter.h"

#include <QAbstractItemModel>
#include <QLineEdit>
#include <QTreeWidget>

namespace zpe {

namespace {
constexpr const char* kFilterProperty = "filterText";
constexpr const char* kWatchedProperty = "filterWatched";
}  // namespace

ListFilter::ListFilter(QLineEdit* box) : QObject(box), box_(box) {
    box_->setPlaceholderText("Filter");
    box_->setClearButtonEnabled(true);
    box_->setToolTip("Show only the rows of this list that hold this text (in any column)");
    box_->setEnabled(false);
    connect(box_, &QLineEdit::textChanged, this, [this](const QString& text) {
        if (!list_) return;
        list_->setProperty(kFilterProperty, text);
        apply(list_, 0, list_->topLevelItemCount() - 1);
        if (list_->currentItem() && !list_->currentItem()->isHidden()) list_->scrollToItem(list_->currentItem());
    });
}

void ListFilter::show(QTreeWidget* list) {
    list_ = list;
    box_->setEnabled(list != nullptr);
    const QSignalBlocker quiet(box_);
    box_->setText(list ? textOf(list) : QString());
    if (!list || list->property(kWatchedProperty).toBool()) return;
    // Rows filled in later (another image, a save, an undo) and rows whose text changes follow the list's filter.
    list->setProperty(kWatchedProperty, true);
    QAbstractItemModel* model = list->model();
    connect(model, &QAbstractItemModel::rowsInserted, list, [list](const QModelIndex& parent, int first, int last) {
        if (!parent.isValid()) apply(list, first, last);
    });
    connect(model, &QAbstractItemModel::dataChanged, list, [list](const QModelIndex& from, const QModelIndex& to) {
        if (!from.parent().isValid()) apply(list, from.row(), to.row());
    });
}

void ListFilter::reveal(QTreeWidget* list, int row) {
    QTreeWidgetItem* item = list->topLevelItem(row);
    if (!item || !item->isHidden()) return;
    list->setProperty(kFilterProperty, QString());
    apply(list, 0, list->topLevelItemCount() - 1);
    if (list_ == list) {
        const QSignalBlocker quiet(box_);
        box_->clear();
    }
}

QString ListFilter::textOf(const QTreeWidget* list) { return list->property(kFilterProperty).toString(); }

void ListFilter::apply(QTreeWidget* list, int first, int last) {
    const QString text = textOf(list).trimmed();
    for (int r = std::max(first, 0); r <= last && r < list->topLevelItemCount(); ++r) {
        QTreeWidgetItem* item = list->topLevelItem(r);
        bool holds = text.isEmpty();
        for (int c = 0; c < list->columnCount() && !holds; ++c) holds = item->text(c).contains(text, Qt::CaseInsensitive);
        if (item->isHidden() == holds) item->setHidden(!holds);
    }
}

}  // namespace zpe
