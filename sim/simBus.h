#pragma once

#include "cim/canMessage.h"

#include <QObject>

#include <cstdint>

namespace vexmor::Sim
{

/// A simulated CAN bus: a message sent on it reaches every gateway except the gateway through which it came. The number
/// of messages is not limited, so that the load can exceed 100 percent. It lives in the thread of its gateways.
class CSimBus : public QObject
{
    Q_OBJECT

public:
    /// The bit rate in kbit/s, initially 500; the gateways set it at the request of a host.
    std::uint32_t baudrate() const { return m_baudrate; }
    void setBaudrate(std::uint32_t kbitPerSecond) { m_baudrate = kbitPerSecond; }

    /// Puts a message on the bus. `sender` is the gateway through which it came; null stands for another device.
    void send(const Cim::CCanMessage& message, const QObject* sender = nullptr) { Q_EMIT messageSent(message, sender); }

Q_SIGNALS:
    void messageSent(const vexmor::Cim::CCanMessage& message, const QObject* sender);

private:
    std::uint32_t m_baudrate = 500;
};

} // namespace vexmor::Sim
