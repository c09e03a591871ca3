#include "apps/cimshare/shareService.h"

#include "apps/cimshare/metrics.h"
#include "apps/cimshare/mqttBridge.h"
#include "apps/cimshare/socketcandServer.h"
#include "apps/cimshare/t93Share.h"
#include "apps/host/interfaceStore.h"

#include <map>
#include <systemd/sd-daemon.h>
#include <utility>

namespace vexmor::Apps::Cimshare
{
namespace
{
constexpr std::size_t HIGHEST_PORT = 65535;
constexpr int METRICS_MS = 15'000;
} // namespace

CShareService::CShareService(SShareOptions options) : m_options(std::move(options)), m_log(m_options.json)
{
    connect(&m_statusTimer, &QTimer::timeout, this, qOverload<>(&CShareService::printStatus));
    connect(&m_metricsTimer, &QTimer::timeout, this, [this] {
        if (const Failure failure = writeMetrics()) {
            m_log.print("metrics", QStringLiteral("metrics"), failure->text);
        }
    });
    connect(&m_aliveTimer, &QTimer::timeout, this, [] { sd_notify(0, "WATCHDOG=1"); });
}

/// Checks the options and creates buses and protocols, without opening or listening on anything.
Failure CShareService::prepare()
{
    if (!m_options.socketcand.isGiven() && !m_options.t93.isGiven() && m_options.broker.nodes.isEmpty()) {
        return wrongUsage(QStringLiteral("nothing to serve: give --socketcand, --t93 or --mqtt"));
    }
    if (Failure failure = addBuses()) {
        return failure;
    }
    if (Failure failure = addProtocols()) {
        return failure;
    }
    for (const auto& protocol : m_protocols) {
        if (Failure failure = protocol->prepare()) {
            return failure;
        }
    }
    return {};
}

Failure CShareService::check()
{
    if (Failure failure = prepare()) {
        return failure;
    }
    for (const auto& bus : m_buses) {
        m_log.print("check", bus->name(),
                    QStringLiteral("would open %1 with bit rate %2").arg(bus->port()).arg(bus->bitRate()));
    }
    for (const auto& protocol : m_protocols) {
        protocol->printPlan();
    }
    if (!m_options.metricsFile.isEmpty()) {
        m_log.print("check", QStringLiteral("metrics"), QStringLiteral("would write ") + m_options.metricsFile);
    }
    return {};
}

Failure CShareService::start()
{
    if (Failure failure = prepare()) {
        return failure;
    }
    for (const auto& protocol : m_protocols) {
        if (Failure failure = protocol->start()) {
            return failure;
        }
    }
    for (const SListenAddress& place : {m_options.socketcand, m_options.t93}) {
        if (place.isGiven() && !place.address.isLoopback() && m_options.allowed.networks.isEmpty()) {
            m_log.print("openToAll", place.address.toString(),
                        QStringLiteral("warning: clients may connect from anywhere (no --allow)"));
        }
    }
    for (const auto& bus : m_buses) {
        bus->start();
    }
    if (!m_options.metricsFile.isEmpty()) {
        if (Failure failure = writeMetrics()) {
            return failure;
        }
        m_metricsTimer.start(METRICS_MS);
    }
    if (m_options.statusSeconds > 0) {
        m_statusTimer.start(m_options.statusSeconds * 1000);
    }
    sd_notify(0, "READY=1");
    if (std::uint64_t microseconds = 0; sd_watchdog_enabled(0, &microseconds) > 0) {
        m_aliveTimer.start(std::chrono::milliseconds(microseconds / 3000)); // three times per watchdog period
    }
    return {};
}

Failure CShareService::addProtocols()
{
    if (m_options.socketcand.isGiven()) {
        m_protocols.push_back(std::make_unique<CSocketcandServer>(m_buses, m_options.socketcand, m_options.beacon,
                                                                  m_options.allowed, m_log));
    }
    SListenAddress t93 = m_options.t93;
    if (t93.port + m_buses.size() > HIGHEST_PORT + 1) {
        return wrongUsage(QStringLiteral("--t93: too few ports from %1 on").arg(t93.port));
    }
    for (const auto& bus : m_buses) {
        if (t93.isGiven()) {
            m_protocols.push_back(std::make_unique<CT93Share>(*bus, t93, m_options.allowed, m_log));
            t93.port = static_cast<quint16>(t93.port == 0 ? 0 : t93.port + 1);
        }
    }
    const std::size_t ports = m_protocols.size();
    if (!m_options.broker.nodes.isEmpty()) {
        m_protocols.push_back(std::make_unique<CMqttBridge>(m_buses, m_options.broker, m_options.mqtt, m_log));
    }
    return reserveDescriptors(ports, m_buses.size());
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
        return wrongUsage(QStringLiteral("nothing to share: give a TARGET, or --all for the stored interfaces"));
    }
    SPluginSearch search = searchPlugins(m_options.plugins);
    if (Failure failure = search.failure()) {
        return failure;
    }
    for (const QString& name : std::as_const(names)) {
        auto target = CTarget::find(search.plugins, name, m_options.targets.settings, !m_options.isCheck);
        if (!target) {
            return target.problem();
        }
        auto canInterface = target->makeInterface();
        if (!canInterface) {
            return canInterface.problem();
        }
        auto bus = std::make_unique<CSharedBus>(std::move(*target), std::move(*canInterface), m_options.sending, m_log);
        for (const auto& one : m_buses) {
            if (one->plainName() == bus->plainName()) {
                return wrongUsage(
                    QStringLiteral("'%1' and '%2' would have the same name for clients").arg(one->name(), bus->name()));
            }
        }
        m_buses.push_back(std::move(bus));
    }
    return {};
}

// ---- Status ----

void CShareService::printStatus()
{
    std::map<QString, quint64> lost;
    for (const auto& bus : m_buses) {
        printStatus(*bus);
        for (const auto& [protocol, messages] : bus->lostByProtocol()) {
            lost[protocol] += messages;
        }
    }
    for (const auto& [name, messages] : lost) {
        if (messages > 0) {
            m_log.print("lost", name, QStringLiteral("%1 messages were lost").arg(messages));
        }
    }
}

void CShareService::printStatus(CSharedBus& bus)
{
    int clients = 0;
    for (const auto& protocol : m_protocols) {
        clients += protocol->clientCount(bus);
    }
    const std::optional<int> load = bus.status().busload;
    const QString text =
        QStringLiteral("%1, load %2, %3 clients, received %4, sent %5, lost %6")
            .arg(connectionText(bus.status()), load ? QStringLiteral("%1 %").arg(*load) : QStringLiteral("unknown"))
            .arg(clients)
            .arg(bus.received().messages)
            .arg(bus.sent().messages)
            .arg(bus.lost());
    m_log.print("status", bus.name(), text,
                {{QStringLiteral("connected"), bus.status().isConnected()},
                 {QStringLiteral("connection"), QLatin1String(connectionName(bus.status().connection))},
                 {QStringLiteral("load"), load ? QJsonValue(*load) : QJsonValue()},
                 {QStringLiteral("clients"), clients},
                 {QStringLiteral("received"), static_cast<qint64>(bus.received().messages)},
                 {QStringLiteral("sent"), static_cast<qint64>(bus.sent().messages)},
                 {QStringLiteral("lost"), static_cast<qint64>(bus.lost())}});
}

Failure CShareService::writeMetrics() const
{
    return replaceFile(m_options.metricsFile, metricsText(m_buses, m_protocols, m_log));
}

} // namespace vexmor::Apps::Cimshare
