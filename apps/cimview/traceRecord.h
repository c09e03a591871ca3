#pragma once

#include "apps/host/mailbox.h"

namespace vexmor::Apps::Cimview
{

/// One message on its way to the models, and as they keep it by the hundred thousand.
using STraceRecord = SBusRecord;

} // namespace vexmor::Apps::Cimview
