#include "bench/peers/virtualcanLink.h"

#include <QCanBus>
#include <QCoreApplication>

#include <stdexcept>

namespace vexmor::Bench
{

CVirtualcanLink::CVirtualcanLink(EProtocol /*protocol*/, std::uint16_t port)
{
    // The backend also tries to be the server at a loopback address, finds the port taken and stays a client.
    QString error;
    m_device.reset(QCanBus::instance()->createDevice(QStringLiteral("virtualcan"),
                                                     QStringLiteral("tcp://127.0.0.1:%1/can0").arg(port), &error));
    if (!m_device || !m_device->connectDevice()) {
        throw std::runtime_error("virtualcan: " + (m_device ? m_device->errorString() : error).toStdString());
    }
    waitUntil([this] { return m_device->state() == QCanBusDevice::ConnectedState; });
}

void CVirtualcanLink::send(const SMessage& message)
{
    const QByteArray data(reinterpret_cast<const char*>(message.data.data()), static_cast<int>(message.data.size()));
    if (!m_device->writeFrame(QCanBusFrame(message.id, data))) {
        throw std::runtime_error(m_device->errorString().toStdString());
    }
}

void CVirtualcanLink::sendBurst(const SMessage& message, int count)
{
    CLink::sendBurst(message, count);
    QCoreApplication::processEvents();
}

std::uint64_t CVirtualcanLink::receive(int count)
{
    waitUntil([this, count] {
        if (m_device->framesAvailable() > 0) {
            const QVector<QCanBusFrame> frames = m_device->readAllFrames(); // the cheapest way
            for (const QCanBusFrame& frame : frames) {
                const QByteArray data = frame.payload();
                m_sum += lookAt(static_cast<std::uint16_t>(frame.frameId()), static_cast<std::size_t>(data.size()),
                                reinterpret_cast<const std::uint8_t*>(data.constData()));
            }
            m_received += frames.size();
        }
        return m_received >= count;
    });
    m_received -= count;
    return std::exchange(m_sum, 0);
}

} // namespace vexmor::Bench
