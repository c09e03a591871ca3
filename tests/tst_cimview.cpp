#include "apps/cimview/busloadPlot.h"
#include "apps/cimview/colours.h"
#include "apps/cimview/logActions.h"
#include "apps/cimview/mainWindow.h"
#include "apps/cimview/messagePanel.h"
#include "apps/cimview/workbench.h"
#include "apps/host/clock.h"
#include "apps/host/interfaceStore.h"
#include "sim/simDetection.h"
#include "t93Fixture.h"

#include <QtWidgets>

using namespace vexmor::Apps;
using namespace vexmor::Apps::Cimview;
using namespace vexmor::Test;

namespace
{
const QString HALL = "hall"_s;
const QString STAGE = "stage"_s;

/// A window as the program shows it, and a gateway.
struct SWindow : SGateway {
    SWindow() : workbench(plugins), window(std::make_unique<CMainWindow>(workbench)) { window->show(); }

    CInterfaceList& list() { return workbench.interfaces(); }
    CTraceModel& trace() { return workbench.feed().trace(); }
    auto& at(const QString& name) { return list().at(list().rowOf(name)); }
    EConnection state(const QString& name) { return at(name).status().connection; }
    void open(const QString& name, std::uint16_t port)
    {
        const Settings settings{
            {StoreKey::ADDRESS, "127.0.0.1"_s}, {StoreKey::PORT, QString::number(port)}, {StoreKey::BAUDRATE, "500"_s}};
        (void)list().add(name, settings, false);
        at(name).open();
    }
    bool openAndWait(const QString& name, const CSimGateway& peer)
    {
        open(name, peer.port());
        return QTest::qWaitFor([&] { return peer.tcpHostCount() == 1 && at(name).status().isIdentified(); });
    }
    QString cell(int row, int column) { return trace().index(row, column).data().toString(); }
    /// The whole trace, as "INTERFACE DIRECTION ID DATA".
    QStringList lines()
    {
        QStringList lines;
        for (int row = 0; row < trace().rowCount(); ++row) {
            lines += "%1 %2 %3 %4"_s.arg(cell(row, CTraceModel::eInterface), cell(row, CTraceModel::eDirection),
                                         cell(row, CTraceModel::eId), cell(row, CTraceModel::eData));
        }
        lines.sort();
        return lines;
    }
    template <typename Widget>
    Widget* find(const char* text, const char* property = "text")
    {
        for (Widget* const widget : window->findChildren<Widget*>()) {
            if (widget->property(property).toString() == QLatin1String(text)) {
                return widget;
            }
        }
        qFatal("no widget %s", text);
    }

    std::vector<SPlugin> plugins = searchPlugins({QStringLiteral(CIM_PLUGIN_FILE), {}}).plugins;
    CWorkbench workbench;
    std::unique_ptr<CMainWindow> window;
};
} // namespace

/// The window and what stands behind it, on simulated gateways.
class CimviewTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("LSAN_OPTIONS", qgetenv("LSAN_OPTIONS") + ":print_suppressions=0"); // they would stand in what is read
        for (const char* variable : {"XDG_CONFIG_HOME", "XDG_RUNTIME_DIR"}) {       // for programs that are started
            qputenv(variable, m_folder.path().toLocal8Bit());
        }
    }
    void init()
    {
        const bool broadcasts = rowName() == "scan" || QByteArray(QTest::currentTestFunction()).startsWith("scan");
        if (broadcasts && qEnvironmentVariableIsEmpty("CIM_INSIDE")) {
            QSKIP("broadcasts only in a network namespace of its own (tests/inNamespace)");
        }
    }
    void cleanup() { QSettings().clear(); }

    void commandLine_data()
    {
        const auto row = columns<int, QString>("exitCode", "error"); // an expression
        row("--bogus", 2, "^error: .*--bogus.*\n$"_s);
        row("--sim /nowhere/a.log", 2, "^error: .*/nowhere/a.log.*\n$"_s);
        row("nowhere", 2, "^error: .*nowhere.*\n$"_s);
        row("--plugin /nowhere/p.so", 1, "^error: .*/nowhere/p.so.*\n$"_s);
        row("--help", 0, "^$"_s);
    }
    void commandLine()
    {
        const SOutcome outcome = run(QStringLiteral(CIM_CIMVIEW " ") + QLatin1String(rowName()));
        QTEST(outcome.exitCode, "exitCode");
        QCOMPARE(outcome.out.isEmpty(), outcome.exitCode != 0);
        const QRegularExpression error(cell<QString>("error"));
        QVERIFY2(error.match(QString::fromLocal8Bit(outcome.err)).hasMatch(), outcome.err.constData());
    }

    void severalAtOnce()
    {
        SWindow run;
        CSimGateway stage(run.bus);
        listenOn(stage);
        QVERIFY(run.openAndWait(HALL, run.gateway));
        QVERIFY(run.openAndWait(STAGE, stage));
        run.bus.send(message(0x100, hex("AA")));
        run.list().send(HALL, message(0x101, hex("BB")));
        QTRY_COMPARE(run.lines(),
                     (QStringList{"hall RX 100 AA"_s, "hall TX 101 BB"_s, "stage RX 100 AA"_s, "stage RX 101 BB"_s}));
        run.at(HALL).close();
        QTRY_COMPARE(run.state(HALL), EConnection::eClosed);
        run.bus.send(message(0x102));
        QTRY_COMPARE(run.trace().rowCount(), 5);
        QCOMPARE(run.state(STAGE), EConnection::eConnected);
    }

    void busloadsAreShownFromTheFirstOn()
    {
        CBusloadHistory history;
        history.add(HALL, {microsecondsNow(), 12});
        history.add(STAGE, {microsecondsNow(), 5});
        history.add(STAGE, {microsecondsNow(), {}});
        CBusloadPlot plot(history);
        plot.show();
        QCOMPARE(plot.accessibleDescription(), "hall: 12 %, stage: not known"_s);
        const QImage picture = plot.grab().toImage();
        const QRect legend(0, 0, picture.width(), plot.fontMetrics().height());
        for (const int index : {0, 1}) {
            const QRgb colour = curveColours(plot.palette().color(QPalette::Base))[std::size_t(index)];
            int count = 0;
            for (int at = 0; at < legend.width() * legend.height(); ++at) {
                count += picture.pixel(at % legend.width(), at / legend.width()) == colour;
            }
            QVERIFY(count >= 64);
        }
    }

    void errorsReachTheLog()
    {
        SWindow run;
        CEventModel& events = run.workbench.events();
        const SDeafPort deaf;
        run.open(STAGE, deaf.serverPort());
        QTRY_COMPARE(events.unread(), 1);
        QCOMPARE(events.eventAt(0).number, 103);
        QCOMPARE(run.state(STAGE), EConnection::eClosed);
        run.open(STAGE, deaf.serverPort()); // once more
        QCOMPARE(run.state(STAGE), EConnection::eConnecting);
        run.list().at(0).close();
        QVERIFY(run.openAndWait(HALL, run.gateway));
        run.gateway.sendStatus(0x09);
        QTRY_COMPARE(events.unread(), 3);
        run.gateway.setFaults(faulty(&SSimFaults::refuse)); // so that it cannot come back
        run.gateway.dropLinks();
        QTRY_COMPARE(run.state(HALL), EConnection::eLost);
        QTRY_COMPARE(events.unread(), 4);
        const SEvent& lost = events.eventAt(events.rowCount() - 1);
        QCOMPARE(lost.number, 0);
        QCOMPARE(lost.source, HALL);
        QVERIFY(lost.text.startsWith("TCP connection lost."_s));
        QVERIFY(lost.text.contains("- network cable"_s));
        run.list().send(HALL, message(0x100)); // refused with a code, counted in one row
        run.list().send(HALL, message(0x100));
        QTRY_COMPARE(events.unread(), 6);
        QCOMPARE(events.eventAt(events.rowCount() - 1).number, 109);
        QVERIFY(QTest::qWaitForWindowActive(run.window.get()));
        run.window->findChild<QDockWidget*>("Events"_s)->raise();
        QTRY_COMPARE(events.unread(), 0); // looked at
        run.gateway.setFaults({});
        QTRY_COMPARE(run.state(HALL), EConnection::eConnected);
        QCOMPARE(events.eventAt(events.rowCount() - 1).text, "The gateway is back."_s);
    }

    void endsCleanly_data() { rows({"busy", "scan"}); }
    void endsCleanly() // with one interface quiet, one flooded that sends, one opening, and a scan
    {
        SGateway stays;
        const SDeafPort deaf;
        auto run = std::make_unique<SWindow>();
        QVERIFY(run->openAndWait(STAGE, run->gateway));
        QVERIFY(run->openAndWait(HALL, stays.gateway));
        run->list().sender(HALL)->setCyclic(1, message(0x100), 1);
        QTRY_VERIFY(stays.atGateway.size() > 10);
        stays.gateway.flood(20000);
        QTRY_VERIFY(run->trace().rowCount() > 500);
        run->open("deaf"_s, deaf.serverPort());
        if (rowName() == "scan") {
            run->workbench.startScan();
            QVERIFY(run->workbench.scan().isRunning());
        }
        run->window->close();
        run->window.reset();
        const SClock clock;
        run.reset();
        QVERIFY2(clock.elapsed() < 2500, "waits for all at once, a second at most");
        QTRY_COMPARE(stays.gateway.tcpHostCount(), 0);
    }

    void scanFindsGateways()
    {
        SWindow run;
        listenOn(run.gateway, QHostAddress("10.9.0.1"_s));
        CSimDetection detection;
        QVERIFY(!detection.listen(DDT_PORT));
        detection.addGateway(run.gateway);
        QSignalSpy finished(&run.workbench.scan(), &CInterfaceScan::finished);
        for (int round = 1; round <= 2; ++round) { // the second finds nothing new
            run.workbench.startScan();
            QTRY_COMPARE_WITH_TIMEOUT(finished.size(), round, 10000);
            QCOMPARE(run.list().rowCount(), 2); // over TCP and over UDP
        }
        run.list().at(0).open();
        QTRY_COMPARE(run.list().at(0).status().connection, EConnection::eConnected);
        run.list().at(0).store();
        QCOMPARE(CInterfaceStore().names(), QStringList{run.list().at(0).name()});
    }

    void sendsWhatIsTyped()
    {
        SWindow run;
        const QList<CCanMessage>& sent = run.atGateway;
        QVERIFY(run.openAndWait(HALL, run.gateway));
        auto* const id = run.find<QLineEdit>("123", "placeholderText");
        auto* const data = run.find<QLineEdit>("11 22 AA BB", "placeholderText");
        QTest::keyClicks(id, "9x7f"_s);
        QCOMPARE(id->text(), "97"_s); // neither letters nor 97F
        QTest::keyClicks(data, "0a ff1g2"_s);
        QCOMPARE(data->text(), "0a ff12"_s);
        QTest::mouseClick(run.find<QPushButton>("&Send"), Qt::LeftButton);
        QTRY_COMPARE(sent, (QList<CCanMessage>{message(0x97, hex("0AFF12"))}));

        CSendList& list = run.workbench.sendList();
        QTest::keyClick(data, Qt::Key_Backspace); // half a byte: refused
        QTest::mouseClick(run.find<QPushButton>("Add to &list"), Qt::LeftButton);
        QCOMPARE(list.rowCount(), 0);
        QTest::keyClicks(data, "3"_s);
        QTest::mouseClick(run.find<QPushButton>("Add to &list"), Qt::LeftButton);
        QCOMPARE(list.rowCount(), 1);
        list.setData(list.index(0, CSendList::eInterval), 5, Qt::EditRole);
        list.setData(list.index(0, CSendList::eCyclic), Qt::Checked, Qt::CheckStateRole);
        QTRY_VERIFY(sent.size() > 10);
        QCOMPARE(sent.last(), message(0x97, hex("0AFF13")));
        run.list().at(0).close();
        QTRY_VERIFY(!list.item(0).running);
        list.setData(list.index(0, CSendList::eCyclic), Qt::Checked, Qt::CheckStateRole);
        QTRY_VERIFY(!list.item(0).running); // nowhere to send it
    }

    void logIsShownWhileLiveMessagesWait()
    {
        SWindow run;
        QVERIFY(run.openAndWait(HALL, run.gateway));
        run.bus.send(message(0x101));
        QTRY_COMPARE(run.trace().rowCount(), 1);
        run.window->logs().load(writeFile(m_folder, "no log"));
        QTRY_COMPARE(run.workbench.events().unread(), 1); // reported, and the trace stays
        QCOMPARE(run.trace().rowCount(), 1);
        run.window->logs().load(writeFile(m_folder, "(1.000001) can0 123#11\n(2.0) can1 7FF# T\n"));
        QTRY_COMPARE(run.trace().rowCount(), 2);
        run.bus.send(message(0x100, hex("AA")));
        QTRY_COMPARE(run.workbench.feed().waitingCount(), std::size_t(1));
        QCOMPARE(run.lines(), (QStringList{"can0 RX 123 11"_s, "can1 TX 7FF "_s}));
        run.window->messagePanel().pauseAction().trigger();
        QCOMPARE(run.lines().last(), "hall RX 100 AA"_s);
    }

    void shownMessagesAreSavedAndReplayed()
    {
        SWindow run;
        run.workbench.feed().addLive(
            {{1000000, message(0x123, hex("11")), 0, false}, {1000001, message(0x7FF), 0, true}});
        QAction* const replay = run.find<QAction>("Re&play what is shown ...");
        replay->trigger();
        QCOMPARE(run.workbench.events().unread(), 1); // nowhere to send it
        QVERIFY(!replay->isChecked());
        QVERIFY(run.openAndWait(HALL, run.gateway));
        const auto accept = [](const char* name, const QString& text) { // in the dialog that comes
            QTimer::singleShot(0, [=] {
                auto* const dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
                auto* const field = dialog->findChild<QLineEdit*>(QLatin1String(name));
                field != nullptr ? field->setText(text) : void();
                dialog->accept();
            });
        };
        accept("", {});
        replay->trigger();
        QTRY_COMPARE(run.atGateway, (QList<CCanMessage>{message(0x123, hex("11")), message(0x7FF)}));
        QTRY_VERIFY(!replay->isChecked());
        const QString path = m_folder.filePath("saved.log"_s);
        QVERIFY(run.workbench.feed().isUnsaved());
        QTRY_COMPARE(run.trace().rowCount(), 4); // with those that were sent
        accept("fileNameEdit", path);
        run.find<QAction>("&Save log ...")->trigger();
        QTRY_VERIFY(!run.workbench.feed().isUnsaved());
        QVERIFY(contentOf(path).contains("(1.000000) hall 123#11 R\n"));
    }

    void stateIsKept()
    {
        const char* const text = "any text or data";
        {
            SWindow run;
            run.find<QLineEdit>(text, "placeholderText")->setText("bb"_s);
            run.workbench.sendList().add({message(0x123), 10, {}});
            run.window->resize(1000, 700);
            run.window->close();
        }
        SWindow run;
        run.workbench.feed().show({{0, message(1, hex("AA")), 0, false}, {0, message(2, hex("BB")), 0, false}});
        QCOMPARE(run.find<QLineEdit>(text, "placeholderText")->text(), "bb"_s);
        QCOMPARE(run.trace().rowCount(), 1); // and it filters
        QCOMPARE(run.workbench.sendList().rowCount(), 1);
        QCOMPARE(run.window->size(), QSize(1000, 700));
    }

    void traceFollowsItsEndAndIsCopied()
    {
        SWindow run;
        QVERIFY(QTest::qWaitForWindowExposed(run.window.get()));
        QTableView& table = run.window->messagePanel().traceView();
        QScrollBar* const bar = table.verticalScrollBar();
        const std::vector<SBusRecord> many(1000);
        run.workbench.feed().show(many);
        QTRY_VERIFY(bar->maximum() > 900);
        QTRY_COMPARE(bar->value(), bar->maximum());
        run.window->resize(run.window->width(), run.window->height() + 100);
        run.window->resize(run.window->width(), run.window->height() - 200);
        QTRY_COMPARE(bar->value(), bar->maximum());
        QVERIFY(run.window->messagePanel().followAction().isChecked());
        bar->setValue(500);
        run.workbench.feed().show(many);
        QTRY_VERIFY(bar->maximum() > 1900);
        QCOMPARE(bar->value(), 500);
        table.selectRow(3);
        QTest::keyClick(&table, Qt::Key_Down, Qt::ShiftModifier);
        QTest::keyClick(&table, Qt::Key_C, Qt::ControlModifier);
        QCOMPARE(QApplication::clipboard()->text().count("\tRX\t000\t0\t\t\n"_s), 2);
    }

private:
    const CPrivateStore m_store;
    const QTemporaryDir m_folder; // of programs that are started
};

QTEST_MAIN(CimviewTest)
#include "tst_cimview.moc"
