#pragma once

#include "apps/cimshare/eventLog.h"
#include "canlog/problem.h"

#include <QHostAddress>
#include <QList>
#include <QPair>

class QTcpSocket;

namespace vexmor::Apps::Cimshare
{

/// The networks that clients may connect from.
struct SAllowedNetworks {
    /// Clients of one port; the service turns away further ones.
    static constexpr int MAX_CLIENTS = 256;

    QList<QPair<QHostAddress, int>> networks; ///< None: clients may connect from anywhere.

    /// Adds ADDRESS or ADDRESS/PREFIX.
    Failure add(const QString& text);
    /// Checks and logs a new connection of a port, and sets the options of its socket: low delay, a bounded buffer, and
    /// an end for a client that vanished. Returns false when the caller must close it.
    bool admits(QTcpSocket& socket, const QString& port, CEventLog& log) const;
};

/// An address to listen on.
struct SListenAddress {
    QHostAddress address; ///< Null: none was given.
    quint16 port = 0;

    bool isGiven() const { return !address.isNull(); }
    /// Reads [ADDRESS:]PORT.
    Failure set(const QString& text);
};

/// ADDRESS:PORT of the client.
QString peerOf(const QTcpSocket& socket);

} // namespace vexmor::Apps::Cimshare
