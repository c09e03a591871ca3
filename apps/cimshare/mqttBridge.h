#pragma once

#include "apps/cimshare/mqttLink.h"
#include "apps/cimshare/mqttText.h"
#include "apps/cimshare/protocol.h"

#include <QJsonObject>
#include <QTimer>

#include <map>
#include <vector>

namespace vexmor::Apps::Cimshare
{

/// Publishes the messages of the buses at a broker, and sends on the buses what other programs publish there. Nothing
/// waits for the broker: messages that it does not accept in time are lost, counted, and reported as a gap.
class CMqttBridge : public QObject, public CProtocol
{
public:
    CMqttBridge(const CSharedBuses& buses, const SBroker& broker, const SMqttForm& form, CEventLog& log);
    ~CMqttBridge() override;

    Failure prepare() override { return m_link.prepare(); }
    void printPlan() override;
    Failure start() override;
    std::optional<bool> isBrokerConnected() const override { return m_isConnected; }

private:
    /// Messages that are published together.
    struct SBatch {
        QString topic;
        QByteArrayList messages;
    };
    /// The last message with an identifier.
    struct SLast {
        SBusRecord record;
        bool isPublished = false;
    };
    /// A bus, and the state of its publications.
    struct SPublishedBus {
        CSharedBus* bus = nullptr;
        QByteArray name; ///< Name of the bus in the lines of the log format.
        QString topic;   ///< Common beginning of all topics of the bus, with a slash at the end.
        SBatch received;
        SBatch sent;
        int refusals = 0;                    ///< Refused lines since the last call of `endRefusals`.
        int unsent = 0;                      ///< Messages from the broker whose outcome is not known yet.
        int lost = 0;                        ///< Messages lost since the last gap was published.
        std::int64_t lostSince = 0;          ///< Time of the first lost message, in microseconds since the epoch.
        std::map<std::uint16_t, SLast> last; ///< Last messages by identifier.
    };

    void connectBus(SPublishedBus& published, CSharedBus& bus);
    void onMessage(SPublishedBus& published, const SBusRecord& record);
    void publishBatch(SBatch& batch);
    void flush();
    void onLost(const QString& topic, int messages, qint64 since);
    bool publishObject(const QString& topic, QJsonObject object, bool isRetained = false);
    void publishChange(const QString& topic, const QJsonObject& object);
    void publishChanges(SPublishedBus& published);
    void publishLast(SPublishedBus& published);
    QJsonObject serviceState(bool isOnline) const;
    void publishAllChanges();
    void onConnected();
    void takeState();
    void sendNext(SPublishedBus& published);
    void publishRefusal(SPublishedBus& published, const QByteArray& line, const QString& reason);
    void endRefusals(SPublishedBus& published);

    const CSharedBuses& m_buses;
    const SMqttForm m_form;
    const QString m_topic;         ///< Common beginning of all topics, with a slash at the end.
    const QString m_service;       ///< Host name and process number of this service.
    bool m_isOwnStateSeen = false; ///< The broker has delivered a state that this service published.
    bool m_isStateWrong = false;   ///< The state at the broker is wrong and must be published again.
    std::vector<SPublishedBus> m_published;
    std::map<QString, QJsonObject> m_retained; ///< Object last published to each topic in this connection.
    QTimer m_batchTimer;
    QTimer m_changeTimer;
    std::optional<bool> m_isConnected;
    bool m_isOtherLogged = false; ///< Another service with the same topic was logged since the connection began.
    CMqttLink m_link;             ///< The last member, so that its thread ends first.
};

} // namespace vexmor::Apps::Cimshare
