#include "t93Fixture.h"

#include <QJsonObject>
#include <QSettings>
#include <QTemporaryDir>

using namespace vexmor::Test;

Q_DECLARE_METATYPE(vexmor::Test::Protocol)

namespace
{
struct SSpied {
    bool sending;
    CCanMessage message;
};
QList<SSpied> s_spied;

int spy(const CCanInterface&, bool sending, const CCanMessage& message)
{
    s_spied.append({sending, message});
    return 0;
}

const QByteArray EIGHT_BYTES = hex("0001020304050607");
} // namespace

/// What the operations of an open interface do, over both transports, against the simulated gateway.
class InterfaceT93Test : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { s_spied.clear(); }

    void pluginAnswersItsContract()
    {
        QPluginLoader loader(QStringLiteral(CIM_PLUGIN_FILE));
        const QJsonObject metaData = loader.metaData();
        QCOMPARE(metaData[QStringLiteral("IID")].toString(),
                 QStringLiteral("quinmark.CanInterfaces.CInterfaceT93Plugin"));
        QCOMPARE(metaData[QStringLiteral("className")].toString(), QStringLiteral("CInterfaceT93Plugin"));
        QObject* const object = loader.instance();
        QCOMPARE(loader.instance(), object);
        void* const part = object->qt_metacast("quinmark.CCanInterfacePlugin/1.1");
        QVERIFY(part != nullptr && part != object);
        QCOMPARE(object->qt_metacast("CCanInterfacePlugin"), part);
        QCOMPARE(plugin().pluginName(), QStringLiteral("InterfaceT93Plugin"));
        QCOMPARE(plugin().pluginId(), 1);
        QCOMPARE(plugin().interfaceType(), QStringLiteral("T93"));
        QCOMPARE(QByteArray(canInterfaceLibIdent()), QByteArray("vex CAN Interface Library for T93"));
    }

    void scanAddressesAreKeptOnce()
    {
        const QString address = QStringLiteral("10.0.0.9");
        QVERIFY(!plugin().removeScanAddress(address));
        QVERIFY(!plugin().addScanAddress(QStringLiteral("gateway")));
        QVERIFY(plugin().addScanAddress(address) && plugin().addScanAddress(address));
        QCOMPARE(plugin().scanAddresses(), QStringList(address));
        QVERIFY(!plugin().removeScanAddress(QStringLiteral("10.0.0.8")));
        QVERIFY(plugin().removeScanAddress(address));
        QVERIFY(plugin().scanAddresses().isEmpty());
    }

    void newInterfaceHasTheDefaults()
    {
        const std::unique_ptr<CCanInterface> can(plugin().createInterface());
        QVERIFY(can->qt_metacast("quinmark.CCanInterface/1.0") != nullptr);
        QVERIFY(qobject_cast<CCanInterface*>(static_cast<QObject*>(can.get())) == can.get());
        QCOMPARE(can->commonInfo().pluginName(), QStringLiteral("InterfaceT93Plugin"));
        QCOMPARE(can->commonInfo().description(), QStringLiteral("T93 Ethernet Interface"));
        QCOMPARE(can->commonInfo().port(), QStringLiteral("IP=192.168.1.70:30000:TCP"));
        QCOMPARE(can->commonInfo().type(), QStringLiteral("T93"));
        QVERIFY(can->commonInfo().isScanable() && !can->isOpened());
        QCOMPARE(can->baudrate(), 100);
        CCanMessage untouched = message(0x55);
        int percent = 7;
        can->setSpyHandler(spy);
        QCOMPARE(can->readMessage(untouched), 2);
        QCOMPARE(can->writeMessage(untouched), 2);
        QCOMPARE(can->busload(percent), 2);
        QCOMPARE(can->resetCommunication(0), 2);
        QCOMPARE(can->closeCommunication(), 0);
        QTest::ignoreMessage(QtWarningMsg, "vexmor::Cim::CInterfaceT93::configure: no dialog without a QApplication.");
        QCOMPARE(can->configure(nullptr, Qt::Dialog), 0);
        QVERIFY(s_spied.isEmpty() && untouched == message(0x55) && percent == 7);
    }

    void texts_data()
    {
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("text");
        QTest::newRow("-1") << -1 << QString();
        QTest::newRow("0") << 0 << QStringLiteral("OK - no error.");
        QTest::newRow("4") << 4 << QStringLiteral("Receive queue empty.");
        QTest::newRow("7") << 7 << QStringLiteral("Change of pluign name not allowed.");
        QTest::newRow("11") << 11 << QString();
        QTest::newRow("99") << 99 << QString();
        QTest::newRow("100") << 100 << QStringLiteral("Create TCP socket failed.");
        QTest::newRow("103") << 103
                             << QStringLiteral("TCP connect failed. T93 not connected or used by another program.");
        QTest::newRow("109") << 109 << QStringLiteral("Attempt to send when having no TCP connection.");
        QTest::newRow("110") << 110 << QString();
    }
    void texts()
    {
        const std::unique_ptr<CCanInterface> can(plugin().createInterface());
        QFETCH(int, code);
        QTEST(can->errorCodeToString(code), "text");
        QVERIFY(can->interfaceErrorToString(-1).isEmpty() && can->interfaceErrorToString(12).isEmpty());
        QVERIFY(can->interfaceErrorToString(0).startsWith(QStringLiteral("\n\nTCP connection lost.\n\nPossible")));
        QVERIFY(can->interfaceErrorToString(11).startsWith(QStringLiteral("\n\nT93 TCP buffer overflow.\n")));
    }

    void protocols_data()
    {
        QTest::addColumn<Protocol>("protocol");
        QTest::newRow("TCP") << CCommonInfo::eProtocolTcp;
        QTest::newRow("UDP") << CCommonInfo::eProtocolUdp;
    }

    void messagesPassBothWays_data() { protocols_data(); }
    void messagesPassBothWays()
    {
        QFETCH(Protocol, protocol);
        SOpenInterface host(protocol);
        QCOMPARE(host.openCode, 0);
        QVERIFY(host.settled);
        host.can->setSpyHandler(spy);
        CCanMessage next;
        QCOMPARE(host.can->readMessage(next), 4);

        QList<CCanMessage> sent;
        for (int value = 0; value < 256; ++value) { // each value once at every place of the data
            sent.append(
                message(static_cast<std::uint16_t>(value * 8), QByteArray(value % 9, static_cast<char>(value))));
        }
        for (const CCanMessage& one : std::as_const(sent)) {
            QCOMPARE(host.can->writeMessage(one), 0);
            host.bus.send(one);
            QCoreApplication::processEvents(); // datagrams that nobody takes overflow
        }
        QVERIFY(host.receive(sent.size()) == sent);
        QTRY_COMPARE(host.atGateway.size(), sent.size());
        QVERIFY(host.atGateway == sent);
        QCOMPARE(s_spied.size(), 2 * sent.size());
        QVERIFY(s_spied.at(0).sending && s_spied.at(0).message == sent.at(0));
        QVERIFY(!s_spied.last().sending && s_spied.last().message == sent.last());
        QCOMPARE(host.can->readMessage(next), 4);
        QVERIFY(host.errorNumbers().isEmpty());
        host.can->setSpyHandler(nullptr);
    }

    void gatewayTellsWhoItIs()
    {
        SSimIdentity identity;
        identity.macAddress = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
        SOpenInterface host(CCommonInfo::eProtocolTcp, identity);
        QCOMPARE(host.can->commonInfo().interfaceId(), QStringLiteral("00:1a:2b:3c:4d:5e"));
        QCOMPARE(host.can->commonInfo().firmwareVersion(), QStringLiteral("1.05"));
        QCOMPARE(host.can->commonInfo().connectionState(), CCommonInfo::eConnected);
        QVERIFY(driver(*host.can).configParam().macAddressString(QLatin1Char('-')) ==
                QStringLiteral("00-1a-2b-3c-4d-5e"));
        // Nobody asked for an identification: it changes nothing.
        host.gateway.sendFrame(RM_CMD_DEVICE_ID, "T93 X SW09.09\x01\x02");
        host.gateway.sendStatus(0x01);
        QTRY_COMPARE(host.errors->size(), 1);
        QCOMPARE(host.can->commonInfo().firmwareVersion(), QStringLiteral("1.05"));
    }

    void firmware23IsReadFromTheIdentification()
    {
        SSimIdentity identity;
        identity.firmwareMajor = 2;
        identity.firmwareMinor = 3;
        identity.deviceText = "T93 X SW02.03";
        SOpenInterface host(CCommonInfo::eProtocolTcp, identity);
        QCOMPARE(host.can->commonInfo().firmwareVersion(), QStringLiteral("2.03"));
        // A foreign identification changes nothing but ends the waiting for one.
        identity.deviceText = "X93 X SW03.00";
        host.gateway.setIdentity(identity);
        QSignalSpy requests(&host.gateway, &CSimGateway::requestReceived);
        host.gateway.sendFrame(RM_CMD_FIRMWARE_VERSION, hex("00000203"));
        QTRY_COMPARE(requests.size(), 1);
        QCOMPARE(requests.at(0).at(0).toInt(), int(RM_CMD_DEVICE_ID));
        host.gateway.sendFrame(RM_CMD_DEVICE_ID, "T93 X SW04.00\x01\x02");
        host.gateway.sendStatus(0x01);
        QTRY_COMPARE(host.errors->size(), 1);
        QCOMPARE(host.can->commonInfo().firmwareVersion(), QStringLiteral("2.03"));
    }

    void framesThatBreakTheRules_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QList<int>>("errors");
        QTest::addColumn<QByteArray>("ids"); // of the messages stored, each with its length
        const QByteArray good = frame(0x00, hex("012301"));
        QByteArray wrongChecksum = good;
        wrongChecksum[wrongChecksum.size() - 2] = wrongChecksum[wrongChecksum.size() - 2] ^ 0x01;
        QByteArray wrongEnd = good;
        wrongEnd[wrongEnd.size() - 1] = 0x0A;
        QTest::newRow("wrong checksum") << wrongChecksum << QList<int>{1} << hex("");
        QTest::newRow("wrong end marker") << wrongEnd << QList<int>{} << hex("");
        QTest::newRow("status 0x09") << frame(0x42, hex("09")) << QList<int>{5, 8} << hex("");
        QTest::newRow("status 0xFF, other code")
            << frame(0x43, hex("ff")) << QList<int>{5, 6, 7, 8, 9, 10, 11} << hex("");
        QTest::newRow("status without payload") << frame(0x42) << QList<int>{} << hex("");
        QTest::newRow("high bits of the identifier") << frame(0x00, hex("f123")) << QList<int>{} << hex("012300");
        QTest::newRow("message without identifier") << frame(0x00) << QList<int>{} << hex("000000");
        QTest::newRow("nine data bytes") << frame(0x00, hex("0123010203040506070809")) << QList<int>{} << hex("012300");
        QTest::newRow("timed, two data bytes") << frame(0x01, hex("0123aabb00000001")) << QList<int>{} << hex("012302");
        QTest::newRow("timed, too short") << frame(0x01, hex("0123aabb")) << QList<int>{} << hex("012300");
        QTest::newRow("29-bit and unknown commands")
            << frame(0x02, hex("01020304")) + frame(0x03) + frame(0x99, hex("01")) + frame(0x57, hex("05"))
            << QList<int>{} << hex("");
        QTest::newRow("short replies") << frame(0x41, hex("0000")) + frame(0x40) + frame(0x40, "T") + frame(0x47)
                                       << QList<int>{} << hex("");
        QTest::newRow("35 payload bytes") << frame(0x00, QByteArray(35, 1)) << QList<int>{} << hex("");
        QTest::newRow("length 0") << hex("4300") + QByteArray(300, 0x11) << QList<int>{} << hex("");
    }
    void framesThatBreakTheRules()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QList<int>, errors);
        QFETCH(QByteArray, ids);
        SOpenInterface host;
        host.gateway.sendRaw(bytes + frame(0x00, hex("07ff010203"))); // and the next good one gets through
        const int stored = ids.size() / 3;
        const QList<CCanMessage> messages = host.receive(stored + 1);
        QCOMPARE(messages.size(), stored + 1);
        QVERIFY(messages.last() == message(0x7FF, hex("010203")));
        for (int i = 0; i < stored; ++i) {
            const auto& one = messages.at(i);
            const char expected[] = {char(one.id().high()), char(one.id().low()), char(one.length())};
            QCOMPARE(QByteArray(expected, 3).toHex(), ids.mid(3 * i, 3).toHex());
        }
        QTRY_COMPARE(host.errorNumbers(), errors);
        QVERIFY(host.can->isOpened());
    }

    void fullQueueKeepsTheOldest()
    {
        constexpr int CAPACITY = 10000;
        constexpr int SENT = CAPACITY + 500;
        SOpenInterface host;
        host.can->setSpyHandler(spy);
        host.gateway.flood(CAPACITY - 1);
        QTRY_COMPARE(s_spied.size(), CAPACITY - 1);
        QTest::qWait(0);
        QVERIFY(host.errorNumbers().isEmpty());
        host.gateway.flood(SENT - CAPACITY + 1);
        QTRY_COMPARE(s_spied.size(), SENT); // the spy handler sees the refused ones, too
        QTRY_COMPARE(host.errorNumbers(), QList<int>{2});
        const QList<CCanMessage> stored = host.receive(CAPACITY);
        QCOMPARE(stored.size(), CAPACITY);
        for (int i = 0; i < CAPACITY; ++i) {
            QVERIFY(stored.at(i) == s_spied.at(i).message);
        }
        CCanMessage none;
        QCOMPARE(host.can->readMessage(none), 4);
        host.gateway.flood(CAPACITY);
        QTRY_COMPARE(host.errorNumbers(), (QList<int>{2, 2})); // told again when it is full again
        host.can->setSpyHandler(nullptr);
    }

    void localBusload_data()
    {
        QTest::addColumn<unsigned int>("pollTime");
        QTest::addColumn<unsigned int>("baudrate");
        QTest::addColumn<int>("percent");
        // 100 messages of 8 data bytes have 11000 bits.
        QTest::newRow("2.2 of a 500 kbit/s second, rounded down") << 1000U << 500U << 2;
        QTest::newRow("sent and received both count") << 1000U << 50U << 44;
        QTest::newRow("a product that wraps to 0 changes nothing") << 1024U << 0x400000U << 0;
        QTest::newRow("a rate of 0 changes nothing") << 1000U << 0U << 0;
        QTest::newRow("a poll time of 0 changes nothing") << 0U << 500U << 0;
    }
    void localBusload()
    {
        QFETCH(unsigned int, pollTime);
        QFETCH(unsigned int, baudrate);
        QFETCH(int, percent);
        SSimIdentity older;
        older.measuresBusload = false;
        SOpenInterface host(CCommonInfo::eProtocolTcp, older);
        configure(*host.can, [&](CConfigParamT93& param) {
            param.setBusloadPollTime(pollTime);
            param.setCanBaudrate(baudrate);
        });
        QCOMPARE(host.can->resetCommunication(0), 0); // starts a period
        host.gateway.flood(100);
        QCOMPARE(host.receive(100).size(), 100);
        for (int i = 0; percent == 44 && i < 100; ++i) {
            QCOMPARE(host.can->writeMessage(message(0x100, EIGHT_BYTES)), 0);
        }
        // Called instead of waiting for the timer, which a period of one second would take.
        QMetaObject::invokeMethod(host.can.get(), "onBusloadPollTimeout");
        int measured = -1;
        QCOMPARE(host.can->busload(measured), 0);
        QCOMPARE(measured, percent);
    }

    void gatewayMeasuresBusload()
    {
        SSimIdentity older; // so that only this test speaks of bus load
        older.measuresBusload = false;
        SOpenInterface host(CCommonInfo::eProtocolTcp, older);
        configure(*host.can, [](CConfigParamT93& param) {
            param.setBusloadPollTime(60000);
            param.setCanBaudrate(125);
        });
        QCOMPARE(host.can->resetCommunication(0), 0);
        QTest::qWait(0);
        QSignalSpy requests(&host.gateway, &CSimGateway::requestReceived);
        const auto polls = [&] {
            int count = 0;
            for (const auto& request : std::as_const(requests)) {
                count += request.at(0).toInt() == RM_CMD_BUSLOAD ? 1 : 0;
            }
            return count;
        };
        const auto readsPercent = [&](int expected) {
            int percent = -1;
            return host.can->busload(percent) == 0 && percent == expected;
        };
        host.gateway.sendFrame(RM_CMD_BUSLOAD_INTERVAL, hex("03e8"));
        QTRY_COMPARE(polls(), 1); // asked at once, then one poll time after each answer
        host.gateway.sendFrame(RM_CMD_BUSLOAD, hex("f401"));
        QTRY_VERIFY(readsPercent(29));                                // (500 * 74) / 125 = 296, / 10 = 29
        host.gateway.sendFrame(RM_CMD_BUSLOAD_INTERVAL, hex("03e8")); // the timer runs: nothing
        host.gateway.sendStatus(0x01);
        QTRY_COMPARE(host.errors->size(), 1);
        QCOMPARE(host.can->resetCommunication(0), 0);
        QVERIFY(readsPercent(0));
        host.gateway.sendFrame(RM_CMD_BUSLOAD_INTERVAL, hex("03e8"));
        QTRY_COMPARE(polls(), 2);
        host.gateway.sendFrame(RM_CMD_BUSLOAD_INTERVAL, hex("03e8")); // the answer was lost: asked again
        QTRY_COMPARE(polls(), 3);
        configure(*host.can, [](CConfigParamT93& param) { param.setCanBaudrate(0); });
        host.gateway.sendFrame(RM_CMD_BUSLOAD, hex("f401"));
        host.gateway.sendStatus(0x01);
        QTRY_COMPARE(host.errors->size(), 2);
        QVERIFY(readsPercent(0));
    }

    void baudrates_data()
    {
        QTest::addColumn<int>("rate");
        QTest::addColumn<bool>("accepted");
        for (const int rate : {50, 100, 125, 250, 500, 1000}) {
            QTest::addRow("%d", rate) << rate << true;
        }
        for (const int rate : {0, -125, 800}) {
            QTest::addRow("%d", rate) << rate << false;
        }
    }
    void baudrates()
    {
        QFETCH(int, rate);
        QFETCH(bool, accepted);
        const std::unique_ptr<CCanInterface> can(plugin().createInterface());
        if (!accepted) {
            QTest::ignoreMessage(QtWarningMsg, qPrintable(QStringLiteral("Unsupportd baudrate: %1 kbaud").arg(rate)));
        }
        QCOMPARE(can->setBaudrate(rate), accepted);
        QCOMPARE(can->baudrate(), accepted ? rate : 100);
    }

    void openInterfaceRefusesChanges()
    {
        SOpenInterface host;
        const CCommonInfo before = host.can->commonInfo();
        CCommonInfo other;
        other.setUniqueName(QStringLiteral("other"));
        QVERIFY(!host.can->setBaudrate(800)); // without a warning: it was not looked at
        QCOMPARE(host.can->setCommonInfo(other), 6);
        QCOMPARE(host.can->configure(nullptr, {}), 6);
        QVERIFY(host.can->commonInfo() == before);
        const std::unique_ptr<CCanInterface> copy(host.can->clone());
        QVERIFY(!copy->isOpened());
        QVERIFY(copy->commonInfo() == before);
        QCOMPARE(driver(*copy).configParam().port(), host.gateway.port());
    }

    void descriptionSetsAddressAndPort()
    {
        const std::unique_ptr<CCanInterface> can(plugin().createInterface());
        CCommonInfo info = can->commonInfo();
        info.setPort(QStringLiteral("IP=10.0.0.5:70000:UDP"));
        QCOMPARE(can->setCommonInfo(info), 0);
        QCOMPARE(driver(*can).configParam().ipPortString(), QStringLiteral("IP=10.0.0.5:4464:TCP"));
        info.setPort(QStringLiteral("IP=10.0.0.6:http:TCP"));
        QTest::ignoreMessage(QtWarningMsg,
                             "vexmor::Cim::CInterfaceT93::setCommonInfo: convert IP port string to uint failed.");
        QCOMPARE(can->setCommonInfo(info), 0);
        QCOMPARE(driver(*can).configParam().ipPortString(), QStringLiteral("IP=10.0.0.6:4464:TCP"));
        info.setPort(QStringLiteral("COM=3"));
        QCOMPARE(can->setCommonInfo(info), 0);
        QCOMPARE(driver(*can).configParam().ipPortString(), QStringLiteral("IP=10.0.0.6:4464:TCP"));
    }

    void settingsGoToTheDefaultGroup()
    {
        const QTemporaryDir folder;
        QSettings::setDefaultFormat(QSettings::IniFormat);
        QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, folder.path());
        QCoreApplication::setOrganizationName(QStringLiteral("Vexmor"));
        QCoreApplication::setApplicationName(QStringLiteral("tst_interfaceT93"));

        const std::unique_ptr<CCanInterface> can(plugin().createInterface());
        CCommonInfo info = can->commonInfo();
        info.setUniqueName(QStringLiteral("stage left"));
        info.setPort(QStringLiteral("IP=10.0.0.5:31000:TCP"));
        can->setCommonInfo(info);
        QCOMPARE(can->saveSettings(QString()), 0);
        QCOMPARE(QSettings().value(QStringLiteral("CanInterfaces/stage left/IP-Address")).toString(),
                 QStringLiteral("10.0.0.5"));

        const std::unique_ptr<CCanInterface> loaded(plugin().createInterface());
        CCommonInfo name = loaded->commonInfo();
        name.setUniqueName(QStringLiteral("stage left"));
        loaded->setCommonInfo(name);
        QCOMPARE(loaded->loadSettings(QString()), 0);
        QVERIFY(loaded->commonInfo() == can->commonInfo());
        QCOMPARE(driver(*loaded).configParam().port(), std::uint16_t(31000));
        QSettings().setValue(QStringLiteral("CanInterfaces/stage left/Service"), QStringLiteral("client"));
        CCommonInfo before = loaded->commonInfo();
        QCOMPARE(loaded->loadSettings(QString()), 8);
        QVERIFY(loaded->commonInfo() == before);
    }
};

QTEST_GUILESS_MAIN(InterfaceT93Test)
#include "tst_interfaceT93.moc"
