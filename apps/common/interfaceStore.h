#pragma once

#include <QLatin1String>
#include <QMap>
#include <QString>
#include <QStringList>

namespace vexmor::Cim
{
class CCanInterface;
}

/// The interfaces kept in the settings store, shared with every host of the organisation "Vexmor", application "Cim":
/// one group each below "CanInterfaces", named by CCommonInfo::settingsGroup. Who calls this for many of them in a row
/// keeps a QSettings object meanwhile: then the file is read once, not each time.
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

/// Values of an interface by key, as texts; a missing key leaves what the plugin has by default.
using Settings = QMap<QString, QString>;

/// Names of the stored interfaces, in alphabetical order.
QStringList storedNames();
bool isStored(const QString& name);
/// All that is stored under a name. Wrong usage when the name is unknown.
Settings storedSettings(const QString& name);
/// Removes exactly this interface. Wrong usage when the name is unknown; fails when the disk does not take it.
void removeStored(const QString& name);
/// Stores settings as an interface has them (`settingsOf`), by name, each in the place of what was stored there: in one
/// piece, however many. Fails when the disk does not take them.
void storeSettings(const QMap<QString, Settings>& interfaces);

/// Gives a closed interface these parameters. Fails when it refuses one: those before it, by key, are set then.
void applySettings(Cim::CCanInterface& canInterface, const Settings& settings);
/// What an interface would store, besides its DHCP flag, which nobody but its own store sees.
Settings settingsOf(Cim::CCanInterface& canInterface);
/// Gives a closed interface the name and what is stored under it. Fails in the same way.
void loadStored(Cim::CCanInterface& canInterface, const QString& name);
/// Lets the interface store itself under a name, in the place of what was stored there. Fails when that is not
/// possible, or the disk does not take it.
void store(Cim::CCanInterface& canInterface, const QString& name);

} // namespace vexmor::Apps
