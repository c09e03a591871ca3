#pragma once

#include "apps/cimctl/diagnostics.h"
#include "apps/cimctl/output.h"
#include "apps/cli/exitCodes.h"
#include "apps/cli/options.h"
#include "apps/host/pluginFolder.h"
#include "canlog/problem.h"

#include <functional>
#include <memory>
#include <utility>

/// The commands of cimctl and what they share. A function `addX` adds one command, or several similar ones, with its
/// options and its action.
namespace vexmor::Apps::Cimctl
{

/// The parts of the program that every command uses.
struct SContext {
    COutput& output;
    CDiagnostics& diagnostics;
    const SPluginPlace& place;
};

/// Runs a command and returns its exit code. Throws an SProblem on failure, but only before its event loop runs.
using Action = std::function<EExitCode(SContext&)>;

/// Adds a command to the parser, which sets `chosen` to its action when the user types it.
inline CLI::App& addCommand(CLI::App& app, Action& chosen, const std::string& name, const std::string& help,
                            Action action)
{
    return addSubcommand(app, name, help, [&chosen, action = std::move(action)] { chosen = action; });
}

/// Adds a command with its own record of options, whose members the caller binds to options of the parser. The parser
/// owns the command and the record.
template <typename Options>
std::pair<CLI::App&, Options&> addCommand(CLI::App& app, Action& chosen, const std::string& name,
                                          const std::string& help, EExitCode (*act)(SContext&, const Options&))
{
    const auto options = std::make_shared<Options>();
    const auto action = [options, act](SContext& context) { return act(context, *options); };
    return {addCommand(app, chosen, name, help, Action(action)), *options};
}

void addCompare(CLI::App& app, Action& chosen);
void addInfo(CLI::App& app, Action& chosen);
void addScan(CLI::App& app, Action& chosen);
void addTrafficCommands(CLI::App& app, Action& chosen);
void addLoad(CLI::App& app, Action& chosen);
void addStoreCommands(CLI::App& app, Action& chosen);

inline void require(const Failure& failure)
{
    if (failure) {
        throw *failure;
    }
}

template <typename T>
T valueOf(Result<T> result)
{
    if (!result) {
        throw result.problem();
    }
    return std::move(*result);
}

[[noreturn]] inline void failUsage(const QString& text)
{
    throw wrongUsage(text);
}

/// Returns the usable plugins, at least one. Throws a problem when there is none.
inline std::vector<SPlugin> plugins(const SContext& context)
{
    SPluginSearch search = searchPlugins(context.place);
    require(search.failure());
    return std::move(search.plugins);
}

} // namespace vexmor::Apps::Cimctl
