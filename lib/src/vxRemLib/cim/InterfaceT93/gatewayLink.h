#pragma once

#include <QHostAddress>

class QAbstractSocket;
class QUdpSocket;

/// The platform's part of a link: what Qt's sockets do not offer, or not without an allocation for each frame. On
/// platforms other than Linux the functions do what Qt can do alone.
namespace vexmor::Cim
{

/// About a second of a full CAN bus: 1 Mbit/s carries 9,000 frames of 8 data bytes, framed in 15 bytes each. So much
/// may wait for a gateway that does not read, and no more.
constexpr qint64 SEND_BUFFER_LIMIT = 9000LL * 15;

/// Prepares a connected socket: small frames leave at once, and a peer that vanished without a goodbye (cable pulled)
/// is noticed within about 10 s, with data under way or without. An idle link stays up.
void tuneTcpLink(QAbstractSocket& socket);

/// Sends `size` bytes on a connected TCP socket: at once as far as the kernel takes them, the rest through the socket's
/// own buffer. Gives `size`, or -1 when the link failed or when more than SEND_BUFFER_LIMIT would wait: no byte was
/// taken then.
qint64 sendOnTcpLink(QAbstractSocket& socket, const char* bytes, qint64 size);

/// What readDatagram gives when no datagram waits: one that the kernel announced and then found broken is dropped late.
constexpr qint64 NO_DATAGRAM = -2;

/// Reads a datagram. Gives its size, cut to `maxSize`; NO_DATAGRAM; or -1 when reading failed. `sender`, unless null,
/// becomes the address it came from, an IPv4 address in its IPv6 form (::ffff:a.b.c.d). After every readyRead it must
/// be called at least once, or Qt does not signal the next one.
qint64 readDatagram(QUdpSocket& socket, char* bytes, qint64 maxSize, Q_IPV6ADDR* sender);

/// Sends one datagram from a bound socket. Gives `size`, or another value when it was not sent.
qint64 sendDatagram(QUdpSocket& socket, const char* bytes, qint64 size, const QHostAddress& address, quint16 port);

} // namespace vexmor::Cim
