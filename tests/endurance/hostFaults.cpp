// What a host does to itself: hostFaults [CYCLES, 10000]. A reader that stops, many openings and closings, 200
// interfaces in one process. Prints a row of a Markdown table for each.
#include "bench/gatewayProcess.h"
#include "bench/measuring.h"
#include "tests/endurance/countedTraffic.h"

#include <QCoreApplication>
#include <QThread>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <vector>

using namespace vexmor;
using namespace vexmor::Endurance;

namespace
{
constexpr int QUEUE_SIZE = 10000;
constexpr int ERROR_QUEUE_FULL = 2;
constexpr int PAUSE_MS = 10000;
constexpr double MEMORY_LIMIT_KIB = 512;

/// What came of a fault.
struct SOutcome {
    std::string figures;
    bool asPromised;
};

double seconds(const QElapsedTimer& clock)
{
    return static_cast<double>(clock.elapsed()) / 1000;
}

/// The reader, or the whole thread of the host, stands still for 10 s while 5,000 messages a second come.
SOutcome stopReading(bool wholeThread)
{
    CGatewayThread gateway(5000);
    CCountingHost host(EProtocol::eTcp, gateway.port());
    open(host.canInterface());
    runFor(500);
    host.read();
    const SSequence& check = host.fromGateway;
    const SSequence before = check;
    if (wholeThread) {
        QThread::msleep(PAUSE_MS);
        while (host.errors.empty()) { // what waited in the kernel comes first
            runFor(10);
        }
    } else {
        runFor(PAUSE_MS);
    }
    host.read();
    // The stored ones came in order without a hole, from the first that was not read.
    const bool kept = check.received - before.received == QUEUE_SIZE &&
                      check.nextNumber == before.nextNumber + QUEUE_SIZE && check.missing == 0;
    const std::uint64_t full = host.errors[ERROR_QUEUE_FULL];
    host.readAlways(); // and it goes on
    runFor(1000);
    const bool others = host.errors.size() > 1;
    return {text("error 2: %lu times, others: %s; kept: the oldest %d, in order; refused meanwhile: %lu; then %lu "
                 "more, none missing",
                 full, others ? "SOME" : "0", kept ? QUEUE_SIZE : 0, check.missing,
                 check.received - before.received - QUEUE_SIZE),
            kept && full == 1 && !others && check.gaps == 1 && check.disordered == 0};
}

SOutcome openAndClose(EProtocol protocol, int cycles)
{
    const CGatewayProcess gateway(protocol, 0); // whose descriptors are not counted here
    CCountingHost host(protocol, gateway.port());
    SResources first;
    QElapsedTimer clock;
    clock.start();
    int refused = 0;
    for (int cycle = 0; cycle < cycles; ++cycle) {
        if (cycle == cycles / 10) {
            first = resources();
        }
        refused += host.canInterface().openCommunication() == 0 ? 0 : 1;
        close(host.canInterface());
        QCoreApplication::processEvents();
    }
    const SResources grown = resources() - first;
    return {text("%d times in %.1f s; refused: %d; %s more than after the first tenth", cycles, seconds(clock), refused,
                 textOf(grown).c_str()),
            refused == 0 && grown.residentKib < MEMORY_LIMIT_KIB && grown.descriptors <= 0};
}

SOutcome hostMany(int count)
{
    constexpr int RATE = 100; // each is sent every message
    CGatewayThread gateway(RATE);
    const SResources before = resources();
    QElapsedTimer clock;
    clock.start();
    std::vector<std::unique_ptr<CCountingHost>> hosts;
    for (int i = 0; i < count; ++i) {
        hosts.push_back(std::make_unique<CCountingHost>(EProtocol::eTcp, gateway.port()));
        open(hosts.back()->canInterface());
    }
    const double opened = seconds(clock);
    runFor(5000);
    const STotals totals = gateway.finish();
    const double kib = (resources() - before).residentKib / count;
    std::uint64_t read = 0;
    bool whole = true;
    for (const auto& host : hosts) {
        host->read();
        const SSequence& check = host->fromGateway;
        read += check.received;
        // It came when the first messages had been sent; from there on nothing is missing.
        whole = whole && check.gaps <= 1 && check.disordered == 0 && check.nextNumber == totals.generated;
    }
    return {text("%d, opened in %.1f s; %lu messages, %s missing on any; %.0f KiB each", count, opened, read,
                 whole ? "nothing" : "SOME", kib),
            whole};
}

bool run(int cycles)
{
    printHead({"what the host does", "figures", "as promised"});
    bool ok = true;
    const auto row = [&](const char* what, const SOutcome& outcome) {
        printRow({what, outcome.figures, outcome.asPromised ? "yes" : "NO"});
        ok &= outcome.asPromised;
    };
    row("the host does not read for 10 s", stopReading(false));
    row("the host's thread stands still for 10 s", stopReading(true));
    row("opened and closed over UDP", openAndClose(EProtocol::eUdp, cycles));
    row("interfaces in one process", hostMany(200));
    row("opened and closed over TCP", openAndClose(EProtocol::eTcp, cycles));
    return ok;
}
} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    return exitCodeOf("hostFaults", [&] { return run(argc > 1 ? std::max(std::atoi(argv[1]), 10) : 10000); });
}
