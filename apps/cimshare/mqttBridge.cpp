#include "apps/cimshare/mqttBridge.h"

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
const QString STATE = QStringLiteral("state"); // topic of the service's state and of each bus's state
const QString TIME = QStringLiteral("time");
const QString SEND = QStringLiteral("send");
const QString LAST = QStringLiteral("last/");
const QString REFUSED = QStringLiteral("refused");

/// Number of refused lines of one publication, or of one second, that are published one by one.
constexpr int MAX_REFUSALS = 10;
/// Maximum length of a reported refused line, in bytes, and of the reported name of another service, in characters.
constexpr int MAX_LINE = 100;

/// Returns the client identifier, which stays the same when the service restarts: the broker then ends the old
/// connection, if it still exists, and publishes its will before the new connection publishes its state, not after.
/// Services that only share the topic have different identifiers. Every broker accepts identifiers of 23 letters and
/// digits.
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

CMqttBridge::CMqttBridge(const CSharedBuses& buses, const SBroker& broker, const SMqttForm& form, CEventLog& log)
    : CProtocol(QStringLiteral("mqtt"), log),
      m_buses(buses),
      m_form(form),
      m_topic(form.topic + QLatin1Char('/')),
      m_service(QStringLiteral("%1:%2").arg(QHostInfo::localHostName()).arg(QCoreApplication::applicationPid())),
      m_published(buses.size()),
      m_link(broker, clientId(form.topic, buses), m_topic + STATE, m_form.object(serviceState(false)))
{
    setObjectName(QStringLiteral("broker"));
    m_link.subscribe(m_topic + STATE, [this] { takeState(); });
    m_batchTimer.setSingleShot(true);
    connect(&m_batchTimer, &QTimer::timeout, this, &CMqttBridge::flush);
    connect(&m_link, &CMqttLink::connected, this, &CMqttBridge::onConnected, Qt::QueuedConnection);
    connect(&m_link, &CMqttLink::lost, this, &CMqttBridge::onLost, Qt::QueuedConnection);
    const auto onDisconnected = [this](const QString& why) {
        if (std::exchange(m_isConnected, false) != false) {
            m_log.print("brokerAway", m_name, QStringLiteral("not connected to the broker: %1").arg(why));
        }
    };
    connect(&m_link, &CMqttLink::disconnected, this, onDisconnected, Qt::QueuedConnection);
    connect(&m_changeTimer, &QTimer::timeout, this, &CMqttBridge::publishAllChanges);
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
    connect(&bus, &CSharedBus::errorRaised, this, [this, &published](int error) {
        publishObject(published.topic + QStringLiteral("error"),
                      {{QStringLiteral("number"), error},
                       {QStringLiteral("text"), published.bus->errorTitle(error)},
                       {TIME, microsecondsNow() / 1e6}});
    });
    // Subscribed even when clients may not send: they receive the reason for the refusal.
    m_link.subscribe(published.topic + SEND, [this, &published] { sendNext(published); });
}

/// Publishes that the service ends, because the broker discards the will of a client that disconnects properly.
CMqttBridge::~CMqttBridge()
{
    flush();
    publishObject(m_topic + STATE, serviceState(false), true);
}

void CMqttBridge::printPlan()
{
    const QString nodes = m_link.broker().nodes.join(QStringLiteral(", "));
    m_log.print("check", m_name, QStringLiteral("would publish to %1, with topics below %2").arg(nodes, m_form.topic));
}

Failure CMqttBridge::start()
{
    m_changeTimer.start(CHANGE_MS);
    m_link.start();
    return {};
}

// ---- To the broker ----

void CMqttBridge::onMessage(SPublishedBus& published, const SBusRecord& record)
{
    if (m_form.hasLast) {
        published.last[record.message.id().value()] = {record};
    }
    SBatch& batch = record.sent ? published.sent : published.received;
    batch.messages.append(m_form.message(record, published.name));
    if (batch.messages.size() >= BATCH_MESSAGES) {
        publishBatch(batch);
    } else if (!m_batchTimer.isActive()) {
        m_batchTimer.start(BATCH_MS);
    }
}

void CMqttBridge::publishBatch(SBatch& batch)
{
    const QByteArrayList messages = std::exchange(batch.messages, {});
    const int count = static_cast<int>(messages.size());
    if (count > 0 && !m_link.publish(batch.topic, m_form.messages(messages), false, count)) {
        onLost(batch.topic, count, microsecondsNow());
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
        if (topic == published.received.topic || topic == published.sent.topic) {
            published.lostSince = published.lost == 0 ? since : std::min<qint64>(published.lostSince, since);
            published.lost += messages;
            published.bus->countLost(m_name, messages);
        }
    }
}

bool CMqttBridge::publishObject(const QString& topic, QJsonObject object, bool isRetained)
{
    if (m_form.isJson) {
        object.insert(TIME, microsecondsNow() / 1e6);
    }
    return m_link.publish(topic, m_form.object(object), isRetained);
}

/// Publishes a retained object if it differs from the one published before.
void CMqttBridge::publishChange(const QString& topic, const QJsonObject& object)
{
    QJsonObject& before = m_retained[topic];
    if (object != before && publishObject(topic, object, true)) {
        before = object;
    }
}

/// Publishes the state and the bus load if they have changed, and a gap that has ended.
void CMqttBridge::publishChanges(SPublishedBus& published)
{
    endRefusals(published);
    publishChange(published.topic + STATE, stateOf(*published.bus));
    const std::optional<int> load = published.bus->status().busload;
    publishChange(published.topic + QStringLiteral("load"),
                  {{QStringLiteral("percent"), load ? QJsonValue(*load) : QJsonValue()}});
    const QJsonObject gap{{QStringLiteral("messages"), published.lost},
                          {QStringLiteral("from"), published.lostSince / 1e6},
                          {QStringLiteral("to"), microsecondsNow() / 1e6}};
    if (published.lost > 0 && publishObject(published.topic + QStringLiteral("gap"), gap, true)) {
        m_log.print("gap", published.bus->name(), QStringLiteral("%1 messages were not published").arg(published.lost));
        published.lost = 0;
    }
}

/// Publishes the last message of each identifier that was on the bus since the previous call. These publications count
/// as messages that wait for the broker, so that their number is bounded; one that does not fit is published with a
/// later call, and none is counted as lost.
void CMqttBridge::publishLast(SPublishedBus& published)
{
    for (auto& [id, last] : published.last) {
        const QString topic = published.topic + LAST + QLatin1String(CanLog::formatId(id));
        last.isPublished =
            last.isPublished || m_link.publish(topic, m_form.message(last.record, published.name), true, 1);
    }
}

/// Returns the state of the service. In JSON, it also has the connection state of each interface and of all together,
/// so that the will, which is this object, reports the interfaces as disconnected, too.
QJsonObject CMqttBridge::serviceState(bool isOnline) const
{
    QJsonObject result{{QStringLiteral("online"), isOnline},
                       {QStringLiteral("service"), m_service},
                       {QStringLiteral("version"), QStringLiteral(CIM_VERSION)}};
    if (m_form.isJson) {
        QJsonObject interfaces;
        for (const auto& bus : m_buses) {
            interfaces.insert(bus->plainName(), isOnline && bus->status().isConnected() ? 1 : 0);
        }
        const bool areConnected = std::find(interfaces.begin(), interfaces.end(), QJsonValue(0)) == interfaces.end();
        result.insert(QStringLiteral("connected"), areConnected);
        result.insert(QStringLiteral("interfaces"), interfaces);
    }
    return result;
}

void CMqttBridge::publishAllChanges()
{
    if (std::exchange(m_isStateWrong, false)) {
        m_retained.erase(m_topic + STATE);
    }
    publishChange(m_topic + STATE, serviceState(true));
    for (SPublishedBus& published : m_published) {
        publishChanges(published);
        publishLast(published);
    }
}

void CMqttBridge::onConnected()
{
    m_isConnected = true;
    m_isOtherLogged = false;
    m_log.print("broker", m_name, QStringLiteral("connected, topics below %1").arg(m_topic.chopped(1)));
    m_retained.clear();
    for (SPublishedBus& published : m_published) {
        for (auto& [id, last] : published.last) {
            last.isPublished = false;
        }
    }
    publishAllChanges();
}

// ---- From the broker ----

/// Compares the state at the broker with the state of this service. A wrong state, left by an old connection that ended
/// late or by another service, is corrected with the next changes, at most once per second.
void CMqttBridge::takeState()
{
    for (const SArrival& arrival : m_link.take(m_topic + STATE).arrivals) {
        const QJsonObject object = QJsonDocument::fromJson(arrival.payload).object();
        const QString service = object.value(QStringLiteral("service")).toString().left(MAX_LINE);
        m_isStateWrong = !object.value(QStringLiteral("online")).toVariant().toBool(); // "online" may be 0 or false
        // Until then, the state at the broker is an earlier one.
        m_isOwnStateSeen = m_isOwnStateSeen || service == m_service;
        if (m_isOwnStateSeen && service != m_service && !std::exchange(m_isOtherLogged, true)) {
            m_log.print("sameTopic", m_name, QStringLiteral("another service uses the same topic: %1").arg(service));
            m_isStateWrong = true; // the other service notices the correction
        }
    }
}

/// Sends the messages that have arrived, once the outcomes of all earlier ones are known, so that other clients get
/// their share of the bus.
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
    published.unsent = 1; // for the loop below, so that the batch does not end before it
    const auto onLine = [&](const QByteArray& line, Result<Cim::CCanMessage> message) {
        if (!message) {
            publishRefusal(published, line, message.problem().text);
            return;
        }
        ++published.unsent;
        published.bus->send(*message, *this, m_name, [=, &published, sent = *message](const Failure& failure) {
            if (failure) {
                publishRefusal(published, CanLog::formatFrame(sent), failure->text);
            }
            finishOne();
        });
    };
    for (const SArrival& arrival : inbox.arrivals) {
        arrival.problem.isEmpty() ? readMqttLines(arrival.payload, onLine)
                                  : onLine(arrival.payload, SProblem{arrival.problem});
        endRefusals(published);
    }
    // Lines that did not fit into the inbox are not published one by one.
    published.refusals = MAX_REFUSALS + inbox.refusedLines;
    endRefusals(published);
    finishOne();
}

void CMqttBridge::publishRefusal(SPublishedBus& published, const QByteArray& line, const QString& reason)
{
    if (++published.refusals <= MAX_REFUSALS) {
        const QJsonObject object{{QStringLiteral("line"), QString::fromUtf8(line.left(MAX_LINE))},
                                 {QStringLiteral("reason"), reason}};
        publishObject(published.topic + REFUSED, object);
    }
}

/// Publishes the number of refused lines that were not published one by one.
void CMqttBridge::endRefusals(SPublishedBus& published)
{
    if (const int further = std::exchange(published.refusals, 0) - MAX_REFUSALS; further > 0) {
        publishObject(published.topic + REFUSED, {{QStringLiteral("further"), further}});
    }
}

} // namespace vexmor::Apps::Cimshare
