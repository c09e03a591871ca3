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
        QByteArray log; // much traffic for the second bus, whose name must be escaped
        for (int i = 0; i < 30'000; ++i) {
            log += '(' + QByteArray::number(i / 1000.0) + ") x 123#1122334455667788\n";
        }
        QVERIFY(QFile::rename(writeFile(folder, log), folder.filePath("a\\\"<b"_s)));
        SShare share(
            "sim:%2/a\\\"<b --socketcand 0 --t93 0 --allow-send *:*:0-7F --pin --mqtt 127.0.0.1:%1 --metrics %2/cimshare.prom"_s
                .arg(QString::number(notABroker.serverPort()), folder.path()));
        SShare unwritable("--socketcand 0 --metrics %1/cimshare.prom"_s.arg(gone.path()));
        QVERIFY(QDir(gone.path()).removeRecursively());
        QFile first(file);
        QVERIFY(first.open(QIODevice::ReadOnly));
        const QByteArray begin = contentOf(file);
        // Nothing of this is known yet.
        QVERIFY(!QString::fromUtf8(begin).contains(QRegularExpression("load_ratio|silent_seconds|cimshare_broker"_s)));
        SRawHost host(share);
        host.write(frame(RM_CMD_RESET));
        SClient client(share), second(share);
        share.put("123#1122 124#");
        client.write("< send 7F 3 11 22 33 >< send 80 1 11 >");
        for (int i = 0; i < 3; ++i) {
            share.gateway.sendStatus(0x08);
        }
        notABroker.close();
        const QSignalSpy links(&share.gateway, &CSimGateway::hostConnected);
        QVERIFY(share.happened("interfaceError"_s));
        share.misbehave(&SSimFaults::blackHole); // reads nothing until a message does not fit any more
        int asked = 2;
        const auto isRefused = [&] {
            client.write(QByteArray("< send 7F 3 11 22 33 >").repeated(1000)); // the client must not lose an error
            asked += 1000;
            return client.heard.contains(" Transmit socket failed. >");
        };
        QTRY_VERIFY_WITH_TIMEOUT(isRefused(), 20000);
        share.misbehave(&SSimFaults::mute); // silent from now on
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
        QCOMPARE(value(R"(interface_errors_total{interface="X",error="8"})"_s), "3"_s);
        QCOMPARE(value(R"(messages_total{interface="X",direction="received"})"_s), "2"_s);
        const int sent = value(R"(messages_total{interface="X",direction="sent"})"_s).toInt();
        const int refused = value(R"(refused_messages_total{interface="X"})"_s).toInt();
        QCOMPARE(sent + refused, asked);
        QTRY_COMPARE(client.heard.count("< error 001 "), refused);
        QTRY_COMPARE(second.heard.count("< frame 07F "), sent);
        QCOMPARE(value(R"(bytes_total{interface="X",direction="received"})"_s), "2"_s);
        QCOMPARE(value(R"(bytes_total{interface="X",direction="sent"})"_s).toInt(), 3 * sent);
        QCOMPARE(value(R"(lost_messages_total{interface="X",protocol="mqtt"})"_s).toInt(), 2 + sent);
        QCOMPARE(value(R"(lost_messages_total{interface="X",protocol="service"})"_s), "0"_s);
        QCOMPARE(value(R"(clients{interface="X",protocol="socketcand"})"_s), "2"_s);
        QCOMPARE(value(R"(clients{interface="X",protocol="t93"})"_s), "1"_s);
        const QString escaped = "sim:"_s + folder.path().replace(QLatin1Char('/'), QLatin1Char('_')) + R"(_a\\\"_b)"_s;
        const double load = value(R"(interface_load_ratio{interface="%1"})"_s.arg(escaped)).toDouble();
        QVERIFY2(load > 0 && load < 1, qPrintable(text));
        QCOMPARE(value(R"(clients{interface="%1",protocol="socketcand"})"_s.arg(escaped)), "0"_s);
        QCOMPARE(value(R"(clients{interface="%1",protocol="t93"})"_s.arg(escaped)), "0"_s);
        QCOMPARE(value(R"(interface_silent_seconds{interface="%1"})"_s.arg(escaped)), "0"_s);
        QVERIFY(share.port("t93 sim"_s) > 1023);
        QCOMPARE(value("broker_connected"_s), "0"_s);
        QCOMPARE(value("log_lines_left_out_total"_s), "0"_s);
        const double age = double(QDateTime::currentSecsSinceEpoch()) - value("start_time_seconds"_s).toDouble();
        QVERIFY2(std::abs(age) < 60, qPrintable(text));
        QVERIFY(links.isEmpty()); // a TCP connection that is silent stays
        QCOMPARE(host.heard.count(frame(RM_CMD_STATUS, hex("08"))), client.heard.count(" bus off error."));
        QCOMPARE(run("promtool check metrics < "_s + file).err, QByteArray());
        QVERIFY(QFileInfo(file).permission(QFile::ReadOther)); // node_exporter runs as another user
        QCOMPARE(first.readAll(), begin);                      // a file is replaced, not changed
        // Reported each time, and the service continues.
        QVERIFY(unwritable.happened("metrics"_s, 2, 30000) && unwritable.text("metrics"_s).startsWith(gone.path()));
    }

    /// The tools for the installed files accept them.
    void installedFiles()
    {
        REQUIRE_TOOL("promtool");
        REQUIRE_TOOL("systemd-analyze");
        const QTemporaryDir folder;
        const QString command =
            QStringLiteral("cd " CIM_SOURCE_DIR " && promtool check rules share/cimshare/alerts.yml && "
                           "promtool test rules tests/alertRules.yml && sed s,@.*@,/usr/bin, "
                           "share/cimshare/cimshare.service.in > %1/x.service &&"
                           "systemd-analyze security --offline=yes --threshold=15 --no-pager %1/x.service")
                .arg(folder.path());
        const SOutcome outcome = run(command);
        QVERIFY2(outcome.exitCode == 0, outcome.out.right(300) + outcome.err);
    }

    /// The check does not connect, listen, look up names or write: all of that would fail here.
    void check()
    {
        SServer taken;
        const auto with = [&taken](const char* text) {
            return QString::fromLatin1(text).replace("PORT"_s, QString::number(taken.serverPort()));
        };
        const SOutcome outcome = run(
            with(CIM_CIMSHARE " --check sim 127.0.0.1:PORT no.such.host:8:UDP --t93 1 --socketcand PORT --baudrate 500 "
                              "--mqtt 127.0.0.1:PORT --mqtt x --mqtt-topic site --metrics /no/x.prom"));
        QCOMPARE(QString::fromUtf8(outcome.out),
                 with("sim: would open IP=0.0.0.0:30000:TCP with bit rate 500\n"
                      "127.0.0.1:PORT: would open IP=127.0.0.1:PORT:TCP with bit rate 500\n"
                      "no.such.host:8:UDP: would open IP=0.0.0.0:8:UDP with bit rate 500\n"
                      "socketcand: would listen on 127.0.0.1:PORT\n"
                      "t93 sim: would listen on 127.0.0.1:1\n"
                      "t93 127.0.0.1:PORT: would listen on 127.0.0.1:2\n"
                      "t93 no.such.host:8:UDP: would listen on 127.0.0.1:3\n"
                      "mqtt: would publish to 127.0.0.1:PORT, x, with topics below site\n"
                      "metrics: would write /no/x.prom\n"));
        QCOMPARE(outcome.err, QByteArray());
        QCOMPARE(outcome.exitCode, 0);
        QVERIFY(!taken.waitForNewConnection(0));
        QCOMPARE(run(QStringLiteral(CIM_CIMSHARE " --check sim --mqtt x --mqtt-ca /no/ca.pem")).exitCode, 2);
        const QTemporaryDir folder;
        const SOutcome unreadable = run("mkdir -p %1/Vexmor/Cim.conf; XDG_CONFIG_HOME=%1 "_s.arg(folder.path()) +
                                        QStringLiteral(CIM_CIMSHARE " --check --all --t93 0"));
        QVERIFY2(unreadable.err.contains("/Vexmor/Cim.conf cannot be read"), unreadable.err);
        const SOutcome highest = run(QStringLiteral(
            CIM_CIMSHARE " --check sim 127.0.0.1 --t93 65534 --mqtt x --status 86400 --send-limit 10000"));
        QVERIFY(highest.out.endsWith("mqtt: would publish to x, with topics below can/" +
                                     QSysInfo::machineHostName().toUtf8() + '\n'));
    }
};

QTEST_GUILESS_MAIN(CimshareMetricsTest)
#include "tst_cimshareMetrics.moc"
