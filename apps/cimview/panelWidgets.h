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

/// Parts that several panels are made of.
namespace vexmor::Apps::Cimview
{

/// Makes a table, with a name for screen readers, of compact rows of one height, selected as a whole; Tab leaves it,
/// Ctrl+C and the context menu copy the selected rows. The first columns are wide enough for these samples and for
/// their titles. Uses the font of the table.
void setUpTable(QTableView& table, const QString& name, QAbstractItemModel& model, const QStringList& samples);

/// Returns the selected rows from top to bottom.
QList<int> selectedRows(const QTableView& table);

/// Buttons for actions, with their texts, that Tab reaches; a menu has those that do not fit.
QToolBar* makeToolBar(const QList<QAction*>& actions, QWidget* parent);

/// Runs the dialog for the name of a file to write. A name without an ending gets that of the type; `types` are
/// separated by ";;". Returns nothing when the user cancels.
QString chooseFileToWrite(QWidget* parent, const QString& title, const QString& suggestion, const QString& types);

/// The label of a field; the letter behind & sets the focus to the field.
QLabel* makeLabel(const QString& text, QWidget* field);

/// Shows the text of a field or label in the colour of what makes no sense, or as usual.
void markWrong(QWidget& widget, bool isWrong = true);

/// An action that belongs to `owner` and calls `act` when the user triggers it.
template <typename Owner, typename Act>
QAction* makeAction(Owner* owner, const QString& text, const QKeySequence& shortcut, Act&& act)
{
    auto* const action = new QAction(text, owner);
    action->setShortcut(shortcut);
    QObject::connect(action, &QAction::triggered, owner, std::forward<Act>(act));
    return action;
}

} // namespace vexmor::Apps::Cimview
