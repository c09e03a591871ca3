#include "bench/qtLink.h"

#include "bench/eventLoop.h"

#include <QTcpSocket>
#include <QUdpSocket>

#include <stdexcept>

namespace vexmor::Bench
{

CQtLink::CQtLink(EProtocol protocol, std::uint16_t port) : m_port(port)
{
    if (protocol == EProtocol::eTcp) {
        m_socket = std::make_unique<QTcpSocket>();
        m_socket->connectToHost(QHostAddress(QHostAddress::LocalHost), port);
        m_socket->waitForConnected(PATIENCE_S * 1000);
        m_socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    } else { // bound, not connected, like the plugin's
        m_socket = std::make_unique<QUdpSocket>();
        m_socket->bind(QHostAddress(QHostAddress::LocalHost), 0);
    }
    QObject::connect(m_socket.get(), &QAbstractSocket::readyRead, m_socket.get(), [this] { onReadyRead(); });
}

void CQtLink::send(const SMessage& message)
{
    std::uint8_t frame[FRAME_SIZE];
    writeFrame(message, frame);
    const auto* const bytes = reinterpret_cast<const char*>(frame);
    auto* const udp = qobject_cast<QUdpSocket*>(m_socket.get());
    const qint64 sent = udp != nullptr
                            ? udp->writeDatagram(bytes, FRAME_SIZE, QHostAddress(QHostAddress::LocalHost), m_port)
                            : m_socket->write(bytes, FRAME_SIZE);
    if (sent != static_cast<qint64>(FRAME_SIZE)) {
        throw std::runtime_error(m_socket->errorString().toStdString());
    }
    if (udp == nullptr) {
        m_socket->flush();
    }
}

void CQtLink::receive(int count)
{
    waitUntil([this, count] { return m_received >= count; }, "messages missing");
    m_received -= count;
}

/// Frames come whole here: there is one on the way at a time.
void CQtLink::onReadyRead()
{
    char bytes[1600];
    auto* const udp = qobject_cast<QUdpSocket*>(m_socket.get());
    do {
        const qint64 size =
            udp != nullptr ? udp->readDatagram(bytes, sizeof bytes) : m_socket->read(bytes, sizeof bytes);
        parseFrames(reinterpret_cast<const std::uint8_t*>(bytes), static_cast<std::size_t>(std::max<qint64>(size, 0)),
                    [this](const SMessage&) { ++m_received; });
    } while (udp != nullptr ? udp->hasPendingDatagrams() : m_socket->bytesAvailable() > 0);
}

} // namespace vexmor::Bench
