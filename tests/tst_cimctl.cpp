#include "testData.h"

#include <csignal>

using namespace vexmor::Test;

namespace
{
/// The frames in a log, or in what dump prints, as ID#DATA.
QStringList framesOf(const QByteArray& text)
{
    const QRegularExpression source(R"(^(\(.*\) \S+ |  t93  (TX - -  )?))"_s, QRegularExpression::MultilineOption);
    const QRegularExpression length(R"(   \[\d\])"_s);
    const QString frames = QString::fromLatin1(text).remove(source).replace(length, "#"_s).remove(QLatin1Char(' '));
    return frames.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

/// t93sim with any port.
struct SGatewayProgram : QProcess {
    explicit SGatewayProgram(const QString& options)
    {
        start(QStringLiteral(CIM_T93SIM), list("--port 0 --seconds 50 "_s + options));
        address = waitForReadyRead() ? QString::fromLatin1(readLine().split(' ').at(2)) : QString();
    }
    ~SGatewayProgram() override { (void)stop(); }
    /// What it prints last when it is ended.
    QByteArray stop()
    {
        terminate();
        return waitForFinished() && exitCode() == 0 ? readAllStandardOutput() : QByteArray();
    }
    QString address; ///< and port
};
} // namespace

/// The command-line host as people and scripts use it.
class CimctlTest : public QObject
{
    Q_OBJECT

    static SOutcome cimctl(const QString& arguments) { return run(QStringLiteral(CIM_CIMCTL " ") + arguments); }
    QString writeLog(int count) const // three in a row have one time; one goes back in time
    {
        QByteArray lines;
        for (int i = 0; i < count; ++i) {
            const QByteArray data = QByteArray(i % 9, static_cast<char>(i)).toHex().toUpper();
            lines += '(' + QByteArray::number(10.0 + i / 3 * 0.001 - (i == 150 ? 5 : 0), 'f', 6) + ") can0 " +
                     QByteArray::number(i % 0x800, 16).rightJustified(3, '0').toUpper() + '#' + data + '\n';
        }
        return writeFile(m_folder, lines);
    }

    QTemporaryDir m_folder;

private Q_SLOTS:
    void init()
    {
        qputenv("XDG_CONFIG_HOME", m_folder.path().toLocal8Bit()); // nobody's own store
        QDir(m_folder.filePath("Vexmor"_s)).removeRecursively();
    }

    void exitCodes_data()
    {
        const auto row = columns<int, QByteArray, QByteArray>("exitCode", "out", "err"); // expressions; empty: nothing
        const char* const summary = "^received \\d+, sent 0, lost 0, errors 0, bus load not measured\n$";
        row("info", 0, "^InterfaceT93Plugin\n(.*\n)*.*quinmark.CCanInterfacePlugin/1.1(.*\n)*.*Library for T93\n", "");
        row("info --plugin /dev/null", 1, "", "^error: /dev/null cannot be loaded: .*\n$");
        row("info --plugin-dir /nonexistent", 1, "", "^error: plugin folder /nonexistent does not exist\n$");
        row("dump sim --count 3", 0, "^(  t93  20[0-2]   \\[8\\] ( [0-9A-F]{2}){8}\n){3}$", summary);
        row("dump 127.0.0.1:1", 1, "", "^error 103: TCP connect failed. .* another program.\n$");
        row("dump sim --baudrate 33", 2, "",
            "^error: --baudrate: must be one of 50, 100, 125, 250, 500, 1000 kbit/s .*\n$");
        row("load 127.0.0.1:1", 2, "", "needs the bit rate of the bus");
        row("dump 127.0.0.1:70000", 2, "", "^error: port 70000: must be 1 to 65535\n$");
        row("dump 127.0.0.1:1:SCTP", 2, "", "^error: protocol SCTP: must be TCP or UDP\n$");
        row("dump IP=127.0.0.1:1", 2, "", "^error: port text .*\n$");
        row("dump sim --filter 12:", 2, "", "^error: filter 12:: .*\n$");
        row("dump sim --count 4 --filter 201~7FF --filter 200-201", 0, "^(  t93  200 .*\n){4}$", "^received");
        row("dump sim sim --count 4 -td -a", 0,
            "^(\\(000\\.\\d{6}\\)   sim  20[0-9]   \\[8\\] ( [0-9A-F]{2}){8}  '.{8}'\n){4}$",
            "^sim: received \\d+.*\nsim: received");
        row("dump sim --count 2 --sent --send 7FF#01 --log -", 0,
            "^\\(\\d+\\.\\d{6}\\) t93 7FF#01 T\n\\(.*\\) t93 .* R\n$", "sent 1");
        row("dump 127.0.0.1:1 nowhere", 2, "", "^error: target 'nowhere': .*\n$");
        row("send sim 123#R", 2, "", "there are no remote frames");
        row("gen sim --seed 7 -n 3 -g 0 -I 100-101 -L 2 --sent", 0, "^(  t93  TX - -  10[01]   \\[2\\] .*\n){3}$",
            "sent 3, lost 0");
        row("list > /dev/null; printf '# by hand\n(1.0) a 123#11\n(1.0) a 7FF#\n(2.0) a 001#\n(1.5) a 0A0#\n' "
            "| " CIM_CIMCTL " replay sim - --sent --speed 10",
            0, "^  t93  TX - -  123 .*11\n  t93  TX .* 7FF .*\n  t93  TX .* 001 .*\n  t93  TX .* 0A0 .*\n$", "sent 4");
        row("send sim 123#1122 7FF# --repeat 3 --sent", 0, "^(  t93  TX - -  123 .*\n  t93  TX - -  7FF .*\n){3}$",
            "sent 6, lost 0");
        row("load sim --seconds 3", 0, "^(bus load .*%\n){2}bus load   [345] %\n$", "peak [345] %\n$");
        row("replay sim /dev/null", 2, "", "^error: /dev/null: holds no frame\n$");
        row("show hall", 2, "", "^error: no interface is stored under the name 'hall' .*\n$");
        row("add sim 10.0.0.1", 2, "", "^error: .*'sim'\n$");
        row("add 10.0.0.2 10.0.0.1", 2, "", "^error: .*'10.0.0.2'\n$");
        row("add group 224.0.0.1", 2, "", "^error: no gateway can have the address 224.0.0.1\n$");
        row("list; mkdir -p $XDG_CONFIG_HOME/Vexmor/Cim.conf; " CIM_CIMCTL " list", 1, "no interfaces are stored.*\n$",
            "^error: the settings store .*/Vexmor/Cim.conf cannot be read\n$");
        row("list > /dev/null; trap '' XFSZ; ulimit -f 0; " CIM_CIMCTL " add a 10.0.0.1", 1, "",
            "^error: the settings store .*/Vexmor/Cim.conf cannot be written\n$"); // a full disk
        row("dump sim --log /dev/full", 1, ".", "error: /dev/full cannot be written: No space left on device\n$");
        for (const char* arguments : {"dump sim", "list", "info", "--help"}) {
            row(arguments + QByteArray(" > /dev/full"), 1, "", "error: the output cannot be written\n$");
        }
        row("list > /dev/null; cd $XDG_CONFIG_HOME; mkfifo closed; { read line < closed; " CIM_CIMCTL
            " list; echo $? >&2; } | { exec <&-; echo > closed; }",
            0, "", "^error: the output cannot be written\n1\n$");
        row("list >&-", 1, "", "^error: the output cannot be written\n$");
        row("dump sim --seconds nan", 2, "", "^error: --seconds: must be 0.001 to 1000000 ");
        row("--json dump", 2, "", "^{\"event\":\"failure\",.*}\n$");
        row("", 2, "", "Subcommands:(.*\n)*.*dump ");
    }
    void exitCodes()
    {
        QFETCH(QByteArray, out);
        QFETCH(QByteArray, err);
        const SOutcome outcome = cimctl(QString::fromLatin1(rowName()));
        for (const auto& [expected, text] : {std::pair(out, outcome.out), std::pair(err, outcome.err)}) {
            const QRegularExpression expression(QString::fromLatin1(expected.isEmpty() ? "\\A\\z" : expected));
            QVERIFY2(expression.match(QString::fromLocal8Bit(text)).hasMatch(), text.constData());
        }
        QTEST(outcome.exitCode, "exitCode");
    }

    void everyFrameOfALogArrives_data() { rows({"inside the program", ":TCP", ":UDP"}); }
    void everyFrameOfALogArrives()
    {
        const bool isInside = rowName() == "inside the program";
        constexpr int COUNT = 900;
        const QString log = writeLog(COUNT);
        const QString written = m_folder.filePath("written.log"_s);
        SGatewayProgram gateway("--replay "_s + log);
        const QString target =
            isInside ? "sim:"_s + log : gateway.address + QLatin1String(rowName()) + " --send 7FF#"_s;
        const SOutcome outcome = cimctl("dump %1 --count %2 --log %3"_s.arg(target).arg(COUNT).arg(written));
        QCOMPARE(outcome.exitCode, 0);
        const QStringList frames = framesOf(contentOf(log));
        QCOMPARE(frames.size(), COUNT);
        QCOMPARE(framesOf(outcome.out), frames);
        QCOMPARE(framesOf(contentOf(written)), frames);
        QCOMPARE(run("log2asc -I %1 t93"_s.arg(written)).out.count(" Rx "), COUNT); // other people's reader
        QVERIFY(isInside || gateway.stop().endsWith("messages: 1 from hosts, 900 replayed, 0 generated\n"));
    }

    void interfacesAreStored()
    {
        const SGatewayProgram gateway("--generate 100"_s);
        const QString& address = gateway.address;
        const QString add = "add hall/1 %1:UDP --hostname gw1 --description stage --baudrate "_s.arg(address);
        QCOMPARE(cimctl(add + "33"_s).exitCode, 2);
        QCOMPARE(cimctl(add + "250"_s).exitCode, 0);
        QCOMPARE(cimctl(add + "500"_s).exitCode, 2); // there is one
        QCOMPARE(cimctl(add + "500 --replace"_s).exitCode, 0);
        QCOMPARE(cimctl("add other 010.0.0.001"_s).exitCode, 0); // decimal, whatever the zeros
        QCOMPARE(cimctl("list"_s).out.split('\n').at(0),
                 "hall/1  T93  IP=" + address.toLatin1() + ":UDP  500 kbit/s  gw1");
        const auto settings = QJsonDocument::fromJson(cimctl("show hall/1 --json"_s).out)["settings"_s];
        QCOMPARE(settings["Port"_s].toString(), address.section(QLatin1Char(':'), 1));
        QCOMPARE(settings["Description"_s].toString(), "stage"_s);

        // By another host, which keeps the port text as it likes: the link goes to address and port.
        run("sed -i 's/PortId=.*/PortId=IP=127.0.0.1:1:TCP/' $XDG_CONFIG_HOME/Vexmor/Cim.conf"_s);
        const SOutcome dump = cimctl("dump hall/1 -n 2 -s 5"_s);
        QCOMPARE(dump.exitCode, 0);
        QCOMPARE(framesOf(dump.out).size(), 2);
        QCOMPARE(cimctl("dump hall/1 --baudrate 50"_s).exitCode, 2);
        QCOMPARE(cimctl("remove hall/1"_s).exitCode, 0);
        QCOMPARE(cimctl("list"_s).out, QByteArray("other  T93  IP=127.0.0.1:1:TCP  the gateway's bit rate\n"));
        QSettings(m_folder.filePath("Vexmor/Cim.conf"_s), QSettings::IniFormat).setValue("CanInterfaces/other"_s, 1);
        QCOMPARE(cimctl("remove other"_s).exitCode, 0); // but not the key beside it
        const QSettings store(m_folder.filePath("Vexmor/Cim.conf"_s), QSettings::IniFormat);
        QCOMPARE(store.allKeys(), QStringList{"CanInterfaces/other"_s});
    }

    void errorsAreShownAndItGoesOn()
    {
        const SGatewayProgram gateway("--status 9 --status-every 50 --drop-after 300 --generate 100"_s);
        const SOutcome outcome = cimctl("dump %1 --json --seconds 4"_s.arg(gateway.address));
        QCOMPARE(outcome.exitCode, 0);
        QSet<int> errors;
        QJsonObject last;
        for (const QByteArray& line : outcome.err.trimmed().split('\n')) {
            last = QJsonDocument::fromJson(line).object();
            QVERIFY2(!last.isEmpty(), line.constData());
            if (last["event"_s] == "interfaceError"_s) {
                errors.insert(last["error"_s].toInt());
            }
        }
        QCOMPARE(errors, (QSet<int>{0, 5, 8})); // a lost connection, and the two flags of the status
        QCOMPARE(last["event"_s].toString(), "summary"_s);
        const int received = outcome.out.count('\n');
        QCOMPARE(last["received"_s].toInt(), received);
        QVERIFY2(received > 35, qPrintable(QString::number(received))); // more than came before the loss
    }

    void gatewayThatTakesNothing()
    {
        const SGatewayProgram gateway("--black-hole"_s);
        const SOutcome outcome =
            cimctl("send %1 123#1122334455667788 --repeat 60000 --baudrate 1000"_s.arg(gateway.address));
        QCOMPARE(outcome.exitCode, 1);
        const auto said =
            QRegularExpression("error 108: Transmit socket failed.\n.*sent (\\d+), refused (\\d+), lost 0"_s,
                               QRegularExpression::DotMatchesEverythingOption)
                .match(QString::fromLatin1(outcome.err));
        QCOMPARE(said.captured(1).toInt() + said.captured(2).toInt(), 60000);
    }

    void speaksTheUsersLanguage_data()
    {
        rows({"German|LANG=de_DE.UTF-8", "German|LANG=de_AT", "German|LANG=en_US.UTF-8 LC_MESSAGES=de_CH.UTF-8",
              "German|LANG=fr_FR.UTF-8 LANGUAGE=fr:de", "German|LC_ALL=C.UTF-8 LANGUAGE=de",
              "English|LANG=de_DE.UTF-8 LANGUAGE=en_GB:de", "English|LANG=de_DE.UTF-8 LC_ALL=C",
              "English|LC_ALL=C LANGUAGE=de", "English|LANG=C.UTF-8", "English|LANG=fr_FR.UTF-8"});
    }
    void speaksTheUsersLanguage()
    {
        const QStringList row = list(QString::fromLatin1(rowName())); // language and environment
        const QByteArray said = run("env -i %1 " CIM_CIMCTL " dump 127.0.0.1:1"_s.arg(row[1])).err;
        const QByteArray refused =
            row[0] == "German"_s ? "error 103: Die TCP-Verbindung konnte" : "error 103: TCP connect failed.";
        QCOMPARE(said.left(refused.size()), refused);
    }

    void interruptionEndsInOrder_data()
    {
        const auto row = columns<QString, int, int>("command", "signal", "exitCode");
        row("Ctrl-C", "dump sim --log LOG"_s, SIGINT, 0);
        row("terminal closed", "dump sim --log LOG"_s, SIGHUP, 0);
        row("Ctrl-C before all is sent", "send sim 123#11 --repeat 1000000 --sent"_s, SIGINT, 130);
    }
    void interruptionEndsInOrder()
    {
        QFETCH(QString, command);
        const QString log = m_folder.filePath("dump.log"_s);
        QProcess program;
        program.start(QStringLiteral(CIM_CIMCTL), list(QString(command).replace("LOG"_s, log)));
        QVERIFY(program.waitForReadyRead()); // while it runs
        ::kill(static_cast<pid_t>(program.processId()), cell<int>("signal"));
        QVERIFY(program.waitForFinished());
        QTEST(program.exitCode(), "exitCode");
        const QStringList frames = framesOf(program.readAllStandardOutput());
        const QByteArray counted =
            (command.startsWith("dump"_s) ? "received " : ", sent ") + QByteArray::number(frames.size());
        QVERIFY(program.readAllStandardError().contains(counted + ", "));
        QVERIFY(!command.startsWith("dump"_s) || framesOf(contentOf(log)) == frames);
    }
};

QTEST_GUILESS_MAIN(CimctlTest)
#include "tst_cimctl.moc"
