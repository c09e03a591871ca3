#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

namespace
{
struct SOutcome {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

QStringList words(const QString& text)
{
    return text.split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

/// The frames in a log, or in what dump prints, as ID#DATA.
QByteArrayList framesOf(const QByteArray& text)
{
    static const QRegularExpression logLine(QStringLiteral(R"(\([\d.]+\) \S+ (\S+#\S*))"));
    static const QRegularExpression dumpLine(QStringLiteral(R"(^  t93  +(\S{3})   \[\d\] (.*)$)"));
    QByteArrayList frames;
    for (const QByteArray& line : text.split('\n')) {
        const QString one = QString::fromLatin1(line);
        if (const auto match = logLine.match(one); match.hasMatch()) {
            frames.append(match.captured(1).toLatin1());
        } else if (const auto match = dumpLine.match(one); match.hasMatch()) {
            frames.append(
                (match.captured(1) + QLatin1Char('#') + match.captured(2).remove(QLatin1Char(' '))).toLatin1());
        }
    }
    return frames;
}
} // namespace

/// The command-line host as people and scripts use it.
class CimctlTest : public QObject
{
    Q_OBJECT

    SOutcome run(const QStringList& arguments)
    {
        QProcess program;
        program.start(QStringLiteral(CIM_CIMCTL), arguments);
        SOutcome outcome;
        if (program.waitForFinished()) {
            outcome = {program.exitCode(), program.readAllStandardOutput(), program.readAllStandardError()};
        }
        return outcome;
    }
    SOutcome run(const QString& arguments) { return run(words(arguments)); }

    /// Starts t93sim and gives its ADDRESS:PORT.
    QString startGateway(QProcess& program, const QStringList& options)
    {
        program.start(QStringLiteral(CIM_T93SIM), QStringList{QStringLiteral("--port"), QStringLiteral("0"),
                                                              QStringLiteral("--seconds"), QStringLiteral("50")} +
                                                      options);
        return program.waitForReadyRead() ? QString::fromLatin1(program.readLine().split(' ').at(2)) : QString();
    }
    static void stop(QProcess& program)
    {
        program.terminate();
        QVERIFY(program.waitForFinished());
    }
    QString writeLog(int count)
    {
        const QString name = m_folder.filePath(QStringLiteral("a.log"));
        QFile file(name);
        [&] { QVERIFY(file.open(QIODevice::WriteOnly)); }();
        for (int i = 0; i < count; ++i) {
            const QByteArray data = QByteArray(i % 9, static_cast<char>(i)).toHex().toUpper();
            file.write('(' + QByteArray::number(1.0 + i / 3 * 0.001, 'f', 6) + ") can0 " +
                       QByteArray::number(i % 0x800, 16).rightJustified(3, '0').toUpper() + '#' + data + '\n');
        }
        return name;
    }
    static QByteArray contentOf(const QString& name)
    {
        QFile file(name);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    QTemporaryDir m_folder;

private Q_SLOTS:
    void init()
    {
        qputenv("XDG_CONFIG_HOME", m_folder.path().toLocal8Bit()); // nobody's own store
        QFile::remove(m_folder.filePath(QStringLiteral("Vexmor/Cim.conf")));
    }

    void exitCodes_data()
    {
        QTest::addColumn<QString>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("out"); // expressions; empty: nothing
        QTest::addColumn<QString>("err");
        const auto row = [](const char* arguments, int exitCode, const char* out, const char* err) {
            QTest::newRow(arguments) << QString::fromLatin1(arguments) << exitCode << QString::fromLatin1(out)
                                     << QString::fromLatin1(err);
        };
        const char* const summary = "^received \\d+, sent 0, lost 0, errors 0, bus load not measured\n$";
        row("info", 0, "^InterfaceT93Plugin\n(.*\n)*.*quinmark.CCanInterfacePlugin/1.1(.*\n)*.*Library for T93\n", "");
        row("info --plugin /dev/null", 1, "", "^error: /dev/null cannot be loaded: .*\n$");
        row("info --plugin-dir /nonexistent", 1, "", "^error: plugin folder /nonexistent does not exist\n$");
        row("dump sim --count 3", 0, "^(  t93  20[0-2]   \\[8\\] ( [0-9A-F]{2}){8}\n){3}$", summary);
        row("dump sim --count 3 --filter 201:7FF", 0, "^(  t93  201 .*\n){3}$", "^received");
        row("dump sim --count 2 --sent --send 7FF#01", 0, "^  t93  TX - -  7FF   \\[1\\]  01\n  t93  RX - -  .*\n$",
            "sent 1");
        row("dump 127.0.0.1:1", 1, "",
            "^error 103: TCP connect failed. T93 not connected or used by another program.\n$");
        row("dump sim --baudrate 33", 1, "", "^error 5: CAN Baudrate not supported.\n$");
        row("dump nowhere", 2, "", "^error: target 'nowhere': .*\n$");
        row("dump 127.0.0.1:70000", 2, "", "^error: port 70000: must be 1 to 65535\n$");
        row("dump 127.0.0.1:1:SCTP", 2, "", "^error: protocol SCTP: must be TCP or UDP\n$");
        row("dump IP=127.0.0.1:1", 2, "", "^error: port text .*\n$");
        row("dump sim --filter 12", 2, "", "^error: filter 12: .*\n$");
        row("send sim 123#1", 2, "", "^error: frame \"123#1\": .*\n$");
        row("send sim 123#11 800#", 2, "", "^error: frame \"800#\": .*\n$");
        row("send sim 123#1122 7FF# --repeat 3 --sent", 0, "^(  t93  TX - -  123 .*\n  t93  TX - -  7FF .*\n){3}$",
            "sent 6, lost 0");
        row("load sim --seconds 3", 0, "^(bus load .*%\n){2}bus load   [345] %\n$", "peak [345] %\n$");
        row("replay sim /dev/null", 2, "", "^error: /dev/null: holds no frame\n$");
        row("show hall", 2, "", "^error: no interface is stored under the name 'hall' .*\n$");
        row("add sim 10.0.0.1", 2, "", "^error: .*'sim'\n$");
        row("--nonsense", 2, "", "^error: .*\n$");
        row("", 2, "", "^error: A subcommand is required .*\n$");
    }
    void exitCodes()
    {
        QFETCH(QString, arguments);
        QFETCH(QString, out);
        QFETCH(QString, err);
        const SOutcome outcome = run(arguments);
        for (const auto& [expected, text] : {std::pair(out, outcome.out), std::pair(err, outcome.err)}) {
            QVERIFY2(expected.isEmpty() ? text.isEmpty()
                                        : QRegularExpression(expected).match(QString::fromLocal8Bit(text)).hasMatch(),
                     text.constData());
        }
        QTEST(outcome.exitCode, "exitCode");
    }

    void everyFrameOfALogArrives_data()
    {
        QTest::addColumn<QString>("gateway");
        QTest::newRow("inside the program") << QString();
        QTest::newRow("over TCP") << QStringLiteral(":TCP");
        QTest::newRow("over UDP") << QStringLiteral(":UDP");
    }
    void everyFrameOfALogArrives()
    {
        QFETCH(QString, gateway);
        constexpr int COUNT = 900;
        const QString log = writeLog(COUNT);
        const QString written = m_folder.filePath(QStringLiteral("written.log"));
        QProcess program;
        const QString target = gateway.isEmpty() ? QStringLiteral("sim:") + log
                                                 : startGateway(program, {QStringLiteral("--replay"), log}) + gateway;
        const SOutcome outcome = run(QStringList{QStringLiteral("dump"), target, QStringLiteral("--count"),
                                                 QString::number(COUNT), QStringLiteral("--log"), written});
        QCOMPARE(outcome.exitCode, 0);
        const QByteArrayList frames = framesOf(contentOf(log));
        QCOMPARE(frames.size(), COUNT);
        QCOMPARE(framesOf(outcome.out), frames);
        QCOMPARE(framesOf(contentOf(written)), frames);
        // Read by those who made the format.
        QProcess reader;
        reader.start(QStringLiteral("log2asc"), {QStringLiteral("-I"), written, QStringLiteral("t93")});
        QVERIFY(reader.waitForFinished());
        QCOMPARE(reader.readAllStandardOutput().count(" Rx "), COUNT);
        if (!gateway.isEmpty()) {
            stop(program);
        }
    }

    void replaySendsALog()
    {
        constexpr int COUNT = 300;
        const QString log = writeLog(COUNT);
        QProcess gateway;
        const QString target = startGateway(gateway, {QStringLiteral("--verbose")});
        const SOutcome outcome = run(QStringList{QStringLiteral("replay"), target, log, QStringLiteral("--speed"),
                                                 QStringLiteral("10"), QStringLiteral("--sent")});
        QCOMPARE(outcome.exitCode, 0);
        QByteArray sent = outcome.out;
        QCOMPARE(framesOf(sent.replace("TX - -  ", "")), framesOf(contentOf(log)));
        stop(gateway);
        QVERIFY(gateway.readAllStandardOutput().endsWith("messages: 300 from hosts, 0 replayed, 0 generated\n"));
    }

    void interfacesAreStored()
    {
        QProcess program;
        const QStringList gateway =
            startGateway(program, {QStringLiteral("--generate"), QStringLiteral("100")}).split(QLatin1Char(':'));
        const QString name = QStringLiteral("hall/1 left");
        const QString address = gateway.join(QLatin1Char(':')) + QStringLiteral(":UDP");
        const auto add = [&](const QString& baudrate, const QStringList& more) {
            return run(QStringList{QStringLiteral("add"), name, address, QStringLiteral("--baudrate"), baudrate,
                                   QStringLiteral("--hostname"), QStringLiteral("gw1")} +
                       more)
                .exitCode;
        };
        QCOMPARE(add(QStringLiteral("33"), {}), 1);
        QCOMPARE(add(QStringLiteral("250"), {}), 0);
        QCOMPARE(add(QStringLiteral("500"), {}), 2); // there is one
        QCOMPARE(add(QStringLiteral("500"), {QStringLiteral("--replace")}), 0);
        QCOMPARE(run(QStringLiteral("add other 10.0.0.1")).exitCode, 0);
        QCOMPARE(run(QStringLiteral("list")).out.split('\n').at(0),
                 "hall/1 left  T93  IP=" + address.toLatin1() + "  500 kbit/s  gw1");
        const QJsonObject shown =
            QJsonDocument::fromJson(run({QStringLiteral("show"), name, QStringLiteral("--json")}).out).object();
        QCOMPARE(shown[QStringLiteral("settings")][QStringLiteral("Port")].toString(), gateway.at(1));

        const SOutcome dump = run({QStringLiteral("dump"), name, QStringLiteral("-n"), QStringLiteral("2")});
        QCOMPARE(dump.exitCode, 0);
        QCOMPARE(framesOf(dump.out).size(), 2);
        QCOMPARE(run({QStringLiteral("dump"), name, QStringLiteral("--baudrate"), QStringLiteral("50")}).exitCode, 2);
        QCOMPARE(run({QStringLiteral("remove"), name}).exitCode, 0);
        QCOMPARE(run(QStringLiteral("list")).out, QByteArray("other  T93  IP=10.0.0.1:30000:TCP  100 kbit/s\n"));
        stop(program);
    }

    void errorsAreShownAndItGoesOn()
    {
        QProcess gateway;
        const QString target = startGateway(
            gateway, words(QStringLiteral("--status 9 --status-every 50 --drop-after 300 --generate 100")));
        const SOutcome outcome = run({QStringLiteral("dump"), target, QStringLiteral("--json"),
                                      QStringLiteral("--seconds"), QStringLiteral("4")});
        QCOMPARE(outcome.exitCode, 0);
        QSet<int> errors;
        QJsonObject last;
        for (const QByteArray& line : outcome.err.trimmed().split('\n')) {
            last = QJsonDocument::fromJson(line).object();
            QVERIFY2(!last.isEmpty(), line.constData());
            if (last[QStringLiteral("event")] == QStringLiteral("interfaceError")) {
                errors.insert(last[QStringLiteral("error")].toInt());
            }
        }
        QCOMPARE(errors, (QSet<int>{0, 5, 8})); // a lost connection, and the two flags of the status
        QCOMPARE(last[QStringLiteral("event")].toString(), QStringLiteral("summary"));
        const int received = outcome.out.count('\n');
        QCOMPARE(last[QStringLiteral("received")].toInt(), received);
        QVERIFY2(received > 35, qPrintable(QString::number(received))); // more than came before the loss
        stop(gateway);
    }

    void interruptionEndsInOrder()
    {
        QProcess program;
        program.start(QStringLiteral(CIM_CIMCTL), {QStringLiteral("dump"), QStringLiteral("sim")});
        QVERIFY(program.waitForReadyRead());
        ::kill(static_cast<pid_t>(program.processId()), SIGINT);
        QVERIFY(program.waitForFinished());
        QCOMPARE(program.exitCode(), 0);
        QVERIFY(program.readAllStandardError().startsWith("received "));
    }

    void demonstrationPasses()
    {
        const SOutcome outcome = run(QStringLiteral("demo --json"));
        QVERIFY2(outcome.exitCode == 0, outcome.out + outcome.err);
        QVERIFY(outcome.out.count("\"ok\":true") >= 15 && !outcome.out.contains("\"ok\":false"));
    }
};

QTEST_GUILESS_MAIN(CimctlTest)
#include "tst_cimctl.moc"
