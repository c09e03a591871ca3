// What a host does to itself: hostFaults [CYCLES, 10000]. A reader that stops, many openings and closings, 200
// interfaces in one process. Prints a row of a Markdown table for each.
#include "bench/countedTraffic.h"
#include "bench/pluginLink.h"
#include "bench/resources.h"

#include <QCoreApplication>
#include <QThread>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <vector>

using namespace vexmor;
using namespace vexmor::Bench;

namespace
{
constexpr int QUEUE_SIZE = 10000;
constexpr int PAUSE_MS = 10000;
constexpr double MEMORY_LIMIT_KIB = 512;

int s_failed = 0;

void readAll(CPluginLink& link, SSequenceCheck& check)
{
    for (Cim::CCanMessage next; link.canInterface().readMessage(next) == 0;) {
        check.take(numberOf(next));
    }
}

void row(const char* what, const QString& figures, bool asPromised)
{
    std::printf("| %s | %s | %s |\n", what, qPrintable(figures), asPromised ? "yes" : "NO");
    std::fflush(stdout);
    s_failed += asPromised ? 0 : 1;
}
} // namespace

/// Counts what an interface reports.
class ErrorCounter : public QObject
{
    Q_OBJECT

public:
    explicit ErrorCounter(Cim::CCanInterface& canInterface)
    {
        connect(&canInterface, SIGNAL(interfaceError(int)), this, SLOT(onInterfaceError(int)));
    }
    int full = 0;
    int others = 0;

private Q_SLOTS:
    void onInterfaceError(int error) { ++(error == 2 ? full : others); }
};

namespace
{
/// The reader, or the whole thread of the host, stands still for 10 s while 5,000 messages a second come.
void stoppedReader(bool wholeThread)
{
    CGatewayRole gateway(5000, 0);
    CPluginLink link(EProtocol::eTcp, gateway.port());
    ErrorCounter errors(link.canInterface());
    link.open();
    SSequenceCheck check;
    runFor(500);
    readAll(link, check);
    const std::uint32_t before = check.nextNumber;
    if (wholeThread) {
        QThread::msleep(PAUSE_MS);
        while (errors.full == 0 && errors.others == 0) { // what waited in the kernel comes first
            runFor(10);
        }
    } else {
        runFor(PAUSE_MS);
    }
    const std::uint64_t received = check.received;
    readAll(link, check);
    // The stored ones came in order without a hole, from the first that was not read.
    const bool kept =
        check.received - received == QUEUE_SIZE && check.nextNumber == before + QUEUE_SIZE && check.missing == 0;
    const int fullOnce = errors.full;
    for (int i = 0; i < 1000; ++i) { // and it goes on
        runFor(1);
        readAll(link, check);
    }
    row(wholeThread ? "the host's thread stands still for 10 s" : "nobody reads for 10 s",
        QStringLiteral("error 2: %1 times, others: %2; kept: the oldest %3, in order; refused meanwhile: %4; then %5 "
                       "more, none missing")
            .arg(fullOnce)
            .arg(errors.others)
            .arg(kept ? QUEUE_SIZE : 0)
            .arg(check.missing)
            .arg(check.received - received - QUEUE_SIZE),
        kept && fullOnce == 1 && errors.others == 0 && check.gaps == 1 && check.disordered == 0);
}

void openAndClose(EProtocol protocol, int cycles)
{
    CGatewayRole gateway(0, 0);
    CPluginLink link(protocol, gateway.port());
    const int warmUp = cycles / 10;
    SResources first;
    QElapsedTimer clock;
    clock.start();
    int refused = 0;
    for (int cycle = 0; cycle < cycles; ++cycle) {
        if (cycle == warmUp) {
            first = resources();
        }
        refused += link.canInterface().openCommunication() == 0 ? 0 : 1;
        link.close();
        QCoreApplication::processEvents();
    }
    const SResources last = resources();
    row(protocol == EProtocol::eTcp ? "opened and closed over TCP" : "opened and closed over UDP",
        QStringLiteral(
            "%1 times in %2 s; refused: %3; memory %4 KiB, heap %5 KiB, descriptors %6 more than after the first tenth")
            .arg(cycles)
            .arg(static_cast<double>(clock.elapsed()) / 1000, 0, 'f', 1)
            .arg(refused)
            .arg(last.residentKib - first.residentKib, 0, 'f', 0)
            .arg(last.heapKib - first.heapKib, 0, 'f', 0)
            .arg(last.descriptors - first.descriptors),
        refused == 0 && last.residentKib - first.residentKib < MEMORY_LIMIT_KIB &&
            last.descriptors <= first.descriptors);
}

void manyInterfaces(int count)
{
    constexpr int RATE = 100; // each is sent every message
    CGatewayRole gateway(RATE, 0);
    const SResources before = resources();
    QElapsedTimer clock;
    clock.start();
    std::vector<std::unique_ptr<CPluginLink>> links;
    for (int i = 0; i < count; ++i) {
        links.push_back(std::make_unique<CPluginLink>(EProtocol::eTcp, gateway.port()));
        links.back()->open();
    }
    const double opened = static_cast<double>(clock.elapsed()) / 1000;
    std::vector<SSequenceCheck> checks(links.size());
    runFor(5000);
    const CCountingGateway::STotals totals = gateway.finish();
    const SResources after = resources();
    std::uint64_t read = 0;
    bool whole = true;
    for (std::size_t i = 0; i < links.size(); ++i) {
        readAll(*links[i], checks[i]);
        read += checks[i].received;
        // It came when the first messages had been sent; from there on nothing is missing.
        whole = whole && checks[i].gaps <= 1 && checks[i].disordered == 0 && checks[i].nextNumber == totals.generated;
    }
    row("interfaces in one process",
        QStringLiteral("%1, opened in %2 s; %3 messages, nothing missing on any; %4 KiB each")
            .arg(count)
            .arg(opened, 0, 'f', 1)
            .arg(read)
            .arg((after.residentKib - before.residentKib) / count, 0, 'f', 0),
        whole);
    links.clear();
}
} // namespace

int main(int argc, char** argv)
{
    if (CGatewayRole::run(argc, argv)) {
        return 0;
    }
    QCoreApplication application(argc, argv);
    const int cycles = argc > 1 ? std::max(std::atoi(argv[1]), 10) : 10000;
    try {
        std::printf("| what the host does | figures | as promised |\n|---|---|---|\n");
        stoppedReader(false);
        stoppedReader(true);
        openAndClose(EProtocol::eUdp, cycles);
        manyInterfaces(200);
        openAndClose(EProtocol::eTcp, cycles);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "hostFaults: %s\n", error.what());
        return 1;
    }
    return s_failed == 0 ? 0 : 1;
}

#include "hostFaults.moc"
