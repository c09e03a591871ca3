// cimshare: shares CAN interfaces with many programs. This file has its command line.
#include "apps/cimshare/shareService.h"
#include "apps/cli/exitCodes.h"
#include "apps/cli/interruption.h"
#include "apps/cli/networkOptions.h"
#include "apps/cli/options.h"
#include "apps/cli/program.h"

#include <QCoreApplication>
#include <QHostInfo>
#include <QScopeGuard>

#include <cstdio>
#include <utility>

namespace vexmor::Apps::Cimshare
{
namespace
{
void addMqtt(CLI::App& app, SShareOptions& options)
{
    constexpr char GROUP[] = "MQTT";
    SBroker& broker = options.broker;
    options.mqtt.topic = QStringLiteral("can/") + QHostInfo::localHostName();
    const COption mqtt = addTexts(app, "--mqtt", broker.nodes,
                                  "Publish to this broker; repeat the option for each node of a cluster", "HOST[:PORT]")
                             .check(SBroker::checkNode)
                             .group(GROUP);
    const auto add = [&](const COption& option) { option.group(GROUP).needs(mqtt); };
    add(addText(app, "--mqtt-topic", options.mqtt.topic,
                "Beginning of all topics, instead of can/ and the name of this computer", "TOPIC"));
    const auto setFormat = [&options](const QString& text) { options.mqtt.isJson = text == QLatin1String("json"); };
    add(addText(app, "--mqtt-format", setFormat, "Payload of messages: lines of a candump log, or JSON", "log|json")
            .oneOf({"log", "json"})
            .showDefault(QStringLiteral("log")));
    add(addFlag(app, "--mqtt-last", options.mqtt.hasLast,
                "Also publish the last message of each identifier, retained"));
    add(addText(app, "--mqtt-credentials", broker.credentialsFile,
                "File with the user name and the password, one per line", "FILE"));
    add(addText(app, "--mqtt-ca", broker.caFile, "Use TLS, and trust this certificate authority", "FILE"));
    add(addText(app, "--mqtt-cert", broker.certificateFile, "Client certificate", "FILE"));
    add(addText(app, "--mqtt-key", broker.keyFile, "Private key of the client certificate", "FILE"));
    add(addFlag(app, "--mqtt-plaintext", broker.allowsPlaintext, "Allow sending the password without TLS"));
}

void addOptions(CCommandLine& app, SShareOptions& options, QStringList& networks, QStringList& sendRules)
{
    addFlag(app, "--check", options.isCheck, "Check the options, print what the program would do, and exit");
    app.addConfigFile("--config", "Read options from a file with one NAME=VALUE per line", "FILE");
    options.targets.addTo(app, STargetOptions::ENumber::eAny);
    addFlag(app, "--all", options.allStored, "Share all stored interfaces");
    const COption socketcand = addListening(app, "--socketcand", options.socketcand,
                                            "Serve socketcand clients, which open a bus by its name (port 29536)");
    addFlag(app, "--beacon", options.beacon, "Announce the socketcand server by broadcast every 2 s").needs(socketcand);
    addListening(app, "--t93", options.t93, "Act as T93 gateways: one port for each bus, numbered from PORT");
    addTexts(
        app, "--allow-send", sendRules,
        "Allow clients to send: everything, or only what the rule allows (without the option: nothing); repeatable",
        "[PROTOCOL[:BUS[:ID[-ID]]]]")
        .optionalValue()
        .showDefault(QStringLiteral("true"));
    addWhole(app, "--send-limit", options.sending.messagesPerSecond, 1, 10000,
             "Maximum number of messages per second from each client");
    addFlag(app, "--pin", options.sending.isPinned,
            "Send only while the gateway has the expected MAC address: the stored one, or the first one seen");
    addTexts(app, "--allow", networks, "Accept clients only from this address or network; repeatable",
             "ADDRESS[/PREFIX]");
    addMqtt(app, options);
    addWhole(app, "--status", options.statusSeconds, 1, 86400, "Print a status line for each bus at this interval",
             "SECONDS");
    addText(app, "--metrics", options.metricsFile, "Write metrics for Prometheus (node_exporter) to a file every 15 s",
            "FILE");
    addFlag(app, "--json", options.json, "Print each line as a JSON object");
    addPluginPlace(app, options.plugins);
}

constexpr unsigned int LONGEST_END_S = 2;
CEventLog* s_warnings = nullptr; ///< The log for Qt's message handler, which is a plain function.

/// Prints warnings of the library, except the one about bit rate 0, which means unchanged here.
void onQtMessage(QtMsgType /*type*/, const QMessageLogContext& /*context*/, const QString& text)
{
    if (text != QLatin1String("Setting baudrate to 0 failed.")) {
        s_warnings->print("warning", QStringLiteral("cimshare"), text);
    }
}

int cimshare(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    CEventLog warnings(false, stderr);
    s_warnings = &warnings;
    qInstallMessageHandler(onQtMessage);
    const auto atEnd = qScopeGuard([] { qInstallMessageHandler(nullptr); });

    const auto fail = [](const SProblem& problem) { return Apps::fail("cimshare", problem); };
    CCommandLine app("cimshare", "Shares CAN buses behind T93 gateways with many programs, as a socketcand server, as "
                                 "a T93 gateway and over MQTT.\n"
                                 "Listens on 127.0.0.1 unless an address is given.");
    SShareOptions options;
    QStringList networks;
    QStringList sendRules{QStringLiteral("false")}; // without the option, clients may send nothing
    addOptions(app, options, networks, sendRules);
    if (const auto exitCode = app.parse(argc, argv, fail)) {
        return *exitCode;
    }
    const Failure wrongNetwork = options.allowed.add(networks);
    const Failure wrongRule = options.sending.rules.add(sendRules.join(QLatin1Char(',')));
    if (wrongNetwork || wrongRule) {
        return fail(wrongNetwork ? *wrongNetwork : *wrongRule);
    }
    if (options.isCheck) {
        const Failure failure = CShareService(std::move(options)).check();
        return failure ? fail(*failure) : eDone;
    }
    CInterruption interruption(nullptr, LONGEST_END_S);
    QObject::connect(&interruption, &CInterruption::interrupted, &application, &QCoreApplication::quit);
    CShareService service(std::move(options));
    if (const Failure failure = service.start()) {
        return fail(*failure);
    }
    return QCoreApplication::exec();
}
} // namespace
} // namespace vexmor::Apps::Cimshare

int main(int argc, char** argv)
{
    return vexmor::Apps::runProgram("cimshare", [=] { return vexmor::Apps::Cimshare::cimshare(argc, argv); });
}
