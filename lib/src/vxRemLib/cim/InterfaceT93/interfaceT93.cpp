#include "InterfaceT93/interfaceT93.h"

#include "InterfaceT93/busload.h"
#include "InterfaceT93/configDialogT93.h"
#include "InterfaceT93/gatewayLink.h"
#include "InterfaceT93/gatewayReplies.h"
#include "vxCore/logging.h"
#include "vxCore/thread.h"

#include <QApplication>
#include <QNetworkProxy>
#include <QPointer>
#include <QTcpSocket>
#include <QUdpSocket>

#include <algorithm>
#include <climits>

namespace vexmor::Cim
{
namespace
{
constexpr char LOG_SOURCE[] = "lib/src/vxRemLib/cim/InterfaceT93/interfaceT93";

constexpr int CONNECT_WAIT_MS = 1000;
constexpr int RECONNECT_INTERVAL_MS = 3000;
/// The gateway drops a request that comes within this time of the connection.
constexpr unsigned int PAUSE_AFTER_CONNECT_MS = 20;
/// Read from the kernel ahead of the deframer at most; a peer that sends more waits in TCP's own flow control.
constexpr qint64 READ_AHEAD_LIMIT = 64LL * 1024;
/// Datagrams taken in one turn of the event loop at most, so that a flood cannot keep the host from its other events.
constexpr int MAX_DATAGRAMS_PER_TURN = 256;
/// Stands in for a poll time of 0, which would keep the event loop busy for nothing.
constexpr std::uint32_t MIN_POLL_TIME_MS = 100;

constexpr int STATUS_BIT_COUNT = 7;

const QString DEFAULT_GROUP = QStringLiteral("CanInterfaces");
const QString PLUGIN_NAME = QStringLiteral("InterfaceT93Plugin");
} // namespace

/// Held on the stack by a function that calls into the host: keeps the socket alive that long, and tells whether the
/// interface still exists and still uses it.
class CInterfaceT93::CSession
{
public:
    explicit CSession(CInterfaceT93& owner) : m_owner(&owner), m_socket(owner.m_socket) {}

    QAbstractSocket& socket() const { return *m_socket; }
    bool ownerExists() const { return !m_owner.isNull(); }
    /// False when the interface is closed, and once the host has closed, reopened or deleted it.
    bool isCurrent() const { return m_socket && m_owner && m_owner->m_socket == m_socket; }

private:
    const QPointer<CInterfaceT93> m_owner;
    const std::shared_ptr<QAbstractSocket> m_socket;
};

const QString CInterfaceT93::m_type = QStringLiteral("T93");

CInterfaceT93::CInterfaceT93() : m_connectSvTimer(this), m_busloadPollTimer(this)
{
    m_connectSvTimer.setSingleShot(true);
    m_busloadPollTimer.setSingleShot(true);

    m_commonInfo.setPluginName(PLUGIN_NAME);
    m_commonInfo.setDescription(tr("T93 Ethernet Interface"));
    m_commonInfo.setScanable(true);
    m_commonInfo.setPort(m_configParam.ipPortString());
    m_commonInfo.setType(m_type);

    connect(this, &CInterfaceT93::queuedInterfaceError, this, &CInterfaceT93::onQueuedInterfaceError,
            Qt::QueuedConnection);
    connect(&m_connectSvTimer, &QTimer::timeout, this, &CInterfaceT93::onConnectSvTimerTimeout);
    connect(&m_busloadPollTimer, &QTimer::timeout, this, &CInterfaceT93::onBusloadPollTimeout);
}

CInterfaceT93::~CInterfaceT93()
{
    if (m_configDialog) { // ends `configure`, which waits for it
        m_configDialog->reject();
    }
    teardown();
    disconnect();
}

CCanInterface* CInterfaceT93::clone()
{
    auto copy = std::make_unique<CInterfaceT93>();
    copy->setCommonInfo(commonInfo());
    copy->setSpyHandler(m_spyHandler);
    copy->setConfigParam(configParam());
    return copy.release();
}

// ---- Connection ----

int CInterfaceT93::openCommunication()
{
    if (m_socket) {
        VX_LOG(30, LOG_SOURCE, "openCommunication: already opened!!");
        return RC_ALREADY_OPENED;
    }
    m_deframer.reset();
    m_gatewayMeasuresBusload = false;
    m_deviceIdExpected = false;
    m_nextReconnection = QDeadlineTimer();
    m_canMsgQueue.create();
    if (!createSocket()) {
        VX_LOG(50, LOG_SOURCE, "unknown protocol %d", static_cast<int>(m_configParam.protocolType()));
        m_canMsgQueue.destroy();
        return RC_UNKNOWN_PROTOCOL;
    }

    const CSession session(*this);
    const int code = isTcp() ? connectToGateway(true, CONNECT_WAIT_MS, true) : bindUdp();
    if (!session.isCurrent()) { // the host was called meanwhile
        return session.ownerExists() && m_socket ? RC_ALREADY_OPENED : RC_TCP_CONNECT_FAILED;
    }
    if (code != RC_OK) {
        teardown();
        return code;
    }
    sendBaudrate();
    return RC_OK;
}

int CInterfaceT93::closeCommunication()
{
    teardown();
    return RC_OK;
}

int CInterfaceT93::resetCommunication(int checkConnection)
{
    if (!m_socket) {
        return RC_NOT_OPENED;
    }
    m_deframer.reset();
    if (checkConnection == 1 && isTcp() && m_socket->state() != QAbstractSocket::ConnectedState) {
        Q_EMIT queuedInterfaceError(IE_NOT_CONNECTED);
        return RC_NO_TCP_CONNECTION;
    }
    requestStartup(true);
    return RC_OK;
}

bool CInterfaceT93::createSocket()
{
    // The socket is deleted through the event loop: it may be in the middle of a signal.
    const auto deleteLater = [](QAbstractSocket* socket) { socket->deleteLater(); };
    switch (m_configParam.protocolType()) {
    case CCommonInfo::eProtocolTcp:
        m_socket.reset(new QTcpSocket, deleteLater);
        m_socket->setReadBufferSize(READ_AHEAD_LIMIT);
        connect(m_socket.get(), &QAbstractSocket::connected, this, &CInterfaceT93::onSocketConnected);
        connect(m_socket.get(), &QAbstractSocket::disconnected, this, &CInterfaceT93::onSocketDisconnected);
        break;
    case CCommonInfo::eProtocolUdp:
        m_socket.reset(new QUdpSocket, deleteLater);
        break;
    default:
        return false;
    }
    m_socket->setProxy(QNetworkProxy::NoProxy); // a gateway is never behind the host's web proxy
    connect(m_socket.get(), &QAbstractSocket::readyRead, this, &CInterfaceT93::onReadyRead);
    return true;
}

int CInterfaceT93::bindUdp()
{
    const QHostAddress local =
        m_configParam.udpBindAnyIp() ? QHostAddress(QHostAddress::Any) : m_configParam.localIpAddress();
    if (!m_socket->bind(local, 0)) {
        return RC_UDP_BIND_FAILED;
    }
    m_commonInfo.setConnectionState(CCommonInfo::eConnected);
    requestStartup(false);
    return RC_OK;
}

void CInterfaceT93::teardown()
{
    stopBusload();
    if (m_socket) {
        m_socket->disconnect(this);
        m_socket->abort();
        m_socket->close();
        m_socket.reset();
        m_commonInfo.setConnectionState(CCommonInfo::eNotConnected);
    }
    m_canMsgQueue.destroy();
}

int CInterfaceT93::connectToGateway(bool wait, int timeoutMs, bool abortFirst)
{
    if (!m_socket) {
        return RC_NO_SOCKET;
    }
    const auto isUnderWay = [this] {
        return m_socket->state() == QAbstractSocket::ConnectingState ||
               m_socket->state() == QAbstractSocket::ConnectedState;
    };
    if (!wait) { // started first: an attempt that fails at once (network down) must be followed by others too
        m_connectSvTimer.start(timeoutMs);
        m_nextReconnection.setRemainingTime(timeoutMs);
    }
    if (abortFirst && m_socket->state() != QAbstractSocket::UnconnectedState) {
        m_socket->abort();
    }
    if (abortFirst || !isUnderWay()) {
        m_socket->connectToHost(m_configParam.ipAddress(), m_configParam.port(), QIODevice::ReadWrite);
        if (!isUnderWay()) {
            qWarning("TCP connect failed: sockErr = %d", static_cast<int>(m_socket->error()));
            return RC_TCP_CONNECT_FAILED;
        }
    }
    if (!wait) {
        return RC_OK;
    }
    if (!m_socket->waitForConnected(timeoutMs)) {
        qWarning("TCP connect timeout, sockErr = %d", static_cast<int>(m_socket->error()));
        return RC_TCP_CONNECT_FAILED;
    }
    QCoreApplication::processEvents(); // may close or delete this interface
    VX_LOG(20, LOG_SOURCE, "waitForConnected() for TCP connection returned with success");
    return RC_OK;
}

void CInterfaceT93::onSocketConnected()
{
    if (!m_socket || !isTcp()) {
        return;
    }
    m_commonInfo.setConnectionState(CCommonInfo::eConnected);
    m_connectSvTimer.stop();
    m_deframer.reset(); // the rest of a frame that was cut by a loss never comes
    ++m_connections;
    tuneTcpLink(*m_socket);
    VX_LOG(20, LOG_SOURCE, "CInterfaceT93: connected from socket received");
    CoreLib::CThread::sleepMsecs(PAUSE_AFTER_CONNECT_MS);
    requestStartup(false);
}

void CInterfaceT93::onSocketDisconnected()
{
    VX_LOG(20, LOG_SOURCE, "disconnected from socket received");
    if (!m_socket || !isTcp()) {
        return;
    }
    m_commonInfo.setConnectionState(CCommonInfo::eNotConnected);
    Q_EMIT queuedInterfaceError(IE_TCP_CONNECTION_LOST);
    if (m_nextReconnection.hasExpired()) {
        connectToGateway(false, RECONNECT_INTERVAL_MS, false);
    } else { // a gateway that accepts and closes at once must not keep the host busy
        m_connectSvTimer.start(static_cast<int>(m_nextReconnection.remainingTime()));
    }
}

void CInterfaceT93::onConnectSvTimerTimeout()
{
    VX_LOG(20, LOG_SOURCE, "connectSvTimer timeout");
    if (m_socket && isTcp()) {
        connectToGateway(false, RECONNECT_INTERVAL_MS, false);
    }
}

void CInterfaceT93::requestStartup(bool reset)
{
    if (reset) {
        sendCommand(RM_CMD_RESET);
    }
    if (!isBroadcast()) {
        sendCommand(RM_CMD_MAC_ADDRESS);
        sendCommand(RM_CMD_FIRMWARE_VERSION);
    }
    restartBusload();
    if (!isBroadcast()) {
        const std::uint16_t interval = m_configParam.busloadMeasureInterval();
        SRmRequest request;
        request.rmCommand = RM_CMD_BUSLOAD_INTERVAL;
        request.payloadLength = 2;
        request.payload[0] = static_cast<std::uint8_t>(interval >> 8);
        request.payload[1] = static_cast<std::uint8_t>(interval & 0xFF);
        txRmSend(request);
    }
}

void CInterfaceT93::sendBaudrate()
{
    SRmRequest request;
    request.rmCommand = RM_CMD_CAN_BAUD_RATE;
    request.payloadLength = 1;
    if (!rmBaudrateCode(m_configParam.canBaudrate(), request.payload[0]) || txRmSend(request) != RC_OK) {
        qWarning("Setting baudrate to %d failed.", static_cast<int>(m_configParam.canBaudrate()));
    }
}

bool CInterfaceT93::isTcp() const
{
    return m_socket->socketType() == QAbstractSocket::TcpSocket;
}

bool CInterfaceT93::isBroadcast() const
{
    return m_socket && !isTcp() && m_configParam.ipAddress() == QHostAddress::Broadcast;
}

// ---- Sending ----

int CInterfaceT93::writeMessage(const CCanMessage& message)
{
    if (!m_socket) {
        return RC_NOT_OPENED;
    }
    if (m_spyHandler != nullptr) {
        const QPointer<CInterfaceT93> self(this);
        m_spyHandler(*this, true, message);
        if (!self) {
            return RC_NO_SOCKET;
        }
    }
    SRmRequest request;
    request.rmCommand = RM_CMD_TX11BIT_MSG;
    const int code = txRmSend(request, &message);
    if (code == RC_OK) {
        m_txBits += canMessageBits(message.length());
    }
    return code;
}

int CInterfaceT93::txRmSend(const SRmRequest& request, const CCanMessage* message)
{
    if (!m_socket) {
        return RC_NO_SOCKET;
    }
    std::uint8_t frame[RM_BUFFER_SIZE];
    const int size = txRmFramer(request, message, frame);
    if (size < 0) {
        return RC_FRAMER_FAILED;
    }
    if (isTcp() && m_socket->state() != QAbstractSocket::ConnectedState) {
        return RC_NO_TCP_CONNECTION;
    }
    return sendFrame(reinterpret_cast<const char*>(frame), size) == size ? RC_OK : RC_SEND_FAILED;
}

qint64 CInterfaceT93::sendFrame(const char* frame, qint64 size)
{
    if (isTcp()) {
        return sendOnTcpLink(*m_socket, frame, size);
    }
    return sendDatagram(static_cast<QUdpSocket&>(*m_socket), frame, size, m_configParam.ipAddress(),
                        m_configParam.port());
}

int CInterfaceT93::sendCommand(ERmCommand command)
{
    SRmRequest request;
    request.rmCommand = command;
    return txRmSend(request);
}

// ---- Receiving ----

int CInterfaceT93::readMessage(CCanMessage& message)
{
    switch (m_canMsgQueue.take(message)) {
    case CCanMsgQueue::ETake::eTaken:
        return RC_OK;
    case CCanMsgQueue::ETake::eEmpty:
        return RC_QUEUE_EMPTY;
    case CCanMsgQueue::ETake::eNoQueue:
        break;
    }
    return RC_NOT_OPENED;
}

void CInterfaceT93::onReadyRead()
{
    if (!m_socket) {
        return;
    }
    const CSession session(*this);
    if (isTcp()) {
        readTcp(session);
    } else {
        readUdp(session);
    }
}

void CInterfaceT93::readTcp(const CSession& session)
{
    char bytes[RM_BUFFER_SIZE];
    while (session.socket().bytesAvailable() > 0) {
        const qint64 count = session.socket().read(bytes, sizeof bytes);
        if (count <= 0) {
            Q_EMIT queuedInterfaceError(IE_READ_FAILED);
            return;
        }
        if (!RxRmTcp(session, bytes, count)) {
            return;
        }
    }
}

void CInterfaceT93::readUdp(const CSession& session)
{
    auto& socket = static_cast<QUdpSocket&>(session.socket());
    char datagram[RM_BUFFER_SIZE];
    int taken = 0;
    do {
        Q_IPV6ADDR sender{};
        const bool mayBeOwn = m_configParam.udpBindAnyIp() || isBroadcast();
        const qint64 count = readDatagram(socket, datagram, sizeof datagram, mayBeOwn ? &sender : nullptr);
        if (count == NO_DATAGRAM) {
            return;
        }
        if (count <= 0) {
            Q_EMIT queuedInterfaceError(IE_READ_FAILED);
            return;
        }
        if (!(mayBeOwn && isOwnDatagram(sender)) && !RxRmTcp(session, datagram, count)) {
            return;
        }
        if (++taken == MAX_DATAGRAMS_PER_TURN) {
            // Qt signals no more when the spy handler had events processed and the next datagram is not read.
            QMetaObject::invokeMethod(this, &CInterfaceT93::onReadyRead, Qt::QueuedConnection);
            return;
        }
    } while (socket.hasPendingDatagrams());
}

bool CInterfaceT93::isOwnDatagram(const Q_IPV6ADDR& sender) const
{
    const auto isSender = [&sender](const QHostAddress& address) {
        const Q_IPV6ADDR bytes = address.toIPv6Address();
        return std::equal(std::begin(bytes.c), std::end(bytes.c), std::begin(sender.c));
    };
    return (m_configParam.udpBindAnyIp() && isSender(m_configParam.localIpAddress())) ||
           (isBroadcast() && isSender(m_socket->localAddress()));
}

bool CInterfaceT93::RxRmTcp(const CSession& session, const char* bytes, qint64 count)
{
    const auto onFrame = [this, &session, connection = m_connections](const SRmFrame& frame) {
        const bool callsHost = m_spyHandler != nullptr;
        RM_ParseRxMsg(frame);
        return !callsHost || (session.isCurrent() && m_connections == connection);
    };
    const auto onWrongChecksum = [this] {
        Q_EMIT queuedInterfaceError(IE_WRONG_CHECKSUM);
        return true;
    };
    m_deframer.feed(reinterpret_cast<const std::uint8_t*>(bytes), static_cast<std::size_t>(count), onFrame,
                    onWrongChecksum);
    return session.isCurrent();
}

void CInterfaceT93::RM_ParseRxMsg(const SRmFrame& frame)
{
    switch (frame.command) {
    case RM_CMD_RX11BIT_MSG:
    case RM_CMD_RX11BIT_TIME_MSG:
        receiveCanMessage(frame); // calls the host, which may delete this interface
        return;
    case RM_CMD_DEVICE_ID:
        receiveDeviceId(frame);
        return;
    case RM_CMD_FIRMWARE_VERSION:
        receiveFirmwareVersion(frame);
        return;
    case RM_CMD_STATUS:
    case RM_CMD_STATUS_ALT:
        receiveStatus(frame.payload[0]);
        return;
    case RM_CMD_MAC_ADDRESS:
        receiveMacAddress(frame);
        return;
    case RM_CMD_BUSLOAD:
        receiveBusload(frame);
        return;
    case RM_CMD_BUSLOAD_INTERVAL:
        receiveBusloadConfirmation();
        return;
    default: // 29-bit messages, reports that nobody asked for, unknown commands
        return;
    }
}

void CInterfaceT93::receiveCanMessage(const SRmFrame& frame)
{
    const CCanMessage message = canMessageOfFrame(frame);
    switch (m_canMsgQueue.store(message)) {
    case CCanMsgQueue::EStore::eNoQueue:
        return;
    case CCanMsgQueue::EStore::eBecameFull:
        Q_EMIT queuedInterfaceError(IE_RX_QUEUE_FULL);
        break;
    case CCanMsgQueue::EStore::eStored:
    case CCanMsgQueue::EStore::eRefused: // it was on the bus all the same: counted and shown
        break;
    }
    m_rxBits += canMessageBits(message.length());
    if (m_spyHandler != nullptr) {
        m_spyHandler(*this, false, message);
    }
}

void CInterfaceT93::receiveFirmwareVersion(const SRmFrame& frame)
{
    QString version;
    switch (firmwareVersionOfReply(frame, version)) {
    case EFirmwareReply::eTooShort:
        break;
    case EFirmwareReply::eAskDeviceId:
        m_deviceIdExpected = true;
        sendCommand(RM_CMD_DEVICE_ID);
        break;
    case EFirmwareReply::eVersion:
        m_commonInfo.setFirmwareVersion(version);
        break;
    }
}

void CInterfaceT93::receiveDeviceId(const SRmFrame& frame)
{
    if (!m_deviceIdExpected) {
        return;
    }
    QString version;
    if (firmwareVersionOfIdentification(frame, version)) {
        m_commonInfo.setFirmwareVersion(version);
    }
    m_deviceIdExpected = false;
}

void CInterfaceT93::receiveMacAddress(const SRmFrame& frame)
{
    CConfigParamT93::MacAddress address;
    std::copy_n(frame.payload.begin(), address.size(), address.begin());
    m_configParam.setMacAddress(address);
    m_commonInfo.setInterfaceId(m_configParam.macAddressString(QLatin1Char(':')));
}

void CInterfaceT93::receiveStatus(std::uint8_t flags)
{
    for (int bit = 0; bit < STATUS_BIT_COUNT; ++bit) {
        if ((flags & (1U << bit)) != 0) {
            Q_EMIT queuedInterfaceError(IE_STATUS_FIRST + bit);
        }
    }
}

// ---- Bus load ----

int CInterfaceT93::busload(int& percent)
{
    if (!m_socket) {
        return RC_NOT_OPENED;
    }
    percent = static_cast<int>(m_busload);
    return RC_OK;
}

void CInterfaceT93::restartBusload()
{
    m_busloadPollTimer.stop();
    m_busload = 0;
    m_gatewayMeasuresBusload = false;
    m_rxBits = 0;
    m_txBits = 0;
    startBusloadTimer();
}

void CInterfaceT93::stopBusload()
{
    m_busloadPollTimer.stop();
}

void CInterfaceT93::startBusloadTimer()
{
    const std::uint32_t pollTime = m_configParam.busloadPollTime();
    m_busloadPollTimer.start(
        static_cast<int>(std::min<std::uint32_t>(pollTime == 0 ? MIN_POLL_TIME_MS : pollTime, INT_MAX)));
}

void CInterfaceT93::onBusloadPollTimeout()
{
    if (!m_socket) {
        return;
    }
    if (m_gatewayMeasuresBusload) {
        sendCommand(RM_CMD_BUSLOAD); // the reply starts the timer again
        return;
    }
    busloadOfBits(m_rxBits + m_txBits, m_configParam.busloadPollTime(), m_configParam.canBaudrate(), m_busload);
    m_rxBits = 0;
    m_txBits = 0;
    startBusloadTimer();
}

void CInterfaceT93::receiveBusloadConfirmation()
{
    if (!m_gatewayMeasuresBusload) {
        m_gatewayMeasuresBusload = true;
        m_busloadPollTimer.stop();
        onBusloadPollTimeout();
    } else if (!m_busloadPollTimer.isActive()) {
        onBusloadPollTimeout();
    }
}

void CInterfaceT93::receiveBusload(const SRmFrame& frame)
{
    const std::uint32_t value = frame.payload[0] + 256U * frame.payload[1];
    busloadOfGatewayValue(value, m_configParam.canBaudrate(), m_busload);
    startBusloadTimer();
}

// ---- Configuration ----

bool CInterfaceT93::isOpened()
{
    return m_socket != nullptr;
}

int CInterfaceT93::baudrate()
{
    return static_cast<int>(m_configParam.canBaudrate());
}

bool CInterfaceT93::setBaudrate(int kbitPerSecond)
{
    if (isOpened()) {
        return false;
    }
    std::uint8_t code = 0;
    if (kbitPerSecond < 0 || !rmBaudrateCode(static_cast<std::uint32_t>(kbitPerSecond), code)) {
        qWarning("Unsupportd baudrate: %d kbaud", kbitPerSecond);
        return false;
    }
    m_configParam.setCanBaudrate(static_cast<std::uint32_t>(kbitPerSecond));
    return true;
}

int CInterfaceT93::loadSettings(const QString& group)
{
    CCommonInfo info = m_commonInfo;
    const int code = m_configParam.loadSettings(group.isNull() ? DEFAULT_GROUP : group, info);
    if (code == RC_OK) {
        m_commonInfo = info;
    }
    return code;
}

int CInterfaceT93::saveSettings(const QString& group)
{
    return m_configParam.saveSettings(group.isNull() ? DEFAULT_GROUP : group, m_commonInfo);
}

int CInterfaceT93::configure(QWidget* parent, Qt::WindowFlags flags)
{
    if (isOpened()) {
        return RC_NO_CHANGE_WHILE_OPEN;
    }
    if (qobject_cast<QApplication*>(QCoreApplication::instance()) == nullptr) { // a widget would end the program
        qWarning("%s: no dialog without a QApplication.", "vexmor::Cim::CInterfaceT93::configure");
        return RC_OK;
    }
    if (m_configDialog) {
        m_configDialog->raise();
        m_configDialog->activateWindow();
        return RC_OK;
    }
    // The host's events go on while the dialog runs, and may delete this interface or the parent. A parent takes the
    // dialog with it: on the stack it would then be deleted twice, hence on the heap and watched.
    const QPointer<CInterfaceT93> self(this);
    const QPointer<CConfigDialogT93> dialog = new CConfigDialogT93(m_configParam, parent, flags);
    m_configDialog = dialog.data();
    dialog->setModal(true);
    const bool isAccepted = dialog->exec() == QDialog::Accepted && dialog;
    const CConfigParamT93 param = isAccepted ? dialog->configParam() : CConfigParamT93();
    delete dialog.data();
    if (!isAccepted || !self) {
        return RC_OK;
    }
    if (isOpened()) { // by somebody else, meanwhile
        return RC_NO_CHANGE_WHILE_OPEN;
    }
    m_configParam = param;
    m_commonInfo.setPort(m_configParam.ipPortString());
    return RC_OK;
}

QString CInterfaceT93::interfaceType()
{
    return m_type;
}

int CInterfaceT93::setCommonInfo(const CCommonInfo& info)
{
    const int code = CCanInterface::setCommonInfo(info);
    if (code != RC_OK) {
        return code;
    }
    QString address;
    QString portText;
    if (m_commonInfo.ipAddress(address, portText)) {
        m_configParam.setIpAddress(QHostAddress(address));
        bool ok = false;
        const unsigned int port = portText.toUInt(&ok, 10);
        if (ok) {
            m_configParam.setPort(static_cast<std::uint16_t>(port));
        } else {
            qWarning("%s: convert IP port string to uint failed.", "vexmor::Cim::CInterfaceT93::setCommonInfo");
        }
    }
    return RC_OK;
}

CConfigParamT93 CInterfaceT93::configParam()
{
    return m_configParam;
}

void CInterfaceT93::setConfigParam(const CConfigParamT93& param)
{
    m_configParam = param;
}

} // namespace vexmor::Cim
