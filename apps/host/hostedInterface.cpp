#include "apps/host/hostedInterface.h"

#include "cim/resultCodes.h"

#include <QVariant>

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
        Q_EMIT sent(message);
    }
    return code;
}

QString titleOf(const QString& errorText)
{
    return errorText.trimmed().section(QLatin1Char('\n'), 0, 0);
}

SInterfaceStatus CHostedInterface::status()
{
    const Cim::CCommonInfo& info = m_canInterface->commonInfo();
    const SEvidence evidence{m_canInterface->isOpened(), info.connectionState() == Cim::CCommonInfo::eConnected,
                             m_canInterface->property("MillisecondsSinceFrame").toLongLong(),
                             m_canInterface->property("BusloadPollTime").toLongLong()};
    SInterfaceStatus status;
    status.connection = connectionOf(evidence);
    status.interfaceId = info.interfaceId();
    status.firmwareVersion = info.firmwareVersion();
    if (evidence.sinceFrameMs >= 0) {
        status.lastFrame = SInterfaceStatus::Clock::now() - std::chrono::milliseconds(evidence.sinceFrameMs);
    }
    if (status.connection == EConnection::eLost) {
        status.reason = titleOf(m_canInterface->interfaceErrorToString(Cim::IE_TCP_CONNECTION_LOST));
    }
    int percent = 0;
    if (status.isConnected() && m_canInterface->baudrate() != 0 && m_canInterface->busload(percent) == Cim::RC_OK) {
        status.busload = percent;
    }
    return status;
}

int CHostedInterface::spy(const Cim::CCanInterface& canInterface, bool sending, const Cim::CCanMessage& /*message*/)
{
    if (!sending) { // whether a message is sent is known when `writeMessage` returns
        auto* const self = static_cast<CHostedInterface*>(canInterface.parent());
        ++self->m_arrived;
        self->takeMessages();
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
