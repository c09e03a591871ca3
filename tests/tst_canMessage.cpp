#include "testData.h"

#include <QVariant>

#include <cstring>

using namespace vexmor::Cim;
using namespace vexmor::Test;

using Change = bool (*)(CCanMessage&);
Q_DECLARE_METATYPE(Change)

namespace
{
template <typename... Data>
constexpr bool TAKES = std::is_constructible_v<CCanMessage, CCanId, unsigned char, Data...>;
static_assert(TAKES<> && TAKES<int, int> && TAKES<unsigned char*> && TAKES<std::nullptr_t>);
static_assert(!TAKES<const unsigned char*> && !TAKES<char*> && !TAKES<const char*>);

unsigned char s_bytes[] = {0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8};

/// Identifier, length and all eight data bytes.
QByteArray textOf(const CCanMessage& message)
{
    const QByteArray data(reinterpret_cast<const char*>(message.data()), 8);
    return QByteArray::number(message.id().value(), 16) + ' ' + QByteArray::number(message.length()) + ' ' +
           data.toHex();
}
} // namespace

/// The value that carries every frame between host and plugin.
class CanMessageTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void newMessageIsEmptyAndRegistered()
    {
        QCOMPARE(textOf(CCanMessage()), QByteArray("0 0 0000000000000000"));
#if QT_VERSION_MAJOR >= 6
        const QMetaType type = QMetaType::fromName("CCanMessage");
        QVERIFY(type.isValid());
#else
        const int type = QMetaType::type("CCanMessage");
        QVERIFY(type != QMetaType::UnknownType);
        QVERIFY(QMetaType::typeFlags(type).testFlag(QMetaType::NeedsConstruction));
#endif
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
        QCOMPARE(textOf(CCanMessage(id, 8, s_bytes)), QByteArray("7ff 8 a0a1a2a3a4a5a6a7"));
        QCOMPARE(textOf(CCanMessage(id, 9, s_bytes)), QByteArray("7ff 0 0000000000000000"));
        QCOMPARE(textOf(CCanMessage(id, 1, 0)), QByteArray("7ff 0 0000000000000000")); // a null pointer, too
        CCanMessage cut(id, 12, 1, 2, 3, 4, 0x105, -1, 7, 8, 9, 10, 11, 12);
        QCOMPARE(textOf(cut), QByteArray("7ff 8 0102030405ff0708"));
        cut.setLength(2); // bytes behind the length are copied, too
        CCanMessage assigned;
        assigned = cut;
        QCOMPARE(textOf(CCanMessage(cut)), QByteArray("7ff 2 0102030405ff0708"));
        QCOMPARE(textOf(assigned), QByteArray("7ff 2 0102030405ff0708"));
    }

    void changes_data()
    {
        const auto row = columns<QByteArray, Change>("after", "change"); // length and all data bytes; empty: refused
        row("length 8", "8 1011121314151617", [](CCanMessage& m) { return m.setLength(8); });
        row("byte 7", "2 10111213141516a0", [](CCanMessage& m) { return m.setDataAt(7, 0xA0); });
        row("byte 8", "", [](CCanMessage& m) { return m.setDataAt(8, 0xA0); });
        row("data to the end", "8 10111213a0a1a2a3", [](CCanMessage& m) { return m.setData(4, 4, s_bytes); });
        row("no data", "0 1011121314151617", [](CCanMessage& m) { return m.setData(0, 0, s_bytes); });
        row("data behind the end", "", [](CCanMessage& m) { return m.setData(5, 4, s_bytes); });
        row("no data behind the end", "", [](CCanMessage& m) { return m.setData(9, 0, s_bytes); });
        row("offset that wraps to 1", "", [](CCanMessage& m) { return m.setData(0xFFFFFFFF, 2, s_bytes); });
        row("count that wraps to 0", "", [](CCanMessage& m) { return m.setData(4, 0xFFFFFFFC, s_bytes); });
        row("null", "", [](CCanMessage& m) { return m.setData(0, 1, nullptr); });
        row("own bytes, moved by one", "8 1010111213141516",
            [](CCanMessage& m) { return m.setData(1, 7, const_cast<unsigned char*>(m.data())); });
    }
    void changes()
    {
        QFETCH(QByteArray, after);
        CCanMessage message = ::message(0x123, hex("1011121314151617"));
        message.setLength(2);
        QCOMPARE(cell<Change>("change")(message), !after.isEmpty());
        QCOMPARE(textOf(message), "123 " + (after.isEmpty() ? "2 1011121314151617" : after));
    }

    void boundsAreToldToDevelopers()
    {
        CCanMessage message = ::message(0, hex("1011121314151617"));
        for (const unsigned int length : {9U, 264U}) { // 8 in the low byte
            QTest::ignoreMessage(QtDebugMsg,
                                 "CCanMessage::setLength illegal param length: " + QByteArray::number(length) + '\n');
            QVERIFY(!message.setLength(length));
            QCOMPARE(message.length(), 8U);
        }
        message.setLength(0); // bytes are read behind the length
        unsigned char value = 0;
        QVERIFY(message.dataAt(7, value));
        QTest::ignoreMessage(QtDebugMsg, "CCanMessage::dataAt illegal param index: 8\n");
        QVERIFY(!message.dataAt(8, value));
        QCOMPARE(int(value), 0x17);
    }

    void administrationByte_data()
    {
        const auto row =
            columns<QByteArray, unsigned int, int, int, int>("data", "length", "type", "error", "checkSum");
        row("error", hex("850102"), 3, 0, 258, 0);
        row("error too short", hex("850102"), 2, 0, 0, 0);
        row("no error bit", hex("050102"), 3, 0, 0, 0);
        row("negative error", hex("f5fffe"), 3, 7, -2, 0);
        row("checksum", hex("908000fffe"), 5, 1, -32768, -2);
        row("checksum too short", hex("900000fffe"), 4, 1, 0, 0);
        row("another administration byte", hex("910000fffe"), 5, 1, 0, 0);
        row("empty", hex("f5"), 0, 7, 0, 0);
    }
    void administrationByte()
    {
        QFETCH(QByteArray, data);
        QFETCH(unsigned int, length);
        CCanMessage message = ::message(0, '\0' + data.mid(1));
        message.setLength(length);
        message.setAdministrationByte(AdminByte{static_cast<unsigned char>(data.at(0))});
        QTEST(message.length(), "length");
        QTEST(int(message.messageType()), "type");
        QTEST(int(message.administrationByte().bits.messageType), "type");
        QTEST(int(message.errorNumber()), "error");
        QTEST(int(message.deviceCheckSum()), "checkSum");
        message.setAdministrationByte(StreamAdminByte{0x10});
        QCOMPARE(int(message.messageType()), 1);
        QCOMPARE(int(message.streamAdministrationByte().value), 0x10);
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
