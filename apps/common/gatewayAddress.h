#pragma once

#include "apps/common/interfaceStore.h"

#include <QString>

namespace vexmor::Apps
{

/// Reads an address of either form into settings; values that stand there already (from options) must not differ. False
/// when the text is no address; fails when it is one with a wrong port or protocol.
bool parseAddress(const QString& text, Settings& settings);

} // namespace vexmor::Apps
