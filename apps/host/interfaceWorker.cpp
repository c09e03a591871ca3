#include "apps/host/interfaceWorker.h"

#include "apps/host/clock.h"
#include "cim/resultCodes.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>

#include <algorithm>
#include <atomic>
#include <list>
#include <utility>

namespace vexmor::Apps
{
namespace
{
constexpr int POLL_MS = 100;
/// Time between two attempts to open the interface.
constexpr int RETRY_MS = 3000;
constexpr std::size_t MAX_BATCH = 10'000;
/// Time after a close during which a refused attempt to open is repeated: a gateway accepts one connection at a time
/// and may notice the end of the last one with a delay.
constexpr std::chrono::seconds RELEASE_TIME{1};
constexpr unsigned long RELEASE_RETRY_MS = 100;
using Clock = SInterfaceStatus::Clock;
/// Time when this program last closed an interface that had a link.
std::atomic<Clock::time_point> s_lastClose{};

/// Workers whose threads may be running. The threads use code of the plugin, so they must end before the application
/// object.
std::mutex s_mutex;
std::list<std::shared_ptr<CInterfaceWorker>> s_workers;
} // namespace

std::shared_ptr<CInterfaceWorker> CInterfaceWorker::start(std::unique_ptr<Cim::CCanInterface> canInterface,
                                                          std::shared_ptr<CMailbox> mailbox, std::uint16_t source,
                                                          CInterfaceInUse::EOpening opening)
{
    const std::lock_guard<std::mutex> guard(s_mutex);
    s_workers.remove_if([](const auto& worker) { return worker->wait(0); });
    s_workers.emplace_back(new CInterfaceWorker(std::move(canInterface), std::move(mailbox), source, opening));
    qRemovePostRoutine(&CInterfaceWorker::endAll); // removed first, so that it is registered only once
    qAddPostRoutine(&CInterfaceWorker::endAll);
    return s_workers.back();
}

void CInterfaceWorker::endAll()
{
    const std::lock_guard<std::mutex> guard(s_mutex);
    for (const auto& worker : s_workers) {
        worker->end();
    }
    s_workers.remove_if([](const auto& worker) { return worker->wait(); });
}

CInterfaceWorker::CInterfaceWorker(std::unique_ptr<Cim::CCanInterface> canInterface, std::shared_ptr<CMailbox> mailbox,
                                   std::uint16_t source, CInterfaceInUse::EOpening opening)
    : m_mailbox(std::move(mailbox)),
      m_source(source),
      m_opening(opening),
      m_hosted(new CHostedInterface(std::move(canInterface), this)),
      m_pollTimer(this),
      m_retryTimer(this)
{
    m_status.connection = EConnection::eConnecting;
    connect(m_hosted, &CHostedInterface::received, this, [this](const auto& message) { store(message, false, 0); });
    connect(m_hosted, &CHostedInterface::sent, this, [this](const auto& message) { store(message, true, 0); });
    connect(m_hosted, &CHostedInterface::errorRaised, this, &CInterfaceWorker::onError);
    m_pollTimer.setInterval(POLL_MS);
    m_retryTimer.setSingleShot(true);
    connect(&m_pollTimer, &QTimer::timeout, this, &CInterfaceWorker::updateStatus);
    connect(&m_retryTimer, &QTimer::timeout, this, &CInterfaceWorker::open);
    connect(&m_thread, &QThread::finished, m_hosted, &QObject::deleteLater);
    moveToThread(&m_thread);
    m_thread.start();
    QMetaObject::invokeMethod(this, [this] {
        // The event loop emits this signal when it has processed all data of a turn: the records are delivered
        // together.
        connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock, this,
                &CInterfaceWorker::handOver);
        open();
    });
}

// ---- From any thread ----

bool CInterfaceWorker::send(const Cim::CCanMessage& message)
{
    std::size_t waiting = 0;
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        waiting = m_outbox.size();
        if (waiting < CInterfaceInUse::SEND_LIMIT) {
            m_outbox.push_back(message);
        }
    }
    if (waiting == 0) {
        enqueue([this] { sendWaiting(); });
    }
    return waiting < CInterfaceInUse::SEND_LIMIT;
}

void CInterfaceWorker::setCyclic(int key, const Cim::CCanMessage& message, int milliseconds)
{
    enqueue([=] {
        m_cyclic.erase(key);
        if (milliseconds > 0) {
            auto timer = std::make_unique<QTimer>();
            timer->setTimerType(Qt::PreciseTimer);
            connect(timer.get(), &QTimer::timeout, this, [this, message] { sendNow(message); });
            timer->start(milliseconds);
            m_cyclic.emplace(key, std::move(timer));
            sendNow(message);
        }
    });
}

void CInterfaceWorker::reset()
{
    enqueue([this] {
        constexpr int CHECK_CONNECTION = 1;
        if (canInterface().resetCommunication(CHECK_CONNECTION) == Cim::RC_OK) {
            Q_EMIT wasReset();
        }
    });
}

void CInterfaceWorker::end()
{
    m_thread.requestInterruption();
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        s_lastClose = m_status.hasLink() ? Clock::now() : s_lastClose.load();
    }
    enqueue([this] {
        m_hasEnded = true;
        m_hosted->disconnect(this); // a late error must not start anything
        m_cyclic.clear();
        m_pollTimer.stop();
        m_retryTimer.stop();
        handOver();
        canInterface().closeCommunication();
        m_thread.quit();
    });
}

SInterfaceStatus CInterfaceWorker::takeStatus()
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_isStatusWaiting = false;
    return m_status;
}

/// Executes commands in the thread of the interface, in the order of the calls, and not while the interface is being
/// opened.
void CInterfaceWorker::enqueue(const std::function<void()>& command)
{
    QMetaObject::invokeMethod(this, [=] {
        if (m_isOpening) {
            m_commands.push_back(command);
        } else if (!m_hasEnded) {
            command();
        }
    });
}

// ---- Opening and status ----

/// Makes one attempt to open, or several while the gateway may not have noticed the end of the last connection.
void CInterfaceWorker::open()
{
    m_isOpening = true;
    int code = canInterface().openCommunication(); // this call processes events
    while (code == Cim::RC_TCP_CONNECT_FAILED && Clock::now() - s_lastClose.load() < RELEASE_TIME &&
           !m_thread.isInterruptionRequested()) {
        QThread::msleep(RELEASE_RETRY_MS);
        code = canInterface().openCommunication();
    }
    m_isOpening = false;
    onOpened(code);
    for (const auto& command : std::exchange(m_commands, {})) {
        if (!m_hasEnded) {
            command();
        }
    }
}

void CInterfaceWorker::onOpened(int code)
{
    if (code == Cim::RC_OK) {
        m_pollTimer.start();
        updateStatus();
        return;
    }
    const bool triesAgain = m_opening == CInterfaceInUse::EOpening::eUntilOpen;
    SInterfaceStatus status = m_status;
    status.connection = triesAgain ? EConnection::eLost : EConnection::eClosed;
    status.code = code;
    status.reason = canInterface().errorCodeToString(code);
    publish(status);
    if (triesAgain) {
        m_retryTimer.start(RETRY_MS);
    }
}

void CInterfaceWorker::updateStatus()
{
    const SInterfaceStatus& status = m_hosted->updateStatus();
    if (status.hasLink() || (!m_isOpening && canInterface().isOpened())) { // otherwise `onOpened` publishes the outcome
        publish(status);
    }
}

/// Stores a status for the owner. The owner is notified once, and again only after it has taken the status.
void CInterfaceWorker::publish(SInterfaceStatus status)
{
    status.losses = m_losses;
    bool isNews = false;
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        const bool isChanged = !(status == m_status);
        m_status = status;
        isNews = isChanged && !std::exchange(m_isStatusWaiting, true);
    }
    if (isNews) {
        Q_EMIT statusWaits();
    }
}

void CInterfaceWorker::onError(int error)
{
    handOver(); // delivers the messages received before the error first
    m_mailbox->postError({microsecondsNow(), m_source, error});
    m_losses += error == Cim::IE_TCP_CONNECTION_LOST ? 1 : 0;
    updateStatus();
}

// ---- Messages ----

void CInterfaceWorker::sendWaiting()
{
    std::vector<Cim::CCanMessage> messages;
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        messages.swap(m_outbox);
    }
    for (const Cim::CCanMessage& message : messages) {
        sendNow(message);
    }
}

void CInterfaceWorker::sendNow(const Cim::CCanMessage& message)
{
    if (const int code = m_hosted->send(message); code != Cim::RC_OK) {
        store(message, true, code);
    }
}

void CInterfaceWorker::store(const Cim::CCanMessage& message, bool sent, int code)
{
    m_lastTime = std::max(microsecondsNow(), m_lastTime + 1);
    m_batch.push_back({m_lastTime, message, m_source, sent, static_cast<std::uint8_t>(code)});
    if (m_batch.size() >= MAX_BATCH) {
        handOver();
    }
}

void CInterfaceWorker::handOver()
{
    if (!m_batch.empty()) {
        if (!m_status.hasLink()) {
            updateStatus(); // reports a regained link before its messages
        }
        m_mailbox->post(m_batch);
        m_batch.clear();
    }
}

} // namespace vexmor::Apps
