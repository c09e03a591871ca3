#include "sim/rmServer.h"

#include "InterfaceT93/busloadMeter.h"
#include "InterfaceT93/gatewayReplies.h"

#include <algorithm>
#include <utility>

namespace vexmor::Sim
{
namespace
{
constexpr int PORT_TRIES = 20;
constexpr int LISTEN_RETRY_MS = 10;
/// Maximum number of datagrams that are read in one turn of the event loop.
constexpr int DATAGRAMS_PER_TURN = 1000;
constexpr std::uint64_t BITS_PER_COUNTED_FRAME = 74; // the number of bits that a host assumes per reported frame

/// Returns a byte array with the low 8 bits of each number.
QByteArray bytesOf(std::initializer_list<int> numbers)
{
    QByteArray result;
    for (const int number : numbers) {
        result.append(static_cast<char>(number));
    }
    return result;
}
} // namespace

CRmServer::CRmServer(ETransports transports, QObject* parent) : QObject(parent), m_transports(transports)
{
    m_measureTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_server, &QTcpServer::newConnection, this, &CRmServer::onNewConnection);
    connect(&m_udp, &QUdpSocket::readyRead, this, &CRmServer::onDatagrams);
    connect(&m_measureTimer, &QTimer::timeout, this, &CRmServer::endInterval);
}

CRmServer::~CRmServer() = default;

// ---- Links to hosts ----

Failure CRmServer::listen(const QHostAddress& address, std::uint16_t port)
{
    m_address = address;
    QString why;
    for (int tries = port == 0 ? PORT_TRIES : 1; tries > 0; --tries) {
        m_server.close();
        m_heldPort.abort();
        m_udp.close();
        if (!m_server.listen(address, port)) {
            why = QStringLiteral("(TCP): ") + m_server.errorString();
        } else if (m_transports == ETransports::eTcpAndUdp &&
                   // The port is not shared: another program would receive some of the datagrams.
                   !m_udp.bind(address, m_server.serverPort(), QAbstractSocket::DontShareAddress)) {
            why = QStringLiteral("(UDP): ") + m_udp.errorString();
        } else {
            m_port = m_server.serverPort();
            updateListening();
            return {};
        }
    }
    m_server.close();
    return SProblem{QStringLiteral("cannot listen on %1:%2 %3").arg(address.toString()).arg(port).arg(why)};
}

void CRmServer::updateListening()
{
    const bool accepts = m_port != 0 && isReachable(true) && count(true) < m_maxClients;
    if (accepts == m_server.isListening()) {
        return;
    }
    if (!accepts) {
        m_server.close(); // the kernel refuses connections only to a closed port
        // The system gives a bound port to no other program, which would get the connections of this gateway's hosts.
        m_heldPort.bind(m_address, m_port, QAbstractSocket::ShareAddress | QAbstractSocket::ReuseAddressHint);
        return;
    }
    m_heldPort.abort();
    if (!m_server.listen(m_address, m_port)) {
        QTimer::singleShot(LISTEN_RETRY_MS, this, &CRmServer::updateListening);
    }
}

void CRmServer::onNewConnection()
{
    while (std::unique_ptr<QTcpSocket> socket{m_server.nextPendingConnection()}) {
        socket->setParent(nullptr);
        if (count(true) < m_maxClients) {
            const QHostAddress address = socket->peerAddress();
            addLink({std::move(socket), nullptr, address, 0});
        }
    }
    updateListening();
}

void CRmServer::onDatagrams()
{
    for (int i = 0; i < DATAGRAMS_PER_TURN && m_udp.hasPendingDatagrams(); ++i) {
        char bytes[Cim::RM_BUFFER_SIZE];
        QHostAddress address;
        quint16 port = 0;
        const qint64 size = m_udp.readDatagram(bytes, sizeof bytes, &address, &port);
        if (size <= 0 || !isReachable(false)) {
            continue;
        }
        if (CRmLink* const link = linkOf(address, port)) {
            link->receive(bytes, size);
        }
    }
}

/// Returns the link of a UDP host; for a new host it makes one.
CRmLink* CRmServer::linkOf(const QHostAddress& address, std::uint16_t port)
{
    const auto isUdp = [](const auto& link) { return !link->isTcp(); };
    const auto known = std::find_if(m_links.begin(), m_links.end(),
                                    [&](const auto& link) { return isUdp(link) && link->isFrom(address, port); });
    if (known != m_links.end()) {
        return known->get();
    }
    if (count(false) >= m_maxClients) {
        removeLink(std::find_if(m_links.begin(), m_links.end(), isUdp)->get());
    }
    return addLink({nullptr, &m_udp, address, port});
}

CRmLink* CRmServer::addLink(SRmPeer peer)
{
    std::unique_ptr<CRmLink> made = makeLink(std::move(peer));
    CRmLink* const link = made.get();
    if (link != nullptr) {
        m_links.push_back(std::move(made));
        connect(link, &CRmLink::frameReceived, this,
                [this, link](const Cim::SRmFrame& frame) { handle(*link, frame); });
        connect(link, &CRmLink::frameLost, this, &CRmServer::frameLost);
        connect(link, &CRmLink::disconnected, this, [this, link] { removeLink(link); });
        Q_EMIT hostConnected();
    }
    return link;
}

void CRmServer::removeLink(const CRmLink* link)
{
    const auto found =
        std::find_if(m_links.begin(), m_links.end(), [link](const auto& candidate) { return candidate.get() == link; });
    if (found == m_links.end()) {
        return;
    }
    CRmLink* const removed = found->release(); // deleted later, because it may be emitting a signal
    m_links.erase(found);
    removed->disconnect(this);
    removed->abort();
    removed->deleteLater();
    updateListening();
    Q_EMIT hostDisconnected();
}

void CRmServer::dropLinks()
{
    while (!m_links.empty()) {
        removeLink(m_links.front().get());
    }
}

int CRmServer::count(bool overTcp) const
{
    return static_cast<int>(std::count_if(m_links.begin(), m_links.end(),
                                          [overTcp](const auto& link) { return link->isTcp() == overTcp; }));
}

void CRmServer::setMaxClients(int count)
{
    m_maxClients = std::max(count, 1);
    updateListening();
}

// ---- Frames ----

void CRmServer::handle(CRmLink& link, const Cim::SRmFrame& frame)
{
    if (frame.command == Cim::RM_CMD_TX11BIT_MSG || frame.command == Cim::RM_CMD_TX11BIT_MSG_ALT) {
        putOnBus(Cim::canMessageOfFrame(frame), link);
    } else if (const auto payload = answerTo(frame)) {
        reply(link, rmFrame(frame.command, *payload));
    }
}

/// Returns the payload of the answer; nothing for a request that is not answered.
std::optional<QByteArray> CRmServer::answerTo(const Cim::SRmFrame& request)
{
    const auto& mac = m_identity.macAddress;
    switch (request.command) {
    case Cim::RM_CMD_DEVICE_ID:
        return m_identity.deviceText + bytesOf({m_identity.deviceNumber >> 8, m_identity.deviceNumber});
    case Cim::RM_CMD_FIRMWARE_VERSION:
        return bytesOf({0, 0, m_identity.firmwareMajor, m_identity.firmwareMinor});
    case Cim::RM_CMD_MAC_ADDRESS:
        return QByteArray(reinterpret_cast<const char*>(mac.data()), static_cast<int>(mac.size()));
    case Cim::RM_CMD_BUSLOAD:
        return m_identity.measuresBusload ? std::optional(measuredLoad()) : std::nullopt;
    case Cim::RM_CMD_BUSLOAD_INTERVAL:
        if (!m_identity.measuresBusload || request.payloadLength < 2) {
            return std::nullopt;
        }
        [[fallthrough]];
    case Cim::RM_CMD_CAN_BAUD_RATE:
        change(request);
        return QByteArray(reinterpret_cast<const char*>(request.payload), request.payloadLength);
    case Cim::RM_CMD_RESET:
        change(request);
        [[fallthrough]];
    default:
        return std::nullopt;
    }
}

void CRmServer::onBusMessage(const Cim::CCanMessage& message, const QObject* sender)
{
    m_bits += Cim::canMessageBits(message.length());
    if (sender != this) {
        sendToAll(rmFrame(message), sender);
    }
}

void CRmServer::sendToAll(const QByteArray& frame, const QObject* except)
{
    for (const auto& link : m_links) {
        if (link.get() != except) {
            link->send(frame);
        }
    }
}

// ---- The load of the bus ----

void CRmServer::startMeasuring(int intervalMs)
{
    m_bits = 0;
    m_bitsPerSecond = 0;
    m_measureClock.start();
    m_measureTimer.start(std::max(intervalMs, 1));
}

void CRmServer::stopMeasuring()
{
    m_measureTimer.stop();
    m_bitsPerSecond = 0;
}

void CRmServer::endInterval()
{
    constexpr std::uint64_t NANOSECONDS = 1000000000;
    const auto elapsed = static_cast<std::uint64_t>(std::max<qint64>(m_measureClock.nsecsElapsed(), 1));
    m_measureClock.start();
    m_bitsPerSecond = std::exchange(m_bits, 0) * NANOSECONDS / elapsed;
}

/// Returns the measured load as it is sent: frames per second, low byte first.
QByteArray CRmServer::measuredLoad() const
{
    const std::uint64_t frames = (m_bitsPerSecond + BITS_PER_COUNTED_FRAME - 1) / BITS_PER_COUNTED_FRAME;
    const auto value = static_cast<int>(std::min<std::uint64_t>(frames, 0xFFFF));
    return bytesOf({value, value >> 8});
}

} // namespace vexmor::Sim
