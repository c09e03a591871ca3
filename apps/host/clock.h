#pragma once

#include <chrono>
#include <cstdint>

namespace vexmor::Apps
{

/// Microseconds since the epoch.
inline std::int64_t microsecondsNow()
{
    using namespace std::chrono;
    return duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
}

} // namespace vexmor::Apps
