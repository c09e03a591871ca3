#pragma once

#include "vxCore/vxCoreExport.h"

namespace vexmor::CoreLib
{

/// Functions for the calling thread.
class VXCORE_EXPORT CThread
{
public:
    /// Pauses the calling thread for at least `milliseconds`, without processing events.
    static void sleepMsecs(unsigned int milliseconds);
};

} // namespace vexmor::CoreLib
