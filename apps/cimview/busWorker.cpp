#include "apps/cimview/busWorker.h"

#include "apps/host/clock.h"

#include <QCoreApplication>

namespace vexmor::Apps::Cimview
{
namespace
{
constexpr int STATUS_INTERVAL_MS = 250;
} // namespace

CBusWorker::CBusWorker(std::unique_ptr<Cim::CCanInterface> canInterface, std::uint16_t source, CMailbox& mailbox)
    : m_hosted(std::make_unique<CHostedInterface>(std::move(canInterface), this)),
      m_source(source),
      m_mailbox(mailbox),
      m_statusTimer(this)
{
    connect(m_hosted.get(), &CHostedInterface::received, this, [this](const auto& message) { post(message, false); });
    connect(m_hosted.get(), &CHostedInterface::sent, this, [this](const auto& message) { post(message, true); });
    connect(m_hosted.get(), &CHostedInterface::errorRaised, this, [this](int error) {
        m_mailbox.postError({microsecondsNow(), m_source, error});
    });
    connect(&m_statusTimer, &QTimer::timeout, this, &CBusWorker::takeStatus);
    m_statusTimer.setInterval(STATUS_INTERVAL_MS);
}

CBusWorker::~CBusWorker()
{
    m_hosted.reset(); // closes the interface
    // The thread ends with the worker: what the interface has left to be deleted later is deleted now or never.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

void CBusWorker::open()
{
    const int code = m_hosted->canInterface().openCommunication();
    Q_EMIT opened(code);
    if (code == Cim::RC_OK) {
        takeStatus();
        m_statusTimer.start();
    }
}

void CBusWorker::send(const Cim::CCanMessage& message)
{
    noteCode(m_hosted->send(message));
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
    noteCode(m_hosted->canInterface().resetCommunication(CHECK_CONNECTION));
}

void CBusWorker::post(const Cim::CCanMessage& message, bool sent)
{
    m_mailbox.post({microsecondsNow(), message, m_source, sent});
}

void CBusWorker::takeStatus()
{
    Q_EMIT statusTaken({m_hosted->canInterface().commonInfo(), m_hosted->hasAnswered(), m_hosted->busload()});
}

} // namespace vexmor::Apps::Cimview
