// The commands about the settings store: list, add, show, remove.
#include "apps/cimctl/commands.h"
#include "apps/common/gatewayAddress.h"
#include "cim/canInterface.h"
#include "cim/canInterfacePlugin.h"

#include <QSettings>

#include <algorithm>

namespace vexmor::Apps::Cimctl
{
namespace
{
QJsonObject jsonOf(const QString& name, const Settings& settings)
{
    QJsonObject values;
    for (auto entry = settings.begin(); entry != settings.end(); ++entry) {
        values.insert(entry.key(), entry.value());
    }
    return {{QStringLiteral("event"), QStringLiteral("interface")},
            {QStringLiteral("name"), name},
            {QStringLiteral("settings"), values}};
}
} // namespace

EExitCode listStored(COutput& output)
{
    const QSettings keepsFileRead;
    const QStringList names = storedNames();
    int width = 0;
    for (const QString& name : names) {
        width = std::max(width, name.size());
    }
    for (const QString& name : names) {
        const Settings settings = storedSettings(name);
        if (output.isJson()) {
            output.print(jsonOf(name, settings));
            continue;
        }
        output.print(printable(QStringLiteral("%1  %2  %3  %4 kbit/s  %5")
                                   .arg(name.leftJustified(width), settings.value(StoreKey::INTERFACE_TYPE),
                                        settings.value(StoreKey::PORT_TEXT), settings.value(StoreKey::BAUDRATE),
                                        settings.value(StoreKey::HOSTNAME))
                                   .trimmed()));
    }
    if (names.isEmpty() && !output.isJson()) {
        output.print("no interfaces are stored (cimctl add NAME ADDRESS stores one)");
    }
    return eDone;
}

EExitCode showStored(COutput& output, const QString& name)
{
    const Settings settings = storedSettings(name);
    if (output.isJson()) {
        output.print(jsonOf(name, settings));
        return eDone;
    }
    output.print(output.paint(EColor::eBold, printable(name)));
    for (auto entry = settings.begin(); entry != settings.end(); ++entry) {
        output.print(printable(QStringLiteral("  %1 %2").arg(entry.key(), -23).arg(entry.value())));
    }
    return eDone;
}

EExitCode addToStore(COutput& /*output*/, const SAddOptions& options)
{
    if (options.name.isEmpty() || isSimTarget(options.name)) {
        failUsage(QStringLiteral("an interface cannot be stored under the name '%1'").arg(options.name));
    }
    if (isStored(options.name) && !options.replace) {
        failUsage(QStringLiteral("'%1' is stored already (--replace stores another in its place)").arg(options.name));
    }
    Settings settings = options.target.settings;
    if (!parseAddress(options.target.text, settings)) {
        failUsage(QStringLiteral("'%1' is no address like 192.168.1.70:30000:TCP").arg(options.target.text));
    }
    const std::vector<SPlugin> plugins = loadPlugins(options.target.place);
    const std::unique_ptr<Cim::CCanInterface> canInterface(plugins.front().object->createInterface());
    applySettings(*canInterface, settings);
    store(*canInterface, options.name);
    return eDone;
}

EExitCode removeFromStore(COutput& /*output*/, const QString& name)
{
    removeStored(name);
    return eDone;
}

} // namespace vexmor::Apps::Cimctl
