#pragma once

#include "apps/cimctl/output.h"
#include "apps/common/failure.h"
#include "apps/common/pluginFolder.h"

#include <QString>

namespace vexmor::Apps::Cimctl
{

struct SDemoOptions {
    SPluginPlace place;
    QString logFile;     ///< played as the traffic on the bus; empty: generated traffic
    QString scanAddress; ///< begins with a scan, in a network where this computer has only this address; empty: without
};

/// Shows and explains what the library does: loads the plugin and works with it over TCP, then UDP, on a simulated
/// gateway in this program. Every step is checked; refused when one did not do what it should.
EExitCode demo(COutput& output, const SDemoOptions& options);

} // namespace vexmor::Apps::Cimctl
