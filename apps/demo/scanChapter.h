#pragma once

#include "apps/demo/narrator.h"
#include "apps/host/pluginFolder.h"

#include <QString>

namespace vexmor::Apps::Demo
{

/// The chapter of the demonstration in which the gateway is found by a scan and opened as it was found. Wrong usage
/// unless `address` is the only network address of this computer: a scan asks everybody, and a demonstration asks
/// nobody but its own gateway. script/demo makes such a network.
void demonstrateScan(CNarrator& narrator, const SPlugin& plugin, const QString& address);

} // namespace vexmor::Apps::Demo
