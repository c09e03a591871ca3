#include "apps/cimctl/command.h"

namespace vexmor::Apps::Cimctl
{

CLI::App& addCommand(CLI::App& app, Action& chosen, const std::string& name, const std::string& help, Action action)
{
    return addSubcommand(app, name, help, [&chosen, action = std::move(action)] { chosen = action; });
}

std::vector<SPlugin> plugins(const SContext& context)
{
    SPluginSearch search = searchPlugins(context.place);
    require(search.failure());
    return std::move(search.plugins);
}

} // namespace vexmor::Apps::Cimctl
