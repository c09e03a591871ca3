#include "apps/cimview/busWorker.h"

#include "apps/cimview/messageText.h"

#include <QCoreApplication>

namespace vexmor::Apps::Cimview
{
namespace
{
constexpr int STATUS_INTERVAL_MS = 250;

/// The spy handler is a plain function, called in the thread of the interface: a thread has one interface at most.
thread_local CBusWorker* t_worker = nullptr;
} // namespace

CBusWorker::CBusWorker(std::unique_ptr<Cim::CCanInterface> canInterface, std::uint16_t source, CMailbox& mailbox)
    : m_canInterface(std::move(canInterface)), m_source(source), m_mailbox(mailbox), m_statusTimer(this)
{
    m_canInterface->setParent(this); // so that it moves to the thread together with the worker
    m_canInterface->setSpyHandler(&CBusWorker::spy);
    // By name: the class that has the signal is known to the plugin alone.
    connect(m_canInterface.get(), SIGNAL(interfaceError(int)), this, SLOT(onInterfaceError(int)));
    connect(&m_statusTimer, &QTimer::timeout, this, &CBusWorker::takeStatus);
    m_statusTimer.setInterval(STATUS_INTERVAL_MS);
}

CBusWorker::~CBusWorker()
{
    m_canInterface->setSpyHandler(nullptr);
    m_canInterface.reset(); // closes it
    t_worker = nullptr;
    // The thread ends with the worker: what the interface has left to be deleted later is deleted now or never.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

void CBusWorker::open()
{
    t_worker = this;
    const int code = m_canInterface->openCommunication();
    Q_EMIT opened(code);
    if (code == 0) {
        takeStatus();
        m_statusTimer.start();
    }
}

void CBusWorker::send(const Cim::CCanMessage& message)
{
    const int code = m_canInterface->writeMessage(message);
    if (code == 0) {
        m_mailbox.post({microsecondsNow(), message, m_source, true});
    }
    noteCode(code);
}

void CBusWorker::setCyclic(int key, const Cim::CCanMessage& message, int milliseconds)
{
    m_cyclic.erase(key);
    if (milliseconds <= 0) {
        return;
    }
    auto timer = std::make_unique<QTimer>();
    timer->setTimerType(Qt::PreciseTimer);
    connect(timer.get(), &QTimer::timeout, this, [this, message] { send(message); });
    timer->start(milliseconds);
    m_cyclic.emplace(key, std::move(timer));
    send(message);
}

void CBusWorker::reset()
{
    constexpr int CHECK_CONNECTION = 1;
    noteCode(m_canInterface->resetCommunication(CHECK_CONNECTION));
}

int CBusWorker::spy(const Cim::CCanInterface& /*canInterface*/, bool sending, const Cim::CCanMessage& /*message*/)
{
    if (!sending && t_worker != nullptr) { // one that is sent is told of when the interface has taken it
        t_worker->takeMessages();
    }
    return 0;
}

void CBusWorker::takeMessages()
{
    STraceRecord record{microsecondsNow(), {}, m_source, false};
    while (m_canInterface->readMessage(record.message) == 0) {
        m_mailbox.post(record);
    }
}

void CBusWorker::takeStatus()
{
    SInterfaceStatus status{m_canInterface->commonInfo()};
    m_canInterface->busload(status.busload);
    Q_EMIT statusTaken(status);
}

void CBusWorker::onInterfaceError(int error)
{
    m_mailbox.postError({microsecondsNow(), m_source, error});
}

void CBusWorker::noteCode(int code)
{
    if (code != 0 && code != m_lastCode) {
        Q_EMIT refused(code);
    }
    m_lastCode = code;
}

} // namespace vexmor::Apps::Cimview
