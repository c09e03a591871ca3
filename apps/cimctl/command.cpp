#include "apps/cimctl/command.h"

#include <CLI/CLI.hpp>

namespace vexmor::Apps::Cimctl
{

CLI::App& addCommand(CLI::App& app, Action& chosen, const std::string& name, const std::string& help, Action action)
{
    CLI::App& command = *app.add_subcommand(name, help);
    command.fallthrough();
    command.callback([&chosen, action = std::move(action)] { chosen = action; });
    return command;
}

std::vector<SPlugin> plugins(const SContext& context)
{
    SPluginSearch search = searchPlugins(context.place);
    require(search.failure());
    return std::move(search.plugins);
}

} // namespace vexmor::Apps::Cimctl
