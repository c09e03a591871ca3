#include "apps/cimshare/shareService.h"

#include "apps/cimshare/mqttBridge.h"
#include "apps/cimshare/socketcandServer.h"
#include "apps/host/interfaceStore.h"
#include "cim/resultCodes.h"

#include <algorithm>
#include <utility>

namespace vexmor::Apps::Cimshare
{
namespace
{
constexpr std::uint8_t STATUS_BUS_OFF = 0x08;
constexpr int HIGHEST_PORT = 65535;

} // namespace

CShareService::CShareService(SShareOptions options) : m_options(std::move(options)), m_log(m_options.json)
{
    connect(&m_statusTimer, &QTimer::timeout, this, qOverload<>(&CShareService::printStatus));
}

CShareService::~CShareService() = default;

Failure CShareService::start()
{
    if (!m_options.socketcand && !m_options.t93 && m_options.broker.hostName.isEmpty()) {
        return wrongUsage(QStringLiteral("nothing to serve: give --socketcand, --t93 or --mqtt"));
    }
    if (Failure failure = addBuses()) {
        return failure;
    }
    addProtocols();
    for (const auto& protocol : m_protocols) {
        if (Failure failure = protocol->start()) {
            return failure;
        }
    }
    if (Failure failure = startT93()) {
        return failure;
    }
    for (const auto& bus : m_buses) {
        bus->start();
    }
    if (m_options.statusSeconds > 0) {
        m_statusTimer.start(m_options.statusSeconds * 1000);
    }
    return {};
}

void CShareService::addProtocols()
{
    if (m_options.socketcand) {
        m_protocols.push_back(std::make_unique<CSocketcandServer>(m_buses, *m_options.socketcand, m_options.beacon,
                                                                  m_options.allowed, m_log));
    }
    if (!m_options.broker.hostName.isEmpty()) {
        m_protocols.push_back(std::make_unique<CMqttBridge>(m_buses, m_options.broker, m_options.mqttTopic, m_log));
    }
}

Failure CShareService::addBuses()
{
    QStringList names = m_options.targets.texts;
    if (m_options.allStored) {
        CInterfaceStore store;
        if (Failure failure = store.failure()) {
            return failure;
        }
        names += store.names();
    }
    if (names.isEmpty()) {
        return wrongUsage(QStringLiteral("nothing to share: name a TARGET, or --all for the stored interfaces"));
    }
    SPluginSearch search = searchPlugins(m_options.plugins);
    if (Failure failure = search.failure()) {
        return failure;
    }
    for (const QString& name : std::as_const(names)) {
        auto target = CTarget::find(search.plugins, name, m_options.targets.settings);
        if (!target) {
            return target.problem();
        }
        auto canInterface = target->makeInterface();
        if (!canInterface) {
            return canInterface.problem();
        }
        auto bus = std::make_unique<CSharedBus>(std::move(*target), std::move(*canInterface), m_options.allowSend);
        const auto same = std::find_if(m_buses.begin(), m_buses.end(),
                                       [&bus](const auto& one) { return one->plainName() == bus->plainName(); });
        if (same != m_buses.end()) {
            return wrongUsage(
                QStringLiteral("'%1' and '%2' would have the same name for clients").arg((*same)->name(), bus->name()));
        }
        watch(*bus);
        m_buses.push_back(std::move(bus));
    }
    return {};
}

/// Prints the events of a bus.
void CShareService::watch(CSharedBus& bus)
{
    connect(&bus, &CSharedBus::connectionChanged, this, [this, &bus](bool isConnected, const QString& why) {
        const QString reason = why.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(why.trimmed());
        m_log.tell(isConnected ? "open" : "away", bus.name(),
                   (isConnected ? QStringLiteral("open") : QStringLiteral("the gateway is away")) + reason);
    });
    connect(&bus, &CSharedBus::identified, this, [this, &bus] {
        const Cim::CCommonInfo& info = bus.hosted().canInterface().commonInfo();
        m_log.tell("identified", bus.name(),
                   QStringLiteral("%1, firmware %2").arg(info.interfaceId(), info.firmwareVersion()));
    });
    connect(&bus.hosted(), &CHostedInterface::errorRaised, this, [this, &bus](int error) {
        m_log.tell("interfaceError", bus.name(),
                   QStringLiteral("interface error %1: %2").arg(error).arg(bus.textOfError(error)));
    });
}

// ---- As a T93 ----

Failure CShareService::startT93()
{
    SListenAddress place = m_options.t93.value_or(SListenAddress());
    if (place.port + static_cast<int>(m_buses.size()) - 1 > HIGHEST_PORT) {
        return wrongUsage(QStringLiteral("--t93 counts up from %1: there are not so many ports").arg(place.port));
    }
    for (std::size_t i = 0; m_options.t93 && i < m_buses.size(); ++i) {
        m_gateways.push_back(std::make_unique<SBus>());
        m_gateways.back()->bus = m_buses[i].get();
        if (Failure failure = shareAsT93(*m_gateways.back(), place)) {
            return failure;
        }
        place.port = static_cast<quint16>(place.port == 0 ? 0 : place.port + 1);
    }
    return {};
}

/// A gateway for other hosts, which it turns away until the real one has said who it is.
Failure CShareService::shareAsT93(SBus& shared, const SListenAddress& place)
{
    CSharedBus& bus = *shared.bus;
    shared.gateway = std::make_unique<Sim::CSimGateway>(bus);
    Sim::CSimGateway& gateway = *shared.gateway;
    const QString subject = QStringLiteral("t93 %1").arg(bus.name());
    gateway.setMaxClients(SAllowedNetworks::MAX_CLIENTS);
    gateway.share([this, &bus, subject](QTcpSocket& socket) {
        return bus.isIdentified() && m_options.allowed.admits(socket, subject, m_log);
    });
    connect(&gateway, &Sim::CSimGateway::hostDisconnected, this,
            [this, subject] { m_log.tellOfClient("disconnected", subject, QStringLiteral("a host disconnected")); });
    connect(&gateway, &Sim::CSimGateway::changeIgnored, this, [this, subject](const QString& what) {
        m_log.tellOfClient("ignored", subject, QStringLiteral("a host asked for %1: ignored").arg(what));
    });
    connect(&gateway, &Sim::CSimGateway::framesLost, this,
            [&shared](int count) { shared.lostFrames += static_cast<quint64>(count); });
    connect(&bus, &CSharedBus::connectionChanged, &gateway, [&gateway](bool isConnected) {
        if (!isConnected) {
            gateway.sendStatus(STATUS_BUS_OFF);
        }
    });
    connect(&bus.hosted(), &CHostedInterface::errorRaised, &gateway, [&gateway](int error) {
        if (error >= Cim::IE_STATUS_FIRST) {
            gateway.sendStatus(static_cast<std::uint8_t>(1U << (error - Cim::IE_STATUS_FIRST)));
        }
    });
    connect(&bus, &CSharedBus::identified, this, [this, &bus, &gateway] { identify(bus, gateway); });

    QString error;
    if (!gateway.listen(place.address, place.port, error)) {
        return SProblem{error};
    }
    m_log.tell("listening", subject, QStringLiteral("on %1:%2").arg(gateway.address().toString()).arg(gateway.port()),
               {{QStringLiteral("port"), gateway.port()}});
    return {};
}

/// It answers as the real one.
void CShareService::identify(CSharedBus& bus, Sim::CSimGateway& gateway)
{
    const Cim::CCommonInfo& info = bus.hosted().canInterface().commonInfo();
    Sim::SSimIdentity identity;
    const QByteArray mac = QByteArray::fromHex(info.interfaceId().toLatin1());
    for (std::size_t i = 0; i < identity.macAddress.size(); ++i) {
        identity.macAddress[i] =
            static_cast<std::uint8_t>(static_cast<int>(i) < mac.size() ? mac.at(static_cast<int>(i)) : 0);
    }
    // A host asks one that says 2.3 for this text; any version can stand there.
    identity.firmwareMajor = 2;
    identity.firmwareMinor = 3;
    identity.deviceText = "T93 SHARED SW" + info.firmwareVersion().toLatin1();
    gateway.setIdentity(identity);
}

// ---- Status ----

void CShareService::printStatus()
{
    for (const auto& bus : m_buses) {
        printStatus(*bus);
    }
    for (const auto& protocol : m_protocols) {
        quint64 lost = 0;
        for (const auto& bus : m_buses) {
            lost += protocol->lostCount(*bus);
        }
        if (lost > 0) {
            m_log.tell("lost", protocol->name(), QStringLiteral("%1 messages were lost").arg(lost));
        }
    }
}

void CShareService::printStatus(CSharedBus& bus)
{
    int clients = 0;
    quint64 lost = 0;
    for (const auto& protocol : m_protocols) {
        clients += protocol->clientCount(bus);
        lost += protocol->lostCount(bus);
    }
    for (const auto& shared : m_gateways) {
        clients += shared->bus == &bus ? shared->gateway->tcpHostCount() : 0;
        lost += shared->bus == &bus ? shared->lostFrames : 0;
    }
    const std::optional<int> load = bus.hosted().status().busload;
    const QString text = QStringLiteral("%1, load %2, %3 clients, received %4, sent %5, lost %6")
                             .arg(bus.isConnected() ? QStringLiteral("open") : QStringLiteral("away"),
                                  load ? QStringLiteral("%1 %").arg(*load) : QStringLiteral("unknown"))
                             .arg(clients)
                             .arg(bus.received().messages)
                             .arg(bus.sent().messages)
                             .arg(lost);
    m_log.tell("status", bus.name(), text,
               {{QStringLiteral("connected"), bus.isConnected()},
                {QStringLiteral("load"), load ? QJsonValue(*load) : QJsonValue()},
                {QStringLiteral("clients"), clients},
                {QStringLiteral("received"), static_cast<qint64>(bus.received().messages)},
                {QStringLiteral("sent"), static_cast<qint64>(bus.sent().messages)},
                {QStringLiteral("lost"), static_cast<qint64>(lost)}});
}

} // namespace vexmor::Apps::Cimshare
