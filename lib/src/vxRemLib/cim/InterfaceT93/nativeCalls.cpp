#include "InterfaceT93/nativeCalls.h"

#include <QUdpSocket>

#if defined(CIM_LINUX_CALLS)
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <dlfcn.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#endif

namespace vexmor::Cim
{
#if defined(CIM_LINUX_CALLS)
namespace
{
// A silent peer is probed after 4 s, then every 2 s. The link is lost after 8 s without an answer to a probe or to
// data, and also when a peer that answers accepts no data for 8 s.
constexpr int KEEP_ALIVE_IDLE_S = 4;
constexpr int KEEP_ALIVE_INTERVAL_S = 2;
constexpr int KEEP_ALIVE_PROBES = 3;
constexpr int NO_ANSWER_LIMIT_MS = 8000;

void setTcpOption(QAbstractSocket& socket, int option, int value)
{
    setsockopt(static_cast<int>(socket.socketDescriptor()), IPPROTO_TCP, option, &value, sizeof value);
}

/// An address for system calls on a socket of either family. The size is 0 for an address that only Qt can translate.
struct SNativeAddress {
    sockaddr_storage storage{};
    socklen_t size = 0;
};

SNativeAddress ipv4Address(const QHostAddress& address, quint16 port)
{
    SNativeAddress native;
    auto& to = reinterpret_cast<sockaddr_in&>(native.storage);
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    to.sin_addr.s_addr = htonl(address.toIPv4Address());
    native.size = address.protocol() == QAbstractSocket::IPv4Protocol ? sizeof to : 0;
    return native;
}

/// Returns an IPv4 address in its IPv6 form: a socket that is bound to any address is an IPv6 socket.
SNativeAddress mappedAddress(const QHostAddress& address, quint16 port)
{
    SNativeAddress native;
    auto& to = reinterpret_cast<sockaddr_in6&>(native.storage);
    to.sin6_family = AF_INET6;
    to.sin6_port = htons(port);
    const Q_IPV6ADDR bytes = address.toIPv6Address();
    std::memcpy(&to.sin6_addr, &bytes, sizeof bytes);
    native.size = address.protocol() == QAbstractSocket::IPv4Protocol ? sizeof to : 0;
    return native;
}

/// Sends a datagram without the allocation of QUdpSocket::writeDatagram. Returns false, and sends nothing, for IPv6.
bool sendDatagramAtOnce(QUdpSocket& socket, const char* bytes, qint64 size, const QHostAddress& address, quint16 port,
                        qint64& sent)
{
    const auto family = socket.localAddress().protocol();
    const SNativeAddress to = family == QAbstractSocket::IPv4Protocol    ? ipv4Address(address, port)
                              : family == QAbstractSocket::AnyIPProtocol ? mappedAddress(address, port)
                                                                         : SNativeAddress();
    if (to.size == 0) {
        return false;
    }
    sent = ::sendto(static_cast<int>(socket.socketDescriptor()), bytes, static_cast<size_t>(size),
                    MSG_DONTWAIT | MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&to.storage), to.size);
    return true;
}

/// Sets `sender` to the sender of the next datagram, without the allocation of QUdpSocket::readDatagram.
void peekSender(QUdpSocket& socket, Q_IPV6ADDR& sender)
{
    sockaddr_storage native{};
    socklen_t size = sizeof native;
    ::recvfrom(static_cast<int>(socket.socketDescriptor()), nullptr, 0, MSG_PEEK | MSG_DONTWAIT,
               reinterpret_cast<sockaddr*>(&native), &size);
    if (native.ss_family == AF_INET6) {
        std::memcpy(&sender, &reinterpret_cast<const sockaddr_in6&>(native).sin6_addr, sizeof sender);
    } else if (native.ss_family == AF_INET) {
        constexpr int PREFIX_SIZE = 12;
        const std::uint8_t prefix[PREFIX_SIZE] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
        std::memcpy(&sender, prefix, PREFIX_SIZE);
        std::memcpy(&sender[PREFIX_SIZE], &reinterpret_cast<const sockaddr_in&>(native).sin_addr, sizeof(in_addr));
    }
}
} // namespace

void setPeerLossTimers(QAbstractSocket& socket)
{
    setTcpOption(socket, TCP_KEEPIDLE, KEEP_ALIVE_IDLE_S);
    setTcpOption(socket, TCP_KEEPINTVL, KEEP_ALIVE_INTERVAL_S);
    setTcpOption(socket, TCP_KEEPCNT, KEEP_ALIVE_PROBES);
    setTcpOption(socket, TCP_USER_TIMEOUT, NO_ANSWER_LIMIT_MS);
}

qint64 sendAtOnce(QAbstractSocket& socket, const char* bytes, qint64 size)
{
    // Qt's buffer is not used, because it would take another turn of the event loop per frame.
    const ssize_t sent = ::send(static_cast<int>(socket.socketDescriptor()), bytes, static_cast<size_t>(size),
                                MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent >= 0) {
        return sent;
    }
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR || errno == ENOBUFS ? 0 : -1;
}

qint64 sendDatagram(QUdpSocket& socket, const char* bytes, qint64 size, const QHostAddress& address, quint16 port)
{
    qint64 sent = 0;
    if (sendDatagramAtOnce(socket, bytes, size, address, port, sent)) {
        return sent;
    }
    return socket.writeDatagram(bytes, size, address, port);
}

void keepLibraryLoaded()
{
    static const char addressInLibrary = 0;
    Dl_info library;
    if (dladdr(&addressInLibrary, &library) != 0) {
        dlopen(library.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
    }
}
#else
void setPeerLossTimers(QAbstractSocket&) {}

qint64 sendAtOnce(QAbstractSocket& socket, const char* bytes, qint64 size)
{
    const qint64 taken = socket.write(bytes, size);
    socket.flush(); // bytes that are not sent now wait in the socket's buffer
    return taken;
}

qint64 sendDatagram(QUdpSocket& socket, const char* bytes, qint64 size, const QHostAddress& address, quint16 port)
{
    return socket.writeDatagram(bytes, size, address, port);
}

void keepLibraryLoaded() {}
#endif

qint64 readDatagram(QUdpSocket& socket, char* bytes, qint64 maxSize, Q_IPV6ADDR* sender)
{
#if defined(CIM_LINUX_CALLS)
    if (sender != nullptr) {
        peekSender(socket, *sender);
    }
    const qint64 size = socket.readDatagram(bytes, maxSize);
#else
    QHostAddress address;
    const qint64 size = socket.readDatagram(bytes, maxSize, sender == nullptr ? nullptr : &address);
    if (sender != nullptr) {
        *sender = address.toIPv6Address();
    }
#endif
    return size < 0 && socket.error() == QAbstractSocket::TemporaryError ? NO_DATAGRAM : size;
}

} // namespace vexmor::Cim
