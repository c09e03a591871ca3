#include "apps/cimshare/socketcandServer.h"

#include "apps/cimshare/socketcandClient.h"
#include "apps/host/clock.h"

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
const QString SUBJECT = QStringLiteral("socketcand");
} // namespace

CSocketcandServer::CSocketcandServer(const std::vector<CSharedBus*>& buses, const SAccess& access, CEventLog& log)
    : m_buses(buses), m_access(access), m_log(log)
{
    connect(&m_server, &QTcpServer::newConnection, this, &CSocketcandServer::onNewConnection);
    for (CSharedBus* const bus : m_buses) {
        connect(
            bus, &CSharedBus::messageSent, this,
            [this, bus](const Cim::CCanMessage& message, const QObject* sender) { onMessage(*bus, message, sender); });
        connect(bus, &CSharedBus::connectionChanged, this, [this, bus](bool isConnected) {
            if (!isConnected) {
                tellError(*bus, QStringLiteral("the gateway is away"));
            }
        });
        connect(&bus->hosted(), &CHostedInterface::errorRaised, this,
                [this, bus](int error) { tellError(*bus, bus->textOfError(error)); });
    }
}

CSocketcandServer::~CSocketcandServer() = default;

Failure CSocketcandServer::listen(const SListenAddress& address)
{
    const QString place = address.address.toString();
    if (!m_server.listen(address.address, address.port)) {
        return SProblem{QStringLiteral("cannot listen on %1:%2 for socketcand: %3")
                            .arg(place)
                            .arg(address.port)
                            .arg(m_server.errorString())};
    }
    m_log.tell("listening", SUBJECT, QStringLiteral("on %1:%2").arg(place).arg(m_server.serverPort()),
               {{QStringLiteral("port"), m_server.serverPort()}});
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
        const QString peer = peerOf(*socket);
        if (m_clients.size() >= SAccess::MAX_CLIENTS) {
            m_log.tellOfClient("full", SUBJECT, QStringLiteral("%1 turned away: too many are there").arg(peer));
        } else if (m_access.admits(*socket, SUBJECT, m_log)) {
            addClient(socket, peer);
            continue;
        }
        socket->abort();
        socket->deleteLater();
    }
}

void CSocketcandServer::addClient(QTcpSocket* socket, const QString& peer)
{
    m_clients.push_back(std::make_unique<CSocketcandClient>(socket, m_buses));
    CSocketcandClient* const client = m_clients.back().get();
    connect(client, &CSocketcandClient::frameLost, this, [this, client, peer] {
        ++m_lostFrames;
        if (m_slowClients.insert(client).second) {
            m_log.tellOfClient("slowClient", SUBJECT, QStringLiteral("%1 does not keep up: it loses frames").arg(peer));
        }
    });
    connect(client, &CSocketcandClient::disconnected, this, [this, client, peer] {
        m_log.tellOfClient("disconnected", SUBJECT, QStringLiteral("%1 disconnected").arg(peer));
        m_slowClients.erase(client);
        m_clients.erase(std::find_if(m_clients.begin(), m_clients.end(),
                                     [client](const auto& candidate) { return candidate.get() == client; }));
    });
}

void CSocketcandServer::tellError(const CSharedBus& bus, const QString& text)
{
    for (const auto& client : m_clients) {
        if (client->bus() == &bus) {
            client->tellError(text);
        }
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
        buses += QStringLiteral("<Bus name=\"%1\"/>").arg(bus->plainName().toHtmlEscaped());
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
