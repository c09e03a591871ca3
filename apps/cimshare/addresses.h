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

/// Returns "ADDRESS:PORT".
QString placeOf(const QHostAddress& address, quint16 port);
/// Returns the address and port of the client at the other end of a connection, as `placeOf` writes them.
QString peerOf(const QTcpSocket& socket);

/// Lets the kernel end a connection whose PC has vanished or whose client reads nothing: after about 30 s, or after 5 s
/// when `isBrief`.
void limitSilence(QTcpSocket& socket, bool isBrief);

/// Decides which clients may connect to one port, and logs the decisions. When the server cannot accept a connection,
/// accepting resumes after a pause. The server must outlive this object.
class CAdmission : public QObject
{
public:
    /// Maximum number of clients of one port. A client is rejected when its address already has as many clients as
    /// there are free places: a single address gets half of the places, so that places remain for other addresses.
    static constexpr int MAX_CLIENTS = 256;
    /// Time in which a client must choose a bus or send a valid frame, and time in which it must read the last answers
    /// before its connection ends.
    static constexpr int TIME_LIMIT_MS = 10'000;

    /// `subject` names the port in the event log.
    CAdmission(QTcpServer& server, QString subject, const SAllowedNetworks& allowed, CEventLog& log);

    /// Checks a new connection and sets the options of its socket: low delay, a bounded buffer, and the limit of
    /// silence. The client occupies a place until the socket is deleted. On failure, the caller must close the
    /// connection.
    Failure admit(QTcpSocket& socket);
    /// Prints the address and port on which the server would listen.
    void printPlan(const SListenAddress& place);
    /// Prints the address and port on which the server listens.
    void printListening();
    /// Prints an event that a client caused; the number of lines per second is limited.
    void print(const char* event, const QString& text) { m_log.printLimited(event, m_subject, text); }

private:
    QTcpServer& m_server;
    const QString m_subject;
    const SAllowedNetworks& m_allowed;
    CEventLog& m_log;
    QList<QHostAddress> m_clients; ///< The addresses of the connected clients, one entry per client.
};

/// Raises the limit of open files to the number that this many ports and buses can need. Fails when the system does not
/// allow it.
Failure reserveDescriptors(std::size_t ports, std::size_t buses);

} // namespace vexmor::Apps::Cimshare
