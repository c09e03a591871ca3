#include "t93Fixture.h"

#include "InterfaceT93/detectionDatagrams.h"
#include "InterfaceT93/t93DeviceDetection.h"
#include "scanData.h"
#include "sim/simDetection.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QUdpSocket>

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/time.h>

using namespace vexmor::Test;

using Addresses = QList<QHostAddress>;
Q_DECLARE_METATYPE(Addresses)
Q_DECLARE_METATYPE(SSimDetectionFaults)

namespace
{
const QString FIRST = QStringLiteral("10.9.0.1"); // of this computer, like 10.9.0.3 and fd09::1
const QString SECOND_INTERFACE = QStringLiteral("10.9.1.1");

QStringList list(const QString& text, char separator = ' ')
{
    return text.split(QLatin1Char(separator));
}

struct SArrival {
    QHostAddress sender;
    quint16 senderPort = 0;
    QByteArray data;
    qint64 microseconds = 0; ///< when the kernel had it
};

/// Hears what is sent to a port, on all addresses.
class CRecorder
{
public:
    CRecorder()
    {
        if (!m_socket.bind(QHostAddress(QHostAddress::Any))) {
            qFatal("%s", qPrintable(m_socket.errorString()));
        }
        (void)arrivalTime(); // the kernel notes times from the first question on
        QObject::connect(&m_socket, &QUdpSocket::readyRead, &m_socket, [this] { read(); });
    }
    quint16 port() const { return m_socket.localPort(); }
    /// Sends from the recorder to whoever sent this.
    void answer(const SArrival& request, const QByteArray& data)
    {
        m_socket.writeDatagram(data, request.sender, request.senderPort);
    }

    QList<SArrival> arrivals;
    std::function<void(const SArrival&)> onArrival;

private:
    qint64 arrivalTime()
    {
        timeval time{};
        ioctl(int(m_socket.socketDescriptor()), SIOCGSTAMP, &time);
        return time.tv_sec * 1000000LL + time.tv_usec;
    }
    void read()
    {
        while (m_socket.hasPendingDatagrams()) {
            SArrival arrival;
            arrival.data.resize(int(m_socket.pendingDatagramSize()));
            m_socket.readDatagram(arrival.data.data(), arrival.data.size(), &arrival.sender, &arrival.senderPort);
            arrival.microseconds = arrivalTime();
            bool isIpv4 = false;
            const quint32 ipv4 = arrival.sender.toIPv4Address(&isIpv4);
            arrival.sender = isIpv4 ? QHostAddress(ipv4) : arrival.sender;
            arrivals.append(arrival);
            if (onArrival) {
                onArrival(arrival);
            }
        }
    }
    QUdpSocket m_socket;
};

/// A whole scan with the times and the port of the test; gives the names of what came to the first address.
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

/// A gateway that answers scans.
struct SFindable {
    SFindable(quint16 detectPort, std::uint16_t port, const SSimIdentity& identity)
    {
        QString error;
        gateway.setIdentity(identity);
        if (!gateway.listen(QHostAddress(FIRST), port, error) || !detection.listen(detectPort, error)) {
            qFatal("%s", qPrintable(error));
        }
        detection.addGateway(gateway);
    }
    CSimBus bus;
    CSimGateway gateway{bus};
    CSimDetection detection;
};

/// Takes the results of the plugin's scans, as a host does.
class CResult : public QObject
{
    Q_OBJECT
public:
    ~CResult() override { qDeleteAll(interfaces); }
    QList<CCanInterface*> interfaces;
    QList<int> returned; ///< by the plugin to the scan that is started in the slot
public Q_SLOTS:
    void take(int pluginId, QList<CCanInterface*> interfaceList)
    {
        QCOMPARE(pluginId, 1);
        interfaces += interfaceList;
        returned.append(returned.isEmpty() ? plugin().scanInterfaces() : -2);
    }
};

struct SProcess : QProcess {
    SProcess(const QString& program, const QStringList& arguments) { start(program, arguments); }
    ~SProcess() override
    {
        terminate();
        waitForFinished();
    }
};
} // namespace

/// The scan on the wire, in a network of its own: 10.9.0.1, 10.9.0.3 and fd09::1 on one interface, 10.9.1.1 on another.
class ScanTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY2(qEnvironmentVariableIsSet("CIM_FAR"), "run by inNamespace only"); }

    void requestsOnTheWire_data()
    {
        QTest::addColumn<Addresses>("scanAddresses");
        QTest::addColumn<bool>("skipLoopback");
        QTest::addColumn<QStringList>("requests"); // sender, sequence, milliseconds since the one before
        const auto row = [](const char* name, const Addresses& addresses, bool skipLoopback, const char* requests) {
            QTest::newRow(name) << addresses << skipLoopback << list(QLatin1String(requests), ',');
        };
        row("one from each address", {}, true, "10.9.0.1 0 0,10.9.0.3 1 100,10.9.1.1 2 100");
        // The socket of fd09::1 may not broadcast: no pause follows, and the sequence stays.
        row("addresses asked directly", {QHostAddress(FIRST), QHostAddress(QStringLiteral("fd09::1"))}, true,
            "10.9.0.1 0 0,10.9.0.1 1 0,10.9.0.3 1 140,10.9.0.3 2 0,fd09::1 2 140,10.9.1.1 2 40,10.9.1.1 3 0");
        row("loopback too", {QHostAddress(QHostAddress::LocalHost)}, false,
            "127.0.0.1 0 0,127.0.0.1 1 0,10.9.0.1 1 140,10.9.0.1 2 0");
    }
    void requestsOnTheWire()
    {
        QFETCH(Addresses, scanAddresses);
        QFETCH(bool, skipLoopback);
        QFETCH(QStringList, requests);
        CRecorder recorder;
        const CLogRecorder log(20);
        QVERIFY(scan(recorder.port(), 50, scanAddresses, skipLoopback).isEmpty());
        QVERIFY2(!skipLoopback || recorder.arrivals.size() == requests.size(), "one request a socket and address");
        for (int i = 0; i < requests.size(); ++i) {
            const QStringList expected = list(requests.at(i));
            const SArrival& request = recorder.arrivals.at(i);
            QCOMPARE(request.sender, QHostAddress(expected.at(0)));
            QCOMPARE(request.data.toHex(), requestBytes(expected.at(1).toInt()).toHex());
            const qint64 pause = (request.microseconds - recorder.arrivals.at(qMax(i - 1, 0)).microseconds) / 1000;
            QVERIFY2(pause >= expected.at(2).toInt() && pause < expected.at(2).toInt() + 90,
                     qPrintable(QStringLiteral("%1: %2 ms").arg(requests.at(i)).arg(pause)));
        }
        const QByteArray unit = "20 InterfaceT93/t93DeviceDetection: ";
        const int last = log.lines().lastIndexOf(unit + "IP Address:               10.9.1.1");
        QCOMPARE(log.lines().mid(last - 1, 4), (QList<QByteArray>{unit + "broadcast DDT message for T93 device scan:",
                                                                  unit + "IP Address:               10.9.1.1",
                                                                  unit + "Subnet-Broadcast Address: 10.9.1.255",
                                                                  unit + "Using Broadcast Address:  255.255.255.255"}));
    }

    void hostileReplies_data()
    {
        QTest::addColumn<QByteArrayList>("replies");
        QTest::addColumn<int>("times");
        QTest::addColumn<int>("found");
        const QByteArray good = reply(1, entry(2, 0));
        QByteArray longest;
        for (std::uint16_t port = 1; port <= 255; ++port) {
            longest += entry(2, 1, "g", port);
        }
        longest = reply(255, longest);
        const QByteArrayList broken{{},
                                    hex("00"),
                                    hex("000000"),
                                    hex("000000ff"),
                                    requestBytes(0),
                                    reply(255, entry(2, 1)), // counts
                                    reply(1, entry(2, 0).left(63))};
        QTest::newRow("broken ones before a good one") << broken + QByteArrayList{good} << 1 << 2;
        QTest::newRow("the same a thousand times") << QByteArrayList{good} << 1000 << 1000;
        QTest::newRow("longer than any reply") << QByteArrayList{longest + QByteArray(40000, 'x')} << 1 << 255;
        QTest::newRow("more than 1 MiB") << QByteArrayList{longest} << 80 << 64 * 255;
    }
    void hostileReplies()
    {
        QFETCH(QByteArrayList, replies);
        QFETCH(int, times);
        CRecorder recorder;
        QTimer pace; // a burst would not fit into the receiver's buffer
        recorder.onArrival = [&](const SArrival& request) {
            if (request.sender == QHostAddress(SECOND_INTERFACE)) { // the last request: from now on the scan listens
                pace.start(1);
            }
        };
        connect(&pace, &QTimer::timeout, &pace, [&] {
            for (int i = 0; i < replies.size() && times > 0; ++i) {
                recorder.answer(recorder.arrivals.first(), replies.at(i));
            }
            --times;
        });
        QTEST(scan(recorder.port(), 2500).size(), "found");
    }

    void simulatorMisbehaves_data()
    {
        QTest::addColumn<SSimDetectionFaults>("faults");
        QTest::addColumn<QString>("hostName"); // as found
        QTest::addColumn<QString>("found");    // endpoints by their first letter
        const auto row = [](const char* name, const char* hostName, const char* found, auto change) {
            SSimDetectionFaults faults;
            change(faults);
            QTest::newRow(name) << faults << QString::fromUtf8(hostName) << QString::fromLatin1(found);
        };
        row("not at all", "hall", "TU", [](auto&) {});
        row("cut", "hall", "T", [](auto& faults) { faults.cutAt = 4 + 64 + 20; });
        row("255 entries announced", "hall", "TU", [](auto& faults) { faults.entryCount = 255; });
        row("name without end", "hallxxxxxxxxxxxxxxxxxxxxxxxx", "TU",
            [](auto& faults) { faults.nameWithoutEnd = true; });
        row("no UTF-8", "\uFFFD\uFFFDhall", "TU", [](auto& faults) { faults.nameNoUtf8 = true; });
        row("twice", "hall", "TUTU", [](auto& faults) { faults.repeat = 2; });
        row("too late", "hall", "", [](auto& faults) { faults.delayMs = 900; });
    }
    void simulatorMisbehaves()
    {
        QFETCH(SSimDetectionFaults, faults);
        QFETCH(QString, hostName);
        QFETCH(QString, found);
        const quint16 port = CRecorder().port(); // one that is free
        SSimIdentity identity;
        identity.hostName = "hall";
        identity.endpoints = {{2, 0, 0}, {1, 1, 30001}};
        SFindable one(port, 30000, identity);
        one.detection.setFaults(faults);
        QStringList names;
        for (const QChar letter : std::as_const(found)) {
            names.append(hostName +
                         QLatin1String(letter == QLatin1Char('T') ? "-TCP-SERVER-30000" : "-UDP-CLIENT-30001"));
        }
        QCOMPARE(scan(port, 400), names);
    }

    void pluginFindsGateways()
    {
        SSimIdentity identity;
        identity.macAddress = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
        const SFindable one(DDT_PORT, 30000, identity);
        CResult result;
        auto* const object = dynamic_cast<QObject*>(&plugin());
        connect(object, SIGNAL(interfaceScanFinished(int, QList<CCanInterface*>)), &result,
                SLOT(take(int, QList<CCanInterface*>)));
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(plugin().scanInterfaces(), 0);
        QCOMPARE(plugin().scanInterfaces(), -1);
        QVERIFY(plugin().addScanAddress(FIRST));                            // for the next scan only
        QMetaObject::invokeMethod(object, "deviceDetectionThreadFinished"); // not yet: no effect
        QTRY_COMPARE_WITH_TIMEOUT(result.returned, QList<int>{0}, 10000);
        QVERIFY2(clock.elapsed() >= 4200, qPrintable(QString::number(clock.elapsed())));
        QCOMPARE(plugin().scanInterfaces(), -1);

        QCOMPARE(result.interfaces.size(), 2 * 3); // TCP and UDP, asked from three addresses
        for (CCanInterface* const can : std::as_const(result.interfaces)) {
            const CCommonInfo& info = can->commonInfo();
            const CConfigParamT93 param = driver(*can).configParam();
            QCOMPARE(info.interfaceId(), QStringLiteral("00:1a:2b:3c:4d:5e"));
            QVERIFY(info.port().startsWith(QStringLiteral("IP=10.9.0.1:30000:")) &&
                    info.port() == param.ipPortString());
            QCOMPARE(info.pluginName(), QStringLiteral("InterfaceT93Plugin"));
            QCOMPARE(info.description(), QStringLiteral("T93 Ethernet Interface"));
            QVERIFY(info.type() == QStringLiteral("T93") && info.isScanable() && info.firmwareVersion().isEmpty());
            QVERIFY(info.connectionState() == CCommonInfo::eConnected && !can->isOpened());
            QVERIFY(param.hostname() == QStringLiteral("t93sim") && can->baudrate() == 100);
        }
        QTRY_COMPARE_WITH_TIMEOUT(result.returned.size(), 2, 10000);
        QCOMPARE(result.interfaces.size(), 6 + 12); // the second scan asked by the address, too
    }

    void cimctlFindsAndOpensGateways()
    {
        const QTemporaryDir folder;
        qputenv("XDG_CONFIG_HOME", folder.path().toLocal8Bit());
        const SProcess near(QStringLiteral(CIM_T93SIM),
                            list(QStringLiteral("--address 10.9.0.1 --gateways 2 --hostname hall --detect "
                                                "--generate 50 --seconds 60")));
        QStringList away = list(QStringLiteral("--address 10.9.0.2 --hostname away --mac 00:1a:2b:3c:4d:5e --endpoint "
                                               "tcp-server,udp-client:30001,tcp-client --detect --seconds 60"));
        away = list(QStringLiteral("-t %1 -n").arg(QString::fromLocal8Bit(qgetenv("CIM_FAR")))) +
               QStringList(QStringLiteral(CIM_T93SIM)) + away;
        SProcess far(QStringLiteral("nsenter"), away);
        QByteArray started;
        QTRY_VERIFY((started += far.readAllStandardOutput()).contains("ident requests"));

        SProcess scan(QStringLiteral(CIM_CIMCTL), list(QStringLiteral("scan --json --save")));
        QVERIFY(scan.waitForFinished());
        QCOMPARE(scan.exitCode(), 0);
        QStringList found;
        for (const QByteArray& line : scan.readAllStandardOutput().trimmed().split('\n')) {
            const QJsonObject one = QJsonDocument::fromJson(line).object();
            QStringList fields;
            for (const char* key : {"name", "address", "port", "protocol", "role", "mac", "pcAddress"}) {
                fields.append(one.value(QLatin1String(key)).toVariant().toString());
            }
            found.append(fields.join(QLatin1Char(' ')));
        }
        QStringList expected;
        const auto expect = [&expected](const char* line, const char* pcAddresses) {
            for (const QString& pcAddress : list(QLatin1String(pcAddresses))) {
                expected.append(QLatin1String(line) + QLatin1Char(' ') + pcAddress);
            }
        };
        const char* const everywhere = "10.9.0.1 10.9.0.3 10.9.1.1";
        expect("hall-TCP-SERVER-30000 10.9.0.1 30000 TCP SERVER 02:00:00:54:39:33", everywhere);
        expect("hall-UDP-SERVER-30000 10.9.0.1 30000 UDP SERVER 02:00:00:54:39:33", everywhere);
        expect("hall-2-TCP-SERVER-30001 10.9.0.1 30001 TCP SERVER 02:00:00:54:39:34", everywhere);
        expect("hall-2-UDP-SERVER-30001 10.9.0.1 30001 UDP SERVER 02:00:00:54:39:34", everywhere);
        expect("away-TCP-SERVER-30000 10.9.0.2 30000 TCP SERVER 00:1a:2b:3c:4d:5e", "10.9.0.1 10.9.0.3");
        expect("away-UDP-CLIENT-30001 10.9.0.2 30001 UDP CLIENT 00:1a:2b:3c:4d:5e", "10.9.0.1 10.9.0.3");
        found.sort();
        expected.sort();
        QCOMPARE(found, expected);
        const QByteArray said = scan.readAllStandardError();
        QCOMPARE(said.count("\"event\":\"stored\""), 6);
        QCOMPARE(said.count("\"event\":\"notStored\""), expected.size() - 6);

        for (const char* name : {"hall-2-TCP-SERVER-30001", "hall-UDP-SERVER-30000"}) {
            SProcess dump(QStringLiteral(CIM_CIMCTL),
                          list(QStringLiteral("dump %1 --count 3 --seconds 5").arg(QLatin1String(name))));
            QVERIFY(dump.waitForFinished());
            QCOMPARE(dump.exitCode(), 0);
            QCOMPARE(dump.readAllStandardOutput().count('\n'), 3);
        }
    }
};

QTEST_GUILESS_MAIN(ScanTest)
#include "tst_scan.moc"
