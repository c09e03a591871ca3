#pragma once

#include "InterfaceT93/detectionDatagrams.h"
#include "cim/canMessage.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QHostAddress>
#include <QObject>
#include <QString>
#include <QTcpServer>
#include <QTimer>
#include <QUdpSocket>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace vexmor::Cim
{
struct SRmFrame;
}

namespace vexmor::Sim
{

class CSimBus;
class CSimLink;

/// How a host can reach a gateway, as the gateway tells it to hosts that scan the network. Values that no gateway has
/// are told just as well.
struct SSimEndpoint {
    std::uint8_t service = Cim::DDT_SERVICE_SERVER;
    std::uint8_t protocol = Cim::DDT_PROTOCOL_TCP;
    std::uint16_t port = 0; ///< 0: the port that the gateway serves
};

/// Who a simulated gateway says it is.
struct SSimIdentity {
    std::array<std::uint8_t, 6> macAddress{0x02, 0x00, 0x00, 0x54, 0x39, 0x33};
    std::uint8_t firmwareMajor = 1;
    std::uint8_t firmwareMinor = 5;
    QByteArray deviceText = "T93 SIM SW02.03"; ///< device identification; hosts ask for it when the firmware is 2.3
    std::uint16_t deviceNumber = 1;
    bool measuresBusload = true;    ///< false: an older gateway, which leaves bus load requests unanswered
    QByteArray hostName = "t93sim"; ///< told, like the endpoints, to hosts that scan the network (CSimDetection)
    std::vector<SSimEndpoint> endpoints{{}, {Cim::DDT_SERVICE_SERVER, Cim::DDT_PROTOCOL_UDP, 0}};
};

/// How a simulated gateway misbehaves, from now on. Each is independent of the others; the default is to behave.
struct SSimFaults {
    int wrongChecksumEvery = 0; ///< every Nth frame to the host has a wrong checksum; 0: none
    int missingEndEvery = 0;    ///< every Nth frame has another byte in the place of the end marker; 0: none
    QByteArray garbage;         ///< these bytes before every frame
    int cutAt = 0;        ///< every TCP frame in two writes (UDP: two datagrams), the first of so many bytes; 0: whole
    int cutDelayMs = 5;   ///< pause between the two
    int mergeCount = 1;   ///< so many frames are joined into one write; fewer wait for the next
    int replyDelayMs = 0; ///< before each reply
    bool mute = false;    ///< requests are read and not answered; messages still pass
    bool blackHole = false; ///< connections are accepted; nothing is read and nothing said
    bool refuse = false;    ///< connections are refused (those that stand stay up)
};

/// A T93 gateway in software: answers hosts over TCP and over UDP on one port, as a gateway does, and carries messages
/// between them and a simulated bus. Lives in one thread with its bus, driven by that thread's event loop.
///
/// While as many TCP hosts as it takes are connected, further connections are refused, as the real one does. A UDP host
/// is known from its first datagram; the newest take the place of the oldest.
class CSimGateway : public QObject
{
    Q_OBJECT

public:
    /// `bus` must outlive the gateway.
    explicit CSimGateway(CSimBus& bus, QObject* parent = nullptr);
    ~CSimGateway() override;

    /// Starts to serve TCP and UDP on one port of an address; port 0 lets the system pick one that is free for both.
    /// False, with a text for the user, when that cannot be had.
    bool listen(const QHostAddress& address, std::uint16_t port, QString& error);
    std::uint16_t port() const { return m_port; }
    QHostAddress address() const { return m_address; }

    const SSimIdentity& identity() const { return m_identity; }
    void setIdentity(const SSimIdentity& identity) { m_identity = identity; }
    const SSimFaults& faults() const { return m_faults; }
    void setFaults(const SSimFaults& faults);
    /// TCP hosts, and UDP hosts, that are served at a time; 1 at first.
    void setMaxClients(int count);
    /// Makes it a gateway that serves many hosts at once, over TCP alone, to be called before `listen`. Each hears what
    /// the others send, and none changes anything for the others: bit rate requests, resets and measuring intervals are
    /// answered and ignored, the bus load is measured over a second. `admits` says who may connect.
    void share(std::function<bool(QTcpSocket&)> admits);
    /// Every message of a host is put on the bus a second time, by somebody else: it comes back to that host.
    void setEcho(bool echo) { m_echo = echo; }

    /// Hosts connected over TCP, and known over UDP.
    int tcpHostCount() const { return count(true); }
    int udpHostCount() const { return count(false); }

    /// Drops all TCP connections (a reset: what was not delivered is lost) and forgets the UDP hosts.
    void dropLinks();
    /// Sends to all hosts: a status report, a frame of any command, bytes as they are (without faults).
    void sendStatus(std::uint8_t flags);
    void sendFrame(std::uint8_t command, const QByteArray& payload);
    void sendRaw(const QByteArray& bytes);
    /// Sends `count` messages (identifiers 0 to 0x7FF in turn, 8 data bytes that count up from 0, high byte first) as
    /// fast as they go, past the bus.
    void flood(int count);

    /// Measured load of the bus in percent, over the last whole measuring interval: what a host should read.
    int busloadPercent() const;

Q_SIGNALS:
    void hostConnected();
    void hostDisconnected();
    /// Every valid frame that a host sends, before it is handled; CAN messages too.
    void requestReceived(int command, const QByteArray& payload);
    /// A CAN message of a host, before it is put on the bus.
    void messageReceived(const vexmor::Cim::CCanMessage& message);
    /// A host of a shared gateway asked for what would change something for the others.
    void changeIgnored(const QString& what);
    /// A host reads too slowly and missed so many frames; it gets a status report when it reads again.
    void framesLost(int count);

private:
    void updateListening();
    void onNewConnection();
    void onDatagrams();
    void addLink(std::unique_ptr<CSimLink> link);
    void removeLink(const CSimLink* link);
    int count(bool tcp) const;

    void handle(CSimLink& link, const Cim::SRmFrame& received);
    void reply(CSimLink& link, std::uint8_t command, const QByteArray& payload);
    void sendMessage(const Cim::CCanMessage& message, const QObject* except = nullptr);
    void startMeasuring(int intervalMs);
    void measure();
    std::uint16_t measuredValue() const;
    void floodOn();

    CSimBus& m_bus;
    SSimIdentity m_identity;
    SSimFaults m_faults;
    QTcpServer m_server;
    QUdpSocket m_udp;
    QHostAddress m_address;
    std::uint16_t m_port = 0;
    int m_maxClients = 1;
    std::function<bool(QTcpSocket&)> m_admits; ///< null: the gateway is not shared
    bool m_echo = false;
    std::vector<std::unique_ptr<CSimLink>> m_links; ///< oldest first
    QTimer m_listenTimer;
    QTimer m_measureTimer;
    QElapsedTimer m_measureClock;
    std::uint64_t m_bitsBefore = 0;    ///< on the bus when the interval began
    std::uint64_t m_bitsPerSecond = 0; ///< in the last whole interval
    QTimer m_floodTimer;
    int m_floodLeft = 0;
    int m_floodSent = 0;
};

} // namespace vexmor::Sim
