#pragma once

#include "cim/canMessage.h"

#include <QObject>

#include <cstdint>

namespace vexmor::Sim
{

/// A simulated CAN bus: what is sent on it reaches every gateway on it but the one it came through. It carries any
/// number of messages; its load may therefore pass 100 percent. Lives in one thread, together with its gateways.
class CSimBus : public QObject
{
    Q_OBJECT

public:
    /// Bit rate in kbit/s, 500 at first; the gateways set it when a host requests another.
    std::uint32_t baudrate() const { return m_baudrate; }
    void setBaudrate(std::uint32_t kbitPerSecond) { m_baudrate = kbitPerSecond; }

    /// Puts a message on the bus; `sender` is the gateway it came through, null for any other device on the bus.
    void send(const Cim::CCanMessage& message, const QObject* sender = nullptr) { Q_EMIT messageSent(message, sender); }

Q_SIGNALS:
    void messageSent(const vexmor::Cim::CCanMessage& message, const QObject* sender);

private:
    std::uint32_t m_baudrate = 500;
};

} // namespace vexmor::Sim
