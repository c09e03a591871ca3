#pragma once

#include "InterfaceT93/rmFrame.h"

#include <QAbstractSocket>
#include <QObject>
#include <QScopedValueRollback>

#include <memory>

namespace vexmor::Cim
{

class CConfigParamT93;

/// One connection to a gateway: a TCP connection, or a UDP socket that is bound for it. Made anew for each open and
/// each reconnection, so that the deframer, and all else that belongs to one connection, ends with it. Whoever uses it
/// need not know which of both it is.
///
/// Lives in the thread of its owner, the driver. It is shared only with functions on the stack that call the host,
/// which may close the interface meanwhile, and is deleted through the event loop: it may be in the middle of a signal.
class CGatewayLink : public QObject
{
public:
    /// How a read ended.
    enum class EReadEnd {
        eUnderWay, ///< another read takes the bytes: this one was called from within it
        eDrained,  ///< nothing waits any more
        eFailed,   ///< a read from the socket failed
        eStopped,  ///< whoever takes the bytes wants no more
        eMoreWaits ///< enough for one turn of the event loop: to be gone on with in another
    };

    /// A link that was not started yet, over the protocol of `config`; null for one that is neither TCP nor UDP.
    /// Addresses are read from `config` when they are needed; it must live for as long as the link is used.
    static std::shared_ptr<CGatewayLink> create(const CConfigParamT93& config);
    /// Another one of the same kind.
    virtual std::shared_ptr<CGatewayLink> successor() const = 0;

    /// For its signals `connected`, `disconnected` and `readyRead`. Over UDP only the last one comes.
    QAbstractSocket& socket() { return m_socket; }

    /// Starts to connect (TCP), or binds (UDP): 0, 103 or 104.
    virtual int start() = 0;
    /// Waits until a started link is up: 0, or 103 when that takes longer. Processes the host's events once after it
    /// has waited: the host may then have closed or deleted the interface.
    virtual int waitUntilUp(int timeoutMs) = 0;
    /// Ends the link at once; what waits to be sent is lost.
    void close();

    /// Frames can be sent: the TCP connection stands, the UDP socket is bound.
    bool isUp() const
    {
        return m_socket.state() == QAbstractSocket::ConnectedState || m_socket.state() == QAbstractSocket::BoundState;
    }
    /// An attempt to connect is under way.
    bool isStarting() const { return m_socket.state() == QAbstractSocket::ConnectingState; }
    /// It reaches every gateway on the network: none of them is to be asked anything.
    virtual bool reachesAll() const = 0;

    /// Sends `size` bytes, a whole frame; false when not one of them will be sent: the link failed, or as much waits
    /// already as may wait for a gateway that does not read.
    virtual bool send(const char* bytes, qint64 size) = 0;

    /// Reads what waits, piece by piece of RM_BUFFER_SIZE bytes or a datagram, and gives each to `take(const char*
    /// bytes, qint64 count)`, which returns false to stop. A call from within `take` does nothing, for the call that is
    /// under way takes what has come meanwhile: pieces stay in order, and whole.
    template <typename Take>
    EReadEnd read(Take&& take);

    CRmDeframer& deframer() { return m_deframer; }

protected:
    /// Of a member of the derived class.
    explicit CGatewayLink(QAbstractSocket& socket) : m_socket(socket) {}

    /// What readPiece gives besides the number of bytes, and 0 or -1 when the read failed.
    static constexpr qint64 NOTHING = -2; ///< nothing waits
    static constexpr qint64 SKIPPED = -3; ///< a piece that is not for the host

    virtual qint64 readPiece(char* bytes, qint64 maxSize, bool isFirst) = 0;

private:
    /// Taken in one turn of the event loop at most, so that a flood cannot keep the host from its other events.
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
