#pragma once

#include "apps/host/interfaceStatus.h"
#include "apps/host/mailbox.h"
#include "cim/canInterface.h"

#include <QObject>

#include <memory>

namespace vexmor::Apps
{
class CInterfaceWorker;

/// An interface in use: the interface itself lives in a thread of its own, this object in the thread of its owner. No
/// operation waits for the gateway.
///
/// Messages and errors come through the mailbox, whose signal `filled` wakes the owner; where several interfaces share
/// one, `source` tells them apart. `status` says what is known of the connection, and `statusChanged` when that
/// changed.
///
/// A lost TCP link is regained by the interface itself. Over UDP, where requests and answers can be lost, a gateway
/// that has not been heard is asked for its identity and load again every 3 s.
class CInterfaceInUse : public QObject
{
    Q_OBJECT

public:
    enum class EOpening {
        eOnce,     ///< closes when the first attempt fails; `status` has the code and the reason
        eUntilOpen ///< tries again every 3 s
    };
    /// Messages of `send` that may wait for the thread of the interface: a second of a full bus.
    static constexpr std::size_t SEND_LIMIT = 10'000;

    /// Takes over a closed interface of the calling thread, and begins to open it.
    CInterfaceInUse(std::unique_ptr<Cim::CCanInterface> canInterface, std::shared_ptr<CMailbox> mailbox,
                    std::uint16_t source, EOpening opening);
    /// Closes the interface without waiting for it.
    ~CInterfaceInUse() override;

    const SInterfaceStatus& status() const { return m_status; }

    /// Hands over a message to be sent. Each accepted message yields a record in the mailbox, in the order of the
    /// calls: sent, or refused with a code. With `eOnce`, messages wait until the first attempt to open has ended.
    /// False when SEND_LIMIT messages wait, or the interface is closed: no record follows.
    bool send(const Cim::CCanMessage& message);
    /// Sends a message now and then every `milliseconds`, until they are 0 for the same `key`; with records as for
    /// `send`.
    void setCyclic(int key, const Cim::CCanMessage& message, int milliseconds);
    /// Brings the gateway back to a known state. Emits `wasReset` when the gateway was asked to; without a link, the
    /// interface raises its own error.
    void reset();
    /// Closes the interface: at once as far as this object is concerned, and in its thread as soon as that is not busy
    /// with opening it. Nothing comes to the mailbox or by signals afterwards, but what is under way already.
    void close();
    /// Waits until the thread has ended after `close`; false when it still runs after that time. The gateway is then
    /// still connected, or being connected.
    bool wait(unsigned long milliseconds);

    /// Closes all interfaces of this program and waits for their threads, up to a second where one is being opened. For
    /// programs that unload plugins; otherwise done when the application object ends.
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
