// cimview: works with CAN interfaces in a window. Here stands what can be typed, and what is made of it.
#include "apps/cimview/interfacePanel.h"
#include "apps/cimview/loadReport.h"
#include "apps/cimview/mainWindow.h"
#include "apps/cimview/palettes.h"
#include "apps/cimview/screenshotTour.h"
#include "apps/cimview/workbench.h"
#include "apps/common/embeddedSim.h"
#include "apps/common/failure.h"
#include "apps/common/gatewayAddress.h"
#include "apps/common/pluginFolder.h"
#include "apps/common/translations.h"
#include "sim/commandLine.h"
#include "sim/interruption.h"
#include "sim/validators.h"

#include <CLI/CLI.hpp>
#include <QApplication>
#include <QPluginLoader>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace vexmor::Apps::Cimview
{
namespace
{
/// What was typed.
struct SOptions {
    SPluginPlace place;
    bool sim = false;
    QString simLog; ///< empty: generated traffic
    QStringList targets;
    bool scan = false;
    bool dark = false;
    double reportSeconds = 0;
    QString screenshotFolder;
};

QString textOf(const std::string& text)
{
    return QString::fromLocal8Bit(text.c_str());
}

void addText(CLI::App& app, const std::string& names, QString& value, const std::string& help, const std::string& type)
{
    app.add_option_function<std::string>(
           names, [&value](const std::string& text) { value = textOf(text); }, help)
        ->type_name(type);
}

void addOptions(CLI::App& app, SOptions& options)
{
    app.set_version_flag("--version", "cimview " CIM_VERSION);
    const auto takeSim = [&options](const std::vector<std::string>& files) {
        options.sim = true;
        options.simLog = files.empty() ? QString() : textOf(files.front());
    };
    app.add_option_function<std::vector<std::string>>(
           "--sim", takeSim,
           "Start with a simulated gateway in this program; FILE: a log of candump is played on its bus")
        ->expected(0, 1)
        ->type_name("[FILE]");
    const auto takeTargets = [&options](const std::vector<std::string>& targets) {
        for (const std::string& target : targets) {
            options.targets.append(textOf(target));
        }
    };
    app.add_option_function<std::vector<std::string>>(
           "TARGETS", takeTargets, "Interfaces to open at once: stored names, or addresses ADDRESS[:PORT][:TCP|:UDP]")
        ->type_name("");
    app.add_flag("--scan", options.scan, "Scan the network for gateways at once");
    app.add_flag("--dark", options.dark, "Use a dark palette");
    addText(app, "--plugin", options.place.file, "The plugin library to use", "FILE");
    addText(app, "--plugin-dir", options.place.folder, "Folder of the plugins (or environment: CIM_PLUGIN_PATH)",
            "DIR");
    // For measuring and for the pictures of the user guide; not for everybody.
    app.add_option("--report", options.reportSeconds,
                   "End so many seconds after the first message, and tell how the window kept up")
        ->check(Sim::numberFrom(0.1, 1e6))
        ->group("");
    app.add_option_function<std::string>(
           "--screenshots", [&options](const std::string& folder) { options.screenshotFolder = textOf(folder); },
           "Take the pictures of the user guide and end")
        ->needs("--sim")
        ->group("");
    app.footer("Exit codes: 0 done, 1 no plugin can be used, 2 wrong usage.");
}

/// Puts the simulated gateway into the list, over both of its transports, and opens the first.
void openSim(CInterfaceList& interfaces, CEmbeddedSim& sim)
{
    for (const QString& protocol : {QStringLiteral("TCP"), QStringLiteral("UDP")}) {
        const QString name = CMainWindow::tr("Simulation %1").arg(protocol);
        const Settings settings{{StoreKey::ADDRESS, sim.gateway().address().toString()},
                                {StoreKey::PORT, QString::number(sim.gateway().port())},
                                {StoreKey::PROTOCOL, protocol},
                                {StoreKey::BAUDRATE, QString::number(sim.bus().baudrate())}};
        const QString problem = interfaces.add(name, settings, false);
        if (!problem.isEmpty()) {
            failRefused(problem);
        }
        if (protocol == QLatin1String("TCP")) {
            interfaces.open(interfaces.rowOf(name));
        }
    }
    sim.startTraffic();
}

void openTarget(CInterfaceList& interfaces, const QString& target)
{
    if (interfaces.rowOf(target) < 0) {
        Settings settings;
        if (!parseAddress(target, settings)) {
            failUsage(QStringLiteral("target '%1': no stored interface, and no address like 192.168.1.70:30000:TCP")
                          .arg(target));
        }
        const QString problem = interfaces.add(target, settings, false);
        if (!problem.isEmpty()) {
            failRefused(problem);
        }
    }
    interfaces.open(interfaces.rowOf(target));
}

/// Shows the window until it is closed.
int runWindow(const SOptions& options, const std::vector<SPlugin>& plugins)
{
    const auto sim = options.sim ? std::make_unique<CEmbeddedSim>(options.simLog, true) : nullptr;
    CWorkbench workbench(plugins);
    workbench.interfaces().loadStored();
    if (sim) {
        openSim(workbench.interfaces(), *sim);
    }
    for (const QString& target : options.targets) {
        openTarget(workbench.interfaces(), target);
    }
    CMainWindow window(workbench);
    window.show();
    const Sim::CInterruption interruption;
    QObject::connect(&interruption, &Sim::CInterruption::interrupted, &window, [&window] {
        window.close();
        QApplication::quit(); // also when a dialog is open
    });
    if (options.scan) {
        window.interfacePanel().startScan();
    }
    std::unique_ptr<CLoadReport> report;
    if (options.reportSeconds > 0) {
        report = std::make_unique<CLoadReport>(workbench, window, options.reportSeconds);
    }
    std::unique_ptr<CScreenshotTour> tour;
    if (!options.screenshotFolder.isEmpty()) {
        tour = std::make_unique<CScreenshotTour>(workbench, window, *sim, options.screenshotFolder);
    }
    return QApplication::exec();
}

int run(char** argv, const SOptions& options)
{
    int nameAlone = 1; // Qt has options of its own with the names of ours
    QApplication application(nameAlone, argv);
    installTranslations(application,
                        {QStringLiteral("cimview"), QStringLiteral("interfaceT93"), QStringLiteral("qtbase")});
    if (options.dark) {
        QApplication::setStyle(QStringLiteral("Fusion"));
        QApplication::setPalette(darkPalette());
    }
    std::vector<SPlugin> plugins;
    int exitCode = eDone;
    try {
        plugins = loadPlugins(options.place);
        exitCode = runWindow(options, plugins);
    } catch (const SFailure& failure) {
        std::fprintf(stderr, "error: %s\n", qPrintable(failure.text));
        exitCode = failure.exitCode;
    }
    // Ends a scan that still runs, while there is an application for it to run in.
    for (const SPlugin& plugin : plugins) {
        plugin.loader->unload();
    }
    return exitCode;
}

int runProgram(int argc, char** argv)
{
    QCoreApplication::setOrganizationName(QStringLiteral("Vexmor"));
    QCoreApplication::setApplicationName(QStringLiteral("Cim"));
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);

    CLI::App app("Works with CAN interfaces in a window: traffic, bus load and errors of T93 gateways.", "cimview");
    SOptions options;
    addOptions(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& wanted) { // --help, --version
        app.exit(wanted);
        if (Sim::flushOutput()) {
            return eDone;
        }
        std::fprintf(stderr, "error: the output cannot be written\n");
        return eRefused;
    } catch (const CLI::Error& error) {
        std::fprintf(stderr, "error: %s (cimview --help tells what can be typed)\n", error.what());
        return eWrongUsage;
    }
    return run(argv, options);
}
} // namespace
} // namespace vexmor::Apps::Cimview

int main(int argc, char** argv)
{
    vexmor::Sim::keepStandardDescriptors();
    try {
        return vexmor::Apps::Cimview::runProgram(argc, argv);
    } catch (const std::exception& error) { // no memory, say
        std::fprintf(stderr, "error: %s\n", error.what());
        return vexmor::Apps::eRefused;
    }
}
