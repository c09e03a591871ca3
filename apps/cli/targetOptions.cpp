#include "apps/cli/targetOptions.h"

#include "apps/host/bitRates.h"

namespace vexmor::Apps
{
namespace
{
const char* const TARGET_HELP =
    "TARGET is the name of a stored interface (see cimctl list), an address or host name "
    "ADDRESS[:PORT][:TCP|:UDP], a port text like IP=192.168.1.70:30000:TCP, or sim: a simulated gateway in this "
    "program (sim:FILE also plays a candump log on its bus).";
} // namespace

void STargetOptions::addTo(CLI::App& command, ENumber number)
{
    if (number == ENumber::eOne) {
        const auto take = [this](const QString& text) { texts.append(text); };
        addText(command, "TARGET", take, "The gateway: a stored name, an address, or sim", {}).required();
    } else {
        COption targets =
            addTexts(command, "TARGETS", texts, "The gateways: stored names, addresses, or sim").several();
        if (number == ENumber::eSeveral) {
            targets.required();
        }
    }
    addInterfaceSettings(command, settings);
    setFooter(command, TARGET_HELP);
}

void addPluginPlace(CLI::App& app, SPluginPlace& place)
{
    addText(app, "--plugin", place.file, "The plugin library to use", "FILE");
    addText(app, "--plugin-dir", place.folder, "Folder of the plugins (or environment: CIM_PLUGIN_PATH)", "DIR");
}

COption addSetting(CLI::App& command, const std::string& names, Settings& settings, QLatin1String key,
                   const std::string& type, const std::string& help)
{
    const auto take = [&settings, key](const QString& text) { settings.insert(key, text); };
    return addText(command, names, take, help, type).group("Interface");
}

void addInterfaceSettings(CLI::App& command, Settings& settings)
{
    addSetting(command, "--protocol", settings, StoreKey::PROTOCOL, "TCP|UDP", "Transport to the gateway (TCP)")
        .oneOf({"TCP", "UDP"});
    addSetting(command, "--baudrate", settings, StoreKey::BAUDRATE, bitRates().join(QLatin1Char('|')).toStdString(),
               "Bit rate of the CAN bus, kbit/s (unchanged)")
        .bitRate();
    addSetting(command, "--local-address", settings, StoreKey::LOCAL_ADDRESS, "ADDRESS",
               "UDP: address of the network interface to the gateway (any)")
        .address();
    addSetting(command, "--poll-time", settings, StoreKey::POLL_TIME, "MS", "Time between bus load requests (800)")
        .whole(100, 3000);
    addSetting(command, "--measure-interval", settings, StoreKey::MEASURE_TIME, "MS",
               "Time over which the gateway measures bus load (1000)")
        .whole(100, 3000);
    const auto bindAny = [&settings] { settings.insert(StoreKey::UDP_BIND_ANY, QStringLiteral("1")); };
    addFlag(command, "--udp-any", bindAny, "UDP: receive on all addresses of this computer").group("Interface");
}

} // namespace vexmor::Apps
