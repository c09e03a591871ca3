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
    QString host;
    int port = 0; ///< 0: 1883, and 8883 with a certificate authority
    QString credentialsFile;
    QString caFile; ///< with it: TLS
    QString certificateFile;
    QString keyFile;

    /// Takes HOST[:PORT].
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
    /// Sends what waits, for a second at most, and disconnects.
    ~CMqttLink() override;

    /// Begins to connect. Fails when a file cannot be used.
    Failure start(const SBroker& broker);
    /// Subscribed at each connection. Before `start`.
    void subscribe(const QString& topic) { m_subscriptions.append(topic); }
    /// Hands a publication to the broker. False when there is no connection, or so much waits for it that nothing more
    /// is taken. It stands for so many messages of `owner`, whoever that is; without messages the limit is not looked
    /// at.
    bool publish(const QString& topic, const QByteArray& payload, bool isRetained, std::size_t owner = 0,
                 int messages = 0);

Q_SIGNALS:
    // From the thread of the connection: to be connected to queued.
    void connected();
    /// Taken by `publish`, and never left.
    void lost(std::size_t owner, int messages);
    /// Or not even connected.
    void disconnected(const QString& why);
    /// `problem` tells why it must not be used.
    void received(const QString& topic, const QByteArray& payload, const QString& problem);

private:
    void run();
    void runOnce();
    bool waitBeforeNext(int seconds);
    void onConnect(int code);

    struct SDeleter {
        void operator()(mosquitto* client) const;
    };
    std::unique_ptr<mosquitto, SDeleter> m_client;
    const QByteArray m_willTopic;
    SBroker m_broker;
    QStringList m_subscriptions;

    std::mutex m_lock; ///< guards what follows
    std::condition_variable m_wakeUp;
    bool m_isEnding = false;
    bool m_isConnected = false;
    /// Of a publication that waits for the broker.
    struct SStake {
        std::size_t owner;
        int messages;
    };
    std::deque<SStake> m_waiting; ///< in the order in which they leave
    int m_waitingMessages = 0;

    QString m_problem; ///< of the thread: why the broker refused
    bool m_wasConnected = false;
    std::thread m_thread;
};

} // namespace vexmor::Apps::Cimshare
