#include "apps/cimshare/shareService.h"

#include "apps/host/interfaceStore.h"
#include "cim/resultCodes.h"

#include <algorithm>
#include <utility>

namespace vexmor::Apps::Cimshare
{
CShareService::CShareService(SShareOptions options) : m_options(std::move(options)), m_log(m_options.json)
{
    connect(&m_statusTimer, &QTimer::timeout, this, &CShareService::tellStatus);
}

CShareService::~CShareService() = default;

Failure CShareService::start()
{
    if (!m_options.socketcand && !m_options.t93 && m_options.broker.host.isEmpty()) {
        return wrongUsage(QStringLiteral("nobody to share with: give --socketcand, --t93 or --mqtt"));
    }
    if (Failure failure = addBuses()) {
        return failure;
    }
    if (m_options.socketcand) {
        m_socketcand = std::make_unique<CSocketcandServer>(m_buses, m_options.access, m_log);
        if (Failure failure = m_socketcand->listen(*m_options.socketcand)) {
            return failure;
        }
        if (m_options.beacon) {
            m_socketcand->startBeacon();
        }
    }
    if (m_options.t93) {
        m_t93 = std::make_unique<CT93Share>(m_buses, m_options.access, m_log);
        if (Failure failure = m_t93->listen(*m_options.t93)) {
            return failure;
        }
    }
    if (!m_options.broker.host.isEmpty()) {
        m_mqtt = std::make_unique<CMqttShare>(m_buses, m_options.mqtt, m_log);
        if (Failure failure = m_mqtt->start(m_options.broker)) {
            return failure;
        }
    }
    for (CSharedBus* const bus : m_buses) {
        bus->start();
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
                                       [&bus](const CSharedBus* one) { return one->plainName() == bus->plainName(); });
        if (same != m_buses.end()) {
            return wrongUsage(
                QStringLiteral("'%1' and '%2' would be one name to clients").arg((*same)->name(), bus->name()));
        }
        watch(*bus);
        m_buses.push_back(bus.get());
        m_owned.push_back(std::move(bus));
    }
    return {};
}

/// Tells what happens at a bus.
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

void CShareService::tellStatus()
{
    for (const auto& owned : m_owned) {
        CSharedBus& bus = *owned;
        const std::optional<int> load = bus.hosted().busload();
        const int clients = (m_socketcand ? m_socketcand->clientCount(bus) : 0) + (m_t93 ? m_t93->clientCount(bus) : 0);
        const quint64 lost = m_t93 ? m_t93->lostFrames(bus) : 0;
        const QString text = QStringLiteral("%1, load %2, %3 clients, received %4, sent %5, lost by slow hosts %6")
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
    if (m_socketcand && m_socketcand->lostFrames() > 0) {
        m_log.tell("lost", QStringLiteral("socketcand"),
                   QStringLiteral("slow clients lost %1 frames").arg(m_socketcand->lostFrames()));
    }
    if (m_mqtt && m_mqtt->lostMessages() > 0) {
        m_log.tell("lost", QStringLiteral("mqtt"),
                   QStringLiteral("%1 messages were not published").arg(m_mqtt->lostMessages()));
    }
}

} // namespace vexmor::Apps::Cimshare
