#include "bench/virtualcanLink.h"

#include "bench/eventLoop.h"

#include <QCanBus>

#include <stdexcept>

namespace vexmor::Bench
{

CVirtualcanLink::CVirtualcanLink(std::uint16_t port)
{
    // The backend also tries to be the server at a loopback address, finds the port taken and stays a client.
    QString error;
    m_device.reset(QCanBus::instance()->createDevice(QStringLiteral("virtualcan"),
                                                     QStringLiteral("tcp://127.0.0.1:%1/can0").arg(port), &error));
    if (!m_device || !m_device->connectDevice()) {
        throw std::runtime_error("virtualcan: " + (m_device ? m_device->errorString() : error).toStdString());
    }
    waitUntil([this] { return m_device->state() == QCanBusDevice::ConnectedState; }, "virtualcan does not connect");
}

void CVirtualcanLink::send(const SMessage& message)
{
    const QByteArray data(reinterpret_cast<const char*>(message.data.data()), static_cast<int>(message.data.size()));
    if (!m_device->writeFrame(QCanBusFrame(message.id, data))) {
        throw std::runtime_error(m_device->errorString().toStdString());
    }
}

void CVirtualcanLink::sendJoined(const SMessage& message, int count)
{
    for (int i = 0; i < count; ++i) {
        send(message);
    }
}

void CVirtualcanLink::receive(int count)
{
    waitUntil(
        [this, count] {
            m_read += m_device->framesAvailable() > 0 ? m_device->readAllFrames().size() : 0;
            return m_read >= count;
        },
        "virtualcan: messages missing");
    m_read -= count;
}

} // namespace vexmor::Bench
