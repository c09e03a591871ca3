#pragma once

#include "apps/cimshare/eventLog.h"
#include "canlog/problem.h"

#include <QHostAddress>
#include <QList>
#include <QPair>

class QTcpServer;
class QTcpSocket;

namespace vexmor::Apps::Cimshare
{

/// The networks that clients may connect from.
struct SAllowedNetworks {
    /// Clients of one port. A client is turned away when its address has as many as are left: one address alone gets
    /// half of them, and the next address finds some.
    static constexpr int MAX_CLIENTS = 256;

    QList<QPair<QHostAddress, int>> networks; ///< None: clients may connect from anywhere.

    /// Adds ADDRESS or ADDRESS/PREFIX.
    Failure add(const QString& text);
    /// Checks and logs a new connection of a port with clients from the addresses `others`, and sets the options of its
    /// socket: low delay, a bounded buffer, and an end for a client that vanished. When it fails, the caller must close
    /// the connection.
    Failure admit(QTcpSocket& socket, const QList<QHostAddress>& others, const QString& port, CEventLog& log) const;
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

/// Ends the connection to a PC that vanished, or to a client that reads nothing any more, after about 30 s, or 5 s.
void limitSilence(QTcpSocket& socket, bool isBrief);

/// Accepts connections again when that failed, and logs the failure of this port.
void keepAccepting(QTcpServer& server, const QString& port, CEventLog& log);

/// Sets the limit of open files to what so many ports and buses can need. Fails when the system does not allow it.
Failure reserveDescriptors(std::size_t ports, std::size_t buses);

} // namespace vexmor::Apps::Cimshare
