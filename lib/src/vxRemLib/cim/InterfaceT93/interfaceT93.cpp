#include "InterfaceT93/interfaceT93.h"

#include "InterfaceT93/hostCall.h"
#include "cim/resultCodes.h"
#include "vxCore/logging.h"
#include "vxCore/thread.h"

#include <QDialog>

#include <algorithm>
#include <optional>

namespace vexmor::Cim
{
namespace
{
constexpr char LOG_SOURCE[] = "lib/src/vxRemLib/cim/InterfaceT93/interfaceT93";

constexpr int CONNECT_WAIT_MS = 1000;
constexpr int RECONNECT_INTERVAL_MS = 3000;
/// The gateway drops requests that arrive within this time after the connection.
constexpr unsigned int PAUSE_AFTER_CONNECT_MS = 20;
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
    if (m_configDialog) { // `configure` waits for it
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
    m_commonInfo.setConnectionState(CCommonInfo::eNotConnected); // may differ after a scan or in a clone
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
    if (!call.isSameOpening()) { // a processed event closed, reopened or deleted this interface
        return call.isOwnerAlive() && m_link ? RC_ALREADY_OPENED : RC_TCP_CONNECT_FAILED;
    }
    if (code != RC_OK) {
        teardown();
        return code;
    }
    // Over TCP, onSocketConnected has done this; for a bound UDP socket there is no such signal.
    if (m_link->isUp() && m_commonInfo.connectionState() == CCommonInfo::eNotConnected) {
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
    m_sinceFrame.invalidate();
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
    // Data received before the loss is delivered first, from the event loop, since a send may have found the loss.
    QMetaObject::invokeMethod(this, &CInterfaceT93::onReadyRead, Qt::QueuedConnection);
}

void CInterfaceT93::giveUpLostLink()
{
    if (m_link->isUp() || m_commonInfo.connectionState() != CCommonInfo::eConnected) {
        return;
    }
    m_commonInfo.setConnectionState(CCommonInfo::eNotConnected);
    Q_EMIT queuedInterfaceError(IE_TCP_CONNECTION_LOST);
    if (m_nextReconnection.hasExpired()) {
        reconnect();
    } else { // a gateway that accepts and closes at once must not keep the host application busy
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
    // The timer is started before the attempt, because the attempt may fail at once, and further attempts must follow.
    m_connectSvTimer.start(RECONNECT_INTERVAL_MS);
    m_nextReconnection.setRemainingTime(RECONNECT_INTERVAL_MS);
    if (!m_link->isStarting()) { // a running attempt goes on
        useLink(m_link->successor());
        m_link->start();
    }
}

void CInterfaceT93::requestStartup(bool reset)
{
    const bool isOneGateway = !m_link->reachesAll();
    if (reset) {
        sendCommand(RM_CMD_RESET);
    }
    if (isOneGateway) {
        sendCommand(RM_CMD_MAC_ADDRESS);
        sendCommand(RM_CMD_FIRMWARE_VERSION);
    }
    restartBusload();
    if (isOneGateway) {
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

} // namespace vexmor::Cim
