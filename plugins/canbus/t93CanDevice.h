#pragma once

#include "apps/host/interfaceInUse.h"
#include "plugins/canbus/serialBus.h"

#include <QPointer>

#include <memory>

namespace vexmor::CanBus
{

/// A T93 gateway as a device of Qt's CAN bus API. Nothing waits for the gateway, which lives in a thread of its own:
/// the results of a call are signals of the device, from the event loop of its thread.
///
/// It may be disconnected, connected again and deleted in a slot on any of its signals; but not deleted on the two
/// changes of state that Qt's own `connectDevice` and `disconnectDevice` make before they go on, to ConnectingState of
/// one that was unconnected, and to ClosingState: there `deleteLater`.
class CT93CanDevice : public CSerialBusDevice
{
    Q_OBJECT
    /// So many received frames may wait to be read; what finds no room is dropped, of which an error tells once until
    /// half of them were read.
    Q_PROPERTY(int receiveLimit MEMBER m_receiveLimit)
    /// Frames dropped for want of room since the device was made.
    Q_PROPERTY(qlonglong droppedFrames READ droppedFrames)
    /// What is known of the connection to the gateway, in words: "open, no answer yet", "connected", "silent for 12 s".
    /// ConnectedState alone says that the link stands; over UDP, that is the socket. The bus status is known while the
    /// gateway is connected.
    Q_PROPERTY(QString connection READ connection)

public:
    /// For a closed interface of this thread. A bit rate that it has becomes BitRateKey.
    explicit CT93CanDevice(std::unique_ptr<Cim::CCanInterface> model);
    ~CT93CanDevice() override { leave(); }

    /// Describes a gateway.
    static QCanBusDeviceInfo infoOf(const QString& name, const QString& interfaceId, const QString& description);

    void setConfigurationParameter(CanBus::ConfigurationKey key, const QVariant& value) override;
    bool writeFrame(const QCanBusFrame& frame) override;
    void resetController() override;
    bool hasBusStatus() const override { return true; }
    CanBusStatus busStatus() override { return status().isConnected() ? m_busStatus : CanBusStatus::Unknown; }
    QString interpretErrorFrame(const QCanBusFrame& /*frame*/) override { return {}; } // a T93 gives none
    QCanBusDeviceInfo deviceInfo() const override;

    qlonglong droppedFrames() const { return m_droppedFrames; }
    QString connection() const { return Apps::connectionTextWithReason(status()); }

protected:
    bool open() override;
    void close() override;

private:
    Apps::SInterfaceStatus status() const { return m_interface ? m_interface->status() : Apps::SInterfaceStatus(); }
    QString refusalOf(const QCanBusFrame& frame) const;
    void leave();

    // What the interface reports. The signals of these may close, reopen or delete the device: then `opening`, a copy
    // of `m_opening` on the stack, is null.
    void onStatus();
    void onMail();
    void takeOutcome(const Apps::SBusRecord& record);
    void takeFrames(const Apps::SDelivery& delivery, const QPointer<QObject>& opening);
    void takeError(int error, const QPointer<QObject>& opening);

    const std::unique_ptr<Cim::CCanInterface> m_model;  ///< child; stays closed: each opening has a clone
    std::shared_ptr<Apps::CMailbox> m_mailbox;          ///< of this opening
    std::unique_ptr<Apps::CInterfaceInUse> m_interface; ///< null while unconnected
    QPointer<QObject> m_opening; ///< child; receives what the interface reports, and ends with the opening
    bool m_isLost = false;       ///< the link, which is being regained
    CanBusStatus m_busStatus = CanBusStatus::Unknown;
    int m_receiveLimit = 100'000;
    bool m_isFull = false; ///< an error has told so
    qlonglong m_droppedFrames = 0;
};

} // namespace vexmor::CanBus
