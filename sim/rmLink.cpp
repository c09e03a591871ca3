#include "sim/rmLink.h"

#include <QPointer>
#include <QTimer>

#include <algorithm>
#include <utility>

namespace vexmor::Sim
{

QByteArray rmFrame(std::uint8_t command, const QByteArray& payload)
{
    std::uint8_t buffer[Cim::RM_BUFFER_SIZE];
    const auto size = Cim::rmFrameBytes(command, reinterpret_cast<const std::uint8_t*>(payload.constData()),
                                        static_cast<std::size_t>(payload.size()), buffer);
    return QByteArray(reinterpret_cast<const char*>(buffer), static_cast<int>(size));
}

QByteArray rmFrame(const Cim::CCanMessage& message)
{
    const char id[] = {static_cast<char>(message.id().high()), static_cast<char>(message.id().low())};
    return rmFrame(Cim::RM_CMD_RX11BIT_MSG,
                   QByteArray(id, sizeof id)
                       .append(reinterpret_cast<const char*>(message.data()), static_cast<int>(message.length())));
}

CRmLink::CRmLink(SRmPeer peer) : m_peer(std::move(peer))
{
    if (isTcp()) {
        m_peer.tcp->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        m_peer.tcp->setReadBufferSize(READ_LIMIT);
        connect(m_peer.tcp.get(), &QTcpSocket::readyRead, this, &CRmLink::readTcp);
        connect(m_peer.tcp.get(), &QTcpSocket::bytesWritten, this, &CRmLink::readTcp, Qt::QueuedConnection);
        connect(m_peer.tcp.get(), &QTcpSocket::disconnected, this, &CRmLink::disconnected, Qt::QueuedConnection);
    }
}

void CRmLink::send(const QByteArray& frame)
{
    if (m_peer.udp != nullptr) {
        m_peer.udp->writeDatagram(frame, m_peer.address, m_peer.port);
    } else if (isTcp() && m_peer.tcp->isOpen()) { // when it is closed, `disconnected` follows
        const auto isFull = [this] { return m_peer.tcp->bytesToWrite() >= SEND_LIMIT; };
        if (isFull() && !m_hasLost) {
            flush();
        }
        if (isFull()) {
            m_hasLost = true;
            Q_EMIT frameLost();
            return;
        }
        if (std::exchange(m_hasLost, false)) {
            m_peer.tcp->write(rmFrame(Cim::RM_CMD_STATUS, STATUS_BUFFER_OVERFLOW));
        }
        m_peer.tcp->write(frame);
    }
}

void CRmLink::flush()
{
    if (isTcp()) {
        m_peer.tcp->flush();
    }
}

void CRmLink::requireFrame(int milliseconds)
{
    m_mustBeginFrame = true;
    auto* const limit = new QObject(this);
    QTimer::singleShot(milliseconds, limit, [this] { m_peer.tcp->abort(); });
    connect(this, &CRmLink::frameReceived, limit, &QObject::deleteLater);
}

void CRmLink::abort()
{
    m_peer.udp = nullptr;
    if (isTcp()) {
        m_peer.tcp->disconnect(this);
        m_peer.tcp->abort();
    }
}

void CRmLink::setReading(bool isReading)
{
    m_isReading = isReading;
    if (isTcp()) {
        m_peer.tcp->setReadBufferSize(isReading ? READ_LIMIT : 1);
        readTcp();
    }
}

void CRmLink::readTcp()
{
    if (m_mustBeginFrame && m_peer.tcp->bytesAvailable() > 0) {
        m_mustBeginFrame = false;
        if (!m_peer.tcp->peek(1).startsWith(Cim::RM_START_OF_FRAME)) {
            m_peer.tcp->abort();
        }
    }
    const QPointer<CRmLink> self(this);
    char bytes[READ_LIMIT];
    while (self && m_isReading && waiting() < SEND_LIMIT / 2 && m_peer.tcp->bytesAvailable() > 0) {
        receive(bytes, m_peer.tcp->read(bytes, sizeof bytes));
    }
}

void CRmLink::receive(const char* bytes, qint64 count)
{
    const QPointer<CRmLink> self(this);
    m_deframer.feed(
        reinterpret_cast<const std::uint8_t*>(bytes), static_cast<std::size_t>(std::max<qint64>(count, 0)),
        [&](const Cim::SRmFrame& frame) {
            Q_EMIT frameReceived(frame);
            return !self.isNull();
        },
        [] { return true; });
}

} // namespace vexmor::Sim
