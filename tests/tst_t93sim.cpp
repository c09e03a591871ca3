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
    void answersToTheByte_data() { rows({"TCP", "UDP"}); }
    void answersToTheByte()
    {
        // MAC address, firmware version, identification, interval of the bus load, load of an idle bus; a short
        // interval and a reset, which are not answered; a bit rate, an unknown bit rate.
        const QByteArray requests =
            hex("430144060d 430141030d 430140020d 4303a403e80f0d 430147050d 4302a403e60d 4301c0820d "
                "430257fee80d 430257091f0d");
        const QByteArray answers = hex("430744 020000543933 5c0d 430541 00000105 030d") +
                                   frame(0x40, "T93 SIM SW02.03" + hex("0001")) +
                                   hex("4303a403e80f0d 4303470000070d 430257fee80d 430257091f0d");
        SGateway one;
        SPlainHost tcp(one.gateway.port());
        QUdpSocket udp;
        udp.connectToHost(one.gateway.address(), one.gateway.port());
        QAbstractSocket& host = rowName() == "TCP" ? static_cast<QAbstractSocket&>(tcp.socket) : udp;
        host.write(requests);
        QByteArray seen;
        (void)QTest::qWaitFor([&] { return (seen += host.readAll()).size() >= answers.size(); });
        QCOMPARE(seen.toHex(' '), answers.toHex(' '));
        QCOMPARE(one.bus.baudrate(), 100U);
    }

    void onlySoManyHostsAreServed()
    {
        SGateway one;
        auto first = std::make_unique<SPlainHost>(one.gateway.port());
        const SPlainHost second(one.gateway.port()); // connects before the first one is accepted
        QTRY_COMPARE(second.socket.state(), QAbstractSocket::UnconnectedState);
        QCOMPARE(one.gateway.tcpHostCount(), 1);
        one.gateway.setMaxClients(2);
        one.gateway.setMaxClients(0); // counts as 1
        QVERIFY(!SPlainHost(one.gateway.port()).connected);
        first.reset();
        QTRY_COMPARE(one.gateway.tcpHostCount(), 0);
        QVERIFY(SPlainHost(one.gateway.port()).connected);
    }

    void udpHostsAreBounded()
    {
        SGateway one;
        one.gateway.setMaxClients(2);
        QUdpSocket udp[3]; // three hosts of one PC: the last one replaces the first
        int hosts = 0;
        const QSignalSpy left(&one.gateway, &CSimGateway::hostDisconnected);
        for (QUdpSocket& host : udp) {
            host.writeDatagram(GOOD, one.gateway.address(), one.gateway.port());
            ++hosts;
            QTRY_COMPARE(one.atGateway.size(), hosts);
        }
        QVERIFY(one.gateway.udpHostCount() == 2 && left.size() == 1);
        SSimFaults faults;
        faults.cutAt = rmFrame(message(1)).size(); // cuts at the end: still one datagram per message
        one.gateway.setFaults(faults);
        for (const std::uint16_t id : {1, 2}) {
            one.bus.send(message(id));
            for (QUdpSocket* const host : {&udp[1], &udp[2]}) {
                QTRY_VERIFY(host->hasPendingDatagrams());
                QCOMPARE(host->receiveDatagram().data(), rmFrame(message(id)));
            }
        }
        QVERIFY(!udp[0].hasPendingDatagrams());
        const QSignalSpy lost(&one.gateway, &CSimGateway::frameLost);
        constexpr int COUNT = 150000; // longer frames, which are cut and wait for each other
        for (int i = 0; i < COUNT; ++i) {
            one.bus.send(message(0x123, hex("4455")));
        }
        const qint64 waiting = (2 * COUNT - lost.count()) * qint64(GOOD.size());
        QVERIFY2(waiting > 0 && waiting < 2 * CRmLink::SEND_LIMIT, qPrintable(QString::number(waiting)));
        const SPlainHost tcp(one.gateway.port()); // UDP hosts take no place of a TCP host
        QTRY_COMPARE(one.gateway.tcpHostCount(), 1);
    }

    void hostThatDoesNotReadIsBounded()
    {
        constexpr int MESSAGES = 1'000'000;
        constexpr int REQUESTS = 100'000; // with long answers
        SSimIdentity wordy;
        wordy.deviceText = QByteArray(240, 'x');
        SGateway one(wordy);
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

        // Requests are not read until their answers fit, and a flood waits for the host.
        host.socket.setReadBufferSize(1);
        host.socket.write(frame(RM_CMD_DEVICE_ID).repeated(REQUESTS));
        one.gateway.flood(REQUESTS);
        QVERIFY(!QSignalSpy(&one.gateway, &CSimGateway::frameLost).wait(500));
        host.socket.setReadBufferSize(0);
        const QByteArray answer =
            frame(RM_CMD_DEVICE_ID, wordy.deviceText + "id") + rmFrame(message(0, hex("0011223344556677")));
        QCOMPARE(host.read(REQUESTS * answer.size(), 30000).size(), REQUESTS * answer.size());
        SSimFaults slow;
        slow.replyDelayMs = 2000; // longer than it takes to read all requests
        one.gateway.setFaults(slow);
        const int waiting = 10'000 * frame(RM_CMD_BUSLOAD, "00").size();
        for (int round = 0; round < 2; ++round) {
            host.socket.write(frame(RM_CMD_BUSLOAD).repeated(10'001)); // one more than the answers that may wait
            QCOMPARE(host.read(waiting + 1, 4000).size(), waiting);
        }
    }

    void requestForOneAddressIsAnsweredThere()
    {
        SGateway one, two, mute, dead;
        mute.gateway.setFaults(faulty(&SSimFaults::mute));
        dead.gateway.setFaults(faulty(&SSimFaults::blackHole));
        for (SGateway* other : {&two, &mute, &dead}) {
            listenOn(other->gateway, QHostAddress("127.0.0.2"_s));
        }
        const quint16 port = SServer().serverPort();
        CSimDetection detection;
        QVERIFY(!detection.listen(port));
        for (SGateway* each : {&one, &two, &mute, &dead}) {
            detection.addGateway(each->gateway);
        }
        detection.setFaults({0, 0, false, false, 2}); // each reply is sent twice and announces no entry
        QUdpSocket host;
        host.writeDatagram(ddtIdentRequest(), two.gateway.address(), port);
        for (int i = 0; i < 2; ++i) {
            QTRY_VERIFY(host.hasPendingDatagrams());
            const QNetworkDatagram reply = host.receiveDatagram();
            QVERIFY(reply.senderAddress().toIPv4Address() == 0x7F000002U && reply.data().at(3) == 0);
        }
        QVERIFY(!host.hasPendingDatagrams());
    }

    void misbehaves_data()
    {
        // The gateway sends a frame, "raw" and a frame. Rows have the number of bytes before "raw", and all bytes.
        const auto row = columns<int, QByteArray, Change>("first", "bytes", "change");
        const int size = GOOD.size();
        const QByteArray wrong = GOOD.left(size - 2) + char(~GOOD[size - 2]) + '\n'; // checksum and end marker
        const QByteArray after = hex("0043") + GOOD;
        row("every second frame", size, GOOD + "raw" + wrong,
            [](auto& faults) { faults.wrongChecksumEvery = faults.missingEndEvery = 2; });
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
        QTRY_VERIFY_WITH_TIMEOUT(isMeasured(), 20000);
        QTRY_COMPARE((host.socket.write(request), host.read(idle.size())), idle); // counts each message once
        QTRY_VERIFY_WITH_TIMEOUT(isMeasured(), 20000);
        host.socket.write(frame(RM_CMD_RESET) + request);
        QCOMPARE(host.read(idle.size()).toHex(), idle.toHex());
    }

    void replaysKeepTheirTime()
    {
        const QTemporaryDir folder;
        const QByteArray later = QByteArray("(1.05) can0 124#\n").repeated(3);
        CSimBus bus;
        CSimReplay replay(bus);
        QVERIFY(!replay.open(writeFile(folder, "(1.00) can0 123#\n" + later), 1, true));
        const SClock clock;
        replay.start();
        QThread::msleep(70); // the computer is busy: what is late does not come at once
        QCoreApplication::processEvents();
        QCOMPARE(replay.sent(), std::uint64_t(1));
        QTRY_VERIFY(replay.sent() >= 12); // three rounds of 50 ms each, after a delay of which 20 ms are made up for
        QVERIFY2(clock.elapsed() > 190, qPrintable(QString::number(clock.elapsed())));
    }

    void hostsThatAreTooManyLeaveTurnsForTheRest_data() { rows({"generated", "replayed"}); }
    void hostsThatAreTooManyLeaveTurnsForTheRest()
    {
        const QTemporaryDir folder;
        CSimBus bus;
        CSimReplay replay(bus);
        CSimGenerator generator(bus);
        QTimer turns;
        int inTurn = 0, most = 0;
        QList<CCanMessage> sent;
        connect(&turns, &QTimer::timeout, [&] { inTurn = 0; });
        connect(&bus, &CSimBus::messageSent, [&](const CCanMessage& one) {
            QThread::msleep(5); // the time to send a message to a thousand hosts
            most = qMax(most, ++inTurn);
            sent += one;
        });
        turns.start(0);
        if (rowName() == "generated") {
            generator.start(1000);
        } else {
            QVERIFY(!replay.open(writeFile(folder, QByteArray("(1.0) a 123#\n").repeated(50)), 1, false));
            replay.start();
        }
        QTRY_VERIFY(sent.size() >= 50);
        QVERIFY(rowName() == "replayed" || sent[9] == message(0x201, hex("1001000000000001")));
        QVERIFY2(most <= 5, qPrintable(QString::number(most))); // messages of 5 ms each, in a turn of 20 ms
    }

    void options_data()
    {
        const auto addRow = columns<int, QByteArray>("exitCode", "text");
        addRow("--seconds 0.01 --port 65535 --firmware 255.255 --address 127.1.$((RANDOM % 256)).$((RANDOM % 256))", 0,
               "gateway 1: 127.1.\\d+.\\d+:65535 .*\nmessages: 0 .*\n"); // where no other test listens
        addRow("--seconds 0.01 --port 0 --gateways 200", 0,
               "gateway 1: 127.0.0.1:\\d+ .*:33\ngateway 2: .*:34\n(gateway .*\n){198}messages: 0 .*\n");
        addRow("--seconds 1 --port 0 --start-now --speed 99 --replay LOG", 0, ".*\nmessages: 0 .*, 2 replayed, 0 .*\n");
        const auto row = [&](const QByteArray& typed, int exitCode) { addRow(typed, exitCode, "t93sim: .+\n"); };
        QVERIFY(m_shared.bind(QHostAddress(QHostAddress::LocalHost), 0, QAbstractSocket::ShareAddress));
        row("--port " + QByteArray::number(m_shared.localPort()), 1);  // the port is in use
        row("--port 0 --replay <(printf '(1.0) can0 1#\nnone\n')", 2); // the wrong line is found at the start
        row("--port 0 --loop --speed 100 --start-now --replay LOG | { read -r; echo none >> LOG; cat; }; exit "
            "${PIPESTATUS[0]}",
            2);
        for (const char* output : {"--help > /dev/full", "--port 0 > /dev/full", "--port 0 >&-"}) {
            row(output, 1);
        }
        const QByteArray wrong =
            "--seconds nan|--port 70000|--baud 33|--replay /nonexistent|--mac 01:02|--firmware 2|--firmware 1.256|"
            "--status 256|--garbage 1g|--address 300.1.1.1|--gateways 0|--port 65535 --gateways 2|--replay /dev/null|"
            "--endpoint tcp|--endpoint tcp-server:70000|--detect --endpoint tcp-server:1:2|--detect-port 0|--loop|"
            "--port 0 --ident-cut 3|--status-every 5|--refuse --black-hole|--refuse --mute|--refuse --drop-after 5|"
            "--black-hole --cut 3|--mute --delay 5";
        for (const QByteArray& options : wrong.split('|')) {
            row(options, 2);
        }
    }
    void options()
    {
        const QTemporaryDir folder;
        const QByteArray log = writeFile(folder, "(1000.0) a 1#\n(1008.0) a 1#\n").toLocal8Bit();
        const SOutcome outcome = run(QStringLiteral(CIM_T93SIM " ") + QLatin1String(rowName().replace("LOG", log)));
        QTEST(outcome.exitCode, "exitCode");
        const QString text = QString::fromLocal8Bit(outcome.exitCode == 0 ? outcome.out : outcome.err);
        const QString expected = QRegularExpression::anchoredPattern(QLatin1String(cell<QByteArray>("text")));
        QVERIFY2(QRegularExpression(expected).match(text).hasMatch(), qPrintable(text));
    }

    void everyConnectionIsServedAndDropped()
    {
        QProcess program;
        program.start(QStringLiteral(CIM_T93SIM),
                      list("--port 0 --status 0 --status-every 10 --drop-after 200 --no-busload --clients 2"_s));
        QVERIFY(program.waitForReadyRead());
        const auto port = program.readLine().split(' ').at(2).split(':').at(1).toUShort();
        for (int round = 0; round < 2; ++round) {
            SPlainHost host(port), other(port);
            host.socket.write(frame(RM_CMD_BUSLOAD)); // is not answered
            QVERIFY(other.read(1).startsWith('C'));
            QTRY_COMPARE(host.socket.state(), QAbstractSocket::UnconnectedState);
            const QByteArray report = frame(RM_CMD_STATUS, hex("00")), seen = host.socket.readAll();
            QVERIFY(seen.startsWith(report));
            QCOMPARE(seen.toHex(' '), report.repeated(seen.size() / report.size()).toHex(' '));
        }
        program.terminate();
        QVERIFY(program.waitForFinished());
    }

private:
    QUdpSocket m_shared; ///< On a port that it would share with another program.
};

QTEST_GUILESS_MAIN(T93SimTest)
#include "tst_t93sim.moc"
