#pragma once

#include "apps/cli/options.h"
#include "apps/host/interfaceSettings.h"
#include "apps/host/pluginFolder.h"

#include <QStringList>

#include <string>

namespace vexmor::Apps
{

/// The gateways that the user named on the command line.
struct STargetOptions {
    QStringList texts; ///< The texts that the user gave for TARGET or TARGETS.
    Settings settings; ///< Settings from options; not allowed for a stored interface.

    enum class ENumber { eOne, eSeveral, eAny };
    /// Adds TARGET or TARGETS, and the options for the settings, to a command.
    void addTo(CLI::App& command, ENumber number = ENumber::eOne);
};

/// Adds the options for the place of the plugins.
void addPluginPlace(CLI::App& app, SPluginPlace& place);
/// Adds an option for a parameter of an interface.
COption addSetting(CLI::App& command, const std::string& names, Settings& settings, QLatin1String key,
                   const std::string& type, const std::string& help);
/// Adds the options for all parameters of an interface but its address.
void addInterfaceSettings(CLI::App& command, Settings& settings);

} // namespace vexmor::Apps
