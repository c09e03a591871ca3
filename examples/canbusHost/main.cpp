// A program for Qt's CAN bus API, without any code for the T93. It sends one frame and prints the first one received.
#include <QCanBus>
#include <QCanBusDevice>
#include <QCoreApplication>
#include <QTextStream>
#include <QVariant>

#include <memory>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    QString error = QStringLiteral("usage: canbusHost BACKEND DEVICE"); // such as canbusHost t93canbus 192.168.1.70
    const std::unique_ptr<QCanBusDevice> device(argc == 3 ? QCanBus::instance()->createDevice(argv[1], argv[2], &error)
                                                          : nullptr);
    if (!device) {
        out << error << Qt::endl;
        return 2;
    }
    QObject::connect(device.get(), &QCanBusDevice::errorOccurred, &app, [&] {
        out << device->errorString() << Qt::endl;
        app.exit(1);
    });
    QObject::connect(device.get(), &QCanBusDevice::stateChanged, &app, [&](QCanBusDevice::CanBusDeviceState state) {
        if (state == QCanBusDevice::ConnectedState) {
            device->writeFrame(QCanBusFrame(0x123, QByteArray::fromHex("1122")));
        }
    });
    QObject::connect(device.get(), &QCanBusDevice::framesReceived, &app, [&] {
        out << device->readFrame().toString().simplified() << Qt::endl;
        app.quit();
    });
    device->setConfigurationParameter(QCanBusDevice::BitRateKey, 500000); // bit/s of the CAN bus
    device->connectDevice();
    return app.exec();
}
