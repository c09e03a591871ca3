#include "tests/endurance/countedTraffic.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QSocketNotifier>

#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <numeric>
#include <stdexcept>

namespace vexmor::Endurance
{
namespace
{
constexpr char ROLE[] = "--gateway";
constexpr int SETTLE_MS = 1000; ///< what is under way when the traffic stops has come by then
constexpr int PATIENCE_MS = 10000;
constexpr std::uint16_t STANDARD_IDS = 0x800;
/// When the process stood still, what is due then does not go out at once: buffers would run over.
constexpr std::int64_t MAX_A_TURN = 100;

Cim::CCanMessage numberedMessage(std::uint64_t count)
{
    const auto number = static_cast<std::uint32_t>(count);
    const std::uint32_t inverse = ~number;
    unsigned char data[8] = {};
    std::memcpy(data, &number, sizeof number);
    std::memcpy(data + sizeof number, &inverse, sizeof inverse);
    return Cim::CCanMessage(Cim::CCanId::fromValue(static_cast<std::uint16_t>(number % STANDARD_IDS)), sizeof data,
                            data);
}
} // namespace

void runFor(int milliseconds)
{
    QEventLoop loop;
    QTimer::singleShot(milliseconds, Qt::PreciseTimer, &loop, &QEventLoop::quit);
    loop.exec();
}

CPacer::CPacer()
{
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &CPacer::onTimeout);
}

void CPacer::start(int rate)
{
    m_rate = rate;
    m_done = 0;
    m_clock.start();
    if (rate > 0) {
        m_timer.start(1);
    } else {
        m_timer.stop();
    }
}

void CPacer::onTimeout()
{
    constexpr std::int64_t NANOSECONDS = 1000000000;
    const std::int64_t wanted = m_clock.nsecsElapsed() * m_rate / NANOSECONDS;
    const std::int64_t thisTurn = std::min(wanted, m_done + MAX_A_TURN);
    for (; m_done < thisTurn; ++m_done) {
        Q_EMIT due();
    }
}

CCountingHost::CCountingHost(EProtocol protocol, std::uint16_t port, const QString& address)
    : m_interface(makeInterface(protocol, port, address))
{
    connect(m_interface.get(), SIGNAL(interfaceError(int)), this, SLOT(onInterfaceError(int)));
    connect(&m_pacer, &CPacer::due, this, &CCountingHost::sendNext);
    connect(&m_reader, &QTimer::timeout, this, &CCountingHost::read);
}

void CCountingHost::read()
{
    for (Cim::CCanMessage next; m_interface->readMessage(next) == 0;) {
        fromGateway.take(numberOf(next.data()));
    }
}

std::uint64_t CCountingHost::refusedSends() const
{
    return std::accumulate(refused.begin(), refused.end(), std::uint64_t{0},
                           [](std::uint64_t sum, const auto& entry) { return sum + entry.second; });
}

void CCountingHost::onInterfaceError(int number)
{
    ++errors[number];
    Q_EMIT error(number);
}

void CCountingHost::sendNext()
{
    const int code = m_interface->writeMessage(numberedMessage(accepted));
    if (code == 0) {
        ++accepted;
        return;
    }
    ++refused[code];
    Q_EMIT sendRefused(code);
}

CCountingGateway::CCountingGateway()
{
    m_gateway.setMaxClients(256); // a host that was cut off may come again before that is known here
    connect(&m_pacer, &CPacer::due, this, &CCountingGateway::send);
    connect(&m_gateway, &Sim::CSimGateway::messageReceived, this,
            [this](const Cim::CCanMessage& message) { m_totals.fromHost.take(numberOf(message.data())); });
    connect(&m_gateway, &Sim::CSimGateway::requestReceived, this, [this] {
        if (m_rate > 0) {
            m_pacer.start(std::exchange(m_rate, 0));
        }
    });
    connect(&m_dropTimer, &QTimer::timeout, this, [this] {
        m_gateway.dropLinks();
        ++m_totals.drops;
    });
}

void CCountingGateway::dropEvery(int milliseconds)
{
    if (milliseconds > 0) {
        m_dropTimer.start(milliseconds);
    } else {
        m_dropTimer.stop();
    }
}

void CCountingGateway::send()
{
    m_totals.offline += m_gateway.tcpHostCount() + m_gateway.udpHostCount() == 0 ? 1 : 0;
    m_bus.send(numberedMessage(m_totals.generated++));
}

bool CGatewayRole::run(int argc, char** argv)
{
    if (argc != 4 || std::strcmp(argv[1], ROLE) != 0) {
        return false;
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    QCoreApplication application(argc, argv);
    CCountingGateway gateway;
    QString error;
    if (!gateway.gateway().listen(QHostAddress(QHostAddress::LocalHost), 0, error)) {
        return true;
    }
    gateway.setRate(std::atoi(argv[2]));
    gateway.dropEvery(std::atoi(argv[3]));
    std::printf("%u\n", static_cast<unsigned int>(gateway.gateway().port()));
    std::fflush(stdout);
    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, &application, [&] { // closed by the host
        input.setEnabled(false);
        gateway.stop();
        gateway.dropEvery(0);
        // Or the host would connect once more while this process ends, and be told of that loss, too.
        Sim::SSimFaults closed;
        closed.refuse = true;
        gateway.gateway().setFaults(closed);
        QTimer::singleShot(SETTLE_MS, &application, &QCoreApplication::quit);
    });
    QCoreApplication::exec();
    const CCountingGateway::STotals& totals = gateway.totals();
    std::fwrite(&totals, sizeof totals, 1, stdout);
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

CCountingGateway::STotals CGatewayRole::finish()
{
    QEventLoop loop;
    QObject::connect(&m_process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), &loop,
                     &QEventLoop::quit);
    QTimer::singleShot(PATIENCE_MS, &loop, &QEventLoop::quit);
    m_process.closeWriteChannel();
    loop.exec();
    const QByteArray answer = m_process.readAllStandardOutput();
    CCountingGateway::STotals totals;
    if (answer.size() != sizeof totals) {
        throw std::runtime_error("the gateway told no totals");
    }
    std::memcpy(&totals, answer.constData(), sizeof totals);
    return totals;
}

} // namespace vexmor::Endurance
