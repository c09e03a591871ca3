#pragma once

#include "bench/wire.h"
#include "cim/canInterface.h"
#include "cim/canInterfacePlugin.h"

#include <functional>
#include <memory>

/// The plugin as a host application uses it, by the contract alone.
namespace vexmor::Bench
{

/// Returns the plugin, which is loaded once. Throws std::runtime_error when it cannot be loaded.
Cim::CCanInterfacePlugin& plugin();

/// Returns a closed interface for a gateway.
std::unique_ptr<Cim::CCanInterface> makeInterface(EProtocol protocol, std::uint16_t port,
                                                  const QString& address = QStringLiteral("127.0.0.1"));

/// Opens the interface. Throws std::runtime_error with the interface's own text when this fails.
void open(Cim::CCanInterface& canInterface);
/// Closes the interface, and frees what Qt would keep until the event loop runs.
void close(Cim::CCanInterface& canInterface);

/// Runs the event loop for this time.
void runFor(int milliseconds);
/// Runs the event loop until the condition holds. Throws std::runtime_error when it does not hold after PATIENCE_S.
void waitUntil(const std::function<bool()>& condition);

} // namespace vexmor::Bench
