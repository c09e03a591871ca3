#include "apps/cimview/sendPanel.h"

#include "apps/cimview/tableSetup.h"
#include "apps/cimview/workbench.h"

#include <QComboBox>
#include <QFontDatabase>
#include <QGridLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpressionValidator>
#include <QSpinBox>
#include <QTableView>

#include <algorithm>

namespace vexmor::Apps::Cimview
{
namespace
{
}

CSendPanel::CSendPanel(CWorkbench& workbench, QWidget* parent)
    : QWidget(parent),
      m_workbench(workbench),
      m_interface(new QComboBox(this)),
      m_id(new QLineEdit(this)),
      m_data(new QLineEdit(this)),
      m_interval(new QSpinBox(this)),
      m_send(new QPushButton(tr("&Send"), this)),
      m_add(new QPushButton(tr("Add to &list"), this)),
      m_sendChosen(new QPushButton(tr("Send c&hosen"), this)),
      m_stop(new QPushButton(tr("S&top all"), this)),
      m_remove(new QPushButton(tr("Remove"), this)),
      m_table(new QTableView(this)),
      m_problem(new QLabel(this))
{
    makeWidgets();
    layOut();
    connectWidgets();
    showInterfaces();
    setFocusProxy(m_id);
}

void CSendPanel::makeWidgets()
{
    static const QRegularExpression ID(QStringLiteral("[0-7]?[0-9A-Fa-f]{1,2}"));
    static const QRegularExpression DATA(QStringLiteral("([0-9A-Fa-f]{2} ?){0,8}"));
    const QFont fixed = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    m_id->setValidator(new QRegularExpressionValidator(ID, this));
    m_id->setPlaceholderText(QStringLiteral("123"));
    m_id->setToolTip(tr("Identifier, hexadecimal, 0 to 7FF"));
    m_data->setValidator(new QRegularExpressionValidator(DATA, this));
    m_data->setPlaceholderText(QStringLiteral("11 22 AA BB"));
    m_data->setToolTip(tr("Up to eight bytes, hexadecimal"));
    m_id->setFont(fixed);
    m_data->setFont(fixed);
    m_id->setMaximumWidth(QFontMetrics(fixed).horizontalAdvance(QStringLiteral("7FF")) * 3);
    m_interval->setRange(1, CSendList::MAX_INTERVAL_MS);
    m_interval->setValue(CSendList::DEFAULT_INTERVAL_MS);
    m_interval->setSuffix(tr(" ms"));
    m_interval->setToolTip(tr("Time from one message to the next, for cyclic sending from the list"));
    m_table->setModel(&m_workbench.sendList());
    setUpTable(*m_table);
    m_table->setFont(fixed);
    setColumnWidths(*m_table, {QString(), QStringLiteral("7FF"), QStringLiteral("00 11 22 33 44 55 66 77"),
                               QStringLiteral("3600000")});
    m_problem->setWordWrap(true);
}

void CSendPanel::layOut()
{
    const auto makeLabel = [this](const QString& text, QWidget* buddy) {
        auto* const label = new QLabel(text, this);
        label->setBuddy(buddy);
        return label;
    };
    auto* const typed = new QHBoxLayout;
    typed->addWidget(makeLabel(tr("&On:"), m_interface));
    typed->addWidget(m_interface, 1);
    typed->addWidget(makeLabel(tr("I&D:"), m_id));
    typed->addWidget(m_id);
    typed->addWidget(makeLabel(tr("Dat&a:"), m_data));
    typed->addWidget(m_data, 2);
    typed->addWidget(m_send);
    auto* const list = new QHBoxLayout;
    list->addWidget(makeLabel(tr("&Every"), m_interval));
    list->addWidget(m_interval);
    list->addWidget(m_add);
    list->addStretch(1);
    for (QPushButton* const button : {m_sendChosen, m_stop, m_remove}) {
        list->addWidget(button);
    }
    auto* const layout = new QVBoxLayout(this);
    layout->addLayout(typed);
    layout->addLayout(list);
    layout->addWidget(m_table, 1);
    layout->addWidget(m_problem);
    m_problem->hide();
    setTabOrder(m_data, m_send);
    setTabOrder(m_send, m_interval);
    setTabOrder(m_interval, m_add);
}

void CSendPanel::connectWidgets()
{
    CSendList& list = m_workbench.sendList();
    connect(m_send, &QPushButton::clicked, this, &CSendPanel::sendTyped);
    connect(m_id, &QLineEdit::returnPressed, this, &CSendPanel::sendTyped);
    connect(m_data, &QLineEdit::returnPressed, this, &CSendPanel::sendTyped);
    connect(m_add, &QPushButton::clicked, this, &CSendPanel::addTyped);
    connect(m_sendChosen, &QPushButton::clicked, this, &CSendPanel::sendChosen);
    connect(m_remove, &QPushButton::clicked, this, &CSendPanel::removeChosen);
    connect(m_stop, &QPushButton::clicked, &list, &CSendList::stopAll);
    connect(&list, &CSendList::cyclicChanged, this, &CSendPanel::setCyclic);
    connect(&list, &CSendList::refused, this, &CSendPanel::showProblem);
    connect(&m_workbench.interfaces(), &CInterfaceList::statesChanged, this, &CSendPanel::showInterfaces);
}

void CSendPanel::showInterfaces()
{
    const CInterfaceList& interfaces = m_workbench.interfaces();
    const QString chosen = m_interface->currentText();
    m_interface->clear();
    for (int row = 0; row < interfaces.rowCount(); ++row) {
        if (interfaces.at(row).isOpen()) {
            m_interface->addItem(interfaces.at(row).name());
        }
    }
    m_interface->setCurrentIndex(std::max(0, m_interface->findText(chosen)));
    const bool canSend = m_interface->count() > 0;
    m_interface->setEnabled(canSend);
    m_send->setEnabled(canSend);
    m_sendChosen->setEnabled(canSend);
    if (interfaces.session(m_cyclicInterface) == nullptr) { // its interface is closed: nothing is sent any more
        m_workbench.sendList().stopAll();
    }
}

/// The message that was typed; none, and its problem is shown, when it makes no sense.
std::optional<Cim::CCanMessage> CSendPanel::typedMessage()
{
    auto message = parseMessage(m_id->text(), m_data->text());
    showProblem(message ? QString() : message.problem().text);
    return message ? std::optional(*message) : std::nullopt;
}

void CSendPanel::sendTyped()
{
    CSession* const session = m_workbench.interfaces().session(m_interface->currentText());
    if (const auto message = typedMessage(); message && session != nullptr) {
        session->send(*message);
    }
}

void CSendPanel::addTyped()
{
    if (const auto message = typedMessage()) {
        SSendItem item;
        item.message = *message;
        item.milliseconds = m_interval->value();
        m_workbench.sendList().add(item);
    }
}

void CSendPanel::sendChosen()
{
    CSession* const session = m_workbench.interfaces().session(m_interface->currentText());
    const QModelIndexList rows = m_table->selectionModel()->selectedRows();
    for (const QModelIndex& row : rows) {
        if (session != nullptr) {
            session->send(m_workbench.sendList().item(row.row()).message);
        }
    }
}

void CSendPanel::removeChosen()
{
    QModelIndexList rows = m_table->selectionModel()->selectedRows();
    std::sort(rows.begin(), rows.end(), [](const auto& one, const auto& other) { return other.row() < one.row(); });
    for (const QModelIndex& row : std::as_const(rows)) { // from the last, so that the others keep their numbers
        m_workbench.sendList().remove(row.row());
    }
}

void CSendPanel::setCyclic(int key, const Cim::CCanMessage& message, int milliseconds)
{
    CInterfaceList& interfaces = m_workbench.interfaces();
    // All of the list goes to one interface at a time: the one chosen when the first was started.
    if (interfaces.session(m_cyclicInterface) == nullptr) {
        m_cyclicInterface = m_interface->currentText();
    }
    CSession* const session = interfaces.session(m_cyclicInterface);
    if (session != nullptr) {
        session->setCyclic(key, message, milliseconds);
        showProblem(QString());
    } else if (milliseconds > 0) {
        showProblem(tr("Open an interface first: there is none to send on."));
        // When the view is done with the click that began this.
        QMetaObject::invokeMethod(&m_workbench.sendList(), &CSendList::stopAll, Qt::QueuedConnection);
    }
}

void CSendPanel::showProblem(const QString& text)
{
    m_problem->setText(text);
    m_problem->setVisible(!text.isEmpty());
}

} // namespace vexmor::Apps::Cimview
