#include "apps/cimshare/addresses.h"

#include "apps/host/gatewayAddress.h"

#include <QTcpSocket>

#include <algorithm>
#ifdef __linux__
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#endif

namespace vexmor::Apps::Cimshare
{
namespace
{
constexpr int IPV4_BITS = 32;
/// Bytes that the kernel keeps for a client that does not read. Without a limit it keeps megabytes.
constexpr int KERNEL_BUFFER = 128 * 1024;

/// Ends the connection to a PC that vanished, or to a client that reads nothing any more, after about 30 s.
void limitSilence(QTcpSocket& socket)
{
    socket.setSocketOption(QAbstractSocket::KeepAliveOption, 1);
#ifdef __linux__
    const auto set = [&socket](int option, int value) {
        setsockopt(static_cast<int>(socket.socketDescriptor()), IPPROTO_TCP, option, &value, sizeof value);
    };
    set(TCP_KEEPIDLE, 15);
    set(TCP_KEEPINTVL, 5);
    set(TCP_KEEPCNT, 3);
    set(TCP_USER_TIMEOUT, 30'000);
#endif
}
} // namespace

Failure SAllowedNetworks::add(const QString& text)
{
    const QString address = plainAddress(text.section(QLatin1Char('/'), 0, 0));
    bool isPrefix = true;
    const int prefix = text.contains(QLatin1Char('/')) ? text.section(QLatin1Char('/'), 1).toInt(&isPrefix) : IPV4_BITS;
    if (address.isEmpty() || !isPrefix || prefix < 0 || prefix > IPV4_BITS) {
        return wrongUsage(QStringLiteral("'%1' is not a network like 192.168.1.0/24").arg(text));
    }
    networks.append({QHostAddress(address), prefix});
    return {};
}

bool SAllowedNetworks::admits(QTcpSocket& socket, const QString& port, CEventLog& log) const
{
    const QHostAddress peer(socket.peerAddress().toIPv4Address());
    const auto holds = [&peer](const QPair<QHostAddress, int>& network) { return peer.isInSubnet(network); };
    const bool isAdmitted = networks.isEmpty() || std::any_of(networks.begin(), networks.end(), holds);
    if (!isAdmitted) {
        log.printOfClient("notAllowed", port, QStringLiteral("%1 may not connect (--allow)").arg(peerOf(socket)));
        return false;
    }
    limitSilence(socket);
    socket.setSocketOption(QAbstractSocket::LowDelayOption, 1);
    socket.setSocketOption(QAbstractSocket::SendBufferSizeSocketOption, KERNEL_BUFFER);
    log.printOfClient("connected", port, QStringLiteral("%1 connected").arg(peerOf(socket)));
    return true;
}

Failure SListenAddress::set(const QString& text)
{
    const int colon = text.lastIndexOf(QLatin1Char(':'));
    bool isPort = false;
    port = text.mid(colon + 1).toUShort(&isPort);
    address = QHostAddress(colon < 0 ? QStringLiteral("127.0.0.1") : plainAddress(text.left(colon)));
    return isPort && isGiven()
               ? Failure()
               : wrongUsage(QStringLiteral("'%1' is not an [ADDRESS:]PORT like 0.0.0.0:29536").arg(text));
}

QString peerOf(const QTcpSocket& socket)
{
    return QStringLiteral("%1:%2")
        .arg(QHostAddress(socket.peerAddress().toIPv4Address()).toString())
        .arg(socket.peerPort());
}

} // namespace vexmor::Apps::Cimshare
