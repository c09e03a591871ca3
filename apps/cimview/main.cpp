// cimview: works with CAN interfaces in a window. This file has its command line and its start.
#include "apps/cimview/interfacePanel.h"
#include "apps/cimview/mainWindow.h"
#include "apps/cimview/workbench.h"
#include "apps/cli/interruption.h"
#include "apps/cli/options.h"
#include "apps/cli/program.h"
#include "apps/cli/targetOptions.h"
#include "apps/host/gatewayAddress.h"
#include "apps/host/translations.h"

#include <QApplication>
#include <QPluginLoader>

#include <vector>

namespace vexmor::Apps::Cimview
{
namespace
{
/// The options of the command line.
struct SOptions {
    SPluginPlace place;
    bool sim = false;
    QString simLog; ///< Log that the simulated gateway plays; empty: generated traffic.
    QStringList targets;
    QString bitRate = GATEWAYS_BIT_RATE; ///< Bit rate for targets that are addresses.
    bool scan = false;
    bool dark = false;
};

void addOptions(CLI::App& app, SOptions& options)
{
    const auto takeSim = [&options](const QString& file) {
        options.sim = true;
        options.simLog = file;
    };
    addText(app, "--sim", takeSim,
            "Start with a simulated gateway in this program; FILE: a candump log to play on its bus", "[FILE]")
        .optionalValue();
    addTexts(app, "TARGETS", options.targets,
             "Interfaces to open at the start: stored names, or addresses ADDRESS[:PORT][:TCP|:UDP]")
        .several();
    addText(app, "--baudrate", options.bitRate,
            "Bit rate of the CAN bus behind an address: 50, 100, 125, 250, 500 or 1000 kbit/s (unchanged)", "KBIT")
        .bitRate();
    addFlag(app, "--scan", options.scan, "Scan the network for gateways at the start");
    addFlag(app, "--dark", options.dark, "Use a dark palette, also at later starts");
    addPluginPlace(app, options.place);
    setFooter(app, "Exit codes: 0 success; 1 no plugin can be used; 2 wrong usage.");
}

constexpr char PREFIX[] = "error";

/// Opens a stored interface by its name, or adds and opens an interface with an address and this bit rate.
Failure openTarget(CInterfaceList& interfaces, const QString& target, const QString& bitRate)
{
    if (interfaces.rowOf(target) < 0) {
        if (!isAddress(target)) {
            return wrongUsage(
                CMainWindow::tr("'%1' is neither a stored interface nor an address like 192.168.1.70:30000:TCP")
                    .arg(target));
        }
        Result<Settings> settings = readAddress(target, {{StoreKey::BAUDRATE, bitRate}});
        Failure failure = settings ? interfaces.add(target, *settings, false) : settings.problem();
        if (failure) {
            return failure;
        }
    }
    interfaces.at(interfaces.rowOf(target)).open();
    return {};
}

/// Fills the list of interfaces as the command line requests it.
Failure openAll(CWorkbench& workbench, const SOptions& options)
{
    CInterfaceList& interfaces = workbench.interfaces();
    interfaces.loadStored();
    Failure failure = options.sim ? workbench.simulate(options.simLog) : Failure();
    for (const QString& target : options.targets) {
        failure = failure ? failure : openTarget(interfaces, target, options.bitRate);
    }
    return failure;
}

/// Shows the window until it is closed.
int runWindow(const SOptions& options, const std::vector<SPlugin>& plugins)
{
    CWorkbench workbench(plugins);
    if (const Failure failure = openAll(workbench, options)) {
        return fail(PREFIX, *failure);
    }
    CMainWindow window(workbench);
    if (options.dark) {
        window.darkAction().setChecked(true);
    }
    window.show();
    const CInterruption interruption;
    QObject::connect(&interruption, &CInterruption::interrupted, &window, [&window] {
        window.close();
        QApplication::quit(); // ends the program also while a dialog is open
    });
    if (options.scan) {
        window.interfacePanel().startScan();
    }
    return QApplication::exec();
}

int run(char** argv, const SOptions& options)
{
    int nameAlone = 1; // keeps our options from Qt, which has options with the same names
    QApplication application(nameAlone, argv);
    QApplication::setWindowIcon(QIcon(QStringLiteral(":/cimview.png")));
    installTranslations(application,
                        {QStringLiteral("cimview"), QStringLiteral("interfaceT93"), QStringLiteral("qtbase")});
    const SPluginSearch search = searchPlugins(options.place);
    if (const Failure failure = search.failure()) {
        return fail(PREFIX, *failure);
    }
    const int exitCode = runWindow(options, search.plugins);
    CInterfaceInUse::endAll();
    // Ends a scan that is still running, because it needs the application object.
    for (const SPlugin& plugin : search.plugins) {
        plugin.loader->unload();
    }
    return exitCode;
}

int cimview(int argc, char** argv)
{
    CMainWindow::prepareApplication();
    CCommandLine app("cimview", "A window for CAN interfaces: shows the traffic, bus load and errors of T93 gateways.");
    SOptions options;
    addOptions(app, options);
    const auto exitCode = app.parse(argc, argv, [](const SProblem& problem) { return fail(PREFIX, problem); });
    return exitCode ? *exitCode : run(argv, options);
}
} // namespace
} // namespace vexmor::Apps::Cimview

int main(int argc, char** argv)
{
    return vexmor::Apps::runProgram("error", [=] { return vexmor::Apps::Cimview::cimview(argc, argv); });
}
