#pragma once

#include "canlog/problem.h"
#include "sim/rmLink.h"

#include <QElapsedTimer>
#include <QTcpServer>
#include <QTimer>

#include <array>
#include <optional>
#include <utility>
#include <vector>

namespace vexmor::Sim
{

/// Who a gateway says it is.
struct SGatewayIdentity {
    std::array<std::uint8_t, 6> macAddress{};
    std::uint8_t firmwareMajor = 0;
    std::uint8_t firmwareMinor = 0;
    QByteArray deviceText; ///< device identification; hosts request it when the firmware is 2.3
    std::uint16_t deviceNumber = 1;
    bool measuresBusload = true; ///< false: an older gateway, which leaves bus load requests unanswered
};

/// A server of RM frames: answers the requests of hosts as a T93 gateway does, and carries CAN messages between them
/// and a bus. The bus, and what else differs from one gateway to another, belongs to the derived class. Lives in one
/// thread, driven by its event loop.
///
/// While as many TCP hosts as it serves are connected, further connections are refused, as a gateway does. A UDP host
/// is known from its first datagram; a new one takes the place of the oldest.
class CRmServer : public QObject
{
    Q_OBJECT

public:
    enum class ETransports { eTcp, eTcpAndUdp };

    explicit CRmServer(ETransports transports, QObject* parent = nullptr);
    ~CRmServer() override;

    /// Starts to serve a port of an address; port 0 lets the system pick one that is free for all transports.
    Failure listen(const QHostAddress& address, std::uint16_t port);
    std::uint16_t port() const { return m_port; }
    QHostAddress address() const { return m_address; }

    const SGatewayIdentity& identity() const { return m_identity; }
    void setIdentity(const SGatewayIdentity& identity) { m_identity = identity; }
    /// Sets the number of TCP hosts, and of UDP hosts, that are served at a time; 1 at first.
    void setMaxClients(int count);

    /// Return the number of hosts that are connected over TCP, and known over UDP.
    int tcpHostCount() const { return count(true); }
    int udpHostCount() const { return count(false); }

    /// Sends a frame of any command to all hosts.
    void sendFrame(std::uint8_t command, const QByteArray& payload) { sendToAll(rmFrame(command, payload)); }
    /// Sends a status report to all hosts.
    void sendStatus(std::uint8_t flags) { sendFrame(Cim::RM_CMD_STATUS, QByteArray(1, static_cast<char>(flags))); }
    /// Drops all TCP connections (a reset: what was not delivered is lost) and forgets the UDP hosts.
    void dropLinks();

Q_SIGNALS:
    void hostConnected();
    void hostDisconnected();
    /// A host reads too slowly and missed one more frame.
    void frameLost();

protected:
    // What differs from one gateway to another.

    /// Puts a message of a host on the bus.
    virtual void putOnBus(const Cim::CCanMessage& message, CRmLink& from) = 0;
    /// Follows a request that changes the gateway (bit rate, measuring interval, reset), or ignores it: the answer is
    /// the same.
    virtual void change(const Cim::SRmFrame& request) = 0;
    /// Makes the link of a new host; null turns the host away.
    virtual std::unique_ptr<CRmLink> makeLink(SRmPeer peer) { return std::make_unique<CRmLink>(std::move(peer)); }
    /// Returns whether hosts reach the gateway at present. Otherwise new connections are refused, or datagrams dropped.
    virtual bool isReachable(bool /*overTcp*/) const { return true; }
    /// Handles a frame of a host.
    virtual void handle(CRmLink& link, const Cim::SRmFrame& frame);
    /// Sends the answer to a request.
    virtual void reply(CRmLink& link, const QByteArray& frame) { link.send(frame); }

    // What derived classes need.

    QTcpServer& tcpServer() { return m_server; }

    /// Delivers a message that was on the bus to all hosts but the one whose link is `sender`, and counts it for the
    /// load. A message whose sender is the gateway itself is delivered to no host.
    void onBusMessage(const Cim::CCanMessage& message, const QObject* sender);
    void sendToAll(const QByteArray& frame, const QObject* except = nullptr);
    /// Measures the load of the bus from now on, over one interval after the other.
    void startMeasuring(int intervalMs);
    void stopMeasuring();
    /// Opens the port for connections, or closes it, as `isReachable` and the number of hosts have it.
    void updateListening();
    /// All hosts, oldest first.
    const std::vector<std::unique_ptr<CRmLink>>& links() const { return m_links; }

private:
    void onNewConnection();
    void onDatagrams();
    CRmLink* linkOf(const QHostAddress& address, std::uint16_t port);
    CRmLink* addLink(SRmPeer peer);
    void removeLink(const CRmLink* link);
    int count(bool overTcp) const;
    std::optional<QByteArray> answerTo(const Cim::SRmFrame& request);
    void endInterval();
    QByteArray measuredLoad() const;

    const ETransports m_transports;
    SGatewayIdentity m_identity;
    QTcpServer m_server;
    QUdpSocket m_udp;
    QHostAddress m_address;
    std::uint16_t m_port = 0;
    int m_maxClients = 1;
    std::vector<std::unique_ptr<CRmLink>> m_links; ///< oldest first
    QTimer m_measureTimer;
    QElapsedTimer m_measureClock;
    std::uint64_t m_bits = 0;          ///< on the bus in this interval
    std::uint64_t m_bitsPerSecond = 0; ///< in the last whole interval
};

} // namespace vexmor::Sim
