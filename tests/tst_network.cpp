#include "t93Fixture.h"

#include "InterfaceT93/t93DeviceDetection.h"
#include "scanData.h"
#include "sim/simDetection.h"

using namespace vexmor::Test;

using Addresses = QList<QHostAddress>;
Q_DECLARE_METATYPE(Addresses)

namespace
{
const QString FIRST = "10.9.0.1"_s; // an address of this PC, like 10.9.0.3 and fd09::1
const QString SECOND_INTERFACE = "10.9.1.1"_s;
const QByteArray UNIT = "20 InterfaceT93/t93DeviceDetection: "; // beginning of each log line

/// Records the datagrams that are sent to a port of its own, on all addresses.
struct SRecorder : QUdpSocket {
    SRecorder()
    {
        (void)bind(QHostAddress(QHostAddress::Any));
        connect(this, &QUdpSocket::readyRead, this, [this] {
            while (hasPendingDatagrams()) {
                arrivals.append(receiveDatagram());
                milliseconds.append(clock.elapsed());
            }
        });
    }
    SClock clock;
    QList<QNetworkDatagram> arrivals;
    QList<qint64> milliseconds; ///< Time of each arrival.
};

/// Runs a scan with the times and the port of the test. Returns the names of interfaces found by the address FIRST.
QStringList scan(quint16 port, int waitMs, const Addresses& scanAddresses = {}, bool skipLoopback = true)
{
    CT93DeviceDetectionThread thread(scanAddresses, skipLoopback, waitMs, port, nullptr);
    QSignalSpy finished(&thread, &QThread::finished);
    thread.start();
    if (!finished.wait(20000) || !thread.wait()) {
        qFatal("the scan does not end");
    }
    QStringList found;
    for (const CDetectedInterface& one : thread.detectedInterfaces()) {
        if (one.configParam.localIpAddress() == QHostAddress(FIRST)) {
            found.append(one.commonInfo.uniqueName());
        }
    }
    return found;
}

/// Receives the results of the plugin's scans, as a host does.
class CResult : public QObject
{
    Q_OBJECT
public:
    ~CResult() override { qDeleteAll(interfaces); }
    QList<CCanInterface*> interfaces;
    QList<int> returned; ///< Results of starting another scan in the slot.
public Q_SLOTS:
    void take(int pluginId, QList<CCanInterface*> interfaceList)
    {
        QCOMPARE(pluginId, 1);
        interfaces += interfaceList;
        returned.append(returned.isEmpty() ? plugin().scanInterfaces() : -2);
    }
};

/// A process that is ended with its scope.
struct SProcess : QProcess {
    explicit SProcess(const QString& command) { start("bash"_s, {"-c"_s, "exec "_s + command}); }
    ~SProcess() override
    {
        terminate();
        waitForFinished();
    }
};

/// Sets the link "up" or "down": at the gateway, like a cable, or the network interface of this PC.
bool setLink(bool atGateway, const QString& state)
{
    return run((atGateway ? "nsenter -t $CIM_FAR -n ip link set far "_s : "ip link set near "_s) + state).exitCode == 0;
}
} // namespace

/// Tests in a network of their own, with 10.9.0.1, 10.9.0.3 and fd09::1 on one network interface and 10.9.1.1 on
/// another: scans, broadcasts and pulled cables.
class NetworkTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY2(qEnvironmentVariableIsSet("CIM_FAR"), "run by inNamespace only"); }

    void requestsOnTheWire_data()
    {
        // Requests have sender, sequence number and milliseconds since the previous request.
        const auto row = columns<Addresses, bool, QString>("scanAddresses", "skipLoopback", "requests");
        row("one from each address", {}, true, "10.9.0.1 0 0|10.9.0.3 1 100|10.9.1.1 2 100"_s);
        // The socket of fd09::1 cannot broadcast, so no pause follows and the sequence number stays.
        row("addresses asked directly", {QHostAddress(FIRST), QHostAddress("fd09::1"_s)}, true,
            "10.9.0.1 0 0|10.9.0.1 1 0|10.9.0.3 1 140|10.9.0.3 2 0|fd09::1 2 140|10.9.1.1 2 40|10.9.1.1 3 0"_s);
        row("loopback too", {QHostAddress(QHostAddress::LocalHost)}, false,
            "127.0.0.1 0 0|127.0.0.1 1 0|10.9.0.1 1 140|10.9.0.1 2 0"_s);
    }
    void requestsOnTheWire()
    {
        QFETCH(bool, skipLoopback);
        const QStringList expected = list(cell<QString>("requests"));
        bool isPrompt = false; // required once only, because the PC may be busy
        for (int round = 0; round < 10 && !isPrompt; ++round) {
            SRecorder recorder;
            const CLogRecorder log(20);
            QVERIFY(scan(recorder.localPort(), 50, cell<Addresses>("scanAddresses"), skipLoopback).isEmpty());
            QVERIFY2(!skipLoopback || recorder.arrivals.size() == expected.size(), "one request a socket and address");
            isPrompt = true;
            for (int i = 0; i < expected.size(); ++i) {
                const QStringList fields = list(expected.at(i));
                QVERIFY(recorder.arrivals.at(i).senderAddress().isEqual(QHostAddress(fields.at(0))));
                QCOMPARE(recorder.arrivals.at(i).data().toHex(), requestBytes(fields.at(1).toInt()).toHex());
                const qint64 pause = recorder.milliseconds.at(i) - recorder.milliseconds.at(qMax(i - 1, 0));
                isPrompt = isPrompt && qAbs(pause - fields.at(2).toInt()) < 20;
            }
            const int last = log.lines().lastIndexOf(UNIT + "IP Address:               10.9.1.1");
            QCOMPARE(log.lines().at(last - 1), UNIT + "broadcast DDT message for T93 device scan:");
            QCOMPARE(log.lines().at(last + 1), UNIT + "Subnet-Broadcast Address: 10.9.1.255");
            QCOMPARE(log.lines().at(last + 2), UNIT + "Using Broadcast Address:  255.255.255.255");
        }
        QVERIFY(isPrompt);
    }

    void hostileReplies_data()
    {
        // Strangers take turns to send the replies, "times" in all; then a gateway answers.
        const auto row = columns<QByteArrayList, int, int, int>("replies", "strangers", "times", "found");
        const QByteArray good = reply(1, entry(2, 0));
        QByteArray longest;
        for (std::uint16_t port = 1; port < 255; ++port) {
            longest += entry(2, 1, "g", port);
        }
        longest = reply(255, longest + entry(2, 0));
        const QByteArray counts = reply(255, entry(2, 1));
        row("broken ones around good ones",
            {{}, hex("00"), hex("000000ff"), requestBytes(0), counts, reply(1, entry(2, 0).left(63)), good}, 1, 1,
            2 + 1);
        row("more than 512 of one", {good, good, good, good, good, good}, 1, 1000, 512 + 1);
        row("more than 4096", {good, good, good, good, good, good}, 10, 1000, 4096);
        row("longer than any reply", {longest + QByteArray(40000, 'x')}, 1, 1, 255 + 1);
        row("more than 128 KiB of one", {longest}, 1, 80, 8 * 255 + 1);
        row("more than 1 MiB", {longest}, 10, 80, 64 * 255 + 1); // the gateway's short reply still fits
    }
    void hostileReplies()
    {
        QFETCH(int, times);
        SRecorder recorder;
        std::vector<QUdpSocket> strangers(cell<int>("strangers"));
        for (std::size_t i = 0; i < strangers.size(); ++i) {
            QVERIFY(strangers[i].bind(QHostAddress("127.0.0.%1"_s.arg(i + 2))));
        }
        const QByteArrayList gateway{reply(1, entry(2, 0))};
        QTimer pace; // slows the senders: a burst would overflow the receiver's buffer
        connect(&pace, &QTimer::timeout, &pace, [&] {
            const bool isScanListening = // true after the last request
                !recorder.arrivals.isEmpty() &&
                recorder.arrivals.last().senderAddress().isEqual(QHostAddress(SECOND_INTERFACE));
            if (isScanListening && times >= 0) {
                QUdpSocket& sender = times > 0 ? strangers[std::size_t(times) % strangers.size()] : recorder;
                const QNetworkDatagram& request = recorder.arrivals.first();
                for (const QByteArray& one : times > 0 ? cell<QByteArrayList>("replies") : gateway) {
                    sender.writeDatagram(one, QHostAddress(FIRST), quint16(request.senderPort()));
                }
                --times;
            }
        });
        pace.start(1);
        const CLogRecorder log(20);
        QTEST(static_cast<int>(scan(recorder.localPort(), 2500).size()), "found");
        const QByteArray last = "------- T93 interface found ---------------------------|hostname 'gw1' found.|"
                                "MAC address 00:1a:2b:3c:4d:5e found.|protocol Type: 0 (0=TCP, 1=UDP)|"
                                "IP address: 192.168.1.70|IP port 30000|Service: 1 (0=Client, 1=Server)|"
                                "local IP address (PC): 10.9.0.1|uniqueName: 'gw1-TCP-SERVER-30000'";
        QCOMPARE(log.lines().mid(log.lines().size() - 9),
                 (UNIT + QByteArray(last).replace("|", '|' + UNIT)).split('|'));
    }

    void pluginFindsGateways()
    {
        SSimIdentity identity;
        identity.macAddress = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
        SGateway one(identity);
        CSimDetection detection;
        QVERIFY(!one.gateway.listen(QHostAddress(FIRST), 30000));
        QVERIFY(!detection.listen(DDT_PORT));
        detection.addGateway(one.gateway);
        auto* const object = dynamic_cast<QObject*>(&plugin());
        // A scan must not use the proxy.
        QNetworkProxy::setApplicationProxy({QNetworkProxy::Socks5Proxy, "127.0.0.1"_s, 1});
        const SClock clock;
        QCOMPARE(plugin().scanInterfaces(), 0); // no receiver: its results must be deleted, or they leak
        QVERIFY(QTest::qWaitFor([] { return plugin().scanInterfaces() == 0; }, 10000));

        CResult result;
        connect(object, SIGNAL(interfaceScanFinished(int, QList<CCanInterface*>)), &result,
                SLOT(take(int, QList<CCanInterface*>)));
        QCOMPARE(plugin().scanInterfaces(), -1);
        QVERIFY(plugin().addScanAddress(FIRST));                            // used by the next scan only
        QMetaObject::invokeMethod(object, "deviceDetectionThreadFinished"); // too early: no effect
        QTRY_COMPARE_WITH_TIMEOUT(result.returned, QList<int>{0}, 10000);
        QVERIFY2(clock.elapsed() >= 2 * 4200, qPrintable(QString::number(clock.elapsed())));
        QCOMPARE(plugin().scanInterfaces(), -1);

        QCOMPARE(result.interfaces.size(), 2 * 3); // TCP and UDP, found by three addresses
        for (CCanInterface* const can : std::as_const(result.interfaces)) {
            const CCommonInfo& info = can->commonInfo();
            const CConfigParamT93 param = driver(*can).configParam();
            const QStringList texts{info.pluginName(), info.description(), info.type(), info.interfaceId(),
                                    param.hostname()};
            QCOMPARE(texts, list("InterfaceT93Plugin|T93 Ethernet Interface|T93|00:1a:2b:3c:4d:5e|t93sim"_s));
            QVERIFY(info.port().startsWith("IP=10.9.0.1:30000:"_s));
            QCOMPARE(info.port(), param.ipPortString());
            QVERIFY(info.isScanable());
            QVERIFY(info.firmwareVersion().isEmpty());
            QCOMPARE(info.connectionState(), CCommonInfo::eConnected);
        }
        QTRY_COMPARE_WITH_TIMEOUT(result.returned.size(), 2, 10000);
        QCOMPARE(result.interfaces.size(), 6 + 12); // the second scan also used the added address
    }

    void cimctlFindsAndOpensGateways()
    {
        const QTemporaryDir folder;
        qputenv("XDG_CONFIG_HOME", folder.path().toLocal8Bit());
        const SProcess near(CIM_T93SIM " --address 10.9.0.1 --gateways 2 --hostname hall --detect --generate 50 "
                                       "--seconds 60"_s);
        SProcess far("nsenter -t $CIM_FAR -n " CIM_T93SIM " --address 10.9.0.2 --hostname away --mac 00:1a:2b:3c:4d:5e "
                     "--endpoint tcp-server,udp-client:30001,tcp-client,7-2 --detect --seconds 60"_s);
        QByteArray started;
        QTRY_VERIFY((started += far.readAllStandardOutput()).contains("ident requests"));

        const QString command = "set -o pipefail; " CIM_CIMCTL " scan --json --save | tr -d '{}\"' | LC_ALL=C sort"_s;
        const SOutcome scan = run(command);
        QCOMPARE(scan.exitCode, 1);
        QVERIFY2(scan.err.contains("away-Invalid-SERVER-30000: Conversion enumeration"), scan.err);
        QStringList expected;
        const QString line =
            "address:%1,event:found,mac:%2,name:%3-%4-%5-%6,pcAddress:%7,port:%6,protocol:%4,role:%5"_s;
        const QString mac = "00:1a:2b:3c:4d:5e"_s;
        for (const QString& pc : {FIRST, "10.9.0.3"_s, SECOND_INTERFACE}) {
            for (const QString& protocol : {"TCP"_s, "UDP"_s}) {
                expected += line.arg(FIRST, "02:00:00:54:39:33"_s, "hall"_s, protocol, "SERVER"_s, "30000"_s, pc);
                expected += line.arg(FIRST, "02:00:00:54:39:34"_s, "hall-2"_s, protocol, "SERVER"_s, "30001"_s, pc);
            }
            if (pc != SECOND_INTERFACE) {
                expected += line.arg("10.9.0.2"_s, mac, "away"_s, "TCP"_s, "SERVER"_s, "30000"_s, pc);
                expected += line.arg("10.9.0.2"_s, mac, "away"_s, "UDP"_s, "CLIENT"_s, "30001"_s, pc);
                expected += line.arg("10.9.0.2"_s, mac, "away"_s, "Invalid"_s, "SERVER"_s, "30000"_s, pc);
            }
        }
        expected.sort();
        QCOMPARE(QString::fromUtf8(scan.out.trimmed()).split(QLatin1Char('\n')), expected);
        QCOMPARE(scan.err.count("\"event\":\"stored\""), 6);
        QCOMPARE(scan.err.count("\"event\":\"notStored\""), expected.size() - 6 - 2); // two cannot be stored
        far.terminate();
        QVERIFY(far.waitForFinished());
        const SOutcome again = run(command); // finds no interface that cannot be stored
        QCOMPARE(again.exitCode, 0);
        QCOMPARE(again.err.count("\"event\":\"updated\""), 4);
        const SOutcome first = run(CIM_CIMCTL " show away-TCP-SERVER-30000"_s);
        QVERIFY2(first.out.contains(" 10.9.0.1\n"), first.out); // one of several with the same name
        QCOMPARE(run(CIM_CIMCTL " dump hall-2-TCP-SERVER-30001 -n 3 -s 5"_s).out.count('\n'), 3);
    }

    void broadcastAsksNobody()
    {
        QUdpSocket gateways;
        QVERIFY(gateways.bind(QHostAddress(QHostAddress::AnyIPv4)));
        const auto can = makeInterface(gateways.localPort(), CCommonInfo::eProtocolUdp);
        can->setProperty("IPAddress", "255.255.255.255"_s);
        can->setProperty("LocalIPAddress", FIRST);
        QSignalSpy errors(can.get(), SIGNAL(interfaceError(int)));
        // The connection to a gateway must not use the proxy.
        QNetworkProxy::setApplicationProxy({QNetworkProxy::Socks5Proxy, "127.0.0.1"_s, 1});
        QCOMPARE(can->openCommunication(), 0);
        QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy);
        QCOMPARE(can->resetCommunication(1), 0);
        QCOMPARE(can->writeMessage(message(0x123)), 0);
        QByteArrayList datagrams;
        QNetworkDatagram request;
        QTRY_VERIFY(gateways.hasPendingDatagrams());
        while (gateways.hasPendingDatagrams()) {
            request = gateways.receiveDatagram();
            datagrams.append(request.data().toHex());
        }
        // Sent: bit rate, reset and message. Not sent: requests of MAC address, version and bus load.
        QCOMPARE(datagrams, (QByteArrayList{"43025705130d", "4301c0820d", frame(0x00, hex("0123")).toHex()}));

        const auto sayStatus = [&request](const QString& from, const QByteArray& status) {
            QUdpSocket socket;
            QVERIFY(socket.bind(QHostAddress(from)));
            socket.writeDatagram(frame(0x42, status), request.senderAddress(), quint16(request.senderPort()));
        };
        sayStatus(FIRST, hex("01")); // skipped: from the own address
        sayStatus("10.9.0.3"_s, hex("08"));
        QTRY_COMPARE(errorNumbers(errors), QList<int>{8});
    }

    void pulledCable_data()
    {
        // While the network is switched off, attempts to reconnect fail at once; they must continue nevertheless.
        rows({"while requests are under way", "while the link is idle", "network switched off on this side"});
    }
    void pulledCable()
    {
        const bool atGateway = rowName().startsWith("while");
        const unsigned int pollTime = rowName().endsWith("idle") ? 600000 : 300;
        // Two clients are allowed, because the new connection may arrive before the gateway notices that the old one is
        // lost.
        SProcess gateway("nsenter -t $CIM_FAR -n " CIM_T93SIM " --address 10.9.0.2 --seconds 60 --clients 2"_s);
        QVERIFY(gateway.waitForReadyRead());
        const auto can = makeInterface(30000);
        can->setProperty("IPAddress", "10.9.0.2"_s);
        can->setProperty("BusloadPollTime", pollTime);
        // The connection to a gateway must not use the proxy.
        QNetworkProxy::setApplicationProxy({QNetworkProxy::Socks5Proxy, "127.0.0.1"_s, 1});
        QSignalSpy errors(can.get(), SIGNAL(interfaceError(int)));
        QCOMPARE(can->openCommunication(), 0);
        QTRY_VERIFY(!can->commonInfo().firmwareVersion().isEmpty());
        // An idle link with its cable plugged in is not lost, however silent it is.
        QTest::qWait(pollTime > 10000 ? 12000 : 0); // longer than the detection of a loss takes
        QVERIFY(errors.isEmpty());

        QVERIFY(setLink(atGateway, "down"_s));
        QTRY_COMPARE_WITH_TIMEOUT(errorNumbers(errors), QList<int>{0}, 11000);
        QCOMPARE(can->commonInfo().connectionState(), CCommonInfo::eNotConnected);
        QVERIFY(setLink(atGateway, "up"_s));
        QTRY_COMPARE_WITH_TIMEOUT(can->commonInfo().connectionState(), CCommonInfo::eConnected, 10000);
        QCOMPARE(can->writeMessage(message(0x123)), 0);
        QCOMPARE(errors.size(), 1);
    }
};

QTEST_GUILESS_MAIN(NetworkTest)
#include "tst_network.moc"
