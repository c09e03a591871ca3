#pragma once

#include "InterfaceT93/rmFrame.h"

#include <QAbstractSocket>
#include <QObject>
#include <QScopedValueRollback>

#include <memory>

namespace vexmor::Cim
{

class CConfigParamT93;

/// One connection to a gateway over TCP, or over a bound UDP socket. Each open and each reconnection makes a new one,
/// so that the state of a connection (the deframer, for example) ends with it.
///
/// It lives in the thread of its owner, the driver. Calls to the host application also keep it alive (CHostCall),
/// because the interface may be closed during such a call. It is deleted by the event loop, because its socket may be
/// emitting a signal.
class CGatewayLink : public QObject
{
public:
    /// How a read ended.
    enum class EReadEnd {
        eUnderWay, ///< `read` was called within another `read`, which takes the bytes.
        eDrained,  ///< Everything that waited was read.
        eFailed,   ///< Reading from the socket failed.
        eStopped,  ///< `take` returned false, which stops the read.
        eMoreWaits ///< The limit of one turn of the event loop was reached: read again in another turn.
    };

    /// Returns a link for the protocol of `config` that is not started yet; null for a protocol other than TCP and UDP.
    /// The link reads addresses from `config` whenever it needs them: `config` must outlive it.
    static std::shared_ptr<CGatewayLink> create(const CConfigParamT93& config);
    /// Returns a new link of the same protocol and configuration.
    virtual std::shared_ptr<CGatewayLink> successor() const = 0;

    /// Returns the socket, for its signals `connected`, `disconnected` and `readyRead`; over UDP only the last is
    /// emitted.
    QAbstractSocket& socket() { return m_socket; }

    /// Starts to connect (TCP), or binds the socket (UDP). Returns 0, 103 or 104.
    virtual int start() = 0;
    /// Waits until a started link is up. Returns 0, or 103 when the attempt fails or takes longer. Over TCP it then
    /// processes pending events, which may close or delete the interface.
    virtual int waitUntilUp(int timeoutMs) = 0;
    /// Ends the link at once; bytes that wait to be sent are lost.
    void close();

    /// Returns whether frames can be sent: the TCP connection is made, or the UDP socket is bound.
    bool isUp() const
    {
        return m_socket.state() == QAbstractSocket::ConnectedState || m_socket.state() == QAbstractSocket::BoundState;
    }
    /// Returns whether an attempt to connect is in progress.
    bool isStarting() const { return m_socket.state() == QAbstractSocket::ConnectingState; }
    /// Returns whether the link reaches every gateway on the network (broadcast mode); no requests are sent then.
    virtual bool reachesAll() const = 0;

    /// Sends `size` bytes, a whole frame. Returns false when none of them will be sent, because the link failed or too
    /// much already waits for a gateway that does not read.
    virtual bool send(const char* bytes, qint64 size) = 0;

    /// Reads what the socket has, in pieces of up to RM_BUFFER_SIZE bytes or a datagram, and passes each piece to
    /// `take(const char* bytes, qint64 count)`, which returns false to stop. A call within `take` does nothing: the
    /// outer call also reads what arrived meanwhile, so that pieces stay in order.
    template <typename Take>
    EReadEnd read(Take&& take);

    CRmDeframer& deframer() { return m_deframer; }

protected:
    /// `socket` is a member of the derived class.
    explicit CGatewayLink(QAbstractSocket& socket) : m_socket(socket) {}

    static constexpr qint64 NOTHING = -2; ///< Result of readPiece when there is nothing to read.
    static constexpr qint64 SKIPPED = -3; ///< Result of readPiece for a datagram of this interface itself.

    /// Reads a piece and returns its number of bytes, one of the values above, or 0 or -1 when reading failed.
    virtual qint64 readPiece(char* bytes, qint64 maxSize, bool isFirst) = 0;

private:
    /// Maximum number of pieces read in one turn of the event loop, so that a flood does not delay other events.
    static constexpr int MAX_PIECES_PER_TURN = 256;

    QAbstractSocket& m_socket;
    CRmDeframer m_deframer;
    bool m_isReading = false;
};

template <typename Take>
CGatewayLink::EReadEnd CGatewayLink::read(Take&& take)
{
    if (m_isReading) {
        return EReadEnd::eUnderWay;
    }
    const QScopedValueRollback<bool> reading(m_isReading, true);
    char bytes[RM_BUFFER_SIZE];
    for (int piece = 0; piece < MAX_PIECES_PER_TURN; ++piece) {
        const qint64 count = readPiece(bytes, sizeof bytes, piece == 0);
        if (count == NOTHING) {
            return EReadEnd::eDrained;
        }
        if (count == SKIPPED) {
            continue;
        }
        if (count <= 0) {
            return EReadEnd::eFailed;
        }
        if (!take(bytes, count)) {
            return EReadEnd::eStopped;
        }
    }
    return EReadEnd::eMoreWaits;
}

} // namespace vexmor::Cim
