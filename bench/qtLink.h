#pragma once

#include "bench/wire.h"

#include <QAbstractSocket>

#include <memory>

namespace vexmor::Bench
{

/// A bare QTcpSocket or QUdpSocket in the event loop, with the benchmark's own parser: what is left of a plugin in Qt
/// when it does nothing. Needs the application object. Throws std::runtime_error when it cannot connect or send, and
/// when nothing comes for PATIENCE_S.
class CQtLink
{
public:
    CQtLink(EProtocol protocol, std::uint16_t port);

    void send(const SMessage& message);
    /// Runs the event loop until `count` messages have come.
    void receive(int count);

private:
    void onReadyRead();

    std::unique_ptr<QAbstractSocket> m_socket;
    std::uint16_t m_port; ///< of the gateway
    int m_received = 0;   ///< messages not yet asked for
};

} // namespace vexmor::Bench
