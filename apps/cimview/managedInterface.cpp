#include "apps/cimview/managedInterface.h"

#include "apps/host/interfaceStore.h"

#include <utility>

namespace vexmor::Apps::Cimview
{

CManagedInterface::CManagedInterface(std::unique_ptr<Cim::CCanInterface> canInterface, bool isStored,
                                     CSourceNames& names, std::shared_ptr<CMailbox> mailbox)
    : m_canInterface(std::move(canInterface)), m_names(names), m_mailbox(std::move(mailbox)), m_isStored(isStored)
{
}

const SInterfaceStatus& CManagedInterface::status() const
{
    static const SInterfaceStatus CLOSED;
    return m_inUse ? m_inUse->status() : CLOSED;
}

QString CManagedInterface::stateText() const
{
    if (m_openFailure) {
        return tr("not opened, code %1").arg(m_openFailure->code);
    }
    return hasError() ? QStringLiteral("%1, %2").arg(connectionText(status()), m_error) : connectionText(status());
}

EMark CManagedInterface::stateMark() const
{
    const EConnection connection = status().connection;
    if (m_openFailure || hasError() || connection == EConnection::eLost) {
        return EMark::eBad;
    }
    return connection == EConnection::eClosed      ? EMark::eNone
           : connection == EConnection::eConnected ? EMark::eGood
                                                   : EMark::eDoubtful;
}

void CManagedInterface::setError(const QString& text)
{
    m_error = text;
    Q_EMIT changed();
}

bool CManagedInterface::isOpen() const
{
    return !isClosed() && status().connection != EConnection::eConnecting;
}

bool CManagedInterface::isUnreachable() const
{
    const bool isUdp = m_canInterface->property("Protocol").toString() == QLatin1String("UDP");
    return !status().hasLink() || (isUdp && status().connection == EConnection::eSilent);
}

Failure CManagedInterface::sendObstacle() const
{
    if (!isOpen()) {
        return wrongUsage(tr("Nothing is sent: open %1 first.").arg(name()));
    }
    if (status().connection == EConnection::eOpen) {
        return wrongUsage(
            tr("Nothing is sent: no gateway has answered at the address of %1. Check the address and the gateway.")
                .arg(name()));
    }
    return {};
}

Failure CManagedInterface::send(const Cim::CCanMessage& message)
{
    Failure failure = sendObstacle();
    if (!failure) {
        m_inUse->send(message);
    }
    return failure;
}

void CManagedInterface::setCyclic(int key, const Cim::CCanMessage& message, int milliseconds)
{
    if (!m_inUse) {
        return;
    }
    m_inUse->setCyclic(key, message, milliseconds);
    m_cyclic.erase(key);
    if (milliseconds > 0) {
        m_cyclic.insert(key);
    }
}

void CManagedInterface::open()
{
    if (m_inUse) {
        return;
    }
    m_openFailure.reset();
    std::unique_ptr<Cim::CCanInterface> clone(m_canInterface->clone());
    m_inUse = std::make_unique<CInterfaceInUse>(std::move(clone), m_mailbox, m_names.numberOf(name()),
                                                CInterfaceInUse::EOpening::eOnce);
    connect(m_inUse.get(), &CInterfaceInUse::statusChanged, this, &CManagedInterface::onStatusChanged);
    onStatusChanged();
}

void CManagedInterface::close()
{
    m_inUse.reset();
    m_openFailure.reset();
    onStatusChanged();
}

void CManagedInterface::onStatusChanged()
{
    const SInterfaceStatus current = status();
    if (current.hasLink()) {
        Cim::CCommonInfo info = m_canInterface->commonInfo();
        info.setFirmwareVersion(current.firmwareVersion);
        info.setInterfaceId(current.interfaceId);
        m_canInterface->setCommonInfo(info);
    }
    const auto before = std::exchange(m_shown, std::pair(current.connection, current.losses));
    if (current.code != 0) { // the interface was not opened
        m_openFailure = SProblem{current.reason, current.code};
        report(*m_openFailure);
        m_inUse.reset();
    }
    if (!m_inUse) {
        m_cyclic.clear();
    }
    if (m_shown != before) {
        m_error.clear(); // the error belongs to the previous connection
    }
    Q_EMIT changed();
    if (m_shown != before) {
        noteConnection(m_shown.second > before.second);
        Q_EMIT stateChanged();
    }
}

void CManagedInterface::noteConnection(bool wasLost)
{
    const bool wasOpen = std::exchange(m_wasOpen, isOpen());
    const bool wasUnreachable = std::exchange(m_wasUnreachable, isUnreachable()) || wasLost;
    if (m_wasOpen != wasOpen) {
        Q_EMIT eventRaised(eventNow(EEvent::eNote, m_wasOpen ? tr("Opened.") : tr("Closed."), name()));
    } else if (m_shown.first == EConnection::eSilent && m_wasUnreachable) { // the interface itself reports a lost link
        report({tr("The gateway does not answer any more.")});
    } else if (m_wasOpen && wasUnreachable && !m_wasUnreachable) {
        const auto count = m_cyclic.size();
        const QString sending = count == 0 ? QString() : tr(" Sent cyclically: %1").arg(count);
        Q_EMIT eventRaised(eventNow(EEvent::eNote, tr("The gateway is back.") + sending, name()));
    }
}

bool CManagedInterface::setBitRate(const QString& rate)
{
    if (!isClosed() || applySettings(*m_canInterface, {{StoreKey::BAUDRATE, rate}})) {
        return false;
    }
    settingsChanged();
    return true;
}

void CManagedInterface::settingsChanged()
{
    if (m_isStored) {
        store();
    }
    Q_EMIT changed();
}

void CManagedInterface::store()
{
    if (const Failure failure = CInterfaceStore().save(*m_canInterface, name())) {
        report(*failure);
    } else {
        m_isStored = true;
    }
    Q_EMIT changed();
    Q_EMIT stateChanged();
}

bool CManagedInterface::removeFromStore()
{
    const Failure failure = m_isStored ? CInterfaceStore().remove(name()) : Failure();
    if (failure) {
        report(*failure);
    }
    return !failure;
}

void CManagedInterface::report(const SProblem& problem)
{
    const EEvent kind = problem.code == 0 ? EEvent::eWarning : EEvent::eResult;
    Q_EMIT eventRaised(eventNow(kind, problem.text, name(), problem.code));
}

} // namespace vexmor::Apps::Cimview
