#pragma once

#include "canlog/problem.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <memory>
#include <vector>

class QPluginLoader;

namespace vexmor::Cim
{
class CCanInterfacePlugin;
}

namespace vexmor::Apps
{

/// A loaded plugin library. The plugin object belongs to the library, which stays loaded until the program ends.
struct SPlugin {
    QString file;
    Cim::CCanInterfacePlugin* object = nullptr;
    QJsonObject metaData;
    QString libraryText; ///< Text of canInterfaceLibIdent; empty if the library has none.
    std::shared_ptr<QPluginLoader> loader;
};

/// The place of the plugins: one file or, if that is empty, all libraries in a folder. An empty folder stands for the
/// environment variable CIM_PLUGIN_PATH and, if that is not set, for the installed plugin folder.
struct SPluginPlace {
    QString file;
    QString folder;
};

/// The result of a search for plugins.
struct SPluginSearch {
    std::vector<SPlugin> plugins;
    QStringList problems; ///< One line per library that cannot be used, with the reason.

    /// Returns the problems as a failure if no plugin can be used.
    Failure failure() const;
};

/// Loads all plugins at a place. Libraries that cannot be used are listed as problems.
SPluginSearch searchPlugins(const SPluginPlace& place);

/// Returns the plugin of this name, or the first one for an empty name; null when there is none.
const SPlugin* pluginNamed(const std::vector<SPlugin>& plugins, const QString& name);

} // namespace vexmor::Apps
