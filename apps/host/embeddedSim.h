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

/// A simulated gateway inside this program, on 127.0.0.1 and a port that the system picks, with traffic on its bus:
/// some amplifiers that report, or a log that is played. It echoes what a host sends. Lives in the main thread.
class CEmbeddedSim : public QObject
{
    Q_OBJECT

public:
    CEmbeddedSim();
    /// Starts the gateway. An empty `logFile` stands for generated traffic. With `loop` the log begins again at its
    /// end. Fails when the gateway cannot listen or the log cannot be read.
    Failure start(const QString& logFile, bool loop = false);

    Sim::CSimBus& bus() { return m_bus; }
    Sim::CSimGateway& gateway() { return m_gateway; }
    /// Starts the traffic as soon as the gateway knows a host: none of it is missed.
    void startTraffic();
    /// Messages that were on the bus for the host so far.
    std::uint64_t messagesToHost() const { return m_messagesToHost; }

Q_SIGNALS:
    /// The log was played to its end; `error` tells when a line could not be read. Its last messages may be under way.
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
