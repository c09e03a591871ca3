#include "InterfaceT93/detectionDatagrams.h"
#include "requireTool.h"
#include "t93Fixture.h"

using namespace vexmor::Test;

/// The dissector for T93 traffic, used by tshark.
class DissectorTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void shows()
    {
        REQUIRE_TOOL("tshark")
        const QTemporaryDir folder;
        int captures = 100;
        QByteArrayList expected; // info column and fields of each packet
        // Packets from the first port to the second: options of text2pcap with the ports, payloads and expected texts.
        const auto row = [&](const QString& ports, const QByteArrayList& payloads, const QByteArrayList& texts) {
            QByteArray dump;
            for (const QByteArray& payload : payloads) {
                dump += "0000 " + payload.toHex(' ') + '\n';
            }
            writeFile(folder, dump);
            run("cd %1 && text2pcap -q %2 a.log %3.pcap"_s.arg(folder.path(), ports).arg(++captures));
            expected += texts;
        };
        const auto tcp = [&captures] { return "-T 30000,%1"_s.arg(41000 + captures); };
        const QByteArray message = frame(0x00, hex("0123 1122334455667788"));
        const QByteArray messageText = "Message 123 [8] 11 22 33 44 55 66 77 88 can.id=0x0123 can.length=8 "
                                       "can.data=11 22 33 44 55 66 77 88";
        row(tcp(), {message}, {messageText});
        row("-u 30000,50000"_s, {message}, {messageText});
        row("-T 30001,50000"_s, {message}, {messageText}); // a port of the option "decode as"
        row(tcp(), {frame(0x01, hex("07ffaa01020304")), frame(0x00, "123456789ab"), frame(0x00)},
            {"Message 7FF [1] AA can.id=0x07ff can.length=1 can.data=aa can.timestamp=01 02 03 04",
             "Message 132 [0], length 9 announced can.id=0x0132 can.length=0 can.length.bad=1",
             "Message 000 [0], length -2 announced can.id=0x0000 can.length=0 can.length.bad=1"});
        row(tcp(), {frame(0x42, hex("08")), frame(0x43, hex("77")), frame(0x42, hex("80"))},
            {"Status: CAN bus off status=0x08 status.can_bus_off=1 status.report=1",
             "Status: CAN buffer overflow, CAN transmit timeout, CAN error counter overflow, TCP syntax error, "
             "TCP format error, TCP buffer overflow status=0x77 status.can_bus_off=0 status.report=1",
             "Status: no error status=0x80 status.can_bus_off=0"});
        row(tcp(), {frame(0x40, "T93 X SW02.03" + hex("0007")), frame(0x40, "a\n\xFF" + hex("0001"))},
            {"Identification: T93 X SW02.03, device 7 ident=T93 X SW02.03 device=7",
             "Identification: a??, device 1 ident=a\\n\xEF\xBF\xBD device=1"});
        row(tcp(), {frame(0x41, hex("00000203")), frame(0x44, hex("001a2b3c4d5e")), frame(0x47, hex("1001"))},
            {"Firmware version: 2.03 firmware=2.03", "MAC address: 00:1a:2b:3c:4d:5e mac=00:1a:2b:3c:4d:5e",
             "Bus load: 272 frames/s busload=272"});
        row(tcp(), {frame(0xA4, hex("03e8")), frame(0x40, "ab"), frame(0x42), frame(0x02)},
            {"Bus load interval: 1000 ms busload.interval=1000", "Identification payload=61 62", "Status",
             "CAN message, 29 bit"});
        for (const QByteArray& rate : QByteArray("02=50 fe=100 03=125 04=250 05=500 07=1000").split(' ')) {
            row(tcp(), {frame(0x57, QByteArray::fromHex(rate.left(2)))},
                {"CAN bit rate: " + rate.mid(3) + " kbit/s bitrate=0x" + rate.left(2)});
        }

        const QByteArray one = frame(0x99);
        row(tcp(), {one.repeated(6)}, {"Command 99; Command 99; Command 99; Command 99 (+2)"});
        row("-u 30000,50001"_s, {one + one.left(1)}, {"Command 99; Beginning of a frame cut=43"});
        row("-u 50001,30000"_s, {one}, {"Command 99"}); // each direction has its own stream
        row("-u 30000,50001"_s, {one.mid(1, 1), one.mid(2)}, {"Beginning of a frame cut=43 01", "Command 99"});
        row("-u 30000,50000"_s, {hex("000d") + one + hex("0d")}, {"Garbage; Command 99; Garbage garbage=00 0d,0d"});
        row(tcp(), {frame(0x99, QByteArray(34, ' ')) + hex("4324") + one},
            {"Command 99; Garbage; Command 99 payload=" + QByteArray(34, ' ').toHex(' ') + " garbage=43 24"});
        row(tcp(), {hex("430199000d 43019900") + one}, // the second has no end marker
            {"Command 99, wrong checksum; Command 99, wrong checksum; Command 99 checksum.bad=1,1"});
        row(tcp(), {hex("430199db0a") + one}, {"Command 99, no end marker; Command 99 end.missing=1"});

        const SDdtEntry entry{0xC0A80146, 2, 0, 30000, {0, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}, "T93 ", "hall-gw"};
        const QByteArray reply = ddtDatagram(DDT_IDENT_REPLY, {entry, entry});
        row("-u 40000,50000"_s, {reply}, {}); // no request was sent yet
        row("-u 50000,33333"_s, {hex("05008000"), hex("01004000")},
            {"Ident request 5 sequence=5 kind=0x80 count=0", "Unknown kind: 0 endpoints sequence=1 kind=0x40 count=0"});
        row("-u 40000,50000"_s, {reply, reply.left(131), hex("000000")},
            {"Ident reply: hall-gw, 2 endpoints sequence=0 kind=0x00 count=2 address=192.168.1.70,192.168.1.70 "
             "role=2,2 transport=0,0 port=30000,30000 mac=00:1a:2b:3c:4d:5e,00:1a:2b:3c:4d:5e type=T93 ,T93  "
             "hostname=hall-gw,hall-gw",
             "Ident reply: hall-gw, 1 endpoint sequence=0 kind=0x00 count=2 address=192.168.1.70 role=2 transport=0 "
             "port=30000 mac=00:1a:2b:3c:4d:5e type=T93  hostname=hall-gw short=1",
             "Cut DDT datagram short=1"});
        const QStringList fields =
            list("t93.can.id t93.can.length t93.can.data t93.can.timestamp t93.can.length.bad t93.status "
                 "t93.status.can_bus_off t93.status.report t93.ident t93.device t93.firmware t93.mac t93.busload "
                 "t93.busload.interval t93.bitrate t93.payload t93.cut t93.garbage t93.checksum.bad t93.end.missing "
                 "t93ddt.sequence t93ddt.kind t93ddt.count t93ddt.address t93ddt.role t93ddt.transport t93ddt.port "
                 "t93ddt.mac t93ddt.type t93ddt.hostname t93ddt.short"_s);
        const SOutcome tshark =
            run("cd %1 && mergecap -a -w all *.pcap && HOME=%1 LC_ALL=C.UTF-8 tshark -r all -2 "
                "-X lua_script:%2 -d tcp.port==30001,t93 -Y 't93 || t93ddt' -T fields "
                "-e _ws.col.Info -e %3"_s.arg(folder.path(), QStringLiteral(CIM_DISSECTOR), fields.join(" -e "_s)));
        QVERIFY2(tshark.exitCode == 0 && !(tshark.err + tshark.out).contains("Lua Error"), tshark.err);
        QByteArrayList found;
        for (const QByteArray& line : tshark.out.trimmed().split('\n')) {
            const QByteArrayList cells = line.split('\t');
            found += cells[0];
            for (int i = 1; i < cells.size(); ++i) {
                const QByteArray name = ' ' + fields[i - 1].section(QLatin1Char('.'), 1).toUtf8() + '=';
                found.last() += cells[i].isEmpty() ? "" : name + cells[i];
            }
        }
        QCOMPARE(found, expected);
    }
};

QTEST_GUILESS_MAIN(DissectorTest)
#include "tst_dissector.moc"
