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
/// what the gateway receives reaches all clients. Keeps the interface open: tries until that succeeds, and again when
/// the link was lost. Logs what happens to the gateway, which client begins to send, and which message is refused.
class CSharedBus : public QObject
{
    Q_OBJECT

public:
    /// Messages, and their data bytes.
    struct SCount {
        quint64 messages = 0;
        quint64 bytes = 0;
    };

    using Outcome = std::function<void(const Failure& failure)>;

    /// Takes over a closed interface. `permission` has what clients may send. It and the log outlive the bus.
    CSharedBus(CTarget target, std::unique_ptr<Cim::CCanInterface> canInterface, const SSendPermission& permission,
               CEventLog& log);

    /// Begins to open the interface, or begins anew.
    void start();
    /// Hands a message of a client of `protocol` to the gateway. The log names the client by its object name.
    /// `onOutcome` is called once, perhaps at once: with no failure when
    /// the message was sent, otherwise with the reason why it never will be. It is not called after the end of the
    /// client.
    void send(const Cim::CCanMessage& message, QObject& client, const QString& protocol, const Outcome& onOutcome);
    /// Returns why a client may not send an identifier now, or nothing. Counts for the limit of messages.
    Failure permit(std::uint16_t id, QObject& client, const QString& protocol);

    QString name() const { return m_target.name(); }
    /// The name as it stands in topics and socketcand elements: blanks, unprintable characters and /+#$<> become "_".
    QString plainName() const;
    /// Empty when the gateway is the known one: the stored one or, where none is stored, the first one since the start.
    Failure identityProblem() const;
    /// What is known of the connection to the gateway.
    const SInterfaceStatus& status() const { return m_status; }
    /// The same as a line for clients.
    QString connectionNotice() const;
    /// The port text of the gateway.
    QString port() const { return m_canInterface->commonInfo().port(); }
    /// In kbit/s; 0: unchanged.
    int bitRate() const { return m_canInterface->baudrate(); }
    /// The first line of the interface's text for one of its errors, which says what happened; the other lines say what
    /// to do. With the number of errors, where there were several.
    QString errorTitle(int error, quint64 count = 1) const;
    const SCount& received() const { return m_received; }
    const SCount& sent() const { return m_sent; }
    /// Messages of clients that were not sent.
    quint64 refused() const { return m_refused; }
    /// Errors of the interface, by their numbers: those that were raised, and "bus off".
    const std::map<int, quint64>& errors() const { return m_errorCounts; }
    /// Counts messages that did not reach a client of a protocol, or the broker.
    void countLost(const QString& protocol, int messages)
    {
        m_lost += static_cast<quint64>(messages);
        m_lostByProtocol[protocol] += static_cast<quint64>(messages);
    }
    const std::map<QString, quint64>& lostByProtocol() const { return m_lostByProtocol; }
    /// Returns the number of these, and of received messages that were lost because this program was busy for too long.
    quint64 lost() const { return m_lost; }

Q_SIGNALS:
    /// A message was on the bus. `client` sent it, or this object for a client that has ended; null: the gateway
    /// received it.
    void messageSent(const vexmor::Apps::SBusRecord& record, const QObject* client);
    /// The interface raised an error so many times. Further errors of the same kind are reported once a second.
    void errorRaised(int error, quint64 count);
    /// The state of the connection is another one.
    void connectionChanged();
    /// The gateway has sent its identity, or another one than before.
    void identified();

private:
    /// A message whose outcome has not come yet.
    struct SPending {
        QPointer<QObject> client;
        Outcome onOutcome;
    };

    static constexpr int SECOND_MS = 1000; ///< The time that the limits of messages and of errors are counted in.

    void print(const char* event, const QString& text) { m_log.printLimited(event, name(), text); }
    void onMail();
    void takeOutcome(const SBusRecord& record);
    void reportError(int error, quint64 count);
    void onStatus();

    const CTarget m_target;
    const std::unique_ptr<Cim::CCanInterface> m_canInterface; ///< stays closed: a clone is used
    const SSendPermission& m_permission;
    CEventLog& m_log;
    const std::shared_ptr<CMailbox> m_mailbox = std::make_shared<CMailbox>();
    std::unique_ptr<CInterfaceInUse> m_inUse; ///< null before the start
    SDelivery m_delivery;
    std::uint16_t m_source = 0; ///< Of the records of `m_inUse`: another one after each start.
    std::map<std::uint16_t, std::deque<SPending>> m_pending; ///< By source, in the order of sending.
    std::map<int, quint64> m_errors; ///< Kinds that were reported in this second, and errors to report at its end.
    SInterfaceStatus m_status;
    QString m_identity;
    QString m_knownId;                        ///< MAC address of the known gateway.
    std::map<const QObject*, int> m_messages; ///< Of each client in this second, sent or not.
    SCount m_received;
    SCount m_sent;
    quint64 m_lost = 0;
    std::map<QString, quint64> m_lostByProtocol;
    quint64 m_refused = 0;
    std::map<int, quint64> m_errorCounts{{Cim::IE_CAN_BUS_OFF, 0}}; ///< An alert notices the step from 0.
};

using CSharedBuses = std::vector<std::unique_ptr<CSharedBus>>;

} // namespace vexmor::Apps::Cimshare
