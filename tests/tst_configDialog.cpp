#include "t93Fixture.h"

#include <QtWidgets>

using namespace vexmor::Test;

namespace
{
enum ERow { HOST, MODE, PROTOCOL, ADDRESS, AUTO_IP, PORT, LOCAL_ADDRESS, ANY_ADDRESS, BAUDRATE, POLL, MEASURE, ROWS };

/// The keys of the settings in the order of the rows, and one without a row. Lists are texts with bars, for legibility.
const QStringList KEYS = list("Hostname|Service|Protocol|IP-Address|AutoIpUpdate|Port|Local-IP-Address|UdpBindAnyIp|"
                              "CanBaudrate|BusloadPollTime|BusloadMeasureInterval|Dhcp"_s);
const QString DEFAULTS = "|SERVER|TCP|192.168.1.70|0|30000|0.0.0.0|0|100|800|1000|0"_s;
const QString GROUP = "Group"_s;

QString settingsOf(CCanInterface& can)
{
    can.saveSettings(GROUP);
    QStringList values;
    for (const QString& key : KEYS) {
        values += QSettings().value(GROUP + QLatin1Char('/') + key).toString();
    }
    return values.join(QLatin1Char('|'));
}

/// The dialog as a user sees it: rows and buttons.
struct SDialog {
    QWidget* at(int row, int column = 1) const
    {
        return dialog.findChild<QGridLayout*>()->itemAtPosition(row, column)->widget();
    }
    QString shown() const
    {
        QStringList values;
        for (int row = 0; row < ROWS; ++row) {
            values += at(row)->metaObject()->userProperty().read(at(row)).toString();
        }
        return values.join(QLatin1Char('|'));
    }
    void type(int row, const QString& text) const
    {
        auto* const inside = at(row)->findChild<QLineEdit*>();
        auto* const edit = inside != nullptr ? inside : qobject_cast<QLineEdit*>(at(row));
        edit->selectAll();
        QTest::keyClick(edit, Qt::Key_Delete);
        QTest::keyClicks(edit, text);
    }
    void press(QDialogButtonBox::StandardButton button) const
    {
        QTest::mouseClick(dialog.findChild<QDialogButtonBox*>()->button(button), Qt::LeftButton);
    }
    /// Presses OK and calls `act` when a warning appears. Returns the text of the warning, or an empty text.
    QString pressOk(const std::function<void(QMessageBox&)>& act = [](QMessageBox& box) { box.accept(); }) const
    {
        QString text;
        const QObject whilePressed;
        QTimer::singleShot(0, &whilePressed, [&] {
            if (auto* const box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
                const bool isAsSaid = box->icon() == QMessageBox::Warning && box->windowTitle().isEmpty() &&
                                      box->standardButtons() == QMessageBox::Ok && box->parent() == nullptr;
                text = isAsSaid ? box->text() : "another kind of box"_s;
                act(*box);
            }
        });
        press(QDialogButtonBox::Ok);
        return text;
    }
    QDialog& dialog;
};

/// Opens the dialog of an interface, calls `user`, and cancels the dialog if it is still open. It must return `code`.
void runDialog(CCanInterface& can, int code, const std::function<void(const SDialog&)>& user, QWidget* parent = nullptr)
{
    const QObject whileItRuns;
    QTimer::singleShot(0, &whileItRuns, [&user] {
        const QPointer<QDialog> dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
        if (dialog && QTest::qWaitForWindowActive(dialog)) {
            user(SDialog{*dialog});
        }
        if (dialog && dialog->isVisible()) {
            dialog->reject();
        }
    });
    QCOMPARE(can.configure(parent, Qt::Dialog), code);
}
} // namespace

/// The dialog of a gateway's settings, opened by the loaded plugin and used by keys and clicks.
class ConfigDialogTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { can.reset(plugin().createInterface()); }

    void showsAndReturns_data()
    {
        const auto row = columns<QString, QString, QString>("given", "shown", "returned");
        row("defaults", DEFAULTS, "|SERVER|TCP|192.168.1.70|false|30000|0.0.0.0|false|100|800|1000"_s, DEFAULTS);
        row("everything else", "hall|CLIENT|UDP|10.0.0.5|1|1|10.9.0.1|1|1000|100|3000|1"_s,
            "hall|CLIENT|UDP|10.0.0.5|true|1|10.9.0.1|true|1000|100|3000"_s,
            "hall|CLIENT|UDP|10.0.0.5|1|1|10.9.0.1|1|1000|100|3000|0"_s);
        row("unknown and too small", "|Invalid|NA|10.0.0.5|1|0|0.0.0.0|0|33|50|5|0"_s,
            "|CLIENT|TCP|10.0.0.5|true|0|0.0.0.0|false||100|100"_s,
            "|CLIENT|TCP|10.0.0.5|1|0|0.0.0.0|0|100|100|100|0"_s);
        const QString cut = "123456789 123456789 12345678"_s;
        row("too large and too long", cut + "9|SERVER|TCP|10.0.0.5|0|65535|0.0.0.0|1|50|4294967295|5000|0"_s,
            cut + "|SERVER|TCP|10.0.0.5|false|65535|0.0.0.0|true|50|3000|3000"_s,
            cut + "|SERVER|TCP|10.0.0.5|0|65535|0.0.0.0|1|50|3000|3000|0"_s);
    }
    void showsAndReturns()
    {
        const QStringList values = list(cell<QString>("given"));
        for (int index = 0; index < values.size(); ++index) {
            QSettings().setValue(GROUP + QLatin1Char('/') + KEYS[index], values[index]);
        }
        QCOMPARE(can->loadSettings(GROUP), 0);
        configure(*can, [](CConfigParamT93& param) { param.setMacAddress({2, 0, 0, 1, 2, 3}); });
        runDialog(*can, 0, [](const SDialog& user) {
            QTEST(user.shown(), "shown");
            user.press(QDialogButtonBox::Ok);
        });
        QTEST(settingsOf(*can), "returned");
        const CConfigParamT93 param = driver(*can).configParam();
        QCOMPARE(can->commonInfo().port(), param.ipPortString());
        QCOMPARE(param.macAddressString(QLatin1Char(':')), "00:00:00:00:00:00"_s);
    }

    void labelsAndToolTips()
    {
        const QStringList labels = list(
            "Host Name|Socket Mode|Protocol Type|IP Address|Auto IP update|Port Number|Local IP Address|"
            "UDP receive any IP Address|CAN Baudrate [kbit/s]|Busload poll time [ms]|Busload measure interval [ms]"_s);
        const QStringList toolTips =
            list("||||'Auto IP update' is set then||attached.\nUsed for UDP mode.|from any T93\nbecause||| "_s);
        runDialog(*can, 0, [&](const SDialog& user) {
            QCOMPARE(user.dialog.windowTitle(), "T93 configuration dialog"_s);
            for (int row = 0; row < ROWS; ++row) {
                QCOMPARE(qobject_cast<QLabel*>(user.at(row, 0))->text(), labels[row]);
                QVERIFY(user.at(row)->toolTip().contains(toolTips[row].trimmed()));
            }
            QCOMPARE(can->configure(nullptr, Qt::Dialog), 0); // no second dialog opens
            QCOMPARE(QApplication::activeModalWidget(), &user.dialog);
        });
    }

    void followsTheHostsLanguage()
    {
        QTranslator german;
        QVERIFY(german.load("interfaceT93_de"_s, QStringLiteral(CIM_TRANSLATION_DIR)));
        QCoreApplication::installTranslator(&german);
        runDialog(*can, 0, [&](const SDialog& user) {
            const auto texts = [&user] { return user.dialog.windowTitle() + user.dialog.findChild<QLabel*>()->text(); };
            QCOMPARE(texts(), "T93-KonfigurationHostname"_s);
            QCoreApplication::removeTranslator(&german);
            QTRY_COMPARE(texts(), "T93 configuration dialogHost Name"_s);
            QCoreApplication::installTranslator(&german);
            QTRY_COMPARE(texts(), "T93-KonfigurationHostname"_s);
        });
    }

    void keyboardAlone()
    {
        const auto press = [](int key) { QTest::keyClick(QApplication::focusWidget(), Qt::Key(key)); };
        runDialog(*can, 0, [&](const SDialog&) {
            for (const QString& typed : list("hall|UP|DOWN|10.0.0.5| |77|192.168.1.70| |25|150|250"_s)) {
                QCoreApplication::processEvents();
                if (typed == "UP"_s || typed == "DOWN"_s) {
                    press(typed == "UP"_s ? Qt::Key_Up : Qt::Key_Down);
                } else {
                    QTest::keyClicks(QApplication::focusWidget(), typed);
                }
                press(Qt::Key_Tab);
            }
            for (const int key : {Qt::Key_Backtab, Qt::Key_Tab}) { // from OK to the local address and back
                for (int field = ROWS; field > LOCAL_ADDRESS; --field) {
                    press(key);
                }
                QCoreApplication::processEvents();
                QTest::keyClicks(QApplication::focusWidget(), key == Qt::Key_Backtab ? "10.9.0.1"_s : QString());
            }
            press(Qt::Key_Space); // OK has the focus now
        });
        QCOMPARE(settingsOf(*can), "hall|CLIENT|UDP|10.0.0.5|1|77|10.9.0.1|1|25|150|250|0"_s);
    }

    void checksWhatIsTyped_data()
    {
        const auto row = columns<QString, QString>("warning", "returned");
        const QString range = " not in valid range (min: 0, max: %1)"_s;
        const QString port = "Port Number: %1"_s + range.arg(65535), byte = range.arg(255);
        row("0|a1.x2.3.4b|255.255.255.255|33", {}, "|SERVER|TCP|1.2.3.4|0|0|255.255.255.255|0|33|800|1000|0"_s);
        row("65535|192.168.008.070|10.0.0.010|fast", {},
            "|SERVER|TCP|192.168.8.70|0|65535|10.0.0.10|0|100|800|1000|0"_s);
        row("|10.0.0.5|0.0.0.0|50", port.arg(0), DEFAULTS);
        row("65536|10.0.0.5|0.0.0.0|50", port.arg(65536), DEFAULTS);
        row("1|192.168.300.1|0.0.0.0|50", "IP Address: 192.168.>300<.1"_s + byte, DEFAULTS);
        row("1|010.256.0.|0.0.0.0|50", "IP Address: 10.>256<.0.>0<"_s + byte, DEFAULTS);
        row("70000|10.0.0.5|10.0.0.999|50", port.arg(70000) + "\nLocal IP Address: 10.0.0.>999<"_s + byte, DEFAULTS);
        row("99999||999.0.0.0|50",
            port.arg(99999) + "\nIP Address: >0<.>0<.>0<.>0<"_s + byte + "\nLocal IP Address: >999<.0.0.0"_s + byte,
            DEFAULTS);
    }
    void checksWhatIsTyped()
    {
        const QStringList typed = list(QString::fromLatin1(rowName()));
        QFETCH(QString, warning);
        const std::function<void(const SDialog&)> waysOut[] = {
            [](const SDialog& user) { user.press(QDialogButtonBox::Cancel); },
            [](const SDialog& user) { QTest::keyClick(user.at(PORT), Qt::Key_Escape); },
            [](const SDialog& user) { user.dialog.close(); }};
        for (const auto& leave : waysOut) {
            runDialog(*can, 0, [&](const SDialog& user) {
                for (int field = 0; field < typed.size(); ++field) {
                    user.type(std::array{PORT, ADDRESS, LOCAL_ADDRESS, BAUDRATE}[std::size_t(field)], typed[field]);
                }
                const QString before = user.shown();
                QCOMPARE(user.pressOk(), warning);
                QCOMPARE(user.dialog.isVisible(), !warning.isEmpty());
                QCOMPARE(user.shown(), before);
                leave(user);
                QVERIFY(!user.dialog.isVisible());
                QCOMPARE(QApplication::activeModalWidget(), nullptr);
            });
        }
        QTEST(settingsOf(*can), "returned");
    }

    void openInterfaceIsNotConfigured()
    {
        SOpenInterface open;
        runDialog(*open.can, 6, [](const SDialog&) { QFAIL("a dialog"); });
        open.can->closeCommunication();
        open.gateway.setMaxClients(2); // it may not know yet that the link was closed
        const QString before = settingsOf(*open.can);
        runDialog(*open.can, 6, [&](const SDialog& user) {
            user.type(HOST, "hall"_s);
            QCOMPARE(open.can->openCommunication(), 0); // called by another part of the host
            user.press(QDialogButtonBox::Ok);
        });
        QCOMPARE(settingsOf(*open.can), before);
    }

    void deletedMeanwhile_data()
    {
        rows({"interface", "parent", "interface behind the warning", "parent behind the warning"});
    }
    void deletedMeanwhile()
    {
        auto parent = std::make_unique<QWidget>();
        const auto remove = [&] { rowName().startsWith("parent") ? parent.reset() : can.reset(); };
        const auto user = [&](const SDialog& user) {
            if (rowName().endsWith("warning")) {
                user.type(PORT, QString());
                QVERIFY(!user.pressOk([&](QMessageBox&) { remove(); }).isEmpty());
            } else {
                remove();
            }
            QVERIFY(QApplication::activeModalWidget() == nullptr); // the dialog has closed itself
        };
        runDialog(*can, 0, user, parent.get());
        QVERIFY(!can || settingsOf(*can) == DEFAULTS);
    }

private:
    const CPrivateStore store;
    std::unique_ptr<CCanInterface> can;
};

QTEST_MAIN(ConfigDialogTest)
#include "tst_configDialog.moc"
