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

CInterfaceInUse* CManagedInterface::sender() const
{
    return isClosed() || status().connection == EConnection::eConnecting ? nullptr : m_inUse.get();
}

void CManagedInterface::open()
{
    if (m_inUse) {
        return;
    }
    std::unique_ptr<Cim::CCanInterface> clone(m_canInterface->clone());
    m_inUse = std::make_unique<CInterfaceInUse>(std::move(clone), m_mailbox, m_names.numberOf(name()),
                                                CInterfaceInUse::EOpening::eOnce);
    connect(m_inUse.get(), &CInterfaceInUse::statusChanged, this, &CManagedInterface::onStatusChanged);
    onStatusChanged();
}

void CManagedInterface::close()
{
    m_inUse.reset();
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
    const EConnection before = std::exchange(m_shown, current.connection);
    if (current.code != 0) { // it was not opened
        report({current.reason, current.code});
        m_inUse.reset();
    }
    Q_EMIT changed();
    if (m_shown == before) {
        return;
    }
    QString note;
    if (isOpen() && !m_wasOpen) {
        note = tr("Opened.");
    } else if (m_wasOpen && isClosed()) {
        note = tr("Closed.");
    } else if (current.hasLink() && before == EConnection::eLost) {
        note = tr("The gateway is back.");
    }
    m_wasOpen = isOpen();
    if (!note.isEmpty()) {
        Q_EMIT eventRaised(eventNow(EEvent::eNote, note, name()));
    }
    Q_EMIT stateChanged();
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
