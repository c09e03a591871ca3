// A host that repeatedly loads and unloads the plugin, and opens and closes an interface: cycles [TIMES, 10000]. It is
// not linked to the plugin's library, so that the library can be unloaded. Prints a table in Markdown.
#include "bench/measuring.h"
#include "bench/pluginInterface.h"
#include "bench/processes.h"

#include <QCoreApplication>
#include <QFile>
#include <QPluginLoader>

#include <cstdlib>

using namespace vexmor;
using namespace vexmor::Bench;

namespace
{
/// Repeats an action that returns whether it worked. Returns whether it always did, and nothing grew.
bool cycle(const char* name, int times, double memoryLimitKib, const std::function<bool()>& action)
{
    SResources first;
    int failed = 0;
    for (int number = 0; number < times; ++number) {
        failed += action() ? 0 : 1;
        QCoreApplication::processEvents();
        if (number == times / 10) {
            first = resources();
        }
    }
    const SResources grown = resources() - first;
    printRow({name, std::to_string(times), std::to_string(failed), textOf(grown)});
    const bool worked = holds("it works each time", failed == 0);
    return isFlat(grown, memoryLimitKib) && worked;
}

bool isMapped()
{
    QFile maps(QStringLiteral("/proc/self/maps"));
    return maps.open(QIODevice::ReadOnly) && maps.readAll().contains("libInterfaceT93");
}

bool loadAndUnload()
{
    QPluginLoader loader(QStringLiteral(CIM_PLUGIN_FILE));
    loader.setLoadHints({}); // by default Qt unloads a plugin without unmapping it
    auto* const plugin = qobject_cast<Cim::CCanInterfacePlugin*>(loader.instance());
    const bool isLoaded =
        plugin != nullptr &&
        std::unique_ptr<Cim::CCanInterface>(plugin->createInterface())->interfaceType() == QStringLiteral("T93");
    loader.unload();
    return isLoaded && !isMapped();
}

bool openAndClose(const char* name, EProtocol protocol, int times)
{
    const CGatewayProcess gateway(protocol, 0); // its descriptors do not count
    const auto canInterface = makeInterface(protocol, gateway.port());
    return cycle(name, times, 512, [&] {
        const int code = canInterface->openCommunication();
        close(*canInterface);
        return code == 0;
    });
}
} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    const int times = argc > 1 ? std::atoi(argv[1]) : 10000;
    printHead({"what the host does", "times", "failed", "growth after the first tenth"});
    bool ok = cycle("loads and unloads the library", times, 1024, loadAndUnload);
    ok &= openAndClose("opens and closes over UDP", EProtocol::eUdp, times);
    ok &= openAndClose("opens and closes over TCP", EProtocol::eTcp, times);
    return ok ? 0 : 1;
}
