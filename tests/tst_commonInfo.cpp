#include "cim/commonInfoInterface.h"
#include "testData.h"

#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

using namespace vexmor::Cim;
using namespace vexmor::Test;

using Protocol = CCommonInfo::EProtocolType;
using Change = void (*)(CCommonInfo&);
Q_DECLARE_METATYPE(Change)

namespace
{
const QString OTHER = QStringLiteral("other");

CCommonInfo filledInfo()
{
    CCommonInfo info;
    info.setPluginName(QStringLiteral("plugin"));
    info.setDescription(QStringLiteral("a description"));
    info.setUniqueName(QStringLiteral("name"));
    info.setInterfaceId(QStringLiteral("00:01"));
    info.setFirmwareVersion(QStringLiteral("1.05"));
    info.setPort(QStringLiteral("COM=3"));
    info.setType(QStringLiteral("type"));
    info.setScanable(true);
    return info;
}

QByteArray logLine(const QByteArray& text)
{
    return "30 cim/commonInfoInterface: Conversion of protocol string = '" + text + "' to EProtoclType failed!";
}
} // namespace

/// The description of an interface: port texts, what is compared, what is stored.
class CommonInfoTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void portTextsAreBuilt()
    {
        const QString address = QStringLiteral("10.0.0.5");
        QCOMPARE(CCommonInfo::buildComPortStr(QStringLiteral("3")), QStringLiteral("COM=3"));
        QCOMPARE(CCommonInfo::buildIpPortStr(address, 30000, CCommonInfo::eProtocolUdp),
                 QStringLiteral("IP=10.0.0.5:30000:UDP"));
        QCOMPARE(CCommonInfo::buildIpPortStr(address, 65535, Protocol(7)), QStringLiteral("IP=10.0.0.5:65535:Invalid"));
    }

    void portTextsAreTakenApart_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("parts"); // as found, joined by spaces
        QTest::addColumn<QList<QByteArray>>("log");
        const auto row = [](const char* text, const char* parts, const QList<QByteArray>& log = {}) {
            QTest::newRow(text) << QString::fromLatin1(text) << QString::fromLatin1(parts) << log;
        };
        row("COM=3", "com 3");
        row("COM=", "com ");
        row("com=3", "");
        row(" COM=3", "");
        row("IP=10.0.0.5:30000:TCP", "ip 10.0.0.5 30000 0");
        row("IP=10.0.0.5:30000:NA", "ip 10.0.0.5 30000 2");
        row("IP=10.0.0.5:30000:tcp", "ip 10.0.0.5 30000 3", {logLine("tcp")});
        row("IP=::", "ip   3", {logLine("")});
        row("IP=10.0.0.5:30000", "");
        row("IP=a:b:c:d", "");
        row("ip=10.0.0.5:30000:TCP", "");
        row("", "");
    }
    void portTextsAreTakenApart()
    {
        QFETCH(QString, text);
        QFETCH(QString, parts);
        const CLogRecorder log;
        CCommonInfo info;
        info.setPort(text);
        QCOMPARE(info.isComPort(), text.startsWith(QStringLiteral("COM=")));
        QCOMPARE(info.isIpPort(), text.startsWith(QStringLiteral("IP=")));
        QString com = OTHER, address = OTHER, port = OTHER, address2 = OTHER, port2 = OTHER;
        auto protocol = Protocol(9);
        QString found;
        if (info.comPort(com)) {
            found = QStringLiteral("com ") + com;
        } else if (info.ipAddress(address, port, protocol)) {
            found = QStringLiteral("ip %1 %2 %3").arg(address, port).arg(int(protocol));
        } else { // outputs untouched
            QVERIFY(com == OTHER && address == OTHER && port == OTHER && protocol == Protocol(9));
        }
        QCOMPARE(found, parts);
        QTEST(log.lines(), "log");
        QCOMPARE(info.ipAddress(address2, port2), parts.startsWith(QStringLiteral("ip")));
        QVERIFY(address2 == address && port2 == port);
    }

    void protocolTexts()
    {
        const CLogRecorder log;
        const QString texts[] = {QStringLiteral("TCP"), QStringLiteral("UDP"), QStringLiteral("NA")};
        QString text;
        for (int value = 0; value < 3; ++value) {
            auto protocol = Protocol(9);
            QVERIFY(CCommonInfo::protocolEnumToStr(Protocol(value), text) && text == texts[value]);
            QVERIFY(CCommonInfo::protocolStrToEnum(texts[value], protocol) && protocol == Protocol(value));
        }
        for (const int value : {-1, 3, 7}) {
            text.clear();
            QVERIFY(!CCommonInfo::protocolEnumToStr(Protocol(value), text) && text == QStringLiteral("Invalid"));
        }
        QVERIFY(log.lines().isEmpty());
        for (const char* unknown : {"", "udp", "TCP ", "Invalid"}) {
            auto protocol = Protocol(9);
            QVERIFY(!CCommonInfo::protocolStrToEnum(QString::fromLatin1(unknown), protocol));
            QCOMPARE(protocol, CCommonInfo::eProtocolInvalid);
            QCOMPARE(log.lines().last(), logLine(unknown));
        }
    }

    void fields_data()
    {
        QTest::addColumn<Change>("change");
        QTest::addColumn<QString>("key"); // empty: not stored
        QTest::addColumn<bool>("loaded");
        const auto row = [](const char* name, Change change, const char* key, bool loaded) {
            QTest::newRow(name) << change << QString::fromLatin1(key) << loaded;
        };
        row(
            "plugin name", [](CCommonInfo& info) { info.setPluginName(OTHER); }, "PluginName", false);
        row(
            "description", [](CCommonInfo& info) { info.setDescription(OTHER); }, "Description", true);
        row(
            "unique name", [](CCommonInfo& info) { info.setUniqueName(OTHER); }, "", false);
        row(
            "state", [](CCommonInfo& info) { info.setConnectionState(CCommonInfo::eConnected); }, "", false);
        row(
            "interface id", [](CCommonInfo& info) { info.setInterfaceId(OTHER); }, "InterfaceId", true);
        row(
            "firmware version", [](CCommonInfo& info) { info.setFirmwareVersion(OTHER); }, "FirmwareVersion", true);
        row(
            "port", [](CCommonInfo& info) { info.setPort(OTHER); }, "PortId", true);
        row(
            "type", [](CCommonInfo& info) { info.setType(OTHER); }, "InterfaceType", true);
        row(
            "scanable", [](CCommonInfo& info) { info.setScanable(false); }, "Scanable", true);
    }
    void fields() // each one is compared, copied, stored and loaded, or not
    {
        QFETCH(Change, change);
        QFETCH(QString, key);
        QFETCH(bool, loaded);
        CCommonInfo changed = filledInfo();
        change(changed);
        QVERIFY(changed != filledInfo() && !(changed == filledInfo()));
        CCommonInfo assigned;
        assigned = changed;
        QVERIFY(CCommonInfo(changed) == changed && assigned == changed && !(assigned != changed));

        const QTemporaryDir folder;
        QSettings store(folder.filePath(QStringLiteral("store.ini")), QSettings::IniFormat);
        CCommonInfo info = filledInfo();
        QCOMPARE(info.loadSettings(store), 0); // nothing there: nothing changes
        QVERIFY(info == filledInfo());
        QCOMPARE(changed.saveSettings(store), 0);
        QCOMPARE(store.allKeys().join(QLatin1Char(' ')),
                 QStringLiteral("Description FirmwareVersion InterfaceId InterfaceType PluginName PortId Scanable"));
        for (const QString& stored : store.allKeys()) {
            const QString value = store.value(stored).toString();
            QCOMPARE(value == OTHER || value == QStringLiteral("false"), stored == key);
        }
        QCOMPARE(info.loadSettings(store), 0);
        QVERIFY(info == (loaded ? changed : filledInfo()));
    }

    void settingsGroups_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("group");
        const auto row = [](const char* name, const char* group) {
            QTest::newRow(name) << QString::fromUtf8(name) << QString::fromUtf8(group);
        };
        row("", "");
        row("stage left", "stage left");
        row("größe", "größe");
        row("a/b", "a%2Fb");
        row("a%2Fb", "a%252Fb");
        row("\\", "%5C");
        row("\x01\x7f", "%01%7F");
    }
    void settingsGroups()
    {
        QFETCH(QString, name);
        QFETCH(QString, group);
        CCommonInfo info;
        info.setUniqueName(name);
        QCOMPARE(info.settingsGroup(), group);
        QCOMPARE(CCommonInfo::uniqueNameOfSettingsGroup(group), name);
    }
};

QTEST_APPLESS_MAIN(CommonInfoTest)
#include "tst_commonInfo.moc"
