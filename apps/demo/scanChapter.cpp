#include "apps/demo/scanChapter.h"

#include "apps/host/interfaceScan.h"
#include "sim/simBus.h"
#include "sim/simDetection.h"
#include "sim/simGateway.h"

#include <QElapsedTimer>
#include <QNetworkInterface>

#include <algorithm>

namespace vexmor::Apps::Demo
{
namespace
{
constexpr int SCAN_LIMIT_MS = 10000;

void requirePrivateNetwork(const QHostAddress& address)
{
    for (const QHostAddress& present : QNetworkInterface::allAddresses()) {
        if (!present.isLoopback() && !present.isLinkLocal() && present != address) {
            const QString text =
                QStringLiteral("the demonstration scans a private network only, which script/demo makes");
            throw wrongUsage(text + QStringLiteral(": here is ") + present.toString());
        }
    }
}

/// A gateway that can be found.
struct SFindableGateway {
    explicit SFindableGateway(const QHostAddress& address)
    {
        for (const Failure& failure : {gateway.listen(address, 0), detection.listen(Cim::DDT_PORT)}) {
            if (failure) {
                throw *failure;
            }
        }
        Sim::SSimAnnouncement announcement;
        announcement.hostName = "hall-gw";
        detection.addGateway(gateway, announcement);
    }

    Sim::CSimBus bus;
    Sim::CSimGateway gateway{bus};
    Sim::CSimDetection detection;
};

void openFound(CNarrator& narrator, CCanInterface& canInterface)
{
    const QString name = canInterface.commonInfo().uniqueName();
    const QString macByScan = canInterface.commonInfo().interfaceId();
    const int code = canInterface.openCommunication();
    if (code != 0) {
        narrator.check(false, QStringLiteral("%1: %2").arg(name, canInterface.errorCodeToString(code)));
        return;
    }
    const auto& info = canInterface.commonInfo();
    waitUntil(ANSWER_LIMIT_MS, [&info] { return !info.firmwareVersion().isEmpty(); });
    narrator.check(!info.firmwareVersion().isEmpty() && info.interfaceId() == macByScan,
                   QStringLiteral("%1 opens; its gateway says by itself that it is %2, firmware %3")
                       .arg(name, info.interfaceId(), info.firmwareVersion()));
    canInterface.closeCommunication();
}
} // namespace

void demonstrateScan(CNarrator& narrator, const SPlugin& plugin, const QString& address)
{
    const QHostAddress host(address);
    requirePrivateNetwork(host);
    const SFindableGateway simulated(host);

    narrator.chapter(QStringLiteral("Find the gateway"));
    narrator.step(QStringLiteral("Scan the network"), QStringLiteral(R"(
            Nobody needs to know an address: the library asks everybody on the network which gateways
            there are, and collects the answers for 4 s. Here the network is one of this program's own,
            at %1; nothing leaves it.)")
                                                          .arg(address));
    CInterfaceScan scan(plugin);
    QElapsedTimer clock;
    clock.start();
    if (const Failure failure = scan.start({})) {
        narrator.check(false, failure->text);
        return;
    }
    waitUntil(SCAN_LIMIT_MS, [&scan] { return scan.isFinished(); });
    const auto& found = scan.found();
    const bool isComplete = found.size() == 2 && std::all_of(found.begin(), found.end(), [](const auto& one) {
                                return one->commonInfo().uniqueName().startsWith(QStringLiteral("hall-gw-"));
                            });
    narrator.check(isComplete, QStringLiteral("%1 endpoints of a gateway found after %2 s")
                                   .arg(found.size())
                                   .arg(static_cast<double>(clock.elapsed()) / 1000, 0, 'f', 1));
    for (const auto& one : found) {
        const auto& info = one->commonInfo();
        narrator.example(
            QStringLiteral("%1  %2  MAC %3").arg(info.uniqueName(), info.port(), info.interfaceId()).toLocal8Bit());
    }

    narrator.step(QStringLiteral("Open what was found"),
                  QStringLiteral("Each endpoint comes as an interface that is ready to be opened."));
    for (const auto& one : found) {
        openFound(narrator, *one);
    }
}

} // namespace vexmor::Apps::Demo
