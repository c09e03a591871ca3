#include "InterfaceT93/interfaceT93.h"

#include "InterfaceT93/gatewayReplies.h"
#include "InterfaceT93/hostCall.h"
#include "cim/resultCodes.h"
#include "vxCore/logging.h"
#include "vxCore/thread.h"

#include <QDialog>

#include <algorithm>
#include <climits>
#include <optional>

namespace vexmor::Cim
{
namespace
{
constexpr char LOG_SOURCE[] = "lib/src/vxRemLib/cim/InterfaceT93/interfaceT93";

constexpr int CONNECT_WAIT_MS = 1000;
constexpr int RECONNECT_INTERVAL_MS = 3000;
/// The gateway drops a request that comes within this time of the connection.
constexpr unsigned int PAUSE_AFTER_CONNECT_MS = 20;
/// Stands in for a poll time of 0, which would keep the event loop busy for nothing.
constexpr std::uint32_t MIN_POLL_TIME_MS = 100;

constexpr int STATUS_BIT_COUNT = 7;

const QString PLUGIN_NAME = QStringLiteral("InterfaceT93Plugin");
} // namespace

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

QString CInterfaceT93::interfaceType()
{
    return m_type;
}

// ---- Connection ----

int CInterfaceT93::openCommunication()
{
    if (m_link) {
        VX_LOG(30, LOG_SOURCE, "openCommunication: already opened!!");
        return RC_ALREADY_OPENED;
    }
    ++m_openings;
    m_deviceIdExpected = false;
    m_nextReconnection = QDeadlineTimer();
    m_commonInfo.setConnectionState(CCommonInfo::eNotConnected); // a scan's result or a clone says otherwise
    useLink(CGatewayLink::create(m_configParam));
    if (!m_link) {
        VX_LOG(50, LOG_SOURCE, "unknown protocol %d", static_cast<int>(m_configParam.protocolType()));
        return RC_UNKNOWN_PROTOCOL;
    }
    m_canMsgQueue.create();

    const CHostCall call(*this);
    int code = call.link()->start();
    if (code == RC_OK) {
        code = call.link()->waitUntilUp(CONNECT_WAIT_MS);
    }
    if (!call.isSameOpening()) { // events were processed, in which the host closed or deleted it
        return call.isOwnerAlive() && m_link ? RC_ALREADY_OPENED : RC_TCP_CONNECT_FAILED;
    }
    if (code != RC_OK) {
        teardown();
        return code;
    }
    if (m_link->isUp() && m_commonInfo.connectionState() == CCommonInfo::eNotConnected) { // bound: no signal says so
        m_commonInfo.setConnectionState(CCommonInfo::eConnected);
        requestStartup(false);
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
    if (!m_link) {
        return RC_NOT_OPENED;
    }
    m_link->deframer().reset();
    if (checkConnection == 1 && !m_link->isUp()) {
        Q_EMIT queuedInterfaceError(IE_NOT_CONNECTED);
        return RC_NO_TCP_CONNECTION;
    }
    requestStartup(true);
    return RC_OK;
}

void CInterfaceT93::useLink(const std::shared_ptr<CGatewayLink>& link)
{
    dropLink();
    m_link = link;
    if (m_link) {
        QAbstractSocket* const socket = &m_link->socket();
        connect(socket, &QAbstractSocket::connected, this, &CInterfaceT93::onSocketConnected);
        connect(socket, &QAbstractSocket::disconnected, this, &CInterfaceT93::onSocketDisconnected);
        connect(socket, &QAbstractSocket::readyRead, this, &CInterfaceT93::onReadyRead);
    }
}

void CInterfaceT93::dropLink()
{
    if (m_link) {
        m_link->socket().disconnect(this);
        m_link->close();
        m_link.reset();
    }
}

void CInterfaceT93::teardown()
{
    m_busloadPollTimer.stop();
    if (m_link) {
        dropLink();
        m_commonInfo.setConnectionState(CCommonInfo::eNotConnected);
    }
    m_canMsgQueue.destroy();
}

void CInterfaceT93::onSocketConnected()
{
    if (!m_link || !m_link->isUp()) {
        return;
    }
    m_commonInfo.setConnectionState(CCommonInfo::eConnected);
    m_connectSvTimer.stop();
    VX_LOG(20, LOG_SOURCE, "CInterfaceT93: connected from socket received");
    CoreLib::CThread::sleepMsecs(PAUSE_AFTER_CONNECT_MS);
    requestStartup(false);
}

void CInterfaceT93::onSocketDisconnected()
{
    VX_LOG(20, LOG_SOURCE, "disconnected from socket received");
    if (!m_link || m_link->isUp()) {
        return;
    }
    m_commonInfo.setConnectionState(CCommonInfo::eNotConnected);
    Q_EMIT queuedInterfaceError(IE_TCP_CONNECTION_LOST);
    if (m_nextReconnection.hasExpired()) {
        reconnect();
    } else { // a gateway that accepts and closes at once must not keep the host busy
        m_connectSvTimer.start(static_cast<int>(m_nextReconnection.remainingTime()));
    }
}

void CInterfaceT93::onConnectSvTimerTimeout()
{
    VX_LOG(20, LOG_SOURCE, "connectSvTimer timeout");
    if (m_link && !m_link->isUp()) {
        reconnect();
    }
}

void CInterfaceT93::reconnect()
{
    // Started first: an attempt that fails at once (network down) must be followed by others too.
    m_connectSvTimer.start(RECONNECT_INTERVAL_MS);
    m_nextReconnection.setRemainingTime(RECONNECT_INTERVAL_MS);
    if (!m_link->isStarting()) { // an attempt that is under way is left running
        useLink(m_link->successor());
        m_link->start();
    }
}

void CInterfaceT93::requestStartup(bool reset)
{
    const bool asks = !m_link->reachesAll();
    if (reset) {
        sendCommand(RM_CMD_RESET);
    }
    if (asks) {
        sendCommand(RM_CMD_MAC_ADDRESS);
        sendCommand(RM_CMD_FIRMWARE_VERSION);
    }
    restartBusload();
    if (asks) {
        const std::uint16_t interval = m_configParam.busloadMeasureInterval();
        sendCommand(RM_CMD_BUSLOAD_INTERVAL,
                    {static_cast<std::uint8_t>(interval >> 8), static_cast<std::uint8_t>(interval & 0xFF)});
    }
}

void CInterfaceT93::sendBaudrate()
{
    const std::optional<std::uint8_t> code = rmBaudrateCode(m_configParam.canBaudrate());
    if (!code || sendCommand(RM_CMD_CAN_BAUD_RATE, {*code}) != RC_OK) {
        qWarning("Setting baudrate to %d failed.", static_cast<int>(m_configParam.canBaudrate()));
    }
}

// ---- Sending ----

int CInterfaceT93::writeMessage(const CCanMessage& message)
{
    if (!m_link) {
        return RC_NOT_OPENED;
    }
    if (m_spyHandler != nullptr) {
        const CHostCall call(*this);
        m_spyHandler(*this, true, message);
        if (!call.isOwnerAlive()) {
            return RC_NO_SOCKET;
        }
    }
    SRmRequest request;
    request.rmCommand = RM_CMD_TX11BIT_MSG;
    const int code = txRmSend(request, &message);
    if (code == RC_OK) {
        m_busload.countMessage(message.length());
    }
    return code;
}

int CInterfaceT93::txRmSend(const SRmRequest& request, const CCanMessage* message)
{
    if (!m_link) {
        return RC_NO_SOCKET;
    }
    std::uint8_t frame[RM_BUFFER_SIZE];
    const int size = txRmFramer(request, message, frame);
    if (size < 0) {
        return RC_FRAMER_FAILED;
    }
    if (!m_link->isUp()) {
        return RC_NO_TCP_CONNECTION;
    }
    return m_link->send(reinterpret_cast<const char*>(frame), size) ? RC_OK : RC_SEND_FAILED;
}

int CInterfaceT93::sendCommand(ERmCommand command, std::initializer_list<std::uint8_t> payload)
{
    SRmRequest request;
    request.rmCommand = command;
    request.payloadLength = static_cast<std::uint8_t>(payload.size());
    std::copy(payload.begin(), payload.end(), request.payload.begin());
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
    if (!m_link) {
        return;
    }
    const CHostCall call(*this);
    switch (call.link()->read([&](const char* bytes, qint64 count) { return RxRmTcp(call, bytes, count); })) {
    case CGatewayLink::EReadEnd::eFailed:
        Q_EMIT queuedInterfaceError(IE_READ_FAILED);
        break;
    case CGatewayLink::EReadEnd::eMoreWaits:
        QMetaObject::invokeMethod(this, &CInterfaceT93::onReadyRead, Qt::QueuedConnection);
        break;
    case CGatewayLink::EReadEnd::eDrained:
    case CGatewayLink::EReadEnd::eStopped: // this interface may be gone
        break;
    }
}

bool CInterfaceT93::RxRmTcp(const CHostCall& call, const char* bytes, qint64 count)
{
    const auto onFrame = [this, &call](const SRmFrame& frame) {
        const bool callsHost = m_spyHandler != nullptr;
        RM_ParseRxMsg(frame);
        return !callsHost || call.isCurrent();
    };
    const auto onWrongChecksum = [this] {
        Q_EMIT queuedInterfaceError(IE_WRONG_CHECKSUM);
        return true;
    };
    call.link()->deframer().feed(reinterpret_cast<const std::uint8_t*>(bytes), static_cast<std::size_t>(count), onFrame,
                                 onWrongChecksum);
    return call.isCurrent();
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
    m_busload.countMessage(message.length());
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
    if (!m_link) {
        return RC_NOT_OPENED;
    }
    percent = static_cast<int>(m_busload.percent());
    return RC_OK;
}

void CInterfaceT93::restartBusload()
{
    m_busload = CBusloadMeter();
    startBusloadTimer();
}

void CInterfaceT93::startBusloadTimer()
{
    const std::uint32_t pollTime = m_configParam.busloadPollTime();
    m_busloadPollTimer.start(
        static_cast<int>(std::min<std::uint32_t>(pollTime == 0 ? MIN_POLL_TIME_MS : pollTime, INT_MAX)));
}

void CInterfaceT93::onBusloadPollTimeout()
{
    if (!m_link) {
        return;
    }
    if (m_busload.gatewayMeasures()) {
        sendCommand(RM_CMD_BUSLOAD); // the reply starts the timer again
        return;
    }
    m_busload.endPeriod(m_configParam.busloadPollTime(), m_configParam.canBaudrate());
    startBusloadTimer();
}

void CInterfaceT93::receiveBusloadConfirmation()
{
    if (m_busload.confirmGatewayMeasures()) {
        m_busloadPollTimer.stop();
    }
    if (!m_busloadPollTimer.isActive()) {
        onBusloadPollTimeout();
    }
}

void CInterfaceT93::receiveBusload(const SRmFrame& frame)
{
    m_busload.takeGatewayValue(frame.payload[0] + 256U * frame.payload[1], m_configParam.canBaudrate());
    startBusloadTimer();
}

} // namespace vexmor::Cim
