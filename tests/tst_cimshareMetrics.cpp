#include "requireTool.h"
#include "shareFixture.h"

using namespace vexmor::Test;

/// The metrics and alerts of cimshare for monitoring, and the option --check.
class CimshareMetricsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void metrics()
    {
        REQUIRE_TOOL("promtool");
        const QTemporaryDir folder, gone;
        const QString file = folder.filePath("cimshare.prom"_s);
        SServer notABroker;
        SShare share("--socketcand 0 --t93 0 --allow-send *:*:0-7F --mqtt 127.0.0.1:%1 --metrics %2"_s
                         .arg(notABroker.serverPort())
                         .arg(file));
        SShare unwritable("--socketcand 0 --metrics %1/cimshare.prom"_s.arg(gone.path()));
        QVERIFY(QDir(gone.path()).removeRecursively());
        const QByteArray begin = contentOf(file);
        QVERIFY(begin.contains("cimshare_interface_connected{interface=\"" + share.name.toLatin1() + "\"} 0\n"));
        QVERIFY(!begin.contains("load_ratio"));      // not known yet
        QVERIFY(!begin.contains("silent_seconds"));  // not known yet
        QVERIFY(!begin.contains("cimshare_broker")); // not known yet
        SClient client(share), second(share);
        share.put("123#1122 124#");
        client.write("< send 7F 3 11 22 33 >< send 80 1 11 >");
        share.gateway.sendStatus(0x08);
        notABroker.close();
        share.misbehave(&SSimFaults::mute); // silent from now on
        QVERIFY(share.happened("interfaceError"_s));
        QVERIFY(share.happened("silent"_s));
        QTRY_VERIFY_WITH_TIMEOUT(contentOf(file).contains("silent_seconds"), 20000);
        QString text = QString::fromUtf8(contentOf(file));
        text.replace("interface=\""_s + share.name, "interface=\"X"_s);
        const auto value = [&](const QString& name) {
            const QRegularExpression sample("^cimshare_%1 (.+)$"_s.arg(QRegularExpression::escape(name)),
                                            QRegularExpression::MultilineOption);
            return sample.match(text).captured(1);
        };
        QCOMPARE(value(R"(interface_connected{interface="X"})"_s), "0"_s);
        const double silence = value(R"(interface_silent_seconds{interface="X"})"_s).toDouble();
        QVERIFY2(silence > 2 && silence < 30, qPrintable(text));
        QCOMPARE(value(R"(interface_errors_total{interface="X",error="8"})"_s), "1"_s);
        QCOMPARE(value(R"(messages_total{interface="X",direction="received"})"_s), "2"_s);
        QCOMPARE(value(R"(messages_total{interface="X",direction="sent"})"_s), "1"_s);
        QCOMPARE(value(R"(bytes_total{interface="X",direction="received"})"_s), "2"_s);
        QCOMPARE(value(R"(bytes_total{interface="X",direction="sent"})"_s), "3"_s);
        QCOMPARE(value(R"(refused_messages_total{interface="X"})"_s), "1"_s);
        for (const QString& protocol : list("socketcand t93 mqtt service"_s)) {
            const QString lost = value(R"(lost_messages_total{interface="X",protocol="%1"})"_s.arg(protocol));
            QCOMPARE(lost, protocol == "mqtt"_s ? "3"_s : "0"_s);
        }
        QCOMPARE(value(R"(clients{interface="X",protocol="socketcand"})"_s), "2"_s);
        QCOMPARE(value("broker_connected"_s), "0"_s);
        QCOMPARE(value("log_lines_left_out_total"_s), "0"_s);
        const double start = value("start_time_seconds"_s).toDouble();
        QVERIFY(std::abs(start - static_cast<double>(QDateTime::currentSecsSinceEpoch())) < 60);
        const SOutcome checked = run("promtool check metrics < "_s + file);
        QVERIFY2(checked.exitCode == 0, checked.err);
        QCOMPARE(checked.err, QByteArray());
        QVERIFY(QFileInfo(file).permission(QFile::ReadOther)); // node_exporter runs as another user
        QCOMPARE(QDir(folder.path()).entryList(QDir::Files), QStringList{"cimshare.prom"_s});
        QVERIFY(unwritable.text("metrics"_s).startsWith(gone.path())); // reported, and the service continues
    }

    void alertRules()
    {
        REQUIRE_TOOL("promtool");
        const SOutcome checked =
            run(QStringLiteral("cd " CIM_SOURCE_DIR " && promtool check rules share/cimshare/alerts.yml && "
                               "promtool test rules tests/alertRules.yml"));
        QVERIFY2(checked.exitCode == 0, checked.out + checked.err);
    }

    void check_data()
    {
        const auto row = columns<QString, int, QByteArray>("options", "exitCode", "text");
        row("everything",
            "sim 127.0.0.1:PORT no.such.host:8:UDP --t93 1 --socketcand PORT --mqtt 127.0.0.1:PORT --mqtt-topic "
            "site --metrics /no/x.prom --baudrate 500"_s,
            0,
            "sim: would be opened, IP=0.0.0.0:30000:TCP, bit rate 500\n"
            "127.0.0.1:PORT: would be opened, IP=127.0.0.1:PORT:TCP, bit rate 500\n"
            "no.such.host:8:UDP: would be opened, IP=0.0.0.0:8:UDP, bit rate 500\n"
            "socketcand: would listen on 127.0.0.1:PORT\n"
            "t93 sim: would listen on 127.0.0.1:1\n"
            "t93 127.0.0.1:PORT: would listen on 127.0.0.1:2\n"
            "t93 no.such.host:8:UDP: would listen on 127.0.0.1:3\n"
            "mqtt: would publish at 127.0.0.1:PORT, below site\n"
            "metrics: would write /no/x.prom\n");
        row("nothing to serve", "sim"_s, 2, "nothing to serve");
        row("nothing to share", "--socketcand 1"_s, 2, "nothing to share");
        row("no target", "nonsense --socketcand 1"_s, 2, "target 'nonsense'");
        row("no option", "sim --nonsense"_s, 2, "--nonsense");
        row("no network", "sim --socketcand 1 --allow nonsense"_s, 2, "'nonsense' is not a network");
        row("no rule", "sim --socketcand 1 --allow-send a:b:c:d:e"_s, 2, "a:b:c:d:e");
        row("no file", "sim --mqtt x --mqtt-ca /no/ca.pem"_s, 2, "/no/ca.pem cannot be used");
        row("no configuration", "--config /no/file"_s, 2, "/no/file");
    }
    /// The check does not connect, listen, look up names or write: all of that would fail here.
    void check()
    {
        SServer taken;
        const QString port = QString::number(taken.serverPort());
        const SOutcome outcome =
            run(QStringLiteral(CIM_CIMSHARE " --check ") + cell<QString>("options").replace("PORT"_s, port));
        QCOMPARE(outcome.exitCode, cell<int>("exitCode"));
        const QByteArray text = cell<QByteArray>("text").replace("PORT", port.toLatin1());
        if (outcome.exitCode == 0) {
            QCOMPARE(outcome.out, text);
            QCOMPARE(outcome.err, QByteArray());
        }
        QVERIFY2((outcome.out + outcome.err).contains(text), outcome.err);
        QVERIFY(!taken.waitForNewConnection(0));
    }
};

QTEST_GUILESS_MAIN(CimshareMetricsTest)
#include "tst_cimshareMetrics.moc"
