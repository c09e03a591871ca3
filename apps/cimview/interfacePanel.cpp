#include "apps/cimview/interfacePanel.h"

#include "apps/cimview/addDialog.h"
#include "apps/cimview/panelWidgets.h"
#include "apps/cimview/workbench.h"

#include <QtWidgets>

#include <algorithm>

namespace vexmor::Apps::Cimview
{
namespace
{
constexpr int MAX_NAMED = 10; ///< Maximum number of names that a question lists.
} // namespace

CInterfacePanel::CInterfacePanel(CWorkbench& workbench, QWidget* parent)
    : QWidget(parent),
      m_workbench(workbench),
      m_table(new QTableView(this)),
      m_hint(new QLabel(this)),
      m_baudrate(new QMenu(tr("&Baud rate"), this))
{
    CInterfaceList& interfaces = m_workbench.interfaces();
    m_table->setObjectName(QStringLiteral("InterfaceColumns"));
    setUpTable(*m_table, tr("Interfaces"), interfaces,
               {QStringLiteral("Some interface 1"), QStringLiteral("open, no answer yet   "), QStringLiteral("100 %"),
                QStringLiteral("192.168.1.70:30000:TCP"), QStringLiteral("1000 kbit/s"), QStringLiteral("T93"),
                QStringLiteral("02.03")});
    // The rows keep the order in which they were added until the user chooses a column to sort by.
    m_table->horizontalHeader()->setSortIndicator(-1, Qt::AscendingOrder);
    m_table->setSortingEnabled(true);
    makeActions();
    makeLayout();
    connect(m_table->selectionModel(), &QItemSelectionModel::selectionChanged, this, &CInterfacePanel::updateActions);
    connect(&interfaces, &CInterfaceList::statesChanged, this, &CInterfacePanel::updateActions);
    connect(m_table, &QTableView::doubleClicked, this, [this] { (m_open->isEnabled() ? m_open : m_close)->trigger(); });
    connect(&m_workbench, &CWorkbench::scanEnded, this, &CInterfacePanel::showFound);
    m_table->selectRow(0);
    setFocusProxy(m_table);
    updateActions();
}

void CInterfacePanel::makeActions()
{
    const auto forSelected = [this](void (CManagedInterface::*act)()) {
        return [this, act] {
            for (const int row : selectedRows(*m_table)) {
                (m_workbench.interfaces().at(row).*act)();
            }
        };
    };
    m_open = makeAction(this, tr("&Open"), Qt::Key_F2, forSelected(&CManagedInterface::open));
    m_close = makeAction(this, tr("&Close"), QKeySequence(QStringLiteral("Shift+F2")),
                         forSelected(&CManagedInterface::close));
    m_add = makeAction(this, tr("&Add ..."), QKeySequence::New, &CInterfacePanel::addInterface);
    m_configure = makeAction(this, tr("Con&figure ..."), Qt::Key_F4, &CInterfacePanel::configure);
    m_store = makeAction(this, tr("&Store"), {}, forSelected(&CManagedInterface::store));
    m_store->setToolTip(tr("Stores the interface, so that the list has it at the next start"));
    m_remove = makeAction(this, tr("Re&move"), {}, &CInterfacePanel::removeSelected);
    m_scan = makeAction(this, tr("Scan &network"), Qt::Key_F5, &CInterfacePanel::startScan);
    m_simulate = makeAction(this, tr("Try a simu&lated gateway"), {}, &CInterfacePanel::simulate);
    m_sendTo = makeAction(this, tr("Send on &this interface"), {}, [this] {
        Q_EMIT sendTargetChosen(m_workbench.interfaces().at(selectedRows(*m_table).first()).name());
    });
    m_baudrate->setToolTip(
        tr("Bit rate of the CAN bus. A rate chosen here is set on the bus when the interface is opened."));
    auto* const rates = new QActionGroup(this);
    for (const auto& [rate, text] : bitRateTexts()) {
        QAction* const action = makeAction(this, text, {}, [this, rate = rate] { setBaudrate(rate); });
        action->setData(rate);
        action->setCheckable(true);
        rates->addAction(action);
    }
    m_baudrate->addActions(rates->actions());
    m_table->addActions({m_open, m_close, m_sendTo, m_configure, m_baudrate->menuAction(), m_store, m_remove});
}

void CInterfacePanel::makeLayout()
{
    auto* const layout = new QVBoxLayout(this);
    QToolBar* const bar = makeToolBar({m_open, m_close, m_scan, m_add, m_baudrate->menuAction(), m_configure}, this);
    auto* const rates = qobject_cast<QToolButton*>(bar->widgetForAction(m_baudrate->menuAction()));
    rates->setPopupMode(QToolButton::InstantPopup);
    layout->addWidget(bar);
    m_hint->setText(
        tr("No interfaces yet: <a href='scan'>scan the network</a>, <a href='add'>add</a> one by its address, or "
           "<a href='simulate'>try</a> a simulated gateway."));
    m_hint->setWordWrap(true);
    connect(m_hint, &QLabel::linkActivated, this, [this](const QString& link) {
        (link == QLatin1String("scan") ? m_scan : link == QLatin1String("add") ? m_add : m_simulate)->trigger();
    });
    layout->addWidget(m_hint);
    layout->addWidget(m_table, 1);
}

QList<QAction*> CInterfacePanel::interfaceActions() const
{
    return {m_open,  m_close,  m_sendTo, m_add,     m_configure, m_baudrate->menuAction(),
            m_store, m_remove, m_scan,   m_simulate};
}

void CInterfacePanel::removeSelected()
{
    const QList<int> rows = selectedRows(*m_table);
    const CInterfaceList& interfaces = m_workbench.interfaces();
    QStringList names;
    bool anyStored = false;
    for (const int row : rows) {
        names.append(interfaces.at(row).name());
        anyStored = anyStored || interfaces.at(row).isStored();
    }
    const bool areMany = names.size() > MAX_NAMED;
    const QString question = tr("Remove these interfaces from the list and from the store?") + QStringLiteral("\n\n") +
                             names.mid(0, MAX_NAMED).join(QLatin1Char('\n')) +
                             (areMany ? QStringLiteral("\n...") : QString());
    if (anyStored && QMessageBox::question(this, tr("Remove"), question, QMessageBox::Yes | QMessageBox::Cancel,
                                           QMessageBox::Cancel) != QMessageBox::Yes) {
        return;
    }
    // These row numbers are still valid: a scan that has ended while the question was open added rows only at the end.
    std::for_each(rows.rbegin(), rows.rend(), [this](int row) { m_workbench.interfaces().remove(row); });
}

void CInterfacePanel::addInterface()
{
    CInterfaceList& interfaces = m_workbench.interfaces();
    if (runAddDialog(interfaces, this)) {
        m_table->selectRow(interfaces.rowCount() - 1);
    }
}

void CInterfacePanel::configure()
{
    CInterfaceList& interfaces = m_workbench.interfaces();
    const QList<int> rows = selectedRows(*m_table);
    if (rows.size() != 1 || !interfaces.at(rows.first()).isClosed()) {
        return;
    }
    const QString name = interfaces.at(rows.first()).name();
    const QPointer<CInterfacePanel> self(this);
    Cim::CCanInterface& canInterface = interfaces.at(rows.first()).settings();
    const int rateBefore = canInterface.baudrate();
    const int code = canInterface.configure(this, Qt::WindowFlags());
    // While the dialog was open, a signal may have ended the program. A scan may have added rows, so names are used.
    if (!self || interfaces.rowOf(name) < 0) {
        return;
    }
    if (code != 0) {
        m_workbench.events().add(eventNow(EEvent::eResult, canInterface.errorCodeToString(code), name, code));
    }
    CManagedInterface& configured = interfaces.at(interfaces.rowOf(name));
    if (const int rate = canInterface.baudrate(); rateBefore == 0 && rate != 0) {
        configured.setBitRate(GATEWAYS_BIT_RATE); // the rate stays unchanged until the user has answered
        confirmBitRate(name, rate);
    } else {
        configured.settingsChanged();
    }
    updateActions();
}

/// Asks whether the rate of the plugin's dialog is to be set. The dialog has no entry for an unchanged rate and always
/// sets one, also when the user changes nothing.
void CInterfacePanel::confirmBitRate(const QString& name, int rate)
{
    QMessageBox box(QMessageBox::Question, tr("Baud rate"),
                    tr("%1 has not changed the baud rate of the bus so far. The dialog now shows %2 kbit/s. "
                       "Set this rate? It disturbs a bus that runs at another rate.")
                        .arg(name, QString::number(rate)),
                    QMessageBox::NoButton, this);
    QPushButton* const leave = box.addButton(tr("&Leave it unchanged"), QMessageBox::RejectRole);
    const QPushButton* const set = box.addButton(tr("&Set %1 kbit/s").arg(rate), QMessageBox::AcceptRole);
    box.setDefaultButton(leave);
    box.exec();
    CInterfaceList& interfaces = m_workbench.interfaces();
    if (box.clickedButton() == set && interfaces.rowOf(name) >= 0) {
        interfaces.at(interfaces.rowOf(name)).setBitRate(QString::number(rate));
    }
}

void CInterfacePanel::startScan()
{
    m_workbench.startScan();
    m_scan->setEnabled(!m_workbench.scan().isRunning());
}

void CInterfacePanel::simulate()
{
    if (const Failure failure = m_workbench.simulate(QString())) {
        m_workbench.warn(failure->text);
    }
}

/// Selects the last rows, which a scan has added.
void CInterfacePanel::showFound(int added)
{
    m_scan->setEnabled(true);
    if (added == 0) {
        return;
    }
    const QAbstractItemModel& model = *m_table->model();
    const int last = model.rowCount() - 1;
    const QItemSelection rows(model.index(last - added + 1, 0), model.index(last, 0));
    m_table->selectionModel()->select(rows, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    m_table->scrollTo(model.index(last, 0));
    m_table->scrollTo(model.index(last - added + 1, 0));
}

void CInterfacePanel::setBaudrate(const QString& rate)
{
    for (const int row : selectedRows(*m_table)) {
        CManagedInterface& one = m_workbench.interfaces().at(row);
        if (!one.setBitRate(rate)) {
            m_workbench.note(tr("The baud rate of %1 was not changed: close the interface first.").arg(one.name()));
        }
    }
}

void CInterfacePanel::updateActions()
{
    const CInterfaceList& interfaces = m_workbench.interfaces();
    const QList<int> rows = selectedRows(*m_table);
    const auto any = [&](auto test) { return std::any_of(rows.begin(), rows.end(), test); };
    const auto isClosed = [&](int row) { return interfaces.at(row).isClosed(); };
    const bool anyClosed = any(isClosed);
    const bool oneClosed = rows.size() == 1 && anyClosed;
    m_hint->setVisible(interfaces.rowCount() == 0);
    m_simulate->setEnabled(m_workbench.sim().gateway().port() == 0); // one simulated gateway is enough
    m_open->setEnabled(anyClosed);
    m_close->setEnabled(any([&](int row) { return !isClosed(row); }));
    m_configure->setEnabled(oneClosed);
    m_remove->setEnabled(anyClosed);
    m_store->setEnabled(any([&](int row) { return !interfaces.at(row).isStored(); }));
    m_sendTo->setEnabled(rows.size() == 1 && interfaces.at(rows.first()).isOpen());
    m_baudrate->setEnabled(anyClosed);
    const int rate = rows.isEmpty() ? 0 : interfaces.at(rows.first()).settings().baudrate();
    for (QAction* const action : m_baudrate->actions()) {
        action->setChecked(action->data() == QString::number(rate));
    }
}

} // namespace vexmor::Apps::Cimview
