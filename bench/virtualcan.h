#pragma once

#include "bench/gatewayProcess.h"
#include "bench/links.h"

namespace vexmor::Bench
{

/// The lines of Qt SerialBus's backend `virtualcan`: "can0:257##0102030405060708" from the client, the same without
/// "can0:" to it.
extern const SLanguage VIRTUALCAN_LANGUAGE;

/// Returns whether the backend is installed (Debian package libqt5serialbus5-plugins).
bool hasVirtualcan();

/// Qt SerialBus with `virtualcan`, connected over TCP to a gateway process that speaks its language.
std::unique_ptr<CLink> makeVirtualcanLink(EProtocol protocol, std::uint16_t port);

} // namespace vexmor::Bench
