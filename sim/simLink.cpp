#include "sim/simLink.h"

#include <QPointer>

#include <utility>

namespace vexmor::Sim
{
namespace
{
constexpr int JOINED_BYTES = 64 * 1024; // of TCP frames in one write
constexpr char NOT_AN_END_MARKER = 0x0A;

bool isNth(int count, int every)
{
    return every > 0 && count % every == 0;
}
} // namespace

CSimLink::CSimLink(QTcpSocket* tcp, const SSimFaults& faults)
    : m_faults(faults), m_tcp(tcp), m_address(tcp->peerAddress()), m_port(tcp->peerPort())
{
    m_tcp->setParent(nullptr);
    m_tcp->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    m_flushTimer.setSingleShot(true);
    connect(&m_flushTimer, &QTimer::timeout, this, &CSimLink::flush);
    connect(m_tcp.get(), &QTcpSocket::readyRead, this, &CSimLink::readTcp);
    connect(m_tcp.get(), &QTcpSocket::disconnected, this, &CSimLink::disconnected, Qt::QueuedConnection);
    applyFaults();
}

CSimLink::CSimLink(QUdpSocket& udp, const QHostAddress& address, std::uint16_t port, const SSimFaults& faults)
    : m_faults(faults), m_udp(&udp), m_address(address), m_port(port)
{
    m_flushTimer.setSingleShot(true);
    connect(&m_flushTimer, &QTimer::timeout, this, &CSimLink::flush);
}

void CSimLink::applyFaults()
{
    if (m_tcp) {
        m_tcp->setReadBufferSize(m_faults.blackHole ? 1 : 0);
        readTcp();
    }
}

void CSimLink::send(std::uint8_t command, const std::uint8_t* payload, std::size_t size)
{
    std::uint8_t buffer[Cim::RM_BUFFER_SIZE];
    const std::size_t length = Cim::rmFrameBytes(command, payload, size, buffer);
    ++m_frameCount;
    if (isNth(m_frameCount, m_faults.wrongChecksumEvery)) {
        buffer[length - 2] ^= 0xFF;
    }
    if (isNth(m_frameCount, m_faults.missingEndEvery)) {
        buffer[length - 1] = NOT_AN_END_MARKER;
    }
    const QByteArray frame =
        m_faults.garbage + QByteArray(reinterpret_cast<const char*>(buffer), static_cast<int>(length));
    if (m_faults.cutAt > 0 && m_faults.cutAt < frame.size()) {
        append(frame.left(m_faults.cutAt), true);
        append(frame.mid(m_faults.cutAt), true);
    } else {
        append(frame, false);
    }
}

void CSimLink::sendRaw(const QByteArray& bytes)
{
    append(bytes, true);
}

void CSimLink::abort()
{
    m_flushTimer.stop();
    m_chunks.clear();
    if (m_tcp) {
        m_tcp->disconnect(this);
        m_tcp->abort();
    }
}

void CSimLink::append(const QByteArray& bytes, bool sealed)
{
    if (m_faults.blackHole) {
        return;
    }
    const bool isMerging = m_faults.mergeCount > 1;
    const bool mayJoin = !sealed && !m_chunks.empty() && !m_chunks.back().sealed && (m_tcp || isMerging) &&
                         m_chunks.back().bytes.size() < JOINED_BYTES;
    if (!mayJoin) {
        m_chunks.push_back({QByteArray(), 0, sealed});
    }
    SChunk& chunk = m_chunks.back();
    chunk.bytes += bytes;
    ++chunk.frames;
    if (isMerging && chunk.frames == m_faults.mergeCount) {
        chunk.sealed = true;
    }
    if (!m_flushTimer.isActive()) {
        m_flushTimer.start(0);
    }
}

void CSimLink::flush()
{
    const QPointer<CSimLink> self(this);
    while (self && !m_chunks.empty()) {
        const SChunk& front = m_chunks.front();
        if (m_faults.mergeCount > 1 && !front.sealed && m_chunks.size() == 1) {
            return; // waits for the frames it is joined with
        }
        const SChunk chunk = front;
        m_chunks.pop_front();
        write(chunk);
        if (self && m_faults.cutAt > 0 && !m_chunks.empty()) {
            m_flushTimer.start(m_faults.cutDelayMs);
            return;
        }
    }
}

void CSimLink::write(const SChunk& chunk)
{
    if (m_udp != nullptr) {
        m_udp->writeDatagram(chunk.bytes, m_address, m_port);
    } else if (m_tcp->isOpen()) { // closed: `disconnected` is on its way
        m_tcp->flush();
        if (m_tcp->bytesToWrite() >= SEND_LIMIT) {
            m_hasLost = true;
            Q_EMIT framesLost(chunk.frames);
            return;
        }
        if (std::exchange(m_hasLost, false)) {
            std::uint8_t report[Cim::RM_BUFFER_SIZE];
            const auto size = Cim::rmFrameBytes(Cim::RM_CMD_STATUS, &STATUS_BUFFER_OVERFLOW, 1, report);
            m_tcp->write(reinterpret_cast<const char*>(report), static_cast<qint64>(size));
        }
        m_tcp->write(chunk.bytes);
        m_tcp->flush();
    }
}

void CSimLink::readTcp()
{
    const QPointer<CSimLink> self(this);
    char bytes[Cim::RM_BUFFER_SIZE];
    while (self && !m_faults.blackHole && m_tcp->bytesAvailable() > 0) {
        receive(bytes, m_tcp->read(bytes, sizeof bytes));
    }
}

void CSimLink::receive(const char* bytes, qint64 count)
{
    const QPointer<CSimLink> self(this);
    m_deframer.feed(
        reinterpret_cast<const std::uint8_t*>(bytes), static_cast<std::size_t>(count > 0 ? count : 0),
        [&](const Cim::SRmFrame& frame) {
            Q_EMIT frameReceived(frame);
            return !self.isNull();
        },
        [] { return true; });
}

} // namespace vexmor::Sim
