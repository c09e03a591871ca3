#include "apps/cimview/comparisonDialog.h"

#include "apps/cimview/panelWidgets.h"
#include "apps/cimview/sourceNames.h"
#include "apps/cimview/tableModel.h"

#include <QtWidgets>

namespace vexmor::Apps::Cimview
{
namespace
{
constexpr QSize DIALOG_SIZE(900, 420);
constexpr int LINES_PER_TURN = 20000; ///< Log lines per turn of the event loop.
} // namespace

CComparisonDialog::CComparisonDialog(QWidget* parent, const CSourceNames& names, const QString& before,
                                     const QString& after)
    : QDialog(parent), m_names(names), m_result(new QLabel(tr("Reading ...")))
{
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(tr("Comparison of two logs"));
    resize(DIALOG_SIZE);
    m_rows.setHorizontalHeaderLabels(
        {tr("ID"), tr("Differs"), tr("Before [1/s]"), tr("After [1/s]"), tr("Data before"), tr("Data after")});
    auto* const table = new QTableView;
    table->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    const QString data = QStringLiteral("00 11 22 33 44 55 66 77");
    setUpTable(*table, windowTitle(), m_rows,
               {QStringLiteral("7FF Name"), QStringLiteral("rate, data"), QString(), QString(), data, data});
    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel(tr("Before: %1\nAfter: %2").arg(before, after)));
    layout->addWidget(table);
    layout->addWidget(m_result);
    connect(&m_timer, &QTimer::timeout, this, &CComparisonDialog::readPiece);
    if (const Failure failure = m_comparison.open(before, after)) {
        m_result->setText(failure->text);
    } else {
        m_timer.start(0);
    }
}

void CComparisonDialog::readPiece()
{
    auto more = m_comparison.readMore(LINES_PER_TURN);
    if (more && *more) {
        return;
    }
    m_timer.stop();
    m_result->setText(more ? m_comparison.text() : more.problem().text);
    if (more) {
        for (const CanLog::SLogDifference& found : m_comparison.differences()) {
            addRow(found);
        }
    }
}

void CComparisonDialog::addRow(const CanLog::SLogDifference& found)
{
    const auto rateText = [](const auto& side) { return side.rate ? QString::number(*side.rate, 'f', 1) : QString(); };
    QList<QStandardItem*> cells;
    for (const QString& text : {m_names.idText(found.id), found.text(), rateText(found.before), rateText(found.after),
                                QString::fromLatin1(found.before.data), QString::fromLatin1(found.after.data)}) {
        cells += new QStandardItem(text);
        cells.last()->setEditable(false);
    }
    const bool isOneSided = found.isMissing() || found.isNew();
    cells.at(1)->setData(static_cast<int>(isOneSided ? EMark::eBad : EMark::eDoubtful), MARK_ROLE);
    m_rows.appendRow(cells);
}

} // namespace vexmor::Apps::Cimview
