#pragma once

#include "apps/cimshare/mqttLink.h"
#include "apps/cimshare/protocol.h"

#include <QJsonObject>
#include <QTimer>

#include <map>
#include <vector>

namespace vexmor::Apps::Cimshare
{

/// Publishes the messages of the buses at a broker, and sends what is published there for them. Nothing waits for the
/// broker: messages that it cannot take are lost, counted, and reported as a gap.
class CMqttBridge : public QObject, public CProtocol
{
public:
    /// All topics begin with `topic`.
    CMqttBridge(const CSharedBuses& buses, const SBroker& broker, const QString& topic, CEventLog& log);
    ~CMqttBridge() override;

    Failure start() override;

private:
    /// Lines that are published together.
    struct SBatch {
        QString topic;
        QByteArray lines;
        int messages = 0;
    };
    /// A bus as the broker has it.
    struct SPublishedBus {
        CSharedBus* bus = nullptr;
        QByteArray name; ///< In lines.
        QString topic;   ///< Above all topics of the bus, with a slash at the end.
        SBatch received;
        SBatch sent;
        int refusals = 0;                        ///< Refused lines since `endRefusals`.
        int unsent = 0;                          ///< Messages of the broker that still have no outcome.
        int lost = 0;                            ///< Messages lost since the last gap was published.
        std::int64_t lostSince = 0;              ///< Time of the first of them, in microseconds.
        std::map<QString, QJsonObject> retained; ///< The last object published, by the end of its topic.
    };

    void connectBus(SPublishedBus& published, CSharedBus& bus);
    void onMessage(SPublishedBus& published, const SBusRecord& record);
    void publishBatch(SBatch& batch);
    void flush();
    void onLost(const QString& topic, int messages, qint64 since);
    void publishChange(SPublishedBus& published, const QString& last, const QJsonObject& object);
    void publishChanges(SPublishedBus& published);
    void onConnected();
    void takeState();
    void sendNext(SPublishedBus& published);
    void publishRefusal(SPublishedBus& published, const QByteArray& line, const QString& reason);
    void endRefusals(SPublishedBus& published);

    const QString m_topic;
    const QString m_service;       ///< Names this service among others with the same topic.
    bool m_isOwnStateSeen = false; ///< The broker has delivered a state of this service.
    bool m_isStateWrong = false;   ///< The broker has another state than this service.
    std::vector<SPublishedBus> m_published;
    QTimer m_batchTimer;
    QTimer m_changeTimer;
    bool m_isLossLogged = false;
    bool m_isOtherLogged = false; ///< Another service with this topic, since the connection began.
    CMqttLink m_link;             ///< The last member: its thread ends first.
};

} // namespace vexmor::Apps::Cimshare
