#include "apps/cimview/eventPanel.h"

#include "apps/cimview/eventModel.h"
#include "apps/cimview/panelWidgets.h"

#include <QHBoxLayout>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSplitter>
#include <QTableView>

namespace vexmor::Apps::Cimview
{

CEventPanel::CEventPanel(CEventModel& events, QWidget* parent)
    : QWidget(parent), m_events(events), m_table(new QTableView(this)), m_text(new QPlainTextEdit(this))
{
    setUpTable(*m_table, events,
               {QStringLiteral("00:00:00.000"), QStringLiteral("Some interface 1"), QStringLiteral("error 100"),
                QStringLiteral("1000")});
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    setFocusProxy(m_table);
    m_text->setReadOnly(true);
    m_text->setTabChangesFocus(true);
    m_text->setPlaceholderText(tr("The whole text of the chosen event"));

    auto* const splitter = new QSplitter(Qt::Horizontal, this);
    splitter->addWidget(m_table);
    splitter->addWidget(m_text);
    splitter->setStretchFactor(0, 3);
    splitter->setStretchFactor(1, 2);
    auto* const clear = new QPushButton(tr("&Clear events"), this);
    auto* const buttons = new QVBoxLayout;
    buttons->addWidget(clear);
    buttons->addStretch(1);
    auto* const layout = new QHBoxLayout(this);
    layout->addWidget(splitter, 1);
    layout->addLayout(buttons);

    connect(&events, &CEventModel::unreadChanged, this, [this](int unread) {
        if (unread > 0 && m_isInView) {
            m_events.markRead();
        }
    });
    connect(clear, &QPushButton::clicked, &events, &CEventModel::clear);
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
