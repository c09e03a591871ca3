#include "apps/cimshare/mqttBridge.h"

#include "apps/cimshare/mqttText.h"
#include "apps/host/clock.h"
#include "canlog/candumpLog.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QHostInfo>
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
const QString STATE = QStringLiteral("state"); // of the service, and of a bus
const QString SEND = QStringLiteral("send");
const QString REFUSED = QStringLiteral("refused");

/// Refused lines of one publication, or of one second, that are published one by one.
constexpr int MAX_REFUSALS = 10;
/// Bytes of a refused line, or characters of the name of another service, that are reported.
constexpr int MAX_LINE = 100;

QByteArray jsonOf(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QByteArray online(bool isOnline, const QString& service)
{
    return jsonOf({{QStringLiteral("online"), isOnline},
                   {QStringLiteral("service"), service},
                   {QStringLiteral("version"), QStringLiteral(CIM_VERSION)}});
}

/// The same for the same service when it starts again: the broker then ends its old connection, which may still exist,
/// and publishes the will of that before, not after, the new connection publishes its state. Services that only share
/// the topic have different identifiers. Every broker accepts 23 letters and digits.
QByteArray clientId(const QString& topic, const CSharedBuses& buses)
{
    QString text = QHostInfo::localHostName() + QLatin1Char('\n') + topic;
    for (const auto& bus : buses) {
        text += QLatin1Char('\n') + bus->name();
    }
    return "cimshare" + QCryptographicHash::hash(text.toUtf8(), QCryptographicHash::Sha1).toHex().left(15);
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
} // namespace

CMqttBridge::CMqttBridge(const CSharedBuses& buses, const SBroker& broker, const QString& topic, CEventLog& log)
    : CProtocol(QStringLiteral("mqtt"), log),
      m_topic(topic + QLatin1Char('/')),
      m_service(QStringLiteral("%1:%2").arg(QHostInfo::localHostName()).arg(QCoreApplication::applicationPid())),
      m_published(buses.size()),
      m_link(broker, clientId(topic, buses), m_topic + STATE, online(false, m_service))
{
    setObjectName(QStringLiteral("broker"));
    m_link.subscribe(m_topic + STATE, [this] { takeState(); });
    m_batchTimer.setSingleShot(true);
    connect(&m_batchTimer, &QTimer::timeout, this, &CMqttBridge::flush);
    connect(&m_link, &CMqttLink::connected, this, &CMqttBridge::onConnected, Qt::QueuedConnection);
    connect(&m_link, &CMqttLink::lost, this, &CMqttBridge::onLost, Qt::QueuedConnection);
    const auto onDisconnected = [this](const QString& why) {
        if (!std::exchange(m_isLossLogged, true)) {
            m_log.print("brokerAway", m_name, QStringLiteral("no broker: %1").arg(why));
        }
    };
    connect(&m_link, &CMqttLink::disconnected, this, onDisconnected, Qt::QueuedConnection);
    connect(&m_changeTimer, &QTimer::timeout, this, [this] {
        m_isStateWrong = m_isStateWrong && !m_link.publish(m_topic + STATE, online(true, m_service), true);
    });
    for (std::size_t i = 0; i < buses.size(); ++i) {
        connectBus(m_published[i], *buses[i]);
    }
}

void CMqttBridge::connectBus(SPublishedBus& published, CSharedBus& bus)
{
    published.bus = &bus;
    published.name = bus.plainName().toUtf8();
    published.topic = m_topic + bus.plainName() + QLatin1Char('/');
    published.received.topic = published.topic + QStringLiteral("rx");
    published.sent.topic = published.topic + QStringLiteral("tx");
    connect(&bus, &CSharedBus::messageSent, this,
            [this, &published](const SBusRecord& record) { onMessage(published, record); });
    const auto publishItsChanges = [this, &published] { publishChanges(published); };
    connect(&bus, &CSharedBus::connectionChanged, this, publishItsChanges);
    connect(&bus, &CSharedBus::identified, this, publishItsChanges);
    connect(&m_changeTimer, &QTimer::timeout, this, publishItsChanges);
    connect(&bus, &CSharedBus::errorRaised, this, [this, &published](int error) {
        const QJsonObject object{{QStringLiteral("number"), error},
                                 {QStringLiteral("text"), published.bus->errorTitle(error)},
                                 {QStringLiteral("time"), microsecondsNow() / 1e6}};
        m_link.publish(published.topic + QStringLiteral("error"), jsonOf(object));
    });
    // Also where clients may not send: they get an answer.
    m_link.subscribe(published.topic + SEND, [this, &published] { sendNext(published); });
}

/// Publishes the end itself: the broker drops the will of a client that disconnects.
CMqttBridge::~CMqttBridge()
{
    flush();
    m_link.publish(m_topic + STATE, online(false, m_service), true);
}

Failure CMqttBridge::start()
{
    m_changeTimer.start(CHANGE_MS);
    return m_link.start();
}

// ---- To the broker ----

void CMqttBridge::onMessage(SPublishedBus& published, const SBusRecord& record)
{
    SBatch& batch = record.sent ? published.sent : published.received;
    batch.lines += batch.lines.isEmpty() ? "" : "\n";
    batch.lines +=
        CanLog::formatLogLine({record.microseconds, published.name, record.message, record.sent ? 'T' : 'R'});
    if (++batch.messages >= BATCH_MESSAGES) {
        publishBatch(batch);
    } else if (!m_batchTimer.isActive()) {
        m_batchTimer.start(BATCH_MS);
    }
}

void CMqttBridge::publishBatch(SBatch& batch)
{
    const QByteArray lines = std::exchange(batch.lines, {});
    const int messages = std::exchange(batch.messages, 0);
    if (messages > 0 && !m_link.publish(batch.topic, lines, false, messages)) {
        onLost(batch.topic, messages, microsecondsNow());
    }
}

void CMqttBridge::flush()
{
    for (SPublishedBus& published : m_published) {
        publishBatch(published.received);
        publishBatch(published.sent);
    }
}

void CMqttBridge::onLost(const QString& topic, int messages, qint64 since)
{
    for (SPublishedBus& published : m_published) {
        if (messages > 0 && topic.startsWith(published.topic)) {
            published.lostSince = published.lost == 0 ? since : std::min<qint64>(published.lostSince, since);
            published.lost += messages;
            countLost(*published.bus, messages);
        }
    }
}

/// Publishes a retained object that is not what the broker has.
void CMqttBridge::publishChange(SPublishedBus& published, const QString& last, const QJsonObject& object)
{
    QJsonObject& before = published.retained[last];
    if (object != before && m_link.publish(published.topic + last, jsonOf(object), true)) {
        before = object;
    }
}

/// Publishes a state or load that has changed, and a gap that is over.
void CMqttBridge::publishChanges(SPublishedBus& published)
{
    endRefusals(published);
    publishChange(published, STATE, stateOf(*published.bus));
    const std::optional<int> load = published.bus->status().busload;
    publishChange(published, QStringLiteral("load"),
                  {{QStringLiteral("percent"), load ? QJsonValue(*load) : QJsonValue()}});
    const QJsonObject gap{{QStringLiteral("messages"), published.lost},
                          {QStringLiteral("from"), published.lostSince / 1e6},
                          {QStringLiteral("to"), microsecondsNow() / 1e6}};
    if (published.lost > 0 && m_link.publish(published.topic + QStringLiteral("gap"), jsonOf(gap), true)) {
        m_log.print("gap", published.bus->name(), QStringLiteral("%1 messages were not published").arg(published.lost));
        published.lost = 0;
    }
}

void CMqttBridge::onConnected()
{
    m_isLossLogged = false;
    m_isOtherLogged = false;
    m_log.print("broker", m_name, QStringLiteral("connected, topics below %1").arg(m_topic.chopped(1)));
    m_link.publish(m_topic + STATE, online(true, m_service), true);
    for (SPublishedBus& published : m_published) {
        published.retained.clear();
        publishChanges(published);
    }
}

// ---- From the broker ----

/// Compares the state of the service at the broker. A wrong one, of a connection that ended late or of another service,
/// is corrected with the next changes: once in a second at most.
void CMqttBridge::takeState()
{
    for (const SArrival& arrival : m_link.take(m_topic + STATE).arrivals) {
        const QJsonObject object = QJsonDocument::fromJson(arrival.payload).object();
        const QString service = object.value(QStringLiteral("service")).toString().left(MAX_LINE);
        m_isStateWrong = !object.value(QStringLiteral("online")).toBool();
        m_isOwnStateSeen = m_isOwnStateSeen || service == m_service; // before, it is what was left over
        if (m_isOwnStateSeen && service != m_service && !std::exchange(m_isOtherLogged, true)) {
            m_log.print("sameTopic", m_name, QStringLiteral("another service with this topic: %1").arg(service));
            m_isStateWrong = true; // the other service notices the correction
        }
    }
}

/// Sends what has arrived when everything before has its outcome: so other clients have their share of the bus.
void CMqttBridge::sendNext(SPublishedBus& published)
{
    const SInbox inbox = published.unsent == 0 ? m_link.take(published.topic + SEND) : SInbox();
    if (inbox.arrivals.empty()) {
        return;
    }
    const auto finishOne = [this, &published] {
        if (--published.unsent == 0) {
            QMetaObject::invokeMethod(
                this, [this, &published] { sendNext(published); }, Qt::QueuedConnection);
        }
    };
    published.unsent = 1; // this loop
    for (const SArrival& arrival : inbox.arrivals) {
        auto lines = arrival.problem.isEmpty() ? readMqttLines(arrival.payload)
                                               : std::vector{SMqttSend{arrival.payload, SProblem{arrival.problem}}};
        for (SMqttSend& send : lines) {
            if (!send.message) {
                publishRefusal(published, send.line, send.message.problem().text);
                continue;
            }
            ++published.unsent;
            const auto onOutcome = [=, &published, message = *send.message](const Failure& failure) {
                if (failure) {
                    publishRefusal(published, CanLog::formatFrame(message), failure->text);
                }
                finishOne();
            };
            published.bus->send(*send.message, *this, m_name, onOutcome);
        }
        endRefusals(published);
    }
    published.refusals = MAX_REFUSALS + inbox.refusedLines; // none of them one by one
    endRefusals(published);
    finishOne();
}

void CMqttBridge::publishRefusal(SPublishedBus& published, const QByteArray& line, const QString& reason)
{
    if (++published.refusals <= MAX_REFUSALS) {
        const QJsonObject object{{QStringLiteral("line"), QString::fromUtf8(line.left(MAX_LINE))},
                                 {QStringLiteral("reason"), reason}};
        m_link.publish(published.topic + REFUSED, jsonOf(object));
    }
}

/// Publishes the number of refused lines that were not published one by one.
void CMqttBridge::endRefusals(SPublishedBus& published)
{
    if (const int further = std::exchange(published.refusals, 0) - MAX_REFUSALS; further > 0) {
        m_link.publish(published.topic + REFUSED, jsonOf({{QStringLiteral("further"), further}}));
    }
}

} // namespace vexmor::Apps::Cimshare
