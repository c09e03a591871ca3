#pragma once

#include "apps/host/mailbox.h"

namespace vexmor::Apps::Cimview
{

/// A message as the models keep it, by the hundred thousand.
using STraceRecord = SBusRecord;

} // namespace vexmor::Apps::Cimview
