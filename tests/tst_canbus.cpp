#include "requireTool.h"
#include "t93Fixture.h"

#include <QCanBus>

using namespace vexmor::Test;
using Device = QCanBusDevice;
using Frame = QCanBusFrame;
using Filters = QList<Device::Filter>;

namespace
{
std::unique_ptr<Device> makeDevice(const QString& name)
{
    return std::unique_ptr<Device>(QCanBus::instance()->createDevice("t93canbus"_s, name));
}

/// A device with its gateway, with records of what both receive.
struct SDevice : SGateway {
    SDevice()
    {
        bus.setBaudrate(250);
        device = makeDevice("127.0.0.1:%1"_s.arg(gateway.port()));
        const auto tell = [this](auto value) {
            reported += QVariant::fromValue(value).toString();
            on(reported.last());
        };
        QObject::connect(device.get(), &Device::stateChanged, tell);
        QObject::connect(device.get(), &Device::errorOccurred, tell);
        QObject::connect(device.get(), &Device::framesWritten, [tell] { tell("written"_s); });
        QObject::connect(device.get(), &Device::framesReceived, [this] { on("received"_s); });
    }
    bool isUp() const { return device->state() == Device::ConnectedState && gateway.tcpHostCount() == 1; }
    bool connect() const
    {
        return device->connectDevice() && QTest::qWaitFor([this] { return isUp(); });
    }
    /// Reads all waiting frames. Returns their identifiers, with a "*" behind those of frames that the device sent
    /// itself.
    QString seen() const
    {
        QStringList ids;
        for (const Frame& frame : device->readAllFrames()) {
            ids += QString::number(frame.frameId(), 16) + (frame.hasLocalEcho() ? "*"_s : QString());
        }
        return ids.join(QLatin1Char(' '));
    }

    QStringList reported; ///< States, errors and written frames, in the order of their signals.
    std::function<void(const QString&)> on = [](const QString& /*what*/) {};
    std::unique_ptr<Device> device;
};
} // namespace

/// The backend "t93canbus", used through Qt's CAN bus API.
class CanBusTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QCoreApplication::addLibraryPath(QStringLiteral(CIM_QT_PLUGINS)); }

    void everyFrameThatFitsInOrder()
    {
        SDevice host;
        host.device->setProperty("receiveLimit", 4000);
        qint64 last = QDateTime::currentMSecsSinceEpoch() * 1000;
        int dropped = 0;
        for (const auto& [room, read] : {std::pair(4000, 4000), {4000, 1999}, {1999, 2000}, {2000, 0}}) {
            QVERIFY(host.connect());
            host.gateway.flood(room + 1);
            ++dropped;
            QTRY_COMPARE(host.device->property("droppedFrames").toInt(), dropped);
            // The error is raised again after half of the waiting frames were read.
            QCOMPARE(host.reported.count("ReadError"_s), dropped - (room < 4000 ? 1 : 0));
            for (int i = 0; i < read; ++i) {
                const Frame frame = host.device->readFrame();
                const int number = i + room % 4000;
                const QByteArray data = QByteArray::fromHex("%1"_s.arg(number, 16, 16, QLatin1Char('0')).toLatin1());
                QCOMPARE(frame.toString(), Frame(number % 0x800, data).toString());
                const qint64 stamp = frame.timeStamp().seconds() * 1'000'000 + frame.timeStamp().microSeconds();
                QVERIFY(std::exchange(last, stamp) < stamp);
            }
            host.device->disconnectDevice();
        }
        QVERIFY(last <= QDateTime::currentMSecsSinceEpoch() * 1000 + 1000);
    }

    void sendsWhatAT93Can()
    {
        SDevice host;
        Frame extended(0x123, {}), flexible(0x123, {}), tooLong(0x123, QByteArray(9, 'x'));
        extended.setExtendedFrameFormat(true);
        flexible.setFlexibleDataRateFormat(true);
        tooLong.setFlexibleDataRateFormat(false);
        QVERIFY(!host.device->writeFrame(Frame(1, {})));
        QVERIFY(host.connect());
        for (const Frame& frame : {Frame(0x800, {}), extended, flexible, tooLong, Frame(Frame::RemoteRequestFrame),
                                   Frame(Frame::ErrorFrame)}) {
            QVERIFY2(!host.device->writeFrame(frame), qPrintable(frame.toString()));
            QVERIFY(host.device->errorString().startsWith("Not sent: "_s));
        }
        const QByteArray data = hex("0011223344556677");
        QVERIFY(host.device->writeFrame(Frame(0x7FF, data)));
        QVERIFY(host.device->writeFrame(Frame(0, {})));
        QTRY_COMPARE(host.reported.count("written"_s), 2);
        QTRY_COMPARE(host.atGateway, (QList<CCanMessage>{message(0x7FF, data), message(0)}));
        QCOMPARE(host.device->framesToWrite(), 0);
        QVERIFY(host.seen().isEmpty());
        QCOMPARE(host.reported.count("WriteError"_s), 7);

        host.device->setConfigurationParameter(Device::ReceiveOwnKey, true);
        listenOn(host.gateway); // on another port, so that the lost link cannot be re-established
        host.gateway.dropLinks();
        // The device does not know of the loss yet; the link accepts a few frames at most.
        for (int i = 0; i < 20; ++i) {
            QVERIFY(host.device->writeFrame(Frame(1, {})));
        }
        QTRY_COMPARE(host.reported.count("written"_s) + host.reported.count("WriteError"_s), 2 + 7 + 20);
        QVERIFY(host.reported.count("written"_s) < 2 + 10);
        QCOMPARE(int(host.device->framesAvailable()), host.reported.count("written"_s) - 2); // none that was refused
    }

    void setsTheBitRateWhereAsked()
    {
        SDevice host;
        host.device->setConfigurationParameter(Device::BitRateKey, 125500);
        host.device->setConfigurationParameter(Device::CanFdKey, true);
        QCOMPARE(host.reported, list("ConfigurationError ConfigurationError"_s));
        host.device->setConfigurationParameter(Device::CanFdKey, false);
        host.device->setConfigurationParameter(Device::BitRateKey, {}); // the gateway keeps its rate
        QList<quint32> rates;
        connect(&host.gateway, &CSimGateway::messageReceived, [&] { rates += host.bus.baudrate(); });
        connect(&host.gateway, &CSimGateway::hostConnected, [&] { host.device->writeFrame(Frame(1, {})); });
        QVERIFY(host.device->connectDevice());
        QTRY_COMPARE(rates, QList<quint32>{250});
        host.device->disconnectDevice();
        host.device->setConfigurationParameter(Device::BitRateKey, 500000);
        QVERIFY(host.device->connectDevice()); // the message is sent after the bit rate was set
        QTRY_COMPARE(rates, (QList<quint32>{250, 500}));
        QCOMPARE(host.reported.filter("Error"_s).size(), 2);
    }

    void deliversWhatIsWanted_data()
    {
        const auto row = columns<bool, Filters, QString>("loopback", "filters", "seen");
        using Filter = Device::Filter;
        row("all", true, {}, "120* 10 123 124"_s);
        row("no loopback", false, {}, "10 123 124"_s);
        row("masked", true, {Filter{0x12F, 0x7F0, Frame::DataFrame}}, "120* 123 124"_s);
        row("either", true, {Filter{0x10, 0x7FF}, Filter{0x124, 0x7FF, Frame::DataFrame}}, "10 124"_s);
        row("other frames", true, {Filter{0, 0, Frame::RemoteRequestFrame}}, {});
        row("29 bit", true, {Filter{0, 0, Frame::DataFrame, Filter::MatchExtendedFormat}}, {});
    }
    void deliversWhatIsWanted()
    {
        SDevice host;
        host.device->setConfigurationParameter(Device::ReceiveOwnKey, true);
        host.device->setConfigurationParameter(Device::LoopbackKey, cell<bool>("loopback"));
        host.device->setConfigurationParameter(Device::RawFilterKey, QVariant::fromValue(cell<Filters>("filters")));
        QVERIFY(host.connect() && host.device->writeFrame(Frame(0x120, {})));
        QTRY_COMPARE(host.atGateway.size(), 1);
        for (const quint16 id : {0x10, 0x123, 0x124}) {
            host.bus.send(message(id));
        }
        QString seen = "not yet"_s;
        host.on = [&](const QString& what) { seen = what == "ReadError"_s ? host.seen() : seen; };
        host.gateway.sendStatus(0x01); // arrives after the messages
        QTRY_COMPARE(seen, cell<QString>("seen"));
    }

    void knowsWhatIsStored()
    {
        const CPrivateStore store; // makes another settings format the default of the program
        SDevice host;
        QSettings settings(QSettings::NativeFormat, QSettings::UserScope, "Vexmor"_s, "Cim"_s);
        settings.setValue("CanInterfaces/hall/IP-Address"_s, "127.0.0.1"_s);
        settings.setValue("CanInterfaces/hall/Port"_s, host.gateway.port());
        settings.setValue("CanInterfaces/hall/CanBaudrate"_s, 125);
        settings.setValue("CanInterfaces/hall/InterfaceId"_s, "00:11"_s);
        settings.setValue("CanInterfaces/hall/Description"_s, "stage"_s);
        settings.sync();
        const auto listed = QCanBus::instance()->availableDevices("t93canbus"_s);
        QCOMPARE(listed.size(), 1);
        QCOMPARE(listed[0].name() + listed[0].serialNumber() + listed[0].description(), "hall00:11stage"_s);
        host.device = makeDevice("hall"_s);
        QVERIFY(host.connect());
        QTRY_COMPARE(host.bus.baudrate(), 125U);
        QVERIFY(makeDevice("hell"_s) == nullptr);
        QString error;
        QVERIFY(QCanBus::instance()->createDevice("t93canbus"_s, "hell"_s, &error) == nullptr);
        QVERIFY2(error.startsWith("'hell' is not an address"_s), qPrintable(error));
    }

    void lostLinkComesBack()
    {
        SDevice host;
        QVERIFY(host.connect());
        host.gateway.dropLinks();
        QTRY_COMPARE(host.device->state(), Device::ConnectingState);
        QVERIFY(!host.device->writeFrame(Frame(1, {})));
        QTRY_VERIFY(host.isUp());
        QVERIFY(host.device->writeFrame(Frame(2, {})));
        QTRY_COMPARE(host.atGateway, QList<CCanMessage>{message(2)});
        QTRY_COMPARE(host.reported, list("ConnectingState ConnectedState ConnectionError ConnectingState WriteError "
                                         "ConnectedState written"_s));
    }

    void leavesAGatewayThatDoesNotAnswer()
    {
        const SDeafPort deaf;
        const SClock clock;
        std::unique_ptr<Device> device;
        for (int round = 0; round < 2; ++round) {
            device = makeDevice("127.0.0.1:%1"_s.arg(deaf.serverPort())); // deletes a device that is still connecting
            QVERIFY(device->connectDevice());
            QVERIFY(device->writeFrame(Frame(1, {})));
            device->disconnectDevice();
            QCOMPARE(device->state(), Device::UnconnectedState);
            QVERIFY(device->connectDevice());
            QCOMPARE(device->framesToWrite(), 0);
        }
        QVERIFY(clock.elapsed() < 700);
        for (int i = 0; i <= 9000; ++i) { // the messages of one second of a fully loaded bus may wait
            QCOMPARE(device->writeFrame(Frame(1, {})), i < 9000);
        }
        device->setConfigurationParameter(Device::BitRateKey, 125000);
        QVERIFY(!device->configurationParameter(Device::BitRateKey).isValid()); // the bit rate was refused
        QTRY_COMPARE(device->state(), Device::UnconnectedState);
        QCOMPARE(device->error(), Device::ConnectionError);
        QVERIFY(device->errorString().startsWith("TCP connect failed."_s));
    }

    void busOffUntilResetOrSilence()
    {
        using Status = Device::CanBusStatus;
        SDevice host;
        bool isReset = false;
        connect(&host.gateway, &CSimGateway::requestReceived, [&](int request) { isReset |= request == RM_CMD_RESET; });
        QVERIFY(host.connect());
        QTRY_COMPARE(host.device->busStatus(), Status::Good); // the gateway has answered
        host.gateway.sendStatus(0x08);
        QTRY_COMPARE(host.reported, list("ConnectingState ConnectedState UnknownError"_s));
        QVERIFY(host.device->errorString().startsWith("T93 CAN bus off error."_s));
        QCOMPARE(host.device->busStatus(), Status::BusOff);
        host.device->resetController();
        QTRY_VERIFY(isReset && host.device->busStatus() == Status::Good);
        host.gateway.sendStatus(0x08);
        QTRY_COMPARE(host.device->busStatus(), Status::BusOff);
        host.gateway.setFaults(faulty(&SSimFaults::mute));
        QTRY_COMPARE(host.device->busStatus(), Status::Unknown);
        QVERIFY(host.device->property("connection").toString().startsWith("silent for "_s));
        QCOMPARE(host.device->state(), Device::ConnectedState);
        // The gateway is received again. It may have been switched off meanwhile, so "bus off" is no longer known.
        host.bus.send(message(1));
        QTRY_COMPARE(host.device->busStatus(), Status::Good);
    }

    void anythingInASlot_data()
    {
        rows({"delete at ConnectedState", "delete at received", "delete at written", "delete at ReadError",
              "delete at ConnectionError", "delete at refused ConnectionError", "again at ConnectingState",
              "again at ConnectedState", "again at received", "again at written", "again at ReadError",
              "again at ConnectionError", "again at refused ConnectionError"});
    }
    void anythingInASlot()
    {
        SDevice host;
        host.gateway.setFaults(rowName().contains("refused") ? faulty(&SSimFaults::refuse) : SSimFaults());
        bool isDone = false;
        host.on = [&](const QString& what) {
            if (!isDone && rowName().endsWith(what.toLatin1())) {
                isDone = true;
                host.gateway.setFaults({});
                rowName().startsWith("delete") ? host.device.reset() : host.device->disconnectDevice();
                QVERIFY(!host.device || (host.device->connectDevice() && host.device->writeFrame(Frame(2, {}))));
            }
        };
        QVERIFY(host.device->connectDevice());
        QVERIFY(host.device->writeFrame(Frame(1, {})));
        QTRY_VERIFY(isDone || host.atGateway.size() == 1);
        host.gateway.flood(50);
        host.gateway.sendStatus(0x01);
        if (rowName().endsWith("ConnectionError")) {
            host.gateway.dropLinks();
        }
        QTRY_VERIFY(isDone && (!host.device || host.isUp()));
        host.bus.send(message(0x7F0));
        QString seen;
        QTRY_VERIFY(!host.device || (seen += host.seen()).contains("7f0"_s));
    }

    void canbusutilSendsAndEnds()
    {
        REQUIRE_TOOL("canbusutil");
        if (*CIM_SANITIZE != '\0') {
            QSKIP("a program without a sanitizer loads no library with one");
        }
        SDevice host;
        const SDeafPort deaf; // a gateway to which the program is still connecting when it ends
        qputenv("QT_PLUGIN_PATH", CIM_QT_PLUGINS);
        for (const quint16 port : {host.gateway.port(), deaf.serverPort()}) {
            QProcess util;
            util.start("canbusutil"_s, {"t93canbus"_s, "127.0.0.1:%1"_s.arg(port), "123#1122"_s});
            QTRY_COMPARE(util.state(), QProcess::NotRunning);
            QCOMPARE(util.exitCode(), 0);
            QVERIFY(!util.readAllStandardError().contains("baudrate")); // this warning of the library is filtered
        }
        QTRY_COMPARE(host.atGateway, QList<CCanMessage>{message(0x123, hex("1122"))});
    }
};

QTEST_GUILESS_MAIN(CanBusTest)
#include "tst_canbus.moc"
