#include "apps/cimview/busloadScale.h"
#include "apps/cimview/eventModel.h"
#include "apps/cimview/identifierModel.h"
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
} // namespace

/// What the window shows, without the window.
class CimviewModelsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void matcher_data()
    {
        // Of 123 [4] 41 62 0F F0 of "hall A", received.
        const auto row = columns<QString, QString, bool>("filters", "text", "matches");
        row("mask", "120:7F0"_s, {}, true);
        row("one of several, blanks and commas", " 7FF, 123 "_s, {}, true);
        row("data with blanks", {}, "62 0f"_s, true);
        row("data without blanks", {}, "620ff0"_s, true);
        row("ASCII in lower case", {}, "ab.."_s, true);
        row("interface", {}, "HALL"_s, true);
        row("direction", {}, "tx"_s, false);
        row("name of the identifier", {}, "amplifier"_s, true);
        row("administration", {}, "type 4"_s, true);
        row("text but another identifier", "124"_s, "hall"_s, false);
    }
    void matcher()
    {
        auto filters = readFilters(cell<QString>("filters"));
        QVERIFY(filters);
        const SBusRecord received = record(0x123, hex("41620FF0"));
        CSourceNames names;
        names.numberOf("hall A"_s);
        QVERIFY(!names.loadIds(writeFile(m_folder, "# all\n123  Amplifier  left # 1\n\n7ff last\n")));
        QCOMPARE(names.idText(0x123), "123 Amplifier left"_s);
        QTEST(CMessageMatcher(*filters, cell<QString>("text")).matches(received, names), "matches");
        for (const char* wrong : {"124 x\nx left\n", "124 x\n800 left\n"}) {
            const auto failure = names.loadIds(writeFile(m_folder, wrong));
            QVERIFY(failure && failure->text.contains("line 2"_s));
            QCOMPARE(names.idText(0x123), "123 Amplifier left"_s); // those before stay
        }
    }

    void wrongFilters_data() { rows({"12g 123", "123:", ":7FF", "123:7FF:2", "123 x", "800", "123:FFF", "7FF-800"}); }
    void wrongFilters() { QVERIFY(!readFilters(QString::fromLatin1(rowName()))); }

    void fullTraceDropsTheOldest()
    {
        CTraceModel trace(m_names, 100);
        const QAbstractItemModelTester tester(&trace, FATAL);
        trace.append(numbered(0, 95));
        trace.append(numbered(95, 20)); // 15 too many
        QCOMPARE(trace.rowCount(), 100);
        QCOMPARE(cell(trace, 0, CTraceModel::eId), "00F"_s);
        trace.append(numbered(115, 1)); // one too many: a tenth goes
        QCOMPARE(trace.rowCount(), 91);
        trace.append(numbered(0, 1000)); // more than it holds
        QCOMPARE(trace.size(), std::size_t(100));
        QCOMPARE(cell(trace, 99, CTraceModel::eId), "3E7"_s);
    }

    void filterShowsPastAndComingMessages()
    {
        CTraceModel trace(m_names, 100);
        const QAbstractItemModelTester tester(&trace, FATAL);
        trace.append(numbered(0, 32));
        trace.setMatcher(CMessageMatcher(*readFilters("008:00F"_s)));
        QCOMPARE(trace.rowCount(), 2);
        trace.append(numbered(32, 64));
        QCOMPARE(trace.rowCount(), 6);
        QCOMPARE(cell(trace, 5, CTraceModel::eId), "058"_s);
        trace.append(numbered(200, 30)); // 00 to 19 go, 08 and 18 among them
        QCOMPARE(cell(trace, 0, CTraceModel::eId), "028"_s);
        trace.setMatcher(CMessageMatcher());
        QCOMPARE(trace.rowCount(), static_cast<int>(trace.size()));
    }

    void pauseHoldsBack()
    {
        CMessageFeed feed(m_names, 100);
        feed.setPaused(true);
        for (int i = 0; i < 3; ++i) {
            feed.addLive(numbered(i * 50, 50));
        }
        QVERIFY(feed.waitingCount() <= 100);
        feed.setPaused(false);
        QCOMPARE(cell(feed.trace(), feed.trace().rowCount() - 1, CTraceModel::eId), "095"_s);
        QVERIFY(feed.trace().rowCount() >= 90);
        QCOMPARE(feed.waitingCount(), std::size_t(0));
        feed.trace().setTime(CTraceModel::ETime::eSinceBefore);
        QCOMPARE(cell(feed.trace(), 1, CTraceModel::eTime), "0.000000"_s);
    }

    void identifiers()
    {
        constexpr std::int64_t MS = 1000;
        CIdentifierModel model(m_names);
        const QAbstractItemModelTester tester(&model, FATAL);
        model.append({record(0x200, hex("0102"), 1), record(0x100, hex("AA"), 1), record(0x200, hex("0102"), 1, 1)});
        model.append({record(0x200, hex("0103"), 1 + 10 * MS), record(0x200, hex("010304"), 1 + 20 * MS)});
        QCOMPARE(model.index(1, CIdentifierModel::eId).data(MARK_ROLE).toInt(), 0);
        QCOMPARE(model.rowCount(), 3); // sorted by identifier, then interface
        QCOMPARE(cell(model, 0, CIdentifierModel::eId), "100"_s);
        QCOMPARE((QStringList{cell(model, 1, CIdentifierModel::eCount), cell(model, 1, CIdentifierModel::ePeriod),
                              cell(model, 1, CIdentifierModel::eData)}),
                 list("3|10.0|01 03 04"_s));
        const auto marks = [&model] {
            return model.index(1, CIdentifierModel::eData).data(CIdentifierModel::CHANGED_BYTES_ROLE).toInt();
        };
        QCOMPARE(marks(), 0b110); // a byte that was not there before is a change, too
        model.setNow(1 + 10 * MS + CIdentifierModel::MARK_MICROSECONDS);
        QCOMPARE(marks(), 0b100);
        model.setNow(1 + 20 * MS + CIdentifierModel::MARK_MICROSECONDS);
        QCOMPARE(marks(), 0);
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
        // Of 50 messages every 20 ms for so many seconds, seen by the model some time after the last.
        const auto row = columns<int, std::int64_t, QString>("pieces", "afterMs", "rate");
        row("half a second old", 25, 100, "1250.0"_s);
        row("a second old", 50, 100, "2500.0"_s);
        row("ten seconds old", 500, 100, "2500.0"_s);
        row("silent for a second", 500, 1100, "1250.0"_s);
        row("silent", 500, 2100, "0.0"_s);
    }
    void rateIsThatOfTheLastSeconds()
    {
        constexpr std::int64_t START = 1700000000000000;
        constexpr std::int64_t PIECE = 20000;
        const int pieces = cell<int>("pieces");
        CIdentifierModel model(m_names);
        for (int i = 0; i < pieces; ++i) { // all of a piece at once, as they are read from a socket
            std::vector<SBusRecord> piece;
            for (int microsecond = 0; microsecond < 50; ++microsecond) {
                piece.push_back(record(0x123, {}, START + i * PIECE + microsecond));
            }
            model.append(piece);
        }
        model.setNow(START + (pieces - 1) * PIECE + cell<std::int64_t>("afterMs") * 1000);
        QCOMPARE(cell(model, 0, CIdentifierModel::eRate), cell<QString>("rate"));
    }

    void outageIsNoPeriod()
    {
        constexpr std::int64_t MS = 1000;
        CIdentifierModel model(m_names);
        model.append({record(1, {}, 10 * MS), record(1, {}, 20 * MS), record(2, {}, 20 * MS, 1)});
        model.interrupt(0, 25 * MS);
        model.append({record(1, {}, 24 * MS)}); // was on its way
        model.append({record(1, {}, 9000 * MS), record(1, {}, 9007 * MS), record(2, {}, 9000 * MS, 1)});
        QCOMPARE(cell(model, 0, CIdentifierModel::eLeast), "7.0"_s);
        QCOMPARE(cell(model, 0, CIdentifierModel::eGreatest), "10.0"_s);
        QCOMPARE(cell(model, 1, CIdentifierModel::eGreatest), "8980.0"_s); // of another interface
    }

    void identifierFilterFollowsTheData()
    {
        CIdentifierModel model(m_names);
        CIdentifierFilter filter(model, m_names);
        filter.setMatcher(CMessageMatcher({}, "BB"_s));
        model.append({record(1, hex("AA")), record(2, hex("BB"))});
        QCOMPARE(filter.rowCount(), 1);
        model.append({record(1, hex("BB"))});
        QCOMPARE(filter.rowCount(), 2);
    }

    void busloadLines_data()
    {
        // Samples as SECONDS-AGO:PERCENT, in 120 to 100 pixels; lines as X,Y.
        const auto row = columns<QString>("lines");
        row("60:20 50:40", "60,80 70,60 "_s);
        row("60:20 50:? 40:30 30:? 30:? 20:5 10:6", "60,80 |80,70 |100,95 110,94 "_s);
        row("140:1 130:10 60:20", "-10,90 60,80 "_s); // the line comes in from the left
        row("130:10 125:? 60:20", "60,80 "_s);
        row("60:100 50:0 40:120", "60,0 70,100 80,-20 "_s);
    }
    void busloadLines()
    {
        CBusloadHistory::Samples samples;
        for (const QByteArray& sample : rowName().split(' ')) {
            const QList<QByteArray> parts = sample.split(':');
            samples.push_back({-parts[0].toInt() * 1'000'000LL, parts[1].toInt()});
            samples.back().percent = parts[1] == "?" ? std::nullopt : samples.back().percent;
        }
        QStringList lines;
        for (const QPolygonF& line : SBusloadScale{QRectF(0, 0, 120, 100), 100, 0}.linesOf(samples)) {
            lines.append(QString());
            for (const QPointF& point : line) {
                lines.last() += "%1,%2 "_s.arg(point.x()).arg(point.y());
            }
        }
        QCOMPARE(lines.join(QLatin1Char('|')), cell<QString>("lines"));
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
        SEvent event{0, EEvent::eInterfaceError, "a"_s, 1, 1, "Wrong.\n\nReasons"_s};
        // A flood of one kind is one row.
        for (; event.microseconds < 5000 * SECOND; event.microseconds += SECOND / 10) {
            events.add(event);
        }
        QCOMPARE(events.rowCount(), 1);
        QCOMPARE(events.eventAt(0).count, std::uint64_t(50000));
        event.microseconds = 5001 * SECOND; // after a pause of more than a second
        events.add(event);
        event.number = 2;
        events.add(event);
        event.kind = EEvent::eNote;
        events.add(event);
        QCOMPARE(events.rowCount(), 4);
        QCOMPARE(events.unread(), 50002); // a note is no error
        QCOMPARE(cell(events, 0, CEventModel::eText), "Wrong."_s);
        events.markRead();
        QCOMPARE(events.unread(), 0);
        tester.reset(); // it looks at every row each time
        for (event.number = 3; event.number < 4 + static_cast<int>(CEventModel::CAPACITY); ++event.number) {
            events.add(event);
        }
        QCOMPARE(events.rowCount(), static_cast<int>(CEventModel::CAPACITY));
    }

    void sendListRefusesWhatIsNoMessage_data()
    {
        // What stands afterwards; before: 123 / 11 22 / 100.
        const auto row = columns<int, QString, QString>("column", "typed", "stands");
        row("identifier", int(CSendList::eId), "7ff"_s, "7FF"_s);
        row("identifier of 12 bits", int(CSendList::eId), "800"_s, "123"_s);
        row("no identifier", int(CSendList::eId), " "_s, "123"_s);
        row("no data", int(CSendList::eData), {}, {});
        row("half a byte", int(CSendList::eData), "aab"_s, "11 22"_s);
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
        QList<int> periods;
        QStringList places;
        connect(&list, &CSendList::cyclicChanged, this, [&](int, const QString& place, const auto&, int period) {
            periods.append(period);
            places.append(place);
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
        list.setData(list.index(0, CSendList::eInterval), 20, Qt::EditRole); // while it runs
        list.setData(list.index(1, CSendList::eInterval), 30, Qt::EditRole);
        list.setTarget("away"_s); // what runs stays where it is, and a row may have an interface of its own
        QVERIFY(start(1));
        QCOMPARE(cell(list, 0, CSendList::eInterface), HALL);
        list.stopAllBut({"stage"_s});
        list.setData(list.index(1, CSendList::eInterface), "away"_s, Qt::EditRole);
        QVERIFY(!start(1));
        QCOMPARE(periods, (QList<int>{50, 20, 30, 0, 0}));
        QCOMPARE(places, (QStringList{HALL, HALL, "stage"_s, HALL, "stage"_s}));

        const std::uint16_t away = m_names.numberOf("away"_s);
        std::vector<SBusRecord> records(4, {0, message(0x7FF), away, true});
        records[1].source = m_names.numberOf(HALL);
        records[2].sent = false;
        list.countSent(records, m_names);
        QCOMPARE(cell(list, 1, CSendList::eSent), "2"_s);
        list.setData(list.index(1, CSendList::eData), "AA"_s, Qt::EditRole);
        QCOMPARE(cell(list, 1, CSendList::eSent), "0"_s);

        QSettings settings;
        list.save(settings);
        CSendList loaded;
        loaded.load(settings);
        QCOMPARE(loaded.rowCount(), 2);
        for (int column = 0; column < CSendList::eColumnCount; ++column) {
            QCOMPARE(cell(loaded, 0, column), cell(list, 0, column));
            QCOMPARE(cell(loaded, 1, column), cell(list, 1, column));
        }
        QVERIFY(loaded.item(0).sentOn.isEmpty());
    }

    void logsComeBackAsTheyWere_data() { rows({"without direction", "with direction"}); }
    void logsComeBackAsTheyWere()
    {
        const bool withDirection = rowName() == "with direction";
        const QString path = m_folder.filePath("a.log"_s);
        std::vector<SBusRecord> records;
        for (std::uint16_t i = 0; i < 12000; ++i) { // more than one piece
            const std::uint16_t source = m_names.numberOf(i % 2 == 0 ? "hall"_s : "stage"_s);
            records.push_back(record(i % 0x800, hex("0102"), 1398128223803317 + i, source));
            records.back().sent = withDirection && i % 3 == 0;
        }
        CLogSaver saver(m_names);
        QSignalSpy saved(&saver, &CLogSaver::finished);
        saver.save(path, records, withDirection);
        QVERIFY(saved.wait());
        std::vector<SBusRecord> loaded;
        QCOMPARE(load(path, loaded), QVariant(QString()));
        QVERIFY(
            std::equal(loaded.begin(), loaded.end(), records.begin(), records.end(), [](const auto& a, const auto& b) {
                return std::tie(a.microseconds, a.source, a.message, a.sent) ==
                       std::tie(b.microseconds, b.source, b.message, b.sent);
            }));
        QCOMPARE(contentOf(path).count(" R\n"), withDirection ? 8000 : 0);
        saver.save(m_folder.filePath("nowhere/a.log"_s), {}, withDirection);
        QCOMPARE(saved.size(), 2);
        QVERIFY(!saved.at(1).at(1).toString().isEmpty());

        loaded.clear();
        const QVariant error = load(writeFile(m_folder, "(1.0) can0 123#11\nnonsense\n(2.0) can0 124#\n"), loaded);
        QCOMPARE(loaded.size(), std::size_t(1)); // what stands before it is shown
        QVERIFY2(error.toString().contains("2"_s), "the line is named");
    }

    void recordingGoesOnInTheNextFile_data() { logsComeBackAsTheyWere_data(); }
    void recordingGoesOnInTheNextFile()
    {
        const QTemporaryDir folder;
        vexmor::Apps::CLogRecorder recorder("a-"_s, 1000);
        const QSignalSpy ended(&recorder, &vexmor::Apps::CLogRecorder::ended);
        const auto format = [this](const auto& one) { return logLine(one, m_names, rowName() == "with direction"); };
        recorder.start(folder.path(), vexmor::Apps::CLogRecorder::EPeriod::eDay, format);
        for (int i = 0; i < 10; ++i) {
            recorder.record(numbered(i * 10, 10));
        }
        recorder.stop();
        int lines = 0;
        const QStringList files = QDir(folder.path()).entryList(QDir::Files);
        QVERIFY(files.size() >= 2);
        for (const QString& name : files) {
            const QByteArray content = contentOf(folder.filePath(name));
            QVERIFY(content.size() < 2000);
            lines += content.count('\n');
            QCOMPARE(content.contains(" R\n"), rowName() == "with direction");
        }
        QCOMPARE(lines, 100);
        recorder.start(folder.filePath("nowhere"_s), vexmor::Apps::CLogRecorder::EPeriod::eDay, format);
        QVERIFY(!recorder.isRunning());
        QVERIFY(!ended.last().at(0).toString().isEmpty());
    }

    void recordingsBeginEachPeriod_data()
    {
        const auto row = columns<bool, int, int>("isHourly", "seconds", "files"); // from one message to the next
        row("same hour", true, 3599, 1);
        row("next hour", true, 3600, 2);
        row("next hour, by day", false, 3600, 1);
        row("next day", false, 86400, 2);
    }
    void recordingsBeginEachPeriod()
    {
        const QTemporaryDir folder;
        vexmor::Apps::CLogRecorder recorder({});
        using EPeriod = vexmor::Apps::CLogRecorder::EPeriod;
        recorder.start(folder.path(), cell<bool>("isHourly") ? EPeriod::eHour : EPeriod::eDay,
                       [](const auto&) { return QByteArray(); });
        const QDateTime begin(QDate::currentDate().addDays(3), QTime(9, 0)); // whenever the test runs
        recorder.record(numbered(0, 1), begin);
        const int before = int(QDir(folder.path()).entryList(QDir::Files).size());
        recorder.record(numbered(0, 1), begin.addSecs(cell<int>("seconds")));
        QTEST(int(QDir(folder.path()).entryList(QDir::Files).size()) - before + 1, "files");
    }

    void tables()
    {
        const QString path = m_folder.filePath("a.csv"_s);
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
        delivery.records = numbered(0, 3); // in one second
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
        QList<int> sent;
        QSignalSpy finished(&replay, &CLogReplay::finished);
        const SClock clock;
        replay.start({record(1, {}, 5000000), record(2, {}, 5000000), record(3, {}, 5100000)},
                     [&](const auto& message) { return sent.append(message.id().value()), true; });
        QVERIFY(finished.wait());
        QCOMPARE(sent, (QList<int>{1, 2, 3}));
        QVERIFY(clock.elapsed() >= 100);
        replay.start(numbered(0, 5), [](const auto&) { return false; }); // its interface is closed
        QVERIFY(finished.wait());
        QCOMPARE(finished.last().at(0).toInt(), 0);

        const SClock fast;
        sent.clear();
        replay.setLoop(true);
        replay.setSpeed(1000);
        QSignalSpy progressed(&replay, &CLogReplay::progressed);
        replay.start({record(1, {}, 0), record(2, {}, 100000000)},
                     [&](const auto& message) { return sent.append(message.id().value()), sent.size() < 4; });
        QVERIFY(finished.wait());
        QCOMPARE(sent, (QList<int>{1, 2, 1, 2}));
        QVERIFY(fast.elapsed() < 10000); // it was 200 s
        QVERIFY(fast.elapsed() >= 200);
        QCOMPARE(finished.last().at(0).toInt(), 3);
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
        QCOMPARE(next.rowCount(), 1);
        QCOMPARE(cell(next, 0, CInterfaceList::eAddress), "10.0.0.5:30000:TCP"_s);
        QCOMPARE(cell(next, 0, CInterfaceList::eBaudrate), "1000 kbit/s"_s);
        next.remove(0);
        QCOMPARE(CInterfaceStore().names(), QStringList());

        QSettings().setValue("Other/key"_s, "one"_s);
        QFile file(QSettings().fileName());
        QVERIFY(file.open(QFile::ReadWrite));
        const QDateTime time = file.fileTime(QFile::FileModificationTime);
        const QByteArray content = file.readAll().replace("one", "two"); // another program, within a tick of the clock
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
        answer("10.0.0.7:30000"_s);
        answer("10.0.0.6:30000"_s, "twice"_s);
        const auto [count, added] = list.addFound(std::move(found));
        QCOMPARE(count, 3);
        QCOMPARE(added, 2);
        QCOMPARE(list.rowCount(), 3);
        QCOMPARE(list.at(1).name(), "hall (2)"_s);
        QCOMPARE(list.at(2).name(), "10.0.0.7:30000:TCP"_s);
        list.sort(CInterfaceList::eAddress, Qt::DescendingOrder);
        QCOMPARE(list.at(0).name(), "10.0.0.7:30000:TCP"_s);

        const QSignalSpy events(&list, &CInterfaceList::eventRaised);
        for (int port = 1; port <= 4000; ++port) { // strangers, all of one name
            answer("10.0.0.8:%1"_s.arg(port), "hall"_s);
        }
        QCOMPARE(list.addFound(std::move(found)).second, 1000);
        QCOMPARE(list.at(list.rowCount() - 1).name(), "hall (1002)"_s);
        QCOMPARE(events.size(), 1);
    }

private:
    /// Loads a log; gives the error.
    QVariant load(const QString& path, std::vector<SBusRecord>& loaded)
    {
        CLogLoader loader(m_names);
        connect(&loader, &CLogLoader::loaded, this,
                [&loaded](const auto& piece) { loaded.insert(loaded.end(), piece.begin(), piece.end()); });
        QSignalSpy finished(&loader, &CLogLoader::finished);
        loader.load(path);
        return finished.wait() && finished.at(0).at(0) == int(loaded.size()) ? finished.at(0).at(1) : QVariant();
    }

    const CPrivateStore m_store;
    const QTemporaryDir m_folder;
    std::vector<SPlugin> m_plugins = searchPlugins({QStringLiteral(CIM_PLUGIN_FILE), {}}).plugins;
    CSourceNames m_names;
    std::shared_ptr<CMailbox> m_mailbox = std::make_shared<CMailbox>();
};

QTEST_GUILESS_MAIN(CimviewModelsTest)
#include "tst_cimviewModels.moc"
