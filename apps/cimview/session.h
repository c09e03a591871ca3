#pragma once

#include "apps/cimview/busWorker.h"

#include <QObject>
#include <QThread>

#include <memory>

namespace vexmor::Apps::Cimview
{

/// Where an interface stands in its life.
enum class EInterfaceState {
    eClosed,
    eOpening,
    eSilent,    ///< open, and nobody has answered yet: there may be no gateway
    eConnected, ///< open, and the gateway is there
    eWaiting,   ///< open, and the interface tries to reach the gateway
    eClosing
};

/// An interface in use, as the window sees it: a handle in the window's thread on a worker in a thread of its own. No
/// operation waits; what comes of it is told by a signal, messages and errors go to the mailbox.
class CSession : public QObject
{
    Q_OBJECT

public:
    /// Takes a closed interface over and starts to open it. `mailbox` must outlive the session.
    CSession(std::unique_ptr<Cim::CCanInterface> canInterface, std::uint16_t source, CMailbox& mailbox);
    /// Closes the interface and waits for its thread: up to a second while it is being opened. A window that must not
    /// wait calls `close` and deletes the session after `finished`.
    ~CSession() override;

    EInterfaceState state() const { return m_state; }
    /// What the interface told last; meaningful once it is open.
    const SInterfaceStatus& status() const { return m_status; }

    void close();
    void send(const Cim::CCanMessage& message);
    /// See CBusWorker::setCyclic.
    void setCyclic(int key, const Cim::CCanMessage& message, int milliseconds);
    void reset();

Q_SIGNALS:
    /// State or status.
    void changed();
    /// An operation was refused. The session closes by itself when it was the opening.
    void refused(int code);
    /// The interface is closed and gone. Last signal of the session.
    void finished();

private:
    void onOpened(int code);
    void onStatus(const SInterfaceStatus& status);

    EInterfaceState m_state = EInterfaceState::eOpening;
    SInterfaceStatus m_status;
    QThread m_thread;
    CBusWorker* const m_worker; ///< belongs to the thread, deletes itself at its end
};

} // namespace vexmor::Apps::Cimview
