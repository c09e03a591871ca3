#include "apps/cimview/busloadScale.h"
#include "apps/cimview/interfaceList.h"
#include "apps/cimview/logFiles.h"
#include "apps/cimview/logReplay.h"
#include "apps/cimview/messageFeed.h"
#include "apps/cimview/sendList.h"
#include "apps/host/interfaceStore.h"
#include "apps/host/logRecorder.h"
#include "apps/host/sessionStatistics.h"
#include "cim/canInterfacePlugin.h"
#include "cimviewFixture.h"

#include <csignal>
#include <sys/resource.h>

using namespace vexmor::Apps;
using namespace vexmor::Apps::Cimview;
using namespace vexmor::Test;
using CRecorder = vexmor::Apps::CLogRecorder;

namespace
{
const QString HALL = "hall"_s;
using Line = QVector<QPointF>;
using Lines = QVector<QPolygonF>;
constexpr auto FATAL = QAbstractItemModelTester::FailureReportingMode::Fatal;
constexpr std::int64_t MS = 1000;
constexpr std::int64_t SECOND = 1000 * MS;

std::vector<SBusRecord> numbered(int first, int count)
{
    std::vector<SBusRecord> records;
    std::generate_n(std::back_inserter(records), count, [&first] { return record(std::uint16_t(first++), {}, 1); });
    return records;
}

/// Returns how many messages a trace shows, and the identifiers of the first and the last one.
QString range(const CTraceModel& trace)
{
    const auto id = [&trace](int row) { return trace.index(row, CTraceModel::eId).data().toString(); };
    return "%1: %2 to %3"_s.arg(trace.rowCount()).arg(id(0), id(trace.rowCount() - 1));
}

/// Limits the size of files, as a full disk does.
void limitFiles(rlim_t bytes)
{
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = std::min(bytes, limit.rlim_max);
    setrlimit(RLIMIT_FSIZE, &limit);
}
} // namespace

/// The models behind the window, without the window.
class CimviewModelsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("TZ", "UTC");
        std::signal(SIGXFSZ, SIG_IGN);         // a write beyond the limit fails instead
        QLocale::setDefault(QLocale::English); // the locale C does not sort numbers in texts
    }

    void matcher_data()
    {
        // Rows are FILTERS|TEXT, with "!" in front if they must not match the received message "123 [4] 41 62 0F F0"
        // of "hall A".
        rows({"120:7F0|", " 7FF,123 |", "| 62 0f ", "|620ff0", "|ab..", "| HALL ", "|amplifier", "|type 4", "|rx 1",
              "!|tx", "!124|hall"});
    }
    void matcher()
    {
        const QStringList typed = QString::fromLatin1(rowName()).remove(QLatin1Char('!')).split(QLatin1Char('|'));
        CSourceNames names;
        names.numberOf("hall A"_s);
        QVERIFY(!names.loadIds(writeFile(m_folder, "123 Amplifier\n")));
        const CMessageMatcher matcher(*readFilters(typed.at(0)), typed.at(1));
        QCOMPARE(matcher.matches(record(0x123, hex("41620FF0")), names), !rowName().startsWith('!'));
    }

    void wrongFilters_data() { rows({"12g 123", "123:", ":7FF", "123:7FF:2", "123 x", "800", "123:FFF", "7FF-800"}); }
    void wrongFilters() { QVERIFY(!readFilters(QString::fromLatin1(rowName()))); }

    void namesAreThoseOfTheLastGoodFile()
    {
        CSourceNames names;
        QVERIFY(!names.loadIds(writeFile(m_folder, "124 of the file before\n")));
        QVERIFY(!names.loadIds(writeFile(m_folder, "# all\n123  Amplifier  left # 1\n\n7ff last\n")));
        for (const char* wrong : {"\n124 x\nx left\n", "\n124 x\n800 left\n"}) {
            QVERIFY(names.loadIds(writeFile(m_folder, wrong)).value().text.contains("line 3"_s));
        }
        QCOMPARE((QStringList{names.idText(0x123), names.idText(0x124), names.idText(0x7FF)}),
                 list("123 Amplifier left|124|7FF last"_s));
        for (int number = 0; number <= 65536; ++number) { // one more than the numbers of interfaces
            QCOMPARE(int(names.numberOf(QString::number(number))), std::min(number, 65535));
        }
    }

    void traceShowsTheLast_data()
    {
        // The row name has the numbers of messages that are appended in each step; 100 messages are kept. The filter is
        // set anew before each step.
        const auto row = columns<QString, QString>("filter", "shown");
        row("95 5", {}, "100: 000 to 063"_s);
        row("95 20 1", {}, "91: 019 to 073"_s); // one too many: a tenth is dropped
        row("95 1000", {}, "100: 3E3 to 446"_s);
        row("32 64 30 1", "008:00F"_s, "6: 028 to 078"_s);
    }
    void traceShowsTheLast()
    {
        CTraceModel trace(m_names, 100);
        const QAbstractItemModelTester tester(&trace, FATAL);
        int next = 0;
        for (const QByteArray& count : rowName().split(' ')) {
            trace.setMatcher(CMessageMatcher(*readFilters(cell<QString>("filter"))));
            trace.append(numbered(next, count.toInt()));
            next += count.toInt();
        }
        QTEST(range(trace), "shown");
        QCOMPARE(int(trace.records().size()), trace.rowCount());
    }

    void pauseHoldsBack()
    {
        CMessageFeed feed(m_names, 100);
        feed.setPaused(true);
        for (const int first : {0, 50, 100}) {
            feed.addLive(numbered(first, 50));
        }
        QVERIFY(feed.isUnsaved());
        feed.setPaused(false);
        QCOMPARE(range(feed.trace()), "90: 03C to 095"_s); // a full buffer drops a tenth more than necessary
        feed.setPaused(true);
        feed.addLive(numbered(0, 1));
        feed.clear(); // also what waits
        feed.markSaved(0);
        QVERIFY(!feed.isUnsaved());
        feed.setPaused(false);
        const QSignalSpy changes(&feed.trace(), &CTraceModel::dataChanged);
        feed.trace().setTime(CTraceModel::ETime::eSinceStart); // since the first message after a clear
        feed.addLive({record(1, {}, 9 * SECOND), record(2, {}, 9500 * MS), record(3, {}, 10500007)});
        QCOMPARE(feed.identifiers().index(0, CIdentifierModel::eRate).data().toString(), "0.0"_s); // by now
        feed.trace().setMatcher(CMessageMatcher(*readFilters("1 3"_s)));
        QCOMPARE(tableText(feed.trace()), (QStringList{"0.000000||RX|001|||"_s, "1.500007||RX|003|||"_s}));
        feed.addLive({record(1, {}, 11 * SECOND)});
        feed.trace().setTime(CTraceModel::ETime::eSinceBefore);
        QCOMPARE(changes.size(), 1); // the view shows the other times at once
        QCOMPARE(tableText(feed.trace()).mid(1), (QStringList{"1.500007||RX|003|||"_s, "0.499993||RX|001|||"_s}));
        feed.trace().setTime(CTraceModel::ETime::eOfDay);
        QCOMPARE(tableText(feed.trace())[1], "00:00:10.500007||RX|003|||"_s);
    }

    void identifiersHavePeriodsWithoutOutages()
    {
        CSourceNames names;
        const std::uint16_t hall = names.numberOf(HALL);
        const std::uint16_t stage = names.numberOf("stage"_s);
        CIdentifierModel model(names);
        const QAbstractItemModelTester tester(&model, FATAL);
        CIdentifierFilter filter(model, names);
        model.append({record(0x200, hex("0002"), 10 * MS, hall), record(0x100, hex("00AA"), 10 * MS, hall),
                      record(0x200, hex("0041"), 10 * MS, stage), record(0x200, {}, 10 * MS, hall, true)});
        model.append({record(0x200, hex("0002"), 20 * MS, hall)});
        model.interrupt(hall, 25 * MS);
        model.append({record(0x200, hex("0002"), 24 * MS, hall)}); // was received before the interruption
        model.append({record(0x200, hex("0002"), 9000 * MS, hall), record(0x200, hex("0003"), 9007 * MS, hall),
                      record(0x200, hex("000300"), 9016 * MS, hall), record(0x200, hex("0041"), 9000 * MS, stage)});
        model.setNow(9100 * MS);
        const QStringList rows{"100|hall|RX|1|0.0||||00 AA|..|00:00:00.010|"_s,
                               "200|hall|RX|6|1.5|9.5|7.0|10.0|00 03 00|...|00:00:09.016|"_s,
                               "200|hall|TX|1|0.0||||||00:00:00.010|"_s,
                               "200|stage|RX|2|0.5|8990.0|8990.0|8990.0|00 41|.A|00:00:09.000|"_s};
        QCOMPARE(tableText(model), rows);
        filter.sort(CIdentifierModel::ePeriod, Qt::DescendingOrder);
        QCOMPARE(tableText(filter), (QStringList{rows[3], rows[1], rows[0], rows[2]}));
        const auto marksAt = [&model](std::int64_t time) {
            model.setNow(time);
            return model.index(1, CIdentifierModel::eData).data(CIdentifierModel::CHANGED_BYTES_ROLE).toInt();
        };
        QCOMPARE(marksAt(9100 * MS), 0b110); // an additional byte is a change, too
        QCOMPARE(marksAt(9007 * MS + CIdentifierModel::MARK_MICROSECONDS), 0b100);
        QCOMPARE(marksAt(9016 * MS + CIdentifierModel::MARK_MICROSECONDS), 0);

        filter.setMatcher(CMessageMatcher({}, "90 FF"_s));
        QCOMPARE(filter.rowCount(), 0);
        model.append({record(0x100, hex("90FFFE"), 9100 * MS, hall)});
        QVERIFY(tableText(filter).value(0).endsWith("|00:00:09.100|type 1, error -2 (3)"_s));
        CTraceModel trace(names);
        trace.append({model.record(0)});
        QVERIFY(trace.index(0, CTraceModel::eTime).data(Qt::ToolTipRole).toString().contains("1970"_s));
        QCOMPARE(tableText(trace), QStringList{"00:00:09.100000|hall|RX|100|90 FF FE|...|type 1, error -2 (3)"_s});
        model.clear();
        model.append({record(1, {}, 1000 * MS), record(1, {}, 1150 * MS)}); // of an older log
        QCOMPARE(tableText(model), QStringList{"001|hall|RX|2|1.0|150.0|150.0|150.0|||00:00:01.150|"_s});
    }

    void rateIsThatOfTheLastSeconds()
    {
        CIdentifierModel model(m_names);
        QString shown; // as a view shows it, which reads when it is notified
        connect(&model, &CIdentifierModel::dataChanged, this,
                [&] { shown = model.index(0, CIdentifierModel::eRate).data().toString(); });
        QStringList rates;
        for (int ms = 0; ms <= 13000; ms += 20) { // 50 messages per second for 10 s, then silence
            ms < 10000 ? model.append({record(1, {}, SECOND + ms * MS)}) : model.setNow(SECOND + ms * MS);
            ms == 500 || ms == 10000 || ms == 11000 || ms == 13000 ? rates.append(shown) : void();
        }
        QCOMPARE(rates, list("25.0 50.0 25.0 0.0"_s)); // over one second at least, two at most
    }

    void busloadLines_data()
    {
        // Samples are SECONDS-AGO:PERCENT, lines have points in a rectangle of 120 x 100 pixels.
        const auto row = columns<Lines>("lines");
        row("60:20 50:? 40:30 30:? 30:? 20:5 10:6", {Line{{60, 80}}, Line{{80, 70}}, Line{{100, 95}, {110, 94}}});
        row("140:1 130:10 60:20", {Line{{-10, 90}, {60, 80}}}); // the line enters from the left
        row("130:10 125:? 60:20", {Line{{60, 80}}});
        row("60:100 50:0 40:120", {Line{{60, 0}, {70, 100}, {80, -20}}});
        row("605:3 5:10", {Line{{-485, 97}, {115, 90}}}); // samples of ten minutes are kept
        row("606:3 5:10", {Line{{115, 90}}});
    }
    void busloadLines()
    {
        CBusloadHistory history;
        history.add("removed"_s, {-606 * SECOND, 1});
        for (const QString& sample : list(QString::fromLatin1(rowName()) + " 5:?"_s)) {
            bool isKnown = false;
            const int percent = sample.section(QLatin1Char(':'), 1).toInt(&isKnown);
            history.add(HALL, {-sample.section(QLatin1Char(':'), 0, 0).toInt() * SECOND,
                               isKnown ? std::optional(percent) : std::nullopt});
        }
        QCOMPARE(history.samples().size(), std::size_t(1));
        const SBusloadScale scale{QRectF(0, 0, 120, 100), 100, 0};
        QTEST(scale.linesOf(history.samples().at(HALL)), "lines");
        const QList<int> steps{markStep(7, 10), markStep(10, 5), markStep(10, 4), markStep(120, 6), markStep(120, 1)};
        QCOMPARE(steps, (QList<int>{1, 2, 5, 20, 200}));
    }

    void eventsAreCountedNeverLost()
    {
        CEventModel events;
        auto tester = std::make_unique<QAbstractItemModelTester>(&events, FATAL);
        const QString text = "Wrong.\n\nReasons"_s;
        std::int64_t time = 0;
        for (; time <= 5000 * SECOND; time += SECOND / 10) { // a flood of equal events is one row
            events.add({time, EEvent::eInterfaceError, "a"_s, 1, 2, text});
        }
        const auto add = [&](EEvent kind, const QString& source, int number) {
            events.add({time, kind, source, number, 1, text});
        };
        time = 5001 * SECOND;
        add(EEvent::eInterfaceError, "a"_s, 1);
        time = 5002 * SECOND + 1; // after a pause of more than a second
        add(EEvent::eInterfaceError, "a"_s, 1);
        add(EEvent::eInterfaceError, "b"_s, 1);
        for (const EEvent kind : {EEvent::eInterfaceError, EEvent::eResult, EEvent::eWarning, EEvent::eNote}) {
            add(kind, "b"_s, 2);
        }
        QCOMPARE(tableText(events), (QStringList{"00:00:00.000|a|error 1|100003|Wrong."_s,
                                                 "01:23:22.000|a|error 1||Wrong."_s, "01:23:22.000|b|error 1||Wrong."_s,
                                                 "01:23:22.000|b|error 2||Wrong."_s, "01:23:22.000|b|code 2||Wrong."_s,
                                                 "01:23:22.000|b|warning||Wrong."_s, "01:23:22.000|b|||Wrong."_s}));
        QCOMPARE(events.index(6, CEventModel::eText).data(Qt::ToolTipRole).toString(), text);
        QCOMPARE(events.unread(), 100008); // a notice does not count
        tester.reset();                    // too slow: it reads all rows after each change
        for (int number = 0; number <= int(CEventModel::CAPACITY); ++number) {
            add(EEvent::eResult, "b"_s, number);
        }
        QCOMPARE(events.rowCount(), int(CEventModel::CAPACITY));
        QCOMPARE(events.eventAt(0).number, 1);
        events.clear();
        QCOMPARE(events.unread(), 0);
    }

    void sendListRefusesWhatIsNoMessage_data()
    {
        // Rows are COLUMN|TYPED|CELL AFTERWARDS. The columns are identifier, data and interval in ms.
        rows({"2|7ff|7FF", "2|800|123", "2| |123", "3||", "3|aab|11 22", "4|3600000|3600000", "4|3600001|100", "4|1|1",
              "4|0|100", "4|soon|100"});
    }
    void sendListRefusesWhatIsNoMessage()
    {
        const QStringList given = list(QString::fromLatin1(rowName()));
        CSendList list;
        list.add({message(0x123, hex("1122")), 100, {}, {}});
        const QModelIndex edited = list.index(0, given[0].toInt());
        const QString before = edited.data().toString();
        const QSignalSpy refused(&list, &CSendList::refused);
        const bool accepted = list.setData(edited, given[1], Qt::EditRole);
        QCOMPARE(edited.data().toString(), given[2]);
        QCOMPARE(accepted, given[2] != before);
        QVERIFY(accepted ? refused.isEmpty() : refused.value(0).value(0).toString().contains(given[1]));
    }

    void sendListRunsAndIsStored()
    {
        CSendList list([](const QString& place) {
            return place == "away"_s ? vexmor::Failure(vexmor::wrongUsage("not open"_s)) : vexmor::Failure();
        });
        const QAbstractItemModelTester tester(&list, FATAL);
        list.add({message(0x123, hex("1122")), 50, "mute"_s, {}});
        list.add({message(0x7FF), 1000, {}, "stage"_s});
        list.add({message(0x001), 900, {}, {}});
        QString changes;
        connect(&list, &CSendList::cyclicChanged, this, [&](int key, const QString& place, const auto&, int period) {
            changes += "%1 %2 %3, "_s.arg(key).arg(place).arg(period);
        });
        const QSignalSpy refused(&list, &CSendList::refused);
        const auto set = [&list](int row, int column, const QVariant& value) {
            const int role = column == CSendList::eCyclic ? Qt::CheckStateRole : Qt::EditRole;
            return list.setData(list.index(row, column), value, role);
        };
        const auto start = [&](int row) { return set(row, CSendList::eCyclic, Qt::Checked); };
        list.setTarget("away"_s);
        QVERIFY(!start(0));
        QCOMPARE(refused.size(), 1);
        list.setTarget(HALL);
        QVERIFY(start(0));
        QVERIFY(start(2));
        list.remove(2);
        set(0, CSendList::eInterval, 20); // while it is sent
        set(0, CSendList::eName, "quiet"_s);
        set(1, CSendList::eInterval, 30);
        // A running row keeps its interface, and a row may have its own.
        list.setTarget("away"_s);
        QVERIFY(start(1));
        const std::uint16_t hall = m_names.numberOf(HALL);
        const SBusRecord counted = record(0x123, hex("1122"), 0, hall, true);
        list.countSent({counted, record(0x123, hex("1122"), 0, hall), record(0x7FF, {}, 0, hall, true)}, m_names);
        QCOMPARE(tableText(list), (QStringList{"x|quiet|123|11 22|20|1|hall (1)"_s, "x||7FF||30|0|stage (1)"_s}));
        list.stopAllBut({"stage"_s});
        set(1, CSendList::eInterface, "away"_s);
        QVERIFY(!start(1));
        set(0, CSendList::eData, "1122"_s);
        QCOMPARE(list.item(0).sent, std::uint64_t(0)); // begins to count anew
        QVERIFY(!(list.flags(list.index(0, CSendList::eSent)) & Qt::ItemIsEditable));
        list.add({message(0x001), 40, {}, HALL});
        QVERIFY(start(2));
        QCOMPARE(changes, "1 hall 50, 3 hall 900, 3 hall 0, 1 hall 20, 2 stage 30, 1 hall 0, 2 stage 0, 4 hall 40, "_s);

        QSettings settings;
        list.save(settings);
        settings.setValue("SendList/2/Interval"_s, 0); // as edited by hand
        settings.setValue("SendList/3/Interval"_s, 3600001);
        CSendList loaded;
        loaded.load(settings);
        QCOMPARE(tableText(loaded),
                 (QStringList{"|quiet|123|11 22|20|0|"_s, "||7FF||1|0|away"_s, "||001||3600000|0|hall"_s}));
        while (loaded.rowCount() <= CSendList::MAX_LOADED) {
            loaded.add({});
        }
        loaded.save(settings);
        CSendList next;
        next.load(settings);
        QCOMPARE(next.rowCount(), CSendList::MAX_LOADED);
    }

    void logsComeBackAsTheyWere()
    {
        const QString path = m_folder.filePath("saved.log"_s);
        std::vector<SBusRecord> records;
        for (std::uint16_t i = 0; i < 12000; ++i) { // saved and loaded in more than one piece
            const std::uint16_t source = m_names.numberOf(i % 2 == 0 ? HALL : "große Bühne"_s);
            records.push_back(record(i % 0x800, hex("0102"), 1398128223803317 + i, source, i % 3 == 0));
        }
        CLogSaver saver(m_names);
        QSignalSpy saved(&saver, &CLogSaver::finished);
        const auto save = [&](const QString& name, bool withDirection) {
            saver.save(m_folder.filePath(name), records, withDirection);
            return (saved.isEmpty() && !saved.wait()) ? QVariantList() : saved.takeFirst();
        };
        limitFiles(100);
        QVERIFY(save("full.log"_s, true).value(1).toString().contains("full.log cannot be written"_s));
        limitFiles(RLIM_INFINITY);
        QVERIFY(save("nowhere/a.log"_s, true).value(1).toString().contains("nowhere/a.log cannot be written"_s));
        QCOMPARE(save("table.CSV"_s, true).value(0).toInt(), 12000);
        QCOMPARE(save("plain.log"_s, false).value(0).toInt(), 12000);
        QCOMPARE(save("saved.log"_s, true).value(0).toInt(), 12000);
        const QByteArray table = contentOf(m_folder.filePath("table.CSV"_s));
        QVERIFY(
            table.startsWith("time,interface,direction,id,data\n2014-04-22 00:57:03.803317,\"hall\",TX,0x000,01 02\n"));
        QCOMPARE(table.count('\n'), 12001);
        QCOMPARE(tableLine(record(1, {}, 0, m_names.numberOf("a \"b\""_s)), m_names).split(',')[1],
                 QByteArray("\"a \"\"b\"\"\""));
        QVERIFY(contentOf(m_folder.filePath("plain.log"_s)).startsWith("(1398128223.803317) hall 000#0102\n"));

        CLogLoader loader(m_names);
        std::vector<SBusRecord> loaded;
        connect(&loader, &CLogLoader::loaded, this, [&loaded](const auto& all) { loaded = all; });
        QSignalSpy finished(&loader, &CLogLoader::finished);
        const auto load = [&](const QByteArray& content) {
            loader.load(content.isNull() ? path : writeFile(m_folder, content));
            return finished.wait() ? "%1 %2"_s.arg(finished.last()[0].toInt()).arg(finished.last()[1].toString())
                                   : QString();
        };
        QCOMPARE(contentOf(path).count(" R\n"), 8000);
        QCOMPARE(load({}), "12000 "_s);
        records = loaded;
        save("again.log"_s, true);
        QCOMPARE(contentOf(m_folder.filePath("again.log"_s)), contentOf(path));
        QCOMPARE(m_names.name(loaded[1].source), "große_Bühne"_s);
        loader.load(path);
        QCoreApplication::processEvents(); // reads the first piece of a log that another log replaces
        QVERIFY(load("(1.0) can0 123#11\n(1.0) can0 00000123#\nnonsense\n").contains("line 3"_s));
        QVERIFY(load("(1.0) can0 00000123#\n").endsWith(": 1"_s)); // a line was skipped
        QCOMPARE(load(""), "0 "_s);
        // The lines before the wrong one are shown, and an empty log replaces nothing.
        QCOMPARE(loaded.size(), std::size_t(1));
    }

    void recordingGoesOnInTheNextFile_data()
    {
        // Rows are PERIOD MESSAGES SECONDS FILES: after so many messages, of which 100 fill a file, another one follows
        // so many seconds later.
        rows({"hour 1 3599 1", "hour 1 3600 2", "hour 1 86400 2", "day 99 3600 1", "day 1 86400 2", "day 100 0 2"});
    }
    void recordingGoesOnInTheNextFile()
    {
        const QStringList given = list(QString::fromLatin1(rowName()));
        const QTemporaryDir folder;
        CRecorder recorder({}, 1000);
        const QSignalSpy started(&recorder, &CRecorder::started);
        QStringList ended;
        connect(&recorder, &CRecorder::ended, this, [&ended](const QString& problem) { ended += problem; });
        const auto start = [&](const QString& place) {
            recorder.start(place, given[0] == "hour"_s ? CRecorder::EPeriod::eHour : CRecorder::EPeriod::eDay,
                           [](const auto&) { return QByteArray("123456789"); });
        };
        start(folder.path());
        const QDateTime begin(QDate::currentDate().addDays(3), QTime(9, 0)); // independent of the time of the test
        recorder.record(numbered(0, given[1].toInt()), begin);
        recorder.record(numbered(0, 1), begin.addSecs(given[2].toInt()));
        QCOMPARE(int(recorder.count()), given[1].toInt() + 1);
        start(folder.path());
        start(folder.path());
        limitFiles(100);
        recorder.record(numbered(0, 50));
        limitFiles(RLIM_INFINITY);
        start(folder.filePath("nowhere"_s));
        start("/proc"_s);            // has no space
        QCOMPARE(started.size(), 3); // not the last ones
        const QRegularExpression problems("^\\|(\\|[^|]*cannot be written[^|]*){2}\\|[^|]* /proc is nearly full"_s);
        QVERIFY(ended.join(QLatin1Char('|')).contains(problems));
        QCOMPARE(recorder.count(), quint64(0));
        // Three files were begun at a start.
        QCOMPARE(int(QDir(folder.path()).entryList(QDir::Files).size()) - 3, given[3].toInt());
        QCOMPARE(run("cat %1/* | wc -l"_s.arg(folder.path())).out.toInt(), given[1].toInt() + 1 + 10);
    }

    void statistics()
    {
        CSessionStatistics statistics(1000 * SECOND);
        SBusRecord refused = record(2, {}, SECOND, 1, true);
        refused.code = 109;
        // Three messages in one second.
        const auto three = {record(0, {}, SECOND), record(1, {}, SECOND, 0, true), record(2, {}, SECOND)};
        statistics.add({three, {{0, 1, 7, 2}}, 5});
        statistics.add({{record(1, {}, 2 * SECOND), refused}, {{0, 1, 7, 1}}, 1});
        for (const auto percent : {std::optional(0), std::optional(32), std::optional(18), std::optional<int>()}) {
            statistics.addLoad(0, percent);
        }
        const auto textAfter = [&statistics](int seconds) {
            return statistics.text((1000 + seconds) * SECOND, [](int source) { return "bus %1"_s.arg(source); },
                                   [](int source, int error) { return "text %1 %2\nmore"_s.arg(source).arg(error); });
        };
        QVERIFY(textAfter(0).contains("mean 4.0"_s));
        QCOMPARE(textAfter(10).section(QLatin1Char('\n'), 1), QString(R"(
bus 0
  messages: received 3, sent 1, refused 0
  messages/s: mean 0.4, peak 3
  bus load: mean 16 %, peak 32 %

bus 1
  messages: received 0, sent 0, refused 1
  messages/s: mean 0.0, peak 0
  bus load: not known
  error 7, times: 3. text 1 7

Messages that this program lost because it was busy: 6
)"_s));
    }

    void replayKeepsOrderAndPace()
    {
        CLogReplay replay;
        QSignalSpy finished(&replay, &CLogReplay::finished);
        const QSignalSpy progressed(&replay, &CLogReplay::progressed);
        QList<int> sent;
        /// Replays records, ten times as fast after message 2, accepts `accepted` messages and refuses the next one.
        /// Returns the milliseconds until the end, or -1 if the reported count of messages is wrong.
        const auto play = [&](const std::vector<SBusRecord>& records, int accepted) {
            const SClock clock;
            sent.clear();
            replay.start(records, [&, accepted](const auto& message) {
                sent.append(message.id().value());
                sent.last() == 2 ? replay.setSpeed(10) : void();
                return sent.size() <= accepted;
            });
            return finished.wait() && finished.last()[0] == std::min(accepted, int(sent.size())) ? clock.elapsed() : -1;
        };
        QVERIFY(play({record(1, {}, 5 * SECOND), record(2, {}, 5100 * MS), record(3, {}, 6100 * MS)}, 3) >= 195);
        QCOMPARE(sent, (QList<int>{1, 2, 3}));
        QVERIFY(play(numbered(3, 5), 2) >= 0); // the third message is refused
        QVERIFY(play(std::vector<SBusRecord>(2500), 2500) >= 0);
        QVERIFY(progressed.contains(QList<QVariant>{1000, 2500})); // the window stays alive
        replay.setLoop(true);
        QVERIFY(play({}, 0) >= 0);
        replay.setSpeed(1000);
        const qint64 elapsed = play({record(1), record(3, {}, 100 * SECOND)}, 3); // without the speed: 200 s
        QVERIFY2(elapsed >= 200 && elapsed < 10000, QByteArray::number(elapsed));
        QCOMPARE(sent, (QList<int>{1, 3, 1, 3}));
    }

    void listKeepsTheStore()
    {
        const Settings settings{{StoreKey::ADDRESS, "10.0.0.5"_s}, {StoreKey::BAUDRATE, "250"_s}};
        CInterfaceList list(m_plugins, m_names, m_mailbox);
        const QAbstractItemModelTester tester(&list, FATAL);
        QVERIFY(!list.add(HALL, settings, true));
        QVERIFY(!list.add("Hall"_s, settings, false));
        QVERIFY(list.add(HALL, settings, false));
        QVERIFY(list.add(QString(), settings, true));
        QVERIFY(list.add("odd"_s, {{StoreKey::BAUDRATE, "33"_s}}, true));
        QVERIFY(list.at(0).setBitRate("1000"_s));
        QCOMPARE(tableText(list), (QStringList{"hall|closed||10.0.0.5:30000:TCP|1000 kbit/s|T93||yes"_s,
                                               "Hall|closed||10.0.0.5:30000:TCP|250 kbit/s|T93||no"_s}));
        list.at(1).store();
        QVERIFY(tableText(list)[1].endsWith("|yes"_s));
        list.remove(1);

        QSettings().setValue("CanInterfaces/odd/"_s + StoreKey::PLUGIN_NAME, "Nowhere"_s);
        CInterfaceList next(m_plugins, m_names, m_mailbox); // as after a restart
        QStringList events;
        connect(&next, &CInterfaceList::eventRaised, this,
                [&](const SEvent& event) { events += event.source + QLatin1Char(':') + event.text; });
        next.loadStored();
        QCOMPARE(tableText(next), QStringList{"hall|closed||10.0.0.5:30000:TCP|1000 kbit/s|T93||yes"_s});
        QCOMPARE(events, QStringList{"odd:The plugin Nowhere was not found."_s});
        QVERIFY(!CInterfaceStore().remove(HALL)); // by another program
        next.remove(0);
        QCOMPARE(next.rowCount(), 1);
        QFile file(QSettings().fileName());
        QVERIFY(file.open(QFile::Append) && file.write("no setting\n") > 0 && file.flush());
        next.loadStored();
        QCOMPARE(events.size(), 4);
        QVERIFY(events[2].endsWith("cannot be read"_s));
    }

    void scanBringsOnlyNewInterfaces()
    {
        CInterfaceList list(m_plugins, m_names, m_mailbox);
        list.add(HALL, {{StoreKey::ADDRESS, "10.0.0.5"_s}}, false);
        const QPersistentModelIndex selected = list.index(0, 0);
        std::vector<std::unique_ptr<vexmor::Cim::CCanInterface>> found;
        const auto answer = [this, &found](const QString& place, const QString& name = {}) {
            found.emplace_back(m_plugins.front().object->createInterface());
            auto info = found.back()->commonInfo();
            info.setPort("IP=%1:TCP"_s.arg(place));
            info.setUniqueName(name);
            found.back()->setCommonInfo(info);
        };
        answer("10.0.0.5:30000"_s, "again"_s);
        answer("10.0.0.6:30000"_s, HALL);
        answer("10.0.0.10:30000"_s);
        answer("10.0.0.6:30000"_s, "twice"_s);
        QCOMPARE(list.addFound(std::move(found)), std::pair(3, 2));
        list.sort(CInterfaceList::eAddress, Qt::DescendingOrder);
        QCOMPARE(tableText(list), (QStringList{"10.0.0.10:30000:TCP|closed||10.0.0.10:30000:TCP|100 kbit/s|T93||no"_s,
                                               "hall (2)|closed||10.0.0.6:30000:TCP|100 kbit/s|T93||no"_s,
                                               "hall|closed||10.0.0.5:30000:TCP|100 kbit/s|T93||no"_s}));
        QCOMPARE(selected.data().toString(), HALL);
        QStringList events;
        connect(&list, &CInterfaceList::eventRaised, this, [&](const SEvent& event) { events += event.text; });
        for (int port = 1; port <= 4000; ++port) { // devices that all report the same name
            answer("10.0.0.8:%1"_s.arg(port), "stranger"_s);
        }
        QCOMPARE(list.addFound(std::move(found)).second, 1000);
        QCOMPARE(list.at(list.rowCount() - 1).name(), "stranger (1000)"_s);
        QVERIFY(events.size() == 1 && events[0].contains("3000 were not added"_s));
    }

private:
    const CPrivateStore m_store;
    const QTemporaryDir m_folder;
    std::vector<SPlugin> m_plugins = searchPlugins({QStringLiteral(CIM_PLUGIN_FILE), {}}).plugins;
    CSourceNames m_names;
    std::shared_ptr<CMailbox> m_mailbox = std::make_shared<CMailbox>();
};

QTEST_GUILESS_MAIN(CimviewModelsTest)
#include "tst_cimviewModels.moc"
