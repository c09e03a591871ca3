// The command that finds gateways: scan.
#include "apps/cimctl/command.h"
#include "apps/cli/interruption.h"
#include "apps/host/bitRates.h"
#include "apps/host/interfaceScan.h"
#include "apps/host/interfaceStore.h"
#include "cim/canInterface.h"
#include "cim/resultCodes.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QSet>

#include <algorithm>
#include <array>

namespace vexmor::Apps::Cimctl
{
namespace
{
constexpr int PROGRESS_MS = 1000;
const char* const NOTHING_FOUND = R"(no gateway answered. Check in turn:
  - Is the gateway switched on, and on the same switch? A broadcast does not pass a router, and rarely a WLAN.
  - Does this computer have an address in the gateway's subnet (ip -4 address)?
  - Does a firewall drop UDP datagrams from port 33333?
  - Behind a router: request an answer directly, cimctl scan --address 192.168.1.70)";
/// The columns of the table of endpoints.
enum EColumn { eName, eAddress, ePort, eProtocol, eRole, eMac, ePcAddress, eColumnCount };
const std::pair<const char*, const char*> COLUMNS[] = {
    {"NAME", "name"}, {"ADDRESS", "address"}, {"PORT", "port"},           {"PROTOCOL", "protocol"},
    {"ROLE", "role"}, {"MAC", "mac"},         {"PC ADDRESS", "pcAddress"}};

struct SScanOptions {
    QStringList addresses; ///< Addresses that get a request directly, in addition to the broadcast.
    bool save = false;
    QString bitRate = GATEWAYS_BIT_RATE; ///< Bit rate of newly stored interfaces.
};

/// The settings that a scan updates in the store; the user has chosen all others.
const QLatin1String FOUND_KEYS[] = {StoreKey::PLUGIN_NAME,  StoreKey::INTERFACE_TYPE, StoreKey::PORT_TEXT,
                                    StoreKey::INTERFACE_ID, StoreKey::HOSTNAME,       StoreKey::ADDRESS,
                                    StoreKey::PORT,         StoreKey::PROTOCOL,       StoreKey::SERVICE,
                                    StoreKey::LOCAL_ADDRESS};

/// An endpoint of a gateway with its cells in the table; a cell is empty when the interface does not know its content.
struct SEndpoint {
    Cim::CCanInterface* canInterface = nullptr;
    Settings settings;
    std::array<QString, eColumnCount> cells;

    explicit SEndpoint(Cim::CCanInterface& found) : canInterface(&found), settings(settingsOf(found))
    {
        const Cim::CCommonInfo& info = found.commonInfo();
        cells[eName] = info.uniqueName();
        info.ipAddress(cells[eAddress], cells[ePort]);
        cells[eProtocol] = info.port().section(QLatin1Char(':'), 2);
        cells[eRole] = settings.value(StoreKey::SERVICE);
        cells[eMac] = info.interfaceId();
        cells[ePcAddress] = settings.value(StoreKey::LOCAL_ADDRESS);
    }
    const QString& name() const { return cells[eName]; }
    QString place() const
    {
        return QStringLiteral("%1:%2, MAC %3, PC address %4")
            .arg(cells[eAddress], cells[ePort], cells[eMac], cells[ePcAddress]);
    }
};

void showProgress(COutput& output, int seconds)
{
    const QString text = QStringLiteral("scanning the network, which takes over 4 s: %1 s").arg(seconds);
    if (output.isTerminal() && !output.isJson()) {
        output.printOver(text.toLocal8Bit());
    } else {
        output.report(text,
                      {{QStringLiteral("event"), QStringLiteral("progress")}, {QStringLiteral("seconds"), seconds}});
    }
}

/// Waits for the end of the scan. Returns false when the user has interrupted it.
bool waitForScan(COutput& output, CInterfaceScan& scan)
{
    QEventLoop loop;
    QElapsedTimer clock;
    QTimer progress;
    const CInterruption interruption;
    QObject::connect(&scan, &CInterfaceScan::finished, &loop, &QEventLoop::quit);
    QObject::connect(&interruption, &CInterruption::interrupted, &loop, &QEventLoop::quit);
    QObject::connect(&progress, &QTimer::timeout, &loop,
                     [&] { showProgress(output, static_cast<int>(clock.elapsed() / PROGRESS_MS)); });
    clock.start();
    progress.setTimerType(Qt::PreciseTimer);
    progress.start(PROGRESS_MS);
    showProgress(output, 0);
    loop.exec();
    return !scan.isRunning();
}

void printTable(COutput& output, const std::vector<SEndpoint>& endpoints)
{
    QStringList titles;
    for (const auto& column : COLUMNS) {
        titles.append(QString::fromLatin1(column.first));
    }
    std::vector<QStringList> rows;
    rows.reserve(endpoints.size());
    for (const SEndpoint& endpoint : endpoints) {
        rows.emplace_back(endpoint.cells.begin(), endpoint.cells.end());
    }
    output.printTable(titles, rows);
}

void printJson(COutput& output, const SEndpoint& endpoint)
{
    QJsonObject object{{QStringLiteral("event"), QStringLiteral("found")}};
    for (int column = 0; column < eColumnCount; ++column) {
        object.insert(QLatin1String(COLUMNS[column].second), endpoint.cells[column]);
    }
    object.insert(QStringLiteral("port"), endpoint.cells[ePort].toInt());
    output.print(object);
}

void showFound(COutput& output, const std::vector<SEndpoint>& endpoints)
{
    if (output.isJson()) {
        for (const SEndpoint& endpoint : endpoints) {
            printJson(output, endpoint);
        }
    } else if (endpoints.empty()) {
        output.print(NOTHING_FOUND);
    } else {
        printTable(output, endpoints);
    }
}

/// Returns the settings to store for an endpoint. Fails when its protocol is invalid, because no program could load it.
Result<Settings> settingsToStore(CInterfaceStore& store, const SEndpoint& endpoint, const QString& bitRate)
{
    if (endpoint.settings.value(StoreKey::PROTOCOL) == QLatin1String("Invalid") || endpoint.name().isEmpty()) {
        const int code = Cim::RC_ENUM_TO_STRING;
        return SProblem{QStringLiteral("%1: %2").arg(endpoint.name(), endpoint.canInterface->errorCodeToString(code)),
                        code};
    }
    Settings settings = store.settings(endpoint.name());
    if (settings.isEmpty()) {
        settings = endpoint.settings;
        settings.insert(StoreKey::BAUDRATE, bitRate);
        return settings;
    }
    for (const QLatin1String& key : FOUND_KEYS) {
        settings.insert(key, endpoint.settings.value(key));
    }
    return settings;
}

/// Stores the endpoints; of several with the same name, the first that answered.
EExitCode storeFound(COutput& output, const std::vector<SEndpoint>& endpoints, const QString& bitRate)
{
    CInterfaceStore store;
    const QStringList names = store.names();
    const QSet<QString> known(names.begin(), names.end());
    EExitCode exitCode = eDone;
    QMap<QString, Settings> interfaces;
    std::vector<const SEndpoint*> accepted;
    for (const SEndpoint& endpoint : endpoints) {
        if (!interfaces.contains(endpoint.name())) {
            Result<Settings> settings = settingsToStore(store, endpoint, bitRate);
            if (!settings) {
                output.reportProblem(settings.problem());
                exitCode = eRefused;
                continue;
            }
            interfaces.insert(endpoint.name(), *settings);
        }
        accepted.push_back(&endpoint);
    }
    require(store.put(interfaces));
    for (const SEndpoint* const endpoint : accepted) {
        const bool isFirst = interfaces.remove(endpoint->name()) > 0;
        const QString done = known.contains(endpoint->name()) ? QStringLiteral("updated") : QStringLiteral("stored");
        const QString text = isFirst ? done : QStringLiteral("not stored, the name is taken:");
        output.report(QStringLiteral("%1 %2 (%3)").arg(text, endpoint->name(), endpoint->place()),
                      {{QStringLiteral("event"), isFirst ? done : QStringLiteral("notStored")},
                       {QStringLiteral("name"), endpoint->name()},
                       {QStringLiteral("place"), endpoint->place()}});
    }
    return exitCode;
}

/// Finds gateways, shows all endpoints that answered, and stores them with `--save`. Other settings of an interface
/// that is stored already are kept.
EExitCode scan(SContext& context, const SScanOptions& options)
{
    const std::vector<SPlugin> used{plugins(context).front()};
    CInterfaceScan scan(used);
    require(scan.start(options.addresses));
    context.diagnostics.release();
    if (!waitForScan(context.output, scan)) {
        return eInterrupted;
    }
    std::vector<SEndpoint> endpoints;
    for (const auto& canInterface : scan.found()) {
        endpoints.emplace_back(*canInterface);
    }
    showFound(context.output, endpoints);
    return options.save ? storeFound(context.output, endpoints, options.bitRate) : eDone;
}
} // namespace

void addScan(CLI::App& app, Action& chosen)
{
    const auto [command, options] = addCommand(app, chosen, "scan", "Find the gateways on the network", scan);
    addTexts(command, "-a,--address", options.addresses,
             "Also send the request to this address (gateway behind a router)", "ADDRESS");
    const COption save =
        addFlag(command, "--save", options.save, "Store the found interfaces under the names shown, to use as TARGET");
    addText(command, "--baudrate", options.bitRate, "Bit rate of newly stored interfaces, kbit/s (unchanged)",
            bitRates().join(QLatin1Char('|')).toStdString())
        .bitRate()
        .needs(save);
    addExamples(command, {"cimctl scan --save", "cimctl scan --address 10.1.2.3 --json"});
}

} // namespace vexmor::Apps::Cimctl
