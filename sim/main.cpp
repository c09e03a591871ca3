// t93sim: a T93 gateway in software, on the command line.

#include "sim/commandLine.h"
#include "sim/simProgram.h"
#include "sim/validators.h"

#include <CLI/CLI.hpp>

#include <QCoreApplication>

#include <cstdio>
#include <exception>

using namespace vexmor;
using namespace vexmor::Sim;

namespace
{
CLI::Validator hexBytes(int count)
{
    return CLI::Validator(
        [count](std::string& text) -> std::string {
            const QByteArray digits = QByteArray::fromStdString(text).replace(":", "");
            const QByteArray bytes = QByteArray::fromHex(digits);
            if (digits.isEmpty() || bytes.toHex() != digits.toLower() || (count > 0 && bytes.size() != count)) {
                return count > 0 ? "must be " + std::to_string(count) + " bytes in hexadecimal"
                                 : "must be hexadecimal bytes";
            }
            return {};
        },
        "HEX");
}

void addDetectionOptions(CLI::App& cli, SSimOptions& options)
{
    const auto detection = "Detection (hosts that scan the network)";
    cli.add_flag("--detect", options.detect, "Answers ident requests, on all addresses of this computer")
        ->group(detection);
    cli.add_option("--detect-port", options.detectPort, "Port of the ident requests")
        ->capture_default_str()
        ->group(detection)
        ->check(CLI::Range(1, 65535));
    cli.add_option("--hostname", options.hostName, "Host name of the first gateway; the others are numbered")
        ->capture_default_str()
        ->group(detection);
    cli.add_option("--endpoint", options.endpoints,
                   "tcp or udp, client or server, and a port if it is another, like udp-server:30001; numbers, like "
                   "7-2, for what no gateway has")
        ->capture_default_str()
        ->delimiter(',')
        ->group(detection)
        ->check(CLI::Validator(
            [](std::string& text) {
                return SSimOptions::parseEndpoint(text) ? std::string() : "must be PROTOCOL-ROLE[:PORT]";
            },
            "ENDPOINT"));

    const auto faults = "Faults of detection";
    SSimDetectionFaults& wrong = options.detectionFaults;
    cli.add_option("--ident-cut", wrong.cutAt, "Replies end behind their Nth byte")
        ->group(faults)
        ->check(CLI::Range(1, Cim::DDT_MAX_SIZE));
    cli.add_option("--ident-count", wrong.entryCount, "Replies announce so many entries, whatever they hold")
        ->group(faults)
        ->check(CLI::Range(0, Cim::DDT_MAX_ENTRIES));
    cli.add_flag("--ident-endless-name", wrong.nameWithoutEnd, "The host name fills its field and does not end")
        ->group(faults);
    cli.add_flag("--ident-no-utf8", wrong.nameNoUtf8, "The host name is no UTF-8")->group(faults);
    cli.add_option("--ident-repeat", wrong.repeat, "Sends each reply so often")
        ->group(faults)
        ->check(CLI::Range(1, 100000));
    cli.add_option("--ident-delay", wrong.delayMs, "Milliseconds before each reply")
        ->group(faults)
        ->check(CLI::Range(1, 60000));
}

void addOptions(CLI::App& cli, SSimOptions& options)
{
    const auto network = "Network";
    cli.add_option("--address", options.address, "Address to serve on")
        ->capture_default_str()
        ->group(network)
        ->transform(typedAddress());
    cli.add_option("--port", options.port, "Port of the first gateway, TCP and UDP; 0: the system picks")
        ->capture_default_str()
        ->group(network)
        ->check(CLI::Range(0, 65535));
    cli.add_option("--gateways", options.gateways, "Gateways on one bus, on ports that count up")
        ->capture_default_str()
        ->group(network)
        ->check(CLI::Range(1, 200));
    cli.add_option("--clients", options.clients, "Hosts that a gateway serves at a time")
        ->capture_default_str()
        ->group(network)
        ->check(CLI::Range(1, 1000));

    const auto identity = "Identity";
    cli.add_option("--mac", options.mac, "MAC address of the first gateway, like 02:00:00:54:39:33")
        ->group(identity)
        ->check(hexBytes(6));
    cli.add_option("--firmware", options.firmware,
                   "Firmware version MAJOR.MINOR; 2.3 makes hosts ask for the device text")
        ->capture_default_str()
        ->group(identity)
        ->check(CLI::Validator(
            [](std::string& text) {
                return SSimOptions::parseFirmware(text) ? std::string() : "must be MAJOR.MINOR, each 0 to 255";
            },
            "VERSION"));
    cli.add_option("--device-text", options.deviceText, "Device identification")
        ->capture_default_str()
        ->group(identity);
    cli.add_option("--baud", options.baud, "CAN bit rate at start, kbit/s")
        ->capture_default_str()
        ->group(identity)
        ->check(CLI::IsMember({50, 100, 125, 250, 500, 1000}));
    cli.add_flag("--no-busload", options.noBusload, "An older gateway, which does not measure bus load")
        ->group(identity);

    const auto traffic = "Traffic (starts when the first host is there)";
    cli.add_option("--replay", options.replay, "Plays a log in candump's format")
        ->group(traffic)
        ->check(CLI::ExistingFile);
    cli.add_option("--speed", options.speed, "Speed of the replay")
        ->capture_default_str()
        ->group(traffic)
        ->check(numberFrom(0.01, 10000));
    cli.add_flag("--loop", options.loop, "Starts the replay again at its end")->group(traffic);
    cli.add_option("--generate", options.generate, "Generated messages a second")
        ->group(traffic)
        ->check(CLI::Range(1, 200000));
    cli.add_flag("--echo", options.echo, "Puts every message of a host on the bus again")->group(traffic);
    cli.add_flag("--start-now", options.startNow, "Starts the traffic without waiting for a host")->group(traffic);

    const auto faults = "Faults";
    cli.add_option("--wrong-checksum", options.faults.wrongChecksumEvery, "Every Nth frame has a wrong checksum")
        ->group(faults)
        ->check(CLI::Range(1, 1000000));
    cli.add_option("--missing-end", options.faults.missingEndEvery, "Every Nth frame has no end marker")
        ->group(faults)
        ->check(CLI::Range(1, 1000000));
    cli.add_option("--garbage", options.garbage, "Bytes before every frame")->group(faults)->check(hexBytes(0));
    cli.add_option("--cut", options.faults.cutAt, "Cuts every frame behind its Nth byte")
        ->group(faults)
        ->check(CLI::Range(1, 38));
    cli.add_option("--merge", options.faults.mergeCount, "Joins N frames into one write")
        ->group(faults)
        ->check(CLI::Range(2, 1000));
    cli.add_option("--delay", options.faults.replyDelayMs, "Milliseconds before each reply")
        ->group(faults)
        ->check(CLI::Range(1, 60000));
    cli.add_flag("--mute", options.faults.mute, "Answers no request")->group(faults);
    cli.add_flag("--black-hole", options.faults.blackHole, "Accepts connections, reads nothing, says nothing")
        ->group(faults);
    cli.add_flag("--refuse", options.faults.refuse, "Refuses connections")->group(faults);
    cli.add_option("--drop-after", options.dropAfterMs, "Drops the links so many milliseconds after each connection")
        ->group(faults)
        ->check(CLI::Range(1, 3600000));
    cli.add_option("--status", options.status, "Reports this status byte (0 to 255) again and again")
        ->group(faults)
        ->check(CLI::Range(0, 255));
    cli.add_option("--status-every", options.statusEveryMs, "Milliseconds between the reports")
        ->capture_default_str()
        ->group(faults)
        ->check(CLI::Range(1, 3600000));
    cli.add_option("--flood", options.flood, "Messages sent as fast as they go when the first host is there")
        ->group(faults)
        ->check(CLI::Range(1, 100000000));

    cli.add_option("--seconds", options.seconds, "Ends by itself after so long")->check(numberFrom(0.001, 1e6));
    cli.add_flag("--verbose", options.verbose, "Prints every request and message");
    cli.footer("Exit codes: 0 ended by --seconds, Ctrl-C or another signal, 1 the system refused, 2 wrong usage.");
}

int runProgram(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    SSimOptions options;
    CLI::App cli("A T93 gateway in software: answers hosts over TCP and UDP, with a simulated CAN bus behind it.",
                 "t93sim");
    cli.set_version_flag("--version", "t93sim " CIM_VERSION);
    addOptions(cli, options);
    addDetectionOptions(cli, options);
    try {
        cli.parse(argc, argv);
    } catch (const CLI::Success& success) {
        cli.exit(success);
        return eSimDone;
    } catch (const CLI::ParseError& error) {
        std::fprintf(stderr, "t93sim: %s (t93sim --help lists the options)\n", error.what());
        return eSimWrongUsage;
    }
    CSimProgram program(options);
    QString error;
    const ESimExitCode exitCode = program.start(error);
    if (exitCode != eSimDone) {
        std::fprintf(stderr, "t93sim: %s\n", qPrintable(error));
        return exitCode;
    }
    return QCoreApplication::exec();
}
} // namespace

int main(int argc, char** argv)
{
    keepStandardDescriptors();
    try {
        const int exitCode = runProgram(argc, argv);
        if (flushOutput()) {
            return exitCode;
        }
        std::fprintf(stderr, "t93sim: the output cannot be written\n");
    } catch (const std::exception& error) { // no memory, say
        std::fprintf(stderr, "t93sim: %s\n", error.what());
    }
    return eSimRefused;
}
