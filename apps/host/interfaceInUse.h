#pragma once

#include "apps/host/interfaceStatus.h"
#include "apps/host/mailbox.h"
#include "cim/canInterface.h"

#include <QObject>

#include <memory>

namespace vexmor::Apps
{
class CInterfaceWorker;

/// An interface in use. The interface itself lives in a thread of its own; this object lives in the thread of its
/// owner, which runs an event loop. Only the static functions `close` and `endAll` wait for the gateway. A slot may
/// delete this object; the destructor closes the interface without waiting.
///
/// Messages and errors arrive in the mailbox, whose signal `filled` wakes the owner. Interfaces that share a mailbox
/// mark their records with different numbers, `source`.
///
/// The interface regains a lost TCP link by itself. Over UDP, where requests and answers can be lost, the requests for
/// identity and load are repeated before a gateway counts as silent, and every 3 s while it does not answer. An attempt
/// to open that fails within a second after this program closed an interface is repeated until that second is over.
class CInterfaceInUse : public QObject
{
    Q_OBJECT

public:
    enum class EOpening {
        eOnce,     ///< One attempt. If it fails, the state is closed, and `status` has the code and the reason.
        eUntilOpen ///< An attempt every 3 s until one succeeds.
    };
    /// Number of messages that may wait in `send` for the thread of the interface: one second of a full bus.
    static constexpr std::size_t SEND_LIMIT = 10'000;

    /// Takes over a closed interface of the calling thread and starts to open it. `statusChanged` reports the outcome
    /// from the event loop.
    CInterfaceInUse(std::unique_ptr<Cim::CCanInterface> canInterface, std::shared_ptr<CMailbox> mailbox,
                    std::uint16_t source, EOpening opening);
    ~CInterfaceInUse() override;

    const SInterfaceStatus& status() const { return m_status; }

    /// Accepts a message for sending. Each accepted message yields a record in the mailbox, in the order of the calls:
    /// sent, or refused with a code. Messages wait while an attempt to open is in progress. Returns false, and no
    /// record follows, when SEND_LIMIT messages wait or the interface is closed.
    bool send(const Cim::CCanMessage& message);
    /// Sends a message at once and then every `milliseconds`, with records as for `send`. The caller chooses `key`: a
    /// later call with the same `key` replaces the message, and 0 milliseconds end the sending.
    void setCyclic(int key, const Cim::CCanMessage& message, int milliseconds);
    /// Resets the gateway. `wasReset` is emitted when the requests were sent; without a link, the interface raises an
    /// error.
    void reset();

    /// Closes and deletes an interface, and waits up to `milliseconds` until the gateway is free for the next
    /// connection. An interface that is being opened needs up to a second more. Records may still arrive in the mailbox
    /// while it waits.
    static void close(std::unique_ptr<CInterfaceInUse> interface, unsigned long milliseconds);
    /// Closes all interfaces of this program and waits for their threads, up to a second if one is being opened. It is
    /// called when the application object ends; a program that unloads plugins calls it before that.
    static void endAll();

Q_SIGNALS:
    void statusChanged();
    void wasReset();

private:
    void onStatus();

    SInterfaceStatus m_status;
    const std::shared_ptr<CInterfaceWorker> m_worker;
};

} // namespace vexmor::Apps
