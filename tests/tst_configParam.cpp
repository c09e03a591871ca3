#include "t93Fixture.h"

#include <QtWidgets>

using namespace vexmor::Test;

namespace
{
enum ERow { HOST, MODE, PROTOCOL, ADDRESS, AUTO_IP, PORT, LOCAL_ADDRESS, ANY_ADDRESS, BAUDRATE, POLL, MEASURE, ROWS };

/// The keys of the settings, those with a row in the dialog first. Lists are texts with bars, for legibility.
const QStringList KEYS = list("Hostname|Service|Protocol|IP-Address|AutoIpUpdate|Port|Local-IP-Address|UdpBindAnyIp|"
                              "CanBaudrate|BusloadPollTime|BusloadMeasureInterval|Dhcp|PluginName|Description|"
                              "FirmwareVersion|InterfaceId|InterfaceType|PortId|Scanable"_s);
const QString DEFAULTS = "|SERVER|TCP|192.168.1.70|0|30000|0.0.0.0|0|100|800|1000|0"_s;
const QString STORED = "hall|CLIENT|UDP|10.0.0.5|1|31000|10.0.0.1|1|1000|4000000000|65535|1|"
                       "InterfaceT93Plugin|stored|stored|stored|stored|stored|false"_s; // another value for each key
const QByteArray UNIT = "InterfaceT93/configParamT93: ";
constexpr unsigned int SILENT_MS = 50;

/// Stores the values of the first keys under a path.
void store(const QString& path, const QString& values)
{
    for (int index = 0; index < list(values).size(); ++index) {
        QSettings().setValue(path + KEYS[index], list(values)[index]);
    }
}

/// Returns all entries of the store under a path, as KEY=VALUE.
QStringList storedUnder(const QString& path)
{
    QSettings store;
    store.beginGroup(path);
    QStringList lines;
    for (const QString& key : store.allKeys()) {
        lines.append(key + QLatin1Char('=') + store.value(key).toString());
    }
    return lines;
}

/// Returns the settings of an interface in the order of the rows, and Dhcp.
QString settingsOf(CCanInterface& can)
{
    can.saveSettings("Group"_s);
    QStringList values;
    for (const QString& key : KEYS.mid(0, ROWS + 1)) {
        values += QSettings().value("Group/"_s + key).toString();
    }
    return values.join(QLatin1Char('|'));
}

/// Gives a closed interface a name.
void setName(CCanInterface& can, const QString& name)
{
    CCommonInfo info = can.commonInfo();
    info.setUniqueName(name);
    can.setCommonInfo(info);
}

/// The dialog as a user sees it: rows and buttons.
struct SDialog {
    QWidget* at(int row, int column = 1) const
    {
        return dialog.findChild<QGridLayout*>()->itemAtPosition(row, column)->widget();
    }
    void type(int row, const QString& text) const
    {
        QTest::mouseClick(at(row), Qt::LeftButton);
        QCoreApplication::processEvents();
        QCOMPARE(at(row)->property("selectedText").toString(), QString()); // only the Tab key selects
        QTest::keyClick(at(row), Qt::Key_A, Qt::ControlModifier);
        QTest::keyClick(at(row), Qt::Key_Delete);
        QTest::keyClicks(at(row), text);
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
                const bool isPlain = box->icon() == QMessageBox::Warning && box->textFormat() == Qt::PlainText &&
                                     box->standardButtons() == QMessageBox::Ok && box->parent() == nullptr;
                text = isPlain ? box->windowTitle() + box->text() : "another kind of box"_s;
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
    QCOMPARE(can.configure(parent, Qt::Dialog | Qt::WindowStaysOnTopHint), code);
}
} // namespace

/// The settings of a gateway: where they are stored, which values are refused, and that no other entry of the store
/// changes; and the dialog, opened by the loaded plugin and used by keys and clicks.
class ConfigParamTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QCOMPARE(vexmor::CoreLib::Logging::VxLoggingLevel(), 30); }
    void init()
    {
        m_store = std::make_unique<CPrivateStore>();
        can.reset(plugin().createInterface());
    }

    void storedValues_data()
    {
        // The row name is stored in addition to STORED. "loaded" is the resulting value.
        const auto row = columns<QString, int, QByteArray>("loaded", "code", "log");
        for (const char* same : {"Service=CLIENT", "Service=Invalid", "Protocol=NA", "Dhcp=0", "CanBaudrate=0",
                                 "BusloadMeasureInterval=0"}) {
            row(same, QString::fromLatin1(same).section(QLatin1Char('='), 1), 0, {});
        }
        row("UdpBindAnyIp=2", "1"_s, 0, {});
        row("Port=70000", "4464"_s, 0, {});
        row("Port=http", "0"_s, 0, {});
        row("BusloadMeasureInterval=65537", "1"_s, 0, {});
        row("Service=client", {}, 8,
            "30 Conversion of service 'client' to EServiceType failed!|"
            "50 could not convert 'client' to a service type.");
        row("Protocol=SCTP", {}, 8,
            "30 cim/commonInfoInterface: Conversion of protocol string = 'SCTP' to EProtoclType failed!|"
            "50 could not convert 'SCTP' to a protocol type.");
        row("IP-Address=300.1.1.1", {}, 9, "50 Could not convert '300.1.1.1' to an IP address.");
        row("IP-Address=", {}, 9, "50 Could not convert '' to an IP address.");
        row("Local-IP-Address=here", {}, 9, "50 could not convert 'here' to an IP address for local IP.");
        row("PluginName=Other", {}, 7, "30 Plugin T93 cannot change to 'Other' when loading settings!");
        row("PluginName=", {}, 7, "30 Plugin T93 cannot change to '' when loading settings!");
    }
    void storedValues()
    {
        QFETCH(int, code);
        const QStringList changed = QString::fromLatin1(rowName()).split(QLatin1Char('='));
        setName(*can, "a"_s);
        QCOMPARE(can->saveSettings("Expected"_s), 0);
        store("CanInterfaces/a/"_s, STORED);
        QSettings().setValue("CanInterfaces/a/"_s + changed[0], changed[1]);
        const CLogRecorder recorder;
        QCOMPARE(can->loadSettings({}), code);
        QTEST(recorder.lines().join('|').replace(UNIT, ""), "log");
        QCOMPARE(can->loadSettings(""_s), 0); // nothing is stored there: nothing changes
        if (code == 0) {
            store("Expected/a/"_s, STORED);
            QSettings().setValue("Expected/a/"_s + changed[0], cell<QString>("loaded"));
        }
        QSettings().setValue("a/OldKey"_s, 1); // to be removed
        QCOMPARE(can->saveSettings(""_s), 0);
        QCOMPARE(storedUnder("a"_s), storedUnder("Expected/a"_s));
        const CLogRecorder quiet(51); // above every level: nothing is logged
        QCOMPARE(can->loadSettings({}), code);
        QVERIFY(quiet.lines().isEmpty());
    }

    void valuesWithoutATextAreNotSaved()
    {
        QCOMPARE(can->saveSettings({}), 0);
        const QStringList before = storedUnder({});
        const CLogRecorder recorder;
        for (const auto& [protocol, service] : {std::pair(0, 3), {0, -1}, {3, 0}}) {
            configure(*can, [protocol = protocol, service = service](CConfigParamT93& param) {
                param.setProtocolType(static_cast<Protocol>(protocol));
                param.setServiceType(static_cast<CConfigParamT93::EServiceType>(service));
            });
            QCOMPARE(can->saveSettings({}), 10);
        }
        QCOMPARE(storedUnder({}), before);
        QCOMPARE(recorder.lines().join('|').replace(UNIT, ""),
                 QByteArray("30 Conversion of service = 3 to string failed!|50 cannot convert service =3 to string!|"
                            "30 Conversion of service = -1 to string failed!|50 cannot convert service =-1 to string!|"
                            "50 cannot convert protocol =3 to string!"));
    }

    void otherInterfacesStay() // whatever its name, an interface changes only its own group
    {
        const QStringList names = list("a|b|2F|/|a/b|a/Port|../a|a/|\\a|a\n[x]|%2F|\x01\x7f|größe 1|.|General|Key|"_s);
        QSettings().setValue("Other/key"_s, 1);
        QSettings().setValue("CanInterfaces/Key"_s, 1); // as stored by an interface without a name
        for (const QString& name : names) {
            const QStringList before = storedUnder({});
            setName(*can, name);
            can->setProperty("Hostname", name);
            QCOMPARE(can->saveSettings({}), 0);
            QCOMPARE(can->saveSettings({}), 0);
            const QStringList after = storedUnder({});
            QCOMPARE(after.size(), before.size() + KEYS.size());
            QVERIFY(std::includes(after.begin(), after.end(), before.begin(), before.end()));
        }
        for (const QString& name : names) {
            setName(*can, name);
            QCOMPARE(can->loadSettings({}), 0);
            QCOMPARE(can->property("Hostname").toString(), name);
        }
    }

    // ---- Settings as Qt properties, by which a host configures an interface without a store ----

    void properties_data()
    {
        // The row name has property, value and, if the value is refused, the reason. 4294967376 would wrap to 80.
        QTest::addColumn<bool>("none");
        const QString ipv4 = ": must be an IPv4 address like 192.168.1.70, without leading zeros|"_s;
        for (const QString& row : list(
                 "Hostname hall|IPAddress 10.0.0.5|Port 65535|Port 0|Protocol UDP|Service CLIENT|"
                 "LocalIPAddress 10.9.0.1|UdpBindAnyIp true|AutoIpUpdate true|BusloadPollTime 4294967295|"
                 "BusloadMeasureInterval 65535|CanBaudrate 1000|CanBaudrate 0|Port -1: must be 0 to 65535|"
                 "Port 65536: must be 0 to 65535|Port 4294967376: must be 0 to 65535|"
                 "BusloadPollTime 4294967296: must be 0 to 4294967295|BusloadMeasureInterval 65536: must be 0 to 65535|"
                 "CanBaudrate 33: must be 50, 100, 125, 250, 500, 1000, or 0|Protocol udp: must be TCP or UDP|"
                 "Protocol NA: must be TCP or UDP|IPAddress 010.0.0.5"_s +
                 ipv4 + "IPAddress 10.5"_s + ipv4 + "IPAddress "_s + ipv4 + "IPAddress ::1"_s + ipv4 +
                 "LocalIPAddress 10.0.0.256"_s + ipv4 + "Service Invalid: must be SERVER or CLIENT"_s)) {
            QTest::newRow(row.toLatin1()) << true;
        }
    }
    void properties()
    {
        const QString row = QString::fromLatin1(rowName());
        const QByteArray property = rowName().split(' ').first();
        const QString value = row.section(QLatin1Char(' '), 1).section(": must"_s, 0, 0);
        const QString before = can->property(property).toString();
        QVERIFY(before != value);
        const bool isTaken = !row.contains(": must"_s);
        if (!isTaken) {
            QTest::ignoreMessage(QtWarningMsg, "vexmor::Cim::CInterfaceT93: " + rowName() + '.');
        }
        QVERIFY(can->setProperty(property, value));
        QCOMPARE(can->property(property).toString(), isTaken ? value : before);
        QCOMPARE(can->commonInfo().port(), driver(*can).configParam().ipPortString());
    }

    void millisecondsSinceFrame_data() { rows({"TCP", "UDP"}); }
    void millisecondsSinceFrame()
    {
        SGateway one;
        one.gateway.setFaults(faulty(&SSimFaults::mute));
        one.gateway.setMaxClients(2); // it may not know yet that a link was closed
        can = makeInterface(one.gateway.port(), rowProtocol());
        const QSignalSpy errors(can.get(), SIGNAL(interfaceError(int)));
        const auto silence = [&] { return can->property("MillisecondsSinceFrame").toLongLong(); };
        for (int opening = 1; opening <= 2; ++opening) {
            QCOMPARE(silence(), -1);
            QCOMPARE(can->openCommunication(), 0);
            QTRY_COMPARE(one.gateway.tcpHostCount() + one.gateway.udpHostCount(), 1);
            QCOMPARE(silence(), -1);
            for (const QByteArray& any : {frame(0x99), rmFrame(message(0x123)), frame(0x42, hex("00"))}) {
                QTRY_VERIFY((one.gateway.sendRaw(any), qulonglong(silence()) < SILENT_MS)); // not -1 either
                QTRY_VERIFY(silence() >= SILENT_MS);
            }
            one.gateway.sendRaw("noise" + hex("430199000d")); // a wrong checksum
            QTRY_COMPARE(errorNumbers(errors).count(1), opening);
            one.gateway.dropLinks();
            QTRY_COMPARE(errorNumbers(errors).count(0), rowProtocol() == CCommonInfo::eProtocolTcp ? opening : 0);
            QVERIFY(silence() >= SILENT_MS);
            can->closeCommunication();
        }
    }

    // ---- The dialog ----

    void dialogReturnsValues_data()
    {
        // "typed" has a new port, address, local address and rate.
        const auto row = columns<QString, QString, QString, QString>("given", "typed", "warning", "returned");
        row("defaults", DEFAULTS, {}, {}, DEFAULTS);
        row("everything else", "hall|CLIENT|UDP|10.0.0.5|1|1|10.9.0.1|1|1000|100|3000|1"_s, {}, {},
            "hall|CLIENT|UDP|10.0.0.5|1|1|10.9.0.1|1|1000|100|3000|0"_s);
        row("unknown and too small", "|Invalid|NA|10.0.0.5|1|0|0.0.0.0|0|33|50|5|0"_s, {}, {},
            "|CLIENT|TCP|10.0.0.5|1|0|0.0.0.0|0|100|100|100|0"_s);
        const QString name = "123456789 123456789 12345678"_s;
        row("too large and too long", name + "9|SERVER|TCP|10.0.0.5|0|65535|0.0.0.0|1|125|4294967295|5000|0"_s, {}, {},
            name + "|SERVER|TCP|10.0.0.5|0|65535|0.0.0.0|1|125|3000|3000|0"_s);
        row("good", DEFAULTS, "0|a1.x2.3.4b|255.255.255.255|33"_s, {},
            "|SERVER|TCP|1.2.3.4|0|0|255.255.255.255|0|33|800|1000|0"_s);
        row("good with zeros", DEFAULTS, "65535|192.168.008.070|10.0.0.010|fast"_s, {},
            "|SERVER|TCP|192.168.8.70|0|65535|10.0.0.10|0|100|800|1000|0"_s);
        const QString range = " not in valid range (min: 0, max: %1)"_s;
        const QString port = "Port Number: %1"_s + range.arg(65535), byte = range.arg(255);
        row("no port", DEFAULTS, "|10.0.0.5|0.0.0.0|50"_s, port.arg(0), DEFAULTS);
        row("bad port", DEFAULTS, "65536|10.0.0.5|0.0.0.0|50"_s, port.arg(65536), DEFAULTS);
        row("bad address", DEFAULTS, "1|010.256.0.|0.0.0.0|50"_s, "IP Address: 10.>256<.0.>0<"_s + byte, DEFAULTS);
        row("all bad", DEFAULTS, "99999||999.0.0.0|50"_s,
            port.arg(99999) + "\nIP Address: >0<.>0<.>0<.>0<"_s + byte + "\nLocal IP Address: >999<.0.0.0"_s + byte,
            DEFAULTS);
    }
    void dialogReturnsValues()
    {
        QFETCH(QString, typed);
        store("Given/"_s, cell<QString>("given"));
        QCOMPARE(can->loadSettings("Given"_s), 0);
        configure(*can, [](CConfigParamT93& param) { param.setMacAddress({2, 0, 0, 1, 2, 3}); });
        runDialog(*can, 0, [](const SDialog& user) {
            user.type(HOST, "discarded"_s);
            user.press(QDialogButtonBox::Cancel);
        });
        runDialog(*can, 0, [&typed](const SDialog& user) {
            for (int field = 0; !typed.isEmpty() && field < 4; ++field) {
                user.type(std::array{PORT, ADDRESS, LOCAL_ADDRESS, BAUDRATE}[std::size_t(field)], list(typed)[field]);
            }
            QTEST(user.pressOk(), "warning");
            QVERIFY(!user.dialog.isVisible() || user.at(PORT)->property("text") == list(typed).first());
            QCOMPARE(user.dialog.isVisible(), !cell<QString>("warning").isEmpty());
        });
        QTEST(settingsOf(*can), "returned");
        const CConfigParamT93 param = driver(*can).configParam();
        QCOMPARE(can->commonInfo().port(), param.ipPortString());
        const bool isTaken = cell<QString>("warning").isEmpty(); // with a MAC address of zeros
        QCOMPARE(param.macAddressString(QLatin1Char(':')), isTaken ? "00:00:00:00:00:00"_s : "02:00:00:01:02:03"_s);
    }

    void textsFollowTheLanguage()
    {
        QTranslator german;
        QVERIFY(german.load("interfaceT93_de"_s, QStringLiteral(CIM_TRANSLATION_DIR)));
        runDialog(*can, 0, [&](const SDialog& user) {
            const auto texts = [&user] { // title, labels and tool tips
                QStringList labels{user.dialog.windowTitle()}, toolTips;
                for (int row = 0; row < ROWS; ++row) {
                    const auto* const label = qobject_cast<QLabel*>(user.at(row, 0));
                    labels += label->buddy() == user.at(row) ? label->text() : "label of another field"_s;
                    toolTips += user.at(row)->toolTip();
                }
                return labels + toolTips;
            };
            const QStringList english = texts();
            QCOMPARE(english.mid(0, 1 + ROWS),
                     list("T93 configuration dialog|Host Name|Socket Mode|Protocol Type|IP Address|Auto IP update|"
                          "Port Number|Local IP Address|UDP receive any IP Address|CAN Baudrate [kbit/s]|"
                          "Busload poll time [ms]|Busload measure interval [ms]"_s));
            QCOMPARE(english.count(QString()), ROWS - 3); // rows without a tool tip
            for (const bool isGerman : {true, false}) {
                isGerman ? QCoreApplication::installTranslator(&german) : QCoreApplication::removeTranslator(&german);
                QStringList expected;
                for (const QString& text : english) {
                    expected += QCoreApplication::translate("vexmor::Cim::CConfigDialogT93", text.toUtf8());
                }
                QCOMPARE(expected.first(), isGerman ? "T93-Konfiguration"_s : english.first());
                QTRY_COMPARE(texts(), expected);
            }
            QCOMPARE(user.at(POLL)->property("singleStep").toInt(), 1);
            QCOMPARE(user.at(BAUDRATE)->property("count").toInt(), 6);
            QCOMPARE(can->configure(nullptr, Qt::Dialog), 0); // no second dialog opens
            QCOMPARE(QApplication::activeModalWidget(), &user.dialog);
        });
    }

    void keyboardAlone()
    {
        const auto press = [](int key) { QTest::keyClick(QApplication::focusWidget(), Qt::Key(key)); };
        runDialog(*can, 0, [&](const SDialog&) {
            for (const QString& typed : list("hall|C|U|10.0.0.5| |77|192.168.1.70| |25|150|250"_s)) {
                QCoreApplication::processEvents();
                QTest::keyClicks(QApplication::focusWidget(), typed);
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

    void openInterfaceIsNotConfigured()
    {
        SOpenInterface open;
        const QString before = settingsOf(*open.can);
        const CCommonInfo info = open.can->commonInfo();
        for (const char* property :
             {"Hostname", "Service", "Protocol", "IPAddress", "AutoIpUpdate", "Port", "LocalIPAddress", "UdpBindAnyIp",
              "CanBaudrate", "BusloadPollTime", "BusloadMeasureInterval"}) {
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression(": not while the interface is open\\.$"_s));
            QVERIFY(open.can->setProperty(property, 1000));
        }
        runDialog(*open.can, 6, [](const SDialog&) { QFAIL("a dialog"); });
        QCOMPARE(open.can->setCommonInfo({}), 6);
        QVERIFY(open.can->commonInfo() == info);
        open.can->closeCommunication();
        open.gateway.setMaxClients(2); // it may not know yet that the link was closed
        runDialog(*open.can, 6, [&](const SDialog& user) {
            user.type(HOST, "hall"_s);
            QCOMPARE(open.can->openCommunication(), 0); // called by another part of the host
            user.press(QDialogButtonBox::Ok);
        });
        QCOMPARE(settingsOf(*open.can), before);
    }

    void deletedMeanwhile_data() { rows({"interface", "parent"}); }
    void deletedMeanwhile() // behind the warning
    {
        auto parent = std::make_unique<QWidget>();
        const auto user = [&](const SDialog& user) {
            QCOMPARE(user.dialog.parentWidget(), parent.get());
            QVERIFY(user.dialog.windowFlags().testFlag(Qt::WindowStaysOnTopHint));
            user.type(PORT, {});
            QVERIFY(!user.pressOk([&](auto&) { rowName() == "parent" ? parent.reset() : can.reset(); }).isEmpty());
            QVERIFY(QApplication::activeModalWidget() == nullptr); // the dialog has closed itself
        };
        runDialog(*can, 0, user, parent.get());
        QVERIFY(!can || settingsOf(*can) == DEFAULTS);
    }

private:
    std::unique_ptr<CPrivateStore> m_store;
    std::unique_ptr<CCanInterface> can; ///< An interface with default settings.
};

QTEST_MAIN(ConfigParamTest)
#include "tst_configParam.moc"
