#pragma once

#include "apps/cimshare/access.h"
#include "apps/cimshare/eventLog.h"
#include "apps/cimshare/mqttShare.h"
#include "apps/cimshare/sharedBus.h"
#include "apps/cimshare/socketcandServer.h"
#include "sim/simGateway.h"

#include <QTimer>

#include <memory>
#include <optional>
#include <vector>

namespace vexmor::Apps::Cimshare
{

/// What was asked for.
struct SShareOptions {
    STargetOptions targets;
    bool allStored = false;
    QStringList networks; ///< that clients may come from
    bool allowSend = false;
    std::optional<SListenAddress> socketcand;
    bool beacon = false;
    std::optional<SListenAddress> t93;
    SBroker broker; ///< without a host: none
    SMqttForm mqtt;
    int statusSeconds = 0; ///< between two status lines; 0: none
    bool json = false;
    SPluginPlace plugins;
};

/// The service: interfaces, and the ways in which they are shared. Lives in the main thread.
class CShareService : public QObject
{
    Q_OBJECT

public:
    explicit CShareService(SShareOptions options);
    ~CShareService() override;

    /// Listens, and begins to open the interfaces. Fails when something of what was asked for cannot be.
    Failure start();

private:
    Failure addBuses();
    void watch(CSharedBus& bus);
    Failure shareAsT93();
    void identify(CSharedBus& bus, Sim::CSimGateway& gateway, const SListenAddress& place);
    void tellStatus();

    SShareOptions m_options;
    SAccess m_access;
    CEventLog m_log;
    std::vector<std::unique_ptr<CSharedBus>> m_owned;
    std::vector<CSharedBus*> m_buses; ///< the same, as the protocols see them
    std::unique_ptr<CSocketcandServer> m_socketcand;
    std::vector<std::unique_ptr<Sim::CSimGateway>> m_gateways; ///< one a bus
    std::vector<quint64> m_lostFrames;                         ///< of each of them
    std::unique_ptr<CMqttShare> m_mqtt;
    QTimer m_statusTimer;
};

} // namespace vexmor::Apps::Cimshare
