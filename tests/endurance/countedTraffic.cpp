#include "tests/endurance/countedTraffic.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QSocketNotifier>

#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <stdexcept>

namespace vexmor::Endurance
{
namespace
{
constexpr char ROLE[] = "--gateway";
constexpr int SETTLE_MS = 1000; ///< what is under way when the traffic stops has come by then
constexpr int PATIENCE_MS = 10000;
constexpr std::uint16_t STANDARD_IDS = 0x800;

Cim::CCanMessage numberedMessage(std::uint64_t count)
{
    const std::uint32_t numbers[] = {static_cast<std::uint32_t>(count), ~static_cast<std::uint32_t>(count)};
    unsigned char data[sizeof numbers];
    std::memcpy(data, numbers, sizeof numbers);
    return Cim::CCanMessage(Cim::CCanId::fromValue(static_cast<std::uint16_t>(count % STANDARD_IDS)), sizeof data,
                            data);
}
} // namespace

void runFor(int milliseconds)
{
    QEventLoop loop;
    QTimer::singleShot(milliseconds, Qt::PreciseTimer, &loop, &QEventLoop::quit);
    loop.exec();
}

CCountingHost::CCountingHost(EProtocol protocol, std::uint16_t port, const QString& address)
    : m_interface(makeInterface(protocol, port, address))
{
    connect(m_interface.get(), SIGNAL(interfaceError(int)), this, SLOT(onInterfaceError(int)));
    connect(&m_reader, &QTimer::timeout, this, &CCountingHost::read);
}

void CCountingHost::sendNext()
{
    const int code = m_interface->writeMessage(numberedMessage(accepted));
    if (code == 0) {
        ++accepted;
        return;
    }
    ++refused[code];
    if (refusedSends++ == 0) {
        onTold(text("sends give %d", code));
    }
}

CCountingGateway::CCountingGateway(int rate, const STotals& before) : totals(before), m_rate(rate)
{
    gateway.setMaxClients(256); // a host that was cut off may come again before that is known here
    QObject::connect(&gateway, &Sim::CSimGateway::messageReceived,
                     [this](const Cim::CCanMessage& message) { totals.fromHost.take(numberOf(message.data())); });
    QObject::connect(&gateway, &Sim::CSimGateway::requestReceived, [this] {
        if (m_rate > 0) {
            m_pacer.start(std::exchange(m_rate, 0));
        }
    });
}

void CCountingGateway::send()
{
    totals.offline += gateway.tcpHostCount() + gateway.udpHostCount() == 0 ? 1 : 0;
    bus.send(numberedMessage(totals.generated++));
}

bool CGatewayRole::run(int argc, char** argv)
{
    if (argc != 4 || std::strcmp(argv[1], ROLE) != 0) {
        return false;
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    QCoreApplication application(argc, argv);
    CCountingGateway one(std::atoi(argv[2]));
    if (one.gateway.listen(QHostAddress(QHostAddress::LocalHost), 0)) {
        return true;
    }
    QTimer dropTimer;
    QObject::connect(&dropTimer, &QTimer::timeout, [&one] {
        one.gateway.dropLinks();
        ++one.totals.drops;
    });
    if (std::atoi(argv[3]) > 0) {
        dropTimer.start(std::atoi(argv[3]));
    }
    std::printf("%d\n", one.gateway.port());
    std::fflush(stdout);
    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, &application, [&] { // closed by the host
        input.setEnabled(false);
        one.stop();
        dropTimer.stop();
        // Or the host would connect once more while this process ends, and be told of that loss, too.
        Sim::SSimFaults closed;
        closed.refuse = true;
        one.gateway.setFaults(closed);
        QTimer::singleShot(SETTLE_MS, &application, &QCoreApplication::quit);
    });
    QCoreApplication::exec();
    std::fwrite(&one.totals, sizeof one.totals, 1, stdout);
    std::fflush(stdout);
    return true;
}

CGatewayRole::CGatewayRole(int rate, int dropEveryMs)
{
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process.start(QCoreApplication::applicationFilePath(),
                    {QString::fromLatin1(ROLE), QString::number(rate), QString::number(dropEveryMs)});
    if (!m_process.waitForReadyRead(PATIENCE_MS)) {
        throw std::runtime_error("the gateway does not start");
    }
    m_port = static_cast<std::uint16_t>(m_process.readLine().trimmed().toUInt());
}

CGatewayRole::~CGatewayRole()
{
    m_process.kill();
    m_process.waitForFinished();
}

STotals CGatewayRole::finish()
{
    QEventLoop loop;
    QObject::connect(&m_process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), &loop,
                     &QEventLoop::quit);
    QTimer::singleShot(PATIENCE_MS, &loop, &QEventLoop::quit);
    m_process.closeWriteChannel();
    loop.exec();
    STotals totals;
    if (m_process.read(reinterpret_cast<char*>(&totals), sizeof totals) != sizeof totals) {
        throw std::runtime_error("the gateway told no totals");
    }
    return totals;
}

} // namespace vexmor::Endurance
