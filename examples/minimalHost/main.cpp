// The smallest host: opens a gateway, sends one message and prints the first one that comes back.
#include <cim/canInterface.h>
#include <cim/canInterfacePlugin.h>

#include <QCoreApplication>
#include <QPluginLoader>
#include <QTimer>

#include <cstdio>
#include <memory>

using namespace vexmor::Cim;

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QPluginLoader loader(QStringLiteral(PLUGIN_FILE));
    auto* const plugin = qobject_cast<CCanInterfacePlugin*>(loader.instance());
    if (plugin == nullptr || argc < 3) {
        std::fprintf(stderr, "usage: minimalHost ADDRESS PORT  %s\n", qPrintable(loader.errorString()));
        return 2;
    }
    const std::unique_ptr<CCanInterface> gateway(plugin->createInterface());
    CCommonInfo info = gateway->commonInfo();
    info.setPort(CCommonInfo::buildIpPortStr(app.arguments().at(1), app.arguments().at(2).toUShort(),
                                             CCommonInfo::eProtocolTcp));
    gateway->setCommonInfo(info);

    int code = gateway->openCommunication();
    if (code == 0) {
        code = gateway->writeMessage(CCanMessage(CCanId::fromValue(0x123), 2, 0x11, 0x22));
    }
    if (code != 0) {
        std::fprintf(stderr, "error %d: %s\n", code, qPrintable(gateway->errorCodeToString(code)));
        return 1;
    }
    QTimer poll; // messages arrive in the event loop
    QObject::connect(&poll, &QTimer::timeout, &app, [&] {
        CCanMessage message;
        if (gateway->readMessage(message) == 0) {
            std::printf("received %03X, %u bytes\n", unsigned(message.id().value()), message.length());
            app.quit();
        }
    });
    poll.start(5);
    QTimer::singleShot(3000, &app, [&] { app.exit(1); });
    return app.exec();
}
