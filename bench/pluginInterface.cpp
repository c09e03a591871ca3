#include "bench/pluginInterface.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QPluginLoader>
#include <QTimer>

namespace vexmor::Bench
{

Cim::CCanInterfacePlugin& plugin()
{
    static QPluginLoader loader(QStringLiteral(CIM_PLUGIN_FILE));
    auto* const object = qobject_cast<Cim::CCanInterfacePlugin*>(loader.instance());
    if (object == nullptr) {
        throw std::runtime_error(loader.errorString().toStdString());
    }
    return *object;
}

std::unique_ptr<Cim::CCanInterface> makeInterface(EProtocol protocol, std::uint16_t port, const QString& address)
{
    std::unique_ptr<Cim::CCanInterface> result(plugin().createInterface());
    result->setProperty("Protocol", QLatin1String(protocol == EProtocol::eTcp ? "TCP" : "UDP"));
    result->setProperty("IPAddress", address);
    result->setProperty("Port", port);
    result->setProperty("CanBaudrate", 1000);
    return result;
}

void open(Cim::CCanInterface& canInterface)
{
    const int code = canInterface.openCommunication();
    if (code != 0) {
        throw std::runtime_error(canInterface.errorCodeToString(code).toStdString());
    }
}

void close(Cim::CCanInterface& canInterface)
{
    canInterface.closeCommunication();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); // deletes the socket
}

void runFor(int milliseconds)
{
    QEventLoop loop;
    QTimer::singleShot(milliseconds, Qt::PreciseTimer, &loop, &QEventLoop::quit);
    loop.exec();
}

void waitUntil(const std::function<bool()>& condition)
{
    QDeadlineTimer patience(QDeadlineTimer::Forever);
    for (int turn = 0; !condition(); ++turn) {
        if (turn == 1) { // reads no clock if one turn is enough
            patience.setRemainingTime(PATIENCE_S * 1000);
        }
        if (patience.hasExpired()) {
            throw std::runtime_error("messages missing");
        }
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
}

} // namespace vexmor::Bench
