#include "t93CanDevice.h"

#include "apps/common/bitRates.h"

#include <QPointer>
#include <QVariant>

#include <algorithm>

namespace vexmor::CanBus
{
namespace
{
constexpr int DEFAULT_RECEIVE_LIMIT = 100'000;
/// May wait to be sent: a second of a full bus.
constexpr int SEND_LIMIT = 9'000;
constexpr unsigned int MAX_ID = 0x7FF;
constexpr unsigned long END_WAIT_MS = 100;

bool isBitRate(const QVariant& value)
{
    const int rate = value.toInt();
    return rate % 1000 == 0 && Apps::bitRates().contains(QString::number(rate / 1000));
}
} // namespace

CT93CanDevice::CT93CanDevice(std::unique_ptr<Cim::CCanInterface> canInterface) : m_receiveLimit(DEFAULT_RECEIVE_LIMIT)
{
    const int rate = canInterface->property("CanBaudrate").toInt() * 1000;
    if (isBitRate(rate)) {
        QCanBusDevice::setConfigurationParameter(BitRateKey, rate);
    }
    m_worker = CBusWorker::start(std::move(canInterface));
    qRegisterMetaType<News>("vexmor::CanBus::News");
    connect(m_worker.get(), &CBusWorker::framesWaiting, this, &CT93CanDevice::onFrames, Qt::QueuedConnection);
    const auto take = [this](int session, const News& news) {
        if (session == m_session) {
            news(*this);
        }
    };
    connect(m_worker.get(), &CBusWorker::happened, this, take, Qt::QueuedConnection);
    applyReception();
    setResetControllerFunction([this] { m_worker->ask(&CBusWorker::reset); });
    setCanBusStatusGetter([this] { return m_busStatus; });
}

CT93CanDevice::~CT93CanDevice()
{
    giveUpIdle();
    m_worker->ask(&CBusWorker::end);
    m_worker->wait(END_WAIT_MS); // the next device can have the gateway at once, unless it is just being opened
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
    if (key == BitRateKey && value.isValid() && !isBitRate(value)) {
        return tr("Bit rate %1: a T93 has %2 kbit/s.")
            .arg(value.toString(), Apps::bitRates().join(QStringLiteral(", ")));
    }
    if (key == BitRateKey && state() != UnconnectedState) {
        return tr("The bit rate can be set while the device is not connected only.");
    }
    return {};
}

void CT93CanDevice::applyReception()
{
    const QVariant loopback = configurationParameter(LoopbackKey);
    SReception reception;
    reception.filters = configurationParameter(RawFilterKey).value<QList<Filter>>();
    reception.own = configurationParameter(ReceiveOwnKey).toBool() && (!loopback.isValid() || loopback.toBool());
    reception.limit = m_receiveLimit;
    m_worker->ask(&CBusWorker::setReception, reception);
}

void CT93CanDevice::setReceiveLimit(int frames)
{
    m_receiveLimit = std::max(1, frames);
    applyReception();
}

// ---- Connecting ----

bool CT93CanDevice::open()
{
    if (state() != ConnectingState) { // disconnected in a slot on that change of state
        return false;
    }
    if (!m_isOpen) { // else: connected again there
        m_isOpen = true;
        m_isLost = false;
        ++m_session;
        while (hasOutgoingFrames()) {
            dequeueOutgoingFrame();
        }
        m_worker->ask(&CBusWorker::open, m_session, configurationParameter(BitRateKey).toInt() / 1000);
    }
    return true;
}

void CT93CanDevice::close()
{
    m_isOpen = false;
    m_busStatus = CanBusStatus::Unknown;
    giveUpIdle();
    ++m_session;
    m_worker->ask(&CBusWorker::close);
    setState(UnconnectedState);
}

void CT93CanDevice::giveUpIdle()
{
    if (framesToWrite() == 0) {
        m_worker->giveUp(m_session);
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
    m_worker->ask(&CBusWorker::send, message);
    return true;
}

QString CT93CanDevice::refusalOf(const QCanBusFrame& frame) const
{
    if (!m_isOpen) {
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

QString CT93CanDevice::interpretErrorFrame(const QCanBusFrame& /*errorFrame*/)
{
    return {}; // a T93 gives none
}

// ---- What the interface tells ----

void CT93CanDevice::onConnected()
{
    m_isLost = false;
    m_busStatus = CanBusStatus::Good;
    setState(ConnectedState);
}

void CT93CanDevice::onOpenFailed(const QString& text, CanBusError error)
{
    if (tellError(text, error)) {
        close();
    }
}

void CT93CanDevice::onLost(const QString& text, CanBusError error)
{
    m_isLost = true;
    m_busStatus = CanBusStatus::Unknown;
    if (tellError(text, error) && m_isLost) { // else regained, in a slot that ran the event loop
        setState(ConnectingState);
    }
}

void CT93CanDevice::onSent(const QString& refusal)
{
    dequeueOutgoingFrame();
    if (refusal.isEmpty()) {
        Q_EMIT framesWritten(1);
    } else {
        setError(refusal, WriteError);
    }
}

void CT93CanDevice::onError(const QString& text, CanBusError error, CanBusStatus busStatus)
{
    if (busStatus != CanBusStatus::Unknown) {
        m_busStatus = busStatus;
    }
    setError(text, error);
}

void CT93CanDevice::onFrames()
{
    int dropped = 0;
    QVector<QCanBusFrame> frames = m_worker->takeFrames(m_session, dropped);
    const int room = std::max(0, m_receiveLimit - static_cast<int>(framesAvailable()));
    if (frames.size() > room) {
        dropped += frames.size() - room;
        frames.resize(room);
    }
    const bool isNew = dropped > 0 && !m_isFull;
    m_isFull = dropped > 0 || (m_isFull && room < m_receiveLimit / 2);
    m_droppedFrames += dropped;

    const QPointer<CT93CanDevice> self(this);
    enqueueReceivedFrames(frames);
    if (self && isNew) {
        setError(tr("%1 received frames wait to be read: further ones are dropped.").arg(m_receiveLimit), ReadError);
    }
}

/// False when the device was deleted, disconnected or connected anew in a slot.
bool CT93CanDevice::tellError(const QString& text, CanBusError error)
{
    const QPointer<CT93CanDevice> self(this);
    const int session = m_session;
    setError(text, error);
    return self && m_session == session;
}

} // namespace vexmor::CanBus
