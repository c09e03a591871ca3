#pragma once

#include <QHostAddress>

class QAbstractSocket;
class QUdpSocket;

/// What Qt does not offer, or not without an allocation for each frame: system calls on Linux, and what Qt can do alone
/// on other platforms (and with the build option CIM_LINUX_CALLS off).
namespace vexmor::Cim
{

/// Has a peer that vanished without a goodbye (cable pulled) noticed within about 10 s, with data under way or without.
/// An idle link stays up. Elsewhere than on Linux the system's own, longer times hold.
void setPeerLossTimers(QAbstractSocket& socket);

/// Sends on a connected TCP socket without waiting: gives the number of bytes that were taken, 0 when none are taken
/// now, -1 when the link failed. Nothing may wait in the socket's own buffer.
qint64 sendAtOnce(QAbstractSocket& socket, const char* bytes, qint64 size);

/// Sends one datagram from a bound socket. Gives `size`, or another value when it was not sent.
qint64 sendDatagram(QUdpSocket& socket, const char* bytes, qint64 size, const QHostAddress& address, quint16 port);

/// What readDatagram gives when no datagram waits: one that the kernel announced and then found broken is dropped late.
constexpr qint64 NO_DATAGRAM = -2;

/// Reads a datagram. Gives its size, cut to `maxSize`; NO_DATAGRAM; or -1 when reading failed. `sender`, unless null,
/// becomes the address it came from, an IPv4 address in its IPv6 form (::ffff:a.b.c.d). After every readyRead it must
/// be called at least once, or Qt does not signal the next one.
qint64 readDatagram(QUdpSocket& socket, char* bytes, qint64 maxSize, Q_IPV6ADDR* sender);

/// Keeps this library in memory to the end of the program, whoever unloads it. Elsewhere than on Linux it does nothing.
void keepLibraryLoaded();

} // namespace vexmor::Cim
