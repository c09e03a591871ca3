#pragma once

#include "bench/wire.h"
#include "cim/canInterface.h"

#include <QAbstractSocket>

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
    virtual void sendBurst(const SMessage& message, int count);
    /// Waits until `count` messages have come, looks at each, and gives the sum (lookAt).
    virtual std::uint64_t receive(int count) = 0;
};

/// A connected, blocking socket and nothing else: the limit that the others are measured against. TCP frames leave at
/// once.
class CRawLink : public CLink
{
public:
    CRawLink(EProtocol protocol, std::uint16_t port);
    ~CRawLink() override;
    void send(const SMessage& message) override;
    /// Over TCP in a single call of the kernel.
    void sendBurst(const SMessage& message, int count) override;
    std::uint64_t receive(int count) override;

private:
    void sendBytes(const std::uint8_t* bytes, std::size_t count);

    const EProtocol m_protocol;
    int m_socket = -1;
    CFrameReader m_reader;
};

/// A bare QTcpSocket or QUdpSocket in the event loop, with the raw side's parser: what is left of a plugin in Qt when
/// it does nothing.
class CQtLink : public CLink
{
public:
    CQtLink(EProtocol protocol, std::uint16_t port);
    /// Past Qt's buffer.
    void send(const SMessage& message) override;
    /// Over TCP into Qt's buffer, from which it leaves in the next turn of the event loop.
    void sendBurst(const SMessage& message, int count) override;
    std::uint64_t receive(int count) override;

private:
    void write(const SMessage& message);
    void onReadyRead();

    const std::uint16_t m_port; ///< of the gateway
    std::unique_ptr<QAbstractSocket> m_socket;
    CFrameReader m_reader;
    int m_received = 0; ///< messages not yet asked for, and their sum
    std::uint64_t m_sum = 0;
};

/// The plugin: an open interface, drained after every turn of the event loop.
class CPluginLink : public CLink
{
public:
    CPluginLink(EProtocol protocol, std::uint16_t port);
    ~CPluginLink() override;
    void send(const SMessage& message) override;
    std::uint64_t receive(int count) override;

private:
    std::unique_ptr<Cim::CCanInterface> m_interface;
};

/// Runs the event loop until the condition holds; throws when it does not within PATIENCE_S from the first turn that
/// changed nothing. The clock is not read before.
void waitUntil(const std::function<bool()>& condition);

} // namespace vexmor::Bench
