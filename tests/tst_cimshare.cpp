#include "apps/cimshare/mqttText.h"
#include "apps/cimshare/socketcandClient.h"
#include "apps/cimshare/socketcandText.h"
#include "requireTool.h"
#include "shareFixture.h"

#include <QNetworkDatagram>
#include <QUdpSocket>

using namespace vexmor::Test;
using namespace vexmor::Apps::Cimshare;

namespace
{
bool isWhole(const QStringList& frames)
{
    for (int i = 0; i < frames.size(); ++i) {
        if (frames.at(i) != floodText(i)) {
            return false;
        }
    }
    return true;
}

// ---- Promised limits: what a client can reach, as a number ----

using Measure = std::function<qint64()>;

/// For nsenter: runs a command at the far end of the cable.
QStringList atFarEnd(const QStringList& command)
{
    return list("-t %1 -n"_s.arg(QString::fromLocal8Bit(qgetenv("CIM_FAR")))) + command;
}

/// Time until a client is disconnected, in milliseconds.
qint64 msUntilDisconnected(SShare& share)
{
    QElapsedTimer clock;
    clock.start();
    return share.happened("disconnected"_s, 1, 60000) ? clock.elapsed() : -1;
}

/// Frames, until the client loses some that it does not read.
bool fill(SShare& share, SClient& client)
{
    client.stopReading();
    share.gateway.flood(200'000);
    return share.happened("slowClient"_s);
}

qint64 cyclicMessages()
{
    SShare share("--socketcand 0 --allow-send"_s);
    SClient client(share, "bcmmode");
    (void)client.asks("< add >", "< error "); // errors do not wait any more
    for (int id = 0; id < 100; ++id) {
        client.write("< add 3600 0 " + QByteArray::number(id, 16) + " 0 >");
    }
    return client.asks("< echo >", "< echo >") ? 100 - client.heard.count("< error too many ") : -1;
}

qint64 linesOfClients()
{
    SShare share("--socketcand 0 --allow 127.0.1.1"_s);
    const auto connectUntilLeftOut = [&] { // in bursts that fit into the queue of a listening socket
        std::vector<std::unique_ptr<SClient>> strangers;
        std::generate_n(std::back_inserter(strangers), 40, [&] { return std::make_unique<SClient>(share, ""); });
        const auto isTurnedAway = [](const auto& one) { return one->state() == QAbstractSocket::UnconnectedState; };
        (void)QTest::qWaitFor([&] { return std::all_of(strangers.begin(), strangers.end(), isTurnedAway); });
        return share.count("leftOut"_s) > 0;
    };
    (void)QTest::qWaitFor(connectUntilLeftOut);
    qint64 lines = 0;
    for (const QJsonObject& event : share.events) {
        if (event.value("event"_s) == "leftOut"_s) {
            return lines;
        }
        lines += event.value("event"_s) == "notAllowed"_s ? 1 : 0;
    }
    return -1;
}

qint64 bytesReadAtOnce()
{
    QTcpServer server;
    server.listen(QHostAddress(QHostAddress::LocalHost));
    QTcpSocket peer;
    peer.connectToHost(server.serverAddress(), server.serverPort());
    (void)server.waitForNewConnection(5000);
    QTcpSocket* const socket = server.nextPendingConnection();
    socket->setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, 1024 * 1024);
    qint64 most = 0, all = 0;
    QObject::connect(socket, &QTcpSocket::readyRead, [&] {
        most = std::max(most, socket->bytesAvailable());
        all += socket->bytesAvailable();
    });
    const CSharedBuses none;
    const CSocketcandClient client(socket, none);
    peer.write(QByteArray(200'000, 'x'));
    (void)peer.waitForBytesWritten(5000); // all of it arrives before the client reads
    return QTest::qWaitFor([&] { return all == 200'000; }) ? most : -1;
}

qint64 bytesThatWait()
{
    SShare share("--socketcand 0"_s);
    SClient slow(share), quick(share);
    if (!fill(share, slow) || !QTest::qWaitFor([&] { return quick.heard.count('>') > 200'000; }, 30000)) {
        return -1;
    }
    slow.readAgain();
    const auto putUntilReported = [&] { // until there is room
        share.put("7F0#");
        return slow.heard.contains("< error frames were lost >");
    };
    return QTest::qWaitFor(putUntilReported) ? slow.heard.indexOf("< error frames were lost >") : -1;
}

qint64 bytesOfUnreadAnswers()
{
    SShare share("--socketcand 0"_s);
    SClient deaf(share, "controlmode");
    deaf.stopReading();
    const QByteArray requests = QByteArray("< echo >").repeated(8192);
    qint64 written = 0;
    while (share.count("disconnected"_s) == 0 && written < 32 * 1024 * 1024) {
        written += deaf.write(requests);
        (void)QTest::qWaitFor([&] { return deaf.bytesToWrite() == 0 || share.count("disconnected"_s) > 0; });
    }
    return written;
}

qint64 msToChooseABus()
{
    SShare share("--socketcand 0"_s);
    const SClient client(share, "");
    return share.happened("connected"_s) ? msUntilDisconnected(share) : -1;
}

qint64 msToReadTheLastAnswer()
{
    SShare share("--socketcand 0"_s);
    SClient client(share);
    if (!fill(share, client)) {
        return -1;
    }
    client.write("< open nobody >");
    return msUntilDisconnected(share);
}

qint64 msWithoutReading()
{
    SShare share("--socketcand 0"_s);
    SClient client(share);
    return fill(share, client) ? msUntilDisconnected(share) : -1;
}

qint64 msAfterThePcVanished()
{
    SShare share("--socketcand 10.9.0.1:0"_s);
    SProgram client;
    client.start("nsenter"_s,
                 atFarEnd({"bash"_s, "-c"_s,
                           "exec 3<>/dev/tcp/10.9.0.1/$0; echo \"< open $1 >\" >&3; head -c 12 <&3; exec sleep 90"_s,
                           QString::number(share.port("socketcand"_s)), share.name}));
    QByteArray heard;
    const bool isOpen = QTest::qWaitFor([&] { return (heard += client.readAll()) == "< hi >< ok >"; });
    const bool isPulled = QProcess::execute("nsenter"_s, atFarEnd(list("ip link set far down"_s))) == 0;
    return isOpen && isPulled ? msUntilDisconnected(share) : -1;
}
} // namespace
Q_DECLARE_METATYPE(Measure)

/// The service that shares a bus: what it reads, and the program with clients of every kind.
class CimshareTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readsCommands_data()
    {
        const auto row = columns<QByteArray, QString>("element", "read");
        row("open", " open hall ", "0 hall"_s);
        row("open nothing", "open", "a bus has a name"_s);
        row("raw mode", " rawmode ", "1"_s);
        row("raw mode and more", "rawmode x", "too many words"_s);
        row("send", " send 7FF 2 11 22 ", "5 7FF#1122"_s);
        row("send nothing", "send 0 0", "5 000#"_s);
        row("short bytes", "send 123 3 1 a ff", "5 123#010AFF"_s);
        row("negative bytes", "send 1 1 ffffffffffffff80", "5 001#80"_s);
        row("eight bytes", "send 1 8 1 2 3 4 5 6 7 8", "5 001#0102030405060708"_s);
        row("nine bytes", "send 1 9 1 2 3 4 5 6 7 8 9", "the length is not 0 to 8"_s);
        row("a byte too few", "send 1 2 11", "not as many hexadecimal bytes as the length says"_s);
        row("a byte too many", "send 1 1 11 22", "too many words"_s);
        row("29 bit", "send 800 0", "a T93 has no 29-bit identifiers"_s);
        row("29 bit, small", "send 00000123 0", "a T93 has no 29-bit identifiers"_s);
        row("no identifier", "send xyz 0", "the identifier is no hexadecimal number"_s);
        row("remote", "sendrtr 123 0", "a T93 has no remote frames"_s);
        row("ISO-TP", "isotpmode", "a T93 has no ISO-TP"_s);
        row("statistics", "statistics 1000", "6 1000 ms"_s);
        row("statistics of days", "statistics 3600001", "the interval is no number of milliseconds"_s);
        row("subscribe", "subscribe 1 500000 123", "7 1500000 us 123#"_s);
        row("add", "add 0 1000 123 1 ff", "9 1000 us 123#FF"_s);
        row("add too fast", "add 0 999 123 1 ff", "the interval is below 1 ms"_s);
        row("add with an interval below 0", "add 0 -1000 123 1 ff", "the interval is no SECONDS MICROSECONDS"_s);
        row("add for ever", "add 9999999999 0 123 1 ff", "the interval is no SECONDS MICROSECONDS"_s);
        row("nothing", "", "unknown command"_s);
        row("another", "exit", "unknown command"_s);
        row("filter", "filter 0 0 123 1 ff", "unknown command"_s);
    }
    void readsCommands()
    {
        auto command = readCommand(cell<QByteArray>("element"));
        if (!command) {
            QCOMPARE(command.problem().text, cell<QString>("read"));
            return;
        }
        QStringList read{QString::number(static_cast<int>(command->verb)), QString::fromLatin1(command->busName)};
        read += command->milliseconds == 0 ? QString() : "%1 ms"_s.arg(command->milliseconds);
        read += command->microseconds == 0 ? QString() : "%1 us"_s.arg(command->microseconds);
        const bool hasMessage =
            QString::fromLatin1(cell<QByteArray>("element")).contains(QRegularExpression("^ *(send|sub|add)"_s));
        read += hasMessage ? textOf(command->message) : QString();
        read.removeAll(QString());
        QCOMPARE(read.join(QLatin1Char(' ')), cell<QString>("read"));
    }

    void cutsElementsAnywhere()
    {
        const QByteArray stream = "\nx< echo >< send 1 0 ><>garbage< a< b >";
        for (int cut = 0; cut < stream.size(); ++cut) {
            CElementReader reader;
            QList<QByteArray> elements;
            const auto take = [&](const QByteArray& element) {
                elements.append(element);
                return true;
            };
            QVERIFY(reader.feed(stream.left(cut), take));
            QVERIFY(reader.feed(stream.mid(cut), take));
            QCOMPARE(elements, (QList<QByteArray>{" echo ", " send 1 0 ", "", " a< b "}));
        }
        const auto refuse = [](const QByteArray& /*element*/) { return true; };
        QVERIFY(CElementReader().feed('<' + QByteArray(255, 'x'), refuse));
        QVERIFY(!CElementReader().feed('<' + QByteArray(256, 'x'), refuse));
        QVERIFY(!CElementReader().feed('<' + QByteArray(257, 'x') + '>', refuse));
    }

    void readsPublications()
    {
        QStringList read;
        for (const SMqttSend& send :
             readMqttLines("123#1122\n# comment\n\n(1.5) hall 7ff#00 R\r\n(1.5) hall 123#R\nhello\n"
                           "800#")) {
            read += send.problem.isEmpty() ? textOf(send.message) : "!"_s + QString::fromLatin1(send.line);
        }
        QCOMPARE(read.join(QLatin1Char('|')), "123#1122|7FF#00|!(1.5) hall 123#R|!hello|!800#"_s);
    }

    /// What one sends all others get, over whatever they came.
    void allSeeTheSame()
    {
        SShare share("--socketcand 0 --t93 0 --allow-send"_s);
        SClient one(share), other(share);
        const auto host = makeInterface(share.port("t93"_s)), second = makeInterface(share.port("t93"_s));
        QVERIFY(share.isUp);
        QVERIFY(one.isOpen);
        QVERIFY(other.isOpen);
        QCOMPARE(host->openCommunication(), int(RC_OK));
        QCOMPARE(second->openCommunication(), int(RC_OK));
        const auto& info = host->commonInfo();
        QTRY_COMPARE(info.interfaceId() + QLatin1Char(' ') + info.firmwareVersion(), "02:00:00:54:39:33 1.05"_s);

        one.write("< send 123 1 11 >");
        QTRY_COMPARE(share.sent.join(QLatin1Char(' ')), "123#11"_s);
        QCOMPARE(host->writeMessage(message(0x124)), int(RC_OK));
        QTRY_COMPARE(share.sent.join(QLatin1Char(' ')), "123#11 124#"_s);
        share.put("125#");
        QTRY_COMPARE(other.seen(), "123#11 124# 125#"_s);
        QTRY_COMPARE(one.seen(), "124# 125#"_s);
        const auto read = [](CCanInterface& can) {
            QString texts;
            for (const CCanMessage& one : unread(can)) {
                texts += textOf(one) + QLatin1Char(' ');
            }
            return texts;
        };
        QString atHost, atSecond;
        QTRY_COMPARE((atHost += read(*host)).simplified(), "123#11 125#"_s);
        QTRY_COMPARE((atSecond += read(*second)).simplified(), "123#11 124# 125#"_s);

        const auto rate = share.bus.baudrate();
        host->setBaudrate(125);
        QCOMPARE(host->resetCommunication(1), int(RC_OK));
        QVERIFY(share.happened("ignored"_s, 3)); // bit rates at the start
        QVERIFY(share.bus.baudrate() == rate);
        share.gateway.sendStatus(0x08);
        QVERIFY(one.hears("< error T93 CAN bus off error. >"));
        QCOMPARE(share.end(), 0);
    }

    void answersStandAlone() // clients compare them with what they read
    {
        SShare share("--socketcand 0 --protocol UDP"_s);
        QTimer traffic;
        connect(&traffic, &QTimer::timeout, [&] { share.put("123#"); });
        traffic.start(0);
        SClient client(share, "bcmmode");
        QVERIFY(client.isOpen);
        QVERIFY(client.asks("< rawmode >", "< ok >"));
        QCOMPARE(client.heard, QByteArray("< ok >"));
        QVERIFY(client.hears("< ok >\n< frame 123 "));
    }

    void namesOnTheWire()
    {
        const QTemporaryDir folder;
        const QString log = writeFile(folder, "(1.0) x 123#\n");
        SShare share("sim:%1 --socketcand 0"_s.arg(log));
        SClient client(share, "");
        QVERIFY(client.hears("< hi >"));
        QVERIFY(client.asks("< open " + QString("sim:"_s + log).replace(QLatin1Char('/'), QLatin1Char('_')).toLatin1() +
                                " >",
                            "< ok >"));
    }

    void sendsWithPermissionOnly()
    {
        SShare share("--socketcand 0 --t93 0"_s);
        SClient client(share, "bcmmode");
        const auto host = makeInterface(share.port("t93"_s));
        QSignalSpy errors(host.get(), SIGNAL(interfaceError(int)));
        QVERIFY(client.isOpen);
        QCOMPARE(host->openCommunication(), int(RC_OK));
        QTRY_VERIFY(!host->commonInfo().interfaceId().isEmpty());
        QVERIFY(client.asks("< add 0 1000 123 0 >", "\n< error clients may listen only (--allow-send) >"));
        QVERIFY(client.asks("< rawmode >", "< ok >"));
        QVERIFY(client.asks("< send 123 0 >", "\n< error clients may listen only (--allow-send) >"));
        QVERIFY(client.asks("< subscribe 0 0 1 >", "< error not in this mode >"));
        QCOMPARE(host->writeMessage(message(0x124)), int(RC_OK));
        QTRY_COMPARE(errorNumbers(errors), QList<int>{IE_CAN_TRANSMIT_TIMEOUT});
        QVERIFY(share.sent.isEmpty());
    }

    void answersTheLoadOfTheBus()
    {
        SShare share("--t93 0"_s);
        QTcpSocket host;
        host.connectToHost(QHostAddress(QHostAddress::LocalHost), share.port("t93"_s));
        QByteArray heard;
        connect(&host, &QTcpSocket::readyRead, [&] { heard += host.readAll(); });
        const auto isMeasured = [&] {
            share.put("123#");
            host.write(frame(RM_CMD_BUSLOAD));
            const int reply = heard.lastIndexOf(hex("430347"));
            return reply >= 0 && heard.size() > reply + 4 && heard.mid(reply + 3, 2) != hex("0000");
        };
        QTRY_VERIFY(isMeasured());
    }

    /// Nothing that was sent while the gateway was away comes when it is back.
    void gatewayGoesAndComes()
    {
        SShare share("--socketcand 0 --t93 0 --allow-send --status 1"_s, true);
        SClient client(share);
        QVERIFY(share.happened("away"_s));
        QVERIFY(client.hears("< error gateway: lost, trying again >"));
        QTcpSocket early; // the identity of the gateway is not known yet
        early.connectToHost(QHostAddress(QHostAddress::LocalHost), share.port("t93"_s));
        QTRY_COMPARE(early.state(), QAbstractSocket::UnconnectedState);
        QVERIFY(share.happened("status"_s, 4)); // it was tried again by then, and told once
        share.gateway.setFaults({});
        QVERIFY(share.happened("identified"_s));
        QCOMPARE(share.count("away"_s), 1);

        const auto host = makeInterface(share.port("t93"_s));
        QSignalSpy errors(host.get(), SIGNAL(interfaceError(int)));
        QVERIFY(client.asks("< rawmode >", "< ok >"));
        QCOMPARE(host->openCommunication(), int(RC_OK));
        share.leave();
        QVERIFY(client.hears("< error gateway: lost, trying again >"));
        QTRY_COMPARE(errorNumbers(errors), QList<int>{IE_CAN_BUS_OFF});
        QVERIFY(client.asks("< send 1 0 >", "< error "));
        QCOMPARE(host->writeMessage(message(2)), int(RC_OK));
        QTRY_COMPARE(errors.last().first().toInt(), int(IE_CAN_TRANSMIT_TIMEOUT));
        share.gateway.setFaults({});
        QVERIFY(share.happened("open"_s, 2));
        client.write("< send 3 0 >");
        QTRY_COMPARE(share.sent, QStringList{"003#"_s});
    }

    void broadcastManager()
    {
        SShare share("--socketcand 0 --allow-send"_s);
        SClient client(share, "bcmmode"), watcher(share);
        QVERIFY(client.isOpen);
        QVERIFY(watcher.isOpen);
        client.write("< subscribe 0 0 100 >< subscribe 60 0 200 >< subscribe 0 0 400 >< unsubscribe 400 >");
        QVERIFY(client.asks("< echo >", "< echo >"));
        share.put("100#01 100#02 200#01 200#02 400# 500# 100#03");
        QVERIFY(client.hears(" 03 >"));
        QCOMPARE(client.seen(), "100#01 100#02 200#01 100#03"_s);

        client.write("< subscribe 0 50000 200 >< add 0 5000 123 1 11 >");
        QTRY_VERIFY(share.sent.size() > 2);
        QCOMPARE(share.sent.mid(0, 2).join(QLatin1Char(' ')), "123#11 123#11"_s);
        client.write("< add 0 5000 123 1 22 >"); // instead of the one before
        QTRY_COMPARE(share.sent.last(), "123#22"_s);
        QVERIFY(client.asks("< delete 123 >< echo >", "< echo >"));
        QTRY_COMPARE(watcher.heard.count("< frame 123 "), share.sent.size()); // what was under way has come
        share.sent.clear();
        share.put("200#01 200#02 200#03");
        QTRY_COMPARE(client.seen(), "200#01 200#03"_s); // the newest, when it is time
        QVERIFY(share.sent.isEmpty());
        client.write("< add 0 2000 124 0 >");
        QTRY_VERIFY(!share.sent.isEmpty());
        QVERIFY(client.asks("< controlmode >", "< ok >"));
        QVERIFY(client.asks("< rawmode >< send 7F0 0 >", "< ok >"));
        QTRY_COMPARE(share.sent.last(), "7F0#"_s); // ends with its mode
        QVERIFY(client.asks("< controlmode >", "< ok >"));
        QVERIFY(client.asks("< statistics 20 >", "< stat "));
        QCOMPARE(share.sent.last(), "7F0#"_s);
    }

    void slowClientLosesItsOwn()
    {
        SShare share("--socketcand 0 --t93 0 --status 1"_s);
        SClient slow(share), quick(share);
        QTcpSocket slowHost;
        slow.stopReading();
        slowHost.setReadBufferSize(1);
        slowHost.connectToHost(QHostAddress(QHostAddress::LocalHost), share.port("t93"_s));
        QVERIFY(slow.isOpen);
        QVERIFY(quick.isOpen);
        QVERIFY(share.happened("connected"_s, 3));
        constexpr int MESSAGES = 400'000; // several times what kernel and program keep for a client
        share.gateway.flood(MESSAGES);
        QTRY_VERIFY_WITH_TIMEOUT(quick.heard.count('>') >= MESSAGES, 30000);
        QCOMPARE(quick.frames().size(), MESSAGES);
        QVERIFY(isWhole(quick.frames()));
        QVERIFY(share.happened("slowClient"_s));
        QVERIFY(share.happened("lost"_s));
        slow.readAgain();
        slowHost.setReadBufferSize(0);
        QByteArray atHost;
        connect(&slowHost, &QTcpSocket::readyRead, [&] { atHost += slowHost.readAll(); });
        atHost += slowHost.readAll();
        const auto sendNow = [&] { // until there is room
            share.put("7F0#");
            return slow.heard.contains("< error frames were lost >") &&
                   atHost.contains(frame(RM_CMD_STATUS, hex("01")));
        };
        QTRY_VERIFY(sendNow());
        const QStringList frames = slow.frames();
        QVERIFY(isWhole(frames.mid(0, frames.indexOf("7F0#"_s))));
        QVERIFY(frames.size() < MESSAGES);
    }

    void clientsBeyondTheLimit()
    {
        SShare share("--socketcand 0 --t93 0 --allow 127.0.0.1 --allow 127.0.1.0/24"_s);
        QTcpSocket stranger, neighbour;
        for (const auto& [socket, address] : {std::pair(&stranger, "127.0.2.1"), std::pair(&neighbour, "127.0.1.9")}) {
            QVERIFY(socket->bind(QHostAddress(QString::fromLatin1(address))));
            socket->connectToHost(QHostAddress(QHostAddress::LocalHost), share.port("t93"_s));
        }
        QVERIFY(share.happened("notAllowed"_s));
        QTRY_COMPARE(stranger.state(), QAbstractSocket::UnconnectedState);
        QVERIFY(share.happened("connected"_s));
        std::vector<std::unique_ptr<SClient>> clients;
        for (int i = 0; i < 256; ++i) {
            clients.push_back(std::make_unique<SClient>(share, ""));
            clients.back()->write("< open " + share.name.toLatin1() + " >< rawmode >");
        }
        const auto hearThat = [&](const QByteArray& end) {
            return QTest::qWaitFor([&] {
                return std::all_of(clients.begin(), clients.end(), [&](auto& one) { return one->heard.endsWith(end); });
            });
        };
        QVERIFY(hearThat("< ok >< ok >"));
        share.put("123#");
        QVERIFY(hearThat("  >"));
        SClient oneMore(share, "");
        QTRY_COMPARE(oneMore.state(), QAbstractSocket::UnconnectedState);
        clients.clear();
        QTRY_VERIFY(SClient(share).isOpen);
    }

    void endsWhoDoesNotRead() // with its timers
    {
        SShare share("--socketcand 0"_s);
        SClient deaf(share, "controlmode");
        QVERIFY(deaf.isOpen);
        deaf.stopReading();
        deaf.write("< statistics 1 >" + QByteArray("< echo >").repeated(60'000) + "< open nobody >");
        QVERIFY(share.happened("connected"_s));
        SClient good(share);
        QTRY_VERIFY(deaf.bytesToWrite() == 0 || deaf.state() == QAbstractSocket::UnconnectedState);
        QTRY_VERIFY(share.count("disconnected"_s) == 1 || good.asks("< echo >", "< echo >"));
        share.put("123#");
        QVERIFY(good.hears("< frame 123 "));
        QCOMPARE(share.end(), 0);
    }

    void promisedLimits_data()
    {
        const auto row = columns<Measure, qint64, qint64>("measure", "least", "most");
        row("cyclic messages of a client", cyclicMessages, 64, 64);
        row("lines of clients in a second", linesOfClients, 300, 300);
        row("bytes read from a client at once", bytesReadAtOnce, 0x10000, 0x10000);
        row("bytes that wait for a client", bytesThatWait, 0x100000, 0x200000);   // with those in the kernel
        row("bytes of unread answers", bytesOfUnreadAnswers, 0x100000, 0x800000); // with those of the client's kernel
        row("ms to choose a bus", msToChooseABus, 9'000, 15'000);
        row("ms to read the last answer", msToReadTheLastAnswer, 9'000, 15'000);
        row("ms without reading", msWithoutReading, 25'000, 40'000);
        row("ms after the PC vanished", msAfterThePcVanished, 25'000, 40'000);
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
        QTRY_VERIFY(network.hasPendingDatagrams());
        QElapsedTimer clock;
        clock.start();
        const QString simulated = "sim:"_s + folder.path().replace(QLatin1Char('/'), QLatin1Char('_'));
        QCOMPARE(QString::fromUtf8(network.receiveDatagram().data()),
                 "<CANBeacon name=\"%1\" type=\"adapter\" description=\"cimshare\"><URL>can://10.9.1.1:%2</URL>"
                 "<Bus name=\"%3\"/><Bus name=\"%4_a&amp;&quot;b\"/></CANBeacon>"_s.arg(QSysInfo::machineHostName())
                     .arg(share.port("socketcand"_s))
                     .arg(share.name, simulated));
        QTRY_VERIFY(network.hasPendingDatagrams());
        QVERIFY2(clock.elapsed() > 1500, QByteArray::number(clock.elapsed()));
        QVERIFY2(clock.elapsed() < 4000, QByteArray::number(clock.elapsed()));
    }

    void gatewayTextStaysInItsLine()
    {
        SShare share("--socketcand 0"_s, true);
        SSimIdentity identity;
        identity.firmwareMajor = 2;
        identity.firmwareMinor = 3;
        identity.deviceText = "T93 SIM SW5\n\x1b[31m\x9bx";
        share.gateway.setIdentity(identity);
        share.gateway.setFaults({});
        QVERIFY(share.happened("identified"_s));
        QCOMPARE(share.said("identified"_s), "02:00:00:54:39:33, firmware 5??[31m?x"_s);
    }

    void hostileLines_data()
    {
        const auto row = columns<QByteArray, QByteArray>("bytes", "answer"); // empty: the connection ends
        row("no brackets", QByteArray(100000, '\xff') + "< echo >", "< echo >");
        row("endless", '<' + QByteArray(100000, 'x'), "");
        row("endless number", "< open " + QByteArray(200, '9') + " >", "");
        row("zeros", QByteArray("<\0\0>< echo >", 12), "< error unknown command >");
        row("brackets", QByteArray(30000, '<') + '>', "");
        row("not open yet", "< send 1 0 >", "< error no bus is open >");
        row("unknown bus", "< open no\x1b[31mbody >", "");
    }
    void hostileLines()
    {
        SShare share("--socketcand 0 --allow-send"_s);
        SClient bad(share, ""), good(share);
        QVERIFY(bad.hears("< hi >"));
        bad.write(cell<QByteArray>("bytes"));
        if (cell<QByteArray>("answer").isEmpty()) {
            QTRY_COMPARE(bad.state(), QAbstractSocket::UnconnectedState);
        } else {
            QVERIFY(bad.hears(cell<QByteArray>("answer")));
        }
        share.put("123#");
        QVERIFY(good.hears("< frame 123 "));
        QCOMPARE(share.end(), 0);
    }

    /// python-can as Debian ships it: 5000 messages in order by two of three clients, one of which does not read; a
    /// filter; a message and a periodic one of its own.
    void pythonCan()
    {
        REQUIRE_TOOL("mosquitto"); // which comes with it
        SShare share("--socketcand 0 --allow-send"_s);
        QProcess python;
        python.start("/usr/bin/python3"_s, {"-c"_s, QString::fromLatin1(R"(
import can, sys
def bus(**more):
    return can.Bus(interface="socketcand", host="127.0.0.1", port=int(sys.argv[1]), channel=sys.argv[2], **more)
one, other, lazy, few = bus(), bus(), bus(), bus(can_filters=[{"can_id": 0x7F0, "can_mask": 0x7FF}])
print("ready", flush=True)
for reader in (one, other):
    for i in range(5000):
        message = reader.recv(5)
        while message is None: message = reader.recv(5)
        assert (message.arbitration_id, message.data) == (i % 0x800, i.to_bytes(8, "big")), (i, message)
few_message = few.recv(5)
while few_message is None: few_message = few.recv(5)
assert few_message.arbitration_id == 0x7F0
one.send(can.Message(arbitration_id=0x123, data=[1, 128, 255], is_extended_id=False))
message = other.recv(5)
assert (message.arbitration_id, bytes(message.data)) == (0x123, bytes([1, 128, 255])), message
one.send_periodic(can.Message(arbitration_id=0x124, is_extended_id=False), 0.01)
for i in range(5): assert other.recv(5).arbitration_id == 0x124
print("done", flush=True)
for each in (one, other, lazy, few): each.shutdown()
)"),
                                            QString::number(share.port("socketcand"_s)), share.name});
        QByteArray said;
        connect(&python, &QProcess::readyRead, [&] { said += python.readAll(); });
        QTRY_COMPARE(said.trimmed(), QByteArray("ready"));
        QVERIFY(share.happened("connected"_s, 4));
        share.gateway.flood(5000);
        QTRY_VERIFY2(python.state() == QProcess::NotRunning, said + python.readAllStandardError());
        QVERIFY2(python.exitCode() == 0, said + python.readAllStandardError());
        QVERIFY2(said.endsWith("done\n"), said + python.readAllStandardError());
        QCOMPARE(share.sent.mid(0, 2).join(QLatin1Char(' ')), "123#0180FF 124#"_s);
    }

    void wrongUsage_data()
    {
        const auto row = columns<QString, int, QString>("typed", "exitCode", "says");
        row("nothing to share", "--t93 0"_s, 2, "nothing to share"_s);
        row("nothing to serve", "sim"_s, 2, "nothing to serve"_s);
        row("twice", "sim sim --t93 0"_s, 2, "'sim' and 'sim' would have the same name for clients"_s);
        row("no such target", "nobody --t93 0"_s, 2, "target 'nobody'"_s);
        row("no port", "sim --socketcand 127.0.0.1:x"_s, 2, "'127.0.0.1:x' is not an [ADDRESS:]PORT"_s);
        row("no network", "sim --t93 0 --allow 10.0.0.0/33"_s, 2, "'10.0.0.0/33' is not a network"_s);
        row("unknown line of a file", "sim --config <(echo sockecand=1)"_s, 2, "sockecand"_s);
        row("more ports than there are", "sim 127.0.0.1 --t93 65535"_s, 2, "not so many ports"_s);
        row("beacon for nothing", "sim --t93 0 --beacon"_s, 2, "--beacon requires --socketcand"_s);
        row("no topic", "sim --mqtt localhost --mqtt-topic a/+"_s, 2, "'a/+/state' is not a topic"_s);
        row("key for nothing", "sim --mqtt localhost --mqtt-key k"_s, 2, "a certificate needs its key"_s);
        row("no broker", "sim --mqtt a:b"_s, 2, "'a:b' is not a HOST[:PORT]"_s);
        row("no file", "sim --mqtt localhost --mqtt-credentials /nowhere"_s, 2, "/nowhere: No such file"_s);
        row("no certificate", "sim --mqtt localhost --mqtt-ca /nowhere"_s, 2, "certificates: "_s);
        row("address of another", "sim --socketcand 192.0.2.1:0"_s, 1, "cannot listen on 192.0.2.1:0"_s);
    }
    void wrongUsage()
    {
        const SOutcome outcome = run(QStringLiteral(CIM_CIMSHARE " ") + cell<QString>("typed"));
        QCOMPARE(outcome.exitCode, cell<int>("exitCode"));
        QVERIFY2(outcome.err.contains(cell<QString>("says").toUtf8()), outcome.err);
    }
};

QTEST_GUILESS_MAIN(CimshareTest)
#include "tst_cimshare.moc"
