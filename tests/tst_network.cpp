#include "t93Fixture.h"

#include "InterfaceT93/t93DeviceDetection.h"
#include "scanData.h"

using namespace vexmor::Test;

namespace
{
const QString FIRST = "10.9.0.1"_s;                             // an address of this PC, like 10.9.0.3 and fd09::1
const QByteArray UNIT = "20 InterfaceT93/t93DeviceDetection: "; // beginning of each log line

/// Records the datagrams that are sent to a port of its own, on all addresses.
struct SRecorder : QUdpSocket {
    SRecorder()
    {
        (void)bind(QHostAddress(QHostAddress::Any));
        connect(this, &QUdpSocket::readyRead, this, [this] {
            while (hasPendingDatagrams()) {
                arrivals.append(receiveDatagram());
            }
        });
    }
    /// Sends a datagram to the IPv4 sender of the first arrival.
    void answer(QUdpSocket& from, const QByteArray& datagram) const
    {
        const QNetworkDatagram& first = arrivals.first();
        from.writeDatagram(datagram, QHostAddress(first.senderAddress().toIPv4Address()), quint16(first.senderPort()));
    }
    QList<QNetworkDatagram> arrivals;
};

/// A scan in steps. A recorder receives its requests, and plays the gateways.
struct SScan : SRecorder {
    explicit SScan(const QList<QHostAddress>& scanAddresses = {}) : scan(scanAddresses, true, localPort(), stop)
    {
        scan.collectNetworkInterfaces();
        scan.bindSockets();
        const SClock clock;
        scan.sendIdentRequests();
        milliseconds = clock.elapsed();
        (void)QTest::qWaitFor([this] { return arrivals.size() >= 3; });
    }
    const QList<CDetectedInterface>& found()
    {
        QCoreApplication::processEvents();
        scan.closeSockets();
        scan.evaluateDatagrams();
        return scan.detectedInterfaces();
    }
    const CScanStop stop;
    CT93DeviceDetection scan;
    qint64 milliseconds = 0; ///< Time that sending the requests took.
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

} // namespace

/// Tests in a network of their own, with 10.9.0.1, 10.9.0.3 and fd09::1 on one network interface and 10.9.1.1 on
/// another: scans, broadcasts and pulled cables.
class NetworkTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY2(qEnvironmentVariableIsSet("CIM_FAR"), "run by inNamespace only"); }

    void requestsOnTheWire()
    {
        // Sender, receiver and sequence number. The socket of fd09::1 cannot broadcast: its sequence number stays.
        const QString requests =
            "10.9.0.1 255.255.255.255 0|10.9.0.1 10.9.0.1 1|10.9.0.3 255.255.255.255 1|"
            "10.9.0.3 10.9.0.1 2|fd09::1 fd09::1 2|10.9.1.1 255.255.255.255 2|10.9.1.1 10.9.0.1 3"_s;
        constexpr int PAUSES_MS = 2 * 100 + 4 * 40; // after a broadcast before another, and after a direct request
        bool isPrompt = false;                      // required once only, because the PC may be busy
        for (int round = 0; round < 10 && !isPrompt; ++round) {
            const SScan scan({QHostAddress(FIRST), QHostAddress("fd09::1"_s)});
            QTRY_COMPARE(scan.arrivals.size(), list(requests).size());
            QStringList sent;
            for (const QNetworkDatagram& request : scan.arrivals) {
                const int sequence = request.data().at(0);
                QCOMPARE(request.data().toHex(), requestBytes(sequence).toHex());
                sent += "%1 %2 %3"_s.arg(request.senderAddress().toString(), request.destinationAddress().toString())
                            .arg(sequence);
            }
            QCOMPARE(sent.join(QLatin1Char('|')).remove(QRegularExpression("::ffff:|%\\d+"_s)), requests);
            QVERIFY(scan.milliseconds >= PAUSES_MS);
            isPrompt = scan.milliseconds < PAUSES_MS + 40;
        }
        QVERIFY(isPrompt);
    }

    void hostileReplies_data()
    {
        // Strangers take turns to send the replies, "times" in all; then a gateway answers.
        const auto row = columns<QByteArrayList, int, std::size_t, int>("replies", "strangers", "times", "found");
        const QByteArray good = reply(1, entry(2, 0));
        QByteArray longest;
        for (std::uint16_t port = 1; port < 255; ++port) {
            longest += entry(2, 1, "g", port);
        }
        longest = reply(255, longest + entry(2, 0));
        const QByteArrayList broken{{},
                                    hex("00"),
                                    hex("000000ff"),
                                    QByteArray(good).replace(2, 1, "\x80"),
                                    reply(255, entry(2, 1)),
                                    reply(1, entry(2, 0).left(63)),
                                    good};
        row("broken ones around good ones", broken, 1, 1, 2 + 1);
        row("more than 512 of one", {good, good, good, good, good, good}, 1, 1000, 512 + 1);
        row("more than 4096", {good, good, good, good, good, good}, 10, 1000, 4096);
        row("longer than any reply", {longest + QByteArray(40000, 'x')}, 1, 1, 255 + 1);
        row("more than 128 KiB of one", {longest}, 1, 80, 8 * 255 + 1);
        row("more than 1 MiB", {longest}, 10, 80, 64 * 255 + 1); // the gateway's short reply still fits
    }
    void hostileReplies()
    {
        const CLogRecorder log(20);
        SScan scan;
        std::vector<QUdpSocket> strangers(cell<int>("strangers"));
        for (std::size_t i = 0; i < strangers.size(); ++i) {
            QVERIFY(strangers[i].bind(QHostAddress("127.0.0.%1"_s.arg(i + 2))));
        }
        for (std::size_t turn = 0; turn < cell<std::size_t>("times"); ++turn) {
            for (const QByteArray& one : cell<QByteArrayList>("replies")) {
                scan.answer(strangers[turn % strangers.size()], one);
            }
            QCoreApplication::processEvents();
        }
        scan.answer(scan, reply(1, entry(2, 0)));
        QTEST(static_cast<int>(scan.found().size()), "found");
        const QByteArray lines =
            "broadcast DDT message for T93 device scan:|IP Address:               10.9.1.1|"
            "Subnet-Broadcast Address: 10.9.1.255|Using Broadcast Address:  255.255.255.255|"
            "------- T93 interface found ---------------------------|hostname 'gw1' found.|"
            "MAC address 00:1a:2b:3c:4d:5e found.|protocol Type: 0 (0=TCP, 1=UDP)|IP address: 192.168.1.70|"
            "IP port 30000|Service: 1 (0=Client, 1=Server)|local IP address (PC): 10.9.0.1|"
            "uniqueName: 'gw1-TCP-SERVER-30000'";
        const int at = log.lines().lastIndexOf(UNIT + lines.split('|').first());
        QCOMPARE((log.lines().mid(at, 4) + log.lines().mid(log.lines().size() - 9)).join('|').replace(UNIT, ""), lines);
    }

    void scansFindGateways()
    {
        const QTemporaryDir folder;
        qputenv("XDG_CONFIG_HOME", folder.path().toLocal8Bit());
        const SProcess near(CIM_T93SIM " --address 10.9.0.1 --gateways 2 --hostname hall --detect --seconds 80"_s);
        SProcess far("nsenter -t $CIM_FAR -n " CIM_T93SIM " --address 10.9.0.2 --hostname away --mac 00:1a:2b:3c:4d:5e "
                     "--endpoint tcp-server,udp-client:30001,tcp-client,7-2 --detect --seconds 80"_s);
        QByteArray started;
        QTRY_VERIFY((started += far.readAllStandardOutput()).contains("ident requests"));
        constexpr int FOUND = 3 * 4 + 2 * 3; // by three addresses of this PC near, and by two of them far

        auto* const object = dynamic_cast<QObject*>(&plugin());
        // A scan must not use the proxy.
        QNetworkProxy::setApplicationProxy({QNetworkProxy::Socks5Proxy, "127.0.0.1"_s, 1});
        const SClock clock;
        QCOMPARE(plugin().scanInterfaces(), 0); // no receiver: its results must be deleted, or they leak
        QVERIFY(QTest::qWaitFor([] { return plugin().scanInterfaces() == 0; }, 10000));
        qRegisterMetaType<QList<CCanInterface*>>("QList<CCanInterface*>");
        const QSignalSpy results(object, SIGNAL(interfaceScanFinished(int, QList<CCanInterface*>)));
        connect(object, SIGNAL(interfaceScanFinished(int, QList<CCanInterface*>)), object, SLOT(scanInterfaces()));
        const auto result = [&results](int number) {
            return qvariant_cast<QList<CCanInterface*>>(results.at(number).at(1));
        };
        QCOMPARE(plugin().scanInterfaces(), -1);
        QVERIFY(plugin().addScanAddress(FIRST));                            // used by the next scan only
        QMetaObject::invokeMethod(object, "deviceDetectionThreadFinished"); // too early: no effect
        QTRY_COMPARE_WITH_TIMEOUT(results.size(), 1, 10000);
        QVERIFY2(clock.elapsed() >= 2 * 4200, qPrintable(QString::number(clock.elapsed())));
        QCOMPARE(plugin().scanInterfaces(), -1); // the slot has started the next scan
        QCOMPARE(results.at(0).at(0).toInt(), 1);
        QCOMPARE(result(0).size(), FOUND);
        QStringList texts;
        for (CCanInterface* const can : result(0)) {
            const CCommonInfo& info = can->commonInfo();
            const CConfigParamT93 param = driver(*can).configParam();
            const QStringList text{info.uniqueName(),      info.pluginName(),
                                   info.description(),     info.type(),
                                   info.interfaceId(),     info.port(),
                                   param.ipPortString(),   param.hostname(),
                                   info.firmwareVersion(), QString::number(info.isScanable() && isConnected(*can))};
            texts += text.join(QLatin1Char('|'));
        }
        QCOMPARE(texts.count("hall-2-UDP-SERVER-30001|InterfaceT93Plugin|T93 Ethernet Interface|T93|02:00:00:54:39:34|"
                             "IP=10.9.0.1:30001:UDP|IP=10.9.0.1:30001:UDP|hall-2||1"_s),
                 3);
        QTRY_COMPARE_WITH_TIMEOUT(results.size(), 2, 10000);
        QCOMPARE(result(1).size(), FOUND + 3 * 4); // this scan also used the added address
        qDeleteAll(result(0) + result(1));

        const SOutcome scan = run(CIM_CIMCTL " scan --json --save --baudrate 250"_s);
        QCOMPARE(scan.exitCode, 1);
        QVERIFY2(scan.err.contains("away-Invalid-SERVER-30000: Conversion enumeration"), scan.err);
        const QByteArray line =
            R"({"address":"10.9.0.2","event":"found","mac":"00:1a:2b:3c:4d:5e",)"
            R"("name":"away-UDP-CLIENT-30001","pcAddress":"10.9.0.3","port":30001,"protocol":"UDP",)"
            R"("role":"CLIENT"})";
        QVERIFY2(scan.out.contains(line + '\n'), scan.out);
        QCOMPARE(scan.out.count('\n'), FOUND);
        QCOMPARE(scan.err.count("\"event\":\"stored\""), 6);
        QCOMPARE(scan.err.count("\"event\":\"notStored\""), FOUND - 6 - 2); // two cannot be stored
        const QString stored = folder.filePath("Vexmor/Cim.conf"_s);
        QCOMPARE(contentOf(stored).count("CanBaudrate=250"), 6);
        QCOMPARE(contentOf(stored).count("UdpBindAnyIp=0"), 6);
        QCOMPARE(run("sed -Ei 's/=250/=125/; s/(Local-IP-Address=).*/\\17.7.7.7/' "_s + stored).exitCode, 0);
        far.terminate();
        QVERIFY(far.waitForFinished());
        const SOutcome again = run(CIM_CIMCTL " scan --json --save"_s); // finds no interface that cannot be stored
        QCOMPARE(again.exitCode, 0);
        QCOMPARE(again.err.count("\"event\":\"updated\"") + again.err.count("\"seconds\":3}"), 4 + 1);
        // A scan updates what it knows, and changes no other settings.
        QCOMPARE(contentOf(stored).count("CanBaudrate=125") + contentOf(stored).count("=7.7.7.7"), 6 + 2);
    }

    void noQueriesByBroadcast()
    {
        SRecorder gateways;
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
        QTRY_VERIFY(!gateways.arrivals.isEmpty());
        QByteArrayList sent;
        for (const QNetworkDatagram& datagram : std::as_const(gateways.arrivals)) {
            sent += datagram.data().toHex();
        }
        // Sent: bit rate, reset and message. Not sent: requests of MAC address, version and bus load.
        QCOMPARE(sent, (QByteArrayList{"43025705130d", "4301c0820d", frame(0x00, hex("0123")).toHex()}));

        QUdpSocket own, gateway;
        QVERIFY(own.bind(QHostAddress(FIRST)));
        QVERIFY(gateway.bind(QHostAddress("10.9.0.3"_s)));
        gateways.answer(own, frame(0x42, hex("01"))); // skipped: from the own address
        gateways.answer(gateway, frame(0x42, hex("08")));
        QTRY_COMPARE(errorNumbers(errors), QList<int>{8});
    }

    void pulledCable_data()
    {
        // While the network is switched off, attempts to reconnect fail at once; they must continue nevertheless.
        rows({"while requests are under way", "while the link is idle", "network switched off on this side"});
    }
    void pulledCable()
    {
        const QString setLink = rowName().startsWith("while") ? "nsenter -t $CIM_FAR -n ip link set far "_s // the cable
                                                              : "ip link set near "_s;
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
        QVERIFY(QTest::qWaitFor([&can] { return can->openCommunication() == 0; }));
        QTRY_VERIFY(!can->commonInfo().firmwareVersion().isEmpty());
        // An idle link with its cable plugged in is not lost, however silent it is.
        QTest::qWait(pollTime > 10000 ? 12000 : 0); // longer than the detection of a loss takes
        QVERIFY(errors.isEmpty());

        QCOMPARE(run(setLink + "down"_s).exitCode, 0);
        QTRY_COMPARE_WITH_TIMEOUT(errorNumbers(errors), QList<int>{0}, 11000);
        QCOMPARE(can->commonInfo().connectionState(), CCommonInfo::eNotConnected);
        QCOMPARE(run(setLink + "up"_s).exitCode, 0);
        QTRY_COMPARE_WITH_TIMEOUT(can->commonInfo().connectionState(), CCommonInfo::eConnected, 10000);
        QCOMPARE(can->writeMessage(message(0x123)), 0);
        QCOMPARE(errors.size(), 1);
    }
};

QTEST_GUILESS_MAIN(NetworkTest)
#include "tst_network.moc"
