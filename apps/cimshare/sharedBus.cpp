#include "apps/cimshare/sharedBus.h"

#include "apps/host/embeddedSim.h"
#include "cim/resultCodes.h"

#include <QHostAddress>
#include <QNetworkProxy>

#include <algorithm>
#include <utility>

namespace vexmor::Apps::Cimshare
{
namespace
{
constexpr int LOOK_AT_LINK_MS = 100;
constexpr int RETRY_MS = 3000;
/// A gateway that was just asked whether it is there gives its only connection away again.
constexpr int AFTER_PROBE_MS = 100;

void count(CSharedBus::SCount& total, const Cim::CCanMessage& message)
{
    ++total.messages;
    total.bytes += message.length();
}
} // namespace

CSharedBus::CSharedBus(CTarget target, std::unique_ptr<Cim::CCanInterface> canInterface, bool allowSend)
    : m_target(std::move(target)), m_hosted(std::move(canInterface)), m_allowSend(allowSend)
{
    m_probe.setProxy(QNetworkProxy::NoProxy);
    m_linkTimer.setInterval(LOOK_AT_LINK_MS);
    m_retryTimer.setInterval(RETRY_MS);
    connect(&m_linkTimer, &QTimer::timeout, this, &CSharedBus::lookAtLink);
    connect(&m_retryTimer, &QTimer::timeout, this, &CSharedBus::probe);
    connect(&m_probe, &QTcpSocket::connected, this, [this] {
        m_retryTimer.stop();
        m_probe.abort();
        QTimer::singleShot(AFTER_PROBE_MS, this, &CSharedBus::open);
    });
    connect(&m_probe, &QTcpSocket::errorOccurred, this, [this] { onNotOpened(m_probe.errorString()); });
    connect(&m_hosted, &CHostedInterface::errorRaised, this, &CSharedBus::lookAtLink);
    connect(&m_hosted, &CHostedInterface::received, this, [this](const Cim::CCanMessage& message) {
        count(m_received, message);
        Q_EMIT messageSent(message, nullptr);
    });
}

void CSharedBus::start()
{
    m_retryTimer.start();
    probe();
}

/// Asks whether anybody is there without waiting for it: to open an interface that nobody answers for would stop all
/// buses for a second.
void CSharedBus::probe()
{
    const Cim::CCanInterface& canInterface = m_hosted.canInterface();
    m_probe.abort();
    if (canInterface.property("Protocol").toString() == QLatin1String("UDP")) { // nobody is waited for
        open();
        return;
    }
    m_probe.connectToHost(QHostAddress(canInterface.property("IPAddress").toString()),
                          static_cast<quint16>(canInterface.property("Port").toUInt()));
}

void CSharedBus::open()
{
    Cim::CCanInterface& canInterface = m_hosted.canInterface();
    const int code = canInterface.openCommunication();
    if (code != Cim::RC_OK) {
        onNotOpened(canInterface.errorCodeToString(code));
        m_retryTimer.start();
        return;
    }
    m_retryTimer.stop();
    m_linkTimer.start();
    lookAtLink();
    if (m_target.sim() != nullptr) {
        m_target.sim()->startTraffic();
    }
}

void CSharedBus::onNotOpened(const QString& why)
{
    if (!std::exchange(m_isFailureTold, true)) {
        Q_EMIT connectionChanged(false, why);
    }
}

QString CSharedBus::plainName() const
{
    QString result = name();
    std::replace_if(
        result.begin(), result.end(),
        [](QChar one) { return one.isSpace() || !one.isPrint() || QStringLiteral("/+#$<>").contains(one); },
        QLatin1Char('_'));
    return result;
}

bool CSharedBus::send(const Cim::CCanMessage& message, const QObject* sender)
{
    if (!m_allowSend) {
        m_refusal = QStringLiteral("clients may listen only (--allow-send)");
        return false;
    }
    if (const int code = m_hosted.send(message); code != Cim::RC_OK) {
        m_refusal = m_hosted.canInterface().errorCodeToString(code);
        return false;
    }
    count(m_sent, message);
    Q_EMIT messageSent(message, sender);
    return true;
}

QString CSharedBus::textOfError(int error)
{
    return m_hosted.canInterface().interfaceErrorToString(error).trimmed().section(QLatin1Char('\n'), 0, 0);
}

void CSharedBus::lookAtLink()
{
    const Cim::CCommonInfo& info = m_hosted.canInterface().commonInfo();
    const bool isConnected = info.connectionState() == Cim::CCommonInfo::eConnected;
    if (isConnected != m_isConnected) {
        m_isConnected = isConnected;
        Q_EMIT connectionChanged(isConnected, {});
    }
    const QString identity = info.interfaceId() + info.firmwareVersion();
    if (identity != m_identity && !info.interfaceId().isEmpty() && !info.firmwareVersion().isEmpty()) {
        m_identity = identity;
        Q_EMIT identified();
    }
}

} // namespace vexmor::Apps::Cimshare
