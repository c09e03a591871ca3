#include "apps/cimshare/mqttLink.h"

#include <QElapsedTimer>
#include <QFile>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <mosquitto.h>
#include <utility>

namespace vexmor::Apps::Cimshare
{
namespace
{
constexpr int KEEPALIVE_S = 10;
constexpr int LOOP_MS = 200;
constexpr int FIRST_PAUSE_S = 1;
constexpr int LONGEST_PAUSE_S = 30;
constexpr int END_MS = 1000;
/// Messages that may wait for the broker: some megabytes, ten seconds of a full bus.
constexpr int WAITING_LIMIT = 100'000;
constexpr int MAX_PAYLOAD = 64 * 1024;

QString textOf(int code)
{
    const QString text = QString::fromUtf8(mosquitto_strerror(code));
    return code == MOSQ_ERR_ERRNO ? QString::fromLocal8Bit(std::strerror(errno)) : text;
}

/// The object that a callback of the library is for.
CMqttLink& of(void* link)
{
    return *static_cast<CMqttLink*>(link);
}

const char* orNull(const QByteArray& text)
{
    return text.isEmpty() ? nullptr : text.constData();
}
} // namespace

Failure SBroker::setAddress(const QString& text)
{
    const QStringList parts = text.split(QLatin1Char(':'));
    bool isPort = true;
    port = parts.size() > 1 ? parts.at(1).toUShort(&isPort) : 0;
    hostName = parts.at(0);
    const bool isAddress = !hostName.isEmpty() && isPort && parts.size() <= 2 && (parts.size() == 1 || port != 0);
    return isAddress ? Failure() : wrongUsage(QStringLiteral("'%1' is not a HOST[:PORT]").arg(text));
}

CMqttLink::CMqttLink(const QString& willTopic, const QByteArray& willPayload)
    : m_client(nullptr, mosquitto_destroy), m_willTopic(willTopic.toUtf8())
{
    mosquitto_lib_init();
    m_client.reset(mosquitto_new(nullptr, true, this));
    mosquitto* const client = m_client.get();
    mosquitto_threaded_set(client, true);
    mosquitto_int_option(client, MOSQ_OPT_TCP_NODELAY, 1);
    mosquitto_will_set(client, m_willTopic.constData(), willPayload.size(), willPayload.constData(), 0, true);
    mosquitto_connect_callback_set(client, [](auto*, void* link, int code) { of(link).onConnect(code); });
    mosquitto_publish_callback_set(client, [](auto*, void* link, int /*id*/) { of(link).onPublished(); });
    mosquitto_message_callback_set(client, [](auto*, void* link, auto* message) { of(link).onMessage(*message); });
    // The log line says more than the code of a failed handshake.
    mosquitto_log_callback_set(client, [](auto*, void* link, int level, const char* text) {
        if (QString& problem = of(link).m_problem; level == MOSQ_LOG_ERR && problem.isEmpty()) {
            problem = QString::fromUtf8(text);
        }
    });
}

CMqttLink::~CMqttLink()
{
    m_ending.release();
    mosquitto_disconnect(m_client.get());
    if (m_thread.joinable()) {
        m_thread.join();
    }
    m_client.reset();
    mosquitto_lib_cleanup();
}

Failure CMqttLink::start(const SBroker& broker)
{
    m_broker = broker;
    if (broker.certificateFile.isEmpty() != broker.keyFile.isEmpty() ||
        (broker.caFile.isEmpty() && !broker.keyFile.isEmpty())) {
        return wrongUsage(QStringLiteral("a certificate needs its key and the certificate authority of the broker"));
    }
    if (mosquitto_pub_topic_check(m_willTopic.constData()) != MOSQ_ERR_SUCCESS) {
        return wrongUsage(QStringLiteral("'%1' is not a topic").arg(QString::fromUtf8(m_willTopic)));
    }
    if (!broker.credentialsFile.isEmpty()) {
        QFile file(broker.credentialsFile);
        if (!file.open(QIODevice::ReadOnly)) {
            return wrongUsage(QStringLiteral("%1: %2").arg(broker.credentialsFile, file.errorString()));
        }
        const QByteArray user = file.readLine().trimmed();
        mosquitto_username_pw_set(m_client.get(), user.constData(), file.readLine().trimmed().constData());
    }
    if (!broker.caFile.isEmpty()) {
        const int code = mosquitto_tls_set(m_client.get(), QFile::encodeName(broker.caFile).constData(), nullptr,
                                           orNull(QFile::encodeName(broker.certificateFile)),
                                           orNull(QFile::encodeName(broker.keyFile)), nullptr);
        if (code != MOSQ_ERR_SUCCESS) {
            return wrongUsage(QStringLiteral("certificates: %1").arg(textOf(code)));
        }
    }
    if (m_broker.port == 0) {
        m_broker.port = broker.caFile.isEmpty() ? 1883 : 8883;
    }
    m_thread = std::thread([this] { run(); });
    return {};
}

bool CMqttLink::publish(const QString& topic, const QByteArray& payload, bool isRetained, int messages)
{
    const std::lock_guard<std::mutex> guard(m_lock); // the callback of this publication waits for it
    if (!m_isConnected || (messages > 0 && m_waitingMessages >= WAITING_LIMIT) ||
        mosquitto_publish(m_client.get(), nullptr, topic.toUtf8().constData(), payload.size(), payload.constData(), 0,
                          isRetained) != MOSQ_ERR_SUCCESS) {
        return false;
    }
    m_waiting.push_back({topic, messages});
    m_waitingMessages += messages;
    return true;
}

// ---- In the thread of the connection ----

void CMqttLink::run()
{
    int pause = FIRST_PAUSE_S;
    do {
        pause = runOnce() ? FIRST_PAUSE_S : std::min(2 * pause, LONGEST_PAUSE_S);
    } while (!m_ending.tryAcquire(1, pause * 1000));
}

/// One connection, from the first attempt to its end. Returns whether the broker accepted it.
bool CMqttLink::runOnce()
{
    m_problem.clear();
    int code =
        mosquitto_connect_async(m_client.get(), m_broker.hostName.toUtf8().constData(), m_broker.port, KEEPALIVE_S);
    QElapsedTimer sinceEnding;
    while (code == MOSQ_ERR_SUCCESS && !(sinceEnding.isValid() && sinceEnding.hasExpired(END_MS))) {
        code = mosquitto_loop(m_client.get(), LOOP_MS, 1);
        if (m_ending.available() > 0 && !sinceEnding.isValid()) {
            sinceEnding.start();
        }
    }
    const QString why = m_problem.isEmpty() ? textOf(code) : m_problem;
    decltype(m_waiting) neverLeft;
    bool wasConnected = false;
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        wasConnected = std::exchange(m_isConnected, false);
        neverLeft.swap(m_waiting);
        m_waitingMessages = 0;
    }
    for (const SWaiting& publication : neverLeft) {
        Q_EMIT lost(publication.topic, publication.messages);
    }
    Q_EMIT disconnected(why);
    return wasConnected;
}

void CMqttLink::onConnect(int code)
{
    if (code != 0) {
        m_problem = QString::fromUtf8(mosquitto_connack_string(code));
        return;
    }
    for (const QString& topic : std::as_const(m_subscriptions)) {
        mosquitto_subscribe(m_client.get(), nullptr, topic.toUtf8().constData(), 0);
    }
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_isConnected = true;
    }
    Q_EMIT connected();
}

void CMqttLink::onPublished()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    if (!m_waiting.empty()) {
        m_waitingMessages -= m_waiting.front().messages;
        m_waiting.pop_front();
    }
}

void CMqttLink::onMessage(const mosquitto_message& message)
{
    const bool isLong = message.payloadlen > MAX_PAYLOAD;
    const QByteArray payload(static_cast<const char*>(message.payload), isLong ? MAX_PAYLOAD : message.payloadlen);
    // The broker would deliver a retained one at every connection.
    const char* const problem = isLong ? "more than 64 KiB" : message.retain ? "retained" : "";
    Q_EMIT received(QString::fromUtf8(message.topic), payload, QLatin1String(problem));
}

} // namespace vexmor::Apps::Cimshare
