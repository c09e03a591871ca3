#include "apps/cimshare/addresses.h"

#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <algorithm>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <utility>

namespace vexmor::Apps::Cimshare
{
namespace
{
/// Bytes that the kernel buffers for a client that does not read. Without a limit, it buffers megabytes.
constexpr int KERNEL_BUFFER = 128 * 1024;
constexpr int ACCEPT_RETRY_MS = 100;

/// Returns whether a descriptor is one of the last ones, which are reserved for the gateways and the broker. Clients
/// must not use them up: without a free descriptor, QTcpServer would try to accept the same connection again and again.
bool isAmongTheLast(qintptr descriptor)
{
    constexpr rlim_t KEPT = 16;
    rlimit limit{};
    return getrlimit(RLIMIT_NOFILE, &limit) == 0 && static_cast<rlim_t>(descriptor) + KEPT >= limit.rlim_cur;
}
} // namespace

QString placeOf(const QHostAddress& address, quint16 port)
{
    return QStringLiteral("%1:%2").arg(address.toString()).arg(port);
}

QString peerOf(const QTcpSocket& socket)
{
    return placeOf(QHostAddress(socket.peerAddress().toIPv4Address()), socket.peerPort());
}

void limitSilence(QTcpSocket& socket, bool isBrief)
{
    socket.setSocketOption(QAbstractSocket::KeepAliveOption, 1);
    const auto set = [&socket](int option, int value) {
        setsockopt(static_cast<int>(socket.socketDescriptor()), IPPROTO_TCP, option, &value, sizeof value);
    };
    set(TCP_KEEPIDLE, isBrief ? 2 : 15);
    set(TCP_KEEPINTVL, isBrief ? 1 : 5);
    set(TCP_KEEPCNT, 3);
    set(TCP_USER_TIMEOUT, isBrief ? 5'000 : 30'000);
}

CAdmission::CAdmission(QTcpServer& server, QString subject, const SAllowedNetworks& allowed, CEventLog& log)
    : m_server(server), m_subject(std::move(subject)), m_allowed(allowed), m_log(log)
{
    // The server has stopped accepting connections.
    connect(&server, &QTcpServer::acceptError, this, [this] {
        print("acceptError", QStringLiteral("cannot accept a client: ") + m_server.errorString());
        QTimer::singleShot(ACCEPT_RETRY_MS, &m_server, &QTcpServer::resumeAccepting);
    });
}

Failure CAdmission::admit(QTcpSocket& socket)
{
    const QHostAddress address(socket.peerAddress().toIPv4Address());
    const auto refuse = [&](const char* event, const QString& why) {
        SProblem problem{QStringLiteral("%1 %2").arg(peerOf(socket), why)};
        print(event, problem.text);
        return problem;
    };
    if (!m_allowed.allow(address)) {
        return refuse("notAllowed", QStringLiteral("rejected: its address is not allowed (--allow)"));
    }
    if (m_clients.count(address) >= MAX_CLIENTS - m_clients.size()) {
        return refuse("full", QStringLiteral("rejected: too many clients from its address"));
    }
    if (isAmongTheLast(socket.socketDescriptor())) {
        return refuse("full", QStringLiteral("rejected: too many open files"));
    }
    m_clients.append(address);
    connect(&socket, &QObject::destroyed, this, [this, address] { m_clients.removeOne(address); });
    limitSilence(socket, false);
    socket.setSocketOption(QAbstractSocket::LowDelayOption, 1);
    socket.setSocketOption(QAbstractSocket::SendBufferSizeSocketOption, KERNEL_BUFFER);
    print("connected", QStringLiteral("%1 connected").arg(peerOf(socket)));
    return {};
}

void CAdmission::printPlan(const SListenAddress& place)
{
    m_log.print("check", m_subject, QStringLiteral("would listen on ") + placeOf(place.address, place.port));
}

void CAdmission::printListening()
{
    const QString place = placeOf(m_server.serverAddress(), m_server.serverPort());
    m_log.print("listening", m_subject, QStringLiteral("on ") + place,
                {{QStringLiteral("port"), m_server.serverPort()}});
}

Failure reserveDescriptors(std::size_t ports, std::size_t buses)
{
    constexpr std::size_t OF_THE_PROGRAM = 64;
    constexpr std::size_t OF_A_BUS = 8;
    const rlim_t needed = OF_THE_PROGRAM + buses * OF_A_BUS + ports * CAdmission::MAX_CLIENTS;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::max(limit.rlim_cur, needed);
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0) {
        return SProblem{QStringLiteral("%1 open files are needed, but the limit is %2 (ulimit -Hn, LimitNOFILE)")
                            .arg(needed)
                            .arg(limit.rlim_max)};
    }
    return {};
}

} // namespace vexmor::Apps::Cimshare
