#pragma once

#include "InterfaceT93/rmFrame.h"

#include <QByteArray>
#include <QHostAddress>
#include <QObject>
#include <QTcpSocket>
#include <QUdpSocket>

#include <cstdint>
#include <memory>

namespace vexmor::Sim
{

/// Returns a frame of any command for a host, a program that uses the gateway.
QByteArray rmFrame(std::uint8_t command, const QByteArray& payload);
/// Returns the frame that delivers a CAN message to a host.
QByteArray rmFrame(const Cim::CCanMessage& message);

/// Payloads of status reports that a gateway sends unrequested: one byte of flags.
constexpr char STATUS_BUFFER_OVERFLOW[] = "\x01";
constexpr char STATUS_TRANSMIT_TIMEOUT[] = "\x02";

/// The way to a host: its TCP connection, or the address from which it sends datagrams.
struct SRmPeer {
    std::unique_ptr<QTcpSocket> tcp; ///< Connection of a TCP host; null for UDP.
    QUdpSocket* udp = nullptr;       ///< The server's socket for a UDP host, which outlives the link; null for TCP.
    QHostAddress address;
    std::uint16_t port = 0; ///< Port of a UDP host.
};

/// The link of a server of RM frames to one host: a program that uses the gateway. It cuts the host's bytes into frames
/// and sends frames to the host.
class CRmLink : public QObject
{
    Q_OBJECT

public:
    /// Maximum number of bytes that wait for a TCP host that does not read. Further frames are dropped, and the host
    /// receives a status report when it reads again. While half of this limit waits, nothing is read from the host, to
    /// keep room for answers.
    static constexpr qint64 SEND_LIMIT = 1024LL * 1024;
    /// Maximum number of bytes of a TCP host that are read in one turn of the event loop.
    static constexpr qint64 READ_LIMIT = Cim::RM_BUFFER_SIZE;

    explicit CRmLink(SRmPeer peer);

    bool isTcp() const { return m_peer.tcp != nullptr; }
    const QHostAddress& address() const { return m_peer.address; }
    bool isFrom(const QHostAddress& address, std::uint16_t port) const
    {
        return m_peer.address == address && m_peer.port == port;
    }
    /// Returns the number of bytes that wait for the host.
    virtual qint64 waiting() const { return isTcp() ? m_peer.tcp->bytesToWrite() : 0; }

    /// Sends a frame. Over TCP the frames of one turn of the event loop leave in one write; over UDP each is a
    /// datagram.
    virtual void send(const QByteArray& frame);
    /// Handles bytes from the host: a datagram, or a piece of the stream.
    void receive(const char* bytes, qint64 count);
    /// Ends this TCP link if its first byte does not begin a frame, or if no frame arrives within `milliseconds`.
    void requireFrame(int milliseconds);
    /// Ends the link at once; bytes that wait are lost.
    void abort();

Q_SIGNALS:
    void frameReceived(const vexmor::Cim::SRmFrame& frame);
    /// A frame was dropped because the host reads too slowly.
    void frameLost();
    void disconnected();

protected:
    /// Passes the bytes that wait to the network at once.
    void flush();
    /// Turns reading from a TCP host on or off. Unread bytes stay in the socket.
    void setReading(bool isReading);

private:
    void readTcp();

    SRmPeer m_peer;
    Cim::CRmDeframer m_deframer;
    bool m_isReading = true;
    bool m_mustBeginFrame = false; ///< The next byte must begin a frame.
    bool m_hasLost = false;        ///< Frames were dropped, and the host has not been notified yet.
};

} // namespace vexmor::Sim
