#include "apps/cimshare/eventLog.h"
#include "requireTool.h"
#include "shareFixture.h"

#include <csignal>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace vexmor::Test;

namespace
{
/// The broker mosquitto of Debian, on a port of its own.
struct SBroker {
    explicit SBroker(const QByteArray& rules = "allow_anonymous true\n")
    {
        writeFile(folder, "listener " + port.toLatin1() + " 127.0.0.1\n" + rules);
        start();
    }
    void start()
    {
        program.start("mosquitto"_s, {"-c"_s, folder.filePath("a.log"_s)});
        require(QTest::qWaitFor([this] {
                    QTcpSocket socket;
                    socket.connectToHost(QHostAddress(QHostAddress::LocalHost), port.toUShort());
                    return socket.waitForConnected(100);
                }),
                "mosquitto listens"_s);
    }
    void publish(const QString& topic, const QByteArray& payload, const QStringList& more = {}) const
    {
        QProcess client;
        client.start("mosquitto_pub"_s, QStringList{"-h"_s, "127.0.0.1"_s, "-p"_s, port, "-t"_s, topic, "-s"_s} + more);
        client.write(payload);
        client.closeWriteChannel();
        client.waitForFinished();
    }
    QString options(const QString& more = {}) const
    {
        return "--mqtt 127.0.0.1:%1 --mqtt-topic site "_s.arg(port) + more;
    }

    QTemporaryDir folder;
    const QString port = QString::number(SServer().serverPort());
    SProgram program;
};

/// The program mosquitto_sub, with a record of all publications: a line for each, or several lines for a batch.
struct SSubscriber {
    explicit SSubscriber(const SBroker& broker, const QString& topic = "#"_s, const QString& format = "%t %p"_s)
    {
        QObject::connect(&program, &QProcess::readyRead, [this] { heard += program.readAll(); });
        program.start("mosquitto_sub"_s, {"-h"_s, "127.0.0.1"_s, "-p"_s, broker.port, "-t"_s, topic, "-F"_s, format});
        broker.publish("here"_s, "");
    }
    bool hears(const QByteArray& text)
    {
        return QTest::qWaitFor([&] { return heard.contains(text); }, 10000);
    }

    QByteArray heard; // must outlive the program, which may print until it has stopped
    SProgram program;
};

/// A broker that acknowledges no publication, and records the publications.
struct SForgetfulBroker : SServer {
    SForgetfulBroker()
    {
        connect(this, &QTcpServer::newConnection, [this] {
            link = nextPendingConnection();
            bytes.clear();
            connect(link, &QTcpSocket::readyRead, [this] {
                bytes += link->readAll();
                while (takePacket()) {
                }
            });
        });
    }
    bool takePacket()
    {
        int length = 0, begin = 1;
        for (bool more = true; more; ++begin) {
            if (begin >= bytes.size()) {
                return false;
            }
            more = (bytes.at(begin) & 0x80) != 0;
            length |= (bytes.at(begin) & 0x7f) << (7 * (begin - 1));
        }
        if (bytes.size() < begin + length) {
            return false;
        }
        const QByteArray body = bytes.mid(begin, length);
        const int type = bytes.at(0) & 0xf0, flags = bytes.at(0) & 0x0f;
        bytes.remove(0, begin + length);
        if (type == 0x10) { // connect
            link->write(hex("20020000"));
        } else if (type == 0xc0) { // ping
            link->write(hex("d000"));
        } else if (type == 0x30) {
            const int topicLength = body.at(1), idLength = (flags & 6) != 0 ? 2 : 0;
            const QByteArray topic = body.mid(2, topicLength).split('/').last();
            heard.append(QByteArray::number(flags) + ' ' + topic + ' ' + body.mid(2 + topicLength + idLength));
        }
        return true;
    }
    /// Returns the number of publications that begin with flags and the last part of the topic, like "3 state".
    int count(const QByteArray& begin) const
    {
        return static_cast<int>(std::count_if(heard.begin(), heard.end(),
                                              [&](const QByteArray& one) { return one.startsWith(begin + ' '); }));
    }

    QPointer<QTcpSocket> link;
    QByteArray bytes;
    QList<QByteArray> heard;
};
} // namespace

/// The MQTT bridge of cimshare with the broker mosquitto.
class CimshareMqttTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { REQUIRE_TOOL("mosquitto"); }

    void publishesTheBus()
    {
        const SBroker broker;
        SSubscriber all(broker), received(broker, "site/+/rx"_s, "%p"_s);
        SShare share(broker.options("--socketcand 0 --allow-send"_s));
        const QByteArray topic = "site/" + share.name.toLatin1();
        QVERIFY(all.hears("site/state {\"online\":true,"));
        const QByteArray state = R"(/state {"bitRate":0,"connected":true,"connection":"connected","firmware":"1.05",)";
        QVERIFY(all.hears(topic + state + "\"mac\":\"02:"));
        QVERIFY(all.hears(topic + "/load {\"percent\":null}"));
        SClient client(share);
        share.gateway.flood(5000);
        QTRY_COMPARE(received.heard.count('\n'), 5000);
        QTRY_COMPARE(client.frames().size(), 5000);
        const QList<QByteArray> frames = client.heard.mid(client.heard.indexOf("\n< frame ")).split('\n');
        QByteArray before;
        const QList<QByteArray> lines = received.heard.split('\n');
        for (int i = 0; i < 5000; ++i) {
            const QString end = " "_s + share.name + " "_s + floodText(i) + " R"_s;
            QVERIFY2(lines.at(i).startsWith('('), lines.at(i));
            QVERIFY2(lines.at(i).endsWith(end.toLatin1()), lines.at(i));
            const QByteArray time = lines.at(i).mid(1, 17); // as seconds.microseconds
            QVERIFY2(time > std::exchange(before, time), lines.at(i));
            QCOMPARE(frames.at(i + 1).split(' ').at(3), time);
        }
        QVERIFY(all.heard.count("/rx (") < 1000); // messages are published in batches
        share.gateway.sendStatus(0x08);
        QVERIFY(all.hears(topic + "/error {\"number\":8,\"text\":\"T93 CAN bus off error.\",\"time\":"));
        client.write("< send 123 1 11 >");
        QVERIFY(all.hears(topic + "/tx ("));
        QVERIFY(all.hears(" 123#11 T"));
        share.misbehave(&SSimFaults::mute);
        QVERIFY(all.hears("/state {\"bitRate\":0,\"connected\":false,\"connection\":\"silent\","));
        share.end();
        QVERIFY(all.hears("site/state {\"online\":false,"));
    }

    /// All payloads comply with the installed schema, and the state of the service includes the interfaces.
    void publishesJson()
    {
        REQUIRE_TOOL("jsonschema");
        SBroker broker;
        SSubscriber all(broker);
        SShare share(broker.options("--mqtt-format json --mqtt-last --allow-send"_s));
        const QByteArray name = share.name.toLatin1(), topic = "site/" + name;
        const auto state = [&](const QByteArray& flag) {
            return "site/state {\"connected\":" + flag + ",\"interfaces\":{\"" + name + "\":" + flag + "},\"online\":";
        };
        QVERIFY(all.hears(state("1") + '1'));
        SClock clock;
        share.gateway.flood(5000); // every identifier at least twice
        QVERIFY(all.hears(topic + "/last/123 {\"time\":"));
        QVERIFY(all.hears(R"(,"id":291,"data":"0000000000001123","direction":"rx"})"));
        broker.publish("site/"_s + share.name + "/send"_s,
                       QByteArray("123#1122\n7FF#\n") + QByteArray("x\n").repeated(20));
        QVERIFY(all.hears(topic + "/refused {\"further\":"));
        QVERIFY(all.hears(R"(,"id":291,"data":"1122","direction":"tx"},{"time":)"));
        share.gateway.sendStatus(0x08);
        QVERIFY(all.hears(topic + "/error {\"number\":8,"));
        QTRY_VERIFY(all.heard.count("/last/123 ") > 1);
        QVERIFY(all.heard.count("/last/123 ") <= clock.elapsed() / 1000 + 2);
        broker.program.stop();
        QVERIFY(share.happened("brokerAway"_s));
        share.gateway.flood(10);
        broker.start(); // the restarted broker has no retained messages
        QVERIFY(share.happened("gap"_s));
        SSubscriber later(broker);
        QVERIFY(later.hears(topic + "/gap {\"from\":"));
        QVERIFY(later.hears(topic + "/last/7FF {"));
        share.program.kill();
        QVERIFY(share.program.waitForFinished());
        QVERIFY(later.hears(state("0") + '0'));
        const QTemporaryDir folder;
        const QString file = writeFile(folder, all.heard + later.heard);
        const SOutcome kinds = run(QStringLiteral(CIM_MQTT_SCHEMA " ") + file);
        QVERIFY2(kinds.exitCode == 0, kinds.err);
        QCOMPARE(kinds.out, QByteArray("error gap load message messages refused service state\n"));
        share.start(); // so that the fixture can end it properly
        QVERIFY(share.happened("broker"_s));
    }

    void takesMessages()
    {
        const SBroker broker;
        SSubscriber all(broker);
        SShare share(broker.options("--allow-send"_s)), listening(broker.options("--allow 127.0.0.1"_s));
        QVERIFY(share.happened("broker"_s));
        QVERIFY(listening.happened("broker"_s));
        broker.publish("site/"_s + listening.name + "/send"_s, "123#");
        const QByteArray refused = R"(/refused {"line":"123#","reason":"sending is not allowed )";
        QVERIFY(all.hears(listening.name.toLatin1() + refused));
        broker.publish("site/"_s + share.name + "/send"_s,
                       "123#1122\n# comment\n\n(1.5) x 7ff#00 R\r\n(1.5) x 124#R\nhello");
        QTRY_COMPARE(share.sent, list("123#1122 7FF#00"_s));
        QVERIFY(all.hears("/refused {\"line\":\"(1.5) x 124#R\",\"reason\":\"not a frame that a T93 can send\"}"));
        QVERIFY(all.hears(" 123#1122 T"));
        QVERIFY(all.hears(" 7FF#00 T"));
        QVERIFY(all.hears("/refused {\"line\":\"hello\",\"reason\":\"frame "));
        QCOMPARE(all.heard.count("/refused"), 3);
        broker.publish("site/"_s + share.name + "/send"_s, QByteArray("124#\n").repeated(14'000));
        QVERIFY(all.hears("\"reason\":\"more than 64 KiB\"}"));
        broker.publish("site/"_s + share.name + "/send"_s, QByteArray("x\n").repeated(100));
        QVERIFY(all.hears("/refused {\"further\":90}"));
        QCOMPARE(share.sent.size(), 2);
        broker.publish("site/"_s + share.name + "/send"_s, QByteArray("125#\n").repeated(250));
        QVERIFY(all.hears("/refused {\"line\":\"125#\",\"reason\":\"more than 200 lines\"}"));
        QVERIFY(all.hears("/refused {\"further\":40}"));
        QTRY_COMPARE(share.sent.size(), 202);
        QVERIFY(share.happened("sameTopic"_s));
        QVERIFY(listening.happened("sameTopic"_s));
        share.end();
        // It would otherwise be sent in every connection.
        broker.publish("site/"_s + share.name + "/send"_s, "126#", {"-r"_s});
        share.start();
        QVERIFY(all.hears("/refused {\"line\":\"126#\",\"reason\":\"retained\"}"));
        QCOMPARE(share.sent.size(), 202);
        QVERIFY(listening.sent.isEmpty());
    }

    /// The state stays correct when another program publishes it, and when a service restarts while its old connection
    /// still exists at the broker, as after a power cut.
    void stateStaysTrue()
    {
        const SBroker broker;
        SSubscriber states(broker, "site/state"_s, "%p"_s);
        const auto hears = [&](int online, int offline) {
            const auto count = [&](const char* value) { return states.heard.count(QByteArray("\"online\":") + value); };
            (void)QTest::qWaitFor([&] { return count("true") >= online; }, 10000);
            return count("true") == online && count("false") == offline &&
                   states.heard.lastIndexOf("true") > states.heard.lastIndexOf("false");
        };
        SShare share(broker.options("--socketcand 0"_s));
        QVERIFY(hears(1, 0));
        broker.publish("site/state"_s, R"({"online":false})", {"-r"_s});
        QVERIFY(hears(2, 1));
        ::kill(static_cast<pid_t>(share.program.processId()), SIGSTOP);
        SProgram again;
        again.start(QStringLiteral(CIM_CIMSHARE), share.arguments);
        QVERIFY(hears(3, 2));
        again.stop();
        ::kill(static_cast<pid_t>(share.program.processId()), SIGCONT);
        QVERIFY(hears(4, 3));
        QVERIFY(share.happened("sameTopic"_s));
    }

    /// A flood of publications neither delays other clients nor uses memory.
    void floodOfPublications()
    {
        const SBroker broker;
        SSubscriber all(broker, "site/+/refused"_s);
        SShare share(broker.options("--allow-send --socketcand 0"_s));
        QVERIFY(share.happened("broker"_s));
        SClient client(share, "controlmode");
        const auto memory = [&] { // the largest amount used so far, in KiB
            const QByteArray status = contentOf("/proc/%1/status"_s.arg(share.program.processId()));
            return status.mid(status.indexOf("VmHWM:") + 6, 12).trimmed().split(' ').first().toInt();
        };
        const int before = memory();
        QTcpSocket publisher;
        publisher.connectToHost(QHostAddress(QHostAddress::LocalHost), broker.port.toUShort());
        publisher.write(hex("100c 0004 4d515454 04 02 003c 0000"));
        const QByteArray topic = ("site/"_s + share.name + "/send"_s).toLatin1();
        const QByteArray lines = QByteArray("7FF#11\n").repeated(9000);
        const QByteArray body = '\0' + QByteArray(1, static_cast<char>(topic.size())) + topic + lines;
        const int size = body.size();
        const char length[] = {char(size | 0x80), char(size >> 7 | 0x80), char(size >> 14), '\0'};
        std::vector<qint64> echoes;
        for (int i = 0; i < 40; ++i) {
            for (int k = 0; k < 100; ++k) {
                publisher.write(QByteArray("\x30") + length + body);
            }
            SClock clock;
            QVERIFY(client.asks("< echo >", "< echo >"));
            echoes.push_back(clock.elapsed());
            QTRY_COMPARE(publisher.bytesToWrite(), 0);
        }
        std::sort(echoes.begin(), echoes.end());
        QVERIFY2(echoes[20] < 200, qPrintable(QString::number(echoes[20])));
        // A sanitizer keeps freed memory.
        QVERIFY2(*CIM_SANITIZE != '\0' || memory() - before < 16 * 1024,
                 qPrintable(QString::number(memory() - before)));
        static const QRegularExpression MANY("\"further\":\\d{5}"_s); // counted over several publications
        QVERIFY(QTest::qWaitFor([&] { return MANY.match(QString::fromLatin1(all.heard)).hasMatch(); }));
    }

    /// Messages that could not be published are reported as a gap of that length, and other clients are served
    /// meanwhile.
    void brokerGoesAndComes_data() { rows({"killed", "stuck"}); }
    void brokerGoesAndComes()
    {
        SBroker broker;
        const bool isKilled = rowName() == "killed";
        if (!isKilled && *CIM_SANITIZE != '\0') {
            QSKIP("with a sanitizer the client is too slow for so many messages");
        }
        SShare share(broker.options("--socketcand 0"_s));
        SClient client(share);
        QVERIFY(share.happened("broker"_s));
        isKilled ? broker.program.stop() : void(::kill(static_cast<pid_t>(broker.program.processId()), SIGSTOP));
        QVERIFY(!isKilled || share.happened("brokerAway"_s));
        const int messages = isKilled ? 1000 : 200'000; // more messages than may wait
        share.gateway.flood(messages);
        QTRY_COMPARE_WITH_TIMEOUT(client.heard.count('>'), messages + 1, 30000);
        isKilled ? broker.start() : void(::kill(static_cast<pid_t>(broker.program.processId()), SIGCONT));
        QVERIFY(share.happened("gap"_s));
        SSubscriber all(broker);
        QVERIFY(all.hears("/gap {\"from\":"));
        QVERIFY(!isKilled || all.heard.contains("\"messages\":1000,"));
        QTRY_VERIFY((share.put("123#"), all.heard.contains(" 123# R")));
    }

    /// An unacknowledged event is sent again after a loss, before anything newer. The number of waiting events is
    /// bounded.
    void brokerThatAcknowledgesNothing()
    {
        SForgetfulBroker broker;
        SShare share("--allow-send --mqtt-topic site --mqtt 127.0.0.1:%1"_s.arg(broker.serverPort()));
        QTRY_VERIFY(broker.heard.join().contains(R"("connected":true)"));
        share.gateway.sendStatus(0x08);
        QTRY_COMPARE(broker.count("2 error"), 1); // quality of service 1, not retained
        share.put("123#");
        QTRY_COMPARE(broker.count("0 rx"), 1);
        broker.link->abort();
        broker.heard.clear();
        QTRY_COMPARE(broker.count("3 load"), 1); // the last publication at the beginning of a connection
        QCOMPARE(broker.count("10 error"), 1);   // the same error, sent again
        QCOMPARE(broker.count("0 rx"), 0);
        const QByteArray send = "site/" + share.name.toLatin1() + "/send", lines = QByteArray("x\n").repeated(100);
        const auto publish = [&](const QByteArray& payload) {
            const auto size = static_cast<unsigned int>(send.size() + payload.size() + 2);
            broker.link->write("\x30" + QByteArray(1, static_cast<char>(size % 128 + 128)) +
                               static_cast<char>(size / 128) + '\0' + static_cast<char>(send.size()) + send + payload);
        };
        for (int i = 1; i <= 100; ++i) { // eleven answers for each publication
            publish(lines);
            QTRY_VERIFY(broker.count("2 refused") >= std::min(11 * i, 950));
        }
        publish("124#");
        QTRY_COMPARE(broker.count("0 tx"), 1); // published after all earlier events
        QVERIFY2(broker.count("2 refused") < 1000, qPrintable(QString::number(broker.count("2 refused"))));
        const auto isAgain = [](const QByteArray& one) { return one.startsWith('1'); };
        QVERIFY(std::is_partitioned(broker.heard.begin(), broker.heard.end(), isAgain));
    }

    void brokerThatReadsNothing()
    {
        SServer broker;
        SShare share("--status 1 --mqtt 127.0.0.1:%1"_s.arg(broker.serverPort()));
        QTRY_VERIFY(broker.hasPendingConnections());
        QTcpSocket* const link = broker.nextPendingConnection();
        QTRY_VERIFY(link->bytesAvailable() > 8);
        link->setReadBufferSize(1);
        QCOMPARE(link->readAll().mid(2, 7), QByteArray("\0\x04MQTT\x04", 7)); // the header of MQTT 3.1.1
        link->write(hex("20020000"));
        QVERIFY(share.happened("broker"_s));
        share.gateway.flood(300'000);
        QVERIFY(share.happened("lost"_s, 1, 30000)); // the limit of waiting messages is reached
        share.end();
    }

    /// Whatever a broker sends, other clients are served, and the connection continues or is retried.
    void brokerThatErrs_data()
    {
        const auto row = columns<QByteArray, QString, QString>("answer", "event", "text");
        const QByteArray accepted = hex("20020000");
        const auto end = "brokerAway"_s, go = "broker"_s;
        row("nothing", {}, {}, {});
        row("refused: identifier", hex("20020002"), end, "identifier rejected"_s);
        row("refused: reason of version 5", hex("2003008700"), end, "unknown reason"_s);
        row("refused: property of version 5", hex("20050084027f01"), end, "unknown reason"_s);
        row("accepted with a property of version 5", hex("20050000027f01"), go, {});
        row("accepted very often", accepted.repeated(10'000), go, {});
        row("end with a property of version 5", accepted + hex("e00400027f01"), end, {});
        row("authentication of version 5", accepted + hex("f00400027f01"), end, {});
        row("length without end", hex("20ffffffffff"), end, {});
        row("longest message, only begun", accepted + hex("30ffffff7f"), go, {});
        row("topic longer than its packet", accepted + hex("300400ff6161"), end, {});
        row("topic that is no text", accepted + hex("30040002c328"), end, {});
        row("topic with a wildcard", accepted + hex("30050003612f23"), go, {});
        row("no topic", accepted + hex("30020000"), end, {});
        row("topic that nobody subscribed", accepted + hex("30060003782f7931").repeated(10'000), go, {});
        row("quality 3", accepted + hex("3606000178000131"), end, {});
        row("answers to no request", accepted + hex("9003ffff80 4002ffff 5002ffff 7002ffff b002ffff d000"), go, {});
        row("requests", accepted + hex("c000 82060001000161 00"), end, {});
        row("web server", QByteArray("HTTP/1.1 400 Bad Request\r\n\r\n"), end, {});
    }
    void brokerThatErrs()
    {
        SServer broker;
        QObject::connect(&broker, &QTcpServer::newConnection, [&] {
            QTcpSocket* const link = broker.nextPendingConnection();
            QObject::connect(link, &QTcpSocket::readyRead, [=, isFirst = true]() mutable {
                link->readAll();
                link->write(std::exchange(isFirst, false) ? cell<QByteArray>("answer") : QByteArray());
            });
        });
        SShare share("--socketcand 0 --mqtt 127.0.0.1:%1"_s.arg(broker.serverPort()));
        const QString event = cell<QString>("event");
        QVERIFY(event.isEmpty() || share.happened(event));
        const QString text = event.isEmpty() ? QString() : share.text(event);
        QVERIFY2(text.contains(cell<QString>("text")), qPrintable(text));
        SClient client(share);
        share.put("123#11");
        QTRY_COMPARE(client.seen(), "123#11"_s);
    }

    /// A log that is not read any more delays nothing.
    void unreadOutput()
    {
        const QString options = "--socketcand %1"_s.arg(SServer().serverPort()); // a free port
        SShare share(options);
        share.end();
        const QTemporaryDir folder;
        const QByteArray pipe = folder.filePath("pipe"_s).toLocal8Bit();
        QCOMPARE(::mkfifo(pipe.constData(), 0600), 0);
        const int reader = ::open(pipe.constData(), O_RDWR | O_CLOEXEC);
        ::fcntl(reader, F_SETPIPE_SZ, 4096);
        share.program.setStandardOutputFile(QString::fromLocal8Bit(pipe));
        share.program.start(QStringLiteral(CIM_CIMSHARE), share.arguments); // listens on the same port
        const auto connects = [&] {
            QTcpSocket socket;
            socket.connectToHost(QHostAddress(QHostAddress::LocalHost), share.port("socketcand"_s));
            return socket.waitForConnected();
        };
        QTRY_VERIFY(connects());
        for (int i = 0; i < 100; ++i) { // fewer than the places of one address
            QVERIFY(connects());        // two lines each: more than fit into the pipe
        }
        SClient client(share);
        QVERIFY(client.asks("< echo >", "< echo >"));
        share.program.terminate();
        QVERIFY(share.program.waitForFinished(3000));
        ::close(reader);
    }

    void linesWaitForTheirReader()
    {
        int ends[2];
        QCOMPARE(::pipe2(ends, O_CLOEXEC), 0);
        ::fcntl(ends[1], F_SETPIPE_SZ, 4096);
        std::FILE* const stream = ::fdopen(ends[1], "w");
        vexmor::Apps::Cimshare::CEventLog log(false, stream);
        for (int i = 0; i < 10'000; ++i) {
            log.print("event", "hall"_s, "line "_s + QString::number(i));
        }
        QFile reader;
        reader.open(ends[0], QIODevice::ReadOnly, QFileDevice::AutoCloseHandle);
        int printed = 0;
        QByteArray line = reader.readLine();
        for (; line.startsWith("hall: line "); line = reader.readLine()) {
            ++printed;
        }
        QVERIFY2(printed >= 1000 && printed < 10'000, qPrintable(QString::number(printed)));
        QCOMPARE(line, "log: " + QByteArray::number(10'000 - printed) + " lines were left out\n");
    }

    void unusableFiles_data()
    {
        const auto row = columns<QString, QString>("options", "text");
        const QString client = "--mqtt-ca ca.pem --mqtt-cert client.pem --mqtt-key "_s;
        row("authority that is none", "--mqtt-ca ca.key"_s, "ca.key cannot be used: no certificate"_s);
        row("certificate that is none", "--mqtt-ca ca.pem --mqtt-cert client.key --mqtt-key client.key"_s,
            "client.key cannot be used: "_s);
        row("key that is none", client + "ca.pem"_s, "ca.pem cannot be used: "_s);
        row("key of another certificate", client + "ca.key"_s, "ca.key cannot be used: key values mismatch"_s);
        row("encrypted key", client + "locked.key"_s, "locked.key cannot be used: interrupted or cancelled"_s);
    }
    /// Unusable files are reported at the start, not at each connection.
    void unusableFiles()
    {
        REQUIRE_TOOL("openssl");
        const QTemporaryDir folder;
        makeCertificates(folder);
        const SOutcome outcome = run("cd "_s + folder.path() + QStringLiteral(R"( &&
            openssl ec -aes128 -passout pass:secret -in client.key -out locked.key 2>log &&
            timeout 5 )" CIM_CIMSHARE " sim --mqtt 127.0.0.1:1 ") +
                                     cell<QString>("options"));
        QCOMPARE(outcome.exitCode, 2);
        QVERIFY2(outcome.err.contains(cell<QString>("text").toUtf8()), outcome.err.constData());
    }

    void whoMayConnect_data()
    {
        const auto row = columns<QString, QString>("options", "refusal"); // empty: the connection is accepted
        const QString key = " --mqtt-cert F/client.pem --mqtt-key F/client.key"_s;
        const QString name = " --mqtt-credentials F/right"_s;
        row("everything right", "--mqtt-ca F/ca.pem"_s + key + name, {});
        row("wrong password", "--mqtt-ca F/ca.pem --mqtt-credentials F/wrong"_s + key, "not authorised"_s);
        row("nobody", "--mqtt-ca F/ca.pem"_s + key, "not authorised"_s);
        row("no certificate", "--mqtt-ca F/ca.pem"_s + name, "certificate required|lost"_s);
        row("broker of another authority", "--mqtt-ca F/other.pem"_s + key + name, "certificate verify failed"_s);
        row("no TLS", "--mqtt-plaintext"_s + name, "lost"_s);
    }
    void whoMayConnect()
    {
        REQUIRE_TOOL("openssl");
        const QTemporaryDir folder;
        makeCertificates(folder);
        const SOutcome made = run("cd "_s + folder.path() + QString::fromLatin1(R"( && exec 2>log
            chmod 644 *; umask 077; printf 'hall\nsecret\n' > right; printf 'hall\nsicret\n' > wrong
            touch users && mosquitto_passwd -b users hall secret && chmod 644 users)"));
        QCOMPARE(made.exitCode, 0);
        QFile::setPermissions(folder.path(), QFile::Permissions(0x7755));
        const SBroker broker(QByteArray("cafile F/ca.pem\ncertfile F/server.pem\nkeyfile F/server.key\n"
                                        "require_certificate true\npassword_file F/users\n")
                                 .replace('F', folder.path().toLatin1()));
        SShare share(broker.options(cell<QString>("options").replace("F/"_s, folder.path() + "/"_s)));
        const QString refusal = cell<QString>("refusal");
        const QString event = refusal.isEmpty() ? "broker"_s : "brokerAway"_s;
        QVERIFY(share.happened(event));
        QVERIFY2(share.text(event).contains(QRegularExpression(refusal)), qPrintable(share.text(event)));
    }
};

QTEST_GUILESS_MAIN(CimshareMqttTest)
#include "tst_cimshareMqtt.moc"
