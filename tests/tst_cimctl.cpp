#include "testData.h"

#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

using namespace vexmor::Test;

namespace
{
/// Returns the frames in a log, or in the output of dump, as ID#DATA.
QStringList framesOf(const QByteArray& text)
{
    const QRegularExpression source(R"(^(\(.*\) \S+ |  t93  (TX - -  )?)|  type .*$)"_s,
                                    QRegularExpression::MultilineOption);
    const QRegularExpression length(R"(   \[\d\])"_s);
    const QString frames = QString::fromLatin1(text).remove(source).replace(length, "#"_s).remove(QLatin1Char(' '));
    return frames.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

/// The program t93sim, by default on any free port.
struct SGatewayProgram : QProcess {
    explicit SGatewayProgram(const QString& options, const QString& port = "0"_s)
    {
        start(QStringLiteral(CIM_T93SIM), list("--port %1 --seconds 50 "_s.arg(port) + options));
        address = waitForReadyRead() ? QString::fromLatin1(readLine().split(' ').at(2)) : QString();
    }
    ~SGatewayProgram() override { (void)stop(); }
    /// Ends the program, and returns what it prints at its end.
    QByteArray stop()
    {
        terminate();
        return waitForFinished() && exitCode() == 0 ? readAllStandardOutput() : QByteArray();
    }
    QString address; ///< Address and port.
};
} // namespace

/// The command-line tool cimctl, used like people and scripts use it.
class CimctlTest : public QObject
{
    Q_OBJECT

    static SOutcome cimctl(const QString& arguments) { return run(QStringLiteral(CIM_CIMCTL " ") + arguments); }
    // Three consecutive lines have the same time; the time of line 150 goes back.
    QString writeLog(int count) const
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
        qputenv("XDG_CONFIG_HOME", m_folder.path().toLocal8Bit()); // not the store of the user who runs the test
        QDir(m_folder.filePath("Vexmor"_s)).removeRecursively();
    }

    void exitCodes_data()
    {
        // The outputs are regular expressions; empty: no output.
        const auto row = columns<int, QByteArray, QByteArray>("exitCode", "out", "err");
        const char* const summary = "^received \\d+, sent 0, lost 0, errors 0, bus load not measured\n$";
        row("info", 0, "^InterfaceT93Plugin\n(.*\n)*.*quinmark.CCanInterfacePlugin/1.1(.*\n)*.*Library for T93\n", "");
        row("info --plugin /dev/null", 1, "", "^error: /dev/null cannot be loaded: .*\n$");
        row("info --plugin-dir /nonexistent", 1, "", "^error: plugin folder /nonexistent does not exist\n$");
        row("dump sim --count 3", 0, "^(  t93  20[0-2]   \\[8\\] ( [0-9A-F]{2}){8}\n){3}$", summary);
        row("dump sim --count 3 --quiet", 0, "^(  t93  20[0-2] .*\n){3}$", "");
        row("dump 127.0.0.1:1 --quiet", 1, "", "^error 103: TCP connect failed. .*\n$");
        row("dump 127.0.0.1:1", 1, "", "^error 103: TCP connect failed. .* another program.\n$");
        row("dump sim --baudrate 33", 2, "",
            "^error: --baudrate: must be one of 50, 100, 125, 250, 500, 1000 kbit/s .*\n$");
        row("load 127.0.0.1:1", 2, "", "needs the bit rate of the bus");
        row("dump 127.0.0.1:70000", 2, "", "^error: port 70000: must be 1 to 65535\n$");
        row("dump 127.0.0.1:1:SCTP", 2, "", "^error: protocol SCTP: must be TCP or UDP\n$");
        row("dump IP=127.0.0.1:1", 2, "", "^error: port text .*\n$");
        row("dump sim --filter 12:", 2, "", "^error: filter 12:: .*\n$");
        for (const char* filter : {"800", "123:FFFF", "123~800", "700-800", "100000123"}) {
            row(QByteArray("dump sim --filter ") + filter, 2, "", "^error: filter .* up to 7FF\n$");
        }
        row("gen sim -I 800", 2, "", "^error: identifiers 800: .* at most 7FF\n$");
        row("dump sim --count 4 --filter 201~7FF --filter 200-201", 0, "^(  t93  200 .*\n){4}$", "^received");
        row("dump sim sim --count 4 -td -a", 0,
            "^(\\(000\\.\\d{6}\\)   sim  20[0-9]   \\[8\\] ( [0-9A-F]{2}){8}  '.{8}'\n){4}$",
            "^sim: received \\d+.*\nsim: received");
        row("dump sim --filter 7FF -n 1 --sent --send 7FF#910011", 0,
            "^  t93  TX - -  7FF   \\[3\\]  91 00 11  type 1, error 17\n$", "^received");
        row("dump sim --filter 7FF -n 1 --sent --json --send 7FF#910011", 0, "\"error\":17", "^\\{");
        row("dump sim --filter 7FF -n 2 --sent --send 7FF#01 --log -", 0, "^(\\(\\d+\\.\\d{6}\\) t93 7FF#01\n){2}$",
            "sent 1");
        row("dump sim --filter 7FF -n 2 --sent --send 7FF#01 --log - --direction", 0,
            "^\\(.*\\) t93 7FF#01 T\n\\(.*\\) t93 7FF#01 R\n$", "sent 1");
        row("dump 127.0.0.1:1 nowhere", 2, "", "^error: target 'nowhere' is neither .*\n$");
        row("send sim 123#R", 2, "", "remote frames are not supported");
        row("gen sim --seed 7 -n 3 -g 0 -I 100-101 -L 2 --sent", 0, "^(  t93  TX - -  10[01]   \\[2\\] .*\n){3}$",
            "sent 3, lost 0");
        row("list > /dev/null; printf '# by hand\n(1.0) a 123#11\n(1.0) a 7FF#\n(2.0) a 001#\n(1.5) a 0A0#\n' "
            "| " CIM_CIMCTL " replay sim - --sent --speed 10",
            0, "^  t93  TX - -  123 .*11\n  t93  TX .* 7FF .*\n  t93  TX .* 001 .*\n  t93  TX .* 0A0 .*\n$", "sent 4");
        row("send sim 123#1122 7FF# --repeat 3 --sent", 0, "^(  t93  TX - -  123 .*\n  t93  TX - -  7FF .*\n){3}$",
            "sent 6, lost 0");
        row("list > /dev/null; printf '123#11\n# x\n800#\n124#\n' | " CIM_CIMCTL " send sim - --sent", 2,
            "^  t93  TX - -  123 .*11\n$", "error: standard input, line 3: frame \"800#\": .*\nreceived .* sent 1,");
        row("list > /dev/null; { echo 123#; cat /dev/zero; } | " CIM_CIMCTL " send sim -", 2, "",
            "error: standard input, line 2: longer than 4096 bytes\nreceived .* sent 1,");
        row("dump sim --direction", 2, "", "^error: --direction requires --log or --log-dir\n$");
        row("dump sim --log-dir /nonexistent", 1, "", "^error: .*/nonexistent.*\n$");
        row("dump sim --log-dir /tmp --log a", 2, "", "^error: --log(-dir)? excludes --log");
        row("send sim - --repeat 2", 2, "", "^error: the standard input cannot be repeated: .*\n$");
        row("send sim - --sent < /dev/null", 0, "", "sent 0");
        row("load sim --seconds 3", 0, "^(bus load .*%\n){2}bus load   [345] %\n$", "mean [345] %, peak [345] %\n$");
        row("replay sim /dev/null", 2, "", "^error: /dev/null: contains no frame to send\n$");
        row("list > /dev/null; printf '(1.0) a 00000123#11 R\n(1.0) a 123#R\n(1.0) a 00000123#11\n(1.0) a 123##011\n' "
            "| " CIM_CIMCTL " replay sim -",
            2, "", "^error: -: contains no frame to send; .* \\(29-bit: 2, remote: 1, CAN FD: 1\\)\n$");
        row("compare /dev/null /nowhere/a.log", 2, "", "^error: /nowhere/a.log: .*\n$");
        for (const char* command : {"compare $'\\xe4.log' /dev/null", "dump sim -n 1 --log $'\\xe4.log'"}) {
            row(command, 2, "", "^error: '.*\\.log': the name is not in UTF-8");
        }
        row("compare <(echo '(1.0) a 123#11') <(printf '(1.0) b 123#12\n(2.0) b 00000123#\n')", 0,
            "^ID .*\n123  data .* -  11 .* -  12\n$", "^identifiers: 1 before, 1 after; different: 1; lines .*: 1\n$");
        row("show hall", 2, "", "^error: no interface is stored under the name 'hall' .*\n$");
        row("add sim 10.0.0.1", 2, "", "^error: .*'sim': .*\n$");
        row("add 10.0.0.2 10.0.0.1", 2, "", "^error: .*'10.0.0.2': .*\n$");
        row("add group 224.0.0.1", 2, "", "^error: no gateway can have the address 224.0.0.1: .*\n$");
        row("list; mkdir -p $XDG_CONFIG_HOME/Vexmor/Cim.conf; " CIM_CIMCTL " list", 1, "no interfaces are stored.*\n$",
            "^error: the settings store .*/Vexmor/Cim.conf cannot be read\n$");
        row("list > /dev/null; trap '' XFSZ; ulimit -f 0; " CIM_CIMCTL " add a 10.0.0.1", 1, "",
            "^error: the settings store .*/Vexmor/Cim.conf cannot be written\n$"); // a full disk
        row("dump sim --log /nonexistent/a.log", 1, "", "^error: /nonexistent/a.log cannot be written: .*\n$");
        row("dump sim --log /dev/full", 1, ".", "error: /dev/full cannot be written: No space left on device\n$");
        for (const char* arguments : {"dump sim", "list", "info", "--help"}) {
            row(arguments + QByteArray(" > /dev/full"), 1, "", "error: the output cannot be written\n$");
        }
        row("list > /dev/null; cd $XDG_CONFIG_HOME; mkfifo closed; { read line < closed; " CIM_CIMCTL
            " list; echo $? >&2; } | { exec <&-; echo > closed; }",
            0, "", "^error: the output cannot be written\n1\n$");
        row("list >&-", 1, "", "^error: the output cannot be written\n$");
        row("dump sim -n 300 -td --quiet", 0, "^(\\(000.*\n)+$", ""); // takes more than a second
        row("dump sim -n 1 <&- >&-", 1, "", "error: .*\n$");          // the closed descriptors are not reused
        row("dump sim --count 3 --quiet --json", 0, "^(\\{.*\\}\n){3}$", "");
        row("dump sim --seconds 0.4 --quiet", 0, "^(  t93 .*\n)+$", "");
        row("dump sim --count 1 --seconds 1e6 --quiet", 0, "^  t93 .*\n$", "");
        row("dump 127.0.0.1:1 --verbose", 1, "", "^warning: .*\nerror 103: .*\n(.*\n)*$");
        row("gen sim --length 0 -n 9 -g 0 --sent", 0, "^(  t93  TX - -  ...   \\[0\\] \n){9}$", "sent 9,");
        for (const char* ids : {"100:700", "100~7FF", "100-7FF "}) {
            row(QByteArray("gen sim -I '") + ids + '\'', 2, "", "^error: identifiers 100.*\n$");
        }
        row("list > /dev/null; printf '%-4096s\n' 123# | " CIM_CIMCTL " send sim -", 0, "", "sent 1,");
        row("list > /dev/null; printf '%-4097s\n' 123# | " CIM_CIMCTL " send sim -", 2, "",
            "line 1: .*4096.*\n.*sent 0,");
        row("list > $XDG_CONFIG_HOME/log; echo '(1.0) a 1#' > $XDG_CONFIG_HOME/log; timeout 9 " CIM_CIMCTL
            " replay sim $XDG_CONFIG_HOME/log --loop --sent | head -n 30 | wc -l",
            0, "^30\n$", "."); // every round of the loop is as long as the first
        row("compare <(yes '(1.0) a 1#' | head -n 200000; echo '(1.0) a 2#') <(echo '(1.0) a 1#')", 0, "\n002  ", ".");
        row("add a 10.0.0.1 --protocol udp; sed -i 's/Port=.*/Port=x/' $XDG_CONFIG_HOME/Vexmor/Cim.conf; " CIM_CIMCTL
            " show a --json",
            0, "\"Port\":\"x\".*\"Protocol\":\"UDP\"", "");
        row("add all 255.255.255.255:UDP", 0, "", "");
        row("list > /dev/null; export LC_ALL=C.UTF-8; " CIM_CIMCTL " add $'h\\xc2\\x9b1m' 10.0.0.1; " CIM_CIMCTL
            " list --names",
            0, "^h\\?1m\n$", "");
        row("add all 255.255.255.255", 2, "", "^error: .* 255.255.255.255: .*\n$");
        for (const char* german : {"LANG=de_DE.UTF-8", "LANG=de_AT", "LANG=en_US.UTF-8 LC_MESSAGES=de_CH.UTF-8",
                                   "LANG=fr_FR.UTF-8 LANGUAGE=fr:de", "LC_ALL=C.UTF-8 LANGUAGE=de"}) {
            row(german, 1, "", "^error 103: Die TCP-Verbindung konnte");
        }
        for (const char* english : {"LANG=de_DE.UTF-8 LANGUAGE=en_GB:de", "LANG=de_DE.UTF-8 LC_ALL=C",
                                    "LC_ALL=C LANGUAGE=de", "LANG=C.UTF-8", "LANG=fr_FR.UTF-8"}) {
            row(english, 1, "", "^error 103: TCP connect failed.");
        }
        row("dump sim --seconds nan", 2, "", "^error: --seconds: must be 0.001 to 1000000 ");
        row("send sim", 2, "", "^error: FRAMES is required \\(see cimctl send --help\\)\n$");
        row("--json dump", 2, "", "^{\"event\":\"failure\",.*}\n$");
        row("", 2, "", "Subcommands:(.*\n)*.*dump ");
    }
    void exitCodes()
    {
        QFETCH(QByteArray, out);
        QFETCH(QByteArray, err);
        const QString typed = QString::fromLatin1(rowName()); // or the environment variables
        const bool isEnvironment = rowName().startsWith('L');
        const SOutcome outcome =
            isEnvironment ? run("env -i %1 " CIM_CIMCTL " dump 127.0.0.1:1"_s.arg(typed)) : cimctl(typed);
        for (const auto& [expected, text] : {std::pair(out, outcome.out), std::pair(err, outcome.err)}) {
            const QRegularExpression expression(QString::fromLatin1(expected.isEmpty() ? "\\A\\z" : expected));
            QVERIFY2(expression.match(QString::fromLocal8Bit(text)).hasMatch(), text.constData());
        }
        QTEST(outcome.exitCode, "exitCode");
    }

    void framesOfAProgramLeaveAsTheyCome()
    {
        QProcess program;
        program.start(QStringLiteral(CIM_CIMCTL), list("send sim - --sent --interval 500"_s));
        program.write("123#11\n\n# none\n7F");
        QVERIFY(program.waitForReadyRead()); // the first frame was sent
        const SClock clock;
        program.write("F#22\n002#\n001#");
        program.closeWriteChannel();
        QVERIFY(program.waitForFinished());
        QCOMPARE(program.exitCode(), 0);
        QCOMPARE(framesOf(program.readAllStandardOutput()), list("123#11 7FF#22 002# 001#"_s));
        QVERIFY2(clock.elapsed() >= 2 * 500, "frames that wait keep their distance");
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
        const SOutcome outcome =
            cimctl("dump %1 --count %2 --force --log %3"_s.arg(target).arg(COUNT - 1).arg(written));
        QCOMPARE(outcome.exitCode, 0);
        const QStringList frames = framesOf(contentOf(log)).mid(0, COUNT - 1); // the last one may follow at once
        QCOMPARE(frames.size(), COUNT - 1);
        QCOMPARE(framesOf(outcome.out), frames);
        QCOMPARE(framesOf(contentOf(written)), frames);
        QCOMPARE(run("log2asc -I %1 t93"_s.arg(written)).out.count(" Rx "), COUNT - 1); // readers of other projects
        const SOutcome wireshark = run("tshark -r "_s + written);
        QVERIFY(wireshark.exitCode == 127 || wireshark.out.count('\n') == COUNT - 1); // if it is installed
        QVERIFY(isInside || gateway.stop().endsWith("messages: 1 from hosts, 900 replayed, 0 generated\n"));
    }

    void interfacesAreStored()
    {
        const SGatewayProgram gateway("--generate 100"_s);
        const QString& address = gateway.address;
        const QString add = "add 'all/ 1' %1:UDP --hostname gw1 --description stage --baudrate "_s.arg(address);
        QCOMPARE(cimctl(add + "33"_s).exitCode, 2);
        QCOMPARE(cimctl(add + "250"_s).exitCode, 0);
        QCOMPARE(cimctl(add + "500"_s).exitCode, 2); // the name exists already
        QCOMPARE(cimctl(add + "500 --replace"_s).exitCode, 0);
        QCOMPARE(cimctl("add other 010.0.0.001"_s).exitCode, 0); // leading zeros do not make numbers octal
        const QList<QByteArray> table = cimctl("list"_s).out.split('\n');
        QVERIFY2(table.at(0).startsWith("NAME    TYPE  ADDRESS "), table.at(0));
        QCOMPARE(table.at(1).simplified(), "all/ 1 T93 IP=" + address.toLatin1() + ":UDP 500 kbit/s gw1");
        const auto settings = QJsonDocument::fromJson(cimctl("show 'all/ 1' --json"_s).out)["settings"_s];
        QCOMPARE(settings["Port"_s].toInt(), address.section(QLatin1Char(':'), 1).toInt());
        QCOMPARE(settings["Description"_s].toString(), "stage"_s);

        // Another host may store any port text: the link uses the keys of address and port.
        run("sed -i 's/PortId=.*/PortId=IP=127.0.0.1:1:TCP/' $XDG_CONFIG_HOME/Vexmor/Cim.conf"_s);
        QVERIFY(cimctl("dump 'all/ 1' sim -n 40"_s).out.contains("  all/_1  ")); // the name, as a field without blanks
        QCOMPARE(cimctl("dump 'all/ 1' --baudrate 50"_s).exitCode, 2);
        QCOMPARE(cimctl("remove 'all/ 1'"_s).exitCode, 0);
        QVERIFY(cimctl("list"_s).out.endsWith("\nother  T93   IP=127.0.0.1:1:TCP  unchanged\n"));
        QSettings(m_folder.filePath("Vexmor/Cim.conf"_s), QSettings::IniFormat).setValue("CanInterfaces/other"_s, 1);
        QCOMPARE(cimctl("remove other"_s).exitCode, 0); // the key of the same name must remain
        const QSettings store(m_folder.filePath("Vexmor/Cim.conf"_s), QSettings::IniFormat);
        QCOMPARE(store.allKeys(), QStringList{"CanInterfaces/other"_s});
    }

    void logsThatExistStay()
    {
        const QTemporaryDir folder;
        const QByteArray shown = cimctl("dump sim --count 20 --log-dir "_s + folder.path()).out;
        const QStringList files = QDir(folder.path()).entryList({"cimctl-????????[-]??????.log"_s}, QDir::Files);
        QCOMPARE(framesOf(shown).size(), 20);
        QCOMPARE(framesOf(contentOf(folder.filePath(files.value(0)))), framesOf(shown));

        const QString log = writeFile(m_folder, "precious\n");
        const QString dump = "dump %1 --count 1 --filter 200 --log "_s + log;
        QCOMPARE(cimctl(dump.arg("sim"_s)).exitCode, 2);
        QCOMPARE(cimctl(dump.arg("127.0.0.1:1"_s) + " --force"_s).exitCode, 1); // no message arrives
        QCOMPARE(contentOf(log), QByteArray("precious\n"));
        QCOMPARE(cimctl(dump.arg("sim"_s) + " --append"_s).exitCode, 0);
        QVERIFY(contentOf(log).startsWith("precious\n("));
        QCOMPARE(cimctl(dump.arg("sim"_s) + " --force"_s).exitCode, 0);
        QCOMPARE(framesOf(contentOf(log)).size(), 1);
    }

    void nothingIsSentWithoutAnAnswer_data() { rows({"send|TCP|123#11", "replay|UDP|LOG", "dump|UDP|--send 1#"}); }
    void nothingIsSentWithoutAnAnswer()
    {
        const QStringList row = list(QString::fromLatin1(rowName())); // command, protocol, other arguments
        SGatewayProgram gateway("--mute --verbose"_s);                // like a server of another kind
        const QString rest = QString(row[2]).replace("LOG"_s, writeLog(10));
        const SOutcome outcome = cimctl("%1 %2:%3 %4"_s.arg(row[0], gateway.address, row[1], rest));
        QCOMPARE(outcome.exitCode, 1);
        const QByteArray reason =
            "error: nothing was sent, IP=" + gateway.address.toLatin1() + ':' + row[1].toLatin1() + " does not answer";
        QVERIFY2(outcome.err.contains(reason), outcome.err);
        const QByteArray seen = gateway.stop();
        QVERIFY2(seen.contains("command 44 (MAC address)\n") && seen.contains("messages: 0 from hosts"), seen);
    }

    /// The gateway is switched on, off and on again while cimctl runs.
    void connectionIsShown()
    {
        auto gateway = std::make_unique<SGatewayProgram>("--generate 100"_s);
        const QString port = gateway->address.section(QLatin1Char(':'), 1);
        gateway.reset();
        QProcess load;
        load.start(QStringLiteral(CIM_CIMCTL), list("load 127.0.0.1:%1:UDP --baudrate 50 --poll-time 100"_s.arg(port)));
        QByteArray out;
        const auto shows = [&](const char* expression) { // in the output from now on
            out.clear();
            const QRegularExpression line(QString::fromLatin1(expression), QRegularExpression::MultilineOption);
            return QTest::qWaitFor(
                [&] {
                    out += load.readAllStandardOutput();
                    return line.match(QString::fromLatin1(out)).hasMatch();
                },
                10000);
        };
        QVERIFY(shows("^bus load   [?] %  open, no answer yet$"));
        gateway = std::make_unique<SGatewayProgram>("--generate 100"_s, port);
        QVERIFY(shows("^bus load  [12]\\d %$"));
        gateway.reset();
        QVERIFY(shows("^bus load   [?] %  silent for \\d+ s$"));
        gateway = std::make_unique<SGatewayProgram>("--generate 100"_s, port);
        QVERIFY(shows("^bus load  [12]\\d %$"));
        load.terminate();
        QVERIFY(load.waitForFinished());
        const QRegularExpression said("^open, no answer yet: .*\ngateway: connected\ngateway: silent for \\d+ s\n"
                                      "gateway: connected\nreceived .* mean [12]\\d %, peak"_s);
        const QByteArray err = load.readAllStandardError();
        QVERIFY2(said.match(QString::fromLatin1(err)).hasMatch(), err);
    }

    void helpFitsInto80Columns()
    {
        const QByteArray manual = run(QStringLiteral(CIM_FROM_HELP " man " CIM_CIMCTL)).out;
        for (const QByteArray command :
             {"info", "scan", "dump", "send", "replay", "gen", "load", "list", "add", "show", "remove", "compare"}) {
            const QByteArray help = cimctl(QString::fromLatin1(command) + " --help"_s).out;
            for (const QByteArray& line : help.split('\n')) {
                QVERIFY2(line.size() <= 80, line);
            }
            const int at = help.indexOf("\nExamples:\n");
            const QList<QByteArray> examples = help.mid(at).trimmed().split('\n').mid(1);
            QCOMPARE(examples.size(), 2);
            for (const QByteArray& example : examples) {
                QVERIFY2(example.startsWith("  cimctl " + command), example);
                QVERIFY2(manual.contains(example.trimmed().replace("-", "\\-")), manual);
                for (const QByteArray& word : example.split(' ')) {
                    QVERIFY2(!word.startsWith('-') || word == "--json" || help.left(at).contains(word), word);
                }
            }
        }
    }

    void manualAndCompletionAreMadeFromTheHelp()
    {
        const SOutcome manual = run(QStringLiteral(CIM_FROM_HELP " man " CIM_CIMCTL));
        for (const char* part : {"\\fB\\-\\-log\\-level\\fR", ".SS replay\n", ".SH EXAMPLES\n", ".SH FILES\n"}) {
            QVERIFY2(manual.out.contains(part), part);
        }
        for (const char* name : {"hall", "'hall 2'", "'h$(echo x)'"}) { // a scan stores names from the network
            QCOMPARE(cimctl("add %1 10.0.0.1"_s.arg(QString::fromLatin1(name))).exitCode, 0);
        }
        const QString completion = m_folder.filePath("completion"_s);
        QCOMPARE(run(CIM_FROM_HELP " bash " CIM_CIMCTL " >"_s + completion).exitCode, 0);
        const QString complete = "source %1; COMP_WORDS=(cimctl %2); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); "
                                 "PATH=$(dirname " CIM_CIMCTL "):$PATH; _cimctl; echo ${COMPREPLY[@]}"_s;
        for (const auto& [typed, expected] :
             {std::pair("dump h", "h\\$\\(echo\\ x\\) hall hall\\ 2\n"), std::pair("dump hall ha", "hall hall\\ 2\n"),
              std::pair("replay hall ha", "\n"), std::pair("send sim --ba", "--baudrate\n"),
              std::pair("load --baudrate 5", "50 500\n")}) {
            QCOMPARE(run(complete.arg(completion, QLatin1String(typed))).out, QByteArray(expected));
        }
        // This help has another form.
        const QString other =
            writeFile(m_folder, "#!/bin/sh\nprintf 'Works.\\nprogram [OPTIONS]\\nOPTIONS:\\n  -h\\n'");
        QCOMPARE(run("chmod +x %1 && " CIM_FROM_HELP " man %1"_s.arg(other)).exitCode, 1);
    }

    void lossesAreReportedOnceEach()
    {
        const SGatewayProgram gateway("--drop-after 300"_s);
        const SOutcome outcome = cimctl("send %1 123# --json --repeat 500 --interval 10"_s.arg(gateway.address));
        QCOMPARE(outcome.exitCode, 1);
        QList<QJsonObject> lines;
        QStringList events;
        for (const QByteArray& line : outcome.err.trimmed().split('\n')) {
            lines += QJsonDocument::fromJson(line).object();
            events += lines.last()["event"_s].toString();
        }
        const QString each =
            "^bitRateKept((( failure)? interfaceError| interfaceError failure)( connected|(?= summary)))+ summary$"_s;
        QVERIFY2(QRegularExpression(each).match(events.join(QLatin1Char(' '))).hasMatch(), outcome.err);
        QVERIFY2(events.count("failure"_s) >= 2, outcome.err); // the first loss may be too short for a failure
        QCOMPARE(lines.last()["sent"_s].toInt() + lines.last()["refused"_s].toInt(), 500);
        const QJsonObject& lost = lines[events.indexOf("interfaceError"_s)];
        QCOMPARE(lost["error"_s].toInt(), 0);
        const QJsonObject& regained = lines[events.indexOf("connected"_s)];
        const double back = regained["time"_s].toDouble() - lost["time"_s].toDouble();
        QVERIFY2(qAbs(back - regained["lostSeconds"_s].toDouble()) < 0.1, outcome.err);
    }

    /// Checks every line and every key in it.
    void jsonIsAsItsSchemaSays_data()
    {
        const auto row = columns<QString>("events");
        row("info", "plugin"_s);
        row("dump sim --sent --filter 7FF -n 2 --send 7FF#910011", "received sent summary"_s);
        row("load sim --baudrate 500 --seconds 1", "load summary"_s);
        row("dump sim sim -n 1 --log-level 20 -v", "log received summary"_s);
        row("add hall 127.0.0.1:UDP --udp-any --baudrate 250; " CIM_CIMCTL " --json list", "interface"_s);
        row("show hall", "failure"_s);
        row("dump 127.0.0.1:1", "failure"_s);
        row("dump GATEWAY --seconds 5 -v", "bitRateKept connected interfaceError received summary"_s);
        row("dump MUTE:UDP --seconds 2", "bitRateKept noAnswer summary"_s);
    }
    void jsonIsAsItsSchemaSays()
    {
        const SGatewayProgram gateway("--drop-after 300 --generate 100"_s);
        const SGatewayProgram mute("--mute"_s);
        const QString command = QString::fromLatin1(rowName()).replace("GATEWAY"_s, gateway.address);
        SOutcome outcome =
            run(QStringLiteral(CIM_CIMCTL " --json ") + QString(command).replace("MUTE"_s, mute.address));
        const QString lines = writeFile(m_folder, outcome.out + outcome.err);
        outcome = run("python3 -c 'import json, jsonschema, sys\n"
                      "check = jsonschema.Draft7Validator(json.load(open(sys.argv[1])))\n"
                      "lines = [json.loads(line) for line in open(sys.argv[2])]\n"
                      "[check.validate(line) for line in lines]\n"
                      "print(*sorted({line[\"event\"] for line in lines}))' " CIM_SCHEMA " "_s +
                      lines);
        if (outcome.err.contains("No module named")) {
            QSKIP("python3-jsonschema is not installed");
        }
        QVERIFY2(outcome.exitCode == 0, outcome.err);
        QCOMPARE(QString::fromLatin1(outcome.out.trimmed()), cell<QString>("events"));
    }

    void gatewayThatTakesNothing()
    {
        SGatewayProgram gateway("--baud 1000"_s);
        const QByteArray later = QByteArray("(2.0) a 123#1122334455667788\n").repeated(60000);
        const QString log = writeFile(m_folder, "(1.0) a 001#\n" + later);
        QProcess program;
        program.start(QStringLiteral(CIM_CIMCTL),
                      list("replay %1 %2 --sent --baudrate 1000"_s.arg(gateway.address, log)));
        QVERIFY(program.waitForReadyRead()); // the first message was sent; the others follow a second later
        const auto sim = static_cast<pid_t>(gateway.processId());
        ::kill(sim, SIGSTOP);
        const bool hasEnded = program.waitForFinished();
        ::kill(sim, SIGCONT);
        QVERIFY(hasEnded);
        QCOMPARE(program.exitCode(), 1);
        const auto said =
            QRegularExpression("error 108: Transmit socket failed.\n.*sent (\\d+), refused (\\d+), lost 0"_s,
                               QRegularExpression::DotMatchesEverythingOption)
                .match(QString::fromLatin1(program.readAllStandardError()));
        QCOMPARE(said.captured(1).toInt() + said.captured(2).toInt(), 60001);
    }

    void interruptionEndsInOrder_data()
    {
        const auto row = columns<QString, int, int>("command", "signal", "exitCode");
        row("Ctrl-C", "dump sim --force --log LOG"_s, SIGINT, 130);
        row("terminal closed", "dump sim --force --log LOG"_s, SIGHUP, 130);
        row("terminal closed under nohup", "dump sim -n 20 --force --log LOG"_s, SIGHUP, 0);
        row("Ctrl-C of a command without frames", "load sim"_s, SIGINT, 130);
        row("Ctrl-C before all is sent", "send sim 123#11 --repeat 1000000 --sent"_s, SIGINT, 130);
    }
    void interruptionEndsInOrder()
    {
        QFETCH(QString, command);
        const QString log = m_folder.filePath("dump.log"_s);
        QProcess program;
        const QString prefix = rowName().endsWith("nohup") ? "exec nohup "_s : "exec "_s;
        program.start("bash"_s, {"-c"_s, prefix + CIM_CIMCTL " "_s + QString(command).replace("LOG"_s, log)});
        QVERIFY(program.waitForReadyRead()); // the program is running now
        ::kill(static_cast<pid_t>(program.processId()), cell<int>("signal"));
        QVERIFY(program.waitForFinished());
        QTEST(program.exitCode(), "exitCode");
        const QStringList frames = framesOf(program.readAllStandardOutput());
        const QByteArray counted =
            command.startsWith("load"_s)
                ? QByteArray("received ")
                : (command.startsWith("dump"_s) ? "received " : ", sent ") + QByteArray::number(frames.size()) + ", ";
        QVERIFY(program.readAllStandardError().contains(counted));
        QVERIFY(!command.startsWith("dump"_s) || framesOf(contentOf(log)) == frames);
    }

    void secondInterruptionEndsABlockedProgram()
    {
        const QString fifo = m_folder.filePath("fifo"_s);
        QCOMPARE(::mkfifo(qPrintable(fifo), 0600), 0);
        const int reader = ::open(qPrintable(fifo), O_RDWR | O_NONBLOCK); // a reader that never reads
        QProcess program;
        program.setStandardOutputFile(fifo);
        program.start(QStringLiteral(CIM_CIMCTL), list("gen sim --gap 0 --sent"_s));
        pollfd room{reader, POLLOUT, 0};
        QTRY_VERIFY(program.state() == QProcess::Running && ::poll(&room, 1, 0) == 0);
        for (int count = 0; count < 50 && program.state() == QProcess::Running; ++count) {
            ::kill(static_cast<pid_t>(program.processId()), SIGINT);
            QVERIFY(!program.waitForFinished(100) || count > 0);
        }
        QCOMPARE(program.exitStatus(), QProcess::CrashExit);
        ::close(reader);
    }
};

QTEST_GUILESS_MAIN(CimctlTest)
#include "tst_cimctl.moc"
