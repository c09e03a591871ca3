#include "apps/cimshare/mqttBridge.h"

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
constexpr char STATE[] = "state";
constexpr char LOAD[] = "load";
const QString ONLINE = QStringLiteral("/state");

/// Refused lines of one publication, or of one second, that are published one by one.
constexpr int MAX_REFUSALS = 10;
/// Bytes of a refused line that are reported.
constexpr int MAX_LINE = 100;

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

QJsonObject stateOf(const CSharedBus& bus)
{
    const SInterfaceStatus& status = bus.status();
    return {{QStringLiteral("connected"), status.isConnected()},
            {QStringLiteral("connection"), QLatin1String(connectionName(status.connection))},
            {QStringLiteral("mac"), status.interfaceId},
            {QStringLiteral("firmware"), status.firmwareVersion},
            {QStringLiteral("bitRate"), bus.bitRate()}};
}

QJsonObject loadOf(const CSharedBus& bus)
{
    const std::optional<int> percent = bus.status().busload;
    return {{QStringLiteral("percent"), percent ? QJsonValue(*percent) : QJsonValue()}};
}
} // namespace

CMqttBridge::CMqttBridge(const CSharedBuses& buses, const SBroker& broker, const QString& topic, CEventLog& log)
    : CProtocol(QStringLiteral("mqtt"), buses, log),
      m_broker(broker),
      m_topic(topic),
      m_published(buses.size()),
      m_link(topic + ONLINE, online(false))
{
    m_batchTimer.setSingleShot(true);
    connect(&m_batchTimer, &QTimer::timeout, this, &CMqttBridge::flush);
    connect(&m_link, &CMqttLink::connected, this, &CMqttBridge::onConnected, Qt::QueuedConnection);
    connect(&m_link, &CMqttLink::received, this, &CMqttBridge::onReceived, Qt::QueuedConnection);
    const auto onLost = [this](std::size_t owner, int messages) { addToGap(m_published[owner], messages); };
    connect(&m_link, &CMqttLink::lost, this, onLost, Qt::QueuedConnection);
    const auto onDisconnected = [this](const QString& why) {
        if (!std::exchange(m_isLossLogged, true)) {
            m_log.print("brokerAway", m_name, QStringLiteral("no broker: %1").arg(why));
        }
    };
    connect(&m_link, &CMqttLink::disconnected, this, onDisconnected, Qt::QueuedConnection);
    for (std::size_t i = 0; i < buses.size(); ++i) {
        m_published[i].bus = buses[i].get();
        m_published[i].name = buses[i]->plainName();
        connectBus(m_published[i]);
    }
}

void CMqttBridge::connectBus(SPublishedBus& published)
{
    CSharedBus* const bus = published.bus;
    connect(bus, &CSharedBus::messageSent, this,
            [this, &published](const SBusRecord& record) { onMessage(published, record); });
    connect(bus, &CSharedBus::messageRefused, this,
            [this, &published](const Cim::CCanMessage& message, const QObject* client, const QString& reason) {
                if (client == this) {
                    publishRefusal(published, CanLog::formatFrame(message), reason);
                }
            });
    const auto publishItsChanges = [this, &published] { publishChanges(published); };
    connect(bus, &CSharedBus::connectionChanged, this, publishItsChanges);
    connect(bus, &CSharedBus::identified, this, publishItsChanges);
    connect(&m_changeTimer, &QTimer::timeout, this, publishItsChanges);
    connect(bus, &CSharedBus::errorRaised, this, [this, &published](int error) {
        publishObject(published, "error",
                      {{QStringLiteral("number"), error},
                       {QStringLiteral("text"), published.bus->errorTitle(error)},
                       {QStringLiteral("time"), secondsOf(microsecondsNow())}});
    });
    if (!bus->sendingProblem()) {
        m_link.subscribe(topicOf(published, SEND));
    }
}

/// Publishes the end itself: the broker drops the will of a client that disconnects.
CMqttBridge::~CMqttBridge()
{
    flush();
    m_link.publish(m_topic + ONLINE, online(false), true);
}

Failure CMqttBridge::start()
{
    m_changeTimer.start(CHANGE_MS);
    return m_link.start(m_broker);
}

QString CMqttBridge::topicOf(const SPublishedBus& published, const char* last) const
{
    return m_topic + QLatin1Char('/') + published.name + QLatin1Char('/') + QLatin1String(last);
}

// ---- To the broker ----

void CMqttBridge::onMessage(SPublishedBus& published, const SBusRecord& record)
{
    SBatch& batch = record.sent ? published.sent : published.received;
    batch.lines += batch.lines.isEmpty() ? "" : "\n";
    batch.lines +=
        CanLog::formatLogLine({record.microseconds, published.name.toUtf8(), record.message, record.sent ? 'T' : 'R'});
    if (++batch.messages >= BATCH_MESSAGES) {
        publishBatch(published, record.sent ? SENT : RECEIVED, batch);
    } else if (!m_batchTimer.isActive()) {
        m_batchTimer.start(BATCH_MS);
    }
}

void CMqttBridge::publishBatch(SPublishedBus& published, const char* last, SBatch& batch)
{
    const auto owner = static_cast<std::size_t>(&published - m_published.data());
    if (batch.messages > 0 && !m_link.publish(topicOf(published, last), batch.lines, false, owner, batch.messages)) {
        addToGap(published, batch.messages);
    }
    batch = {};
}

void CMqttBridge::flush()
{
    for (SPublishedBus& published : m_published) {
        publishBatch(published, RECEIVED, published.received);
        publishBatch(published, SENT, published.sent);
    }
}

void CMqttBridge::addToGap(SPublishedBus& published, int messages)
{
    if (published.lost == 0) {
        published.lostSince = microsecondsNow();
    }
    published.lost += messages;
    countLost(published.bus, messages);
}

bool CMqttBridge::publishObject(const SPublishedBus& published, const char* last, const QJsonObject& object,
                                bool isRetained)
{
    return m_link.publish(topicOf(published, last), jsonOf(object), isRetained);
}

/// Publishes a retained object that is not what the broker has.
void CMqttBridge::publishChange(SPublishedBus& published, const char* last, const QJsonObject& object)
{
    QJsonObject& before = published.retained[last];
    if (object != before && publishObject(published, last, object, true)) {
        before = object;
    }
}

/// Publishes a state or load that has changed, and a gap that is over.
void CMqttBridge::publishChanges(SPublishedBus& published)
{
    endRefusals(published);
    publishChange(published, STATE, stateOf(*published.bus));
    publishChange(published, LOAD, loadOf(*published.bus));
    const QJsonObject gap{{QStringLiteral("messages"), published.lost},
                          {QStringLiteral("from"), secondsOf(published.lostSince)},
                          {QStringLiteral("to"), secondsOf(microsecondsNow())}};
    if (published.lost > 0 && publishObject(published, "gap", gap, true)) {
        m_log.print("gap", published.bus->name(), QStringLiteral("%1 messages were not published").arg(published.lost));
        published.lost = 0;
    }
}

void CMqttBridge::onConnected()
{
    m_isLossLogged = false;
    m_log.print("broker", m_name, QStringLiteral("connected, topics below %1").arg(m_topic));
    m_link.publish(m_topic + ONLINE, online(true), true);
    for (SPublishedBus& published : m_published) {
        published.retained.clear();
        publishChanges(published);
    }
}

// ---- From the broker ----

void CMqttBridge::onReceived(const QString& topic, const QByteArray& payload, const QString& problem)
{
    const auto isMeant = [&](const SPublishedBus& published) { return topic == topicOf(published, SEND); };
    const auto published = std::find_if(m_published.begin(), m_published.end(), isMeant);
    if (published == m_published.end()) {
        return;
    }
    const std::vector<SMqttSend> lines =
        problem.isEmpty() ? readMqttLines(payload) : std::vector<SMqttSend>{{payload, {}, problem}};
    for (const SMqttSend& line : lines) {
        if (line.problem.isEmpty()) {
            published->bus->send(line.message, *this);
        } else {
            publishRefusal(*published, line.line, line.problem);
        }
    }
    endRefusals(*published);
}

void CMqttBridge::publishRefusal(SPublishedBus& published, const QByteArray& line, const QString& reason)
{
    if (++published.refusals <= MAX_REFUSALS) {
        publishObject(
            published, "refused",
            {{QStringLiteral("line"), QString::fromUtf8(line.left(MAX_LINE))}, {QStringLiteral("reason"), reason}});
    }
}

/// Publishes the number of refused lines that were not published one by one.
void CMqttBridge::endRefusals(SPublishedBus& published)
{
    if (const int refusals = std::exchange(published.refusals, 0); refusals > MAX_REFUSALS) {
        publishObject(published, "refused", {{QStringLiteral("further"), refusals - MAX_REFUSALS}});
    }
}

} // namespace vexmor::Apps::Cimshare
