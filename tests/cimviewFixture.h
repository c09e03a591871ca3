#pragma once

// Shared by the tests of the window and of the models behind it.

#include "apps/cimview/tableModel.h"
#include "apps/host/mailbox.h"
#include "testData.h"

namespace vexmor::Test
{

/// Returns the rows of a table as the user reads them: the cells from column `first` on with bars between them, "x" for
/// a checked box, and the number of the row's mark in parentheses.
inline QStringList tableText(const QAbstractItemModel& table, int first = 0)
{
    QStringList rows;
    for (int row = 0; row < table.rowCount(); ++row) {
        QStringList cells;
        int mark = 0;
        for (int column = first; column < table.columnCount(); ++column) {
            const QModelIndex cell = table.index(row, column);
            cells += cell.data(Qt::CheckStateRole).toInt() == Qt::Checked ? "x"_s : cell.data().toString();
            mark = std::max(mark, cell.data(Apps::Cimview::MARK_ROLE).toInt());
        }
        rows += cells.join(QLatin1Char('|')) + (mark == 0 ? QString() : " (%1)"_s.arg(mark));
    }
    return rows;
}

/// Returns a record of a message as an interface delivers it.
inline Apps::SBusRecord record(std::uint16_t id, const QByteArray& data = {}, std::int64_t microseconds = 0,
                               std::uint16_t source = 0, bool sent = false)
{
    return {microseconds, message(id, data), source, sent};
}

} // namespace vexmor::Test
