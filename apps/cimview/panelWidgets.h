#pragma once

#include <QAction>
#include <QKeySequence>
#include <QStringList>

#include <utility>

class QAbstractItemModel;
class QLabel;
class QTableView;
class QToolBar;
class QWidget;

/// Widgets and dialogs that several panels use.
namespace vexmor::Apps::Cimview
{

/// Sets up a table with compact rows of equal height and a name for screen readers. The user selects whole rows, copies
/// them with Ctrl+C or the context menu, and leaves the table with Tab. The first columns become wide enough for their
/// titles and for `samples` in the font of the table.
void setUpTable(QTableView& table, const QString& name, QAbstractItemModel& model, const QStringList& samples);

/// Returns the selected rows from top to bottom.
QList<int> selectedRows(const QTableView& table);

/// Makes a tool bar with text buttons for actions, which Tab reaches. A menu contains the buttons that do not fit.
QToolBar* makeToolBar(const QList<QAction*>& actions, QWidget* parent);

/// Runs the dialog for the name of a file to write. A name without a suffix gets the suffix of the chosen type; `types`
/// are separated by ";;". Returns an empty name when the user cancels.
QString chooseFileToWrite(QWidget* parent, const QString& title, const QString& suggestion, const QString& types);

/// Makes the label of a field. Alt and the letter after & set the focus to the field.
QLabel* makeLabel(const QString& text, QWidget* field);

/// Shows the text of a field or label in the colour of invalid text, or in the ordinary colour.
void markWrong(QWidget& widget, bool isWrong = true);

/// Makes an action that belongs to `owner` and calls `act` when the user triggers it.
template <typename Owner, typename Act>
QAction* makeAction(Owner* owner, const QString& text, const QKeySequence& shortcut, Act&& act)
{
    auto* const action = new QAction(text, owner);
    action->setShortcut(shortcut);
    QObject::connect(action, &QAction::triggered, owner, std::forward<Act>(act));
    return action;
}

} // namespace vexmor::Apps::Cimview
