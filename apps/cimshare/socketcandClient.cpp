#include "apps/cimshare/socketcandClient.h"

#include <algorithm>
#include <utility>

namespace vexmor::Apps::Cimshare
{
namespace
{
/// Time to choose a bus, and time to read the last answers before the connection ends.
constexpr int TIME_LIMIT_MS = 10'000;
/// Pause between an answer and the first frame: clients take what they read after a command for the answer.
constexpr int QUIET_MS = 50;
/// Bytes that wait for a client that does not read: about two seconds of a full bus.
constexpr qint64 SEND_LIMIT = 1024LL * 1024;
/// Bytes of a client that are read in one turn of the event loop.
constexpr qint64 READ_LIMIT = 64LL * 1024;
constexpr std::size_t MAX_CYCLIC = 64;
constexpr std::int64_t MICROSECONDS_A_MS = 1000;

int roundedMs(std::int64_t microseconds)
{
    return static_cast<int>((microseconds + MICROSECONDS_A_MS - 1) / MICROSECONDS_A_MS);
}
} // namespace

CSocketcandClient::CSocketcandClient(QTcpSocket* socket, const CSharedBuses& buses) : m_socket(socket), m_buses(buses)
{
    m_socket->setParent(nullptr);
    m_socket->setReadBufferSize(READ_LIMIT);
    m_limitTimer.setSingleShot(true);
    m_quietTimer.setSingleShot(true);
    connect(m_socket.get(), &QTcpSocket::readyRead, this, &CSocketcandClient::onReadyRead);
    connect(m_socket.get(), &QTcpSocket::disconnected, this, &CSocketcandClient::disconnected, Qt::QueuedConnection);
    connect(&m_limitTimer, &QTimer::timeout, m_socket.get(), &QTcpSocket::abort);
    connect(&m_quietTimer, &QTimer::timeout, this, [this] { m_socket->write(std::exchange(m_waiting, {})); });
    connect(&m_statisticsTimer, &QTimer::timeout, this, &CSocketcandClient::writeStatistics);
    m_limitTimer.start(TIME_LIMIT_MS);
    answer("< hi >");
}

// ---- To the client ----

void CSocketcandClient::deliver(const Cim::CCanMessage& message, const QByteArray& element)
{
    if (m_mode == eRaw) {
        write(element);
    } else if (m_mode == eBroadcastManager) {
        const auto found = m_subscriptions.find(message.id().value());
        if (found != m_subscriptions.end()) {
            deliverSubscribed(*found->second, element);
        }
    }
}

void CSocketcandClient::deliverSubscribed(SSubscription& subscription, const QByteArray& element)
{
    if (subscription.timer.isActive()) {
        subscription.pending = element;
        return;
    }
    write(element);
    if (subscription.interval > 0) {
        subscription.timer.start(roundedMs(subscription.interval));
    }
}

void CSocketcandClient::noteSent(const Cim::CCanMessage& message)
{
    if (const auto cyclic = m_cyclic.find(message.id().value()); cyclic != m_cyclic.end()) {
        cyclic->second->isRefused = false;
    }
}

void CSocketcandClient::writeRefusal(const Cim::CCanMessage& message, const QString& reason, bool isCyclic)
{
    const auto cyclic = m_cyclic.find(message.id().value());
    const bool isKnown =
        isCyclic && (cyclic == m_cyclic.end() || std::exchange(cyclic->second->isRefused, true)); // deleted meanwhile
    if (!isKnown) {
        writeError(reason);
    }
}

void CSocketcandClient::writeError(const QString& text)
{
    write(errorElement(text));
}

void CSocketcandClient::writeStatistics()
{
    const CSharedBus::SCount& received = m_bus->received();
    const CSharedBus::SCount& sent = m_bus->sent();
    write(QStringLiteral("\n< stat %1 %2 %3 %4 >")
              .arg(received.bytes)
              .arg(received.messages)
              .arg(sent.bytes)
              .arg(sent.messages)
              .toLatin1());
}

/// Writes an answer: a segment of its own, without a line end, because clients compare what one read returns. A client
/// that sends commands and does not read the answers is disconnected.
void CSocketcandClient::answer(const QByteArray& element)
{
    if (m_socket->bytesToWrite() > SEND_LIMIT) {
        m_socket->abort();
        return;
    }
    m_socket->write(element);
    m_socket->flush();
}

void CSocketcandClient::write(const QByteArray& element)
{
    if (m_socket->bytesToWrite() + m_waiting.size() > SEND_LIMIT) {
        m_hasLost = true;
        Q_EMIT frameLost(!std::exchange(m_hasEverLost, true));
        return;
    }
    const QByteArray bytes =
        std::exchange(m_hasLost, false) ? errorElement(QStringLiteral("frames were lost")) + element : element;
    if (m_quietTimer.isActive()) {
        m_waiting += bytes;
    } else {
        m_socket->write(bytes);
    }
}

// ---- From the client ----

void CSocketcandClient::onReadyRead()
{
    if (!m_reader.feed(m_socket->readAll(), [this](const QByteArray& element) { return execute(element); })) {
        end();
    }
}

/// Ends the connection when the client has read the last answer, or after a time.
void CSocketcandClient::end()
{
    disconnect(m_socket.get(), &QTcpSocket::readyRead, this, nullptr);
    forget(eNoBus);
    m_socket->flush();
    m_socket->disconnectFromHost();
    m_limitTimer.start(TIME_LIMIT_MS);
}

/// Returns false when the connection ends with this command.
bool CSocketcandClient::execute(const QByteArray& element)
{
    auto command = readCommand(element);
    if (!command) {
        writeError(command.problem().text);
        return true;
    }
    if ((command->modes & m_mode) == 0) {
        writeError(m_bus == nullptr ? QStringLiteral("no bus is open") : QStringLiteral("not in this mode"));
        return true;
    }
    switch (command->verb) {
    case EVerb::eEcho:
        answer("< echo >");
        break;
    case EVerb::eOpen:
        return open(command->busName);
    case EVerb::eRawMode:
        setMode(eRaw);
        break;
    case EVerb::eBcmMode:
        setMode(eBroadcastManager);
        break;
    case EVerb::eControlMode:
        setMode(eControl);
        break;
    case EVerb::eSend:
        m_bus->send(command->message, *this);
        break;
    case EVerb::eStatistics:
        command->milliseconds == 0 ? m_statisticsTimer.stop() : m_statisticsTimer.start(command->milliseconds);
        break;
    case EVerb::eSubscribe:
        subscribe(*command);
        break;
    case EVerb::eUnsubscribe:
        m_subscriptions.erase(command->message.id().value());
        break;
    case EVerb::eAdd:
        addCyclic(*command);
        break;
    case EVerb::eDelete:
        m_cyclic.erase(command->message.id().value());
        break;
    }
    return m_socket->isOpen();
}

bool CSocketcandClient::open(const QByteArray& name)
{
    const auto isNamed = [&name](const auto& bus) { return bus->plainName().toUtf8() == name; };
    const auto found = std::find_if(m_buses.begin(), m_buses.end(), isNamed);
    if (found == m_buses.end()) {
        writeError(QStringLiteral("no such bus"));
        return false;
    }
    m_limitTimer.stop();
    m_bus = found->get();
    setMode(eBroadcastManager);
    if (!m_bus->status().isConnected()) {
        writeError(m_bus->connectionNotice());
    }
    return m_socket->isOpen();
}

void CSocketcandClient::setMode(EMode mode)
{
    forget(mode);
    answer("< ok >");
    m_quietTimer.start(QUIET_MS);
}

/// Changes the mode, and ends what belongs to the previous one.
void CSocketcandClient::forget(EMode mode)
{
    m_mode = mode;
    m_statisticsTimer.stop();
    m_subscriptions.clear();
    m_cyclic.clear();
}

void CSocketcandClient::subscribe(const SCommand& command)
{
    auto& subscription = m_subscriptions[command.message.id().value()];
    subscription = std::make_unique<SSubscription>();
    subscription->interval = command.microseconds;
    subscription->timer.setSingleShot(true);
    connect(&subscription->timer, &QTimer::timeout, this, [this, subscribed = subscription.get()] {
        if (!subscribed->pending.isEmpty()) {
            write(std::exchange(subscribed->pending, {}));
            subscribed->timer.start();
        }
    });
}

void CSocketcandClient::addCyclic(const SCommand& command)
{
    const std::uint16_t id = command.message.id().value();
    if (const Failure failure = m_bus->sendingProblem()) {
        writeError(failure->text);
        return;
    }
    if (m_cyclic.size() >= MAX_CYCLIC && m_cyclic.count(id) == 0) {
        writeError(QStringLiteral("too many messages are sent cyclically"));
        return;
    }
    auto& cyclic = m_cyclic[id];
    cyclic = std::make_unique<SCyclic>();
    cyclic->message = command.message;
    cyclic->timer.setTimerType(Qt::PreciseTimer);
    connect(&cyclic->timer, &QTimer::timeout, this,
            [this, sent = cyclic.get()] { m_bus->send(sent->message, *this, true); });
    cyclic->timer.start(roundedMs(command.microseconds));
}

} // namespace vexmor::Apps::Cimshare
