#include "apps/cimshare/shareService.h"

#include "apps/common/interfaceStore.h"
#include "cim/resultCodes.h"

#include <utility>

namespace vexmor::Apps::Cimshare
{
namespace
{
constexpr std::uint8_t STATUS_BUS_OFF = 0x08;
} // namespace

CShareService::CShareService(SShareOptions options) : m_options(std::move(options)), m_log(m_options.json)
{
    connect(&m_statusTimer, &QTimer::timeout, this, &CShareService::tellStatus);
}

CShareService::~CShareService() = default;

Failure CShareService::start()
{
    if (!m_options.socketcand && !m_options.t93 && m_options.broker.host.isEmpty()) {
        return SProblem{QStringLiteral("nobody to share with: give --socketcand, --t93 or --mqtt"), 0, true};
    }
    for (const QString& network : std::as_const(m_options.networks)) {
        if (Failure failure = m_access.addNetwork(network)) {
            return failure;
        }
    }
    if (Failure failure = addBuses()) {
        return failure;
    }
    if (m_options.socketcand) {
        m_socketcand = std::make_unique<CSocketcandServer>(m_buses, m_access, m_log);
        if (Failure failure = m_socketcand->listen(*m_options.socketcand)) {
            return failure;
        }
        if (m_options.beacon) {
            m_socketcand->startBeacon();
        }
    }
    if (Failure failure = m_options.t93 ? shareAsT93() : Failure()) {
        return failure;
    }
    if (!m_options.broker.host.isEmpty()) {
        m_options.mqtt.allowSend = m_options.allowSend;
        m_mqtt = std::make_unique<CMqttShare>(m_buses, m_options.mqtt, m_log);
        if (Failure failure = m_mqtt->start(m_options.broker)) {
            return failure;
        }
    }
    for (CSharedBus* const bus : m_buses) { // a turn of the event loop each: one may take a second
        QTimer::singleShot(0, bus, &CSharedBus::open);
    }
    if (m_options.statusSeconds > 0) {
        m_statusTimer.start(m_options.statusSeconds * 1000);
    }
    return {};
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
        return SProblem{QStringLiteral("nothing to share: name a TARGET, or --all for the stored interfaces"), 0, true};
    }
    if (names.removeDuplicates() > 0) {
        return SProblem{QStringLiteral("a TARGET stands there twice"), 0, true};
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
        m_owned.push_back(
            std::make_unique<CSharedBus>(std::move(*target), std::move(*canInterface), m_options.allowSend));
        m_buses.push_back(m_owned.back().get());
        watch(*m_buses.back());
    }
    return {};
}

/// Tells what happens at a bus.
void CShareService::watch(CSharedBus& bus)
{
    const QJsonObject fields{{QStringLiteral("interface"), bus.name()}};
    connect(&bus, &CSharedBus::connectionChanged, this, [this, &bus, fields](bool isConnected, const QString& why) {
        const QString reason = why.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(why.trimmed());
        m_log.tell(isConnected ? QStringLiteral("open") : QStringLiteral("away"),
                   bus.name() + (isConnected ? QStringLiteral(": open") : QStringLiteral(": the gateway is away")) +
                       reason,
                   fields);
    });
    connect(&bus, &CSharedBus::identified, this, [this, &bus, fields] {
        const Cim::CCommonInfo& info = bus.hosted().canInterface().commonInfo();
        m_log.tell(QStringLiteral("identified"),
                   QStringLiteral("%1: %2, firmware %3").arg(bus.name(), info.interfaceId(), info.firmwareVersion()),
                   fields);
    });
    connect(&bus.hosted(), &CHostedInterface::errorRaised, this, [this, &bus, fields](int error) {
        m_log.tell(QStringLiteral("interfaceError"),
                   QStringLiteral("%1: interface error %2: %3")
                       .arg(bus.name(), QString::number(error), bus.textOfError(error)),
                   fields);
    });
}

// ---- As a T93 ----

/// A gateway for each bus, on ports that count up, as soon as the real one has said who it is.
Failure CShareService::shareAsT93()
{
    SListenAddress place = *m_options.t93;
    for (CSharedBus* const bus : m_buses) {
        m_gateways.push_back(std::make_unique<Sim::CSimGateway>(*bus));
        m_lostFrames.push_back(0);
        Sim::CSimGateway& gateway = *m_gateways.back();
        const QString port = QStringLiteral("t93 %1").arg(bus->name());
        gateway.setMaxClients(SAccess::MAX_CLIENTS);
        gateway.share([this, port](QTcpSocket& socket) { return m_access.admits(socket, port, m_log); });
        connect(&gateway, &Sim::CSimGateway::changeIgnored, this, [this, port](const QString& what) {
            m_log.tell(QStringLiteral("ignored"), QStringLiteral("%1: a host asked for %2: ignored").arg(port, what));
        });
        connect(&gateway, &Sim::CSimGateway::framesLost, this,
                [&lost = m_lostFrames, index = m_lostFrames.size() - 1](int count) {
                    lost[index] += static_cast<quint64>(count);
                });
        connect(bus, &CSharedBus::connectionChanged, &gateway, [&gateway](bool isConnected) {
            if (!isConnected) {
                gateway.sendStatus(STATUS_BUS_OFF);
            }
        });
        connect(&bus->hosted(), &CHostedInterface::errorRaised, &gateway, [&gateway](int error) {
            if (error >= Cim::IE_CAN_BUFFER_OVERFLOW) {
                gateway.sendStatus(static_cast<std::uint8_t>(1U << (error - Cim::IE_CAN_BUFFER_OVERFLOW)));
            }
        });
        connect(bus, &CSharedBus::identified, this, [this, bus, &gateway, place] { identify(*bus, gateway, place); });
        place.port = static_cast<quint16>(place.port == 0 ? 0 : place.port + 1);
    }
    return {};
}

/// From the first time on it answers as the real one: who it is is known.
void CShareService::identify(CSharedBus& bus, Sim::CSimGateway& gateway, const SListenAddress& place)
{
    const Cim::CCommonInfo& info = bus.hosted().canInterface().commonInfo();
    Sim::SSimIdentity identity;
    const QByteArray mac = QByteArray::fromHex(info.interfaceId().toLatin1());
    std::copy_n(mac.begin(), std::min<std::size_t>(identity.macAddress.size(), static_cast<std::size_t>(mac.size())),
                identity.macAddress.begin());
    // A host asks one that says 2.3 for this text; any version can stand there.
    identity.firmwareMajor = 2;
    identity.firmwareMinor = 3;
    identity.deviceText = "T93 SHARED SW" + info.firmwareVersion().toLatin1();
    gateway.setIdentity(identity);

    QString error;
    if (gateway.port() != 0) {
        return;
    }
    if (!gateway.listen(place.address, place.port, error)) {
        m_log.tell(QStringLiteral("notListening"), QStringLiteral("t93 %1: %2").arg(bus.name(), error));
        return;
    }
    m_log.tell(QStringLiteral("listening"),
               QStringLiteral("t93 %1 on %2:%3").arg(bus.name(), gateway.address().toString()).arg(gateway.port()),
               {{QStringLiteral("protocol"), QStringLiteral("t93")},
                {QStringLiteral("interface"), bus.name()},
                {QStringLiteral("port"), gateway.port()}});
}

void CShareService::tellStatus()
{
    for (std::size_t i = 0; i < m_buses.size(); ++i) {
        CSharedBus& bus = *m_buses[i];
        const std::optional<int> load = bus.hosted().busload();
        const int clients = (m_socketcand ? m_socketcand->clientCount(bus) : 0) +
                            (m_gateways.empty() ? 0 : m_gateways[i]->tcpHostCount());
        m_log.tell(QStringLiteral("status"),
                   QStringLiteral("%1: %2, load %3, %4 clients, received %5, sent %6, lost by slow hosts %7")
                       .arg(bus.name(), bus.isConnected() ? QStringLiteral("open") : QStringLiteral("away"),
                            load ? QStringLiteral("%1 %").arg(*load) : QStringLiteral("unknown"))
                       .arg(clients)
                       .arg(bus.received().messages)
                       .arg(bus.sent().messages)
                       .arg(m_gateways.empty() ? 0 : m_lostFrames[i]),
                   {{QStringLiteral("interface"), bus.name()},
                    {QStringLiteral("connected"), bus.isConnected()},
                    {QStringLiteral("load"), load ? QJsonValue(*load) : QJsonValue()},
                    {QStringLiteral("clients"), clients},
                    {QStringLiteral("received"), static_cast<qint64>(bus.received().messages)},
                    {QStringLiteral("sent"), static_cast<qint64>(bus.sent().messages)}});
    }
    const quint64 socketcandLost = m_socketcand ? m_socketcand->lostFrames() : 0;
    const quint64 mqttLost = m_mqtt ? m_mqtt->lostMessages() : 0;
    if (socketcandLost + mqttLost > 0) {
        m_log.tell(QStringLiteral("lost"),
                   QStringLiteral("lost: %1 frames of slow socketcand clients, %2 messages for the broker")
                       .arg(socketcandLost)
                       .arg(mqttLost));
    }
}

} // namespace vexmor::Apps::Cimshare
