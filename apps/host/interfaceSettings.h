#pragma once

#include "canlog/problem.h"

#include <QLatin1String>
#include <QMap>
#include <QString>

namespace vexmor::Cim
{
class CCanInterface;
}

namespace vexmor::Apps
{

/// Keys of the settings store that the programs use.
namespace StoreKey
{
inline const QLatin1String PLUGIN_NAME("PluginName");
inline const QLatin1String DESCRIPTION("Description");
inline const QLatin1String INTERFACE_TYPE("InterfaceType");
inline const QLatin1String PORT_TEXT("PortId");
inline const QLatin1String INTERFACE_ID("InterfaceId"); // MAC address
inline const QLatin1String HOSTNAME("Hostname");
inline const QLatin1String ADDRESS("IP-Address");
inline const QLatin1String PORT("Port");
inline const QLatin1String PROTOCOL("Protocol"); // TCP or UDP
inline const QLatin1String SERVICE("Service");   // SERVER or CLIENT
inline const QLatin1String LOCAL_ADDRESS("Local-IP-Address");
inline const QLatin1String UDP_BIND_ANY("UdpBindAnyIp");           // 0 or 1
inline const QLatin1String POLL_TIME("BusloadPollTime");           // in ms
inline const QLatin1String MEASURE_TIME("BusloadMeasureInterval"); // in ms
inline const QLatin1String BAUDRATE("CanBaudrate");                // in kbit/s
inline const QLatin1String FIRMWARE_VERSION("FirmwareVersion");
inline const QLatin1String SCANABLE("Scanable"); // true or false
/// The keys of parameters, which are properties of the interface.
inline const QLatin1String PARAMETERS[] = {HOSTNAME,  ADDRESS,       PORT,         PROTOCOL,
                                           SERVICE,   LOCAL_ADDRESS, UDP_BIND_ANY, QLatin1String("AutoIpUpdate"),
                                           POLL_TIME, MEASURE_TIME,  BAUDRATE};
} // namespace StoreKey

/// The bit rate that leaves the gateway's own rate unchanged.
inline const QString GATEWAYS_BIT_RATE = QStringLiteral("0");

/// Settings of an interface: texts by key. For a missing key, the plugin's default applies.
using Settings = QMap<QString, QString>;

/// Sets the parameters and the description of a closed interface. Fails at the first value, in the order of the keys,
/// that the interface refuses; the values before it are then set.
Failure applySettings(Cim::CCanInterface& canInterface, const Settings& settings);
/// Returns the settings that an interface would store, without the DHCP flag, which is not a property.
Settings settingsOf(Cim::CCanInterface& canInterface);
/// Sets the name under which an interface is stored and shown.
void setUniqueName(Cim::CCanInterface& canInterface, const QString& name);

} // namespace vexmor::Apps
