#include "apps/cimview/managedInterface.h"

#include "apps/host/interfaceStore.h"
#include "cim/resultCodes.h"

#include <utility>

namespace vexmor::Apps::Cimview
{

CManagedInterface::CManagedInterface(std::unique_ptr<Cim::CCanInterface> canInterface, bool isStored,
                                     CSourceNames& names, CMailbox& mailbox)
    : m_canInterface(std::move(canInterface)), m_names(names), m_mailbox(mailbox), m_isStored(isStored)
{
}

bool CManagedInterface::isOpen() const
{
    return state() != EInterfaceState::eClosed && state() != EInterfaceState::eOpening &&
           state() != EInterfaceState::eClosing;
}

std::optional<int> CManagedInterface::busload() const
{
    return state() == EInterfaceState::eConnected ? m_session->status().busload : std::nullopt;
}

void CManagedInterface::open()
{
    if (m_session) {
        return;
    }
    std::unique_ptr<Cim::CCanInterface> clone(m_canInterface->clone());
    m_session = std::make_unique<CSession>(std::move(clone), m_names.numberOf(name()), m_mailbox);
    connect(m_session.get(), &CSession::changed, this, &CManagedInterface::onSessionChanged);
    connect(m_session.get(), &CSession::refused, this, [this](int code) {
        tell({m_canInterface->errorCodeToString(code), code});
    });
    connect(m_session.get(), &CSession::finished, this, &CManagedInterface::onFinished);
    onSessionChanged();
}

void CManagedInterface::close()
{
    if (m_session) {
        m_session->close();
    }
}

void CManagedInterface::onSessionChanged()
{
    if (isOpen()) {
        Cim::CCommonInfo info = m_canInterface->commonInfo();
        info.setFirmwareVersion(m_session->status().info.firmwareVersion());
        info.setInterfaceId(m_session->status().info.interfaceId());
        if (info != m_canInterface->commonInfo()) {
            m_canInterface->setCommonInfo(info);
        }
    }
    Q_EMIT busloadRead(busload());
    const EInterfaceState before = std::exchange(m_shown, state());
    Q_EMIT changed();
    if (m_shown == before) {
        return;
    }
    QString note;
    if (isOpen() && !m_wasOpen) {
        note = tr("Opened.");
    } else if (m_wasOpen && m_shown == EInterfaceState::eClosed) {
        note = tr("Closed.");
    } else if (isOpen() && before == EInterfaceState::eWaiting) {
        note = tr("The gateway is back.");
    }
    m_wasOpen = m_shown != EInterfaceState::eClosed && (m_wasOpen || isOpen());
    if (!note.isEmpty()) {
        Q_EMIT told(EEvent::eNote, 0, note);
    }
    Q_EMIT stateChanged();
}

void CManagedInterface::onFinished()
{
    m_session.release()->deleteLater(); // it is what calls
    onSessionChanged();
}

bool CManagedInterface::setBitRate(const QString& rate)
{
    if (state() != EInterfaceState::eClosed || applySettings(*m_canInterface, {{StoreKey::BAUDRATE, rate}})) {
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
        tell(*failure);
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
        tell(*failure);
    }
    return !failure;
}

void CManagedInterface::tell(const SProblem& problem)
{
    Q_EMIT told(problem.code == 0 ? EEvent::eWarning : EEvent::eResult, problem.code, problem.text);
}

} // namespace vexmor::Apps::Cimview
