#include "sim/simTraffic.h"
#include "t93Fixture.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>
#include <QUdpSocket>

using namespace vexmor::Test;

namespace
{
const QByteArray GOOD = frame(0x00, hex("01234455"));

/// A host without the plugin: what a gateway really says.
struct SPlainHost {
    explicit SPlainHost(std::uint16_t port)
    {
        socket.connectToHost(QHostAddress(QHostAddress::LocalHost), port);
        connected = socket.waitForConnected(1000);
    }
    QByteArray ask(const QByteArray& request, int size)
    {
        socket.write(request);
        return read(size);
    }
    QByteArray read(int size)
    {
        (void)QTest::qWaitFor([&] { return socket.bytesAvailable() >= size; }, 2000);
        return socket.readAll();
    }
    QTcpSocket socket;
    bool connected = false;
};

struct SGateway {
    SGateway(CSimBus& bus, const SSimFaults& faults = {}) : gateway(bus)
    {
        QString error;
        gateway.setFaults(faults);
        if (!gateway.listen(QHostAddress(QHostAddress::LocalHost), 0, error)) {
            qFatal("%s", qPrintable(error));
        }
    }
    CSimGateway gateway;
};
} // namespace

/// The simulated gateway by itself, and the program around it.
class T93SimTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void answersToTheByte_data()
    {
        QTest::addColumn<QByteArray>("request");
        QTest::addColumn<QByteArray>("reply");
        QTest::newRow("MAC address") << hex("430144060d") << hex("4307 44 020000543933 5c 0d");
        QTest::newRow("firmware") << hex("430141030d") << hex("4305 41 00000105 03 0d");
        QTest::newRow("identification") << hex("430140020d")
                                        << frame(0x40, QByteArray("T93 SIM SW02.03") + hex("0001"));
        QTest::newRow("bus load interval") << hex("4303a403e80f0d") << hex("4303a403e80f0d");
        QTest::newRow("bus load of an idle bus") << hex("430147050d") << hex("4303 47 0000 07 0d");
        QTest::newRow("bit rate") << hex("430257fee80d") << hex("430257fee80d");
        QTest::newRow("nothing to a reset") << hex("4301c0820d") + hex("430141030d") << hex("4305410000010503 0d");
    }
    void answersToTheByte()
    {
        QFETCH(QByteArray, request);
        QFETCH(QByteArray, reply);
        CSimBus bus;
        SGateway one(bus);
        SPlainHost host(one.gateway.port());
        QCOMPARE(host.ask(request, reply.size()).toHex(), reply.toHex());
        QUdpSocket udp;
        QVERIFY(udp.bind(QHostAddress(QHostAddress::LocalHost)));
        QByteArray datagrams;
        udp.writeDatagram(request, one.gateway.address(), one.gateway.port());
        QTRY_VERIFY(udp.hasPendingDatagrams());
        char buffer[100];
        datagrams.append(buffer, int(udp.readDatagram(buffer, sizeof buffer)));
        QCOMPARE(datagrams.toHex(), reply.toHex());
    }

    void gatewaysShareTheirBus()
    {
        CSimBus bus;
        SGateway one(bus);
        SGateway two(bus);
        SPlainHost first(one.gateway.port());
        SPlainHost second(two.gateway.port());
        QTRY_VERIFY(one.gateway.tcpHostCount() == 1 && two.gateway.tcpHostCount() == 1);
        QCOMPARE(first.ask(GOOD, GOOD.size()), QByteArray()); // not back to its sender
        QCOMPARE(second.read(GOOD.size()).toHex(), GOOD.toHex());
        QCOMPARE(bus.bitCount(), std::uint64_t(46 + 16));
    }

    void onlySoManyHostsAreServed()
    {
        CSimBus bus;
        SGateway one(bus);
        auto first = std::make_unique<SPlainHost>(one.gateway.port());
        QTRY_COMPARE(one.gateway.tcpHostCount(), 1);
        QVERIFY(!SPlainHost(one.gateway.port()).connected);
        first.reset();
        QTRY_COMPARE(one.gateway.tcpHostCount(), 0);
        QVERIFY(SPlainHost(one.gateway.port()).connected);
    }

    void busloadIsWhatTheBusCarries()
    {
        SOpenInterface host;
        configure(*host.can, [](CConfigParamT93& param) {
            param.setBusloadPollTime(50);
            param.setBusloadMeasureInterval(200);
        });
        QCOMPARE(host.can->resetCommunication(0), 0);
        QTimer traffic; // 2 messages of 110 bits each millisecond or so, at 500 kbit/s
        connect(&traffic, &QTimer::timeout, [&] {
            host.bus.send(message(1, QByteArray(8, 1)));
            host.bus.send(message(2, QByteArray(8, 2)));
        });
        traffic.start(1);
        int percent = 0;
        QTRY_VERIFY(host.can->busload(percent) == 0 && percent > 0 &&
                    qAbs(percent - host.gateway.busloadPercent()) <= 1);
        QVERIFY2(percent <= 45, qPrintable(QString::number(percent)));
    }

    void misbehaves_data()
    {
        QTest::addColumn<QByteArray>("option");
        QTest::addColumn<QByteArray>("bytes"); // for two frames of the bus
        QByteArray wrongChecksum = GOOD;
        wrongChecksum[GOOD.size() - 2] = char(~GOOD[GOOD.size() - 2]);
        QByteArray wrongEnd = GOOD;
        wrongEnd[GOOD.size() - 1] = '\n';
        QTest::newRow("every second checksum") << QByteArray("wrong-checksum") << GOOD + wrongChecksum;
        QTest::newRow("every second end marker") << QByteArray("missing-end") << GOOD + wrongEnd;
        QTest::newRow("garbage") << QByteArray("garbage") << hex("0043") + GOOD + hex("0043") + GOOD;
        QTest::newRow("cut") << QByteArray("cut") << GOOD + GOOD;
        QTest::newRow("merge") << QByteArray("merge") << GOOD + GOOD;
        QTest::newRow("black hole") << QByteArray("black-hole") << QByteArray();
    }
    void misbehaves()
    {
        QFETCH(QByteArray, option);
        QFETCH(QByteArray, bytes);
        SSimFaults faults;
        faults.wrongChecksumEvery = option == "wrong-checksum" ? 2 : 0;
        faults.missingEndEvery = option == "missing-end" ? 2 : 0;
        faults.garbage = option == "garbage" ? hex("0043") : QByteArray();
        faults.cutAt = option == "cut" ? 3 : 0;
        faults.mergeCount = option == "merge" ? 2 : 1;
        faults.blackHole = option == "black-hole";
        CSimBus bus;
        SGateway one(bus, faults);
        SPlainHost host(one.gateway.port());
        QTRY_COMPARE(one.gateway.tcpHostCount(), 1);
        bus.send(message(0x123, hex("4455")));
        if (option == "cut") { // the first piece is on its own
            QTRY_COMPARE(host.socket.bytesAvailable(), 3);
        }
        bus.send(message(0x123, hex("4455")));
        QCOMPARE(host.read(qMax(bytes.size(), 1)).toHex(), bytes.toHex());
    }

    void everyRoundOfALoopTakesItsTime()
    {
        const QTemporaryDir folder;
        QFile log(folder.filePath(QStringLiteral("a.log")));
        QVERIFY(log.open(QIODevice::WriteOnly) && log.write("(1.00) can0 123#\n(1.05) can0 124#\n") > 0);
        log.close();
        CSimBus bus;
        CSimReplay replay(bus);
        QString error;
        QVERIFY2(replay.open(log.fileName(), 1, true, error), qPrintable(error));
        QElapsedTimer clock;
        clock.start();
        replay.start();
        QTRY_VERIFY(replay.sent() >= 6); // three rounds of 50 ms
        QVERIFY2(clock.elapsed() >= 150, qPrintable(QString::number(clock.elapsed())));
    }

    void programReplaysALog()
    {
        const QTemporaryDir folder;
        QFile log(folder.filePath(QStringLiteral("a.log")));
        QVERIFY(log.open(QIODevice::WriteOnly));
        QList<CCanMessage> expected;
        for (int i = 0; i < 300; ++i) { // three in a row have one time; one goes back in time
            const QByteArray time = QByteArray::number(10.0 + 0.001 * (i / 3) - (i == 150 ? 5 : 0), 'f', 6);
            log.write('(' + time + ") can0 " + QByteArray::number(0x100 + i, 16) + "#00\n");
            expected.append(message(static_cast<std::uint16_t>(0x100 + i), hex("00")));
        }
        log.close();
        QProcess program;
        program.start(QStringLiteral(CIM_T93SIM),
                      {QStringLiteral("--port"), QStringLiteral("0"), QStringLiteral("--replay"), log.fileName(),
                       QStringLiteral("--seconds"), QStringLiteral("30")});
        QVERIFY(program.waitForReadyRead());
        const QByteArray line = program.readLine();
        const auto can =
            makeInterface(line.mid(line.indexOf(':', line.indexOf(':') + 1) + 1).split(' ').at(0).toUShort());
        QCOMPARE(can->openCommunication(), 0);
        QList<CCanMessage> received;
        QTRY_VERIFY([&] {
            for (CCanMessage next; can->readMessage(next) == 0;) {
                received.append(next);
            }
            return received.size() >= expected.size();
        }());
        QVERIFY(received == expected);
        program.terminate();
        QVERIFY(program.waitForFinished());
        QCOMPARE(program.exitCode(), 0);
        QVERIFY(program.readAllStandardOutput().contains("300 replayed"));
    }

    void badOptionsGiveOneLine_data()
    {
        QTest::addColumn<QStringList>("options");
        for (const char* options :
             {"--port 70000", "--port x", "--nonsense", "--baud 33", "--replay /nonexistent", "--mac 01:02",
              "--firmware 2", "--status 256", "--garbage 1g", "--address 300.1.1.1", "--gateways 0",
              "--port 65535 --gateways 2", "--replay /dev/null", "--endpoint tcp", "--endpoint tcp-server:70000",
              "--detect-port 0"}) {
            QTest::newRow(options) << QString::fromLatin1(options).split(QLatin1Char(' '));
        }
    }
    void badOptionsGiveOneLine()
    {
        QFETCH(QStringList, options);
        QProcess program;
        program.start(QStringLiteral(CIM_T93SIM), options);
        QVERIFY(program.waitForFinished());
        QCOMPARE(program.exitCode(), 2);
        const QByteArray text = program.readAllStandardError();
        QVERIFY2(text.startsWith("t93sim: ") && text.count('\n') == 1, text.constData());
    }
};

QTEST_GUILESS_MAIN(T93SimTest)
#include "tst_t93sim.moc"
