#pragma once

#include "bench/wire.h"
#include "cim/canInterface.h"
#include "cim/canInterfacePlugin.h"

#include <functional>
#include <memory>

/// What a host has of the plugin: everything by way of the contract.
namespace vexmor::Bench
{

/// The plugin, loaded once. Throws std::runtime_error when it cannot be.
Cim::CCanInterfacePlugin& plugin();

/// A closed interface for a gateway.
std::unique_ptr<Cim::CCanInterface> makeInterface(EProtocol protocol, std::uint16_t port,
                                                  const QString& address = QStringLiteral("127.0.0.1"));

/// Opens it; throws std::runtime_error with the interface's own text when it cannot.
void open(Cim::CCanInterface& canInterface);
/// Closes it, and frees what Qt would keep until the event loop turns.
void close(Cim::CCanInterface& canInterface);

/// Runs the event loop for so long.
void runFor(int milliseconds);
/// Runs the event loop until the condition holds; throws std::runtime_error when an event after PATIENCE_S changes
/// nothing.
void waitUntil(const std::function<bool()>& condition);

} // namespace vexmor::Bench
