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

/// A plugin library that is loaded. The plugin object belongs to the library, which stays loaded to the end.
struct SPlugin {
    QString file;
    Cim::CCanInterfacePlugin* object = nullptr;
    QJsonObject metaData;
    QString libraryText; ///< what the library says of itself; empty when it says nothing
    std::shared_ptr<QPluginLoader> loader;
};

/// Where plugins are looked for: one file, or else every library in a folder. An empty folder stands for the
/// environment variable CIM_PLUGIN_PATH, and without that for the folder where plugins lie beside this program.
struct SPluginPlace {
    QString file;
    QString folder;
};

/// What was found there.
struct SPluginSearch {
    std::vector<SPlugin> plugins;
    QStringList problems; ///< a line for each library that cannot be used: which, and why

    /// For a program that needs a plugin: what is wrong when none can be used.
    Failure failure() const;
};

/// Loads what is found at a place; libraries that cannot be used are told of, never a failure.
SPluginSearch searchPlugins(const SPluginPlace& place);

/// The plugin of that name, the first for an empty one; null when it is not among them.
const SPlugin* pluginNamed(const std::vector<SPlugin>& plugins, const QString& name);

} // namespace vexmor::Apps
