#include "apps/cimctl/session.h"

#include "apps/common/failure.h"

#include <QHash>

#include <algorithm>

namespace vexmor::Apps::Cimctl
{
namespace
{
/// Short enough to see every value of an interface that measures at its default pace of 800 ms.
constexpr int BUSLOAD_SAMPLE_MS = 400;
/// An interface tells 0 until its first measurement is there, which takes no longer than this by default.
constexpr int FIRST_BUSLOAD_MS = 2000;

/// The spy handler is a plain function: this is the way from the interface to its session.
QHash<const Cim::CCanInterface*, CSession*> s_sessions;
} // namespace

CSession::CSession(COutput& output, std::unique_ptr<Cim::CCanInterface> canInterface)
    : m_output(output), m_canInterface(std::move(canInterface))
{
    s_sessions.insert(m_canInterface.get(), this);
    m_canInterface->setSpyHandler(&CSession::spy);
    // By name: the class that has the signal is known to the plugin alone.
    connect(m_canInterface.get(), SIGNAL(interfaceError(int)), this, SLOT(onInterfaceError(int)));
    connect(&m_busloadTimer, &QTimer::timeout, this, &CSession::sampleBusload);
    m_busloadTimer.setInterval(BUSLOAD_SAMPLE_MS);
}

CSession::~CSession()
{
    m_canInterface->setSpyHandler(nullptr);
    m_canInterface->closeCommunication();
    s_sessions.remove(m_canInterface.get());
}

void CSession::open()
{
    const int code = m_canInterface->openCommunication();
    if (code != 0) {
        failRefused(m_canInterface->errorCodeToString(code), code);
    }
    m_output.releaseWarnings(true);
    m_sinceOpen.start();
    m_busloadTimer.start();
}

int CSession::send(const Cim::CCanMessage& message)
{
    const int code = m_canInterface->writeMessage(message);
    if (code == 0) {
        ++m_sent;
        Q_EMIT sent(m_spied);
    }
    return code;
}

int CSession::busload()
{
    int percent = 0;
    m_canInterface->busload(percent);
    return percent;
}

int CSession::spy(const Cim::CCanInterface& canInterface, bool sending, const Cim::CCanMessage& message)
{
    CSession* const session = s_sessions.value(&canInterface);
    if (session == nullptr) {
        return 0;
    }
    if (sending) { // not known yet whether the interface takes it
        session->m_spied = message;
    } else {
        ++session->m_arrived;
        session->takeMessages();
    }
    return 0;
}

void CSession::takeMessages()
{
    Cim::CCanMessage message;
    while (m_canInterface->readMessage(message) == 0) {
        ++m_received;
        Q_EMIT received(message);
    }
}

void CSession::onInterfaceError(int error)
{
    ++m_errors;
    Q_EMIT errorRaised(error);
}

void CSession::sampleBusload()
{
    const int percent = busload();
    if (percent == 0 && m_busloadSamples == 0 && openMilliseconds() < FIRST_BUSLOAD_MS) {
        return;
    }
    ++m_busloadSamples;
    m_busloadSum += percent;
    m_busloadPeak = std::max(m_busloadPeak, percent);
}

void CSession::reportSummary()
{
    m_busloadTimer.stop();
    sampleBusload(); // a short session ends before the timer could see its only value
    const std::uint64_t lost = m_arrived - m_received;
    QString load = QStringLiteral("not measured");
    QJsonObject object{{QStringLiteral("event"), QStringLiteral("summary")},
                       {QStringLiteral("received"), static_cast<qint64>(m_received)},
                       {QStringLiteral("sent"), static_cast<qint64>(m_sent)},
                       {QStringLiteral("refused"), static_cast<qint64>(m_refused)},
                       {QStringLiteral("lost"), static_cast<qint64>(lost)},
                       {QStringLiteral("errors"), static_cast<qint64>(m_errors)},
                       {QStringLiteral("busloadMean"), QJsonValue()},
                       {QStringLiteral("busloadPeak"), QJsonValue()}};
    if (m_busloadSamples > 0) {
        const int mean = static_cast<int>(m_busloadSum / m_busloadSamples);
        load = QStringLiteral("mean %1 %, peak %2 %").arg(mean).arg(m_busloadPeak);
        object.insert(QStringLiteral("busloadMean"), mean);
        object.insert(QStringLiteral("busloadPeak"), m_busloadPeak);
    }
    const QString refused = m_refused == 0 ? QString() : QStringLiteral(", refused %1").arg(m_refused);
    m_output.report(QStringLiteral("received %1, sent %2%3, lost %4, errors %5, bus load %6")
                        .arg(QString::number(m_received), QString::number(m_sent), refused, QString::number(lost),
                             QString::number(m_errors), load),
                    object, EColor::eBold);
}

} // namespace vexmor::Apps::Cimctl
