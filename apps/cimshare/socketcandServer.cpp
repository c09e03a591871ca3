#include "apps/cimshare/socketcandServer.h"

#include "apps/cimshare/socketcandClient.h"

#include <QHostInfo>
#include <QNetworkInterface>
#include <QXmlStreamWriter>

#include <algorithm>

namespace vexmor::Apps::Cimshare
{
namespace
{
constexpr int BEACON_MS = 2000;
constexpr quint16 BEACON_PORT = 42000;
} // namespace

CSocketcandServer::CSocketcandServer(const CSharedBuses& buses, const SListenAddress& address, bool hasBeacon,
                                     const SAllowedNetworks& allowed, CEventLog& log)
    : CProtocol(QStringLiteral("socketcand"), buses, log),
      m_address(address),
      m_hasBeacon(hasBeacon),
      m_allowed(allowed)
{
    connect(&m_server, &QTcpServer::newConnection, this, &CSocketcandServer::onNewConnection);
    connect(&m_beaconTimer, &QTimer::timeout, this, &CSocketcandServer::sendBeacon);
    for (const auto& bus : m_buses) {
        connectBus(*bus);
    }
}

CSocketcandServer::~CSocketcandServer() = default;

void CSocketcandServer::connectBus(CSharedBus& bus)
{
    connect(&bus, &CSharedBus::messageSent, this,
            [this, &bus](const SBusRecord& record, const QObject* sender) { onMessage(bus, record, sender); });
    connect(&bus, &CSharedBus::messageRefused, this, &CSocketcandServer::onRefused);
    connect(&bus, &CSharedBus::connectionChanged, this, [this, &bus] {
        if (bus.status().connection == EConnection::eLost) {
            writeError(bus, bus.connectionNotice());
        }
    });
    connect(&bus, &CSharedBus::errorRaised, this, [this, &bus](int error) { writeError(bus, bus.errorTitle(error)); });
}

Failure CSocketcandServer::start()
{
    const QString place = m_address.address.toString();
    if (!m_server.listen(m_address.address, m_address.port)) {
        return SProblem{QStringLiteral("cannot listen on %1:%2 for socketcand: %3")
                            .arg(place)
                            .arg(m_address.port)
                            .arg(m_server.errorString())};
    }
    m_log.print("listening", m_name, QStringLiteral("on %1:%2").arg(place).arg(m_server.serverPort()),
                {{QStringLiteral("port"), m_server.serverPort()}});
    if (m_hasBeacon) {
        m_beaconTimer.start(BEACON_MS);
    }
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
        if (m_clients.size() >= SAllowedNetworks::MAX_CLIENTS) {
            m_log.printOfClient("full", m_name, QStringLiteral("%1 turned away: too many clients").arg(peer));
        } else if (m_allowed.admits(*socket, m_name, m_log)) {
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
    connect(client, &CSocketcandClient::frameLost, this, [this, client, peer](bool isFirst) {
        countLost(client->bus(), 1);
        if (isFirst) {
            m_log.printOfClient("slowClient", m_name, QStringLiteral("%1 does not keep up: it loses frames").arg(peer));
        }
    });
    connect(client, &CSocketcandClient::disconnected, this, [this, client, peer] {
        m_log.printOfClient("disconnected", m_name, QStringLiteral("%1 disconnected").arg(peer));
        m_clients.erase(std::find_if(m_clients.begin(), m_clients.end(),
                                     [client](const auto& candidate) { return candidate.get() == client; }));
    });
}

void CSocketcandServer::writeError(const CSharedBus& bus, const QString& text)
{
    for (const auto& client : m_clients) {
        if (client->bus() == &bus) {
            client->writeError(text);
        }
    }
}

void CSocketcandServer::onMessage(const CSharedBus& bus, const SBusRecord& record, const QObject* sender)
{
    QByteArray element;
    for (const auto& client : m_clients) {
        if (client.get() == sender) {
            client->noteSent(record.message);
        } else if (client->bus() == &bus) {
            if (element.isEmpty()) { // the same for all
                element = frameElement(record.message, record.microseconds);
            }
            client->deliver(record.message, element);
        }
    }
}

void CSocketcandServer::onRefused(const Cim::CCanMessage& message, const QObject* sender, const QString& reason,
                                  bool isCyclic)
{
    for (const auto& client : m_clients) {
        if (client.get() == sender) {
            client->writeRefusal(message, reason, isCyclic);
        }
    }
}

void CSocketcandServer::sendBeacon()
{
    const QHostAddress own = m_server.serverAddress();
    for (const QNetworkInterface& network : QNetworkInterface::allInterfaces()) {
        for (const QNetworkAddressEntry& entry : network.addressEntries()) {
            if (!entry.broadcast().isNull() && (own == QHostAddress::AnyIPv4 || own == entry.ip())) {
                m_beaconSocket.writeDatagram(beacon(entry.ip()), entry.broadcast(), BEACON_PORT);
            }
        }
    }
}

/// The announcement for a network in which this service has `address`.
QByteArray CSocketcandServer::beacon(const QHostAddress& address) const
{
    QByteArray result;
    QXmlStreamWriter xml(&result);
    xml.writeStartElement(QStringLiteral("CANBeacon"));
    xml.writeAttribute(QStringLiteral("name"), QHostInfo::localHostName());
    xml.writeAttribute(QStringLiteral("type"), QStringLiteral("adapter"));
    xml.writeAttribute(QStringLiteral("description"), QStringLiteral("cimshare"));
    xml.writeTextElement(QStringLiteral("URL"),
                         QStringLiteral("can://%1:%2").arg(address.toString()).arg(m_server.serverPort()));
    for (const auto& bus : m_buses) {
        xml.writeEmptyElement(QStringLiteral("Bus"));
        xml.writeAttribute(QStringLiteral("name"), bus->plainName());
    }
    xml.writeEndElement();
    return result;
}

} // namespace vexmor::Apps::Cimshare
