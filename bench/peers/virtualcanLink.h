#pragma once

#include "bench/wire.h"

#include <QCanBusDevice>

#include <memory>

namespace vexmor::Bench
{

/// What a Qt user would take instead: Qt SerialBus with its `virtualcan` backend, connected to a gateway process on
/// 127.0.0.1 that speaks its language. Needs the application object. Throws std::runtime_error when it cannot, and when
/// nothing comes for PATIENCE_S.
class CVirtualcanLink
{
public:
    explicit CVirtualcanLink(std::uint16_t port);

    void send(const SMessage& message);
    /// `count` messages with nothing between them.
    void sendJoined(const SMessage& message, int count);
    /// Runs the event loop until `count` messages were read.
    void receive(int count);

private:
    std::unique_ptr<QCanBusDevice> m_device;
    int m_read = 0; ///< messages read and not yet asked for
};

} // namespace vexmor::Bench
