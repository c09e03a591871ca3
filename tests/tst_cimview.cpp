#include "InterfaceT93/rmFrame.h"
#include "apps/cimview/colours.h"
#include "apps/cimview/comparisonDialog.h"
#include "apps/cimview/interfacePanel.h"
#include "apps/cimview/logActions.h"
#include "apps/cimview/mainWindow.h"
#include "apps/cimview/messagePanel.h"
#include "apps/cimview/workbench.h"
#include "apps/host/interfaceStore.h"
#include "cimviewFixture.h"
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
    SWindow() { window->show(); }

    CInterfaceList& list() { return workbench.interfaces(); }
    CTraceModel& trace() { return workbench.feed().trace(); }
    auto& at(const QString& name) { return list().at(list().rowOf(name)); }
    /// Returns the row of an interface, without its address.
    QString row(const QString& name)
    {
        return tableText(list()).value(list().rowOf(name)).remove(QRegularExpression("[|]127[.][^|]*"_s));
    }
    void add(const QString& name, std::uint16_t port, Settings settings = {{StoreKey::BAUDRATE, "500"_s}})
    {
        settings[StoreKey::ADDRESS] = "127.0.0.1"_s;
        settings[StoreKey::PORT] = QString::number(port);
        (void)list().add(name, settings, false);
    }
    bool openAndWait(const QString& name, const CSimGateway& peer)
    {
        add(name, peer.port());
        at(name).open();
        return QTest::qWaitFor([&] { return peer.tcpHostCount() == 1 && at(name).status().isIdentified(); });
    }
    /// Returns the last event without its time.
    QString lastEvent() { return tableText(workbench.events(), 1).value(workbench.events().rowCount() - 1); }
    /// Returns the sorted rows of the trace, without their times.
    QStringList lines()
    {
        QStringList lines = tableText(trace(), 1);
        lines.sort();
        return lines;
    }
    /// Fills the first fields of the next dialog, and presses one key after the other.
    void press(QList<Qt::Key> keys, const QStringList& texts = {})
    {
        QTimer::singleShot(0, window.get(), [=]() mutable {
            if (auto* const dialog = qApp->activeModalWidget(); dialog != nullptr && dialog->focusWidget() != nullptr) {
                const QLabel* const label = dialog->findChildren<QLabel*>().last();
                question = label->isVisible() ? label->text() : QString();
                for (int i = 0; i < texts.size(); ++i) {
                    dialog->findChildren<QLineEdit*>().at(i)->setText(texts.at(i));
                }
                QTimer::singleShot(5000, dialog, &QWidget::close); // closes a dialog that refuses a text
                QTest::keyClick(dialog->focusWidget(), keys.takeFirst());
            }
            keys.empty() ? void() : press(keys, texts);
        });
    }
    /// Triggers an action by its text or shortcut. Answers its dialog, if keys are given.
    void trigger(const QString& action, const QList<Qt::Key>& keys = {}, const QStringList& texts = {})
    {
        auto* const found = find<QAction>(action);
        QVERIFY2(found->isEnabled(), qPrintable(action));
        keys.empty() ? void() : press(keys, texts);
        found->trigger();
    }
    /// Types a message and sends it. Returns the problem that is shown.
    QString send(const QString& typedId, const QString& typedData = {})
    {
        id->setText(typedId);
        data->setText(typedData);
        QTest::keyClick(data, Qt::Key_Return);
        return problem->isVisibleTo(window.get()) ? problem->text() : QString();
    }
    template <typename Widget>
    Widget* find(const QString& text, const char* property = "text")
    {
        for (Widget* const widget : window->findChildren<Widget*>()) {
            if (widget->property(property).toString() == text || widget->property("shortcut").toString() == text) {
                return widget;
            }
        }
        qFatal("no widget %s", qPrintable(text));
    }

    std::vector<SPlugin> plugins = searchPlugins({QStringLiteral(CIM_PLUGIN_FILE), {}}).plugins;
    CWorkbench workbench{plugins};
    std::unique_ptr<CMainWindow> window = std::make_unique<CMainWindow>(workbench);
    QLineEdit* id = find<QLineEdit>("123"_s, "placeholderText");
    QLineEdit* data = find<QLineEdit>("11 22 AA BB"_s, "placeholderText");
    QLabel* problem = window->findChild<QLabel*>("Problem"_s);
    QTableView* table = window->findChild<QTableView*>("InterfaceColumns"_s); ///< The interfaces.
    QString question; ///< The text that the last dialog showed before the last key.
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
        qputenv("XDG_CONFIG_HOME", m_folder.path().toLocal8Bit()); // for programs that are started
        qputenv("XDG_RUNTIME_DIR", m_folder.path().toLocal8Bit());
    }
    void cleanup() { QSettings().clear(); }

    void commandLine_data()
    {
        const auto row = columns<QString>("end"); // a regular expression for the exit code and the errors
        row("--bogus", "^2 error: .*--bogus.*\n$"_s);
        row("--sim /nowhere/a.log", "^2 error: .*/nowhere/a.log.*\n$"_s);
        row("nowhere 127.0.0.1:1", "^2 error: .*nowhere.*\n$"_s);
        row("--plugin /nowhere/p.so", "^1 error: .*/nowhere/p.so.*\n$"_s);
        row("--help", "^0 $"_s);
    }
    void commandLine()
    {
        const SOutcome outcome = run(QStringLiteral("timeout 20 " CIM_CIMVIEW " ") + QLatin1String(rowName()));
        QCOMPARE(outcome.out.isEmpty(), outcome.exitCode != 0);
        const QString end = "%1 %2"_s.arg(outcome.exitCode).arg(QString::fromLocal8Bit(outcome.err));
        QVERIFY2(end.contains(QRegularExpression(cell<QString>("end"))), qPrintable(end));
    }

    void programOpensItsTargets()
    {
        SGateway stored;
        SGateway other;
        QSettings store("%1/Vexmor/Cim.conf"_s.arg(m_folder.path()), QSettings::IniFormat);
        store.setValue("CanInterfaces/hall/"_s + StoreKey::ADDRESS, "127.0.0.1"_s);
        store.setValue("CanInterfaces/hall/"_s + StoreKey::PORT, stored.gateway.port());
        store.sync();
        QProcess program;
        program.start(QStringLiteral(CIM_CIMVIEW),
                      {"--dark"_s, "--baudrate"_s, "250"_s, HALL, "127.0.0.1:%1"_s.arg(other.gateway.port())});
        QTRY_COMPARE_WITH_TIMEOUT(stored.gateway.tcpHostCount() + other.gateway.tcpHostCount(), 2, 20000);
        QTRY_COMPARE(int(other.bus.baudrate()), 250);
        const QString status = "/proc/%1/status"_s.arg(program.processId());
        const auto handled = [&] { return QString::fromLatin1(contentOf(status)).section("SigCgt:\t"_s, 1).left(16); };
        QTRY_COMPARE(handled().toULongLong(nullptr, 16) & 0x4003, 0x4003U); // SIGHUP, SIGINT and SIGTERM are handled
        stored.bus.send(message(1));                                        // unsaved, but a signal causes no question
        QVERIFY(QSignalSpy(&stored.gateway, &CSimGateway::requestReceived).wait()); // after it arrived
        program.terminate();
        QTRY_COMPARE_WITH_TIMEOUT(program.state(), QProcess::NotRunning, 20000);
        store.sync();
        QVERIFY(store.value("Cimview/Dark"_s).toBool());
    }

    void statesAndErrorsAreShown()
    {
        SWindow run;
        CEventModel& events = run.workbench.events();
        SDeafPort deaf;
        run.add(STAGE, deaf.serverPort());
        run.at(STAGE).open();
        QCOMPARE(run.row(STAGE), "stage|connecting||500 kbit/s|T93||no (2)"_s);
        QTRY_COMPARE(run.row(STAGE), "stage|not opened, code 103||500 kbit/s|T93||no (3)"_s);
        QVERIFY(run.lastEvent().startsWith("stage|code 103|"_s));
        QVERIFY(run.find<QLabel>("1 new error"_s)->isVisible());
        QVERIFY(run.list().index(0, 0).data(Qt::ToolTipRole).toString().endsWith(events.eventAt(0).text));
        deaf.resumeAccepting();
        QTRY_VERIFY(deaf.hasPendingConnections());
        run.at(STAGE).open(); // a second attempt
        QTRY_COMPARE(run.row(STAGE), "stage|open, no answer yet||500 kbit/s|T93||no (2)"_s);
        QVERIFY(run.send("97"_s).contains("no gateway"_s));
        QVERIFY(run.openAndWait(HALL, run.gateway));
        run.bus.send(message(0x123));
        run.gateway.sendStatus(0x09); // raises two errors
        run.gateway.sendStatus(0x09);
        QTRY_COMPARE(events.unread(), 5);
        QTRY_COMPARE(run.row(HALL), "hall|connected, T93 CAN bus off error|0 %|500 kbit/s|T93|1.05|no (3)"_s);
        QVERIFY(run.list().index(1, 0).data(Qt::ToolTipRole).toString().contains(run.at(HALL).status().interfaceId));
        QCOMPARE(run.row(STAGE), "stage|open, no answer yet||500 kbit/s|T93||no (2)"_s);
        run.list().send(HALL, message(0x100));
        QTRY_COMPARE(run.lines(), (QStringList{"hall|RX|123|||"_s, "hall|TX|100|||"_s}));
        QVERIFY(run.row(HALL).contains("bus off"_s)); // only a received message ends the error
        QTRY_VERIFY(run.workbench.statistics().contains(QRegularExpression("hall\n.*\n.*\n.*mean 0 %"_s)));
        run.gateway.setFaults(faulty(&SSimFaults::refuse)); // so that it cannot reconnect
        run.gateway.dropLinks();
        QTRY_VERIFY(run.lastEvent().startsWith("hall|error 0||TCP connection lost."_s));
        QTRY_COMPARE(run.row(HALL), "hall|lost, trying again||500 kbit/s|T93|1.05|no (3)"_s);
        QTRY_COMPARE(run.find<QWidget>("Bus load"_s, "accessibleName")->accessibleDescription(), "hall: not known"_s);
        run.list().send(HALL, message(0x100)); // refused with a code; both count in one row
        run.list().send(HALL, message(0x100));
        QTRY_COMPARE(run.lastEvent(), "hall|code 109|2|Attempt to send when having no TCP connection."_s);
        QCOMPARE(run.trace().rowCount(), 2);
        auto* const dock = run.window->findChild<QDockWidget*>("Events"_s);
        QVERIFY(run.find<QLabel>("8 new errors"_s)->isVisible());
        QVERIFY(run.find<QAction>("\u25BE Events (8 new)"_s)->isEnabled()); // the title
        dock->raise();
        QTRY_COMPARE(events.unread(), 0); // the user sees the events
        run.workbench.warn("seen at once\nin the panel"_s);
        QCOMPARE(dock->windowTitle(), "Events"_s);
        auto* const text = dock->findChild<QPlainTextEdit*>();
        QVERIFY(text->tabChangesFocus() && text->isReadOnly() && !text->accessibleName().isEmpty());
        dock->findChild<QTableView*>()->selectRow(events.rowCount() - 1);
        QCOMPARE(text->toPlainText(), "seen at once\nin the panel"_s);
        run.trigger("&Clear events"_s);
        QCOMPARE(text->toPlainText(), QString());
        run.gateway.setFaults({});
        QTRY_COMPARE(run.lastEvent(), "hall|||The gateway is back."_s);
        QTRY_COMPARE(run.row(HALL), "hall|connected|0 %|500 kbit/s|T93|1.05|no (1)"_s);
        run.gateway.sendStatus(0x09);
        QTRY_VERIFY(run.row(HALL).contains("bus off"_s));
        run.bus.send(message(0x123));
        QTRY_VERIFY(run.row(HALL).startsWith("hall|connected|"_s));
        // An outage is no period.
        QVERIFY(run.workbench.feed().identifiers().index(1, CIdentifierModel::eGreatest).data().toString().isEmpty());
    }

    void scanFindsGateways()
    {
        if (qEnvironmentVariableIsEmpty("CIM_INSIDE")) {
            QSKIP("broadcasts only in a network namespace of its own (tests/inNamespace)");
        }
        SWindow run;
        listenOn(run.gateway, QHostAddress("10.9.0.1"_s));
        CSimDetection detection;
        QVERIFY(!detection.listen(DDT_PORT));
        detection.addGateway(run.gateway);
        const QSignalSpy progressed(&run.workbench, &CWorkbench::progressed);
        run.add(HALL, 1);
        for (const int added : {2, 0}) { // the second scan finds nothing new
            run.trigger("F5"_s);
            QVERIFY(run.window->statusBar()->currentMessage().startsWith("Scanning"_s));
            QVERIFY(!run.find<QAction>("Scan &network"_s)->isEnabled());
            const QString text = "Scan finished: 2 found, %1 new"_s.arg(added);
            QTRY_COMPARE_WITH_TIMEOUT(progressed.last(), (QList<QVariant>{text, true}), 10000);
            QCOMPARE(run.lastEvent(), "|||"_s + text);
            QCOMPARE(run.list().rowCount(), 3); // found one over TCP, one over UDP
            QCOMPARE(run.table->selectionModel()->selectedRows().size(), 2);
        }
        run.table->selectRow(1);
        run.trigger("F2"_s);
        run.trigger("&Store"_s);
        QCOMPARE(CInterfaceStore().names(), QStringList{run.list().at(1).name()});
        QTRY_VERIFY(tableText(run.list())[1].endsWith("|yes (1)"_s)); // stored and connected
        run.workbench.startScan();                                    // still runs when the window is closed
    }

    void sendsWhatIsTyped()
    {
        SWindow run;
        CSendList& list = run.workbench.sendList();
        QVERIFY(run.openAndWait(HALL, run.gateway));
        // Texts are ID|DATA|FIELD; the field is marked while the user types.
        for (const QString& typed :
             {"||"_s, "97F||id"_s, "x||id"_s, "97|0a ff1|"_s, "97|1g|data"_s, "97|001122334455667788|data"_s}) {
            const QStringList texts = typed.split(QLatin1Char('|'));
            QVERIFY(!run.send(texts[0], texts[1]).isEmpty());
            QCOMPARE((isMarked(run.id) ? "id"_s : QString()) + (isMarked(run.data) ? "data"_s : QString()), texts[2]);
            QTest::mouseClick(run.find<QPushButton>("Add to &list"_s), Qt::LeftButton);
        }
        QCOMPARE(list.rowCount(), 0);
        run.id->setText("97"_s);
        run.data->setText("0a ff12"_s);
        QVERIFY(!run.problem->isVisibleTo(run.window.get()));
        QTest::keyClick(run.id, Qt::Key_Return);
        QTRY_COMPARE(run.atGateway, QList<CCanMessage>{message(0x97, hex("0AFF12"))}); // and nothing before
        QTest::mouseClick(run.find<QPushButton>("Add to &list"_s), Qt::LeftButton);
        const auto sendCyclically = [&list] {
            list.setData(list.index(0, CSendList::eCyclic), Qt::Checked, Qt::CheckStateRole);
            return list.item(0).sentOn;
        };
        list.setData(list.index(0, CSendList::eInterval), 1, Qt::EditRole);
        QCOMPARE(sendCyclically(), HALL);
        QTRY_VERIFY(run.workbench.feed().identifiers().index(0, CIdentifierModel::eRate).data().toDouble() > 150);
        run.at(HALL).setCyclic(9, message(0x9), 1000);
        run.at(HALL).setCyclic(9, message(0x9), 0);
        run.at(HALL).open(); // is open already
        run.gateway.dropLinks();
        QTRY_COMPARE_WITH_TIMEOUT(run.lastEvent(), "hall|||The gateway is back. Sent cyclically: 1"_s, 15000);

        // With another interface open, nothing is sent there unless the user chooses it.
        SGateway other;
        QVERIFY(run.openAndWait("other"_s, other.gateway));
        QVERIFY(tableText(run.workbench.events(), 1).join("|"_s).endsWith("cyclically: 1|other|||Opened."_s));
        QTRY_VERIFY(run.find<QWidget>("Bus load"_s, "accessibleName")->accessibleDescription().contains("other: 0"_s));
        run.table->selectAll();
        QVERIFY(!run.find<QAction>("Send on &this interface"_s)->isEnabled()); // it is not clear which
        run.at(HALL).close();
        run.trigger("50 kbit/s"_s);
        QVERIFY(run.lastEvent().contains("of other was not changed: close"_s));
        QCOMPARE(sendCyclically(), QString());
        QVERIFY(run.send("97"_s).contains(HALL));
        run.table->selectRow(1);
        run.trigger("Send on &this interface"_s);
        auto* const table = run.find<QTableView>("Messages to send"_s, "accessibleName");
        list.add({message(0x556), 10, {}, {}});
        table->selectAll();
        run.trigger("Ctrl+Return"_s);
        QVERIFY(run.problem->text().contains(HALL)); // the interface of the first message
        QCOMPARE(run.send("555"_s), QString());
        QTRY_COMPARE(other.atGateway, (QList<CCanMessage>{message(0x556), message(0x555)}));
        const QString path = m_folder.filePath("list.ini"_s);
        run.trigger("Save list ..."_s, {Qt::Key_Return}, {path.chopped(4)}); // the extension is added
        run.trigger("Save list ..."_s, {Qt::Key_Return}, {path + "/nowhere"_s});
        QVERIFY(run.problem->text().contains(QRegularExpression("nowhere.* cannot be written"_s)));
        run.trigger("Send on the interface above"_s);
        run.trigger("Save list ..."_s, {Qt::Key_Escape}, {path});
        QCOMPARE(sendCyclically(), "other"_s);
        QTest::mouseClick(run.find<QPushButton>("S&top all"_s), Qt::LeftButton);
        QCOMPARE(list.item(0).sentOn, QString());
        run.trigger("Load list ..."_s, {Qt::Key_Return}, {path});
        run.trigger("Load list ..."_s, {Qt::Key_Return}, {writeFile(m_folder, {})});
        QVERIFY(run.problem->text().contains("contains no messages"_s));
        QTRY_COMPARE(tableText(list).mid(1, 2), (QStringList{"||556||10|1|other"_s, "||097|0A FF 12|1|0|hall"_s}));
        table->selectAll();
        list.add({message(0x7FF), 10, {}, {}});
        run.trigger("Del"_s);
        QCOMPARE(tableText(list), QStringList{"||7FF||10|0|"_s});
        QTRY_COMPARE(run.gateway.tcpHostCount(), 0); // the gateway accepts one connection at a time
        run.at(HALL).open();
        QTRY_VERIFY(run.at(HALL).status().isIdentified());
        run.gateway.dropLinks();
        QTRY_COMPARE_WITH_TIMEOUT(run.lastEvent(), "hall|||The gateway is back."_s, 15000); // not "sent cyclically"
    }

    void silenceOverUdpIsReported()
    {
        SWindow run;
        run.add(HALL, run.gateway.port(),
                {{StoreKey::PROTOCOL, "UDP"_s}, {StoreKey::POLL_TIME, "100"_s}, {StoreKey::BAUDRATE, "500"_s}});
        run.at(HALL).open();
        QTRY_COMPARE(run.row(HALL), "hall|connected|0 %|500 kbit/s|T93|1.05|no (1)"_s);
        run.gateway.setFaults(faulty(&SSimFaults::mute));
        QTRY_COMPARE(run.lastEvent(), "hall|warning||The gateway does not answer any more."_s);
        QTRY_COMPARE(run.row(HALL), "hall|silent for 1 s||500 kbit/s|T93|1.05|no (2)"_s);
        QVERIFY(QSignalSpy(&run.list(), &CInterfaceList::dataChanged).wait()); // the time is shown as it passes
        run.gateway.setFaults({});
        QTRY_COMPARE_WITH_TIMEOUT(run.lastEvent(), "hall|||The gateway is back."_s, 15000);
    }

    void dialogLeavesTheGatewaysBitRate_data()
    {
        const auto row = columns<QList<Qt::Key>, QString, int>("keys", "rate", "onTheBus");
        row("Enter twice", {Qt::Key_Return, Qt::Key_Return}, "unchanged"_s, 500);
        row("the other button", {Qt::Key_Return, Qt::Key_Tab, Qt::Key_Return}, "100 kbit/s"_s, 100);
    }
    void dialogLeavesTheGatewaysBitRate()
    {
        SWindow run;
        run.add(HALL, run.gateway.port(), {{StoreKey::BAUDRATE, GATEWAYS_BIT_RATE}});
        run.table->selectRow(0);
        run.trigger("F4"_s, cell<QList<Qt::Key>>("keys"));
        QVERIFY(run.question.contains("hall has not changed"_s) && run.question.contains("100 kbit/s"_s));
        const QString rate = cell<QString>("rate");
        QCOMPARE(run.row(HALL), "hall|closed||%1|T93||no"_s.arg(rate));
        Q_EMIT run.table->doubleClicked(run.list().index(0, 0));
        QTRY_VERIFY(run.at(HALL).status().isIdentified());
        QTEST(int(run.bus.baudrate()), "onTheBus");
        QVERIFY(run.find<QAction>(rate)->isChecked());
        QVERIFY(!run.find<QAction>("Con&figure ..."_s)->isEnabled());
        run.list().remove(0); // only closed ones
        Q_EMIT run.table->doubleClicked(run.list().index(0, 0));
        QVERIFY(!run.find<QAction>("Send on &this interface"_s)->isEnabled());
        run.trigger("50 kbit/s"_s);
        run.trigger("Con&figure ..."_s, {Qt::Key_Return}); // no question: the rate was chosen
        QCOMPARE(run.row(HALL), "hall|closed||50 kbit/s|T93|1.05|no"_s);
        run.trigger("Re&move"_s, {Qt::Key_Escape});                              // no question: it is not stored
        QVERIFY(run.window->interfacePanel().findChild<QLabel*>()->isVisible()); // the hint
        QVERIFY(!run.find<QAction>("F2"_s)->isEnabled());
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
        QCloseEvent close;
        QSpontaneKeyEvent::setSpontaneous(&close);
        run.press({Qt::Key_Return, Qt::Key_Escape, Qt::Key_Escape}); // unsaved messages stay
        QCoreApplication::sendEvent(run.window.get(), &enter);
        QCoreApplication::sendEvent(run.window.get(), &drop);
        qApp->notify(run.window.get(), &close);
        run.trigger("Ctrl+Q"_s);
        QVERIFY(run.window->isVisible());
        run.window->logs().load(m_folder.filePath("a.log"_s));
        QTRY_COMPARE(run.workbench.events().unread(), 1); // reported; the trace stays
        QCOMPARE(run.lines(), QStringList{"hall|RX|101|||"_s});
        QVERIFY(run.find<QAction>("Ctrl+O"_s)->isEnabled());
        run.window->logs().load(writeFile(m_folder, "(1.000001) can0 123#00\n(2.0) can1 7FF# T\n"));
        QTRY_COMPARE(run.lines(), (QStringList{"can0|RX|123|00|.|"_s, "can1|TX|7FF|||"_s}));
        run.bus.send(message(0x100, hex("AA")));
        QTRY_COMPARE(run.workbench.feed().waitingCount(), std::size_t(1));
        QCOMPARE(run.window->windowTitle(), "a.log - CAN interfaces"_s);
        run.trigger("&Pause"_s, {Qt::Key_Escape}); // the log remains shown
        QVERIFY(run.find<QAction>("F8"_s)->isChecked());
        QCOMPARE(run.trace().rowCount(), 2);
        run.trigger("F8"_s, {Qt::Key_Return});
        QVERIFY(!run.find<QAction>("F8"_s)->isChecked());
        QCOMPARE(run.lines(), QStringList{"hall|RX|100|AA|.|type 2"_s}); // only new messages, not those of the log
        QCOMPARE(run.window->windowTitle(), "CAN interfaces"_s);
    }

    void shownMessagesAreSavedAndReplayed()
    {
        SWindow run;
        run.workbench.feed().addLive({record(0x123, hex("11"), 1000000), record(0x7FF, {}, 1000001)});
        const QAction* const replay = run.find<QAction>("Re&play what is shown ..."_s);
        run.trigger(replay->text());
        QCOMPARE(run.workbench.events().unread(), 1); // no interface is open to send them
        QVERIFY(!replay->isChecked());
        QVERIFY(run.openAndWait(HALL, run.gateway));
        run.trigger(replay->text(), {Qt::Key_Return});
        QTRY_COMPARE(run.atGateway, (QList<CCanMessage>{message(0x123, hex("11")), message(0x7FF)}));
        QTRY_VERIFY(!replay->isChecked());
        QVERIFY(!run.find<QProgressBar>("Replay"_s, "accessibleName")->isVisible());
        QTRY_COMPARE(run.trace().rowCount(), 4); // includes those that were sent
        run.trigger("Write the &direction into logs (R, T)"_s);
        run.trigger("&Save log ..."_s, {Qt::Key_Return}, {m_folder.filePath("before"_s)});
        run.workbench.feed().addLive({{}}); // while the log is written
        QTRY_COMPARE(run.lastEvent(), "|||4 messages saved."_s);
        QVERIFY(run.workbench.feed().isUnsaved());
        run.trigger("&Save log ..."_s, {Qt::Key_Return}, {m_folder.filePath("saved"_s)}); // the extension is added
        QTRY_VERIFY(!run.workbench.feed().isUnsaved());
        QVERIFY(contentOf(m_folder.filePath("saved.log"_s)).startsWith("(1.000000) hall 123#11 R\n"));
        run.trigger("Record to a new file each &hour"_s);
        run.trigger("&Record to files ..."_s, {Qt::Key_Return}, {m_folder.path()});
        run.trigger("&Pause"_s);
        run.bus.send(message(0x124));
        QTRY_COMPARE(run.workbench.feed().waitingCount(), std::size_t(1));
        run.trigger("Ctrl+S"_s, {Qt::Key_Return}, {m_folder.filePath("part"_s)});
        QTRY_COMPARE(run.lastEvent(), "|||5 of 6 messages saved: only those that are shown."_s);
        QVERIFY(run.workbench.feed().isUnsaved());
        QTRY_VERIFY(run.window->statusBar()->findChild<QLabel*>()->text().startsWith(
            "0 messages/s, 3 in total, recording to cimview-"_s));
        run.workbench.recorder().record({{}}, QDateTime::currentDateTime().addSecs(3600));
        QCOMPARE(::run("grep -c ' R$' %1/cimview-*"_s.arg(m_folder.path())).out.count(":1\n"), 2); // files
        Q_EMIT run.workbench.recorder().ended("disk full"_s);
        QVERIFY(!run.find<QAction>("&Record to files ..."_s)->isChecked());
        QCOMPARE(run.lastEvent(), "|warning||disk full"_s);
        run.trigger("&Record to files ..."_s, {Qt::Key_Escape});        // ends the recording
        QCOMPARE(run.lastEvent(), "|||Recording ended, messages: 2"_s); // also during a pause
    }

    void logsAreCompared()
    {
        SWindow run;
        CSourceNames& names = run.workbench.names();
        QVERIFY(!names.loadIds(writeFile(m_folder, "123 Amplifier\n")));
        const QString first = m_folder.filePath("1.log"_s);
        const QString second = m_folder.filePath("2.log"_s);
        QVERIFY(QFile::rename(writeFile(m_folder, "(1.0) a 123#11\n(2.0) a 123#11\n"), first));
        QVERIFY(QFile::rename(writeFile(m_folder, "(1.0) a 124#11\n(2.0) a 00000123#\n"), second));
        run.trigger("&Compare two logs ..."_s, {Qt::Key_Return}, {"\"%1\" \"%2\""_s.arg(second, first)});
        auto* const dialog = run.window->findChild<CComparisonDialog*>();
        const QAbstractItemModel& rows = *dialog->findChild<QTableView*>()->model();
        QTRY_COMPARE(tableText(rows), (QStringList{"123 Amplifier|missing|2.0||11| (3)"_s, "124|new||||11 (3)"_s}));
        QVERIFY(dialog->findChild<QLabel*>()->text().endsWith("1.log\nAfter: %1"_s.arg(second)));
        QCOMPARE(dialog->findChildren<QLabel*>().last()->text(),
                 "identifiers: 1 before, 1 after; different: 2; lines without a standard frame: 1"_s);
        const CComparisonDialog failed(nullptr, names, first, "/nowhere/a.log"_s);
        QVERIFY(failed.findChildren<QLabel*>().last()->text().startsWith("/nowhere/a.log: "_s));
    }

    void stateIsKept()
    {
        {
            SWindow run;
            run.find<QLineEdit>("any text or data"_s, "placeholderText")->setText("bb"_s);
            run.trigger("Load &names of identifiers ..."_s, {Qt::Key_Return}, {writeFile(m_folder, "002 Amplifier\n")});
            run.find<QLineEdit>("all; example: 123  120:7F0"_s, "placeholderText")->setText("2 3"_s);
            run.workbench.sendList().add({message(0x123), 10, {}, {}});
            run.window->resize(1000, 700);
            run.table->hideColumn(CInterfaceList::eType);
            run.window->findChild<QTabWidget*>()->setCurrentIndex(1);
            run.window->findChild<QAction*>("SendFolded"_s)->toggle();
            run.trigger("Messages a&lone"_s);
            run.window->close();
        }
        SWindow run;
        run.workbench.feed().show({record(1, hex("BB")), record(2, hex("BB")), record(3, hex("AA"))});
        QCOMPARE(run.lines(), QStringList{"|RX|002 Amplifier|BB|.|type 3"_s}); // the loaded filters apply
        QCOMPARE(run.workbench.sendList().rowCount(), 1);
        QCOMPARE(run.window->size(), QSize(1000, 700));
        QVERIFY(run.table->isColumnHidden(CInterfaceList::eType));
        QCOMPARE(run.window->findChild<QTabWidget*>()->currentIndex(), 1);
        auto* const send = run.window->findChild<QDockWidget*>("Send"_s);
        QVERIFY(send->isHidden());
        run.trigger("F11"_s);
        QVERIFY(!send->isHidden());
        QVERIFY(!send->widget()->isEnabled());
        QVERIFY(run.window->findChild<QAction*>("EventsFolded"_s)->isChecked()); // shares the place
        QCOMPARE(send->height(), send->titleBarWidget()->sizeHint().height());
        run.trigger("Ctrl+3"_s);
        QVERIFY(send->widget()->isEnabled());
        QTRY_VERIFY(send->height() > 100);
        run.trigger("Ctrl+0"_s);
        QCOMPARE(run.window->focusWidget()->objectName(), "Identifiers"_s); // the chosen tab
        run.trigger("Ctrl+1"_s);
        QCOMPARE(run.window->focusWidget(), run.table);
        run.add(HALL, 1);
        run.trigger("Try a simu&lated gateway"_s);
        QTRY_VERIFY(run.row("Simulation TCP"_s).contains(QRegularExpression("\\|connected\\|.*kbit/s"_s)));
        QVERIFY(!run.find<QAction>("Try a simu&lated gateway"_s)->isEnabled());
    }

    void textIsFoundAndIdentifiersAreHidden()
    {
        SWindow run;
        run.workbench.feed().show({record(0x100, hex("AA")), record(0x101, hex("BB")), record(0x100, hex("CC")),
                                   record(0x101, hex("BB")), record(0x100, hex("BB"))});
        QTableView& table = run.window->messagePanel().traceView();
        run.trigger("Ctrl+F"_s);
        auto* const text = qobject_cast<QLineEdit*>(run.window->focusWidget());
        text->setText("DD"_s);
        QTest::keyClick(text, Qt::Key_Return);
        QVERIFY(isMarked(text));
        text->setText("bb"_s);
        QVERIFY(!isMarked(text));
        QString rows;
        for (const char key : QByteArray("pnnnnpp")) {
            run.trigger(key == 'n' ? "F3"_s : "Shift+F3"_s);
            rows += QString::number(table.currentIndex().row());
        }
        QCOMPARE(rows, "4134143"_s);
        QVERIFY(!run.find<QAction>("F9"_s)->isChecked());
        table.actions().at(2)->trigger(); // "Hide this identifier"
        QTRY_COMPARE(run.trace().rowCount(), 3);
        QCOMPARE(run.find<QTableView>("Identifiers"_s, "objectName")->model()->rowCount(), 1);
        QVERIFY(run.find<QLabel>("3, 2 hidden by the filter"_s)->isVisible());
        auto* const filter = run.find<QLineEdit>("101~7FF"_s);
        filter->setText("10"_s);
        filter->setText("10x"_s); // is not a filter, so the previous one stays
        QTest::keyClick(filter, Qt::Key_Return);
        QVERIFY(isMarked(filter) && run.find<QLabel>("wrong filter"_s)->isVisible());
        QVERIFY(filter->toolTip().contains("10x"_s));
        QCOMPARE(run.trace().rowCount(), 3);
        filter->setText("101~7FF"_s);
        table.selectRow(0);
        table.actions().at(2)->trigger(); // hides the other identifier, too
        QTRY_COMPARE(run.trace().rowCount(), 0);
        QVERIFY(run.find<QLabel>("0, 5 hidden by the filter"_s)->isVisible());
    }

    void readersAndTabFindTheirWay()
    {
        SWindow run;
        for (const QTableView* const table : run.window->findChildren<QTableView*>()) {
            QVERIFY(!table->accessibleName().isEmpty() && !table->tabKeyNavigation());
        }
        CMainWindow::prepareApplication();
        QCOMPARE(QAccessible::queryAccessibleInterface(qApp)->text(QAccessible::Name), "cimview"_s);
        auto fields = run.window->findChildren<QWidget*>();
        for (const QLabel* const label : run.window->findChildren<QLabel*>()) { // each belongs to another field
            QVERIFY(!label->text().endsWith(QLatin1Char(':')) || fields.removeOne(label->buddy()));
        }
        QCOMPARE(run.find<QDoubleSpinBox>("Speed of the replay"_s, "accessibleName")->minimum(), 0.1);
        QVERIFY(backgroundOf(EMark::eBad, Qt::white) != backgroundOf(EMark::eDoubtful, Qt::white));
        QVERIFY(run.find<QToolButton>("Pause"_s)->focusPolicy() == Qt::StrongFocus);
        QWidget* next = run.window->findChild<QDockWidget*>("Send"_s)->findChild<QComboBox*>();
        while (!(next = next->nextInFocusChain())->inherits("QLineEdit")) {
        }
        QCOMPARE(next, run.id);
    }

    void interfacesAreRemovedAndAdded()
    {
        SWindow run;
        for (int i = 0; i < 13; ++i) {
            (void)run.list().add("i%1"_s.arg(i), {{StoreKey::ADDRESS, "127.0.0.1"_s}}, i != 11);
        }
        auto& selection = *run.table->selectionModel();
        for (const auto& [last, isCut] : {std::pair(10, false), {11, true}}) { // at most ten are named
            selection.select({run.list().index(1, 0), run.list().index(last, 0)},
                             QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
            QVERIFY(!run.find<QAction>("Con&figure ..."_s)->isEnabled());
            QCOMPARE(run.find<QAction>("&Store"_s)->isEnabled(), isCut); // the last one is not stored
            run.trigger("&Baud rate"_s);
            run.trigger("250 kbit/s"_s);
            QCOMPARE(tableText(run.list()).filter("|250 kbit/s|"_s).size(), last);
            run.trigger("Re&move"_s, {isCut ? Qt::Key_Y : Qt::Key_Escape});
            QVERIFY(run.question.endsWith(isCut ? "\ni10\n..."_s : "\ni10"_s));
        }
        QCOMPARE(CInterfaceStore().names(), (QStringList{"i0"_s, "i12"_s}));
        run.trigger("&Add ..."_s, {Qt::Key_Return, Qt::Key_Escape}, {" "_s, "127.0.0.1"_s});
        QCOMPARE(run.question, "An interface needs a name."_s);
        run.trigger("Ctrl+N"_s, {Qt::Key_Tab, Qt::Key_Tab, Qt::Key_Down, Qt::Key_Tab, Qt::Key_Space, Qt::Key_Return},
                    {" hall "_s, "localhost:30001:UDP"_s});
        QVERIFY(run.table->selectionModel()->isRowSelected(2, {}));
        QCOMPARE(tableText(run.list()).mid(2), QStringList{"hall|closed||127.0.0.1:30001:UDP|50 kbit/s|T93||no"_s});
    }

    void traceFollowsItsEndAndIsCopied()
    {
        SWindow run;
        QVERIFY(QTest::qWaitForWindowExposed(run.window.get()));
        QTableView& table = run.window->messagePanel().traceView();
        QScrollBar* const bar = table.verticalScrollBar();
        run.workbench.feed().show(std::vector<SBusRecord>(CTraceModel::CAPACITY));
        QTRY_VERIFY(bar->maximum() > 400000);
        QTRY_COMPARE(bar->value(), bar->maximum());
        run.window->resize(run.window->width(), run.window->height() + 100);
        run.window->resize(run.window->width(), run.window->height() - 200);
        QTRY_COMPARE(bar->value(), bar->maximum());
        QVERIFY(run.find<QAction>("F9"_s)->isChecked());
        bar->setValue(200000);
        run.workbench.feed().show({{}}); // drops a tenth of the messages
        QTRY_VERIFY(bar->maximum() < 450000);
        QCOMPARE(bar->value(), 150000);
        bar->setValue(bar->maximum());
        QVERIFY(run.find<QAction>("F9"_s)->isChecked());
        table.setColumnHidden(CTraceModel::eAdmin, true);
        table.selectRow(3);
        QTest::keyClick(&table, Qt::Key_Down, Qt::ShiftModifier);
        QTest::keyClick(&table, Qt::Key_C, Qt::ControlModifier);
        run.trigger("&Statistics ..."_s, {Qt::Key_Escape});
        QCOMPARE(QApplication::clipboard()->text().count("\tRX\t000\t\t\n"_s), 2);
        run.trigger("&Statistics ..."_s, {Qt::Key_Tab, Qt::Key_Return});
        QVERIFY(QApplication::clipboard()->text().contains("program lost because"_s));
    }

private:
    const CPrivateStore m_store;
    const QTemporaryDir m_folder; // The home of the programs that the test starts.
};

QTEST_MAIN(CimviewTest)
#include "tst_cimview.moc"
