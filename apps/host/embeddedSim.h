#pragma once

#include "canlog/problem.h"
#include "sim/simBus.h"
#include "sim/simGateway.h"
#include "sim/simTraffic.h"

#include <QObject>
#include <QString>

#include <cstdint>

namespace vexmor::Apps
{

/// A simulated gateway inside this program, on 127.0.0.1 and a port that the system chooses. Its bus has generated
/// traffic, or the traffic of a log. Messages that a host sends are sent back to it. It lives in the main thread.
class CEmbeddedSim : public QObject
{
    Q_OBJECT

public:
    CEmbeddedSim();
    /// Starts the gateway. An empty `logFile` stands for generated traffic; with `loop`, the log starts again at its
    /// end. Fails when the gateway cannot listen or the log cannot be read.
    Failure start(const QString& logFile, bool loop = false);

    Sim::CSimBus& bus() { return m_bus; }
    Sim::CSimGateway& gateway() { return m_gateway; }
    /// Starts the traffic as soon as a host is connected, so that the host misses no message.
    void startTraffic();
    /// Returns the number of messages on the bus so far that the host should have received.
    std::uint64_t messagesToHost() const { return m_messagesToHost; }

Q_SIGNALS:
    /// The log was played to its end, or to a malformed line, which `error` then describes. Its last messages may not
    /// have arrived yet.
    void logEnded(const QString& error);

private:
    void startForKnownHost();

    bool m_playsLog = false;
    Sim::CSimBus m_bus;
    Sim::CSimGateway m_gateway;
    Sim::CSimGenerator m_generator;
    Sim::CSimReplay m_replay;
    std::uint64_t m_messagesToHost = 0;
};

} // namespace vexmor::Apps
