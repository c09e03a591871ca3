#pragma once

#include "bench/gatewayProcess.h"

/// What the peers' hosts expect of a gateway on a socket.
namespace vexmor::Bench
{

/// The lines of Qt SerialBus's `virtualcan`: "can0:257##0102030405060708" from the client, the same without "can0:" to
/// it.
extern const SLanguage VIRTUALCAN_LANGUAGE;
/// The text of a socketcand server, to which python-can connects: "< send 101 8 1 2 3 4 5 6 7 8 >" from the client,
/// "< frame 101 0.0 0102030405060708 >" to it.
extern const SLanguage SOCKETCAND_LANGUAGE;

} // namespace vexmor::Bench
