#include "deafPort.h"
#include "requireTool.h"
#include "t93Fixture.h"

#include <QCanBus>
#include <QElapsedTimer>

using namespace vexmor::Test;
using Device = QCanBusDevice;
using Frame = QCanBusFrame;

Q_DECLARE_METATYPE(QCanBusFrame)

namespace
{
Device* makeDevice(const QString& name)
{
    QString error;
    Device* const device = QCanBus::instance()->createDevice("t93canbus"_s, name, &error);
    return device != nullptr ? device : (qWarning() << error, nullptr);
}

QString nameOf(quint16 port, const char* protocol = ":TCP")
{
    return "127.0.0.1:"_s + QString::number(port) + QLatin1String(protocol);
}

/// A device at a gateway, with a record of what it says.
struct SConnected {
    explicit SConnected(const char* protocol = ":TCP")
    {
        listenOn(gateway);
        QObject::connect(&gateway, &CSimGateway::messageReceived, [this](const CCanMessage& one) { sent.append(one); });
        QObject::connect(&gateway, &CSimGateway::requestReceived, [this](int command) { commands.append(command); });
        device.reset(makeDevice(nameOf(gateway.port(), protocol)));
        QObject::connect(device.get(), &Device::stateChanged, [this](auto state) { states.append(state); });
        QObject::connect(device.get(), &Device::errorOccurred, [this](auto error) { errors.append(error); });
        QObject::connect(device.get(), &Device::framesWritten, [this](qint64 count) { written += count; });
    }
    bool connect()
    {
        return device->connectDevice() &&
               QTest::qWaitFor([this] { return commands.contains(RM_CMD_BUSLOAD_INTERVAL) && isUp(); });
    }
    bool isUp() const { return device->state() == Device::ConnectedState; }

    CSimBus bus;
    CSimGateway gateway{bus};
    QList<CCanMessage> sent; ///< to the gateway
    QList<int> commands;
    std::unique_ptr<Device> device;
    QList<int> states, errors;
    qint64 written = 0;
};

Device::Filter filter(quint32 id, quint32 mask, Frame::FrameType type = Frame::DataFrame)
{
    Device::Filter filter;
    filter.frameId = id;
    filter.frameIdMask = mask;
    filter.type = type;
    return filter;
}
} // namespace

/// The backend of Qt's CAN bus API, through that API.
class CanBusTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QCoreApplication::addLibraryPath(QStringLiteral(CIM_QT_PLUGINS));
        QVERIFY(QCanBus::instance()->plugins().contains("t93canbus"_s));
    }

    void everyFrameInOrder_data() { rows({":TCP", ":UDP"}); }
    void everyFrameInOrder()
    {
        constexpr int COUNT = 5000;
        SConnected host(rowName().constData());
        QVERIFY(host.connect());
        const qint64 before = QDateTime::currentMSecsSinceEpoch() * 1000;
        host.gateway.flood(COUNT);
        QTRY_COMPARE(host.device->framesAvailable(), COUNT);
        qint64 stamp = before;
        for (int i = 0; i < COUNT; ++i) {
            const Frame frame = host.device->readFrame();
            QCOMPARE(frame.frameId(), static_cast<quint32>(i % 0x800));
            QCOMPARE(frame.payload().toHex().toInt(nullptr, 16), i);
            QVERIFY(frame.payload().size() == 8 && !frame.hasLocalEcho() && !frame.hasExtendedFrameFormat());
            const qint64 now = frame.timeStamp().seconds() * 1'000'000 + frame.timeStamp().microSeconds();
            QVERIFY(stamp <= now && now < before + 60'000'000);
            stamp = now;
        }
        QCOMPARE(host.errors, QList<int>());
    }

    void frames_data()
    {
        const auto row = columns<Frame, bool>("frame", "isSent");
        Frame remote(Frame::RemoteRequestFrame), extended(0x123, hex("11")), flexible(0x123, hex("11"));
        extended.setExtendedFrameFormat(true);
        flexible.setFlexibleDataRateFormat(true);
        row("data", Frame(0x7FF, hex("0011223344556677")), true);
        row("no data", Frame(0, {}), true);
        row("29 bit", Frame(0x800, {}), false);
        row("29 bit, small", extended, false);
        row("CAN FD", flexible, false);
        row("9 bytes", Frame(1, QByteArray(9, 'x')), false);
        row("remote", remote, false);
        row("error", Frame(Frame::ErrorFrame), false);
        row("invalid", Frame(Frame::InvalidFrame), false);
    }
    void frames()
    {
        const bool isSent = cell<bool>("isSent");
        SConnected host;
        QVERIFY(host.connect());
        QCOMPARE(host.device->writeFrame(cell<Frame>("frame")), isSent);
        QVERIFY(isSent || host.device->errorString().startsWith("Not sent: "_s));
        QVERIFY(host.device->writeFrame(Frame(0x55, {}))); // whose arrival shows that the other one is not to come
        QTRY_COMPARE(host.written, isSent + 1);
        QTRY_COMPARE(host.sent.size(), isSent + 1);
        QCOMPARE(host.sent.first(),
                 isSent ? message(static_cast<quint16>(cell<Frame>("frame").frameId()), cell<Frame>("frame").payload())
                        : message(0x55));
        QCOMPARE(host.errors, isSent ? QList<int>() : QList<int>{Device::WriteError});
        QCOMPARE(host.device->framesToWrite(), 0);
    }

    void configuration_data()
    {
        const auto row = columns<int, QVariant, bool>("key", "value", "isTaken");
        row("500 kbit/s", Device::BitRateKey, 500000, true);
        row("33 kbit/s", Device::BitRateKey, 33333, false);
        row("0", Device::BitRateKey, 0, false);
        row("no rate", Device::BitRateKey, QVariant(), true);
        row("CAN FD", Device::CanFdKey, true, false);
        row("no CAN FD", Device::CanFdKey, false, true);
    }
    void configuration()
    {
        SConnected host;
        host.bus.setBaudrate(250);
        host.device->setConfigurationParameter(cell<int>("key"), cell<QVariant>("value"));
        QCOMPARE(host.errors, cell<bool>("isTaken") ? QList<int>() : QList<int>{Device::ConfigurationError});
        QVERIFY(host.connect());
        QCOMPARE(host.bus.baudrate(), rowName().startsWith("500") ? 500U : 250U);
    }

    void reception_data()
    {
        using Filters = QList<Device::Filter>;
        const auto row = columns<Filters, bool, QVariant, QString>("filters", "own", "loopback", "seen");
        row("everything", {}, false, {}, "010 123 124"_s);
        row("one", {filter(0x123, 0x7FF)}, false, {}, "123"_s);
        row("masked", {filter(0x12F, 0x7F0)}, false, {}, "123 124"_s);
        row("either", {filter(0x010, 0x7FF), filter(0x124, 0x7FF, Frame::InvalidFrame)}, false, {}, "010 124"_s);
        row("another type", {filter(0, 0, Frame::RemoteRequestFrame)}, false, {}, ""_s);
        row("own", {}, true, {}, "777* 010 123 124"_s);
        row("own, no loopback", {}, true, false, "010 123 124"_s);
        row("own, filtered", {filter(0x123, 0x7FF)}, true, true, "123"_s);
    }
    void reception()
    {
        SConnected host;
        host.device->setConfigurationParameter(Device::RawFilterKey,
                                               QVariant::fromValue(cell<QList<Device::Filter>>("filters")));
        host.device->setConfigurationParameter(Device::ReceiveOwnKey, cell<bool>("own"));
        host.device->setConfigurationParameter(Device::LoopbackKey, cell<QVariant>("loopback"));
        QVERIFY(host.connect() && host.device->writeFrame(Frame(0x777, {})));
        QTRY_COMPARE(host.written, 1);
        for (const quint16 id : {0x010, 0x123, 0x124}) {
            host.bus.send(message(id));
        }
        host.gateway.sendStatus(0x01); // comes behind them
        QTRY_COMPARE(host.errors, QList<int>{Device::ReadError});
        QStringList seen;
        for (const Frame& frame : host.device->readAllFrames()) {
            seen.append(
                "%1%2"_s.arg(frame.frameId(), 3, 16, QLatin1Char('0')).arg(frame.hasLocalEcho() ? "*"_s : QString()));
        }
        QCOMPARE(seen.join(QLatin1Char(' ')), cell<QString>("seen"));
    }

    void lostLinkComesBack()
    {
        SConnected host;
        QVERIFY(host.connect());
        host.gateway.dropLinks();
        QTRY_COMPARE(host.device->state(), Device::ConnectingState);
        QVERIFY(!host.device->writeFrame(Frame(1, {})));
        QTRY_VERIFY_WITH_TIMEOUT(host.isUp(), 10000);
        QCOMPARE(host.states, (QList<int>{Device::ConnectingState, Device::ConnectedState, Device::ConnectingState,
                                          Device::ConnectedState}));
        QCOMPARE(host.errors, (QList<int>{Device::ConnectionError, Device::WriteError}));
        host.bus.send(message(0x123));
        QTRY_COMPARE(host.device->framesAvailable(), 1);
        QVERIFY(host.device->writeFrame(Frame(2, {})));
        QTRY_COMPARE(host.sent, QList<CCanMessage>{message(2)});
    }

    void nobodyWaits()
    {
        const CDeafPort deaf;
        std::unique_ptr<Device> device(makeDevice(nameOf(deaf.serverPort())));
        QElapsedTimer clock;
        clock.start();
        QVERIFY(device->connectDevice() && device->writeFrame(Frame(1, {})));
        device->disconnectDevice();
        QCOMPARE(device->state(), Device::UnconnectedState);
        QVERIFY(device->connectDevice());
        device.reset();
        QVERIFY(clock.elapsed() < 500);

        device.reset(makeDevice(nameOf(deaf.serverPort())));
        const QSignalSpy errors(device.get(), &Device::errorOccurred);
        QVERIFY(device->connectDevice());
        QTRY_COMPARE_WITH_TIMEOUT(device->state(), Device::UnconnectedState, 15000);
        QCOMPARE(errors.size(), 1);
        QCOMPARE(device->error(), Device::ConnectionError);
        QVERIFY(device->errorString().startsWith("TCP connect failed."_s));
    }

    void busOffUntilReset()
    {
        SConnected host;
        QVERIFY(host.device->hasBusStatus() && host.connect());
        QVERIFY(host.device->busStatus() == Device::CanBusStatus::Good);
        host.gateway.sendStatus(0x08);
        QTRY_COMPARE(host.errors.size(), 1);
        QVERIFY(host.device->errorString().startsWith("T93 CAN bus off error."_s));
        QVERIFY(host.device->busStatus() == Device::CanBusStatus::BusOff);
        host.device->resetController();
        QTRY_VERIFY(host.device->busStatus() == Device::CanBusStatus::Good);
        QTRY_VERIFY(host.commands.contains(RM_CMD_RESET));
    }

    void whatFindsNoRoomIsCounted()
    {
        SConnected host;
        host.device->setProperty("receiveLimit", 100);
        QVERIFY(host.connect());
        for (int turn = 1; turn <= 2; ++turn) {
            host.gateway.flood(1000);
            QTRY_COMPARE(host.device->property("droppedFrames").toInt(), 900 * turn);
            QCOMPARE(host.errors, QList<int>(QVector<int>(turn, Device::ReadError).toList()));
            const auto kept = host.device->readAllFrames();
            QCOMPARE(kept.size(), 100);
            QCOMPARE(kept.last().frameId(), 99U);
            host.bus.send(message(0x7F0)); // finds room
            QTRY_COMPARE(host.device->readAllFrames().size(), 1);
        }
    }

    void canbusutilListensAndSends()
    {
        REQUIRE_TOOL("canbusutil");
        SConnected host; // whose gateway serves one at a time: here, canbusutil
        QProcess util;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("QT_PLUGIN_PATH"_s, QStringLiteral(CIM_QT_PLUGINS));
        util.setProcessEnvironment(environment);
        util.start("canbusutil"_s, {"t93canbus"_s, nameOf(host.gateway.port()), "123#1122"_s});
        QTRY_COMPARE(host.sent, QList<CCanMessage>{message(0x123, hex("1122"))});
        QVERIFY(util.waitForFinished());

        host.commands.clear();
        util.start("canbusutil"_s, {"-l"_s, "t93canbus"_s, nameOf(host.gateway.port())});
        QTRY_VERIFY(host.commands.contains(RM_CMD_BUSLOAD_INTERVAL));
        QByteArray expected;
        for (int i = 0; i < 2000; ++i) {
            host.bus.send(message(static_cast<quint16>(i % 0x800), hex("aa")));
            expected += QByteArray::number(i % 0x800, 16).rightJustified(3, '0').toUpper() + " [1] AA\n";
        }
        QByteArray shown;
        QTRY_COMPARE((shown += util.readAllStandardOutput()).count('\n'), 2000);
        QStringList lines;
        for (const QByteArray& line : shown.trimmed().split('\n')) {
            lines.append(QString::fromLatin1(line.simplified()));
        }
        QCOMPARE((lines.join(QLatin1Char('\n')) + QLatin1Char('\n')).toLatin1(), expected);
        util.terminate();
        QVERIFY(util.waitForFinished());
    }

    void anythingInASlot_data()
    {
        rows({"delete connected", "delete received", "delete written", "delete error", "delete lost", "delete failed",
              "again connected", "again received", "again written", "again error", "again lost", "again failed"});
    }
    void anythingInASlot()
    {
        SConnected host;
        const QByteArray signal = rowName().mid(rowName().indexOf(' ') + 1);
        bool isDone = false;
        const auto act = [&](bool isSignal) {
            if (!isSignal || isDone) {
                return;
            }
            isDone = true;
            if (rowName().startsWith("delete")) {
                host.device.reset();
            } else {
                host.gateway.setFaults({});
                host.device->disconnectDevice();
                QVERIFY(host.device->connectDevice());
            }
        };
        SSimFaults faults;
        faults.refuse = signal == "failed";
        host.gateway.setFaults(faults);
        connect(host.device.get(), &Device::stateChanged,
                [&](auto state) { act(signal == "connected" && state == Device::ConnectedState); });
        connect(host.device.get(), &Device::framesReceived, [&] { act(signal == "received"); });
        connect(host.device.get(), &Device::framesWritten, [&] { act(signal == "written"); });
        connect(host.device.get(), &Device::errorOccurred,
                [&](auto error) { act(signal == "error" || error == Device::ConnectionError); });
        QVERIFY(host.device->connectDevice() && host.device->writeFrame(Frame(1, {})));
        QTRY_VERIFY(isDone || host.sent.size() == 1);
        if (signal != "lost") { // after which nothing more can be said
            host.gateway.flood(50);
            host.gateway.sendStatus(0x01);
        } else {
            host.gateway.dropLinks();
        }
        QTRY_VERIFY(isDone);
        QTRY_VERIFY_WITH_TIMEOUT(!host.device || host.isUp(), 10000);
        host.bus.send(message(0x7F0));
        QTRY_VERIFY(!host.device || host.device->framesAvailable() > 0);
    }
};

QTEST_GUILESS_MAIN(CanBusTest)
#include "tst_canbus.moc"
