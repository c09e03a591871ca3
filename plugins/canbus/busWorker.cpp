#include "busWorker.h"

#include "apps/common/clock.h"
#include "cim/resultCodes.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>

#include <algorithm>
#include <utility>
#include <vector>

namespace vexmor::CanBus
{
namespace
{
constexpr int LOOK_AT_LINK_MS = 50;
constexpr int MAX_BATCH = 10'000;

/// Workers whose threads may run: they use the plugin, and so end before the application object.
std::mutex s_lock;
std::vector<std::shared_ptr<CBusWorker>> s_workers;

void endAll()
{
    const std::lock_guard<std::mutex> guard(s_lock);
    for (const auto& worker : s_workers) {
        QMetaObject::invokeMethod(worker.get(), &CBusWorker::end);
    }
    for (const auto& worker : s_workers) {
        worker->wait();
    }
    s_workers.clear();
}

bool matches(const QCanBusDevice::Filter& filter, unsigned int id)
{
    return (filter.type == QCanBusFrame::InvalidFrame || filter.type == QCanBusFrame::DataFrame) &&
           (filter.format & QCanBusDevice::Filter::MatchBaseFormat) != 0 &&
           (id & filter.frameIdMask) == (filter.frameId & filter.frameIdMask);
}

QCanBusFrame frameOf(const Cim::CCanMessage& message, bool isOwn)
{
    const auto* const data = reinterpret_cast<const char*>(message.data());
    QCanBusFrame frame(message.id().value(), QByteArray(data, static_cast<int>(message.length())));
    frame.setTimeStamp(QCanBusFrame::TimeStamp::fromMicroSeconds(Apps::microsecondsNow()));
    frame.setLocalEcho(isOwn);
    return frame;
}
} // namespace

std::shared_ptr<CBusWorker> CBusWorker::start(std::unique_ptr<Cim::CCanInterface> canInterface,
                                              const SReception& reception)
{
    const std::shared_ptr<CBusWorker> worker(new CBusWorker(std::move(canInterface), reception));
    const std::lock_guard<std::mutex> guard(s_lock);
    const auto hasEnded = [](const std::shared_ptr<CBusWorker>& one) { return one->wait(0); };
    s_workers.erase(std::remove_if(s_workers.begin(), s_workers.end(), hasEnded), s_workers.end());
    s_workers.push_back(worker);
    qRemovePostRoutine(endAll); // once is enough
    qAddPostRoutine(endAll);
    return worker;
}

CBusWorker::CBusWorker(std::unique_ptr<Cim::CCanInterface> canInterface, const SReception& reception)
    : m_hosted(new Apps::CHostedInterface(std::move(canInterface), this)), m_linkTimer(this), m_reception(reception)
{
    m_linkTimer.setInterval(LOOK_AT_LINK_MS);
    connect(&m_linkTimer, &QTimer::timeout, this, &CBusWorker::lookAtLink);
    connect(m_hosted, &Apps::CHostedInterface::received, this, [this](const Cim::CCanMessage& message) {
        lookAtLink();
        store(message, false);
    });
    connect(m_hosted, &Apps::CHostedInterface::sent, this,
            [this](const Cim::CCanMessage& message) { store(message, true); });
    connect(m_hosted, &Apps::CHostedInterface::errorRaised, this, [this](int error) {
        handOver(); // what was received before
        Q_EMIT errorRaised(error);
        if (error == Cim::IE_TCP_CONNECTION_LOST) {
            m_linkTimer.start();
        }
    });
    connect(&m_thread, &QThread::finished, m_hosted, &QObject::deleteLater);
    moveToThread(&m_thread);
    m_thread.start();
}

SReceived CBusWorker::takeReceived()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    return std::exchange(m_received, {});
}

void CBusWorker::open()
{
    const int code = can().openCommunication(); // processes events
    m_isOpening = false;
    if (code == Cim::RC_OK) {
        m_linkTimer.start();
        lookAtLink();
        for (const Cim::CCanMessage& message : std::exchange(m_waiting, {})) {
            send(message);
        }
        connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock, this,
                &CBusWorker::handOver); // when all that came was read
    } else {
        Q_EMIT openFailed(code);
    }
    if (m_isEnding) {
        end();
    }
}

void CBusWorker::send(const Cim::CCanMessage& message)
{
    if (m_isOpening) {
        m_waiting.append(message);
    } else {
        Q_EMIT sent(m_hosted->send(message));
    }
}

void CBusWorker::reset()
{
    // Refused without a link, of which the interface tells as of an error of its own.
    if (can().resetCommunication(1) == Cim::RC_OK) {
        Q_EMIT wasReset();
    }
}

void CBusWorker::end()
{
    m_isEnding = true;
    if (!m_isOpening) {
        can().closeCommunication();
        m_linkTimer.stop();
        m_thread.quit();
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
    if (m_received.frames.isEmpty()) {
        Q_EMIT framesWaiting();
    }
    const int kept = std::clamp(m_reception.limit - m_received.frames.size(), 0, m_batch.size());
    m_received.frames += m_batch.mid(0, kept);
    m_received.dropped += m_batch.size() - kept;
    m_batch = {};
}

} // namespace vexmor::CanBus
