#include "InterfaceT93/configParamT93.h"
#include "InterfaceT93/detectionDatagrams.h"
#include "InterfaceT93/t93DeviceDetection.h"
#include "scanData.h"

#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

using namespace vexmor::Cim;
using namespace vexmor::Test;

/// What gateways are asked and what their replies mean, byte by byte, without a socket; and what their names may do to
/// the settings of others: nothing.
class DetectionDatagramsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void requestToTheByte()
    {
        QByteArray request = ddtIdentRequest();
        QCOMPARE(request.toHex(), requestBytes(0).toHex());
        setDdtSequence(request, 0x0102);
        QCOMPARE(request.toHex(), requestBytes(0x0102).toHex());
    }

    void replies_data()
    {
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<QStringList>("found");
        const auto row = [](const char* name, const QByteArray& reply, const QStringList& found) {
            QTest::newRow(name) << reply << found;
        };
        const QString gw1 = QStringLiteral("gw1-TCP-SERVER-30000");
        const QByteArray server = entry(2, 0);
        row("one endpoint",
            hex("00000001 c0a80146 02 00 7530 001a2b3c4d5e 00000000000000000000000000000000000000000000 677731") +
                QByteArray(25, '\0'),
            {gw1});
        row("no entry", reply(0, {}), {});
        row("the same entry twice", reply(2, server + server), {gw1});
        row("another address does not make another endpoint", reply(2, server + entry(2, 0, "gw2")), {gw1});
        row("two protocols", reply(2, server + entry(2, 1)), {gw1, QStringLiteral("gw1-UDP-SERVER-30000")});
        row("TCP client", reply(1, entry(1, 0)), {});
        row("UDP client", reply(1, entry(1, 1)), {QStringLiteral("gw1-UDP-CLIENT-30000")});
        row("protocol 3", reply(1, entry(2, 3)), {QStringLiteral("gw1-Invalid-SERVER-30000")});
        row("protocol 254", reply(1, entry(2, 254)), {QStringLiteral("gw1-Invalid-SERVER-30000")});
        row("protocols 2 and 255", reply(2, entry(2, 2) + entry(2, 255)), {});
        row("services 0 and 3, then a good one", reply(3, entry(0, 0) + entry(3, 0) + server), {gw1});
        row("port 65535", reply(1, entry(2, 0, "gw1", 65535)), {QStringLiteral("gw1-TCP-SERVER-65535")});
        row("no byte", {}, {});
        row("header cut", hex("000000"), {});
        row("255 entries announced, none there", reply(255, {}), {});
        row("255 entries announced, one and a half there", reply(255, server + entry(2, 1).left(63)), {gw1});
        row("fewer announced than there", reply(1, server + entry(2, 1)), {gw1});
        row("name without end", reply(1, entry(2, 0, QByteArray(28, 'n'))),
            {QString(28, QLatin1Char('n')) + QStringLiteral("-TCP-SERVER-30000")});
        row("name in UTF-8", reply(1, entry(2, 0, "größe")), {QString::fromUtf8("größe-TCP-SERVER-30000")});
        row("name that is no UTF-8", reply(1, entry(2, 0, "a\xff")), {QString::fromUtf8("a\uFFFD-TCP-SERVER-30000")});
        row("name that looks like a place to fill in", reply(1, entry(2, 0, "%1%2")),
            {QStringLiteral("%1%2-TCP-SERVER-30000")});
        row("no name", reply(1, entry(2, 0, "")), {QStringLiteral("-TCP-SERVER-30000")});
    }
    void replies()
    {
        QFETCH(QByteArray, reply);
        QStringList found;
        for (const SDdtEntry& one : usableDdtEntries(reply)) {
            const CConfigParamT93 param = configParamOfDdtEntry(one);
            found.append(CT93DeviceDetection::buildUniqueName(param));
            QCOMPARE(param.ipAddress().toString(), QStringLiteral("192.168.1.70"));
            QCOMPARE(param.macAddressString(QLatin1Char(':')), QStringLiteral("00:1a:2b:3c:4d:5e"));
            QCOMPARE(param.canBaudrate(), 100U);
        }
        QTEST(found, "found");
    }

    void namesReachTheirOwnSettingsOnly()
    {
        const QTemporaryDir folder;
        QSettings::setDefaultFormat(QSettings::IniFormat);
        QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, folder.path());
        QCoreApplication::setOrganizationName(QStringLiteral("Vexmor"));
        QCoreApplication::setApplicationName(QStringLiteral("tst_detectionDatagrams"));
        const QString group = QStringLiteral("CanInterfaces");
        std::vector<std::pair<CCommonInfo, CConfigParamT93>> all;
        for (const char* name : {"hall", "hall/a", "hall/a/Port", "../hall", "/", "\\hall", "hall\n[x]", "\x01\x7f",
                                 "%2F", "hall-TCP-SERVER-30000/Port", "General"}) {
            SDdtEntry found;
            found.hostName = name;
            found.service = DDT_SERVICE_SERVER;
            found.port = static_cast<std::uint16_t>(1000 + all.size());
            CCommonInfo info;
            info.setUniqueName(CT93DeviceDetection::buildUniqueName(configParamOfDdtEntry(found)));
            all.emplace_back(info, configParamOfDdtEntry(found));
            QCOMPARE(all.back().second.saveSettings(group, all.back().first), 0);
        }
        const auto count = [&group] {
            QSettings settings;
            settings.beginGroup(group);
            return settings.childGroups().size();
        };
        while (!all.empty()) { // each has its own, and takes nothing with it when it goes
            QCOMPARE(count(), int(all.size()));
            for (auto& [info, param] : all) {
                CConfigParamT93 loaded;
                QCOMPARE(loaded.loadSettings(group, info), 0);
                QCOMPARE(loaded.port(), param.port());
                QCOMPARE(loaded.hostname(), param.hostname());
            }
            QSettings().remove(group + QLatin1Char('/') + all.back().first.settingsGroup());
            all.pop_back();
        }
        QCOMPARE(count(), 0);
    }
};

QTEST_APPLESS_MAIN(DetectionDatagramsTest)
#include "tst_detectionDatagrams.moc"
