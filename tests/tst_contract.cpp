#include "cim/canMessage.h"
#include "cim/commonInfoInterface.h"
#include "testData.h"

using namespace vexmor::Cim;
using namespace vexmor::Test;

using Protocol = CCommonInfo::EProtocolType;
using Change = void (*)(CCommonInfo&);
using MessageChange = bool (*)(CCanMessage&);
Q_DECLARE_METATYPE(Change)
Q_DECLARE_METATYPE(MessageChange)

namespace
{
const QString OTHER = "other"_s;

unsigned char s_bytes[] = {0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8};

/// Returns identifier, length and all eight data bytes as text.
QByteArray textOf(const CCanMessage& message)
{
    const QByteArray data(reinterpret_cast<const char*>(message.data()), 8);
    return QByteArray::number(message.id().value(), 16) + ' ' + char('0' + message.length()) + ' ' + data.toHex();
}
} // namespace

/// The classes of the contract that need no plugin: the description of an interface (port texts, comparison, storage),
/// and the CAN message. script/abi compares addresses and layouts.
class ContractTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void portTextsAreTakenApart_data()
    {
        // The outputs: number of the COM port, and those of an IP port.
        const auto row = columns<QString>("parts");
        row("COM=3", "3|other|other|9"_s);
        row("IP=10.0.0.5:30000:TCP", "other|10.0.0.5|30000|0"_s);
        row("IP=10.0.0.5:30000:UDP", "other|10.0.0.5|30000|1"_s);
        row("IP=10.0.0.5:30000:NA", "other|10.0.0.5|30000|2"_s);
        row("IP=10.0.0.5:30000:tcp", "other|10.0.0.5|30000|3"_s);
        row("IP=::", "other|||3"_s);
        for (const char* neither : {"com=3", "IP=10.0.0.5:30000", "IP=a:b:c:d", "IP=", "ip=10.0.0.5:30000:TCP"}) {
            row(neither, "other|other|other|9"_s); // the outputs remain unchanged
        }
    }
    void portTextsAreTakenApart()
    {
        CCommonInfo info;
        info.setPort(QString::fromLatin1(rowName()));
        QCOMPARE(info.isComPort(), rowName().startsWith("COM="));
        QCOMPARE(info.isIpPort(), rowName().startsWith("IP="));
        QString com = OTHER, address = OTHER, port = OTHER, address2 = OTHER, port2 = OTHER;
        auto protocol = Protocol(9);
        const bool isCom = info.comPort(com);
        const bool isIp = info.ipAddress(address, port, protocol);
        QTEST((QStringList{com, address, port, QString::number(protocol)}.join(QLatin1Char('|'))), "parts");
        QCOMPARE((QList<bool>{isCom, isIp}), (QList<bool>{com != OTHER, address != OTHER}));
        QCOMPARE(info.ipAddress(address2, port2), isIp);
        QCOMPARE(address2 + port2, address + port);
        const QString protocolText = list("TCP UDP NA"_s).value(protocol, "Invalid"_s);
        QCOMPARE(CCommonInfo::buildIpPortStr("a%2"_s, 65535, protocol), "IP=a%2:65535:"_s + protocolText);
        QCOMPARE(CCommonInfo::buildComPortStr(com), "COM="_s + com);
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
    void settingsGroups() // names have different groups, and none is in another's group
    {
        QFETCH(QString, name);
        CCommonInfo info;
        info.setUniqueName(name);
        QTEST(info.settingsGroup(), "group");
        QCOMPARE(CCommonInfo::uniqueNameOfSettingsGroup(info.settingsGroup()), name);
    }

    void fields_data()
    {
        // Rows have the key, empty if the field is not stored, and whether the field is loaded.
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
    void fields() // each field is compared, copied, and stored and loaded as given
    {
        CCommonInfo plain;
        plain.setScanable(true);
        CCommonInfo changed = plain;
        cell<Change>("change")(changed);
        QVERIFY(changed != plain);
        CCommonInfo assigned;
        assigned = CCommonInfo(changed);
        QVERIFY(assigned == changed);

        const CPrivateStore folder;
        QSettings store;
        CCommonInfo info = changed;
        QCOMPARE(info.loadSettings(store), 0); // nothing there: nothing changes
        QVERIFY(info == changed);
        QCOMPARE(changed.saveSettings(store), 0);
        for (const QString& stored : store.allKeys()) {
            const QString value = store.value(stored).toString();
            QCOMPARE(value == OTHER || value == "false"_s, stored == cell<QString>("key"));
        }
        info = plain;
        QCOMPARE(info.loadSettings(store), 0);
        QVERIFY(info == (cell<bool>("loaded") ? changed : plain));
    }

    void messagesAreConstructedAndRegistered()
    {
        QCOMPARE(textOf(CCanMessage()), QByteArray("0 0 0000000000000000"));
#if QT_VERSION_MAJOR >= 6
        const QMetaType type = QMetaType::fromName("CCanMessage");
#else
        const int type = QMetaType::type("CCanMessage");
#endif
        const CCanMessage other = ::message(0x123, hex("01"));
        const QVariant variant(type, &other);
        QVERIFY(*static_cast<const CCanMessage*>(variant.constData()) == other);
        const CCanId id(0x07, 0xFF, 0);
        QCOMPARE(textOf(CCanMessage(id, 8, s_bytes)), QByteArray("7ff 8 a0a1a2a3a4a5a6a7"));
        QCOMPARE(textOf(CCanMessage(id, 9, s_bytes)), QByteArray("7ff 0 0000000000000000"));
        QCOMPARE(textOf(CCanMessage(id, 1, 0)), QByteArray("7ff 0 0000000000000000")); // from a null pointer
        CCanMessage cut(id, 12, 1, 2, 3, 4, 0x105, -1, 7, 8, 9, 10, 11, 12);
        QCOMPARE(textOf(cut), QByteArray("7ff 8 0102030405ff0708"));
        cut.setLength(2); // bytes beyond the length are copied, too
        CCanMessage assigned;
        assigned = CCanMessage(cut);
        QCOMPARE(textOf(assigned), QByteArray("7ff 2 0102030405ff0708"));
    }

    void changes_data()
    {
        // "after" has identifier, length and all data bytes; empty: refused.
        const auto row = columns<QByteArray, MessageChange>("after", "change");
        row("length 9", "", [](CCanMessage& m) {
            QTest::ignoreMessage(QtDebugMsg, "CCanMessage::setLength illegal param length: 9\n");
            return m.setLength(9);
        });
        row("length 8", "123 8 1011121314151617", [](CCanMessage& m) { return m.setLength(8); });
        row("byte 1", "123 2 10a0121314151617", [](CCanMessage& m) { return m.setDataAt(1, 0xA0); });
        row("byte 7", "123 2 10111213141516a0", [](CCanMessage& m) { return m.setDataAt(7, 0xA0); });
        row("byte 8", "", [](CCanMessage& m) { return m.setDataAt(8, 0xA0); });
        row("byte 7 read", "123 2 1011121314151617", [](CCanMessage& m) {
            unsigned char value = 0;
            return m.dataAt(7, value) && value == 0x17;
        });
        row("byte 8 read", "", [](CCanMessage& m) {
            unsigned char value = 0;
            QTest::ignoreMessage(QtDebugMsg, "CCanMessage::dataAt illegal param index: 8\n");
            return m.dataAt(8, value) || value != 0;
        });
        row("data to the end", "123 8 10111213a0a1a2a3", [](CCanMessage& m) { return m.setData(4, 4, s_bytes); });
        row("no data", "123 0 1011121314151617", [](CCanMessage& m) { return m.setData(0, 0, s_bytes); });
        row("no data at the end", "123 8 1011121314151617", [](CCanMessage& m) { return m.setData(8, 0, s_bytes); });
        row("data behind the end", "", [](CCanMessage& m) { return m.setData(5, 4, s_bytes); });
        row("no data behind the end", "", [](CCanMessage& m) { return m.setData(9, 0, s_bytes); });
        row("offset that wraps to 1", "", [](CCanMessage& m) { return m.setData(0xFFFFFFFF, 2, s_bytes); });
        row("count that wraps to 0", "", [](CCanMessage& m) { return m.setData(4, 0xFFFFFFFC, s_bytes); });
        row("null", "", [](CCanMessage& m) { return m.setData(0, 1, nullptr) || m.setData(0, 0, nullptr); });
        row("own bytes, moved by one", "123 8 1010111213141516",
            [](CCanMessage& m) { return m.setData(1, 7, const_cast<unsigned char*>(m.data())); });
        row("16-bit identifier", "923 2 1011121314151617", [](CCanMessage& m) { return m.setId({9, 0x23, 1}), true; });
    }
    void changes()
    {
        QFETCH(QByteArray, after);
        CCanMessage message = ::message(0x123, hex("1011121314151617"));
        message.setLength(2);
        const CCanMessage before = message;
        QCOMPARE(cell<MessageChange>("change")(message), !after.isEmpty());
        QCOMPARE(textOf(message), after.isEmpty() ? "123 2 1011121314151617" : after);
        QCOMPARE(message == before, textOf(message).startsWith("123 2 1011")); // bytes beyond the length do not count
    }

    void administrationByte_data()
    {
        const auto row = columns<QByteArray, unsigned int, QList<int>>("data", "length", "typeErrorSum");
        row("error", hex("850102"), 3, {0, 258, 0});
        row("error too short", hex("850102"), 2, {0, 0, 0});
        row("no error bit", hex("050102"), 3, {0, 0, 0});
        row("negative error", hex("f5fffe"), 3, {7, -2, 0});
        row("checksum", hex("908000fffe"), 5, {1, -32768, -2});
        row("checksum too short", hex("900000fffe"), 4, {1, 0, 0});
        row("another administration byte", hex("910000fffe"), 5, {1, 0, 0});
        row("empty", hex("f5"), 0, {7, 0, 0});
    }
    void administrationByte()
    {
        QFETCH(QByteArray, data);
        QFETCH(unsigned int, length);
        CCanMessage message = ::message(0, '\0' + data.mid(1));
        message.setLength(length);
        message.setAdministrationByte(AdminByte{static_cast<unsigned char>(data.at(0))});
        QCOMPARE(message.length(), length);
        QTEST((QList<int>{message.messageType(), message.errorNumber(), message.deviceCheckSum()}), "typeErrorSum");
        QCOMPARE(int(message.administrationByte().bits.messageType), int(message.messageType()));
        message.setAdministrationByte(StreamAdminByte{0x91});
        QCOMPARE(int(message.streamAdministrationByte().value), 0x91);
    }
};

QTEST_APPLESS_MAIN(ContractTest)
#include "tst_contract.moc"
