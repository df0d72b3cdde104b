#pragma once
// The Plays tab: every play's eleven entries. Its cells, and those of the
// Formations list, are players' entries: a double-click edits the player's
// sequence, the context menu also points him at another one.
#include "playbook/list_rows.h"
#include "ui/tab_host.h"

#include <QObject>
#include <optional>

class QTreeWidget;
class QTreeWidgetItem;
class QWidget;

namespace zpe {

class PlaysTab : public QObject {
public:
    PlaysTab(const TabContext& context, QWidget* client);

    void fill(const std::vector<ListRow>& rows);
    void refreshRows(const std::vector<ListRow>& rows);

    QTreeWidget* lvPlays;

private:
    TabContext ctx_;
};

// The cells of `list` (the Plays or the Formations list, by `table`) as
// players' entries: double-click and the context menu, answered by the host.
void connectEntryCells(QTreeWidget* list, AreaEntry::Table table, const TabContext& context);
// The entry a cell shows (a player column of an existing row); none elsewhere.
std::optional<AreaEntry> entryOfCell(const Playbook& pb, AreaEntry::Table table, const QTreeWidget* list,
                                     QTreeWidgetItem* item, int column);

}  // namespace zpe
