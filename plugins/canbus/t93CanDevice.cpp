#include "t93CanDevice.h"

#include "apps/host/bitRates.h"
#include "canlog/candumpLog.h"
#include "cim/resultCodes.h"

#include <QVariant>

#include <algorithm>
#include <iterator>
#include <utility>

namespace vexmor::CanBus
{
namespace
{
using Device = QCanBusDevice;

/// May wait to be sent: a second of a full bus.
constexpr int SEND_LIMIT = 9'000;
constexpr unsigned long END_WAIT_MS = 100;

/// What an interface error is to users of QCanBus.
struct SMeaning {
    Device::CanBusError error;
    Device::CanBusStatus busStatus = Device::CanBusStatus::Unknown; ///< that it tells of
};
const SMeaning MEANINGS[] = {
    {Device::ConnectionError},                             // IE_TCP_CONNECTION_LOST
    {Device::ReadError},                                   // IE_WRONG_CHECKSUM
    {Device::ReadError},                                   // IE_RX_QUEUE_FULL
    {Device::ReadError},                                   // IE_READ_FAILED
    {Device::OperationError},                              // IE_NOT_CONNECTED
    {Device::ReadError},                                   // IE_CAN_BUFFER_OVERFLOW
    {Device::WriteError},                                  // IE_CAN_TRANSMIT_TIMEOUT
    {Device::UnknownError, Device::CanBusStatus::Warning}, // IE_CAN_ERROR_COUNTER_OVERFLOW
    {Device::UnknownError, Device::CanBusStatus::BusOff},  // IE_CAN_BUS_OFF
    {Device::WriteError},                                  // IE_TCP_SYNTAX_ERROR
    {Device::WriteError},                                  // IE_TCP_FORMAT_ERROR
    {Device::WriteError},                                  // IE_TCP_BUFFER_OVERFLOW
};

bool matches(const Device::Filter& filter, unsigned int id)
{
    return (filter.type == QCanBusFrame::InvalidFrame || filter.type == QCanBusFrame::DataFrame) &&
           (filter.format & Device::Filter::MatchBaseFormat) != 0 &&
           (id & filter.frameIdMask) == (filter.frameId & filter.frameIdMask);
}
} // namespace

CT93CanDevice::CT93CanDevice(std::unique_ptr<Cim::CCanInterface> model) : m_model(std::move(model))
{
    m_model->setParent(this);       // moves to another thread with the device
    if (m_model->baudrate() != 0) { // else the gateway keeps its own
        QCanBusDevice::setConfigurationParameter(BitRateKey, m_model->baudrate() * 1000);
    }
    setResetControllerFunction([this] { m_worker ? m_worker->reset() : void(); });
    setCanBusStatusGetter([this] { return m_busStatus; });
}

// ---- Configuration ----

void CT93CanDevice::setConfigurationParameter(int key, const QVariant& value)
{
    QString refusal;
    if (key == CanFdKey && value.toBool()) {
        refusal = tr("A T93 has no CAN FD.");
    } else if (key == BitRateKey && state() != UnconnectedState) {
        refusal = tr("The bit rate can be set while the device is not connected only.");
    } else if (key == BitRateKey && value.isValid() &&
               !Apps::bitRates().contains(QString::number(value.toInt() / 1000.0))) {
        refusal =
            tr("Bit rate %1: a T93 has %2 kbit/s.").arg(value.toString(), Apps::bitRates().join(QStringLiteral(", ")));
    }
    if (refusal.isEmpty()) {
        QCanBusDevice::setConfigurationParameter(key, value);
    } else {
        setError(refusal, ConfigurationError);
    }
}

// ---- Connecting ----

bool CT93CanDevice::open()
{
    if (state() != ConnectingState || m_worker) { // disconnected in a slot on that change of state, or connected again
        return state() == ConnectingState;
    }
    while (hasOutgoingFrames()) {
        dequeueOutgoingFrame();
    }
    m_isLost = false;
    std::unique_ptr<Cim::CCanInterface> canInterface(m_model->clone());
    canInterface->setProperty("CanBaudrate", configurationParameter(BitRateKey).toInt() / 1000);
    m_worker = CBusWorker::start(std::move(canInterface));
    m_front = new QObject(this);
    const CBusWorker* const worker = m_worker.get();
    connect(worker, &CBusWorker::openFailed, m_front, [this](int code) { onOpenFailed(code); });
    connect(worker, &CBusWorker::connected, m_front, [this] { onConnected(); });
    connect(worker, &CBusWorker::errorRaised, m_front, [this](int error) { onError(error); });
    connect(worker, &CBusWorker::sent, m_front, [this](int code) { onSent(code); });
    connect(worker, &CBusWorker::framesWaiting, m_front, [this] { onFrames(); });
    m_worker->open();
    return true;
}

void CT93CanDevice::close()
{
    leave();
    m_busStatus = CanBusStatus::Unknown;
    setState(UnconnectedState);
}

void CT93CanDevice::leave()
{
    delete m_front;
    if (const auto worker = std::exchange(m_worker, nullptr)) {
        worker->end();
        worker->wait(END_WAIT_MS); // the next one can have the gateway at once, unless this was just being opened
    }
}

// ---- Sending ----

bool CT93CanDevice::writeFrame(const QCanBusFrame& frame)
{
    const QString refusal = refusalOf(frame);
    if (!refusal.isEmpty()) {
        setError(refusal, WriteError);
        return false;
    }
    const QByteArray data = frame.payload();
    Cim::CCanMessage message;
    message.setId(Cim::CCanId::fromValue(static_cast<std::uint16_t>(frame.frameId())));
    message.setData(0, static_cast<unsigned int>(data.size()),
                    reinterpret_cast<unsigned char*>(const_cast<char*>(data.constData())));
    enqueueOutgoingFrame(frame);
    m_worker->send(message);
    return true;
}

QString CT93CanDevice::refusalOf(const QCanBusFrame& frame) const
{
    return !m_worker  ? tr("Not sent: the device is not connected.")
           : m_isLost ? tr("Not sent: the connection to the gateway is lost; it is being regained.")
           : frame.frameType() != QCanBusFrame::DataFrame ? tr("Not sent: a T93 sends data frames only.")
           : frame.hasExtendedFrameFormat() || frame.frameId() > CanLog::MAX_ID
               ? tr("Not sent: a T93 sends 11-bit identifiers only.")
           : frame.hasFlexibleDataRateFormat() || frame.payload().size() > CanLog::MAX_DATA_LENGTH
               ? tr("Not sent: a T93 has no CAN FD, and no more than 8 data bytes.")
           : framesToWrite() >= SEND_LIMIT ? tr("Not sent: %1 frames wait already.").arg(SEND_LIMIT)
                                           : QString();
}

// ---- What the worker tells ----

void CT93CanDevice::onOpenFailed(int code)
{
    const QPointer<QObject> front = m_front;
    setError(m_model->errorCodeToString(code),
             code == Cim::RC_TCP_CONNECT_FAILED ? ConnectionError : ConfigurationError);
    if (front) { // else deleted, disconnected or connected anew in a slot
        close();
    }
}

void CT93CanDevice::onConnected()
{
    m_isLost = false;
    m_busStatus = CanBusStatus::Good;
    setState(ConnectedState);
}

void CT93CanDevice::onError(int error)
{
    const bool isKnown = error >= 0 && error < static_cast<int>(std::size(MEANINGS));
    const SMeaning meaning = isKnown ? MEANINGS[error] : SMeaning{UnknownError};
    if (error == Cim::IE_TCP_CONNECTION_LOST) {
        m_isLost = true;
        m_busStatus = CanBusStatus::Unknown;
    } else if (meaning.busStatus != CanBusStatus::Unknown) {
        m_busStatus = meaning.busStatus;
    }
    const QPointer<QObject> front = m_front;
    setError(m_model->interfaceErrorToString(error).trimmed(), meaning.error);
    if (front && m_isLost) { // else regained in a slot that ran the event loop
        setState(ConnectingState);
    }
}

void CT93CanDevice::onSent(int code)
{
    dequeueOutgoingFrame();
    if (code == Cim::RC_OK) {
        Q_EMIT framesWritten(1);
    } else {
        setError(m_model->errorCodeToString(code), WriteError);
    }
}

void CT93CanDevice::onFrames()
{
    auto [frames, dropped] = m_worker->takeFrames();
    const QVariant loopback = configurationParameter(LoopbackKey);
    const bool wantsOwn = configurationParameter(ReceiveOwnKey).toBool() && (!loopback.isValid() || loopback.toBool());
    const auto filters = configurationParameter(RawFilterKey).value<QList<Filter>>();
    const auto isUnwanted = [&](const QCanBusFrame& frame) {
        const auto passes = [&](const Filter& filter) { return matches(filter, frame.frameId()); };
        return (frame.hasLocalEcho() && !wantsOwn) ||
               (!filters.isEmpty() && std::none_of(filters.begin(), filters.end(), passes));
    };
    frames.erase(std::remove_if(frames.begin(), frames.end(), isUnwanted), frames.end());

    const int room = std::max(0, m_receiveLimit - static_cast<int>(framesAvailable()));
    dropped += std::max(0, frames.size() - room);
    m_droppedFrames += dropped;
    m_isFull = m_isFull && room < m_receiveLimit / 2;
    const bool isNew = dropped > 0 && !m_isFull;
    m_isFull = m_isFull || isNew;

    const QPointer<QObject> front = m_front;
    enqueueReceivedFrames(frames.mid(0, room));
    if (front && isNew) {
        setError(tr("%1 received frames wait to be read: further ones are dropped.").arg(m_receiveLimit), ReadError);
    }
}

} // namespace vexmor::CanBus
