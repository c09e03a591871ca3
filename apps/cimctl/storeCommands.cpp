// The commands about the settings store: list, add, show, remove.
#include "apps/cimctl/command.h"
#include "apps/cli/targetOptions.h"
#include "apps/host/gatewayAddress.h"
#include "apps/host/interfaceStore.h"
#include "apps/host/target.h"
#include "cim/canInterface.h"
#include "cim/canInterfacePlugin.h"

#include <QHostAddress>

#include <algorithm>
#include <iterator>

namespace vexmor::Apps::Cimctl
{
namespace
{
QJsonObject jsonOf(const QString& name, const Settings& settings)
{
    static const QLatin1String NUMBERS[] = {StoreKey::PORT,      StoreKey::UDP_BIND_ANY, QLatin1String("AutoIpUpdate"),
                                            StoreKey::POLL_TIME, StoreKey::MEASURE_TIME, StoreKey::BAUDRATE};
    QJsonObject values;
    for (auto entry = settings.begin(); entry != settings.end(); ++entry) {
        bool isNumber = std::find(std::begin(NUMBERS), std::end(NUMBERS), entry.key()) != std::end(NUMBERS);
        const int number = isNumber ? entry.value().toInt(&isNumber) : 0; // another program may have stored any text
        values.insert(entry.key(), isNumber ? QJsonValue(number) : QJsonValue(entry.value()));
    }
    return {{QStringLiteral("event"), QStringLiteral("interface")},
            {QStringLiteral("name"), name},
            {QStringLiteral("settings"), values}};
}

[[noreturn]] void failUnknown(const QString& name)
{
    failUsage(
        QStringLiteral("no interface is stored under the name '%1' (cimctl list shows the stored names)").arg(name));
}

EExitCode list(SContext& context, const bool& namesOnly)
{
    COutput& output = context.output;
    CInterfaceStore store;
    require(store.failure());
    const QStringList names = store.names();
    std::vector<QStringList> rows;
    for (const QString& name : names) {
        const Settings settings = store.settings(name);
        if (output.isJson()) {
            output.print(jsonOf(name, settings));
        } else if (namesOnly) {
            output.print(printable(name));
        } else {
            const QString rate = settings.value(StoreKey::BAUDRATE);
            rows.push_back({name, settings.value(StoreKey::INTERFACE_TYPE), settings.value(StoreKey::PORT_TEXT),
                            rate == GATEWAYS_BIT_RATE ? QStringLiteral("unchanged") : rate + QStringLiteral(" kbit/s"),
                            settings.value(StoreKey::HOSTNAME)});
        }
    }
    if (!rows.empty()) {
        output.printTable({QStringLiteral("NAME"), QStringLiteral("TYPE"), QStringLiteral("ADDRESS"),
                           QStringLiteral("BIT RATE"), QStringLiteral("HOST NAME")},
                          rows);
    }
    if (names.isEmpty() && !output.isJson() && !namesOnly) {
        output.print("no interfaces are stored (cimctl add NAME ADDRESS stores one)");
    }
    return eDone;
}

EExitCode show(SContext& context, const QString& name)
{
    COutput& output = context.output;
    CInterfaceStore store;
    require(store.failure());
    const Settings settings = store.settings(name);
    if (settings.isEmpty()) {
        failUnknown(name);
    }
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

EExitCode remove(SContext& /*context*/, const QString& name)
{
    CInterfaceStore store;
    require(store.failure());
    if (!store.contains(name)) {
        failUnknown(name);
    }
    require(store.remove(name));
    return eDone;
}

struct SAddOptions {
    QString name;
    QString address;
    Settings settings;
    bool replace = false;
};

EExitCode add(SContext& context, const SAddOptions& options)
{
    CInterfaceStore store;
    require(store.failure());
    if (options.name.isEmpty() || isSimTarget(options.name) || isAddress(options.name)) {
        failUsage(
            QStringLiteral("an interface cannot be stored under the name '%1': it must not be empty, an address or sim")
                .arg(options.name));
    }
    if (store.contains(options.name) && !options.replace) {
        failUsage(QStringLiteral("'%1' is stored already (--replace replaces it)").arg(options.name));
    }
    const Settings settings = valueOf(readAddress(options.address, options.settings));
    const QHostAddress address(settings.value(StoreKey::ADDRESS));
    const bool isTcp = settings.value(StoreKey::PROTOCOL) != QLatin1String("UDP");
    if (address.isMulticast() || address == QHostAddress(QHostAddress::AnyIPv4) ||
        (isTcp && address == QHostAddress(QHostAddress::Broadcast))) {
        failUsage(QStringLiteral("no gateway can have the address %1: use the address of one device")
                      .arg(address.toString()));
    }
    const std::unique_ptr<Cim::CCanInterface> canInterface(plugins(context).front().object->createInterface());
    require(applySettings(*canInterface, settings));
    require(store.save(*canInterface, options.name));
    return eDone;
}
} // namespace

void addStoreCommands(CLI::App& app, Action& chosen)
{
    const auto [listCommand, namesOnly] = addCommand(app, chosen, "list", "List the stored interfaces", list);
    addFlag(listCommand, "--names", namesOnly, "Print only the names");
    addExamples(listCommand, {"cimctl list", "cimctl list --names"});

    const auto [command, options] = addCommand(app, chosen, "add", "Store an interface under a name", add);
    addText(command, "NAME", options.name, "Name of the interface, to use as TARGET").required();
    addText(command, "ADDRESS", options.address, "ADDRESS[:PORT][:TCP|:UDP] of the gateway, or a port text (IP=...)")
        .required();
    addInterfaceSettings(command, options.settings);
    addSetting(command, "--hostname", options.settings, StoreKey::HOSTNAME, "TEXT", "Host name of the gateway");
    addSetting(command, "--description", options.settings, StoreKey::DESCRIPTION, "TEXT",
               "Description that is shown to users");
    addFlag(command, "--replace", options.replace, "Replace the interface stored under this name");
    addExamples(command, {"cimctl add hall 192.168.1.70 --baudrate 500",
                          "cimctl add stage 192.168.1.71:30000:UDP --local-address 192.168.1.20"});

    const auto addForOne = [&](const char* name, const char* help, EExitCode (*act)(SContext&, const QString&),
                               std::initializer_list<const char*> examples) {
        const auto [command, stored] = addCommand(app, chosen, name, help, act);
        addText(command, "NAME", stored, "A stored interface").required();
        addExamples(command, examples);
    };
    addForOne("show", "Show a stored interface", show, {"cimctl show hall", "cimctl show hall --json | jq .settings"});
    addForOne("remove", "Remove a stored interface", remove, {"cimctl remove hall", "cimctl remove \"hall 2\""});
}

} // namespace vexmor::Apps::Cimctl
