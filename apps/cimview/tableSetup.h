#pragma once

#include <QStringList>

class QAction;
class QTableView;
class QToolBar;
class QWidget;

/// What the panels do alike.
namespace vexmor::Apps::Cimview
{

/// Compact rows of one height, chosen as a whole; Tab leaves the table. Ctrl+C and the context menu copy the chosen
/// rows.
void setUpTable(QTableView& table);

/// Makes the first columns wide enough for these texts, and for their titles.
void setColumnWidths(QTableView& table, const QStringList& samples);

/// Buttons for actions, with their texts, that Tab reaches; those that find no room go into a menu.
QToolBar* makeToolBar(const QList<QAction*>& actions, QWidget* parent);

} // namespace vexmor::Apps::Cimview
