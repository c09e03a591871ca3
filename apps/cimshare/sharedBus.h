#pragma once

#include "apps/cimshare/eventLog.h"
#include "apps/cimshare/sendRules.h"
#include "apps/host/interfaceInUse.h"
#include "apps/host/target.h"
#include "canlog/problem.h"
#include "cim/resultCodes.h"

#include <QObject>
#include <QPointer>

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <vector>

namespace vexmor::Apps::Cimshare
{

/// The CAN bus behind a gateway, for many clients: what one client sends reaches the gateway and all other clients;
/// what the gateway receives reaches all clients. Keeps the interface open: retries until opening succeeds, and again
/// after a loss. Logs the state of the gateway, the first message that each client sends, and refused messages.
class CSharedBus : public QObject
{
    Q_OBJECT

public:
    /// A number of messages, and of their data bytes.
    struct SCount {
        quint64 messages = 0;
        quint64 bytes = 0;
    };

    using Outcome = std::function<void(const Failure& failure)>;

    /// Takes ownership of a closed interface. `permission` and `log` must outlive the bus.
    CSharedBus(CTarget target, std::unique_ptr<Cim::CCanInterface> canInterface, const SSendPermission& permission,
               CEventLog& log);

    /// Begins to open the interface. A further call closes it and begins again.
    void start();
    /// Sends a message of a client of `protocol`; the log names the client by its object name. `onOutcome` is called
    /// once, possibly before this function returns: without a failure when the message was sent, otherwise with the
    /// reason why it will not be sent. It is not called after the client was deleted.
    void send(const Cim::CCanMessage& message, QObject& client, const QString& protocol, const Outcome& onOutcome);
    /// Returns the reason why a client may not send an identifier now, or no failure when it may. Each call counts
    /// towards the client's limit of messages per second.
    Failure permit(std::uint16_t id, QObject& client, const QString& protocol);

    QString name() const { return m_target.name(); }
    /// Returns the name for topics and socketcand elements, in which blanks, unprintable characters and /+#$<> are
    /// replaced by "_".
    QString plainName() const;
    /// Returns no failure when the gateway is the known one: the stored one or, if none is stored, the first one since
    /// the start. Fails when another gateway answers, or when the gateway has not reported its identity yet.
    Failure identityProblem() const;
    /// Returns the state of the connection to the gateway.
    const SInterfaceStatus& status() const { return m_status; }
    /// Returns the state of the connection as a line of text for clients.
    QString connectionNotice() const;
    /// Returns the port text, such as IP=192.168.1.70:30000:TCP, which contains the address of the gateway.
    QString port() const { return m_canInterface->commonInfo().port(); }
    /// Returns the bit rate in kbit/s; 0 means that the gateway's own rate is left unchanged.
    int bitRate() const { return m_canInterface->baudrate(); }
    /// Returns the first line of the text of an interface error, which states what happened; the other lines state what
    /// to do. If `count` is not 1, the number of errors is added.
    QString errorTitle(int error, quint64 count = 1) const;
    const SCount& received() const { return m_received; }
    const SCount& sent() const { return m_sent; }
    /// Returns the number of clients' messages that were not sent.
    quint64 refused() const { return m_refused; }
    /// Returns how often each error of the interface was raised, by its number. "Bus off" always has an entry.
    const std::map<int, quint64>& errors() const { return m_errorCounts; }
    /// Counts messages that were lost on the way to a client of a protocol or to the broker.
    void countLost(const QString& protocol, int messages)
    {
        m_lost += static_cast<quint64>(messages);
        m_lostByProtocol[protocol] += static_cast<quint64>(messages);
    }
    const std::map<QString, quint64>& lostByProtocol() const { return m_lostByProtocol; }
    /// Returns the number of all lost messages: messages counted by `countLost`, and received messages that were lost
    /// because this program was busy for too long.
    quint64 lost() const { return m_lost; }

Q_SIGNALS:
    /// A message was on the bus. `client` is the client that sent it, this object if that client no longer exists, or
    /// null if the gateway received it.
    void messageSent(const vexmor::Apps::SBusRecord& record, const QObject* client);
    /// The interface raised an error `count` times. Further errors with the same number are reported once per second.
    void errorRaised(int error, quint64 count);
    /// The state of the connection has changed.
    void connectionChanged();
    /// The gateway has reported its identity for the first time, or a different one than before.
    void identified();

private:
    /// A sent message whose outcome is not known yet.
    struct SPending {
        QPointer<QObject> client;
        Outcome onOutcome;
    };

    static constexpr int SECOND_MS = 1000; ///< Period of the limits for messages and errors.

    void print(const char* event, const QString& text) { m_log.printLimited(event, name(), text); }
    void onMail();
    void takeOutcome(const SBusRecord& record);
    void reportError(int error, quint64 count);
    void onStatus();

    const CTarget m_target;
    const std::unique_ptr<Cim::CCanInterface> m_canInterface; ///< Stays closed; `m_inUse` works with a clone.
    const SSendPermission& m_permission;
    CEventLog& m_log;
    const std::shared_ptr<CMailbox> m_mailbox = std::make_shared<CMailbox>();
    std::unique_ptr<CInterfaceInUse> m_inUse; ///< The opened clone; null before the start.
    SDelivery m_delivery;
    std::uint16_t m_source = 0; ///< Source number in the records of `m_inUse`; increases with each start.
    /// Messages without an outcome, by source, in the order of sending.
    std::map<std::uint16_t, std::deque<SPending>> m_pending;
    /// Errors reported in this second, by number, each with the number of repetitions to report at the end of the
    /// second.
    std::map<int, quint64> m_errors;
    SInterfaceStatus m_status;
    QString m_identity;
    QString m_knownId;                        ///< MAC address of the known gateway.
    std::map<const QObject*, int> m_messages; ///< Messages of each client in this second, sent or not.
    SCount m_received;
    SCount m_sent;
    quint64 m_lost = 0;
    std::map<QString, quint64> m_lostByProtocol;
    quint64 m_refused = 0;
    /// Number of errors raised, by error. "Bus off" starts at 0, because an alert needs to see the step from 0.
    std::map<int, quint64> m_errorCounts{{Cim::IE_CAN_BUS_OFF, 0}};
};

using CSharedBuses = std::vector<std::unique_ptr<CSharedBus>>;

} // namespace vexmor::Apps::Cimshare
