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

/// The user's settings for the connection to a broker.
struct SBroker {
    /// Nodes of the broker, each as HOST[:PORT], in the order in which they are tried. Empty: no broker is used.
    QStringList nodes;
    QString credentialsFile;
    QString caFile; ///< Certificate authority; when not empty, the connection uses TLS.
    QString certificateFile;
    QString keyFile;
    bool allowsPlaintext = false; ///< Allow sending the password without TLS.

    /// Fails when a text does not have the form HOST[:PORT].
    static Failure checkNode(const QString& text);
};

/// A publication that arrived.
struct SArrival {
    QByteArray payload; ///< The text of the publication; only its beginning if it is too long.
    QString problem;    ///< The reason why the publication must not be used, or empty.
};

/// Publications that arrived for one topic and wait to be taken, bounded in size.
struct SInbox {
    std::vector<SArrival> arrivals;
    int size = 0;
    int refusedLines = 0; ///< Number of lines of publications that did not fit; 0 while `arrivals` is empty.
};

/// A connection to a broker (MQTT 3.1.1). Its own thread opens it, keeps it open, and is the only thread that waits for
/// the network. After a loss, the next node is tried at once; after a round in which every node failed, the thread
/// pauses, each time for longer. All functions are called by the thread of this object.
class CMqttLink : public QObject
{
    Q_OBJECT

public:
    /// A broker keeps one connection per client identifier and ends an older one. It publishes `willPayload` on
    /// `willTopic`, retained, when this program vanishes.
    CMqttLink(const SBroker& broker, const QByteArray& clientId, const QString& willTopic,
              const QByteArray& willPayload);
    /// Waits up to one second until the pending publications are sent, and disconnects.
    ~CMqttLink() override;

    const SBroker& broker() const { return m_broker; }
    /// Reads the files with credentials and certificates. Fails when one cannot be used.
    Failure prepare();
    /// Starts the thread, which begins to connect.
    void start();
    /// Subscribes to a topic in each connection; must be called before `start`. The event loop calls `onArrived` when
    /// the inbox of the topic was empty and a publication has arrived.
    void subscribe(const QString& topic, const std::function<void()>& onArrived)
    {
        m_subscriptions[topic.toUtf8()] = {{}, onArrived};
    }
    /// Returns the publications that have arrived for a subscribed topic, and empties its inbox.
    SInbox take(const QString& topic);
    /// Queues a publication that contains `messages` CAN messages. A publication without messages has quality of
    /// service 1: when the broker has not acknowledged it, it is sent again in the next connection. Returns false when
    /// there is no connection, when too many messages wait, or when too many acknowledgements are missing.
    bool publish(const QString& topic, const QByteArray& payload, bool isRetained = false, int messages = 0);

Q_SIGNALS:
    // Emitted by the thread of the connection: receivers must use queued connections.
    void connected();
    /// The inbox of a topic was empty, and a publication has arrived.
    void arrived(const QByteArray& topic);
    /// The broker did not confirm a publication, which it may have read nevertheless. `since` is the time at which
    /// `publish` accepted it, in microseconds since the epoch.
    void lost(const QString& topic, int messages, qint64 since);
    /// The connection ended, or an attempt to connect failed.
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
    QString m_problem;            ///< Used by the thread only: the reason why the connection failed.
    bool m_isAccepted = false;    ///< Used by the thread only: the broker has accepted the connection.
    QElapsedTimer m_sinceRequest; ///< Used by the thread only: time since the last request for a receipt.

    /// Guards the inboxes in `m_subscriptions`, and the five members after it.
    std::mutex m_lock;
    std::map<QByteArray, SSubscription> m_subscriptions; ///< By topic.
    bool m_isConnected = false;
    std::deque<SWaiting> m_waiting; ///< Unconfirmed publications, in the order of sending.
    /// Numbers of the publications with quality of service 1 that the broker has not acknowledged.
    std::set<int> m_unacknowledged;
    int m_waitingMessages = 0;
    /// Number of the oldest publications in `m_waiting` that the requested receipt will confirm.
    std::size_t m_awaitingReceipt = 0;

    QSemaphore m_ending; ///< Released when the thread must end.
    std::thread m_thread;
};

} // namespace vexmor::Apps::Cimshare
