#include "apps/cimview/eventPanel.h"

#include "apps/cimview/eventModel.h"
#include "apps/cimview/panelWidgets.h"

#include <QtWidgets>

namespace vexmor::Apps::Cimview
{

CEventPanel::CEventPanel(CEventModel& events, QWidget* parent)
    : QWidget(parent), m_events(events), m_table(new QTableView(this)), m_text(new QPlainTextEdit(this))
{
    setUpTable(*m_table, tr("Events"), events,
               {QStringLiteral("00:00:00.000"), QStringLiteral("Some interface 1"), QStringLiteral("error 100"),
                QStringLiteral("1000")});
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    setFocusProxy(m_table);
    m_text->setReadOnly(true);
    m_text->setTabChangesFocus(true);
    m_text->setPlaceholderText(tr("Whole text of the selected event"));
    m_text->setAccessibleName(m_text->placeholderText());

    auto* const splitter = new QSplitter(Qt::Vertical, this);
    splitter->addWidget(m_table);
    splitter->addWidget(m_text);
    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(splitter);
    m_table->addAction(makeAction(m_table, tr("&Clear events"), {}, [this] { m_events.clear(); }));

    connect(&events, &CEventModel::unreadChanged, this, [this](int unread) {
        if (unread > 0 && m_isInView) {
            m_events.markRead();
        }
    });
    connect(&events, &QAbstractItemModel::rowsInserted, m_table, &QTableView::scrollToBottom);
    connect(&events, &QAbstractItemModel::modelReset, m_text, &QPlainTextEdit::clear);
    connect(m_table->selectionModel(), &QItemSelectionModel::currentChanged, this, &CEventPanel::showText);
}

void CEventPanel::setInView(bool inView)
{
    m_isInView = inView;
    if (inView) {
        m_events.markRead();
    }
}

void CEventPanel::showText()
{
    const QModelIndex current = m_table->currentIndex();
    m_text->setPlainText(current.isValid() ? m_events.eventAt(current.row()).text : QString());
}

} // namespace vexmor::Apps::Cimview
