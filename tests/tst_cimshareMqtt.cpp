#include "requireTool.h"
#include "shareFixture.h"

#include <csignal>

using namespace vexmor::Test;

namespace
{
/// A broker as Debian has it, on a port of its own.
struct SBroker {
    explicit SBroker(const QByteArray& rules = "allow_anonymous true\n")
    {
        QTcpServer free;
        free.listen(QHostAddress(QHostAddress::LocalHost));
        port = QString::number(free.serverPort());
        free.close();
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
    QString port;
    SProgram program;
};

/// mosquitto_sub: what was published, a line each, or several of a batch.
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

    SProgram program;
    QByteArray heard;
};
} // namespace

/// A bus at a broker of other people.
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
            const QByteArray time = lines.at(i).mid(1, 17); // seconds.microseconds
            QVERIFY2(time > std::exchange(before, time), lines.at(i));
            QCOMPARE(frames.at(i + 1).split(' ').at(3), time);
        }
        QVERIFY(all.heard.count("/rx (") < 1000); // batches
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

    void takesMessages()
    {
        const SBroker broker;
        SSubscriber all(broker);
        SShare share(broker.options("--allow-send"_s)), listening(broker.options("--allow 127.0.0.1"_s));
        QVERIFY(share.happened("broker"_s));
        QVERIFY(listening.happened("broker"_s));
        broker.publish("site/"_s + listening.name + "/send"_s, "123#");
        const QByteArray refused = R"(/refused {"line":"123#","reason":"clients may listen only )";
        QVERIFY(all.hears(listening.name.toLatin1() + refused));
        broker.publish("site/"_s + share.name + "/send"_s,
                       "123#1122\n# comment\n\n(1.5) x 7ff#00 R\r\n(1.5) x 124#R\nhello");
        QTRY_COMPARE(share.sent, list("123#1122 7FF#00"_s));
        QVERIFY(all.hears("/refused {\"line\":\"(1.5) x 124#R\",\"reason\":\"no frame that a T93 can send\"}"));
        QVERIFY(all.hears(" 123#1122 T"));
        QVERIFY(all.hears(" 7FF#00 T"));
        QVERIFY(all.hears("/refused {\"line\":\"hello\",\"reason\":\"frame "));
        QCOMPARE(all.heard.count("/refused"), 3);
        broker.publish("site/"_s + share.name + "/send"_s, QByteArray("124#\n").repeated(14'000));
        QVERIFY(all.hears("\"reason\":\"more than 64 KiB\"}"));
        broker.publish("site/"_s + share.name + "/send"_s, QByteArray("x\n").repeated(100));
        QVERIFY(all.hears("/refused {\"further\":90}"));
        QCOMPARE(share.sent.size(), 2);
        share.end();
        broker.publish("site/"_s + share.name + "/send"_s, "126#", {"-r"_s}); // would be sent at every connection
        share.start();
        QVERIFY(all.hears("/refused {\"line\":\"126#\",\"reason\":\"retained\"}"));
        QCOMPARE(share.sent.size(), 2);
        QVERIFY(listening.sent.isEmpty());
    }

    /// What could not be published is told as a gap of that length; who serves others is not held up.
    void brokerGoesAndComes_data() { rows({"killed", "stuck"}); }
    void brokerGoesAndComes()
    {
        SBroker broker;
        const bool isKilled = rowName() == "killed";
        SShare share(broker.options("--socketcand 0"_s));
        SClient client(share);
        QVERIFY(share.happened("broker"_s));
        isKilled ? broker.program.stop() : void(::kill(static_cast<pid_t>(broker.program.processId()), SIGSTOP));
        QVERIFY(!isKilled || share.happened("brokerAway"_s));
        const int messages = isKilled ? 1000 : 200'000; // more than may wait
        share.gateway.flood(messages);
        QTRY_COMPARE_WITH_TIMEOUT(client.heard.count('>'), messages + 1, 30000);
        isKilled ? broker.start() : void(::kill(static_cast<pid_t>(broker.program.processId()), SIGCONT));
        QVERIFY(share.happened("gap"_s));
        SSubscriber all(broker);
        QVERIFY(all.hears("/gap {\"from\":"));
        QVERIFY(!isKilled || all.heard.contains("\"messages\":1000,"));
        const auto sendUntilHeard = [&] {
            share.put("123#");
            return all.heard.contains(" 123# R");
        };
        QTRY_VERIFY(sendUntilHeard());
    }

    void brokerThatReadsNothing()
    {
        QTcpServer broker;
        broker.listen(QHostAddress(QHostAddress::LocalHost));
        SShare share("--status 1 --mqtt 127.0.0.1:%1"_s.arg(broker.serverPort()));
        QTRY_VERIFY(broker.hasPendingConnections());
        QTcpSocket* const link = broker.nextPendingConnection();
        QTRY_VERIFY(link->bytesAvailable() > 8);
        link->setReadBufferSize(1);
        QCOMPARE(link->readAll().mid(2, 7), QByteArray("\0\x04MQTT\x04", 7)); // MQTT 3.1.1
        link->write(hex("20020000"));
        QVERIFY(share.happened("broker"_s));
        share.gateway.flood(300'000);
        QVERIFY(share.happened("lost"_s, 1, 30000)); // as many wait as may
        share.end();
    }

    void whoMayConnect_data()
    {
        const auto row = columns<QString, QString>("options", "refusal"); // empty: it may
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
