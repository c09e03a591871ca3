#include "apps/host/hostedInterface.h"

#include "cim/resultCodes.h"

#include <QVariant>

namespace vexmor::Apps
{
namespace
{
/// Time between two repetitions of the requests to a silent gateway.
constexpr int REPEAT_MS = 3000;
/// Time after which a request counts as unanswered; a gateway answers within milliseconds.
constexpr int ANSWER_MS = 1000;
} // namespace

CHostedInterface::CHostedInterface(std::unique_ptr<Cim::CCanInterface> canInterface, QObject* parent)
    : QObject(parent), m_canInterface(std::move(canInterface))
{
    Cim::CCommonInfo info = m_canInterface->commonInfo();
    info.setInterfaceId(QString());
    info.setFirmwareVersion(QString());
    m_canInterface->setCommonInfo(info);
    m_canInterface->setParent(this);
    m_canInterface->setSpyHandler(&CHostedInterface::spy);
    // Connects by name, because only the plugin knows the class that has the signal.
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

const SInterfaceStatus& CHostedInterface::updateStatus()
{
    const SInterfaceStatus now = readStatus();
    const bool isUnanswered = now.connection == EConnection::eOpen || now.connection == EConnection::eSilent;
    if (!isUnanswered || m_canInterface->property("Protocol").toString() != QLatin1String("UDP")) {
        m_nextRequest = QDeadlineTimer();
    } else if (!m_status.hasLink()) {
        m_nextRequest.setRemainingTime(REPEAT_MS); // opening has just sent the requests
    } else if (m_nextRequest.hasExpired()) {
        m_nextRequest.setRemainingTime(REPEAT_MS);
        QMetaObject::invokeMethod(m_canInterface.get(), "onSocketConnected"); // sends the requests of a new connection
    }
    const bool mayAnswer = m_nextRequest.remainingTime() > REPEAT_MS - ANSWER_MS;
    if (now.connection != EConnection::eSilent || !mayAnswer) {
        m_status = now;
    }
    return m_status;
}

/// Returns the present status of the interface.
SInterfaceStatus CHostedInterface::readStatus()
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
    if (!sending) { // `send` reports sent messages, after `writeMessage` has accepted them
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
