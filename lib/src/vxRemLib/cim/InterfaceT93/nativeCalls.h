#pragma once

#include <QHostAddress>

class QAbstractSocket;
class QUdpSocket;

/// Operations that Qt does not offer, or not without an allocation per frame. They are system calls on Linux; on other
/// platforms, and with the build option CIM_LINUX_CALLS off, they do what Qt alone can do.
namespace vexmor::Cim
{

/// Sets a TCP socket so that it notices within about 10 s when the peer vanished (cable pulled), whether or not data is
/// waiting to be sent. An idle link stays up. Without system calls, the longer times of the system apply.
void setPeerLossTimers(QAbstractSocket& socket);

/// Sends on a connected TCP socket without waiting. Returns the number of bytes that were accepted, 0 when there is no
/// room now, or -1 when the link failed. The buffer of `socket` must be empty.
qint64 sendAtOnce(QAbstractSocket& socket, const char* bytes, qint64 size);

/// Sends one datagram from a bound socket. Returns `size`, or another value when it was not sent.
qint64 sendDatagram(QUdpSocket& socket, const char* bytes, qint64 size, const QHostAddress& address, quint16 port);

/// Result of readDatagram when there is no datagram: the kernel may announce one and then drop it as broken.
constexpr qint64 NO_DATAGRAM = -2;

/// Reads a datagram. Returns its size, at most `maxSize`; NO_DATAGRAM; or -1 when reading failed. Sets `sender`, unless
/// null, to the address it came from; an IPv4 address has its IPv6 form (::ffff:a.b.c.d). Must be called at least once
/// after each readyRead: otherwise Qt does not signal the next datagram.
qint64 readDatagram(QUdpSocket& socket, char* bytes, qint64 maxSize, Q_IPV6ADDR* sender);

/// Keeps this library in memory until the program ends, even when it is unloaded. Without system calls it does nothing.
void keepLibraryLoaded();

} // namespace vexmor::Cim
