#pragma once

#include "apps/cimshare/access.h"
#include "apps/cimshare/eventLog.h"
#include "apps/cimshare/mqttShare.h"
#include "apps/cimshare/sharedBus.h"
#include "apps/cimshare/socketcandServer.h"
#include "apps/cimshare/t93Share.h"
#include "apps/cli/targetOptions.h"

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
    SAccess access;
    bool allowSend = false; ///< else clients listen only
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
    void tellStatus();

    SShareOptions m_options;
    CEventLog m_log;
    std::vector<std::unique_ptr<CSharedBus>> m_owned;
    std::vector<CSharedBus*> m_buses; ///< the same, as the protocols see them
    std::unique_ptr<CSocketcandServer> m_socketcand;
    std::unique_ptr<CT93Share> m_t93;
    std::unique_ptr<CMqttShare> m_mqtt;
    QTimer m_statusTimer;
};

} // namespace vexmor::Apps::Cimshare
