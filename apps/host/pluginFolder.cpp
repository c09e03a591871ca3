#include "apps/host/pluginFolder.h"

#include "apps/host/words.h"
#include "cim/canInterfacePlugin.h"

#include <QCoreApplication>
#include <QDir>
#include <QLibrary>
#include <QPluginLoader>

#include <algorithm>

namespace vexmor::Apps
{
namespace
{
QString folderOf(const SPluginPlace& place)
{
    if (!place.folder.isEmpty()) {
        return place.folder;
    }
    QString fromEnvironment = qEnvironmentVariable("CIM_PLUGIN_PATH");
    if (!fromEnvironment.isEmpty()) {
        return fromEnvironment;
    }
    return QDir::cleanPath(QCoreApplication::applicationDirPath() + QLatin1Char('/') +
                           QStringLiteral(CIM_PLUGIN_DIR_FROM_PROGRAM));
}

Result<SPlugin> loadPlugin(const QString& file)
{
    SPlugin plugin;
    plugin.file = file;
    plugin.loader = std::make_shared<QPluginLoader>(file);
    QObject* const instance = plugin.loader->instance();
    if (instance == nullptr) {
        return SProblem{Words::tr("%1 cannot be loaded: %2").arg(file, plugin.loader->errorString())};
    }
    plugin.object = qobject_cast<Cim::CCanInterfacePlugin*>(instance);
    if (plugin.object == nullptr) {
        return SProblem{Words::tr("%1 is not a CAN interface plugin: it does not provide %2")
                            .arg(file, QLatin1String(qobject_interface_iid<Cim::CCanInterfacePlugin*>()))};
    }
    plugin.metaData = plugin.loader->metaData();
    using Ident = const char* (*)();
    if (const auto ident = reinterpret_cast<Ident>(QLibrary::resolve(file, "canInterfaceLibIdent"))) {
        plugin.libraryText = QString::fromUtf8(ident());
    }
    return plugin;
}
} // namespace

SPluginSearch searchPlugins(const SPluginPlace& place)
{
    QStringList files{place.file};
    SPluginSearch search;
    if (place.file.isEmpty()) {
        const QDir folder(folderOf(place));
        files.clear();
        if (!folder.exists()) {
            search.problems.append(Words::tr("plugin folder %1 does not exist").arg(folder.path()));
        }
        for (const QFileInfo& info : folder.entryInfoList({QStringLiteral("*.so")}, QDir::Files, QDir::Name)) {
            files.append(info.absoluteFilePath());
        }
        if (files.isEmpty() && search.problems.isEmpty()) {
            search.problems.append(Words::tr("plugin folder %1 contains no library (*.so)").arg(folder.path()));
        }
    }
    for (const QString& file : std::as_const(files)) {
        if (auto plugin = loadPlugin(file)) {
            search.plugins.push_back(*plugin);
        } else {
            search.problems.append(plugin.problem().text);
        }
    }
    return search;
}

Failure SPluginSearch::failure() const
{
    return plugins.empty() ? SProblem{problems.join(QStringLiteral("; "))} : Failure();
}

const SPlugin* pluginNamed(const std::vector<SPlugin>& plugins, const QString& name)
{
    const auto hasName = [&name](const SPlugin& plugin) {
        return name.isEmpty() || plugin.object->pluginName() == name;
    };
    const auto found = std::find_if(plugins.begin(), plugins.end(), hasName);
    return found == plugins.end() ? nullptr : &*found;
}

} // namespace vexmor::Apps
