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
    onStatus(); // may have changed before it was connected
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

void CInterfaceInUse::close()
{
    m_worker->disconnect(this);
    m_worker->end();
    if (m_status.connection != EConnection::eClosed) {
        m_status = {};
        Q_EMIT statusChanged();
    }
}

bool CInterfaceInUse::wait(unsigned long milliseconds)
{
    return m_worker->wait(milliseconds);
}

void CInterfaceInUse::endAll()
{
    CInterfaceWorker::endAll();
}

void CInterfaceInUse::onStatus()
{
    m_status = m_worker->takeStatus();
    Q_EMIT statusChanged();
}

} // namespace vexmor::Apps
