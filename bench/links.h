#pragma once

#include "bench/processes.h"

#include <memory>

/// The sides of a comparison. Each side is another kind of host for a gateway process at 127.0.0.1. The sides need the
/// application object, and throw when a call fails or nothing arrives for PATIENCE_S.
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
    /// Waits until `count` messages have arrived, and returns the sum of `lookAt` of each.
    virtual std::uint64_t receive(int count) = 0;
};

/// A side that receives its messages in Qt's event loop.
class CEventLoopLink : public CLink
{
public:
    std::uint64_t receive(int count) final;

protected:
    /// Calls `look` with each message that has arrived, at most `m_missing` of them. Does nothing on a side that does
    /// so in a slot.
    virtual void take() {}
    void look(std::uint16_t id, std::size_t length, const std::uint8_t* data)
    {
        m_sum += lookAt(id, length, data);
        --m_missing;
    }
    int m_missing = 0; ///< Number of messages that `receive` waits for.
    std::uint64_t m_sum = 0;
};

/// A connected, blocking socket and nothing else: the limit that the other sides are measured against. TCP frames leave
/// at once.
std::unique_ptr<CLink> makeRawLink(EProtocol protocol, std::uint16_t port);

/// A bare QTcpSocket or QUdpSocket in the event loop, with the parser of the raw side: the cost of Qt without a plugin.
/// Each message is flushed.
std::unique_ptr<CLink> makeQtLink(EProtocol protocol, std::uint16_t port);

/// The plugin: an open interface, drained after every turn of the event loop.
std::unique_ptr<CLink> makePluginLink(EProtocol protocol, std::uint16_t port);

/// Qt SerialBus with its backend `virtualcan`, connected over TCP to a gateway process that uses its text format: a
/// message is "can0:257##0102030405060708" from the client, and "257##0102030405060708" to the client.
extern const SLanguage VIRTUALCAN_LANGUAGE;
std::unique_ptr<CLink> makeVirtualcanLink(EProtocol protocol, std::uint16_t port);
/// Returns whether the backend is installed (Debian package libqt5serialbus5-plugins).
bool hasVirtualcan();

} // namespace vexmor::Bench
