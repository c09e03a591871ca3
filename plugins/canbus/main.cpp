// The backend "t93canbus" of Qt SerialBus, by which programs that use QCanBus can use T93 gateways.
#include "t93CanDevice.h"

#include "apps/host/gatewayAddress.h"
#include "apps/host/interfaceStore.h"
#include "cim/canInterfacePlugin.h"

#include <QFile>
#include <QPluginLoader>

#include <dlfcn.h>

namespace vexmor::CanBus
{
namespace
{
using Interface = std::unique_ptr<Cim::CCanInterface>;

/// Returns the plugin object of the library that contains the contract classes used here.
Result<Cim::CCanInterfacePlugin*> loadPlugin()
{
    Dl_info library{};
    dladdr(reinterpret_cast<void*>(&canInterfaceLibIdent), &library);
    QPluginLoader loader(QFile::decodeName(library.dli_fname));
    auto* const plugin = qobject_cast<Cim::CCanInterfacePlugin*>(loader.instance());
    return plugin != nullptr ? Result<Cim::CCanInterfacePlugin*>(plugin) : SProblem{loader.errorString()};
}

/// The settings store of cimctl and cimview, whatever the program that uses this backend is called.
struct SStore : Apps::CInterfaceStore {
    SStore() : CInterfaceStore(QStringLiteral("Vexmor"), QStringLiteral("Cim")) {}
};

/// Returns the parameters of a stored interface, or of an address, with which the gateway's bit rate stays unchanged.
Result<Apps::Settings> parametersOf(const QString& name)
{
    const Apps::Settings stored = SStore().settings(name);
    Apps::Settings parameters;
    for (const QLatin1String key : Apps::StoreKey::PARAMETERS) {
        if (stored.contains(key)) {
            parameters.insert(key, stored.value(key));
        }
    }
    return stored.isEmpty() ? Apps::readAddress(name) : parameters;
}

Result<Interface> createInterface(const QString& name)
{
    auto parameters = parametersOf(name);
    auto plugin = loadPlugin();
    if (!parameters || !plugin) {
        return parameters ? plugin.problem() : parameters.problem();
    }
    Interface canInterface((*plugin)->createInterface());
    Apps::setUniqueName(*canInterface, name);
    const Failure failure = Apps::applySettings(*canInterface, *parameters);
    return failure ? Result<Interface>(*failure) : Result<Interface>(std::move(canInterface));
}
} // namespace

class CT93CanFactory : public QObject, public CANBUS_FACTORY
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "org.qt-project.Qt.QCanBusFactory" FILE "t93canbus.json")
    Q_INTERFACES(CANBUS_FACTORY)

public:
    QCanBusDevice* createDevice(const QString& interfaceName, QString* errorMessage) const override
    {
        auto canInterface = createInterface(interfaceName);
        if (!canInterface && errorMessage != nullptr) {
            *errorMessage = canInterface.problem().text;
        }
        return canInterface ? new CT93CanDevice(std::move(*canInterface)) : nullptr;
    }

    /// Returns the stored interfaces. The network is not scanned.
    QList<QCanBusDeviceInfo> availableDevices(QString* /*errorMessage*/) const override
    {
        QList<QCanBusDeviceInfo> devices;
        SStore stored;
        for (const QString& name : stored.names()) {
            const Apps::Settings settings = stored.settings(name);
            devices.append(CT93CanDevice::infoOf(name, settings.value(Apps::StoreKey::INTERFACE_ID),
                                                 settings.value(Apps::StoreKey::DESCRIPTION)));
        }
        return devices;
    }
};

} // namespace vexmor::CanBus

#include "main.moc"
