#include "apps/cimshare/sendRules.h"
#include "apps/cimshare/socketcandClient.h"
#include "apps/cimshare/socketcandText.h"
#include "requireTool.h"
#include "shareFixture.h"

#include <QNetworkDatagram>
#include <QUdpSocket>

#include <sys/resource.h>
#include <sys/un.h>
#include <unistd.h>

using namespace vexmor::Test;
using namespace vexmor::Apps::Cimshare;

namespace
{
/// Messages, each as "PROTOCOL BUS IDENTIFIER".
const QString MESSAGES = "mqtt hall 000|mqtt hall 1FF|mqtt hall 7FF|t93 hall 100|t93 a:1 100|socketcand hall 100"_s;

bool isWhole(const QStringList& frames)
{
    int i = 0;
    return std::all_of(frames.begin(), frames.end(), [&](const QString& frame) { return frame == floodText(i++); });
}

/// The program stunnel with a configuration of docs/sharing.md, changed to use files of one folder and ports of
/// 127.0.0.1.
struct STunnel : SProgram {
    /// `first` is the first line of the configuration; `changes` are sed commands for it.
    STunnel(const QTemporaryDir& folder, const QString& first, const QString& changes)
    {
        setProcessChannelMode(MergedChannels);
        connect(this, &QProcess::readyRead, [this] { said += readAll(); });
        start("bash"_s, {"-c"_s, R"(cd %1 && exec stunnel4 -fd 0 < <(printf 'foreground = yes\npid =\ndebug = info\n'
            sed -n '/^%2/,/^```/{/^```/q;p}' %3 | sed -e 's|/etc/stunnel/||; s/accept = .*/accept = 127.0.0.1:0/' -e '%4'))"_s
                                     .arg(folder.path(), first, QStringLiteral(CIM_SHARING_DOCUMENT), changes)});
        require(port("t93"_s) != 0, "stunnel listens"_s);
    }
    ~STunnel() override { stop(); } // ends the process while `said` still exists
    quint16 port(const QString& service)
    {
        const QRegularExpression bound(R"(\[%1\] \(FD=\d+\) bound to 127.0.0.1:(\d+))"_s.arg(service));
        const auto number = [&] { return bound.match(QString::fromLatin1(said)).captured(1).toUShort(); };
        (void)QTest::qWaitFor([&] { return number() != 0; });
        return number();
    }
    QByteArray said;
};

// ---- Functions that measure what a client can reach, for the table of promised limits ----

using Measure = std::function<qint64()>;

/// Returns the time until a client is disconnected, in milliseconds, or -1.
qint64 msUntilDisconnected(SShare& share)
{
    const SClock clock;
    return share.happened("disconnected"_s, 1, 60000) ? clock.elapsed() : -1;
}

/// Lets a client stop reading, and sends frames until it loses some. Returns false if it loses none.
bool fill(SShare& share, SClient& client, int frames = 200'000)
{
    client.stopReading();
    share.gateway.flood(frames);
    return share.happened("slowClient"_s);
}

qint64 cyclicMessages()
{
    SShare share("--socketcand 0 --allow-send"_s);
    SClient client(share, "bcmmode");
    (void)client.asks("< add >", "< error "); // the pause before the first frames is over, so errors arrive at once
    for (int id = 0; id < 100; ++id) {
        client.write("< add 3600 0 " + QByteArray::number(id, 16) + " 0 >");
    }
    return client.asks("< echo >", "< echo >") ? 100 - client.heard.count(" too many ") : -1;
}

qint64 linesOfClients()
{
    SShare share("--socketcand 0 --allow 127.0.1.1"_s);
    const auto isTurnedAway = [](const SClient& one) { return one.state() == QAbstractSocket::UnconnectedState; };
    for (int i = 0; i < 10; ++i) {
        std::list<SClient> strangers; // fewer than fit into the queue of a listening socket
        while (strangers.size() < 40) {
            strangers.emplace_back(share, "");
        }
        (void)QTest::qWaitFor([&] { return std::all_of(strangers.begin(), strangers.end(), isTurnedAway); });
    }
    require(share.happened("leftOut"_s), "the other lines are counted, also when no line follows"_s);
    share.events = share.events.mid(0, share.events.indexOf(share.named("leftOut"_s).value(0)));
    return share.count("notAllowed"_s);
}

qint64 bytesReadAtOnce()
{
    SServer server;
    SPeer peer(server.serverPort());
    (void)server.waitForNewConnection(5000);
    std::unique_ptr<QTcpSocket> socket(server.nextPendingConnection());
    socket->setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, 1024 * 1024);
    qint64 most = 0, all = 0;
    QObject::connect(socket.get(), &QTcpSocket::readyRead, [&, bytes = socket.get()] {
        most = std::max(most, bytes->bytesAvailable());
        all += bytes->bytesAvailable();
    });
    const CBusesByName none;
    const CSocketcandClient client(std::move(socket), none);
    peer.write(QByteArray(200'000, ' '));
    (void)peer.waitForBytesWritten(5000); // all bytes arrive before the client reads
    return QTest::qWaitFor([&] { return all == 200'000; }) ? most : -1;
}

/// Returns the number of bytes that a client receives before the report of its loss, after it did not read for a while.
/// Checks that no frame is missing among them, that a client that reads loses nothing, and that a T93 client that did
/// not read receives a report, too.
qint64 bytesThatWait()
{
    constexpr int FRAMES = 400'000; // several times as much as kernel and program buffer for a client
    SShare share("--socketcand 0 --t93 0 --status 1"_s);
    SClient slow(share), quick(share);
    SRawHost slowHost(share);
    slowHost.stopReading();
    slowHost.write(frame(RM_CMD_RESET));
    if (!share.happened("connected"_s, 3) || !fill(share, slow, FRAMES) ||
        !QTest::qWaitFor([&] { return quick.heard.count('>') > FRAMES; }, 30000)) {
        return -1;
    }
    require(quick.frames().size() == FRAMES && isWhole(quick.frames()), "a quick client loses nothing"_s);
    const auto isLogged = [&] {
        const QList<QJsonObject> lost = share.named("lost"_s);
        return std::any_of(lost.begin(), lost.end(), [](const auto& one) { return one["subject"_s] == "t93"_s; });
    };
    require(QTest::qWaitFor(isLogged), "the loss of the T93 client is logged"_s);
    slow.write("< echo >");
    slow.readAgain();
    slowHost.readAgain();
    const auto putUntilReported = [&] { // until buffers have room for the reports
        share.put("7F0#");
        return slow.heard.contains(" frames were lost >") && slowHost.heard.contains(frame(RM_CMD_STATUS, hex("01")));
    };
    require(QTest::qWaitFor(putUntilReported), "each loss is reported"_s);
    require(slow.hearsError("004 frames were lost"_s), "its class is that of a loss"_s);
    require(slow.heard.contains("< echo >"), "a slow client is answered"_s);
    slow.heard.truncate(slow.heard.indexOf("\n< error "));
    return isWhole(slow.frames()) ? slow.heard.size() : -1;
}

/// Sends requests without reading the answers, until the service stops reading the requests. Returns the number of
/// bytes written, or -1 if other clients were not served meanwhile or an answer is missing in the end.
qint64 bytesOfUnread(SShare& share, SPeer& deaf, const QByteArray& request, const QByteArray& answer)
{
    constexpr qint64 ENDLESS = 32 * 1024 * 1024;
    SClient good(share);
    deaf.stopReading();
    qint64 written = 0;
    do {
        written += deaf.write(request.repeated(8192));
    } while (QTest::qWaitFor([&] { return deaf.bytesToWrite() == 0; }, 1000) && written < ENDLESS);
    const bool isOthersServed = good.asks("< echo >", "< echo >");
    deaf.heard.clear();
    deaf.readAgain();
    const auto isAnswered = [&] { return deaf.heard.size() / answer.size() == written / request.size(); };
    return isOthersServed && QTest::qWaitFor(isAnswered, 30000) ? written : -1;
}

qint64 bytesOfUnreadEchoes()
{
    SShare share("--socketcand 0"_s);
    SClient deaf(share, "controlmode");
    return bytesOfUnread(share, deaf, "< echo >", "< echo >");
}

qint64 bytesOfUnreadAddresses()
{
    SShare share("--socketcand 0 --t93 0"_s);
    SRawHost deaf(share);
    return bytesOfUnread(share, deaf, frame(RM_CMD_MAC_ADDRESS), frame(RM_CMD_MAC_ADDRESS, QByteArray(6, 0)));
}

qint64 msToChooseABus()
{
    SShare share("--socketcand 0"_s);
    const SClient client(share, "");
    return share.happened("connected"_s) ? msUntilDisconnected(share) : -1;
}

qint64 msToSendAFrame()
{
    SShare share("--t93 0"_s);
    SRawHost silent(share), good(share);
    silent.write(frame(RM_CMD_RESET).chopped(1));
    good.write(frame(RM_CMD_RESET));
    const qint64 measured = share.happened("connected"_s, 2) ? msUntilDisconnected(share) : -1;
    return share.happened("disconnected"_s, 2, 2000) ? -1 : measured;
}

/// Measures the time until a client is disconnected that does not read any more, and sends `last`.
Measure msWithoutReading(const QByteArray& last)
{
    return [last]() -> qint64 {
        SShare share("--socketcand 0"_s);
        SClient client(share);
        const bool isFull = fill(share, client);
        client.write(last);
        return isFull ? msUntilDisconnected(share) : -1;
    };
}

Measure msAfterThePcVanished(const QString& commands = {})
{
    return [commands]() -> qint64 {
        SShare share("--socketcand 10.9.0.1:0 --allow-send"_s);
        SProgram client;
        client.start("bash"_s, {"-c"_s, QString::fromLatin1(R"(exec nsenter -t $CIM_FAR -n bash -c '
            exec 3<>/dev/tcp/10.9.0.1/%1; echo "< open %2 >%3" >&3; head -c 12 <&3; exec sleep 90')")
                                            .arg(share.port("socketcand"_s))
                                            .arg(share.name, commands)});
        QByteArray heard;
        const bool isOpen = QTest::qWaitFor([&] { return (heard += client.readAll()) == "< hi >< ok >"; });
        require(commands.isEmpty() || QTest::qWaitFor([&] { return !share.sent.isEmpty(); }), "the client sends"_s);
        const bool isPulled = run("nsenter -t $CIM_FAR -n ip link set far down"_s).exitCode == 0;
        return isOpen && isPulled ? msUntilDisconnected(share) : -1;
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
        row("raw mode", " rawmode ", "rawmode"_s);
        row("send nothing", "send 0 0", "send 000#"_s);
        row("short bytes", "send 123 3 1 a ff", "send 123#010AFF"_s);
        row("negative bytes", "send 1 1 ffffffffffffff80", "send 001#80"_s);
        row("eight bytes", "send 1 8 1 2 3 4 5 6 7 8", "send 001#0102030405060708"_s);
        row("nine bytes", "send 1 9 1 2 3 4 5 6 7 8 9", "the length must be 0 to 8"_s);
        row("a byte too few", "send 1 2 11", "the data must be as many hexadecimal bytes as the length says"_s);
        row("a byte too many", "send 1 1 11 22", "too many words"_s);
        row("29 bit", "send 800 0", "a T93 does not support 29-bit identifiers"_s);
        row("29 bit, small", "send 00000123 0", "a T93 does not support 29-bit identifiers"_s);
        row("no identifier", "send xyz 0", "the identifier is not a hexadecimal number"_s);
        row("remote", "sendrtr 123 0", "a T93 does not support remote frames"_s);
        row("ISO-TP", "isotpmode", "a T93 does not support ISO-TP"_s);
        row("statistics", "statistics 1000", "statistics 1000 ms"_s);
        row("statistics of days", "statistics 3600001", "the interval is not a valid number of milliseconds"_s);
        row("subscribe", "subscribe 1 500001 123", "subscribe 1501 ms 123#"_s);
        row("add", "add 0 1000 123 1 ff", "add 1 ms 123#FF"_s);
        row("add too fast", "add 0 999 123 1 ff", "the interval is below 1 ms"_s);
        row("add with an interval below 0", "add 0 -1000 123 1 ff", "the interval is not valid SECONDS MICROSECONDS"_s);
        row("add for ever", "add 9999999999 0 123 1 ff", "the interval is not valid SECONDS MICROSECONDS"_s);
        row("nothing", "", "unknown command"_s);
    }
    void readsCommands()
    {
        auto command = readCommand(cell<QByteArray>("element"));
        QString read = command ? QString::fromLatin1(command->verb + ' ' + command->busName) : command.problem().text;
        read += command && command->milliseconds != 0 ? " %1 ms"_s.arg(command->milliseconds) : QString();
        const bool hasMessage = command && QByteArray("send subscribe add").contains(command->verb);
        read += hasMessage ? QLatin1Char(' ') + textOf(command->message) : QString();
        QCOMPARE(read.simplified(), cell<QString>("read"));
    }

    void namesBuses_data()
    {
        const auto row = columns<QStringList, QStringList>("given", "made");
        row("letters and digits", list("hall hall2"_s), list("hall hall2"_s));
        row("other characters", {"hall 1"_s, "stage-left"_s, "Süd"_s}, list("hall1 stageleft Sd"_s));
        row("addresses", list("192.168.1.70:30000:UDP IP=10.0.0.5:30000:TCP sim"_s), list("bus1 bus2 sim"_s));
        row("nothing left", list("- ??"_s), list("bus1 bus2"_s));
        row("too long", list("abcdefghijklmnop abcdefghijklmnopq"_s), list("abcdefghijklmnop abcdefghijklmno2"_s));
        row("name of another one", list("hall_1 hall1 hall-1"_s), list("hall12 hall1 hall13"_s));
        row("name of an address", list("bus1 10.0.0.5"_s), list("bus1 bus2"_s));
    }
    void namesBuses() { QCOMPARE(busNames(cell<QStringList>("given")), cell<QStringList>("made")); }

    void cutsElementsAnywhere()
    {
        const QByteArray stream = "\n< echo >< send 1 0 ><> \r\t< a< b >";
        const auto take = [](QByteArray& begun, QByteArray& all) {
            return takeElements(begun, [&](const QByteArray& one) { return !(all += one + '|').isEmpty(); });
        };
        QByteArray all;
        for (int cut = 0; cut < stream.size(); ++cut, all.clear()) {
            QByteArray begun = stream.left(cut);
            QVERIFY(take(begun, all));
            QVERIFY(take(begun += stream.mid(cut), all));
            QCOMPARE(all, QByteArray(" echo | send 1 0 || a< b |"));
        }
        QByteArray longest = '<' + QByteArray(255, 'x'), tooLong = longest + 'x', ended = tooLong + "x>",
                   outside = "<>x";
        QVERIFY(take(longest, all));
        QVERIFY(!take(tooLong, all));
        QVERIFY(!take(ended, all));
        QVERIFY(!take(outside, all));
    }

    /// A message of one client reaches all other clients, over each protocol.
    void allSeeTheSame()
    {
        SShare share("--socketcand 0 --t93 0 --allow-send"_s);
        SClient one(share), other(share);
        SHost host(share.port("t93"_s)), second(share.port("t93"_s));
        const auto& info = host.can->commonInfo();
        QTRY_COMPARE(info.interfaceId() + QLatin1Char(' ') + info.firmwareVersion(), "02:00:00:54:39:33 1.05"_s);

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
        const auto isLoadMeasured = [&] {
            share.put("123#");
            raw.write(frame(RM_CMD_BUSLOAD));
            const QByteArray load = raw.heard.mid(raw.heard.lastIndexOf(hex("430347")) + 3, 2);
            return raw.heard.contains(hex("430347")) && load.size() == 2 && load != hex("0000");
        };
        QTRY_VERIFY(isLoadMeasured());
        const auto rate = share.bus.baudrate();
        host.can->setBaudrate(125);
        QCOMPARE(host.can->resetCommunication(1), int(RC_OK));
        QVERIFY(share.happened("ignored"_s, 3)); // the first ones are bit rates at the start
        QVERIFY(share.bus.baudrate() == rate);
        share.gateway.sendStatus(0x08);
        QVERIFY(one.hearsError("040 T93 CAN bus off error."_s));
        share.gateway.sendStatus(0x03);
        QVERIFY(one.hearsError("004 T93 CAN buffer overflow."_s));
        QVERIFY(one.hearsError("001 T93 CAN transmit timeout."_s));
    }

    void answersStandAlone() // clients compare the result of one read with the answer
    {
        const QTemporaryDir folder;
        const QString log = writeFile(folder, "(1.0) x 7FF#\n");
        SShare share("sim:%1 --socketcand 0"_s.arg(log));
        QTimer traffic;
        connect(&traffic, &QTimer::timeout, [&] { share.put("123#"); });
        traffic.start(0);
        SClient client(share, "bcmmode");
        QVERIFY(client.asks("< rawmode >", "< ok >"));
        const SClock clock;
        QCOMPARE(client.heard, QByteArray("< ok >"));
        QVERIFY(client.hears("< ok >\n< frame 123 "));
        QVERIFY2(clock.elapsed() > 25, QByteArray::number(clock.elapsed()));
        share.name = QString("sim:"_s + log).replace(QLatin1Char('/'), QLatin1Char('_'));
        SClient ofTheOther(share);
        client.heard.clear();
        QVERIFY(client.hears("< frame 123 "));
        ofTheOther.write("< send 800 0 >"); // its error comes after all frames that waited
        QVERIFY(ofTheOther.hearsError("001 a T93 does not support 29-bit identifiers"_s));
        QVERIFY(!ofTheOther.heard.contains("< frame 123 "));
    }

    void sendRules_data()
    {
        const auto row = columns<QString, QString>("rules", "allowed");
        row("none", "false"_s, {});
        row("all", "true"_s, MESSAGES);
        row("protocol", "t93"_s, "t93 hall 100|t93 a:1 100"_s);
        row("bus", "mqtt:hall"_s, "mqtt hall 000|mqtt hall 1FF|mqtt hall 7FF"_s);
        row("bus of each protocol", "*:hall"_s,
            "mqtt hall 000|mqtt hall 1FF|mqtt hall 7FF|t93 hall 100|socketcand hall 100"_s);
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
        if (const auto failure = rules.add(cell<QString>("rules"))) {
            QVERIFY(failure->isUsage);
            QCOMPARE(cell<QString>("allowed"), "not a rule"_s);
            return;
        }
        QStringList allowed;
        for (const QString& one : list(MESSAGES)) {
            const QStringList part = list(one);
            const bool isAllowed = !rules.problem(part[0], part[1], part[2].toUShort(nullptr, 16));
            allowed += isAllowed ? QStringList(one) : QStringList();
        }
        QCOMPARE(allowed.join(QLatin1Char('|')), cell<QString>("allowed"));
    }

    void sendsByRule()
    {
        SShare share("--socketcand 0 --t93 0 --send-limit 3 --allow-send socketcand:*:100-1FF"_s);
        SClient client(share, "bcmmode");
        const SHost host(share.port("t93"_s));
        QCOMPARE(host.can->writeMessage(message(0x100)), int(RC_OK));
        QVERIFY(share.happened("refused"_s));
        QTRY_VERIFY(share.text("refused"_s).startsWith("message from t93 127.0.0.1:"_s));
        QTRY_COMPARE(host.errorNumbers(), QList<int>{IE_CAN_TRANSMIT_TIMEOUT});
        QVERIFY(client.getsError("< add 0 1000 200 0 >", "001 sending 200 is not allowed (--allow-send)"_s));
        QVERIFY(client.asks("< rawmode >", "< ok >"));
        QVERIFY(client.getsError("< send 99 0 >", "001 sending 099 is not allowed (--allow-send)"_s));
        QVERIFY(client.getsError("< subscribe 0 0 1 >", "001 not possible in this mode"_s));
        QVERIFY(share.happened("refused"_s, 3));
        QCOMPARE(share.count("sends"_s) + share.count("openToAll"_s), 0);
        SClient other(share);
        client.write(QByteArray("< send 100 0 >").repeated(5));
        QVERIFY(share.happened("refused"_s, 5));
        const QString name = "socketcand 127.0.0.1:%1"_s.arg(client.localPort());
        QTRY_COMPARE(share.text("refused"_s),
                     "message from %1 refused: more than 3 messages per second (--send-limit)"_s.arg(name));
        QTRY_COMPARE(share.count("sends"_s), 1);
        QTRY_COMPARE(share.text("sends"_s), name + " sends"_s);
        other.write("< send 101 0 >");
        QTRY_COMPARE(share.sent.join(QLatin1Char(' ')), "100# 100# 100# 101#"_s);
        // Accepted in the next second, when the limit does not apply any more.
        QTRY_VERIFY((client.write("< send 1FF 0 >"), share.sent.contains("1FF#"_s)));
        QTRY_COMPARE(share.count("sends"_s), 2);
    }

    /// A gateway with another identity answers in the place of the known one.
    void anotherGateway_data() { rows({"", " --pin", " --pin --protocol UDP", " --pin (stored)"}); }
    void anotherGateway()
    {
        const QTemporaryDir store;
        const bool isPinned = rowName().contains("--pin"), isStored = rowName().endsWith("(stored)");
        qputenv("XDG_CONFIG_HOME", store.path().toLocal8Bit());
        SShare share("--socketcand 0 --allow-send"_s + QString::fromLatin1(rowName().replace(" (stored)", "")));
        share.gateway.setMaxClients(2); // the new link may arrive before the old one is closed
        SSimIdentity other;
        other.macAddress[5] ^= 1;
        if (isStored) {
            share.end();
            const SOutcome stored =
                run(QStringLiteral(CIM_CIMCTL " add hall %1 && sed -i "
                                              "s/InterfaceId=/InterfaceId=02:00:00:54:39:33/ %2/*/*")
                        .arg(share.name, store.path()));
            QVERIFY2(stored.exitCode == 0, stored.err);
            share.arguments.first() = share.name = "hall"_s;
            share.gateway.setIdentity(other);
            share.start();
        } else {
            SClient early(share);
            early.write("< send 100 0 >");
            QTRY_COMPARE(share.sent, QStringList{"100#"_s});
            QCOMPARE(share.count("anotherGateway"_s), 0);
            const int noAnswers = share.count("noAnswer"_s);
            share.misbehave(&SSimFaults::mute);
            share.gateway.dropLinks();
            if (isPinned) { // a link exists, but the gateway's identity is unknown
                QVERIFY(share.happened("noAnswer"_s, noAnswers + 1));
                const auto isRefused = [&early] {
                    early.write("< send 102 0 >");
                    return early.heard.contains("gateway: its MAC address is not known yet >");
                };
                // The gateway may count the previous connection as a second one for some time.
                QTRY_VERIFY_WITH_TIMEOUT(isRefused(), 10000);
            }
            share.gateway.setIdentity(other);
            share.gateway.setFaults({});
            share.gateway.dropLinks();
        }
        qunsetenv("XDG_CONFIG_HOME");
        QVERIFY(share.happened("anotherGateway"_s));
        QTRY_COMPARE(share.text("anotherGateway"_s),
                     "gateway: its MAC address is 02:00:00:54:39:32, expected 02:00:00:54:39:33"_s);
        SClient client(share);
        share.sent.clear();
        client.write("< send 101 0 >");
        if (isPinned) {
            QVERIFY(client.hears(share.text("anotherGateway"_s).toLatin1()));
            QTRY_VERIFY(share.text("refused"_s).endsWith(share.text("anotherGateway"_s)));
            QVERIFY(share.sent.isEmpty());
        } else {
            QTRY_COMPARE(share.sent, QStringList{"101#"_s});
        }
    }

    void reportsToTheServiceManager()
    {
        const QTemporaryDir folder;
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        qstrncpy(address.sun_path, folder.filePath("notify"_s).toLocal8Bit(), sizeof address.sun_path);
        const int manager = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0);
        QCOMPARE(::bind(manager, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        QStringList reports;
        const auto isReported = [&](int count) {
            char text[64];
            for (ssize_t size = 0; (size = ::recv(manager, text, sizeof text, 0)) > 0;) {
                reports += QString::fromLatin1(text, int(size));
            }
            return reports.size() >= count;
        };
        qputenv("NOTIFY_SOCKET", address.sun_path);
        qputenv("WATCHDOG_USEC", "300000");
        SShare share("--socketcand 0"_s, true);
        qunsetenv("NOTIFY_SOCKET");
        QVERIFY(share.happened("listening"_s));
        QTRY_VERIFY(isReported(1));
        SClock clock;
        QTRY_VERIFY(isReported(5));
        QVERIFY2(clock.elapsed() < 1200, QByteArray::number(clock.elapsed()));
        QCOMPARE(reports.mid(0, 3).join(QLatin1Char(' ')), "READY=1 WATCHDOG=1 WATCHDOG=1"_s);
        ::close(manager);
    }

    void unitPermitsLittle()
    {
        REQUIRE_TOOL("systemd-analyze");
        const QTemporaryDir folder;
        const SOutcome outcome = run("sed s,@.*@,/usr/bin, %1 > %2/cimshare.service && systemd-analyze security "
                                     "--offline=yes --threshold=15 --no-pager %2/cimshare.service"_s.arg(
                                         QStringLiteral(CIM_UNIT), folder.path()));
        QVERIFY2(outcome.exitCode == 0, outcome.out.right(200) + outcome.err); // exposure 1.5
    }

    /// The configuration of docs/sharing.md: TLS in front of both ports, for clients with a certificate.
    void behindStunnel_data()
    {
        const auto row = columns<QString, bool>("changes", "isAdmitted"); // changes of the client's configuration
        row("certificate of the authority", {}, true);
        row("of another authority", "s/client[.]/stranger./"_s, false);
        row("no certificate", "/^cert/d; /^key/d"_s, false);
        row("service of another name", "s/checkHost = .*/checkHost = stage.example/"_s, false);
    }
    void behindStunnel()
    {
        REQUIRE_TOOL("stunnel4");
        REQUIRE_TOOL("openssl");
        const QTemporaryDir folder;
        makeCertificates(folder);
        SShare share("--socketcand 0 --t93 0"_s);
        STunnel server(
            folder, "cert = "_s,
            "s/hall[.]\\(pem\\|key\\)/server.\\1/; s/:29536/:%1/; s/:30000/:%2/"_s.arg(share.port("socketcand"_s))
                .arg(share.port("t93"_s)));
        STunnel client(folder, "client = yes"_s,
                       "s/hall.example:29537/127.0.0.1:%1/; s/hall.example:30100/127.0.0.1:%2/; "_s
                               .arg(server.port("socketcand"_s))
                               .arg(server.port("t93"_s)) +
                           cell<QString>("changes"));
        QTcpSocket program;
        program.connectToHost(QHostAddress(QHostAddress::LocalHost), client.port("socketcand"_s));
        if (cell<bool>("isAdmitted")) {
            QTRY_COMPARE(program.peek(100), QByteArray("< hi >"));
            const SHost host(client.port("t93"_s)); // receives the identity of its gateway
        } else {
            QTRY_VERIFY(client.said.contains("error") || client.said.contains("alert"));
            QTRY_COMPARE(program.state(), QAbstractSocket::UnconnectedState);
            QCOMPARE(program.readAll(), QByteArray());
            QCOMPARE(share.count("connected"_s), 0);
        }
    }

    /// A gateway over UDP, where no connection is refused or lost.
    void gatewayOverUdp()
    {
        SShare share("--socketcand 0 --protocol UDP --status 1"_s, true);
        const auto status = [&] {
            const QJsonObject newest = share.named("status"_s).last();
            const bool isConnected = newest.value("connected"_s).toBool();
            return newest.value("connection"_s).toString() + (isConnected ? ", connected: "_s : ": "_s) +
                   newest.value("text"_s).toString();
        };
        QVERIFY(share.happened("status"_s, 2));
        QVERIFY(status().startsWith("open: open, no answer yet, load unknown, "_s));
        QCOMPARE(share.text("noAnswer"_s), "open, no answer yet"_s);
        QCOMPARE(share.count("open"_s), 0);
        SClient client(share);
        QVERIFY(client.hearsError("040 gateway: open, no answer yet"_s));
        share.gateway.setFaults({});
        QVERIFY(share.happened("open"_s));
        QTRY_VERIFY(status().startsWith("connected, connected: connected, load "_s));
        share.misbehave(&SSimFaults::mute);
        QVERIFY(share.happened("silent"_s));
        const QRegularExpression silence("^silent: silent for [3-9] s, load unknown, 1 clients, "_s);
        QTRY_VERIFY2(silence.match(status()).hasMatch(), qPrintable(status()));
        share.gateway.setFaults({});
        QVERIFY(share.happened("open"_s, 2));
    }

    /// Messages that were refused while the gateway did not answer are not sent later.
    void gatewayGoesAndComes()
    {
        SShare share("--socketcand 0 --t93 0 --allow-send --status 1"_s, true);
        QVERIFY(share.happened("away"_s));
        SClient client(share, "bcmmode");
        const SClock clock;
        QVERIFY(client.hearsError("040 gateway: lost, trying again"_s));
        QVERIFY2(clock.elapsed() > 250, QByteArray::number(clock.elapsed())); // the client has time to choose a mode
        QVERIFY(client.getsError("< add 0 1000 124 0 >", "001 gateway: lost, trying again"_s));
        SRawHost early(share); // turned away: the identity of the gateway is not known yet
        QTRY_COMPARE(early.state(), QAbstractSocket::UnconnectedState);
        QVERIFY(share.happened("status"_s, 4)); // another attempt to connect was made by then
        QCOMPARE(client.heard.count('<'), 1);
        SSimIdentity identity;
        identity.firmwareMajor = 2;
        identity.firmwareMinor = 3;
        identity.deviceText = "T93 S SW5\n\x1b[31m\x9bx1234567890abcde"; // the longest text that fits into a frame
        share.gateway.setIdentity(identity);
        share.gateway.setFaults({});
        QVERIFY(share.happened("identified"_s));
        QTRY_COMPARE(share.text("identified"_s), "02:00:00:54:39:33, firmware 5??[31m?x1234567890abcde"_s);
        QTRY_COMPARE(share.count("away"_s), 1);
        QTRY_VERIFY(share.sent.contains("124#"_s));

        const SHost host(share.port("t93"_s));
        // The part that fits behind "T93 SHARED SW".
        QTRY_VERIFY(host.can->commonInfo().firmwareVersion().endsWith("x1234567890"_s));
        client.heard.clear();
        share.leave();
        QTRY_COMPARE(host.errorNumbers(), QList<int>{IE_CAN_BUS_OFF});
        // Interface error, state of the gateway, first cyclic message.
        QTRY_COMPARE(client.heard.count("< error "), 3);
        QVERIFY(client.asks("< rawmode >", "< ok >"));
        QVERIFY(client.asks("< send 1 0 >", "< error "));
        QCOMPARE(host.can->writeMessage(message(2)), int(RC_OK));
        QTRY_COMPARE(host.errorNumbers().last(), int(IE_CAN_TRANSMIT_TIMEOUT));
        share.sent.clear();
        share.gateway.setFaults({});
        QVERIFY(share.happened("open"_s, 2));
        client.write("< send 3 0 >");
        QTRY_COMPARE(share.sent, QStringList{"003#"_s});
    }

    void broadcastManager()
    {
        SShare share("--socketcand 0 --allow-send"_s);
        SClient client(share, "bcmmode"), watcher(share);
        client.write("< subscribe 0 0 100 >< subscribe 60 0 200 >< subscribe 0 0 400 >< unsubscribe 400 >");
        QVERIFY(client.asks("< echo >", "< echo >"));
        share.put("100#01 100#02 200#01 200#02 400# 500# 100#03");
        QVERIFY(client.hears(" 03 >"));
        QCOMPARE(client.seen(), "100#01 100#02 200#01 100#03"_s);

        client.write("< subscribe 0 50000 200 >< add 0 5000 123 1 11 >");
        QTRY_VERIFY(share.sent.size() > 2);
        QCOMPARE(share.sent.mid(0, 2).join(QLatin1Char(' ')), "123#11 123#11"_s);
        client.write("< add 0 5000 123 1 22 >"); // replaces the previous one
        QTRY_COMPARE(share.sent.last(), "123#22"_s);
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
        QTRY_COMPARE(share.sent.last(), "7F0#"_s); // the cyclic message ends with its mode
        QVERIFY(client.asks("< controlmode >", "< ok >"));
        QVERIFY(client.asks("< statistics 10 >", "< stat "));
        QCOMPARE(share.sent.last(), "7F0#"_s);
        QVERIFY(client.asks("< rawmode >", "< ok >"));
        client.heard.clear();
        share.put("100#");
        QVERIFY(client.hears("< frame 100 ")); // frames arrive after a pause
        QVERIFY(!client.heard.contains("< stat "));
    }

    void clientsBeyondTheLimit()
    {
        SShare share("--socketcand 0 --t93 0 --allow 127.0.0.1 --allow 127.0.1.0/24"_s);
        SRawHost stranger(share, "127.0.2.1"), neighbour(share, "127.0.1.9");
        QVERIFY(share.happened("notAllowed"_s));
        QTRY_COMPARE(stranger.state(), QAbstractSocket::UnconnectedState);
        QVERIFY(share.happened("connected"_s));
        std::list<SClient> clients;
        std::list<SRawHost> hosts;
        for (int i = 0; i < 128; ++i) {
            clients.emplace_back(share, "").write("< open " + share.name.toLatin1() + " >< rawmode >");
            hosts.emplace_back(share).write(frame(RM_CMD_FIRMWARE_VERSION));
            QTRY_VERIFY(hosts.back().heard.startsWith(RM_START_OF_FRAME));
        }
        const auto hearThat = [&](const QByteArray& end) {
            const auto hears = [&](const SClient& client) { return client.heard.endsWith(end); };
            return QTest::qWaitFor([&] { return std::all_of(clients.begin(), clients.end(), hears); });
        };
        QVERIFY(hearThat("< ok >< ok >"));
        share.put("123#");
        QVERIFY(hearThat("  >"));
        SClient oneMore(share, ""), newAddress(share, "rawmode", "127.0.1.8");
        SRawHost hostMore(share), newHost(share, "127.0.1.8");
        QVERIFY(oneMore.hears("\n< error 127.0.0.1:"));
        QVERIFY(oneMore.hears(" rejected: too many clients from its address >"));
        QTRY_COMPARE(oneMore.state(), QAbstractSocket::UnconnectedState);
        QTRY_COMPARE(hostMore.state(), QAbstractSocket::UnconnectedState);
        QTRY_COMPARE(share.count("full"_s), 2);
        newHost.write(frame(RM_CMD_FIRMWARE_VERSION));
        QTRY_VERIFY(newHost.heard.startsWith(RM_START_OF_FRAME));
        clients.clear();
        QTRY_VERIFY(SClient(share, "").hears("< hi >"));
    }

    void descriptorsRunOut()
    {
        SShare share("--socketcand 0 --t93 0"_s);
        const auto pid = static_cast<pid_t>(share.program.processId());
        const int used = QDir("/proc/%1/fd"_s.arg(pid)).entryList(QDir::NoDotAndDotDot | QDir::AllEntries).size();
        rlimit limit{};
        QCOMPARE(prlimit(pid, RLIMIT_NOFILE, nullptr, &limit), 0);
        QVERIFY(limit.rlim_cur > 512);
        const auto setLimit = [&](rlim_t files) {
            const rlimit now{files, limit.rlim_max};
            QCOMPARE(prlimit(pid, RLIMIT_NOFILE, &now, nullptr), 0);
        };
        setLimit(4);
        SClient early(share, "");
        SRawHost earlyHost(share);
        earlyHost.write(frame(RM_CMD_FIRMWARE_VERSION));
        QVERIFY(share.happened("acceptError"_s, 2));
        setLimit(limit.rlim_cur);
        QVERIFY(early.hears("< hi >"));
        QTRY_VERIFY(!earlyHost.heard.isEmpty());

        setLimit(static_cast<rlim_t>(used) + 16 + 4); // 16 descriptors are reserved
        std::list<SClient> clients;
        while (clients.size() < 8) {
            clients.emplace_back(share, "");
        }
        QVERIFY(clients.back().hears(" rejected: too many open files >"));
        QVERIFY(clients.front().hears("< hi >"));
        SRawHost oneMore(share);
        QTRY_COMPARE(oneMore.state(), QAbstractSocket::UnconnectedState);
        QVERIFY(clients.front().asks("< echo >", "< echo >"));
        clients.clear();
        QTRY_VERIFY(SClient(share, "").hears("< hi >"));

        const SOutcome outcome = run(QStringLiteral("ulimit -n 500; " CIM_CIMSHARE " sim --socketcand 0 --t93 0"));
        QCOMPARE(outcome.exitCode, 1);
        QVERIFY2(outcome.err.contains("584 open files are needed, but the limit is 500 "), outcome.err);
    }

    void errorsAreCounted()
    {
        SShare share("--socketcand 0 --t93 0"_s);
        SClient client(share);
        SRawHost host(share);
        host.write(frame(RM_CMD_RESET));
        QVERIFY(share.happened("connected"_s, 2));
        share.gateway.sendStatus(0x08);
        QVERIFY(share.happened("interfaceError"_s));
        for (int i = 1; i < 1000; ++i) {
            share.gateway.sendStatus(0x08);
        }
        const auto count = [&client] {
            static const QRegularExpression TIMES("bus off error\\.(?: \\((\\d+) times\\))?"_s);
            int all = 0;
            for (auto match = TIMES.globalMatch(QString::fromLatin1(client.heard)); match.hasNext();) {
                all += std::max(match.next().captured(1).toInt(), 1);
            }
            return all;
        };
        QTRY_COMPARE(count(), 1000);
        QVERIFY(client.heard.count("< error ") < 5);
        QTRY_VERIFY(share.count("interfaceError"_s) > 1);
        QVERIFY(share.count("interfaceError"_s) < 5);
        QTRY_VERIFY(host.heard.contains(frame(RM_CMD_STATUS, hex("08"))));
        QVERIFY(host.heard.count(frame(RM_CMD_STATUS, hex("08"))) < 5);
    }

    void promisedLimits_data()
    {
        const auto row = columns<Measure, qint64, qint64>("measure", "least", "most");
        row("cyclic messages of a client", cyclicMessages, 64, 64);
        row("lines of an event in a second", linesOfClients, 100, 100);
        row("bytes read from a client at once", bytesReadAtOnce, 1024, 1024);
        row("bytes that wait for a client", bytesThatWait, 0x100000, 0x200000); // includes bytes in the kernel
        row("bytes of unread echoes", bytesOfUnreadEchoes, 0x100000, 0x800000); // includes both kernels' buffers
        row("bytes of unread addresses", bytesOfUnreadAddresses, 0x40000, 0x800000);
        row("ms to choose a bus", msToChooseABus, 9'000, 15'000);
        row("ms to send a frame", msToSendAFrame, 9'000, 15'000);
        row("ms to read the last answer", msWithoutReading("< open nobody >"), 9'000, 15'000);
        row("ms without reading", msWithoutReading(""), 25'000, 40'000);
        row("ms after the PC vanished", msAfterThePcVanished(), 25'000, 40'000);
        row("ms of cyclic sending", msAfterThePcVanished("< add 0 10000 123 0 >"_s), 4'000, 9'000);
    }
    void promisedLimits()
    {
        if (rowName().startsWith("ms ") && !qEnvironmentVariableIsSet("CIM_FAR")) {
            QSKIP("takes long: run by inNamespace, beside the other tests");
        }
        const qint64 measured = cell<Measure>("measure")();
        QVERIFY2(measured >= cell<qint64>("least"), QByteArray::number(measured));
        QVERIFY2(measured <= cell<qint64>("most"), QByteArray::number(measured));
    }

    void beacon()
    {
        if (!qEnvironmentVariableIsSet("CIM_FAR")) {
            QSKIP("broadcasts only in a network namespace of its own (tests/inNamespace)");
        }
        QUdpSocket network;
        QVERIFY(network.bind(QHostAddress(QHostAddress::AnyIPv4), 42000));
        const QTemporaryDir folder;
        QVERIFY(QFile::rename(writeFile(folder, "(1.0) x 123#\n"), folder.filePath("a&\"b"_s)));
        SShare share("sim:%1/a&\"b --socketcand 10.9.1.1:0 --beacon"_s.arg(folder.path()));
        // Not on 127.0.0.1: sendsByRule checks that.
        QTRY_COMPARE(share.count("openToAll"_s), 1);
        QTRY_VERIFY(network.hasPendingDatagrams());
        const SClock clock;
        QCOMPARE(QString::fromUtf8(network.receiveDatagram().data()),
                 "<CANBeacon name=\"%1\" type=\"adapter\" description=\"cimshare\"><URL>can://10.9.1.1:%2</URL>"
                 "<Bus name=\"bus1\"/><Bus name=\"%3\"/></CANBeacon>"_s.arg(QSysInfo::machineHostName())
                     .arg(share.port("socketcand"_s))
                     .arg(share.named("busName"_s).value(1).value("busName"_s).toString()));
        QTRY_VERIFY(network.hasPendingDatagrams());
        QVERIFY2(clock.elapsed() > 1500, QByteArray::number(clock.elapsed()));
        QVERIFY2(clock.elapsed() < 4000, QByteArray::number(clock.elapsed()));
    }

    void hostileBytes_data()
    {
        const auto row = columns<QByteArray, QByteArray>("bytes", "answer"); // empty: the connection is closed
        row("blanks", " \r\n < echo >", "< echo >");
        row("no brackets", QByteArray(100000, '\xff') + "< echo >", "");
        row("a web page", "POST / HTTP/1.1\r\n\r\n< open bus1 >< rawmode >< send 001 2 DE AD >", "");
        row("endless number", "< open " + QByteArray(200, '9') + " >", "");
        row("zeros", QByteArray("<\0\0>< echo >", 12), "< error unknown command >");
        row("not open yet", "< send 1 0 >", "< error no bus is open >");
        row("unknown bus", "< open no\x1b[31mbody >", "");
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
        if (answer.isEmpty()) {
            QTRY_COMPARE(bad.state(), QAbstractSocket::UnconnectedState);
        } else {
            QTRY_VERIFY2(isT93 ? bad.heard == answer : bad.heard.contains(answer), bad.heard);
        }
        share.put("123#");
        QVERIFY(good.hears("< frame 123 "));
        QTRY_COMPARE(share.sent, isT93 && !answer.isEmpty() ? list("7FF#"_s) : QStringList());
    }

    /// python-can as Debian ships it, and with the parser of errors of version 4.6: each client receives 4000 of 4000
    /// frames, whatever happens to the gateway and to the clients' messages.
    void pythonCan_data() { rows({"Since46", "Debian"}); }
    void pythonCan()
    {
        REQUIRE_TOOL("mosquitto"); // python-can is installed with it
        SShare share("--socketcand 0 --allow-send"_s, true);
        QVERIFY(share.happened("away"_s));
        QProcess python;
        python.setProcessChannelMode(QProcess::MergedChannels);
        python.start("/usr/bin/python3"_s,
                     {"-c"_s, QString::fromLatin1(R"(
import socket, sys
port, channel, client = int(sys.argv[1]), sys.argv[2], sys.argv[3]

class Debian:
    def __init__(self):
        import can
        self.can, self.errors = can, ["are skipped"]
        self.bus = can.Bus(interface="socketcand", host="127.0.0.1", port=port, channel=channel)
    def recv(self):
        message = self.bus.recv(5)
        return message and (message.arbitration_id, bytes(message.data))
    def send(self, identifier, data, extended=False):
        self.bus.send(self.can.Message(arbitration_id=identifier, data=data, is_extended_id=extended))

class Since46:
    def __init__(self):
        self.socket, self.text, self.errors = socket.create_connection(("127.0.0.1", port), 10), "", []
        for command, answer in ("", b"< hi >"), (f"< open {channel} >", b"< ok >"), ("< rawmode >", b"< ok >"):
            self.socket.sendall(command.encode())
            assert self.socket.recv(256) == answer
    def recv(self):
        while ">" not in self.text: self.text += self.socket.recv(1024).decode("ascii")
        element, rest = self.text.split(">", 1)
        kind, number, time, *words = element.split("<")[1].split() # what cannot be read stays, and raises again
        number, time = int(number, 16), float(time)
        if kind == "error": message = self.errors.append(f"{number:03x}")
        else: message = {"frame": (number, bytes.fromhex("".join(words)))}[kind]
        self.text = rest
        return message
    def send(self, identifier, data, extended=False):
        self.socket.sendall(f"< send {identifier:X} {len(data)} {' '.join(f'{one:x}' for one in data)} >".encode())

def read(reader):
    while not (message := reader.recv()): pass
    return message

one, other = globals()[client](), globals()[client]()
for frames in 1000, 1000, 2000:
    print("next", flush=True)
    for reader in one, other:
        for i in range(frames):
            message = read(reader)
            assert message == (i % 0x800, i.to_bytes(8, "big")), (i, message)
    one.send(0x12345678, b"", True) # refused
one.send(0x123, [1, 128, 255])
assert read(other) == (0x123, bytes([1, 128, 255]))
print("errors", *one.errors, flush=True)
)"),
                      QString::number(share.port("socketcand"_s)), "bus1"_s, QString::fromLatin1(rowName())});
        QByteArray said;
        connect(&python, &QProcess::readyRead, [&] { said += python.readAll(); });
        const auto isNext = [&](int frames) { return QTest::qWaitFor([&] { return said.count("next") == frames; }); };
        QVERIFY2(isNext(1), said);
        share.gateway.setFaults({});
        QVERIFY(share.happened("open"_s));
        share.gateway.flood(1000);
        QVERIFY2(isNext(2), said);
        share.gateway.flood(1000);
        QVERIFY2(isNext(3), said);
        share.leave();
        QVERIFY(share.happened("away"_s, 2));
        share.gateway.setFaults({});
        QVERIFY(share.happened("open"_s, 2));
        share.gateway.flood(2000);
        QTRY_VERIFY2(python.state() == QProcess::NotRunning, said);
        QCOMPARE(python.exitCode(), 0);
        QVERIFY2(said.endsWith(rowName() == "Debian" ? "errors are skipped\n" : "errors 040 001 001 040 040\n"), said);
        QCOMPARE(share.sent, list("123#0180FF"_s));
    }

    void wrongUsage_data()
    {
        const auto row = columns<QByteArray>("says"); // MQTT stands for a broker and the option that follows
        row("--t93 0", "nothing to share");
        row("sim", "nothing to serve");
        row("sim sim --t93 0", "'sim' and 'sim' would have the same name for clients");
        row("nobody --t93 0", "target 'nobody'");
        row("sim --socketcand 127.0.0.1:x", "'127.0.0.1:x' is not an [ADDRESS:]PORT");
        row("sim --t93 0 --allow 10.0.0.0/33", "'10.0.0.0/33' is not a network");
        row("sim --config <(echo sockecand=1)", "sockecand");
        row("sim 127.0.0.1 --t93 65535", "too few ports from 65535 on");
        row("sim --t93 0 --beacon", "--beacon requires --socketcand");
        for (const QByteArray value : {"", "\\\"\\\"", "{}", "[]", "maybe", "2", "t"}) {
            row("sim --config <(echo \"allow-send=" + value + "\")", "allow-send");
            row("sim --config <(echo \"json=" + value + "\")", "json");
        }
        row("sim MQTT-topic a/+", "'a/+/state' is not a topic");
        row("sim MQTT-key k", "--mqtt-cert also requires --mqtt-key");
        row("sim --mqtt a:b", "'a:b' is not a HOST[:PORT]");
        row("sim MQTT-plaintext --mqtt-credentials /nowhere", "/nowhere: No such file");
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
        QCOMPARE(outcome.exitCode, typed.contains("192.0.2.1") ? 1 : 2);
        QVERIFY2(outcome.err.contains(cell<QByteArray>("says")), outcome.err);
    }
};

QTEST_GUILESS_MAIN(CimshareTest)
#include "tst_cimshare.moc"
