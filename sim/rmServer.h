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

/// The identity that a gateway reports.
struct SGatewayIdentity {
    std::array<std::uint8_t, 6> macAddress{};
    std::uint8_t firmwareMajor = 0;
    std::uint8_t firmwareMinor = 0;
    QByteArray deviceText; ///< Device identification, which hosts request when the firmware is 2.3.
    std::uint16_t deviceNumber = 1;
    bool measuresBusload = true; ///< False for an older gateway, which does not answer bus load requests.
};

/// A server of RM frames: answers the requests of hosts as a T93 gateway does, and passes CAN messages between them and
/// a bus. Derived classes provide the bus and everything else in which gateways differ. It lives in one thread, driven
/// by the event loop.
///
/// The number of hosts is limited. Further TCP connections are refused, as by a gateway. A UDP host is known from its
/// first datagram on; beyond the limit, a new one replaces the oldest.
class CRmServer : public QObject
{
    Q_OBJECT

public:
    enum class ETransports { eTcp, eTcpAndUdp };

    explicit CRmServer(ETransports transports, QObject* parent = nullptr);
    ~CRmServer() override;

    /// Starts to serve a port of an address; for port 0 the system chooses one that is free for all transports.
    Failure listen(const QHostAddress& address, std::uint16_t port);
    std::uint16_t port() const { return m_port; }
    QHostAddress address() const { return m_address; }

    const SGatewayIdentity& identity() const { return m_identity; }
    void setIdentity(const SGatewayIdentity& identity) { m_identity = identity; }
    /// Sets how many TCP hosts are served at a time, and also how many UDP hosts; initially 1 of each. Less than 1
    /// counts as 1.
    void setMaxClients(int count);

    /// Returns the number of hosts connected over TCP.
    int tcpHostCount() const { return count(true); }
    /// Returns the number of hosts known over UDP.
    int udpHostCount() const { return count(false); }

    /// Sends a frame of any command to all hosts.
    void sendFrame(std::uint8_t command, const QByteArray& payload) { sendToAll(rmFrame(command, payload)); }
    /// Sends a status report to all hosts.
    void sendStatus(std::uint8_t flags) { sendFrame(Cim::RM_CMD_STATUS, QByteArray(1, static_cast<char>(flags))); }
    /// Resets all TCP connections, whose undelivered data is lost, and forgets the UDP hosts.
    void dropLinks();

Q_SIGNALS:
    void hostConnected();
    void hostDisconnected();
    /// A frame was dropped because a host reads too slowly.
    void frameLost();

protected:
    // The following functions are provided by derived classes.

    /// Puts a message from a host on the bus.
    virtual void putOnBus(const Cim::CCanMessage& message, CRmLink& from) = 0;
    /// Executes a request that changes the gateway (bit rate, measuring interval, reset), or ignores the request; the
    /// host receives the same answer in both cases.
    virtual void change(const Cim::SRmFrame& request) = 0;
    /// Returns the link for a new host; null rejects the host.
    virtual std::unique_ptr<CRmLink> makeLink(SRmPeer peer) { return std::make_unique<CRmLink>(std::move(peer)); }
    /// Returns whether hosts can reach the gateway now. Otherwise connections are refused and datagrams dropped.
    virtual bool isReachable(bool /*overTcp*/) const { return true; }
    /// Handles a frame from a host.
    virtual void handle(CRmLink& link, const Cim::SRmFrame& frame);
    /// Sends the answer to a request.
    virtual void reply(CRmLink& link, const QByteArray& frame) { link.send(frame); }

    // The following functions are used by derived classes.

    QTcpServer& tcpServer() { return m_server; }

    /// Counts a message on the bus for the load and delivers it to all hosts except the host whose link is `sender`. If
    /// `sender` is this server, no host receives the message.
    void onBusMessage(const Cim::CCanMessage& message, const QObject* sender);
    void sendToAll(const QByteArray& frame, const QObject* except = nullptr);
    /// Starts to measure the load of the bus over successive intervals.
    void startMeasuring(int intervalMs);
    void stopMeasuring();
    /// Opens the port for connections or closes it, depending on `isReachable` and the number of hosts.
    void updateListening();
    /// Returns the links to all hosts, oldest first.
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
    QTcpSocket m_heldPort; ///< Bound while the server does not listen.
    QUdpSocket m_udp;
    QHostAddress m_address;
    std::uint16_t m_port = 0;
    int m_maxClients = 1;
    std::vector<std::unique_ptr<CRmLink>> m_links; ///< Links to all hosts, oldest first.
    QTimer m_measureTimer;
    QElapsedTimer m_measureClock;
    std::uint64_t m_bits = 0;          ///< Bits on the bus in this interval.
    std::uint64_t m_bitsPerSecond = 0; ///< Mean rate in the last complete interval.
};

} // namespace vexmor::Sim
