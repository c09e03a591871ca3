#include "apps/cimshare/mqttShare.h"

#include "apps/cimshare/mqttText.h"
#include "apps/common/clock.h"
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
constexpr int LOAD_MS = 1000;
constexpr char RECEIVED[] = "rx";
constexpr char SENT[] = "tx";
constexpr char SEND[] = "send";
const QString STATE = QStringLiteral("state");

QByteArray jsonOf(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QJsonObject online(bool isOnline)
{
    return {{QStringLiteral("online"), isOnline}, {QStringLiteral("version"), QStringLiteral(CIM_VERSION)}};
}

double secondsOf(std::int64_t microseconds)
{
    return static_cast<double>(microseconds) / 1e6;
}
} // namespace

CMqttShare::CMqttShare(const std::vector<CSharedBus*>& buses, const SMqttForm& form, CEventLog& log)
    : m_form(form), m_log(log), m_link(form.topic + QLatin1Char('/') + STATE, jsonOf(online(false)))
{
    for (CSharedBus* const bus : buses) {
        m_shared.push_back(
            {bus, bus->name().toUtf8(), topicLevel(bus->name()), static_cast<int>(m_shared.size()), {}, {}, 0, 0, {}});
    }
    m_batchTimer.setSingleShot(true);
    connect(&m_batchTimer, &QTimer::timeout, this, &CMqttShare::flush);
    connect(&m_loadTimer, &QTimer::timeout, this, &CMqttShare::publishLoads);
    connect(&m_link, &CMqttLink::connected, this, &CMqttShare::onConnected, Qt::QueuedConnection);
    connect(&m_link, &CMqttLink::received, this, &CMqttShare::onReceived, Qt::QueuedConnection);
    const auto onLost = [this](int index, int messages) {
        if (messages > 0) {
            countLost(m_shared[static_cast<std::size_t>(index)], messages);
        }
    };
    connect(&m_link, &CMqttLink::lost, this, onLost, Qt::QueuedConnection);
    const auto onDisconnected = [this](const QString& why) {
        if (!std::exchange(m_isLossTold, true)) {
            m_log.tell(QStringLiteral("brokerAway"), QStringLiteral("mqtt: no broker: %1").arg(why));
        }
    };
    connect(&m_link, &CMqttLink::disconnected, this, onDisconnected, Qt::QueuedConnection);

    for (SShared& shared : m_shared) {
        CSharedBus* const bus = shared.bus;
        connect(bus, &CSharedBus::messageSent, this,
                [this, &shared](const Cim::CCanMessage& message, const QObject* sender) {
                    onMessage(shared, message, sender != nullptr);
                });
        connect(bus, &CSharedBus::connectionChanged, this, [this, &shared] { publishState(shared); });
        connect(bus, &CSharedBus::identified, this, [this, &shared] { publishState(shared); });
        connect(&bus->hosted(), &CHostedInterface::errorRaised, this, [this, &shared](int error) {
            publishObject(shared, "error",
                          {{QStringLiteral("number"), error},
                           {QStringLiteral("text"), shared.bus->textOfError(error)},
                           {QStringLiteral("time"), secondsOf(microsecondsNow())}},
                          false);
        });
        if (m_form.allowSend) {
            m_link.subscribe(m_form.isMessageEach ? shared.level + QStringLiteral("/s/+") : topicOf(shared, SEND));
        }
    }
}

/// Says goodbye before the connection ends, which the broker would take for a wish to leave no will.
CMqttShare::~CMqttShare()
{
    flush();
    m_link.publish(m_form.topic + QLatin1Char('/') + STATE, jsonOf(online(false)), true);
}

Failure CMqttShare::start(const SBroker& broker)
{
    m_loadTimer.start(LOAD_MS);
    return m_link.start(broker);
}

QString CMqttShare::topicOf(const SShared& shared, const char* last) const
{
    return m_form.topic + QLatin1Char('/') + shared.level + QLatin1Char('/') + QLatin1String(last);
}

// ---- To the broker ----

void CMqttShare::onMessage(SShared& shared, const Cim::CCanMessage& message, bool isSent)
{
    const std::int64_t now = microsecondsNow();
    if (m_form.isMessageEach) {
        const QString topic = shared.level + QLatin1Char('/') + QString::number(message.id().value());
        if (!m_link.publish(topic, singlePayload(message, now), false, shared.index, 1)) {
            countLost(shared, 1);
        }
        return;
    }
    SBatch& batch = isSent ? shared.sent : shared.received;
    batch.lines +=
        (batch.lines.isEmpty() ? "" : "\n") + CanLog::formatLogLine({now, shared.name, message, isSent ? 'T' : 'R'});
    if (++batch.messages >= BATCH_MESSAGES) {
        publishBatch(shared, isSent ? SENT : RECEIVED, batch);
    } else if (!m_batchTimer.isActive()) {
        m_batchTimer.start(BATCH_MS);
    }
}

void CMqttShare::flush()
{
    for (SShared& shared : m_shared) {
        publishBatch(shared, RECEIVED, shared.received);
        publishBatch(shared, SENT, shared.sent);
    }
}

void CMqttShare::publishBatch(SShared& shared, const char* last, SBatch& batch)
{
    const SBatch full = std::exchange(batch, {});
    if (full.messages > 0 && !m_link.publish(topicOf(shared, last), full.lines, false, shared.index, full.messages)) {
        countLost(shared, full.messages);
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

void CMqttShare::publishState(const SShared& shared)
{
    CHostedInterface& hosted = shared.bus->hosted();
    const Cim::CCommonInfo& info = hosted.canInterface().commonInfo();
    publishObject(shared, "state",
                  {{QStringLiteral("connected"), shared.bus->isConnected()},
                   {QStringLiteral("mac"), info.interfaceId()},
                   {QStringLiteral("firmware"), info.firmwareVersion()},
                   {QStringLiteral("bitRate"), static_cast<int>(hosted.canInterface().baudrate())}},
                  true);
}

/// Loads that changed, and the gaps that are over.
void CMqttShare::publishLoads()
{
    for (SShared& shared : m_shared) {
        const std::optional<int> percent = shared.bus->hosted().busload();
        const QJsonObject load{{QStringLiteral("percent"), percent ? QJsonValue(*percent) : QJsonValue()}};
        if (load != shared.load && publishObject(shared, "load", load, true)) {
            shared.load = load;
        }
        const QJsonObject gap{{QStringLiteral("messages"), shared.lost},
                              {QStringLiteral("from"), secondsOf(shared.lostSince)},
                              {QStringLiteral("to"), secondsOf(microsecondsNow())}};
        if (shared.lost > 0 && publishObject(shared, "gap", gap, true)) {
            m_log.tell(
                QStringLiteral("gap"),
                QStringLiteral("mqtt: %1: %2 messages were not published").arg(shared.bus->name()).arg(shared.lost));
            shared.lost = 0;
        }
    }
}

void CMqttShare::onConnected()
{
    m_isLossTold = false;
    m_log.tell(QStringLiteral("broker"), QStringLiteral("mqtt: connected, topics below %1").arg(m_form.topic));
    m_link.publish(m_form.topic + QLatin1Char('/') + STATE, jsonOf(online(true)), true);
    for (SShared& shared : m_shared) {
        publishState(shared);
        shared.load = {};
    }
    publishLoads();
}

// ---- From the broker ----

void CMqttShare::onReceived(const QString& topic, const QByteArray& payload)
{
    const auto isMeant = [&](const SShared& shared) {
        return m_form.isMessageEach ? topic.startsWith(shared.level + QStringLiteral("/s/"))
                                    : topic == topicOf(shared, SEND);
    };
    const auto shared = std::find_if(m_shared.begin(), m_shared.end(), isMeant);
    if (shared == m_shared.end()) {
        return;
    }
    const std::vector<SMqttSend> messages = m_form.isMessageEach
                                                ? std::vector{readSingle(topic.section(QLatin1Char('/'), -1), payload)}
                                                : readMqttLines(payload);
    for (const SMqttSend& send : messages) {
        const bool isTaken = send.problem.isEmpty() && shared->bus->send(send.message, this);
        if (!isTaken) {
            publishObject(*shared, "refused",
                          {{QStringLiteral("line"), QString::fromUtf8(send.line.left(100))},
                           {QStringLiteral("reason"), send.problem.isEmpty() ? shared->bus->refusal() : send.problem}},
                          false);
        }
    }
}

} // namespace vexmor::Apps::Cimshare
