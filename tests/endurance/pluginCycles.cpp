// A host that loads the plugin, uses it and unloads it, again and again: pluginCycles [TIMES, 1000]. It is not linked
// to the library, so that nothing else keeps it. Prints a table in Markdown.
#include "bench/measuring.h"
#include "cim/canInterface.h"
#include "cim/canInterfacePlugin.h"

#include <QCoreApplication>
#include <QFile>
#include <QPluginLoader>

#include <algorithm>
#include <cstdlib>
#include <memory>

using namespace vexmor;
using namespace vexmor::Bench;

namespace
{
constexpr double MEMORY_LIMIT_KIB = 1024;

bool isMapped()
{
    QFile maps(QStringLiteral("/proc/self/maps"));
    return maps.open(QIODevice::ReadOnly) && maps.readAll().contains("libInterfaceT93");
}

bool cycles(int count, QLibrary::LoadHints hints, const char* name)
{
    SResources first;
    int failed = 0;
    int stillMapped = 0;
    for (int cycle = 0; cycle < count; ++cycle) {
        QPluginLoader loader(QStringLiteral(CIM_PLUGIN_FILE));
        loader.setLoadHints(hints);
        // By its name: the cast of a type would need the library's own type information.
        QObject* const object = loader.instance();
        auto* const plugin =
            object == nullptr
                ? nullptr
                : static_cast<Cim::CCanInterfacePlugin*>(object->qt_metacast("quinmark.CCanInterfacePlugin/1.1"));
        if (plugin == nullptr) {
            ++failed;
            continue;
        }
        {
            const std::unique_ptr<Cim::CCanInterface> can(plugin->createInterface());
            can->closeCommunication();
            failed += can->interfaceErrorToString(0).isEmpty() || can->interfaceType() != QStringLiteral("T93") ? 1 : 0;
        }
        loader.unload();
        QCoreApplication::processEvents();
        stillMapped += isMapped() ? 1 : 0;
        if (cycle == count / 10) {
            first = resources();
        }
    }
    const SResources grown = resources() - first;
    const bool ok = failed == 0 && grown.residentKib < MEMORY_LIMIT_KIB && grown.descriptors <= 0;
    printRow({text("loads and unloads the library, %s", name),
              text("%d times; failed: %d; still mapped afterwards: %d times; %s more than after the first tenth", count,
                   failed, stillMapped, textOf(grown).c_str()),
              ok ? "yes" : "NO"});
    return ok;
}
} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const int count = argc > 1 ? std::max(std::atoi(argv[1]), 10) : 1000;
    printHead({"what the host does", "figures", "as promised"});
    const bool unloaded = cycles(count, {}, "no load hints");
    const bool kept = cycles(count, QLibrary::PreventUnloadHint, "PreventUnloadHint (Qt's default)");
    return unloaded && kept ? 0 : 1;
}
