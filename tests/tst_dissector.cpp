#include "InterfaceT93/detectionDatagrams.h"
#include "InterfaceT93/gatewayReplies.h"
#include "requireTool.h"
#include "t93Fixture.h"

#include <QDataStream>
#include <QLoggingCategory>
#include <QProcess>
#include <QRegularExpression>
#include <QUdpSocket>

#include <random>

using namespace vexmor::Test;

Q_DECLARE_METATYPE(vexmor::Sim::SSimFaults)

namespace
{
constexpr quint16 GATEWAY_PORT = 30000;
constexpr quint16 FIRST_PC_PORT = 41000;

enum EWay { eTcp, eUdp, eDdt };

struct SPacket {
    bool fromGateway;
    QByteArray payload;
};
using Packets = QList<SPacket>;

SPacket in(const QByteArray& payload)
{
    return {true, payload};
}
SPacket out(const QByteArray& payload)
{
    return {false, payload};
}

/// A capture file of IPv4 packets between a PC and a gateway, a port of the PC for each conversation.
class CCapture
{
public:
    CCapture() { m_stream << 0xA1B2C3D4U << quint16(2) << quint16(4) << 0 << 0 << 65535 << LINKTYPE_RAW; }

    void add(EWay way, int conversation, const Packets& packets)
    {
        const auto pc = static_cast<quint16>(FIRST_PC_PORT + conversation);
        quint32 sent[2] = {1, 1}; // by each side
        for (const SPacket& packet : packets) {
            const quint16 gateway = way == eDdt ? (packet.fromGateway ? 40000 : DDT_PORT) : GATEWAY_PORT;
            QByteArray bytes;
            QDataStream segment(&bytes, QIODevice::WriteOnly);
            segment << (packet.fromGateway ? gateway : pc) << (packet.fromGateway ? pc : gateway);
            if (way == eTcp) {
                segment << sent[packet.fromGateway] << sent[!packet.fromGateway] << quint16(0x5018) << 0xFFFF0000U
                        << quint16(0);
                sent[packet.fromGateway] += static_cast<quint32>(packet.payload.size());
            } else {
                segment << quint16(8 + packet.payload.size()) << quint16(0);
            }
            addIp(way == eTcp ? 6 : 17, bytes + packet.payload);
        }
    }

    /// What tshark prints of it. It knows no other settings and scripts than ours.
    QByteArray shownBy(const QStringList& arguments) const
    {
        const QTemporaryDir folder;
        QFile file(folder.filePath("a.pcap"_s));
        QProcess tshark;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("HOME"_s, folder.path());
        environment.insert("LC_ALL"_s, "C.UTF-8"_s);
        tshark.setProcessEnvironment(environment);
        if (!file.open(QIODevice::WriteOnly) || file.write(m_bytes) != m_bytes.size() || !file.flush()) {
            return {};
        }
        tshark.start("tshark"_s,
                     QStringList{"-r"_s, file.fileName(), "-X"_s, "lua_script:"_s + QStringLiteral(CIM_DISSECTOR)} +
                         arguments);
        const bool hasEnded = tshark.waitForFinished() && tshark.exitCode() == 0;
        const QByteArray errors = tshark.readAllStandardError();
        const QByteArray shown = tshark.readAllStandardOutput();
        return hasEnded && !errors.contains("Lua") && !shown.contains("Lua Error") ? shown : "tshark: " + errors;
    }

private:
    static constexpr quint32 LINKTYPE_RAW = 101;

    void addIp(int protocol, const QByteArray& segment)
    {
        const auto size = static_cast<quint32>(20 + segment.size());
        m_stream << 1700000000U << m_count << size << size; // time, size kept and on the wire
        m_stream << quint16(0x4500) << static_cast<quint16>(size) << static_cast<quint16>(m_count++) << quint16(0)
                 << quint8(64) << static_cast<quint8>(protocol) << quint16(0) << 0x0A090001U << 0x0A090002U;
        m_stream.writeRawData(segment.constData(), segment.size());
    }

    QByteArray m_bytes;
    QDataStream m_stream{&m_bytes, QIODevice::WriteOnly};
    quint32 m_count = 0;
};

QByteArray spoiled(QByteArray frame, int fromEnd, char value)
{
    frame[frame.size() - fromEnd] = value;
    return frame;
}

Packets byteByByte(const QByteArray& bytes)
{
    Packets packets;
    for (const char byte : bytes) {
        packets.append(in(QByteArray(1, byte)));
    }
    return packets;
}

QByteArray reply(const QByteArray& hostName, int entries)
{
    SDdtEntry entry{0xC0A80146, 2, 0, GATEWAY_PORT, {0, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}, "T93 ", hostName};
    return ddtDatagram(DDT_IDENT_REPLY, std::vector<SDdtEntry>(static_cast<std::size_t>(entries), entry));
}

/// The values of a field in a packet, as tshark lists them.
int countOf(const QByteArray& values)
{
    return values.isEmpty() ? 0 : values.count(',') + 1;
}
} // namespace

/// Wireshark's view of T93 traffic, as tshark gives it.
class DissectorTest : public QObject
{
    Q_OBJECT

    CCapture m_capture; ///< a conversation for each row of `shows`
    QStringList m_filters;
    QHash<int, QByteArray> m_texts; ///< of the info column, by row
    QList<QByteArray> m_counts;     ///< packets that the filter of each row lets through

private Q_SLOTS:
    void initTestCase()
    {
        REQUIRE_TOOL("tshark");
        QLoggingCategory::setFilterRules("default.debug=false"_s); // of messages without a valid length
    }

    void shows_data()
    {
        const auto column = columns<int, QByteArray, int>("index", "texts", "matches");
        const auto row = [&](const QByteArray& name, EWay way, const Packets& packets, const QByteArray& texts,
                             const char* filter, int matches = 1) {
            const int index = m_filters.size();
            m_capture.add(way, index, packets);
            const auto port = (way == eTcp ? "tcp.port == %1 && %2"_s : "udp.port == %1 && %2"_s);
            m_filters.append(port.arg(FIRST_PC_PORT + index).arg(QString::fromLatin1(filter)));
            column(name, index, texts, matches);
        };
        const QByteArray message = frame(0x00, hex("0123 11223344"));
        const QByteArray shown = "Message 123 [4] 11 22 33 44";
        const QByteArray wrong = spoiled(message, 2, 0);
        const QByteArray noEnd = spoiled(message, 1, 0x0A);

        row("message", eTcp, {in(message)}, shown, "t93.can.id == 0x123 && t93.can.data == 11:22:33:44");
        row("message to the bus", eUdp, {out(message)}, shown, "t93.can.length == 4 && t93.checksum == 0x22");
        row("no data", eTcp, {in(frame(0x00, hex("07ff")))}, "Message 7FF [0]", "t93.can.id == 0x7FF");
        row("11 bits count", eTcp, {in(frame(0x00, hex("f923")))}, "Message 123 [0]", "t93.can.id == 0x123");
        row("time stamp", eTcp, {in(frame(0x01, hex("0123aa01020304")))}, "Message 123 [1] AA",
            "t93.can.timestamp == 01:02:03:04");
        row("29 bit", eTcp, {in(frame(0x02, hex("01234567aa")))}, "CAN message, 29-bit identifier", "t93.can.id", 0);
        row("9 data bytes", eTcp, {in(frame(0x00, hex("0123010203040506070809")))},
            "Message 123 [0], length 9 announced", "t93.can.length.bad && t93.can.length == 0");
        row("half an identifier", eTcp, {in(frame(0x00, hex("01")))}, "Message 100 [0], length -1 announced",
            "t93.can.id == 0x100");
        row("nothing", eTcp, {in(frame(0x00))}, "Message 000 [0], length -2 announced", "t93.can.id == 0");
        row("status", eTcp, {in(frame(0x42, hex("08")))}, "Status: CAN bus off",
            "t93.status.can_bus_off == 1 && t93.status.can_transmit_timeout == 0 && t93.status.report");
        row("other status, all flags", eTcp, {in(frame(0x43, hex("7f")))},
            "Status: CAN buffer overflow, CAN transmit timeout, CAN error counter overflow, CAN bus off, "
            "TCP syntax error, TCP format error, TCP buffer overflow",
            "t93.status.tcp_buffer_overflow == 1");
        row("no trouble", eTcp, {in(frame(0x42, hex("00")))}, "Status: no error", "t93.status.report", 0);
        row("who", eTcp, {out(frame(0x40)), in(frame(0x40, "T93 X SW02.03" + hex("0007")))},
            "Identification?|Identification: T93 X SW02.03, device 7", "t93.ident == \"T93 X SW02.03\"");
        row("firmware", eUdp, {out(frame(0x41)), in(frame(0x41, hex("00000203")))},
            "Firmware version?|Firmware version 2.03", "t93.firmware == \"2.03\"");
        row("MAC address", eTcp, {out(frame(0x44)), in(frame(0x44, hex("001a2b3c4d5e")))},
            "MAC address?|MAC address 00:1a:2b:3c:4d:5e", "t93.mac == 00:1a:2b:3c:4d:5e");
        row("bus load", eTcp, {out(frame(0x47)), in(frame(0x47, hex("1001")))}, "Bus load?|Bus load: 272 frames/s",
            "t93.busload == 272");
        for (const int rate : {50, 100, 125, 250, 500, 1000}) {
            const std::uint8_t code = rmBaudrateCode(static_cast<std::uint32_t>(rate)).value();
            const QByteArray payload(1, static_cast<char>(code));
            const QByteArray text = "CAN bit rate " + QByteArray::number(rate) + " kbit/s|CAN bit rate confirmed";
            row("bit rate " + QByteArray::number(rate), eTcp, {out(frame(0x57, payload)), in(frame(0x57, payload))},
                text, "t93.bitrate");
        }
        row("measurement", eTcp, {out(frame(0xA4, hex("03e8"))), in(frame(0xA4))},
            "Bus load measurement every 1000 ms|Bus load measurement confirmed", "t93.busload.interval == 1000");
        row("short replies", eTcp,
            {in(frame(0x40, "ab")), in(frame(0x41, "abc")), in(frame(0x42)), in(frame(0x44)), in(frame(0x47, "a"))},
            "Identification: cut|Firmware version: cut|Status: cut|MAC address: cut|Bus load: cut", "t93.payload", 3);
        row("text to be careful with", eTcp, {in(frame(0x40, "a\n\x1B[2J\xFF" + hex("0001")))},
            "Identification: a??[2J\xEF\xBF\xBD, device 1", "t93.device == 1");
        row("unknown command", eTcp, {in(frame(0x99))}, "Command 99", "t93.command == 0x99");

        row("many in a segment", eTcp, {in(message.repeated(6))},
            QByteArray(shown + "; ").repeated(3) + shown + " (+2)", "t93.can.id");
        row("segments of a byte", eTcp, byteByByte(message + message), shown + '|' + shown, "t93.can.id", 2);
        row("end of one and another", eTcp, {in(message.left(5)), in(message.mid(5) + message)}, shown + "; " + shown,
            "t93.can.id");
        row("many in a datagram", eUdp, {in(message + message)}, shown + "; " + shown, "t93.can.id");
        row("cut over datagrams", eUdp, {in(message + message.left(1)), in(message.mid(1, 3)), in(message.mid(4))},
            shown + "; Beginning of a frame|Beginning of a frame|" + shown, "t93.cut", 2);
        row("each way by itself", eUdp, {in(message.left(5)), out(message), in(message.mid(5))},
            "Beginning of a frame|" + shown + '|' + shown, "t93.can.id", 2);
        row("garbage", eTcp, {in(hex("00ff0d") + message + hex("0d"))},
            "Garbage, 3 bytes; " + shown + "; Garbage, 1 byte", "t93.garbage == 00:ff:0d && t93.garbage.skipped");
        row("second start marker", eTcp, {in(hex("43") + message)}, "Garbage, 1 byte; " + shown, "t93.garbage == 43");
        row("length 0", eTcp, {in(hex("4300") + message)}, "Garbage, 2 bytes; " + shown, "t93.length.bad");
        row("length 255", eTcp, {in(hex("43ff") + message)}, "Garbage, 2 bytes; " + shown, "t93.length.bad");
        row("longest length, and one more", eTcp, {in(frame(0x99, QByteArray(34, 'x')) + hex("4324") + message)},
            "Command 99; Garbage, 2 bytes; " + shown, "t93.length.bad && t93.length == 35");
        row("wrong checksum", eTcp, {in(wrong + message)}, "CAN message, wrong checksum; " + shown, "t93.checksum.bad");
        row("no end marker", eTcp, {in(noEnd + message)}, "CAN message, no end marker; " + shown,
            "t93.end.missing && !t93.checksum.bad");
        row("start marker for an end", eTcp, {in(spoiled(message, 1, 0x43) + message)},
            "CAN message, no end marker; " + shown, "t93.end == 0x43");
        row("the next for an end", eTcp, {in(wrong.left(wrong.size() - 1) + message)},
            "CAN message, wrong checksum, no end marker; " + shown, "t93.checksum.bad && t93.end.missing");
        row("truncated at the end", eUdp, {in(message.left(message.size() - 1))}, "Beginning of a frame", "t93.cut");

        const QByteArray request = ddtIdentRequest();
        const auto asked = [&](const QByteArray& answer) { return Packets{out(request), in(answer)}; };
        row("ident", eDdt, asked(reply("hall-gw", 2)), "Ident request 0|Ident reply: hall-gw, 2 endpoints",
            "t93ddt.hostname == \"hall-gw\" && t93ddt.address == 192.168.1.70 && t93ddt.port == 30000 && "
            "t93ddt.role == 2 && t93ddt.transport == 0 && t93ddt.mac == 00:1a:2b:3c:4d:5e && t93ddt.type == \"T93 \"");
        row("asked too late", eDdt, {in(reply("hall-gw", 2)), out(request)}, "Ident request 0", "t93ddt");
        row("no reply", eDdt, asked(hex("00008000")), "Ident request 0", "t93ddt");
        row("255 announced", eDdt, asked(hex("000000ff")), "Ident request 0|Ident reply: 0 endpoints", "t93ddt.short");
        row("cut entry", eDdt, asked(reply("hall-gw", 2).left(100)), "Ident request 0|Ident reply: hall-gw, 1 endpoint",
            "t93ddt.short && t93ddt.count == 2");
        row("cut header", eDdt, asked(hex("000000")), "Ident request 0|Cut DDT datagram", "t93ddt.short");
        row("endless name, no UTF-8", eDdt, asked(reply("\xFF\n" + QByteArray(26, 'x'), 1)),
            "Ident request 0|Ident reply: \xEF\xBF\xBD?" + QByteArray(26, 'x') + ", 1 endpoint", "t93ddt.hostname", 2);
        row("another kind", eDdt, {out(hex("01004000"))}, "Unknown kind: 0 endpoints", "t93ddt.sequence == 1");

        const QByteArray shownAll = m_capture.shownBy(
            list("-2 -T fields -e _ws.col.Protocol -e tcp.port -e udp.port -e _ws.col.Info -E separator=|"_s));
        for (const QByteArray& line : shownAll.split('\n')) {
            const QList<QByteArray> cells = line.split('|');
            if (!line.startsWith("T93") || cells.size() < 4) {
                continue;
            }
            for (const QByteArray& port : (cells[1] + cells[2]).split(',')) {
                if (const int conversation = port.toInt() - FIRST_PC_PORT; conversation >= 0) {
                    QByteArray& texts = m_texts[conversation];
                    texts += (texts.isEmpty() ? "" : "|") + cells[3];
                }
            }
        }
        QVERIFY2(!shownAll.startsWith("tshark: "), shownAll.constData());
        m_filters.append("_ws.lua.error"_s);
        const QByteArray counted =
            m_capture.shownBy({"-q"_s, "-z"_s, "io,stat,0,"_s + m_filters.join(QLatin1Char(','))});
        for (const QByteArray& cell : counted.mid(counted.lastIndexOf("<>")).split('|').mid(1)) {
            m_counts.append(cell.trimmed());
        }
        QCOMPARE(m_counts.value(2 * m_filters.size() - 2).toInt(), 0);
    }
    void shows()
    {
        QFETCH(int, index);
        QTEST(m_texts.value(index), "texts");
        QTEST(m_counts.value(2 * index).toInt(), "matches"); // packets and bytes in turn
    }

    void everyDocumentedCommandHasAName()
    {
        QFile document(QStringLiteral(CIM_PROTOCOL_DOC));
        QVERIFY(document.open(QIODevice::ReadOnly));
        static const QRegularExpression commandRow(R"(^\| ((?:`[0-9A-F]{2}`(?:, )?)+) \|.*\|.*\|$)"_s,
                                                   QRegularExpression::MultilineOption);
        Packets packets;
        for (auto match = commandRow.globalMatch(QString::fromUtf8(document.readAll())); match.hasNext();) {
            for (const QString& code : match.next().captured(1).remove(QLatin1Char('`')).split(", "_s)) {
                packets.append(in(frame(static_cast<std::uint8_t>(code.toInt(nullptr, 16)))));
            }
        }
        QVERIFY(packets.size() > 15);
        CCapture capture;
        capture.add(eTcp, 0, packets);
        const QByteArray shown = capture.shownBy(list("-V -O t93"_s));
        QCOMPARE(shown.count("    Command: "), packets.size());
        QVERIFY2(!shown.contains("Command: Unknown"), shown.constData());
    }

    void agreesWithTheDeframer_data()
    {
        const auto row = columns<int, bool>("way", "losesBytes");
        row("bytes changed, over TCP", eTcp, false);
        row("and lost, over UDP", eUdp, true);
    }
    /// Whatever happened to the bytes, and wherever they are cut: messages and checksum errors are those that a host
    /// gets.
    void agreesWithTheDeframer()
    {
        QFETCH(int, way);
        QFETCH(bool, losesBytes);
        std::mt19937 random(1);
        const auto below = [&random](int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); };
        const auto oddByte = [&] { return hex("43000d2301ff").at(below(6)); };
        QByteArray stream;
        for (int i = 0; i < 3000; ++i) {
            const char commands[] = {0, 0, 0, 1, 0x42, 0x44, 0x57};
            QByteArray payload;
            for (int length = below(15); length > 0; --length) {
                payload += below(3) != 0 ? static_cast<char>(below(256)) : oddByte();
            }
            QByteArray one = frame(static_cast<std::uint8_t>(commands[below(sizeof commands)]), payload);
            if (below(4) == 0) {
                const int intact = losesBytes ? 0 : 2;
                one[intact + below(one.size() - intact)] = oddByte();
            }
            stream += losesBytes && below(8) == 0 ? one.left(below(one.size())) : one;
        }
        QByteArray expected;
        int wrongChecksums = 0;
        CRmDeframer deframer;
        deframer.feed(
            reinterpret_cast<const std::uint8_t*>(stream.constData()), static_cast<std::size_t>(stream.size()),
            [&expected](const SRmFrame& one) {
                const CCanMessage message = canMessageOfFrame(one);
                const QByteArray id = QByteArray::number(message.id().value(), 16).rightJustified(4, '0');
                expected +=
                    one.command > 1 ? QByteArray() : "0x" + id + ' ' + QByteArray::number(message.length()) + ' ';
                return true;
            },
            [&wrongChecksums] { return ++wrongChecksums > 0; });
        QVERIFY(wrongChecksums > 300 && expected.count(' ') > 2000);

        Packets packets;
        for (int at = 0; at < stream.size(); at += packets.last().payload.size()) {
            packets.append(in(stream.mid(at, 1 + below(60))));
        }
        CCapture capture;
        capture.add(static_cast<EWay>(way), 0, packets);
        QByteArray found;
        int wrong = 0;
        for (const QByteArray& line :
             capture.shownBy(list("-T fields -e t93.can.id -e t93.can.length -e t93.checksum.bad"_s)).split('\n')) {
            const QList<QByteArray> cells = line.split('\t');
            for (int i = 0; cells.size() == 3 && i < countOf(cells[0]); ++i) {
                found += cells[0].split(',')[i] + ' ' + cells[1].split(',').value(i) + ' ';
            }
            wrong += countOf(cells.value(2));
        }
        QCOMPARE(found, expected);
        QCOMPARE(wrong, wrongChecksums);
    }

    void simulatorFaults_data()
    {
        const auto row = columns<SSimFaults, int, int, int, int>("faults", "messages", "wrong", "noEnd", "garbage");
        SSimFaults faults;
        row("none", faults, 59, 0, 0, 0);
        faults.wrongChecksumEvery = 6;
        row("wrong checksums", faults, 49, 10, 0, 0);
        faults.missingEndEvery = 4;
        row("and missing ends", faults, 39, 10, 15, 0);
        faults = {};
        faults.garbage = hex("0043ff");
        row("garbage", faults, 59, 0, 0, 60);
        faults = {};
        faults.cutAt = 3;
        faults.cutDelayMs = 0;
        row("cut", faults, 59, 0, 0, 0);
        faults = {};
        faults.mergeCount = 20;
        row("merged", faults, 59, 0, 0, 0);
    }
    void simulatorFaults()
    {
        QFETCH(SSimFaults, faults);
        CCapture capture;
        for (const EWay way : {eTcp, eUdp}) {
            capture.add(way, way, trafficOf(faults, way));
        }
        int counts[2][4] = {};
        for (const QByteArray& line :
             capture
                 .shownBy(list("-T fields -e udp.port -e t93.can.id -e t93.checksum.bad -e t93.end.missing -e "
                               "t93.garbage"_s))
                 .split('\n')) {
            const QList<QByteArray> cells = line.split('\t');
            for (int column = 0; column + 1 < cells.size(); ++column) {
                counts[cells[0].isEmpty() ? eTcp : eUdp][column] += countOf(cells[column + 1]);
            }
        }
        for (const auto& found : counts) {
            QTEST(found[0], "messages");
            QTEST(found[1], "wrong");
            QTEST(found[2], "noEnd");
            QTEST(found[3], "garbage");
        }
    }

private:
    /// What a simulated gateway says to a host: a reply and 59 messages; cut as the host's socket reads it.
    static Packets trafficOf(const SSimFaults& faults, EWay way)
    {
        CSimBus bus;
        CSimGateway gateway(bus);
        gateway.setFaults(faults);
        listenOn(gateway);
        const std::unique_ptr<QAbstractSocket> socket(way == eTcp ? static_cast<QAbstractSocket*>(new QTcpSocket)
                                                                  : new QUdpSocket);
        Packets packets;
        QObject::connect(socket.get(), &QAbstractSocket::readyRead, [&] {
            for (QByteArray bytes = socket->read(1600); !bytes.isEmpty(); bytes = socket->read(1600)) {
                packets.append(in(bytes));
            }
        });
        const QSignalSpy asked(&gateway, &CSimGateway::requestReceived);
        socket->connectToHost(gateway.address(), gateway.port());
        (void)QTest::qWaitFor([&] { return socket->state() == QAbstractSocket::ConnectedState; });
        socket->write(frame(RM_CMD_MAC_ADDRESS));
        (void)QTest::qWaitFor([&] { return asked.size() == 1; });
        for (int i = 1; i < 60; ++i) {
            bus.send(message(static_cast<std::uint16_t>(i), QByteArray(i % 9, 'x')));
        }
        gateway.sendRaw(
            "last"); // in a segment or datagram of its own; else the row has garbage that it does not expect
        (void)QTest::qWaitFor([&] { return !packets.isEmpty() && packets.last().payload.endsWith("last"); });
        packets.last().payload.chop(4);
        return packets;
    }
};

QTEST_GUILESS_MAIN(DissectorTest)
#include "tst_dissector.moc"
