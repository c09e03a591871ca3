#pragma once

#include "bench/links.h"

#include <QCanBusDevice>

#include <memory>

namespace vexmor::Bench
{

/// What a Qt user would take instead: Qt SerialBus with its `virtualcan` backend, connected to a gateway process that
/// speaks its language. What it is given to send leaves in the next turn of the event loop.
class CVirtualcanLink : public CLink
{
public:
    CVirtualcanLink(EProtocol protocol, std::uint16_t port);
    void send(const SMessage& message) override;
    void sendBurst(const SMessage& message, int count) override;
    std::uint64_t receive(int count) override;

private:
    std::unique_ptr<QCanBusDevice> m_device;
    int m_received = 0; ///< messages not yet asked for, and their sum
    std::uint64_t m_sum = 0;
};

} // namespace vexmor::Bench
