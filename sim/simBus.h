#pragma once

#include "cim/canMessage.h"

#include <QObject>

#include <cstdint>

namespace vexmor::Sim
{

/// A simulated CAN bus: what is sent on it reaches every gateway on it but the one it came through. It carries any
/// number of messages; its load may therefore pass 100 percent. Lives in one thread, together with its gateways. A bus
/// that stands for a real one derives from it.
class CSimBus : public QObject
{
    Q_OBJECT

public:
    explicit CSimBus(QObject* parent = nullptr);

    /// Bit rate in kbit/s, 500 at first; the gateways set it when a host asks for another.
    std::uint32_t baudrate() const { return m_baudrate; }
    void setBaudrate(std::uint32_t kbitPerSecond) { m_baudrate = kbitPerSecond; }

    /// Puts a message on the bus; `sender` is the gateway or the host it came through, null for any other device on the
    /// bus. False when the bus does not take it.
    virtual bool send(const Cim::CCanMessage& message, const QObject* sender = nullptr);

    /// Messages and bits (46 a message and its data bits) carried since the bus was made.
    std::uint64_t messageCount() const { return m_messageCount; }
    std::uint64_t bitCount() const { return m_bitCount; }

Q_SIGNALS:
    void messageSent(const vexmor::Cim::CCanMessage& message, const QObject* sender);

private:
    std::uint32_t m_baudrate = 500;
    std::uint64_t m_messageCount = 0;
    std::uint64_t m_bitCount = 0;
};

} // namespace vexmor::Sim
