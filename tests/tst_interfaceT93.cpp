#include "t93Fixture.h"

using namespace vexmor::Test;

Q_DECLARE_METATYPE(vexmor::Cim::CCanMessage)

namespace
{
QList<CCanMessage> s_shown[2]; ///< Messages shown to the spy handler: received ones, sent ones.

int spy(const CCanInterface&, bool sending, const CCanMessage& message)
{
    s_shown[sending ? 1 : 0].append(message);
    return 0;
}

// The beginnings of the texts of codes 0 to 10 and 100 to 109, and of interface errors 0 to 11. The translation catalog
// has the complete texts; translationsComplete finds missing ones.
const QStringList COMMON_TEXTS =
    list("OK - no|Interface already|Interface not opened|Interface not connected|Receive queue|"
         "CAN Baudrate|No configuration change|Change of|Conversion string to enumeration|"
         "Conversion string to host|Conversion enumeration"_s);
const QStringList GATEWAY_TEXTS = list("Create TCP|Create UDP|No IP socket|TCP connect failed|UDP bind|Unknown|"
                                       "Allocation|Transmit RM Framer|Transmit socket|Attempt to send"_s);
const QStringList ERROR_TEXTS =
    list("TCP connection lost|Deframer|Rx queue full|Read from|TCP connection not|T93 CAN buffer|T93 CAN transmit|"
         "T93 CAN error|T93 CAN bus off|T93 TCP syntax|T93 TCP format|T93 TCP buffer"_s);

int busloadOf(CCanInterface& can)
{
    int percent = -1;
    return can.busload(percent) == 0 ? percent : -1;
}
} // namespace

/// The operations of an open interface, over both transports, with the simulated gateway.
class InterfaceT93Test : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { s_shown[0] = s_shown[1] = {}; }

    void textsFollowTheHostsLanguage()
    {
        QTranslator german;
        QVERIFY(german.load("interfaceT93_de"_s, QStringLiteral(CIM_TRANSLATION_DIR)));
        for (const bool isGerman : {true, false, true}) { // German before the plugin is loaded
            isGerman ? QCoreApplication::installTranslator(&german) : QCoreApplication::removeTranslator(&german);
            const std::unique_ptr<CCanInterface> can(plugin().createInterface());
            QVERIFY(can->commonInfo().description().contains(isGerman ? "Schnittstelle"_s : "Interface"_s));
            const auto isRight = [&](const QString& text, const QString& english) {
                return english.isEmpty() ? text.isEmpty() : !text.isEmpty() && text.startsWith(english) != isGerman;
            };
            for (int number = -1; number <= 110; ++number) {
                const QString english = COMMON_TEXTS.value(number) + GATEWAY_TEXTS.value(number - 100);
                QVERIFY2(isRight(can->errorCodeToString(number), english), QByteArray::number(number));
                QVERIFY2(isRight(can->interfaceErrorToString(number).trimmed(), ERROR_TEXTS.value(number)),
                         QByteArray::number(number));
            }
        }
    }

    void pluginAnswersItsContract()
    {
        QPluginLoader loader(QStringLiteral(CIM_PLUGIN_FILE));
        QVERIFY(!loader.metaData()["debug"_s].toBool()); // otherwise release builds of hosts refuse it
        QVERIFY(loader.instance()->qt_metacast("quinmark.CCanInterfacePlugin/1.1") != nullptr);
        QCOMPARE(plugin().pluginId(), 1);
        QCOMPARE((QStringList{loader.metaData()["IID"_s].toString(), loader.metaData()["className"_s].toString(),
                              plugin().pluginName(), plugin().interfaceType(), QLatin1String(canInterfaceLibIdent())}),
                 list("quinmark.CanInterfaces.CInterfaceT93Plugin|CInterfaceT93Plugin|InterfaceT93Plugin|T93|"
                      "vex CAN Interface Library for T93"_s));
        const auto add = [](const QString& address) { return plugin().addScanAddress(address); };
        QCOMPARE((QList<bool>{add("gateway"_s), add("10.0.0.9"_s), add("FE80::1"_s), add("10.0.0.9"_s)}),
                 (QList<bool>{false, true, true, true}));
        QCOMPARE(plugin().scanAddresses(), list("10.0.0.9 fe80::1"_s));
        QVERIFY(!plugin().removeScanAddress("10.0.0.8"_s));
        QVERIFY(plugin().removeScanAddress("10.0.0.9"_s) && plugin().removeScanAddress("FE80::1"_s));
        QVERIFY(plugin().scanAddresses().isEmpty());
    }

    void closedInterfaceHasDefaultsAndTakesADescription()
    {
        const std::unique_ptr<CCanInterface> can(plugin().createInterface());
        QVERIFY(can->qt_metacast("quinmark.CCanInterface/1.0") != nullptr);
        CCommonInfo info = can->commonInfo();
        QCOMPARE((QStringList{info.pluginName(), info.description(), info.port(), info.type(), can->interfaceType()}),
                 list("InterfaceT93Plugin|T93 Ethernet Interface|IP=192.168.1.70:30000:TCP|T93|T93"_s));
        QVERIFY(info.isScanable());
        QVERIFY(!can->isOpened());
        CCanMessage untouched = message(0x55);
        int percent = 7;
        can->setSpyHandler(spy);
        const QList<int> codes{can->readMessage(untouched), can->writeMessage(untouched), can->busload(percent),
                               can->resetCommunication(0), can->closeCommunication()};
        QCOMPARE(codes, (QList<int>{2, 2, 2, 2, 0}));
        for (const char* slot : {"onSocketConnected", "onConnectSvTimerTimeout"}) {
            QVERIFY(QMetaObject::invokeMethod(can.get(), slot) && !isConnected(*can));
        }
        QTest::ignoreMessage(QtWarningMsg, "vexmor::Cim::CInterfaceT93::configure: no dialog without a QApplication.");
        QCOMPARE(can->configure(nullptr, Qt::Dialog), 0);
        QVERIFY((s_shown[0] + s_shown[1]).isEmpty());
        QVERIFY(untouched == message(0x55));
        QCOMPARE(percent, 7);

        // The description sets address and port.
        const auto portAfter = [&](const QString& port) {
            info.setPort(port);
            return can->setCommonInfo(info) == 0 ? driver(*can).configParam().ipPortString() : "refused"_s;
        };
        QCOMPARE(portAfter("IP=10.0.0.5:70000:UDP"_s), "IP=10.0.0.5:4464:TCP"_s);
        QTest::ignoreMessage(QtWarningMsg,
                             "vexmor::Cim::CInterfaceT93::setCommonInfo: convert IP port string to uint failed.");
        QCOMPARE(portAfter("IP=10.0.0.6:http:TCP"_s), "IP=10.0.0.6:4464:TCP"_s);
        QCOMPARE(portAfter("COM=3"_s), "IP=10.0.0.6:4464:TCP"_s);
    }

    void messagesPassBothWays_data() { rows({"TCP", "UDP"}); }
    void messagesPassBothWays()
    {
        SOpenInterface host(rowProtocol());
        host.can->setSpyHandler(spy);
        QList<CCanMessage> sent;
        for (int value = 0; value < 256; ++value) { // each value of a byte, in all lengths of data
            sent.append(message(std::uint16_t(value * 8), QByteArray(8, char(value))));
            sent.last().setLength(value % 9); // the bytes behind it are not sent
        }
        for (const CCanMessage& one : std::as_const(sent)) {
            QCOMPARE(host.can->writeMessage(one), 0);
            host.bus.send(one);
            QCoreApplication::processEvents(); // otherwise the buffer of datagrams overflows
        }
        QCOMPARE(host.receive(sent.size()), sent);
        QCOMPARE(host.can->setSpyHandler(nullptr), 0);
        QCOMPARE(host.can->writeMessage(message(1)), 0);
        QTRY_COMPARE(host.atGateway, QList<CCanMessage>(sent) << message(1));
        QVERIFY(s_shown[0] == sent && s_shown[1] == sent);
        CCanMessage next = message(0x55);
        QCOMPARE(host.can->readMessage(next), 4);
        QVERIFY(next == message(0x55));
        QVERIFY(host.errorNumbers().isEmpty());
        host.can->setSpyHandler([](const CCanInterface& can, bool sending, const CCanMessage& one) { // removes itself
            s_shown[sending ? 1 : 0].append(one);
            auto& host = const_cast<CCanInterface&>(can);
            return sending ? host.setSpyHandler(nullptr) : host.writeMessage(one);
        });
        host.gateway.sendRaw(rmFrame(message(2)) + rmFrame(message(3)));
        QVERIFY(host.receive(2).size() == 2 && s_shown[0].size() == 257 && s_shown[1].size() == 257);
    }

    void gatewayReportsItsIdentity_data()
    {
        // Rows have the reported version and the identification; empty: the identification must not be requested.
        const auto row = columns<QByteArray, QByteArray, QString>("version", "identification", "known");
        row("1.5", hex("00000105"), {}, "1.05"_s);
        row("two digits, and another byte", hex("ffff0a6377"), {}, "10.99"_s);
        row("2.3 as identified", hex("00000203"), "T93 X SW04.10 Y", "4.10"_s);
        row("all leading zeros go", hex("00000203"), "T93 X SW002.03", "2.03"_s);
        row("identified as another device", hex("00000203"), "X93 X SW03.00", "9.09"_s);
        row("identified without a version", hex("00000203"), "T93 X 03.00", "9.09"_s);
        row("another 2.x", hex("00000204"), {}, "2.04"_s);
        row("another x.3", hex("00000303"), {}, "3.03"_s);
    }
    void gatewayReportsItsIdentity()
    {
        QFETCH(QByteArray, identification);
        SSimIdentity identity = withoutBusload(); // only the version causes requests
        identity.macAddress = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
        identity.firmwareMajor = identity.firmwareMinor = 9;
        identity.deviceText = identification;
        identity.deviceNumber = 0x3939; // the bytes are digits, too
        SOpenInterface host(CCommonInfo::eProtocolTcp, identity);
        QCOMPARE(host.can->commonInfo().interfaceId(), "00:1a:2b:3c:4d:5e"_s);
        QSignalSpy requests(&host.gateway, &CSimGateway::requestReceived);
        host.gateway.sendFrame(RM_CMD_FIRMWARE_VERSION, cell<QByteArray>("version"));
        QVERIFY(host.isAllHeard());
        QCOMPARE(host.can->writeMessage(message(1)), 0); // sent after the request for identification, if there is one
        QTRY_COMPARE(host.atGateway.size(), 1);
        QCOMPARE(requests.at(0).at(0).toInt(), int(identification.isEmpty() ? RM_CMD_TX11BIT_MSG : RM_CMD_DEVICE_ID));
        // An identification that was not requested, or a second one, changes nothing.
        host.gateway.sendFrame(RM_CMD_DEVICE_ID, "T93 X SW08.08\x01\x02");
        host.gateway.sendFrame(RM_CMD_MAC_ADDRESS, hex("aabb"));
        QVERIFY(host.isAllHeard());
        QCOMPARE(driver(*host.can).configParam().macAddressString(QLatin1Char('-')), "aa-bb-00-00-00-00"_s);
        QTEST(host.can->commonInfo().firmwareVersion(), "known");
    }

    void framesThatBreakTheRules_data()
    {
        const auto row = columns<QByteArray, QList<int>, QList<CCanMessage>>("bytes", "errors", "stored");
        row("wrong checksums", hex("430400012301650d 430400012301650d"), {1, 1}, {});
        row("length 0", hex("4300430d") + QByteArray(20, '\0'), {1}, {}); // the second marker begins a frame
        row("status 0x09", frame(0x42, hex("09")), {5, 8}, {});
        row("status 0xFF, other code", frame(0x43, hex("ff")), {5, 6, 7, 8, 9, 10, 11}, {});
        row("identifier of 16 bits or none", frame(0x00, hex("f923")) + frame(0x00), {}, {message(0x123), message(0)});
        row("nine data bytes", frame(0x00, hex("0123010203040506070809")), {}, {message(0x123)});
        row("timed, two data bytes", frame(0x01, hex("0123aabb00000001")), {}, {message(0x123, hex("aabb"))});
        row("timed, too short", frame(0x01, hex("0123aabb")), {}, {message(0x123)});
        row("29-bit and unknown", frame(0x02, hex("01020304")) + frame(0x03) + frame(0x99) + frame(0x57), {}, {});
        const QByteArray asked = frame(0x41, hex("00000203")); // the next identification is expected
        row("short replies",
            frame(0x42) + frame(0x41, hex("000007")) + asked + frame(0x40) + asked + frame(0x40, "T") + asked +
                frame(0x40, "T93 X\x01\x02") + frame(0x47),
            {}, {});
    }
    void framesThatBreakTheRules()
    {
        SOpenInterface host;
        const CCommonInfo before = host.can->commonInfo();
        const CCanMessage good = message(0x7FF, hex("010203")); // a valid message, which must be received afterwards
        host.gateway.sendRaw(cell<QByteArray>("bytes") + frame(0x00, hex("07ff010203")) + frame(0x42, hex("01")));
        const QList<CCanMessage> expected = cell<QList<CCanMessage>>("stored") << good;
        QCOMPARE(host.receive(expected.size()), expected);
        QTRY_COMPARE(host.errorNumbers(), cell<QList<int>>("errors") << 5); // error 5 comes last
        QVERIFY(host.can->isOpened());
        QVERIFY(host.can->commonInfo() == before);
    }

    void fullQueueKeepsTheOldest_data() { rows({"shown to a spy handler", "handed to the readers together"}); }
    void fullQueueKeepsTheOldest()
    {
        constexpr int CAPACITY = 10000;
        const bool isSpied = rowName().startsWith("shown");
        SOpenInterface host;
        host.can->setSpyHandler(isSpied ? spy : nullptr);
        QList<CCanMessage> expected;
        QList<int> errors;
        int number = 0;
        // Numbers of messages that arrive or, with a minus sign, are read. Each round begins at another position of the
        // ring.
        for (const int step : {9999, 1, 500, -3000, 2999, 1, 500, -3000, 3500, -CAPACITY - 1}) {
            if (step < 0) {
                QVERIFY(unread(*host.can, -step) == expected.mid(0, -step));
                expected = expected.mid(-step);
                continue;
            }
            const bool hasRoom = expected.size() < CAPACITY;
            s_shown[0].clear();
            QByteArray stream;
            for (int i = 0; i < step; ++i, ++number) {
                expected.append(message(std::uint16_t(number % 0x800), QByteArray::number(number)));
                stream += rmFrame(expected.last());
            }
            expected = expected.mid(0, CAPACITY);
            host.gateway.sendRaw(stream);
            host.gateway.sendStatus(0x01); // error 5 marks the end of the messages
            errors += hasRoom && expected.size() == CAPACITY ? QList<int>{2, 5} : QList<int>{5};
            QTRY_COMPARE(host.errorNumbers(), errors);
            QCOMPARE(s_shown[0].size(), isSpied ? step : 0); // the spy handler sees dropped messages, too
        }
    }

    void busload() // measured by the gateway, then estimated by the interface
    {
        SOpenInterface host(CCommonInfo::eProtocolTcp, withoutBusload());
        const QSignalSpy requests(&host.gateway, &CSimGateway::requestReceived);
        const auto polls = [&] { return errorNumbers(requests).count(RM_CMD_BUSLOAD); };
        const auto set = [&host](unsigned int pollTime, unsigned int rate) {
            configure(*host.can, [=](auto& param) { param.setBusloadPollTime(pollTime), param.setCanBaudrate(rate); });
        };
        const auto nextPoll = [&host] {
            int interval = 0;
            for (const QTimer* timer : host.can->findChildren<QTimer*>()) {
                interval = timer->isActive() ? timer->interval() : interval;
            }
            return interval;
        };
        const auto confirm = [&host] { host.gateway.sendFrame(RM_CMD_BUSLOAD_INTERVAL, hex("03e8")); };
        set(60000, 125);
        QCOMPARE(host.can->resetCommunication(0), 0);
        confirm();
        QTRY_COMPARE(polls(), 1); // the first poll at once, then one poll time after each answer
        set(1, 125);
        confirm(); // the answer was lost: another poll
        QTRY_COMPARE(polls(), 2);
        host.gateway.sendFrame(RM_CMD_BUSLOAD, hex("0100"));
        QTRY_COMPARE(polls(), 3);
        QVERIFY(host.isAllHeard()); // no poll by the clock alone
        set(60000, 125);
        host.gateway.sendFrame(RM_CMD_BUSLOAD, hex("fffe"));
        QTRY_COMPARE(busloadOf(*host.can), 3864); // (65279 * 74) / 125 = 38645, / 10 = 3864
        set(60000, 0);
        host.gateway.sendFrame(RM_CMD_BUSLOAD, hex("f401"));
        confirm(); // no poll: the timer runs
        QVERIFY(host.isAllHeard());
        QCOMPARE(busloadOf(*host.can), 3864);
        QCOMPARE(host.can->writeMessage(message(1)), 0);
        QTRY_COMPARE(host.atGateway.size(), 1); // all earlier requests have arrived by then
        QCOMPARE(polls(), 3);

        // A host may choose 1 ms, but 0 must not keep the event loop busy. The last time stops the estimate.
        for (const unsigned int pollTime : {1U, 0U, 0xFFFFFFFFU}) {
            set(pollTime, 50);
            QCOMPARE(host.can->resetCommunication(0), 0);
            QCOMPARE(busloadOf(*host.can), 0);
            QCOMPARE(nextPoll(), pollTime == 0 ? 100 : int(qMin(pollTime, ~0U / 2)));
        }
        // The test ends the periods itself.
        const auto loadAfter = [&](unsigned int period, unsigned int rate) {
            set(period, rate);
            QMetaObject::invokeMethod(host.can.get(), "onBusloadPollTimeout");
            return busloadOf(*host.can);
        };
        host.can->setSpyHandler(spy);
        // Refused messages do not count, but the spy handler sees them.
        for (const auto& [code, percent] : {std::pair(0, 200), {109, 100}}) {
            set(0xFFFFFFFFU, 50);
            QCOMPARE(host.can->resetCommunication(0), 0);
            host.gateway.flood(100);
            QCOMPARE(host.receive(100).size(), 100);
            host.errors->clear();
            QVERIFY(code == 0 || host.lose());
            for (int i = 0; i < 100; ++i) {
                QCOMPARE(host.can->writeMessage(message(0x100, hex("0001020304050607"))), code);
            }
            QCOMPARE(loadAfter(219, 50), percent); // 200 messages of 110 bits: just below 201 %
            QVERIFY(code != 0 || nextPoll() == 219);
            QCOMPARE(loadAfter(1024, 0x400000), percent); // a capacity that wraps to 0 changes nothing,
            QCOMPARE(loadAfter(1000, 0), percent);        // and so does a rate of 0
            QCOMPARE(loadAfter(219, 50), 0);              // each message counts once
        }
        QCOMPARE(s_shown[1].size(), 200);
    }

    void openInterfaceIsCloned()
    {
        SOpenInterface host(CCommonInfo::eProtocolUdp);
        host.can->setParent(this);
        host.can->setSpyHandler(spy);
        const CLogRecorder log(30);
        QCOMPARE(host.can->openCommunication(), 1);
        QCOMPARE(log.lines(), QByteArrayList{"30 InterfaceT93/interfaceT93: openCommunication: already opened!!"});
        const std::unique_ptr<CCanInterface> copy(host.can->clone());
        QVERIFY(copy->commonInfo() == host.can->commonInfo() && copy->parent() == nullptr);
        const QSignalSpy requests(&host.gateway, &CSimGateway::requestReceived);
        QCOMPARE(copy->openCommunication(), 0);
        QCOMPARE(copy->writeMessage(message(1)), 0);
        QCOMPARE(s_shown[1].size(), 1);                                   // the copy has the same spy handler
        QTRY_VERIFY(errorNumbers(requests).contains(RM_CMD_MAC_ADDRESS)); // and its own connection
    }
};

QTEST_GUILESS_MAIN(InterfaceT93Test)
#include "tst_interfaceT93.moc"
