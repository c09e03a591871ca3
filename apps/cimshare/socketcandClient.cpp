#include "apps/cimshare/socketcandClient.h"

#include "apps/cimshare/addresses.h"
#include "apps/host/clock.h"

#include <utility>

namespace vexmor::Apps::Cimshare
{
namespace
{
/// Pause between an answer and the first frame: clients expect that the bytes they read after a command are only the
/// answer.
constexpr int QUIET_MS = 50;
/// The pause after a bus was opened, which is longer: the client chooses a mode next, and its commands may be slow to
/// arrive.
constexpr int OPENED_QUIET_MS = 500;
/// Maximum of the bytes of frames that wait for a client that does not read: about two seconds of a fully loaded bus.
constexpr qint64 SEND_LIMIT = 1024LL * 1024;
/// Maximum of all bytes that wait for a client, answers included. Above it, the commands of the client are not read.
constexpr qint64 ANSWER_LIMIT = SEND_LIMIT + 64LL * 1024;
/// Maximum of the bytes of a client that are read in one turn of the event loop.
constexpr qint64 READ_LIMIT = 1024;
constexpr std::size_t MAX_CYCLIC = 64;
const QString PROTOCOL = QStringLiteral("socketcand");
} // namespace

CSocketcandClient::CSocketcandClient(std::unique_ptr<QTcpSocket> socket, const CBusesByName& buses)
    : m_socket(std::move(socket)), m_buses(buses)
{
    setObjectName(peerOf(*m_socket));
    m_socket->setParent(nullptr);
    m_socket->setReadBufferSize(READ_LIMIT);
    m_limitTimer.setSingleShot(true);
    m_quietTimer.setSingleShot(true);
    connect(m_socket.get(), &QTcpSocket::readyRead, this, &CSocketcandClient::onReadyRead);
    connect(m_socket.get(), &QTcpSocket::bytesWritten, this, &CSocketcandClient::onReadyRead, Qt::QueuedConnection);
    connect(m_socket.get(), &QTcpSocket::disconnected, this, &CSocketcandClient::disconnected, Qt::QueuedConnection);
    connect(&m_limitTimer, &QTimer::timeout, m_socket.get(), &QTcpSocket::abort);
    connect(&m_quietTimer, &QTimer::timeout, this, [this] { put(std::exchange(m_waiting, {})); });
    connect(&m_statisticsTimer, &QTimer::timeout, this, &CSocketcandClient::writeStatistics);
    m_limitTimer.start(CAdmission::TIME_LIMIT_MS);
    answer("< hi >");
}

// ---- To the client ----

void CSocketcandClient::deliver(const Cim::CCanMessage& message, const QByteArray& element)
{
    if (m_mode == eRaw) {
        write(element);
        return;
    }
    // There are subscriptions only in broadcast manager mode.
    const auto found = m_subscriptions.find(message.id().value());
    if (found != m_subscriptions.end()) {
        found->second.pending = element;
        deliverPending(found->second);
    }
}

void CSocketcandClient::deliverPending(SSubscription& subscription)
{
    if (!subscription.timer.isActive() && !subscription.pending.isEmpty()) {
        write(std::exchange(subscription.pending, {}));
        if (subscription.timer.interval() > 0) {
            subscription.timer.start();
        }
    }
}

void CSocketcandClient::writeError(const QString& text, EErrorClass errorClass)
{
    write(m_bus == nullptr ? errorElement(text) : errorElement(errorClass, microsecondsNow(), text));
}

void CSocketcandClient::writeStatistics()
{
    const CSharedBus::SCount& received = m_bus->received();
    const CSharedBus::SCount& sent = m_bus->sent();
    write(QString::asprintf("\n< stat %llu %llu %llu %llu >", received.bytes, received.messages, sent.bytes,
                            sent.messages)
              .toLatin1());
}

/// Writes an answer in a segment of its own and without a line end, because clients compare the result of one read with
/// it.
void CSocketcandClient::answer(const QByteArray& element)
{
    put(element);
    m_socket->flush();
}

void CSocketcandClient::write(const QByteArray& element)
{
    if (m_socket->bytesToWrite() + m_waiting.size() > SEND_LIMIT) {
        m_hasLost = true;
        Q_EMIT frameLost();
        return;
    }
    if (std::exchange(m_hasLost, false)) {
        writeError(QStringLiteral("frames were lost"), EErrorClass::eLost);
    }
    if (m_quietTimer.isActive()) {
        m_waiting += element;
    } else {
        put(element);
    }
}

void CSocketcandClient::put(const QByteArray& bytes)
{
    if (m_socket->isOpen()) { // when it is closed, `disconnected` follows
        m_socket->write(bytes);
    }
}

// ---- From the client ----

/// Reads and executes commands, unless too many bytes wait for the client.
void CSocketcandClient::onReadyRead()
{
    if (m_mode == eEnded || !m_socket->isOpen() || m_socket->bytesToWrite() > ANSWER_LIMIT) {
        return;
    }
    const auto onElement = [this](const QByteArray& element) {
        execute(element);
        return m_mode != eEnded;
    };
    m_stream += m_socket->readAll();
    if (!takeElements(m_stream, onElement)) {
        end();
    }
}

/// Ends the connection after the client has read the last answer, or after TIME_LIMIT_MS.
void CSocketcandClient::end()
{
    forget(eEnded);
    put(std::exchange(m_waiting, {}));
    m_socket->flush();
    m_socket->disconnectFromHost();
    m_limitTimer.start(CAdmission::TIME_LIMIT_MS);
}

void CSocketcandClient::execute(const QByteArray& element)
{
    using CClient = CSocketcandClient;
    static const std::map<QByteArray, std::function<void(CClient&, const SCommand&)>> ACTIONS = {
        {"open", &CClient::open},
        {"rawmode", [](CClient& client, auto& /*command*/) { client.setMode(eRaw); }},
        {"bcmmode", [](CClient& client, auto& /*command*/) { client.setMode(eBroadcastManager); }},
        {"controlmode", [](CClient& client, auto& /*command*/) { client.setMode(eControl); }},
        {"echo", [](CClient& client, auto& /*command*/) { client.answer("< echo >"); }},
        {"send", &CClient::send},
        {"statistics",
         [](CClient& client, auto& command) {
             QTimer& timer = client.m_statisticsTimer;
             command.milliseconds == 0 ? timer.stop() : timer.start(command.milliseconds);
         }},
        {"subscribe", &CClient::subscribe},
        {"unsubscribe", [](CClient& client, auto& command) { client.m_subscriptions.erase(command.id()); }},
        {"add", &CClient::addCyclic},
        {"delete",
         [](CClient& client, auto& command) {
             client.m_cyclic.erase(command.id());
             limitSilence(*client.m_socket, !client.m_cyclic.empty());
         }},
    };
    auto command = readCommand(element);
    if (!command) {
        writeError(command.problem().text);
    } else if ((command->modes & m_mode) == 0) {
        writeError(m_bus == nullptr ? QStringLiteral("no bus is open") : QStringLiteral("not possible in this mode"));
    } else {
        ACTIONS.at(command->verb)(*this, *command);
    }
}

void CSocketcandClient::open(const SCommand& command)
{
    const auto found = m_buses.find(command.busName);
    if (found == m_buses.end()) {
        writeError(QStringLiteral("no such bus"));
        end();
        return;
    }
    m_limitTimer.stop();
    if (m_bus != nullptr) {
        m_bus->disconnect(this);
    }
    m_bus = found->second;
    connect(m_bus, &CSharedBus::errorRaised, this,
            [this](int error, quint64 count) { writeError(m_bus->errorTitle(error, count), classOf(error)); });
    connect(m_bus, &CSharedBus::connectionChanged, this, [this] {
        if (m_bus->status().connection == EConnection::eLost) {
            writeError(m_bus->connectionNotice(), EErrorClass::eAway);
        }
    });
    setMode(eBroadcastManager);
    m_quietTimer.start(OPENED_QUIET_MS);
    if (!m_bus->status().isConnected()) {
        writeError(m_bus->connectionNotice(), EErrorClass::eAway);
    }
}

void CSocketcandClient::setMode(EMode mode)
{
    forget(mode);
    answer("< ok >");
    m_quietTimer.start(QUIET_MS);
}

/// Changes the mode, and ends the statistics, subscriptions and cyclic messages of the previous mode.
void CSocketcandClient::forget(EMode mode)
{
    m_mode = mode;
    m_statisticsTimer.stop();
    m_subscriptions.clear();
    m_cyclic.clear();
    limitSilence(*m_socket, false);
}

void CSocketcandClient::subscribe(const SCommand& command)
{
    m_subscriptions.erase(command.id());
    SSubscription& subscription = m_subscriptions[command.id()];
    subscription.timer.setInterval(command.milliseconds);
    subscription.timer.setSingleShot(true);
    connect(&subscription.timer, &QTimer::timeout, this, [this, &subscription] { deliverPending(subscription); });
}

void CSocketcandClient::send(const SCommand& command)
{
    m_bus->send(command.message, *this, PROTOCOL, [this](const Failure& failure) {
        if (failure) {
            writeError(failure->text);
        }
    });
}

void CSocketcandClient::addCyclic(const SCommand& command)
{
    const Failure failure = m_bus->permit(command.id(), *this, PROTOCOL);
    m_cyclic.erase(command.id());
    if (failure || m_cyclic.size() >= MAX_CYCLIC) {
        writeError(failure ? failure->text : QStringLiteral("too many cyclic messages"));
        return;
    }
    QTimer& timer = m_cyclic[command.id()].timer;
    timer.setTimerType(Qt::PreciseTimer);
    connect(&timer, &QTimer::timeout, this, [this, message = command.message] { sendCyclic(message); });
    timer.start(command.milliseconds);
    limitSilence(*m_socket, true);
}

/// Sends a cyclic message. Of consecutive refusals, only the first is reported to the client.
void CSocketcandClient::sendCyclic(const Cim::CCanMessage& message)
{
    m_bus->send(message, *this, PROTOCOL, [this, id = message.id().value()](const Failure& failure) {
        const auto cyclic = m_cyclic.find(id); // the cyclic message may have been deleted meanwhile
        if (cyclic != m_cyclic.end() && !std::exchange(cyclic->second.isRefused, failure.has_value()) && failure) {
            writeError(failure->text);
        }
    });
}

} // namespace vexmor::Apps::Cimshare
