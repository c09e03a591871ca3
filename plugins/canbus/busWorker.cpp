#include "busWorker.h"

#include "apps/host/clock.h"
#include "cim/resultCodes.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>

#include <algorithm>
#include <list>
#include <utility>

namespace vexmor::CanBus
{
namespace
{
constexpr int LOOK_AT_LINK_MS = 50;
constexpr int MAX_BATCH = 10'000;
constexpr int MAX_FRAMES = 100'000; ///< may wait for the device, which has stopped taking them long before

/// Workers whose threads may run: they use the plugin, and so end before the application object.
std::mutex s_lock;
std::list<std::shared_ptr<CBusWorker>> s_workers;

void endAll()
{
    const std::lock_guard<std::mutex> guard(s_lock);
    for (const auto& worker : s_workers) {
        worker->end();
    }
    s_workers.remove_if([](const auto& worker) { return worker->wait(); });
}
} // namespace

std::shared_ptr<CBusWorker> CBusWorker::start(std::unique_ptr<Cim::CCanInterface> canInterface)
{
    const std::lock_guard<std::mutex> guard(s_lock);
    s_workers.remove_if([](const auto& worker) { return worker->wait(0); });
    s_workers.emplace_back(new CBusWorker(std::move(canInterface)));
    qRemovePostRoutine(endAll); // once is enough
    qAddPostRoutine(endAll);
    return s_workers.back();
}

CBusWorker::CBusWorker(std::unique_ptr<Cim::CCanInterface> canInterface)
    : m_hosted(new Apps::CHostedInterface(std::move(canInterface), this)), m_linkTimer(this)
{
    using Host = Apps::CHostedInterface;
    connect(m_hosted, &Host::received, this, [this](const Cim::CCanMessage& message) { store(message, false); });
    connect(m_hosted, &Host::sent, this, [this](const Cim::CCanMessage& message) { store(message, true); });
    connect(m_hosted, &Host::errorRaised, this, &CBusWorker::onError);
    m_linkTimer.setInterval(LOOK_AT_LINK_MS);
    connect(&m_linkTimer, &QTimer::timeout, this, &CBusWorker::lookAtLink);
    connect(&m_thread, &QThread::finished, m_hosted, &QObject::deleteLater);
    moveToThread(&m_thread);
    m_thread.start();
}

// ---- From any thread ----

void CBusWorker::open()
{
    const auto work = [this] {
        const int code = can().openCommunication(); // processes events
        if (code == Cim::RC_OK) {
            m_linkTimer.start();
            lookAtLink();
            connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock, this,
                    &CBusWorker::handOver); // when all that came was read
        } else {
            Q_EMIT openFailed(code);
        }
        m_isOpening = false;
        for (const auto& command : std::exchange(m_commands, {})) {
            command();
        }
    };
    QMetaObject::invokeMethod(this, work);
}

void CBusWorker::ask(const std::function<void()>& command)
{
    QMetaObject::invokeMethod(this, [=] { m_isOpening ? m_commands.push_back(command) : command(); });
}

void CBusWorker::send(const Cim::CCanMessage& message)
{
    ask([=] { Q_EMIT sent(m_hosted->send(message)); });
}

void CBusWorker::reset()
{
    ask([this] {
        // Refused without a link, of which the interface tells as of an error of its own.
        if (can().resetCommunication(1) == Cim::RC_OK) {
            Q_EMIT connected();
        }
    });
}

void CBusWorker::end()
{
    ask([this] {
        m_hosted->disconnect(this); // what it tells after its end would start the timer again
        m_linkTimer.stop();
        can().closeCommunication();
        m_thread.quit();
    });
}

SFrames CBusWorker::takeFrames()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    return std::exchange(m_frames, {});
}

// ---- In the thread of the interface ----

void CBusWorker::onError(int error)
{
    handOver(); // what was received before
    Q_EMIT errorRaised(error);
    if (error == Cim::IE_TCP_CONNECTION_LOST) {
        m_linkTimer.start();
    }
}

void CBusWorker::lookAtLink()
{
    if (m_linkTimer.isActive() && can().commonInfo().connectionState() == Cim::CCommonInfo::eConnected) {
        m_linkTimer.stop();
        Q_EMIT connected();
    }
}

void CBusWorker::store(const Cim::CCanMessage& message, bool isOwn)
{
    lookAtLink(); // the device is told of the connection first
    const auto* const data = reinterpret_cast<const char*>(message.data());
    QCanBusFrame frame(message.id().value(), QByteArray(data, static_cast<int>(message.length())));
    frame.setTimeStamp(QCanBusFrame::TimeStamp::fromMicroSeconds(Apps::microsecondsNow()));
    frame.setLocalEcho(isOwn);
    m_batch.append(std::move(frame));
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
    if (m_frames.frames.isEmpty()) {
        Q_EMIT framesWaiting();
    }
    const int kept = std::min(MAX_FRAMES - m_frames.frames.size(), m_batch.size());
    m_frames.frames += m_batch.mid(0, kept);
    m_frames.dropped += m_batch.size() - kept;
    m_batch = {};
}

} // namespace vexmor::CanBus
