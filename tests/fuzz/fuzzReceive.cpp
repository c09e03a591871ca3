// An open interface takes any datagrams from its gateway: whatever they hold, what the host reads is a message.
#include "fuzz/require.h"
#include "t93Fixture.h"

using namespace vexmor::Test;

namespace
{
struct SSetUp {
    SSetUp()
    {
        gateway.bind(QHostAddress(QHostAddress::LocalHost));
        can = makeInterface(gateway.localPort(), CCommonInfo::eProtocolUdp);
        require(can->openCommunication() == RC_OK);
        require(gateway.waitForReadyRead(1000));
    }
    int argc = 0;
    QCoreApplication application{argc, nullptr};
    QUdpSocket gateway;
    std::unique_ptr<CCanInterface> can;
    QHostAddress host;
    quint16 port = 0;
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count)
{
    static auto* const setUp = new SSetUp;
    CCanInterface& can = *setUp->can;
    for (char request[100]; setUp->gateway.readDatagram(request, sizeof request, &setUp->host, &setUp->port) >= 0;) {
    }
    const std::size_t step = count > 0 && bytes[0] < RM_START_OF_FRAME ? 1U + bytes[0] : RM_BUFFER_SIZE;
    for (std::size_t offset = 0; offset < count; offset += step) {
        setUp->gateway.writeDatagram(reinterpret_cast<const char*>(bytes + offset),
                                     static_cast<qint64>(std::min(step, count - offset)), setUp->host, setUp->port);
    }
    QMetaObject::invokeMethod(&can, "onReadyRead");
    QCoreApplication::sendPostedEvents();
    int percent = 0;
    require(can.busload(percent) == RC_OK);
    require(percent >= 0);
    require(can.isOpened());
    for (CCanMessage next; can.readMessage(next) == RC_OK;) {
        require(next.length() <= 8);
        require(next.id().value() <= 0x7FF);
    }
    return 0;
}
