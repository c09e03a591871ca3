#include "vxCore/logging.h"

#include <atomic>

namespace vexmor::CoreLib::Logging
{
namespace
{
std::atomic<VxLogHandler> s_handler{nullptr};
std::atomic<int> s_level{30};
} // namespace

VxLogHandler VxLoggingHandler()
{
    return s_handler.load(std::memory_order_acquire);
}

int VxLoggingLevel()
{
    return s_level.load(std::memory_order_relaxed);
}

void setVxLoggingHandler(VxLogHandler handler)
{
    s_handler.store(handler, std::memory_order_release);
}

void setVxLoggingLevel(int level)
{
    s_level.store(level, std::memory_order_relaxed);
}

} // namespace vexmor::CoreLib::Logging
