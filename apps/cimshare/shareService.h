#pragma once

#include "apps/cimshare/addresses.h"
#include "apps/cimshare/eventLog.h"
#include "apps/cimshare/mqttLink.h"
#include "apps/cimshare/protocol.h"
#include "apps/cli/targetOptions.h"
#include "sim/simGateway.h"

#include <QTimer>

#include <memory>
#include <optional>
#include <vector>

namespace vexmor::Apps::Cimshare
{

/// The choices of the user.
struct SShareOptions {
    STargetOptions targets;
    bool allStored = false;
    SAllowedNetworks allowed;
    bool allowSend = false; ///< Otherwise clients may listen only.
    std::optional<SListenAddress> socketcand;
    bool beacon = false;
    std::optional<SListenAddress> t93;
    SBroker broker;
    QString mqttTopic;     ///< The beginning of all topics.
    int statusSeconds = 0; ///< Between two status lines; 0: none.
    bool json = false;
    SPluginPlace plugins;
};

/// The service: the buses, and the protocols that share them. Lives in the main thread.
class CShareService : public QObject
{
    Q_OBJECT

public:
    explicit CShareService(SShareOptions options);
    ~CShareService() override;

    /// Starts the protocols and begins to open the interfaces. Fails when an option cannot be satisfied.
    Failure start();

private:
    /// A bus, and the gateway that T93 clients find in its place.
    struct SBus {
        CSharedBus* bus = nullptr;
        quint64 lostFrames = 0;
        std::unique_ptr<Sim::CSimGateway> gateway;
    };

    Failure addBuses();
    void addProtocols();
    Failure startT93();
    void watch(CSharedBus& bus);
    Failure shareAsT93(SBus& shared, const SListenAddress& place);
    void identify(CSharedBus& bus, Sim::CSimGateway& gateway);
    void printStatus();
    void printStatus(CSharedBus& bus);

    SShareOptions m_options;
    CEventLog m_log;
    CSharedBuses m_buses;
    std::vector<std::unique_ptr<CProtocol>> m_protocols;
    std::vector<std::unique_ptr<SBus>> m_gateways;
    QTimer m_statusTimer;
};

} // namespace vexmor::Apps::Cimshare
