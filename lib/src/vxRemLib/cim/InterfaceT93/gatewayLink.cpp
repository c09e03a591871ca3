#include "InterfaceT93/gatewayLink.h"

#include "InterfaceT93/configParamT93.h"
#include "InterfaceT93/nativeCalls.h"
#include "cim/resultCodes.h"
#include "vxCore/logging.h"

#include <QCoreApplication>
#include <QNetworkProxy>
#include <QTcpSocket>
#include <QUdpSocket>

#include <algorithm>

namespace vexmor::Cim
{
namespace
{
/// Source name in log lines; the driver uses the same name.
constexpr char LOG_SOURCE[] = "lib/src/vxRemLib/cim/InterfaceT93/interfaceT93";

/// Maximum number of bytes that are read from the kernel ahead of the deframer; TCP's flow control stops a peer that
/// sends more.
constexpr qint64 READ_AHEAD_LIMIT = 64LL * 1024;
/// Bytes that may wait here for a gateway that does not read: about a second of a full CAN bus, which carries 9,000
/// messages of 8 data bytes at 1 Mbit/s, framed in 15 bytes each. Half as many may wait in the kernel
/// (`setSocketOptions`).
constexpr qint64 SEND_BUFFER_LIMIT = 9000LL * 15;

/// Returns a link that is deleted by the event loop.
template <typename Link>
std::shared_ptr<CGatewayLink> makeLink(const CConfigParamT93& config)
{
    return {new Link(config), [](CGatewayLink* link) { link->deleteLater(); }};
}

class CTcpLink : public CGatewayLink
{
public:
    explicit CTcpLink(const CConfigParamT93& config) : CGatewayLink(m_socket), m_config(config)
    {
        m_socket.setProxy(QNetworkProxy::NoProxy); // gateways are not reached through a web proxy
        m_socket.setReadBufferSize(READ_AHEAD_LIMIT);
        connect(&m_socket, &QAbstractSocket::connected, this, &CTcpLink::setSocketOptions);
    }

    std::shared_ptr<CGatewayLink> successor() const override { return makeLink<CTcpLink>(m_config); }
    bool reachesAll() const override { return false; }
    int start() override;
    int waitUntilUp(int timeoutMs) override;
    bool send(const char* bytes, qint64 size) override;

protected:
    qint64 readPiece(char* bytes, qint64 maxSize, bool isFirst) override;

private:
    void setSocketOptions();

    const CConfigParamT93& m_config;
    QTcpSocket m_socket;
};

class CUdpLink : public CGatewayLink
{
public:
    explicit CUdpLink(const CConfigParamT93& config) : CGatewayLink(m_socket), m_config(config)
    {
        m_socket.setProxy(QNetworkProxy::NoProxy);
    }

    std::shared_ptr<CGatewayLink> successor() const override { return makeLink<CUdpLink>(m_config); }
    bool reachesAll() const override { return m_config.ipAddress() == QHostAddress::Broadcast; }
    int start() override;
    int waitUntilUp(int /*timeoutMs*/) override { return RC_OK; }
    bool send(const char* bytes, qint64 size) override;

protected:
    qint64 readPiece(char* bytes, qint64 maxSize, bool isFirst) override;

private:
    /// Returns whether a datagram came from this interface; an IPv4 address of the sender is given in its IPv6 form.
    bool isOwn(const Q_IPV6ADDR& sender) const;

    const CConfigParamT93& m_config;
    QUdpSocket m_socket;
};

// ---- TCP ----

int CTcpLink::start()
{
    m_socket.connectToHost(m_config.ipAddress(), m_config.port(), QIODevice::ReadWrite);
    if (!isStarting() && !isUp()) {
        qWarning("TCP connect failed: sockErr = %d", static_cast<int>(m_socket.error()));
        return RC_TCP_CONNECT_FAILED;
    }
    return RC_OK;
}

int CTcpLink::waitUntilUp(int timeoutMs)
{
    if (!m_socket.waitForConnected(timeoutMs)) {
        qWarning("TCP connect timeout, sockErr = %d", static_cast<int>(m_socket.error()));
        return RC_TCP_CONNECT_FAILED;
    }
    QCoreApplication::processEvents();
    VX_LOG(20, LOG_SOURCE, "waitForConnected() for TCP connection returned with success");
    return RC_OK;
}

/// Sets the options of the socket, so that small frames leave at once and the loss of the peer is noticed.
void CTcpLink::setSocketOptions()
{
    m_socket.setSocketOption(QAbstractSocket::LowDelayOption, 1);
    m_socket.setSocketOption(QAbstractSocket::KeepAliveOption, 1);
    // The kernel's buffer is limited: by default it grows to megabytes, which hold minutes of outdated messages.
    m_socket.setSocketOption(QAbstractSocket::SendBufferSizeSocketOption, static_cast<int>(SEND_BUFFER_LIMIT / 2));
    setPeerLossTimers(m_socket);
}

bool CTcpLink::send(const char* bytes, qint64 size)
{
    qint64 waiting = m_socket.bytesToWrite();
    if (waiting > 0) {
        m_socket.flush(); // may free memory in the buffer, or find the link broken
        waiting = m_socket.bytesToWrite();
        if (!isUp() || waiting + size > SEND_BUFFER_LIMIT) {
            return false;
        }
    }
    const qint64 sent = waiting == 0 ? sendAtOnce(m_socket, bytes, size) : 0;
    if (sent < 0 || sent == size) {
        return sent == size;
    }
    return m_socket.write(bytes + sent, size - sent) == size - sent;
}

qint64 CTcpLink::readPiece(char* bytes, qint64 maxSize, bool /*isFirst*/)
{
    return m_socket.bytesAvailable() > 0 ? m_socket.read(bytes, maxSize) : NOTHING;
}

// ---- UDP ----

int CUdpLink::start()
{
    const QHostAddress local = m_config.udpBindAnyIp() ? QHostAddress(QHostAddress::Any) : m_config.localIpAddress();
    return m_socket.bind(local, 0) ? RC_OK : RC_UDP_BIND_FAILED;
}

bool CUdpLink::send(const char* bytes, qint64 size)
{
    return sendDatagram(m_socket, bytes, size, m_config.ipAddress(), m_config.port()) == size;
}

qint64 CUdpLink::readPiece(char* bytes, qint64 maxSize, bool isFirst)
{
    // The first read is always made: without one, Qt would signal no further datagram.
    if (!isFirst && !m_socket.hasPendingDatagrams()) {
        return NOTHING;
    }
    Q_IPV6ADDR sender{};
    const bool mayBeOwn = m_config.udpBindAnyIp() || reachesAll();
    const qint64 count = readDatagram(m_socket, bytes, maxSize, mayBeOwn ? &sender : nullptr);
    if (count == NO_DATAGRAM) {
        return NOTHING;
    }
    return count > 0 && mayBeOwn && isOwn(sender) ? SKIPPED : count;
}

bool CUdpLink::isOwn(const Q_IPV6ADDR& sender) const
{
    const auto isSender = [&sender](const QHostAddress& address) {
        const Q_IPV6ADDR bytes = address.toIPv6Address();
        return std::equal(std::begin(bytes.c), std::end(bytes.c), std::begin(sender.c));
    };
    return (m_config.udpBindAnyIp() && isSender(m_config.localIpAddress())) ||
           (reachesAll() && isSender(m_socket.localAddress()));
}
} // namespace

std::shared_ptr<CGatewayLink> CGatewayLink::create(const CConfigParamT93& config)
{
    switch (config.protocolType()) {
    case CCommonInfo::eProtocolTcp:
        return makeLink<CTcpLink>(config);
    case CCommonInfo::eProtocolUdp:
        return makeLink<CUdpLink>(config);
    default:
        return {};
    }
}

void CGatewayLink::close()
{
    m_socket.abort();
    m_socket.close();
}

} // namespace vexmor::Cim
