#include "InterfaceT93/detectionDatagrams.h"
#include "InterfaceT93/gatewayReplies.h"
#include "InterfaceT93/rmFrame.h"
#include "InterfaceT93/t93DeviceDetection.h"
#include "canlog/logComparison.h"
#include "scanData.h"

using namespace vexmor::CanLog;
using namespace vexmor::Cim;
using namespace vexmor::Test;

namespace
{
/// Returns what a deframer finds in the pieces of a stream: command:payload for each frame, "checksum" for each wrong
/// checksum.
QByteArray heardIn(const QByteArrayList& pieces)
{
    QByteArrayList heard;
    CRmDeframer deframer;
    for (const QByteArray& piece : pieces) {
        // A copy of exact size on the heap, so that a sanitizer detects a read beyond its end.
        const std::vector<std::uint8_t> copy(piece.begin(), piece.end());
        const auto onFrame = [&heard](const SRmFrame& frame) {
            const QByteArray payload(reinterpret_cast<const char*>(frame.payload), frame.payloadLength);
            const bool endsInZeros = frame[frame.payloadLength] == 0 && frame[RM_BUFFER_SIZE] == 0;
            heard += QByteArray::number(frame.command, 16) + ':' + payload.toHex() + (endsInZeros ? "" : " dirty");
            return true;
        };
        deframer.feed(copy.data(), copy.size(), onFrame, [&heard] { return heard.append("checksum"), true; });
    }
    return heard.join(' ');
}
} // namespace

/// The formats, byte by byte: frames in both directions, broken frames, requests and replies of a scan, and logs: which
/// lines are refused and why, and that written lines can be read again.
class FormatsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void administration()
    {
        const auto shown = [](const char* data) {
            const CCanMessage one = message(0x123, hex(data));
            return QByteArray::fromStdString(formatAdministration(one)) + ' ' + QByteArray::number(errorOf(one));
        };
        QCOMPARE(shown("00 01 02"), QByteArray(" 0"));
        QCOMPARE(shown("05"), QByteArray("type 0 0"));
        QCOMPARE(shown("92 80 00"), QByteArray("type 1, error -32768 -32768"));
        QCOMPARE(shown("90 00 00 00 AB"), QByteArray("type 1, checksum 00AB 0"));
        QCOMPARE(shown("90 FF FF FF FF"), QByteArray("type 1, error -1, checksum FFFF -1"));
        QCOMPARE(formatAscii(message(1, "\x1f ~\x7f\xff")), QByteArray(". ~.."));
    }

    void comparison_data()
    {
        // Logs have one message ID#DATA per second. N*ID#DATA means N messages, evenly spread over 9 s, the last one
        // first.
        const auto row = columns<QString, QString, QByteArray>("before", "after", "differences");
        row("missing and new", "123#11 124#"_s, "123#11 125#"_s, "124 missing | 125 new |");
        row("constant data", "123#1122"_s, "123#1133"_s, "123 data 11 22|11 33 no rate");
        row("data that changes in both", "123#1122 123#1133"_s, "123#1144 123#1155"_s, "");
        row("constant no more", "123#1122 123#1122"_s, "123#1122 123#1133"_s, "123 data 11 22|11 ..");
        row("length", "123#11 123#11"_s, "123#11 123#1100"_s, "123 data 11|11 ..");
        row("first the longer", "123#1122 123#11"_s, "123#11 123#11"_s, "123 data 11 ..|11");
        row("greater rate", "50*123#11"_s, "100*123#11"_s, "123 rate 11|11");
        row("rate and data", "100*123#11"_s, "50*123#22"_s, "123 rate, data 11|22");
        row("8 % are no other rate", "100*123#11"_s, "108*123#11"_s, "");
        row("15 % are another rate", "100*123#11"_s, "115*123#11"_s, "123 rate 11|11");
        row("a message less is no other rate", "3*123#11"_s, "2*123#11"_s, "");
        row("one message has no rate", "123#"_s, "123# 123# 123# 123#"_s, "");
    }
    void comparison()
    {
        CLogProfile profiles[2];
        for (const int index : {0, 1}) {
            std::int64_t second = 0;
            for (const QString& line : cell<QString>(index == 0 ? "before" : "after").split(QLatin1Char(' '))) {
                const int count = qMax(1, line.section(QLatin1Char('*'), 0, -2).toInt());
                const CCanMessage one = *parseFrame(line.section(QLatin1Char('*'), -1).toLatin1());
                for (int i = count - 1; i >= 0; --i) {
                    profiles[index].add({count == 1 ? second * 1000000 : 9000000LL * i / (count - 1), "can0", one});
                }
                ++second;
            }
        }
        QByteArrayList found;
        for (const SLogDifference& one : profiles[0].differencesIn(profiles[1])) {
            found += formatId(one.id) + ' ' + one.text().toLatin1() + ' ' + one.before.data + '|' + one.after.data +
                     (one.before.rate || one.after.rate ? "" : " no rate");
        }
        QTEST(found.join(' '), "differences");
    }

    void framer()
    {
        // With a message, its bytes are the payload. -1 is no message.
        const auto framed = [](int command, const QByteArray& payload = {}, int id = -1) {
            SRmRequest request;
            request.rmCommand = static_cast<std::uint8_t>(command);
            request.payloadLength = static_cast<std::uint8_t>(id < 0 ? payload.size() : 200); // ignored with a message
            std::copy(payload.begin(), payload.end(), request.payload.begin());
            CCanMessage one = message(static_cast<std::uint16_t>(id), (payload + "further").left(8)); // not sent
            one.setLength(static_cast<unsigned int>(qMin<int>(payload.size(), 8)));
            std::uint8_t buffer[RM_BUFFER_SIZE];
            const int size = txRmFramer(request, id < 0 ? nullptr : &one, buffer);
            return size < 0 ? QByteArray("refused") : QByteArray(reinterpret_cast<char*>(buffer), size).toHex();
        };
        QCOMPARE(framed(0xA1), QByteArray("4301a1e30d"));
        QCOMPARE(framed(0x58, QByteArray(255, 0)), "430058" + QByteArray(510, '0') + "1b0d");
        QCOMPARE(framed(0x00, hex("1122"), 0x123), QByteArray("43050001231122570d"));
        QCOMPARE(framed(0x04, hex("0d43000000000001"), 1), QByteArray("430b0400010d43000000000001020d"));
        QCOMPARE(framed(0x00, {}, 0xF123), QByteArray("430300f123920d")); // the identifier as stored
        QCOMPARE(framed(0x02, {}, 0x123), QByteArray("refused"));         // a 29-bit command
        for (const int command : {0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x42, 0x50, 0x56, 0xA0, 0xFF}) {
            QCOMPARE(framed(command), QByteArray("refused"));
        }
    }

    void deframer_data()
    {
        const auto row = columns<QByteArray, QByteArray>("stream", "heard");
        row("two back to back", "43 02 42 09 0a 0d 43 01 41 03 0d", "42:09 41:");
        row("garbage before the start", "00 ff 0d 43 02 42 09 0a 0d", "42:09");
        row("a second start marker restarts", "43 43 02 42 09 0a 0d", "42:09");
        row("start and end markers inside", "43 05 43 43 0d 0d 43 05 0d", "43:430d0d43");
        row("wrong checksum, then a good one", "43 02 42 09 0b 0d 43 01 41 03 0d", "checksum 41:");
        row("no end marker", "43 02 42 09 0a 0a 43 01 41 03 0d", "41:");
        row("a start marker in the place of the end", "43 02 42 09 0a 43 43 01 41 03 0d", "41:");
        row("length 0: 255 payload bytes", "43 00 43 01 41 03 0d", "41:");
        row("long, then short: nothing stays", "43 04 41 01 02 03 06 0d 43 02 41 09 09 0d", "41:010203 41:09");
        row("34 payload bytes", "432342" + QByteArray(68, '1') + "220d", "42:" + QByteArray(68, '1'));
        row("35 payload bytes", "432442" + QByteArray(70, '1') + "340d 430141030d", "41:");
    }
    void deframer() // byte by byte, the whole stream, and two pieces cut at every position
    {
        const QByteArray stream = QByteArray::fromHex(cell<QByteArray>("stream"));
        QByteArrayList bytes;
        for (int cut = 0; cut <= stream.size(); ++cut) {
            QTEST(heardIn({stream.left(cut), stream.mid(cut)}), "heard");
            bytes += stream.mid(cut, 1);
        }
        QTEST(heardIn(bytes), "heard");
        CCanMessage used = message(1, QByteArray(8, 'x'));
        const std::uint8_t payload[] = {0xF1, 0x23, 0xAA};
        readCanMessage({RM_CMD_RX11BIT_MSG, sizeof payload, payload}, used);
        QCOMPARE(used.id().value(), 0x123);
        QCOMPARE(QByteArray(reinterpret_cast<const char*>(used.data()), 8), hex("aa00000000000000"));
    }

    void scanDatagrams()
    {
        QByteArray request = ddtIdentRequest();
        setDdtSequence(request, 0x0102);
        QCOMPARE(request.toHex(), requestBytes(0x0102).toHex());
        // No text runs into another field, and no entry is written that the number does not count.
        std::vector<SDdtEntry> entries(256, {0xC0A80146, 2, 0, 30000, {0, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}, {}, {}});
        entries[0].typeText = QByteArray(23, 't');
        entries[1].hostName = QByteArray(100, 'n');
        const QByteArray written = entry(2, 0, {}).replace(14, 22, QByteArray(22, 't')) +
                                   entry(2, 0, QByteArray(28, 'n')) + entry(2, 0, {}).repeated(253);
        QCOMPARE(ddtDatagram(DDT_IDENT_REPLY, entries).toHex(), reply(255, written).toHex());
    }

    void scanReplies_data()
    {
        const auto row = columns<QByteArray, QStringList>("reply", "found");
        const QString gw1 = "gw1-TCP-SERVER-30000"_s;
        const QByteArray server = entry(2, 0);
        row("another address does not make another endpoint", reply(2, server + entry(2, 0, "gw2")), {gw1});
        row("two ports", reply(2, server + entry(2, 0, "gw1", 0)), {gw1, "gw1-TCP-SERVER-0"_s});
        row("TCP client", reply(1, entry(1, 0)), {});
        row("UDP client", reply(1, entry(1, 1, "gw1", 65535)), {"gw1-UDP-CLIENT-65535"_s});
        row("protocol 7", reply(1, entry(2, 7, "hall-gw")), {"hall-gw-Invalid-SERVER-30000"_s});
        row("protocols 2 and 255", reply(2, entry(2, 2) + entry(2, 255)), {});
        row("services 0 and 3, then a good one", reply(3, entry(0, 0) + entry(3, 0) + server), {gw1});
        row("255 entries announced, one and a half there", reply(255, server + entry(2, 1).left(63)), {gw1});
        row("fewer announced than there", reply(1, server + entry(2, 1)), {gw1});
        row("name without end", reply(2, entry(2, 0, QByteArray(28, 'n')) + entry(2, 1)),
            {QString(28, QLatin1Char('n')) + "-TCP-SERVER-30000"_s, "gw1-UDP-SERVER-30000"_s});
        row("name in UTF-8", reply(1, entry(2, 0, "größe")), {"größe-TCP-SERVER-30000"_s});
        row("name that looks like a place to fill in", reply(1, entry(2, 0, "%1%2")), {"%1%2-TCP-SERVER-30000"_s});
    }
    void scanReplies()
    {
        QStringList found;
        for (const SDdtEntry& one : usableDdtEntries(cell<QByteArray>("reply"))) {
            const CConfigParamT93 param = configParamOfDdtEntry(one);
            found.append(CT93DeviceDetection::buildUniqueName(param));
            QCOMPARE(param.ipAddress().toString(), "192.168.1.70"_s);
            QCOMPARE(param.macAddressString(QLatin1Char(':')), "00:1a:2b:3c:4d:5e"_s);
        }
        QTEST(found, "found");
    }

    void logTexts_data()
    {
        // A line of a log as microseconds, line and dump, or a dot if it is skipped; a frame; or what is wrong.
        const auto row = columns<QByteArray>("result");
        row("(1398128223.803317) can0 166#D0320009\n",
            "1398128223803317 (1398128223.803317) can0 166#D0320009  can0  166   [4]  D0 32 00 09");
        row("(0.0000019) can0 001#1f207E7F R", "1 (0.000001) can0 001#1F207E7F R  can0  001   [4]  1F 20 7E 7F");
        row("(9223372036853) can0 001# T", "9223372036853000000 (9223372036853.000000) can0 001# T  can0  001   [0] ");
        row("(1.5)  can0\t1# X", "1500000 (1.500000) can0 001#  can0  001   [0] ");
        row("7ff#aa.bb.cc", "7FF#AABBCC");
        row("000#0001020304050607", "000#0001020304050607");
        row("123#000102030405060708", "frame \"123#000102030405060708\": more than 8 data bytes");
        const auto refused = [&row](std::initializer_list<const char*> frames, const QByteArray& reason) {
            for (const char* text : frames) {
                row(text, QByteArray("frame \"") + text + "\": " + reason);
            }
        };
        refused({"", "123"}, "a # must separate identifier and data, as in 123#1122");
        refused({"#11", "800#", "0123#", "12G#", "-12#", "00000123#"}, "the identifier must be hexadecimal, 0 to 7FF");
        refused({"123#R", "123#r1"}, "remote frames are not supported");
        refused({"123#1", "123#1G", "123# 11", "123##011"}, "the data must be pairs of hexadecimal digits");
        row("(1.0) can0 0000166#D0", "frame \"0000166#D0\": the identifier must be hexadecimal, 0 to 7FF");
        for (const char* skipped : {"(1.0) can0 00000166#D0", "(1.0) can0 166#r", "(1.0) can0 166##1D0"}) {
            row(skipped, ".");
        }
        for (const char* malformed :
             {"can0 166#D0", "1.0 can0 166#D0", "(1.0.0) can0 166#D0", "(9223372036854.0) can0 166#D0",
              "(-1.000000) can0 166#D0", "(1.-5) can0 166#D0", "(1.0) can0 166#D0 R R"}) {
            row(malformed, "not of the form (seconds) interface ID#DATA");
        }
    }
    void logTexts()
    {
        auto frame = parseFrame(rowName());
        auto line = parseLogLine(rowName());
        QByteArray result = frame ? formatFrame(*frame) : frame.problem().text.toUtf8();
        if (rowName().contains("can0 ")) {
            result = line ? QByteArray(".") : line.problem().text.toUtf8();
        }
        if (line && *line) {
            const SLogEntry& entry = **line;
            result = QByteArray::number(qlonglong(entry.microseconds)) + ' ' + formatLogLine(entry) +
                     formatDump(entry.interfaceName, entry.message);
        }
        QTEST(result, "result");
        QVERIFY(frame || frame.problem().isUsage);
    }

    void readerNamesTheLineThatIsWrong()
    {
        const QTemporaryDir folder;
        const QString log = writeFile(folder, "(1.5) can0 001#01\n\n(2.0) can0 00000001#\n(2) a 20000080#00\n# 1 R\n"
                                              "(2) a 001#R\n(2) a 00000001#R\n(2) a 00000001##0\n"
                                              "(3.000001) can0 002#\nnonsense\n");
        CLogReader reader;
        for (int opening = 1; opening <= 2; ++opening) {
            const QString none = folder.filePath("none"_s);
            QVERIFY(reader.open(none).value_or(vexmor::SProblem()).text.contains(none));
            QVERIFY(!reader.open(log));
            for (int round = 1; round <= 2; ++round) {
                QVERIFY(round == 1 || reader.rewind());
                QByteArrayList read;
                for (auto entry = reader.next(); !entry || *entry; entry = reader.next()) {
                    read += entry ? formatLogLine(**entry) : entry.problem().text.toUtf8();
                }
                for (const auto kind : {EForeign::eExtended, EForeign::eRemote, EForeign::eError, EForeign::eFd}) {
                    read += QByteArray::number(reader.skipped(kind));
                }
                QCOMPARE(read.join('|'), "(1.500000) can0 001#01|(3.000001) can0 002#|" + log.toUtf8() +
                                             ", line 10: not of the form (seconds) interface ID#DATA" +
                                             (round == 1 ? "|1|2|1|1" : "|2|4|2|2"));
            }
        }
    }

    void logsAreComparedEntryByEntry()
    {
        const QTemporaryDir folder;
        CLogComparison logs;
        QVERIFY(!logs.open(writeFile(folder, "(1) a 1#\n(2) a 00000001#\n(3) a 2#"), "/dev/null"_s));
        int calls = 0;
        for (auto isMore = logs.readMore(1); isMore && *isMore; isMore = logs.readMore(1)) {
            ++calls;
        }
        QCOMPARE(calls, 3); // two entries and the end of the first log
        QCOMPARE(logs.text(), "identifiers: 2 before, 0 after; different: 2; lines without a standard frame: 1"_s);
    }
};

QTEST_APPLESS_MAIN(FormatsTest)
#include "tst_formats.moc"
