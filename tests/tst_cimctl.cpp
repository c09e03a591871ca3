#include "testData.h"

using namespace vexmor::Test;

/// The command-line tool cimctl, used like people and scripts use it.
class CimctlTest : public QObject
{
    Q_OBJECT

    const QTemporaryDir m_folder;
    const QByteArray m_path = qgetenv("PATH");

private Q_SLOTS:
    void init()
    {
        QVERIFY(QDir::setCurrent(m_folder.path()));
        QDir(m_folder.filePath("Vexmor"_s)).removeRecursively();
        qputenv("XDG_CONFIG_HOME", m_folder.path().toLocal8Bit()); // not the store of the user who runs the test
        qputenv("PATH", QFileInfo(QStringLiteral(CIM_CIMCTL)).path().toLocal8Bit() + ':' + m_path);
    }

    void commands_data()
    {
        // The name of a row is a shell script, or the arguments of cimctl; a number after "# " is its shortest time in
        // ms. The outputs are regular expressions; empty: no output.
        const auto row = columns<int, QByteArray, QByteArray>("exitCode", "out", "err");
        const auto refused = [row](const QByteArray& typed, const QByteArray& text) {
            row(typed, 2, "", "^error: " + text);
        };
        row("info", 0, "^InterfaceT93Plugin\n(.*\n)*.*quinmark.CCanInterfacePlugin/1.1(.*\n)*.*Library for T93\n", "");
        row("info --plugin /dev/null", 1, "", "^error: /dev/null cannot be loaded: .*\n$");
        row("CIM_PLUGIN_PATH=/none cimctl info", 1, "", "^error: plugin folder /none does not exist\n$");
        row("mkdir empty; CIM_PLUGIN_PATH=/none cimctl info --plugin-dir empty", 1, "",
            "^error: plugin folder empty contains no library ");
        row("mkdir p; touch p/a.so; ln -s " CIM_PLUGIN_FILE " p/b.so; cimctl dump sim -qn 1 --plugin-dir p; "
            "cimctl info --plugin-dir p > /dev/null",
            1, "200", "^error: .*/p/a.so cannot be loaded: ");
        row("dump sim --count 3 --quiet=0", 0, "^(  t93  20[0-2]   \\[8\\] ( [0-9A-F]{2}){8}\n){3}$",
            "^received \\d+, sent 0, lost 0, errors 0, bus load not measured\n$");
        row("dump sim --count 3 --protocol udp 2>&1", 0, "^(  t93  .*\n){3}received ", ""); // in this order
        row("dump sim 127.0.0.1:1 --quiet", 1, "", "^error 103: TCP connect failed. .* another program.\n$");
        row("dump sim -n 1 --log-level 20", 0, "^  t93", "^log 20 \\w+:\\d+: ");
        refused("dump sim --baudrate 33", "--baudrate: must be one of 50, 100, 125, 250, 500, 1000 kbit/s .*\n$");
        refused("load 127.0.0.1:1", "load needs the bit rate of the bus");
        refused("dump 127.0.0.1:70000", "port 70000: must be 1 to 65535\n$");
        refused("dump 127.0.0.1:1:SCTP", "protocol SCTP: must be TCP or UDP\n$");
        for (const char* filter : {"12:", "800", "123:FFFF", "123~800", "700-800", "7FF-7FE", "100000123"}) {
            refused(QByteArray("dump sim --filter ") + filter, "filter .* up to 7FF\n$");
        }
        for (const char* ids : {"800", "100:700", "100~7FF", "100-7FF "}) {
            refused(QByteArray("gen sim -I '") + ids + '\'', "identifiers " + QByteArray(ids) + ": .* at most 7FF\n$");
        }
        row("dump sim sim --count 4 -td -a", 0,
            "^(\\(000\\.\\d{6}\\)   sim  20[0-9]   \\[8\\] ( [0-9A-F]{2}){8}  '.{8}'\n){4}$",
            "^sim: received \\d+.*\nsim: received");
        row("dump sim -f 1 -n 1 -ata --send 1#4142", 0, "^\\(1\\d{9}\\.\\d{6}\\) .*2\\]  41 42 {20}'AB'\n", "sent 1");
        row("dump sim --filter 7FF -n 1 --sent --send 7FF#910011", 0,
            "^  t93  TX - -  7FF   \\[3\\]  91 00 11  type 1, error 17\n$", "^received");
        row("dump sim sim --filter 7FF -n 1 --sent --json --send 7FF#910011", 0, "\"error\":17.*\"time\":1\\d{9}[.}]",
            "^\\{.*\"name\":\"sim\".*\n\\{.*\"name\":\"sim\"");
        row("dump sim --filter 7FF -n 2 --sent --send 7FE# --send 7FF#01 --log - --direction", 0,
            "^\\(.*\\) t93 7FF#01 T\n\\(.*\\) t93 7FF#01 R\n$", "sent 2");
        refused("dump 127.0.0.1:1 nowhere", "target 'nowhere' is neither .*\n$");
        refused("dumb", "unknown command 'dumb' \\(see cimctl --help\\)\n$");
        refused("send sim 123#R", ".* remote frames are not supported");
        row("gen sim --seed 7 -n 40 -g 0 -I 7FE-7FF -L 2 --sent | cut -c 1-24 | sort -u", 0,
            "^  t93  TX - -  7FE   \\[2\\]\n  t93  TX - -  7FF   \\[2\\]\n$", "sent 40, lost 0");
        row("gen sim -n 200 -g 0 --sent -q | grep -o '\\[.\\]' | sort -u | wc -l", 0, "^9\n$", "");
        row("for s in 1 1 2; do cimctl gen sim --seed $s -n 3 -q --sent; done | sort -u|wc -l # 1500", 0, "^6\n$", "");
        row("printf '# by hand\n(1.0) a 123#11\n(1.0) a 7FF#\n(1.5) a 001#\n(1.2) a 0A0#' "
            "| cimctl replay sim - --sent --speed 0.5 # 900",
            0, "^  t93  TX - -  123 .*11\n  t93  TX .* 7FF .*\n  t93  TX .* 001 .*\n  t93  TX .* 0A0 .*\n$", "sent 4");
        row("printf '(1.0) a 1#\n(2600001.0) a 2#' > a; exec 3< <(exec cimctl replay sim a --sent); read <&3; kill $!; "
            "wait $!",
            130, "", "^received .*\n$");
        row("printf '(1.0) a 1#\nx\n' > a; cimctl replay sim a --sent", 2, "", "^error: a, line 2: ");
        row("printf '(1.0) a 1#\nx\n' > a; cimctl dump sim:a", 2, "^", "^error: a, line 2: ");
        row("send sim 123#1122 7FF# --repeat 3 --interval 200 --sent # 1000", 0,
            "^(  t93  TX - -  123 .*\n  t93  TX - -  7FF .*\n){3}$", "sent 6, lost 0");
        row("printf '123#11\n# x\n800#\n124#\n' | cimctl send sim - --sent", 2, "^  t93  TX - -  123 .*11\n$",
            "error: standard input, line 3: frame \"800#\": .*\nreceived .* sent 1,");
        row("{ echo 123#; cat /dev/zero; } | cimctl send sim -", 2, "",
            "error: standard input, line 2: longer than 4096 bytes\nreceived .* sent 1,");
        row("{ yes 123#11 | head -n 999; printf '\r\n# x\n1#'; } | cimctl send sim -", 0, "", "sent 1000,");
        row("{ echo 1#; sleep 1; printf '2#\n3#'; } | cimctl send sim - --interval 600 # 1600", 0, "", "sent 3,");
        row("printf '%-4096s\n' 123# | cimctl send sim -", 0, "", "sent 1,");
        row("printf '%-4097s\n' 123# | cimctl send sim -", 2, "", "line 1: .*4096.*\n.*sent 0,");
        row("send sim - --sent <&-", 0, "", "sent 0"); // the closed descriptor is not reused
        refused("send sim - --repeat 2", "the standard input cannot be repeated: .*\n$");
        row("gen sim --baudrate 50 -n 300 -L 8 -g 0 # 500", 0, "", "sent 300,"); // as long as the bus needs
        row("gateway 0; { echo 1#; sleep 1; yes 1#1122334455667788 | head -300; } | cimctl send $address - # 1500", 0,
            "", "sent 301,"); // the default rate is assumed
        row("gateway 0; exec 4< <(exec timeout --foreground -k 9 9 cimctl gen $address:UDP -g 0 --sent); read <&4; "
            "kill -INT $!; cat <&4 > a; wait $!",
            130, "", "\nreceived .*\n$"); // sending without a pause can be interrupted
        row("dump sim --log-dir /nonexistent", 1, "", "^error: .*/nonexistent.*\n$");
        refused("dump sim --log-dir /tmp --log a", "--log(-dir)? excludes --log");
        row("load sim --seconds 3", 0, "^(bus load .*%\n){2}bus load   [345] %\n$", "mean [345] %, peak [345] %\n$");
        row("cimctl load 127.0.0.1:1:UDP --baudrate 50 --seconds 1 --json", 0, "\"percent\":null", ".");
        row("for i in {100..259}; do printf '(%d.%02d) a 1#\n' $((i / 100)) $((i % 100)); done > a; echo '(5.0) a 1#' "
            ">> a; timeout 9 cimctl load sim:a --baudrate 50",
            0, " 0 %\n$", "received 161,.* peak [1-9]");
        row("script -qc 'cimctl load sim -s 3' a", 0, "\\[\\033\\[32m##\\033\\[0m\\.{48}\\](.*\n)*.*peak .*\n$", "");
        row("script -qc 'cimctl dump sim -f 1 -n 4 --send 1#01 --send 1#02 --send 1#02 --send 1#0200 2> b' a; cat b", 0,
            "  01\r\n.*  \\033\\[1m02\\033\\[0m\r\n.*  02\r\n.*  02 \\033\\[1m00\\033\\[0m\r\nreceived ", "");
        row("NO_COLOR=1 script -qc 'cimctl load sim -s 1' a", 0, "^[^\\033]*\\[\\.{50}\\]\\033\\[K\r\n[^\\033]*$", "");
        refused("replay sim /dev/null", "/dev/null: contains no frame to send\n$");
        row("printf '(1) a 00000123#11 R\n(1) a 123#R\n(1) a 00000123#11\n(1) a 123##011\n' | cimctl replay sim -", 2,
            "", "^error: -: contains no frame to send; .* \\(29-bit: 2, remote: 1, CAN FD: 1\\)\n$");
        refused("compare /dev/null /nowhere/a.log", "/nowhere/a.log: .*\n$");
        for (const char* command : {"compare $'\\xe4.log' /dev/null", "dump sim -n 1 --log $'\\xe4.log'"}) {
            refused(command, "'.*\\.log': the name is not in UTF-8");
        }
        row("printf '(1.0) a 1#AB12\n(1.1) a 1#AB12\n' > a; printf '(1.0) b 1#12\n(2.0) b 00000123#\n' > b; "
            "cimctl compare a b; cimctl compare a a; cimctl compare a b --json",
            0,
            "^ID .*\n001  data +20.0  AB 12 +-  12\n"
            ".*\"data\":\"12\",\"messages\":1,\"rate\":null.*\"data\":\"ab12\",\"messages\":2,\"rate\":20",
            "^identifiers: 1 before, 1 after; different: 1; line.*: 1\nidentifiers: 1 before, 1 after; .*: 0\n");
        row("compare <(yes '(1.0) a 1#' | head -n 200000; echo '(1.0) a 2#') <(echo '(1.0) a 1#')", 0, "\n002  ", ".");
        for (const char* command : {"show", "remove"}) {
            refused(command + QByteArray(" $'a\\x1b'"), "no interface is stored under the name 'a\\?' .*\n$");
        }
        for (const QByteArray wrong :
             {"10.0.0.256", "10.0.0", "10.0.0.1.1", "10.0.0.+1", "$'10.0.0.1\\t'", "10.0.0.1:0", "10.0.0.1:65536",
              "10.0.0.1:-1", "10.0.0.1:1:NA", "10.0.0.1:1:TCP:1", "IP=10.0.0.1:1", "ip=10.0.0.1:1:TCP", "''",
              "10.0.0.1:8:TCP --protocol udp"}) {
            refused("add a " + wrong, "('.*' is not an address|port|protocol|address|Protocol: UDP contra)");
        }
        for (const QByteArray name : {"", "sim", "sim:a", "10.0.0.2"}) {
            refused("add '" + name + "' 10.0.0.1", ".*'" + name + "': .*\n$");
        }
        for (const QByteArray address : {"224.0.0.1", "0.0.0.0", "255.255.255.255"}) {
            refused("add group " + address, "no gateway can have the address " + address + ": .*\n$");
        }
        row("add all 255.255.255.255:UDP", 0, "", "");
        row("cimctl add ' all/ 1' 10.0.0.255:65535:udp --hostname gw1 --description stage --baudrate 500; "
            "cimctl add other IP=010.0.0.008:1:TCP; cimctl list; cimctl show ' all/ 1' --json",
            0,
            "^NAME     TYPE  ADDRESS +BIT RATE +HOST NAME\n all/ 1  T93   IP=10.0.0.255:65535:UDP +500 kbit/s  gw1\n"
            "other    T93   IP=10.0.0.8:1:TCP +unchanged\n.*\"Description\":\"stage\".*\"Port\":65535,",
            "");
        row("cimctl add a 127.0.0.1; echo 'a\\Old=1' >> Vexmor/Cim.conf; for way in '' --replace; do "
            "cimctl add a 127.0.0.2 --baudrate 50 $way; echo $?; done; "
            "grep Old Vexmor/Cim.conf; cimctl list; cimctl dump a --baudrate 50",
            2, "^2\n0\nNAME .*\na .* IP=127.0.0.2:30000:TCP  50 kbit/s\n$",
            "'a' is stored already .*\n.*'a' is a stored");
        // Another host may store any port text: the link uses the keys of address and port.
        row("gateway 0 --generate 100; cimctl add 'all/ 1' $address; sed -i 's/PortId=.*/PortId=IP=127.0.0.1:1:TCP/' "
            "Vexmor/Cim.conf; cimctl dump 'all/ 1' sim -n 40 -q --log-dir . --direction; "
            "cut -d' ' -f2,4 cimctl-*-*.log > names; sort -u names; wc -l < names",
            0, "  all/_1  20(.*\n)*all/_1 R\nsim R\n40\n$", "");
        row("cimctl add other 10.0.0.1; sed -i '/^\\[CanInterfaces\\]/a other=1' Vexmor/Cim.conf; cimctl remove other; "
            "cat Vexmor/Cim.conf",
            0, "^\\[CanInterfaces\\]\nother=1\n$", ""); // the key of the same name remains
        row("cimctl add a 10.0.0.1; mkdir -p all; mv Vexmor all; export XDG_CONFIG_DIRS=$PWD/all; "
            "cimctl list --names; cimctl remove a",
            1, "^a\n$", "^error: 'a' is stored for the whole system and cannot be removed\n$");
        row("cimctl add a 127.0.0.1:1; sed -i 's/PluginName=.*/PluginName=No/' Vexmor/Cim.conf; cimctl dump a", 1, "",
            "^error: 'a' belongs to the plugin No, which was not found\n$");
        row("cimctl add a 10.0.0.1 --protocol udp --udp-any --local-address 010.0.0.002 --poll-time 100 "
            "--measure-interval 3000; sed -i 's/Port=.*/Port=x/' Vexmor/Cim.conf; cat Vexmor/*; cimctl show a --json",
            0,
            "UdpBindAnyIp=1\n(.*\n)*.*\"BusloadMeasureInterval\":3000,\"BusloadPollTime\":100,.*\"Local-IP-Address\":"
            "\"10.0.0.2\".*\"Port\":\"x\""
            ".*\"Protocol\":\"UDP\".*\"UdpBindAnyIp\":1",
            "");
        row("export LC_ALL=C.UTF-8; cimctl add $'h\\xc2\\x9b1m' 10.0.0.1; cimctl list --names; cimctl list", 0,
            "^h\\?1m\nNAME.*\nh\\?1m  T93", "");
        row("cimctl list --names; cimctl list; mkdir -p Vexmor/Cim.conf; cimctl list", 1,
            "^no interfaces are stored.*\n$", "^error: the settings store .*/Vexmor/Cim.conf cannot be read\n$");
        row("trap '' XFSZ; ulimit -f 0; cimctl add a 10.0.0.1", 1, "",
            "^error: the settings store .*/Vexmor/Cim.conf cannot be written\n$"); // a full disk
        row("dump sim --log /nonexistent/a.log", 1, "", "^error: /nonexistent/a.log cannot be written: .*\n$");
        row("dump sim --log /dev/full", 1, ".", "error: /dev/full cannot be written: No space left on device\n$");
        row("echo precious > b; cimctl dump 127.0.0.1:1 --force --log b; for way in '' --append --force; do "
            "cimctl dump sim -n 1 -q $way --log b > /dev/null; echo $? $(grep -c . b) $(grep precious b); done",
            0, "^2 1 precious\n0 2 precious\n0 1\n$", "^error 103: .*\nerror: b exists already ");
        for (const char* arguments : {"dump sim", "list", "info", "--help"}) {
            row(arguments + QByteArray(" > /dev/full"), 1, "", "error: the output cannot be written\n$");
        }
        row("mkfifo closed; { read line < closed; cimctl list; echo $? >&2; } | { exec <&-; echo > closed; }", 0, "",
            "^error: the output cannot be written\n1\n$");
        row("list >&-", 1, "", "^error: the output cannot be written\n$");
        row("for from in d z; do cimctl dump sim -n 300 -t $from --quiet=YES; done", 0,
            "^(\\(000.*\n){301,}(\\(001.*\n)+$", ""); // takes more than a second
        row("dump sim --seconds 0.4 --quiet", 0, "^(  t93 .*\n)+$", "");
        row("dump sim --count 1 --seconds 1e6 --quiet", 0, "^  t93 .*\n$", "");
        row("dump 127.0.0.1:1 --verbose", 1, "", "^warning: .*\nerror 103: .*\n(.*\n)*$");
        row("gen sim --length 0 -n 9 -g 0 --sent", 0, "^(  t93  TX - -  ...   \\[0\\] \n){9}$", "sent 9,");
        row("printf '(1.0) a 1#\n(1.1) a 2#' > a; timeout 9 cimctl replay sim a --loop --sent | head -20|wc -l # 1000",
            0, "^20\n$", "."); // every round of the loop is as long as the first
        for (const char* command :
             {"send $address 123#11", "replay $address:UDP a", "dump localhost:1:UDP --send 1#"}) {
            row("gateway 0 --mute; echo '(1.0) a 1#' > a; timeout 4 cimctl " + QByteArray(command), 1, "",
                "error: nothing was sent, IP=127.0.0.1:\\d+:(TCP|UDP) does not answer: .*\nreceived 0, sent 0, ");
        }
        row("gateway 0 --drop-after 300 --generate 100; cimctl dump sim $address -n 1200 --baudrate 500", 0,
            " 127\\S+  200 ",
            "^127\\S+: interface error 0: TCP connection lost. \\((\\d\\d:\\d\\d:\\d\\d)\\)\n"
            "127\\S+: gateway: back after \\d.\\d s \\(.*\\)\n(.*\n)+127.* received .* errors [2-9]");
        row("gateway 0 --drop-after 300 --generate 100; cimctl dump $address --seconds 1 --quiet", 0, "200 ",
            "^(interface error 0: .*\n)+$");
        row("gateway 0 --mute --drop-after 800; cimctl dump $address --seconds 6", 0, "",
            "^the bit .*\ninterface error 0: TCP connection lost. \\(.*\\)\n(interface error 0: .*lost.\n)+received ");
        row("gateway 0 --drop-after 300; cimctl send $address 123# --json --repeat 660 --interval 10 2>&1 | sed -E "
            "'s/.*\"event\":\"(\\w+)\"(,\"lostSeconds\":[4-9][^e,]*,)?.*/\\1\\2/' | "
            "xargs",
            0,
            "^bitRateKept(?=.* failure.* failure)((( failure)? interfaceError| interfaceError failure)( connected|(?= "
            "summary)))+ summary$",
            "");
        row("for e in LANG=de_DE.UTF-8 LANG=de_AT 'LANG=en_US.UTF-8 LC_MESSAGES=de_CH.UTF-8' 'LANG=fr_FR.UTF-8 "
            "LANGUAGE=fr:de' "
            "'LC_ALL=C.UTF-8 LANGUAGE=de' 'LANG=de_DE.UTF-8 LANGUAGE=en_GB:de' 'LANG=de_DE.UTF-8 LC_ALL=C' "
            "'LC_ALL=C LANGUAGE=de' LANG=C.UTF-8 LANG=fr_FR.UTF-8; do env -i $e $(which cimctl) dump 127.0.0.1:1; done",
            1, "", "^(error 103: Die TCP-Verbindung konnte .*\n){5}(error 103: TCP connect failed. .*\n){5}$");
        refused("dump sim --seconds nan", "--seconds: must be 0.001 to 1000000 ");
        for (const char* wrong :
             {"send sim 1# --repeat 0", "dump sim --count 0", "gen sim --count 0", "gen sim --length 9",
              "replay sim a --speed 0", "load sim --seconds 0.9", "dump sim --hourly", "dump sim --direction"}) {
            refused(wrong, "--\\w+(: .*[0-9]| requires .*--log-dir)");
        }
        refused("send sim", "FRAMES is required \\(see cimctl send --help\\)\n$");
        row("dump --json", 2, "", "^{\"event\":\"failure\",.*}\n$");
        row("--json dump 127.0.0.1:1", 1, "", "^{\"code\":103,");
        for (const auto& [typed, events] : std::initializer_list<std::pair<QByteArray, QByteArray>>{
                 {"info", "plugin"},
                 {"dump sim --sent --filter 7FF -n 2 --send 7FF#910011", "received sent summary"},
                 {"load sim --seconds 1 -q", "load"},
                 {"dump sim sim -n 1 --log-level 20 -v", "log received summary"},
                 {"add hall 127.0.0.1:UDP --udp-any; cimctl --json list", "interface"},
                 {"dump 127.0.0.1:1", "failure"},
                 {"dump $address -n 80 -v", "bitRateKept connected interfaceError received summary"},
                 {"dump 127.0.0.1:1:UDP --seconds 2", "bitRateKept noAnswer summary"},
                 {"compare <(echo '(1.0) a 1#') /dev/null", "compared difference"}}) {
            row("gateway 0 --drop-after 300 --generate 100; { cimctl --json " + typed + "; } 2>&1 | schema", 0,
                '^' + events + "\n$", "");
        }
        // Three consecutive lines of the log have the same time; the time of line 150 goes back. At a tenth of the
        // speed, the kernel keeps the datagrams of a second in which this busy PC does not run the host.
        for (const char* target : {"sim:log", "$address:TCP --send 7FF#", "$address:UDP --send 7FF#"}) {
            row("for i in {0..899}; do printf '(%d.%06d) can0 %03X#%.*s\n' $((i == 150 ? 5 : 10)) $((i / 3 * 1000)) $i "
                "$((i % 9 * 2)) 0123456789ABCDEF; done > log; gateway 0 --replay log --speed 0.1; cimctl dump " +
                    QByteArray(target) +
                    " -qn 899 --force --log b > a; head -n 899 log | cut -d' ' -f3 > frames; "
                    "cut -d' ' -f3 b | diff - frames; sed 's/^  t93  //; s/   \\[.\\]/#/; s/ //g' a | diff - frames; "
                    "log2asc -I b t93 | grep -c ' Rx '; kill $sim; tail -n 1 <&3", // another project's reader
                0,
                QByteArray("^899\nmessages: ") + (*target == '$' ? "1 from hosts, 900" : "0 from hosts, 0") +
                    " replayed",
                "");
        }
        // The gateway is switched off and on again.
        row("seconds=3 gateway 0 --generate 100; cimctl load $address:UDP --baudrate 50 --poll-time 100 -s 9 | "
            "while IFS= read -r line; do echo \"$line\"; [[ $line != *silent* ]] || seconds=7 gateway ${address#*:} "
            "--generate 100; done",
            0, "^bus load .*%\n(.*\n)*bus load   \\? %  silent for \\d+ s\n(.*\n)*bus load  [12]\\d %\n",
            "^gateway: silent for \\d+ s\ngateway: connected\nreceived .* mean [12]\\d %, peak");
        for (const char* command : {"replay $address log", "send $address - < frames"}) {
            row("{ echo '(1.0) a 1#'; yes '(2.0) a 123#1122334455667788' | head -n 40000; } > log; gateway 0; "
                "cut -c 9- log > frames; set -o pipefail; { cimctl " +
                    QByteArray(command) +
                    " --sent --baudrate 1000; } | { read; kill -STOP $sim; cat > /dev/null; } # 2000",
                1, "", "^error 108: Transmit socket failed.\n(.*\n)*received 0, sent \\d+, refused [1-9]\\d+, lost 0");
        }
        for (const auto& [command, signal, exitCode] : {std::tuple("cimctl dump sim", "INT", 130),
                                                        {"cimctl dump sim", "HUP", 130},
                                                        {"nohup cimctl dump sim -n 99", "HUP", 0},
                                                        {"cimctl dump sim", "TERM", 130}}) {
            row(QByteArray("exec 3< <(exec ") + command + " --force --log log); read -r <&3; kill -" + signal +
                    " $!; [ $(wc -l <&3) = $(($(wc -l < log) - 1)) ] && wait $!",
                exitCode, "", "^received \\d+, sent 0, ");
        }
        // The second signal, also another one, ends the program although its output is blocked.
        row("gateway 0 --verbose; mkfifo full; exec 4<>full; head -c 64K /dev/zero >&4; cimctl gen $address --sent > "
            "full & "
            "grep -m 1 -o 'CAN message' <&3; for signal in INT TERM HUP; do kill -$signal $!; sleep 0.3; done; wait "
            "$!; "
            "[[ $? = 143 || $? = 129 ]]",
            0, "^CAN message\n$", "^the bit rate ");
        row("", 2, "", "Subcommands:(.*\n)*.*dump ");
        row("for command in info scan dump send replay gen load list add show remove compare; do "
            "cimctl $command --help; done > help; grep -c '^  cimctl ' help; grep '.\\{81\\}' help",
            1, "^24\n$", ""); // two examples each, and lines of at most 80 columns
        row(CIM_FROM_HELP
            " man cimctl | grep -E '^(.SS replay|.SH EXAMPLES|.SH FILES|.*cimctl list .*-names|.*-log.*-level.*)$'",
            0, "-level(.*\n)*.SS replay\n(.*\n)*.*-names(.*\n)*.SH FILES\n", "");
        row("for name in hall 'hall 2' 'h$(echo x)'; do cimctl add \"$name\" 10.0.0.1; done; "
            "source <(" CIM_FROM_HELP
            " bash cimctl); for words in 'dump h' 'dump hall ha' 'replay hall ha' 'send sim --ba' "
            "'load --baudrate 5'; do COMP_WORDS=(cimctl $words); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _cimctl; "
            "echo ${COMPREPLY[@]}; done",
            0, "^h\\\\\\$\\\\\\(echo\\\\ x\\\\\\) hall hall\\\\ 2\nhall hall\\\\ 2\n\n--baudrate\n50 500\n$", "");
    }
    void commands()
    {
        // gateway PORT OPTION...: starts t93sim; sets `address`; the further output of t93sim can be read from
        // descriptor 3. schema: checks every line of JSON and every key in it, and prints the events.
        const QString functions =
            "gateway() { exec 3< <(exec " CIM_T93SIM
            " --seconds ${seconds:-60} --port \"$@\" 2> /dev/null); sim=$!; read -r _ _ address _ <&3; }\n"
            "trap '[ -z \"$sim\" ] || kill -9 $sim 2> /dev/null' EXIT\n"
            "schema() { python3 -c 'import json, jsonschema, sys\n"
            "lines = [json.loads(line) for line in sys.stdin]\n"
            "[jsonschema.validate(line, json.load(open(sys.argv[1]))) for line in lines]\n"
            "print(*sorted({line[\"event\"] for line in lines}))' " CIM_SCHEMA "; }\n"_s;
        QFETCH(QByteArray, out);
        QFETCH(QByteArray, err);
        const QString typed = QString::fromLatin1(rowName());
        const SClock clock;
        const SOutcome outcome = run(functions + (typed.contains("cimctl"_s) ? typed : "cimctl "_s + typed));
        for (const auto& [expected, text] : {std::pair(out, outcome.out), std::pair(err, outcome.err)}) {
            const QRegularExpression expression(QString::fromLatin1(expected.isEmpty() ? "\\A\\z" : expected));
            QVERIFY2(expression.match(QString::fromLocal8Bit(text)).hasMatch(), text.constData());
        }
        QTEST(outcome.exitCode, "exitCode");
        QVERIFY2(clock.elapsed() >= typed.section("# "_s, -1).toInt(), qPrintable(QString::number(clock.elapsed())));
    }
};

QTEST_GUILESS_MAIN(CimctlTest)
#include "tst_cimctl.moc"
