#pragma once

#include "apps/host/interfaceStatus.h"
#include "cim/canInterface.h"

#include <QObject>

#include <cstdint>
#include <memory>

namespace vexmor::Apps
{

/// The first line of an interface's text for one of its errors: what happened; the others say what to do.
QString titleOf(const QString& errorText);

/// An interface as a program uses it: what arrives and what goes wrong comes as signals.
///
/// Every message is handed on in the moment it is received: the spy handler empties the queue of the interface, so that
/// it never fills, and sent and received messages keep their order. Lives in the thread of its interface, which must
/// run an event loop; both move to another thread together, by `moveToThread` of this object. A slot deletes it by
/// `deleteLater` only.
class CHostedInterface : public QObject
{
    Q_OBJECT

public:
    /// Takes over a closed interface; who the gateway is, it forgets until the gateway says so.
    explicit CHostedInterface(std::unique_ptr<Cim::CCanInterface> canInterface, QObject* parent = nullptr);
    /// Closes the interface and deletes it.
    ~CHostedInterface() override;

    Cim::CCanInterface& canInterface() { return *m_canInterface; }
    /// Sends a message; gives the code of the interface.
    int send(const Cim::CCanMessage& message);
    /// What is known of the connection now.
    SInterfaceStatus status();
    /// Messages that the interface received, and of these those that were taken from it: the rest was refused by a full
    /// queue and is lost.
    std::uint64_t arrivedCount() const { return m_arrived; }
    std::uint64_t receivedCount() const { return m_received; }

Q_SIGNALS:
    void received(const vexmor::Cim::CCanMessage& message);
    /// The interface took a message to send: as it goes out.
    void sent(const vexmor::Cim::CCanMessage& message);
    /// The interface reports trouble; it goes on.
    void errorRaised(int error);

private:
    static int spy(const Cim::CCanInterface& canInterface, bool sending, const Cim::CCanMessage& message);
    void takeMessages();

    std::unique_ptr<Cim::CCanInterface> m_canInterface; ///< child: the spy handler, a plain function, finds its host
    Cim::CCanMessage m_spied;                           ///< the last message that was seen being sent
    std::uint64_t m_arrived = 0;
    std::uint64_t m_received = 0;
};

} // namespace vexmor::Apps
