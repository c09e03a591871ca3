#include "apps/cimview/session.h"

#include "cim/resultCodes.h"

namespace vexmor::Apps::Cimview
{

CSession::CSession(std::unique_ptr<Cim::CCanInterface> canInterface, std::uint16_t source, CMailbox& mailbox)
    : m_worker(new CBusWorker(std::move(canInterface), source, mailbox))
{
    qRegisterMetaType<SInterfaceStatus>("vexmor::Apps::Cimview::SInterfaceStatus");
    m_worker->moveToThread(&m_thread);
    connect(m_worker, &CBusWorker::opened, this, &CSession::onOpened);
    connect(m_worker, &CBusWorker::statusTaken, this, &CSession::onStatus);
    connect(m_worker, &CBusWorker::refused, this, &CSession::refused);
    connect(&m_thread, &QThread::finished, m_worker, &QObject::deleteLater); // in its own thread, as the last thing
    connect(&m_thread, &QThread::finished, this, &CSession::finished);
    m_thread.start();
    QMetaObject::invokeMethod(m_worker, &CBusWorker::open);
}

CSession::~CSession()
{
    m_thread.quit();
    m_thread.wait();
}

void CSession::close()
{
    if (m_state != EInterfaceState::eClosing) {
        m_state = EInterfaceState::eClosing;
        m_thread.quit();
        Q_EMIT changed();
    }
}

void CSession::onOpened(int code)
{
    if (code != Cim::RC_OK && m_state != EInterfaceState::eClosing) { // otherwise the user was faster
        Q_EMIT refused(code);
        close();
    }
}

void CSession::onStatus(const SInterfaceStatus& status)
{
    if (m_state == EInterfaceState::eClosing) {
        return;
    }
    m_status = status;
    const bool connected = status.info.connectionState() == Cim::CCommonInfo::eConnected;
    m_state = !connected           ? EInterfaceState::eWaiting
              : status.hasAnswered ? EInterfaceState::eConnected
                                   : EInterfaceState::eSilent;
    Q_EMIT changed();
}

void CSession::send(const Cim::CCanMessage& message)
{
    QMetaObject::invokeMethod(m_worker, [worker = m_worker, message] { worker->send(message); });
}

void CSession::setCyclic(int key, const Cim::CCanMessage& message, int milliseconds)
{
    QMetaObject::invokeMethod(
        m_worker, [worker = m_worker, key, message, milliseconds] { worker->setCyclic(key, message, milliseconds); });
}

void CSession::reset()
{
    QMetaObject::invokeMethod(m_worker, &CBusWorker::reset);
}

} // namespace vexmor::Apps::Cimview
