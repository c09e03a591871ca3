#pragma once

#include <QStringList>

class QAction;
class QTableView;
class QToolButton;
class QWidget;

/// What the panels do alike.
namespace vexmor::Apps::Cimview
{

/// Compact rows of one height, chosen as a whole; Tab leaves the table. Ctrl+C and the context menu copy the chosen
/// rows.
void setUpTable(QTableView& table);

/// Makes the first columns wide enough for these texts, and for their titles.
void setColumnWidths(QTableView& table, const QStringList& samples);

/// A button for an action, with its text, that Tab reaches.
QToolButton* makeButton(QAction& action, QWidget* parent);

} // namespace vexmor::Apps::Cimview
