#include "apps/cimview/tableSetup.h"

#include <QAction>
#include <QApplication>
#include <QHeaderView>
#include <QTableView>
#include <QToolButton>

namespace vexmor::Apps::Cimview
{

void setUpTable(QTableView& table)
{
    table.setSelectionBehavior(QAbstractItemView::SelectRows);
    table.setAlternatingRowColors(true);
    table.setShowGrid(false);
    table.setWordWrap(false);
    table.setTabKeyNavigation(false);
    // All rows of one known height: the view never asks a row for its own, however many there are.
    table.verticalHeader()->hide();
    table.verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    table.verticalHeader()->setMinimumSectionSize(1);
    table.verticalHeader()->setDefaultSectionSize(table.fontMetrics().height() + 4);
    table.horizontalHeader()->setFont(QApplication::font());
    table.horizontalHeader()->setStretchLastSection(true);
    table.horizontalHeader()->setHighlightSections(false);
    table.horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
}

void setColumnWidths(QTableView& table, const QStringList& samples)
{
    const QFontMetrics metrics(table.font());
    for (int column = 0; column < samples.size(); ++column) {
        const int width = metrics.horizontalAdvance(samples.at(column) + QStringLiteral("M"));
        table.setColumnWidth(column, qMax(width, table.horizontalHeader()->sectionSizeHint(column)));
    }
}
QToolButton* makeButton(QAction& action, QWidget* parent)
{
    auto* const button = new QToolButton(parent);
    button->setDefaultAction(&action);
    button->setToolButtonStyle(Qt::ToolButtonTextOnly);
    button->setFocusPolicy(Qt::StrongFocus);
    return button;
}

} // namespace vexmor::Apps::Cimview
