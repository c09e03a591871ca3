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

/// The choices of the user.
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
    int statusSeconds = 0; ///< Between two status lines; 0: none.
    QString metricsFile;   ///< Empty: none.
    bool json = false;
    bool isCheck = false; ///< Print what `start` would do, and do nothing.
    SPluginPlace plugins;
};

/// The service: the buses, and the protocols that share them. Lives in the main thread.
class CShareService : public QObject
{
public:
    explicit CShareService(SShareOptions options);

    /// Starts the protocols, begins to open the interfaces, and reports that to the service manager. Fails when an
    /// option cannot be satisfied.
    Failure start();
    /// Prints what `start` would do. Fails as it would, but for what only trying shows.
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
    QTimer m_aliveTimer; ///< Shows the service manager's watchdog that the event loop runs.
};

} // namespace vexmor::Apps::Cimshare
