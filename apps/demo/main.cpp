// demo: shows and explains what the library does, on a simulated gateway in this program. Every step is checked.
#include "apps/cli/exitCodes.h"
#include "apps/cli/options.h"
#include "apps/cli/program.h"
#include "apps/demo/narrator.h"
#include "apps/demo/scanChapter.h"
#include "apps/demo/transportChapter.h"
#include "apps/host/pluginFolder.h"
#include "cim/canInterfacePlugin.h"

#include <CLI/CLI.hpp>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>

#include <cstdio>

namespace vexmor::Apps::Demo
{
namespace
{
struct SOptions {
    SPluginPlace place;
    QString logFile;         ///< played as the traffic on the bus; empty: generated traffic
    std::string scanAddress; ///< begins with a scan, in a network where this computer has only this address
};

void introduce(CNarrator& narrator)
{
    narrator.chapter(QStringLiteral("What this library does"));
    narrator.say(QStringLiteral(R"(
        Devices such as amplifiers talk to each other on a CAN bus. A T93 gateway connects that bus to the network.
        This library is a plugin by which any Qt program reaches the bus through the gateway: it opens the connection,
        sends and receives CAN messages, tells how busy the bus is, and says what is wrong when something is.)"));
    narrator.blankLine();
    narrator.say(QStringLiteral(R"(
        Here gateway, bus and devices are simulated inside this program, so no hardware is needed. The library does not
        know that: it talks to them over real sockets, which reach nothing outside this computer. Each line marked 'ok'
        was really checked.)"));
}

/// Where both are installed the name alone; in a build tree a path from where the user is.
QString cimctlAsTyped()
{
    QString name = QStringLiteral("cimctl");
    if (QFileInfo::exists(QCoreApplication::applicationDirPath() + QLatin1Char('/') + name)) {
        return name;
    }
    const QString folder = QFileInfo(QCoreApplication::arguments().constFirst()).path();
    return QDir::cleanPath(folder + QStringLiteral(CIM_CIMCTL_FROM_DEMO));
}

/// Throws a problem when a part of the stage cannot be had.
int demonstrate(const SOptions& options)
{
    QElapsedTimer clock;
    clock.start();
    CNarrator narrator;
    introduce(narrator);
    narrator.step(QStringLiteral("Load the plugin"),
                  QStringLiteral("A host knows a few abstract classes and finds what implements them at run time."));
    const SPluginSearch search = searchPlugins(options.place);
    if (const Failure failure = search.failure()) {
        throw *failure;
    }
    const SPlugin& plugin = search.plugins.front();
    narrator.check(
        true, QStringLiteral("%1: %2, for interfaces of type %3")
                  .arg(QFileInfo(plugin.file).fileName(), plugin.object->pluginName(), plugin.object->interfaceType()));

    if (!options.scanAddress.empty()) {
        demonstrateScan(narrator, plugin, textOf(options.scanAddress));
    }
    narrator.chapter(QStringLiteral("Over TCP"));
    CTransportChapter(narrator, plugin, options.logFile, true).run();
    narrator.chapter(QStringLiteral("Over UDP"));
    CTransportChapter(narrator, plugin, options.logFile, false).run();

    narrator.chapter(QStringLiteral("Summary"));
    if (narrator.failures() > 0) {
        narrator.say(QStringLiteral("%1 of %2 checks failed.").arg(narrator.failures()).arg(narrator.checks()));
        return eRefused;
    }
    narrator.say(QStringLiteral("All %1 checks passed in %2 s.").arg(narrator.checks()).arg(clock.elapsed() / 1000));
    narrator.say(QStringLiteral("To go on by yourself:"));
    const QString cimctl = cimctlAsTyped();
    for (const char* const command : {"dump sim", "load sim", "--help"}) {
        narrator.example((cimctl + QLatin1Char(' ')).toLocal8Bit() + command);
    }
    return eDone;
}

int demo(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    CLI::App app("Shows and explains what the library does, on a simulated gateway in this program.", "cimdemo");
    app.set_version_flag("--version", "cimdemo " CIM_VERSION);
    SOptions options;
    addText(app, "--log", options.logFile, "A log of candump to play as the traffic on the bus", "FILE");
    app.add_option("--scan", options.scanAddress,
                   "Begin with a scan, in a private network with this address of this computer (script/demo makes one)")
        ->type_name("ADDRESS")
        ->transform(typedAddress());
    addText(app, "--plugin", options.place.file, "The plugin library to use", "FILE");
    app.footer("Exit codes: 0 every check passed, 1 one did not, or the system refused, 2 wrong usage.");
    const auto tell = [](const QString& problem) { std::fprintf(stderr, "error: %s\n", qPrintable(problem)); };
    if (const auto exitCode = parseCommandLine(app, argc, argv, tell)) {
        return *exitCode;
    }
    try {
        return demonstrate(options);
    } catch (const SProblem& problem) {
        tell(problem.text);
        return problem.isUsage ? eWrongUsage : eRefused;
    }
}
} // namespace
} // namespace vexmor::Apps::Demo

int main(int argc, char** argv)
{
    return vexmor::Apps::runProgram("error", [=] { return vexmor::Apps::Demo::demo(argc, argv); });
}
