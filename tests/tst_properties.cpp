#include "t93Fixture.h"

using namespace vexmor::Test;

/// The parameters of an interface as Qt properties, by which hosts set it up without a store.
class PropertiesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void values_data()
    {
        const auto row = columns<QVariant, QString, QString>("value", "taken", "port"); // empty: refused
        const QString before = "192.168.1.70:30000:TCP"_s;
        row("Hostname", "hall"_s, "hall"_s, before);
        row("IPAddress", "10.0.0.5"_s, "10.0.0.5"_s, "10.0.0.5:30000:TCP"_s);
        for (const char* text : {"010.0.0.5", "10.5", "gateway", "", "::1", "10.0.0.256"}) {
            row(QByteArray("IPAddress ") + text, QString::fromLatin1(text), {}, before);
        }
        row("Port", 65535, "65535"_s, "192.168.1.70:65535:TCP"_s);
        row("Port as text", "31000"_s, "31000"_s, "192.168.1.70:31000:TCP"_s);
        row("Port 70000", 70000, {}, before);
        row("Port -1", -1, {}, before);
        row("Port that wraps to 80", (qlonglong(1) << 32) + 80, {}, before);
        row("Protocol", "UDP"_s, "UDP"_s, "192.168.1.70:30000:UDP"_s);
        row("Protocol udp", "udp"_s, {}, before);
        row("Protocol NA", "NA"_s, {}, before);
        row("Service", "CLIENT"_s, "CLIENT"_s, before);
        row("Service Invalid", "Invalid"_s, {}, before);
        row("LocalIPAddress", "10.9.0.1"_s, "10.9.0.1"_s, before);
        row("LocalIPAddress x", "x"_s, {}, before);
        row("UdpBindAnyIp", true, "true"_s, before);
        row("AutoIpUpdate", true, "true"_s, before);
        row("BusloadPollTime", 4294967295LL, "4294967295"_s, before);
        row("BusloadPollTime too long", 4294967296LL, {}, before);
        row("BusloadMeasureInterval", 65535, "65535"_s, before);
        row("BusloadMeasureInterval 65536", 65536, {}, before);
        row("CanBaudrate", 1000, "1000"_s, before);
        row("CanBaudrate 0", 0, "0"_s, before);
        row("CanBaudrate 33", 33, {}, before);
    }
    void values()
    {
        QFETCH(QVariant, value);
        QFETCH(QString, taken);
        const QByteArray property = QByteArray(QTest::currentDataTag()).split(' ').first();
        const QString asSaid = taken.isEmpty() ? value.toString() : taken;
        const CPrivateStore store;
        SOpenInterface host; // one that is open, beside one that is closed
        const std::unique_ptr<CCanInterface> can(plugin().createInterface());
        const QVariant before = can->property(property);
        QVERIFY(before.isValid() && before != value);
        if (taken.isEmpty()) {
            QTest::ignoreMessage(QtWarningMsg,
                                 QRegularExpression("^vexmor::Cim::CInterfaceT93: \\w+ .*: must be .*\\.$"_s));
        }
        QVERIFY(can->setProperty(property, value));
        QCOMPARE(can->property(property).toString(), taken.isEmpty() ? before.toString() : taken);
        QFETCH(QString, port);
        QCOMPARE(can->commonInfo().port(), "IP="_s + port);

        const QVariant kept = host.can->property(property);
        const CCommonInfo info = host.can->commonInfo();
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(": not while the interface is open\\.$"_s));
        QVERIFY(host.can->setProperty(property, value));
        QCOMPARE(host.can->property(property), kept);
        QVERIFY(host.can->commonInfo() == info);

        // The property is the parameter that the store has under the same name, whatever is written there.
        const std::unique_ptr<CCanInterface> other(plugin().createInterface());
        can->saveSettings("g"_s);
        other->loadSettings("g"_s);
        QCOMPARE(other->property(property), can->property(property));
    }

    void millisecondsSinceFrame_data() { rows({"TCP", "UDP"}); }
    void millisecondsSinceFrame()
    {
        constexpr int SILENT_MS = 50;
        SGateway one;
        SSimFaults mute;
        mute.mute = true;
        one.gateway.setFaults(mute);
        const auto can = makeInterface(one.gateway.port(), rowProtocol());
        const QSignalSpy errors(can.get(), SIGNAL(interfaceError(int)));
        const auto silence = [&] { return can->property("MillisecondsSinceFrame").toLongLong(); };
        const auto countsAgain = [&](const QByteArray& bytes) { // from a moment after this call
            QElapsedTimer sinceCall;
            sinceCall.start();
            one.gateway.sendRaw(bytes);
            return QTest::qWaitFor([&] { return silence() <= sinceCall.elapsed(); });
        };
        QByteArray wrongChecksum = frame(0x00, hex("0123"));
        wrongChecksum[wrongChecksum.size() - 2] = char(wrongChecksum.at(wrongChecksum.size() - 2) ^ 1);

        QCOMPARE(silence(), -1);
        for (int opening = 1; opening <= 2; ++opening) {
            QCOMPARE(can->openCommunication(), 0);
            QTRY_COMPARE(one.gateway.tcpHostCount() + one.gateway.udpHostCount(), 1);
            one.gateway.sendRaw("noise" + wrongChecksum);
            QTRY_COMPARE(errorNumbers(errors).count(1), 2 * opening - 1);
            QCOMPARE(silence(), -1);

            one.gateway.sendRaw(frame(0x99)); // of any command
            QTRY_VERIFY(silence() >= 0);
            for (const QByteArray& bytes : {frame(0x00, hex("0123")), frame(0x42, hex("00"))}) {
                QTRY_VERIFY(silence() >= SILENT_MS);
                QVERIFY(countsAgain(bytes));
            }
            QTRY_VERIFY(silence() >= SILENT_MS);
            one.gateway.sendRaw(wrongChecksum);
            QTRY_COMPARE(errorNumbers(errors).count(1), 2 * opening);
            QVERIFY(silence() >= SILENT_MS);

            can->closeCommunication();
            QCOMPARE(silence(), -1);
            one.gateway.dropLinks();
        }
    }

    void millisecondsSinceFrameGoOnAfterALoss()
    {
        constexpr int SILENT_MS = 50;
        SOpenInterface host;
        QVERIFY(host.settled);
        host.misbehave([](SSimFaults& faults) { faults.mute = true; });
        const auto silence = [&] { return host.can->property("MillisecondsSinceFrame").toLongLong(); };
        QTRY_VERIFY(silence() >= SILENT_MS);
        const QSignalSpy regained(&host.gateway, &CSimGateway::hostConnected);
        host.gateway.dropLinks();
        QTRY_VERIFY(!regained.isEmpty() && isConnected(*host.can));
        QVERIFY(silence() >= SILENT_MS);
    }

    void gatewayThatMeasuresIsHeardWithEachPoll_data() { rows({"TCP", "UDP"}); }
    void gatewayThatMeasuresIsHeardWithEachPoll()
    {
        SGateway one;
        const auto can = makeInterface(one.gateway.port(), rowProtocol());
        constexpr int POLL_MS = 100;
        const auto silence = [&] { return can->property("MillisecondsSinceFrame").toLongLong(); };
        can->setProperty("BusloadPollTime", POLL_MS);
        QCOMPARE(can->openCommunication(), 0);
        for (int poll = 0; poll < 3; ++poll) { // the bus is idle
            QTRY_VERIFY(silence() >= POLL_MS / 2);
            QTRY_VERIFY(silence() < POLL_MS / 2);
        }
    }
};

QTEST_GUILESS_MAIN(PropertiesTest)
#include "tst_properties.moc"
