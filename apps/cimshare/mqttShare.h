#pragma once

#include "apps/cimshare/eventLog.h"
#include "apps/cimshare/mqttLink.h"
#include "apps/cimshare/sharedBus.h"

#include <QJsonObject>
#include <QObject>
#include <QTimer>

#include <memory>
#include <vector>

namespace vexmor::Apps::Cimshare
{

/// Publishes what is on the buses at a broker, and puts on them what is published for them there. Nothing waits for the
/// broker: what it cannot take is lost, counted, and told as a gap.
class CMqttShare : public QObject
{
    Q_OBJECT

public:
    /// All topics begin with `topic`. What is handed over outlives this.
    CMqttShare(const std::vector<CSharedBus*>& buses, const QString& topic, CEventLog& log);
    ~CMqttShare() override;

    Failure start(const SBroker& broker);
    quint64 lostMessages() const { return m_lostMessages; }

private:
    /// Lines that leave together.
    struct SBatch {
        QByteArray lines;
        int messages = 0;
    };
    /// A bus at the broker.
    struct SShared {
        CSharedBus* bus = nullptr;
        QString name; ///< in topics and lines
        SBatch received;
        SBatch sent;
        int lost = 0;               ///< since the last gap was told
        std::int64_t lostSince = 0; ///< microseconds
        QJsonObject state;          ///< as it was told
        QJsonObject load;
    };

    void connectBus(SShared& shared);
    QString topicOf(const SShared& shared, const char* last) const;
    void onMessage(SShared& shared, const Cim::CCanMessage& message, bool isSent);
    void publishBatch(SShared& shared, const char* last, SBatch& batch);
    void flush();
    void countLost(SShared& shared, int messages);
    bool publishObject(const SShared& shared, const char* last, const QJsonObject& object, bool isRetained);
    void publishOnline(bool isOnline);
    void publishChanges(SShared& shared);
    void onConnected();
    void onReceived(const QString& topic, const QByteArray& payload, const QString& problem);

    const QString m_topic;
    CEventLog& m_log;
    std::vector<SShared> m_shared;
    QTimer m_batchTimer;
    QTimer m_changeTimer;
    quint64 m_lostMessages = 0;
    bool m_isLossTold = false;
    CMqttLink m_link; ///< first to go: its thread ends
};

} // namespace vexmor::Apps::Cimshare
