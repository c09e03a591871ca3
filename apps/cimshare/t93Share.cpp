#include "apps/cimshare/t93Share.h"

#include "canlog/candumpLog.h"
#include "cim/resultCodes.h"

#include <algorithm>
#include <utility>

namespace vexmor::Apps::Cimshare
{
namespace
{
constexpr std::uint8_t STATUS_BUS_OFF = 0x08;
constexpr char STATUS_FORMAT_ERROR[] = "\x20";
constexpr int MEASURING_MS = 1000;
/// Maximum length of the device text, which the device number follows in a frame.
constexpr int MAX_DEVICE_TEXT = int(Cim::RM_MAX_RX_PAYLOAD) - 2;
} // namespace

CT93Share::CT93Share(CSharedBus& bus, const SListenAddress& place, const SAllowedNetworks& allowed, CEventLog& log)
    : CRmServer(ETransports::eTcp),
      CProtocol(QStringLiteral("t93"), log),
      m_bus(bus),
      m_place(place),
      m_admission(tcpServer(), QStringLiteral("t93 ") + bus.name(), allowed, log)
{
    setMaxClients(CAdmission::MAX_CLIENTS + 1); // one more, so that the admission turns it away and logs that
    startMeasuring(MEASURING_MS);
    connect(this, &CRmServer::hostDisconnected, this,
            [this] { m_admission.print("disconnected", QStringLiteral("a client disconnected")); });
    connect(this, &CRmServer::frameLost, this, [this] { m_bus.countLost(m_name, 1); });
    connect(&bus, &CSharedBus::messageSent, this,
            [this](const SBusRecord& record, const QObject* sender) { onBusMessage(record.message, sender); });
    connect(&bus, &CSharedBus::identified, this, &CT93Share::identify);
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

Failure CT93Share::start()
{
    Failure failure = listen(m_place.address, m_place.port);
    if (!failure) {
        m_admission.printListening();
    }
    return failure;
}

void CT93Share::identify()
{
    const SInterfaceStatus& status = m_bus.status();
    Sim::SGatewayIdentity identity;
    // The padding is for a MAC address that is too short.
    const QByteArray mac = QByteArray::fromHex(status.interfaceId.toLatin1()) + QByteArray(6, '\0');
    std::copy_n(mac.constData(), identity.macAddress.size(), identity.macAddress.begin());
    // Hosts request the identification text of a gateway with firmware 2.3, and that text can have any version.
    identity.firmwareMajor = 2;
    identity.firmwareMinor = 3;
    identity.deviceText = ("T93 SHARED SW" + status.firmwareVersion.toLatin1()).left(MAX_DEVICE_TEXT);
    setIdentity(identity);
}

void CT93Share::putOnBus(const Cim::CCanMessage& message, Sim::CRmLink& from)
{
    m_bus.send(message, from, m_name, [&from](const Failure& failure) {
        if (failure) {
            from.send(Sim::rmFrame(Cim::RM_CMD_STATUS, Sim::STATUS_TRANSMIT_TIMEOUT));
        }
    });
}

void CT93Share::change(const Cim::SRmFrame& request)
{
    if (request.command == Cim::RM_CMD_BUSLOAD_INTERVAL) {
        return; // every host sends this, so it is not logged
    }
    const QString what = request.command == Cim::RM_CMD_RESET
                             ? QStringLiteral("a reset")
                             : QStringLiteral("a bit rate of %1 kbit/s").arg(Cim::rmBaudrateOfCode(request[0]));
    m_admission.print("ignored", QStringLiteral("ignored a client's request for %1").arg(what));
}

void CT93Share::handle(Sim::CRmLink& link, const Cim::SRmFrame& frame)
{
    const bool isMessage = frame.command == Cim::RM_CMD_TX11BIT_MSG || frame.command == Cim::RM_CMD_TX11BIT_MSG_ALT;
    const int dataLength = frame.payloadLength - 2;
    if (isMessage && (dataLength < 0 || dataLength > 8 || frame[0] > CanLog::MAX_ID >> 8)) {
        link.send(Sim::rmFrame(Cim::RM_CMD_STATUS, STATUS_FORMAT_ERROR));
    } else {
        CRmServer::handle(link, frame);
    }
}

std::unique_ptr<Sim::CRmLink> CT93Share::makeLink(Sim::SRmPeer peer)
{
    QTcpSocket* const socket = peer.tcp.get();
    if (identity().deviceText.isEmpty() || m_admission.admit(*socket)) {
        return nullptr;
    }
    auto link = CRmServer::makeLink(std::move(peer));
    link->setObjectName(peerOf(*socket));
    link->requireFrame(CAdmission::TIME_LIMIT_MS);
    return link;
}

} // namespace vexmor::Apps::Cimshare
