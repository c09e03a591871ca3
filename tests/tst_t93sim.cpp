#include "sim/simDetection.h"
#include "sim/simTraffic.h"
#include "t93Fixture.h"

using namespace vexmor::Test;

using Change = void (*)(SSimFaults&);
Q_DECLARE_METATYPE(Change)

namespace
{
const QByteArray GOOD = frame(0x00, hex("01234455"));

/// A host without the plugin, which receives the gateway's bytes.
struct SPlainHost {
    explicit SPlainHost(std::uint16_t port)
    {
        socket.connectToHost(QHostAddress(QHostAddress::LocalHost), port);
        connected = socket.waitForConnected(1000);
    }
    QByteArray read(int size, int limitMs = 2000)
    {
        (void)QTest::qWaitFor([&] { return socket.bytesAvailable() >= size; }, limitMs);
        return socket.readAll();
    }
    QTcpSocket socket;
    bool connected = false;
};
} // namespace

/// The simulated gateway, and the program t93sim.
class T93SimTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void answersToTheByte_data()
    {
        const auto row = columns<QByteArray, QByteArray>("request", "reply");
        row("MAC address", hex("430144060d"), hex("4307 44 020000543933 5c 0d"));
        row("firmware", hex("430141030d"), hex("4305 41 00000105 03 0d"));
        row("identification", hex("430140020d"), frame(0x40, "T93 SIM SW02.03" + hex("0001")));
        row("bus load interval", hex("4303a403e80f0d"), hex("4303a403e80f0d"));
        row("bus load of an idle bus", hex("430147050d"), hex("4303 47 0000 07 0d"));
        row("interval of one byte", hex("4302a403e60d 430141030d"), hex("4305410000010503 0d"));
        row("bit rate", hex("430257fee80d"), hex("430257fee80d"));
        row("unknown bit rate", hex("430257091f0d"), hex("430257091f0d"));
        row("nothing to a reset", hex("4301c0820d 430141030d"), hex("4305410000010503 0d"));
    }
    void answersToTheByte()
    {
        QFETCH(QByteArray, request);
        QFETCH(QByteArray, reply);
        SGateway one;
        SPlainHost host(one.gateway.port());
        host.socket.write(request);
        QCOMPARE(host.read(reply.size()).toHex(), reply.toHex());
        QUdpSocket udp;
        QVERIFY(udp.bind(QHostAddress(QHostAddress::LocalHost)));
        udp.writeDatagram(request, one.gateway.address(), one.gateway.port());
        QTRY_VERIFY(udp.hasPendingDatagrams());
        QCOMPARE(udp.receiveDatagram().data().toHex(), reply.toHex());
        QCOMPARE(one.bus.baudrate(), rowName() == "bit rate" ? 100U : 500U);
    }

    void onlySoManyHostsAreServed()
    {
        SGateway one;
        auto first = std::make_unique<SPlainHost>(one.gateway.port());
        const SPlainHost second(one.gateway.port()); // connects before the first one is accepted
        QTRY_COMPARE(second.socket.state(), QAbstractSocket::UnconnectedState);
        QCOMPARE(one.gateway.tcpHostCount(), 1);
        QVERIFY(!SPlainHost(one.gateway.port()).connected);
        first.reset();
        QTRY_COMPARE(one.gateway.tcpHostCount(), 0);
        QVERIFY(SPlainHost(one.gateway.port()).connected);

        QUdpSocket udp[2]; // two hosts of one PC: the later one replaces the other
        for (QUdpSocket& host : udp) {
            host.writeDatagram(GOOD, one.gateway.address(), one.gateway.port());
            QTRY_COMPARE(one.atGateway.size(), host.localPort() == udp[0].localPort() ? 1 : 2);
        }
        QCOMPARE(one.gateway.udpHostCount(), 1);
        SSimFaults faults;
        faults.cutAt = rmFrame(message(1)).size(); // cuts at the end: still one datagram per message
        one.gateway.setFaults(faults);
        for (const std::uint16_t id : {1, 2}) {
            one.bus.send(message(id));
            QTRY_VERIFY(udp[1].hasPendingDatagrams());
            QCOMPARE(udp[1].receiveDatagram().data(), rmFrame(message(id)));
        }
        QVERIFY(!udp[0].hasPendingDatagrams());
    }

    void portIsNotShared()
    {
        QUdpSocket other;
        QVERIFY(other.bind(QHostAddress(QHostAddress::LocalHost), 0, QAbstractSocket::ShareAddress));
        SGateway one;
        QVERIFY(one.gateway.listen(QHostAddress(QHostAddress::LocalHost), other.localPort()));
    }

    void hostThatDoesNotReadIsBounded()
    {
        constexpr int MESSAGES = 1'000'000;
        constexpr int REQUESTS = 40'000; // with long answers
        SGateway one;
        SPlainHost host(one.gateway.port());
        host.socket.setReadBufferSize(1);
        int lost = 0;
        connect(&one.gateway, &CSimGateway::frameLost, [&lost] { ++lost; });
        QTRY_COMPARE(one.gateway.tcpHostCount(), 1);
        for (int i = 0; i < MESSAGES; ++i) {
            one.bus.send(message(0x123, hex("4455")));
        }
        const int kept = (MESSAGES - lost) * GOOD.size();
        QVERIFY2(kept >= 0x100000 && kept < 0x600000, QByteArray::number(kept)); // includes the kernel's buffers
        host.socket.setReadBufferSize(0);
        QCOMPARE(host.read(kept, 30000).size(), kept);
        one.bus.send(message(0x123, hex("4455")));
        one.bus.send(message(0x123, hex("4455")));
        const QByteArray rest = frame(RM_CMD_STATUS, hex("01")) + GOOD + GOOD; // a single report of the loss
        QCOMPARE(host.read(rest.size()).toHex(), rest.toHex());

        SSimIdentity wordy;
        wordy.deviceText = QByteArray(240, 'x');
        SGateway other(wordy); // requests are not read until their answers fit
        SPlainHost asking(other.gateway.port());
        asking.socket.setReadBufferSize(1);
        QSignalSpy lostAnswers(&other.gateway, &CSimGateway::frameLost);
        asking.socket.write(frame(RM_CMD_DEVICE_ID).repeated(REQUESTS));
        QVERIFY(!lostAnswers.wait(500));
        asking.socket.setReadBufferSize(0);
        const int answers = REQUESTS * frame(RM_CMD_DEVICE_ID, wordy.deviceText + "id").size();
        QCOMPARE(asking.read(answers, 30000).size(), answers);
    }

    void requestForOneAddressIsAnsweredThere()
    {
        SGateway one;
        SGateway two;
        listenOn(two.gateway, QHostAddress("127.0.0.2"_s));
        const quint16 port = SServer().serverPort();
        CSimDetection detection;
        QVERIFY(!detection.listen(port));
        detection.addGateway(one.gateway);
        detection.addGateway(two.gateway);
        QUdpSocket host;
        host.writeDatagram(ddtIdentRequest(), two.gateway.address(), port);
        QTRY_VERIFY(host.hasPendingDatagrams());
        QCOMPARE(host.receiveDatagram().senderAddress().toIPv4Address(), two.gateway.address().toIPv4Address());
    }

    void misbehaves_data()
    {
        // The gateway sends a frame, "raw" and a frame. Rows have the number of bytes before "raw", and all bytes.
        const auto row = columns<int, QByteArray, Change>("first", "bytes", "change");
        const int size = GOOD.size();
        const QByteArray wrongChecksum = GOOD.left(size - 2) + char(~GOOD[size - 2]) + '\r';
        const QByteArray wrongEnd = GOOD.left(size - 1) + '\n';
        const QByteArray after = hex("0043") + GOOD;
        row("checksum", size, GOOD + "raw" + wrongChecksum, [](auto& faults) { faults.wrongChecksumEvery = 2; });
        row("end marker", size, GOOD + "raw" + wrongEnd, [](auto& faults) { faults.missingEndEvery = 2; });
        row("garbage", size + 2, after + "raw" + after, [](auto& faults) { faults.garbage = hex("0043"); });
        row("cut", 3, GOOD + "raw" + GOOD, [](auto& faults) { faults.cutAt = 3; });
        row("merged", 0, "raw" + GOOD + GOOD, [](auto& faults) { faults.mergeCount = 2; });
        row("black hole", 0, {}, [](auto& faults) { faults.blackHole = true; });
    }
    void misbehaves()
    {
        QFETCH(QByteArray, bytes);
        SSimFaults faults;
        cell<Change>("change")(faults);
        SGateway one;
        one.gateway.setFaults(faults);
        SPlainHost host(one.gateway.port());
        QTRY_COMPARE(one.gateway.tcpHostCount(), 1);
        one.bus.send(message(0x123, hex("4455")));
        QTRY_COMPARE(host.socket.bytesAvailable(), qint64(cell<int>("first")));
        one.gateway.sendRaw("raw"); // is sent before a frame that waits to be merged
        one.bus.send(message(0x123, hex("4455")));
        QCOMPARE(host.read(qMax(bytes.size(), 1)).toHex(), bytes.toHex());
    }

    void measuresTheLoadOfItsBus()
    {
        SGateway one;
        SPlainHost host(one.gateway.port());
        const QByteArray request = frame(RM_CMD_BUSLOAD), idle = frame(RM_CMD_BUSLOAD, hex("0000"));
        const QByteArray interval = frame(RM_CMD_BUSLOAD_INTERVAL, hex("0064"));
        host.socket.write(interval);
        QCOMPARE(host.read(interval.size()), interval);
        const auto isMeasured = [&] {
            // Far more messages than the answer can count; they are not delivered to this host.
            for (int i = 0; i < 40000; ++i) {
                one.bus.send(message(0x123, QByteArray(8, 'x')), &one.gateway);
            }
            host.socket.write(request);
            return host.read(idle.size()) == frame(RM_CMD_BUSLOAD, hex("ffff"));
        };
        QTRY_VERIFY(isMeasured());
        host.socket.write(frame(RM_CMD_RESET) + request);
        QCOMPARE(host.read(idle.size()).toHex(), idle.toHex());
    }

    void everyRoundOfALoopTakesItsTime()
    {
        const QTemporaryDir folder;
        const QString log = writeFile(folder, "(1.00) can0 123#\n(1.05) can0 124#\n");
        CSimBus bus;
        CSimReplay replay(bus);
        QVERIFY(!replay.open(log, 1, true));
        const SClock clock;
        replay.start();
        QTRY_VERIFY(replay.sent() >= 6); // three rounds of 50 ms each
        QVERIFY2(clock.elapsed() >= 150, qPrintable(QString::number(clock.elapsed())));
    }

    void hostsThatAreTooManyLeaveTurnsForTheRest_data() { rows({"generated", "replayed"}); }
    void hostsThatAreTooManyLeaveTurnsForTheRest()
    {
        const QTemporaryDir folder;
        CSimBus bus;
        CSimReplay replay(bus);
        CSimGenerator generator(bus);
        QTimer turns;
        int inTurn = 0, most = 0, count = 0;
        connect(&turns, &QTimer::timeout, [&] { inTurn = 0; });
        connect(&bus, &CSimBus::messageSent, [&] {
            QThread::msleep(5); // the time to send a message to a thousand hosts
            most = qMax(most, ++inTurn);
            ++count;
        });
        turns.start(0);
        if (rowName() == "generated") {
            generator.start(1000);
        } else {
            QVERIFY(!replay.open(writeFile(folder, QByteArray("(1.0) a 123#\n").repeated(50)), 1, false));
            replay.start();
        }
        QTRY_VERIFY(count >= 50);
        QVERIFY2(most <= 5, qPrintable(QString::number(most))); // messages of 5 ms each, in a turn of 20 ms
    }

    void framesForASlowLinkAreBounded_data() { rows({"TCP", "UDP"}); }
    void framesForASlowLinkAreBounded()
    {
        SGateway one;
        SSimFaults faults;
        faults.cutAt = 3;
        one.gateway.setFaults(faults);
        const SPlainHost tcp(one.gateway.port());
        QTRY_COMPARE(one.gateway.tcpHostCount(), 1);
        QUdpSocket udp;
        if (rowName() == "UDP") {
            one.gateway.dropLinks();
            udp.writeDatagram(frame(RM_CMD_MAC_ADDRESS), one.gateway.address(), one.gateway.port());
            QTRY_COMPARE(one.gateway.udpHostCount(), 1);
        }
        const QSignalSpy lost(&one.gateway, &CSimGateway::frameLost);
        constexpr int COUNT = 150000;
        for (int i = 0; i < COUNT; ++i) {
            one.bus.send(message(0x123, hex("4455")));
        }
        const qint64 waiting = (COUNT - lost.count()) * qint64(GOOD.size());
        QVERIFY2(waiting < CRmLink::SEND_LIMIT, qPrintable(QString::number(waiting)));
        QVERIFY(waiting > 0);
    }

    void options_data()
    {
        const auto addRow = columns<int, QByteArray>("exitCode", "text");
        addRow("--seconds 0.01 --port 65535 --firmware 255.255", 0, "gateway 1: 127.0.0.1:65535 .*\nmessages: 0 .*\n");
        addRow("--seconds 0.01 --port 0 --gateways 3", 0, "(gateway \\d: 127.0.0.1:\\d{4,5} .*\n){3}messages: 0 .*\n");
        const auto row = [&](const QByteArray& typed, int exitCode) { addRow(typed, exitCode, "t93sim: .+\n"); };
        row("--port " + QByteArray::number(m_server.serverPort()), 1); // the port is in use
        row("--port 0 --replay <(printf '(1.0) can0 1#\nnone\n')", 2); // the wrong line is found at the start
        row("--port 0 --loop --start-now --replay LOG | { read -r; echo none >> LOG; cat; }; exit ${PIPESTATUS[0]}", 2);
        for (const char* output : {"--help > /dev/full", "--port 0 > /dev/full", "--port 0 >&-"}) {
            row(output, 1);
        }
        const QByteArray wrong =
            "--seconds nan|--port 70000|--baud 33|--replay /nonexistent|--mac 01:02|--firmware 2|--status 256|"
            "--garbage 1g|--address 300.1.1.1|--gateways 0|--port 65535 --gateways 2|--replay /dev/null|"
            "--endpoint tcp|--endpoint tcp-server:70000|--detect --endpoint tcp-server:1:2|--detect-port "
            "0|--loop|--port 0 --ident-cut 3|"
            "--port 0 --status-every 5|--refuse --black-hole|--refuse --mute|--refuse --drop-after 5|"
            "--black-hole --cut 3|--mute --delay 5";
        for (const QByteArray& options : wrong.split('|')) {
            row(options, 2);
        }
    }
    void options()
    {
        const QTemporaryDir folder;
        const QByteArray log = writeFile(folder, "(1.0) a 1#\n").toLocal8Bit();
        const SOutcome outcome = run(QStringLiteral(CIM_T93SIM " ") + QLatin1String(rowName().replace("LOG", log)));
        QTEST(outcome.exitCode, "exitCode");
        const QString text = QString::fromLocal8Bit(outcome.exitCode == 0 ? outcome.out : outcome.err);
        const QString expected = QRegularExpression::anchoredPattern(QLatin1String(cell<QByteArray>("text")));
        QVERIFY2(QRegularExpression(expected).match(text).hasMatch(), qPrintable(text));
    }

    void everyConnectionIsServedAndDropped()
    {
        QProcess program;
        program.start(QStringLiteral(CIM_T93SIM), list("--port 0 --status 0 --status-every 10 --drop-after 200"_s));
        QVERIFY(program.waitForReadyRead());
        const auto port = program.readLine().split(' ').at(2).split(':').at(1).toUShort();
        for (int round = 0; round < 2; ++round) {
            SPlainHost host(port);
            const QByteArray report = frame(RM_CMD_STATUS, hex("00"));
            QCOMPARE(host.read(report.size()).left(report.size()), report);
            QTRY_COMPARE(host.socket.state(), QAbstractSocket::UnconnectedState);
        }
        program.terminate();
        QVERIFY(program.waitForFinished());
    }

private:
    SServer m_server;
};

QTEST_GUILESS_MAIN(T93SimTest)
#include "tst_t93sim.moc"
