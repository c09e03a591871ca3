#include "apps/cimshare/mqttLink.h"

#include "apps/host/clock.h"

#include <QDeadlineTimer>
#include <QFile>

#include <algorithm>
#include <cstring>
#include <mosquitto.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
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
/// A connection that lasted this long resets the pause between rounds. A shorter one does not: two clients with the
/// same identifier keep ending each other's connections.
constexpr int STABLE_MS = 60'000;
/// Maximum number of messages that wait for the broker: some megabytes, ten seconds of a fully loaded bus.
constexpr int WAITING_LIMIT = 100'000;
/// Maximum number of publications with quality of service 1 that wait for an acknowledgement.
constexpr std::size_t EVENT_LIMIT = 1000;
constexpr int MAX_PAYLOAD = 64 * 1024;
/// Capacity of an inbox. Each line counts LINE_SIZE bytes more than its length, which bounds the lines to about a
/// thousand. A single publication always fits.
constexpr int INBOX_SIZE = 256 * 1024;
constexpr int LINE_SIZE = 256;

QString textOf(int code)
{
    const char* const text = code == MOSQ_ERR_KEEPALIVE ? "no answer" : mosquitto_strerror(code);
    return QString::fromLocal8Bit(text); // local encoding, because the text may be one of the system
}

/// Returns the object behind the pointer that libmosquitto passes to its callbacks.
CMqttLink& of(void* link)
{
    return *static_cast<CMqttLink*>(link);
}

/// Refuses to provide the password of an encrypted key: nobody is present to type it.
constexpr auto NO_PASSWORD = [](char* /*buffer*/, int /*size*/, int /*isWriting*/, void* /*data*/) { return -1; };

/// Makes the client use TLS if the broker has a certificate authority. First loads the files in the way libmosquitto
/// does at each connection, because libmosquitto does not report what is wrong with them.
Failure useTls(mosquitto* client, const SBroker& broker)
{
    if (broker.caFile.isEmpty()) {
        return {};
    }
    const QByteArray ca = QFile::encodeName(broker.caFile);
    const QByteArray certificate = QFile::encodeName(broker.certificateFile);
    const QByteArray key = QFile::encodeName(broker.keyFile);
    const std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> owner(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
    SSL_CTX* const context = owner.get();
    SSL_CTX_set_default_passwd_cb(context, NO_PASSWORD);
    QByteArray wrong;
    if (SSL_CTX_load_verify_locations(context, ca, nullptr) != 1) {
        wrong = ca;
    } else if (!key.isEmpty() && SSL_CTX_use_certificate_chain_file(context, certificate) != 1) {
        wrong = certificate;
    } else if (!key.isEmpty() && (SSL_CTX_use_PrivateKey_file(context, key, SSL_FILETYPE_PEM) != 1 ||
                                  SSL_CTX_check_private_key(context) != 1)) {
        wrong = key;
    } else {
        const int code = key.isEmpty() ? mosquitto_tls_set(client, ca, nullptr, nullptr, nullptr, NO_PASSWORD)
                                       : mosquitto_tls_set(client, ca, nullptr, certificate, key, NO_PASSWORD);
        return code == MOSQ_ERR_SUCCESS ? Failure() : wrongUsage(QStringLiteral("certificates: %1").arg(textOf(code)));
    }
    const unsigned long error = ERR_get_error();
    const char* const reason = ERR_reason_error_string(error); // null for a system error
    return wrongUsage(QFile::decodeName(wrong) + QStringLiteral(" cannot be used: ") +
                      QString::fromLocal8Bit(reason != nullptr ? reason : std::strerror(ERR_GET_REASON(error))));
}
} // namespace

Failure SBroker::checkNode(const QString& text)
{
    const QStringList parts = text.split(QLatin1Char(':'));
    const bool isPort = parts.size() == 1 || (parts.size() == 2 && parts.at(1).toUShort() != 0);
    return isPort && !parts.at(0).isEmpty() ? Failure()
                                            : wrongUsage(QStringLiteral("'%1' is not a HOST[:PORT]").arg(text));
}

CMqttLink::CMqttLink(const SBroker& broker, const QByteArray& clientId, const QString& willTopic,
                     const QByteArray& willPayload)
    : m_client(nullptr, mosquitto_destroy), m_broker(broker), m_willTopic(willTopic.toUtf8())
{
    const auto onArrived = [this](const QByteArray& topic) { m_subscriptions.at(topic).onArrived(); };
    connect(this, &CMqttLink::arrived, this, onArrived, Qt::QueuedConnection);
    mosquitto_lib_init();
    m_client.reset(mosquitto_new(clientId.constData(), true, this));
    mosquitto* const client = m_client.get();
    mosquitto_int_option(client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V311);
    mosquitto_threaded_set(client, true);
    mosquitto_int_option(client, MOSQ_OPT_TCP_NODELAY, 1);
    mosquitto_int_option(client, MOSQ_OPT_SEND_MAXIMUM, 65535); // no limit of its own: `publish` enforces EVENT_LIMIT
    mosquitto_will_set(client, m_willTopic.constData(), willPayload.size(), willPayload.constData(), 0, true);
    mosquitto_connect_callback_set(client, [](auto*, void* link, int code) { of(link).onConnect(code); });
    mosquitto_publish_callback_set(client, [](auto*, void* link, int id) { of(link).onAcknowledged(id); });
    mosquitto_unsubscribe_callback_set(client, [](auto*, void* link, int /*id*/) { of(link).onReceipt(); });
    mosquitto_message_callback_set(client, [](auto*, void* link, auto* message) { of(link).onMessage(*message); });
    // The log line explains a failed TLS handshake; the code does not.
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

Failure CMqttLink::prepare()
{
    if (m_broker.certificateFile.isEmpty() != m_broker.keyFile.isEmpty() ||
        (m_broker.caFile.isEmpty() && !m_broker.keyFile.isEmpty())) {
        return wrongUsage(QStringLiteral("--mqtt-cert also requires --mqtt-key and --mqtt-ca"));
    }
    if (mosquitto_pub_topic_check(m_willTopic.constData()) != MOSQ_ERR_SUCCESS) {
        return wrongUsage(QStringLiteral("'%1' is not a topic").arg(QString::fromUtf8(m_willTopic)));
    }
    if (Failure failure = readCredentials()) {
        return failure;
    }
    return useTls(m_client.get(), m_broker);
}

void CMqttLink::start()
{
    m_thread = std::thread([this] { run(); });
}

Failure CMqttLink::readCredentials()
{
    if (m_broker.credentialsFile.isEmpty()) {
        return {};
    }
    if (m_broker.caFile.isEmpty() && !m_broker.allowsPlaintext) {
        return wrongUsage(
            QStringLiteral("without --mqtt-ca the password is sent unencrypted (--mqtt-plaintext allows it)"));
    }
    QFile file(m_broker.credentialsFile);
    if (!file.open(QIODevice::ReadOnly)) {
        return wrongUsage(QStringLiteral("%1: %2").arg(file.fileName(), file.errorString()));
    }
    // A service manager's credentials are in a folder that other users cannot enter.
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
    const std::lock_guard<std::mutex> guard(m_lock); // held while sending, so that m_waiting has the order of sending
    const bool isEvent = messages == 0;
    const bool fits = isEvent ? m_unacknowledged.size() < EVENT_LIMIT : m_waitingMessages < WAITING_LIMIT;
    int id = 0;
    if (!m_isConnected || !fits ||
        mosquitto_publish(m_client.get(), &id, topic.toUtf8().constData(), payload.size(), payload.constData(),
                          isEvent ? 1 : 0, isRetained) != MOSQ_ERR_SUCCESS) {
        return false;
    }
    if (isEvent) {
        m_unacknowledged.insert(id);
    }
    m_waiting.push_back({topic, messages, microsecondsNow()});
    m_waitingMessages += messages;
    return true;
}

SInbox CMqttLink::take(const QString& topic)
{
    const std::lock_guard<std::mutex> guard(m_lock);
    return std::exchange(m_subscriptions.at(topic.toUtf8()).inbox, {});
}

// ---- In the thread of the connection ----

void CMqttLink::run()
{
    const auto& nodes = m_broker.nodes;
    int next = 0;
    int pause = 0;
    do {
        for (int failed = 0; failed < nodes.size() && m_ending.available() == 0; next = (next + 1) % nodes.size()) {
            const bool wasStable = runOnce(nodes.at(next));
            failed = wasStable ? 0 : failed + 1;
            pause = wasStable ? 0 : pause;
        }
        pause = std::clamp(2 * pause, FIRST_PAUSE_S, LONGEST_PAUSE_S);
    } while (!m_ending.tryAcquire(1, pause * 1000));
}

/// Runs one connection, from the first attempt to its end. Returns whether the node accepted it and it lasted for
/// STABLE_MS.
bool CMqttLink::runOnce(const QString& node)
{
    const QDeadlineTimer stable(STABLE_MS);
    m_problem.clear();
    m_isAccepted = false;
    const QStringList parts = node.split(QLatin1Char(':'));
    const int usualPort = m_broker.caFile.isEmpty() ? 1883 : 8883;
    const int port = parts.size() > 1 ? parts.at(1).toInt() : usualPort;
    int code = mosquitto_connect_async(m_client.get(), parts.at(0).toUtf8().constData(), port, KEEPALIVE_S);
    QDeadlineTimer end(QDeadlineTimer::Forever);
    while (code == MOSQ_ERR_SUCCESS && !end.hasExpired()) {
        code = mosquitto_loop(m_client.get(), LOOP_MS, 1);
        if (const std::lock_guard<std::mutex> guard(m_lock); m_isAccepted && !std::exchange(m_isConnected, true)) {
            // The library has already resent the unacknowledged publications, so they come before any newer ones.
            Q_EMIT connected();
        }
        code = code == MOSQ_ERR_SUCCESS ? requestReceipt() : code;
        if (m_ending.available() > 0 && end.isForever()) {
            end.setRemainingTime(END_MS);
        }
    }
    const QString why = m_problem.isEmpty() ? textOf(code) : m_problem;
    std::unique_lock<std::mutex> guard(m_lock);
    const bool wasConnected = std::exchange(m_isConnected, false);
    const auto neverLeft = std::exchange(m_waiting, {});
    m_waitingMessages = 0;
    m_awaitingReceipt = 0;
    guard.unlock();
    for (const SWaiting& publication : neverLeft) {
        Q_EMIT lost(publication.topic, publication.messages, publication.since);
    }
    Q_EMIT disconnected(why);
    return wasConnected && stable.hasExpired();
}

void CMqttLink::onConnect(int code)
{
    if (code != 0) {
        m_problem = QString::fromUtf8(mosquitto_connack_string(code));
        return;
    }
    if (std::exchange(m_isAccepted, true)) {
        return; // a faulty broker may answer a connection request more than once
    }
    for (const auto& [topic, subscription] : m_subscriptions) {
        mosquitto_subscribe(m_client.get(), nullptr, topic.constData(), 0);
    }
}

void CMqttLink::onAcknowledged(int id)
{
    const std::lock_guard<std::mutex> guard(m_lock);
    m_unacknowledged.erase(id); // no effect for publications with messages, whose sending also calls this
}

/// Requests a receipt for the publications sent so far, which quality of service 0 does not provide: the broker reads
/// everything sent before the request and then answers it. The request ends a subscription that does not exist, which
/// changes nothing. Returns an error when the answer to the previous request is overdue.
int CMqttLink::requestReceipt()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    if (m_awaitingReceipt > 0) {
        return m_sinceRequest.hasExpired(qint64{KEEPALIVE_S} * 1000) ? MOSQ_ERR_KEEPALIVE : MOSQ_ERR_SUCCESS;
    }
    if (m_waiting.empty() || (m_sinceRequest.isValid() && !m_sinceRequest.hasExpired(LOOP_MS))) {
        return MOSQ_ERR_SUCCESS;
    }
    m_sinceRequest.start();
    m_awaitingReceipt = m_waiting.size();
    return mosquitto_unsubscribe(m_client.get(), nullptr, m_willTopic + "/receipt");
}

void CMqttLink::onReceipt()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    for (; m_awaitingReceipt > 0; --m_awaitingReceipt) {
        m_waitingMessages -= m_waiting.front().messages;
        m_waiting.pop_front();
    }
}

void CMqttLink::onMessage(const mosquitto_message& message)
{
    const auto found = m_subscriptions.find(message.topic);
    if (found == m_subscriptions.end()) {
        return;
    }
    const bool isLong = message.payloadlen > MAX_PAYLOAD;
    const QByteArray payload(static_cast<const char*>(message.payload), isLong ? MAX_PAYLOAD : message.payloadlen);
    // The broker delivers a retained publication again in every connection.
    const char* const problem = isLong ? "more than 64 KiB" : message.retain ? "retained" : "";
    const int lines = payload.trimmed().count('\n') + 1;
    const int size = payload.size() + lines * LINE_SIZE;
    SInbox& inbox = found->second.inbox;
    std::unique_lock<std::mutex> guard(m_lock);
    const bool isFirst = inbox.arrivals.empty();
    if (isFirst || inbox.size + size <= INBOX_SIZE) {
        inbox.arrivals.push_back({payload, QLatin1String(problem)});
        inbox.size += size;
    } else {
        inbox.refusedLines += lines;
    }
    guard.unlock();
    if (isFirst) {
        Q_EMIT arrived(found->first);
    }
}

} // namespace vexmor::Apps::Cimshare
