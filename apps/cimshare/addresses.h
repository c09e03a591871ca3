#pragma once

#include "apps/cimshare/eventLog.h"
#include "apps/cli/networkOptions.h"
#include "canlog/problem.h"

#include <QHostAddress>
#include <QList>

class QTcpServer;
class QTcpSocket;

namespace vexmor::Apps::Cimshare
{

/// ADDRESS:PORT.
QString placeOf(const QHostAddress& address, quint16 port);
/// The same of the client.
QString peerOf(const QTcpSocket& socket);

/// Ends the connection to a PC that vanished, or to a client that reads nothing any more, after about 30 s, or 5 s.
void limitSilence(QTcpSocket& socket, bool isBrief);

/// Admits clients to a port, and logs that. When its server, which outlives it, cannot accept a connection, it tries
/// again.
class CAdmission : public QObject
{
public:
    /// Clients of one port. A client is turned away when its address has as many as are left: one address alone gets
    /// half of them, and the next address finds some.
    static constexpr int MAX_CLIENTS = 256;
    /// Time of a client to choose a bus or to send a valid frame, and to read the last answers before its end.
    static constexpr int TIME_LIMIT_MS = 10'000;

    /// `subject` is the port in the event log.
    CAdmission(QTcpServer& server, QString subject, const SAllowedNetworks& allowed, CEventLog& log);

    /// Checks a new connection and sets the options of its socket: low delay, a bounded buffer, and an end for a client
    /// that vanished. Its place is free again when the socket is deleted. When it fails, the caller must close the
    /// connection.
    Failure admit(QTcpSocket& socket);
    /// Prints the place where clients could connect.
    void printPlan(const SListenAddress& place);
    /// Prints the place where clients can connect.
    void printListening();
    /// Prints an event that a client caused.
    void print(const char* event, const QString& text) { m_log.printLimited(event, m_subject, text); }

private:
    QTcpServer& m_server;
    const QString m_subject;
    const SAllowedNetworks& m_allowed;
    CEventLog& m_log;
    QList<QHostAddress> m_clients; ///< The address of each.
};

/// Sets the limit of open files to what so many ports and buses can need. Fails when the system does not allow it.
Failure reserveDescriptors(std::size_t ports, std::size_t buses);

} // namespace vexmor::Apps::Cimshare
