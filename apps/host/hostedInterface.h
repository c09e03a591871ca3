#pragma once

#include "apps/host/interfaceStatus.h"
#include "cim/canInterface.h"

#include <QDeadlineTimer>
#include <QObject>

#include <cstdint>
#include <memory>

namespace vexmor::Apps
{

/// Returns the first line of an interface's text for an error, which names the error. The other lines give advice.
QString titleOf(const QString& errorText);

/// An interface that reports its messages and errors by signals.
///
/// The spy handler empties the queue of the interface at each received message, so that the queue never fills, and sent
/// and received messages keep their order. Lives in the thread of its interface, which must run an event loop; both
/// move to another thread together, by `moveToThread` of this object. Slots may delete this object only by
/// `deleteLater`.
class CHostedInterface : public QObject
{
    Q_OBJECT

public:
    /// Takes over a closed interface and clears its MAC address and firmware version: the gateway sends them anew.
    explicit CHostedInterface(std::unique_ptr<Cim::CCanInterface> canInterface, QObject* parent = nullptr);
    /// Closes the interface and deletes it.
    ~CHostedInterface() override;

    Cim::CCanInterface& canInterface() { return *m_canInterface; }
    /// Sends a message and returns the result code of the interface.
    int send(const Cim::CCanMessage& message);
    /// Checks the connection and returns the status. The owner calls this several times per second while the interface
    /// is open. Over UDP, where requests and answers can be lost, this function also repeats the requests for identity
    /// and load every 3 s while no frame arrives; over UDP a gateway counts as silent only when it has not answered
    /// such a request within 1 s.
    const SInterfaceStatus& updateStatus();
    /// Returns the last result of `updateStatus`.
    const SInterfaceStatus& status() const { return m_status; }
    /// Returns the number of messages that `received` reported.
    std::uint64_t receivedCount() const { return m_received; }
    /// Returns the number of messages that a full queue of the interface refused.
    std::uint64_t lostCount() const { return m_arrived - m_received; }

Q_SIGNALS:
    void received(const vexmor::Cim::CCanMessage& message);
    /// The interface accepted a message for sending.
    void sent(const vexmor::Cim::CCanMessage& message);
    /// The interface raised an error; it stays open.
    void errorRaised(int error);

private:
    static int spy(const Cim::CCanInterface& canInterface, bool sending, const Cim::CCanMessage& message);
    void takeMessages();
    SInterfaceStatus readStatus();

    std::unique_ptr<Cim::CCanInterface> m_canInterface; ///< A child, so that the spy handler finds this object.
    std::uint64_t m_arrived = 0;                        ///< Number of received messages that the spy handler saw.
    std::uint64_t m_received = 0;
    SInterfaceStatus m_status;
    QDeadlineTimer m_nextRequest; ///< Time of the next repeated requests; expired while frames arrive.
};

} // namespace vexmor::Apps
