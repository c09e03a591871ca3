#pragma once

#include "canlog/problem.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QObject>
#include <QSemaphore>
#include <QStringList>

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

struct mosquitto;
struct mosquitto_message;

namespace vexmor::Apps::Cimshare
{

/// How a broker is reached.
struct SBroker {
    QStringList nodes; ///< Each as HOST[:PORT], in the order of trying: those of a cluster. Empty: no broker.
    QString credentialsFile;
    QString caFile; ///< Not empty: use TLS.
    QString certificateFile;
    QString keyFile;
    bool allowsPlaintext = false; ///< The password may be sent without TLS.

    /// Fails when a text is not a HOST[:PORT].
    static Failure checkNode(const QString& text);
};

/// A publication that arrived.
struct SArrival {
    QByteArray payload; ///< Payload; only its beginning when it is too long.
    QString problem;    ///< Why the payload must not be used; empty when it may be used.
};

/// Publications to one topic. Its size is bounded.
struct SInbox {
    std::vector<SArrival> arrivals;
    int size = 0;
    int refusedLines = 0; ///< Lines of publications that did not fit; zero when it is empty.
};

/// A connection to a broker (MQTT 3.1.1), kept by a thread of its own, the only one that waits for the network. After a
/// loss it tries the next node at once, and pauses after each round in which every node failed. The pauses grow.
class CMqttLink : public QObject
{
    Q_OBJECT

public:
    /// A broker has one connection with a client identifier, and ends an older one. The broker publishes `willPayload`,
    /// retained, when this program vanishes.
    CMqttLink(const SBroker& broker, const QByteArray& clientId, const QString& willTopic,
              const QByteArray& willPayload);
    /// Sends the waiting publications, for a second at most, and disconnects.
    ~CMqttLink() override;

    const SBroker& broker() const { return m_broker; }
    /// Reads the files. Fails when one cannot be used.
    Failure prepare();
    /// Begins to connect.
    void start();
    /// Subscribes a topic at each connection; to be called before `start`. The event loop calls `onArrived` when the
    /// inbox of the topic was empty and is no longer.
    void subscribe(const QString& topic, const std::function<void()>& onArrived)
    {
        m_subscriptions[topic.toUtf8()] = {{}, onArrived};
    }
    /// Takes what has arrived for a subscribed topic.
    SInbox take(const QString& topic);
    /// Hands a publication of `messages` messages to the broker. One without messages has the quality 1: it is sent
    /// again in the next connection when the broker has not acknowledged it. Returns false without a connection, and
    /// when too many messages wait, or too many acknowledgements are missing.
    bool publish(const QString& topic, const QByteArray& payload, bool isRetained = false, int messages = 0);

Q_SIGNALS:
    // Emitted by the thread of the connection: connect to them queued.
    void connected();
    /// The inbox of a topic was empty and is no longer.
    void arrived(const QByteArray& topic);
    /// The broker did not confirm a publication with this number of messages, which it may have received all the same.
    /// `publish` accepted the publication at the time `since`, in microseconds.
    void lost(const QString& topic, int messages, qint64 since);
    /// The connection ended, or an attempt failed.
    void disconnected(const QString& why);

private:
    Failure readCredentials();

    struct SSubscription {
        SInbox inbox;
        std::function<void()> onArrived;
    };

    /// A publication that the broker has not confirmed.
    struct SWaiting {
        QString topic;
        int messages;
        qint64 since;
    };

    void run();
    bool runOnce(const QString& node);
    void onConnect(int code);
    void onMessage(const mosquitto_message& message);
    void onAcknowledged(int id);
    int requestReceipt();
    void onReceipt();

    std::unique_ptr<mosquitto, void (*)(mosquitto*)> m_client;
    const SBroker m_broker;
    const QByteArray m_willTopic;
    QString m_problem;            ///< Used by the thread: why the broker refused.
    bool m_isAccepted = false;    ///< Used by the thread: the broker has accepted the connection.
    QElapsedTimer m_sinceRequest; ///< Used by the thread: since the last request for a receipt.

    std::mutex m_lock;                                   ///< Guards the inboxes and the next five members.
    std::map<QByteArray, SSubscription> m_subscriptions; ///< By topic.
    bool m_isConnected = false;
    std::deque<SWaiting> m_waiting; ///< In the order in which they are sent.
    std::set<int>
        m_unacknowledged; ///< Publications without messages that the broker owes an acknowledgement, by number.
    int m_waitingMessages = 0;
    std::size_t m_awaitingReceipt = 0; ///< So many of the first of them does the requested receipt confirm.

    QSemaphore m_ending; ///< Available when the thread is to end.
    std::thread m_thread;
};

} // namespace vexmor::Apps::Cimshare
