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

/// The gateway's name in the log.
QString subjectOf(const CSharedBus& bus)
{
    return QStringLiteral("t93 ") + bus.name();
}
} // namespace

/// A shared bus as a T93 gateway. Each host hears what the other clients send, and no host changes anything for them:
/// bit rates, resets and measuring intervals are answered and ignored. Turns hosts away until the real gateway has
/// reported its identity.
class CSharedGateway : public Sim::CRmServer
{
public:
    CSharedGateway(CSharedBus& bus, const SAccess& access, CEventLog& log);

protected:
    bool putOnBus(const Cim::CCanMessage& message, Sim::CRmLink& from) override { return m_bus.send(message, &from); }
    void change(const Cim::SRmFrame& request) override;
    std::unique_ptr<Sim::CRmLink> makeLink(Sim::SRmPeer peer) override;

private:
    void identify();

    CSharedBus& m_bus;
    const SAccess& m_access;
    CEventLog& m_log;
};

CSharedGateway::CSharedGateway(CSharedBus& bus, const SAccess& access, CEventLog& log)
    : CRmServer(ETransports::eTcp), m_bus(bus), m_access(access), m_log(log)
{
    setMaxClients(SAccess::MAX_CLIENTS);
    startMeasuring(MEASURING_MS);
    connect(this, &CRmServer::hostDisconnected, this,
            [this] { m_log.tellOfClient("disconnected", subjectOf(m_bus), QStringLiteral("a host disconnected")); });
    connect(&bus, &CSharedBus::messageSent, this, &CSharedGateway::onBusMessage);
    connect(&bus, &CSharedBus::identified, this, &CSharedGateway::identify);
    connect(&bus, &CSharedBus::connectionChanged, this, [this](bool isConnected) {
        if (!isConnected) {
            sendStatus(STATUS_BUS_OFF);
        }
    });
    connect(&bus.hosted(), &CHostedInterface::errorRaised, this, [this](int error) {
        if (error >= Cim::IE_STATUS_FIRST) {
            sendStatus(static_cast<std::uint8_t>(1U << (error - Cim::IE_STATUS_FIRST)));
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
    m_log.tellOfClient("ignored", subjectOf(m_bus), QStringLiteral("a host asked for %1: ignored").arg(what));
}

std::unique_ptr<Sim::CRmLink> CSharedGateway::makeLink(Sim::SRmPeer peer)
{
    const bool isAdmitted = m_bus.isIdentified() && m_access.admits(*peer.tcp, subjectOf(m_bus), m_log);
    return isAdmitted ? CRmServer::makeLink(std::move(peer)) : nullptr;
}

/// It answers as the real one.
void CSharedGateway::identify()
{
    const Cim::CCommonInfo& info = m_bus.hosted().canInterface().commonInfo();
    Sim::SGatewayIdentity identity;
    const QByteArray mac = QByteArray::fromHex(info.interfaceId().toLatin1()) + QByteArray(6, '\0'); // a short one
    std::copy_n(mac.constData(), identity.macAddress.size(), identity.macAddress.begin());
    // Hosts request the identification of a gateway with firmware 2.3, and any version can stand in that text.
    identity.firmwareMajor = 2;
    identity.firmwareMinor = 3;
    identity.deviceText = "T93 SHARED SW" + info.firmwareVersion().toLatin1();
    setIdentity(identity);
}

CT93Share::CT93Share(const std::vector<CSharedBus*>& buses, const SAccess& access, CEventLog& log)
    : m_buses(buses), m_log(log)
{
    for (CSharedBus* const bus : buses) {
        m_gateways.emplace(bus, std::make_unique<CSharedGateway>(*bus, access, log));
    }
}

CT93Share::~CT93Share() = default;

Failure CT93Share::listen(SListenAddress address)
{
    if (address.port + static_cast<int>(m_buses.size()) - 1 > HIGHEST_PORT) {
        return wrongUsage(QStringLiteral("--t93 counts up from %1: there are not so many ports").arg(address.port));
    }
    for (const CSharedBus* const bus : m_buses) {
        CSharedGateway& gateway = *m_gateways.at(bus);
        if (Failure failure = gateway.listen(address.address, address.port)) {
            return failure;
        }
        m_log.tell("listening", subjectOf(*bus),
                   QStringLiteral("on %1:%2").arg(gateway.address().toString()).arg(gateway.port()),
                   {{QStringLiteral("port"), gateway.port()}});
        address.port = static_cast<quint16>(address.port == 0 ? 0 : address.port + 1);
    }
    return {};
}

int CT93Share::clientCount(const CSharedBus& bus) const
{
    return m_gateways.at(&bus)->tcpHostCount();
}

quint64 CT93Share::lostFrames(const CSharedBus& bus) const
{
    return m_gateways.at(&bus)->lostFrames();
}

} // namespace vexmor::Apps::Cimshare
