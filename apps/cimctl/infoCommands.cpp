// The commands about plugins and bus load: info, load.
#include "apps/cimctl/command.h"
#include "apps/cimctl/gatewayRun.h"
#include "apps/host/clock.h"
#include "cim/canInterface.h"
#include "cim/canInterfacePlugin.h"

#include <QJsonArray>

#include <algorithm>

namespace vexmor::Apps::Cimctl
{
namespace
{
constexpr int LOAD_INTERVAL_MS = 1000;
constexpr int HALF_INTERVAL_MS = LOAD_INTERVAL_MS / 2;
constexpr int BAR_WIDTH = 50; ///< Number of characters of the bar for 100 percent.
constexpr int BUSY_PERCENT = 50;
constexpr int CROWDED_PERCENT = 80;

struct SLoadOptions {
    STargetOptions target;
    double seconds = 0; ///< Duration; 0: no limit.
};

QString qtVersionOf(const QJsonObject& metaData)
{
    const int version = metaData.value(QLatin1String("version")).toInt();
    return QStringLiteral("Qt %1.%2, %3")
        .arg(version >> 16)
        .arg((version >> 8) & 0xFF)
        .arg(metaData.value(QLatin1String("debug")).toBool() ? QLatin1String("debug") : QLatin1String("release"));
}

void printPlugin(COutput& output, const SPlugin& plugin)
{
    const std::unique_ptr<Cim::CCanInterface> canInterface(plugin.object->createInterface());
    const QString identifier = plugin.metaData.value(QLatin1String("IID")).toString();
    QStringList contracts{QLatin1String(qobject_interface_iid<Cim::CCanInterfacePlugin*>())};
    if (qobject_cast<Cim::CCanInterface*>(static_cast<QObject*>(canInterface.get())) != nullptr) {
        contracts.append(QLatin1String(qobject_interface_iid<Cim::CCanInterface*>()));
    }
    if (output.isJson()) {
        output.print(QJsonObject{{QStringLiteral("event"), QStringLiteral("plugin")},
                                 {QStringLiteral("name"), plugin.object->pluginName()},
                                 {QStringLiteral("id"), plugin.object->pluginId()},
                                 {QStringLiteral("interfaceType"), plugin.object->interfaceType()},
                                 {QStringLiteral("file"), plugin.file},
                                 {QStringLiteral("identifier"), identifier},
                                 {QStringLiteral("contracts"), QJsonArray::fromStringList(contracts)},
                                 {QStringLiteral("library"), plugin.libraryText},
                                 {QStringLiteral("builtFor"), qtVersionOf(plugin.metaData)}});
        return;
    }
    output.print(output.paint(EColor::eBold, plugin.object->pluginName().toLocal8Bit()));
    const std::pair<const char*, QString> rows[] = {{"file", plugin.file},
                                                    {"number", QString::number(plugin.object->pluginId())},
                                                    {"interface type", plugin.object->interfaceType()},
                                                    {"identifier", identifier},
                                                    {"offers", contracts.join(QStringLiteral(", "))},
                                                    {"library", plugin.libraryText},
                                                    {"built for", qtVersionOf(plugin.metaData)}};
    for (const auto& [name, value] : rows) {
        output.print("  " + QByteArray(name).leftJustified(16) + value.toLocal8Bit());
    }
}

void showLoad(COutput& output, const SInterfaceStatus& status)
{
    const std::optional<int> load = status.busload;
    const int percent = load.value_or(0);
    if (output.isJson()) {
        output.print(QJsonObject{{QStringLiteral("event"), QStringLiteral("load")},
                                 {QStringLiteral("time"), secondsNow()},
                                 {QStringLiteral("percent"), load ? QJsonValue(percent) : QJsonValue()},
                                 {QStringLiteral("connection"), QLatin1String(connectionName(status.connection))}});
        return;
    }
    const QByteArray text =
        "bus load " + (load ? QByteArray::number(percent) : QByteArray("?")).rightJustified(3) + " %";
    const QByteArray connection = status.isConnected() ? QByteArray() : "  " + connectionText(status).toLocal8Bit();
    if (!output.isTerminal()) {
        output.print(text + connection);
        return;
    }
    const int filled = std::clamp(percent * BAR_WIDTH / 100, 0, BAR_WIDTH);
    const EColor color = percent < BUSY_PERCENT      ? EColor::eGreen
                         : percent < CROWDED_PERCENT ? EColor::eYellow
                                                     : EColor::eRed;
    output.printOver(text + "  [" + output.paint(color, QByteArray(filled, '#')) + QByteArray(BAR_WIDTH - filled, '.') +
                     "]" + connection);
}

EExitCode info(SContext& context)
{
    const SPluginSearch search = searchPlugins(context.place);
    for (const SPlugin& plugin : search.plugins) {
        printPlugin(context.output, plugin);
    }
    for (const QString& problem : search.problems) {
        context.output.reportProblem({problem});
    }
    return search.problems.isEmpty() ? eDone : eRefused;
}

EExitCode load(SContext& context, const SLoadOptions& options)
{
    CGatewayRun run(context, options.target);
    if (run.gateway().hosted.canInterface().baudrate() == 0) {
        failUsage(
            QStringLiteral("load needs the bit rate of the bus (--baudrate): a gateway counts messages, not percent"));
    }
    run.open(0);
    QTimer timer;
    timer.setTimerType(Qt::PreciseTimer);
    QObject::connect(&timer, &QTimer::timeout, &run, [&] {
        showLoad(run.output(), run.gateway().hosted.status());
        const bool isLast = run.openMilliseconds() + HALF_INTERVAL_MS >= options.seconds * 1000;
        if (options.seconds > 0 && isLast) {
            run.end(eDone);
        }
    });
    timer.start(LOAD_INTERVAL_MS);
    return run.waitForEnd();
}
} // namespace

void addInfo(CLI::App& app, Action& chosen)
{
    addExamples(addCommand(app, chosen, "info", "List the plugins found", info),
                {"cimctl info", "cimctl info --json | jq .file"});
}

void addLoad(CLI::App& app, Action& chosen)
{
    const auto [command, options] = addCommand(app, chosen, "load", "Show the bus load once per second", load);
    options.target.addTo(command);
    addNumber(command, "-s,--seconds", options.seconds, 1, 1e6, "End this many seconds after the interface is open",
              "S");
    addExamples(command, {"cimctl load hall", "cimctl load 192.168.1.70 --baudrate 500 --json | jq .percent"});
}

} // namespace vexmor::Apps::Cimctl
