#pragma once

#include "apps/cli/exitCodes.h"
#include "canlog/problem.h"
#include "sim/simBus.h"
#include "sim/simDetection.h"
#include "sim/simGateway.h"
#include "sim/simTraffic.h"

#include <QObject>
#include <QStringList>

#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace vexmor::Apps
{

/// The options of t93sim, already checked by the parser of the command line.
struct SSimOptions {
    QString address = QStringLiteral("127.0.0.1");
    int port = 30000;
    int gateways = 1;
    int clients = 1;
    QString mac = QStringLiteral("02:00:00:54:39:33");
    QString firmware = QStringLiteral("1.5");
    QString deviceText = QStringLiteral("T93 SIM SW02.03");
    int baud = 500;
    bool noBusload = false;
    bool detect = false;
    int detectPort = Cim::DDT_PORT;
    QString hostName = QStringLiteral("t93sim");
    QStringList endpoints{QStringLiteral("tcp-server"), QStringLiteral("udp-server")};
    Sim::SSimDetectionFaults detectionFaults;
    QString replay;
    double speed = 1;
    bool loop = false;
    int generate = 0;
    bool echo = false;
    bool startNow = false;
    Sim::SSimFaults faults;
    QString garbage;
    int dropAfterMs = 0;
    int status = -1; ///< Status byte to report; -1: none.
    int statusEveryMs = 1000;
    int flood = 0;
    double seconds = 0; ///< Duration; 0: until it is interrupted.
    bool verbose = false;

    /// Reads a version like "1.05" into major and minor version. Returns nothing when it is not valid.
    static std::optional<std::pair<std::uint8_t, std::uint8_t>> readFirmware(const QString& text);
    /// Reads an endpoint like "udp-client:30001" or, with numbers for protocol and service, "7-2". Returns nothing when
    /// it is not valid.
    static std::optional<Sim::SSimEndpoint> readEndpoint(const QString& text);
};

/// The gateways of one run of t93sim, their bus and its traffic. The application ends with a summary after the
/// requested time, after a signal, or at a log line that became invalid after the start; it ends without one when the
/// output cannot be written.
class CSimProgram : public QObject
{
    Q_OBJECT

public:
    explicit CSimProgram(SSimOptions options);

    Failure start();

private:
    Failure startGateways();
    Failure startDetection();
    std::unique_ptr<Sim::CSimGateway> makeGateway(int number);
    void startTraffic();
    void finish(EExitCode exitCode);

    const SSimOptions m_options;
    Sim::CSimBus m_bus;
    Sim::CSimReplay m_replay{m_bus};
    Sim::CSimGenerator m_generator{m_bus};
    std::vector<std::unique_ptr<Sim::CSimGateway>> m_gateways;
    Sim::CSimDetection m_detection;
    bool m_trafficStarted = false;
    std::uint64_t m_fromHosts = 0;
};

} // namespace vexmor::Apps
