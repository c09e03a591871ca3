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
    return QStringList{QStringLiteral("-t"), QString::fromLocal8Bit(qgetenv("CIM_FAR")), QStringLiteral("-n")} +
           command;
}

/// Plugs or pulls the cable at the gateway, or switches the network interface of this PC on or off.
bool setLink(bool atGateway, const QString& state)
{
    const QStringList command{QStringLiteral("link"), QStringLiteral("set"),
                              atGateway ? QStringLiteral("far") : QStringLiteral("near"), state};
    return atGateway ? QProcess::execute(QStringLiteral("nsenter"),
                                         atFarEnd(QStringList(QStringLiteral("ip")) + command)) == 0
                     : QProcess::execute(QStringLiteral("ip"), command) == 0;
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
            datagrams.append(
                QByteArray(buffer, int(gateways.readDatagram(buffer, sizeof buffer, &host, &port))).toHex());
        }
        // The bit rate, the reset, the message; no MAC address, no version, no bus load.
        QCOMPARE(datagrams, (QByteArrayList{"4302570513"
                                            "0d",
                                            "4301c0820d", frame(0x00, hex("0123")).toHex()}));

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
        QTest::addColumn<bool>("atGateway");
        QTest::addColumn<unsigned int>("pollTime");
        QTest::newRow("while requests are under way") << true << 300U;
        QTest::newRow("while the link is idle") << true << 600000U;
        // Attempts to reconnect then fail at once: they must go on all the same.
        QTest::newRow("network switched off on this side") << false << 300U;
    }
    void pulledCable()
    {
        QFETCH(bool, atGateway);
        QFETCH(unsigned int, pollTime);
        QProcess gateway;
        gateway.start(QStringLiteral("nsenter"),
                      atFarEnd({QStringLiteral(CIM_T93SIM), QStringLiteral("--address"), FAR, QStringLiteral("--port"),
                                QStringLiteral("30000"), QStringLiteral("--seconds"), QStringLiteral("60"),
                                // It may not yet know that the old connection is gone when the new one comes.
                                QStringLiteral("--clients"), QStringLiteral("2")}));
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
        QTest::qWait(pollTime > 10000 ? 12000 : 0); // longer than a loss takes to be noticed
        QVERIFY(errors.isEmpty());

        QElapsedTimer clock;
        clock.start();
        QVERIFY(setLink(atGateway, QStringLiteral("down")));
        QTRY_COMPARE_WITH_TIMEOUT(errors.size(), 1, 13000);
        qInfo("noticed after %lld ms", clock.elapsed());
        QVERIFY2(clock.elapsed() <= 11000, qPrintable(QString::number(clock.elapsed())));
        QCOMPARE(errors.at(0).at(0).toInt(), 0);
        QCOMPARE(can->commonInfo().connectionState(), CCommonInfo::eNotConnected);
        QVERIFY(setLink(atGateway, QStringLiteral("up")));
        QTRY_COMPARE_WITH_TIMEOUT(can->commonInfo().connectionState(), CCommonInfo::eConnected, 10000);
        QCOMPARE(can->writeMessage(message(0x123)), 0);
        QCOMPARE(errors.size(), 1);
        gateway.terminate();
        QVERIFY(gateway.waitForFinished());
    }
};

QTEST_GUILESS_MAIN(NetworkTest)
#include "tst_network.moc"
