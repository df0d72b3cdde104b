#pragma once
// The list views, button bars and buttons the tabs are made of, built to the
// window's design sizes (twips), and the row operations every tab shares.
#include "playbook/list_rows.h"
#include "ui/layout.h"

#include <QList>
#include <functional>
#include <QRect>
#include <initializer_list>
#include <optional>
#include <vector>

class QFrame;
class QPushButton;
class QTreeWidget;
class QTreeWidgetItem;
class QWidget;

namespace zpe {

inline QRect px(const TwipRect& r) { return QRect(pixels(r.left), pixels(r.top), pixels(r.width), pixels(r.height)); }

struct Column {
    const char* header;
    int width;  // twips
    bool centre;
};

// A single-selection list of whole rows with the given columns, each as wide
// as its design width (the user may widen any of them).
QTreeWidget* listView(QWidget* parent, std::initializer_list<Column> columns);
// The frame under a list that holds its buttons.
QFrame* buttonBar(QWidget* parent);
// A button of the design size at (left, top) twips.
QPushButton* button(const char* caption, QWidget* parent, int left, int top);
// Columns at least as wide as their design and as their longest text.
void fitColumns(QTreeWidget* list);

// Appends one item per row, aligned as the list's columns are; a sequence's key in the item's data.
void addRows(QTreeWidget* list, const std::vector<ListRow>& rows);
// The sequence key a row of the Sequences list holds; none for another row.
[[nodiscard]] std::optional<SeqKey> rowKey(const QTreeWidgetItem* item);
// Sets the cells of row `index` (0-based); a row the list does not have is left alone.
void setRowCells(QTreeWidget* list, int index, const ListRow& row);
// 0-based index of the selected row of a list view; -1 when none is selected.
int selectedRow(const QTreeWidget* list);
// Selects row `row` (0-based); any other value leaves no row selected.
void selectRow(QTreeWidget* list, int row);

// A left click on the list (released) calls `click`; the selection moved
// by the keyboard calls `keyMove` (a click's own selection change does not).
void connectClicks(QTreeWidget* list, std::function<void()> click, std::function<void()> keyMove);

}  // namespace zpe
