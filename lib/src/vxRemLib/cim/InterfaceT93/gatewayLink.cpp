#include "InterfaceT93/gatewayLink.h"

#include <QHostAddress>
#include <QUdpSocket>

#if defined(Q_OS_LINUX)
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#endif

namespace vexmor::Cim
{
namespace
{
#if defined(Q_OS_LINUX)
// A silent peer is probed after 4 s, then every 2 s; after 8 s without an answer, to a probe or to data, it is gone.
constexpr int KEEP_ALIVE_IDLE_S = 4;
constexpr int KEEP_ALIVE_INTERVAL_S = 2;
constexpr int KEEP_ALIVE_PROBES = 3;
constexpr int NO_ANSWER_LIMIT_MS = 8000;

void setTcpOption(QAbstractSocket& socket, int option, int value)
{
    setsockopt(static_cast<int>(socket.socketDescriptor()), IPPROTO_TCP, option, &value, sizeof value);
}

void setPeerLossTimers(QAbstractSocket& socket)
{
    setTcpOption(socket, TCP_KEEPIDLE, KEEP_ALIVE_IDLE_S);
    setTcpOption(socket, TCP_KEEPINTVL, KEEP_ALIVE_INTERVAL_S);
    setTcpOption(socket, TCP_KEEPCNT, KEEP_ALIVE_PROBES);
    setTcpOption(socket, TCP_USER_TIMEOUT, NO_ANSWER_LIMIT_MS);
}

/// Bytes that the kernel took, 0 when it takes none now, -1 when the link failed. A write through Qt's buffer would
/// cost another turn of the event loop for each frame.
qint64 sendAtOnce(QAbstractSocket& socket, const char* bytes, qint64 size)
{
    const ssize_t sent = ::send(static_cast<int>(socket.socketDescriptor()), bytes, static_cast<size_t>(size),
                                MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent >= 0) {
        return sent;
    }
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR || errno == ENOBUFS ? 0 : -1;
}

/// QUdpSocket::writeDatagram allocates for each datagram. False, and nothing sent, for sockets and addresses of IPv6.
bool sendIpv4Datagram(QUdpSocket& socket, const char* bytes, qint64 size, const QHostAddress& address, quint16 port,
                      qint64& sent)
{
    if (address.protocol() != QAbstractSocket::IPv4Protocol ||
        socket.localAddress().protocol() != QAbstractSocket::IPv4Protocol) {
        return false;
    }
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    to.sin_addr.s_addr = htonl(address.toIPv4Address());
    sent = ::sendto(static_cast<int>(socket.socketDescriptor()), bytes, static_cast<size_t>(size),
                    MSG_DONTWAIT | MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&to), sizeof to);
    return true;
}
#else
void setPeerLossTimers(QAbstractSocket&) {}

bool sendIpv4Datagram(QUdpSocket&, const char*, qint64, const QHostAddress&, quint16, qint64&)
{
    return false;
}

qint64 sendAtOnce(QAbstractSocket&, const char*, qint64)
{
    return 0;
}
#endif
} // namespace

void tuneTcpLink(QAbstractSocket& socket)
{
    socket.setSocketOption(QAbstractSocket::LowDelayOption, 1);
    socket.setSocketOption(QAbstractSocket::KeepAliveOption, 1);
    // The kernel would let its own buffer grow to megabytes: minutes of stale commands.
    socket.setSocketOption(QAbstractSocket::SendBufferSizeSocketOption, static_cast<int>(SEND_BUFFER_LIMIT / 2));
    setPeerLossTimers(socket);
}

qint64 sendOnTcpLink(QAbstractSocket& socket, const char* bytes, qint64 size)
{
    const qint64 waiting = socket.bytesToWrite();
    if (waiting + size > SEND_BUFFER_LIMIT) {
        return -1;
    }
    const qint64 sent = waiting == 0 ? sendAtOnce(socket, bytes, size) : 0;
    if (sent < 0 || sent == size) {
        return sent;
    }
    const qint64 buffered = socket.write(bytes + sent, size - sent);
    return buffered == size - sent ? size : -1;
}

qint64 sendDatagram(QUdpSocket& socket, const char* bytes, qint64 size, const QHostAddress& address, quint16 port)
{
    qint64 sent = 0;
    if (sendIpv4Datagram(socket, bytes, size, address, port, sent)) {
        return sent;
    }
    return socket.writeDatagram(bytes, size, address, port);
}

} // namespace vexmor::Cim
