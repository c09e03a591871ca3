// cimctl: works with CAN interfaces from the command line. This file has the options that all commands share.
#include "apps/cimctl/command.h"
#include "apps/cli/program.h"
#include "apps/cli/targetOptions.h"
#include "apps/host/translations.h"

#include <QCoreApplication>

namespace vexmor::Apps::Cimctl
{
namespace
{
/// The options that all commands share, and the chosen command.
struct SOptions {
    bool json = false;
    bool verbose = false;
    bool quiet = false;
    int logLevel = 0; ///< Lowest level of the log lines that are shown; 0: none.
    SPluginPlace place;
    Action action;
};

void addOptions(CLI::App& app, SOptions& options)
{
    addFlag(app, "--json", options.json, "Print every line as a JSON object, on stdout and on stderr");
    addFlag(app, "-v,--verbose", options.verbose, "Show errors in full, and also the warnings behind an error");
    addFlag(app, "-q,--quiet", options.quiet,
            "Print only errors on stderr: no summary, no changes of state, no warnings");
    addWhole(app, "--log-level", options.logLevel, 1, 100,
             "Show log lines of this level and above: 20 progress, 30 refusals, 50 errors");
    addPluginPlace(app, options.place);
    setFooter(app, "Exit codes: 0 success; 1 failure of the gateway, the plugin or the system; 2 wrong usage; "
                   "130 interrupted (Ctrl-C).\nNo hardware? Try: cimctl dump sim --seconds 3");

    addInfo(app, options.action);
    addScan(app, options.action);
    addTrafficCommands(app, options.action);
    addLoad(app, options.action);
    addCompare(app, options.action);
    addStoreCommands(app, options.action);
}

EExitCode runCommand(const SOptions& options)
{
    COutput output(options.json, options.quiet);
    CDiagnostics diagnostics(output, options.verbose, options.logLevel);
    SContext context{output, diagnostics, options.place};
    try {
        const EExitCode exitCode = options.action(context);
        diagnostics.release();
        return output.finish(exitCode);
    } catch (const SProblem& problem) {
        diagnostics.drop();
        output.reportProblem(problem);
        return exitCodeOf(problem);
    }
}

int cimctl(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    installTranslations(application, {QStringLiteral("interfaceT93")});

    CCommandLine app("cimctl",
                     "Uses CAN interfaces on the command line: receives and sends messages through a T93 gateway.");
    SOptions options;
    addOptions(app, options);
    const auto exitCode = app.parse(argc, argv, [&](const SProblem& problem) {
        // The parser stopped before the end of the command line, so `options.json` may not be set yet.
        COutput(QCoreApplication::arguments().contains(QStringLiteral("--json"))).reportProblem({problem.text});
        return exitCodeOf(problem);
    });
    return exitCode ? *exitCode : runCommand(options);
}
} // namespace
} // namespace vexmor::Apps::Cimctl

int main(int argc, char** argv)
{
    return vexmor::Apps::runProgram("error", [=] { return vexmor::Apps::Cimctl::cimctl(argc, argv); });
}
