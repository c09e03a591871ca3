#pragma once

#include "bench/wire.h"

#include <functional>
#include <memory>

/// The sides of a comparison: each a host of a gateway process at 127.0.0.1, in its own way, and what is timed of all
/// of them. They need the application object, throw when a call fails, and when nothing comes for PATIENCE_S.
namespace vexmor::Bench
{

class CLink
{
public:
    CLink() = default;
    virtual ~CLink() = default;
    CLink(const CLink&) = delete;
    CLink& operator=(const CLink&) = delete;

    virtual void send(const SMessage& message) = 0;
    /// So many messages at once, in the cheapest way that this side offers; they have left when it returns.
    virtual void sendBurst(const SMessage& message, int count)
    {
        for (int i = 0; i < count; ++i) {
            send(message);
        }
    }
    /// Waits until `count` messages have come, looks at each, and gives the sum (lookAt).
    virtual std::uint64_t receive(int count) = 0;
};

/// A side that takes its messages from Qt's event loop.
class CEventLoopLink : public CLink
{
public:
    std::uint64_t receive(int count) final;

protected:
    /// Counts what has arrived, where no signal of the event loop has done so.
    virtual void take() {}
    int m_received = 0; ///< Messages not yet taken by `receive`, and their sum.
    std::uint64_t m_sum = 0;
};

/// A connected, blocking socket and nothing else: the limit that the others are measured against. TCP frames leave at
/// once; a burst leaves in a single call of the kernel.
std::unique_ptr<CLink> makeRawLink(EProtocol protocol, std::uint16_t port);

/// A bare QTcpSocket or QUdpSocket in the event loop, with the raw side's parser: what is left of a plugin in Qt when
/// it does nothing. A message is flushed; a burst waits in Qt's buffer for the next turn of the event loop.
std::unique_ptr<CLink> makeQtLink(EProtocol protocol, std::uint16_t port);

/// The plugin: an open interface, drained after every turn of the event loop.
std::unique_ptr<CLink> makePluginLink(EProtocol protocol, std::uint16_t port);

/// Runs the event loop until the condition holds; throws when it does not within PATIENCE_S from the first turn that
/// changed nothing. The clock is not read before.
void waitUntil(const std::function<bool()>& condition);

} // namespace vexmor::Bench
