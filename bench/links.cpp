#include "bench/links.h"

#include "bench/pluginInterface.h"

#include <QCoreApplication>
#include <QTcpSocket>
#include <QUdpSocket>

#include <sys/socket.h>
#include <unistd.h>

#include <utility>

namespace vexmor::Bench
{
std::uint64_t CEventLoopLink::receive(int count)
{
    m_missing += count;
    waitUntil([this] {
        take();
        return m_missing <= 0;
    });
    return std::exchange(m_sum, 0);
}

namespace
{
class CRawLink : public CLink
{
public:
    CRawLink(EProtocol protocol, std::uint16_t port) : m_socket(connectToLoopback(protocol, port))
    {
        const timeval patience{PATIENCE_S, 0};
        check(setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience) == 0, "SO_RCVTIMEO");
    }
    ~CRawLink() override { ::close(m_socket); }

    void send(const SMessage& message) override
    {
        std::uint8_t frame[FRAME_SIZE];
        writeFrame(message, frame);
        check(::send(m_socket, frame, sizeof frame, MSG_NOSIGNAL) == static_cast<ssize_t>(sizeof frame), "send");
    }
    std::uint64_t receive(int count) override
    {
        std::uint64_t sum = 0;
        while (count > 0) {
            m_reader.readFrom(
                [this](std::uint8_t* bytes, std::size_t size) { return ::recv(m_socket, bytes, size, 0); },
                [&](const SMessage& message) {
                    sum += lookAt(message);
                    --count;
                });
        }
        return sum;
    }

private:
    const int m_socket;
    CFrameReader m_reader;
};

class CQtLink : public CEventLoopLink
{
public:
    CQtLink(EProtocol protocol, std::uint16_t port) : m_port(port)
    {
        if (protocol == EProtocol::eTcp) {
            m_socket = std::make_unique<QTcpSocket>();
            m_socket->connectToHost(m_host, port);
            m_socket->waitForConnected(PATIENCE_S * 1000);
            m_socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        } else { // bound but not connected, like the socket of the plugin
            m_socket = std::make_unique<QUdpSocket>();
            m_socket->bind(m_host, 0);
        }
        m_udp = qobject_cast<QUdpSocket*>(m_socket.get());
        QObject::connect(m_socket.get(), &QAbstractSocket::readyRead, m_socket.get(), [this] { onReadyRead(); });
    }

    void send(const SMessage& message) override
    {
        std::uint8_t frame[FRAME_SIZE];
        writeFrame(message, frame);
        const auto* const bytes = reinterpret_cast<const char*>(frame);
        const qint64 sent = m_udp != nullptr ? m_udp->writeDatagram(bytes, FRAME_SIZE, m_host, m_port)
                                             : m_socket->write(bytes, FRAME_SIZE);
        if (sent != static_cast<qint64>(FRAME_SIZE)) {
            throw std::runtime_error(m_socket->errorString().toStdString());
        }
        m_socket->flush();
    }

private:
    void onReadyRead()
    {
        while (m_udp != nullptr ? m_udp->hasPendingDatagrams() : m_socket->bytesAvailable() > 0) {
            m_reader.readFrom(
                [this](std::uint8_t* bytes, std::size_t size) {
                    auto* const data = reinterpret_cast<char*>(bytes);
                    const auto room = static_cast<qint64>(size);
                    return m_udp != nullptr ? m_udp->readDatagram(data, room) : m_socket->read(data, room);
                },
                [this](const SMessage& message) { look(message.id, DATA_SIZE, message.data.data()); });
        }
    }

    const QHostAddress m_host{QHostAddress::LocalHost};
    const std::uint16_t m_port; ///< Port of the gateway.
    std::unique_ptr<QAbstractSocket> m_socket;
    QUdpSocket* m_udp = nullptr; ///< `m_socket` when it is a UDP socket.
    CFrameReader m_reader;
};

class CPluginLink : public CEventLoopLink
{
public:
    CPluginLink(EProtocol protocol, std::uint16_t port) : m_interface(makeInterface(protocol, port))
    {
        open(*m_interface);
    }
    ~CPluginLink() override { close(*m_interface); }

    void send(const SMessage& message) override
    {
        auto* const data = const_cast<std::uint8_t*>(message.data.data()); // the constructor only reads them
        const Cim::CCanMessage canMessage(Cim::CCanId::fromValue(message.id), DATA_SIZE, data);
        const int code = m_interface->writeMessage(canMessage);
        if (code != 0) {
            throw std::runtime_error(m_interface->errorCodeToString(code).toStdString());
        }
    }

private:
    void take() override
    {
        for (Cim::CCanMessage message; m_missing > 0 && m_interface->readMessage(message) == 0;) {
            look(message.id().value(), message.length(), message.data());
        }
    }
    const std::unique_ptr<Cim::CCanInterface> m_interface;
};
} // namespace

std::unique_ptr<CLink> makeRawLink(EProtocol protocol, std::uint16_t port)
{
    return std::make_unique<CRawLink>(protocol, port);
}

std::unique_ptr<CLink> makeQtLink(EProtocol protocol, std::uint16_t port)
{
    return std::make_unique<CQtLink>(protocol, port);
}

std::unique_ptr<CLink> makePluginLink(EProtocol protocol, std::uint16_t port)
{
    return std::make_unique<CPluginLink>(protocol, port);
}

} // namespace vexmor::Bench
