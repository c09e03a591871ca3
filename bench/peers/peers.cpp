// What one would take instead of the plugin, beside it: Qt SerialBus with its virtualcan backend in the same process,
// and python-can in a Python process of its own. Prints a table in Markdown. See docs/performance.md.
#include "bench/comparison.h"
#include "bench/peers/languages.h"
#include "bench/peers/virtualcanLink.h"

#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>
#include <sstream>
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

/// What python-can needs, as the script measures it: a line for each thing, a value for each round.
class CPythonFigures
{
public:
    CPythonFigures(int gatewayProcessor, const std::string& things, int rounds)
    {
        const CGatewayProcess gateway(EProtocol::eTcp, gatewayProcessor, SOCKETCAND_LANGUAGE);
        const std::string command = "/usr/bin/python3 " CIM_PYTHON_CAN " " + std::to_string(gateway.port()) + " " +
                                    std::to_string(HOST_PROCESSOR) + " " + std::to_string(rounds) + " " + things;
        std::FILE* const output = popen(command.c_str(), "r");
        std::string text;
        for (int letter = 0; output != nullptr && (letter = std::fgetc(output)) != EOF;) {
            text += static_cast<char>(letter);
        }
        if (output == nullptr || pclose(output) != 0) {
            throw std::runtime_error("python-can failed (Debian package python3-can)");
        }
        m_lines.str(text);
    }
    Values next()
    {
        std::string line;
        std::getline(m_lines, line);
        std::istringstream words(line);
        Values values;
        for (double value = 0; words >> value;) {
            values.push_back(value);
        }
        return values;
    }

private:
    std::istringstream m_lines;
};

CSides sides(int gatewayProcessor, int rounds)
{
    CSides result(EProtocol::eTcp, gatewayProcessor, rounds);
    result.add<CPluginLink>().add<CVirtualcanLink>(VIRTUALCAN_LANGUAGE);
    return result;
}

Sides with(Sides sides, const Values& python)
{
    sides.push_back(python);
    return sides;
}

void run(int rounds)
{
    stayOn(HOST_PROCESSOR);
    std::thread([] {}).join(); // from here on locks cost what they cost in a process with threads
    const CComparison table("frames of 8 data bytes over TCP; process with threads",
                            {"plugin", "virtualcan", "python-can"}, {{1, 0}, {2, 0}});
    CPythonFigures receiving(OTHER_PROCESSOR, "receive", rounds);
    const CSides apart = sides(OTHER_PROCESSOR, rounds);
    table.add(
        "received, bursts of 8000, CPU, ns",
        with(cpuOf(apart.measure([](CLink& link) { return receiveBursts(link, 1, RECEIVE_BURST); })), receiving.next()),
        RECEIVE_AIM);

    CPythonFigures python(HOST_PROCESSOR, "send roundtrip stall", rounds);
    const CSides together = sides(HOST_PROCESSOR, rounds);
    const auto sending = [&](ESending how) {
        return cpuOf(together.measure([how](CLink& link) { return sendBatches(link, how, SEND_BATCHES); }));
    };
    table.add("sent, one each turn of the event loop, CPU, ns", with(sending(ESending::eEachInATurn), {}));
    table.add("sent, 100 joined where the side can join, CPU, ns", with(sending(ESending::eBurst), python.next()));
    const auto trips = together.measure([](CLink& link) { return roundTrips(link, ROUND_TRIPS, 0); });
    table.add("round trip, p50, us", with(mediansOf(trips), python.next()), {}, true);
    const auto stalls = together.measure([](CLink& link) { return roundTrips(link, STALL_TRIPS, 1); });
    table.add("the same right behind another message, p50, us", with(mediansOf(stalls), python.next()), {}, true);
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
    return exitCodeOf("peers", [&] {
        run(argc > 1 ? std::max(std::atoi(argv[1]), 1) : DEFAULT_ROUNDS);
        tellAimsMissed();
        return true;
    });
}
