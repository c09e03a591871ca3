#include "apps/cimshare/mqttLink.h"

#include <QDeadlineTimer>
#include <QFile>

#include <algorithm>
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
    return QString::fromLocal8Bit(mosquitto_strerror(code)); // of a system error: its text
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

CMqttLink::CMqttLink(const SBroker& broker, const QString& willTopic, const QByteArray& willPayload)
    : m_client(nullptr, mosquitto_destroy), m_broker(broker), m_willTopic(willTopic.toUtf8())
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

Failure CMqttLink::start()
{
    if (m_broker.certificateFile.isEmpty() != m_broker.keyFile.isEmpty() ||
        (m_broker.caFile.isEmpty() && !m_broker.keyFile.isEmpty())) {
        return wrongUsage(QStringLiteral("a certificate needs its key and the certificate authority of the broker"));
    }
    if (mosquitto_pub_topic_check(m_willTopic.constData()) != MOSQ_ERR_SUCCESS) {
        return wrongUsage(QStringLiteral("'%1' is not a topic").arg(QString::fromUtf8(m_willTopic)));
    }
    if (Failure failure = readCredentials()) {
        return failure;
    }
    if (!m_broker.caFile.isEmpty()) {
        const int code = mosquitto_tls_set(m_client.get(), QFile::encodeName(m_broker.caFile).constData(), nullptr,
                                           orNull(QFile::encodeName(m_broker.certificateFile)),
                                           orNull(QFile::encodeName(m_broker.keyFile)), nullptr);
        if (code != MOSQ_ERR_SUCCESS) {
            return wrongUsage(QStringLiteral("certificates: %1").arg(textOf(code)));
        }
    }
    m_thread = std::thread([this] { run(); });
    return {};
}

Failure CMqttLink::readCredentials()
{
    if (m_broker.credentialsFile.isEmpty()) {
        return {};
    }
    if (m_broker.caFile.isEmpty() && !m_broker.allowsPlaintext) {
        return wrongUsage(
            QStringLiteral("a password without --mqtt-ca is sent unencrypted (--mqtt-plaintext allows it)"));
    }
    QFile file(m_broker.credentialsFile);
    if (!file.open(QIODevice::ReadOnly)) {
        return wrongUsage(QStringLiteral("%1: %2").arg(file.fileName(), file.errorString()));
    }
    // Those of a service manager lie in a folder that is closed as a whole.
    const QString managed = qEnvironmentVariable("CREDENTIALS_DIRECTORY", QStringLiteral("/dev/null"));
    const auto ofOthers = file.permissions() & QFile::Permissions(0x77);
    if (ofOthers != 0 && !file.fileName().startsWith(managed + QLatin1Char('/'))) {
        return wrongUsage(QStringLiteral("%1: other users can read it (chmod 600)").arg(file.fileName()));
    }
    const QByteArray user = file.readLine().trimmed();
    mosquitto_username_pw_set(m_client.get(), user.constData(), file.readLine().trimmed().constData());
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
    const int port = m_broker.caFile.isEmpty() ? 1883 : 8883;
    int code = mosquitto_connect_async(m_client.get(), m_broker.hostName.toUtf8().constData(),
                                       m_broker.port == 0 ? port : m_broker.port, KEEPALIVE_S);
    QDeadlineTimer end(QDeadlineTimer::Forever);
    while (code == MOSQ_ERR_SUCCESS && !end.hasExpired()) {
        code = mosquitto_loop(m_client.get(), LOOP_MS, 1);
        if (m_ending.available() > 0 && end.isForever()) {
            end.setRemainingTime(END_MS);
        }
    }
    const QString why = m_problem.isEmpty() ? textOf(code) : m_problem;
    std::unique_lock<std::mutex> guard(m_lock);
    const bool wasConnected = std::exchange(m_isConnected, false);
    const auto neverLeft = std::exchange(m_waiting, {});
    m_waitingMessages = 0;
    guard.unlock();
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
    std::unique_lock<std::mutex> guard(m_lock);
    m_isConnected = true;
    guard.unlock();
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
