#include "t93Fixture.h"

#include <QProcess>
#include <QUdpSocket>

using namespace vexmor::Test;

namespace
{
const QString NEAR = QStringLiteral("10.9.0.1");
const QString NEAR_TOO = QStringLiteral("10.9.0.3");
const QString FAR = QStringLiteral("10.9.0.2");

/// Runs a command at the far end of the cable.
QStringList atFarEnd(const QStringList& command)
{
    return QStringList{QStringLiteral("-t"), QString::fromLocal8Bit(qgetenv("CIM_FAR")), QStringLiteral("-n")} + command;
}

bool setCable(const QString& state)
{
    return QProcess::execute(QStringLiteral("nsenter"),
                             atFarEnd({QStringLiteral("ip"), QStringLiteral("link"), QStringLiteral("set"),
                                       QStringLiteral("far"), state})) == 0;
}
} // namespace

/// What needs a network of its own: broadcasts and pulled cables. Run by inNamespace.
class NetworkTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY2(qEnvironmentVariableIsSet("CIM_FAR"), "run by inNamespace only"); }

    void broadcastAsksNobody()
    {
        QUdpSocket gateways;
        QVERIFY(gateways.bind(QHostAddress(QHostAddress::AnyIPv4)));
        const auto can = makeInterface(gateways.localPort(), CCommonInfo::eProtocolUdp);
        configure(*can, [](CConfigParamT93& param) {
            param.setIpAddress(QHostAddress(QHostAddress::Broadcast));
            param.setLocalIpAddress(QHostAddress(NEAR));
        });
        QSignalSpy errors(can.get(), SIGNAL(interfaceError(int)));
        QCOMPARE(can->openCommunication(), 0);
        QCOMPARE(can->resetCommunication(1), 0);
        QCOMPARE(can->writeMessage(message(0x123)), 0);
        QByteArrayList datagrams;
        QHostAddress host;
        quint16 port = 0;
        QTRY_VERIFY(gateways.hasPendingDatagrams());
        while (gateways.hasPendingDatagrams()) {
            char buffer[100];
            datagrams.append(QByteArray(buffer, int(gateways.readDatagram(buffer, sizeof buffer, &host, &port))).toHex());
        }
        // The bit rate, the reset, the message; no MAC address, no version, no bus load.
        QCOMPARE(datagrams, (QByteArrayList{"4302570513" "0d", "4301c0820d", frame(0x00, hex("0123")).toHex()}));

        QUdpSocket own;
        QVERIFY(own.bind(QHostAddress(NEAR)));
        own.writeDatagram(frame(0x42, hex("01")), host, port); // from the own address: skipped
        QUdpSocket other;
        QVERIFY(other.bind(QHostAddress(NEAR_TOO)));
        other.writeDatagram(frame(0x42, hex("08")), host, port);
        QTRY_COMPARE(errors.size(), 1);
        QCOMPARE(errors.at(0).at(0).toInt(), 8);
    }

    void pulledCable_data()
    {
        QTest::addColumn<unsigned int>("pollTime");
        QTest::newRow("while requests are under way") << 300U;
        QTest::newRow("while the link is idle") << 600000U;
    }
    void pulledCable()
    {
        QFETCH(unsigned int, pollTime);
        QProcess gateway;
        gateway.start(QStringLiteral("nsenter"),
                      atFarEnd({QStringLiteral(CIM_T93SIM), QStringLiteral("--address"), FAR, QStringLiteral("--port"),
                                QStringLiteral("30000"), QStringLiteral("--seconds"), QStringLiteral("60")}));
        QVERIFY(gateway.waitForReadyRead());
        const auto can = makeInterface(30000);
        configure(*can, [&](CConfigParamT93& param) {
            param.setIpAddress(QHostAddress(FAR));
            param.setBusloadPollTime(pollTime);
        });
        QSignalSpy errors(can.get(), SIGNAL(interfaceError(int)));
        QCOMPARE(can->openCommunication(), 0);
        QTRY_VERIFY(!can->commonInfo().firmwareVersion().isEmpty());
        // An idle link with its cable in is no loss, however silent.
        QTest::qWait(pollTime > 10000 ? 12000 : 0);
        QVERIFY(errors.isEmpty());

        QElapsedTimer clock;
        clock.start();
        QVERIFY(setCable(QStringLiteral("down")));
        QTRY_COMPARE_WITH_TIMEOUT(errors.size(), 1, 13000);
        qInfo("noticed after %lld ms", clock.elapsed());
        QVERIFY2(clock.elapsed() <= 11000, qPrintable(QString::number(clock.elapsed())));
        QCOMPARE(errors.at(0).at(0).toInt(), 0);
        QCOMPARE(can->commonInfo().connectionState(), CCommonInfo::eNotConnected);
        QVERIFY(setCable(QStringLiteral("up")));
        QTRY_COMPARE_WITH_TIMEOUT(can->commonInfo().connectionState(), CCommonInfo::eConnected, 10000);
        QCOMPARE(can->writeMessage(message(0x123)), 0);
        QCOMPARE(errors.size(), 1);
        gateway.terminate();
        QVERIFY(gateway.waitForFinished());
    }
};

QTEST_GUILESS_MAIN(NetworkTest)
#include "tst_network.moc"
