#include "apps/cimshare/socketcandServer.h"

#include <QHostInfo>
#include <QNetworkInterface>

#include <algorithm>
#include <utility>

namespace vexmor::Apps::Cimshare
{
namespace
{
constexpr int BEACON_MS = 2000;
constexpr quint16 BEACON_PORT = 42000;
} // namespace

CSocketcandServer::CSocketcandServer(const CSharedBuses& buses, const SListenAddress& address, bool hasBeacon,
                                     const SAllowedNetworks& allowed, CEventLog& log)
    : CProtocol(QStringLiteral("socketcand"), log), m_address(address), m_admission(m_server, m_name, allowed, log)
{
    connect(&m_server, &QTcpServer::newConnection, this, &CSocketcandServer::onNewConnection);
    connect(&m_beaconTimer, &QTimer::timeout, this, &CSocketcandServer::sendBeacon);
    if (hasBeacon) {
        m_beaconTimer.start(BEACON_MS);
    }
    QStringList plainNames;
    for (const auto& bus : buses) {
        plainNames.append(bus->plainName());
        m_byName[plainNames.last().toUtf8()] = bus.get();
        connect(
            bus.get(), &CSharedBus::messageSent, this,
            [this, from = bus.get()](const auto& record, const QObject* client) { deliver(*from, record, client); });
    }
    m_names = busNames(plainNames);
    for (int i = 0; i < m_names.size(); ++i) {
        m_byName[m_names[i].toLatin1()] = buses[static_cast<std::size_t>(i)].get();
    }
}

Failure CSocketcandServer::start()
{
    if (!m_server.listen(m_address.address, m_address.port)) {
        return SProblem{QStringLiteral("cannot listen on %1 for socketcand: %2")
                            .arg(placeOf(m_address.address, m_address.port), m_server.errorString())};
    }
    m_admission.printListening();
    for (const QString& name : m_names) {
        m_log.print("busName", m_byName.at(name.toLatin1())->name(),
                    QStringLiteral("socketcand clients open it as %1").arg(name), {{QStringLiteral("busName"), name}});
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
    while (std::unique_ptr<QTcpSocket> socket{m_server.nextPendingConnection()}) {
        if (const Failure failure = m_admission.admit(*socket)) {
            socket->write(errorElement(failure->text));
            socket->flush();
        } else {
            addClient(std::move(socket));
        }
    }
}

void CSocketcandServer::addClient(std::unique_ptr<QTcpSocket> socket)
{
    m_clients.push_back(std::make_unique<CSocketcandClient>(std::move(socket), m_byName));
    CSocketcandClient* const client = m_clients.back().get();
    connect(client, &CSocketcandClient::frameLost, this, [this, client, isFirst = true]() mutable {
        if (client->bus() != nullptr) {
            client->bus()->countLost(m_name, 1);
        }
        if (std::exchange(isFirst, false)) {
            m_admission.print("slowClient",
                              client->objectName() + QStringLiteral(" reads too slowly and loses frames"));
        }
    });
    connect(client, &CSocketcandClient::disconnected, this, [this, client] {
        m_admission.print("disconnected", client->objectName() + QStringLiteral(" disconnected"));
        m_clients.remove_if([client](const auto& candidate) { return candidate.get() == client; });
    });
}

void CSocketcandServer::deliver(const CSharedBus& bus, const SBusRecord& record, const QObject* sender)
{
    QByteArray element;
    for (const auto& client : m_clients) {
        if (client->bus() == &bus && client.get() != sender) {
            if (element.isEmpty()) { // the text is the same for all clients
                element = frameElement(record.message, record.microseconds);
            }
            client->deliver(record.message, element);
        }
    }
}

void CSocketcandServer::sendBeacon()
{
    const QHostAddress own = m_server.serverAddress();
    const QString text = QStringLiteral(R"(<CANBeacon name="%1" type="adapter" description="cimshare">)"
                                        R"(<URL>can://%2</URL><Bus name="%3"/></CANBeacon>)");
    const QString names = m_names.join(QStringLiteral(R"("/><Bus name=")"));
    for (const QNetworkInterface& network : QNetworkInterface::allInterfaces()) {
        for (const QNetworkAddressEntry& entry : network.addressEntries()) {
            if (!entry.broadcast().isNull() && (own == QHostAddress::AnyIPv4 || own == entry.ip())) {
                const QString place = placeOf(entry.ip(), m_server.serverPort());
                const QString beacon = text.arg(QHostInfo::localHostName().toHtmlEscaped(), place, names);
                m_beaconSocket.writeDatagram(beacon.toUtf8(), entry.broadcast(), BEACON_PORT);
            }
        }
    }
}

} // namespace vexmor::Apps::Cimshare
