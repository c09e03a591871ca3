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
class CMqttBridge : public CProtocol
{
    Q_OBJECT

public:
    /// All topics begin with `topic`.
    CMqttBridge(const CSharedBuses& buses, const SBroker& broker, const QString& topic, CEventLog& log);
    ~CMqttBridge() override;

    Failure start() override;

private:
    /// Lines that are published together.
    struct SBatch {
        QByteArray lines;
        int messages = 0;
    };
    /// A bus as the broker has it.
    struct SPublishedBus {
        CSharedBus* bus = nullptr;
        QString name; ///< In topics and lines.
        SBatch received;
        SBatch sent;
        int refusals = 0;                            ///< Refused lines since `endRefusals`.
        int lost = 0;                                ///< Messages lost since the last gap was published.
        std::int64_t lostSince = 0;                  ///< Time of the first of them, in microseconds.
        std::map<const char*, QJsonObject> retained; ///< The last object published, by topic.
    };

    void connectBus(SPublishedBus& published);
    QString topicOf(const SPublishedBus& published, const char* last) const;
    void onMessage(SPublishedBus& published, const SBusRecord& record);
    void publishBatch(SPublishedBus& published, const char* last, SBatch& batch);
    void flush();
    void addToGap(SPublishedBus& published, int messages);
    bool publishObject(const SPublishedBus& published, const char* last, const QJsonObject& object,
                       bool isRetained = false);
    void publishChange(SPublishedBus& published, const char* last, const QJsonObject& object);
    void publishChanges(SPublishedBus& published);
    void onConnected();
    void onReceived(const QString& topic, const QByteArray& payload, const QString& problem);
    void publishRefusal(SPublishedBus& published, const QByteArray& line, const QString& reason);
    void endRefusals(SPublishedBus& published);

    const SBroker m_broker;
    const QString m_topic;
    std::vector<SPublishedBus> m_published;
    QTimer m_batchTimer;
    QTimer m_changeTimer;
    bool m_isLossLogged = false;
    CMqttLink m_link; ///< The last member: its thread ends first.
};

} // namespace vexmor::Apps::Cimshare
