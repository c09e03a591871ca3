#pragma once

#include "sim/simBus.h"
#include "sim/simDetection.h"
#include "sim/simGateway.h"
#include "sim/simTraffic.h"

#include <QObject>
#include <QString>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace vexmor::Sim
{

/// What the program's exit code tells; the same as those of the hosts.
enum ESimExitCode : int {
    eSimDone = 0,
    eSimRefused = 1,    ///< the system refused
    eSimWrongUsage = 2, ///< what was typed, or a log, makes no sense
};

/// What the user asks of t93sim, already checked by the parser of the command line.
struct SSimOptions {
    std::string address = "127.0.0.1";
    int port = 30000;
    int gateways = 1;
    int clients = 1;
    std::string mac = "02:00:00:54:39:33";
    std::string firmware = "1.5";
    std::string deviceText = "T93 SIM SW02.03";
    int baud = 500;
    bool noBusload = false;
    bool detect = false;
    int detectPort = Cim::DDT_PORT;
    std::string hostName = "t93sim";
    std::vector<std::string> endpoints{"tcp-server", "udp-server"};
    SSimDetectionFaults detectionFaults;
    std::string replay;
    double speed = 1;
    bool loop = false;
    int generate = 0;
    bool echo = false;
    bool startNow = false;
    SSimFaults faults;
    std::string garbage;
    int dropAfterMs = 0;
    int status = -1; ///< -1: none
    int statusEveryMs = 1000;
    int flood = 0;
    double seconds = 0; ///< 0: until it is interrupted
    bool verbose = false;

    /// Takes "1.05" apart; false when it is not of that form.
    static bool parseFirmware(const std::string& text, std::uint8_t* major = nullptr, std::uint8_t* minor = nullptr);
    /// Takes "udp-client:30001" or, with numbers for protocol and service, "7-2" apart; false when it is not of that
    /// form.
    static bool parseEndpoint(const std::string& text, SSimEndpoint* endpoint = nullptr);
};

/// The gateways of one run of t93sim, their bus and its traffic. Ends the application with a summary: when it is told
/// to (CInterruption), at a line of the log that makes no sense, and when nobody takes what it prints.
class CSimProgram : public QObject
{
    Q_OBJECT

public:
    explicit CSimProgram(SSimOptions options);

    /// Gives a text for the user, too, when it cannot start.
    ESimExitCode start(QString& error);

private:
    bool startGateways(QString& error);
    bool startDetection(QString& error);
    std::unique_ptr<CSimGateway> makeGateway(int number);
    void onHostConnected(CSimGateway& gateway);
    void startTraffic();
    void finish(ESimExitCode exitCode);

    const SSimOptions m_options;
    CSimBus m_bus;
    CSimReplay m_replay{m_bus};
    CSimGenerator m_generator{m_bus};
    std::vector<std::unique_ptr<CSimGateway>> m_gateways;
    CSimDetection m_detection;
    bool m_trafficStarted = false;
    std::uint64_t m_fromHosts = 0;
};

} // namespace vexmor::Sim
