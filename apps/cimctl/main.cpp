// cimctl: works with CAN interfaces from the command line. Here stands what can be typed; the commands lie beside.
#include "apps/cimctl/commands.h"
#include "apps/cimctl/demo.h"
#include "apps/common/interfaceStore.h"
#include "apps/common/translations.h"
#include "sim/commandLine.h"
#include "sim/validators.h"

#include <CLI/CLI.hpp>
#include <QCoreApplication>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <functional>
#include <string>

namespace vexmor::Apps::Cimctl
{
namespace
{
const char* const TARGET_HELP =
    "TARGET is the name of a stored interface (see list), an address ADDRESS[:PORT][:TCP|:UDP],\n"
    "a port text like IP=192.168.1.70:30000:TCP, or sim: a simulated gateway in this program\n"
    "(sim:FILE plays a log of candump on its bus, and ends with it).";
const char* const FRAME_HELP = "Frames: ID#DATA, hexadecimal, like 123#1122AABB";

/// What was typed for all commands together, and which command it was.
struct SCommandLine {
    bool json = false;
    bool verbose = false;
    int logLevel = 0; ///< 0: no log
    SPluginPlace place;
    STargetOptions target;
    SShowOptions show;
    SDumpOptions dump;
    SSendOptions send;
    SReplayOptions replay;
    SScanOptions scan;
    SLoadOptions load;
    SAddOptions add;
    SDemoOptions demo;
    QString name;
    std::function<EExitCode(COutput&)> run;
};

CLI::Option* addText(CLI::App& command, const std::string& names, QString& value, const std::string& help)
{
    const auto take = [&value](const std::string& text) { value = QString::fromLocal8Bit(text.c_str()); };
    return command.add_option_function<std::string>(names, take, help);
}

CLI::Option* addTexts(CLI::App& command, const std::string& names, QStringList& values, const std::string& help)
{
    const auto take = [&values](const std::vector<std::string>& texts) {
        for (const std::string& text : texts) {
            values.append(QString::fromLocal8Bit(text.c_str()));
        }
    };
    // One value each time: what follows may be the TARGET.
    return command.add_option_function<std::vector<std::string>>(names, take, help)->allow_extra_args(false);
}

CLI::Option* addSetting(CLI::App& command, const std::string& names, Settings& settings, QLatin1String key,
                        const std::string& type, const std::string& help)
{
    const auto take = [&settings, key](const std::string& text) {
        settings.insert(key, QString::fromLocal8Bit(text.c_str()));
    };
    return command.add_option_function<std::string>(names, take, help)->type_name(type)->group("Interface");
}

/// What an interface can be told besides its address.
void addInterfaceSettings(CLI::App& command, Settings& settings)
{
    addSetting(command, "--protocol", settings, StoreKey::PROTOCOL, "TCP|UDP", "Transport to the gateway (TCP)")
        ->transform(CLI::IsMember({"TCP", "UDP"}, CLI::ignore_case).description(""));
    addSetting(command, "--baudrate", settings, StoreKey::BAUDRATE, "KBIT",
               "Bit rate of the CAN bus: 50, 100, 125, 250, 500 or 1000 kbit/s (100; sim: 500)")
        ->check(CLI::Range(0, INT_MAX).description(""));
    addSetting(command, "--local-address", settings, StoreKey::LOCAL_ADDRESS, "ADDRESS",
               "UDP: address of this computer's network interface to the gateway (any)")
        ->transform(Sim::typedAddress());
    addSetting(command, "--poll-time", settings, StoreKey::POLL_TIME, "MS", "Time between bus load requests (800)")
        ->check(CLI::Range(100, 3000).description(""));
    addSetting(command, "--measure-interval", settings, StoreKey::MEASURE_TIME, "MS",
               "Time over which the gateway measures bus load (1000)")
        ->check(CLI::Range(100, 3000).description(""));
    command
        .add_flag_callback(
            "--udp-any", [&settings] { settings.insert(StoreKey::UDP_BIND_ANY, QStringLiteral("1")); },
            "UDP: receive on all addresses of this computer")
        ->group("Interface");
}

CLI::App& addCommand(CLI::App& app, SCommandLine& line, const std::string& name, const std::string& help,
                     std::function<EExitCode(COutput&)> run)
{
    CLI::App& command = *app.add_subcommand(name, help);
    command.fallthrough();
    command.callback([&line, run = std::move(run)] { line.run = run; });
    return command;
}

void addTarget(CLI::App& command, SCommandLine& line)
{
    addText(command, "TARGET", line.target.text, "The gateway: a stored name, an address, or sim")->required();
    addInterfaceSettings(command, line.target.settings);
    command.footer(TARGET_HELP);
}

void addTrafficCommands(CLI::App& app, SCommandLine& line)
{
    CLI::App& dump = addCommand(app, line, "dump", "Print messages as they come", [&line](COutput& output) {
        line.dump.target = line.target;
        line.dump.show = line.show;
        return Cimctl::dump(output, line.dump);
    });
    addTarget(dump, line);
    dump.add_option("-n,--count", line.dump.count, "End after so many messages")
        ->type_name("N")
        ->check(CLI::Range(1, INT_MAX).description(""));
    dump.add_option("-s,--seconds", line.dump.seconds, "End so many seconds after the interface is open")
        ->type_name("S")
        ->check(Sim::numberFrom(0.001, 1e6));
    dump.add_flag("--sent", line.show.sent, "Show sent messages too, and the direction of each");
    dump.add_flag("-t,--time", line.show.time, "Begin each line with the time");
    addText(dump, "-l,--log", line.show.logFile, "Write the messages to a file too, in candump's log format")
        ->type_name("FILE");
    addTexts(dump, "-f,--filter", line.dump.filters, "Show only messages with (identifier & MASK) == (ID & MASK)")
        ->type_name("ID:MASK");
    addTexts(dump, "--send", line.dump.frames, "Send this when the interface is open")->type_name("ID#DATA");

    CLI::App& send = addCommand(app, line, "send", "Send messages", [&line](COutput& output) {
        line.send.target = line.target;
        line.send.show = line.show;
        line.send.show.received = false;
        return Cimctl::send(output, line.send);
    });
    addTarget(send, line);
    addTexts(send, "FRAMES", line.send.frames, FRAME_HELP)->allow_extra_args()->required()->type_name("ID#DATA");
    send.add_option("--repeat", line.send.repeat, "Send all of them so often")
        ->type_name("N")
        ->check(CLI::Range(1, INT_MAX).description(""));
    send.add_option("--interval", line.send.interval,
                    "Milliseconds from one message to the next (0: as fast as the gateway takes them)")
        ->type_name("MS")
        ->check(Sim::numberFrom(0, 1e6));
    send.add_flag("--sent", line.show.sent, "Show what is sent");

    CLI::App& replay =
        addCommand(app, line, "replay", "Send a log of candump at its own timing", [&line](COutput& output) {
            line.replay.target = line.target;
            line.replay.show = line.show;
            line.replay.show.received = false;
            return Cimctl::replay(output, line.replay);
        });
    addTarget(replay, line);
    addText(replay, "FILE", line.replay.file, "The log: lines like (1398128223.803317) can0 166#D0320009")->required();
    replay.add_option("--speed", line.replay.speed, "So many times as fast")
        ->type_name("N")
        ->check(Sim::numberFrom(0.001, 1e6));
    replay.add_flag("--loop", line.replay.loop, "Begin again at the end, until Ctrl-C");
    replay.add_flag("--sent", line.show.sent, "Show what is sent");

    CLI::App& load = addCommand(app, line, "load", "Show the bus load once a second", [&line](COutput& output) {
        line.load.target = line.target;
        return Cimctl::load(output, line.load);
    });
    addTarget(load, line);
    load.add_option("-s,--seconds", line.load.seconds, "End so many seconds after the interface is open")
        ->type_name("S")
        ->check(Sim::numberFrom(1, 1e6));
}

void addStoreCommands(CLI::App& app, SCommandLine& line)
{
    addCommand(app, line, "list", "List the stored interfaces", listStored);

    CLI::App& add = addCommand(app, line, "add", "Store an interface under a name", [&line](COutput& output) {
        line.add.target = line.target;
        return addToStore(output, line.add);
    });
    addText(add, "NAME", line.add.name, "Its name, from then on a TARGET")->required();
    addText(add, "ADDRESS", line.target.text, "ADDRESS[:PORT][:TCP|:UDP] of the gateway, or a port text (IP=...)")
        ->required();
    addInterfaceSettings(add, line.target.settings);
    addSetting(add, "--hostname", line.target.settings, StoreKey::HOSTNAME, "TEXT", "Host name of the gateway");
    addSetting(add, "--description", line.target.settings, StoreKey::DESCRIPTION, "TEXT", "Text to show to users");
    add.add_flag("--replace", line.add.replace, "Replace what is stored under the name");

    CLI::App& show = addCommand(app, line, "show", "Show a stored interface",
                                [&line](COutput& output) { return showStored(output, line.name); });
    addText(show, "NAME", line.name, "A stored interface")->required();
    CLI::App& remove = addCommand(app, line, "remove", "Remove a stored interface",
                                  [&line](COutput& output) { return removeFromStore(output, line.name); });
    addText(remove, "NAME", line.name, "A stored interface")->required();
}

void addCommands(CLI::App& app, SCommandLine& line)
{
    app.require_subcommand(1);
    app.set_version_flag("--version", "cimctl " CIM_VERSION);
    app.add_flag("--json", line.json, "Every line a JSON object, on stdout and on stderr");
    app.add_flag("-v,--verbose", line.verbose, "Show warnings that an error tells already, and errors in full");
    app.add_option("--log-level", line.logLevel,
                   "Show log lines from this level on: 20 progress, 30 refused, 50 errors")
        ->type_name("N")
        ->check(CLI::Range(1, 100).description(""));
    addText(app, "--plugin", line.target.place.file, "The plugin library to use")->type_name("FILE");
    addText(app, "--plugin-dir", line.target.place.folder, "Folder of the plugins (or environment: CIM_PLUGIN_PATH)")
        ->type_name("DIR");
    app.footer("Exit codes: 0 done, 1 the gateway, the plugin or the system refused, 2 wrong usage,\n"
               "130 interrupted (Ctrl-C) before everything was sent or found.\n"
               "With nothing at hand: cimctl demo, or cimctl dump sim --seconds 3");

    addCommand(app, line, "info", "List the plugins found",
               [&line](COutput& output) { return info(output, line.target.place); });
    CLI::App& scan = addCommand(app, line, "scan", "Find the gateways on the network", [&line](COutput& output) {
        line.scan.place = line.target.place;
        return Cimctl::scan(output, line.scan);
    });
    addTexts(scan, "-a,--address", line.scan.addresses, "Ask this address directly, too (for one behind a router)")
        ->type_name("ADDRESS");
    scan.add_flag("--save", line.scan.save, "Store what was found, under the names shown; each is a TARGET then");
    addTrafficCommands(app, line);
    addStoreCommands(app, line);
    CLI::App& demo =
        addCommand(app, line, "demo", "Show what the library does, on a simulated gateway", [&line](COutput& output) {
            line.demo.place = line.target.place;
            return Cimctl::demo(output, line.demo);
        });
    addText(demo, "--log", line.demo.logFile, "A log of candump to play as the traffic on the bus")->type_name("FILE");
    addText(demo, "--scan", line.demo.scanAddress,
            "Begin with a scan, in a private network with this address of this computer (script/demo makes one)")
        ->type_name("ADDRESS")
        ->transform(Sim::typedAddress());
}

int runCommand(const SCommandLine& line)
{
    COutput output(line.json, line.verbose);
    if (line.logLevel != 0) {
        COutput::showLog(line.logLevel);
    }
    try {
        const EExitCode exitCode = line.run(output);
        output.releaseWarnings(true);
        return output.finish(exitCode);
    } catch (const SFailure& failure) {
        output.releaseWarnings(false);
        output.reportFailure(failure.text, failure.code);
        return failure.exitCode;
    }
}

int runProgram(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Vexmor"));
    QCoreApplication::setApplicationName(QStringLiteral("Cim"));
    installTranslations(application, {QStringLiteral("interfaceT93")});

    CLI::App app("Works with CAN interfaces: receives and sends messages through a T93 gateway.", "cimctl");
    SCommandLine line;
    addCommands(app, line);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& wanted) { // --help, --version
        COutput output(false, false);
        app.exit(wanted);
        return output.finish(eDone);
    } catch (const CLI::Error& error) {
        const std::vector<std::string> unknown = app.remaining();
        const bool isCommand = app.get_subcommands().empty() && !unknown.empty();
        const std::string text = isCommand ? "there is no command '" + unknown.front() + "'" : error.what();
        // Read apart: the line was given up in the middle.
        const bool json = std::find(argv, argv + argc, std::string("--json")) != argv + argc;
        COutput(json, false)
            .reportFailure(
                QStringLiteral("%1 (cimctl --help tells what can be typed)").arg(QString::fromLocal8Bit(text.c_str())),
                0);
        return eWrongUsage;
    }
    return runCommand(line);
}
} // namespace
} // namespace vexmor::Apps::Cimctl

int main(int argc, char** argv)
{
    vexmor::Sim::keepStandardDescriptors();
    try {
        return vexmor::Apps::Cimctl::runProgram(argc, argv);
    } catch (const std::exception& error) { // no memory, say
        std::fprintf(stderr, "error: %s\n", error.what());
        return vexmor::Apps::eRefused;
    }
}
