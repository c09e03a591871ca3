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

/// The keys of one interface: the documented format of the store. Only those that this program reads or writes itself.
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
inline const QLatin1String PROTOCOL("Protocol"); // TCP, UDP
inline const QLatin1String SERVICE("Service");   // SERVER, CLIENT
inline const QLatin1String LOCAL_ADDRESS("Local-IP-Address");
inline const QLatin1String UDP_BIND_ANY("UdpBindAnyIp");           // 0, 1
inline const QLatin1String POLL_TIME("BusloadPollTime");           // ms
inline const QLatin1String MEASURE_TIME("BusloadMeasureInterval"); // ms
inline const QLatin1String BAUDRATE("CanBaudrate");                // kbit/s
inline const QLatin1String FIRMWARE_VERSION("FirmwareVersion");
inline const QLatin1String SCANABLE("Scanable"); // true, false
/// Those that are parameters of the interface, and its properties.
inline const QLatin1String PARAMETERS[] = {HOSTNAME,  ADDRESS,       PORT,         PROTOCOL,
                                           SERVICE,   LOCAL_ADDRESS, UDP_BIND_ANY, QLatin1String("AutoIpUpdate"),
                                           POLL_TIME, MEASURE_TIME,  BAUDRATE};
} // namespace StoreKey

/// The bit rate that stands for the gateway's own: it is left as it is.
inline const QString GATEWAYS_BIT_RATE = QStringLiteral("0");

/// Values of an interface by key, as texts; a missing key leaves what the plugin has by default.
using Settings = QMap<QString, QString>;

/// Gives a closed interface these parameters, and its description. When it refuses one, those before it, by key, are
/// set.
Failure applySettings(Cim::CCanInterface& canInterface, const Settings& settings);
/// What an interface would store, besides its DHCP flag, which nobody but its own store sees.
Settings settingsOf(Cim::CCanInterface& canInterface);
/// Gives an interface the name under which it is stored, and shown.
void setUniqueName(Cim::CCanInterface& canInterface, const QString& name);

} // namespace vexmor::Apps
