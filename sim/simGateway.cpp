#include "sim/simGateway.h"

#include "InterfaceT93/gatewayReplies.h"
#include "InterfaceT93/rmFrame.h"
#include "sim/simBus.h"
#include "sim/simLink.h"

#include <QPointer>

#include <algorithm>

namespace vexmor::Sim
{
namespace
{
constexpr int PORT_TRIES = 20;
constexpr int LISTEN_RETRY_MS = 10;
constexpr int SHARED_MEASURING_MS = 1000;
constexpr int FLOOD_PER_TURN = 500;
constexpr qint64 FLOOD_AHEAD = 256LL * 1024; // bytes that may wait for a host while flooding
constexpr std::uint16_t STANDARD_IDS = 0x800;
constexpr std::uint64_t BITS_PER_COUNTED_FRAME = 74; // a host takes each counted frame for so many bits

QByteArray bytesOf(std::initializer_list<std::uint8_t> bytes)
{
    QByteArray result;
    for (const std::uint8_t byte : bytes) {
        result.append(static_cast<char>(byte));
    }
    return result;
}
} // namespace

CSimGateway::CSimGateway(CSimBus& bus, QObject* parent) : QObject(parent), m_bus(bus)
{
    m_listenTimer.setSingleShot(true);
    m_measureTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_server, &QTcpServer::newConnection, this, &CSimGateway::onNewConnection);
    connect(&m_udp, &QUdpSocket::readyRead, this, &CSimGateway::onDatagrams);
    connect(&m_listenTimer, &QTimer::timeout, this, &CSimGateway::updateListening);
    connect(&m_measureTimer, &QTimer::timeout, this, &CSimGateway::measure);
    connect(&m_floodTimer, &QTimer::timeout, this, &CSimGateway::floodOn);
    connect(&bus, &CSimBus::messageSent, this, [this](const Cim::CCanMessage& message, const QObject* sender) {
        if (sender != this) {
            sendMessage(message, sender);
        }
    });
}

CSimGateway::~CSimGateway() = default;

bool CSimGateway::listen(const QHostAddress& address, std::uint16_t port, QString& error)
{
    m_server.close();
    m_udp.close();
    for (int tries = 0; tries < (port == 0 ? PORT_TRIES : 1); ++tries) {
        if (!m_server.listen(address, port)) {
            error = QStringLiteral("cannot listen on %1:%2 (TCP): %3")
                        .arg(address.toString())
                        .arg(port)
                        .arg(m_server.errorString());
            continue;
        }
        // Datagrams must not be lost to another program that shares the port.
        if (m_admits || m_udp.bind(address, m_server.serverPort(), QAbstractSocket::DontShareAddress)) {
            m_address = address;
            m_port = m_server.serverPort();
            updateListening();
            return true;
        }
        error = QStringLiteral("cannot listen on %1:%2 (UDP): %3")
                    .arg(address.toString())
                    .arg(m_server.serverPort())
                    .arg(m_udp.errorString());
        m_server.close();
    }
    return false;
}

void CSimGateway::updateListening()
{
    const bool wanted = m_port != 0 && !m_faults.refuse && count(true) < m_maxClients;
    if (!wanted) {
        m_server.close(); // the only way to have the kernel refuse connections
    } else if (!m_server.isListening() && !m_server.listen(m_address, m_port)) {
        m_listenTimer.start(LISTEN_RETRY_MS);
    }
}

void CSimGateway::onNewConnection()
{
    while (QTcpSocket* const socket = m_server.nextPendingConnection()) {
        if (count(true) >= m_maxClients || (m_admits && !m_admits(*socket))) {
            socket->abort();
            socket->deleteLater();
            continue;
        }
        addLink(std::make_unique<CSimLink>(socket, m_faults));
    }
    updateListening();
}

void CSimGateway::onDatagrams()
{
    while (m_udp.hasPendingDatagrams()) {
        char bytes[Cim::RM_BUFFER_SIZE];
        QHostAddress address;
        quint16 port = 0;
        const qint64 size = m_udp.readDatagram(bytes, sizeof bytes, &address, &port);
        if (size <= 0 || m_faults.blackHole || m_faults.refuse) {
            continue;
        }
        const auto known = std::find_if(m_links.begin(), m_links.end(), [&](const auto& link) {
            return !link->isTcp() && link->isFrom(address, port);
        });
        if (known != m_links.end()) {
            (*known)->receive(bytes, size);
            continue;
        }
        if (count(false) >= m_maxClients) {
            removeLink(
                std::find_if(m_links.begin(), m_links.end(), [](const auto& link) { return !link->isTcp(); })->get());
        }
        addLink(std::make_unique<CSimLink>(m_udp, address, port, m_faults));
        m_links.back()->receive(bytes, size);
    }
}

void CSimGateway::addLink(std::unique_ptr<CSimLink> link)
{
    CSimLink* const added = link.get();
    m_links.push_back(std::move(link));
    connect(added, &CSimLink::frameReceived, this,
            [this, added](const Cim::SRmFrame& frame) { handle(*added, frame); });
    connect(added, &CSimLink::framesLost, this, &CSimGateway::framesLost);
    connect(added, &CSimLink::disconnected, this, [this, added] { removeLink(added); });
    Q_EMIT hostConnected();
}

void CSimGateway::removeLink(const CSimLink* link)
{
    const auto found =
        std::find_if(m_links.begin(), m_links.end(), [link](const auto& candidate) { return candidate.get() == link; });
    if (found == m_links.end()) {
        return;
    }
    CSimLink* const removed = found->release(); // may be in the middle of a signal
    m_links.erase(found);
    removed->disconnect(this);
    removed->deleteLater();
    updateListening();
    Q_EMIT hostDisconnected();
}

int CSimGateway::count(bool tcp) const
{
    return static_cast<int>(
        std::count_if(m_links.begin(), m_links.end(), [tcp](const auto& link) { return link->isTcp() == tcp; }));
}

void CSimGateway::handle(CSimLink& link, const Cim::SRmFrame& received)
{
    const QPointer<CSimLink> alive(&link);
    // A copy: a listener may end the link that holds it.
    const QByteArray payload(reinterpret_cast<const char*>(received.payload), received.payloadLength);
    const Cim::SRmFrame frame{received.command, received.payloadLength,
                              reinterpret_cast<const std::uint8_t*>(payload.constData())};
    Q_EMIT requestReceived(frame.command, payload);
    if (!alive) {
        return;
    }
    switch (frame.command) {
    case Cim::RM_CMD_TX11BIT_MSG:
    case Cim::RM_CMD_TX11BIT_MSG_ALT: {
        const Cim::CCanMessage message = Cim::canMessageOfFrame(frame);
        Q_EMIT messageReceived(message);
        const QObject* const sender = m_admits ? static_cast<QObject*>(&link) : this;
        if (!m_bus.send(message, sender)) {
            if (alive) {
                link.send(Cim::RM_CMD_STATUS, &STATUS_TRANSMIT_TIMEOUT, 1);
            }
        } else if (m_echo) {
            m_bus.send(message);
        }
        break;
    }
    case Cim::RM_CMD_DEVICE_ID:
        reply(link, frame.command,
              m_identity.deviceText + bytesOf({static_cast<std::uint8_t>(m_identity.deviceNumber >> 8),
                                               static_cast<std::uint8_t>(m_identity.deviceNumber)}));
        break;
    case Cim::RM_CMD_FIRMWARE_VERSION:
        reply(link, frame.command, bytesOf({0, 0, m_identity.firmwareMajor, m_identity.firmwareMinor}));
        break;
    case Cim::RM_CMD_MAC_ADDRESS:
        reply(link, frame.command,
              QByteArray(reinterpret_cast<const char*>(m_identity.macAddress.data()),
                         static_cast<int>(m_identity.macAddress.size())));
        break;
    case Cim::RM_CMD_BUSLOAD:
        if (m_identity.measuresBusload) {
            const std::uint16_t value = measuredValue();
            reply(link, frame.command,
                  bytesOf({static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8)}));
        }
        break;
    case Cim::RM_CMD_BUSLOAD_INTERVAL:
        if (m_identity.measuresBusload && frame.payloadLength >= 2) {
            if (!m_admits) {
                startMeasuring(frame[0] << 8 | frame[1]);
            }
            reply(link, frame.command, payload);
        }
        break;
    case Cim::RM_CMD_CAN_BAUD_RATE:
        if (const std::uint32_t rate = Cim::rmBaudrateOfCode(frame[0]); m_admits) {
            Q_EMIT changeIgnored(QStringLiteral("a bit rate of %1 kbit/s").arg(rate));
        } else if (rate != 0) {
            m_bus.setBaudrate(rate);
        }
        reply(link, frame.command, payload);
        break;
    case Cim::RM_CMD_RESET:
        if (m_admits) {
            Q_EMIT changeIgnored(QStringLiteral("a reset"));
        } else {
            m_measureTimer.stop();
            m_bitsPerSecond = 0;
        }
        break;
    default:
        break;
    }
}

void CSimGateway::reply(CSimLink& link, std::uint8_t command, const QByteArray& payload)
{
    if (m_faults.mute) {
        return;
    }
    const auto send = [target = &link, command, payload] {
        target->send(command, reinterpret_cast<const std::uint8_t*>(payload.constData()),
                     static_cast<std::size_t>(payload.size()));
    };
    if (m_faults.replyDelayMs > 0) {
        QTimer::singleShot(m_faults.replyDelayMs, &link, send);
    } else {
        send();
    }
}

void CSimGateway::sendMessage(const Cim::CCanMessage& message, const QObject* except)
{
    std::uint8_t payload[10] = {message.id().high(), message.id().low()};
    std::copy_n(message.data(), message.length(), payload + 2);
    for (const auto& link : m_links) {
        if (link.get() != except) {
            link->send(Cim::RM_CMD_RX11BIT_MSG, payload, 2 + message.length());
        }
    }
}

void CSimGateway::sendFrame(std::uint8_t command, const QByteArray& payload)
{
    for (const auto& link : m_links) {
        link->send(command, reinterpret_cast<const std::uint8_t*>(payload.constData()),
                   static_cast<std::size_t>(payload.size()));
    }
}

void CSimGateway::startMeasuring(int intervalMs)
{
    m_bitsBefore = m_bus.bitCount();
    m_bitsPerSecond = 0;
    m_measureClock.start();
    m_measureTimer.start(std::max(intervalMs, 1));
}

void CSimGateway::measure()
{
    constexpr std::uint64_t NANOSECONDS = 1000000000;
    const auto elapsed = static_cast<std::uint64_t>(std::max<qint64>(m_measureClock.nsecsElapsed(), 1));
    m_measureClock.start();
    m_bitsPerSecond = (m_bus.bitCount() - m_bitsBefore) * NANOSECONDS / elapsed;
    m_bitsBefore = m_bus.bitCount();
}

std::uint16_t CSimGateway::measuredValue() const
{
    const std::uint64_t frames = (m_bitsPerSecond + BITS_PER_COUNTED_FRAME - 1) / BITS_PER_COUNTED_FRAME;
    return static_cast<std::uint16_t>(std::min<std::uint64_t>(frames, 0xFFFF));
}

void CSimGateway::floodOn()
{
    for (int i = 0; i < FLOOD_PER_TURN && m_floodLeft > 0; ++i) {
        for (const auto& link : m_links) {
            if (link->waiting() > FLOOD_AHEAD) {
                return; // goes on when the host has read
            }
        }
        unsigned char data[8] = {};
        for (int byte = 0; byte < 4; ++byte) {
            data[4 + byte] = static_cast<unsigned char>(static_cast<unsigned int>(m_floodSent) >> (24 - 8 * byte));
        }
        sendMessage(Cim::CCanMessage(Cim::CCanId::fromValue(m_floodSent % STANDARD_IDS), sizeof data, data));
        ++m_floodSent;
        --m_floodLeft;
    }
    if (m_floodLeft == 0) {
        m_floodTimer.stop();
    }
}

void CSimGateway::setFaults(const SSimFaults& faults)
{
    m_faults = faults;
    updateListening();
    for (std::size_t i = 0; i < m_links.size(); ++i) {
        m_links[i]->applyFaults();
    }
}

void CSimGateway::setMaxClients(int count)
{
    m_maxClients = std::max(count, 1);
    updateListening();
}

void CSimGateway::share(std::function<bool(QTcpSocket&)> admits)
{
    m_admits = std::move(admits);
    startMeasuring(SHARED_MEASURING_MS);
}

void CSimGateway::dropLinks()
{
    while (!m_links.empty()) {
        CSimLink* const link = m_links.front().get();
        link->abort();
        removeLink(link);
    }
}

void CSimGateway::sendStatus(std::uint8_t flags)
{
    sendFrame(Cim::RM_CMD_STATUS, bytesOf({flags}));
}

void CSimGateway::sendRaw(const QByteArray& bytes)
{
    for (const auto& link : m_links) {
        link->sendRaw(bytes);
    }
}

void CSimGateway::flood(int count)
{
    m_floodLeft = count;
    m_floodSent = 0;
    m_floodTimer.start(1);
}

int CSimGateway::busloadPercent() const
{
    return static_cast<int>(m_bitsPerSecond * 100 / (m_bus.baudrate() * 1000ULL));
}

} // namespace vexmor::Sim
