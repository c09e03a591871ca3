#include "apps/cimshare/mqttShare.h"

#include "apps/cimshare/mqttText.h"
#include "apps/host/clock.h"
#include "canlog/candumpLog.h"

#include <QJsonDocument>

#include <algorithm>
#include <utility>

namespace vexmor::Apps::Cimshare
{
namespace
{
constexpr int BATCH_MS = 20;
constexpr int BATCH_MESSAGES = 200;
constexpr int CHANGE_MS = 1000;
constexpr char RECEIVED[] = "rx";
constexpr char SENT[] = "tx";
constexpr char SEND[] = "send";
const QString STATE = QStringLiteral("/state");

/// Refusals that are told of one publication.
constexpr std::size_t MAX_REFUSALS = 10;

QByteArray jsonOf(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QByteArray online(bool isOnline)
{
    return jsonOf({{QStringLiteral("online"), isOnline}, {QStringLiteral("version"), QStringLiteral(CIM_VERSION)}});
}

double secondsOf(std::int64_t microseconds)
{
    return static_cast<double>(microseconds) / 1e6;
}

QJsonObject stateOf(CSharedBus& bus)
{
    Cim::CCanInterface& canInterface = bus.hosted().canInterface();
    const Cim::CCommonInfo& info = canInterface.commonInfo();
    return {{QStringLiteral("connected"), bus.isConnected()},
            {QStringLiteral("mac"), info.interfaceId()},
            {QStringLiteral("firmware"), info.firmwareVersion()},
            {QStringLiteral("bitRate"), static_cast<int>(canInterface.baudrate())}};
}

QJsonObject loadOf(CSharedBus& bus)
{
    const std::optional<int> percent = bus.hosted().busload();
    return {{QStringLiteral("percent"), percent ? QJsonValue(*percent) : QJsonValue()}};
}
} // namespace

CMqttShare::CMqttShare(const std::vector<CSharedBus*>& buses, const QString& topic, CEventLog& log)
    : m_topic(topic), m_log(log), m_shared(buses.size()), m_link(topic + STATE, online(false))
{
    m_batchTimer.setSingleShot(true);
    connect(&m_batchTimer, &QTimer::timeout, this, &CMqttShare::flush);
    connect(&m_link, &CMqttLink::connected, this, &CMqttShare::onConnected, Qt::QueuedConnection);
    connect(&m_link, &CMqttLink::received, this, &CMqttShare::onReceived, Qt::QueuedConnection);
    const auto onLost = [this](std::size_t owner, int messages) { countLost(m_shared[owner], messages); };
    connect(&m_link, &CMqttLink::lost, this, onLost, Qt::QueuedConnection);
    const auto onDisconnected = [this](const QString& why) {
        if (!std::exchange(m_isLossTold, true)) {
            m_log.tell("brokerAway", QStringLiteral("mqtt"), QStringLiteral("no broker: %1").arg(why));
        }
    };
    connect(&m_link, &CMqttLink::disconnected, this, onDisconnected, Qt::QueuedConnection);
    for (std::size_t i = 0; i < buses.size(); ++i) {
        m_shared[i].bus = buses[i];
        m_shared[i].name = buses[i]->plainName();
        connectBus(m_shared[i]);
    }
}

void CMqttShare::connectBus(SShared& shared)
{
    CSharedBus* const bus = shared.bus;
    connect(bus, &CSharedBus::messageSent, this,
            [this, &shared](const Cim::CCanMessage& message, const QObject* sender) {
                onMessage(shared, message, sender != nullptr);
            });
    const auto publishItsChanges = [this, &shared] { publishChanges(shared); };
    connect(bus, &CSharedBus::connectionChanged, this, publishItsChanges);
    connect(bus, &CSharedBus::identified, this, publishItsChanges);
    connect(&m_changeTimer, &QTimer::timeout, this, publishItsChanges);
    connect(&bus->hosted(), &CHostedInterface::errorRaised, this, [this, &shared](int error) {
        publishObject(shared, "error",
                      {{QStringLiteral("number"), error},
                       {QStringLiteral("text"), shared.bus->textOfError(error)},
                       {QStringLiteral("time"), secondsOf(microsecondsNow())}},
                      false);
    });
    if (!bus->permission()) {
        m_link.subscribe(topicOf(shared, SEND));
    }
}

/// Says goodbye before the connection ends, which the broker would take for a wish to leave no will.
CMqttShare::~CMqttShare()
{
    flush();
    publishOnline(false);
}

Failure CMqttShare::start(const SBroker& broker)
{
    m_changeTimer.start(CHANGE_MS);
    return m_link.start(broker);
}

QString CMqttShare::topicOf(const SShared& shared, const char* last) const
{
    return m_topic + QLatin1Char('/') + shared.name + QLatin1Char('/') + QLatin1String(last);
}

// ---- To the broker ----

void CMqttShare::onMessage(SShared& shared, const Cim::CCanMessage& message, bool isSent)
{
    SBatch& batch = isSent ? shared.sent : shared.received;
    batch.lines += batch.lines.isEmpty() ? "" : "\n";
    batch.lines += CanLog::formatLogLine({microsecondsNow(), shared.name.toUtf8(), message, isSent ? 'T' : 'R'});
    if (++batch.messages >= BATCH_MESSAGES) {
        publishBatch(shared, isSent ? SENT : RECEIVED, batch);
    } else if (!m_batchTimer.isActive()) {
        m_batchTimer.start(BATCH_MS);
    }
}

void CMqttShare::publishBatch(SShared& shared, const char* last, SBatch& batch)
{
    const auto owner = static_cast<std::size_t>(&shared - m_shared.data());
    if (batch.messages > 0 && !m_link.publish(topicOf(shared, last), batch.lines, false, owner, batch.messages)) {
        countLost(shared, batch.messages);
    }
    batch = {};
}

void CMqttShare::flush()
{
    for (SShared& shared : m_shared) {
        publishBatch(shared, RECEIVED, shared.received);
        publishBatch(shared, SENT, shared.sent);
    }
}

void CMqttShare::countLost(SShared& shared, int messages)
{
    if (shared.lost == 0) {
        shared.lostSince = microsecondsNow();
    }
    shared.lost += messages;
    m_lostMessages += static_cast<quint64>(messages);
}

bool CMqttShare::publishObject(const SShared& shared, const char* last, const QJsonObject& object, bool isRetained)
{
    return m_link.publish(topicOf(shared, last), jsonOf(object), isRetained);
}

void CMqttShare::publishOnline(bool isOnline)
{
    m_link.publish(m_topic + STATE, online(isOnline), true);
}

/// State and load that are others than was told, and a gap that is over.
void CMqttShare::publishChanges(SShared& shared)
{
    if (const QJsonObject state = stateOf(*shared.bus);
        state != shared.state && publishObject(shared, "state", state, true)) {
        shared.state = state;
    }
    if (const QJsonObject load = loadOf(*shared.bus);
        load != shared.load && publishObject(shared, "load", load, true)) {
        shared.load = load;
    }
    const QJsonObject gap{{QStringLiteral("messages"), shared.lost},
                          {QStringLiteral("from"), secondsOf(shared.lostSince)},
                          {QStringLiteral("to"), secondsOf(microsecondsNow())}};
    if (shared.lost > 0 && publishObject(shared, "gap", gap, true)) {
        m_log.tell("gap", shared.bus->name(), QStringLiteral("%1 messages were not published").arg(shared.lost));
        shared.lost = 0;
    }
}

void CMqttShare::onConnected()
{
    m_isLossTold = false;
    m_log.tell("broker", QStringLiteral("mqtt"), QStringLiteral("connected, topics below %1").arg(m_topic));
    publishOnline(true);
    for (SShared& shared : m_shared) {
        shared.state = {};
        shared.load = {};
        publishChanges(shared);
    }
}

// ---- From the broker ----

void CMqttShare::onReceived(const QString& topic, const QByteArray& payload, const QString& problem)
{
    const auto isMeant = [&](const SShared& shared) { return topic == topicOf(shared, SEND); };
    const auto shared = std::find_if(m_shared.begin(), m_shared.end(), isMeant);
    if (shared == m_shared.end()) {
        return;
    }
    std::vector<SMqttSend> messages;
    if (!problem.isEmpty()) {
        messages.push_back({payload, {}, problem});
    } else {
        messages = readMqttLines(payload);
    }
    std::size_t refusals = 0;
    for (const SMqttSend& send : messages) {
        const Failure failure =
            send.problem.isEmpty() ? shared->bus->transmit(send.message, *this) : SProblem{send.problem};
        if (failure && ++refusals <= MAX_REFUSALS) {
            publishObject(*shared, "refused",
                          {{QStringLiteral("line"), QString::fromUtf8(send.line.left(100))},
                           {QStringLiteral("reason"), failure->text}},
                          false);
        }
    }
    if (refusals > MAX_REFUSALS) {
        publishObject(*shared, "refused", {{QStringLiteral("further"), static_cast<int>(refusals - MAX_REFUSALS)}},
                      false);
    }
}

} // namespace vexmor::Apps::Cimshare
