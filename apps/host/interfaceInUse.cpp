#include "apps/host/interfaceInUse.h"

#include "apps/host/interfaceWorker.h"

#include <utility>

namespace vexmor::Apps
{

CInterfaceInUse::CInterfaceInUse(std::unique_ptr<Cim::CCanInterface> canInterface, std::shared_ptr<CMailbox> mailbox,
                                 std::uint16_t source, EOpening opening)
    : m_worker(CInterfaceWorker::start(std::move(canInterface), std::move(mailbox), source, opening))
{
    m_status.connection = EConnection::eConnecting;
    connect(m_worker.get(), &CInterfaceWorker::statusWaits, this, &CInterfaceInUse::onStatus, Qt::QueuedConnection);
    connect(m_worker.get(), &CInterfaceWorker::wasReset, this, &CInterfaceInUse::wasReset, Qt::QueuedConnection);
    // Reports the status once more: the attempt may have ended before the signal was connected.
    QMetaObject::invokeMethod(this, &CInterfaceInUse::onStatus, Qt::QueuedConnection);
}

CInterfaceInUse::~CInterfaceInUse()
{
    m_worker->end();
}

bool CInterfaceInUse::send(const Cim::CCanMessage& message)
{
    return m_status.connection != EConnection::eClosed && m_worker->send(message);
}

void CInterfaceInUse::setCyclic(int key, const Cim::CCanMessage& message, int milliseconds)
{
    m_worker->setCyclic(key, message, milliseconds);
}

void CInterfaceInUse::reset()
{
    m_worker->reset();
}

void CInterfaceInUse::close(std::unique_ptr<CInterfaceInUse> interface, unsigned long milliseconds)
{
    const std::shared_ptr<CInterfaceWorker> worker = interface->m_worker;
    interface.reset();
    worker->wait(milliseconds);
}

void CInterfaceInUse::endAll()
{
    CInterfaceWorker::endAll();
}

void CInterfaceInUse::onStatus()
{
    const SInterfaceStatus before = std::exchange(m_status, m_worker->takeStatus());
    if (!(m_status == before)) {
        Q_EMIT statusChanged();
    }
}

} // namespace vexmor::Apps
