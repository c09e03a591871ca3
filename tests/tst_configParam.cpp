#include "t93Fixture.h"

using namespace vexmor::Test;

namespace
{
const QString GROUP = "CanInterfaces"_s;
constexpr int SILENT_MS = 50;
const QByteArray UNIT = "InterfaceT93/configParamT93: ";

CCommonInfo infoNamed(const QString& name)
{
    CCommonInfo info;
    info.setPluginName("InterfaceT93Plugin"_s);
    info.setUniqueName(name);
    info.setScanable(true);
    return info;
}

/// Returns all entries of the store under a path, as KEY=VALUE.
QStringList storedUnder(const QString& path)
{
    QSettings store;
    store.beginGroup(path);
    QStringList lines;
    for (const QString& key : store.allKeys()) {
        lines.append(key + QLatin1Char('=') + store.value(key).toString());
    }
    return lines;
}

const QStringList FILLED = list("AutoIpUpdate=1 BusloadMeasureInterval=65535 BusloadPollTime=4000000000 "
                                "CanBaudrate=1000 Description= Dhcp=0 FirmwareVersion= Hostname=hall "
                                "IP-Address=10.0.0.5 InterfaceId= InterfaceType= Local-IP-Address=10.0.0.1 "
                                "PluginName=InterfaceT93Plugin Port=31000 PortId= Protocol=UDP Scanable=true "
                                "Service=CLIENT UdpBindAnyIp=1"_s);

/// Stored entries with another value for each key.
const QStringList STORED = list("AutoIpUpdate=0 BusloadMeasureInterval=1 BusloadPollTime=2 CanBaudrate=3 "
                                "Description=stored Dhcp=1 FirmwareVersion=stored Hostname=stored IP-Address=10.0.0.6 "
                                "InterfaceId=stored InterfaceType=stored Local-IP-Address=10.0.0.2 "
                                "PluginName=InterfaceT93Plugin Port=4 PortId=stored Protocol=TCP Scanable=false "
                                "Service=SERVER UdpBindAnyIp=0"_s);

/// Stores entries KEY=VALUE under a path.
void store(const QString& path, const QStringList& lines)
{
    QSettings settings;
    for (const QString& line : lines) {
        settings.setValue(path + line.section(QLatin1Char('='), 0, 0), line.section(QLatin1Char('='), 1));
    }
}

} // namespace

/// The settings of a gateway: where they are stored, which values are refused, and that no other entry of the store
/// changes.
class ConfigParamTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_store = std::make_unique<CPrivateStore>();
        m_info = infoNamed("a"_s);
        store("Filled/a/"_s, FILLED);
        QCOMPARE(m_param.loadSettings("Filled"_s, m_info), 0);
        QSettings().remove("Filled"_s);
    }

    void whatIsLoadedIsSaved()
    {
        QCOMPARE(m_param.loadSettings(GROUP, m_info), 0); // nothing is stored: nothing changes
        QSettings().setValue("CanInterfaces/a/OldKey"_s, 1);
        QCOMPARE(m_param.saveSettings(GROUP, m_info), 0);
        QCOMPARE(m_param.saveSettings(GROUP, m_info), 0);
        QCOMPARE(storedUnder({}).size(), FILLED.size()); // only one group, without the old key
        QCOMPARE(storedUnder("CanInterfaces/a"_s), FILLED);
    }

    void storedValues_data()
    {
        // The row name is stored in addition to STORED. "loaded" is the resulting entry; empty: the whole group is
        // refused.
        const auto row = columns<QString, int, QList<QByteArray>>("loaded", "code", "log");
        for (const char* same : {"Service=CLIENT", "Service=Invalid", "Protocol=NA", "Dhcp=0"}) {
            row(same, QString::fromLatin1(same), 0, {});
        }
        row("Port=70000", "Port=4464"_s, 0, {});
        row("Port=http", "Port=0"_s, 0, {});
        row("BusloadMeasureInterval=65537", "BusloadMeasureInterval=1"_s, 0, {});
        row("Service=client", {}, 8,
            {"30 " + UNIT + "Conversion of service 'client' to EServiceType failed!",
             "50 " + UNIT + "could not convert 'client' to a service type."});
        row("Protocol=SCTP", {}, 8,
            {"30 cim/commonInfoInterface: Conversion of protocol string = 'SCTP' to EProtoclType failed!",
             "50 " + UNIT + "could not convert 'SCTP' to a protocol type."});
        row("IP-Address=300.1.1.1", {}, 9, {"50 " + UNIT + "Could not convert '300.1.1.1' to an IP address."});
        row("Local-IP-Address=here", {}, 9, {"50 " + UNIT + "could not convert 'here' to an IP address for local IP."});
        row("PluginName=Other", {}, 7, {"30 " + UNIT + "Plugin T93 cannot change to 'Other' when loading settings!"});
    }
    void storedValues()
    {
        QFETCH(int, code);
        store("CanInterfaces/a/"_s, STORED + QStringList(QString::fromLatin1(rowName())));
        const CLogRecorder recorder;
        QCOMPARE(m_param.loadSettings(GROUP, m_info), code);
        QCOMPARE(m_info == infoNamed("a"_s), code != 0); // the stored description differs
        QTEST(recorder.lines(), "log");
        store("Expected/"_s, code == 0 ? STORED + QStringList(cell<QString>("loaded")) : FILLED);
        QCOMPARE(m_param.saveSettings({}, m_info), 0);
        QCOMPARE(storedUnder("a"_s), storedUnder("Expected"_s));
        const CLogRecorder quiet(51); // above every level: nothing is logged
        QCOMPARE(m_param.loadSettings(GROUP, m_info), code);
        QVERIFY(quiet.lines().isEmpty());
    }

    void valuesWithoutATextAreNotSaved_data()
    {
        const auto row = columns<int, int, QList<QByteArray>>("protocol", "service", "log");
        const QByteArray conversion = "30 " + UNIT + "Conversion of service = ";
        const QByteArray refusal = "50 " + UNIT + "cannot convert ";
        row("protocol", 3, 0, {refusal + "protocol =3 to string!"});
        row("service", 0, 3, {conversion + "3 to string failed!", refusal + "service =3 to string!"});
        row("negative service", 0, -1, {conversion + "-1 to string failed!", refusal + "service =-1 to string!"});
    }
    void valuesWithoutATextAreNotSaved()
    {
        QCOMPARE(m_param.saveSettings(GROUP, m_info), 0);
        m_param.setProtocolType(static_cast<CCommonInfo::EProtocolType>(cell<int>("protocol")));
        m_param.setServiceType(static_cast<CConfigParamT93::EServiceType>(cell<int>("service")));
        m_param.setPort(1);
        const CLogRecorder recorder;
        QCOMPARE(m_param.saveSettings(GROUP, m_info), 10);
        QTEST(recorder.lines(), "log");
        QCOMPARE(storedUnder("CanInterfaces/a"_s), FILLED);
    }

    void otherInterfacesStay_data()
    {
        rows({"", "/", "a/b", "a/Port", "../a", "a/", "\\a", "a\n[x]", "%2F", "\x01\x7f", "größe 1", ".", "General",
              "Key"});
    }
    void otherInterfacesStay() // whatever its name, an interface changes only its own group
    {
        for (const QString& other : {"a"_s, "b"_s, "2F"_s}) {
            m_info = infoNamed(other);
            QCOMPARE(m_param.saveSettings(GROUP, m_info), 0);
        }
        QSettings().setValue("Other/key"_s, 1);
        QSettings().setValue("CanInterfaces/Key"_s, 1); // as stored by an interface without a name
        const QStringList before = storedUnder({});
        m_info = infoNamed(QString::fromUtf8(rowName()));
        QCOMPARE(m_param.saveSettings(GROUP, m_info), 0);
        QCOMPARE(m_param.saveSettings(GROUP, m_info), 0);
        const QStringList after = storedUnder({});
        QCOMPARE(after.size(), before.size() + FILLED.size());
        QVERIFY(std::includes(after.begin(), after.end(), before.begin(), before.end()));
        CConfigParamT93 loaded;
        QCOMPARE(loaded.loadSettings(GROUP, m_info), 0);
        QCOMPARE(loaded.hostname(), "hall"_s);
    }

    // ---- Settings as Qt properties, by which a host configures an interface without a store ----

    void properties_data()
    {
        const auto row = columns<QVariant, QString, QString>("value", "taken", "port"); // an empty "taken": refused
        const QString before = "192.168.1.70:30000:TCP"_s;
        row("Hostname", "hall"_s, "hall"_s, before);
        row("IPAddress", "10.0.0.5"_s, "10.0.0.5"_s, "10.0.0.5:30000:TCP"_s);
        row("Port", 65535, "65535"_s, "192.168.1.70:65535:TCP"_s);
        row("Port as text", "31000"_s, "31000"_s, "192.168.1.70:31000:TCP"_s);
        row("Port 70000", 70000, {}, before);
        row("Port -1", -1, {}, before);
        row("Port that wraps to 80", (qlonglong(1) << 32) + 80, {}, before);
        row("Protocol", "UDP"_s, "UDP"_s, "192.168.1.70:30000:UDP"_s);
        row("Service", "CLIENT"_s, "CLIENT"_s, before);
        row("LocalIPAddress", "10.9.0.1"_s, "10.9.0.1"_s, before);
        row("UdpBindAnyIp", true, "true"_s, before);
        row("AutoIpUpdate", true, "true"_s, before);
        row("BusloadPollTime", 4294967295LL, "4294967295"_s, before);
        row("BusloadPollTime too long", 4294967296LL, {}, before);
        row("BusloadMeasureInterval", 65535, "65535"_s, before);
        row("BusloadMeasureInterval 65536", 65536, {}, before);
        row("CanBaudrate", 1000, "1000"_s, before);
        row("CanBaudrate 0", 0, "0"_s, before);
        row("CanBaudrate 33", 33, {}, before);
        for (const char* text :
             {"IPAddress 010.0.0.5", "IPAddress 10.5", "IPAddress gateway", "IPAddress ", "IPAddress ::1",
              "IPAddress 10.0.0.256", "Protocol udp", "Protocol NA", "Service Invalid", "LocalIPAddress x"}) {
            row(text, QString::fromLatin1(text).section(QLatin1Char(' '), 1), {}, before);
        }
    }
    void properties()
    {
        QFETCH(QVariant, value);
        QFETCH(QString, taken);
        const QByteArray property = QByteArray(QTest::currentDataTag()).split(' ').first();
        SOpenInterface host; // an open interface, beside a closed one
        const std::unique_ptr<CCanInterface> can(plugin().createInterface());
        const QVariant before = can->property(property);
        QVERIFY(before.isValid());
        QVERIFY(before != value);
        if (taken.isEmpty()) {
            QTest::ignoreMessage(QtWarningMsg,
                                 QRegularExpression("^vexmor::Cim::CInterfaceT93: \\w+ .*: must be .*\\.$"_s));
        }
        QVERIFY(can->setProperty(property, value));
        QCOMPARE(can->property(property).toString(), taken.isEmpty() ? before.toString() : taken);
        QFETCH(QString, port);
        QCOMPARE(can->commonInfo().port(), "IP="_s + port);

        const QVariant kept = host.can->property(property);
        const CCommonInfo info = host.can->commonInfo();
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(": not while the interface is open\\.$"_s));
        QVERIFY(host.can->setProperty(property, value));
        QCOMPARE(host.can->property(property), kept);
        QVERIFY(host.can->commonInfo() == info);

        // The property equals the stored parameter of the same name, without a group and in the default group.
        for (const QString& group : {""_s, QString()}) {
            const std::unique_ptr<CCanInterface> other(plugin().createInterface());
            can->saveSettings(group);
            QVERIFY(QSettings().contains(group.isNull() ? "CanInterfaces/PluginName"_s : "PluginName"_s));
            other->loadSettings(group);
            QCOMPARE(other->property(property), can->property(property));
            QVERIFY(other->commonInfo() == can->commonInfo());
        }
    }

    void millisecondsSinceFrame_data() { rows({"TCP", "UDP"}); }
    void millisecondsSinceFrame()
    {
        SGateway one;
        one.gateway.setFaults(faulty(&SSimFaults::mute));
        const auto can = makeInterface(one.gateway.port(), rowProtocol());
        const QSignalSpy errors(can.get(), SIGNAL(interfaceError(int)));
        const auto silence = [&] { return can->property("MillisecondsSinceFrame").toLongLong(); };
        QByteArray wrongChecksum = rmFrame(message(0x123));
        wrongChecksum[wrongChecksum.size() - 2] = char(wrongChecksum.at(wrongChecksum.size() - 2) ^ 1);

        QCOMPARE(silence(), -1);
        for (int opening = 1; opening <= 2; ++opening) {
            QCOMPARE(can->openCommunication(), 0);
            QTRY_COMPARE(one.gateway.tcpHostCount() + one.gateway.udpHostCount(), 1);
            QCOMPARE(silence(), -1);

            one.gateway.sendRaw(frame(0x99)); // any command counts
            QTRY_VERIFY(silence() >= 0);
            for (const QByteArray& bytes : {rmFrame(message(0x123)), frame(0x42, hex("00"))}) {
                QTRY_VERIFY(silence() >= SILENT_MS);
                one.gateway.sendRaw(bytes);
                QVERIFY(QTest::qWaitFor([&] { return silence() < SILENT_MS; }));
            }
            QTRY_VERIFY(silence() >= SILENT_MS);
            one.gateway.sendRaw("noise" + wrongChecksum);
            QTRY_COMPARE(errorNumbers(errors).count(1), opening);
            if (rowProtocol() == CCommonInfo::eProtocolTcp) { // a loss does not count as a frame
                const QSignalSpy regained(&one.gateway, &CSimGateway::hostConnected);
                one.gateway.dropLinks();
                QTRY_VERIFY(!regained.isEmpty());
                QTRY_VERIFY(isConnected(*can));
            }
            QVERIFY(silence() >= SILENT_MS);

            can->closeCommunication();
            QCOMPARE(silence(), -1);
            one.gateway.dropLinks();
        }
    }

private:
    std::unique_ptr<CPrivateStore> m_store;
    CConfigParamT93 m_param; ///< Has the values of FILLED.
    CCommonInfo m_info;      ///< The description of the interface, with the name "a".
};

QTEST_GUILESS_MAIN(ConfigParamTest)
#include "tst_configParam.moc"
