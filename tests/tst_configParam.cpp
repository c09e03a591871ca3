#include "InterfaceT93/configParamT93.h"
#include "testData.h"

#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

using namespace vexmor::Cim;
using namespace vexmor::Test;

namespace
{
const QString GROUP = QStringLiteral("CanInterfaces");
const QString PLUGIN = QStringLiteral("InterfaceT93Plugin");

CCommonInfo infoNamed(const QString& name)
{
    CCommonInfo info;
    info.setPluginName(PLUGIN);
    info.setUniqueName(name);
    return info;
}

/// All that a record holds, as text.
QString textOf(const CConfigParamT93& param)
{
    bool ok = false;
    QStringList fields{param.serviceTypeString(ok),
                       param.ipPortString(),
                       param.localIpAddress().toString(),
                       QString::number(param.udpBindAnyIp()),
                       QString::number(param.autoIpUpdate()),
                       param.hostname(),
                       param.macAddressString(QLatin1Char('-')),
                       QString::number(param.busloadMeasureInterval()),
                       QString::number(param.busloadPollTime()),
                       QString::number(param.canBaudrate())};
    return fields.join(QLatin1Char(' '));
}

CConfigParamT93 filled()
{
    CConfigParamT93 param;
    param.setServiceType(CConfigParamT93::eServiceClient);
    param.setProtocolType(CCommonInfo::eProtocolUdp);
    param.setIpAddress(QHostAddress(QStringLiteral("10.0.0.5")));
    param.setLocalIpAddress(QHostAddress(QStringLiteral("10.0.0.1")));
    param.setPort(31000);
    param.setUdpBindAnyIp(true);
    param.setAutoIpUpdate(true);
    param.setHostname(QStringLiteral("hall"));
    param.setMacAddress({0x01, 0x23, 0x45, 0x67, 0x89, 0xAB});
    param.setBusloadMeasureInterval(65535);
    param.setBusloadPollTime(4000000000U);
    param.setCanBaudrate(1000);
    return param;
}
const QString FILLED =
    QStringLiteral("CLIENT IP=10.0.0.5:31000:UDP 10.0.0.1 1 1 hall 01-23-45-67-89-ab 65535 4000000000 1000");
const QString DEFAULTS = QStringLiteral("SERVER IP=192.168.1.70:30000:TCP 0.0.0.0 0 0  00-00-00-00-00-00 1000 800 100");
} // namespace

/// The settings of a gateway: what is stored where, what is refused, and that nothing else in the store is touched.
class ConfigParamTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_folder = std::make_unique<QTemporaryDir>();
        QSettings::setDefaultFormat(QSettings::IniFormat);
        QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, m_folder->path());
        QCoreApplication::setOrganizationName(QStringLiteral("tests"));
        QCoreApplication::setApplicationName(QStringLiteral("tst_configParam"));
    }

    void newRecordHasTheDefaults()
    {
        CConfigParamT93 param;
        QCOMPARE(textOf(param), DEFAULTS);
        CCommonInfo info = infoNamed(QStringLiteral("a"));
        QCOMPARE(param.loadSettings(GROUP, info), 0); // from an empty store: nothing changes
        QCOMPARE(textOf(param), DEFAULTS);
        QVERIFY(info == infoNamed(QStringLiteral("a")));
    }

    void whatIsSavedIsLoaded()
    {
        CCommonInfo info = infoNamed(QStringLiteral("a"));
        info.setDescription(QStringLiteral("text"));
        QSettings().setValue(QStringLiteral("CanInterfaces/a/OldKey"), 1);
        CConfigParamT93 param = filled();
        QCOMPARE(param.saveSettings(GROUP, info), 0);
        QCOMPARE(param.saveSettings(GROUP, info), 0);

        QSettings store;
        QCOMPARE(store.value(QStringLiteral("CanInterfaces/a/PluginName")).toString(), PLUGIN);
        QCOMPARE(store.childGroups(), QStringList(GROUP));
        store.beginGroup(QStringLiteral("CanInterfaces/a"));
        const std::pair<const char*, const char*> rows[] = {{"Hostname", "hall"},
                                                            {"Port", "31000"},
                                                            {"IP-Address", "10.0.0.5"},
                                                            {"Protocol", "UDP"},
                                                            {"Service", "CLIENT"},
                                                            {"Dhcp", "0"},
                                                            {"AutoIpUpdate", "1"},
                                                            {"UdpBindAnyIp", "1"},
                                                            {"Local-IP-Address", "10.0.0.1"},
                                                            {"BusloadPollTime", "4000000000"},
                                                            {"BusloadMeasureInterval", "65535"},
                                                            {"CanBaudrate", "1000"}};
        for (const auto& [key, value] : rows) {
            QCOMPARE(store.value(QLatin1String(key)).toString(), QLatin1String(value));
        }
        QCOMPARE(store.childKeys().size(), int(std::size(rows)) + 7); // and those of the description; no old one

        CConfigParamT93 loaded;
        CCommonInfo loadedInfo = infoNamed(QStringLiteral("a"));
        QCOMPARE(loaded.loadSettings(GROUP, loadedInfo), 0);
        loaded.setMacAddress({0x01, 0x23, 0x45, 0x67, 0x89, 0xAB}); // never stored
        QCOMPARE(textOf(loaded), FILLED);
        QVERIFY(loadedInfo == info);
        const CConfigParamT93 copy = loaded;
        QCOMPARE(textOf(copy), FILLED);
    }

    void dhcpFlagIsKept() // nothing but a store can set it
    {
        QSettings().setValue(QStringLiteral("CanInterfaces/a/Dhcp"), 1);
        CConfigParamT93 param;
        CCommonInfo info = infoNamed(QStringLiteral("a"));
        QCOMPARE(param.loadSettings(GROUP, info), 0);
        CConfigParamT93 copy = param;
        CCommonInfo other = infoNamed(QStringLiteral("b"));
        QCOMPARE(copy.saveSettings(GROUP, other), 0);
        QCOMPARE(QSettings().value(QStringLiteral("CanInterfaces/b/Dhcp")).toString(), QStringLiteral("1"));
    }

    void storedValues_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("value");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("text"); // of the record; empty: unchanged
        QTest::addColumn<QList<QByteArray>>("log");
        const auto row = [](const char* name, const char* key, const char* value, int code, const QString& text,
                            const QList<QByteArray>& log = {}) {
            QTest::newRow(name) << QString::fromLatin1(key) << QString::fromLatin1(value) << code << text << log;
        };
        const auto with = [](const char* before, const char* after) {
            return QString(FILLED).replace(QLatin1String(before), QLatin1String(after));
        };
        const QByteArray unit = "InterfaceT93/configParamT93: ";
        row("service Invalid", "Service", "Invalid", 0, with("CLIENT", "Invalid"));
        row("service in lower case", "Service", "client", 8, {},
            {"30 " + unit + "Conversion of service 'client' to EServiceType failed!",
             "50 " + unit + "could not convert 'client' to a service type."});
        row("protocol NA", "Protocol", "NA", 0, with(":UDP", ":NA"));
        row("protocol unknown", "Protocol", "SCTP", 8, {},
            {"30 cim/commonInfoInterface: Conversion of protocol string = 'SCTP' to EProtoclType failed!",
             "50 " + unit + "could not convert 'SCTP' to a protocol type."});
        row("address", "IP-Address", "300.1.1.1", 9, {},
            {"50 " + unit + "Could not convert '300.1.1.1' to an IP address."});
        row("local address", "Local-IP-Address", "here", 9, {},
            {"50 " + unit + "could not convert 'here' to an IP address for local IP."});
        row("another plugin's", "PluginName", "Other", 7, {},
            {"30 " + unit + "Plugin T93 cannot change to 'Other' when loading settings!"});
        row("port above 16 bits", "Port", "70000", 0, with("31000", "4464"));
        row("port that is no number", "Port", "http", 0, with("31000", "0"));
        row("interval above 16 bits", "BusloadMeasureInterval", "65537", 0, with("65535", "1"));
        row("poll time", "BusloadPollTime", "0", 0, with("4000000000", "0"));
        row("bit rate", "CanBaudrate", "33", 0, with(" 1000", " 33"));
        row("flag", "UdpBindAnyIp", "0", 0, with("10.0.0.1 1 1", "10.0.0.1 0 1"));
        row("host name", "Hostname", "other", 0, with("hall", "other"));
    }
    void storedValues()
    {
        QFETCH(QString, key);
        QFETCH(QString, value);
        QFETCH(int, code);
        QFETCH(QString, text);
        QFETCH(QList<QByteArray>, log);
        {
            QSettings store;
            store.beginGroup(QStringLiteral("CanInterfaces/a"));
            store.setValue(key, value);
            store.setValue(QStringLiteral("Description"), QStringLiteral("stored"));
            if (code != 0) { // a load that fails takes nothing else either
                store.setValue(QStringLiteral("CanBaudrate"), 50);
            }
        }
        CConfigParamT93 param = filled();
        CCommonInfo info = infoNamed(QStringLiteral("a"));
        {
            const CLogRecorder recorder;
            QCOMPARE(param.loadSettings(GROUP, info), code);
            QCOMPARE(recorder.lines(), log);
        }
        QCOMPARE(textOf(param), text.isEmpty() ? FILLED : text);
        QCOMPARE(info.description(), code == 0 ? QStringLiteral("stored") : QString());
        const CLogRecorder quiet(51); // above every level: nothing is written
        QCOMPARE(param.loadSettings(GROUP, info), code);
        QVERIFY(quiet.lines().isEmpty());
    }

    void valuesWithoutATextAreNotSaved_data()
    {
        QTest::addColumn<int>("protocol");
        QTest::addColumn<int>("service");
        QTest::addColumn<QList<QByteArray>>("log");
        const QByteArray unit = "InterfaceT93/configParamT93: ";
        QTest::newRow("protocol") << 3 << 0
                                  << QList<QByteArray>{"50 " + unit + "cannot convert protocol =3 to string!"};
        QTest::newRow("service") << 0 << 3
                                 << QList<QByteArray>{"30 " + unit + "Conversion of service = 3 to string failed!",
                                                      "50 " + unit + "cannot convert service =3 to string!"};
        QTest::newRow("negative service")
            << 0 << -1
            << QList<QByteArray>{"30 " + unit + "Conversion of service = -1 to string failed!",
                                 "50 " + unit + "cannot convert service =-1 to string!"};
    }
    void valuesWithoutATextAreNotSaved()
    {
        QFETCH(int, protocol);
        QFETCH(int, service);
        CConfigParamT93 param;
        CCommonInfo info = infoNamed(QStringLiteral("a"));
        QCOMPARE(param.saveSettings(GROUP, info), 0);
        param.setProtocolType(static_cast<CCommonInfo::EProtocolType>(protocol));
        param.setServiceType(static_cast<CConfigParamT93::EServiceType>(service));
        param.setPort(1);
        const CLogRecorder recorder;
        QCOMPARE(param.saveSettings(GROUP, info), 10);
        QTEST(recorder.lines(), "log");
        QCOMPARE(QSettings().value(QStringLiteral("CanInterfaces/a/Port")).toString(), QStringLiteral("30000"));
    }

    void otherInterfacesStay_data()
    {
        QTest::addColumn<QString>("name");
        for (const char* name : {"", "/", "a/b", "../a", "a/", "%2F", "\n", "a\\b", "."}) {
            QTest::newRow(name) << QString::fromLatin1(name);
        }
    }
    void otherInterfacesStay() // whatever an interface is called: saving it touches its own group alone
    {
        QFETCH(QString, name);
        CConfigParamT93 param;
        for (const char* other : {"a", "b", "2F"}) {
            CCommonInfo info = infoNamed(QString::fromLatin1(other));
            QCOMPARE(param.saveSettings(GROUP, info), 0);
        }
        QSettings().setValue(QStringLiteral("Other/key"), 1);
        const auto others = [] {
            QMap<QString, QVariant> values;
            const QSettings store;
            for (const QString& key : store.allKeys()) {
                if (key.startsWith(QLatin1String("CanInterfaces/a/")) ||
                    key.startsWith(QLatin1String("CanInterfaces/b/")) ||
                    key.startsWith(QLatin1String("CanInterfaces/2F/")) || key.startsWith(QLatin1String("Other"))) {
                    values.insert(key, store.value(key));
                }
            }
            return values;
        };
        const auto before = others();
        QCOMPARE(before.size(), 3 * 19 + 1);
        CCommonInfo info = infoNamed(name);
        CConfigParamT93 own = filled();
        QCOMPARE(own.saveSettings(GROUP, info), 0);
        QCOMPARE(own.saveSettings(GROUP, info), 0);
        QCOMPARE(others(), before);
        CConfigParamT93 loaded;
        QCOMPARE(loaded.loadSettings(GROUP, info), 0);
        QCOMPARE(loaded.hostname(), QStringLiteral("hall"));
    }

private:
    std::unique_ptr<QTemporaryDir> m_folder;
};

QTEST_GUILESS_MAIN(ConfigParamTest)
#include "tst_configParam.moc"
