#include "deafPort.h"
#include "requireTool.h"
#include "t93Fixture.h"

#include <QCanBus>
#include <QElapsedTimer>

using namespace vexmor::Test;
using Device = QCanBusDevice;
using Frame = QCanBusFrame;
using Filters = QList<Device::Filter>;

Q_DECLARE_METATYPE(QCanBusFrame)

namespace
{
std::unique_ptr<Device> makeDevice(quint16 port)
{
    return std::unique_ptr<Device>(
        QCanBus::instance()->createDevice("t93canbus"_s, "127.0.0.1:%1"_s.arg(port), nullptr));
}

/// A device at a gateway, with a record of what both hear.
struct SDevice {
    SDevice()
    {
        listenOn(gateway);
        gateway.setMaxClients(2); // one that was closed may still be leaving when the next one comes
        QObject::connect(&gateway, &CSimGateway::messageReceived, [this](const CCanMessage& one) { sent.append(one); });
        QObject::connect(&gateway, &CSimGateway::requestReceived, [this](int command) { commands.append(command); });
        device = makeDevice(gateway.port());
        QObject::connect(device.get(), &Device::stateChanged, [this](auto state) { states.append(state); });
        QObject::connect(device.get(), &Device::errorOccurred, [this](auto error) { errors.append(error); });
        QObject::connect(device.get(), &Device::framesWritten, [this](qint64 count) { written += count; });
    }
    bool isUp() const { return device->state() == Device::ConnectedState; }
    bool connect()
    {
        return device->connectDevice() && QTest::qWaitFor([this] { return isUp() && gateway.tcpHostCount() == 1; });
    }
    QStringList seen() ///< identifiers of all that was received, with a mark behind those of own frames
    {
        for (const Frame& frame : device->readAllFrames()) {
            m_seen += QString::number(frame.frameId(), 16) + (frame.hasLocalEcho() ? "*"_s : QString());
        }
        return m_seen;
    }

    QStringList m_seen;
    CSimBus bus;
    CSimGateway gateway{bus};
    std::unique_ptr<Device> device;
    QList<CCanMessage> sent;
    QList<int> commands, states, errors;
    qint64 written = 0;
};
} // namespace

/// The backend of Qt's CAN bus API, through that API.
class CanBusTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QCoreApplication::addLibraryPath(QStringLiteral(CIM_QT_PLUGINS)); }

    void everyFrameInOrder()
    {
        SDevice host;
        QVERIFY(host.connect());
        qint64 stamp = QDateTime::currentMSecsSinceEpoch() * 1000;
        host.gateway.flood(5000);
        QTRY_COMPARE(host.device->framesAvailable(), 5000);
        for (int i = 0; i < 5000; ++i) {
            const Frame frame = host.device->readFrame();
            QCOMPARE(frame.toString().simplified(), Frame(i % 0x800, frame.payload()).toString().simplified());
            QCOMPARE(frame.payload().toHex().rightJustified(17, 'x'),
                     "x%1"_s.arg(i, 16, 16, QLatin1Char('0')).toLatin1());
            const qint64 previous =
                std::exchange(stamp, frame.timeStamp().seconds() * 1'000'000 + frame.timeStamp().microSeconds());
            QVERIFY(previous <= stamp && stamp <= QDateTime::currentMSecsSinceEpoch() * 1000 + 1000);
        }
        QCOMPARE(host.errors, QList<int>());
    }

    void sends_data()
    {
        const auto row = columns<Frame, bool>("frame", "isSent");
        Frame extended(0x123, hex("11")), flexible(0x123, hex("11"));
        extended.setExtendedFrameFormat(true);
        flexible.setFlexibleDataRateFormat(true);
        row("data", Frame(0x7FF, hex("0011223344556677")), true);
        row("no data", Frame(0, {}), true);
        row("29 bit", Frame(0x800, {}), false);
        row("29 bit, small", extended, false);
        row("CAN FD", flexible, false);
        row("9 bytes", Frame(1, QByteArray(9, 'x')), false);
        row("remote", Frame(Frame::RemoteRequestFrame), false);
        row("error", Frame(Frame::ErrorFrame), false);
    }
    void sends()
    {
        SDevice host;
        const Frame frame = cell<Frame>("frame");
        QVERIFY(host.connect());
        QCOMPARE(host.device->writeFrame(frame), cell<bool>("isSent"));
        QVERIFY(cell<bool>("isSent") || host.device->errorString().startsWith("Not sent: "_s));
        QVERIFY(host.device->writeFrame(Frame(0x55, {}))); // behind which the other one can not come
        QList<CCanMessage> expected{message(static_cast<quint16>(frame.frameId()), frame.payload()), message(0x55)};
        QTRY_COMPARE(host.sent, expected.mid(cell<bool>("isSent") ? 0 : 1));
        QTRY_COMPARE(host.written, host.sent.size());
        QCOMPARE(host.device->framesToWrite(), 0);
        QCOMPARE(host.errors, QList<int>{Device::WriteError}.mid(cell<bool>("isSent") ? 1 : 0));
    }

    void configures_data()
    {
        const auto row = columns<int, QVariant, bool, QString, quint32>("key", "value", "isTaken", "seen", "rate");
        const auto only = [](quint32 id, quint32 mask, Frame::FrameType type) {
            return Device::Filter{id, mask, type, Device::Filter::MatchBaseAndExtendedFormat};
        };
        const auto filters = [](const Filters& list) { return QVariant::fromValue(list); };
        const QString ALL = "10 123 124"_s;
        row("500 kbit/s", Device::BitRateKey, 500000, true, ALL, 500);
        row("unknown rate", Device::BitRateKey, 33333, false, ALL, 250);
        row("no rate", Device::BitRateKey, QVariant(), true, ALL, 250);
        row("CAN FD", Device::CanFdKey, true, false, ALL, 250);
        row("no CAN FD", Device::CanFdKey, false, true, ALL, 250);
        row("user's key", Device::UserKey, 1, true, ALL, 250);
        row("own", Device::ReceiveOwnKey, true, true, "777* "_s + ALL, 250);
        row("no filter", Device::RawFilterKey, filters({}), true, ALL, 250);
        row("masked", Device::RawFilterKey, filters({only(0x12F, 0x7F0, Frame::DataFrame)}), true, "123 124"_s, 250);
        row("either", Device::RawFilterKey,
            filters({only(0x10, 0x7FF, Frame::InvalidFrame), only(0x124, 0x7FF, Frame::DataFrame)}), true, "10 124"_s,
            250);
        row("another type", Device::RawFilterKey, filters({only(0, 0, Frame::RemoteRequestFrame)}), true, {}, 250);
    }
    void configures()
    {
        SDevice host;
        host.bus.setBaudrate(250);
        host.device->setConfigurationParameter(cell<int>("key"), cell<QVariant>("value"));
        QCOMPARE(host.errors, QList<int>{Device::ConfigurationError}.mid(cell<bool>("isTaken") ? 1 : 0));
        host.errors.clear();
        QVERIFY(host.connect() && host.device->writeFrame(Frame(0x777, {})));
        QTRY_COMPARE(host.sent.size(), 1);
        for (const quint16 id : {0x10, 0x123, 0x124}) {
            host.bus.send(message(id));
        }
        host.gateway.sendStatus(0x01); // comes behind them
        QTRY_COMPARE(host.errors, QList<int>{Device::ReadError});
        QCOMPARE(host.seen().join(QLatin1Char(' ')), cell<QString>("seen"));
        QCOMPARE(host.bus.baudrate(), cell<quint32>("rate"));
    }

    void knowsWhatIsStored()
    {
        const CPrivateStore store;
        SDevice host;
        QSettings settings(QSettings::IniFormat, QSettings::UserScope, "Vexmor"_s, "Cim"_s);
        settings.beginGroup("CanInterfaces/hall"_s);
        settings.setValue("IP-Address"_s, "127.0.0.1"_s);
        settings.setValue("Port"_s, host.gateway.port());
        settings.setValue("CanBaudrate"_s, 125);
        settings.setValue("InterfaceId"_s, "00:11"_s);
        settings.sync();
        const auto listed = QCanBus::instance()->availableDevices("t93canbus"_s);
        QCOMPARE(listed.size(), 1);
        QCOMPARE(listed.first().name() + listed.first().serialNumber(), "hall00:11"_s);
        host.device.reset(QCanBus::instance()->createDevice("t93canbus"_s, "hall"_s));
        QVERIFY(host.connect());
        QTRY_COMPARE(host.bus.baudrate(), 125U);
        QVERIFY(QCanBus::instance()->createDevice("t93canbus"_s, "hell"_s) == nullptr);
    }

    void lostLinkComesBack()
    {
        SDevice host;
        QVERIFY(host.connect());
        host.gateway.dropLinks();
        QTRY_COMPARE(host.device->state(), Device::ConnectingState);
        QVERIFY(!host.device->writeFrame(Frame(1, {})));
        QTRY_VERIFY(host.isUp() && host.gateway.tcpHostCount() == 1);
        using List = QList<int>;
        QCOMPARE(host.states, (List{Device::ConnectingState, Device::ConnectedState, Device::ConnectingState,
                                    Device::ConnectedState}));
        QCOMPARE(host.errors, (List{Device::ConnectionError, Device::WriteError}));
        host.bus.send(message(0x123));
        QTRY_COMPARE(host.seen(), QStringList{"123"_s});
        QVERIFY(host.device->writeFrame(Frame(2, {})));
        QTRY_COMPARE(host.sent, QList<CCanMessage>{message(2)});
    }

    void nobodyWaits()
    {
        const CDeafPort deaf;
        QElapsedTimer clock;
        clock.start();
        auto device = makeDevice(deaf.serverPort());
        QVERIFY(device->connectDevice());
        device->disconnectDevice();
        QVERIFY(device->state() == Device::UnconnectedState && device->connectDevice());
        QVERIFY(device->writeFrame(Frame(1, {}))); // for whose sake it goes on when it is deleted
        device = makeDevice(deaf.serverPort());
        QVERIFY(device->connectDevice() && clock.elapsed() < 500);
        QTRY_COMPARE(device->state(), Device::UnconnectedState);
        QCOMPARE(device->error(), Device::ConnectionError);
        QVERIFY(device->errorString().startsWith("TCP connect failed."_s));
    }

    void disconnectsWhileItConnects()
    {
        SDevice host;
        connect(&host.gateway, &CSimGateway::hostConnected, [&] { host.device->disconnectDevice(); });
        QVERIFY(host.device->connectDevice());
        QTRY_COMPARE(host.states.size(), 3);
        QTRY_COMPARE(host.gateway.tcpHostCount(), 0);
        QCOMPARE(host.states, (QList<int>{Device::ConnectingState, Device::ClosingState, Device::UnconnectedState}));
    }

    void busOffUntilReset()
    {
        SDevice host;
        QVERIFY(host.device->hasBusStatus() && host.connect() &&
                host.device->busStatus() == Device::CanBusStatus::Good);
        host.gateway.sendStatus(0x08);
        QTRY_COMPARE(host.errors.size(), 1);
        QVERIFY(host.device->errorString().startsWith("T93 CAN bus off error."_s));
        QVERIFY(host.device->busStatus() == Device::CanBusStatus::BusOff);
        host.device->resetController();
        QTRY_VERIFY(host.commands.contains(RM_CMD_RESET) && host.device->busStatus() == Device::CanBusStatus::Good);
    }

    void whatFindsNoRoomIsCounted()
    {
        SDevice host;
        host.device->setProperty("receiveLimit", 100);
        QVERIFY(host.connect());
        for (const int turn : {1, 2}) {
            host.gateway.flood(1000);
            QTRY_COMPARE(host.device->property("droppedFrames").toInt(), 900 * turn);
            QCOMPARE(host.errors.count(Device::ReadError), turn);
            QCOMPARE(host.seen().size(), 101 * turn - 1);
            QCOMPARE(host.seen().last(), "63"_s); // the oldest were kept
            host.bus.send(message(0x7F0));        // finds room
            QTRY_COMPARE(host.seen().last(), "7f0"_s);
        }
    }

    void anythingInASlot_data()
    {
        rows({"delete up", "delete received", "delete written", "delete error", "delete lost", "delete failed",
              "again up", "again received", "again written", "again error", "again lost", "again failed"});
    }
    void anythingInASlot()
    {
        SDevice host;
        bool isDone = false;
        const auto on = [&](const char* signal) {
            if (!isDone && rowName().endsWith(signal)) {
                isDone = true;
                host.gateway.setFaults({});
                rowName().startsWith("delete") ? host.device.reset() : host.device->disconnectDevice();
                QVERIFY(!host.device || host.device->connectDevice());
            }
        };
        SSimFaults faults;
        faults.refuse = rowName().endsWith("failed");
        host.gateway.setFaults(faults);
        connect(host.device.get(), &Device::stateChanged,
                [&](int to) { on(to == Device::ConnectedState ? "up" : "-"); });
        connect(host.device.get(), &Device::framesReceived, [&] { on("received"); });
        connect(host.device.get(), &Device::framesWritten, [&] { on("written"); });
        connect(host.device.get(), &Device::errorOccurred,
                [&](int error) { on(error == Device::ConnectionError ? faults.refuse ? "failed" : "lost" : "error"); });
        QVERIFY(host.device->connectDevice() && host.device->writeFrame(Frame(1, {})));
        QTRY_VERIFY(isDone || host.sent.size() == 1);
        host.gateway.flood(50);
        host.gateway.sendStatus(0x01);
        if (rowName().endsWith("lost")) {
            host.gateway.dropLinks();
        }
        QTRY_VERIFY(isDone && (!host.device || (host.isUp() && host.gateway.tcpHostCount() == 1)));
        host.bus.send(message(0x7F0));
        QTRY_VERIFY(!host.device || host.seen().contains("7f0"_s));
    }

    void canbusutilListensAndSends()
    {
        REQUIRE_TOOL("canbusutil");
        if (*CIM_SANITIZE != '\0') {
            QSKIP("a program without a sanitizer loads no library with one");
        }
        SDevice host;
        QProcess util;
        qputenv("QT_PLUGIN_PATH", CIM_QT_PLUGINS);
        util.start("canbusutil"_s, list("t93canbus 127.0.0.1:%1 123#1122"_s.arg(host.gateway.port())));
        QTRY_COMPARE(host.sent, QList<CCanMessage>{message(0x123, hex("1122"))});
        QTRY_COMPARE(util.state(), QProcess::NotRunning);

        host.commands.clear();
        util.start("canbusutil"_s, list("-l t93canbus 127.0.0.1:%1"_s.arg(host.gateway.port())));
        QTRY_VERIFY(host.commands.contains(RM_CMD_BUSLOAD_INTERVAL));
        QByteArray expected, shown;
        for (quint16 id = 0; id < 0x800; ++id) {
            host.bus.send(message(id, hex("aa")));
            expected += "%1 [1] AA "_s.arg(id, 3, 16, QLatin1Char('0')).toUpper().toLatin1();
        }
        QTRY_COMPARE((shown += util.readAllStandardOutput()).simplified() + ' ', expected);
        util.terminate();
        QTRY_COMPARE(util.state(), QProcess::NotRunning);
    }
};

QTEST_GUILESS_MAIN(CanBusTest)
#include "tst_canbus.moc"
