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

/// Maximum number of frames that wait to be sent: one second of a full bus.
constexpr int SEND_LIMIT = 9'000;
constexpr unsigned long END_WAIT_MS = 100;
/// Maximum number of received frames that wait for the thread of the device.
constexpr std::size_t MAILBOX_LIMIT = 100'000;

/// The meaning of an interface error for users of QCanBus.
struct SMeaning {
    Device::CanBusError error;
    Device::CanBusStatus busStatus = Device::CanBusStatus::Unknown; ///< Bus status that follows from the error.
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

/// Removes one line from the program's log: the warning of the library when an interface is opened without a bit rate,
/// which is intended here. All other lines are passed to the program's own handler. The filter stays until this library
/// is unloaded.
class CLogFilter
{
public:
    CLogFilter()
    {
        s_next = qInstallMessageHandler(nullptr); // set first, because any thread may call `filter` once installed
        qInstallMessageHandler(filter);
    }
    ~CLogFilter()
    {
        const QtMessageHandler last = qInstallMessageHandler(s_next);
        if (last != filter) { // the program has installed another handler since then, which must stay
            qInstallMessageHandler(last);
        }
    }
    Q_DISABLE_COPY_MOVE(CLogFilter)

private:
    static void filter(QtMsgType type, const QMessageLogContext& context, const QString& text)
    {
        if (text != QLatin1String("Setting baudrate to 0 failed.")) {
            s_next(type, context, text);
        }
    }
    inline static QtMessageHandler s_next = nullptr;
};

QCanBusFrame frameOf(const Apps::SBusRecord& record)
{
    const auto* const data = reinterpret_cast<const char*>(record.message.data());
    QCanBusFrame frame(record.message.id().value(), QByteArray(data, static_cast<int>(record.message.length())));
    frame.setTimeStamp(QCanBusFrame::TimeStamp::fromMicroSeconds(record.microseconds));
    frame.setLocalEcho(record.sent);
    return frame;
}

bool matches(const Device::Filter& filter, unsigned int id)
{
    return (filter.type == QCanBusFrame::InvalidFrame || filter.type == QCanBusFrame::DataFrame) &&
           (filter.format & Device::Filter::MatchBaseFormat) != 0 &&
           (id & filter.frameIdMask) == (filter.frameId & filter.frameIdMask);
}
} // namespace

CT93CanDevice::CT93CanDevice(std::unique_ptr<Cim::CCanInterface> model) : m_model(std::move(model))
{
    m_model->setParent(this);       // so that it moves to another thread with the device
    if (m_model->baudrate() != 0) { // 0: the gateway keeps its own rate
        QCanBusDevice::setConfigurationParameter(BitRateKey, m_model->baudrate() * 1000);
    }
}

QCanBusDeviceInfo CT93CanDevice::infoOf(const QString& name, const QString& interfaceId, const QString& description)
{
    return createDeviceInfo(QStringLiteral("t93canbus"), name, interfaceId, description, QString(), 0, false, false);
}

QCanBusDeviceInfo CT93CanDevice::deviceInfo() const
{
    const Cim::CCommonInfo& info = m_model->commonInfo();
    return infoOf(info.uniqueName(), info.interfaceId(), info.description());
}

void CT93CanDevice::resetController()
{
    if (m_interface) {
        m_interface->reset();
    }
}

// ---- Configuration ----

void CT93CanDevice::setConfigurationParameter(CanBus::ConfigurationKey key, const QVariant& value)
{
    QString refusal;
    if (key == CanFdKey && value.toBool()) {
        refusal = tr("A T93 does not support CAN FD.");
    } else if (key == BitRateKey && state() != UnconnectedState) {
        refusal = tr("The bit rate can only be set while the device is not connected.");
    } else if (key == BitRateKey && value.isValid() &&
               !Apps::bitRates().contains(QString::number(value.toInt() / 1000.0))) {
        refusal = tr("Bit rate %1: a T93 supports %2 kbit/s.")
                      .arg(value.toString(), Apps::bitRates().join(QStringLiteral(", ")));
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
    if (state() != ConnectingState ||
        m_interface) { // a slot on this change of state has disconnected the device, or connected it again
        return state() == ConnectingState;
    }
    while (hasOutgoingFrames()) {
        dequeueOutgoingFrame();
    }
    m_isLost = false;
    std::unique_ptr<Cim::CCanInterface> canInterface(m_model->clone());
    canInterface->setProperty("CanBaudrate", configurationParameter(BitRateKey).toInt() / 1000);
    if (canInterface->baudrate() == 0) {
        static const CLogFilter filter;
    }
    m_mailbox = std::make_shared<Apps::CMailbox>(MAILBOX_LIMIT);
    m_interface = std::make_unique<Apps::CInterfaceInUse>(std::move(canInterface), m_mailbox, std::uint16_t(0),
                                                          Apps::CInterfaceInUse::EOpening::eOnce);
    m_opening = new QObject(this);
    connect(m_interface.get(), &Apps::CInterfaceInUse::statusChanged, m_opening, [this] { onStatus(); });
    connect(m_interface.get(), &Apps::CInterfaceInUse::wasReset, m_opening,
            [this] { m_busStatus = CanBusStatus::Good; });
    connect(
        m_mailbox.get(), &Apps::CMailbox::filled, m_opening, [this] { onMail(); }, Qt::QueuedConnection);
    return true;
}

void CT93CanDevice::close()
{
    closeInterface();
    m_busStatus = CanBusStatus::Unknown;
    setState(UnconnectedState);
}

void CT93CanDevice::closeInterface()
{
    delete m_opening;
    if (m_interface) { // waits until the gateway is free for the next connection
        Apps::CInterfaceInUse::close(std::exchange(m_interface, nullptr), END_WAIT_MS);
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
    m_interface->send(message);
    return true;
}

QString CT93CanDevice::refusalOf(const QCanBusFrame& frame) const
{
    return !m_interface ? tr("Not sent: the device is not connected.")
           : m_isLost   ? tr("Not sent: the connection to the gateway is lost; it is being regained.")
           : frame.frameType() != QCanBusFrame::DataFrame ? tr("Not sent: a T93 sends data frames only.")
           : frame.hasExtendedFrameFormat() || frame.frameId() > CanLog::MAX_ID
               ? tr("Not sent: a T93 sends 11-bit identifiers only.")
           : frame.hasFlexibleDataRateFormat() || frame.payload().size() > CanLog::MAX_DATA_LENGTH
               ? tr("Not sent: a T93 does not support CAN FD or more than 8 data bytes.")
           : framesToWrite() >= SEND_LIMIT ? tr("Not sent: %1 frames are already waiting.").arg(SEND_LIMIT)
                                           : QString();
}

// ---- What the interface reports ----

void CT93CanDevice::onStatus()
{
    const Apps::SInterfaceStatus& status = m_interface->status();
    if (status.hasLink() && state() == ConnectingState) {
        m_isLost = false;
        m_busStatus = CanBusStatus::Good;
        setState(ConnectedState);
    } else if (status.connection == Apps::EConnection::eSilent) {
        m_busStatus = CanBusStatus::Good; // assumed when frames arrive again, since the gateway may have been restarted
    } else if (status.connection == Apps::EConnection::eClosed) {
        const QPointer<QObject> opening = m_opening;
        setError(status.reason, status.code == Cim::RC_TCP_CONNECT_FAILED ? ConnectionError : ConfigurationError);
        if (opening) { // otherwise a slot has deleted, disconnected or reconnected the device
            close();
        }
    }
}

void CT93CanDevice::onMail()
{
    Apps::SDelivery delivery;
    m_mailbox->take(delivery);
    const QPointer<QObject> opening = m_opening;
    for (auto record = delivery.records.begin(); opening && record != delivery.records.end(); ++record) {
        if (record->sent) {
            takeOutcome(*record);
        }
    }
    if (opening) {
        takeFrames(delivery, opening);
    }
    for (auto error = delivery.errors.begin(); opening && error != delivery.errors.end(); ++error) {
        takeError(error->error, opening);
    }
}

void CT93CanDevice::takeOutcome(const Apps::SBusRecord& record)
{
    dequeueOutgoingFrame();
    if (record.code == Cim::RC_OK) {
        Q_EMIT framesWritten(1);
    } else {
        setError(m_model->errorCodeToString(record.code), WriteError);
    }
}

void CT93CanDevice::takeFrames(const Apps::SDelivery& delivery, const QPointer<QObject>& opening)
{
    const QVariant loopback = configurationParameter(LoopbackKey);
    const bool wantsOwn = configurationParameter(ReceiveOwnKey).toBool() && (!loopback.isValid() || loopback.toBool());
    const auto filters = configurationParameter(RawFilterKey).value<QList<Filter>>();
    const auto isWanted = [&](const Apps::SBusRecord& record) {
        const auto passes = [&](const Filter& filter) { return matches(filter, record.message.id().value()); };
        return (!record.sent || (wantsOwn && record.code == Cim::RC_OK)) &&
               (filters.isEmpty() || std::any_of(filters.begin(), filters.end(), passes));
    };
    const int room = std::max(0, m_receiveLimit - static_cast<int>(framesAvailable()));
    qlonglong dropped = static_cast<qlonglong>(delivery.lost);
    QVector<QCanBusFrame> frames;
    for (const Apps::SBusRecord& record : delivery.records) {
        if (!isWanted(record)) {
            continue;
        }
        if (frames.size() < room) {
            frames.append(frameOf(record));
        } else {
            ++dropped;
        }
    }
    m_droppedFrames += dropped;
    m_isFull = m_isFull && room < m_receiveLimit / 2;
    const bool isNew = dropped > 0 && !m_isFull;
    m_isFull = m_isFull || isNew;

    if (!frames.isEmpty()) {
        enqueueReceivedFrames(frames);
    }
    if (opening && isNew) {
        setError(tr("%1 received frames wait to be read; further ones are dropped.").arg(m_receiveLimit), ReadError);
    }
}

void CT93CanDevice::takeError(int error, const QPointer<QObject>& opening)
{
    const bool isKnown = error >= 0 && error < static_cast<int>(std::size(MEANINGS));
    const SMeaning meaning = isKnown ? MEANINGS[error] : SMeaning{UnknownError};
    if (error == Cim::IE_TCP_CONNECTION_LOST) {
        m_isLost = true;
        m_busStatus = CanBusStatus::Unknown;
    } else if (meaning.busStatus != CanBusStatus::Unknown) {
        m_busStatus = meaning.busStatus;
    }
    setError(m_model->interfaceErrorToString(error).trimmed(), meaning.error);
    // A slot of the host may have run the event loop, so the link may be regained or the device closed by now.
    if (opening && m_isLost) {
        setState(ConnectingState);
    }
}

} // namespace vexmor::CanBus
