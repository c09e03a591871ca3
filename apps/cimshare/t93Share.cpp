#include "apps/cimshare/t93Share.h"

#include "cim/resultCodes.h"
#include "sim/rmServer.h"

#include <algorithm>
#include <utility>

namespace vexmor::Apps::Cimshare
{
namespace
{
constexpr std::uint8_t STATUS_BUS_OFF = 0x08;
constexpr int MEASURING_MS = 1000;
constexpr int HIGHEST_PORT = 65535;
} // namespace

/// A shared bus as a T93 gateway. Each host hears what the other clients send, and no host changes anything for them:
/// bit rates, resets and measuring intervals are answered and ignored. Turns hosts away until the real gateway has
/// reported its identity.
class CSharedGateway : public Sim::CRmServer
{
public:
    CSharedGateway(CSharedBus& bus, const SAllowedNetworks& allowed, CEventLog& log);

    /// The gateway's name in the log.
    QString subject() const { return QStringLiteral("t93 ") + m_bus.name(); }

protected:
    void putOnBus(const Cim::CCanMessage& message, Sim::CRmLink& from) override;
    void change(const Cim::SRmFrame& request) override;
    std::unique_ptr<Sim::CRmLink> makeLink(Sim::SRmPeer peer) override;

private:
    void identify();

    CSharedBus& m_bus;
    const SAllowedNetworks& m_allowed;
    CEventLog& m_log;
};

CSharedGateway::CSharedGateway(CSharedBus& bus, const SAllowedNetworks& allowed, CEventLog& log)
    : CRmServer(ETransports::eTcp), m_bus(bus), m_allowed(allowed), m_log(log)
{
    setMaxClients(SAllowedNetworks::MAX_CLIENTS);
    startMeasuring(MEASURING_MS);
    connect(this, &CRmServer::hostDisconnected, this,
            [this] { m_log.printOfClient("disconnected", subject(), QStringLiteral("a host disconnected")); });
    connect(&bus, &CSharedBus::messageSent, this,
            [this](const SBusRecord& record, const QObject* sender) { onBusMessage(record.message, sender); });
    connect(&bus, &CSharedBus::identified, this, &CSharedGateway::identify);
    connect(&bus, &CSharedBus::connectionChanged, this, [this] {
        if (m_bus.status().connection == EConnection::eLost) {
            sendStatus(STATUS_BUS_OFF);
        }
    });
    connect(&bus, &CSharedBus::errorRaised, this, [this](int error) {
        if (error >= Cim::IE_STATUS_FIRST) {
            sendStatus(static_cast<std::uint8_t>(1U << (error - Cim::IE_STATUS_FIRST)));
        }
    });
}

/// Answers as the real gateway from now on.
void CSharedGateway::identify()
{
    const SInterfaceStatus& status = m_bus.status();
    Sim::SGatewayIdentity identity;
    const QByteArray mac = QByteArray::fromHex(status.interfaceId.toLatin1()) + QByteArray(6, '\0'); // a short one
    std::copy_n(mac.constData(), identity.macAddress.size(), identity.macAddress.begin());
    // Hosts request the identification of a gateway with firmware 2.3, and any version can stand in that text.
    identity.firmwareMajor = 2;
    identity.firmwareMinor = 3;
    identity.deviceText = "T93 SHARED SW" + status.firmwareVersion.toLatin1();
    setIdentity(identity);
}

void CSharedGateway::putOnBus(const Cim::CCanMessage& message, Sim::CRmLink& from)
{
    m_bus.send(message, from, [&from](const Failure& failure) {
        if (failure) {
            from.send(Sim::rmFrame(Cim::RM_CMD_STATUS, Sim::STATUS_TRANSMIT_TIMEOUT));
        }
    });
}

void CSharedGateway::change(const Cim::SRmFrame& request)
{
    if (request.command == Cim::RM_CMD_BUSLOAD_INTERVAL) {
        return; // each host sends one: not worth a line
    }
    const QString what = request.command == Cim::RM_CMD_RESET
                             ? QStringLiteral("a reset")
                             : QStringLiteral("a bit rate of %1 kbit/s").arg(Cim::rmBaudrateOfCode(request[0]));
    m_log.printOfClient("ignored", subject(), QStringLiteral("a host asked for %1: ignored").arg(what));
}

std::unique_ptr<Sim::CRmLink> CSharedGateway::makeLink(Sim::SRmPeer peer)
{
    const bool isAdmitted = m_bus.isIdentified() && m_allowed.admits(*peer.tcp, subject(), m_log);
    return isAdmitted ? CRmServer::makeLink(std::move(peer)) : nullptr;
}

CT93Share::CT93Share(const CSharedBuses& buses, const SListenAddress& address, const SAllowedNetworks& allowed,
                     CEventLog& log)
    : CProtocol(QStringLiteral("t93"), buses, log), m_address(address)
{
    for (const auto& bus : m_buses) {
        auto& gateway = m_gateways[bus.get()] = std::make_unique<CSharedGateway>(*bus, allowed, log);
        connect(gateway.get(), &Sim::CRmServer::frameLost, this, [this, lossy = bus.get()] { countLost(*lossy, 1); });
    }
}

CT93Share::~CT93Share() = default;

Failure CT93Share::start()
{
    if (m_address.port + static_cast<int>(m_buses.size()) - 1 > HIGHEST_PORT) {
        return wrongUsage(QStringLiteral("--t93 counts up from %1: there are not so many ports").arg(m_address.port));
    }
    for (const auto& bus : m_buses) {
        CSharedGateway& gateway = *m_gateways.at(bus.get());
        if (Failure failure = gateway.listen(m_address.address, m_address.port)) {
            return failure;
        }
        m_log.printListening(gateway.subject(), gateway.address(), gateway.port());
        m_address.port = static_cast<quint16>(m_address.port == 0 ? 0 : m_address.port + 1);
    }
    return {};
}

int CT93Share::clientCount(const CSharedBus& bus) const
{
    return m_gateways.at(&bus)->tcpHostCount();
}

} // namespace vexmor::Apps::Cimshare
