// How the driver handles the frames that a gateway sends.
#include "InterfaceT93/gatewayReplies.h"
#include "InterfaceT93/hostCall.h"
#include "InterfaceT93/interfaceT93.h"
#include "cim/resultCodes.h"

#include <algorithm>
#include <climits>
#include <utility>

namespace vexmor::Cim
{
namespace
{
/// Poll time that is used instead of 0, which would keep the event loop busy.
constexpr std::uint32_t MIN_POLL_TIME_MS = 100;

constexpr int STATUS_BIT_COUNT = 7;
} // namespace

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
        giveUpLostLink();
        break;
    case CGatewayLink::EReadEnd::eMoreWaits:
        QMetaObject::invokeMethod(this, &CInterfaceT93::onReadyRead, Qt::QueuedConnection);
        break;
    case CGatewayLink::EReadEnd::eDrained:
        giveUpLostLink();
        break;
    case CGatewayLink::EReadEnd::eUnderWay:
    case CGatewayLink::EReadEnd::eStopped: // the host may have deleted this interface
        break;
    }
}

bool CInterfaceT93::RxRmTcp(const CHostCall& call, const char* bytes, qint64 count)
{
    bool isFirst = true;
    const auto onFrame = [&](const SRmFrame& frame) {
        if (std::exchange(isFirst, false)) { // the clock is read once per call, not once per frame
            m_sinceFrame.start();
        }
        const CCanMessage* const message = RM_ParseRxMsg(frame);
        return message == nullptr || m_spyHandler == nullptr || callSpyHandler(call, message);
    };
    const auto onWrongChecksum = [this] {
        Q_EMIT queuedInterfaceError(IE_WRONG_CHECKSUM);
        return true;
    };
    call.link()->deframer().feed(reinterpret_cast<const std::uint8_t*>(bytes), static_cast<std::size_t>(count), onFrame,
                                 onWrongChecksum);
    if (!call.isSameOpening()) {
        return false;
    }
    m_canMsgQueue.publish();
    return true;
}

bool CInterfaceT93::callSpyHandler(const CHostCall& call, const CCanMessage* received)
{
    m_canMsgQueue.publish();               // so that the handler can read the message
    const CCanMessage message = *received; // a copy: the handler may free the queue
    m_spyHandler(*this, false, message);
    return call.isSameOpening();
}

const CCanMessage* CInterfaceT93::RM_ParseRxMsg(const SRmFrame& frame)
{
    switch (frame.command) {
    case RM_CMD_RX11BIT_MSG:
    case RM_CMD_RX11BIT_TIME_MSG:
        return receiveCanMessage(frame);
    case RM_CMD_DEVICE_ID:
        receiveDeviceId(frame);
        break;
    case RM_CMD_FIRMWARE_VERSION:
        receiveFirmwareVersion(frame);
        break;
    case RM_CMD_STATUS:
    case RM_CMD_STATUS_ALT:
        receiveStatus(frame[0]);
        break;
    case RM_CMD_MAC_ADDRESS:
        receiveMacAddress(frame);
        break;
    case RM_CMD_BUSLOAD:
        receiveBusload(frame);
        break;
    case RM_CMD_BUSLOAD_INTERVAL:
        receiveBusloadConfirmation();
        break;
    default: // ignores 29-bit messages, reports that were not requested, and unknown commands
        break;
    }
    return nullptr;
}

const CCanMessage* CInterfaceT93::receiveCanMessage(const SRmFrame& frame)
{
    CCanMessage* const message = m_canMsgQueue.slot();
    if (message == nullptr) {
        return nullptr;
    }
    readCanMessage(frame, *message);
    m_busload.countMessage(message->length());
    // A message that does not fit is counted and passed to the spy handler, because it was on the bus.
    if (m_canMsgQueue.store() == CCanMsgQueue::EStore::eBecameFull) {
        Q_EMIT queuedInterfaceError(IE_RX_QUEUE_FULL);
    }
    return message;
}

void CInterfaceT93::receiveFirmwareVersion(const SRmFrame& frame)
{
    QString version;
    switch (firmwareVersionOfReply(frame, version)) {
    case EFirmwareReply::eTooShort:
        break;
    case EFirmwareReply::eInDeviceId:
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
    for (std::size_t i = 0; i < address.size(); ++i) {
        address[i] = frame[i];
    }
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
        sendCommand(RM_CMD_BUSLOAD); // the reply restarts the timer
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
    m_busload.takeGatewayValue(frame[0] + 256U * frame[1], m_configParam.canBaudrate());
    startBusloadTimer();
}

} // namespace vexmor::Cim
