// The Plays tab, and the players' cells of the Plays and Formations lists.
#include "ui/plays_tab.h"

#include "ui/list_view.h"

#include <QMenu>
#include <QTreeWidget>

namespace zpe {

PlaysTab::PlaysTab(const TabContext& context, QWidget* client) : QObject(client), ctx_(context) {
    lvPlays = listView(client, {{"Number", 800, false}, {"QB", 800, true}, {"RB", 800, true}, {"FB", 800, true},
                                {"WR1", 800, true}, {"WR2", 800, true}, {"TE", 800, true}, {"C", 800, true},
                                {"LG", 800, true}, {"RG", 800, true}, {"LT", 800, true}, {"RT", 800, true}});
    connectEntryCells(lvPlays, AreaEntry::Table::Play, ctx_);
}

void PlaysTab::fill(const std::vector<ListRow>& rows) {
    addRows(lvPlays, rows);
    fitColumns(lvPlays);
}

void PlaysTab::refreshRows(const std::vector<ListRow>& rows) {
    for (size_t p = 0; p < rows.size(); ++p) setRowCells(lvPlays, static_cast<int>(p), rows[p]);
    fitColumns(lvPlays);
}

std::optional<AreaEntry> entryOfCell(const Playbook& pb, AreaEntry::Table table, const QTreeWidget* list,
                                     QTreeWidgetItem* item, int column) {
    if (!item || column < 1 || column > kPlayersPerRecord) return std::nullopt;
    const int row = list->indexOfTopLevelItem(item);
    if (row < 0 || (table == AreaEntry::Table::Formation && static_cast<size_t>(row) >= pb.formations.size())) return std::nullopt;
    AreaEntry e{table, row, column - 1, {}};
    e.target = entryTarget(pb, e);
    return e;
}

void connectEntryCells(QTreeWidget* list, AreaEntry::Table table, const TabContext& context) {
    list->setContextMenuPolicy(Qt::CustomContextMenu);
    list->setToolTip("Double-click a player to edit his sequence; right-click to point him at another one");
    QObject::connect(list, &QTreeWidget::itemDoubleClicked, list, [context, list, table](QTreeWidgetItem* item, int column) {
        if (const auto e = entryOfCell(context.pb(), table, list, item, column)) context.host.editEntry(*e);
    });
    QObject::connect(list, &QWidget::customContextMenuRequested, list, [context, list, table](const QPoint& pos) {
        const auto e = entryOfCell(context.pb(), table, list, list->itemAt(pos), list->columnAt(pos.x()));
        const int row = list->indexOfTopLevelItem(list->itemAt(pos));
        const bool play = table == AreaEntry::Table::Play && row >= 0 && context.pb().openComplete;
        if (!e && !play) return;
        QMenu menu(list);
        QAction *edit = nullptr, *point = nullptr, *exportPlay = nullptr;
        if (e) {
            const QString who = QString::fromStdString(positionName(e->player));
            edit = menu.addAction("Edit " + who + "'s Sequence");
            point = menu.addAction("Point " + who + " at a Sequence...");
            edit->setEnabled(context.pb().sequences.contains(e->target));
        }
        if (play) exportPlay = menu.addAction("Export Play...");
        QAction* chosen = menu.exec(list->viewport()->mapToGlobal(pos));
        if (!chosen) return;
        if (chosen == edit) context.host.editEntry(*e);
        else if (chosen == point) context.host.pointEntry(*e);
        else if (chosen == exportPlay) context.host.exportPlay(row);
    });
}

}  // namespace zpe
