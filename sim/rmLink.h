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

/// A whole frame, as it is sent to a host.
QByteArray rmFrame(std::uint8_t command, const QByteArray& payload);
/// The frame that brings a CAN message to a host.
QByteArray rmFrame(const Cim::CCanMessage& message);

/// Payloads of the status reports that a gateway sends by itself: a byte of flags.
constexpr char STATUS_BUFFER_OVERFLOW[] = "\x01";
constexpr char STATUS_TRANSMIT_TIMEOUT[] = "\x02";

/// How a host is reached: over its TCP connection, or at the address that its datagrams come from.
struct SRmPeer {
    std::unique_ptr<QTcpSocket> tcp; ///< null: UDP
    QUdpSocket* udp = nullptr;       ///< the server's socket, which outlives the link; null: TCP
    QHostAddress address;
    std::uint16_t port = 0; ///< of a UDP host
};

/// One host as a server of RM frames sees it. Cuts the bytes of the host into frames and sends frames to it.
class CRmLink : public QObject
{
    Q_OBJECT

public:
    /// Bytes that may wait for a TCP host that does not read. Further frames are dropped, and the host gets a status
    /// report once it reads again. Nothing is read from a host for which half as many wait: answers need room as well.
    static constexpr qint64 SEND_LIMIT = 1024LL * 1024;
    /// Bytes of a TCP host that are read in one turn of the event loop.
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
    /// Takes bytes of the host: a datagram, or a piece of the stream.
    void receive(const char* bytes, qint64 count);
    /// Ends the link at once. What waits is lost.
    void abort();

Q_SIGNALS:
    void frameReceived(const vexmor::Cim::SRmFrame& frame);
    void frameLost();
    void disconnected();

protected:
    /// Hands what waits to the network at once.
    void flush();
    /// Reads what a TCP host sends, or leaves it in the socket.
    void setReading(bool isReading);

private:
    void readTcp();

    SRmPeer m_peer;
    Cim::CRmDeframer m_deframer;
    bool m_isReading = true;
    bool m_hasLost = false; ///< Frames were dropped, and the host has not been notified yet.
};

} // namespace vexmor::Sim
