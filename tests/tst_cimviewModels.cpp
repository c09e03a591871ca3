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
#include "testData.h"

using namespace vexmor::Apps;
using namespace vexmor::Apps::Cimview;
using namespace vexmor::Test;

namespace
{
const QString HALL = "hall"_s;
constexpr auto FATAL = QAbstractItemModelTester::FailureReportingMode::Fatal;

SBusRecord record(std::uint16_t id, const QByteArray& data = {}, std::int64_t microseconds = 0,
                  std::uint16_t source = 0)
{
    return {microseconds, message(id, data), source, false};
}

std::vector<SBusRecord> numbered(std::uint16_t first, int count)
{
    std::vector<SBusRecord> records;
    std::generate_n(std::back_inserter(records), count, [&first] { return record(first++); });
    return records;
}

QString cell(const QAbstractItemModel& model, int row, int column)
{
    return model.index(row, column).data().toString();
}

/// Returns the texts of all rows in these columns, with bars between the cells.
QStringList lines(const QAbstractItemModel& model, std::initializer_list<int> columns)
{
    QStringList lines;
    for (int row = 0; row < model.rowCount(); ++row) {
        QStringList cells;
        std::transform(columns.begin(), columns.end(), std::back_inserter(cells),
                       [&](int column) { return cell(model, row, column); });
        lines.append(cells.join(QLatin1Char('|')));
    }
    return lines;
}

/// Returns how many messages a trace shows, and the identifiers of the first and the last one.
QString range(const CTraceModel& trace)
{
    const int last = trace.rowCount() - 1;
    return "%1: %2 to %3"_s.arg(last + 1).arg(cell(trace, 0, CTraceModel::eId), cell(trace, last, CTraceModel::eId));
}
} // namespace

/// The models behind the window, without the window.
class CimviewModelsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void matcher_data()
    {
        // Rows are FILTERS|TEXT, with "!" in front if they must not match the received message "123 [4] 41 62 0F F0"
        // of "hall A".
        rows({"120:7F0|", " 7FF, 123 |", "|62 0f", "|620ff0", "|ab..", "|HALL", "|amplifier", "|type 4", "|rx 1",
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
        for (const char* wrong : {"124 x\nx left\n", "124 x\n800 left\n"}) {
            const auto failure = names.loadIds(writeFile(m_folder, wrong));
            QVERIFY(failure && failure->text.contains("line 2"_s));
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
        // set after the first step.
        const auto row = columns<QString, QString>("filter", "shown");
        row("95 5", {}, "100: 000 to 063"_s);
        row("95 20", {}, "100: 00F to 072"_s);
        row("95 20 1", {}, "91: 019 to 073"_s); // one too many: a tenth is dropped
        row("95 1000", {}, "100: 3E3 to 446"_s);
        row("32 64", "008:00F"_s, "6: 008 to 058"_s);
        row("32 64 30", "008:00F"_s, "6: 028 to 078"_s);
    }
    void traceShowsTheLast()
    {
        CTraceModel trace(m_names, 100);
        const QAbstractItemModelTester tester(&trace, FATAL);
        int next = 0;
        for (const QByteArray& count : rowName().split(' ')) {
            trace.append(numbered(next, count.toInt()));
            next == 0 ? trace.setMatcher(CMessageMatcher(*readFilters(cell<QString>("filter")))) : void();
            next += count.toInt();
        }
        QTEST(range(trace), "shown");
        trace.setMatcher(CMessageMatcher());
        QCOMPARE(trace.rowCount(), static_cast<int>(trace.size()));
    }

    void pauseHoldsBack()
    {
        CMessageFeed feed(m_names, 100);
        feed.setPaused(true);
        for (const int first : {0, 50, 100}) {
            feed.addLive(numbered(first, 50));
        }
        QCOMPARE(feed.waitingCount(), std::size_t(90)); // a full buffer drops a tenth more than necessary
        feed.setPaused(false);
        QCOMPARE(range(feed.trace()), "90: 03C to 095"_s);
        QCOMPARE(feed.waitingCount(), std::size_t(0));
        feed.trace().setTime(CTraceModel::ETime::eSinceStart);
        for (const std::int64_t start : {3000000, 9000000}) { // times count from the first message after a clear
            QVERIFY(feed.isUnsaved());
            feed.clear();
            feed.markSaved(0);
            QVERIFY(!feed.isUnsaved());
            feed.addLive({record(1, {}, start), record(2, {}, start + 500000), record(3, {}, start + 1500000)});
            QCOMPARE(cell(feed.trace(), 2, CTraceModel::eTime), "1.500000"_s);
        }
        feed.trace().setTime(CTraceModel::ETime::eSinceBefore);
        QCOMPARE(cell(feed.trace(), 2, CTraceModel::eTime), "1.000000"_s);
    }

    void identifiers()
    {
        constexpr std::int64_t MS = 1000;
        CIdentifierModel model(m_names);
        const QAbstractItemModelTester tester(&model, FATAL);
        model.append({record(0x200, hex("0102"), 1),
                      record(0x100, hex("AA"), 1),
                      record(0x200, hex("0102"), 1, 1),
                      {1, message(0x200), 0, true}});
        model.append({record(0x200, hex("0103"), 1 + 10 * MS), record(0x200, hex("010304"), 1 + 20 * MS)});
        QCOMPARE(model.index(1, CIdentifierModel::eId).data(MARK_ROLE).toInt(), 0);
        using Model = CIdentifierModel; // sorted by identifier, interface and direction
        QCOMPARE(lines(model, {Model::eId, Model::eDirection, Model::eCount, Model::ePeriod, Model::eData}),
                 (QStringList{"100|RX|1||AA"_s, "200|RX|3|10.0|01 03 04"_s, "200|TX|1||"_s, "200|RX|1||01 02"_s}));
        const auto marksAt = [&model](std::int64_t time) {
            model.setNow(time);
            return model.index(1, CIdentifierModel::eData).data(CIdentifierModel::CHANGED_BYTES_ROLE).toInt();
        };
        QCOMPARE(marksAt(1 + 20 * MS), 0b110); // an additional byte is a change, too
        QCOMPARE(marksAt(1 + 10 * MS + CIdentifierModel::MARK_MICROSECONDS), 0b100);
        QCOMPARE(marksAt(1 + 20 * MS + CIdentifierModel::MARK_MICROSECONDS), 0);
        const SBusRecord error = record(0x200, hex("90FFFE"));
        CTraceModel trace(m_names);
        model.append({error});
        trace.append({error});
        for (const QModelIndex& id : {model.index(1, CIdentifierModel::eId), trace.index(0, CTraceModel::eId)}) {
            QCOMPARE(id.data(MARK_ROLE).toInt(), static_cast<int>(EMark::eBad));
        }
        QCOMPARE(cell(model, 1, CIdentifierModel::eAdmin), "type 1, error -2"_s);
    }

    void rateIsThatOfTheLastSeconds_data()
    {
        // Rows have a number of pieces, one every 20 ms with 50 messages each, and the time after the last one.
        const auto row = columns<int, std::int64_t, QString>("pieces", "afterMs", "rate");
        row("half a second old", 25, 100, "1250.0"_s);
        row("a second old", 50, 100, "2500.0"_s);
        row("ten seconds old", 500, 100, "2500.0"_s);
        row("silent for a second", 500, 1100, "1250.0"_s);
        row("silent", 500, 3000, "0.0"_s);
    }
    void rateIsThatOfTheLastSeconds()
    {
        constexpr std::int64_t START = 1700000000000000;
        constexpr std::int64_t PIECE = 20000;
        const int pieces = cell<int>("pieces");
        CIdentifierModel model(m_names);
        QString shown; // as a view shows it, which reads when it is notified
        connect(&model, &CIdentifierModel::dataChanged, this, [&] { shown = cell(model, 0, CIdentifierModel::eRate); });
        std::vector<SBusRecord> records; // all of a piece together, as a socket delivers them
        for (int i = 0; i < pieces * 50; ++i) {
            records.push_back(record(0x123, {}, START + i / 50 * PIECE + i % 50));
        }
        model.append(records);
        for (std::int64_t ms = 0; ms <= cell<std::int64_t>("afterMs"); ms += 20) {
            model.setNow(START + (pieces - 1) * PIECE + ms * 1000);
        }
        QTEST(shown, "rate");
    }

    void outageIsNoPeriod()
    {
        constexpr std::int64_t MS = 1000;
        CIdentifierModel model(m_names);
        model.append({record(1, {}, 10 * MS), record(1, {}, 20 * MS), record(2, {}, 20 * MS, 1)});
        model.interrupt(0, 25 * MS);
        model.append({record(1, {}, 24 * MS)}); // was received before the interruption
        model.append({record(1, {}, 9000 * MS), record(1, {}, 9007 * MS), record(1, {}, 9016 * MS)});
        model.append({record(2, {}, 9000 * MS, 1)}); // from another interface
        QCOMPARE(lines(model, {CIdentifierModel::eLeast, CIdentifierModel::eGreatest}),
                 (QStringList{"7.0|10.0"_s, "8980.0|8980.0"_s}));
    }

    void identifierFilterFollowsTheData()
    {
        CIdentifierModel model(m_names);
        CIdentifierFilter filter(model, m_names);
        model.append({record(1, hex("AA")), record(2, hex("BB"))});
        QCOMPARE(filter.rowCount(), 2);
        filter.setMatcher(CMessageMatcher({}, "BB"_s));
        QCOMPARE(filter.rowCount(), 1);
        model.append({record(1, hex("BB"))});
        QCOMPARE(filter.rowCount(), 2);
    }

    void busloadLines_data()
    {
        // Samples are SECONDS-AGO:PERCENT, lines are points X,Y in a rectangle of 120 x 100 pixels.
        const auto row = columns<QString>("lines");
        row("60:20 50:40", "60,80 70,60 "_s);
        row("60:20 50:? 40:30 30:? 30:? 20:5 10:6", "60,80 |80,70 |100,95 110,94 "_s);
        row("140:1 130:10 60:20", "-10,90 60,80 "_s); // the line enters from the left
        row("130:10 125:? 60:20", "60,80 "_s);
        row("60:100 50:0 40:120", "60,0 70,100 80,-20 "_s);
        row("605:3 5:10", "-485,97 115,90 "_s); // samples of ten minutes are kept
        row("606:3 5:10", "115,90 "_s);
    }
    void busloadLines()
    {
        CBusloadHistory history;
        for (const QString& sample : list(QString::fromLatin1(rowName()))) {
            bool isKnown = false;
            const int percent = sample.section(QLatin1Char(':'), 1).toInt(&isKnown);
            history.add(HALL, {-sample.section(QLatin1Char(':'), 0, 0).toInt() * 1'000'000LL,
                               isKnown ? std::optional(percent) : std::nullopt});
        }
        QString lines;
        for (const QPolygonF& line :
             SBusloadScale{QRectF(0, 0, 120, 100), 100, 0}.linesOf(history.samples().at(HALL))) {
            lines += lines.isEmpty() ? QString() : "|"_s;
            for (const QPointF& point : line) {
                lines += "%1,%2 "_s.arg(point.x()).arg(point.y());
            }
        }
        QCOMPARE(lines, cell<QString>("lines"));
    }

    void busloadMarks()
    {
        const QList<int> steps{markStep(7, 10), markStep(10, 5), markStep(10, 4), markStep(120, 6), markStep(120, 1)};
        QCOMPARE(steps, (QList<int>{1, 2, 5, 20, 200}));
    }

    void eventsAreCountedNeverLost()
    {
        constexpr std::int64_t SECOND = 1000000;
        CEventModel events;
        auto tester = std::make_unique<QAbstractItemModelTester>(&events, FATAL);
        SEvent event{0, EEvent::eInterfaceError, "a"_s, 1, 2, "Wrong.\n\nReasons"_s};
        // A flood of equal events is one row.
        for (; event.microseconds < 5000 * SECOND; event.microseconds += SECOND / 10) {
            events.add(event);
        }
        event.microseconds = 5001 * SECOND; // after a pause of more than a second
        event.count = 1;
        events.add(event);
        event.number = 2;
        events.add(event);
        event.kind = EEvent::eNote;
        events.add(event);
        QCOMPARE(lines(events, {CEventModel::eCount, CEventModel::eText}),
                 (QStringList{"100000|Wrong."_s, "|Wrong."_s, "|Wrong."_s, "|Wrong."_s}));
        QCOMPARE(events.unread(), 100002); // a notice does not count
        events.markRead();
        QCOMPARE(events.unread(), 0);
        tester.reset(); // too slow: it reads all rows after each change
        for (event.number = 3; event.number < 4 + static_cast<int>(CEventModel::CAPACITY); ++event.number) {
            events.add(event);
        }
        QCOMPARE(events.rowCount(), static_cast<int>(CEventModel::CAPACITY));
        QCOMPARE(events.eventAt(0).number, 4);
    }

    void sendListRefusesWhatIsNoMessage_data()
    {
        // The content of the cell afterwards; before, the row has 123 / 11 22 / 100.
        const auto row = columns<int, QString, QString>("column", "typed", "stands");
        row("identifier", int(CSendList::eId), "7ff"_s, "7FF"_s);
        row("identifier of 12 bits", int(CSendList::eId), "800"_s, "123"_s);
        row("no identifier", int(CSendList::eId), " "_s, "123"_s);
        row("no data", int(CSendList::eData), {}, {});
        row("half a byte", int(CSendList::eData), "aab"_s, "11 22"_s);
        row("largest interval", int(CSendList::eInterval), "3600000"_s, "3600000"_s);
        row("longer", int(CSendList::eInterval), "3600001"_s, "100"_s);
        row("interval 0", int(CSendList::eInterval), "0"_s, "100"_s);
        row("interval is no number", int(CSendList::eInterval), "soon"_s, "100"_s);
    }
    void sendListRefusesWhatIsNoMessage()
    {
        QFETCH(int, column);
        CSendList list;
        list.add({message(0x123, hex("1122")), 100, {}, {}});
        const QString before = cell(list, 0, column);
        const QSignalSpy refused(&list, &CSendList::refused);
        const bool accepted = list.setData(list.index(0, column), cell<QString>("typed"), Qt::EditRole);
        QTEST(cell(list, 0, column), "stands");
        QCOMPARE(accepted, cell(list, 0, column) != before);
        QCOMPARE(refused.size(), accepted ? 0 : 1);
    }

    void sendListRunsAndIsStored()
    {
        CSendList list([](const QString& place) {
            return place == "away"_s ? vexmor::Failure(vexmor::wrongUsage("not open"_s)) : vexmor::Failure();
        });
        const QAbstractItemModelTester tester(&list, FATAL);
        list.add({message(0x123, hex("1122")), 50, "mute"_s, {}});
        list.add({message(0x7FF), 1000, {}, "stage"_s});
        QString changes;
        connect(&list, &CSendList::cyclicChanged, this, [&](int key, const QString& place, const auto&, int period) {
            changes += "%1 %2 %3, "_s.arg(key).arg(place).arg(period);
        });
        const QSignalSpy refused(&list, &CSendList::refused);
        const auto start = [&list](int row) {
            return list.setData(list.index(row, CSendList::eCyclic), Qt::Checked, Qt::CheckStateRole);
        };
        list.setTarget("away"_s);
        QVERIFY(!start(0));
        QCOMPARE(refused.size(), 1);
        list.setTarget(HALL);
        QVERIFY(start(0));
        QCOMPARE(list.index(0, CSendList::eId).data(MARK_ROLE).toInt(), static_cast<int>(EMark::eGood));
        list.setData(list.index(0, CSendList::eInterval), 20, Qt::EditRole); // while it is sent
        list.setData(list.index(1, CSendList::eInterval), 30, Qt::EditRole);
        // A running row keeps its interface, and a row may have its own.
        list.setTarget("away"_s);
        QVERIFY(start(1));
        list.countSent({{0, message(0x123, hex("1122")), m_names.numberOf(HALL), true}}, m_names);
        QCOMPARE(lines(list, {CSendList::eSent, CSendList::eInterface}), (QStringList{"1|hall"_s, "0|stage"_s}));
        list.stopAllBut({"stage"_s});
        list.setData(list.index(1, CSendList::eInterface), "away"_s, Qt::EditRole);
        QVERIFY(!start(1));
        QCOMPARE(changes, "1 hall 50, 1 hall 20, 2 stage 30, 1 hall 0, 2 stage 0, "_s);

        std::vector<SBusRecord> records(4, {0, message(0x7FF), m_names.numberOf("away"_s), true});
        records[1].source = m_names.numberOf(HALL);
        records[2].sent = false;
        list.countSent(records, m_names);
        QCOMPARE(cell(list, 1, CSendList::eSent), "2"_s);
        list.setData(list.index(1, CSendList::eData), "AA"_s, Qt::EditRole);
        QCOMPARE(cell(list, 1, CSendList::eSent), "0"_s);

        QSettings settings;
        list.add({message(1), 0, {}, {}}); // as edited by hand: interval 0
        list.save(settings);
        CSendList loaded;
        loaded.load(settings);
        list.setData(list.index(2, CSendList::eInterval), 1, Qt::EditRole);
        const std::initializer_list<int> stored{CSendList::eCyclic, CSendList::eName,     CSendList::eId,
                                                CSendList::eData,   CSendList::eInterval, CSendList::eInterface};
        QCOMPARE(lines(loaded, stored), lines(list, stored));
        QVERIFY(loaded.item(0).sentOn.isEmpty());
        while (loaded.rowCount() <= CSendList::MAX_LOADED) {
            loaded.add({});
        }
        loaded.save(settings);
        CSendList next;
        next.load(settings);
        QCOMPARE(next.rowCount(), CSendList::MAX_LOADED);
    }

    void logsComeBackAsTheyWere_data() { rows({"without direction", "with direction"}); }
    void logsComeBackAsTheyWere()
    {
        const bool withDirection = rowName() == "with direction";
        const QString path = m_folder.filePath("saved.log"_s);
        std::vector<SBusRecord> records;
        for (std::uint16_t i = 0; i < 12000; ++i) { // loaded in more than one piece
            const std::uint16_t source = m_names.numberOf(i % 2 == 0 ? "hall"_s : "stage"_s);
            records.push_back(record(i % 0x800, hex("0102"), 1398128223803317 + i, source));
            records.back().sent = withDirection && i % 3 == 0;
        }
        CLogSaver saver(m_names);
        QSignalSpy saved(&saver, &CLogSaver::finished);
        saver.save(path, records, withDirection);
        QVERIFY(saved.wait());
        saver.save(m_folder.filePath("nowhere/a.log"_s), {}, withDirection);
        QCOMPARE(saved.size(), 2);
        QVERIFY(!saved.at(1).at(1).toString().isEmpty());
        QCOMPARE(contentOf(path).count(" R\n"), withDirection ? 8000 : 0);

        CLogLoader loader(m_names);
        std::vector<SBusRecord> loaded;
        connect(&loader, &CLogLoader::loaded, this, [&loaded](const auto& all) { loaded = all; });
        QSignalSpy finished(&loader, &CLogLoader::finished);
        loader.load(path);
        QVERIFY(finished.wait());
        const auto shown = [](const SBusRecord& one) {
            return std::tie(one.microseconds, one.source, one.message, one.sent);
        };
        QVERIFY(std::equal(loaded.begin(), loaded.end(), records.begin(), records.end(),
                           [shown](const auto& a, const auto& b) { return shown(a) == shown(b); }));
        loader.load(writeFile(m_folder, "(1.0) can0 123#11\nnonsense\n(2.0) can0 124#\n"));
        QVERIFY(finished.wait());
        QCOMPARE(loaded.size(), std::size_t(1)); // the lines before the wrong one are shown
        QCOMPARE(finished.at(0).mid(0, 1) + finished.at(1).mid(0, 1), (QList<QVariant>{12000, 1}));
        QVERIFY2(finished.at(1).at(1).toString().contains("2"_s), "the line is named");
    }

    void recordingGoesOnInTheNextFile_data()
    {
        // Rows have a number of messages, of which 100 fill a file, and the seconds until one more message.
        const auto row = columns<bool, int, int, int>("isHourly", "messages", "seconds", "files");
        row("same hour", true, 1, 3599, 1);
        row("next hour", true, 1, 3600, 2);
        row("next hour, by day", false, 99, 3600, 1);
        row("next day", false, 1, 86400, 2);
        row("full, in the same second", false, 100, 0, 2);
    }
    void recordingGoesOnInTheNextFile()
    {
        const QTemporaryDir folder;
        using CRecorder = vexmor::Apps::CLogRecorder;
        CRecorder recorder({}, 1000);
        const QSignalSpy ended(&recorder, &CRecorder::ended);
        const auto format = [](const auto&) { return QByteArray("123456789"); };
        const auto period = cell<bool>("isHourly") ? CRecorder::EPeriod::eHour : CRecorder::EPeriod::eDay;
        recorder.start(folder.path(), period, format);
        const QDateTime begin(QDate::currentDate().addDays(3), QTime(9, 0)); // independent of the time of the test
        recorder.record(numbered(0, cell<int>("messages")), begin);
        recorder.record(numbered(0, 1), begin.addSecs(cell<int>("seconds")));
        recorder.stop();
        int lines = 0;
        const QStringList files = QDir(folder.path()).entryList(QDir::Files);
        for (const QString& name : files) {
            lines += contentOf(folder.filePath(name)).count('\n');
        }
        QTEST(int(files.size()) - 1, "files"); // the first file was begun at the start
        QCOMPARE(lines, cell<int>("messages") + 1);
        QCOMPARE(int(recorder.count()), lines);
        recorder.start(folder.filePath("nowhere"_s), period, format);
        QVERIFY(!recorder.isRunning());
        QVERIFY(!ended.last().at(0).toString().isEmpty());
    }

    void tables()
    {
        const QString path = m_folder.filePath("a.CSV"_s);
        CLogSaver saver(m_names);
        QSignalSpy saved(&saver, &CLogSaver::finished);
        saver.save(path, {record(0x1E5, hex("0102"), 1398128223803317, m_names.numberOf("a \"b\""_s))}, false);
        QVERIFY(saved.wait());
        const QString time = QDateTime::fromMSecsSinceEpoch(1398128223803).toString("yyyy-MM-dd HH:mm:ss"_s);
        QCOMPARE(QString::fromUtf8(contentOf(path)),
                 "time,interface,direction,id,data\n%1.803317,\"a \"\"b\"\"\",RX,0x1E5,01 02\n"_s.arg(time));
    }

    void statistics()
    {
        CSessionStatistics statistics(1000000000);
        SDelivery delivery;
        delivery.records = numbered(0, 3); // three in one second
        delivery.records.push_back(record(1, {}, 1000000));
        delivery.records[1].sent = true;
        delivery.records.push_back(record(2, {}, 1000000, 1));
        delivery.records.back().code = 109;
        delivery.errors = {{0, 1, 7, 2}};
        delivery.lost = 5;
        statistics.add(delivery);
        delivery = {{}, {{0, 1, 7, 1}}, 1};
        statistics.add(delivery);
        for (const auto percent : {std::optional(10), std::optional(30), std::optional<int>()}) {
            statistics.addLoad(0, percent);
        }
        const QString text = statistics.text(
            1010000000, [](int source) { return "bus %1"_s.arg(source); },
            [](int source, int error) { return "text %1 %2\nmore"_s.arg(source).arg(error); });
        QCOMPARE(text.section(QLatin1Char('\n'), 1), QString(R"(
bus 0
  messages: received 3, sent 1, refused 0
  messages/s: mean 0.4, peak 3
  bus load: mean 20 %, peak 30 %

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
        /// Replays records, accepts `accepted` messages and refuses the next one. Returns the milliseconds until the
        /// end, or -1 if the reported count of messages is wrong.
        const auto play = [&](const std::vector<SBusRecord>& records, int accepted) {
            const SClock clock;
            sent.clear();
            replay.start(records, [&sent, accepted](const auto& message) {
                return sent.append(message.id().value()), sent.size() <= accepted;
            });
            return finished.wait() && finished.last().at(0) == std::min(accepted, int(sent.size())) ? clock.elapsed()
                                                                                                    : -1;
        };
        QVERIFY(play({record(1, {}, 5000000), record(2, {}, 5000000), record(3, {}, 5100000)}, 3) >= 100);
        QCOMPARE(sent, (QList<int>{1, 2, 3}));
        QVERIFY(play(numbered(0, 5), 0) >= 0); // the first message is refused
        replay.setLoop(true);
        replay.setSpeed(1000);
        const qint64 elapsed = play({record(1, {}, 0), record(2, {}, 100000000)}, 3); // without the speed: 200 s
        QVERIFY2(elapsed >= 200 && elapsed < 10000, QByteArray::number(elapsed));
        QCOMPARE(sent, (QList<int>{1, 2, 1, 2}));
        QVERIFY(progressed.contains(QList<QVariant>{2, 2}));
    }

    void listKeepsTheStore()
    {
        const Settings settings{{StoreKey::ADDRESS, "10.0.0.5"_s}, {StoreKey::BAUDRATE, "250"_s}};
        CInterfaceList list(m_plugins, m_names, m_mailbox);
        const QAbstractItemModelTester tester(&list, FATAL);
        QVERIFY(!list.add("hall"_s, settings, true));
        QVERIFY(!list.add("passing"_s, settings, false));
        QVERIFY(list.add("hall"_s, settings, true));
        QVERIFY(list.add(QString(), settings, true));
        QVERIFY(list.add("odd"_s, {{StoreKey::BAUDRATE, "33"_s}}, true));
        QVERIFY(list.at(0).setBitRate("1000"_s));

        CInterfaceList next(m_plugins, m_names, m_mailbox); // as after a restart
        next.loadStored();
        QCOMPARE(lines(next, {CInterfaceList::eName, CInterfaceList::eAddress, CInterfaceList::eBaudrate}),
                 QStringList{"hall|10.0.0.5:30000:TCP|1000 kbit/s"_s});
        next.remove(0);
        QCOMPARE(CInterfaceStore().names(), QStringList());

        QSettings().setValue("Other/key"_s, "one"_s);
        QFile file(QSettings().fileName());
        QVERIFY(file.open(QFile::ReadWrite));
        const QDateTime time = file.fileTime(QFile::FileModificationTime);
        // Another program changes the file, within one tick of the clock.
        const QByteArray content = file.readAll().replace("one", "two");
        QVERIFY(file.seek(0) && file.write(content) == content.size() && file.flush());
        QVERIFY(file.setFileTime(time, QFile::FileModificationTime));
        QVERIFY(!list.add("attic"_s, settings, true));
        QCOMPARE(QSettings().value("Other/key"_s).toString(), "two"_s);
    }

    void scanBringsOnlyNewInterfaces()
    {
        CInterfaceList list(m_plugins, m_names, m_mailbox);
        list.add("hall"_s, {{StoreKey::ADDRESS, "10.0.0.5"_s}}, false);
        std::vector<std::unique_ptr<vexmor::Cim::CCanInterface>> found;
        const auto answer = [this, &found](const QString& place, const QString& name = {}) {
            found.emplace_back(m_plugins.front().object->createInterface());
            auto info = found.back()->commonInfo();
            info.setPort("IP=%1:TCP"_s.arg(place));
            info.setUniqueName(name);
            found.back()->setCommonInfo(info);
        };
        answer("10.0.0.5:30000"_s, "again"_s);
        answer("10.0.0.6:30000"_s, "hall"_s);
        answer("10.0.0.10:30000"_s);
        answer("10.0.0.6:30000"_s, "twice"_s);
        const auto [count, added] = list.addFound(std::move(found));
        QCOMPARE(count, 3);
        QCOMPARE(added, 2);
        QLocale::setDefault(QLocale::English); // the locale C does not sort numbers in texts
        list.sort(CInterfaceList::eAddress, Qt::DescendingOrder);
        QCOMPARE(lines(list, {CInterfaceList::eName}), (QStringList{"10.0.0.10:30000:TCP"_s, "hall (2)"_s, "hall"_s}));

        const QSignalSpy events(&list, &CInterfaceList::eventRaised);
        for (int port = 1; port <= 4000; ++port) { // devices that all report the same name
            answer("10.0.0.8:%1"_s.arg(port), "stranger"_s);
        }
        QCOMPARE(list.addFound(std::move(found)).second, 1000);
        QCOMPARE(list.at(list.rowCount() - 1).name(), "stranger (1000)"_s);
        QCOMPARE(events.size(), 1);
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
