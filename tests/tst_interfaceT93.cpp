#include "t93Fixture.h"

#include <QJsonObject>

using namespace vexmor::Test;

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

/// A host of a gateway that by itself says nothing of bus load, at the start of a period.
struct SBusloadHost : SOpenInterface {
    SBusloadHost(unsigned int pollTime, unsigned int baudrate) : SOpenInterface(CCommonInfo::eProtocolTcp, older())
    {
        configure(*can, [&](CConfigParamT93& param) {
            param.setBusloadPollTime(pollTime);
            param.setCanBaudrate(baudrate);
        });
        can->resetCommunication(0);
    }
    static SSimIdentity older()
    {
        SSimIdentity identity;
        identity.measuresBusload = false;
        return identity;
    }
    int percent() const
    {
        int percent = -1;
        return can->busload(percent) == 0 ? percent : -1;
    }
};
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
        QCOMPARE(loader.metaData()["IID"_s].toString(), "quinmark.CanInterfaces.CInterfaceT93Plugin"_s);
        QCOMPARE(loader.metaData()["className"_s].toString(), "CInterfaceT93Plugin"_s);
        QVERIFY(!loader.metaData()["debug"_s].toBool()); // or release hosts refuse it
        QObject* const object = loader.instance();
        QCOMPARE(loader.instance(), object);
        void* const part = object->qt_metacast("quinmark.CCanInterfacePlugin/1.1");
        QVERIFY(part != nullptr && part != object);
        QCOMPARE(object->qt_metacast("CCanInterfacePlugin"), part);
        QCOMPARE(plugin().pluginName(), "InterfaceT93Plugin"_s);
        QCOMPARE(plugin().pluginId(), 1);
        QCOMPARE(plugin().interfaceType(), "T93"_s);
        QCOMPARE(QByteArray(canInterfaceLibIdent()), QByteArray("vex CAN Interface Library for T93"));
    }

    void scanAddressesAreKeptOnce()
    {
        const QString address = "10.0.0.9"_s;
        QVERIFY(!plugin().removeScanAddress(address));
        QVERIFY(!plugin().addScanAddress("gateway"_s));
        QVERIFY(plugin().addScanAddress(address) && plugin().addScanAddress(address));
        QCOMPARE(plugin().scanAddresses(), QStringList(address));
        QVERIFY(!plugin().removeScanAddress("10.0.0.8"_s));
        QVERIFY(plugin().removeScanAddress(address));
        QVERIFY(plugin().scanAddresses().isEmpty());
    }

    void newInterfaceHasTheDefaults()
    {
        const std::unique_ptr<CCanInterface> can(plugin().createInterface());
        QVERIFY(can->qt_metacast("quinmark.CCanInterface/1.0") != nullptr);
        QVERIFY(qobject_cast<CCanInterface*>(static_cast<QObject*>(can.get())) == can.get());
        const CCommonInfo info = can->commonInfo();
        QCOMPARE((QStringList{info.pluginName(), info.description(), info.port(), info.type()}),
                 list("InterfaceT93Plugin|T93 Ethernet Interface|IP=192.168.1.70:30000:TCP|T93"_s, '|'));
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
        QVERIFY(QMetaObject::invokeMethod(can.get(), "onSocketConnected") && !isConnected(*can));
        QTest::ignoreMessage(QtWarningMsg, "vexmor::Cim::CInterfaceT93::configure: no dialog without a QApplication.");
        QCOMPARE(can->configure(nullptr, Qt::Dialog), 0);
        QVERIFY(s_spied.isEmpty() && untouched == message(0x55) && percent == 7);
    }

    void texts_data()
    {
        const auto row = columns<int, QString>("code", "text");
        row("below all", -1, {});
        row("OK", 0, "OK - no error."_s);
        row("as misspelled as ever", 7, "Change of pluign name not allowed."_s);
        row("between", 11, {});
        row("connect", 103, "TCP connect failed. T93 not connected or used by another program."_s);
        row("above all", 110, {});
    }
    void texts()
    {
        const std::unique_ptr<CCanInterface> can(plugin().createInterface());
        QFETCH(int, code);
        QTEST(can->errorCodeToString(code), "text");
        QVERIFY(can->interfaceErrorToString(-1).isEmpty() && can->interfaceErrorToString(12).isEmpty());
        QVERIFY(can->interfaceErrorToString(0).startsWith("\n\nTCP connection lost.\n\nPossible"_s));
    }

    void messagesPassBothWays_data()
    {
        const auto row = columns<bool>("isUdp");
        row("TCP", false);
        row("UDP", true);
    }
    void messagesPassBothWays()
    {
        QFETCH(bool, isUdp);
        SOpenInterface host(isUdp ? CCommonInfo::eProtocolUdp : CCommonInfo::eProtocolTcp);
        QCOMPARE(host.openCode, 0);
        QVERIFY(host.settled);
        host.can->setSpyHandler(spy);
        CCanMessage next;
        QCOMPARE(host.can->readMessage(next), 4);

        QList<CCanMessage> sent;
        for (int value = 0; value < 256; ++value) { // each value once at every place of the data
            sent.append(message(std::uint16_t(value * 8), QByteArray(value % 9, char(value))));
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
        QCOMPARE(host.can->setSpyHandler(nullptr), 0);
        const int shown = s_spied.size();
        QCOMPARE(host.can->writeMessage(message(1)), 0);
        QCOMPARE(s_spied.size(), shown);
    }

    void refusedMessagesAreShownButNotCounted()
    {
        SOpenInterface host;
        host.can->setSpyHandler(spy);
        SSimFaults refusing;
        refusing.refuse = true;
        host.gateway.setFaults(refusing);
        host.gateway.dropLinks();
        QTRY_COMPARE(host.errorNumbers(), QList<int>{0});
        s_spied.clear();
        for (int i = 0; i < 100; ++i) { // would be 2 percent
            QCOMPARE(host.can->writeMessage(message(0x100, hex("0001020304050607"))), 109);
        }
        QCOMPARE(s_spied.size(), 100);
        QVERIFY(s_spied.last().sending);
        QMetaObject::invokeMethod(host.can.get(), "onBusloadPollTimeout");
        int percent = -1;
        QCOMPARE(host.can->busload(percent), 0);
        QCOMPARE(percent, 0);
        host.can->setSpyHandler(nullptr);
    }

    void gatewayTellsWhoItIs()
    {
        SSimIdentity identity;
        identity.macAddress = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
        SOpenInterface host(CCommonInfo::eProtocolTcp, identity);
        const auto version = [&host] { return host.can->commonInfo().firmwareVersion(); };
        QCOMPARE(host.can->commonInfo().interfaceId(), "00:1a:2b:3c:4d:5e"_s);
        QCOMPARE(driver(*host.can).configParam().macAddressString(QLatin1Char('-')), "00-1a-2b-3c-4d-5e"_s);
        QCOMPARE(version(), "1.05"_s);
        // Nobody asked for an identification: it changes nothing.
        host.gateway.sendFrame(RM_CMD_DEVICE_ID, "T93 X SW09.09\x01\x02");
        QVERIFY(host.isAllHeard());
        QCOMPARE(version(), "1.05"_s);
        // Version 2.3 is read from the identification.
        identity.deviceText = "T93 X SW02.03";
        host.gateway.setIdentity(identity);
        host.gateway.sendFrame(RM_CMD_FIRMWARE_VERSION, hex("00000203"));
        QTRY_COMPARE(version(), "2.03"_s);
        // A foreign identification changes nothing but ends the waiting for one.
        identity.deviceText = "X93 X SW03.00";
        host.gateway.setIdentity(identity);
        QSignalSpy requests(&host.gateway, &CSimGateway::requestReceived);
        host.gateway.sendFrame(RM_CMD_FIRMWARE_VERSION, hex("00000203"));
        QTRY_COMPARE(errorNumbers(requests), QList<int>{RM_CMD_DEVICE_ID});
        host.gateway.sendFrame(RM_CMD_DEVICE_ID, "T93 X SW04.00\x01\x02");
        QVERIFY(host.isAllHeard());
        QCOMPARE(version(), "2.03"_s);
    }

    void framesThatBreakTheRules_data()
    {
        const auto row = columns<QByteArray, QList<int>, QByteArray>("bytes", "errors", "stored"); // identifier, length
        row("wrong checksum", hex("430400012301650d"), {1}, {});
        row("status 0x09", frame(0x42, hex("09")), {5, 8}, {});
        row("status 0xFF, other code", frame(0x43, hex("ff")), {5, 6, 7, 8, 9, 10, 11}, {});
        row("status without payload", frame(0x42), {}, {});
        row("high bits of the identifier", frame(0x00, hex("f123")), {}, hex("012300"));
        row("message without identifier", frame(0x00), {}, hex("000000"));
        row("nine data bytes", frame(0x00, hex("0123010203040506070809")), {}, hex("012300"));
        row("timed, two data bytes", frame(0x01, hex("0123aabb00000001")), {}, hex("012302"));
        row("timed, too short", frame(0x01, hex("0123aabb")), {}, hex("012300"));
        row("29-bit and unknown", frame(0x02, hex("01020304")) + frame(0x03) + frame(0x99) + frame(0x57), {}, {});
        const QByteArray asked = frame(0x41, hex("00000203")); // an identification is expected
        row("short replies",
            frame(0x41, hex("0000")) + asked + frame(0x40) + asked + frame(0x40, "T") + asked +
                frame(0x40, "T93 X\x01\x02") + frame(0x47),
            {}, {});
    }
    void framesThatBreakTheRules()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QList<int>, errors);
        SOpenInterface host;
        host.gateway.sendRaw(bytes + frame(0x00, hex("07ff010203"))); // and the next good one gets through
        QByteArray stored;
        CCanMessage next;
        QTRY_VERIFY([&] {
            while (host.can->readMessage(next) == 0 && next.id().value() != 0x7FF) {
                stored.append(char(next.id().high())).append(char(next.id().low())).append(char(next.length()));
            }
            return next == message(0x7FF, hex("010203"));
        }());
        QTEST(stored, "stored");
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
        const QList<CCanMessage> stored = unread(*host.can);
        QCOMPARE(stored.size(), CAPACITY);
        for (int i = 0; i < CAPACITY; ++i) {
            QVERIFY(stored.at(i) == s_spied.at(i).message);
        }
        host.gateway.flood(CAPACITY);
        QTRY_COMPARE(host.errorNumbers(), (QList<int>{2, 2})); // told again when it is full again
        host.can->setSpyHandler(nullptr);
    }

    void localBusload_data()
    {
        const auto row = columns<unsigned int, unsigned int, int>("pollTime", "baudrate", "percent");
        // 100 messages of 8 data bytes have 11000 bits.
        row("2.2 of a 500 kbit/s second, rounded down", 1000, 500, 2);
        row("sent and received both count", 1000, 50, 44);
        row("a product that wraps to 0 changes nothing", 1024, 0x400000, 22);
        row("a rate of 0 changes nothing", 1000, 0, 22);
        row("a poll time of 0 changes nothing", 0, 500, 22);
    }
    void localBusload()
    {
        QFETCH(unsigned int, pollTime);
        QFETCH(unsigned int, baudrate);
        QFETCH(int, percent);
        SBusloadHost host(1000, 50);
        const auto endPeriod = [&] { // when the test says so
            QMetaObject::invokeMethod(host.can.get(), "onBusloadPollTimeout");
            for (QTimer* timer : host.can->findChildren<QTimer*>()) {
                QVERIFY(!timer->isActive() || timer->interval() >= 100); // none keeps the event loop busy
                timer->stop();
            }
        };
        endPeriod();
        host.gateway.flood(100);
        QCOMPARE(host.receive(100).size(), 100);
        endPeriod();
        QCOMPARE(host.percent(), 22);
        configure(*host.can, [&](CConfigParamT93& param) {
            param.setBusloadPollTime(pollTime);
            param.setCanBaudrate(baudrate);
        });
        host.gateway.flood(100);
        QCOMPARE(host.receive(100).size(), 100);
        for (int i = 0; percent == 44 && i < 100; ++i) {
            QCOMPARE(host.can->writeMessage(message(0x100, hex("0001020304050607"))), 0);
        }
        endPeriod();
        QCOMPARE(host.percent(), percent);
    }

    void gatewayMeasuresBusload()
    {
        SBusloadHost host(60000, 125);
        QTest::qWait(0);
        QSignalSpy requests(&host.gateway, &CSimGateway::requestReceived);
        const auto polls = [&] {
            return std::count_if(requests.begin(), requests.end(),
                                 [](const auto& request) { return request.at(0).toInt() == RM_CMD_BUSLOAD; });
        };
        host.gateway.sendFrame(RM_CMD_BUSLOAD_INTERVAL, hex("03e8"));
        QTRY_COMPARE(polls(), 1); // asked at once, then one poll time after each answer
        host.gateway.sendFrame(RM_CMD_BUSLOAD, hex("f401"));
        QTRY_COMPARE(host.percent(), 29);                             // (500 * 74) / 125 = 296, / 10 = 29
        host.gateway.sendFrame(RM_CMD_BUSLOAD_INTERVAL, hex("03e8")); // the timer runs: nothing
        QVERIFY(host.isAllHeard());
        QCOMPARE(host.can->resetCommunication(0), 0);
        QCOMPARE(host.percent(), 0);
        host.gateway.sendFrame(RM_CMD_BUSLOAD_INTERVAL, hex("03e8"));
        QTRY_COMPARE(polls(), 2);
        host.gateway.sendFrame(RM_CMD_BUSLOAD_INTERVAL, hex("03e8")); // the answer was lost: asked again
        QTRY_COMPARE(polls(), 3);
        configure(*host.can, [](CConfigParamT93& param) { param.setCanBaudrate(0); });
        host.gateway.sendFrame(RM_CMD_BUSLOAD, hex("f401"));
        QVERIFY(host.isAllHeard());
        QCOMPARE(host.percent(), 0);
    }

    void baudrates()
    {
        const std::unique_ptr<CCanInterface> can(plugin().createInterface());
        for (const int rate : {50, 100, 125, 250, 500, 1000}) {
            QVERIFY(can->setBaudrate(rate));
            QCOMPARE(can->baudrate(), rate);
        }
        for (const int rate : {0, -125, 800}) {
            QTest::ignoreMessage(QtWarningMsg, qPrintable("Unsupportd baudrate: %1 kbaud"_s.arg(rate)));
            QVERIFY(!can->setBaudrate(rate));
            QCOMPARE(can->baudrate(), 1000);
        }
    }

    void openInterfaceRefusesChanges()
    {
        SOpenInterface host(CCommonInfo::eProtocolUdp);
        host.can->setSpyHandler(spy);
        const CCommonInfo before = host.can->commonInfo();
        CCommonInfo other;
        other.setUniqueName("other"_s);
        QVERIFY(!host.can->setBaudrate(800)); // without a warning: it was not looked at
        QCOMPARE(host.can->setCommonInfo(other), 6);
        QCOMPARE(host.can->configure(nullptr, {}), 6);
        QVERIFY(host.can->commonInfo() == before);
        const std::unique_ptr<CCanInterface> copy(host.can->clone());
        QVERIFY(!copy->isOpened());
        QVERIFY(copy->commonInfo() == before);
        QCOMPARE(driver(*copy).configParam().port(), host.gateway.port());
        QCOMPARE(copy->openCommunication(), 0);
        QCOMPARE(copy->writeMessage(message(1)), 0);
        QCOMPARE(s_spied.size(), 1); // the copy has the spy handler, too
    }

    void descriptionSetsAddressAndPort()
    {
        const std::unique_ptr<CCanInterface> can(plugin().createInterface());
        const auto portAfter = [&](const QString& port) {
            CCommonInfo info = can->commonInfo();
            info.setPort(port);
            return can->setCommonInfo(info) == 0 ? driver(*can).configParam().ipPortString() : "refused"_s;
        };
        QCOMPARE(portAfter("IP=10.0.0.5:70000:UDP"_s), "IP=10.0.0.5:4464:TCP"_s);
        QTest::ignoreMessage(QtWarningMsg,
                             "vexmor::Cim::CInterfaceT93::setCommonInfo: convert IP port string to uint failed.");
        QCOMPARE(portAfter("IP=10.0.0.6:http:TCP"_s), "IP=10.0.0.6:4464:TCP"_s);
        QCOMPARE(portAfter("COM=3"_s), "IP=10.0.0.6:4464:TCP"_s);
    }

    void settingsGoToTheDefaultGroup()
    {
        const CPrivateStore folder;
        const std::unique_ptr<CCanInterface> can(plugin().createInterface());
        CCommonInfo info = can->commonInfo();
        info.setUniqueName("stage left"_s);
        info.setPort("IP=10.0.0.5:31000:TCP"_s);
        can->setCommonInfo(info);
        QCOMPARE(can->saveSettings({}), 0);
        QCOMPARE(QSettings().value("CanInterfaces/stage left/IP-Address"_s).toString(), "10.0.0.5"_s);
        configure(*can, [](CConfigParamT93& param) { param.setPort(1); });
        QCOMPARE(can->loadSettings({}), 0);
        QVERIFY(can->commonInfo() == info);
        QCOMPARE(driver(*can).configParam().port(), std::uint16_t(31000));
        QSettings().setValue("CanInterfaces/stage left/Service"_s, "client"_s);
        QCOMPARE(can->loadSettings({}), 8);
        QVERIFY(can->commonInfo() == info);
    }
};

QTEST_GUILESS_MAIN(InterfaceT93Test)
#include "tst_interfaceT93.moc"
