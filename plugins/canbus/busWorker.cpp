#include "busWorker.h"

#include "cim/resultCodes.h"
#include "t93CanDevice.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QScopedValueRollback>
#include <QVariant>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <utility>

namespace vexmor::CanBus
{
namespace
{
using Error = QCanBusDevice::CanBusError;
using Status = QCanBusDevice::CanBusStatus;

constexpr int LOOK_AT_LINK_MS = 50;
constexpr int MAX_BATCH = 10'000;

/// What an interface error is to users of QCanBus.
struct SMeaning {
    Error error;
    Status busStatus = Status::Unknown; ///< that it tells of
};
const SMeaning MEANINGS[] = {
    {Error::ConnectionError},               // IE_TCP_CONNECTION_LOST
    {Error::ReadError},                     // IE_WRONG_CHECKSUM
    {Error::ReadError},                     // IE_RX_QUEUE_FULL
    {Error::ReadError},                     // IE_READ_FAILED
    {Error::OperationError},                // IE_NOT_CONNECTED
    {Error::ReadError},                     // IE_CAN_BUFFER_OVERFLOW
    {Error::WriteError},                    // IE_CAN_TRANSMIT_TIMEOUT
    {Error::UnknownError, Status::Warning}, // IE_CAN_ERROR_COUNTER_OVERFLOW
    {Error::UnknownError, Status::BusOff},  // IE_CAN_BUS_OFF
    {Error::WriteError},                    // IE_TCP_SYNTAX_ERROR
    {Error::WriteError},                    // IE_TCP_FORMAT_ERROR
    {Error::WriteError},                    // IE_TCP_BUFFER_OVERFLOW
};

/// The worker of this thread: a spy handler gets no context.
thread_local CBusWorker* s_worker = nullptr;

/// Workers whose threads may run. They use the plugin, and so end before the application object.
std::mutex s_workersLock;
std::vector<std::shared_ptr<CBusWorker>> s_workers;

void endWorkers()
{
    std::vector<std::shared_ptr<CBusWorker>> workers;
    {
        const std::lock_guard<std::mutex> guard(s_workersLock);
        workers.swap(s_workers);
    }
    for (const auto& worker : workers) {
        worker->ask(&CBusWorker::end);
        worker->wait();
    }
}

void keepUntilItEnds(const std::shared_ptr<CBusWorker>& worker)
{
    const std::lock_guard<std::mutex> guard(s_workersLock);
    const auto hasEnded = [](const std::shared_ptr<CBusWorker>& one) { return one->wait(0); };
    s_workers.erase(std::remove_if(s_workers.begin(), s_workers.end(), hasEnded), s_workers.end());
    if (s_workers.empty()) {
        qRemovePostRoutine(endWorkers);
        qAddPostRoutine(endWorkers);
    }
    s_workers.push_back(worker);
}

bool matches(const QCanBusDevice::Filter& filter, unsigned int id)
{
    return (filter.type == QCanBusFrame::InvalidFrame || filter.type == QCanBusFrame::DataFrame) &&
           (filter.format & QCanBusDevice::Filter::MatchBaseFormat) != 0 &&
           (id & filter.frameIdMask) == (filter.frameId & filter.frameIdMask);
}

QCanBusFrame frameOf(const Cim::CCanMessage& message, bool isOwn)
{
    using namespace std::chrono;
    const auto* const data = reinterpret_cast<const char*>(message.data());
    QCanBusFrame frame(message.id().value(), QByteArray(data, static_cast<int>(message.length())));
    frame.setTimeStamp(QCanBusFrame::TimeStamp::fromMicroSeconds(
        duration_cast<microseconds>(system_clock::now().time_since_epoch()).count()));
    frame.setLocalEcho(isOwn);
    return frame;
}
} // namespace

std::shared_ptr<CBusWorker> CBusWorker::start(std::unique_ptr<Cim::CCanInterface> model)
{
    std::shared_ptr<CBusWorker> worker(new CBusWorker(std::move(model)));
    keepUntilItEnds(worker);
    return worker;
}

CBusWorker::CBusWorker(std::unique_ptr<Cim::CCanInterface> model) : m_model(std::move(model)), m_linkTimer(this)
{
    m_model->setSpyHandler(onMessage);
    m_linkTimer.setInterval(LOOK_AT_LINK_MS);
    connect(&m_linkTimer, &QTimer::timeout, this, &CBusWorker::lookAtLink);
    m_model->moveToThread(&m_thread);
    moveToThread(&m_thread);
    m_thread.start();
}

// ---- Commands ----

void CBusWorker::post(std::function<void()> command)
{
    const auto work = [this, command = std::move(command)] {
        m_commands.push_back(command);
        if (m_isWorking) { // within an opening, which processes events
            return;
        }
        const QScopedValueRollback<bool> working(m_isWorking, true);
        for (; !m_commands.empty(); m_commands.pop_front()) {
            m_commands.front()();
        }
    };
    QMetaObject::invokeMethod(this, work, Qt::QueuedConnection);
}

void CBusWorker::open(int session, int kbitPerSecond)
{
    if (session <= m_givenUp || !m_model) {
        return;
    }
    s_worker = this;
    connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock, this, &CBusWorker::handOver,
            Qt::UniqueConnection); // when all that came was read
    m_session = session;
    m_can.reset(m_model->clone());
    m_can->setProperty("CanBaudrate", kbitPerSecond);
    connect(m_can.get(), SIGNAL(interfaceError(int)), this, SLOT(onInterfaceError(int)));
    const int code = m_can->openCommunication();
    if (code == Cim::RC_OK) {
        m_isConnected = true;
        tell([](CT93CanDevice& device) { device.onConnected(); });
        takeReceived(); // what came meanwhile
        return;
    }
    const Error error = code == Cim::RC_TCP_CONNECT_FAILED ? Error::ConnectionError : Error::ConfigurationError;
    const QString text = m_can->errorCodeToString(code);
    tell([=](CT93CanDevice& device) { device.onOpenFailed(text, error); });
    close();
}

void CBusWorker::send(const Cim::CCanMessage& message)
{
    if (!m_can) { // it could not be opened
        return;
    }
    const int code = m_can->writeMessage(message);
    if (code == Cim::RC_OK) {
        store(message, true);
    }
    const QString refusal = code == Cim::RC_OK ? QString() : m_can->errorCodeToString(code);
    tell([=](CT93CanDevice& device) { device.onSent(refusal); });
}

void CBusWorker::reset()
{
    // Refused without a link, of which the interface tells as of an error of its own.
    if (m_can && m_can->resetCommunication(1) == Cim::RC_OK) {
        tell([](CT93CanDevice& device) { device.onReset(); });
    }
}

void CBusWorker::close()
{
    m_linkTimer.stop();
    m_can.reset();
    m_isConnected = false;
    m_batch.clear();
}

void CBusWorker::end()
{
    close();
    m_model.reset();
    m_thread.quit();
}

// ---- What the interface tells ----

int CBusWorker::onMessage(const Cim::CCanInterface&, bool isSending, const Cim::CCanMessage&)
{
    if (!isSending) {
        s_worker->lookAtLink();
        s_worker->takeReceived();
    }
    return 0;
}

void CBusWorker::takeReceived()
{
    // While it is being opened they wait in the interface: the device is told of the connection first.
    for (Cim::CCanMessage message; m_isConnected && m_can->readMessage(message) == Cim::RC_OK;) {
        store(message, false);
    }
}

void CBusWorker::onInterfaceError(int error)
{
    const bool isKnown = error >= 0 && error < static_cast<int>(std::size(MEANINGS));
    const SMeaning meaning = isKnown ? MEANINGS[error] : SMeaning{Error::UnknownError};
    const QString text = m_can->interfaceErrorToString(error).trimmed();
    if (error != Cim::IE_TCP_CONNECTION_LOST) {
        tell([=](CT93CanDevice& device) { device.onError(text, meaning.error, meaning.busStatus); });
        return;
    }
    tell([=](CT93CanDevice& device) { device.onLost(text, meaning.error); });
    m_isConnected = false;
    m_linkTimer.start();
}

void CBusWorker::lookAtLink()
{
    if (m_linkTimer.isActive() && m_can->commonInfo().connectionState() == Cim::CCommonInfo::eConnected) {
        m_linkTimer.stop();
        m_isConnected = true;
        tell([](CT93CanDevice& device) { device.onConnected(); });
    }
}

// ---- To the device ----

void CBusWorker::tell(const News& news)
{
    handOver(); // what was received before
    Q_EMIT happened(m_session, news);
}

void CBusWorker::store(const Cim::CCanMessage& message, bool isOwn)
{
    const auto& filters = m_reception.filters;
    const auto isWanted = [&](const QCanBusDevice::Filter& filter) { return matches(filter, message.id().value()); };
    if ((isOwn && !m_reception.own) || (!filters.isEmpty() && std::none_of(filters.begin(), filters.end(), isWanted))) {
        return;
    }
    m_batch.append(frameOf(message, isOwn));
    if (m_batch.size() >= MAX_BATCH) {
        handOver();
    }
}

void CBusWorker::handOver()
{
    if (m_batch.isEmpty()) {
        return;
    }
    const std::lock_guard<std::mutex> guard(m_lock);
    if (m_framesSession != m_session) {
        m_framesSession = m_session;
        m_frames.clear();
        m_dropped = 0;
    }
    if (m_frames.isEmpty()) {
        Q_EMIT framesWaiting();
    }
    const int room = std::max(0, m_reception.limit - m_frames.size());
    m_dropped += std::max(0, m_batch.size() - room);
    m_frames += m_batch.size() > room ? m_batch.mid(0, room) : m_batch;
    m_batch = {};
}

QVector<QCanBusFrame> CBusWorker::takeFrames(int session, int& dropped)
{
    const std::lock_guard<std::mutex> guard(m_lock);
    if (session != m_framesSession) { // those of a session that was closed wait for the next one to replace them
        return {};
    }
    dropped = std::exchange(m_dropped, 0);
    return std::exchange(m_frames, {});
}

} // namespace vexmor::CanBus
