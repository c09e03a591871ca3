#include "t93Fixture.h"

#include <QNetworkDatagram>
#include <QUdpSocket>

using namespace vexmor::Test;

namespace
{
const QString NEAR = "10.9.0.1"_s;
const QString NEAR_TOO = "10.9.0.3"_s;

/// For nsenter: runs a command at the far end of the cable.
QStringList atFarEnd(const QStringList& command)
{
    return list("-t %1 -n"_s.arg(QString::fromLocal8Bit(qgetenv("CIM_FAR")))) + command;
}

/// Plugs or pulls the cable at the gateway, or switches the network interface of this PC on or off.
bool setLink(bool atGateway, const QString& state)
{
    const QStringList command = list("ip link set %1 %2"_s.arg(atGateway ? "far"_s : "near"_s, state));
    return (atGateway ? QProcess::execute("nsenter"_s, atFarEnd(command))
                      : QProcess::execute(command.first(), command.mid(1))) == 0;
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
        QNetworkDatagram request;
        QTRY_VERIFY(gateways.hasPendingDatagrams());
        while (gateways.hasPendingDatagrams()) {
            request = gateways.receiveDatagram();
            datagrams.append(request.data().toHex());
        }
        // The bit rate, the reset, the message; no MAC address, no version, no bus load.
        QCOMPARE(datagrams, (QByteArrayList{"43025705130d", "4301c0820d", frame(0x00, hex("0123")).toHex()}));

        const auto sayStatus = [&request](const QString& from, const QByteArray& status) {
            QUdpSocket socket;
            QVERIFY(socket.bind(QHostAddress(from)));
            socket.writeDatagram(frame(0x42, status), request.senderAddress(), quint16(request.senderPort()));
        };
        sayStatus(NEAR, hex("01")); // from the own address: skipped
        sayStatus(NEAR_TOO, hex("08"));
        QTRY_COMPARE(errorNumbers(errors), QList<int>{8});
    }

    void pulledCable_data()
    {
        // Attempts to reconnect fail at once behind a network that is switched off: they must go on all the same.
        rows({"while requests are under way", "while the link is idle", "network switched off on this side"});
    }
    void pulledCable()
    {
        const bool atGateway = rowName().startsWith("while");
        const unsigned int pollTime = rowName().endsWith("idle") ? 600000 : 300;
        QProcess gateway;
        // With a second client: it may not yet know that the old connection is gone when the new one comes.
        gateway.start("nsenter"_s, atFarEnd(QStringList(QStringLiteral(CIM_T93SIM)) +
                                            list("--address 10.9.0.2 --port 30000 --seconds 60 --clients 2"_s)));
        QVERIFY(gateway.waitForReadyRead());
        const auto can = makeInterface(30000);
        configure(*can, [&](CConfigParamT93& param) {
            param.setIpAddress(QHostAddress("10.9.0.2"_s));
            param.setBusloadPollTime(pollTime);
        });
        QSignalSpy errors(can.get(), SIGNAL(interfaceError(int)));
        QCOMPARE(can->openCommunication(), 0);
        QTRY_VERIFY(!can->commonInfo().firmwareVersion().isEmpty());
        // An idle link with its cable in is no loss, however silent.
        QTest::qWait(pollTime > 10000 ? 12000 : 0); // longer than a loss takes to be noticed
        QVERIFY(errors.isEmpty());

        QVERIFY(setLink(atGateway, "down"_s));
        QTRY_COMPARE_WITH_TIMEOUT(errorNumbers(errors), QList<int>{0}, 11000);
        QCOMPARE(can->commonInfo().connectionState(), CCommonInfo::eNotConnected);
        QVERIFY(setLink(atGateway, "up"_s));
        QTRY_COMPARE_WITH_TIMEOUT(can->commonInfo().connectionState(), CCommonInfo::eConnected, 10000);
        QCOMPARE(can->writeMessage(message(0x123)), 0);
        QCOMPARE(errors.size(), 1);
        gateway.terminate();
        QVERIFY(gateway.waitForFinished());
    }
};

QTEST_GUILESS_MAIN(NetworkTest)
#include "tst_network.moc"
