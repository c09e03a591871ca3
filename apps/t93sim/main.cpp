// t93sim: a T93 gateway in software. This file has its command line.

#include "apps/cli/options.h"
#include "apps/cli/program.h"
#include "apps/host/bitRates.h"
#include "apps/t93sim/simProgram.h"

#include <QCoreApplication>

#include <climits>

using namespace vexmor;
using namespace vexmor::Apps;

namespace
{
/// Adds options that the help shows under one title. Empty defaults and numbers up to 0 are not shown.
class COptionGroup
{
public:
    COptionGroup(CLI::App& cli, const char* title) : m_cli(cli), m_title(title) {}

    COption flag(const char* name, bool& value, const char* help)
    {
        return addFlag(m_cli, name, value, help).group(m_title);
    }
    COption number(const char* name, int& value, int lowest, int highest, const char* help)
    {
        const std::string range = std::to_string(lowest) + "-" + std::to_string(highest);
        COption option = addWhole(m_cli, name, value, lowest, highest, help, range).group(m_title);
        return value > 0 ? option.showDefault(QString::number(value)) : option;
    }
    COption text(const char* name, QString& value, const char* help, const char* type)
    {
        COption option = addText(m_cli, name, value, help, type).group(m_title);
        return value.isEmpty() ? option : option.showDefault(value);
    }

private:
    CLI::App& m_cli;
    const char* const m_title;
};

/// Returns a check that a text is this number of bytes in hexadecimal; 0: any number, but at least one.
std::function<Failure(const QString&)> hexBytes(int count)
{
    return [count](const QString& text) {
        const QByteArray digits = text.toLocal8Bit().replace(":", "");
        const QByteArray bytes = QByteArray::fromHex(digits);
        const bool ok = bytes.toHex() == digits.toLower() && (count == 0 ? !bytes.isEmpty() : bytes.size() == count);
        const QString number =
            count > 0 ? QStringLiteral("%1 bytes in hexadecimal").arg(count) : QStringLiteral("hexadecimal bytes");
        return ok ? Failure() : wrongUsage(QStringLiteral("must be ") + number);
    };
}

/// Returns a check that `read` accepts a text; `fault` is the error.
template <typename Value>
std::function<Failure(const QString&)> readableBy(std::optional<Value> (*read)(const QString&), const char* fault)
{
    return [=](const QString& text) { return read(text) ? Failure() : wrongUsage(QString::fromLatin1(fault)); };
}

void addGatewayOptions(CLI::App& cli, SSimOptions& options)
{
    COptionGroup network(cli, "Network");
    network.text("--address", options.address, "Address to listen on", "ADDRESS").address();
    network.number("--port", options.port, 0, 65535, "Port of the first gateway, TCP and UDP; 0: the system picks");
    network.number("--gateways", options.gateways, 1, 200, "Number of gateways on one bus, on consecutive ports");
    network.number("--clients", options.clients, 1, 1000, "Number of clients that each gateway accepts at a time");

    COptionGroup identity(cli, "Identity");
    identity.text("--mac", options.mac, "MAC address of the first gateway", "MAC").check(hexBytes(6));
    identity
        .text("--firmware", options.firmware, "Firmware version; 2.3 makes clients request the device text",
              "MAJOR.MINOR")
        .check(readableBy(&SSimOptions::readFirmware, "must be MAJOR.MINOR, each 0 to 255"));
    identity.text("--device-text", options.deviceText, "Device text", "TEXT");
    addWhole(cli, "--baud", options.baud, 1, INT_MAX, "Bit rate of the CAN bus at the start, kbit/s",
             bitRates().join(QLatin1Char('|')).toStdString())
        .showDefault(QString::number(options.baud))
        .group("Identity")
        .bitRate();
    identity.flag("--no-busload", options.noBusload, "Act as an older gateway, which does not measure bus load");
}

void addDetectionOptions(CLI::App& cli, SSimOptions& options)
{
    COptionGroup detection(cli, "Detection (programs that scan the network)");
    const COption detect =
        detection.flag("--detect", options.detect, "Answer ident requests on all addresses of this computer");
    detection.number("--detect-port", options.detectPort, 1, 65535, "Port of the ident requests").needs(detect);
    detection.text("--hostname", options.hostName, "Host name of the first gateway; the others are numbered", "NAME")
        .needs(detect);
    addList(cli, "--endpoint", options.endpoints,
            "Endpoint in the replies: tcp or udp, client or server, and optionally a port, like udp-server:30001; "
            "numbers, like 7-2, make invalid endpoints",
            "ENDPOINT")
        .group("Detection (programs that scan the network)")
        .needs(detect)
        .check(readableBy(&SSimOptions::readEndpoint, "must be PROTOCOL-ROLE[:PORT]"));

    COptionGroup faults(cli, "Faults of detection");
    Sim::SSimDetectionFaults& wrong = options.detectionFaults;
    faults.number("--ident-cut", wrong.cutAt, 1, Cim::DDT_MAX_SIZE, "End each reply after its Nth byte").needs(detect);
    faults
        .number("--ident-count", wrong.entryCount, 0, Cim::DDT_MAX_ENTRIES,
                "Number of entries that each reply announces, whatever it contains")
        .needs(detect);
    faults.flag("--ident-endless-name", wrong.nameWithoutEnd, "Fill the whole field with the host name, without an end")
        .needs(detect);
    faults.flag("--ident-no-utf8", wrong.nameNoUtf8, "Use a host name that is not valid UTF-8").needs(detect);
    faults.number("--ident-repeat", wrong.repeat, 1, 100000, "Send each reply this many times").needs(detect);
    faults.number("--ident-delay", wrong.delayMs, 1, 60000, "Milliseconds before each reply").needs(detect);
}

void addTrafficOptions(CLI::App& cli, SSimOptions& options)
{
    COptionGroup traffic(cli, "Traffic (starts with the first request of a client)");
    const COption replay =
        traffic.text("--replay", options.replay, "Play a log in candump's format; -: from standard input", "FILE");
    addNumber(cli, "--speed", options.speed, 0.01, 10000, "Speed factor of the replay", "N")
        .showDefault(QString::number(options.speed))
        .group("Traffic (starts with the first request of a client)")
        .needs(replay);
    traffic.flag("--loop", options.loop, "Start the replay again at its end").needs(replay);
    traffic.number("--generate", options.generate, 1, 200000, "Generate this many messages per second");
    traffic.flag("--echo", options.echo, "Send each message of a client again, from the bus to all clients");
    traffic.flag("--start-now", options.startNow, "Start the traffic without waiting for a client");
}

void addFaultOptions(CLI::App& cli, SSimOptions& options)
{
    COptionGroup faults(cli, "Faults");
    Sim::SSimFaults& wrong = options.faults;
    const COption checksum = faults.number("--wrong-checksum", wrong.wrongChecksumEvery, 1, 1000000,
                                           "Make the checksum of every Nth frame wrong");
    const COption end =
        faults.number("--missing-end", wrong.missingEndEvery, 1, 1000000, "Omit the end marker of every Nth frame");
    const COption garbage =
        faults.text("--garbage", options.garbage, "Send these bytes before every frame", "HEX").check(hexBytes(0));
    const COption cut = faults.number("--cut", wrong.cutAt, 1, 38, "Cut every frame after its Nth byte");
    const COption merge = faults.number("--merge", wrong.mergeCount, 2, 1000, "Join N frames into one write");
    const COption delay = faults.number("--delay", wrong.replyDelayMs, 1, 60000, "Milliseconds before each reply");
    const COption mute = faults.flag("--mute", wrong.mute, "Answer no requests").excludes({delay});
    const COption drop = faults.number("--drop-after", options.dropAfterMs, 1, 3600000,
                                       "Close each connection after this many milliseconds");
    const COption status = faults.number("--status", options.status, 0, 255, "Report this status byte repeatedly");
    faults.number("--status-every", options.statusEveryMs, 1, 3600000, "Milliseconds between the reports")
        .needs(status);
    const COption flood =
        faults.number("--flood", options.flood, 1, 100000000,
                      "Send this many messages as fast as possible after the first request of a client");
    const auto spoken = {checksum, end, garbage, cut, merge, delay, mute, status, flood};
    const COption blackHole =
        faults.flag("--black-hole", wrong.blackHole, "Accept connections, but read and send nothing").excludes(spoken);
    faults.flag("--refuse", wrong.refuse, "Refuse connections").excludes(spoken).excludes({blackHole, drop});
}

int t93sim(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    SSimOptions options;
    CCommandLine cli("t93sim",
                     "A T93 gateway in software: serves clients over TCP and UDP, with a simulated CAN bus behind it.");
    addGatewayOptions(cli, options);
    addTrafficOptions(cli, options);
    addFaultOptions(cli, options);
    addDetectionOptions(cli, options);
    addNumber(cli, "--seconds", options.seconds, 0.001, 1e6, "End after this many seconds", "S");
    addFlag(cli, "--verbose", options.verbose, "Print every request and message");
    setFooter(cli,
              "Exit codes: 0 ended by --seconds, Ctrl-C or another signal; 1 refused by the system; 2 wrong usage.");
    const auto fail = [](const SProblem& problem) { return Apps::fail("t93sim", problem); };
    if (const auto exitCode = cli.parse(argc, argv, fail)) {
        return *exitCode;
    }
    CSimProgram program(options);
    if (const Failure failure = program.start()) {
        return fail(*failure);
    }
    return QCoreApplication::exec();
}
} // namespace

int main(int argc, char** argv)
{
    return runProgram("t93sim", [=] { return t93sim(argc, argv); });
}
