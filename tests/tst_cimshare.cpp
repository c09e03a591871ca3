#include "apps/cimshare/sendRules.h"
#include "apps/cimshare/socketcandClient.h"
#include "apps/cimshare/socketcandText.h"
#include "requireTool.h"
#include "shareFixture.h"

using namespace vexmor::Test;
using namespace vexmor::Apps::Cimshare;

namespace
{
/// Messages, each as "PROTOCOL BUS IDENTIFIER".
const QString MESSAGES = "mqtt hall 000|mqtt hall 1FF|mqtt hall 7FF|t93 hall 100|t93 a:1 100|socketcand hall 100"_s;

// ---- Functions that measure what a client can reach, for the table of promised limits ----

using Measure = std::function<qint64()>;

/// Returns the time until a client is disconnected, in milliseconds, or -1.
qint64 msUntilDisconnected(SShare& share)
{
    const SClock clock;
    return share.happened("disconnected"_s, 1, 60000) ? clock.elapsed() : -1;
}

qint64 bytesReadAtOnce()
{
    auto socket = std::make_unique<QTcpSocket>();
    const QTcpSocket& ofClient = *socket;
    const CBusesByName none;
    const CSocketcandClient client(std::move(socket), none);
    return ofClient.readBufferSize();
}

/// Returns the number of bytes that a client receives before the report of its loss, after it did not read for a while.
/// Checks that no frame is missing among them, and that a T93 client that did not read receives a report, too.
qint64 bytesThatWait()
{
    SShare share("sim --socketcand 0 --t93 0 --status 1"_s);
    SClient slow(share), slower(share);
    SRawHost slowHost(share);
    slowHost.stopReading();
    slowHost.write(frame(RM_CMD_RESET));
    require(share.happened("connected"_s, 3), "all clients are connected"_s);
    slow.stopReading();
    slower.stopReading();
    share.gateway.flood(400'000); // several times as much as kernel and program buffer for a client
    const auto isLogged = [&] {
        QStringList protocols;
        for (const QJsonObject& one : share.named("lost"_s)) {
            protocols += one["subject"_s].toString();
        }
        return protocols.contains("socketcand"_s) && protocols.contains("t93"_s);
    };
    require(QTest::qWaitFor(isLogged, 20000), "the losses are logged"_s);
    require(share.happened("slowClient"_s, 2) && share.count("slowClient"_s) == 2, "slow clients are logged once"_s);
    slow.write("< echo >");
    slow.readAgain();
    slowHost.readAgain();
    const auto putUntilReported = [&] { // until buffers have room for the reports
        share.put("7F0#");
        return slow.heard.contains(" frames were lost >") && slowHost.heard.contains(frame(RM_CMD_STATUS, hex("01")));
    };
    require(QTest::qWaitFor(putUntilReported, 20000), "each loss is reported"_s);
    require(slow.hearsError("004 frames were lost"_s), "its class is that of a loss"_s);
    require(slow.hears("< echo >"), "a slow client is answered"_s);
    slow.heard.truncate(slow.heard.indexOf("\n< error "));
    int i = 0;
    for (const QString& frame : slow.frames()) {
        require(frame == floodText(i++), frame);
    }
    return slow.heard.size();
}

/// Sends requests without reading the answers, until the service stops reading the requests. Returns the number of
/// bytes written. Checks that other clients are served meanwhile and that no answer is missing in the end.
qint64 bytesOfUnreadEchoes()
{
    SShare share("--socketcand 0"_s);
    SClient good(share), deaf(share, "controlmode");
    deaf.stopReading();
    qint64 written = 0;
    do {
        written += deaf.write(QByteArray("< echo >").repeated(8192));
    } while (QTest::qWaitFor([&] { return deaf.bytesToWrite() == 0; }, 1000) && written < 32 * 1024 * 1024);
    require(good.asks("< echo >", "< echo >"), "other clients are served"_s);
    deaf.heard.clear();
    deaf.readAgain();
    require(QTest::qWaitFor([&] { return deaf.heard.size() == written; }, 60000), "each request is answered"_s);
    return written;
}

/// Returns the time until two clients that open no bus and send no whole frame are disconnected, or -1 if a client that
/// sent a frame is disconnected, too.
qint64 msOfSilentClients()
{
    SShare share("--socketcand 0 --t93 0"_s);
    const SClient noBus(share, "");
    SRawHost noFrame(share), good(share);
    noFrame.write(frame(RM_CMD_RESET).chopped(1));
    good.write(frame(RM_CMD_RESET));
    const qint64 measured = share.happened("connected"_s, 3) ? msUntilDisconnected(share) : -1;
    return share.happened("disconnected"_s, 2, 1000) && !share.happened("disconnected"_s, 3, 2000) ? measured : -1;
}

/// Measures the time until a client is disconnected that does not read any more, and sends `last`.
Measure msWithoutReading(const QByteArray& last)
{
    return [last]() -> qint64 {
        SShare share("--socketcand 0"_s);
        SClient client(share);
        client.stopReading();
        share.gateway.flood(200'000);
        require(share.happened("slowClient"_s), "the client loses frames"_s);
        client.write(last);
        return msUntilDisconnected(share);
    };
}

Measure msAfterThePcVanished(const QString& commands)
{
    return [commands]() -> qint64 {
        SShare share("--socketcand 10.9.0.1:0 --allow-send --allow 10.9.0.2"_s);
        SProgram client;
        client.start("bash"_s, {"-c"_s, QString::fromLatin1(R"(exec nsenter -t $CIM_FAR -n bash -c '
            exec 3<>/dev/tcp/10.9.0.1/%1; echo "< open %2 >%3" >&3; head -c 12 <&3; exec sleep 90')")
                                            .arg(share.port("socketcand"_s))
                                            .arg(share.name, commands)});
        require(share.happened("sends"_s) && share.count("openToAll"_s) == 0, "the commands arrive"_s);
        return run("nsenter -t $CIM_FAR -n ip link set far down"_s).exitCode == 0 ? msUntilDisconnected(share) : -1;
    };
}
} // namespace
Q_DECLARE_METATYPE(Measure)

/// The service that shares a bus: its parsers, and the program with clients of every kind.
class CimshareTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readsCommands_data()
    {
        const auto row = columns<QByteArray, QString>("element", "read");
        row("open nothing", "open", "the name of the bus is missing"_s);
        row("highest identifier", " send  7FF\t 0 ", "send 7FF#, 0 ms"_s);
        row("negative bytes", "send 1 1 ffffffffffffff80", "send 001#80, 0 ms"_s);
        row("eight bytes", "send 1 8 1 a ff 4 5 6 7 8", "send 001#010AFF0405060708, 0 ms"_s);
        row("nine bytes", "send 1 9 1 2 3 4 5 6 7 8 9", "the length must be 0 to 8"_s);
        row("a byte too few", "send 1 2 11", "the data must be as many hexadecimal bytes as the length says"_s);
        row("a byte too many", "send 1 1 11 22", "too many words"_s);
        row("29 bit", "send 800 0", "a T93 does not support 29-bit identifiers"_s);
        row("29 bit, small", "send 00000123 0", "a T93 does not support 29-bit identifiers"_s);
        row("no identifier", "send xyz 0", "the identifier is not a hexadecimal number"_s);
        row("remote", "sendrtr 123 0", "a T93 does not support remote frames"_s);
        row("ISO-TP", "isotpconf 123 124 0 0 0", "a T93 does not support ISO-TP"_s);
        row("statistics", "statistics 3600000", "statistics 000#, 3600000 ms"_s);
        row("statistics of days", "statistics 3600001", "the interval is not a valid number of milliseconds"_s);
        row("subscribe", "subscribe 1 1500001 123", "subscribe 123#, 2501 ms"_s);
        row("add", "add 0 1000 123 1 ff", "add 123#FF, 1 ms"_s);
        row("add too fast", "add 0 999 123 1 ff", "the interval is below 1 ms"_s);
        row("add for ever", "add 9999999999 0 123 1 ff", "the interval is not valid SECONDS MICROSECONDS"_s);
        row("nothing", "", "unknown command"_s);
    }
    void readsCommands()
    {
        auto command = readCommand(cell<QByteArray>("element"));
        const QString verb = command ? QString::fromLatin1(command->verb) : command.problem().text;
        const QString rest = command ? " %1, %2 ms"_s.arg(textOf(command->message)).arg(command->milliseconds) : ""_s;
        QCOMPARE(verb + rest, cell<QString>("read"));
    }

    void namesBuses_data()
    {
        const auto row = columns<QStringList, QStringList>("given", "made");
        row("letters and digits", list("hall hall2"_s), list("hall hall2"_s));
        row("other characters", {"hall 1"_s, "stage-left"_s, "Süd"_s}, list("hall1 stageleft Sd"_s));
        row("addresses", list("192.168.1.70:30000:UDP IP=10.0.0.5:30000:TCP sim"_s), list("bus1 bus2 sim"_s));
        row("too long", list("abcdefghijklmnop abcdefghijklmnopq"_s), list("abcdefghijklmnop abcdefghijklmno2"_s));
        row("name of another one", list("hall_1 hall1 hall-1"_s), list("hall12 hall1 hall13"_s));
        row("name of an address", list("bus1 10.0.0.5"_s), list("bus1 bus2"_s));
    }
    void namesBuses() { QCOMPARE(busNames(cell<QStringList>("given")), cell<QStringList>("made")); }

    void cutsElementsAnywhere()
    {
        const auto take = [](const QByteArray& stream, int cut) -> QByteArray {
            QByteArray all, begun = stream.left(cut);
            const auto onElement = [&](const QByteArray& one) { return !(all += one + '|').isEmpty(); };
            const bool isGood = takeElements(begun, onElement) && takeElements(begun += stream.mid(cut), onElement);
            return isGood ? all : "ended";
        };
        const QByteArray longest(256, 'x');
        for (int cut = 0; cut < 36; ++cut) {
            QCOMPARE(take("\n< echo >< send 1 0 ><> \r\t< a< b >", cut), QByteArray(" echo | send 1 0 || a< b |"));
            QCOMPARE(take('<' + longest + '>', 257 - cut), longest + '|');
            QCOMPARE(take('<' + longest + "x>", cut), QByteArray("ended"));
            QCOMPARE(take('<' + longest + 'x', cut), QByteArray("ended"));
            QCOMPARE(take("<>x", cut), QByteArray("ended"));
        }
    }

    /// A message of one client reaches all other clients, over each protocol.
    void allSeeTheSame()
    {
        SShare share("--socketcand 0 --t93 0 --allow-send"_s);
        SClient one(share), other(share);
        SHost host(share.port("t93"_s)), second(share.port("t93"_s));
        one.write("< send 123 1 11 >");
        QTRY_COMPARE(share.sent.join(QLatin1Char(' ')), "123#11"_s);
        QCOMPARE(host.can->writeMessage(message(0x124)), int(RC_OK));
        QTRY_COMPARE(share.sent.join(QLatin1Char(' ')), "123#11 124#"_s);
        share.put("125#");
        QTRY_COMPARE(other.seen(), "123#11 124# 125#"_s);
        QTRY_COMPARE(one.seen(), "124# 125#"_s);
        const QList<CCanMessage> all{message(0x123, hex("11")), message(0x124), message(0x125)};
        QCOMPARE(host.receive(2) + unread(*host.can), (QList<CCanMessage>{all[0], all[2]}));
        QCOMPARE(second.receive(3) + unread(*second.can), all);

        SRawHost raw(share);
        static const QRegularExpression MEASURED("430347(?!0000)[0-9a-f]{4}"_s); // the answer with a load above 0
        QTRY_VERIFY((share.put("123#"), raw.write(frame(RM_CMD_BUSLOAD)),
                     QString::fromLatin1(raw.heard.toHex()).contains(MEASURED)));
        host.can->setBaudrate(125);
        QCOMPARE(host.can->resetCommunication(1), int(RC_OK));
        QTRY_COMPARE(share.text("ignored"_s), "ignored a client's request for a reset"_s);
        QCOMPARE(share.bus.baudrate(), CSimBus().baudrate());
        QCOMPARE(share.count("warning"_s), 0);
        share.gateway.sendStatus(0x08);
        QVERIFY(one.hearsError("040 T93 CAN bus off error."_s));
        for (int i = 1; i < 1000; ++i) {
            share.gateway.sendStatus(0x08);
        }
        const auto count = [&one] {
            int all = 0;
            for (const QString& end : QString::fromLatin1(one.heard).split("bus off error."_s).mid(1)) {
                // Begins with " (N times) >" or " >".
                all += std::max(end.section(QLatin1Char(' '), 1, 1).mid(1).toInt(), 1);
            }
            return all;
        };
        QTRY_COMPARE(count(), 1000);
        QVERIFY(one.heard.count("< error ") < 5);
        QTRY_COMPARE(share.count("interfaceError"_s), one.heard.count("< error "));
        QTRY_COMPARE(raw.heard.count(frame(RM_CMD_STATUS, hex("08"))), one.heard.count("< error "));
        share.gateway.sendStatus(0x03);
        QVERIFY(one.hearsError("004 T93 CAN buffer overflow."_s));
        QVERIFY(one.hearsError("001 T93 CAN transmit timeout."_s));
        QTRY_VERIFY(raw.heard.contains(frame(RM_CMD_STATUS, hex("01"))));
        QCOMPARE(share.count("ignored"_s), 3); // not each request for a measuring interval
        one.write(QByteArray("< send 126 0 >").repeated(50));
        one.disconnectFromHost(); // before the outcomes of all its messages are known
        QTRY_COMPARE(other.heard.count("< frame 126 "), 50);
    }

    void answersStandAlone() // clients compare the result of one read with the answer
    {
        const QTemporaryDir folder;
        const QString log = writeFile(folder, "(1.0) x 7FF#\n");
        SShare share("sim:%1 --socketcand 0 --allow-send *:sim:%1:1"_s.arg(log));
        QTimer traffic;
        connect(&traffic, &QTimer::timeout, [&] { share.put("123#"); });
        traffic.start(0);
        SClient client(share, "bcmmode");
        const SClock clock;
        QVERIFY(client.asks("< rawmode >", "< ok >"));
        QCOMPARE(client.heard, QByteArray("< ok >"));
        QVERIFY2(client.hears("< ok >\n< frame 123 "), client.heard.left(300));
        QVERIFY2(clock.elapsed() > 45, QByteArray::number(clock.elapsed()));
        SClient ofTheOther(share, "bcmmode"); // and then of the other bus
        const QString other = QString("sim:"_s + log).replace(QLatin1Char('/'), QLatin1Char('_'));
        QVERIFY(ofTheOther.asks("< open " + other.toLatin1() + " >< rawmode >", "< ok >< ok >"));
        share.gateway.sendStatus(0x08);
        QVERIFY(client.hearsError("040 T93 CAN bus off error."_s));
        QVERIFY(client.asks("", "< frame 123 "));     // the traffic continues
        ofTheOther.write("< send 1 0 >< send 2 0 >"); // its error comes after all frames that waited
        QVERIFY(ofTheOther.hearsError("001 sending 002 is not allowed (--allow-send)"_s));
        QCOMPARE(ofTheOther.heard.count("< error "), 1);
        QVERIFY(!ofTheOther.heard.contains("< frame 123 "));
        QCOMPARE(errorElement("a <b>\nä"_s), QByteArray("\n< error a (b) ? >"));
    }

    void sendRules_data()
    {
        const auto row = columns<QString, QString>("rules", "allowed");
        row("none", "false"_s, {});
        row("all", "true"_s, MESSAGES);
        row("protocol", "t93"_s, "t93 hall 100|t93 a:1 100"_s);
        row("bus of each protocol", "*:hall"_s, QString(MESSAGES).remove("|t93 a:1 100"_s));
        row("identifiers", "mqtt:hall:1ff-7fe"_s, "mqtt hall 1FF"_s);
        row("one identifier", "mqtt:*:0"_s, "mqtt hall 000"_s);
        row("one of a name with colons", "t93:a:1:100"_s, "t93 a:1 100"_s);
        row("two", "socketcand,mqtt:hall:7FF"_s, "mqtt hall 7FF|socketcand hall 100"_s);
        for (const char* wrong : {"", "hall", "mqtt::100", "MQTT", "mqtt:hall:800", "mqtt:hall:2-1", "mqtt:hall:x",
                                  "mqtt:hall:1-", "mqtt:hall:1000", "mqtt,"}) {
            row(wrong, QString::fromLatin1(wrong), "not a rule"_s);
        }
    }
    void sendRules()
    {
        CSendRules rules;
        const auto failure = rules.add(cell<QString>("rules"));
        QStringList allowed;
        for (const QString& one : list(MESSAGES)) {
            const QStringList part = list(one);
            const bool isAllowed = !rules.problem(part[0], part[1], part[2].toUShort(nullptr, 16));
            allowed += isAllowed ? QStringList(one) : QStringList();
        }
        const bool isWrong = failure && failure->isUsage;
        QCOMPARE(isWrong ? "not a rule"_s : allowed.join(QLatin1Char('|')), cell<QString>("allowed"));
    }

    void sendsByRule()
    {
        SShare share("--socketcand 0 --t93 0 --send-limit 3 --allow-send socketcand:*:100-1FF --allow-send mqtt"_s);
        SClient client(share, "bcmmode");
        const SHost host(share.port("t93"_s)), second(share.port("t93"_s));
        QCOMPARE(host.can->writeMessage(message(0x100)), int(RC_OK));
        QTRY_VERIFY(share.text("refused"_s).startsWith("message from t93 127.0.0.1:"_s));
        QTRY_COMPARE(host.errorNumbers(), QList<int>{IE_CAN_TRANSMIT_TIMEOUT});
        QVERIFY(client.getsError("< add 0 1000 200 0 >", "001 sending 200 is not allowed (--allow-send)"_s));
        QVERIFY(client.asks("< rawmode >", "< ok >"));
        QVERIFY(client.getsError("< send 99 0 >", "001 sending 099 is not allowed (--allow-send)"_s));
        QVERIFY(client.getsError("< subscribe 0 0 1 >", "001 not possible in this mode"_s));
        QVERIFY(share.happened("refused"_s, 3));
        QCOMPARE(share.count("sends"_s) + share.count("openToAll"_s) + second.errorNumbers().size(), 0);
        SClient other(share);
        client.write(QByteArray("< send 100 0 >").repeated(5));
        const QString name = "socketcand 127.0.0.1:%1"_s.arg(client.localPort());
        QTRY_COMPARE(share.text("refused"_s),
                     "message from %1 refused: more than 3 messages per second (--send-limit)"_s.arg(name));
        QTRY_COMPARE(share.text("sends"_s), name + " sends"_s);
        other.write("< send 101 0 >");
        QTRY_COMPARE(share.sent.join(QLatin1Char(' ')), "100# 100# 100# 101#"_s);
        // Accepted in each of the next seconds.
        QTRY_VERIFY_WITH_TIMEOUT((client.write("< send 1FF 0 >"), share.sent.count("1FF#"_s) > 3), 15000);
        QTRY_COMPARE(share.count("sends"_s), 2);
    }

    /// A gateway with another identity answers in the place of the known one.
    void anotherGateway_data() { rows({" --pin", " --pin --protocol UDP", " --pin (stored)"}); }
    void anotherGateway()
    {
        const QTemporaryDir store;
        const bool isStored = rowName().endsWith("(stored)");
        qputenv("XDG_CONFIG_HOME", store.path().toLocal8Bit());
        SShare share("--socketcand 0 --allow-send"_s + QString::fromLatin1(rowName().replace(" (stored)", "")));
        share.gateway.setMaxClients(2); // the new link may arrive before the old one is closed
        SSimIdentity identity;
        identity.macAddress[5] = 0xab;
        if (isStored) {
            share.end();
            run(QStringLiteral(CIM_CIMCTL " add hall %1 && sed -i 's/InterfaceId=/&02:00:00:54:39:AB/' %2/*/*")
                    .arg(share.name, store.path()));
            share.arguments.last() = share.name = "hall"_s;
            share.gateway.setIdentity(identity);
            share.start();
            QVERIFY(share.happened("identified"_s));
        }
        qunsetenv("XDG_CONFIG_HOME");
        SClient client(share);
        client.write("< send 100 0 >");
        QTRY_COMPARE(share.sent, QStringList{"100#"_s});
        QCOMPARE(share.count("anotherGateway"_s), 0);
        const int noAnswers = share.count("noAnswer"_s);
        share.misbehave(&SSimFaults::mute);
        share.gateway.dropLinks();
        QVERIFY(share.happened("noAnswer"_s, noAnswers + 1)); // a link exists, but the gateway's identity is unknown
        QVERIFY(SClient(share).hearsError("040 gateway: open, no answer yet"_s));
        // The gateway may count the previous connection as a second one for some time.
        QTRY_VERIFY_WITH_TIMEOUT((client.write("< send 102 0 >"), client.heard.contains(" is not known yet >")), 10000);
        identity.macAddress[5] = 0xcd;
        share.gateway.setIdentity(identity);
        share.gateway.setFaults({});
        share.gateway.dropLinks();
        const QString text = share.text("anotherGateway"_s);
        QCOMPARE(text, "gateway: its MAC address is 02:00:00:54:39:cd, expected 02:00:00:54:39:%1"_s.arg(
                           isStored ? "AB"_s : "33"_s));
        share.sent.clear();
        client.write("< send 101 0 >");
        QVERIFY(client.hears(text.toLatin1()));
        QTRY_VERIFY(share.text("refused"_s).endsWith(text));
        QVERIFY(share.sent.isEmpty());
    }

    void reportsToTheServiceManager() // and ends although its output is not read
    {
        const SOutcome outcome = run(QStringLiteral(R"(exec timeout 20 python3 -c '
import os, socket, subprocess, time
manager = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
manager.bind(b"") # the system chooses a name
os.environ.update(NOTIFY_SOCKET="@" + manager.getsockname()[1:].decode(), WATCHDOG_USEC="300000")
reader, full = os.pipe()
os.write(full, bytes(65536))
service = subprocess.Popen(")" CIM_CIMSHARE R"( 127.0.0.1:1:UDP --socketcand 0".split(), stdout=full)
first, begin, others = manager.recv(64), time.monotonic(), []
while time.monotonic() < begin + 1: others.append(manager.recv(64))
service.terminate()
service.wait(5)
print(first, *set(others), len(others) > 5)')"));
        QCOMPARE(outcome.err, QByteArray());
        QCOMPARE(outcome.out, QByteArray("b'READY=1' b'WATCHDOG=1' True\n"));
    }

    /// Messages that were refused while the gateway did not answer are not sent later.
    void gatewayGoesAndComes()
    {
        SShare share("--socketcand 0 --t93 0 --allow-send --status 1"_s, true);
        QVERIFY(share.happened("away"_s));
        const SClock clock;
        SClient client(share, "bcmmode");
        QVERIFY(client.hearsError("040 gateway: lost, trying again"_s));
        QVERIFY2(clock.elapsed() > 250, QByteArray::number(clock.elapsed())); // the client has time to choose a mode
        QVERIFY(client.getsError("< add 0 1000 124 0 >", "001 gateway: lost, trying again"_s));
        SRawHost early(share); // turned away: the identity of the gateway is not known yet
        QTRY_COMPARE(early.state(), QAbstractSocket::UnconnectedState);
        QVERIFY(share.happened("status"_s, 4)); // another attempt to connect was made by then
        QVERIFY2(clock.elapsed() > 2500, QByteArray::number(clock.elapsed()));
        QJsonObject status = share.named("status"_s).last();
        QVERIFY(std::abs(status.take("time"_s).toDouble() - double(QDateTime::currentSecsSinceEpoch())) < 60);
        QCOMPARE(QString::fromUtf8(QJsonDocument(status).toJson(QJsonDocument::Compact)),
                 R"({"clients":1,"connected":false,"connection":"lost","event":"status","load":null,"lost":0,)"
                 R"("received":0,"sent":0,"subject":"%1","text":"lost, trying again, load unknown, 1 clients, )"
                 R"(received 0, sent 0, lost 0"})"_s.arg(share.name));
        SSimIdentity identity;
        identity.firmwareMajor = 2;
        identity.firmwareMinor = 3;
        identity.deviceText = "T93 S SW5\n\x1b[31m\x9bx1234567890abcde"; // the longest text that fits into a frame
        share.gateway.setIdentity(identity);
        share.gateway.setFaults({});
        QTRY_COMPARE(share.text("identified"_s), "02:00:00:54:39:33, firmware 5??[31m?x1234567890abcde"_s);
        QTRY_COMPARE(share.count("away"_s) + share.count("connected"_s), 1 + 1); // one client
        QTRY_VERIFY(share.sent.contains("124#"_s));

        const SHost host(share.port("t93"_s));
        const auto& info = host.can->commonInfo(); // of the version, the part that fits behind "T93 SHARED SW"
        QTRY_COMPARE(info.interfaceId() + info.firmwareVersion(), "02:00:00:54:39:335\n\x1b[31m\u009bx1234567890"_s);
        QTRY_VERIFY(share.text("status"_s).contains(", 2 clients, "_s));
        QCOMPARE(client.heard.count('<'), 1); // no error at further attempts to connect, and when the gateway answers
        client.heard.clear();
        share.misbehave(&SSimFaults::refuse);
        share.gateway.dropLinks();
        QTRY_COMPARE(host.errorNumbers(), QList<int>{IE_CAN_BUS_OFF});
        // Interface error, state of the gateway, first cyclic message.
        QTRY_COMPARE(client.heard.count("< error "), 3);
        QVERIFY(client.asks("< rawmode >", "< ok >"));
        QVERIFY(client.asks("< send 1 0 >", "< error "));
        QCOMPARE(host.can->writeMessage(message(2)), int(RC_OK));
        QTRY_COMPARE(host.errorNumbers().last(), int(IE_CAN_TRANSMIT_TIMEOUT));
        share.sent.clear();
        identity.deviceText = "T93 S SW6";
        share.gateway.setIdentity(identity);
        share.gateway.setFaults({});
        QVERIFY(share.happened("identified"_s, 2));
        client.write("< send 3 0 >");
        QTRY_COMPARE(share.sent, QStringList{"003#"_s});
        QCOMPARE(SHost(share.port("t93"_s)).can->commonInfo().firmwareVersion(), "6"_s);
    }

    void broadcastManager()
    {
        SShare share("--socketcand 0 --allow-send"_s);
        SClient client(share, "bcmmode"), watcher(share);
        client.write("< subscribe 0 0 100 >< subscribe 60 0 200 >< subscribe 0 0 400 >< unsubscribe 400 >");
        QVERIFY(client.asks("< echo >", "< echo >"));
        share.put("100#01 100#02 200#01 200#02 400# 500# 100#03");
        QTRY_COMPARE(client.seen(), "100#01 100#02 200#01 100#03"_s);

        client.write("< subscribe 0 50000 200 >< add 0 5000 123 1 11 >");
        QTRY_COMPARE(share.sent.mid(0, 3), list("123#11 123#11 123#11"_s));
        client.write("< add 0 5000 123 1 22 >"); // replaces the previous one
        QTRY_COMPARE(share.sent.last(), "123#22"_s);
        QCOMPARE(client.seen(), "100#01 100#02 200#01 100#03"_s); // the new subscription dropped the waiting frame
        client.heard.clear();
        client.write("< delete 123 >< send 7F1 0 >");
        QTRY_COMPARE(share.sent.last(), "7F1#"_s); // the messages before it have been sent, too
        QTRY_COMPARE(watcher.heard.count("< frame 123 ") + 1, share.sent.size());
        share.sent.clear();
        share.put("200#01 200#02 200#03");
        QTRY_COMPARE(client.seen(), "200#01 200#03"_s); // the newest frame, after the interval
        QVERIFY(share.sent.isEmpty());
        client.write("< add 0 2000 124 0 >");
        QTRY_VERIFY(!share.sent.isEmpty());
        QVERIFY(client.asks("< controlmode >", "< ok >"));
        QVERIFY(client.asks("< rawmode >< send 7F0 0 >", "< ok >"));
        QVERIFY(client.getsError("< controlmode >< send 7F2 0 >", "001 not possible in this mode"_s));
        share.put("100#");
        QVERIFY(client.asks("< statistics 10 >", "< stat 8 11 "));
        QVERIFY(!client.heard.contains("< frame "));
        QTRY_COMPARE(share.sent.last(), "7F0#"_s); // the cyclic message ended with its mode
        QVERIFY(client.asks("< statistics 0 >< echo >", "< echo >"));
        client.heard.clear();
        QVERIFY(watcher.asks("< controlmode >< statistics 3600000 >< statistics 20 >", "< stat "));
        QVERIFY(!client.heard.contains("< stat "));
        QVERIFY(client.asks("< statistics 10 >", "< stat "));
        QVERIFY(client.asks("< rawmode >", "< ok >"));
        client.heard.clear();
        share.put("100#");
        QVERIFY(client.hears("< frame 100 ")); // frames arrive after a pause
        QVERIFY(!client.heard.contains("< stat "));

        QVERIFY(client.asks("< bcmmode >< add 3600 0 7FF 0 >< bcmmode >", "< ok >< ok >"));
        for (int id = 0; id < 100; ++id) {
            client.write("< add 3600 0 " + QByteArray::number(id, 16) + " 0 >");
        }
        QVERIFY(client.asks("< add 3600 0 3F 0 >< echo >", "< echo >")); // replaces one
        QTRY_COMPARE(client.heard.count(" too many cyclic messages >"), 36);
    }

    void clientsBeyondTheLimit()
    {
        SShare share("--socketcand 0 --t93 0 --allow 127.0.0.1 --allow 127.0.1.0/24"_s);
        SRawHost stranger(share, "127.0.2.1");
        QVERIFY(share.happened("notAllowed"_s));
        QTRY_COMPARE(stranger.state(), QAbstractSocket::UnconnectedState);
        std::list<SClient> clients;
        while (clients.size() < 128) {
            clients.emplace_back(share);
        }
        SClient oneMore(share, "");
        QVERIFY(oneMore.hears("\n< error 127.0.0.1:"));
        QVERIFY(oneMore.hears(" rejected: too many clients from its address >"));
        QTRY_COMPARE(oneMore.state(), QAbstractSocket::UnconnectedState);
        clients.pop_back();
        QVERIFY(share.happened("disconnected"_s)); // makes room for exactly one
        clients.emplace_back(share);
        std::list<SClient> newAddress; // gets half of the other half
        while (newAddress.size() < 65) {
            newAddress.emplace_back(share, "", "127.0.1.8");
            QVERIFY(newAddress.back().hears("< ")); // one after the other
        }
        QTRY_COMPARE(share.count("full"_s), 2);
    }

    void descriptorsRunOut()
    {
        SShare share("--socketcand 0 --t93 0"_s);
        const auto pid = share.program.processId();
        const int used = QDir("/proc/%1/fd"_s.arg(pid)).entryList(QDir::NoDotAndDotDot | QDir::AllEntries).size();
        const auto setLimit = [&](int files) {
            QCOMPARE(run("prlimit --pid %1 --nofile=%2:"_s.arg(pid).arg(files)).exitCode, 0); // not the upper limit
        };
        QVERIFY(run("prlimit --nofile -o SOFT --noheadings --pid %1"_s.arg(pid)).out != "584\n"); // never lowered
        setLimit(4);
        SClient early(share, "");
        QVERIFY(share.happened("acceptError"_s, 2));
        setLimit(1000);
        QVERIFY(early.hears("< hi >"));

        setLimit(used + 16 + 4); // 16 descriptors are reserved
        std::list<SClient> clients;
        while (clients.size() < 8) {
            clients.emplace_back(share, "");
        }
        QVERIFY(clients.back().hears(" rejected: too many open files >"));
        clients.clear();
        QTRY_VERIFY(SClient(share, "").hears("< hi >"));

        const SOutcome outcome = run(QStringLiteral("ulimit -n 500; " CIM_CIMSHARE " sim --socketcand 0 --t93 0"));
        QCOMPARE(outcome.exitCode, 1);
        QVERIFY2(outcome.err.contains("584 open files are needed, but the limit is 500 "), outcome.err);
    }

    void promisedLimits_data()
    {
        const auto row = columns<Measure, qint64, qint64>("measure", "least", "most");
        row("bytes read from a client at once", bytesReadAtOnce, 1024, 1024);
        row("bytes that wait for a client", bytesThatWait, 0x100000, 0x200000); // includes bytes in the kernel
        row("bytes of unread echoes", bytesOfUnreadEchoes, 0x100000, 0x800000); // includes both kernels' buffers
        row("ms of silent clients", msOfSilentClients, 9'000, 15'000);
        row("ms to read the last answer", msWithoutReading("< open nobody >"), 9'000, 15'000);
        row("ms without reading", msWithoutReading(""), 25'000, 40'000);
        row("ms after the PC vanished", msAfterThePcVanished("< add 9 0 123 0 >< delete 123 >"_s), 25'000, 40'000);
        row("ms of cyclic sending", msAfterThePcVanished("< add 9 0 123 0 >< add 0 10000 124 0 >< delete 123 >"_s),
            4'000, 9'000);
    }
    void promisedLimits()
    {
        if (rowName().startsWith("ms ") && !qEnvironmentVariableIsSet("CIM_FAR")) {
            QSKIP("takes long: run by inNamespace, beside the other tests");
        }
        const qint64 measured = cell<Measure>("measure")();
        QVERIFY2(cell<qint64>("least") <= measured && measured <= cell<qint64>("most"), QByteArray::number(measured));
    }

    void beacon()
    {
        if (!qEnvironmentVariableIsSet("CIM_FAR")) {
            QSKIP("broadcasts only in a network namespace of its own (tests/inNamespace)");
        }
        QUdpSocket network;
        QVERIFY(network.bind(QHostAddress(QHostAddress::AnyIPv4), 42000));
        SShare share("sim --socketcand 10.9.1.1:0 --t93 0.0.0.0:0 --beacon"_s);
        // Not on 127.0.0.1: sendsByRule checks that.
        QTRY_COMPARE(share.count("openToAll"_s), 2);
        QTRY_VERIFY(network.hasPendingDatagrams());
        const SClock clock;
        QCOMPARE(QString::fromUtf8(network.receiveDatagram().data()),
                 "<CANBeacon name=\"%1\" type=\"adapter\" description=\"cimshare\"><URL>can://10.9.1.1:%2</URL>"
                 "<Bus name=\"sim\"/><Bus name=\"bus1\"/></CANBeacon>"_s.arg(QSysInfo::machineHostName())
                     .arg(share.port("socketcand"_s)));
        QTRY_VERIFY(network.hasPendingDatagrams());
        QVERIFY2(clock.elapsed() > 1500 && clock.elapsed() < 4000, QByteArray::number(clock.elapsed()));
    }

    void hostileBytes_data()
    {
        const auto row = columns<QByteArray, QByteArray>("bytes", "answer"); // empty: the connection is closed
        row("a web page", "POST / HTTP/1.1\r\n\r\n< open bus1 >< rawmode >< send 001 2 DE AD >", "");
        row("not open yet", "< echo >< send 1 0 >", "< echo >\n< error no bus is open >");
        row("unknown bus", "< open no\x1b[31mbody >< open bus1 >< send 1 0 >", "");
        row("unknown bus after another one", "< open bus1 >< open nobody >", " no such bus >");
        const auto send = [](const QByteArray& payload) { return frame(RM_CMD_TX11BIT_MSG, payload); };
        const QByteArray good = send(hex("07FF"));
        for (const char* refused : {"", "01", "0123 010203040506070809", "0800", "FFFF"}) {
            row(QByteArray("T93: ") + refused, send(hex(refused)) + good, frame(RM_CMD_STATUS, hex("20")));
        }
        row("T93: 32 bytes of data", frame(RM_CMD_TX11BIT_MSG_ALT, QByteArray(34, '\1')) + good,
            frame(RM_CMD_STATUS, hex("20"))); // TCP format error
        row("T93: a web page", "POST / HTTP/1.1\r\n\r\n" + good, "");
    }
    void hostileBytes()
    {
        QFETCH(QByteArray, answer);
        const bool isT93 = rowName().startsWith("T93");
        SShare share("--socketcand 0 --t93 0 --allow-send"_s);
        SClient good(share);
        SPeer bad(share.port(isT93 ? "t93"_s : "socketcand"_s));
        bad.write(cell<QByteArray>("bytes"));
        QTRY_VERIFY2(answer.isEmpty() ? bad.state() == SPeer::UnconnectedState : bad.heard.contains(answer), bad.heard);
        QVERIFY2(!isT93 || bad.heard == answer, bad.heard);
        share.put("123#");
        QVERIFY(good.hears("< frame 123 "));
        QTRY_COMPARE(share.sent, isT93 && !answer.isEmpty() ? list("7FF#"_s) : QStringList());
    }

    void wrongUsage_data()
    {
        const auto row = columns<QByteArray>("says"); // MQTT stands for a broker and the option that follows
        row("--t93 0", "nothing to share");
        row("sim", "nothing to serve");
        row("--check sim:/a sim:_a --all --t93 0", "'sim:/a' and 'sim:_a' would have the same name for clients");
        row("sim --t93 0 --allow 10.0.0.0/33", "'10.0.0.0/33' is not a network");
        row("sim 127.0.0.1 --t93 65535", "too few ports from 65535 on");
        row("sim --t93 0 --beacon", "--beacon requires --socketcand");
        row("sim --t93 0 --mqtt-last", "--mqtt-last requires --mqtt");
        row("sim --t93 0 --send-limit 0", "--send-limit");
        row("sim --t93 0 --metrics /no/x.prom", "/no/x.prom: No such file");
        row("sim MQTT-topic a/+", "'a/+/state' is not a topic");
        row("sim MQTT-key k", "--mqtt-cert also requires --mqtt-key");
        row("sim --mqtt a:b", "'a:b' is not a HOST[:PORT]");
        row("sim --mqtt :1", "':1' is not a HOST[:PORT]");
        row("sim MQTT-plaintext --mqtt-credentials /etc/passwd", "/etc/passwd: other users can read it");
        row("sim MQTT-credentials /usr/bin/env --mqtt-ca /nowhere", "/nowhere cannot be used: No such file");
        row("sim MQTT-credentials /nowhere", "--mqtt-plaintext allows it");
        row("sim --socketcand 192.0.2.1:0", "cannot listen on 192.0.2.1:0"); // not an address of this machine
    }
    void wrongUsage()
    {
        const QByteArray typed = rowName().replace("MQTT", "--mqtt localhost --mqtt");
        // As if a service manager had provided all programs as credentials.
        const SOutcome outcome = run(QString::fromLatin1("CREDENTIALS_DIRECTORY=/usr/bin " CIM_CIMSHARE " " + typed));
        QCOMPARE(outcome.exitCode, typed.contains("192.0.2.1") || typed.contains("/no/") ? 1 : 2);
        QVERIFY2(outcome.err.contains(cell<QByteArray>("says")), outcome.err);
    }
};

QTEST_GUILESS_MAIN(CimshareTest)
#include "tst_cimshare.moc"
