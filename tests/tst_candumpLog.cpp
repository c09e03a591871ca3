#include "canlog/candumpLog.h"
#include "testData.h"

using namespace vexmor::CanLog;
using namespace vexmor::Test;
using vexmor::Cim::CCanMessage;

/// The text formats: what is read, what is refused and why, and that what is written can be read again.
class CandumpLogTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void frames_data()
    {
        const auto row = columns<QByteArray>("formatted"); // empty: refused
        row("123#1122", "123#1122");
        row("1#", "001#");
        row("7ff#aa.bb.cc", "7FF#AABBCC");
        row("000#0001020304050607", "000#0001020304050607");
        for (const char* text : {"", "123", "#11", "800#", "0123#", "12G#", "-12#", "123#1", "123#1G",
                                 "123#000102030405060708", "123# 11", "00000123#11", "123##011", "123#R"}) {
            row(text, {});
        }
    }
    void frames()
    {
        const QByteArray text = rowName();
        QFETCH(QByteArray, formatted);
        CCanMessage message;
        QString error;
        QCOMPARE(parseFrame(text, message, error), !formatted.isEmpty());
        if (formatted.isEmpty()) {
            QVERIFY(error.contains(QString::fromLatin1(text)));
            QVERIFY(message == CCanMessage());
        } else {
            QCOMPARE(formatFrame(message), formatted);
        }
    }

    void lines_data()
    {
        const auto row = columns<int>("result");
        row("(1398128223.803317) can0 166#D0320009\n", int(ELine::eFrame));
        row("(1398128223.803317) can0 166#D0320009 R", int(ELine::eFrame));
        for (const char* skipped :
             {" \r\n", "# by hand", "(1.0) can0 00000166#D0", "(1.0) can0 166#R", "(1.0) can0 166##1D0"}) {
            row(skipped, int(ELine::eSkipped));
        }
        for (const char* malformed : {"can0 166#D0", "1.000000 can0 166#D0", "(99999999999999999999.0) can0 166#D0",
                                      "(-1.000000) can0 166#D0", "(1.000000) can0 166#D"}) {
            row(malformed, int(ELine::eMalformed));
        }
    }
    void lines()
    {
        SLogEntry entry;
        QString error;
        const ELine result = parseLogLine(rowName(), entry, error);
        QTEST(int(result), "result");
        if (result == ELine::eFrame) {
            QCOMPARE(entry.microseconds, std::int64_t(1398128223803317));
            QCOMPARE(formatLogLine(entry), rowName().trimmed()); // with its direction, where it has one
            QCOMPARE(formatDump(entry.interfaceName, entry.message), QByteArray("  can0  166   [4]  D0 32 00 09"));
        }
    }

    void readerNamesTheLineThatIsWrong()
    {
        const QTemporaryDir folder;
        const QString log =
            writeFile(folder, "(1.5) can0 001#01\n\n(2.0) can0 00000001#\n(3.000001) can0 002#\nnonsense\n");
        CLogReader reader;
        SLogEntry entry;
        QString error;
        QVERIFY(!reader.open(folder.filePath("none"_s), error));
        QVERIFY(!error.isEmpty());
        QVERIFY(reader.open(log, error));
        QVERIFY(reader.next(entry, error));
        QCOMPARE(entry.microseconds, std::int64_t(1500000));
        QVERIFY(reader.next(entry, error));
        QCOMPARE(formatLogLine(entry), QByteArray("(3.000001) can0 002#"));
        QCOMPARE(reader.skipped(), 1);
        QVERIFY(!reader.next(entry, error));
        QVERIFY2(error.contains("line 5"_s), qPrintable(error));
    }
};

QTEST_APPLESS_MAIN(CandumpLogTest)
#include "tst_candumpLog.moc"
