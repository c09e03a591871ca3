// What one would take instead of the plugin, beside it: Qt SerialBus with its virtualcan backend in the same process,
// and python-can in a Python process of its own; and the two backends of Qt SerialBus. Prints tables in Markdown. See
// docs/performance.md.
#include "bench/comparison.h"
#include "bench/peers/languages.h"
#include "bench/processes.h"

#include <QCanBus>
#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <thread>

using namespace vexmor::Bench;

namespace
{
constexpr int DEFAULT_ROUNDS = 15; ///< measured, after one that warms up
// What a round does: less than in `throughput`, since the peers need longer.
constexpr int RECEIVE_BURST = 8000;
constexpr int SEND_BATCHES = 4;
constexpr int ROUND_TRIPS = 40;
constexpr int STALL_TRIPS = 5; ///< up to 40 ms each

constexpr SAim RECEIVE_AIM{SAim::eAtLeast, 20};
constexpr SAim BACKEND_AIM{SAim::eAtMost, 1.0 / 3};

/// Qt SerialBus with one of its backends, connected to a gateway process that speaks its language.
class CCanBusLink : public CLink
{
public:
    CCanBusLink(const char* backend, const QString& name)
    {
        QString error;
        m_device.reset(QCanBus::instance()->createDevice(QLatin1String(backend), name, &error));
        if (!m_device || !m_device->connectDevice()) {
            throw std::runtime_error(std::string(backend) +
                                     " cannot connect (Debian package libqt5serialbus5-plugins): " +
                                     (m_device ? m_device->errorString() : error).toStdString());
        }
        waitUntil([this] { return m_device->state() == QCanBusDevice::ConnectedState; });
    }
    void send(const SMessage& message) override
    {
        const QByteArray data(reinterpret_cast<const char*>(message.data.data()), DATA_SIZE);
        if (!m_device->writeFrame(QCanBusFrame(message.id, data))) {
            throw std::runtime_error(m_device->errorString().toStdString());
        }
    }
    void sendBurst(const SMessage& message, int count) override
    {
        CLink::sendBurst(message, count);
        QCoreApplication::processEvents();
    }
    std::uint64_t receive(int count) override
    {
        waitUntil([this, count] {
            const QVector<QCanBusFrame> frames = m_device->readAllFrames(); // the cheapest way
            for (const QCanBusFrame& frame : frames) {
                const QByteArray data = frame.payload();
                m_sum += lookAt(static_cast<std::uint16_t>(frame.frameId()), static_cast<std::size_t>(data.size()),
                                reinterpret_cast<const std::uint8_t*>(data.constData()));
            }
            m_received += frames.size();
            return m_received >= count;
        });
        m_received -= count;
        return std::exchange(m_sum, 0);
    }

private:
    std::unique_ptr<QCanBusDevice> m_device;
    int m_received = 0; ///< messages not yet asked for, and their sum
    std::uint64_t m_sum = 0;
};

std::unique_ptr<CLink> makeVirtualcanLink(EProtocol /*protocol*/, std::uint16_t port)
{
    // The backend also tries to be the server at a loopback address, finds the port taken and stays a client. What it
    // is given to send leaves in the next turn of the event loop.
    return std::make_unique<CCanBusLink>("virtualcan", QStringLiteral("tcp://127.0.0.1:%1/can0").arg(port));
}

std::unique_ptr<CLink> makeT93canbusLink(EProtocol /*protocol*/, std::uint16_t port)
{
    return std::make_unique<CCanBusLink>("t93canbus", QStringLiteral("127.0.0.1:%1:TCP").arg(port));
}

/// What python-can needs, as the script measures it in its turn: a line for each thing, a figure for each round.
std::istringstream askPython(int gatewayProcessor, const std::string& things, int rounds)
{
    const CGatewayProcess gateway(EProtocol::eTcp, gatewayProcessor, SOCKETCAND_LANGUAGE);
    const std::string command =
        text("/usr/bin/python3 %s %d %d %d %s", CIM_PYTHON_CAN, gateway.port(), HOST_PROCESSOR, rounds, things.c_str());
    std::FILE* const output = popen(command.c_str(), "r");
    std::string lines;
    for (int letter = 0; output != nullptr && (letter = std::fgetc(output)) != EOF;) {
        lines += static_cast<char>(letter);
    }
    if (output == nullptr || pclose(output) != 0) {
        throw std::runtime_error("python-can failed (Debian package python3-can)");
    }
    return std::istringstream(lines);
}

Figures withNext(std::istringstream& python, Figures figures)
{
    std::string line;
    std::getline(python, line);
    std::istringstream words(line);
    figures.emplace_back(std::istream_iterator<double>(words), std::istream_iterator<double>());
    return figures;
}

CSides sides(int gatewayProcessor, int rounds)
{
    CSides result(EProtocol::eTcp, gatewayProcessor, rounds);
    result.add(makePluginLink).add(makeVirtualcanLink, VIRTUALCAN_LANGUAGE);
    return result;
}

void run(int rounds)
{
    stayOn(HOST_PROCESSOR);
    std::thread([] {}).join(); // from here on locks cost what they cost in a process with threads
    const CComparison table({"frames of 8 data bytes over TCP; process with threads", "plugin", "virtualcan",
                             "python-can", "virtualcan / plugin", "python-can / plugin", "aim", "load"},
                            {{1, 0}, {2, 0}});
    std::istringstream receiving = askPython(OTHER_PROCESSOR, "receive", rounds);
    const CSides apart = sides(OTHER_PROCESSOR, rounds);
    const auto received = [](CLink& link) { return receiveBursts(link, 1, RECEIVE_BURST).cpu; };
    table.add("received, bursts of 8000, CPU, ns", withNext(receiving, apart.measure(received)), RECEIVE_AIM);

    std::istringstream python = askPython(HOST_PROCESSOR, "send trip stall", rounds);
    const CSides together = sides(HOST_PROCESSOR, rounds);
    const auto sent = [&](ESending how) {
        return together.measure([how](CLink& link) { return sendBatches(link, how, SEND_BATCHES); });
    };
    const auto trips = [&](int count, int messagesBefore) {
        return together.measure([=](CLink& link) { return roundTrip(link, 0.5, count, messagesBefore); });
    };
    Figures eachInATurn = sent(ESending::eEachInATurn);
    eachInATurn.emplace_back(); // python-can has no event loop
    table.add("sent, one each turn of the event loop, CPU, ns", eachInATurn);
    table.add("sent, 100 joined where the side can join, CPU, ns", withNext(python, sent(ESending::eBurst)));
    table.add("round trip, p50, us", withNext(python, trips(ROUND_TRIPS, 0)), {}, true);
    table.add("the same right behind another message, p50, us", withNext(python, trips(STALL_TRIPS, 1)), {}, true);
    std::printf("\n");

    const CComparison backends(
        {"the same through QCanBus", "t93canbus", "virtualcan", "t93canbus / virtualcan", "aim", "load"}, {{0, 1}});
    CSides canBus(EProtocol::eTcp, OTHER_PROCESSOR, rounds);
    canBus.add(makeT93canbusLink).add(makeVirtualcanLink, VIRTUALCAN_LANGUAGE);
    backends.add("received, bursts of 8000, CPU, ns", canBus.measure(received), BACKEND_AIM);
}
} // namespace

/// peers [ROUNDS]: fewer than 15 show that it works, not what it costs.
int main(int argc, char** argv)
{
    // Without it virtualcan, which asks for the local time with each frame, would have the C library look for a change
    // of the time zone's file each time: the comparison would flatter the plugin.
    setenv("TZ", "UTC", 0);
    setenv("QT_LOGGING_RULES", "qt.canbus.*=false", 0); // it tells that it is no server
    const QCoreApplication application(argc, argv);
    QCoreApplication::addLibraryPath(QStringLiteral(CIM_CANBUS_BUILD_DIR)); // of t93canbus
    return exitCodeOf("peers", [&] {
        run(argc > 1 ? std::max(std::atoi(argv[1]), 1) : DEFAULT_ROUNDS);
        tellAimsMissed();
        return true;
    });
}
