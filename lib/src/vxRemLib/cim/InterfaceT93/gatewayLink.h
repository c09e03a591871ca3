#pragma once

#include <QtGlobal>

class QAbstractSocket;
class QHostAddress;
class QUdpSocket;

/// The platform's part of a link: what Qt's sockets do not offer, or not without an allocation for each frame. On
/// platforms other than Linux the functions do what Qt can do alone.
namespace vexmor::Cim
{

/// About a second of a full CAN bus: 1 Mbit/s carries 9,000 frames of 8 data bytes, framed in 15 bytes each. So much
/// may wait for a gateway that does not read, and no more.
constexpr qint64 SEND_BUFFER_LIMIT = 9000 * 15;

/// Prepares a connected socket: small frames leave at once, and a peer that vanished without a goodbye (cable pulled)
/// is noticed within about 10 s, with data under way or without. An idle link stays up.
void tuneTcpLink(QAbstractSocket& socket);

/// Sends `size` bytes on a connected TCP socket: at once as far as the kernel takes them, the rest through the socket's
/// own buffer. Gives `size`, or -1 when the link failed or when more than SEND_BUFFER_LIMIT would wait: no byte was
/// taken then.
qint64 sendOnTcpLink(QAbstractSocket& socket, const char* bytes, qint64 size);

/// Sends one datagram from a bound socket. Gives `size`, or another value when it was not sent.
qint64 sendDatagram(QUdpSocket& socket, const char* bytes, qint64 size, const QHostAddress& address, quint16 port);

} // namespace vexmor::Cim
