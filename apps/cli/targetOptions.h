#pragma once

#include "apps/cli/options.h"
#include "apps/host/interfaceSettings.h"
#include "apps/host/pluginFolder.h"

#include <QStringList>

#include <string>

namespace vexmor::Apps
{

/// The gateways that the user named.
struct STargetOptions {
    QStringList texts; ///< TARGET, one at least
    Settings settings; ///< of the options beside it; not for a stored name

    enum class ENumber { eOne, eSeveral, eAny };
    /// Adds TARGET, or TARGETS, and the options beside it to a command.
    void addTo(CLI::App& command, ENumber number = ENumber::eOne);
};

/// Adds the options that say where the plugins are.
void addPluginPlace(CLI::App& app, SPluginPlace& place);
/// Adds an option for a parameter of an interface.
COption addSetting(CLI::App& command, const std::string& names, Settings& settings, QLatin1String key,
                   const std::string& type, const std::string& help);
/// Adds the options for all parameters of an interface but its address.
void addInterfaceSettings(CLI::App& command, Settings& settings);

} // namespace vexmor::Apps
