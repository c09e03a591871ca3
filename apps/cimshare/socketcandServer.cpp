#include "apps/cimshare/socketcandServer.h"

#include "apps/cimshare/socketcandClient.h"
#include "apps/common/clock.h"

#include <QHostInfo>
#include <QNetworkInterface>
#include <QUdpSocket>

#include <algorithm>

namespace vexmor::Apps::Cimshare
{
namespace
{
constexpr int BEACON_MS = 2000;
constexpr quint16 BEACON_PORT = 42000;
const QString PORT_NAME = QStringLiteral("socketcand");
} // namespace

CSocketcandServer::CSocketcandServer(const std::vector<CSharedBus*>& buses, const SAccess& access, CEventLog& log)
    : m_buses(buses), m_access(access), m_log(log)
{
    connect(&m_server, &QTcpServer::newConnection, this, &CSocketcandServer::onNewConnection);
    for (CSharedBus* const bus : m_buses) {
        connect(
            bus, &CSharedBus::messageSent, this,
            [this, bus](const Cim::CCanMessage& message, const QObject* sender) { onMessage(*bus, message, sender); });
        const auto tell = [this, bus](const QString& text) {
            for (const auto& client : m_clients) {
                if (client->bus() == bus) {
                    client->tellError(text);
                }
            }
        };
        connect(bus, &CSharedBus::connectionChanged, this, [tell](bool isConnected) {
            if (!isConnected) {
                tell(QStringLiteral("the gateway is away"));
            }
        });
        connect(&bus->hosted(), &CHostedInterface::errorRaised, this,
                [tell, bus](int error) { tell(bus->textOfError(error)); });
    }
}

CSocketcandServer::~CSocketcandServer() = default;

Failure CSocketcandServer::listen(const SListenAddress& address)
{
    if (!m_server.listen(address.address, address.port)) {
        return SProblem{QStringLiteral("cannot listen on %1:%2 for socketcand: %3")
                            .arg(address.address.toString())
                            .arg(address.port)
                            .arg(m_server.errorString())};
    }
    m_log.tell(
        QStringLiteral("listening"),
        QStringLiteral("socketcand on %1:%2").arg(m_server.serverAddress().toString()).arg(m_server.serverPort()),
        {{QStringLiteral("protocol"), PORT_NAME}, {QStringLiteral("port"), m_server.serverPort()}});
    return {};
}

int CSocketcandServer::clientCount(const CSharedBus& bus) const
{
    return static_cast<int>(std::count_if(m_clients.begin(), m_clients.end(),
                                          [&bus](const auto& client) { return client->bus() == &bus; }));
}

void CSocketcandServer::onNewConnection()
{
    while (QTcpSocket* const socket = m_server.nextPendingConnection()) {
        const bool isFull = m_clients.size() >= SAccess::MAX_CLIENTS;
        if (isFull || !m_access.admits(*socket, PORT_NAME, m_log)) {
            if (isFull) {
                m_log.tell(QStringLiteral("full"), QStringLiteral("socketcand: %1 turned away: %2 clients are there")
                                                       .arg(peerOf(*socket))
                                                       .arg(m_clients.size()));
            }
            socket->abort();
            socket->deleteLater();
            continue;
        }
        const QString peer = peerOf(*socket);
        m_clients.push_back(std::make_unique<CSocketcandClient>(socket, m_buses));
        CSocketcandClient* const client = m_clients.back().get();
        connect(client, &CSocketcandClient::frameLost, this, [this, peer](bool isFirst) {
            ++m_lostFrames;
            if (isFirst) {
                m_log.tell(QStringLiteral("slowClient"),
                           QStringLiteral("socketcand: %1 does not read: it loses frames").arg(peer));
            }
        });
        connect(client, &CSocketcandClient::disconnected, this, [this, client, peer] {
            m_log.tell(QStringLiteral("disconnected"), QStringLiteral("socketcand: %1 disconnected").arg(peer));
            m_clients.erase(std::find_if(m_clients.begin(), m_clients.end(),
                                         [client](const auto& candidate) { return candidate.get() == client; }));
        });
    }
}

void CSocketcandServer::onMessage(const CSharedBus& bus, const Cim::CCanMessage& message, const QObject* sender)
{
    QByteArray element;
    for (const auto& client : m_clients) {
        if (client->bus() != &bus || client.get() == sender) {
            continue;
        }
        if (element.isEmpty()) { // the same for all
            element = frameElement(message, microsecondsNow());
        }
        client->deliver(message, element);
    }
}

void CSocketcandServer::startBeacon()
{
    auto* const socket = new QUdpSocket(this);
    auto* const timer = new QTimer(this);
    connect(timer, &QTimer::timeout, this, [this, socket] { sendBeacon(*socket); });
    timer->start(BEACON_MS);
}

void CSocketcandServer::sendBeacon(QUdpSocket& socket)
{
    const QHostAddress own = m_server.serverAddress();
    QString buses;
    for (const CSharedBus* const bus : m_buses) {
        buses += QStringLiteral("<Bus name=\"%1\"/>").arg(bus->name().toHtmlEscaped());
    }
    for (const QNetworkInterface& network : QNetworkInterface::allInterfaces()) {
        for (const QNetworkAddressEntry& entry : network.addressEntries()) {
            if (entry.broadcast().isNull() || (own != QHostAddress::AnyIPv4 && own != entry.ip())) {
                continue;
            }
            const QString beacon =
                QStringLiteral(
                    "<CANBeacon name=\"%1\" type=\"adapter\" description=\"cimshare\"><URL>can://%2:%3</URL>%4"
                    "</CANBeacon>")
                    .arg(QHostInfo::localHostName().toHtmlEscaped(), entry.ip().toString())
                    .arg(m_server.serverPort())
                    .arg(buses);
            socket.writeDatagram(beacon.toUtf8(), entry.broadcast(), BEACON_PORT);
        }
    }
}

} // namespace vexmor::Apps::Cimshare
