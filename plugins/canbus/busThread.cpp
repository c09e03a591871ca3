#include "busThread.h"

#include "busWorker.h"

#include <QCoreApplication>

#include <algorithm>
#include <chrono>

namespace vexmor::CanBus
{
namespace
{
/// Errors that wait for a device whose event loop does not run; further ones are nothing new.
constexpr std::size_t MAX_NEWS = 1000;

/// All threads that have not ended. They use the plugin's library, and so end before the application object.
std::mutex s_threadsLock;
std::vector<std::shared_ptr<CBusThread>> s_threads;
bool s_endsWithApplication = false;

void endThreads()
{
    std::vector<std::shared_ptr<CBusThread>> threads;
    {
        const std::lock_guard<std::mutex> guard(s_threadsLock);
        threads.swap(s_threads);
        s_endsWithApplication = false;
    }
    for (const auto& thread : threads) {
        thread->end();
        thread->wait();
    }
}

void keepToItsEnd(const std::shared_ptr<CBusThread>& thread)
{
    const std::lock_guard<std::mutex> guard(s_threadsLock);
    s_threads.erase(std::remove_if(s_threads.begin(), s_threads.end(),
                                   [](const std::shared_ptr<CBusThread>& one) { return one->isFinished(); }),
                    s_threads.end());
    s_threads.push_back(thread);
    if (!s_endsWithApplication) {
        s_endsWithApplication = true;
        qAddPostRoutine(endThreads);
    }
}

bool matches(const QCanBusDevice::Filter& filter, unsigned int id)
{
    using Filter = QCanBusDevice::Filter;
    const bool isType = filter.type == QCanBusFrame::InvalidFrame || filter.type == QCanBusFrame::DataFrame;
    return isType && (filter.format & Filter::MatchBaseFormat) != 0 &&
           (id & filter.frameIdMask) == (filter.frameId & filter.frameIdMask);
}

QCanBusFrame frameOf(const Cim::CCanMessage& message, bool isOwn)
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    QCanBusFrame frame(message.id().value(),
                       QByteArray(reinterpret_cast<const char*>(message.data()), static_cast<int>(message.length())));
    frame.setTimeStamp(
        QCanBusFrame::TimeStamp::fromMicroSeconds(std::chrono::duration_cast<std::chrono::microseconds>(now).count()));
    frame.setLocalEcho(isOwn);
    return frame;
}
} // namespace

std::shared_ptr<CBusThread> CBusThread::start(std::unique_ptr<Cim::CCanInterface> canInterface, QObject& device)
{
    const std::shared_ptr<CBusThread> thread(new CBusThread(device));
    canInterface->moveToThread(thread.get());
    thread->m_worker = std::make_unique<CBusWorker>(*thread, std::move(canInterface));
    thread->m_worker->moveToThread(thread.get());
    thread->QThread::start();
    keepToItsEnd(thread);
    return thread;
}

QEvent::Type CBusThread::newsEvent()
{
    static const auto type = static_cast<QEvent::Type>(QEvent::registerEventType());
    return type;
}

CBusThread::CBusThread(QObject& device) : m_device(&device)
{
}

CBusThread::~CBusThread() = default;

void CBusThread::run()
{
    exec();
    std::unique_ptr<CBusWorker> worker;
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        worker.swap(m_worker);
    }
}

// ---- The device's side ----

void CBusThread::open(int bitRate)
{
    const std::lock_guard<std::mutex> guard(m_lock);
    ask({SCommand::eOpen, ++m_session, bitRate});
}

void CBusThread::send(const Cim::CCanMessage& message)
{
    const std::lock_guard<std::mutex> guard(m_lock);
    if (m_commands.empty() || m_commands.back().kind != SCommand::eSend) {
        ask({SCommand::eSend});
    }
    m_commands.back().messages.push_back(message);
}

void CBusThread::reset()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    ask({SCommand::eReset});
}

void CBusThread::close()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    ++m_session;
    m_news.clear();
    m_framesWaiting = 0;
    forgetOpening();
    ask({SCommand::eClose});
}

void CBusThread::end()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    m_device = nullptr;
    forgetOpening();
    ask({SCommand::eEnd});
}

/// An opening that nobody began, for which nothing was sent, is not worth its second.
void CBusThread::forgetOpening()
{
    if (!m_commands.empty() && m_commands.back().kind == SCommand::eOpen) {
        m_commands.pop_back();
    }
}

void CBusThread::ask(SCommand command)
{
    m_commands.push_back(std::move(command));
    if (m_worker && m_commands.size() == 1) {
        QCoreApplication::postEvent(m_worker.get(), new QEvent(QEvent::User));
    }
}

SNews CBusThread::nextNews()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    m_isDeviceAwake = false;
    SNews news;
    if (!m_news.empty()) {
        news = std::move(m_news.front());
        m_news.pop_front();
        m_framesWaiting -= news.frames.size();
    }
    if (!m_news.empty()) {
        wakeDevice();
    }
    return news;
}

void CBusThread::setReception(const SReception& reception)
{
    const std::lock_guard<std::mutex> guard(m_lock);
    m_reception = reception;
}

// ---- The interface's side ----

std::optional<SCommand> CBusThread::nextCommand()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    if (m_commands.empty()) {
        return std::nullopt;
    }
    SCommand command = std::move(m_commands.front());
    m_commands.pop_front();
    return command;
}

void CBusThread::tell(int session, SNews news)
{
    const std::lock_guard<std::mutex> guard(m_lock);
    if (session == m_session && !(news.kind == SNews::eError && m_news.size() >= MAX_NEWS)) {
        m_news.push_back(std::move(news));
        wakeDevice();
    }
}

void CBusThread::receive(int session, const Cim::CCanMessage& message, bool isOwn)
{
    const std::lock_guard<std::mutex> guard(m_lock);
    const auto& filters = m_reception.filters;
    const auto isWanted = [&](const QCanBusDevice::Filter& filter) { return matches(filter, message.id().value()); };
    if (session != m_session || (isOwn && !m_reception.own) ||
        (!filters.isEmpty() && std::none_of(filters.begin(), filters.end(), isWanted))) {
        return;
    }
    if (m_news.empty() || m_news.back().kind != SNews::eFrames) {
        m_news.push_back({SNews::eFrames});
        wakeDevice();
    }
    if (m_framesWaiting >= m_reception.limit) {
        ++m_news.back().dropped;
        return;
    }
    m_news.back().frames.append(frameOf(message, isOwn));
    ++m_framesWaiting;
}

void CBusThread::wakeDevice()
{
    if (!m_isDeviceAwake && m_device != nullptr) {
        m_isDeviceAwake = true;
        QCoreApplication::postEvent(m_device, new QEvent(newsEvent()));
    }
}

} // namespace vexmor::CanBus
