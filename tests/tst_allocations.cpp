// A sent or received message allocates no memory on the heap. This program counts allocations with its own malloc,
// which Qt and the plugin use, too.
#include "t93Fixture.h"

static int s_allocations = 0;

extern "C" void* __libc_malloc(std::size_t size); // that of the C library
extern "C" __attribute__((visibility("default"))) void* malloc(std::size_t size) noexcept
{
    ++s_allocations;
    return __libc_malloc(size);
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
        QVERIFY(isTcp ? !tcp.waitFor(1).isEmpty() : udp.waitForReadyRead());
        const QByteArray bytes = frame(0x00, hex("0123 0102030405060708"));
        const QNetworkDatagram reply = udp.receiveDatagram().makeReply(bytes); // to the first request
        constexpr int MESSAGES = 100;
        for (const int limit : {10000, MESSAGES / 20}) { // buffers still grow in the first round
            for (int i = 0; i < MESSAGES; ++i) {
                isTcp ? tcp.link->write(bytes) && tcp.link->flush() : udp.writeDatagram(reply) > 0;
            }
            CCanMessage next;
            int received = 0;
            s_allocations = 0;
            for (const QDeadlineTimer end(5000); received < MESSAGES && !end.hasExpired();) {
                QCoreApplication::processEvents();
                received += can->readMessage(next) == RC_OK ? 1 : 0;
            }
            const int forReceived =
                std::exchange(s_allocations, 0); // Qt's socket may need a few blocks for all of them
            for (int i = 0; i < MESSAGES; ++i) {
                received -= can->writeMessage(next) == RC_OK ? 1 : 0;
            }
            QVERIFY2(limit > MESSAGES || s_allocations == 0, QByteArray::number(s_allocations));
            QVERIFY2(forReceived < limit, QByteArray::number(forReceived));
            QCOMPARE(received, 0); // all messages were received and sent
        }
    }
};

QTEST_GUILESS_MAIN(AllocationsTest)
#include "tst_allocations.moc"
