#include "apps/cimshare/access.h"

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
/// What the kernel keeps for a client that does not read. It would let that grow to megabytes.
constexpr int KERNEL_BUFFER = 128 * 1024;

/// A client whose computer vanished, or that takes nothing any more, is gone after about 30 s.
void noticeItsLoss(QTcpSocket& socket)
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

Failure SAccess::addNetwork(const QString& text)
{
    const QString address = plainAddress(text.section(QLatin1Char('/'), 0, 0));
    bool isPrefix = true;
    const int prefix = text.contains(QLatin1Char('/')) ? text.section(QLatin1Char('/'), 1).toInt(&isPrefix) : IPV4_BITS;
    if (address.isEmpty() || !isPrefix || prefix < 0 || prefix > IPV4_BITS) {
        return wrongUsage(QStringLiteral("'%1' is no network like 192.168.1.0/24").arg(text));
    }
    networks.append({QHostAddress(address), prefix});
    return {};
}

bool SAccess::admits(QTcpSocket& socket, const QString& port, CEventLog& log) const
{
    const QHostAddress peer(socket.peerAddress().toIPv4Address());
    const auto holds = [&peer](const QPair<QHostAddress, int>& network) { return peer.isInSubnet(network); };
    const bool isAdmitted = networks.isEmpty() || std::any_of(networks.begin(), networks.end(), holds);
    if (!isAdmitted) {
        log.tellOfClient("notAllowed", port, QStringLiteral("%1 may not connect (--allow)").arg(peerOf(socket)));
        return false;
    }
    noticeItsLoss(socket);
    socket.setSocketOption(QAbstractSocket::LowDelayOption, 1);
    socket.setSocketOption(QAbstractSocket::SendBufferSizeSocketOption, KERNEL_BUFFER);
    log.tellOfClient("connected", port, QStringLiteral("%1 connected").arg(peerOf(socket)));
    return true;
}

Result<SListenAddress> SListenAddress::read(const QString& text)
{
    const int colon = text.lastIndexOf(QLatin1Char(':'));
    const QString address = colon < 0 ? QStringLiteral("127.0.0.1") : plainAddress(text.left(colon));
    bool isPort = false;
    const ushort port = text.mid(colon + 1).toUShort(&isPort);
    if (address.isEmpty() || !isPort) {
        return wrongUsage(QStringLiteral("'%1' is no [ADDRESS:]PORT like 0.0.0.0:29536").arg(text));
    }
    return SListenAddress{QHostAddress(address), port};
}

QString peerOf(const QTcpSocket& socket)
{
    return QStringLiteral("%1:%2")
        .arg(QHostAddress(socket.peerAddress().toIPv4Address()).toString())
        .arg(socket.peerPort());
}

} // namespace vexmor::Apps::Cimshare
