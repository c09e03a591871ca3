#include "InterfaceT93/rmFrame.h"
#include "testData.h"

using namespace vexmor::Cim;
using namespace vexmor::Test;

namespace
{
QByteArray framed(const SRmRequest& request, const CCanMessage* message)
{
    std::uint8_t buffer[RM_BUFFER_SIZE];
    const int size = txRmFramer(request, message, buffer);
    return size < 0 ? QByteArray("refused") : QByteArray(reinterpret_cast<const char*>(buffer), size).toHex();
}

/// What a deframer hands on, as text: each frame as command:payload, "checksum" for each
/// wrong one.
class CListener
{
public:
    void feed(const QByteArray& bytes)
    {
        // On the heap and of exact size, so that a read behind its end is seen.
        const std::vector<std::uint8_t> copy(bytes.begin(), bytes.end());
        m_deframer.feed(
            copy.data(), copy.size(),
            [this](const SRmFrame& frame) {
                const QByteArray payload(reinterpret_cast<const char*>(frame.payload), frame.payloadLength);
                const bool endsInZeros = frame[frame.payloadLength] == 0 && frame[RM_BUFFER_SIZE] == 0;
                heard.append(QByteArray::number(frame.command, 16) + ':' + payload.toHex() +
                             (endsInZeros ? "" : " dirty"));
                return true;
            },
            [this] {
                heard.append("checksum");
                return true;
            });
    }
    QByteArrayList heard;

private:
    CRmDeframer m_deframer;
};
} // namespace

/// Frames to the byte, both ways, and what becomes of broken ones.
class RmFrameTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void framer_data()
    {
        const auto row = columns<int, QByteArray, int, QByteArray>("command", "payload", "id", "frame");
        row("0xA1", 0xA1, {}, -1, "4301a1e30d");
        row("longest payload", 0x58, QByteArray(255, 0), -1, "430058" + QByteArray(510, '0') + "1b0d");
        row("message of two bytes", 0x00, hex("1122"), 0x123, "43050001231122570d");
        row("message without data", 0x00, {}, 0x7FF, "43030007ffb80d");
        row("message, the other command", 0x04, hex("0d43000000000001"), 1, "430b0400010d43000000000001020d");
        row("identifier as stored", 0x00, {}, 0xF123, "430300f123920d");
        row("29-bit command", 0x02, {}, 0x123, "refused");
        for (const int command : {0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x42, 0x50, 0x56, 0xA0, 0xFF}) {
            row("without a message: " + QByteArray::number(command), command, {}, -1, "refused");
        }
    }
    void framer()
    {
        QFETCH(QByteArray, payload);
        QFETCH(int, id); // of a message with this payload; below 0: of no message
        SRmRequest request;
        request.rmCommand = static_cast<std::uint8_t>(cell<int>("command"));
        request.payloadLength =
            static_cast<std::uint8_t>(id < 0 ? payload.size() : 200); // with a message not looked at
        std::copy(payload.begin(), payload.end(), request.payload.begin());
        const CCanMessage one = message(static_cast<std::uint16_t>(id), payload);
        QTEST(framed(request, id < 0 ? nullptr : &one), "frame");
    }

    void deframer_data()
    {
        const auto addRow = columns<QByteArray, QByteArray>("stream", "heard");
        const auto row = [&](const char* name, const char* stream, const char* heard) {
            addRow(name, hex(stream), heard);
        };
        row("one frame", "43 02 42 09 0a 0d", "42:09");
        row("no payload", "43 01 41 03 0d", "41:");
        row("two back to back", "43 02 42 09 0a 0d 43 01 41 03 0d", "42:09 41:");
        row("garbage before the start", "00 ff 0d 43 02 42 09 0a 0d", "42:09");
        row("a second start marker restarts", "43 43 02 42 09 0a 0d", "42:09");
        row("start and end markers inside", "43 05 43 43 0d 0d 43 05 0d", "43:430d0d43");
        row("wrong checksum, then a good one", "43 02 42 09 0b 0d 43 01 41 03 0d", "checksum 41:");
        row("no end marker", "43 02 42 09 0a 0a 43 01 41 03 0d", "41:");
        row("a start marker in the place of the end", "43 02 42 09 0a 43 43 01 41 03 0d", "41:");
        row("length 0: 255 payload bytes", "43 00 43 01 41 03 0d", "41:");
        row("long, then short: nothing stays", "43 04 41 01 02 03 06 0d 43 02 41 09 09 0d", "41:010203 41:09");
        QByteArray longest = hex("4323 42") + QByteArray(34, 0x11) + hex("220d");
        addRow("34 payload bytes", longest, "42:" + QByteArray(68, '1'));
        for (const int size : {1, 7, 8, 15, 16, 17, 33}) { // nothing of what follows may stand behind it
            QByteArray frame = hex("43") + char(size + 1) + hex("42") + QByteArray(size, 0x11);
            frame += char(0x43 ^ (size + 1) ^ 0x42 ^ (size % 2 == 0 ? 0 : 0x11));
            addRow("before 34 payload bytes: " + QByteArray::number(size), frame + hex("0d") + longest,
                   "42:" + QByteArray(2 * size, '1') + " 42:" + QByteArray(68, '1'));
        }
        longest.insert(3, 0x11)[1] = 0x24;
        addRow("35 payload bytes", longest + hex("430141030d"), "41:");
    }
    void deframer() // whole, and in two pieces cut at every place
    {
        QFETCH(QByteArray, stream);
        QFETCH(QByteArray, heard);
        for (int cut = 0; cut <= stream.size(); ++cut) {
            CListener listener;
            listener.feed(stream.left(cut));
            listener.feed(stream.mid(cut));
            QCOMPARE(listener.heard.join(' '), heard);
        }
    }
};

QTEST_APPLESS_MAIN(RmFrameTest)
#include "tst_rmFrame.moc"
