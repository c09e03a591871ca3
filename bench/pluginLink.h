#pragma once

#include "bench/wire.h"
#include "cim/canInterface.h"

#include <memory>

namespace vexmor::Bench
{

/// A host's view of a gateway through the plugin: everything by way of the contract. Needs the application object.
class CPluginLink
{
public:
    /// A closed interface for a gateway. With `bindAny` a UDP interface is bound to any address of the PC, and has to
    /// look at each datagram's sender.
    CPluginLink(EProtocol protocol, std::uint16_t port, bool bindAny = false,
                const QString& address = QStringLiteral("127.0.0.1"));

    /// Throws std::runtime_error with the interface's own text when it cannot.
    void open();
    void close();
    /// Throws when the message is refused.
    void send(const SMessage& message);
    /// `count` messages with nothing between them; how they travel is up to the plugin.
    void sendJoined(const SMessage& message, int count);
    /// Runs the event loop until `count` messages were read; throws when nothing comes for PATIENCE_S.
    void receive(int count);
    Cim::CCanInterface& canInterface() { return *m_interface; }

    /// The oldest message that was received; false when there is none.
    bool read(Cim::CCanMessage& message) { return m_interface->readMessage(message) == 0; }

private:
    std::unique_ptr<Cim::CCanInterface> m_interface;
};

} // namespace vexmor::Bench
