#include "apps/cimctl/demo.h"

#include "apps/cimctl/demoNarrator.h"
#include "apps/cimctl/demoRun.h"
#include "apps/cimctl/demoScan.h"
#include "cim/canInterfacePlugin.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>

namespace vexmor::Apps::Cimctl
{
namespace
{
void introduce(CDemoNarrator& narrator)
{
    narrator.chapter(QStringLiteral("What this library does"));
    narrator.say(QStringLiteral(
        "Devices such as amplifiers talk to each other on a CAN bus. A T93 gateway connects that bus to the network. "
        "This "
        "library is a plugin by which any Qt program reaches the bus through the gateway: it opens the connection, "
        "sends "
        "and receives CAN messages, tells how busy the bus is, and says what is wrong when something is."));
    narrator.blankLine();
    narrator.say(QStringLiteral(
        "Here gateway, bus and devices are simulated inside this program, so no hardware is needed. The library does "
        "not "
        "know that: it talks to them over real sockets, which reach nothing outside this computer. Each line marked "
        "'ok' was really checked."));
}
} // namespace

EExitCode demo(COutput& output, const SDemoOptions& options)
{
    QElapsedTimer clock;
    clock.start();
    CDemoNarrator narrator(output);
    introduce(narrator);
    narrator.step(QStringLiteral("Load the plugin"),
                  QStringLiteral("A host knows a few abstract classes and finds what implements them at run time."));
    const SPlugin plugin = loadPlugins(options.place).front();
    narrator.check(
        true, QStringLiteral("%1: %2, for interfaces of type %3")
                  .arg(QFileInfo(plugin.file).fileName(), plugin.object->pluginName(), plugin.object->interfaceType()));
    output.releaseWarnings(false);

    if (!options.scanAddress.isEmpty()) {
        demonstrateScan(output, narrator, plugin, options.scanAddress);
    }
    narrator.chapter(QStringLiteral("Over TCP"));
    CDemoRun(output, narrator, plugin, options.logFile, true).run();
    narrator.chapter(QStringLiteral("Over UDP"));
    CDemoRun(output, narrator, plugin, options.logFile, false).run();

    narrator.chapter(QStringLiteral("Summary"));
    if (narrator.failures() > 0) {
        output.reportFailure(QStringLiteral("%1 of %2 checks failed").arg(narrator.failures()).arg(narrator.checks()),
                             0);
        return eRefused;
    }
    narrator.say(QStringLiteral("All %1 checks passed in %2 s.").arg(narrator.checks()).arg(clock.elapsed() / 1000));
    narrator.say(QStringLiteral("To go on by yourself:"));
    const QByteArray program = QCoreApplication::arguments().constFirst().toLocal8Bit();
    for (const char* const arguments : {" dump sim", " load sim", " --help"}) {
        narrator.example(program + arguments);
    }
    return eDone;
}

} // namespace vexmor::Apps::Cimctl
