// An open interface takes any datagrams from its gateway: whatever they hold, what the host reads is a message.
#include "InterfaceT93/interfaceT93.h"
#include "cim/canInterfacePlugin.h"

#include <QCoreApplication>
#include <QPluginLoader>

#include <arpa/inet.h>
#include <sys/socket.h>

#include <cstdlib>
#include <memory>

using namespace vexmor::Cim;

namespace
{
constexpr int PACKETS_A_TURN = 200;

void require(bool isTrue)
{
    if (!isTrue) {
        std::abort();
    }
}

/// The gateway's end: a socket that says what the input says.
struct SGateway {
    SGateway()
    {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        require(bind(socket, reinterpret_cast<sockaddr*>(&address), size) == 0);
        require(getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) == 0);
        auto* const loader = new QPluginLoader(QStringLiteral(CIM_PLUGIN_FILE), &application);
        can.reset(qobject_cast<CCanInterfacePlugin*>(loader->instance())->createInterface());
        auto& driver = static_cast<CInterfaceT93&>(*can);
        CConfigParamT93 param = driver.configParam();
        param.setProtocolType(CCommonInfo::eProtocolUdp);
        param.setIpAddress(QHostAddress(QHostAddress::LocalHost));
        param.setPort(ntohs(address.sin_port));
        driver.setConfigParam(param);
        require(can->openCommunication() == 0);
        drain();
    }
    /// Takes what the host sent; remembers where the host is.
    void drain()
    {
        char bytes[100];
        socklen_t size = sizeof host;
        while (recvfrom(socket, bytes, sizeof bytes, MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&host), &size) > 0) {
        }
    }

    int argumentCount = 1;
    char name[10] = "fuzz";
    char* arguments[2] = {name, nullptr};
    QCoreApplication application{argumentCount, arguments};
    const int socket = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in host{};
    std::unique_ptr<CCanInterface> can;
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count)
{
    static auto* const gateway = new SGateway;
    const std::size_t step = count > 0 && bytes[0] < RM_START_OF_FRAME ? 1U + bytes[0] : RM_BUFFER_SIZE;
    int packets = 0;
    for (std::size_t offset = 0; offset < count && packets < PACKETS_A_TURN; offset += step, ++packets) {
        sendto(gateway->socket, bytes + offset, std::min(step, count - offset), 0,
               reinterpret_cast<const sockaddr*>(&gateway->host), sizeof gateway->host);
    }
    require(QMetaObject::invokeMethod(gateway->can.get(), "onReadyRead"));
    QCoreApplication::sendPostedEvents();
    for (CCanMessage message; gateway->can->readMessage(message) == 0;) {
        require(message.length() <= 8 && message.id().value() <= 0x7FF);
    }
    int percent = 0;
    require(gateway->can->busload(percent) == 0 && percent >= 0 && gateway->can->isOpened());
    gateway->drain();
    return 0;
}
