#include "apps/host/hostedInterface.h"

#include "cim/resultCodes.h"

namespace vexmor::Apps
{

CHostedInterface::CHostedInterface(std::unique_ptr<Cim::CCanInterface> canInterface, QObject* parent)
    : QObject(parent), m_canInterface(std::move(canInterface))
{
    Cim::CCommonInfo info = m_canInterface->commonInfo();
    info.setInterfaceId(QString());
    info.setFirmwareVersion(QString());
    m_canInterface->setCommonInfo(info);
    m_canInterface->setParent(this);
    m_canInterface->setSpyHandler(&CHostedInterface::spy);
    // By name: the class that has the signal is known to the plugin alone.
    connect(m_canInterface.get(), SIGNAL(interfaceError(int)), this, SIGNAL(errorRaised(int)));
}

CHostedInterface::~CHostedInterface()
{
    m_canInterface->setSpyHandler(nullptr);
}

int CHostedInterface::send(const Cim::CCanMessage& message)
{
    const int code = m_canInterface->writeMessage(message);
    if (code == Cim::RC_OK) {
        Q_EMIT sent(m_spied);
    }
    return code;
}

bool CHostedInterface::hasAnswered()
{
    const Cim::CCommonInfo& info = m_canInterface->commonInfo();
    return m_arrived > 0 || !info.interfaceId().isEmpty() || !info.firmwareVersion().isEmpty();
}

std::optional<int> CHostedInterface::busload()
{
    int percent = 0;
    const bool isKnown = hasAnswered() && m_canInterface->baudrate() != 0 &&
                         m_canInterface->commonInfo().connectionState() == Cim::CCommonInfo::eConnected &&
                         m_canInterface->busload(percent) == Cim::RC_OK;
    return isKnown ? std::optional(percent) : std::nullopt;
}

int CHostedInterface::spy(const Cim::CCanInterface& canInterface, bool sending, const Cim::CCanMessage& message)
{
    auto* const host = static_cast<CHostedInterface*>(canInterface.parent());
    if (sending) { // not known yet whether the interface takes it
        host->m_spied = message;
    } else {
        ++host->m_arrived;
        host->takeMessages();
    }
    return 0;
}

void CHostedInterface::takeMessages()
{
    Cim::CCanMessage message;
    while (m_canInterface->readMessage(message) == Cim::RC_OK) {
        ++m_received;
        Q_EMIT received(message);
    }
}

} // namespace vexmor::Apps
