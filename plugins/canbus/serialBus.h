#pragma once

// Adapts the API of Qt SerialBus 5.15 to the API of Qt 6, for which the backend is written.

#include <QCanBusDevice>
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
#include <QCanBusFactoryV2>
#define CANBUS_FACTORY QCanBusFactoryV2
#else
#include <QCanBusFactory>
#define CANBUS_FACTORY QCanBusFactory
#endif

namespace vexmor::CanBus
{

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)

using ConfigurationKey = int;

/// Provides the virtual functions of Qt 6 that Qt 5 does not have, or for which it calls functions that are set.
class CSerialBusDevice : public QCanBusDevice
{
public:
    CSerialBusDevice()
    {
        setResetControllerFunction([this] { resetController(); });
        setCanBusStatusGetter([this] { return busStatus(); });
    }
    virtual void resetController() = 0;
    virtual bool hasBusStatus() const = 0;
    virtual CanBusStatus busStatus() = 0;
    virtual QCanBusDeviceInfo deviceInfo() const = 0;

protected:
    static QCanBusDeviceInfo createDeviceInfo(const QString& /*plugin*/, const QString& name,
                                              const QString& serialNumber, const QString& description,
                                              const QString& /*alias*/, int channel, bool isVirtual,
                                              bool isFlexibleDataRateCapable)
    {
        return QCanBusDevice::createDeviceInfo(name, serialNumber, description, channel, isVirtual,
                                               isFlexibleDataRateCapable);
    }
};

#else

using ConfigurationKey = QCanBusDevice::ConfigurationKey;
using CSerialBusDevice = QCanBusDevice;

#endif

} // namespace vexmor::CanBus
