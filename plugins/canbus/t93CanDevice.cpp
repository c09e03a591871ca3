#include "t93CanDevice.h"

#include "apps/common/bitRates.h"
#include "cim/resultCodes.h"

#include <QVariant>

#include <algorithm>
#include <iterator>
#include <utility>

namespace vexmor::CanBus
{
namespace
{
constexpr int DEFAULT_RECEIVE_LIMIT = 100'000;
/// May wait to be sent: a second of a full bus.
constexpr int SEND_LIMIT = 9'000;
constexpr unsigned int MAX_ID = 0x7FF;
constexpr unsigned long END_WAIT_MS = 100;

/// What an interface error is to users of QCanBus.
struct SMeaning {
    QCanBusDevice::CanBusError error;
    QCanBusDevice::CanBusStatus busStatus = QCanBusDevice::CanBusStatus::Unknown; ///< that it tells of
};
const SMeaning MEANINGS[] = {
    {QCanBusDevice::ConnectionError},                                    // IE_TCP_CONNECTION_LOST
    {QCanBusDevice::ReadError},                                          // IE_WRONG_CHECKSUM
    {QCanBusDevice::ReadError},                                          // IE_RX_QUEUE_FULL
    {QCanBusDevice::ReadError},                                          // IE_READ_FAILED
    {QCanBusDevice::OperationError},                                     // IE_NOT_CONNECTED
    {QCanBusDevice::ReadError},                                          // IE_CAN_BUFFER_OVERFLOW
    {QCanBusDevice::WriteError},                                         // IE_CAN_TRANSMIT_TIMEOUT
    {QCanBusDevice::UnknownError, QCanBusDevice::CanBusStatus::Warning}, // IE_CAN_ERROR_COUNTER_OVERFLOW
    {QCanBusDevice::UnknownError, QCanBusDevice::CanBusStatus::BusOff},  // IE_CAN_BUS_OFF
    {QCanBusDevice::WriteError},                                         // IE_TCP_SYNTAX_ERROR
    {QCanBusDevice::WriteError},                                         // IE_TCP_FORMAT_ERROR
    {QCanBusDevice::WriteError},                                         // IE_TCP_BUFFER_OVERFLOW
};

bool isBitRate(int rate)
{
    return rate % 1000 == 0 && Apps::bitRates().contains(QString::number(rate / 1000));
}
} // namespace

CT93CanDevice::CT93CanDevice(std::unique_ptr<Cim::CCanInterface> model)
    : m_model(std::move(model)), m_receiveLimit(DEFAULT_RECEIVE_LIMIT)
{
    m_model->setParent(this); // moves to another thread with the device
    if (const int rate = m_model->baudrate() * 1000; isBitRate(rate)) {
        QCanBusDevice::setConfigurationParameter(BitRateKey, rate);
    }
    setResetControllerFunction([this] {
        if (m_worker) {
            QMetaObject::invokeMethod(m_worker.get(), &CBusWorker::reset);
        }
    });
    setCanBusStatusGetter([this] { return m_busStatus; });
}

// ---- Configuration ----

void CT93CanDevice::setConfigurationParameter(int key, const QVariant& value)
{
    switch (key) {
    case RawFilterKey:
    case LoopbackKey:
    case ReceiveOwnKey:
    case BitRateKey:
    case CanFdKey:
        break;
    default: // means nothing here
        return;
    }
    const QString refusal = refusalOf(key, value);
    if (!refusal.isEmpty()) {
        setError(refusal, ConfigurationError);
        return;
    }
    QCanBusDevice::setConfigurationParameter(key, value);
    applyReception();
}

QString CT93CanDevice::refusalOf(int key, const QVariant& value) const
{
    if (key == CanFdKey && value.toBool()) {
        return tr("A T93 has no CAN FD.");
    }
    if (key == BitRateKey && value.isValid() && !isBitRate(value.toInt())) {
        return tr("Bit rate %1: a T93 has %2 kbit/s.")
            .arg(value.toString(), Apps::bitRates().join(QStringLiteral(", ")));
    }
    if (key == BitRateKey && state() != UnconnectedState) {
        return tr("The bit rate can be set while the device is not connected only.");
    }
    return {};
}

SReception CT93CanDevice::reception() const
{
    const QVariant loopback = configurationParameter(LoopbackKey);
    SReception reception;
    reception.filters = configurationParameter(RawFilterKey).value<QList<Filter>>();
    reception.own = configurationParameter(ReceiveOwnKey).toBool() && (!loopback.isValid() || loopback.toBool());
    reception.limit = m_receiveLimit;
    return reception;
}

void CT93CanDevice::applyReception()
{
    if (m_worker) {
        QMetaObject::invokeMethod(
            m_worker.get(), [worker = m_worker.get(), reception = reception()] { worker->setReception(reception); });
    }
}

void CT93CanDevice::setReceiveLimit(int frames)
{
    m_receiveLimit = std::max(1, frames);
    applyReception();
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
    m_worker = CBusWorker::start(std::move(canInterface), reception());
    m_front = new QObject(this);
    const CBusWorker* const worker = m_worker.get();
    connect(worker, &CBusWorker::openFailed, m_front, [this](int code) { onOpenFailed(code); });
    connect(worker, &CBusWorker::connected, m_front, [this] { onConnected(); });
    connect(worker, &CBusWorker::errorRaised, m_front, [this](int error) { onError(error); });
    connect(worker, &CBusWorker::sent, m_front, [this](int code) { onSent(code); });
    connect(worker, &CBusWorker::wasReset, m_front, [this] { m_busStatus = CanBusStatus::Good; });
    connect(worker, &CBusWorker::framesWaiting, m_front, [this] { onFrames(); });
    QMetaObject::invokeMethod(m_worker.get(), &CBusWorker::open);
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
        QMetaObject::invokeMethod(worker.get(), &CBusWorker::end);
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
    QMetaObject::invokeMethod(m_worker.get(), [worker = m_worker.get(), message] { worker->send(message); });
    return true;
}

QString CT93CanDevice::refusalOf(const QCanBusFrame& frame) const
{
    if (!m_worker) {
        return tr("Not sent: the device is not connected.");
    }
    if (m_isLost) {
        return tr("Not sent: the connection to the gateway is lost; it is being regained.");
    }
    if (frame.frameType() != QCanBusFrame::DataFrame) {
        return tr("Not sent: a T93 sends data frames only.");
    }
    if (frame.hasExtendedFrameFormat() || frame.frameId() > MAX_ID) {
        return tr("Not sent: a T93 sends 11-bit identifiers only.");
    }
    if (frame.hasFlexibleDataRateFormat() || frame.payload().size() > 8) {
        return tr("Not sent: a T93 has no CAN FD, and no more than 8 data bytes.");
    }
    if (framesToWrite() >= SEND_LIMIT) {
        return tr("Not sent: %1 frames wait already.").arg(SEND_LIMIT);
    }
    return {};
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
    const SReceived received = m_worker->takeReceived();
    const int room = std::max(0, m_receiveLimit - static_cast<int>(framesAvailable()));
    const int dropped = received.dropped + std::max(0, received.frames.size() - room);
    const bool isNew = dropped > 0 && !m_isFull;
    m_isFull = dropped > 0 || (m_isFull && room < m_receiveLimit / 2);
    m_droppedFrames += dropped;

    const QPointer<QObject> front = m_front;
    enqueueReceivedFrames(received.frames.mid(0, room));
    if (front && isNew) {
        setError(tr("%1 received frames wait to be read: further ones are dropped.").arg(m_receiveLimit), ReadError);
    }
}

} // namespace vexmor::CanBus
