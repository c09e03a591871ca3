#include "apps/cimview/panelWidgets.h"

#include "apps/cimview/cellDelegates.h"
#include "apps/cimview/colours.h"

#include <QtWidgets>

#include <algorithm>

namespace vexmor::Apps::Cimview
{

namespace
{
/// Returns the selected rows as lines with tabs between the cells, in the order in which they are shown.
QString selectedText(const QTableView& table)
{
    QString text;
    for (const int row : selectedRows(table)) {
        QStringList cells;
        for (int column = 0; column < table.model()->columnCount(); ++column) {
            if (!table.isColumnHidden(column)) {
                cells.append(table.model()->index(row, column).data().toString());
            }
        }
        text += cells.join(QLatin1Char('\t')) + QLatin1Char('\n');
    }
    return text;
}

/// Opens a menu that shows and hides columns.
void chooseColumns(QTableView& table, const QPoint& place)
{
    QMenu menu;
    for (int column = 0; column < table.model()->columnCount(); ++column) {
        QAction* const action = menu.addAction(table.model()->headerData(column, Qt::Horizontal).toString());
        action->setCheckable(true);
        action->setChecked(!table.isColumnHidden(column));
        QObject::connect(action, &QAction::toggled, &table,
                         [&table, column](bool shown) { table.setColumnHidden(column, !shown); });
    }
    menu.exec(table.horizontalHeader()->mapToGlobal(place));
}
} // namespace

void setUpTable(QTableView& table, const QString& name, QAbstractItemModel& model, const QStringList& samples)
{
    table.setAccessibleName(name);
    table.setModel(&model);
    table.setItemDelegate(new CMarkDelegate(&table));
    table.setSelectionBehavior(QAbstractItemView::SelectRows);
    table.setAlternatingRowColors(true);
    table.setShowGrid(false);
    table.setWordWrap(false);
    table.setTabKeyNavigation(false);
    // All rows have the same known height, so that the view does not measure every row.
    table.verticalHeader()->hide();
    table.verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    table.verticalHeader()->setMinimumSectionSize(1);
    table.verticalHeader()->setDefaultSectionSize(table.fontMetrics().height() + 4);
    table.horizontalHeader()->setFont(QApplication::font());
    table.horizontalHeader()->setStretchLastSection(true);
    table.horizontalHeader()->setHighlightSections(false);
    QAction* const copy = makeAction(&table, QCoreApplication::translate("Table", "Copy rows"), QKeySequence::Copy,
                                     [&table] { QApplication::clipboard()->setText(selectedText(table)); });
    copy->setShortcutContext(Qt::WidgetShortcut);
    table.addAction(copy);
    table.setContextMenuPolicy(Qt::ActionsContextMenu);
    table.horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    table.horizontalHeader()->setContextMenuPolicy(Qt::CustomContextMenu);
    QObject::connect(table.horizontalHeader(), &QWidget::customContextMenuRequested, &table,
                     [&table](const QPoint& place) { chooseColumns(table, place); });
    const QFontMetrics metrics(table.font());
    for (int column = 0; column < samples.size(); ++column) {
        const int width = metrics.horizontalAdvance(samples.at(column) + QStringLiteral("M"));
        table.setColumnWidth(column, qMax(width, table.horizontalHeader()->sectionSizeHint(column)));
    }
}

QList<int> selectedRows(const QTableView& table)
{
    QList<int> rows;
    for (const QModelIndex& index : table.selectionModel()->selectedRows()) {
        rows.append(index.row());
    }
    std::sort(rows.begin(), rows.end());
    return rows;
}

QToolBar* makeToolBar(const QList<QAction*>& actions, QWidget* parent)
{
    auto* const bar = new QToolBar(parent);
    bar->setToolButtonStyle(Qt::ToolButtonTextOnly);
    bar->addActions(actions);
    for (QAction* const action : actions) {
        bar->widgetForAction(action)->setFocusPolicy(Qt::StrongFocus);
    }
    return bar;
}

QString chooseFileToWrite(QWidget* parent, const QString& title, const QString& suggestion, const QString& types)
{
    QFileDialog dialog(parent, title, QString(), types);
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    const auto takeEnding = [&dialog](const QString& type) {
        dialog.setDefaultSuffix(type.section(QStringLiteral("*."), 1).remove(QLatin1Char(')')));
    };
    QObject::connect(&dialog, &QFileDialog::filterSelected, takeEnding);
    takeEnding(dialog.selectedNameFilter());
    dialog.selectFile(suggestion);
    return dialog.exec() == QDialog::Accepted ? dialog.selectedFiles().value(0) : QString();
}

QLabel* makeLabel(const QString& text, QWidget* field)
{
    auto* const label = new QLabel(text, field->parentWidget());
    label->setBuddy(field);
    return label;
}

void markWrong(QWidget& widget, bool isWrong)
{
    QPalette colours;
    if (isWrong) {
        colours.setColor(QPalette::Text, wrongText(colours.color(QPalette::Base)));
        colours.setColor(QPalette::WindowText, wrongText(colours.color(QPalette::Window)));
    }
    widget.setPalette(colours);
}

} // namespace vexmor::Apps::Cimview
