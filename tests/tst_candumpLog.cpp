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
        auto message = parseFrame(text);
        QCOMPARE(bool(message), !formatted.isEmpty());
        if (message) {
            QCOMPARE(formatFrame(*message), formatted);
        } else {
            QVERIFY(message.problem().text.contains(QString::fromLatin1(text)));
            QVERIFY(message.problem().isUsage);
        }
    }

    void lines_data()
    {
        const auto row = columns<QString>("result");
        row("(1398128223.803317) can0 166#D0320009\n", "entry"_s);
        row("(1398128223.803317) can0 166#D0320009 R", "entry"_s);
        for (const char* skipped :
             {" \r\n", "# by hand", "(1.0) can0 00000166#D0", "(1.0) can0 166#R", "(1.0) can0 166##1D0"}) {
            row(skipped, "skipped"_s);
        }
        for (const char* malformed : {"can0 166#D0", "1.000000 can0 166#D0", "(99999999999999999999.0) can0 166#D0",
                                      "(-1.000000) can0 166#D0", "(1.000000) can0 166#D"}) {
            row(malformed, "malformed"_s);
        }
    }
    void lines()
    {
        auto read = parseLogLine(rowName());
        QTEST(!read ? "malformed"_s : *read ? "entry"_s : "skipped"_s, "result");
        if (read && *read) {
            const SLogEntry& entry = **read;
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
        const auto failure = reader.open(folder.filePath("none"_s));
        QVERIFY(failure);
        QVERIFY(failure->text.contains(folder.filePath("none"_s)));
        QVERIFY(!reader.open(log));
        auto entry = reader.next();
        QVERIFY(entry);
        QVERIFY(*entry);
        QCOMPARE((*entry)->microseconds, std::int64_t(1500000));
        entry = reader.next();
        QVERIFY(entry);
        QVERIFY(*entry);
        QCOMPARE(formatLogLine(**entry), QByteArray("(3.000001) can0 002#"));
        QCOMPARE(reader.skipped(), 1);
        entry = reader.next();
        QVERIFY(!entry);
        QVERIFY2(entry.problem().text.contains("line 5"_s), qPrintable(entry.problem().text));
        entry = reader.next();
        QVERIFY(entry && !*entry); // the end
    }
};

QTEST_APPLESS_MAIN(CandumpLogTest)
#include "tst_candumpLog.moc"
