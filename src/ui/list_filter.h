#pragma once
// The filter box of the lists: a line of text that hides every row of the
// shown list holding it in no column (letter case ignored). Each list keeps
// its own text; rows the list gains later are filtered as they come.
#include <QObject>
#include <QString>

class QLineEdit;
class QTreeWidget;

namespace zpe {

class ListFilter : public QObject {
public:
    // `box` edits the filter of whichever list show() names last.
    explicit ListFilter(QLineEdit* box);
    // The list the box filters now (nullptr: none; the box is disabled).
    void show(QTreeWidget* list);
    // The text `list` is filtered by ("" when none).
    static QString textOf(const QTreeWidget* list);
    // Makes row `row` of `list` shown: a filter that hides it is cleared (the
    // window is about to select it, as a double-click on a player does).
    void reveal(QTreeWidget* list, int row);

private:
    static void apply(QTreeWidget* list, int first, int last);
    QLineEdit* box_;
    QTreeWidget* list_ = nullptr;
};

}  // namespace zpe
