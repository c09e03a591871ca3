#include "bench/links.h"
#include "bench/measuring.h"
#include "bench/pluginInterface.h"

#include <QCanBus>

#include <algorithm>
#include <cstdio>

namespace vexmor::Bench
{
namespace
{
const QString BACKEND = QStringLiteral("virtualcan");

void append(const SMessage& message, std::vector<std::uint8_t>& bytes)
{
    const auto& d = message.data;
    const std::string line =
        text("%d##%02x%02x%02x%02x%02x%02x%02x%02x\n", message.id, d[0], d[1], d[2], d[3], d[4], d[5], d[6], d[7]);
    bytes.insert(bytes.end(), line.begin(), line.end());
}

std::size_t parse(const std::uint8_t* bytes, std::size_t count, const OnMessage& onMessage)
{
    std::size_t used = 0;
    for (const std::uint8_t* stop = nullptr; (stop = std::find(bytes + used, bytes + count, '\n')) != bytes + count;) {
        const std::string line(bytes + used, stop);
        SMessage message;
        auto& d = message.data;
        if (std::sscanf(line.c_str(), "can0:%hu##%2hhx%2hhx%2hhx%2hhx%2hhx%2hhx%2hhx%2hhx", &message.id, &d[0], &d[1],
                        &d[2], &d[3], &d[4], &d[5], &d[6], &d[7]) == 9) { // other lines announce the client
            onMessage(message);
        }
        used = static_cast<std::size_t>(stop + 1 - bytes);
    }
    return used;
}

class CVirtualcanLink : public CEventLoopLink
{
public:
    explicit CVirtualcanLink(std::uint16_t port)
    {
        // The backend also tries to be the server at a loopback address, finds the port in use and stays a client.
        QString error;
        const QString name = QStringLiteral("tcp://127.0.0.1:%1/can0").arg(port);
        m_device.reset(QCanBus::instance()->createDevice(BACKEND, name, &error));
        if (!m_device || !m_device->connectDevice()) {
            throw std::runtime_error((m_device ? m_device->errorString() : error).toStdString());
        }
        waitUntil([this] { return m_device->state() == QCanBusDevice::ConnectedState; });
    }
    /// Sends a message, which leaves in the next turn of the event loop.
    void send(const SMessage& message) override
    {
        const QByteArray data(reinterpret_cast<const char*>(message.data.data()), DATA_SIZE);
        if (!m_device->writeFrame(QCanBusFrame(message.id, data))) {
            throw std::runtime_error(m_device->errorString().toStdString());
        }
    }

private:
    void take() override
    {
        const QVector<QCanBusFrame> frames = m_device->readAllFrames(); // the backend has no cheaper way to read
        for (const QCanBusFrame& frame : frames) {
            const QByteArray data = frame.payload();
            look(static_cast<std::uint16_t>(frame.frameId()), static_cast<std::size_t>(data.size()),
                 reinterpret_cast<const std::uint8_t*>(data.constData()));
        }
    }
    std::unique_ptr<QCanBusDevice> m_device;
};
} // namespace

const SLanguage VIRTUALCAN_LANGUAGE{append, parse};

bool hasVirtualcan()
{
    return QCanBus::instance()->plugins().contains(BACKEND);
}

std::unique_ptr<CLink> makeVirtualcanLink(EProtocol /*protocol*/, std::uint16_t port)
{
    return std::make_unique<CVirtualcanLink>(port);
}

} // namespace vexmor::Bench
