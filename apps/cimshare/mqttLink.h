#pragma once

#include "canlog/problem.h"

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QStringList>

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

struct mosquitto;

namespace vexmor::Apps::Cimshare
{

/// How a broker is reached.
struct SBroker {
    QString hostName; ///< Empty: no broker.
    int port = 0;     ///< 0: 1883, or 8883 with a certificate authority.
    QString credentialsFile;
    QString caFile; ///< Not empty: use TLS.
    QString certificateFile;
    QString keyFile;

    /// Reads HOST[:PORT].
    Failure setAddress(const QString& text);
};

/// A connection to a broker (MQTT 3.1.1), kept by a thread of its own, the only one that waits for the network. A lost
/// connection is tried again and again, with growing pauses.
class CMqttLink : public QObject
{
    Q_OBJECT

public:
    /// The broker publishes `willPayload`, retained, when this program vanishes.
    CMqttLink(const QString& willTopic, const QByteArray& willPayload);
    /// Sends the waiting publications, for a second at most, and disconnects.
    ~CMqttLink() override;

    /// Begins to connect. Fails when a file cannot be used.
    Failure start(const SBroker& broker);
    /// Subscribes a topic at each connection; to be called before `start`.
    void subscribe(const QString& topic) { m_subscriptions.append(topic); }
    /// Hands a publication of `messages` messages to the broker. Returns false without a connection, and when too many
    /// messages wait; a publication without messages has no such limit. `owner` comes back in `lost`.
    bool publish(const QString& topic, const QByteArray& payload, bool isRetained, std::size_t owner = 0,
                 int messages = 0);

Q_SIGNALS:
    // Emitted by the thread of the connection: connect to them queued.
    void connected();
    /// A publication that `publish` accepted did not reach the broker.
    void lost(std::size_t owner, int messages);
    /// The connection ended, or an attempt failed.
    void disconnected(const QString& why);
    /// A publication arrived; `problem` is empty or the reason why it must not be used.
    void received(const QString& topic, const QByteArray& payload, const QString& problem);

private:
    void run();
    void runOnce();
    void onConnect(int code);

    std::unique_ptr<mosquitto, void (*)(mosquitto*)> m_client;
    const QByteArray m_willTopic;
    SBroker m_broker;
    QStringList m_subscriptions;

    std::mutex m_lock; ///< Guards the members up to `m_waitingMessages`.
    std::condition_variable m_wakeUp;
    bool m_isEnding = false;
    bool m_isConnected = false;
    /// A publication that waits for the broker.
    struct SStake {
        std::size_t owner;
        int messages;
    };
    std::deque<SStake> m_waiting; ///< In the order in which they are sent.
    int m_waitingMessages = 0;

    QString m_problem; ///< Used by the thread: why the broker refused.
    bool m_wasConnected = false;
    std::thread m_thread;
};

} // namespace vexmor::Apps::Cimshare
