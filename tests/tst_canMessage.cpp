#include "testData.h"

#include <QTest>
#include <QVariant>

#include <cstring>

using namespace vexmor::Cim;
using namespace vexmor::Test;

using Change = bool (*)(CCanMessage&);
Q_DECLARE_METATYPE(Change)

namespace
{
unsigned char s_bytes[] = {0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8};

/// All eight data bytes, whatever the length.
QByteArray dataOf(const CCanMessage& message)
{
    return QByteArray(reinterpret_cast<const char*>(message.data()), 8).toHex();
}
} // namespace

/// The value that carries every frame between host and plugin.
class CanMessageTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void newMessageIsEmptyAndRegistered()
    {
        const CCanMessage message;
        QVERIFY(message == CCanMessage());
        QCOMPARE(message.id().value(), std::uint16_t(0));
        QCOMPARE(message.length(), 0U);
        QCOMPARE(dataOf(message), QByteArray("0000000000000000"));
        const int type = QMetaType::type("CCanMessage");
        QVERIFY(type != QMetaType::UnknownType);
        QVERIFY(QMetaType::typeFlags(type).testFlag(QMetaType::NeedsConstruction));
        const CCanMessage other = ::message(0x123, hex("01"));
        const QVariant variant(type, &other);
        QVERIFY(*static_cast<const CCanMessage*>(variant.constData()) == other);
    }

    void layoutIsSharedWithHosts() // identifier in the byte order of the machine, length, data
    {
        const CCanMessage message(CCanId(0x01, 0x23, 0), 2, 0xAA, 0xBB);
        const std::uint16_t id = 0x0123;
        char bytes[sizeof message];
        std::memcpy(bytes, static_cast<const void*>(&message), sizeof bytes);
        QCOMPARE(std::memcmp(bytes, &id, sizeof id), 0);
        QCOMPARE(QByteArray(bytes + 2, 9).toHex(), QByteArray("02aabb000000000000"));
    }

    void constructors()
    {
        const CCanId id(0x07, 0xFF, 0);
        QCOMPARE(dataOf(CCanMessage(id, 8, s_bytes)), QByteArray("a0a1a2a3a4a5a6a7"));
        for (const auto& refused : {CCanMessage(id, 9, s_bytes), CCanMessage(id, 3, nullptr)}) {
            QCOMPARE(refused.id().value(), std::uint16_t(0x7FF));
            QCOMPARE(refused.length(), 0U);
            QCOMPARE(dataOf(refused), QByteArray("0000000000000000"));
        }
        const CCanMessage cut(id, 12, 1, 2, 3, 4, 0x105, -1, 7, 8, 9, 10, 11, 12);
        QCOMPARE(cut.length(), 8U);
        QCOMPARE(dataOf(cut), QByteArray("0102030405ff0708"));
        CCanMessage whole = cut;
        whole.setLength(2); // bytes behind the length are copied, too
        CCanMessage assigned;
        assigned = whole;
        for (const auto& copy : {CCanMessage(whole), assigned}) {
            QVERIFY(copy == whole && copy.length() == 2);
            QCOMPARE(dataOf(copy), dataOf(whole));
        }
    }

    void changes_data()
    {
        QTest::addColumn<Change>("change");
        QTest::addColumn<bool>("accepted");
        QTest::addColumn<unsigned int>("length");
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<QByteArray>("debugText");
        const auto accepted = [](const char* name, unsigned int length, const char* data, Change change) {
            QTest::newRow(name) << change << true << length << QByteArray(data) << QByteArray();
        };
        const auto refused = [](const char* name, Change change, const char* debugText = "") {
            QTest::newRow(name) << change << false << 2U << QByteArray("1011121314151617") << QByteArray(debugText);
        };
        accepted("length 8", 8, "1011121314151617", [](CCanMessage& m) { return m.setLength(8); });
        refused(
            "length 9", [](CCanMessage& m) { return m.setLength(9); },
            "CCanMessage::setLength illegal param length: 9\n");
        refused(
            "length 264, 8 in the low byte", [](CCanMessage& m) { return m.setLength(264); },
            "CCanMessage::setLength illegal param length: 264\n");
        accepted("byte 7", 2, "10111213141516a0", [](CCanMessage& m) { return m.setDataAt(7, 0xA0); });
        refused("byte 8", [](CCanMessage& m) { return m.setDataAt(8, 0xA0); });
        accepted("data to the end", 8, "10111213a0a1a2a3", [](CCanMessage& m) { return m.setData(4, 4, s_bytes); });
        accepted("no data", 0, "1011121314151617", [](CCanMessage& m) { return m.setData(0, 0, s_bytes); });
        accepted("no data at the end", 8, "1011121314151617", [](CCanMessage& m) { return m.setData(8, 0, s_bytes); });
        refused("data behind the end", [](CCanMessage& m) { return m.setData(5, 4, s_bytes); });
        refused("no data behind the end", [](CCanMessage& m) { return m.setData(9, 0, s_bytes); });
        refused("offset that wraps to 1", [](CCanMessage& m) { return m.setData(0xFFFFFFFF, 2, s_bytes); });
        refused("count that wraps to 0", [](CCanMessage& m) { return m.setData(4, 0xFFFFFFFC, s_bytes); });
        refused("null", [](CCanMessage& m) { return m.setData(0, 1, nullptr); });
        accepted("administration byte", 2, "9011121314151617", [](CCanMessage& m) {
            m.setAdministrationByte(AdminByte{0x90});
            return true;
        });
        accepted("stream administration byte", 2, "f511121314151617", [](CCanMessage& m) {
            m.setAdministrationByte(StreamAdminByte{0xF5});
            return true;
        });
    }
    void changes()
    {
        QFETCH(Change, change);
        QFETCH(QByteArray, debugText);
        CCanMessage message = ::message(0x123, hex("1011121314151617"));
        message.setLength(2);
        if (!debugText.isEmpty()) {
            QTest::ignoreMessage(QtDebugMsg, debugText);
        }
        QTEST(change(message), "accepted");
        QTEST(message.length(), "length");
        QTEST(dataOf(message), "data");
        QCOMPARE(message.id().value(), std::uint16_t(0x123));
    }

    void bytesAreReadBehindTheLength()
    {
        CCanMessage message = ::message(0, hex("1011121314151617"));
        message.setLength(0);
        unsigned char value = 0;
        QVERIFY(message.dataAt(7, value));
        QCOMPARE(int(value), 0x17);
        QTest::ignoreMessage(QtDebugMsg, "CCanMessage::dataAt illegal param index: 8\n");
        QVERIFY(!message.dataAt(8, value));
        QCOMPARE(int(value), 0x17);
    }

    void administrationByte_data()
    {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<unsigned int>("length");
        QTest::addColumn<int>("type");
        QTest::addColumn<int>("errorNumber");
        QTest::addColumn<int>("checkSum");
        QTest::newRow("error") << hex("850102") << 3U << 0 << 258 << 0;
        QTest::newRow("error too short") << hex("850102") << 2U << 0 << 0 << 0;
        QTest::newRow("no error bit") << hex("050102") << 3U << 0 << 0 << 0;
        QTest::newRow("negative error") << hex("f5fffe") << 3U << 7 << -2 << 0;
        QTest::newRow("checksum") << hex("908000fffe") << 5U << 1 << -32768 << -2;
        QTest::newRow("checksum too short") << hex("900000fffe") << 4U << 1 << 0 << 0;
        QTest::newRow("another administration byte") << hex("910000fffe") << 5U << 1 << 0 << 0;
        QTest::newRow("empty") << hex("f5") << 0U << 7 << 0 << 0;
    }
    void administrationByte()
    {
        QFETCH(QByteArray, data);
        QFETCH(unsigned int, length);
        CCanMessage message = ::message(0, data);
        message.setLength(length);
        QTEST(int(message.messageType()), "type");
        QTEST(int(message.administrationByte().bits.messageType), "type");
        QTEST(int(message.errorNumber()), "errorNumber");
        QTEST(int(message.deviceCheckSum()), "checkSum");
        QCOMPARE(message.administrationByte().value, static_cast<unsigned char>(data.at(0)));
        QCOMPARE(message.streamAdministrationByte().value, static_cast<unsigned char>(data.at(0)));
    }

    void equality()
    {
        const CCanMessage message = ::message(0x123, hex("0102"));
        CCanMessage behind = message;
        behind.setDataAt(2, 0xFF);
        QVERIFY(behind == message);
        QVERIFY(!(::message(0x123, hex("010200")) == message)); // the shorter one is a prefix
        QVERIFY(!(::message(0x123, hex("0103")) == message));
        QVERIFY(!(::message(0x923, hex("0102")) == message)); // all 16 bits count
    }
};

QTEST_APPLESS_MAIN(CanMessageTest)
#include "tst_canMessage.moc"
