// A host that loads the plugin, uses it and unloads it, again and again: pluginCycles [TIMES, 1000]. It is not linked
// to the library, so that nothing else keeps it. Prints rows of a Markdown table.
#include "cim/canInterface.h"
#include "cim/canInterfacePlugin.h"

#include "bench/resources.h"

#include <QCoreApplication>
#include <QFile>
#include <QPluginLoader>

#include <algorithm>
#include <cstdio>
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
    const SResources last = resources();
    std::printf(
        "| loaded and unloaded, %s | %d times; failed: %d; library still in the process afterwards: %d times; memory "
        "%.0f KiB, heap %.0f KiB, descriptors %d more than after the first tenth |\n",
        name, count, failed, stillMapped, last.residentKib - first.residentKib, last.heapKib - first.heapKib,
        last.descriptors - first.descriptors);
    return failed == 0 && last.residentKib - first.residentKib < MEMORY_LIMIT_KIB &&
           last.descriptors <= first.descriptors;
}
} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const int count = argc > 1 ? std::max(std::atoi(argv[1]), 10) : 1000;
    bool ok = cycles(count, {}, "no load hints");
    ok &= cycles(count, QLibrary::PreventUnloadHint, "PreventUnloadHint (Qt's default)");
    return ok ? 0 : 1;
}
