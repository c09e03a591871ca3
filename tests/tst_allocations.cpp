// A sent or received message allocates no memory on the heap. This program counts allocations with its own malloc,
// which Qt and the plugin use, too.
#include "t93Fixture.h"

static int s_allocations = 0;

// These functions count, and call those of the C library.
extern "C" {
#define CIM_COUNTED(name, parameters, arguments)                                                                       \
    void* __libc_##name parameters;                                                                                    \
    __attribute__((visibility("default"))) void* name parameters noexcept                                              \
    {                                                                                                                  \
        ++s_allocations;                                                                                               \
        return __libc_##name arguments;                                                                                \
    }
CIM_COUNTED(malloc, (std::size_t size), (size))
CIM_COUNTED(calloc, (std::size_t count, std::size_t size), (count, size))
CIM_COUNTED(realloc, (void* block, std::size_t size), (block, size))
}

using namespace vexmor::Test;

class AllocationsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void noneForAMessage_data() { rows({"TCP", "UDP", "UDP, bound to any address"}); }
    void noneForAMessage()
    {
        SRawGateway tcp;
        QUdpSocket udp;
        udp.bind(QHostAddress(QHostAddress::LocalHost));
        const bool isTcp = rowProtocol() == CCommonInfo::eProtocolTcp;
        const auto can = makeInterface(isTcp ? tcp.port() : udp.localPort(), rowProtocol());
        can->setProperty("UdpBindAnyIp", rowName().endsWith("any address"));
        can->setProperty("BusloadPollTime", 60000);
        QCOMPARE(can->openCommunication(), RC_OK);
        constexpr int MESSAGES = 100; // Qt's socket may allocate a few blocks for all of them
        const QByteArray bytes = frame(0x00, hex("0123 0102030405060708"));
        QVERIFY(isTcp ? !tcp.waitFor(1).isEmpty() : udp.waitForReadyRead());
        quint16 hostPort = 0; // the sender of the first request
        udp.readDatagram(nullptr, 0, nullptr, &hostPort);
        const auto arrive = [&] {
            for (int i = 0; i < MESSAGES; ++i) {
                isTcp ? tcp.link->write(bytes) && tcp.link->flush()
                      : udp.writeDatagram(bytes, QHostAddress(QHostAddress::LocalHost), hostPort) > 0;
            }
        };
        CCanMessage next;
        int received = 0;
        const auto receive = [&] {
            const QDeadlineTimer end(5000);
            while (received < MESSAGES && !end.hasExpired()) {
                QCoreApplication::processEvents();
                received += can->readMessage(next) == RC_OK ? 1 : 0;
            }
        };
        for (const bool isWarm : {false, true}) { // buffers still grow in the first round
            arrive();
            s_allocations = 0;
            receive();
            const int forReceived = std::exchange(s_allocations, 0);
            for (int i = 0; i < MESSAGES; ++i) {
                received -= can->writeMessage(next) == RC_OK ? 1 : 0;
            }
            QVERIFY2(!isWarm || s_allocations == 0, QByteArray::number(s_allocations));
            QVERIFY2(!isWarm || forReceived < MESSAGES / 20, QByteArray::number(forReceived));
            QCOMPARE(received, 0); // all messages were received and sent
        }
    }
};

QTEST_GUILESS_MAIN(AllocationsTest)
#include "tst_allocations.moc"
