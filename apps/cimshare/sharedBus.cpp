#include "apps/cimshare/sharedBus.h"

#include "apps/host/embeddedSim.h"
#include "apps/host/hostedInterface.h"

#include <QTimer>

#include <algorithm>
#include <utility>

namespace vexmor::Apps::Cimshare
{
namespace
{
/// The names of the events that report a new state of the connection, in the order of EConnection.
constexpr const char* CONNECTION_EVENTS[] = {"closed", "connecting", "noAnswer", "open", "silent", "away"};
} // namespace

CSharedBus::CSharedBus(CTarget target, std::unique_ptr<Cim::CCanInterface> canInterface,
                       const SSendPermission& permission, CEventLog& log)
    : m_target(std::move(target)),
      m_canInterface(std::move(canInterface)),
      m_permission(permission),
      m_log(log),
      m_knownId(m_canInterface->commonInfo().interfaceId())
{
    connect(m_mailbox.get(), &CMailbox::filled, this, &CSharedBus::onMail, Qt::QueuedConnection);
}

void CSharedBus::start()
{
    std::unique_ptr<Cim::CCanInterface> clone(m_canInterface->clone());
    m_inUse = std::make_unique<CInterfaceInUse>(std::move(clone), m_mailbox, ++m_source,
                                                CInterfaceInUse::EOpening::eUntilOpen);
    m_status = m_inUse->status();
    connect(m_inUse.get(), &CInterfaceInUse::statusChanged, this, &CSharedBus::onStatus);
    if (m_target.sim() != nullptr) {
        m_target.sim()->startTraffic();
    }
}

QString CSharedBus::plainName() const
{
    QString result = name();
    std::replace_if(
        result.begin(), result.end(),
        [](QChar one) { return one.isSpace() || !one.isPrint() || QStringLiteral("/+#$<>").contains(one); },
        QLatin1Char('_'));
    return result;
}

Failure CSharedBus::identityProblem() const
{
    const QString& id = m_status.interfaceId;
    if (id.isEmpty()) {
        return SProblem{QStringLiteral("gateway: its MAC address is not known yet")};
    }
    const bool isKnown = m_knownId.isEmpty() || id.compare(m_knownId, Qt::CaseInsensitive) == 0;
    return isKnown ? Failure()
                   : SProblem{QStringLiteral("gateway: its MAC address is %1, expected %2").arg(id, m_knownId)};
}

QString CSharedBus::connectionNotice() const
{
    return QStringLiteral("gateway: ") + connectionText(status());
}

QString CSharedBus::errorTitle(int error, quint64 count) const
{
    const QString times = count == 1 ? QString() : QStringLiteral(" (%1 times)").arg(count);
    return titleOf(m_canInterface->interfaceErrorToString(error)) + times;
}

// ---- Sending ----

Failure CSharedBus::permit(std::uint16_t id, QObject& client, const QString& protocol)
{
    Failure failure = m_permission.rules.problem(protocol, name(), id);
    if (!failure && m_permission.isPinned && status().hasLink()) {
        failure = identityProblem();
    }
    if (const int most = m_permission.messagesPerSecond; most > 0 && !failure) {
        if (m_messages.empty()) {
            QTimer::singleShot(SECOND_MS, this, [this] { m_messages.clear(); });
        }
        if (++m_messages[&client] > most) {
            failure = SProblem{QStringLiteral("more than %1 messages per second (--send-limit)").arg(most)};
        }
    }
    const QString clientName = protocol + QLatin1Char(' ') + client.objectName();
    if (failure) {
        print("refused", QStringLiteral("message from %1 refused: %2").arg(clientName, failure->text));
    } else if (!client.property("sends").toBool()) {
        client.setProperty("sends", true);
        print("sends", clientName + QStringLiteral(" sends"));
    }
    return failure;
}

void CSharedBus::send(const Cim::CCanMessage& message, QObject& client, const QString& protocol,
                      const Outcome& onOutcome)
{
    Failure failure = permit(message.id().value(), client, protocol);
    // Without a link, the message must not be sent: it would wait and reach the bus after the connection is back.
    if (!failure && !status().hasLink()) {
        failure = SProblem{connectionNotice()};
    } else if (!failure && !m_inUse->send(message)) {
        failure = SProblem{QStringLiteral("too many messages are waiting to be sent")};
    }
    if (failure) {
        ++m_refused;
        onOutcome(failure);
    } else {
        m_pending[m_source].push_back({&client, onOutcome});
    }
}

void CSharedBus::takeOutcome(const SBusRecord& record)
{
    std::deque<SPending>& queue = m_pending[record.source];
    const SPending pending = std::move(queue.front());
    queue.pop_front();
    Failure failure;
    if (record.code == 0) {
        Q_EMIT messageSent(record, pending.client ? pending.client.data() : this);
    } else {
        ++m_refused;
        failure = SProblem{m_canInterface->errorCodeToString(record.code), record.code};
    }
    if (pending.client) {
        pending.onOutcome(failure);
    }
}

// ---- What the interface reports ----

void CSharedBus::onMail()
{
    m_mailbox->take(m_delivery);
    for (const SBusRecord& record : m_delivery.records) {
        if (record.code == 0) {
            SCount& total = record.sent ? m_sent : m_received;
            ++total.messages;
            total.bytes += record.message.length();
        }
        if (record.sent) {
            takeOutcome(record);
        } else {
            Q_EMIT messageSent(record, nullptr);
        }
    }
    for (const SErrorRecord& error : m_delivery.errors) {
        m_errorCounts[error.error] += error.count;
        reportError(error.error, error.count);
    }
    m_lost += m_delivery.lost;
}

void CSharedBus::reportError(int error, quint64 count)
{
    const auto reportFurther = [this] {
        for (const auto& [further, times] : std::exchange(m_errors, {})) {
            if (times > 0) {
                reportError(further, times);
            }
        }
    };
    if (m_errors.empty()) {
        QTimer::singleShot(SECOND_MS, this, reportFurther);
    }
    const auto [kind, isFirst] = m_errors.try_emplace(error, 0);
    if (isFirst) {
        print("interfaceError", QStringLiteral("interface error %1: %2").arg(error).arg(errorTitle(error, count)));
        Q_EMIT errorRaised(error, count);
    } else {
        kind->second += count;
    }
}

void CSharedBus::onStatus()
{
    const SInterfaceStatus before = std::exchange(m_status, m_inUse->status());
    if (m_status.connection != before.connection) {
        print(CONNECTION_EVENTS[static_cast<int>(m_status.connection)], connectionTextWithReason(m_status));
        Q_EMIT connectionChanged();
    }
    const QString identity = m_status.interfaceId + m_status.firmwareVersion;
    if (m_status.isIdentified() && std::exchange(m_identity, identity) != identity) {
        m_knownId = m_knownId.isEmpty() ? m_status.interfaceId : m_knownId;
        print("identified", QStringLiteral("%1, firmware %2").arg(m_status.interfaceId, m_status.firmwareVersion));
        if (const Failure failure = identityProblem()) {
            print("anotherGateway", failure->text);
        }
        Q_EMIT identified();
    }
    const bool isSilent = m_status.connection == EConnection::eSilent && before.connection != EConnection::eSilent;
    const bool isOverUdp = m_canInterface->property("Protocol").toString() == QLatin1String("UDP");
    const bool wasLost = !m_status.hasLink() || m_status.losses != before.losses;
    if (m_permission.isPinned && before.hasLink() && (wasLost || (isSilent && isOverUdp))) {
        // Opens again and forgets the identity, because the gateway that answers next may be another one.
        start();
    }
}

} // namespace vexmor::Apps::Cimshare
