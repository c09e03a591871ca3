#include "bench/pluginLink.h"

#include "bench/eventLoop.h"
#include "cim/canInterfacePlugin.h"

#include <QCoreApplication>
#include <QPluginLoader>

#include <stdexcept>

namespace vexmor::Bench
{
namespace
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

void check(int code, Cim::CCanInterface& canInterface)
{
    if (code != 0) {
        throw std::runtime_error(canInterface.errorCodeToString(code).toStdString());
    }
}

Cim::CCanMessage messageOf(const SMessage& message)
{
    auto* const data = const_cast<std::uint8_t*>(message.data.data()); // the constructor only reads them
    return Cim::CCanMessage(Cim::CCanId::fromValue(message.id), static_cast<unsigned char>(message.data.size()), data);
}
} // namespace

CPluginLink::CPluginLink(EProtocol protocol, std::uint16_t port, bool bindAny, const QString& address)
    : m_interface(plugin().createInterface())
{
    m_interface->setProperty("Protocol", QLatin1String(protocol == EProtocol::eTcp ? "TCP" : "UDP"));
    m_interface->setProperty("IPAddress", address);
    m_interface->setProperty("Port", port);
    m_interface->setProperty("CanBaudrate", 1000);
    m_interface->setProperty("UdpBindAnyIp", bindAny);
}

void CPluginLink::open()
{
    check(m_interface->openCommunication(), *m_interface);
}

void CPluginLink::close()
{
    m_interface->closeCommunication();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); // of the socket
}

void CPluginLink::send(const SMessage& message)
{
    check(m_interface->writeMessage(messageOf(message)), *m_interface);
}

void CPluginLink::sendJoined(const SMessage& message, int count)
{
    for (int i = 0; i < count; ++i) {
        send(message);
    }
}

void CPluginLink::receive(int count)
{
    Cim::CCanMessage message;
    waitUntil(
        [&] {
            while (count > 0 && read(message)) {
                --count;
            }
            return count == 0;
        },
        "messages missing");
}

} // namespace vexmor::Bench
