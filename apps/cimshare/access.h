#pragma once

#include "apps/cimshare/eventLog.h"
#include "canlog/problem.h"

#include <QHostAddress>
#include <QList>
#include <QPair>

class QTcpSocket;

namespace vexmor::Apps::Cimshare
{

/// Who may use what is shared.
struct SAccess {
    /// Clients of a port; further ones are turned away.
    static constexpr int MAX_CLIENTS = 256;

    QList<QPair<QHostAddress, int>> networks; ///< that clients come from; none: from anywhere

    /// Adds ADDRESS or ADDRESS/PREFIX.
    Failure addNetwork(const QString& text);
    /// Looks at a new connection, tells of it, and makes that a client that vanished is noticed. False: the caller
    /// closes it.
    bool admits(QTcpSocket& socket, const QString& port, CEventLog& log) const;
};

/// Where to listen.
struct SListenAddress {
    QHostAddress address{QHostAddress::LocalHost};
    quint16 port = 0;

    /// [ADDRESS:]PORT
    static Result<SListenAddress> read(const QString& text);
};

/// ADDRESS:PORT of the other side.
QString peerOf(const QTcpSocket& socket);

} // namespace vexmor::Apps::Cimshare
