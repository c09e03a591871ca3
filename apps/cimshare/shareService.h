#pragma once

#include "apps/cimshare/addresses.h"
#include "apps/cimshare/eventLog.h"
#include "apps/cimshare/mqttLink.h"
#include "apps/cimshare/mqttText.h"
#include "apps/cimshare/protocol.h"
#include "apps/cli/targetOptions.h"

#include <QTimer>

#include <memory>
#include <vector>

namespace vexmor::Apps::Cimshare
{

/// The choices of the user on the command line.
struct SShareOptions {
    STargetOptions targets;
    bool allStored = false;
    SAllowedNetworks allowed;
    SSendPermission sending;
    SListenAddress socketcand;
    bool beacon = false;
    SListenAddress t93;
    SBroker broker;
    SMqttForm mqtt;
    int statusSeconds = 0; ///< Seconds between status lines; 0: no status lines are printed.
    QString metricsFile;   ///< File for the metrics; empty: none is written.
    bool json = false;
    bool isCheck = false; ///< Only print what `start` would do.
    SPluginPlace plugins;
};

/// The service: owns the buses and the protocols that share them. Lives in the main thread.
class CShareService : public QObject
{
public:
    explicit CShareService(SShareOptions options);

    /// Starts the protocols, begins to open the interfaces, and reports to the service manager that the service is
    /// ready. Fails when an option cannot be satisfied.
    Failure start();
    /// Prints what `start` would do. Fails when `start` would fail, except for failures that only a real attempt
    /// reveals, such as a port in use.
    Failure check();

private:
    Failure prepare();
    Failure addBuses();
    Failure addProtocols();
    void printStatus();
    void printStatus(CSharedBus& bus);
    Failure writeMetrics() const;

    SShareOptions m_options;
    CEventLog m_log;
    CSharedBuses m_buses;
    CProtocols m_protocols;
    QTimer m_statusTimer;
    QTimer m_metricsTimer;
    QTimer m_aliveTimer; ///< Notifies the service manager's watchdog that the event loop runs.
};

} // namespace vexmor::Apps::Cimshare
