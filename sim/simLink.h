#pragma once

#include "InterfaceT93/rmFrame.h"
#include "sim/simGateway.h"

#include <QByteArray>
#include <QObject>
#include <QTcpSocket>
#include <QTimer>
#include <QUdpSocket>

#include <cstdint>
#include <deque>
#include <memory>

namespace vexmor::Sim
{

/// Flags of the status reports that a gateway sends by itself.
constexpr std::uint8_t STATUS_BUFFER_OVERFLOW = 0x01;
constexpr std::uint8_t STATUS_TRANSMIT_TIMEOUT = 0x02;

/// One host as a gateway sees it: a TCP connection, or the address that UDP datagrams come from. Cuts what the host
/// sends into frames, and sends frames with the gateway's faults. The frames of one turn of the event loop leave in one
/// write.
class CSimLink : public QObject
{
    Q_OBJECT

public:
    /// What may wait for a TCP host that does not read; frames past it are dropped, and a status report tells the host
    /// when it reads again.
    static constexpr qint64 SEND_LIMIT = 1024LL * 1024;

    /// Takes the connection over. `faults` must outlive the link.
    CSimLink(QTcpSocket* tcp, const SSimFaults& faults);
    /// Shares the gateway's socket, which must outlive the link.
    CSimLink(QUdpSocket& udp, const QHostAddress& address, std::uint16_t port, const SSimFaults& faults);

    bool isTcp() const { return m_tcp != nullptr; }
    bool isFrom(const QHostAddress& address, std::uint16_t port) const
    {
        return m_address == address && m_port == port;
    }
    /// Bytes that wait for the host.
    qint64 waiting() const { return m_tcp ? m_tcp->bytesToWrite() : 0; }

    void send(std::uint8_t command, const std::uint8_t* payload, std::size_t size);
    /// Bytes as they are.
    void sendRaw(const QByteArray& bytes);
    /// Takes the faults as they are now: reads, or no longer reads.
    void applyFaults();
    /// Ends a TCP connection at once; what waits is lost.
    void abort();
    /// Bytes of the host, from one datagram.
    void receive(const char* bytes, qint64 count);

Q_SIGNALS:
    void frameReceived(const vexmor::Cim::SRmFrame& frame);
    void framesLost(int count);
    void disconnected();

private:
    struct SChunk {
        QByteArray bytes;
        int frames = 0;
        bool sealed = false; ///< nothing is joined to it
    };

    void append(const QByteArray& bytes, bool sealed);
    void flush();
    void write(const SChunk& chunk);
    void readTcp();

    const SSimFaults& m_faults;
    std::unique_ptr<QTcpSocket> m_tcp;
    QUdpSocket* m_udp = nullptr;
    QHostAddress m_address;
    std::uint16_t m_port = 0;
    Cim::CRmDeframer m_deframer;
    std::deque<SChunk> m_chunks;
    QTimer m_flushTimer;
    int m_frameCount = 0; ///< sent so far: every Nth one is faulty
    bool m_hasLost = false;
};

} // namespace vexmor::Sim
