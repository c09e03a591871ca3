// A minimal host application: opens an interface, sends one message and prints the first message that it receives.
#include <cim/canInterface.h>
#include <cim/canInterfacePlugin.h>
#include <cim/resultCodes.h>

#include <QCoreApplication>
#include <QPluginLoader>
#include <QTimer>

#include <cstdio>
#include <memory>

using namespace vexmor::Cim;

int fail(int exitCode, const QString& text)
{
    std::fprintf(stderr, "%s\n", qPrintable(text));
    return exitCode;
}

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList words = app.arguments();
    const unsigned port = words.size() == 4 ? words.at(2).toUShort() : 0;
    if (port == 0) {
        return fail(2, QStringLiteral("usage: minimalHost ADDRESS PORT KBIT-PER-SECOND"));
    }
    QPluginLoader loader(QStringLiteral(PLUGIN_FILE));
    auto* const plugin = qobject_cast<CCanInterfacePlugin*>(loader.instance());
    if (plugin == nullptr) {
        return fail(1, loader.errorString());
    }
    const std::unique_ptr<CCanInterface> gateway(plugin->createInterface());
    CCommonInfo info = gateway->commonInfo();
    info.setPort(CCommonInfo::buildIpPortStr(words.at(1), port, CCommonInfo::eProtocolTcp));
    gateway->setCommonInfo(info);
    // Opening sets the bit rate of the gateway. A wrong rate disturbs every device on the bus.
    int code = gateway->setBaudrate(words.at(3).toInt()) ? gateway->openCommunication() : RC_BAUDRATE_NOT_SUPPORTED;
    if (code == RC_OK) {
        code = gateway->writeMessage(CCanMessage(CCanId::fromValue(0x123), 2, 0x11, 0x22));
    }
    if (code != RC_OK) {
        return fail(1, gateway->errorCodeToString(code));
    }
    QTimer poll; // no signal announces a message, and messages arrive only while the event loop runs
    QObject::connect(&poll, &QTimer::timeout, &app, [&] {
        CCanMessage message;
        if (gateway->readMessage(message) == RC_OK) {
            std::printf("received %03X, %u bytes\n", unsigned(message.id().value()), message.length());
            app.quit();
        }
    });
    poll.start(5);
    QTimer::singleShot(3000, &app, [&] { app.exit(fail(1, QStringLiteral("no message within 3 s"))); });
    return app.exec();
}
