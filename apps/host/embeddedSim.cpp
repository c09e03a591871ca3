#include "apps/host/embeddedSim.h"

#include <QHostAddress>

namespace vexmor::Apps
{
namespace
{
constexpr int GENERATED_RATE = 200; ///< Rate of the generated traffic, in messages per second.
}

CEmbeddedSim::CEmbeddedSim() : m_gateway(m_bus), m_generator(m_bus), m_replay(m_bus)
{
    m_gateway.setEcho(true);
    connect(&m_bus, &Sim::CSimBus::messageSent, this,
            [this](const Cim::CCanMessage& /*message*/, const QObject* sender) {
                m_messagesToHost += sender != &m_gateway ? 1 : 0;
            });
    connect(&m_replay, &Sim::CSimReplay::ended, this, &CEmbeddedSim::logEnded);
}

Failure CEmbeddedSim::start(const QString& logFile, bool loop)
{
    m_playsLog = !logFile.isEmpty();
    if (m_playsLog) {
        if (Failure failure = m_replay.open(logFile, 1, loop)) {
            return failure;
        }
    }
    return m_gateway.listen(QHostAddress(QHostAddress::LocalHost), 0);
}

void CEmbeddedSim::startTraffic()
{
    connect(&m_gateway, &Sim::CSimGateway::requestReceived, this, &CEmbeddedSim::startForKnownHost);
    startForKnownHost();
}

void CEmbeddedSim::startForKnownHost()
{
    if (m_gateway.tcpHostCount() + m_gateway.udpHostCount() == 0) {
        return;
    }
    disconnect(&m_gateway, &Sim::CSimGateway::requestReceived, this, &CEmbeddedSim::startForKnownHost);
    if (m_playsLog) {
        m_replay.start();
    } else {
        m_generator.start(GENERATED_RATE);
    }
}

} // namespace vexmor::Apps
