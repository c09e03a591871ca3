#include "candump/candumpLog.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace vexmor::Candump;
using vexmor::Cim::CCanMessage;

/// The text formats: what is read, what is refused and why, and that what is written can be read again.
class CandumpLogTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void frames_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("formatted"); // empty: refused
        QTest::newRow("two bytes") << QByteArray("123#1122") << QByteArray("123#1122");
        QTest::newRow("no bytes, short identifier") << QByteArray("1#") << QByteArray("001#");
        QTest::newRow("highest identifier, lower case, dots") << QByteArray("7ff#aa.bb.cc") << QByteArray("7FF#AABBCC");
        QTest::newRow("eight bytes") << QByteArray("000#0001020304050607") << QByteArray("000#0001020304050607");
        for (const char* text : {"", "123", "#11", "800#", "0123#", "12G#", "-12#", "123#1", "123#1G",
                                 "123#000102030405060708", "123# 11", "00000123#11", "123##011", "123#R"}) {
            QTest::addRow("refused: %s", text) << QByteArray(text) << QByteArray();
        }
    }
    void frames()
    {
        QFETCH(QByteArray, text);
        QFETCH(QByteArray, formatted);
        CCanMessage message;
        QString error;
        QCOMPARE(parseFrame(text, message, error), !formatted.isEmpty());
        if (formatted.isEmpty()) {
            QVERIFY(error.contains(QString::fromLatin1(text)) && message == CCanMessage());
        } else {
            QCOMPARE(formatFrame(message), formatted);
        }
    }

    void lines_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<int>("result");
        const auto row = [](const char* name, const char* line, ELine result) {
            QTest::newRow(name) << QByteArray(line) << int(result);
        };
        row("a frame", "(1398128223.803317) can0 166#D0320009\n", ELine::eFrame);
        row("with a direction", "(1398128223.803317) can0 166#D0320009 R", ELine::eFrame);
        row("empty", " \r\n", ELine::eSkipped);
        row("29-bit", "(1.000000) can0 00000166#D0", ELine::eSkipped);
        row("remote", "(1.000000) can0 166#R", ELine::eSkipped);
        row("CAN FD", "(1.000000) can0 166##1D0", ELine::eSkipped);
        row("no time", "can0 166#D0", ELine::eMalformed);
        row("time without brackets", "1.000000 can0 166#D0", ELine::eMalformed);
        row("time beyond all bounds", "(99999999999999999999.0) can0 166#D0", ELine::eMalformed);
        row("negative time", "(-1.000000) can0 166#D0", ELine::eMalformed);
        row("half a byte", "(1.000000) can0 166#D", ELine::eMalformed);
    }
    void lines()
    {
        QFETCH(QByteArray, line);
        SLogEntry entry;
        QString error;
        const ELine result = parseLogLine(line, entry, error);
        QTEST(int(result), "result");
        if (result == ELine::eFrame) {
            QCOMPARE(entry.microseconds, std::int64_t(1398128223803317));
            QCOMPARE(formatLogLine(entry), QByteArray("(1398128223.803317) can0 166#D0320009"));
            QCOMPARE(formatDump(entry.interfaceName, entry.message), QByteArray("  can0  166   [4]  D0 32 00 09"));
        }
    }

    void readerNamesTheLineThatIsWrong()
    {
        const QTemporaryDir folder;
        QFile file(folder.filePath(QStringLiteral("a.log")));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("(1.5) can0 001#01\n\n(2.0) can0 00000001#\n(3.000001) can0 002#\nnonsense\n");
        file.close();
        CLogReader reader;
        SLogEntry entry;
        QString error;
        QVERIFY(!reader.open(folder.filePath(QStringLiteral("none")), error) && !error.isEmpty());
        QVERIFY(reader.open(file.fileName(), error));
        QVERIFY(reader.next(entry, error));
        QCOMPARE(entry.microseconds, std::int64_t(1500000));
        QVERIFY(reader.next(entry, error));
        QCOMPARE(formatLogLine(entry), QByteArray("(3.000001) can0 002#"));
        QCOMPARE(reader.skipped(), 1);
        QVERIFY(!reader.next(entry, error));
        QVERIFY2(error.contains(QStringLiteral("line 5")), qPrintable(error));
    }
};

QTEST_APPLESS_MAIN(CandumpLogTest)
#include "tst_candumpLog.moc"
