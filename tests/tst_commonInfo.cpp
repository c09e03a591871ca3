#include "cim/canInterface.h"
#include "cim/canInterfacePlugin.h"
#include "testData.h"

#include <cstring>

using namespace vexmor::Cim;
using namespace vexmor::Test;

using Protocol = CCommonInfo::EProtocolType;
using Change = void (*)(CCommonInfo&);
Q_DECLARE_METATYPE(Change)

namespace
{
const QString OTHER = "other"_s;

/// Whether virtual operations stand one behind the other in the table of their class.
template <typename... Operations>
bool standInARow(std::size_t first, Operations... operations)
{
    const auto placeOf = [](auto operation) {
        std::size_t bytes = 0;
        std::memcpy(&bytes, &operation, sizeof bytes);
        return bytes / sizeof(void*);
    };
    return ((placeOf(operations) == first++) && ...);
}
} // namespace

/// What the contract has without a plugin: the description of an interface (port texts, what is compared, what is
/// stored), and the order of the operations.
class CommonInfoTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void operationsKeepTheirPlaces() // by which host and plugin, built apart, call each other
    {
        using I = CCanInterface;
        using P = CCanInterfacePlugin;
        QVERIFY(standInARow(12, &I::clone, &I::resetCommunication, &I::openCommunication, &I::closeCommunication,
                            &I::readMessage, &I::writeMessage, &I::busload, &I::errorCodeToString,
                            &I::interfaceErrorToString, &I::isOpened, &I::baudrate, &I::setBaudrate, &I::loadSettings,
                            &I::saveSettings, &I::configure, &I::interfaceType, &I::setSpyHandler, &I::commonInfo,
                            &I::setCommonInfo, &I::commonErrorCodeToString)); // behind those of QObject
        QVERIFY(standInARow(2, &P::pluginName, &P::pluginId, &P::interfaceType, &P::createInterface, &P::addScanAddress,
                            &P::removeScanAddress, &P::scanAddresses, &P::scanInterfaces)); // behind the destructor
    }

    void portTextsAreBuilt()
    {
        QCOMPARE(CCommonInfo::buildComPortStr("3"_s), "COM=3"_s);
        QCOMPARE(CCommonInfo::buildIpPortStr("10.0.0.5"_s, 30000, CCommonInfo::eProtocolUdp),
                 "IP=10.0.0.5:30000:UDP"_s);
        QCOMPARE(CCommonInfo::buildIpPortStr("10.0.0.5"_s, 65535, Protocol(-1)), "IP=10.0.0.5:65535:Invalid"_s);
    }

    void portTextsAreTakenApart_data()
    {
        const auto row = columns<QString>("parts"); // as found, joined by spaces
        row("COM=3", "com 3"_s);
        row("com=3", ""_s);
        row("IP=10.0.0.5:30000:TCP", "ip 10.0.0.5 30000 0"_s);
        row("IP=10.0.0.5:30000:NA", "ip 10.0.0.5 30000 2"_s);
        row("IP=10.0.0.5:30000:tcp", "ip 10.0.0.5 30000 3"_s);
        row("IP=10.0.0.5:30000:Invalid", "ip 10.0.0.5 30000 3"_s);
        row("IP=::", "ip   3"_s);
        row("IP=10.0.0.5:30000", ""_s);
        row("IP=a:b:c:d", ""_s);
        row("ip=10.0.0.5:30000:TCP", ""_s);
    }
    void portTextsAreTakenApart()
    {
        QFETCH(QString, parts);
        const QString text = QString::fromLatin1(rowName());
        CCommonInfo info;
        info.setPort(text);
        QCOMPARE(info.isComPort(), text.startsWith("COM="_s));
        QCOMPARE(info.isIpPort(), text.startsWith("IP="_s));
        QString com = OTHER, address = OTHER, port = OTHER, address2 = OTHER, port2 = OTHER;
        auto protocol = Protocol(9);
        QString found;
        if (info.comPort(com)) {
            found = "com "_s + com;
        } else if (info.ipAddress(address, port, protocol)) {
            found = "ip %1 %2 %3"_s.arg(address, port).arg(int(protocol));
        } else { // outputs untouched
            QCOMPARE((QStringList{com, address, port}), (QStringList{OTHER, OTHER, OTHER}));
            QCOMPARE(protocol, Protocol(9));
        }
        QCOMPARE(found, parts);
        QCOMPARE(info.ipAddress(address2, port2), parts.startsWith("ip"_s));
        QCOMPARE(address2, address);
        QCOMPARE(port2, port);
    }

    void settingsGroups_data()
    {
        const auto row = columns<QString, QString>("name", "group");
        for (const char* same : {"Rig 50%", "100%", "%", "%g0", "%0", "größe", "a\nb\x01\x7f", "[x]=\";", ""}) {
            row(same, QString::fromUtf8(same), QString::fromUtf8(same));
        }
        row("slashes", "a/b\\c"_s, "a%2Fb%5Cc"_s);
        row("looks encoded", "%2F%5c"_s, "%252F%255c"_s);
        row("two digits behind", "50%25"_s, "50%2525"_s);
        row("percent twice", "%%41"_s, "%%2541"_s);
    }
    void settingsGroups() // no name reaches into another group, and no two share one
    {
        QFETCH(QString, name);
        CCommonInfo info;
        info.setUniqueName(name);
        QTEST(info.settingsGroup(), "group");
        QCOMPARE(CCommonInfo::uniqueNameOfSettingsGroup(info.settingsGroup()), name);
    }

    void fields_data()
    {
        // The key, empty if it is not stored, and whether it is loaded again.
        const auto row = columns<QString, bool, Change>("key", "loaded", "change");
        row("plugin", "PluginName"_s, false, [](CCommonInfo& info) { info.setPluginName(OTHER); });
        row("description", "Description"_s, true, [](CCommonInfo& info) { info.setDescription(OTHER); });
        row("unique name", ""_s, false, [](CCommonInfo& info) { info.setUniqueName(OTHER); });
        row("state", ""_s, false, [](CCommonInfo& info) { info.setConnectionState(CCommonInfo::eConnected); });
        row("id", "InterfaceId"_s, true, [](CCommonInfo& info) { info.setInterfaceId(OTHER); });
        row("firmware", "FirmwareVersion"_s, true, [](CCommonInfo& info) { info.setFirmwareVersion(OTHER); });
        row("port", "PortId"_s, true, [](CCommonInfo& info) { info.setPort(OTHER); });
        row("type", "InterfaceType"_s, true, [](CCommonInfo& info) { info.setType(OTHER); });
        row("scanable", "Scanable"_s, true, [](CCommonInfo& info) { info.setScanable(false); });
    }
    void fields() // each one is compared, copied, stored and loaded, or not
    {
        CCommonInfo plain;
        plain.setScanable(true);
        CCommonInfo changed = plain;
        cell<Change>("change")(changed);
        QVERIFY(changed != plain);
        QVERIFY(!(changed == plain));
        CCommonInfo assigned;
        assigned = changed;
        QVERIFY(CCommonInfo(changed) == changed);
        QVERIFY(assigned == changed);
        QVERIFY(!(assigned != changed));

        const CPrivateStore folder;
        QSettings store;
        CCommonInfo info = changed;
        QCOMPARE(info.loadSettings(store), 0); // nothing there: nothing changes
        QVERIFY(info == changed);
        QCOMPARE(changed.saveSettings(store), 0);
        QCOMPARE(store.allKeys(),
                 list("Description FirmwareVersion InterfaceId InterfaceType PluginName PortId Scanable"_s));
        for (const QString& stored : store.allKeys()) {
            const QString value = store.value(stored).toString();
            QCOMPARE(value == OTHER || value == "false"_s, stored == cell<QString>("key"));
        }
        info = plain;
        QCOMPARE(info.loadSettings(store), 0);
        QVERIFY(info == (cell<bool>("loaded") ? changed : plain));
    }
};

QTEST_APPLESS_MAIN(CommonInfoTest)
#include "tst_commonInfo.moc"
