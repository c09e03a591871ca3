#include "InterfaceT93/rmFrame.h"
#include "apps/cimview/busloadPlot.h"
#include "apps/cimview/colours.h"
#include "apps/cimview/comparisonDialog.h"
#include "apps/cimview/interfacePanel.h"
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

/// The window of the program, and a gateway.
struct SWindow : SGateway {
    SWindow() : workbench(plugins), window(std::make_unique<CMainWindow>(workbench))
    {
        window->show();
        id = find<QLineEdit>("123", "placeholderText");
        data = find<QLineEdit>("11 22 AA BB", "placeholderText");
        problem = window->findChild<QLabel*>("Problem"_s);
    }

    CInterfaceList& list() { return workbench.interfaces(); }
    CTraceModel& trace() { return workbench.feed().trace(); }
    auto& at(const QString& name) { return list().at(list().rowOf(name)); }
    EConnection state(const QString& name) { return at(name).status().connection; }
    /// Returns the shown state of an interface, with its mark in parentheses.
    QString shownState(const QString& name)
    {
        const QModelIndex state = list().index(list().rowOf(name), CInterfaceList::eState);
        return "%1 (%2)"_s.arg(state.data().toString(), state.data(MARK_ROLE).toString());
    }
    void add(const QString& name, std::uint16_t port, const Settings& more = {{StoreKey::BAUDRATE, "500"_s}})
    {
        Settings settings{{StoreKey::ADDRESS, "127.0.0.1"_s}, {StoreKey::PORT, QString::number(port)}};
        for (auto entry = more.begin(); entry != more.end(); ++entry) {
            settings.insert(entry.key(), *entry);
        }
        (void)list().add(name, settings, false);
    }
    void open(const QString& name, std::uint16_t port)
    {
        add(name, port);
        at(name).open();
    }
    SEvent lastEvent() { return workbench.events().eventAt(workbench.events().rowCount() - 1); }
    bool openAndWait(const QString& name, const CSimGateway& peer)
    {
        open(name, peer.port());
        return QTest::qWaitFor([&] { return peer.tcpHostCount() == 1 && at(name).status().isIdentified(); });
    }
    QString cell(int row, int column) { return trace().index(row, column).data().toString(); }
    /// Returns the sorted rows of the trace, each as "INTERFACE DIRECTION ID DATA".
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
    /// Fills the first fields named `fields` of the next dialog, and presses one key after the other.
    void press(std::vector<Qt::Key> keys, const QStringList& texts = {}, const QString& fields = {})
    {
        QTimer::singleShot(0, window.get(), [=]() mutable {
            if (QWidget* const dialog = QApplication::activeModalWidget(); dialog != nullptr && dialog->isVisible()) {
                question = dialog->property("text").toString();
                for (int i = 0; i < texts.size(); ++i) {
                    dialog->findChildren<QLineEdit*>(fields).at(i)->setText(texts.at(i));
                }
                const Qt::Key key = keys.front();
                keys.erase(keys.begin());
                QTimer::singleShot(5000, dialog, &QWidget::close); // closes a dialog that refuses a text
                QTest::keyClick(dialog->focusWidget() != nullptr ? dialog->focusWidget() : dialog, key);
            }
            keys.empty() ? void() : press(keys, texts, fields);
        });
    }
    /// Types and sends a message, and checks that it is refused because no gateway has answered.
    void refusesWithoutAnswer()
    {
        id->setText("97"_s);
        QTest::keyClick(id, Qt::Key_Return);
        QVERIFY2(problem->text().contains("no gateway"_s), qPrintable(problem->text()));
        QCOMPARE(trace().size(), std::size_t(0));
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
    QLineEdit* id = nullptr;
    QLineEdit* data = nullptr;
    QLabel* problem = nullptr;
    QString question; ///< The text of the last dialog in which a key was pressed.
};

/// Returns whether a field has the colour of invalid text.
bool isMarked(const QLineEdit* field)
{
    return field->palette().text().color() == wrongText(field->palette().base().color());
}
} // namespace

/// The window and the objects behind it, with simulated gateways.
class CimviewTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        // Suppressions would appear in the output that the test reads.
        qputenv("LSAN_OPTIONS", qgetenv("LSAN_OPTIONS") + ":print_suppressions=0");
        for (const char* variable : {"XDG_CONFIG_HOME", "XDG_RUNTIME_DIR"}) { // for programs that are started
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
        const auto row = columns<int, QString>("exitCode", "error"); // a regular expression
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
        QCOMPARE(run.shownState(STAGE), "not opened, code 103 (3)"_s);
        run.open(STAGE, deaf.serverPort()); // a second attempt
        QCOMPARE(run.state(STAGE), EConnection::eConnecting);
        run.list().at(0).close();
        QVERIFY(run.openAndWait(HALL, run.gateway));
        run.gateway.sendStatus(0x09);
        QTRY_COMPARE(events.unread(), 3);
        QCOMPARE(run.shownState(HALL), "connected, T93 CAN bus off error (3)"_s);
        run.bus.send(message(0x123));
        QTRY_COMPARE(run.trace().rowCount(), 1);
        QCOMPARE(run.shownState(HALL), "connected (1)"_s);
        run.gateway.setFaults(faulty(&SSimFaults::refuse)); // so that it cannot reconnect
        run.gateway.dropLinks();
        QTRY_COMPARE(run.state(HALL), EConnection::eLost);
        QTRY_COMPARE(events.unread(), 4);
        const SEvent lost = run.lastEvent();
        QCOMPARE(lost.number, 0);
        QCOMPARE(lost.source, HALL);
        QVERIFY(lost.text.startsWith("TCP connection lost."_s));
        QVERIFY(lost.text.contains("- network cable"_s));
        run.list().send(HALL, message(0x100)); // refused with a code; both count in one row
        run.list().send(HALL, message(0x100));
        QTRY_COMPARE(events.unread(), 6);
        QCOMPARE(run.lastEvent().number, 109);
        QVERIFY(QTest::qWaitForWindowActive(run.window.get()));
        auto* const dock = run.window->findChild<QDockWidget*>("Events"_s);
        dock->raise();
        QTRY_COMPARE(events.unread(), 0); // the user sees the events
        run.workbench.warn("seen at once"_s);
        QCOMPARE(dock->windowTitle(), "Events"_s);
        QCOMPARE(run.shownState(HALL), "lost, trying again (3)"_s);
        run.gateway.setFaults({});
        QTRY_COMPARE(run.state(HALL), EConnection::eConnected);
        QCOMPARE(run.lastEvent().text, "The gateway is back."_s);
        run.bus.send(message(0x123));
        QTRY_COMPARE(run.trace().rowCount(), 2);
        const CIdentifierModel& identifiers = run.workbench.feed().identifiers();
        // An outage is no period.
        QCOMPARE(identifiers.index(0, CIdentifierModel::eGreatest).data(), QVariant(QString()));
    }

    void endsCleanly_data() { rows({"busy", "scan"}); }
    void endsCleanly() // one interface idle, one busy both ways, one opening; a scan
    {
        SGateway stays;
        const SDeafPort deaf;
        auto run = std::make_unique<SWindow>();
        QVERIFY(run->openAndWait(STAGE, run->gateway));
        QVERIFY(run->openAndWait(HALL, stays.gateway));
        run->at(HALL).setCyclic(1, message(0x100), 1);
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
        for (int round = 1; round <= 2; ++round) { // the second scan finds nothing new
            run.workbench.startScan();
            QVERIFY(run.window->statusBar()->currentMessage().startsWith("Scanning"_s));
            QTRY_COMPARE_WITH_TIMEOUT(finished.size(), round, 10000);
            QCOMPARE(run.list().rowCount(), 2); // one over TCP, one over UDP
            const auto* const table = run.window->findChild<QTableView*>("InterfaceColumns"_s);
            QCOMPARE(table->selectionModel()->selectedRows().size(), 2);
            QCOMPARE(run.window->statusBar()->currentMessage(), "Scan finished: 2 found, %1 new"_s.arg(4 - 2 * round));
        }
        run.list().at(0).open();
        QTRY_COMPARE(run.list().at(0).status().connection, EConnection::eConnected);
        run.list().at(0).store();
        QCOMPARE(CInterfaceStore().names(), QStringList{run.list().at(0).name()});
    }

    /// A link is lost and re-established while the window is busy.
    void shortLossIsReported()
    {
        SWindow run;
        QTcpServer gateway; // can wait without the event loop
        QVERIFY(gateway.listen(QHostAddress::LocalHost));
        run.open(HALL, gateway.serverPort());
        QVERIFY(gateway.waitForNewConnection(5000));
        QTRY_COMPARE(run.state(HALL), EConnection::eOpen);
        run.refusesWithoutAnswer();
        // The period is longer than that of the checks of the state.
        run.at(HALL).setCyclic(1, message(0x97), 150);
        gateway.nextPendingConnection()->abort();
        QVERIFY(gateway.waitForNewConnection(5000));
        QTcpSocket* const link = gateway.nextPendingConnection();
        QByteArray heard;
        while (heard.count(frame(RM_CMD_TX11BIT_MSG, hex("0097"))) < 3) {
            QVERIFY(link->waitForReadyRead(5000));
            heard += link->readAll();
        }
        QTRY_COMPARE(run.lastEvent().text, "The gateway is back. Sent cyclically: 1"_s);
    }

    void wrongTextsAreMarkedAndRefused()
    {
        SWindow run;
        QVERIFY(run.openAndWait(HALL, run.gateway));
        // Texts are ID|DATA|FIELD; the field is marked while the user types.
        for (const QString& typed :
             {"||"_s, "97F||id"_s, "x||id"_s, "97|0a ff1|"_s, "97|1g|data"_s, "97|001122334455667788|data"_s}) {
            run.id->setText(typed.section(QLatin1Char('|'), 0, 0));
            run.data->setText(typed.section(QLatin1Char('|'), 1, 1));
            QCOMPARE((isMarked(run.id) ? "id"_s : QString()) + (isMarked(run.data) ? "data"_s : QString()),
                     typed.section(QLatin1Char('|'), 2));
            for (QLineEdit* const field : {run.id, run.data}) {
                run.problem->clear();
                QTest::keyClick(field, Qt::Key_Return);
                QVERIFY(!run.problem->text().isEmpty());
            }
            QVERIFY(run.problem->isVisibleTo(run.window.get()));
            QTest::mouseClick(run.find<QPushButton>("Add to &list"), Qt::LeftButton);
        }
        QCOMPARE(run.workbench.sendList().rowCount(), 0);
        run.list().send(HALL, message(0x555)); // a last message, behind those that must not be sent
        QTRY_COMPARE(run.atGateway, QList<CCanMessage>{message(0x555)});
    }

    void sendsWhatIsTyped()
    {
        SWindow run;
        const QList<CCanMessage>& sent = run.atGateway;
        QVERIFY(run.openAndWait(HALL, run.gateway));
        QTest::keyClicks(run.id, "97"_s);
        QTest::keyClicks(run.data, "0a ff12"_s);
        QTest::keyClick(run.data, Qt::Key_Return);
        QTRY_COMPARE(sent, (QList<CCanMessage>{message(0x97, hex("0AFF12"))}));

        CSendList& list = run.workbench.sendList();
        QTest::mouseClick(run.find<QPushButton>("Add to &list"), Qt::LeftButton);
        QCOMPARE(list.rowCount(), 1);
        const auto sendCyclically = [&list] {
            list.setData(list.index(0, CSendList::eCyclic), Qt::Checked, Qt::CheckStateRole);
            return list.item(0).sentOn;
        };
        list.setData(list.index(0, CSendList::eInterval), 5, Qt::EditRole);
        QCOMPARE(sendCyclically(), HALL);
        QTRY_VERIFY(sent.size() > 10);
        QCOMPARE(sent.last(), message(0x97, hex("0AFF12")));
        run.gateway.dropLinks();
        QTRY_COMPARE_WITH_TIMEOUT(run.lastEvent().text, "The gateway is back. Sent cyclically: 1"_s, 15000);

        // With another interface open, nothing is sent there unless the user chooses it.
        SGateway other;
        QVERIFY(run.openAndWait("other"_s, other.gateway));
        run.at(HALL).close();
        QCOMPARE(sendCyclically(), QString());
        run.problem->clear();
        QTest::keyClick(run.data, Qt::Key_Return);
        QVERIFY2(run.problem->text().contains(HALL), qPrintable(run.problem->text()));
        run.list().send("other"_s, message(0x555)); // a last message, behind those that must not be sent
        QTRY_COMPARE(other.atGateway, QList<CCanMessage>{message(0x555)});
        QTRY_COMPARE(run.gateway.tcpHostCount(), 0); // the gateway accepts one connection at a time
        run.at(HALL).open();
        QTRY_VERIFY(run.at(HALL).status().isIdentified());
        CSimGateway stage(run.bus);
        listenOn(stage);
        QVERIFY(run.openAndWait(STAGE, stage));
        run.workbench.feed().clear();
        run.bus.send(message(0x100, hex("AA")));
        run.list().send(STAGE, message(0x101, hex("BB")));
        QTRY_COMPARE(run.lines(),
                     vexmor::Test::list("hall RX 100 AA|hall RX 101 BB|stage RX 100 AA|stage TX 101 BB"_s));
        run.gateway.dropLinks();
        QTRY_COMPARE_WITH_TIMEOUT(run.lastEvent().text, "The gateway is back."_s, 15000); // without "sent cyclically"
        QTRY_COMPARE(sendCyclically(), HALL);
        run.at(HALL).close();
        run.bus.send(message(0x102));
        QTRY_VERIFY(run.lines().contains("stage RX 102 "_s));
        QCOMPARE(run.state(STAGE), EConnection::eConnected);
    }

    void silenceOverUdpIsReported()
    {
        SWindow run;
        run.add(HALL, run.gateway.port(),
                {{StoreKey::PROTOCOL, "UDP"_s}, {StoreKey::POLL_TIME, "100"_s}, {StoreKey::BAUDRATE, "500"_s}});
        run.gateway.setFaults(faulty(&SSimFaults::mute));
        run.at(HALL).open();
        QTRY_COMPARE(run.state(HALL), EConnection::eOpen);
        run.refusesWithoutAnswer();
        run.gateway.setFaults({});
        const QModelIndex load = run.list().index(0, CInterfaceList::eBusload);
        QTRY_COMPARE(load.data().toString(), "0 %"_s);
        run.gateway.setFaults(faulty(&SSimFaults::mute));
        QTRY_COMPARE(run.lastEvent().text, "The gateway does not answer any more."_s);
        QCOMPARE(load.data().toString(), QString());
        run.gateway.setFaults({});
        QTRY_COMPARE_WITH_TIMEOUT(run.lastEvent().text, "The gateway is back."_s, 15000);
    }

    void dialogLeavesTheGatewaysBitRate_data()
    {
        const auto row = columns<std::vector<Qt::Key>, QString, QList<QByteArray>>("keys", "rate", "set");
        row("Enter twice", {Qt::Key_Return, Qt::Key_Return}, "unchanged"_s, {});
        row("Escape", {Qt::Key_Return, Qt::Key_Escape}, "unchanged"_s, {});
        row("the other button", {Qt::Key_Return, Qt::Key_Tab, Qt::Key_Return}, "100 kbit/s"_s, {hex("FE")});
    }
    void dialogLeavesTheGatewaysBitRate()
    {
        SWindow run;
        QList<QByteArray> set;
        connect(&run.gateway, &CSimGateway::requestReceived, this, [&set](int command, const QByteArray& payload) {
            command == RM_CMD_CAN_BAUD_RATE ? set.append(payload) : void();
        });
        run.add(HALL, run.gateway.port(), {{StoreKey::BAUDRATE, GATEWAYS_BIT_RATE}});
        run.window->findChild<QTableView*>("InterfaceColumns"_s)->selectRow(0);
        run.press(cell<std::vector<Qt::Key>>("keys"));
        run.window->interfacePanel().configure();
        QTEST(run.list().index(0, CInterfaceList::eBaudrate).data().toString(), "rate");
        run.at(HALL).open();
        QTRY_VERIFY(run.at(HALL).status().isIdentified());
        QTEST(set, "set");
    }

    void logIsShownWhileLiveMessagesWait()
    {
        SWindow run;
        QVERIFY(run.openAndWait(HALL, run.gateway));
        run.bus.send(message(0x101));
        QTRY_COMPARE(run.trace().rowCount(), 1);
        QMimeData log;
        log.setUrls({QUrl::fromLocalFile(writeFile(m_folder, "no log"))});
        QDragEnterEvent enter({}, Qt::CopyAction, &log, Qt::LeftButton, Qt::NoModifier);
        QDropEvent drop({}, Qt::CopyAction, &log, Qt::LeftButton, Qt::NoModifier);
        run.press({Qt::Key_Escape}); // unsaved messages stay
        QCoreApplication::sendEvent(run.window.get(), &enter);
        QCoreApplication::sendEvent(run.window.get(), &drop);
        QVERIFY(!run.question.isEmpty());
        QVERIFY(run.find<QAction>("&Load log ...")->isEnabled());
        run.window->logs().load(m_folder.filePath("a.log"_s));
        QTRY_COMPARE(run.workbench.events().unread(), 1); // reported; the trace stays
        QCOMPARE(run.trace().rowCount(), 1);
        run.window->logs().load(writeFile(m_folder, "(1.000001) can0 123#11\n(2.0) can1 7FF# T\n"));
        QTRY_COMPARE(run.trace().rowCount(), 2);
        run.bus.send(message(0x100, hex("AA")));
        QTRY_COMPARE(run.workbench.feed().waitingCount(), std::size_t(1));
        QCOMPARE(run.lines(), (QStringList{"can0 RX 123 11"_s, "can1 TX 7FF "_s}));
        QCOMPARE(run.window->windowTitle(), "a.log - CAN interfaces"_s);
        QAction& pause = run.window->messagePanel().pauseAction();
        run.press({Qt::Key_Escape}); // the log remains shown
        pause.trigger();
        QVERIFY(pause.isChecked());
        QCOMPARE(run.trace().rowCount(), 2);
        run.press({Qt::Key_Return});
        pause.trigger();
        QVERIFY(!pause.isChecked());
        QCOMPARE(run.lines(), QStringList{"hall RX 100 AA"_s}); // only new messages, not those of the log
        QCOMPARE(run.window->windowTitle(), "CAN interfaces"_s);
    }

    void shownMessagesAreSavedAndReplayed()
    {
        SWindow run;
        run.workbench.feed().addLive(
            {{1000000, message(0x123, hex("11")), 0, false}, {1000001, message(0x7FF), 0, true}});
        QAction* const replay = run.find<QAction>("Re&play what is shown ...");
        replay->trigger();
        QCOMPARE(run.workbench.events().unread(), 1); // no interface is open to send them
        QVERIFY(!replay->isChecked());
        QVERIFY(run.openAndWait(HALL, run.gateway));
        run.press({Qt::Key_Return});
        replay->trigger();
        QTRY_COMPARE(run.atGateway, (QList<CCanMessage>{message(0x123, hex("11")), message(0x7FF)}));
        QTRY_VERIFY(!replay->isChecked());
        const QString path = m_folder.filePath("saved.log"_s);
        QVERIFY(run.workbench.feed().isUnsaved());
        QTRY_COMPARE(run.trace().rowCount(), 4);                          // includes those that were sent
        run.press({Qt::Key_Return}, {path.chopped(4)}, "fileNameEdit"_s); // the extension is added
        run.find<QAction>("&Save log ...")->trigger();
        QTRY_VERIFY(!run.workbench.feed().isUnsaved());
        QVERIFY(contentOf(path).startsWith("(1.000000) hall 123#11\n"));
        run.bus.send(message(0x124));
        QTRY_VERIFY(run.workbench.feed().isUnsaved());
        run.trace().setMatcher(CMessageMatcher(*readFilters("123"_s)));
        run.press({Qt::Key_Return}, {m_folder.filePath("part.log"_s)}, "fileNameEdit"_s);
        run.find<QAction>("&Save log ...")->trigger();
        QTRY_COMPARE(run.lastEvent().text, "2 of 5 messages saved: only those that are shown."_s);
        QVERIFY(run.workbench.feed().isUnsaved());
    }

    void logsAreCompared()
    {
        const CSourceNames names;
        const QString before = m_folder.filePath("before.log"_s);
        QVERIFY(QFile::rename(writeFile(m_folder, "(1.0) a 123#11\n"), before));
        CComparisonDialog dialog(nullptr, names, before, writeFile(m_folder, "(1.0) a 124#11\n"));
        const QAbstractItemModel& rows = *dialog.findChild<QTableView*>()->model();
        QTRY_COMPARE(rows.rowCount(), 2);
        QCOMPARE(rows.index(0, 1).data().toString() + rows.index(1, 1).data().toString(), "missingnew"_s);
        const CComparisonDialog failed(nullptr, names, before, "/nowhere/a.log"_s);
        QVERIFY(failed.findChildren<QLabel*>().last()->text().startsWith("/nowhere/a.log: "_s));
    }

    void stateIsKept()
    {
        const char* const text = "any text or data";
        {
            SWindow run;
            run.find<QLineEdit>(text, "placeholderText")->setText("bb"_s);
            run.workbench.sendList().add({message(0x123), 10, {}, {}});
            run.window->resize(1000, 700);
            run.window->findChild<QAction*>("SendFolded"_s)->toggle();
            run.find<QAction>("Messages a&lone")->toggle();
            run.window->close();
        }
        SWindow run;
        run.workbench.feed().show({{0, message(1, hex("AA")), 0, false}, {0, message(2, hex("BB")), 0, false}});
        QCOMPARE(run.find<QLineEdit>(text, "placeholderText")->text(), "bb"_s);
        QCOMPARE(run.trace().rowCount(), 1); // the loaded filter applies
        QCOMPARE(run.workbench.sendList().rowCount(), 1);
        QCOMPARE(run.window->size(), QSize(1000, 700));
        auto* const send = run.window->findChild<QDockWidget*>("Send"_s);
        QVERIFY(send->isHidden());
        run.find<QAction>("Messages a&lone")->toggle();
        QVERIFY(!send->isHidden());
        QVERIFY(!send->widget()->isEnabled());
        QCOMPARE(send->height(), send->titleBarWidget()->sizeHint().height());
        run.find<QAction>("Send")->trigger(); // the action of Ctrl and a number
        QVERIFY(send->widget()->isEnabled());
        QTRY_VERIFY(send->height() > 100);
    }

    void textIsFoundAndIdentifiersAreHidden()
    {
        SWindow run;
        const std::vector<QByteArray> data{"AA", "BB", "CC", "BB", "BB"};
        for (std::size_t i = 0; i < data.size(); ++i) {
            run.workbench.feed().show({{0, message(0x100 + i % 2, hex(data[i])), 0, false}});
        }
        const QTableView& table = run.window->messagePanel().traceView();
        auto* const text = run.window->findChild<QLineEdit*>("Find"_s);
        text->setText("bb"_s);
        QString rows;
        for (const char key : QByteArray("nnnnpp")) {
            run.find<QAction>(key == 'n' ? "Find ne&xt" : "Find pre&vious")->trigger();
            rows += QString::number(table.currentIndex().row());
        }
        QCOMPARE(rows, "134143"_s);
        QVERIFY(!run.window->messagePanel().followAction().isChecked());
        QCOMPARE(run.trace().rowCount(), 5); // the search does not filter
        text->setText("DD"_s);
        run.find<QAction>("Find ne&xt")->trigger();
        QVERIFY(isMarked(text));
        QAction* const hide = table.actions().at(2);
        QCOMPARE(hide->text(), "Hide this identifier"_s);
        hide->trigger();
        QTRY_COMPARE(run.trace().rowCount(), 3);
        QCOMPARE(run.cell(0, CTraceModel::eId), "100"_s);
        QVERIFY(run.find<QLabel>("3, 2 hidden by the filter")->isVisible());
        run.window->messagePanel().traceView().selectRow(0);
        hide->trigger(); // hides the other identifier, too
        QTRY_COMPARE(run.trace().rowCount(), 0);
    }

    void readersAndTabFindTheirWay()
    {
        SWindow run;
        for (const QAbstractScrollArea* const area : run.window->findChildren<QAbstractScrollArea*>()) {
            const bool isNamed = area->inherits("QTableView") || area->inherits("QPlainTextEdit");
            QVERIFY(!isNamed || !area->accessibleName().isEmpty());
        }
        CMainWindow::prepareApplication();
        QCOMPARE(QAccessible::queryAccessibleInterface(qApp)->text(QAccessible::Name), "cimview"_s);
        for (const QLabel* const label : run.window->findChildren<QLabel*>()) {
            QVERIFY2(!label->text().endsWith(QLatin1Char(':')) || label->buddy() != nullptr, qPrintable(label->text()));
        }
        QVERIFY(run.window->findChild<QPlainTextEdit*>()->tabChangesFocus());
        QWidget* next = run.window->findChild<QDockWidget*>("Send"_s)->findChild<QComboBox*>();
        while (!(next = next->nextInFocusChain())->inherits("QLineEdit")) {
        }
        QCOMPARE(next, run.id);
    }

    void selectedInterfacesAreRemoved()
    {
        SWindow run;
        for (int i = 0; i < 13; ++i) {
            (void)run.list().add("i%1"_s.arg(i), {{StoreKey::ADDRESS, "127.0.0.1"_s}}, true);
        }
        auto& selection = *run.window->findChild<QTableView*>("InterfaceColumns"_s)->selectionModel();
        for (const auto& [last, isCut] : {std::pair(10, false), {11, true}}) { // at most ten are named
            selection.clear();
            selection.select({run.list().index(1, 0), run.list().index(last, 0)},
                             QItemSelectionModel::Select | QItemSelectionModel::Rows);
            run.press({isCut ? Qt::Key_Y : Qt::Key_Escape});
            run.find<QAction>("Re&move")->trigger();
            QVERIFY(run.question.contains("i10"_s));
            QCOMPARE(run.question.endsWith("\n..."_s), isCut);
            QVERIFY(!run.question.contains("i11"_s));
        }
        QCOMPARE(CInterfaceStore().names(), (QStringList{"i0"_s, "i12"_s}));
        QCOMPARE(run.list().rowCount(), 2);
    }

    void hostNameIsAddedAsAddress()
    {
        SWindow run;
        run.press({Qt::Key_Return}, {" hall "_s, "localhost:30001:UDP"_s});
        run.find<QAction>("&Add ...")->trigger();
        QCOMPARE(run.list().index(0, CInterfaceList::eAddress).data().toString(), "127.0.0.1:30001:UDP"_s);
        QCOMPARE(run.list().at(0).name(), HALL);
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
        table.setColumnHidden(CTraceModel::eAdmin, true);
        table.selectRow(3);
        QTest::keyClick(&table, Qt::Key_Down, Qt::ShiftModifier);
        QTest::keyClick(&table, Qt::Key_C, Qt::ControlModifier);
        QCOMPARE(QApplication::clipboard()->text().count("\tRX\t000\t\t\n"_s), 2);
    }

private:
    const CPrivateStore m_store;
    const QTemporaryDir m_folder; // The home of the programs that the test starts.
};

QTEST_MAIN(CimviewTest)
#include "tst_cimview.moc"
