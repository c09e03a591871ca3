#pragma once

class QAction;
class QTableView;
class QToolButton;
class QWidget;

/// What the panels do alike.
namespace vexmor::Apps::Cimview
{

/// Compact rows of one height, chosen as a whole; Tab leaves the table.
void setUpTable(QTableView& table);

/// A button for an action, with its text, that Tab reaches.
QToolButton* makeButton(QAction& action, QWidget* parent);

} // namespace vexmor::Apps::Cimview
