// A gateway and a host that talk for a long time, while the link is lost again and again: soak [MINUTES, 60] [RATE,
// 5000] [LOSS EVERY SECONDS, 10]. Prints a row of a Markdown table for every tenth of the time, and what became of
// every message.
#include "bench/measuring.h"
#include "tests/endurance/countedTraffic.h"

#include <QCoreApplication>

#include <algorithm>
#include <cstdio>
#include <vector>

using namespace vexmor;
using namespace vexmor::Endurance;

namespace
{
constexpr int ROWS = 10;
constexpr double MEMORY_LIMIT_KIB = 1024; ///< more growth than this after the first row is a leak

std::uint64_t s_shown = 0; ///< Received messages that the spy handler has seen.

int spy(const Cim::CCanInterface&, bool isSent, const Cim::CCanMessage&)
{
    s_shown += isSent ? 0 : 1;
    return 0;
}

/// Prints whether a line of the reckoning holds.
bool holds(const char* what, bool isTrue)
{
    std::printf("- %s: %s\n", what, isTrue ? "yes" : "NO");
    return isTrue;
}

void printTraffic(const CCountingHost& host, const STotals& gateway)
{
    printHead({"", "accepted", "refused or without a link", "arrived", "lost with a link", "per loss, on average",
               "twice or out of order"});
    const auto row = [&](const char* way, std::uint64_t accepted, std::uint64_t noLink, const SSequence& seen,
                         std::uint64_t lost) {
        const double drops = static_cast<double>(std::max<std::uint64_t>(gateway.drops, 1));
        printRow({way, std::to_string(accepted), std::to_string(noLink), std::to_string(seen.received),
                  std::to_string(lost), figure(static_cast<double>(lost) / drops), std::to_string(seen.disordered)});
    };
    row("host to gateway", host.accepted, host.refusedSends, gateway.fromHost, gateway.fromHost.missing);
    row("gateway to host", gateway.generated - gateway.offline, gateway.offline, host.fromGateway,
        host.fromGateway.missing - gateway.offline);
    std::printf("\n%lu links lost, and one more at the end\n\n", gateway.drops);
}

bool reckon(const CCountingHost& host, const STotals& gateway)
{
    const SSequence& up = gateway.fromHost;
    const SSequence& down = host.fromGateway;
    bool ok = holds("every message up to the last is accounted for, from the host",
                    up.nextNumber == host.accepted && up.received + up.missing == host.accepted);
    ok &= holds("and from the gateway", down.nextNumber == gateway.generated && down.missing >= gateway.offline);
    ok &= holds("messages are missing only where a link was lost",
                up.gaps <= gateway.drops && down.gaps <= gateway.drops);
    ok &= holds("none came twice or out of order", up.disordered + down.disordered == 0);
    ok &= holds("error 0 came once per loss, at last for the gateway's end, and no other error",
                host.errors == std::map<int, std::uint64_t>{{0, gateway.drops + 1}});
    return ok & holds("the spy handler saw what was read", s_shown == down.received);
}

/// A row for every tenth of the time; true when none shows more than the first.
bool watchResources(double minutes)
{
    printHead({"minutes", "resident memory, KiB", "in use on the heap, KiB", "file descriptors"});
    SResources first;
    bool isFlat = true;
    for (int row = 1; row <= ROWS; ++row) {
        runFor(static_cast<int>(minutes * 60000 / ROWS));
        const SResources now = resources();
        first = row == 1 ? now : first;
        isFlat &= now.residentKib - first.residentKib <= MEMORY_LIMIT_KIB;
        isFlat &= row < ROWS || now.descriptors <= first.descriptors; // one more while a link comes back
        printRow({text("%.1f", minutes * row / ROWS), text("%.0f", now.residentKib), text("%.0f", now.heapKib),
                  std::to_string(now.descriptors)});
    }
    return isFlat;
}

bool soak(double minutes, int rate, int lossEverySeconds)
{
    CGatewayThread gateway(rate);
    gateway.ask([=](SCountingGateway& one) { one.dropTimer.start(lossEverySeconds * 1000); });
    CCountingHost host(EProtocol::eTcp, gateway.port());
    host.canInterface().setSpyHandler(spy);
    open(host.canInterface());
    host.readAlways();
    host.send(rate);
    std::printf("%d messages/s each way for %g minutes, a link loss every %d s\n", rate, minutes, lossEverySeconds);
    const bool isFlat = watchResources(minutes);
    host.send(0);
    const STotals totals = gateway.finish();
    runFor(500); // until its end has come through, too
    printTraffic(host, totals);
    const bool ok = reckon(host, totals);
    return ok & holds("memory and file descriptors are flat after the first tenth", isFlat);
}
} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    return exitCodeOf("soak", [&] {
        return soak(argc > 1 ? std::atof(argv[1]) : 60, argc > 2 ? std::atoi(argv[2]) : 5000,
                    argc > 3 ? std::atoi(argv[3]) : 10);
    });
}
