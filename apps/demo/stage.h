#pragma once

#include "apps/host/hostedInterface.h"
#include "cim/canMessage.h"
#include "sim/simBus.h"
#include "sim/simGateway.h"
#include "sim/simTraffic.h"

#include <QObject>

#include <memory>
#include <vector>

namespace vexmor::Apps::Demo
{

/// What the demonstration plays on: a simulated gateway, on its bus devices that report and one that answers, and a
/// host of it. Everything that is on the bus, and everything that the host receives, is kept, to be compared.
class CStage : public QObject
{
public:
    /// Request and answer of the device that answers: the same data in reverse.
    static constexpr std::uint16_t REQUEST_ID = 0x610;
    static constexpr std::uint16_t ANSWER_ID = 0x611;

    /// Throws a problem when the gateway cannot listen.
    CStage();
    /// Takes a closed interface that is set to the gateway.
    void host(std::unique_ptr<Cim::CCanInterface> canInterface);

    Sim::CSimBus& bus() { return m_bus; }
    Sim::CSimGateway& gateway() { return m_gateway; }
    Sim::CSimGenerator& generator() { return m_generator; }
    CHostedInterface& hosted() { return *m_hosted; }

    /// What the devices on the bus sent since the last `forget`, and what the host received of it.
    const std::vector<Cim::CCanMessage>& fromDevices() const { return m_fromDevices; }
    const std::vector<Cim::CCanMessage>& received() const { return m_received; }
    void forget();
    /// True when a message of this identifier was on the bus, ever.
    bool wasOnBus(std::uint16_t id) const { return m_idsOnBus[id & 0x7FF]; }
    int lastError() const { return m_lastError; }

private:
    void onBusMessage(const Cim::CCanMessage& message, const QObject* sender);

    Sim::CSimBus m_bus;
    Sim::CSimGateway m_gateway;
    Sim::CSimGenerator m_generator;
    std::unique_ptr<CHostedInterface> m_hosted;
    std::vector<Cim::CCanMessage> m_fromDevices;
    std::vector<Cim::CCanMessage> m_received;
    std::vector<bool> m_idsOnBus;
    int m_lastError = -1; ///< of the interface; -1: none yet
};

} // namespace vexmor::Apps::Demo
