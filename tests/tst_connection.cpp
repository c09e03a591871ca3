#include "t93Fixture.h"

#include <thread>

#include <netinet/tcp.h>

using namespace vexmor::Test;

namespace
{
/// The requests after a connection: MAC address, version, measuring interval of 1000 ms.
const QByteArray START_UP = hex("430144060d 430141030d 4303a403e80f0d");
const QByteArray RESET_REQUEST = hex("4301 c082 0d");
const QByteArray BAUDRATE_500 = hex("4302 5705 13 0d");
const QByteArray HALF = hex("430b00"); // the beginning of a frame

std::function<void()> s_act;

void actOnce()
{
    if (s_act) {
        std::exchange(s_act, nullptr)();
    }
}

int spy(const CCanInterface&, bool, const CCanMessage& message)
{
    actOnce();
    return static_cast<int>(message.id().value()); // reading it must still be possible
}

/// A translator that returns texts in upper case, and itself reads a text of the interface.
struct SShout : QTranslator {
    explicit SShout(CCanInterface& can) : can(can) {}
    bool isEmpty() const override { return false; }
    QString translate(const char*, const char* text, const char*, int) const override
    {
        return can.errorCodeToString(4).isNull() ? QString() : QString::fromLatin1(text).toUpper();
    }
    CCanInterface& can;
};
} // namespace

/// Opening, closing, resetting, losing and regaining a connection, and actions of a host inside calls from the driver,
/// with the exact order of messages and exact bounds; driverFuzz tests closing, reopening, resetting and deleting
/// there.
class ConnectionTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void resetStandsOnTheWire()
    {
        SInterfaceAtRawGateway host;
        host.received.clear();
        const auto hears = [&host](const QByteArray& bytes) {
            host.link->write(bytes);
            return QTest::qWaitFor([&] { return unread(*host.can).size() == 1; });
        };
        QVERIFY(hears(frame(0x00, hex("0444")) + HALF)); // the reset discards the half frame
        QCOMPARE(host.can->resetCommunication(1), 0);
        QCOMPARE(host.waitFor((RESET_REQUEST + START_UP).size()).toHex(), (RESET_REQUEST + START_UP).toHex());
        QVERIFY(hears(frame(0x00, hex("0123"))));
        // Small messages do not wait for the acknowledgement of the previous one. Among all descriptors of this
        // process, only the plugin's end of the connection has the option.
        int lowDelays = 0;
        for (int file = 0; file < 100; ++file) {
            int value = 0;
            socklen_t size = sizeof value;
            lowDelays += ::getsockopt(file, SOL_TCP, TCP_NODELAY, &value, &size) == 0 && value != 0 ? 1 : 0;
        }
        QCOMPARE(lowDelays, 1);
        QCOMPARE(host.can->closeCommunication(), 0);
        QVERIFY(!host.can->isOpened());
        QVERIFY(!isConnected(*host.can));
        QTRY_COMPARE(host.link->state(), QAbstractSocket::UnconnectedState);
    }

    void baudrates_data()
    {
        // Requests are given in bytes, because the simulator uses the same table of codes as the plugin. Empty: no such
        // rate.
        const auto row = columns<QByteArray>("request");
        for (const char* known : {"50 43025702140d", "100 430257fee80d", "125 43025703150d", "250 43025704120d",
                                  "500 43025705130d", "1000 43025707110d", "0 ", "-125 ", "800 "}) {
            row(QByteArray(known).split(' ').first(), hex(QByteArray(known).split(' ').last()));
        }
    }
    void baudrates()
    {
        const int rate = rowName().toInt();
        QFETCH(QByteArray, request);
        SRawGateway gateway;
        const auto can = makeInterface(gateway.port());
        can->setBaudrate(1000);
        if (request.isEmpty()) {
            QTest::ignoreMessage(QtWarningMsg, qPrintable("Unsupportd baudrate: %1 kbaud"_s.arg(rate)));
            QTest::ignoreMessage(QtWarningMsg, qPrintable("Setting baudrate to %1 failed."_s.arg(rate)));
        }
        QCOMPARE(can->setBaudrate(rate), !request.isEmpty());
        QCOMPARE(can->baudrate(), request.isEmpty() ? 1000 : rate);
        // A store may have any rate.
        configure(*can, [=](auto& param) { param.setCanBaudrate(unsigned(rate)), param.setBusloadMeasureInterval(0); });
        QCOMPARE((can->openCommunication(), can->closeCommunication()), 0); // the next opening sends the same
        bool isProcessed = false;
        QMetaObject::invokeMethod(
            this, [&isProcessed] { isProcessed = true; }, Qt::QueuedConnection);
        const SClock clock;
        QCOMPARE(can->openCommunication(), 0);
        QVERIFY(isProcessed);                                // an event that was pending
        QVERIFY(clock.elapsed() >= 20);                      // a gateway drops requests within 20 ms of the connection
        QVERIFY(!can->setBaudrate(rate == 125 ? 250 : 125)); // refused while the interface is open
        QCOMPARE(can->baudrate(), rate);
        QCOMPARE(can->writeMessage(message(0x123, hex("1122"))), 0);
        const QByteArray sent = START_UP.left(10) + hex("4303a40000e40d") + request + hex("43050001231122570d");
        QCOMPARE(gateway.waitFor(sent.size()).toHex(), sent.toHex());
    }

    void failedOpenLeavesItClosed_data()
    {
        const auto row = columns<int, int, QString>("protocol", "code", "warning");
        row("connection refused", CCommonInfo::eProtocolTcp, 103, "TCP connect (failed:|timeout,) sockErr = 0"_s);
        row("no answer", CCommonInfo::eProtocolTcp, 103, "^TCP connect timeout, sockErr = \\d+$"_s);
        row("local address of another machine", CCommonInfo::eProtocolUdp, 104, {});
        row("unknown protocol", CCommonInfo::eProtocolNa, 105, {});
    }
    void failedOpenLeavesItClosed()
    {
        const SDeafPort deaf;
        const SKeptPort refusing;
        const auto can = makeInterface(rowName() == "no answer" ? deaf.serverPort() : refusing.localPort(),
                                       static_cast<Protocol>(cell<int>("protocol")));
        configure(*can, [](CConfigParamT93& param) { param.setLocalIpAddress(QHostAddress("192.0.2.1"_s)); });
        if (const QString warning = cell<QString>("warning"); !warning.isEmpty()) {
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression(warning));
        }
        QVERIFY(vexmor::CoreLib::Logging::VxLoggingHandler() == nullptr); // that of the previous row was removed
        const CLogRecorder log(30);
        const SClock clock;
        QTEST(can->openCommunication(), "code");
        QCOMPARE(log.lines().join(), cell<int>("code") > 104 ? "50 InterfaceT93/interfaceT93: unknown protocol 2" : "");
        QVERIFY(clock.elapsed() >= (rowName() == "no answer" ? 1000 : 0));
        QVERIFY(clock.elapsed() < 2000);
        CCanMessage none;
        QVERIFY(!can->isOpened());
        QVERIFY(!isConnected(*can));
        QCOMPARE(can->readMessage(none), 2);
    }

    void nothingIsLostOrOvertaken() // the gateway reads whenever the host's message is refused
    {
        SInterfaceAtRawGateway host;
        QByteArray accepted = host.received;
        int refused = 0;
        for (int i = 0; i < 60000; ++i) {
            const CCanMessage one = message(std::uint16_t(i % 0x800), QByteArray::number(i).rightJustified(8, '0'));
            int code = host.can->writeMessage(one);
            for (int tries = 0; code == 108 && tries < 100; code = host.can->writeMessage(one), ++tries, ++refused) {
                QVERIFY(i >= 9000); // the messages of one second of a full bus are accepted
                host.link->waitForReadyRead(10);
                if (i >= 40000) { // before, the host never runs its event loop
                    QCoreApplication::processEvents();
                }
            }
            QCOMPARE(code, 0);
            QVERIFY(refused > 0 || i < 40000); // those of a few seconds are not
            accepted += rmFrame(one);
        }
        QVERIFY(host.waitFor(accepted.size()) == accepted);
        if (CIM_HAS_LINUX_CALLS) { // elsewhere, the next turn of the event loop notices the loss
            host.link.reset();
            QCOMPARE(host.can->writeMessage(message(1)), 0); // the peer's answer to this message breaks the link
            QCOMPARE(host.can->writeMessage(message(1)), 108);
        }
    }

    /// Connect, send more than the gateway reads, lose the link, send, reconnect to the address that was set meanwhile:
    /// earlier messages must not arrive.
    void lostConnectionIsRegained()
    {
        SOpenInterface host;
        QSignalSpy connections(&host.gateway, &CSimGateway::hostConnected);
        host.gateway.setFaults(faulty(&SSimFaults::blackHole));
        int code = 0;
        for (int sent = 0; code == 0 && sent < 1000000; ++sent) {
            code = host.can->writeMessage(message(0x111, hex("0001020304050607")));
        }
        QCOMPARE(code, 108); // the waiting messages are bounded
        QVERIFY(host.lose());
        QVERIFY(!QTcpSocket().bind(QHostAddress::LocalHost, host.gateway.port(), QTcpSocket::DontShareAddress)); // kept
        QVERIFY(host.can->isOpened());
        QVERIFY(!isConnected(*host.can));
        QCOMPARE(host.can->writeMessage(message(0x111)), 109);
        for (const int check : {0, 2, -1, 1}) {
            QCOMPARE(host.can->resetCommunication(check), check == 1 ? 109 : 0);
        }
        QCOMPARE(host.errorNumbers(), QList<int>{0}); // the next error comes from the event loop

        // The first attempts are refused; further attempts follow.
        (void)QTest::qWaitFor([&] { return !connections.isEmpty(); }, 3500);
        QVERIFY(connections.isEmpty());
        SRawGateway other;
        configure(*host.can, [&](CConfigParamT93& param) { param.setPort(other.port()); });
        QTRY_VERIFY_WITH_TIMEOUT(isConnected(*host.can), 4000);
        // Each connection is handled like the first one, with a pause before the requests.
        const SClock clock;
        QVERIFY(QMetaObject::invokeMethod(host.can.get(), "onSocketConnected") && clock.elapsed() >= 20);
        QCOMPARE(host.can->writeMessage(message(0x222)), 0);
        const QByteArray sent = START_UP + START_UP + rmFrame(message(0x222));
        QCOMPARE(other.waitFor(sent.size()).toHex(), sent.toHex());
        QCOMPARE(host.errorNumbers(), (QList<int>{0, 4}));
    }

    void lossIsRegainedAtOnceButOnceInAnInterval()
    {
        SOpenInterface host;
        const auto isRegained = [&] { // within half of the interval between two attempts
            const QSignalSpy connected(&host.gateway, &CSimGateway::hostConnected);
            host.gateway.dropLinks();
            return QTest::qWaitFor([&] { return !connected.isEmpty(); }, 1500);
        };
        host.gateway.sendRaw(rmFrame(message(1)) + rmFrame(message(2)) + HALF); // the loss cuts off the last frame
        QCOMPARE(host.receive(1), QList<CCanMessage>{message(1)});
        QVERIFY(isRegained());
        host.bus.send(message(3));
        QCOMPARE(host.receive(2), (QList<CCanMessage>{message(2), message(3)}));
        QTest::qWait(3500); // the interval of that attempt is over
        QVERIFY(isRegained());
        host.can->closeCommunication();
        QTRY_COMPARE(host.gateway.tcpHostCount(), 0);
        QCOMPARE(host.can->openCommunication(), 0);
        QTRY_COMPARE(host.gateway.tcpHostCount(), 1);
        // The interval of the last attempt is not over, but that attempt was before the close.
        QVERIFY(isRegained());
        // A gateway that closes connections at once does not keep the host busy.
        QVERIFY(!isRegained());
        QTRY_VERIFY_WITH_TIMEOUT(isConnected(*host.can), 4000);
        QCOMPARE(host.errorNumbers(), (QList<int>{0, 0, 0, 0})); // each loss is reported once
    }

    void reopenedInterfaceBeginsAnew_data() { rows({"TCP", "UDP"}); }
    void reopenedInterfaceBeginsAnew()
    {
        SOpenInterface host(rowProtocol());
        // Its requests stay unanswered, so that the first received frame is a message.
        host.gateway.setFaults(faulty(&SSimFaults::mute));
        host.gateway.sendRaw(frame(0x41, hex("00000203")) + frame(0x00, hex("0444")) + frame(0x00, hex("0445")) + HALF);
        QCOMPARE(host.receive(1).size(), 1);
        host.can->closeCommunication();
        host.gateway.dropLinks();
        QCOMPARE(host.can->openCommunication(), 0);
        QTRY_COMPARE(host.gateway.tcpHostCount() + host.gateway.udpHostCount(), 1);
        host.bus.send(message(0x123));
        host.gateway.sendFrame(RM_CMD_DEVICE_ID, "T93 X SW08.08\x01\x02");
        QVERIFY(host.isAllHeard());
        QCOMPARE(unread(*host.can), QList<CCanMessage>{message(0x123)});
        QCOMPARE(host.can->commonInfo().firmwareVersion(), "1.05"_s);
    }

    void ownDatagramsAreSkipped_data()
    {
        const auto row = columns<bool, QString, bool>("bindAny", "localAddress", "received");
        row("bound to the sender's address", false, "127.0.0.1"_s, true);
        row("bound to any, from the own address", true, "127.0.0.1"_s, false);
        row("bound to any, from another address", true, "127.0.0.2"_s, true);
    }
    void ownDatagramsAreSkipped()
    {
        QUdpSocket gateway;
        QVERIFY(gateway.bind(QHostAddress(QHostAddress::LocalHost)));
        const auto can = makeInterface(gateway.localPort(), CCommonInfo::eProtocolUdp);
        can->setProperty("UdpBindAnyIp", cell<bool>("bindAny"));
        can->setProperty("LocalIPAddress", cell<QString>("localAddress"));
        QSignalSpy errors(can.get(), SIGNAL(interfaceError(int)));
        QCOMPARE(can->openCommunication(), 0);
        QVERIFY(isConnected(*can));
        QTRY_VERIFY(gateway.hasPendingDatagrams());
        const QNetworkDatagram request = gateway.receiveDatagram();
        QCOMPARE(request.data().toHex(), START_UP.left(5).toHex()); // one frame per datagram
        // Two frames in two datagrams, cut inside the first one; then a status from another address, which is never
        // skipped.
        const QByteArray frames = frame(0x00, hex("012355")) + frame(0x00, hex("0124"));
        gateway.writeDatagram(request.makeReply(frames.left(4)));
        gateway.writeDatagram(request.makeReply(frames.mid(4)));
        QUdpSocket elsewhere;
        QVERIFY(elsewhere.bind(QHostAddress("127.0.0.3"_s)));
        const auto sayFromElsewhere = [&](const QByteArray& data) {
            elsewhere.writeDatagram({data, request.senderAddress(), quint16(request.senderPort())});
        };
        sayFromElsewhere(frame(0x42, hex("01")));
        QTRY_COMPARE(errorNumbers(errors), QList<int>{5});
        const QList<CCanMessage> both{message(0x123, hex("55")), message(0x124)};
        QCOMPARE(unread(*can), cell<bool>("received") ? both : QList<CCanMessage>());
        sayFromElsewhere("");
        QTRY_COMPARE(errorNumbers(errors), (QList<int>{5, 3})); // an empty datagram is a failed read
        QVERIFY(can->isOpened());
        configure(*can, [](CConfigParamT93& param) { param.setPort(0); }); // the kernel sends nothing there
        QCOMPARE(can->writeMessage(message(0x123)), 108);
    }

    void oneTurnOfTheEventLoopIsBounded() // even if each message causes the next one
    {
        SOpenInterface host(CCommonInfo::eProtocolUdp, withoutBusload());
        QVERIFY(host.isAllHeard());
        host.can->setSpyHandler(spy);
        int shown = 0;
        int shownInOneTurn = 0;
        std::function<void()> go = [&] {
            if (shown == 0) {
                QTimer::singleShot(0, this, [&] { shownInOneTurn = shown; });
            }
            s_act = ++shown < 1024 ? go : nullptr;
            host.bus.send(message(1));
        };
        s_act = go;
        host.bus.send(message(1));
        QTRY_COMPARE(shown, 1024);
        QTRY_COMPARE(shownInOneTurn, 256);
        QVERIFY(host.isAllHeard()); // without a read error in the turn that finds nothing
        QCOMPARE(host.errorNumbers(), (QList<int>{5, 5}));
    }

    void readsAheadIsBounded() // reading ahead while a spy handler runs the event loop
    {
        SInterfaceAtRawGateway host;
        host.can->setSpyHandler(spy);
        bool isAllTaken = true;
        s_act = [&] {
            isAllTaken = QTest::qWaitFor([&] { return host.link->bytesToWrite() == 0; }, 1000);
            host.can->closeCommunication();
        };
        host.link->write(rmFrame(message(1)).repeated(1 << 23)); // far more than the kernel buffers
        QTRY_VERIFY(!host.can->isOpened());
        QVERIFY(!isAllTaken);
    }

    void linkIsLostInTheSpyHandler() // the handler runs the event loop
    {
        constexpr int MESSAGES = 27500; // more pieces than one turn of the event loop takes
        SInterfaceAtRawGateway host;
        QList<CCanMessage> read;
        const QSignalSpy errors(host.can.get(), SIGNAL(interfaceError(int)));
        host.can->setSpyHandler(spy);
        const auto isLost = [&] { return errorNumbers(errors).contains(0); };
        // Called for each message, which must be readable, and for each error up to error 0.
        std::function<void()> go = [&] {
            const QList<CCanMessage> now = unread(*host.can);
            QCOMPARE(now.size(), errors.isEmpty() ? 1 : 0);
            read += now;
            QCoreApplication::processEvents();
            s_act = isLost() ? nullptr : go;
        };
        s_act = go;
        connect(host.can.get(), SIGNAL(interfaceError(int)), this, SLOT(onInterfaceError(int)));
        QByteArray stream;
        QList<CCanMessage> sent;
        for (int number = 0; number < MESSAGES; ++number) {
            sent.append(message(0x111, QByteArray::number(number).rightJustified(8, '0')));
            stream += rmFrame(sent.last());
        }
        host.link->write(stream + frame(0x42, hex("01")));
        host.link->disconnectFromHost();
        QTRY_VERIFY(isLost());
        QVERIFY(read == sent);
        QCOMPARE(errorNumbers(errors), (QList<int>{5, 0}));
        QTRY_VERIFY(isConnected(*host.can)); // the connection is re-established
    }

    void textsWhileTheLanguageChanges()
    {
        constexpr int CHANGES = 40000;
        const std::unique_ptr<CCanInterface> can(plugin().createInterface());
        const QString quiet = can->interfaceErrorToString(0);
        std::atomic<int> wrong{0};
        SShout shout(*can);
        std::atomic<bool> isEnding{false};
        std::thread reader([&] {
            while (!isEnding) {
                const QString now = can->interfaceErrorToString(0);
                wrong += now == quiet || now == quiet.toUpper() ? 0 : 1;
            }
        });
        for (int i = 0; i < CHANGES; ++i) {
            i % 2 == 0 ? QCoreApplication::installTranslator(&shout) : QCoreApplication::removeTranslator(&shout);
        }
        isEnding = true;
        reader.join();
        QCOMPARE(wrong.load(), 0);
        QCOMPARE(can->interfaceErrorToString(0), quiet);
    }

    void onInterfaceError(int /*error*/) { actOnce(); }
};

QTEST_GUILESS_MAIN(ConnectionTest)
#include "tst_connection.moc"
