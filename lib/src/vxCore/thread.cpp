#include "vxCore/thread.h"

#include <chrono>
#include <thread>

namespace vexmor::CoreLib
{

void CThread::sleepMsecs(unsigned int milliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

} // namespace vexmor::CoreLib
