#pragma once

#include "apps/host/interfaceInUse.h"
#include "plugins/canbus/serialBus.h"

#include <QPointer>

#include <memory>

namespace vexmor::CanBus
{

/// A T93 gateway as a device of Qt SerialBus. The interface lives in a thread of its own, so that no function waits for
/// the gateway; the event loop of the device's thread reports results by signals.
///
/// Slots on its signals may disconnect, connect or delete the device, with one exception: in a slot on the change of
/// state from UnconnectedState to ConnectingState, or to ClosingState, use `deleteLater`, because `connectDevice` and
/// `disconnectDevice` of Qt still use the device.
class CT93CanDevice : public CSerialBusDevice
{
    Q_OBJECT
    /// The number of received frames that may wait to be read. Further frames are dropped, which raises one error until
    /// half of the waiting frames were read.
    Q_PROPERTY(int receiveLimit MEMBER m_receiveLimit)
    /// The number of received frames that were dropped since the device was created.
    Q_PROPERTY(qlonglong droppedFrames READ droppedFrames)
    /// The state of the connection to the gateway, in words: "open, no answer yet", "connected", "silent for 12 s".
    /// ConnectedState only means that the link is up (over UDP, that the socket is bound). The bus status is known only
    /// while the gateway is connected.
    Q_PROPERTY(QString connection READ connection)

public:
    /// Takes over a closed interface of the calling thread. Sets BitRateKey to the bit rate of the interface, if it has
    /// one.
    explicit CT93CanDevice(std::unique_ptr<Cim::CCanInterface> model);
    ~CT93CanDevice() override { closeInterface(); }

    /// Returns the device information for a gateway.
    static QCanBusDeviceInfo infoOf(const QString& name, const QString& interfaceId, const QString& description);

    void setConfigurationParameter(CanBus::ConfigurationKey key, const QVariant& value) override;
    bool writeFrame(const QCanBusFrame& frame) override;
    void resetController() override;
    bool hasBusStatus() const override { return true; }
    CanBusStatus busStatus() override { return status().isConnected() ? m_busStatus : CanBusStatus::Unknown; }
    QString interpretErrorFrame(const QCanBusFrame& /*frame*/) override { return {}; } // a T93 sends no error frames
    QCanBusDeviceInfo deviceInfo() const override;

    qlonglong droppedFrames() const { return m_droppedFrames; }
    QString connection() const { return Apps::connectionTextWithReason(status()); }

protected:
    bool open() override;
    void close() override;

private:
    Apps::SInterfaceStatus status() const { return m_interface ? m_interface->status() : Apps::SInterfaceStatus(); }
    QString refusalOf(const QCanBusFrame& frame) const;
    /// Closes the interface of this opening, and waits until the gateway is free for the next connection.
    void closeInterface();

    // Handlers of what the interface reports. They emit signals, whose slots may close, reopen or delete the device;
    // `opening`, a copy of `m_opening` on the stack, is null afterwards.
    void onStatus();
    void onMail();
    void takeOutcome(const Apps::SBusRecord& record);
    void takeFrames(const Apps::SDelivery& delivery, const QPointer<QObject>& opening);
    void takeError(int error, const QPointer<QObject>& opening);

    const std::unique_ptr<Cim::CCanInterface> m_model;  ///< A child that stays closed and is cloned for each opening.
    std::shared_ptr<Apps::CMailbox> m_mailbox;          ///< Mailbox of the present opening.
    std::unique_ptr<Apps::CInterfaceInUse> m_interface; ///< The interface in use; null while unconnected.
    QPointer<QObject> m_opening; ///< A child, the context of all connections of this opening; deleted at its end.
    bool m_isLost = false;       ///< Whether the link was lost and is being regained.
    CanBusStatus m_busStatus = CanBusStatus::Unknown;
    int m_receiveLimit = 100'000;
    bool m_isFull = false; ///< Whether the error about dropped frames was raised.
    qlonglong m_droppedFrames = 0;
};

} // namespace vexmor::CanBus
