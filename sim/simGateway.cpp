#include "sim/simGateway.h"

#include "sim/simBus.h"

#include <QDeadlineTimer>
#include <QPointer>
#include <QtEndian>

#include <algorithm>
#include <utility>

namespace vexmor::Sim
{
namespace
{
constexpr int FLOOD_PER_TURN = 500;
constexpr int FLOOD_TURN_MS = 20;            // maximum duration of one turn, for any number of hosts
constexpr qint64 FLOOD_AHEAD = 256LL * 1024; // bytes that may wait for a host during a flood
constexpr std::uint16_t STANDARD_IDS = 0x800;
} // namespace

CSimGateway::CSimGateway(CSimBus& bus, QObject* parent) : CRmServer(ETransports::eTcpAndUdp, parent), m_bus(bus)
{
    setIdentity(SSimIdentity());
    connect(&m_floodTimer, &QTimer::timeout, this, &CSimGateway::continueFlood);
    connect(&bus, &CSimBus::messageSent, this, &CSimGateway::onBusMessage);
}

// ---- Faults ----

void CSimGateway::setFaults(const SSimFaults& faults)
{
    m_faults = faults;
    updateListening();
    for (std::size_t i = 0; i < links().size(); ++i) { // by index, because this may remove links
        linkAt(i).applyFaults();
    }
}

std::unique_ptr<CRmLink> CSimGateway::makeLink(SRmPeer peer)
{
    return std::make_unique<CFaultyLink>(std::move(peer), m_faults);
}

CFaultyLink& CSimGateway::linkAt(std::size_t index) const
{
    return static_cast<CFaultyLink&>(*links()[index]); // makeLink makes only links of this class
}

bool CSimGateway::isReachable(bool overTcp) const
{
    return !m_faults.refuse && (overTcp || !m_faults.blackHole);
}

void CSimGateway::reply(CRmLink& link, const QByteArray& frame)
{
    if (!m_faults.mute) {
        static_cast<CFaultyLink&>(link).reply(frame); // makeLink makes only links of this class
    }
}

void CSimGateway::sendRaw(const QByteArray& bytes)
{
    for (std::size_t i = 0; i < links().size(); ++i) {
        linkAt(i).sendRaw(bytes);
    }
}

// ---- Requests and messages ----

void CSimGateway::handle(CRmLink& link, const Cim::SRmFrame& frame)
{
    const QPointer<CRmLink> alive(&link);
    // The payload is copied, because a slot may end the link that holds the frame.
    const QByteArray payload(reinterpret_cast<const char*>(frame.payload), frame.payloadLength);
    const std::uint8_t command = frame.command;
    Q_EMIT requestReceived(command, payload);
    if (alive) {
        CRmServer::handle(link, {command, static_cast<std::uint8_t>(payload.size()),
                                 reinterpret_cast<const std::uint8_t*>(payload.constData())});
    }
}

void CSimGateway::change(const Cim::SRmFrame& request)
{
    if (request.command == Cim::RM_CMD_BUSLOAD_INTERVAL) {
        startMeasuring(request[0] << 8 | request[1]);
    } else if (request.command == Cim::RM_CMD_RESET) {
        stopMeasuring();
    } else if (const std::uint32_t rate = Cim::rmBaudrateOfCode(request[0]); rate != 0) {
        m_bus.setBaudrate(rate);
    }
}

void CSimGateway::putOnBus(const Cim::CCanMessage& message, CRmLink& /*from*/)
{
    Q_EMIT messageReceived(message);
    m_bus.send(message, this);
    if (m_echo) {
        m_bus.send(message);
    }
}

// ---- A flood ----

void CSimGateway::flood(int count)
{
    m_floodLeft = count;
    m_floodSent = 0;
    m_floodTimer.start(1);
}

void CSimGateway::continueFlood()
{
    const auto isBehind = [](const auto& link) { return link->waiting() > FLOOD_AHEAD; };
    const QDeadlineTimer turn(FLOOD_TURN_MS);
    for (int i = 0; i < FLOOD_PER_TURN && m_floodLeft > 0 && !turn.hasExpired(); ++i) {
        if (std::any_of(links().begin(), links().end(), isBehind)) {
            return; // continues when the host has read
        }
        unsigned char data[8] = {};
        qToBigEndian(m_floodSent, data + 4);
        sendToAll(rmFrame(Cim::CCanMessage(Cim::CCanId::fromValue(m_floodSent % STANDARD_IDS), sizeof data, data)));
        ++m_floodSent;
        --m_floodLeft;
    }
    if (m_floodLeft == 0) {
        m_floodTimer.stop();
    }
}

} // namespace vexmor::Sim
