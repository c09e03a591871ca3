#include "apps/cimshare/eventLog.h"
#include "apps/cimshare/mqttLink.h"
#include "requireTool.h"
#include "shareFixture.h"

#include <csignal>
#include <fcntl.h>
#include <optional>
#include <unistd.h>

using namespace vexmor::Test;
using vexmor::Apps::Cimshare::CEventLog;
using vexmor::Apps::Cimshare::CMqttLink;

namespace
{
const QByteArray ACCEPTED = hex("20020000"); ///< The packet with which a broker accepts a connection.

/// Returns the packet of a publication with quality of service 0.
QByteArray publication(const QByteArray& topic, const QByteArray& payload)
{
    const int size = topic.size() + payload.size() + 2;
    const char length[] = {char(size | 0x80), char(size >> 7 | 0x80), char(size >> 14), '\0', char(topic.size())};
    return '0' + QByteArray(length, sizeof length) + topic + payload;
}

/// The broker mosquitto of Debian, on a port of its own.
struct SBroker {
    explicit SBroker(const QByteArray& rules = "allow_anonymous true\nlog_type debug\n")
    {
        writeFile(folder, "listener " + port.toLatin1() + " 127.0.0.1\n" + rules);
        start();
    }
    void start()
    {
        program.setStandardErrorFile(folder.filePath("log"_s));
        program.start("mosquitto"_s, {"-c"_s, folder.filePath("a.log"_s)});
        const auto listens = [this] { return SPeer(port.toUShort()).waitForConnected(100); };
        require(QTest::qWaitFor(listens), "mosquitto listens"_s);
    }
    QString log() const { return QString::fromUtf8(contentOf(folder.filePath("log"_s))); }
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
    const SKeptPort kept;
    const QString port = QString::number(kept.localPort());
    SProgram program;
};

/// The program mosquitto_sub, with a record of all publications: a line for each, or several lines for a batch.
struct SSubscriber {
    explicit SSubscriber(const SBroker& broker, const QString& topic = "#"_s, const QString& format = "%t %p"_s)
    {
        QObject::connect(&program, &QProcess::readyRead, [this] { heard += program.readAll(); });
        program.start("mosquitto_sub"_s, list("-h 127.0.0.1 -V 5 --retain-as-published -p "_s + broker.port) +
                                             QStringList{"-t"_s, topic, "-F"_s, format});
        broker.publish("here"_s, "");
    }
    bool hears(const QByteArray& text)
    {
        return QTest::qWaitFor([&] { return heard.contains(text); }, 10000);
    }

    QByteArray heard; // must outlive the program, which may print until it has stopped
    SProgram program;
};

/// A broker that answers only the request to connect.
struct SForgetfulBroker : SServer {
    explicit SForgetfulBroker(const QByteArray& answer = ACCEPTED)
    {
        connect(this, &QTcpServer::newConnection, [this, answer] {
            link = nextPendingConnection();
            ++connections;
            bytes.clear();
            connect(link, &QTcpSocket::readyRead, [this, answer, isFirst = true]() mutable {
                (isFirst ? request : bytes) += link->readAll();
                std::exchange(isFirst, false) ? void(link->write(answer)) : void();
            });
        });
    }
    QPointer<QTcpSocket> link;
    int connections = 0;
    QByteArray request; ///< The requests to connect.
    QByteArray bytes;   ///< Everything after the request to connect.
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
        SSubscriber all(broker, "#"_s, "%r %t %p"_s), received(broker, "site/+/rx"_s, "%p"_s);
        SShare share(broker.options("--socketcand 0 --allow-send"_s));
        SProgram other; // of another topic: one does not end the connection of the other
        other.start(QStringLiteral(CIM_CIMSHARE), QStringList(share.arguments).replaceInStrings("site"_s, "other"_s));
        QVERIFY(all.hears("other/state {\"online\":true,"));
        const QByteArray topic = "site/" + share.name.toLatin1();
        const QByteArray state = R"(/state {"bitRate":0,"connected":true,"connection":"connected","firmware":"1.05",)";
        QVERIFY(all.hears("1 " + topic + state + "\"mac\":\"02:"));
        QVERIFY(all.hears("1 " + topic + "/load {\"percent\":null}"));
        SClient client(share);
        share.gateway.flood(5000);
        QTRY_COMPARE(received.heard.count('\n'), 5000);
        const QList<QByteArray> lines = received.heard.split('\n');
        for (int i = 0; i < 5000; ++i) {
            const QByteArray time = lines.at(i).mid(1, 17); // as seconds.microseconds
            const QString line = "(%1) %2 %3 R"_s.arg(QString::fromLatin1(time), share.name, floodText(i));
            QCOMPARE(lines.at(i), line.toLatin1());
        }
        QVERIFY(all.heard.count("/rx (") < 1000); // messages are published in batches
        share.gateway.sendStatus(0x08);
        QVERIFY(all.hears("0 " + topic + "/error {\"number\":8,\"text\":\"T93 CAN bus off error.\",\"time\":"));
        client.write("< send 123 1 11 >");
        QVERIFY(all.hears("0 " + topic + "/tx ("));
        QVERIFY(all.hears(" 123#11 T"));
        share.misbehave(&SSimFaults::mute);
        QVERIFY(all.hears("/state {\"bitRate\":0,\"connected\":false,\"connection\":\"silent\","));
        share.gateway.setFaults({});
        share.put("7F1#EE");
        QVERIFY(client.hears(" EE >"));
        share.end();
        QVERIFY(all.hears(" 7F1#EE R")); // the batch that waited
        QVERIFY(all.hears("1 site/state {\"online\":false,"));
        QCOMPARE(share.count("brokerAway"_s), 0);
    }

    /// All payloads comply with the installed schema, and the state of the service includes the interfaces.
    void publishesJson()
    {
        REQUIRE_TOOL("jsonschema");
        SBroker broker;
        SSubscriber all(broker);
        SShare share(broker.options("--mqtt-format json --mqtt-last --allow-send --socketcand 0 --status 1 sim"_s));
        const QByteArray name = share.name.toLatin1(), topic = "site/" + name;
        const auto state = [&](const QByteArray& flag) {
            return "site/state {\"connected\":" + flag + ",\"interfaces\":{\"" + name + "\":" + flag +
                   ",\"sim\":" + flag + "},\"online\":";
        };
        QVERIFY(all.hears(state("1") + '1'));
        share.gateway.flood(5000); // every identifier at least twice
        QTRY_VERIFY(QString::fromLatin1(all.heard).contains(QRegularExpression(
            R"(/last/123 \{"time":\d{10}\.\d{6},"id":291,"data":"0000000000001123","direction":"rx"\})"_s)));
        broker.publish("site/"_s + share.name + "/send"_s, "123#1122\n7FF#\n" + QByteArray("x\n").repeated(20));
        QVERIFY(all.hears(topic + "/refused {\"further\":"));
        QVERIFY(all.hears(R"(,"id":291,"data":"1122","direction":"tx"},{"time":)"));
        share.gateway.sendStatus(0x08);
        QVERIFY(all.hears(topic + "/error {\"number\":8,"));
        const auto states = all.heard.count("/state {");
        QTRY_VERIFY(all.heard.count("/last/123 ") > 1);
        QVERIFY(all.heard.count("/last/123 ") < 4);                                  // at most once per second
        QCOMPARE(all.heard.count("/state {"), states);                               // published only when it changes
        QTRY_VERIFY(broker.log().section("/error'"_s, 1).contains("UNSUBSCRIBE"_s)); // asks to confirm all until then
        broker.program.stop();
        QVERIFY(share.happened("brokerAway"_s));
        SClient client(share);
        share.gateway.flood(1000);
        QTRY_COMPARE(client.frames().size(), 1000);
        const double halfLost = static_cast<double>(QDateTime::currentMSecsSinceEpoch()) / 1000;
        share.gateway.flood(1000);
        QTRY_COMPARE(client.frames().size(), 2000);
        broker.start(); // the restarted broker has no retained messages
        QVERIFY(share.happened("gap"_s));
        SSubscriber gaps(broker, "site/"_s + share.name + "/gap"_s, "%p"_s), later(broker);
        QVERIFY(gaps.hears("}"));
        const QJsonObject gap = QJsonDocument::fromJson(gaps.heard).object();
        QCOMPARE(gap["messages"_s], QJsonValue(2000));
        QVERIFY2(gap["from"_s].toDouble() < halfLost, gaps.heard);
        QVERIFY2(gap["to"_s].toDouble() > halfLost, gaps.heard);
        QTRY_VERIFY(share.text("lost"_s).section(QLatin1Char(' '), 0, 0).toInt() >= 2000); // on all buses
        QVERIFY(later.hears(topic + "/last/7FF {"));
        QVERIFY(later.hears(topic + "/state {"));
        broker.publish("site/"_s + share.name + "/send"_s, "7F0#");
        QVERIFY(later.hears(topic + "/tx [{\"time\":"));
        share.put("7FF#");
        QTRY_COMPARE(later.heard.count("/last/7FF "), 2); // published in the next second
        QCOMPARE(later.heard.count("/last/123 "), 1);     // only new ones
        QCOMPARE(share.count("gap"_s), 1 + 1);            // one of each bus
        QCOMPARE(share.count("brokerAway"_s), 1);
        share.misbehave(&SSimFaults::mute);
        QVERIFY(later.hears(R"(/state {"connected":0,"interfaces":{")" + name + R"(":0,"sim":1},)")); // not all are
        share.program.kill();
        QVERIFY(share.program.waitForFinished());
        QVERIFY(later.hears(state("0") + '0'));
        QVERIFY(SSubscriber(broker).hears(state("0") + '0')); // retained
        const QTemporaryDir folder;
        const QString file = writeFile(folder, all.heard + later.heard);
        const SOutcome kinds = run(QStringLiteral(CIM_MQTT_SCHEMA " ") + file);
        QVERIFY2(kinds.exitCode == 0, kinds.err);
        QCOMPARE(kinds.out, QByteArray("error gap load message messages refused service state\n"));
        share.start();
        QVERIFY(share.happened("broker"_s));
        share.end();
        QCOMPARE(share.count("sameTopic"_s), 0); // the state of the killed service is no other service
    }

    void takesMessages()
    {
        const SBroker broker;
        SSubscriber all(broker);
        SShare share(broker.options("--allow-send"_s)), listening(broker.options("--allow 127.0.0.1"_s));
        QVERIFY(share.happened("broker"_s));
        QVERIFY(listening.happened("broker"_s));
        const auto publish = [&](const QByteArray& lines, const QStringList& more = {}) {
            broker.publish("site/"_s + share.name + "/send"_s, lines, more);
        };
        broker.publish("site/"_s + listening.name + "/send"_s, "123#");
        const QByteArray refused = R"(/refused {"line":"123#","reason":"sending is not allowed )";
        QVERIFY(all.hears(listening.name.toLatin1() + refused));
        publish("123#1122\n# comment\n\n(1.5) x 7ff#00 R\r\n(1.5) x 124#R\nhello");
        QTRY_COMPARE(share.sent, list("123#1122 7FF#00"_s));
        QVERIFY(all.hears("/refused {\"line\":\"(1.5) x 124#R\",\"reason\":\"not a frame that a T93 can send\"}"));
        QVERIFY(all.hears("/refused {\"line\":\"hello\",\"reason\":\"frame "));
        QCOMPARE(all.heard.count("/refused"), 3);
        const QByteArray longest = QByteArray("125#\n\n").repeated(250) + '#' + QByteArray(65536 - 1501, 'x');
        publish(longest + 'x');
        QVERIFY(all.hears("125#\",\"reason\":\"more than 64 KiB\"}")); // with the first 100 bytes
        publish(QByteArray("x\n").repeated(100));
        QVERIFY(all.hears("/refused {\"further\":90}"));
        QCOMPARE(all.heard.count("/refused {\"line\":\"x\""), 10);
        QCOMPARE(share.sent.size(), 2);
        publish(longest);
        QVERIFY(all.hears("/refused {\"line\":\"125#\",\"reason\":\"more than 200 lines\"}"));
        QVERIFY(all.hears("/refused {\"further\":40}"));
        QTRY_COMPARE(share.sent.size(), 202);
        // Publications without a pause are refused and counted, and do not stop the later ones.
        SPeer flood(broker.port.toUShort());
        const QByteArray topic = ("site/"_s + share.name + "/send"_s).toLatin1();
        flood.write(hex("100c00044d515454 0402003c0000") +
                    publication(topic, QByteArray("7FF#11\n").repeated(9000)).repeated(50));
        const auto isSent = [&] {
            publish("127#");
            return share.sent.contains("127#"_s);
        };
        QTRY_VERIFY(isSent());
        // Counted over several publications.
        QTRY_VERIFY(QString::fromLatin1(all.heard).contains(QRegularExpression("\"further\":\\d{5}"_s)));
        QVERIFY(share.happened("sameTopic"_s));
        QVERIFY(listening.happened("sameTopic"_s));
        share.end();
        publish("126#", {"-r"_s}); // it would otherwise be sent in every connection
        share.start();
        QVERIFY(all.hears("/refused {\"line\":\"126#\",\"reason\":\"retained\"}"));
        QVERIFY(!share.sent.contains("126#"_s));
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
        for (int i = 1; i <= 2; ++i) {
            broker.publish("site/state"_s, "{\"online\":false,\"service\":\"" + QByteArray(200, 'x') + "\"}", {"-r"_s});
            QVERIFY(hears(1 + i, i));
        }
        ::kill(static_cast<pid_t>(share.program.processId()), SIGSTOP);
        SProgram again;
        again.start(QStringLiteral(CIM_CIMSHARE), share.arguments);
        QVERIFY(hears(4, 3));
        again.stop();
        ::kill(static_cast<pid_t>(share.program.processId()), SIGCONT);
        QVERIFY(hears(5, 4));
        QVERIFY(share.happened("sameTopic"_s, 2)); // once in each connection
        QCOMPARE(share.named("sameTopic"_s).first()["text"_s].toString().count(QLatin1Char('x')), 100);
    }

    /// A link tries each of its nodes, and ends a connection whose broker answers nothing. What waits in either
    /// direction is bounded.
    void boundsWhatWaits()
    {
        const SForgetfulBroker erring(ACCEPTED + hex("300400ff6161"));
        SForgetfulBroker broker;
        vexmor::Apps::Cimshare::SBroker nodes;
        nodes.nodes = list("127.0.0.1:%1 127.0.0.1:%2"_s.arg(erring.serverPort()).arg(broker.serverPort()));
        std::optional<CMqttLink> link(std::in_place, nodes, "test", "site/state"_s, "");
        int connections = 0, lost = 0, confirmed = 0;
        QStringList arrived;
        const auto countLost = [&](const QString&, int messages) { lost += messages; };
        connect(
            &*link, &CMqttLink::connected, &broker, [&] { ++connections; }, Qt::QueuedConnection);
        connect(&*link, &CMqttLink::lost, &broker, countLost, Qt::QueuedConnection);
        link->subscribe("flood"_s, [&] { arrived += "flood"_s; });
        link->subscribe("end"_s, [&] { arrived += "end"_s; });
        link->start();
        const auto accepted = [&](int messages) {
            int result = 0;
            while (link->publish("site/x"_s, QByteArray(100 * messages, 'x'), false, messages) && result < 2000) {
                ++result;
            }
            return result;
        };
        const auto isConfirmed = [&] {
            broker.link->write(hex("b0020001")); // confirms what was sent before the last request
            return (confirmed += accepted(1000)) > 0;
        };
        for (int round = 1; round <= 2; ++round, confirmed = 0) {
            QTRY_COMPARE_WITH_TIMEOUT(connections, 2 * round, 17000); // ten seconds without an answer end a connection
            QCOMPARE(lost, (round - 1) * 100'000);
            QCOMPARE(accepted(1000), 100);
            QCOMPARE(accepted(0), round == 1 ? 1000 : 0);
            QTRY_VERIFY(isConfirmed());
            // Unacknowledged events are sent again, before anything newer.
            const QByteArray event = hex(round == 1 ? "320a0006" : "3a0a0006") + "site/x";
            QTRY_COMPARE(broker.bytes.count(event), 1000);
            QTRY_VERIFY(round == 1 || broker.bytes.lastIndexOf(event) < broker.bytes.indexOf("site/xxx"));
            broker.link->write(publication("flood", "x\n").repeated(2000) + publication("end", ""));
            QTRY_COMPARE(arrived, list("flood end"_s));
            const auto inbox = link->take("flood"_s);
            QCOMPARE(static_cast<int>(inbox.arrivals.size()), 256 * 1024 / (256 + 2));
            QCOMPARE(inbox.refusedLines, 2000 - 256 * 1024 / (256 + 2));
            link->take("end"_s);
            arrived.clear();
            (void)accepted(1000); // as many as may wait, because the last confirmations have arrived
        }
        broker.link->setReadBufferSize(1);
        QTRY_VERIFY(isConfirmed()); // ten million bytes, which the broker does not read
        const SClock clock;
        link.reset();
        QVERIFY2(clock.elapsed() < 5000, qPrintable(QString::number(clock.elapsed())));
    }

    /// Whatever a broker sends, other clients are served, and the connection continues or is retried.
    void brokerThatErrs_data()
    {
        const auto row = columns<QByteArray, QString>("answer", "text"); // the beginning or the end of an event's text
        row("nothing", {}, "02:00:00:54:39:33"_s);
        row("refused: identifier", hex("20020002"), "identifier rejected."_s);
        row("accepted very often", ACCEPTED.repeated(10'000), "connected, "_s);
        row("a topic longer than its packet", ACCEPTED + hex("300400ff6161"), "not connected to the broker: "_s);
    }
    void brokerThatErrs()
    {
        const SForgetfulBroker broker(cell<QByteArray>("answer"));
        const SClock clock;
        SShare share("--socketcand 0 --mqtt 127.0.0.1:%1"_s.arg(broker.serverPort()));
        const QString text = cell<QString>("text");
        const auto isPrinted = [&] {
            return std::any_of(share.events.begin(), share.events.end(),
                               [&](const QJsonObject& one) { return one["text"_s].toString().contains(text); });
        };
        QTRY_VERIFY_WITH_TIMEOUT(isPrinted(), 10000);
        SClient client(share);
        share.put("123#11");
        QTRY_COMPARE(client.seen(), "123#11"_s);
        if (rowName().startsWith("refused")) {
            QTRY_VERIFY_WITH_TIMEOUT(broker.connections == 3, 10000);
            QVERIFY2(clock.elapsed() > 2500, QByteArray::number(clock.elapsed())); // pauses of one and two seconds
        }
        QVERIFY(share.count("brokerAway"_s) <= 1 && share.count("broker"_s) < 5);
        QVERIFY2(broker.connections < 5, qPrintable(QString::number(broker.connections)));
        QVERIFY(broker.request.at(broker.request.indexOf("MQTT") + 9) <= 23); // each broker takes this as an identifier
    }

    void linesWaitForTheirReader()
    {
        int ends[2];
        QCOMPARE(::pipe2(ends, O_CLOEXEC), 0);
        ::fcntl(ends[1], F_SETPIPE_SZ, 4096);
        CEventLog log(false, ::fdopen(ends[1], "w"));
        for (int i = 0; i < 10'000; ++i) {
            log.print("event", "ha\nll"_s, "line "_s + QString::number(i));
        }
        QFile reader;
        reader.open(ends[0], QIODevice::ReadOnly, QFileDevice::AutoCloseHandle);
        int printed = 0;
        QByteArray line = reader.readLine();
        for (; line.startsWith("ha?ll: line "); line = reader.readLine()) {
            ++printed;
        }
        QVERIFY2(printed >= 1000 && printed < 1500, qPrintable(QString::number(printed)));
        QCOMPARE(line, "log: " + QByteArray::number(10'000 - printed) + " lines were left out\n");
        QCOMPARE(log.leftOut(), 10'000U - static_cast<unsigned int>(printed));
    }

    /// At most 100 lines per second are printed for an event of a subject.
    void linesPerSecond()
    {
        const QTemporaryDir folder;
        const QString path = writeFile(folder, "");
        CEventLog log(false, std::fopen(QFile::encodeName(path).constData(), "w"));
        for (int second = 1; second <= 2; ++second) {
            for (int i = 0; i < 150; ++i) {
                log.printLimited("one", "hall"_s, "line"_s);
                log.printLimited("other", "hall"_s, "line"_s);
                log.printLimited("one", "stage"_s, "line"_s);
            }
            QTRY_COMPARE(contentOf(path).count(": 50 lines were left out (o"), 3 * second);
            QCOMPARE(contentOf(path).count(": line\n"), 300 * second);
            QCOMPARE(log.leftOut(), 150U * static_cast<unsigned int>(second));
        }
    }

    void certificates_data()
    {
        const auto row = columns<QString, QString>("options", "line"); // the first line about the broker
        const QString ca = "--mqtt-ca ca.pem "_s, own = "--mqtt-cert client.pem --mqtt-key "_s;
        const QString key = own + "client.key "_s, right = "--mqtt-credentials right"_s;
        row("everything right", ca + key + right, "mqtt: connected"_s);
        row("broker of another authority", "--mqtt-ca other.pem "_s + key + right, "certificate verify failed"_s);
        // Unusable files are reported at the start, not at each connection.
        row("authority that is none", "--mqtt-ca ca.key"_s, "ca.key cannot be used: no certificate"_s);
        row("certificate that is none", ca + "--mqtt-cert ca.key --mqtt-key ca.key"_s, "ca.key cannot be used: "_s);
        row("key that is none", ca + own + "ca.pem"_s, "ca.pem cannot be used: "_s);
        row("key of another certificate", ca + own + "ca.key"_s, "ca.key cannot be used: key values mismatch"_s);
        row("password known to others", "--mqtt-plaintext --mqtt-credentials known"_s, "known: other users"_s);
        row("password known to a group", "--mqtt-plaintext --mqtt-credentials group"_s, "group: other users"_s);
        row("encrypted key", ca + own + "locked.key"_s, "locked.key cannot be used: interrupted or cancelled"_s);
    }
    void certificates()
    {
        REQUIRE_TOOL("openssl");
        const QTemporaryDir folder;
        const SOutcome made = run("cd "_s + folder.path() + QString::fromLatin1(R"( && exec 2>log
            make="openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2"
            for ca in ca other; do
                $make -subj /CN=$ca -keyout $ca.key -out $ca.pem || exit 1
            done
            for who in server client; do
                $make -CA ca.pem -CAkey ca.key -subj /CN=$who -addext subjectAltName=IP:127.0.0.1 -keyout $who.key -out $who.pem || exit 1
            done
            openssl ec -aes128 -passout pass:secret -in client.key -out locked.key &&
            chmod 755 . && chmod 644 * && touch users && mosquitto_passwd -b users hall secret && chmod 644 users &&
            umask 077 && printf 'hall\r\nsecret' > right && cp right known && chmod 604 known && cp right group && chmod 640 group)"));
        QCOMPARE(made.exitCode, 0);
        const SBroker broker(QByteArray("cafile F/ca.pem\ncertfile F/server.pem\nkeyfile F/server.key\n"
                                        "require_certificate true\npassword_file F/users\n")
                                 .replace('F', folder.path().toLatin1()));
        const SOutcome outcome =
            run("cd "_s + folder.path() + QStringLiteral(" && exec 3< <(exec " CIM_CIMSHARE " sim ") +
                broker.options(cell<QString>("options")) +
                " 2>&1) && cimshare=$!; timeout 20 grep -m1 -E '^(mqtt|cimshare): ' <&3; kill $cimshare"_s);
        QVERIFY2(QString::fromUtf8(outcome.out).contains(QRegularExpression(cell<QString>("line"))), outcome.out);
    }
};

QTEST_GUILESS_MAIN(CimshareMqttTest)
#include "tst_cimshareMqtt.moc"
